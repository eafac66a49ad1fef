// The Montgomery engine behind NN_ModExp and the RSA operations: odd moduli
// only, numbers held in wide limbs (64 bits where the compiler offers a
// 128-bit product, 32 bits otherwise). Callers outside nn_mont.cpp see
// 32-bit digit arrays only. KT_NN_32_BIT_LIMBS forces the 32-bit limbs, so
// that their path is tested on 64-bit hosts too.
#ifndef KT_CRYPTO_NN_MONT_H_
#define KT_CRYPTO_NN_MONT_H_

#include <cstdint>

#include "crypto/crypto_internal.h"

namespace kt::crypto {

#if defined(__SIZEOF_INT128__) && !defined(KT_NN_32_BIT_LIMBS)
using Limb = std::uint64_t;
using WideLimb = unsigned __int128;
#else
using Limb = std::uint32_t;
using WideLimb = std::uint64_t;
#endif
inline constexpr std::uint32_t kLimbBits = 8 * sizeof(Limb);
inline constexpr std::uint32_t kDigitsPerLimb = kLimbBits / kDigitBits;
inline constexpr std::uint32_t kMaxLimbs = (kMaxDigits + kDigitsPerLimb - 1) / kDigitsPerLimb;

struct MontModulus;
using MontMulFn = void (*)(Limb* r, const Limb* a, const Limb* b, const MontModulus& m);
using MontSqrFn = void (*)(Limb* r, const Limb* a, const MontModulus& m);

// An odd modulus n > 1 of k limbs with R = 2^(k x limb bits): n0 = -1/n mod
// one limb, one = R mod n, rr = R^2 mod n.
struct MontModulus {
  Limb n[kMaxLimbs];
  Limb one[kMaxLimbs];
  Limb rr[kMaxLimbs];
  Limb n0;
  std::uint32_t k;
  std::uint32_t digits;  // significant 32-bit digits of n
  MontMulFn mul;
  MontSqrFn sqr;
};

// Whether the engine takes the modulus d of `digits` digits: odd and above 1.
inline bool MontUsable(const NN_DIGIT* d, std::uint32_t digits) noexcept {
  const std::uint32_t significant = NN_Digits(d, digits);
  return significant != 0 && (d[0] & 1) != 0 && (significant > 1 || d[0] > 1);
}

// Prepares `m` for the odd modulus d (dDigits digits, d > 1), without
// division and without branches on d's value beyond its bit length.
void MontSetup(MontModulus& m, const NN_DIGIT* d, std::uint32_t d_digits) noexcept;

// a (m.digits digits) = b^c mod n, b of b_digits digits and of any size.
// In the constant-time form nothing depends on c's bits beyond c_digits; the
// public form skips zero bits and suits public exponents only.
void MontExp(NN_DIGIT* a, const NN_DIGIT* b, std::uint32_t b_digits, const NN_DIGIT* c,
             std::uint32_t c_digits, const MontModulus& m) noexcept;
void MontExpPublic(NN_DIGIT* a, const NN_DIGIT* b, std::uint32_t b_digits, const NN_DIGIT* c,
                   std::uint32_t c_digits, const MontModulus& m) noexcept;

// a (m.digits digits) = b x c mod n, b and c of m.digits digits, both below n.
void MontModMult(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, const MontModulus& m) noexcept;

// The division-based exponentiation kept for even moduli (nn.cpp).
void ModExpByDivision(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, std::uint32_t c_digits,
                      const NN_DIGIT* d, std::uint32_t d_digits) noexcept;

// Branch-free helpers on digit arrays: all-ones when the condition holds.
inline NN_DIGIT MaskIfNonZero(NN_DIGIT x) noexcept {
  return static_cast<NN_DIGIT>(0) - ((x | (static_cast<NN_DIGIT>(0) - x)) >> (kDigitBits - 1));
}

}  // namespace kt::crypto

#endif  // KT_CRYPTO_NN_MONT_H_
