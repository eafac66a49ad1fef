// Big numbers: the stated edge behaviour, then differential tests against
// OpenSSL's BIGNUM on random operands of every size up to the capacity.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "crypto/crypto_test_util.h"

namespace {

using kt::test::RandomNumber;
using Digits = std::vector<NN_DIGIT>;

TEST(Nn, DecodeKeepsOrDropsTheMostSignificantByteByCapacity) {
  std::vector<unsigned char> bytes(129);
  for (unsigned i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i + 1);
  Digits a(33, 0xDEADBEEF);
  NN_Decode(a.data(), 33, bytes.data(), 129);
  EXPECT_EQ(a[32], 0x01u);  // the first byte alone in the top digit
  EXPECT_EQ(a[0], 0x7E7F8081u);
  NN_Decode(a.data(), 32, bytes.data(), 129);
  EXPECT_EQ(a[31], 0x02030405u);  // byte 1 dropped
  EXPECT_EQ(a[32], 0x01u);        // beyond the count: untouched

  // A short string zero-fills the upper digits.
  NN_Decode(a.data(), 33, bytes.data(), 3);
  EXPECT_EQ(a[0], 0x010203u);
  EXPECT_TRUE(NN_Zero(&a[1], 32));
}

TEST(Nn, EncodeDropsTheTopDigitOrPadsWithZeros) {
  Digits a(33);
  for (unsigned i = 0; i < 33; ++i) a[i] = 0x01010101u * (i + 1);
  std::vector<unsigned char> out(128);
  NN_Encode(out.data(), 128, a.data(), 33);
  EXPECT_EQ(out[0], 32);  // digit 31 on top; digit 32 dropped
  EXPECT_EQ(out[127], 1);
  std::vector<unsigned char> wide(10, 0xAA);
  NN_Encode(wide.data(), 10, a.data(), 1);
  EXPECT_EQ(kt::test::Hex(wide), "00000000000001010101");
}

TEST(Nn, ShiftsByThirtyTwoOrMoreWriteNothingAndZeroCopies) {
  Digits b = {0x80000001u, 0x12345678u};
  Digits a = {7, 7};
  EXPECT_EQ(NN_LShift(a.data(), b.data(), 32, 2), 0u);
  EXPECT_EQ(NN_RShift(a.data(), b.data(), 40, 2), 0u);
  EXPECT_EQ(a, (Digits{7, 7}));
  EXPECT_EQ(NN_LShift(a.data(), b.data(), 0, 2), 0u);
  EXPECT_EQ(a, b);
  EXPECT_EQ(NN_LShift(a.data(), b.data(), 4, 2), 0x1u);
  EXPECT_EQ(a, (Digits{0x00000010u, 0x23456788u}));
  EXPECT_EQ(NN_RShift(a.data(), b.data(), 4, 2), 0x10000000u);  // left-aligned
  EXPECT_EQ(a, (Digits{0x88000000u, 0x01234567u}));
}

TEST(Nn, DigitMultiplyHelpersWithZeroMultiplierWriteNothing) {
  Digits b = {1, 2}, d = {3, 4}, a = {9, 9};
  EXPECT_EQ(NN_AddDigitMult(a.data(), b.data(), 0, d.data(), 2), 0u);
  EXPECT_EQ(NN_SubDigitMult(a.data(), b.data(), 0, d.data(), 2), 0u);
  EXPECT_EQ(a, (Digits{9, 9}));
  // b - 2 d is negative by less than 2^64: a borrow of one.
  EXPECT_EQ(NN_SubDigitMult(a.data(), b.data(), 2, d.data(), 2), 1u);
  EXPECT_EQ(a, (Digits{0xFFFFFFFBu, 0xFFFFFFF9u}));
  NN_DIGIT product[2];
  NN_DigitMult(product, 0xFFFFFFFFu, 0xFFFFFFFFu);
  EXPECT_EQ(product[0], 1u);
  EXPECT_EQ(product[1], 0xFFFFFFFEu);
  NN_DIGIT q;
  const NN_DIGIT dividend[2] = {0, 0xFFFFFFFEu};
  NN_DigitDiv(&q, dividend, 0xFFFFFFFFu);
  EXPECT_EQ(q, 0xFFFFFFFEu);
}

TEST(Nn, DivisionByZeroWritesNothing) {
  Digits c = {5, 6}, d = {0, 0}, a = {1, 2}, b = {3, 4};
  NN_Div(a.data(), b.data(), c.data(), 2, d.data(), 2);
  EXPECT_EQ(a, (Digits{1, 2}));
  EXPECT_EQ(b, (Digits{3, 4}));
  NN_Mod(b.data(), c.data(), 2, d.data(), 2);
  EXPECT_EQ(b, (Digits{3, 4}));
}

TEST(Nn, DivisorWithAllOnesTopDigitTakesQuotientDigitsStraight) {
  // d = FFFFFFFF FFFFFFFF needs no normalising shift; c = d^2 + d - 1.
  Digits d = {0xFFFFFFFFu, 0xFFFFFFFFu}, c(4), a(4), b(2);
  NN_Mult(c.data(), d.data(), d.data(), 2);
  Digits dd = {0xFFFFFFFEu, 0xFFFFFFFFu, 0, 0};
  NN_Add(c.data(), c.data(), dd.data(), 4);
  NN_Div(a.data(), b.data(), c.data(), 4, d.data(), 2);
  EXPECT_EQ(a, (Digits{0xFFFFFFFFu, 0xFFFFFFFFu, 0, 0}));
  EXPECT_EQ(b, (Digits{0xFFFFFFFEu, 0xFFFFFFFFu}));
}

TEST(Nn, ModExpWithZeroExponentYieldsOneEvenModuloOne) {
  Digits b = {0}, zero = {0}, one = {1}, a = {7};
  NN_ModExp(a.data(), b.data(), zero.data(), 1, one.data(), 1);
  EXPECT_EQ(a[0], 1u);
  Digits d = {97}, base = {5};
  NN_ModExp(a.data(), base.data(), zero.data(), 1, d.data(), 1);
  EXPECT_EQ(a[0], 1u);
}

TEST(Nn, ModInvOfSmallValues) {
  Digits a = {0}, three = {3}, seven = {7}, one = {1};
  NN_ModInv(a.data(), three.data(), seven.data(), 1);
  EXPECT_EQ(a[0], 5u);
  NN_ModInv(a.data(), one.data(), seven.data(), 1);
  EXPECT_EQ(a[0], 1u);
}

TEST(Nn, CountsAndComparisons) {
  Digits a = {0, 0x00010000u, 0};
  EXPECT_EQ(NN_Digits(a.data(), 3), 2u);
  EXPECT_EQ(NN_Bits(a.data(), 3), 49u);
  EXPECT_EQ(NN_DigitBits(0), 0u);
  EXPECT_EQ(NN_DigitBits(0xFFFFFFFFu), 32u);
  Digits b = {1, 0x00010000u, 0};
  EXPECT_EQ(NN_Cmp(a.data(), b.data(), 3), -1);
  EXPECT_EQ(NN_Cmp(b.data(), a.data(), 3), 1);
  EXPECT_EQ(NN_Cmp(a.data(), a.data(), 3), 0);
  NN_Assign2Exp(a.data(), 95, 3);
  EXPECT_EQ(a, (Digits{0, 0, 0x80000000u}));
  NN_Assign2Exp(a.data(), 96, 3);
  EXPECT_TRUE(NN_Zero(a.data(), 3));
  unsigned char x[2] = {1, 2}, y[2] = {1, 3};
  EXPECT_LT(R_memcmp(x, y, 2), 0);
  EXPECT_EQ(R_memcmp(x, y, 0), 0);
}

#ifdef KT_HAVE_OPENSSL

using kt::test::Bn;
using kt::test::FromBn;
using kt::test::ToBn;

class NnVersusOpenSsl : public ::testing::Test {
 protected:
  std::mt19937 rng_{20240611};
  BN_CTX* ctx_ = BN_CTX_new();
  ~NnVersusOpenSsl() override { BN_CTX_free(ctx_); }
};

TEST_F(NnVersusOpenSsl, MultiplyAndDivideAgreeAtEverySize) {
  for (unsigned digits = 1; digits <= MAX_NN_DIGITS; ++digits) {
    for (unsigned shape = 0; shape < 3; ++shape) {
      SCOPED_TRACE(testing::Message() << "digits " << digits << " shape " << shape);
      Digits b = RandomNumber(rng_, digits, shape), c = RandomNumber(rng_, digits, shape + 1);
      Digits product(2 * MAX_NN_DIGITS);
      NN_Mult(product.data(), b.data(), c.data(), digits);
      Bn expected(BN_new());
      BN_mul(expected.get(), ToBn(b.data(), digits).get(), ToBn(c.data(), digits).get(), ctx_);
      EXPECT_EQ(BN_cmp(ToBn(product.data(), 2 * digits).get(), expected.get()), 0);

      // Dividend of up to 66 digits by a divisor of `dd` digits.
      const unsigned cd = 1 + rng_() % (2 * MAX_NN_DIGITS);
      const unsigned dd = 1 + rng_() % digits;
      Digits dividend = RandomNumber(rng_, cd, shape), divisor = RandomNumber(rng_, dd, shape + 2);
      if (NN_Zero(divisor.data(), dd)) divisor[0] = 1;
      Digits q(2 * MAX_NN_DIGITS + 1), r(MAX_NN_DIGITS);
      NN_Div(q.data(), r.data(), dividend.data(), cd, divisor.data(), dd);
      Bn bq(BN_new()), br(BN_new());
      BN_div(bq.get(), br.get(), ToBn(dividend.data(), cd).get(), ToBn(divisor.data(), dd).get(),
             ctx_);
      EXPECT_EQ(BN_cmp(ToBn(q.data(), cd).get(), bq.get()), 0);
      EXPECT_EQ(BN_cmp(ToBn(r.data(), dd).get(), br.get()), 0);
    }
  }
}

TEST_F(NnVersusOpenSsl, ModularExponentiationInverseAndGcdAgree) {
  for (unsigned digits = 1; digits <= MAX_NN_DIGITS; digits += (digits < 4 ? 1 : 4)) {
    SCOPED_TRACE(testing::Message() << "digits " << digits);
    Digits d = RandomNumber(rng_, digits), b = RandomNumber(rng_, digits),
           e = RandomNumber(rng_, digits);
    d[digits - 1] |= 0x80000000u;
    d[0] |= 1;
    NN_Mod(b.data(), b.data(), digits, d.data(), digits);  // b < d
    Digits a(MAX_NN_DIGITS);
    NN_ModExp(a.data(), b.data(), e.data(), digits, d.data(), digits);
    Bn expected(BN_new());
    Bn bd = ToBn(d.data(), digits);
    BN_mod_exp(expected.get(), ToBn(b.data(), digits).get(), ToBn(e.data(), digits).get(),
               bd.get(), ctx_);
    EXPECT_EQ(BN_cmp(ToBn(a.data(), digits).get(), expected.get()), 0);

    Digits g(MAX_NN_DIGITS);
    NN_Gcd(g.data(), b.data(), d.data(), digits);
    Bn bg(BN_new());
    BN_gcd(bg.get(), ToBn(b.data(), digits).get(), bd.get(), ctx_);
    EXPECT_EQ(BN_cmp(ToBn(g.data(), digits).get(), bg.get()), 0);
    if (BN_is_one(bg.get())) {
      Digits inv(MAX_NN_DIGITS);
      NN_ModInv(inv.data(), b.data(), d.data(), digits);
      Bn binv(BN_mod_inverse(nullptr, ToBn(b.data(), digits).get(), bd.get(), ctx_));
      ASSERT_NE(binv, nullptr);
      EXPECT_EQ(BN_cmp(ToBn(inv.data(), digits).get(), binv.get()), 0);
    }
  }
}

TEST_F(NnVersusOpenSsl, ModMultMatchesOnEvenAndOddModuli) {
  for (unsigned round = 0; round < 40; ++round) {
    const unsigned digits = 1 + rng_() % MAX_NN_DIGITS;
    Digits b = RandomNumber(rng_, digits, round), c = RandomNumber(rng_, digits),
           d = RandomNumber(rng_, digits, round + 1);
    if (NN_Zero(d.data(), digits)) d[0] = 2;
    Digits a(MAX_NN_DIGITS);
    NN_ModMult(a.data(), b.data(), c.data(), d.data(), digits);
    Bn expected(BN_new());
    BN_mod_mul(expected.get(), ToBn(b.data(), digits).get(), ToBn(c.data(), digits).get(),
               ToBn(d.data(), digits).get(), ctx_);
    EXPECT_EQ(BN_cmp(ToBn(a.data(), digits).get(), expected.get()), 0) << "round " << round;
  }
}

#endif  // KT_HAVE_OPENSSL

}  // namespace
