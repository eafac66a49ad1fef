// The exponentiation built with 32-bit limbs, the form it takes on hosts
// without a 128-bit product, against the division oracle: odd and even
// moduli of every size, bases of any value, exponents from none to 33 digits.
#include <cstdio>
#include <random>

#include "tests/crypto/nn_oracle.h"

int main() {
  std::mt19937 rng(32);
  int mismatches = 0, runs = 0;
  for (unsigned digits = 1; digits <= MAX_NN_DIGITS; ++digits) {
    for (int round = 0; round < 30; ++round) {
      NN_DIGIT b[MAX_NN_DIGITS] = {}, c[MAX_NN_DIGITS] = {}, d[MAX_NN_DIGITS] = {};
      const unsigned significant = 1 + rng() % digits;
      for (unsigned i = 0; i < significant; ++i) d[i] = rng();
      if (round % 3 != 0) d[0] |= 1;
      for (unsigned i = 0; i < digits; ++i) b[i] = rng();
      const unsigned c_digits = rng() % (digits + 1);
      for (unsigned i = 0; i < c_digits; ++i) c[i] = round % 5 == 0 ? 0xFFFFFFFFu : rng();
      NN_DIGIT ours[MAX_NN_DIGITS + 1], oracle[MAX_NN_DIGITS + 1];
      for (unsigned i = 0; i <= MAX_NN_DIGITS; ++i) ours[i] = oracle[i] = 0xA5A5A5A5u;
      NN_ModExp(ours, b, c, c_digits, d, digits);
      kt::test::OracleModExp(oracle, b, c, c_digits, d, digits);
      ++runs;
      for (unsigned i = 0; i <= MAX_NN_DIGITS; ++i) {
        if (ours[i] != oracle[i]) {
          std::printf("mismatch: %u digits, round %d\n", digits, round);
          ++mismatches;
          break;
        }
      }
    }
  }
  std::printf("%d exponentiations with 32-bit limbs, %d mismatches\n", runs, mismatches);
  return mismatches == 0 ? 0 : 1;
}
