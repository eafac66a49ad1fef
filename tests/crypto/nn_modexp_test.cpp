// NN_ModExp (Montgomery engine for odd moduli, division for even ones)
// against the division-based oracle and against OpenSSL's BN_mod_exp, over
// every size from 1 to 33 digits and the operands where paths diverge.
#include <gtest/gtest.h>

#include "crypto/crypto_test_util.h"
#include "crypto/nn_oracle.h"

namespace kt::test {
namespace {

using Digits = std::vector<NN_DIGIT>;

enum class Base { kRandom, kZero, kOne, kModulusMinusOne, kAboveModulus };
enum class Exponent { kRandom, kZero, kOne, kAllOnes, kShortInLongCount };

struct Case {
  unsigned digits;
  bool odd;
  Base base;
  Exponent exponent;
};

// Builds the operands of one case; the exponent count may exceed the
// modulus' digits (up to 33) and the modulus may carry leading zero digits.
struct Operands {
  Digits b = Digits(MAX_NN_DIGITS), c = Digits(MAX_NN_DIGITS), d = Digits(MAX_NN_DIGITS);
  unsigned c_digits = 0, d_digits = 0;
};

Operands Make(std::mt19937& rng, const Case& k) {
  Operands o;
  o.d_digits = k.digits;
  const unsigned significant = 1 + rng() % k.digits;  // leading zero digits above
  Digits d = RandomNumber(rng, significant, rng() % 3);
  std::copy(d.begin(), d.begin() + significant, o.d.begin());
  o.d[significant - 1] |= (rng() % 2) ? 0x80000000u : 0x00010000u;
  o.d[0] = k.odd ? (o.d[0] | 1) : (o.d[0] & ~1u);

  switch (k.base) {
    case Base::kRandom: {
      Digits r = RandomNumber(rng, k.digits, rng() % 3);
      NN_Mod(o.b.data(), r.data(), k.digits, o.d.data(), k.digits);
      break;
    }
    case Base::kZero:
      break;
    case Base::kOne:
      o.b[0] = 1;
      break;
    case Base::kModulusMinusOne: {  // d is at least 2^16
      NN_DIGIT one[MAX_NN_DIGITS] = {1};
      NN_Sub(o.b.data(), o.d.data(), one, k.digits);
      break;
    }
    case Base::kAboveModulus: {  // any value the digit count holds
      Digits r = RandomNumber(rng, k.digits, rng() % 3);
      std::copy(r.begin(), r.begin() + k.digits, o.b.begin());
      if (NN_Cmp(o.b.data(), o.d.data(), k.digits) < 0) {
        NN_Add(o.b.data(), o.b.data(), o.d.data(), k.digits);
      }
      break;
    }
  }

  o.c_digits = 1 + rng() % k.digits;
  switch (k.exponent) {
    case Exponent::kRandom: {
      Digits r = RandomNumber(rng, o.c_digits, rng() % 3);
      std::copy(r.begin(), r.begin() + o.c_digits, o.c.begin());
      break;
    }
    case Exponent::kZero:
      break;
    case Exponent::kOne:
      o.c[0] = 1;
      break;
    case Exponent::kAllOnes:
      std::fill(o.c.begin(), o.c.begin() + o.c_digits, 0xFFFFFFFFu);
      break;
    case Exponent::kShortInLongCount:
      o.c_digits = MAX_NN_DIGITS;
      o.c[0] = rng();
      o.c[1] = rng() % 7;
      break;
  }
  return o;
}

std::vector<Case> AllCases() {
  std::vector<Case> cases;
  for (unsigned digits = 1; digits <= MAX_NN_DIGITS; ++digits) {
    for (bool odd : {true, false}) {
      for (Base base :
           {Base::kRandom, Base::kZero, Base::kOne, Base::kModulusMinusOne, Base::kAboveModulus}) {
        for (Exponent e : {Exponent::kRandom, Exponent::kZero, Exponent::kOne, Exponent::kAllOnes,
                           Exponent::kShortInLongCount}) {
          cases.push_back({digits, odd, base, e});
        }
      }
    }
  }
  return cases;
}

std::string Describe(const Case& k) {
  return testing::PrintToString(k.digits) + (k.odd ? " odd" : " even") + " base " +
         testing::PrintToString(static_cast<int>(k.base)) + " exponent " +
         testing::PrintToString(static_cast<int>(k.exponent));
}

TEST(NnModExp, AgreesWithTheDivisionOracleBitForBit) {
  std::mt19937 rng(77);
  for (const Case& k : AllCases()) {
    for (int round = 0; round < 2; ++round) {
      SCOPED_TRACE(Describe(k));
      const Operands o = Make(rng, k);
      Digits ours(MAX_NN_DIGITS + 1, 0xA5A5A5A5u), oracle = ours;
      NN_ModExp(ours.data(), o.b.data(), o.c.data(), o.c_digits, o.d.data(), o.d_digits);
      OracleModExp(oracle.data(), o.b.data(), o.c.data(), o.c_digits, o.d.data(), o.d_digits);
      ASSERT_EQ(ours, oracle);
    }
  }
}

TEST(NnModExp, DegenerateModuli) {
  // Modulo 1 every power is 0 except the zeroth, which stays 1; a zero
  // modulus reduces nothing.
  const struct {
    NN_DIGIT d, c, expected;
  } cases[] = {{1, 0, 1}, {1, 1, 0}, {1, 0xFFFFFFFFu, 0}, {0, 5, 1}, {0, 0, 1}, {3, 0, 1}};
  for (const auto& k : cases) {
    NN_DIGIT a[2] = {7, 7}, b[2] = {2, 0}, c[2] = {k.c, 0}, d[2] = {k.d, 0};
    NN_ModExp(a, b, c, 2, d, 2);
    EXPECT_EQ(a[0], k.expected) << k.d << " " << k.c;
    EXPECT_EQ(a[1], 0u);
  }
}

#ifdef KT_HAVE_OPENSSL
TEST(NnModExp, AgreesWithOpenSsl) {
  std::mt19937 rng(78);
  BN_CTX* ctx = BN_CTX_new();
  for (const Case& k : AllCases()) {
    SCOPED_TRACE(Describe(k));
    const Operands o = Make(rng, k);
    Digits ours(MAX_NN_DIGITS, 0);
    NN_ModExp(ours.data(), o.b.data(), o.c.data(), o.c_digits, o.d.data(), o.d_digits);
    Bn expected(BN_new());
    ASSERT_EQ(
        BN_mod_exp(expected.get(), ToBn(o.b.data(), o.d_digits).get(),
                   ToBn(o.c.data(), o.c_digits).get(), ToBn(o.d.data(), o.d_digits).get(), ctx),
        1);
    ASSERT_EQ(BN_cmp(ToBn(ours.data(), o.d_digits).get(), expected.get()), 0);
  }
  BN_CTX_free(ctx);
}
#endif

}  // namespace
}  // namespace kt::test
