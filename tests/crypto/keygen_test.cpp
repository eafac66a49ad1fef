// Prime, RSA key-pair and Diffie-Hellman generation: the bounds, the
// relations a key must satisfy (checked with OpenSSL's BIGNUM) and agreement.
#include <gtest/gtest.h>

#include "crypto/crypto_test_util.h"

namespace {

using kt::test::ByteVector;

TEST(KeyGen, ModulusLengthOutsideTheRangeIsRefused) {
  R_RandomContext random = kt::test::SeededRandom(1);
  R_RSAPublicKey pub;
  R_RSAPrivateKey priv;
  for (uint32_t bits : {0u, 507u, 1025u}) {
    R_ProtoKey proto = {bits, 1};
    EXPECT_EQ(R_GeneratePEMKeys(&pub, &priv, &proto, &random), KT_RE_MODULUS_LEN);
  }
  R_RandomContext unseeded;
  R_RandomInit(&unseeded);
  R_ProtoKey proto = {512, 1};
  EXPECT_EQ(R_GeneratePEMKeys(&pub, &priv, &proto, &unseeded), KT_RE_NEED_RANDOM);
}

TEST(KeyGen, SmallFactorsAndFermat) {
  NN_DIGIT a[2] = {0, 0};
  for (NN_DIGIT p : {3u, 5u, 7u, 11u, 13u, 65537u}) {
    a[0] = p;
    EXPECT_FALSE(SmallFactor(a, 1)) << p;
    EXPECT_TRUE(ProbablePrime(a, 1)) << p;
  }
  a[0] = 3;
  EXPECT_TRUE(SmallFactor(a, 2));  // the exception holds for one digit only
  for (NN_DIGIT c : {9u, 25u, 77u, 121u, 169u}) {
    a[0] = c;
    EXPECT_FALSE(ProbablePrime(a, 1)) << c;
  }
  a[0] = 341;  // 11 x 31: a base-2 pseudoprime, caught by the trial division
  EXPECT_TRUE(FermatTest(a, 1));
  EXPECT_FALSE(ProbablePrime(a, 1));
  NN_DIGIT b[1] = {3};
  a[0] = 7;  // gcd(6, 3) = 3
  EXPECT_FALSE(RSAFilter(a, 1, b, 1));
  a[0] = 11;
  EXPECT_TRUE(RSAFilter(a, 1, b, 1));
}

TEST(KeyGen, GeneratePrimeReportsAnExhaustedRange) {
  R_RandomContext random = kt::test::SeededRandom(2);
  NN_DIGIT a[1], b[1] = {24}, c[1] = {28}, d[1] = {2};  // 25 and 27: no prime
  EXPECT_EQ(GeneratePrime(a, b, c, d, 1, &random), KT_RE_DATA);
  c[0] = 30;
  EXPECT_EQ(GeneratePrime(a, b, c, d, 1, &random), KT_RE_OK);
  EXPECT_EQ(a[0], 29u);
}

#ifdef KT_HAVE_OPENSSL
using kt::test::Bn;

Bn BnOf(const unsigned char* p, int len) { return Bn(BN_bin2bn(p, len, nullptr)); }

// Checks every relation of a generated pair.
void CheckKeyPair(const R_RSAPublicKey& pub, const R_RSAPrivateKey& priv, uint32_t bits,
                  unsigned long e_value) {
  BN_CTX* ctx = BN_CTX_new();
  Bn n = BnOf(pub.modulus, 128), e = BnOf(pub.exponent, 128), d = BnOf(priv.exponent, 128);
  Bn p = BnOf(priv.prime[0], 64), q = BnOf(priv.prime[1], 64);
  Bn dp = BnOf(priv.primeExponent[0], 64), dq = BnOf(priv.primeExponent[1], 64);
  Bn q_inv = BnOf(priv.coefficient, 64);
  EXPECT_EQ(pub.bits, bits);
  EXPECT_EQ(priv.bits, bits);
  EXPECT_EQ(static_cast<uint32_t>(BN_num_bits(n.get())), bits);
  EXPECT_TRUE(BN_is_word(e.get(), e_value));
  EXPECT_EQ(std::memcmp(pub.modulus, priv.modulus, 128), 0);
  EXPECT_EQ(std::memcmp(pub.exponent, priv.publicExponent, 128), 0);
  EXPECT_GT(BN_cmp(p.get(), q.get()), 0);
  EXPECT_EQ(BN_check_prime(p.get(), ctx, nullptr), 1);
  EXPECT_EQ(BN_check_prime(q.get(), ctx, nullptr), 1);

  Bn t(BN_new()), p1(BN_dup(p.get())), q1(BN_dup(q.get())), phi(BN_new());
  BN_mul(t.get(), p.get(), q.get(), ctx);
  EXPECT_EQ(BN_cmp(t.get(), n.get()), 0);
  BN_sub_word(p1.get(), 1);
  BN_sub_word(q1.get(), 1);
  BN_mul(phi.get(), p1.get(), q1.get(), ctx);
  BN_mod_mul(t.get(), e.get(), d.get(), phi.get(), ctx);
  EXPECT_TRUE(BN_is_one(t.get()));
  BN_mod(t.get(), d.get(), p1.get(), ctx);
  EXPECT_EQ(BN_cmp(t.get(), dp.get()), 0);
  BN_mod(t.get(), d.get(), q1.get(), ctx);
  EXPECT_EQ(BN_cmp(t.get(), dq.get()), 0);
  BN_mod_mul(t.get(), q_inv.get(), q.get(), p.get(), ctx);
  EXPECT_TRUE(BN_is_one(t.get()));
  BN_CTX_free(ctx);
}

TEST(KeyGen, GeneratedPairsSatisfyEveryRelation) {
  struct Case {
    uint32_t bits;
    int32_t fermat4;
  };
  for (Case c : {Case{508, 1}, Case{512, 0}, Case{777, 1}, Case{1024, 1}}) {
    SCOPED_TRACE(c.bits);
    R_RandomContext random = kt::test::SeededRandom(c.bits);
    R_RSAPublicKey pub;
    R_RSAPrivateKey priv;
    R_ProtoKey proto = {c.bits, c.fermat4};
    ASSERT_EQ(R_GeneratePEMKeys(&pub, &priv, &proto, &random), KT_RE_OK);
    CheckKeyPair(pub, priv, c.bits, c.fermat4 ? 65537 : 3);
  }
}

TEST(KeyGen, SameSeedGivesTheSameKey) {
  R_RandomContext a = kt::test::SeededRandom(9), b = kt::test::SeededRandom(9);
  R_RSAPublicKey pub_a, pub_b;
  R_RSAPrivateKey priv_a, priv_b;
  R_ProtoKey proto = {512, 1};
  ASSERT_EQ(R_GeneratePEMKeys(&pub_a, &priv_a, &proto, &a), KT_RE_OK);
  ASSERT_EQ(R_GeneratePEMKeys(&pub_b, &priv_b, &proto, &b), KT_RE_OK);
  EXPECT_EQ(std::memcmp(&priv_a, &priv_b, sizeof priv_a), 0);
}

TEST(DiffieHellman, PartiesAgreeAndValuesAtOrAbovePAreRefused) {
  R_RandomContext random = kt::test::SeededRandom(4);
  unsigned char prime[64], generator[64];
  R_DHParams params = {prime, 0, generator, 0};
  ASSERT_EQ(R_GenerateDHParams(&params, 512, 160, &random), KT_RE_OK);
  EXPECT_EQ(params.primeLen, 64u);
  EXPECT_EQ(params.generatorLen, 64u);
  BN_CTX* ctx = BN_CTX_new();
  Bn p = BnOf(prime, 64);
  EXPECT_EQ(BN_num_bits(p.get()), 512);
  EXPECT_EQ(BN_check_prime(p.get(), ctx, nullptr), 1);
  BN_CTX_free(ctx);

  unsigned char y1[64], y2[64], x1[20], x2[20], z1[64], z2[64];
  ASSERT_EQ(R_SetupDHAgreement(y1, x1, sizeof x1, &params, &random), KT_RE_OK);
  ASSERT_EQ(R_SetupDHAgreement(y2, x2, sizeof x2, &params, &random), KT_RE_OK);
  ASSERT_EQ(R_ComputeDHAgreedKey(z1, y2, x1, sizeof x1, &params), KT_RE_OK);
  ASSERT_EQ(R_ComputeDHAgreedKey(z2, y1, x2, sizeof x2, &params), KT_RE_OK);
  EXPECT_EQ(std::memcmp(z1, z2, 64), 0);
  EXPECT_EQ(R_ComputeDHAgreedKey(z1, prime, x1, sizeof x1, &params), KT_RE_DATA);

  EXPECT_EQ(R_GenerateDHParams(&params, 512, 512, &random), KT_RE_LEN);
  R_RandomContext unseeded;
  R_RandomInit(&unseeded);
  EXPECT_EQ(R_SetupDHAgreement(y1, x1, sizeof x1, &params, &unseeded), KT_RE_NEED_RANDOM);
}
#endif

}  // namespace
