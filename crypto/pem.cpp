// The printable encoding (RFC 1421, the Base64 alphabet), without line
// breaks:
//
//   bytes   b0        b1        b2
//           aaaaaabb  bbbbcccc  ccdddddd   ->  characters a b c d
//
// Every 3 bytes become 4 characters from A-Z a-z 0-9 + /; a last group of 1
// or 2 bytes becomes 2 or 3 characters and "=" fill to 4. Decoding accepts
// exactly that: a length that is a multiple of 4, the alphabet everywhere,
// "=" only as the last quantum's third and fourth characters (after a "=" in
// third place the fourth is not looked at). Unused low bits need not be 0.
#include <array>

#include "crypto/crypto_internal.h"

namespace kt::crypto {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char kPad = '=';
constexpr int kNotInAlphabet = -1;

// kValue[c]: the 6-bit value of character c, or kNotInAlphabet.
constexpr std::array<int, 256> kValue = [] {
  std::array<int, 256> v{};
  v.fill(kNotInAlphabet);
  for (int i = 0; i < 64; ++i) v[static_cast<unsigned char>(kAlphabet[i])] = i;
  return v;
}();

unsigned char Char(std::uint32_t bits) { return static_cast<unsigned char>(kAlphabet[bits & 0x3F]); }

// Adds the 6-bit value of c to *bits; false for a character outside the
// alphabet ("=" included).
bool Append(std::uint32_t* bits, unsigned char c) {
  const int value = kValue[c];
  if (value == kNotInAlphabet) return false;
  *bits = (*bits << 6) | static_cast<std::uint32_t>(value);
  return true;
}

void StoreBytes(unsigned char* block, std::uint32_t bits, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count; ++i) {
    block[i] = static_cast<unsigned char>(bits >> (16 - 8 * i));
  }
}

}  // namespace
}  // namespace kt::crypto

using kt::crypto::Append;
using kt::crypto::kPad;

/* see kt_crypto.h */
uint32_t R_EncodePEMBlock(unsigned char* encodedBlock, uint32_t* encodedBlockLen,
                          const unsigned char* block, uint32_t blockLen) {
  if (blockLen == 0) {
    *encodedBlockLen = 0;
    return KT_RE_OK;
  }
  const uint32_t quanta = (blockLen - 1) / 3;
  for (uint32_t i = 0; i < quanta; ++i) EncodeQuantum(&encodedBlock[4 * i], &block[3 * i]);
  EncodeLastQuantum(&encodedBlock[4 * quanta], &block[3 * quanta], blockLen - 3 * quanta);
  *encodedBlockLen = 4 * quanta + 4;
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_DecodePEMBlock(unsigned char* block, uint32_t* blockLen,
                          const unsigned char* encodedBlock, uint32_t encodedBlockLen) {
  if (encodedBlockLen % 4 != 0) return KT_RE_ENCODING;
  if (encodedBlockLen == 0) {
    *blockLen = 0;
    return KT_RE_OK;
  }
  const uint32_t quanta = (encodedBlockLen - 1) / 4;
  for (uint32_t i = 0; i < quanta; ++i) {
    const uint32_t status = DecodeQuantum(&block[3 * i], &encodedBlock[4 * i]);
    if (status != KT_RE_OK) return status;
  }
  uint32_t last_len = 0;
  const uint32_t status = DecodeLastQuantum(&block[3 * quanta], &last_len, &encodedBlock[4 * quanta]);
  if (status != KT_RE_OK) return status;
  *blockLen = 3 * quanta + last_len;
  return KT_RE_OK;
}

/* see kt_crypto.h */
void EncodeQuantum(unsigned char encodedBlock[4], const unsigned char block[3]) {
  EncodeLastQuantum(encodedBlock, block, 3);
}

/* see kt_crypto.h */
void EncodeLastQuantum(unsigned char encodedBlock[4], const unsigned char* block,
                       uint32_t blockLen) {
  using kt::crypto::Char;
  uint32_t bits = uint32_t{block[0]} << 16;
  if (blockLen > 1) bits |= uint32_t{block[1]} << 8;
  if (blockLen > 2) bits |= block[2];
  encodedBlock[0] = Char(bits >> 18);
  encodedBlock[1] = Char(bits >> 12);
  encodedBlock[2] = blockLen > 1 ? Char(bits >> 6) : kPad;
  encodedBlock[3] = blockLen > 2 ? Char(bits) : kPad;
}

/* see kt_crypto.h */
uint32_t DecodeQuantum(unsigned char block[3], const unsigned char encodedBlock[4]) {
  uint32_t bits = 0;
  for (int i = 0; i < 4; ++i) {
    if (!Append(&bits, encodedBlock[i])) return KT_RE_ENCODING;
  }
  kt::crypto::StoreBytes(block, bits, 3);
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t DecodeLastQuantum(unsigned char* block, uint32_t* blockLen,
                           const unsigned char encodedBlock[4]) {
  uint32_t bits = 0;
  if (!Append(&bits, encodedBlock[0]) || !Append(&bits, encodedBlock[1])) return KT_RE_ENCODING;
  uint32_t len;
  if (encodedBlock[2] == kPad) {
    len = 1;  // the fourth character is not examined
    bits <<= 12;
  } else {
    if (!Append(&bits, encodedBlock[2])) return KT_RE_ENCODING;
    if (encodedBlock[3] == kPad) {
      len = 2;
      bits <<= 6;
    } else {
      if (!Append(&bits, encodedBlock[3])) return KT_RE_ENCODING;
      len = 3;
    }
  }
  kt::crypto::StoreBytes(block, bits, len);
  *blockLen = len;
  return KT_RE_OK;
}
