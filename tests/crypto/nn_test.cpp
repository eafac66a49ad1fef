// Big numbers: the stated edge behaviour, then differential tests against
// OpenSSL's BIGNUM on random operands of every size up to the capacity.
#include <gtest/gtest.h>

#include <vector>

#include "crypto/crypto_test_util.h"

namespace kt::test {
namespace {

using Digits = std::vector<NN_DIGIT>;

TEST(Nn, DecodeAndEncodeTruncateOrPadByCapacity) {
  ByteVector bytes(129);
  for (unsigned i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i + 1);
  Digits a(33, 0xDEADBEEF);
  NN_Decode(a.data(), 33, bytes.data(), 129);
  EXPECT_EQ(a[32], 0x01u);  // the first byte alone in the top digit
  EXPECT_EQ(a[0], 0x7E7F8081u);
  NN_Decode(a.data(), 32, bytes.data(), 129);
  EXPECT_EQ(a[31], 0x02030405u);             // byte 1 dropped
  EXPECT_EQ(a[32], 0x01u);                   // beyond the count: untouched
  NN_Decode(a.data(), 33, bytes.data(), 3);  // a short string zero-fills the upper digits
  EXPECT_EQ(a[0], 0x010203u);
  EXPECT_TRUE(NN_Zero(&a[1], 32));

  for (unsigned i = 0; i < 33; ++i) a[i] = 0x01010101u * (i + 1);
  ByteVector out(128);
  NN_Encode(out.data(), 128, a.data(), 33);
  EXPECT_EQ(out[0], 32);  // digit 31 on top; digit 32 dropped
  EXPECT_EQ(out[127], 1);
  out.assign(10, 0xAA);
  NN_Encode(out.data(), 10, a.data(), 1);
  EXPECT_EQ(Hex(out.data(), 10), "00000000000001010101");
}

TEST(Nn, ShiftsAndDigitHelpersLeaveTheOutputAloneWhenStated) {
  Digits b = {0x80000001u, 0x12345678u}, a = {7, 7}, d = {3, 4};
  EXPECT_EQ(NN_LShift(a.data(), b.data(), 32, 2), 0u);
  EXPECT_EQ(NN_RShift(a.data(), b.data(), 40, 2), 0u);
  EXPECT_EQ(NN_AddDigitMult(a.data(), b.data(), 0, d.data(), 2), 0u);
  EXPECT_EQ(NN_SubDigitMult(a.data(), b.data(), 0, d.data(), 2), 0u);
  EXPECT_EQ(a, (Digits{7, 7}));
  EXPECT_EQ(NN_LShift(a.data(), b.data(), 0, 2), 0u);
  EXPECT_EQ(a, b);
  EXPECT_EQ(NN_LShift(a.data(), b.data(), 4, 2), 0x1u);
  EXPECT_EQ(a, (Digits{0x00000010u, 0x23456788u}));
  EXPECT_EQ(NN_RShift(a.data(), b.data(), 4, 2), 0x10000000u);  // left-aligned
  EXPECT_EQ(a, (Digits{0x88000000u, 0x01234567u}));

  // {1, 2} - 2 x {3, 4} is negative by less than 2^64: a borrow of one.
  b = {1, 2};
  EXPECT_EQ(NN_SubDigitMult(a.data(), b.data(), 2, d.data(), 2), 1u);
  EXPECT_EQ(a, (Digits{0xFFFFFFFBu, 0xFFFFFFF9u}));
  const NN_DIGIT dividend[2] = {0, 0xFFFFFFFEu};
  NN_DigitDiv(a.data(), dividend, 0xFFFFFFFFu);
  EXPECT_EQ(a[0], 0xFFFFFFFEu);
}

TEST(Nn, DivisionByZeroWritesNothingAndAllOnesDivisorsNeedNoShift) {
  Digits c = {5, 6}, zero = {0, 0}, a = {1, 2}, b = {3, 4};
  NN_Div(a.data(), b.data(), c.data(), 2, zero.data(), 2);
  NN_Mod(b.data(), c.data(), 2, zero.data(), 2);
  EXPECT_EQ(a, (Digits{1, 2}));
  EXPECT_EQ(b, (Digits{3, 4}));

  // d = FFFFFFFF FFFFFFFF: quotient digits straight from cc; c = d^2 + d - 1.
  const Digits d = {0xFFFFFFFFu, 0xFFFFFFFFu};
  c = {0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu};
  a.resize(4);
  NN_Div(a.data(), b.data(), c.data(), 4, d.data(), 2);
  EXPECT_EQ(a, (Digits{0xFFFFFFFFu, 0xFFFFFFFFu, 0, 0}));
  EXPECT_EQ(b, (Digits{0xFFFFFFFEu, 0xFFFFFFFFu}));
}

TEST(Nn, SmallModularCasesAndCounts) {
  NN_DIGIT a = 7, zero = 0, one = 1, three = 3, five = 5, seven = 7, d = 97;
  NN_ModExp(&a, &zero, &zero, 1, &one, 1);  // exponent 0 gives 1, even modulo 1
  EXPECT_EQ(a, 1u);
  a = 7;
  NN_ModExp(&a, &five, &zero, 1, &d, 1);
  EXPECT_EQ(a, 1u);
  NN_ModInv(&a, &three, &seven, 1);
  EXPECT_EQ(a, 5u);
  NN_ModInv(&a, &one, &seven, 1);
  EXPECT_EQ(a, 1u);

  Digits x = {0, 0x00010000u, 0}, y = {1, 0x00010000u, 0};
  EXPECT_EQ(NN_Digits(x.data(), 3), 2u);
  EXPECT_EQ(NN_Bits(x.data(), 3), 49u);
  EXPECT_EQ(NN_Cmp(x.data(), y.data(), 3), -1);
  EXPECT_EQ(NN_Cmp(y.data(), x.data(), 3), 1);
  NN_Assign2Exp(x.data(), 95, 3);
  EXPECT_EQ(x, (Digits{0, 0, 0x80000000u}));
  NN_Assign2Exp(x.data(), 96, 3);
  EXPECT_TRUE(NN_Zero(x.data(), 3));
  const unsigned char p[2] = {1, 2}, q[2] = {1, 3};
  EXPECT_LT(R_memcmp(p, q, 2), 0);
  EXPECT_EQ(R_memcmp(p, q, 0), 0);
}

#ifdef KT_HAVE_OPENSSL

void ExpectSame(const Digits& ours, unsigned digits, const Bn& theirs) {
  EXPECT_EQ(BN_cmp(ToBn(ours.data(), digits).get(), theirs.get()), 0);
}

TEST(NnVersusOpenSsl, EveryOperationAgreesAtEverySize) {
  std::mt19937 rng(20240611);
  BN_CTX* ctx = BN_CTX_new();
  for (unsigned digits = 1; digits <= MAX_NN_DIGITS; ++digits) {
    for (unsigned shape = 0; shape < 3; ++shape) {
      SCOPED_TRACE(testing::Message() << "digits " << digits << " shape " << shape);
      Digits b = RandomNumber(rng, digits, shape), c = RandomNumber(rng, digits, shape + 1);
      Bn bb = ToBn(b.data(), digits), bc = ToBn(c.data(), digits), expected(BN_new());
      Digits a(2 * MAX_NN_DIGITS + 1), r(MAX_NN_DIGITS);
      NN_Mult(a.data(), b.data(), c.data(), digits);
      BN_mul(expected.get(), bb.get(), bc.get(), ctx);
      ExpectSame(a, 2 * digits, expected);

      // Dividend of up to 66 digits by a divisor of `dd` digits.
      const unsigned cd = 1 + rng() % (2 * MAX_NN_DIGITS), dd = 1 + rng() % digits;
      Digits dividend = RandomNumber(rng, cd, shape), divisor = RandomNumber(rng, dd, shape + 2);
      if (NN_Zero(divisor.data(), dd)) divisor[0] = 1;
      NN_Div(a.data(), r.data(), dividend.data(), cd, divisor.data(), dd);
      const Bn bd = ToBn(divisor.data(), dd);
      Bn br(BN_new());
      BN_div(expected.get(), br.get(), ToBn(dividend.data(), cd).get(), bd.get(), ctx);
      ExpectSame(a, cd, expected);
      ExpectSame(r, dd, br);
      NN_ModMult(r.data(), b.data(), c.data(), divisor.data(), digits);  // even and odd moduli
      BN_mod_mul(expected.get(), bb.get(), bc.get(), bd.get(), ctx);
      ExpectSame(r, digits, expected);

      // Exponent, gcd and inverse modulo an odd c of exactly `digits` digits, b < c.
      c[digits - 1] |= 0x80000000u;
      c[0] |= 1;
      NN_Mod(b.data(), b.data(), digits, c.data(), digits);
      const Digits e = RandomNumber(rng, digits, shape);
      bb = ToBn(b.data(), digits);
      bc = ToBn(c.data(), digits);
      NN_ModExp(a.data(), b.data(), e.data(), digits, c.data(), digits);
      BN_mod_exp(expected.get(), bb.get(), ToBn(e.data(), digits).get(), bc.get(), ctx);
      ExpectSame(a, digits, expected);
      NN_Gcd(a.data(), b.data(), c.data(), digits);
      BN_gcd(expected.get(), bb.get(), bc.get(), ctx);
      ExpectSame(a, digits, expected);
      if (BN_is_one(expected.get())) {
        NN_ModInv(a.data(), b.data(), c.data(), digits);
        EXPECT_NE(BN_mod_inverse(expected.get(), bb.get(), bc.get(), ctx), nullptr);
        ExpectSame(a, digits, expected);
      }
    }
  }
  BN_CTX_free(ctx);
}

#endif  // KT_HAVE_OPENSSL

}  // namespace
}  // namespace kt::test
