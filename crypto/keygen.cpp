// Probable primes and RSA key pairs. A prime comes from one random draw
// mapped into [b, c] and moved to the next value = 1 mod d, then stepped by d
// until it passes trial division by 3, 5, 7, 11 and one Fermat test to base
// 2. Key pairs put two such primes with their top two bits set together, so
// the modulus has exactly the requested length.
#include <array>

#include "crypto/crypto_internal.h"

namespace kt::crypto {
namespace {

constexpr std::array<NN_DIGIT, 4> SMALL_PRIMES = {3, 5, 7, 11};

// [3 x 2^(bits - 2), 2^bits - 1]: the odd candidates whose two top bits are
// set, so that the product of two of them has exactly the sum of the bits.
void TopTwoBitsRange(NN_DIGIT* low, NN_DIGIT* high, std::uint32_t bits, std::uint32_t digits) {
  Number t;
  WipeOnExit wipe(t);
  NN_Assign2Exp(low, bits - 1, digits);
  NN_Assign2Exp(t, bits - 2, digits);
  NN_Add(low, low, t, digits);
  AssignDigit(high, 1, digits);
  NN_Sub(high, low, high, digits);
  NN_Add(high, high, t, digits);
}

// A prime of `bits` bits with gcd(p - 1, e) = 1.
std::uint32_t GenerateKeyPrime(NN_DIGIT* p, std::uint32_t bits, std::uint32_t digits,
                               const NN_DIGIT* e, R_RandomContext* random) {
  Number low, high, step;
  WipeOnExit wipe(low, high, step);
  TopTwoBitsRange(low, high, bits, digits);
  AssignDigit(step, 2, digits);
  do {
    const std::uint32_t status = GeneratePrime(p, low, high, step, digits, random);
    if (status != KT_RE_OK) return status;
  } while (!RSAFilter(p, digits, e, 1));
  return KT_RE_OK;
}

}  // namespace
}  // namespace kt::crypto

using kt::WipeOnExit;
using kt::crypto::AssignDigit;
using kt::crypto::kMaxDigits;
using kt::crypto::Number;

/* see kt_crypto.h */
uint32_t GeneratePrime(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, const NN_DIGIT* d,
                       uint32_t digits, R_RandomContext* randomContext) {
  if (digits > kMaxDigits) return KT_RE_LEN;  // beyond capacity
  unsigned char block[4 * kMaxDigits];
  Number t, u;
  WipeOnExit wipe(block, t, u);

  const uint32_t status = R_GenerateBytes(block, 4 * digits, randomContext);
  if (status != KT_RE_OK) return status;
  NN_Decode(a, digits, block, 4 * digits);

  // a = (a mod (c - b + 1)) + b.
  AssignDigit(u, 1, digits);
  NN_Sub(t, c, b, digits);
  NN_Add(t, t, u, digits);
  NN_Mod(a, a, digits, t, digits);
  NN_Add(a, a, b, digits);

  // The next value = 1 mod d, kept inside [b, c].
  NN_Mod(t, a, digits, d, digits);
  NN_Sub(a, a, t, digits);
  NN_Add(a, a, u, digits);
  if (NN_Cmp(a, b, digits) < 0) NN_Add(a, a, d, digits);
  if (NN_Cmp(a, c, digits) > 0) NN_Sub(a, a, d, digits);

  NN_Sub(t, c, d, digits);
  while (!ProbablePrime(a, digits)) {
    if (NN_Cmp(a, t, digits) > 0) return KT_RE_DATA;  // range exhausted
    NN_Add(a, a, d, digits);
  }
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint8_t ProbablePrime(const NN_DIGIT* a, uint32_t digits) {
  return SmallFactor(a, digits) ? 0 : FermatTest(a, digits);
}

/* see kt_crypto.h */
uint8_t SmallFactor(const NN_DIGIT* a, uint32_t digits) {
  NN_DIGIT t[1];
  WipeOnExit wipe(t);
  for (NN_DIGIT p : kt::crypto::SMALL_PRIMES) {
    // A one-digit a equal to the prime itself has no smaller factor.
    if (digits == 1 && a[0] == p) return 0;
    t[0] = p;
    NN_Mod(t, a, digits, t, 1);
    if (t[0] == 0) return 1;
  }
  return 0;
}

/* see kt_crypto.h */
uint8_t FermatTest(const NN_DIGIT* a, uint32_t digits) {
  if (digits > kMaxDigits) return 0;  // beyond capacity
  Number t, two;
  WipeOnExit wipe(t, two);
  AssignDigit(two, 2, digits);
  NN_ModExp(t, two, a, digits, a, digits);
  return NN_Cmp(t, two, digits) == 0 ? 1 : 0;
}

/* see kt_crypto.h */
uint8_t RelativelyPrime(const NN_DIGIT* a, uint32_t aDigits, const NN_DIGIT* b,
                        uint32_t bDigits) {
  if (aDigits > kMaxDigits || bDigits > kMaxDigits) return 0;  // beyond capacity
  Number t, u;
  WipeOnExit wipe(t, u);
  NN_AssignZero(t, aDigits);
  NN_Assign(t, b, bDigits);
  NN_Gcd(t, a, t, aDigits);
  AssignDigit(u, 1, aDigits);
  return NN_Cmp(t, u, aDigits) == 0 ? 1 : 0;
}

/* see kt_crypto.h */
uint8_t RSAFilter(const NN_DIGIT* a, uint32_t aDigits, const NN_DIGIT* b, uint32_t bDigits) {
  if (aDigits > kMaxDigits) return 0;  // beyond capacity
  Number a_minus_1, one;
  WipeOnExit wipe(a_minus_1, one);
  AssignDigit(one, 1, aDigits);
  NN_Sub(a_minus_1, a, one, aDigits);
  return RelativelyPrime(a_minus_1, aDigits, b, bDigits);
}

/* see kt_crypto.h */
uint32_t R_GeneratePEMKeys(R_RSAPublicKey* publicKey, R_RSAPrivateKey* privateKey,
                           const R_ProtoKey* protoKey, R_RandomContext* randomContext) {
  const uint32_t bits = protoKey->bits;
  if (bits < KT_MIN_RSA_MODULUS_BITS || bits > KT_MAX_RSA_MODULUS_BITS) return KT_RE_MODULUS_LEN;

  const uint32_t n_digits = (bits + 31) / 32;
  const uint32_t p_digits = (n_digits + 1) / 2;
  const uint32_t p_bits = (bits + 1) / 2;
  const uint32_t q_bits = bits - p_bits;

  Number d{}, dp{}, dq{}, e{}, n{}, p{}, q{}, q_inv{}, t{}, p_minus_1{}, q_minus_1{}, phi{};
  WipeOnExit wipe(d, dp, dq, e, n, p, q, q_inv, t, p_minus_1, q_minus_1, phi);

  AssignDigit(e, protoKey->useFermat4 ? 65537 : 3, n_digits);
  uint32_t status = kt::crypto::GenerateKeyPrime(p, p_bits, p_digits, e, randomContext);
  if (status == KT_RE_OK) {
    status = kt::crypto::GenerateKeyPrime(q, q_bits, p_digits, e, randomContext);
  }
  if (status != KT_RE_OK) return status;

  if (NN_Cmp(p, q, p_digits) < 0) {
    NN_Assign(t, p, p_digits);
    NN_Assign(p, q, p_digits);
    NN_Assign(q, t, p_digits);
  }

  NN_Mult(n, p, q, p_digits);
  NN_ModInv(q_inv, q, p, p_digits);
  AssignDigit(t, 1, p_digits);
  NN_Sub(p_minus_1, p, t, p_digits);
  NN_Sub(q_minus_1, q, t, p_digits);
  NN_Mult(phi, p_minus_1, q_minus_1, p_digits);
  NN_ModInv(d, e, phi, n_digits);
  NN_Mod(dp, d, n_digits, p_minus_1, p_digits);
  NN_Mod(dq, d, n_digits, q_minus_1, p_digits);

  using kt::crypto::kMaxModulusLen;
  using kt::crypto::kMaxPrimeLen;
  publicKey->bits = privateKey->bits = bits;
  NN_Encode(publicKey->modulus, kMaxModulusLen, n, n_digits);
  NN_Encode(publicKey->exponent, kMaxModulusLen, e, 1);
  R_memcpy(privateKey->modulus, publicKey->modulus, kMaxModulusLen);
  R_memcpy(privateKey->publicExponent, publicKey->exponent, kMaxModulusLen);
  NN_Encode(privateKey->exponent, kMaxModulusLen, d, n_digits);
  NN_Encode(privateKey->prime[0], kMaxPrimeLen, p, p_digits);
  NN_Encode(privateKey->prime[1], kMaxPrimeLen, q, p_digits);
  NN_Encode(privateKey->primeExponent[0], kMaxPrimeLen, dp, p_digits);
  NN_Encode(privateKey->primeExponent[1], kMaxPrimeLen, dq, p_digits);
  NN_Encode(privateKey->coefficient, kMaxPrimeLen, q_inv, p_digits);
  return KT_RE_OK;
}
