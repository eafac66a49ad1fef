// The DES block cipher (FIPS 46) in its word-oriented, table-driven form:
// the initial and final permutations are done with word swaps and masks, the
// halves are kept rotated left by one bit, and each round looks up eight
// tables that merge an S-box with the P permutation (SP1..SP8, derived below
// from the published S-boxes and P at compile time). Subkeys are cooked once
// into two words of 6-bit groups per round, in the order of use, so
// encryption and decryption share one block routine. Table lookups are
// indexed by key-dependent data: this is not constant-time.
#include <array>

#include "crypto/crypto_internal.h"

namespace kt::crypto {
namespace {

using SBox = std::array<std::array<unsigned char, 16>, 4>;  // [row][column]

// The eight S-boxes of FIPS 46: S[k][row][column], k = 0 for S1.
constexpr std::array<SBox, 8> kSBoxes = {{
    {{{14, 4, 13, 1, 2, 15, 11, 8, 3, 10, 6, 12, 5, 9, 0, 7},
      {0, 15, 7, 4, 14, 2, 13, 1, 10, 6, 12, 11, 9, 5, 3, 8},
      {4, 1, 14, 8, 13, 6, 2, 11, 15, 12, 9, 7, 3, 10, 5, 0},
      {15, 12, 8, 2, 4, 9, 1, 7, 5, 11, 3, 14, 10, 0, 6, 13}}},
    {{{15, 1, 8, 14, 6, 11, 3, 4, 9, 7, 2, 13, 12, 0, 5, 10},
      {3, 13, 4, 7, 15, 2, 8, 14, 12, 0, 1, 10, 6, 9, 11, 5},
      {0, 14, 7, 11, 10, 4, 13, 1, 5, 8, 12, 6, 9, 3, 2, 15},
      {13, 8, 10, 1, 3, 15, 4, 2, 11, 6, 7, 12, 0, 5, 14, 9}}},
    {{{10, 0, 9, 14, 6, 3, 15, 5, 1, 13, 12, 7, 11, 4, 2, 8},
      {13, 7, 0, 9, 3, 4, 6, 10, 2, 8, 5, 14, 12, 11, 15, 1},
      {13, 6, 4, 9, 8, 15, 3, 0, 11, 1, 2, 12, 5, 10, 14, 7},
      {1, 10, 13, 0, 6, 9, 8, 7, 4, 15, 14, 3, 11, 5, 2, 12}}},
    {{{7, 13, 14, 3, 0, 6, 9, 10, 1, 2, 8, 5, 11, 12, 4, 15},
      {13, 8, 11, 5, 6, 15, 0, 3, 4, 7, 2, 12, 1, 10, 14, 9},
      {10, 6, 9, 0, 12, 11, 7, 13, 15, 1, 3, 14, 5, 2, 8, 4},
      {3, 15, 0, 6, 10, 1, 13, 8, 9, 4, 5, 11, 12, 7, 2, 14}}},
    {{{2, 12, 4, 1, 7, 10, 11, 6, 8, 5, 3, 15, 13, 0, 14, 9},
      {14, 11, 2, 12, 4, 7, 13, 1, 5, 0, 15, 10, 3, 9, 8, 6},
      {4, 2, 1, 11, 10, 13, 7, 8, 15, 9, 12, 5, 6, 3, 0, 14},
      {11, 8, 12, 7, 1, 14, 2, 13, 6, 15, 0, 9, 10, 4, 5, 3}}},
    {{{12, 1, 10, 15, 9, 2, 6, 8, 0, 13, 3, 4, 14, 7, 5, 11},
      {10, 15, 4, 2, 7, 12, 9, 5, 6, 1, 13, 14, 0, 11, 3, 8},
      {9, 14, 15, 5, 2, 8, 12, 3, 7, 0, 4, 10, 1, 13, 11, 6},
      {4, 3, 2, 12, 9, 5, 15, 10, 11, 14, 1, 7, 6, 0, 8, 13}}},
    {{{4, 11, 2, 14, 15, 0, 8, 13, 3, 12, 9, 7, 5, 10, 6, 1},
      {13, 0, 11, 7, 4, 9, 1, 10, 14, 3, 5, 12, 2, 15, 8, 6},
      {1, 4, 11, 13, 12, 3, 7, 14, 10, 15, 6, 8, 0, 5, 9, 2},
      {6, 11, 13, 8, 1, 4, 10, 7, 9, 5, 0, 15, 14, 2, 3, 12}}},
    {{{13, 2, 8, 4, 6, 15, 11, 1, 10, 9, 3, 14, 5, 0, 12, 7},
      {1, 15, 13, 8, 10, 3, 7, 4, 12, 5, 6, 11, 0, 14, 9, 2},
      {7, 11, 4, 1, 9, 12, 14, 2, 0, 6, 10, 13, 15, 3, 5, 8},
      {2, 1, 14, 7, 4, 10, 8, 13, 15, 12, 9, 0, 3, 5, 6, 11}}},
}};

// P: output bit i (1-based, 1 = most significant) is input bit P[i - 1].
constexpr std::array<unsigned char, 32> kP = {16, 7, 20, 21, 29, 12, 28, 17, 1,  15, 23,
                                              26, 5, 18, 31, 10, 2,  8,  24, 14, 32, 27,
                                              3,  9, 19, 13, 30, 6,  22, 11, 4,  25};

constexpr bool RowsArePermutations() {
  for (const SBox& box : kSBoxes) {
    for (const auto& row : box) {
      unsigned seen = 0;
      for (unsigned char v : row) seen |= 1u << v;
      if (seen != 0xFFFF) return false;
    }
  }
  return true;
}
static_assert(RowsArePermutations(), "every S-box row is a permutation of 0..15");

// SP[k][x]: S-box k + 1 applied to the 6-bit group x (its first bit as the
// most significant), placed in its nibble, sent through P and rotated left
// one bit, as the rotated halves expect.
constexpr std::array<std::array<std::uint32_t, 64>, 8> kSP = [] {
  std::array<std::array<std::uint32_t, 64>, 8> sp{};
  for (unsigned k = 0; k < 8; ++k) {
    for (unsigned x = 0; x < 64; ++x) {
      const unsigned row = ((x >> 4) & 2) | (x & 1);
      const unsigned column = (x >> 1) & 0xF;
      const std::uint32_t s = std::uint32_t{kSBoxes[k][row][column]} << (28 - 4 * k);
      std::uint32_t p = 0;
      for (unsigned i = 0; i < 32; ++i) {
        if ((s >> (32 - kP[i])) & 1) p |= std::uint32_t{1} << (31 - i);
      }
      sp[k][x] = (p << 1) | (p >> 31);
    }
  }
  return sp;
}();
constexpr const auto& SP1 = kSP[0];
constexpr const auto& SP2 = kSP[1];
constexpr const auto& SP3 = kSP[2];
constexpr const auto& SP4 = kSP[3];
constexpr const auto& SP5 = kSP[4];
constexpr const auto& SP6 = kSP[5];
constexpr const auto& SP7 = kSP[6];
constexpr const auto& SP8 = kSP[7];

// PC1[j]: the key bit (0-based, bit 0 = most significant of byte 0) that
// becomes bit j of the 56-bit C||D register.
constexpr std::array<unsigned char, 56> PC1 = {
    56, 48, 40, 32, 24, 16, 8,  0,  57, 49, 41, 33, 25, 17, 9,  1,  58, 50, 42,
    34, 26, 18, 10, 2,  59, 51, 43, 35, 62, 54, 46, 38, 30, 22, 14, 6,  61, 53,
    45, 37, 29, 21, 13, 5,  60, 52, 44, 36, 28, 20, 12, 4,  27, 19, 11, 3};

// PC2[j]: the bit of the rotated C||D register that becomes round-key bit j.
constexpr std::array<unsigned char, 48> PC2 = {
    13, 16, 10, 23, 0,  4,  2,  27, 14, 5,  20, 9,  22, 18, 11, 3,  25, 7,  15, 6,  26, 19, 12, 1,
    40, 51, 30, 36, 46, 54, 29, 39, 50, 44, 32, 47, 43, 48, 38, 55, 33, 52, 45, 41, 49, 35, 28, 31};

// Cumulative left rotation of each 28-bit half before round i.
constexpr std::array<unsigned char, 16> TOTAL_ROTATIONS = {1,  2,  4,  6,  8,  10, 12, 14,
                                                           15, 17, 19, 21, 23, 25, 27, 28};

// BYTE_BIT[b]: mask of bit b (0 = most significant) within a key byte.
constexpr std::array<unsigned char, 8> BYTE_BIT = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01};

// BIG_BYTE[j]: mask of round-key bit j within a 24-bit raw word.
constexpr std::array<std::uint32_t, 24> BIG_BYTE = [] {
  std::array<std::uint32_t, 24> t{};
  for (unsigned j = 0; j < 24; ++j) t[j] = std::uint32_t{0x800000} >> j;
  return t;
}();

inline std::uint32_t RotateRight4(std::uint32_t x) { return (x << 28) | (x >> 4); }

// One round: f of the rotated half `right` with two subkey words, into left.
inline void Round(std::uint32_t& left, std::uint32_t right, const std::uint32_t* keys) {
  std::uint32_t work = RotateRight4(right) ^ keys[0];
  std::uint32_t f = SP7[work & 0x3F] | SP5[(work >> 8) & 0x3F] | SP3[(work >> 16) & 0x3F] |
                    SP1[(work >> 24) & 0x3F];
  work = right ^ keys[1];
  f |= SP8[work & 0x3F] | SP6[(work >> 8) & 0x3F] | SP4[(work >> 16) & 0x3F] |
       SP2[(work >> 24) & 0x3F];
  left ^= f;
}

// Initial permutation as a sequence of swaps of masked bit groups; both
// halves end rotated left by one bit.
inline void InitialPermutation(std::uint32_t& left, std::uint32_t& right) {
  std::uint32_t work = ((left >> 4) ^ right) & 0x0F0F0F0F;
  right ^= work;
  left ^= work << 4;
  work = ((left >> 16) ^ right) & 0x0000FFFF;
  right ^= work;
  left ^= work << 16;
  work = ((right >> 2) ^ left) & 0x33333333;
  left ^= work;
  right ^= work << 2;
  work = ((right >> 8) ^ left) & 0x00FF00FF;
  left ^= work;
  right ^= work << 8;
  right = (right << 1) | (right >> 31);
  work = (left ^ right) & 0xAAAAAAAA;
  left ^= work;
  right ^= work;
  left = (left << 1) | (left >> 31);
}

// Final permutation: the same swaps in reverse, halves exchanged into block.
inline void FinalPermutation(std::uint32_t block[2], std::uint32_t left, std::uint32_t right) {
  right = (right << 31) | (right >> 1);
  std::uint32_t work = (left ^ right) & 0xAAAAAAAA;
  left ^= work;
  right ^= work;
  left = (left << 31) | (left >> 1);
  work = ((left >> 8) ^ right) & 0x00FF00FF;
  right ^= work;
  left ^= work << 8;
  work = ((left >> 2) ^ right) & 0x33333333;
  right ^= work;
  left ^= work << 2;
  work = ((right >> 16) ^ left) & 0x0000FFFF;
  left ^= work;
  right ^= work << 16;
  work = ((right >> 4) ^ left) & 0x0F0F0F0F;
  left ^= work;
  right ^= work << 4;
  block[0] = right;
  block[1] = left;
}

}  // namespace

// Two independent blocks with their rounds interleaved: the table lookups of
// one overlap those of the other, which a single chain of rounds cannot do.
void DESFunction2(std::uint32_t a[2], std::uint32_t b[2], const std::uint32_t subkeys[32]) {
  std::uint32_t left_a = a[0], right_a = a[1];
  std::uint32_t left_b = b[0], right_b = b[1];
  InitialPermutation(left_a, right_a);
  InitialPermutation(left_b, right_b);
  for (unsigned round = 0; round < 8; ++round, subkeys += 4) {
    Round(left_a, right_a, subkeys);
    Round(left_b, right_b, subkeys);
    Round(right_a, left_a, subkeys + 2);
    Round(right_b, left_b, subkeys + 2);
  }
  FinalPermutation(a, left_a, right_a);
  FinalPermutation(b, left_b, right_b);
}

}  // namespace kt::crypto

/* see kt_crypto.h */
void DESKey(uint32_t subkeys[32], const unsigned char key[8], int32_t encrypt) {
  using namespace kt::crypto;
  unsigned char pc1m[56], pcr[56];
  uint32_t raw[32];
  kt::WipeOnExit wipe(pc1m, pcr, raw);

  for (unsigned j = 0; j < 56; ++j) {
    const unsigned bit = PC1[j];
    pc1m[j] = (key[bit >> 3] & BYTE_BIT[bit & 7]) ? 1 : 0;
  }
  for (unsigned i = 0; i < 16; ++i) {
    raw[2 * i] = raw[2 * i + 1] = 0;
    for (unsigned j = 0; j < 56; ++j) {
      // Each 28-bit half rotates on its own.
      const unsigned half_end = j < 28 ? 28 : 56;
      const unsigned l = j + TOTAL_ROTATIONS[i];
      pcr[j] = pc1m[l < half_end ? l : l - 28];
    }
    for (unsigned j = 0; j < 24; ++j) {
      if (pcr[PC2[j]]) raw[2 * i] |= BIG_BYTE[j];
      if (pcr[PC2[j + 24]]) raw[2 * i + 1] |= BIG_BYTE[j];
    }
  }
  CookKey(subkeys, raw, encrypt);
}

/* see kt_crypto.h */
void CookKey(uint32_t subkeys[32], const uint32_t raw[32], int32_t encrypt) {
  for (unsigned i = 0; i < 16; ++i) {
    // Decryption uses the rounds backwards: pair 15 first.
    const uint32_t* pair = &raw[2 * (encrypt ? i : 15 - i)];
    const uint32_t raw0 = pair[0];
    const uint32_t raw1 = pair[1];
    subkeys[2 * i] = ((raw0 & 0x00FC0000) << 6) | ((raw0 & 0x00000FC0) << 10) |
                     ((raw1 & 0x00FC0000) >> 10) | ((raw1 & 0x00000FC0) >> 6);
    subkeys[2 * i + 1] = ((raw0 & 0x0003F000) << 12) | ((raw0 & 0x0000003F) << 16) |
                         ((raw1 & 0x0003F000) >> 4) | (raw1 & 0x0000003F);
  }
}

/* see kt_crypto.h */
void DESFunction(uint32_t block[2], const uint32_t subkeys[32]) {
  uint32_t left = block[0];
  uint32_t right = block[1];
  kt::crypto::InitialPermutation(left, right);
  for (unsigned round = 0; round < 8; ++round, subkeys += 4) {
    kt::crypto::Round(left, right, subkeys);
    kt::crypto::Round(right, left, subkeys + 2);
  }
  kt::crypto::FinalPermutation(block, left, right);
}

/* see kt_crypto.h */
void Pack(uint32_t into[2], const unsigned char outof[8]) {
  into[0] = kt::LoadBigEndian32(outof);
  into[1] = kt::LoadBigEndian32(outof + 4);
}

/* see kt_crypto.h */
void Unpack(unsigned char into[8], const uint32_t outof[2]) {
  kt::StoreBigEndian32(into, outof[0]);
  kt::StoreBigEndian32(into + 4, outof[1]);
}
