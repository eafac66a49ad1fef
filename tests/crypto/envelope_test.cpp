// Envelopes: round trips over the four ciphers in arbitrary pieces, the
// padding and length rules, the failure statuses, and OpenSSL's DES-CBC,
// DES-EDE3-CBC and DESX decrypting our cryptograms with the recovered key.
#include <gtest/gtest.h>

#include "crypto/crypto_test_util.h"

#ifdef KT_HAVE_OPENSSL
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <openssl/des.h>
#endif

namespace {

using kt::test::ByteVector;
using kt::test::KeyPair;
using kt::test::TestKey;

struct Sealed {
  ByteVector cryptogram, encrypted_key;
  unsigned char iv[8];
};

// Seals `content` for `key` in pieces of `piece` bytes.
Sealed Seal(const ByteVector& content, int32_t algorithm, const KeyPair& key,
            R_RandomContext* random, std::size_t piece = 5) {
  Sealed out;
  R_EnvelopeContext context;
  unsigned char encrypted_key[128];
  unsigned char* keys[1] = {encrypted_key};
  uint32_t key_len = 0;
  R_RSAPublicKey pub = key.pub;
  R_RSAPublicKey* recipients[1] = {&pub};
  EXPECT_EQ(R_SealInit(&context, keys, &key_len, out.iv, 1, recipients, algorithm, random),
            KT_RE_OK);
  out.encrypted_key.assign(encrypted_key, encrypted_key + key_len);
  for (std::size_t at = 0; at <= content.size(); at += piece) {
    const std::size_t n = std::min(piece, content.size() - at);
    ByteVector part(n + 7);
    uint32_t part_len = 0;
    EXPECT_EQ(R_SealUpdate(&context, part.data(), &part_len, content.data() + at,
                           static_cast<uint32_t>(n)),
              KT_RE_OK);
    out.cryptogram.insert(out.cryptogram.end(), part.begin(), part.begin() + part_len);
  }
  unsigned char last[8];
  uint32_t last_len = 0;
  EXPECT_EQ(R_SealFinal(&context, last, &last_len), KT_RE_OK);
  EXPECT_EQ(last_len, 8u);
  out.cryptogram.insert(out.cryptogram.end(), last, last + 8);
  return out;
}

// Opens a cryptogram in pieces; returns the status of the first failure.
uint32_t Open(const Sealed& sealed, int32_t algorithm, const KeyPair& key, ByteVector* content,
              std::size_t piece = 7) {
  R_EnvelopeContext context;
  uint32_t status = R_OpenInit(&context, algorithm, sealed.encrypted_key.data(),
                               static_cast<uint32_t>(sealed.encrypted_key.size()), sealed.iv,
                               &key.priv);
  if (status != KT_RE_OK) return status;
  content->clear();
  for (std::size_t at = 0; at < sealed.cryptogram.size(); at += piece) {
    const std::size_t n = std::min(piece, sealed.cryptogram.size() - at);
    ByteVector part(n + 7);
    uint32_t part_len = 0;
    status = R_OpenUpdate(&context, part.data(), &part_len, sealed.cryptogram.data() + at,
                          static_cast<uint32_t>(n));
    if (status != KT_RE_OK) return status;
    content->insert(content->end(), part.begin(), part.begin() + part_len);
  }
  unsigned char last[8];
  uint32_t last_len = 0;
  status = R_OpenFinal(&context, last, &last_len);
  if (status == KT_RE_OK) content->insert(content->end(), last, last + last_len);
  return status;
}

TEST(Envelope, RoundTripsForEveryCipherAndSplit) {
  const KeyPair& key = TestKey(512);
  R_RandomContext random = kt::test::SeededRandom(12);
  std::mt19937 rng(12);
  for (int32_t algorithm = 1; algorithm <= 4; ++algorithm) {
    for (std::size_t len : {0u, 1u, 7u, 8u, 9u, 63u, 64u, 200u}) {
      SCOPED_TRACE(testing::Message() << "algorithm " << algorithm << " length " << len);
      const ByteVector content = kt::test::RandomBytes(rng, len);
      const Sealed sealed = Seal(content, algorithm, key, &random, 1 + rng() % 20);
      EXPECT_EQ(sealed.cryptogram.size(), (len / 8 + 1) * 8);
      ByteVector opened;
      EXPECT_EQ(Open(sealed, algorithm, key, &opened, 1 + rng() % 20), KT_RE_OK);
      EXPECT_EQ(opened, content);
    }
  }
}

TEST(Envelope, EmptyContentSealsToOneFullPaddingBlock) {
  const KeyPair& key = TestKey(512);
  R_RandomContext random = kt::test::SeededRandom(13);
  const Sealed sealed = Seal({}, KT_EA_DES_CBC, key, &random);
  ASSERT_EQ(sealed.cryptogram.size(), 8u);
  unsigned char des_key[128];
  uint32_t des_key_len = 0;
  ASSERT_EQ(RSAPrivateDecrypt(des_key, &des_key_len, sealed.encrypted_key.data(),
                              static_cast<uint32_t>(sealed.encrypted_key.size()), &key.priv),
            KT_RE_OK);
  ASSERT_EQ(des_key_len, 8u);
  DESContext des;
  DES_CBCInit(&des, des_key, sealed.iv, 0);
  unsigned char plain[8];
  DES_CBCUpdate(&des, plain, sealed.cryptogram.data(), 8);
  EXPECT_EQ(kt::test::Hex(plain, 8), "0808080808080808");
  ByteVector opened = {1};
  EXPECT_EQ(Open(sealed, KT_EA_DES_CBC, key, &opened), KT_RE_OK);
  EXPECT_TRUE(opened.empty());
}

TEST(Envelope, SealFailuresReportTheirStatus) {
  const KeyPair& key = TestKey(512);
  R_EnvelopeContext context;
  unsigned char encrypted_key[128], iv[8];
  unsigned char* keys[1] = {encrypted_key};
  uint32_t key_len;
  R_RSAPublicKey pub = key.pub;
  R_RSAPublicKey* recipients[1] = {&pub};
  R_RandomContext unseeded;
  R_RandomInit(&unseeded);
  EXPECT_EQ(R_SealInit(&context, keys, &key_len, iv, 1, recipients, 1, &unseeded),
            KT_RE_NEED_RANDOM);

  R_RandomContext random = kt::test::SeededRandom(14), untouched = random;
  EXPECT_EQ(R_SealInit(&context, keys, &key_len, iv, 1, recipients, 5, &random),
            KT_RE_ENCRYPTION_ALGORITHM);
  EXPECT_NE(std::memcmp(&random, &untouched, sizeof random), 0);  // the draws happened

  pub.bits = 80;  // a 10-byte modulus cannot carry an 8-byte key
  EXPECT_EQ(R_SealInit(&context, keys, &key_len, iv, 1, recipients, 1, &random),
            KT_RE_PUBLIC_KEY);
}

TEST(Envelope, OpenFailuresReportTheirStatus) {
  const KeyPair& key = TestKey(512);
  R_RandomContext random = kt::test::SeededRandom(15);
  Sealed sealed = Seal(kt::test::Text("sixteen bytes!!!"), KT_EA_DES_EDE3_CBC, key, &random);
  ByteVector opened;
  EXPECT_EQ(Open(sealed, KT_EA_DES_CBC, key, &opened), KT_RE_PRIVATE_KEY);  // 24-byte key
  EXPECT_EQ(Open(sealed, 9, key, &opened), KT_RE_ENCRYPTION_ALGORITHM);

  Sealed long_key = sealed;
  long_key.encrypted_key.resize(129, 0);
  EXPECT_EQ(Open(long_key, KT_EA_DES_EDE3_CBC, key, &opened), KT_RE_LEN);
  Sealed bad_key = sealed;
  bad_key.encrypted_key[3] ^= 0x40;
  EXPECT_EQ(Open(bad_key, KT_EA_DES_EDE3_CBC, key, &opened), KT_RE_PRIVATE_KEY);

  Sealed truncated = sealed;
  truncated.cryptogram.pop_back();
  EXPECT_EQ(Open(truncated, KT_EA_DES_EDE3_CBC, key, &opened), KT_RE_CONTENT);
  Sealed bad_padding = sealed;
  bad_padding.cryptogram.back() ^= 1;
  EXPECT_EQ(Open(bad_padding, KT_EA_DES_EDE3_CBC, key, &opened), KT_RE_CONTENT);
  EXPECT_EQ(Open(sealed, KT_EA_DES_EDE3_CBC, key, &opened), KT_RE_OK);
}

TEST(Envelope, ContextSealsTheNextMessageWithTheSameKeyAndIv) {
  const KeyPair& key = TestKey(512);
  R_RandomContext random = kt::test::SeededRandom(16);
  R_EnvelopeContext context;
  unsigned char encrypted_key[128], iv[8];
  unsigned char* keys[1] = {encrypted_key};
  uint32_t key_len, len;
  R_RSAPublicKey pub = key.pub;
  R_RSAPublicKey* recipients[1] = {&pub};
  ASSERT_EQ(R_SealInit(&context, keys, &key_len, iv, 1, recipients, KT_EA_DESX_CBC, &random),
            KT_RE_OK);
  const ByteVector content(20, 0x33);
  unsigned char first[32], second[32];
  R_SealUpdate(&context, first, &len, content.data(), 20);
  R_SealFinal(&context, first + len, &len);
  R_SealUpdate(&context, second, &len, content.data(), 20);
  R_SealFinal(&context, second + len, &len);
  EXPECT_EQ(kt::test::Hex(first, 24), kt::test::Hex(second, 24));
}

#ifdef KT_HAVE_OPENSSL
TEST(Envelope, OpenSslDecryptsTheCryptogramWithTheRecoveredKey) {
  const KeyPair& key = TestKey(1024);
  R_RandomContext random = kt::test::SeededRandom(17);
  std::mt19937 rng(17);
  for (int32_t algorithm = 1; algorithm <= 4; ++algorithm) {
    SCOPED_TRACE(algorithm);
    const ByteVector content = kt::test::RandomBytes(rng, 100);
    const Sealed sealed = Seal(content, algorithm, key, &random);
    unsigned char k[128];
    uint32_t k_len = 0;
    ASSERT_EQ(RSAPrivateDecrypt(k, &k_len, sealed.encrypted_key.data(),
                                static_cast<uint32_t>(sealed.encrypted_key.size()), &key.priv),
              KT_RE_OK);
    ASSERT_EQ(k_len, algorithm == 1 ? 8u : 24u);
    if (algorithm == KT_EA_DES_EDE2_CBC) {
      EXPECT_EQ(std::memcmp(k, k + 16, 8), 0);
    }
    DES_cblock b1, b2, b3, ivec;
    DES_key_schedule s1, s2, s3;
    std::memcpy(b1, k, 8);
    std::memcpy(b2, k + 8, 8);
    std::memcpy(b3, k + 16, 8);
    std::memcpy(ivec, sealed.iv, 8);
    DES_set_key_unchecked(&b1, &s1);
    DES_set_key_unchecked(&b2, &s2);
    DES_set_key_unchecked(&b3, &s3);
    ByteVector plain(sealed.cryptogram.size());
    const long n = static_cast<long>(plain.size());
    if (algorithm == KT_EA_DES_CBC) {
      DES_ncbc_encrypt(sealed.cryptogram.data(), plain.data(), n, &s1, &ivec, DES_DECRYPT);
    } else if (algorithm == KT_EA_DESX_CBC) {
      DES_xcbc_encrypt(sealed.cryptogram.data(), plain.data(), n, &s1, &ivec, &b2, &b3,
                       DES_DECRYPT);
    } else {
      DES_ede3_cbc_encrypt(sealed.cryptogram.data(), plain.data(), n, &s1, &s2, &s3, &ivec,
                           DES_DECRYPT);
    }
    ByteVector expected = content;
    expected.resize(104, 4);  // PKCS #5: four bytes of 4
    EXPECT_EQ(plain, expected);
  }
}
#endif

}  // namespace
