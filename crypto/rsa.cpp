// RSA on key records of up to 1024 bits and the PKCS #1 v1.5 encryption
// blocks around it:
//
//   type 1 (private-key operation, signatures):  00 01 FF..FF 00 data
//   type 2 (public-key operation, key transport): 00 02 RR..RR 00 data
//
// with at least eight padding bytes (FF, or random non-zero RR), so data is
// at most modulusLen - 11 bytes. The private operation works modulo p and q
// and recombines (CRT). Numbers are right-aligned in the fixed 128- and
// 64-byte key fields. The private operation runs through the constant-time
// Montgomery engine; what stays variable-time is listed in kt_crypto.h.
#include "crypto/crypto_internal.h"
#include "crypto/nn_mont.h"

namespace kt::crypto {
namespace {

constexpr std::uint32_t kMinPadding = 8;
constexpr std::uint32_t kBlockOverhead = kMinPadding + 3;  // 00, type, padding, 00

// The key's length in bytes. Keys longer than the 128-byte fields cannot be
// worked on; they are refused rather than left undefined.
std::uint32_t CheckedModulusLen(std::uint32_t bits, std::uint32_t* modulus_len) {
  *modulus_len = ModulusLen(bits);
  return *modulus_len > kMaxModulusLen ? KT_RE_LEN : KT_RE_OK;
}

// Formats a block of `block_type` around `input` and runs `operation` on it;
// type 2 draws its padding from `random`, type 1 pads with FF.
template <class Operation>
std::uint32_t EncryptBlock(unsigned char* output, std::uint32_t* output_len,
                           const unsigned char* input, std::uint32_t input_len,
                           std::uint32_t modulus_len, unsigned char block_type,
                           R_RandomContext* random, Operation operation) {
  if (std::uint64_t{input_len} + kBlockOverhead > modulus_len) return KT_RE_LEN;
  unsigned char block[kMaxModulusLen];
  unsigned char byte = 0;
  WipeOnExit wipe(block, byte);
  block[0] = 0;
  block[1] = block_type;
  std::uint32_t i = 2;
  for (; i < modulus_len - input_len - 1; ++i) {
    if (block_type == 1) {
      byte = 0xFF;
    } else {
      do {
        // A seeded generator never fails; an unseeded one would leave the
        // byte at 0 for ever, so its status ends the call instead.
        const std::uint32_t status = R_GenerateBytes(&byte, 1, random);
        if (status != KT_RE_OK) return status;
      } while (byte == 0);
    }
    block[i] = byte;
  }
  block[i++] = 0;
  R_memcpy(&block[i], input, input_len);
  return operation(output, output_len, block, modulus_len);
}

// Runs `operation` on `input` and strips a block of `block_type`; the
// length of the recovered data goes to *output_len.
template <class Operation>
std::uint32_t DecryptBlock(unsigned char* output, std::uint32_t* output_len,
                           const unsigned char* input, std::uint32_t input_len,
                           std::uint32_t modulus_len, unsigned char block_type,
                           Operation operation) {
  if (input_len > modulus_len) return KT_RE_LEN;
  unsigned char block[kMaxModulusLen] = {};
  std::uint32_t block_len = 0;
  WipeOnExit wipe(block);
  std::uint32_t status = operation(block, &block_len, input, input_len);
  if (status != KT_RE_OK) return status;
  if (block_len != modulus_len) return KT_RE_LEN;
  if (block[0] != 0 || block[1] != block_type) return KT_RE_DATA;

  std::uint32_t i = 2;
  if (block_type == 1) {
    for (; i + 1 < modulus_len && block[i] == 0xFF; ++i) {
    }
    if (block[i++] != 0) return KT_RE_DATA;  // the separator must follow the FF run
  } else {
    for (; i + 1 < modulus_len && block[i] != 0; ++i) {
    }
    ++i;  // the separator is not tested again
    if (i >= modulus_len) return KT_RE_DATA;
  }
  // Fewer than eight padding bytes (or none left for a tiny key).
  if (i > modulus_len || std::uint64_t{modulus_len - i} + kBlockOverhead > modulus_len) {
    return KT_RE_DATA;
  }
  *output_len = modulus_len - i;
  R_memcpy(output, &block[i], *output_len);
  return KT_RE_OK;
}

// a += b & mask over `digits` digits (the carry out is dropped).
void AddMasked(NN_DIGIT* a, const NN_DIGIT* b, NN_DIGIT mask, std::uint32_t digits) {
  std::uint64_t carry = 0;
  for (std::uint32_t i = 0; i < digits; ++i) {
    carry += std::uint64_t{a[i]} + (b[i] & mask);
    a[i] = static_cast<NN_DIGIT>(carry);
    carry >>= kDigitBits;
  }
}

// a (2 x digits digits) = b c, touching every digit whatever its value.
void MultAll(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, std::uint32_t digits) {
  NN_AssignZero(a, 2 * digits);
  for (std::uint32_t i = 0; i < digits; ++i) {
    std::uint64_t carry = 0;
    for (std::uint32_t j = 0; j < digits; ++j) {
      carry += std::uint64_t{b[i]} * c[j] + a[i + j];
      a[i + j] = static_cast<NN_DIGIT>(carry);
      carry >>= kDigitBits;
    }
    a[i + digits] = static_cast<NN_DIGIT>(carry);
  }
}

// The private operation for key records the engine cannot take (an even or
// degenerate prime): reductions by division and NN_ModExp, as written.
void PrivateBlockByDivision(NN_DIGIT* t, const NN_DIGIT* c, std::uint32_t c_digits,
                            std::uint32_t n_digits, const NN_DIGIT* p, const NN_DIGIT* q,
                            const NN_DIGIT* dp, const NN_DIGIT* dq, const NN_DIGIT* q_inv,
                            std::uint32_t p_digits) {
  Number cp{}, cq{}, mp{}, mq{};
  WipeOnExit wipe(cp, cq, mp, mq);
  NN_Mod(cp, c, c_digits, p, p_digits);
  NN_Mod(cq, c, c_digits, q, p_digits);
  NN_ModExp(mp, cp, dp, p_digits, p, p_digits);
  NN_AssignZero(mq, n_digits);
  NN_ModExp(mq, cq, dq, p_digits, q, p_digits);
  if (NN_Cmp(mp, mq, p_digits) >= 0) {
    NN_Sub(t, mp, mq, p_digits);
  } else {
    NN_Sub(t, mq, mp, p_digits);
    NN_Sub(t, p, t, p_digits);
  }
  NN_ModMult(t, t, q_inv, p, p_digits);
  NN_Mult(t, t, q, p_digits);
  NN_Add(t, t, mq, n_digits);
}

// The Montgomery set-up of the last public modulus this thread used. Files
// and messages are mostly checked against one key, the built-in one, whose
// set-up cost as much as a third of each check. A modulus is public:
// nothing here needs wiping.
const MontModulus& PublicMontgomery(const Number& n, std::uint32_t n_digits) {
  struct Last {
    Number n;
    std::uint32_t n_digits;  // 0 while nothing is set up
    MontModulus m;
  };
  thread_local Last last{};
  if (last.n_digits != n_digits || NN_Cmp(last.n, n, n_digits) != 0) {
    last.n_digits = 0;
    MontSetup(last.m, n, n_digits);
    NN_Assign(last.n, n, n_digits);
    last.n_digits = n_digits;
  }
  return last.m;
}

}  // namespace
}  // namespace kt::crypto

static_assert(sizeof(R_RSAPublicKey) == 260, "R_RSAPublicKey layout is part of the interface");
static_assert(sizeof(R_RSAPrivateKey) == 708, "R_RSAPrivateKey layout is part of the interface");

using kt::WipeOnExit;
using kt::crypto::AddMasked;
using kt::crypto::CheckedModulusLen;
using kt::crypto::kMaxDigits;
using kt::crypto::kMaxModulusLen;
using kt::crypto::kMaxPrimeLen;
using kt::crypto::MultAll;
using kt::crypto::Number;
using kt::crypto::PrivateBlockByDivision;

/* see kt_crypto.h */
uint32_t RSAPublicEncrypt(unsigned char* output, uint32_t* outputLen, const unsigned char* input,
                          uint32_t inputLen, const R_RSAPublicKey* publicKey,
                          R_RandomContext* randomContext) {
  uint32_t modulus_len;
  if (CheckedModulusLen(publicKey->bits, &modulus_len) != KT_RE_OK) return KT_RE_LEN;
  return kt::crypto::EncryptBlock(
      output, outputLen, input, inputLen, modulus_len, 2, randomContext,
      [publicKey](unsigned char* out, uint32_t* out_len, const unsigned char* block, uint32_t len) {
        return RSAPublicBlock(out, out_len, block, len, publicKey);
      });
}

/* see kt_crypto.h */
uint32_t RSAPrivateEncrypt(unsigned char* output, uint32_t* outputLen, const unsigned char* input,
                           uint32_t inputLen, const R_RSAPrivateKey* privateKey) {
  uint32_t modulus_len;
  if (CheckedModulusLen(privateKey->bits, &modulus_len) != KT_RE_OK) return KT_RE_LEN;
  return kt::crypto::EncryptBlock(
      output, outputLen, input, inputLen, modulus_len, 1, nullptr,
      [privateKey](unsigned char* out, uint32_t* out_len, const unsigned char* block,
                   uint32_t len) { return RSAPrivateBlock(out, out_len, block, len, privateKey); });
}

/* see kt_crypto.h */
uint32_t RSAPublicDecrypt(unsigned char* output, uint32_t* outputLen, const unsigned char* input,
                          uint32_t inputLen, const R_RSAPublicKey* publicKey) {
  uint32_t modulus_len;
  if (CheckedModulusLen(publicKey->bits, &modulus_len) != KT_RE_OK) return KT_RE_LEN;
  return kt::crypto::DecryptBlock(
      output, outputLen, input, inputLen, modulus_len, 1,
      [publicKey](unsigned char* out, uint32_t* out_len, const unsigned char* in, uint32_t len) {
        return RSAPublicBlock(out, out_len, in, len, publicKey);
      });
}

/* see kt_crypto.h */
uint32_t RSAPrivateDecrypt(unsigned char* output, uint32_t* outputLen, const unsigned char* input,
                           uint32_t inputLen, const R_RSAPrivateKey* privateKey) {
  uint32_t modulus_len;
  if (CheckedModulusLen(privateKey->bits, &modulus_len) != KT_RE_OK) return KT_RE_LEN;
  return kt::crypto::DecryptBlock(
      output, outputLen, input, inputLen, modulus_len, 2,
      [privateKey](unsigned char* out, uint32_t* out_len, const unsigned char* in, uint32_t len) {
        return RSAPrivateBlock(out, out_len, in, len, privateKey);
      });
}

/* see kt_crypto.h */
uint32_t RSAPublicBlock(unsigned char* output, uint32_t* outputLen, const unsigned char* input,
                        uint32_t inputLen, const R_RSAPublicKey* publicKey) {
  uint32_t modulus_len;
  if (CheckedModulusLen(publicKey->bits, &modulus_len) != KT_RE_OK) return KT_RE_LEN;
  Number c{}, e{}, m{}, n{};
  WipeOnExit wipe(c, m);
  NN_Decode(c, kMaxDigits, input, inputLen);
  NN_Decode(n, kMaxDigits, publicKey->modulus, kMaxModulusLen);
  NN_Decode(e, kMaxDigits, publicKey->exponent, kMaxModulusLen);
  const uint32_t n_digits = NN_Digits(n, kMaxDigits);
  const uint32_t e_digits = NN_Digits(e, kMaxDigits);
  if (NN_Cmp(c, n, n_digits) >= 0) return KT_RE_DATA;

  if (kt::crypto::MontUsable(n, n_digits)) {
    // The exponent is public: the variable-time square-and-multiply suits it.
    kt::crypto::MontExpPublic(m, c, n_digits, e, e_digits,
                              kt::crypto::PublicMontgomery(n, n_digits));
  } else {
    NN_ModExp(m, c, e, e_digits, n, n_digits);
  }
  *outputLen = modulus_len;
  NN_Encode(output, *outputLen, m, n_digits);
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t RSAPrivateBlock(unsigned char* output, uint32_t* outputLen, const unsigned char* input,
                         uint32_t inputLen, const R_RSAPrivateKey* privateKey) {
  uint32_t modulus_len;
  if (CheckedModulusLen(privateKey->bits, &modulus_len) != KT_RE_OK) return KT_RE_LEN;
  Number c{}, cp{}, cq{}, dp{}, dq{}, mp{}, mq{}, n{}, p{}, q{}, q_inv{}, t{};
  WipeOnExit wipe(c, cp, cq, dp, dq, mp, mq, p, q, q_inv, t);
  NN_Decode(c, kMaxDigits, input, inputLen);
  NN_Decode(n, kMaxDigits, privateKey->modulus, kMaxModulusLen);
  NN_Decode(p, kMaxDigits, privateKey->prime[0], kMaxPrimeLen);
  NN_Decode(q, kMaxDigits, privateKey->prime[1], kMaxPrimeLen);
  NN_Decode(dp, kMaxDigits, privateKey->primeExponent[0], kMaxPrimeLen);
  NN_Decode(dq, kMaxDigits, privateKey->primeExponent[1], kMaxPrimeLen);
  NN_Decode(q_inv, kMaxDigits, privateKey->coefficient, kMaxPrimeLen);
  const uint32_t c_digits = NN_Digits(c, kMaxDigits);
  const uint32_t n_digits = NN_Digits(n, kMaxDigits);
  const uint32_t p_digits = NN_Digits(p, kMaxDigits);
  if (NN_Cmp(c, n, n_digits) >= 0) return KT_RE_DATA;

  // q is taken to be no longer than p (p > q in every key we make).
  if (!kt::crypto::MontUsable(p, p_digits) || !kt::crypto::MontUsable(q, p_digits)) {
    PrivateBlockByDivision(t, c, c_digits, n_digits, p, q, dp, dq, q_inv, p_digits);
  } else {
    // Both halves through the constant-time engine, which reduces the input
    // itself, without division.
    kt::crypto::MontModulus mp_modulus, mq_modulus;
    WipeOnExit wipe_moduli(mp_modulus, mq_modulus);
    kt::crypto::MontSetup(mp_modulus, p, p_digits);
    kt::crypto::MontSetup(mq_modulus, q, p_digits);
    kt::crypto::MontExp(mp, c, n_digits, dp, p_digits, mp_modulus);
    kt::crypto::MontExp(mq, c, n_digits, dq, p_digits, mq_modulus);

    // m = ((mP - mQ) mod p) qInv mod p) q + mQ, without branching on the
    // values: p is added back under the borrow's mask.
    const NN_DIGIT borrow = NN_Sub(cp, mp, mq, p_digits);
    AddMasked(cp, p, static_cast<NN_DIGIT>(0) - borrow, p_digits);
    kt::crypto::MontModMult(cp, cp, q_inv, mp_modulus);
    MultAll(t, cp, q, p_digits);
    NN_Add(t, t, mq, n_digits);
  }

  *outputLen = modulus_len;
  NN_Encode(output, *outputLen, t, n_digits);
  return KT_RE_OK;
}
