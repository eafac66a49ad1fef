// What the toolkit's files share: sizes, the wipe helper and small digit
// helpers that stay inside the library. The toolkit allocates nothing and
// traces nothing; it uses only the stateless helpers of frame/support.h.
#ifndef KT_CRYPTO_CRYPTO_INTERNAL_H_
#define KT_CRYPTO_CRYPTO_INTERNAL_H_

#include <cstddef>
#include <cstdint>

#include "frame/support.h"
#include "kt_crypto.h"

namespace kt::crypto {

inline constexpr std::uint32_t kMaxDigits = MAX_NN_DIGITS;
inline constexpr std::uint32_t kDigitBits = 32;
inline constexpr std::uint32_t kDigitBytes = 4;
inline constexpr std::uint32_t kMaxModulusLen = KT_MAX_RSA_MODULUS_LEN;
inline constexpr std::uint32_t kMaxPrimeLen = KT_MAX_RSA_PRIME_LEN;
inline constexpr std::uint32_t kDigestLen = KT_MAX_DIGEST_LEN;
inline constexpr std::uint32_t kDigestInfoLen = KT_DIGEST_INFO_LEN;

// One number of full capacity, and the double-width product.
using Number = NN_DIGIT[kMaxDigits];
using Product = NN_DIGIT[2 * kMaxDigits];

// a = the single digit b over `digits` digits (a[0] = b, the rest zero).
inline void AssignDigit(NN_DIGIT* a, NN_DIGIT b, std::uint32_t digits) noexcept {
  NN_AssignZero(a, digits);
  if (digits != 0) a[0] = b;
}

// Bytes of a modulus of `bits` bits.
inline std::uint32_t ModulusLen(std::uint32_t bits) noexcept { return (bits + 7) / 8; }

// DESFunction on two independent blocks at once, rounds interleaved.
void DESFunction2(std::uint32_t a[2], std::uint32_t b[2], const std::uint32_t subkeys[32]);

}  // namespace kt::crypto

#endif  // KT_CRYPTO_CRYPTO_INTERNAL_H_
