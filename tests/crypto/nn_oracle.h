// The division-based modular exponentiation that NN_ModExp used before the
// Montgomery engine, kept as the oracle of the differential tests and of the
// fuzz target: a 2-bit window from the top significant bit, each product
// reduced by long division. Slow and branchy, but obviously right.
#ifndef KT_TESTS_CRYPTO_NN_ORACLE_H_
#define KT_TESTS_CRYPTO_NN_ORACLE_H_

#include <cstdint>

#include "kt_crypto.h"

namespace kt::test {

inline void OracleModExp(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, std::uint32_t c_digits,
                         const NN_DIGIT* d, std::uint32_t d_digits) {
  if (d_digits > MAX_NN_DIGITS) return;
  NN_DIGIT power[3][MAX_NN_DIGITS] = {}, t[MAX_NN_DIGITS] = {};
  NN_Assign(power[0], b, d_digits);
  NN_ModMult(power[1], power[0], b, d, d_digits);
  NN_ModMult(power[2], power[1], b, d, d_digits);
  t[0] = 1;
  const std::int64_t e_digits = NN_Digits(c, c_digits);
  for (std::int64_t i = e_digits - 1; i >= 0; --i) {
    NN_DIGIT ci = c[i];
    std::uint32_t ci_bits = 32;
    if (i == e_digits - 1) {
      while ((ci >> 30) == 0) {
        ci <<= 2;
        ci_bits -= 2;
      }
    }
    for (std::uint32_t j = 0; j < ci_bits; j += 2, ci <<= 2) {
      NN_ModMult(t, t, t, d, d_digits);
      NN_ModMult(t, t, t, d, d_digits);
      if (const NN_DIGIT s = ci >> 30; s != 0) NN_ModMult(t, t, power[s - 1], d, d_digits);
    }
  }
  NN_Assign(a, t, d_digits);
}

}  // namespace kt::test

#endif  // KT_TESTS_CRYPTO_NN_ORACLE_H_
