// Diffie-Hellman (PKCS #3): parameters p = 1 mod 2q for a prime q, generator
// g = 2^((p - 1) / q) mod p, and the two steps of an agreement. Numbers are
// big-endian byte strings in the caller's buffers; private values are
// cleared from the working numbers before return.
#include "crypto/crypto_internal.h"

using kt::WipeOnExit;
using kt::crypto::AssignDigit;
using kt::crypto::kMaxDigits;
using kt::crypto::Number;

namespace kt::crypto {
namespace {

// [2^(bits - 1), 2^bits - 1]: the numbers of exactly `bits` bits.
void ExactBitsRange(NN_DIGIT* low, NN_DIGIT* high, std::uint32_t bits, std::uint32_t digits) {
  NN_Assign2Exp(low, bits - 1, digits);
  AssignDigit(high, 1, digits);
  NN_Sub(high, low, high, digits);
  NN_Add(high, high, low, digits);
}

}  // namespace
}  // namespace kt::crypto

/* see kt_crypto.h */
uint32_t R_GenerateDHParams(R_DHParams* params, uint32_t primeBits, uint32_t subPrimeBits,
                            R_RandomContext* randomContext) {
  // Outside these bounds the prime search would overrun the numbers or
  // never end; refused rather than undefined.
  if (primeBits > KT_MAX_RSA_MODULUS_BITS || subPrimeBits < 2 || subPrimeBits >= primeBits) {
    return KT_RE_LEN;
  }
  const uint32_t digits = (primeBits + 31) / 32;
  Number g{}, p{}, q{}, t{}, u{}, v{};
  WipeOnExit wipe(g, p, q, t, u, v);

  kt::crypto::ExactBitsRange(t, u, subPrimeBits, digits);
  AssignDigit(v, 2, digits);
  uint32_t status = GeneratePrime(q, t, u, v, digits, randomContext);
  if (status != KT_RE_OK) return status;

  kt::crypto::ExactBitsRange(t, u, primeBits, digits);
  NN_LShift(v, q, 1, digits);
  status = GeneratePrime(p, t, u, v, digits, randomContext);
  if (status != KT_RE_OK) return status;

  // g = 2^(p div q) mod p; p div q = (p - 1) / q since p = 1 mod q.
  AssignDigit(g, 2, digits);
  NN_Div(t, u, p, digits, q, digits);
  NN_ModExp(g, g, t, digits, p, digits);

  params->generatorLen = params->primeLen = (primeBits + 7) / 8;
  NN_Encode(params->prime, params->primeLen, p, digits);
  NN_Encode(params->generator, params->generatorLen, g, digits);
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_SetupDHAgreement(unsigned char* publicValue, unsigned char* privateValue,
                            uint32_t privateValueLen, const R_DHParams* params,
                            R_RandomContext* randomContext) {
  Number g{}, p{}, x{}, y{};
  WipeOnExit wipe(g, p, x, y);
  NN_Decode(p, kMaxDigits, params->prime, params->primeLen);
  const uint32_t p_digits = NN_Digits(p, kMaxDigits);
  NN_Decode(g, p_digits, params->generator, params->generatorLen);

  const uint32_t status = R_GenerateBytes(privateValue, privateValueLen, randomContext);
  if (status != KT_RE_OK) return status;
  NN_Decode(x, p_digits, privateValue, privateValueLen);
  const uint32_t x_digits = NN_Digits(x, p_digits);

  NN_ModExp(y, g, x, x_digits, p, p_digits);
  NN_Encode(publicValue, params->primeLen, y, p_digits);
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_ComputeDHAgreedKey(unsigned char* agreedKey, const unsigned char* otherPublicValue,
                              const unsigned char* privateValue, uint32_t privateValueLen,
                              const R_DHParams* params) {
  Number p{}, x{}, y{}, z{};
  WipeOnExit wipe(p, x, y, z);
  NN_Decode(p, kMaxDigits, params->prime, params->primeLen);
  const uint32_t p_digits = NN_Digits(p, kMaxDigits);
  NN_Decode(x, p_digits, privateValue, privateValueLen);
  NN_Decode(y, p_digits, otherPublicValue, params->primeLen);
  const uint32_t x_digits = NN_Digits(x, p_digits);

  if (NN_Cmp(p, y, p_digits) <= 0) return KT_RE_DATA;
  NN_ModExp(z, y, x, x_digits, p, p_digits);
  NN_Encode(agreedKey, params->primeLen, z, p_digits);
  return KT_RE_OK;
}
