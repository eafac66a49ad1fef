// Prime, RSA key-pair and Diffie-Hellman generation: the bounds, the
// relations a key must satisfy (checked with OpenSSL's BIGNUM) and agreement.
#include <gtest/gtest.h>

#include "crypto/crypto_test_util.h"

namespace kt::test {
namespace {

TEST(KeyGen, ModulusLengthOutsideTheRangeOrAnUnseededGeneratorIsRefused) {
  R_RandomContext random = SeededRandom(1), unseeded = UnseededRandom();
  R_RSAPublicKey pub;
  R_RSAPrivateKey priv;
  for (uint32_t bits : {0u, 507u, 1025u}) {
    R_ProtoKey proto = {bits, 1};
    EXPECT_EQ(R_GeneratePEMKeys(&pub, &priv, &proto, &random), KT_RE_MODULUS_LEN) << bits;
  }
  R_ProtoKey proto = {512, 1};
  EXPECT_EQ(R_GeneratePEMKeys(&pub, &priv, &proto, &unseeded), KT_RE_NEED_RANDOM);
}

TEST(KeyGen, PrimalityFilterAndPrimeSearchOverSmallNumbers) {
  // The four small primes do not count as factors of themselves; 341 = 11 x 31
  // passes the base-2 Fermat test and is caught by the trial division.
  const std::pair<NN_DIGIT, uint8_t> cases[] = {
      {3, 1}, {5, 1},  {7, 1},  {11, 1},  {13, 1},  {65537, 1},
      {9, 0}, {25, 0}, {77, 0}, {121, 0}, {169, 0}, {341, 0},
  };
  NN_DIGIT a[2] = {0, 0};
  for (auto [n, prime] : cases) {
    a[0] = n;
    EXPECT_EQ(ProbablePrime(a, 1), prime) << n;
  }
  EXPECT_TRUE(FermatTest(a, 1));
  a[0] = 3;
  EXPECT_TRUE(SmallFactor(a, 2));  // the exception holds for one digit only
  NN_DIGIT three[1] = {3};
  a[0] = 7;  // gcd(6, 3) = 3
  EXPECT_FALSE(RSAFilter(a, 1, three, 1));
  a[0] = 11;
  EXPECT_TRUE(RSAFilter(a, 1, three, 1));

  R_RandomContext random = SeededRandom(2);
  NN_DIGIT b[1] = {24}, c[1] = {28}, d[1] = {2};  // 25 and 27: no prime
  EXPECT_EQ(GeneratePrime(a, b, c, d, 1, &random), KT_RE_DATA);
  c[0] = 30;
  EXPECT_EQ(GeneratePrime(a, b, c, d, 1, &random), KT_RE_OK);
  EXPECT_EQ(a[0], 29u);
}

// Key generation is deterministic for a seeded generator: these digests of
// whole key pairs (and of Diffie-Hellman parameters) were taken before the
// arithmetic was rewritten and must never move.
std::string PairDigest(const KeyPair& pair) {
  // The records as a little-endian host holds them: the `bits` words are
  // the only members wider than a byte, so the digests hold on every host.
  KeyPair image = pair;
  for (int i = 0; i < 4; ++i) {
    reinterpret_cast<unsigned char*>(&image.pub)[i] =
        static_cast<unsigned char>(pair.pub.bits >> (8 * i));
    reinterpret_cast<unsigned char*>(&image.priv)[i] =
        static_cast<unsigned char>(pair.priv.bits >> (8 * i));
  }
  unsigned char digest[16];
  uint32_t len = 0;
  R_DigestBlock(digest, &len, reinterpret_cast<const unsigned char*>(&image), sizeof image,
                KT_DA_MD5);
  return Hex(digest, len);
}

TEST(KeyGen, KnownAnswersForFixedSeeds) {
  const struct {
    uint32_t bits;
    int32_t fermat4;
    unsigned seed;
    const char* digest;
  } cases[] = {
      {508, 1, 11, "27d5035ebfae8102ccf97502a3277cdc"},
      {512, 0, 12, "f144af2dd7327750236c684391d641c1"},
      {777, 1, 13, "cc487d951de1867a3e3dfc77defbd54d"},
      {1024, 1, 14, "81364f63350f0dfbf2d765bca3304a54"},
      {1024, 0, 15, "7146f38dd3e35ae48ddd97dc6759bbcc"},
  };
  for (const auto& c : cases) {
    R_RandomContext random = SeededRandom(c.seed);
    KeyPair pair;
    std::memset(&pair, 0xA5, sizeof pair);
    R_ProtoKey proto = {c.bits, c.fermat4};
    ASSERT_EQ(R_GeneratePEMKeys(&pair.pub, &pair.priv, &proto, &random), KT_RE_OK);
    EXPECT_EQ(PairDigest(pair), c.digest) << c.bits << " " << c.seed;
  }
  R_RandomContext random = SeededRandom(16);
  KeyPair params{};
  R_DHParams dh = {params.pub.modulus, 0, params.pub.exponent, 0};
  ASSERT_EQ(R_GenerateDHParams(&dh, 512, 160, &random), KT_RE_OK);
  EXPECT_EQ(PairDigest(params), "c4736dba73cd39485b3efe516c8a337c");
}

#ifdef KT_HAVE_OPENSSL
// Checks every relation of a generated pair: OpenSSL's key check covers the
// primes, n = p q and the CRT values; e d = 1 is checked modulo phi itself.
void CheckKeyPair(const KeyPair& key, uint32_t bits, unsigned long e_value) {
  EXPECT_EQ(key.pub.bits, bits);
  EXPECT_EQ(key.priv.bits, bits);
  EXPECT_EQ(std::memcmp(key.pub.modulus, key.priv.modulus, 128), 0);
  EXPECT_EQ(std::memcmp(key.pub.exponent, key.priv.publicExponent, 128), 0);
  RSA* rsa = ToOpenSsl(key);
  EXPECT_EQ(RSA_check_key(rsa), 1);
  EXPECT_EQ(static_cast<uint32_t>(RSA_bits(rsa)), bits);
  EXPECT_TRUE(BN_is_word(RSA_get0_e(rsa), e_value));
  EXPECT_GT(BN_cmp(RSA_get0_p(rsa), RSA_get0_q(rsa)), 0);
  BN_CTX* ctx = BN_CTX_new();
  Bn p1(BN_dup(RSA_get0_p(rsa))), q1(BN_dup(RSA_get0_q(rsa))), phi(BN_new()), t(BN_new());
  BN_sub_word(p1.get(), 1);
  BN_sub_word(q1.get(), 1);
  BN_mul(phi.get(), p1.get(), q1.get(), ctx);
  BN_mod_mul(t.get(), RSA_get0_e(rsa), RSA_get0_d(rsa), phi.get(), ctx);
  EXPECT_TRUE(BN_is_one(t.get()));
  BN_CTX_free(ctx);
  RSA_free(rsa);
}

TEST(KeyGen, GeneratedPairsSatisfyEveryRelationAndFollowTheSeed) {
  for (auto [bits, fermat4] : {std::pair{508u, 1}, {512u, 0}, {777u, 1}, {1024u, 1}}) {
    SCOPED_TRACE(bits);
    R_RandomContext random = SeededRandom(bits + 1000);
    KeyPair pair;
    R_ProtoKey proto = {bits, fermat4};
    ASSERT_EQ(R_GeneratePEMKeys(&pair.pub, &pair.priv, &proto, &random), KT_RE_OK);
    CheckKeyPair(pair, bits, fermat4 ? 65537 : 3);
    if (fermat4) {  // the seed TestKey uses: the same pair again
      EXPECT_EQ(std::memcmp(&pair, &TestKey(bits), sizeof pair), 0);
    }
  }
}

TEST(DiffieHellman, PartiesAgreeAndValuesAtOrAbovePAreRefused) {
  R_RandomContext random = SeededRandom(4), unseeded = UnseededRandom();
  unsigned char prime[64], generator[64];
  R_DHParams params = {prime, 0, generator, 0};
  ASSERT_EQ(R_GenerateDHParams(&params, 512, 160, &random), KT_RE_OK);
  EXPECT_EQ(params.primeLen, 64u);
  EXPECT_EQ(params.generatorLen, 64u);
  const Bn p = BnOf(prime, 64);
  EXPECT_EQ(BN_num_bits(p.get()), 512);
  EXPECT_EQ(BN_check_prime(p.get(), nullptr, nullptr), 1);

  unsigned char y1[64], y2[64], x1[20], x2[20], z1[64], z2[64];
  ASSERT_EQ(R_SetupDHAgreement(y1, x1, sizeof x1, &params, &random), KT_RE_OK);
  ASSERT_EQ(R_SetupDHAgreement(y2, x2, sizeof x2, &params, &random), KT_RE_OK);
  ASSERT_EQ(R_ComputeDHAgreedKey(z1, y2, x1, sizeof x1, &params), KT_RE_OK);
  ASSERT_EQ(R_ComputeDHAgreedKey(z2, y1, x2, sizeof x2, &params), KT_RE_OK);
  EXPECT_EQ(std::memcmp(z1, z2, 64), 0);
  EXPECT_EQ(R_ComputeDHAgreedKey(z1, prime, x1, sizeof x1, &params), KT_RE_DATA);
  EXPECT_EQ(R_GenerateDHParams(&params, 512, 512, &random), KT_RE_LEN);
  EXPECT_EQ(R_SetupDHAgreement(y1, x1, sizeof x1, &params, &unseeded), KT_RE_NEED_RANDOM);
}
#endif

}  // namespace
}  // namespace kt::test
