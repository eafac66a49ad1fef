// Envelopes: round trips over the four ciphers in arbitrary pieces, the
// padding and length rules, the failure statuses, and OpenSSL's DES-CBC,
// DES-EDE3-CBC and DESX decrypting our cryptograms with the recovered key.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <span>
#include <tuple>

#include "crypto/crypto_test_util.h"

namespace kt::test {
namespace {

// A message sealed for one recipient.
struct Sealed {
  ByteVector cryptogram, encrypted_key;
  unsigned char iv[8];
};

// R_SealInit for the single recipient `pub`, filling the key and IV of `out`.
uint32_t SealInit(R_EnvelopeContext* context, Sealed* out, R_RSAPublicKey pub, int32_t algorithm,
                  R_RandomContext* random) {
  out->encrypted_key.assign(128, 0);
  unsigned char* keys[1] = {out->encrypted_key.data()};
  R_RSAPublicKey* recipients[1] = {&pub};
  uint32_t key_len = 0;
  const uint32_t status =
      R_SealInit(context, keys, &key_len, out->iv, 1, recipients, algorithm, random);
  out->encrypted_key.resize(key_len);
  return status;
}

// Feeds `in` to `update` in pieces of `piece` bytes (ending with an empty
// one when the size is a multiple), then calls `final`; collects the output
// and returns the first failure. Seal and Open share the signatures.
uint32_t Run(R_EnvelopeContext* context, decltype(&R_SealUpdate) update,
             decltype(&R_SealFinal) final, const ByteVector& in, std::size_t piece,
             ByteVector* out) {
  out->clear();
  for (std::size_t at = 0; at <= in.size(); at += piece) {
    const std::size_t n = std::min(piece, in.size() - at);
    ByteVector part(n + 7);
    uint32_t len = 0;
    const uint32_t status =
        update(context, part.data(), &len, in.data() + at, static_cast<uint32_t>(n));
    if (status != KT_RE_OK) return status;
    out->insert(out->end(), part.begin(), part.begin() + len);
  }
  unsigned char last[8];
  uint32_t len = 0;
  const uint32_t status = final(context, last, &len);
  if (status == KT_RE_OK) out->insert(out->end(), last, last + len);
  return status;
}

// Seals `content` for `key`, twice over one context: Final restarts it, so
// the second message gets the same key and IV, hence the same cryptogram.
Sealed Seal(const ByteVector& content, int32_t algorithm, const KeyPair& key,
            R_RandomContext* random, std::size_t piece = 5) {
  R_EnvelopeContext context;
  Sealed out;
  EXPECT_EQ(SealInit(&context, &out, key.pub, algorithm, random), KT_RE_OK);
  ByteVector again;
  EXPECT_EQ(Run(&context, R_SealUpdate, R_SealFinal, content, piece, &out.cryptogram), KT_RE_OK);
  EXPECT_EQ(Run(&context, R_SealUpdate, R_SealFinal, content, piece + 3, &again), KT_RE_OK);
  EXPECT_EQ(again, out.cryptogram);
  return out;
}

uint32_t Open(const Sealed& sealed, int32_t algorithm, const KeyPair& key, ByteVector* content,
              std::size_t piece = 7) {
  R_EnvelopeContext context;
  const uint32_t status =
      R_OpenInit(&context, algorithm, sealed.encrypted_key.data(),
                 static_cast<uint32_t>(sealed.encrypted_key.size()), sealed.iv, &key.priv);
  if (status != KT_RE_OK) return status;
  return Run(&context, R_OpenUpdate, R_OpenFinal, sealed.cryptogram, piece, content);
}

TEST(Envelope, RoundTripsForEveryCipherAndSplit) {
  const KeyPair& key = TestKey(512);
  R_RandomContext random = SeededRandom(12);
  std::mt19937 rng(12);
  for (int32_t algorithm = 1; algorithm <= 4; ++algorithm) {
    for (std::size_t len : {0u, 1u, 7u, 8u, 9u, 63u, 64u, 200u}) {
      SCOPED_TRACE(testing::Message() << "algorithm " << algorithm << " length " << len);
      const ByteVector content = RandomBytes(rng, len);
      const Sealed sealed = Seal(content, algorithm, key, &random, 1 + rng() % 20);
      EXPECT_EQ(sealed.cryptogram.size(), (len / 8 + 1) * 8);
      ByteVector opened = {1};
      EXPECT_EQ(Open(sealed, algorithm, key, &opened, 1 + rng() % 20), KT_RE_OK);
      EXPECT_EQ(opened, content);
    }
  }
}

TEST(Envelope, SealAndOpenFailuresReportTheirStatus) {
  const KeyPair& key = TestKey(512);
  R_RSAPublicKey pub = key.pub;
  R_EnvelopeContext context;
  Sealed out;
  R_RandomContext unseeded = UnseededRandom();
  EXPECT_EQ(SealInit(&context, &out, pub, KT_EA_DES_CBC, &unseeded), KT_RE_NEED_RANDOM);

  R_RandomContext random = SeededRandom(14), untouched = random;
  EXPECT_EQ(SealInit(&context, &out, pub, 5, &random), KT_RE_ENCRYPTION_ALGORITHM);
  EXPECT_NE(std::memcmp(&random, &untouched, sizeof random), 0);  // the draws happened

  pub.bits = 80;  // a 10-byte modulus cannot carry an 8-byte key
  EXPECT_EQ(SealInit(&context, &out, pub, KT_EA_DES_CBC, &random), KT_RE_PUBLIC_KEY);

  const Sealed sealed = Seal(Text("sixteen bytes!!!"), KT_EA_DES_EDE3_CBC, key, &random);
  const std::tuple<const char*, int32_t, void (*)(Sealed&), uint32_t> cases[] = {
      {"24-byte key for DES", KT_EA_DES_CBC, [](Sealed&) {}, KT_RE_PRIVATE_KEY},
      {"unknown algorithm", 9, [](Sealed&) {}, KT_RE_ENCRYPTION_ALGORITHM},
      {"129-byte key", 3, [](Sealed& s) { s.encrypted_key.resize(129, 0); }, KT_RE_LEN},
      {"garbled key", 3, [](Sealed& s) { s.encrypted_key[3] ^= 0x40; }, KT_RE_PRIVATE_KEY},
      {"not whole blocks", 3, [](Sealed& s) { s.cryptogram.pop_back(); }, KT_RE_CONTENT},
      {"bad padding", 3, [](Sealed& s) { s.cryptogram.back() ^= 1; }, KT_RE_CONTENT},
      {"intact", 3, [](Sealed&) {}, KT_RE_OK},
  };
  for (auto [what, algorithm, spoil, status] : cases) {
    Sealed spoilt = sealed;
    spoil(spoilt);
    ByteVector opened;
    EXPECT_EQ(Open(spoilt, algorithm, key, &opened), status) << what;
  }
}

#ifdef KT_HAVE_OPENSSL
TEST(Envelope, OpenSslDecryptsTheCryptogramWithTheRecoveredKey) {
  const KeyPair& key = TestKey(1024);
  R_RandomContext random = SeededRandom(17);
  std::mt19937 rng(17);
  for (int32_t algorithm = 1; algorithm <= 4; ++algorithm) {
    for (std::size_t len : {0u, 100u}) {
      SCOPED_TRACE(testing::Message() << "algorithm " << algorithm << " length " << len);
      const ByteVector content = RandomBytes(rng, len);
      const Sealed sealed = Seal(content, algorithm, key, &random);
      unsigned char k[128];
      uint32_t k_len = 0;
      ASSERT_EQ(RSAPrivateDecrypt(k, &k_len, sealed.encrypted_key.data(),
                                  static_cast<uint32_t>(sealed.encrypted_key.size()), &key.priv),
                KT_RE_OK);
      ASSERT_EQ(k_len, algorithm == KT_EA_DES_CBC ? 8u : 24u);
      if (algorithm == KT_EA_DES_EDE2_CBC) {
        EXPECT_EQ(std::memcmp(k, k + 16, 8), 0);
      }
      // PKCS #5: eight bytes of 8 alone for no content, four of 4 after 100.
      ByteVector expected = content;
      expected.resize(len + 8 - len % 8, static_cast<unsigned char>(8 - len % 8));
      EXPECT_EQ(OpenSslCbc(algorithm, k, sealed.iv, sealed.cryptogram, 0), expected);
    }
  }
}

// The cipher layer alone, on a context full of garbage whose algorithm word
// names no cipher or another one: CipherInit must set the algorithm that
// Update and Restart dispatch on.
TEST(Envelope, CipherLayerAloneMatchesOpenSslCbc) {
  std::mt19937 rng(23);
  for (int32_t algorithm = 1; algorithm <= 4; ++algorithm) {
    for (int32_t garbage_algorithm : {-1, algorithm % 4 + 1}) {
      SCOPED_TRACE(testing::Message() << "algorithm " << algorithm << " over " << garbage_algorithm);
      ByteVector key = RandomBytes(rng, 24);
      if (algorithm == KT_EA_DES_EDE2_CBC) std::copy_n(key.begin(), 8, key.begin() + 16);
      const ByteVector iv = RandomBytes(rng, 8), plain = RandomBytes(rng, 40);
      const ByteVector expected = OpenSslCbc(algorithm, key.data(), iv.data(), plain, 1);
      for (int32_t encrypt : {1, 0}) {
        const ByteVector& in = encrypt ? plain : expected;
        const ByteVector& want = encrypt ? expected : plain;
        R_EnvelopeContext context;
        for (unsigned char& b : std::span(reinterpret_cast<unsigned char*>(&context), sizeof context)) {
          b = static_cast<unsigned char>(rng());
        }
        if (garbage_algorithm > 0) context.encryptionAlgorithm = garbage_algorithm;
        ASSERT_EQ(CipherInit(&context, algorithm, key.data(), iv.data(), encrypt), KT_RE_OK);
        for (int pass = 0; pass < 2; ++pass) {  // the second after a restart
          ByteVector out(in.size());
          std::size_t at = 0;
          for (std::size_t piece : {8u, 24u, 8u}) {
            ASSERT_EQ(CipherUpdate(&context, &out[at], &in[at], static_cast<uint32_t>(piece)),
                      KT_RE_OK);
            at += piece;
          }
          EXPECT_EQ(out, want) << "pass " << pass << " encrypt " << encrypt;
          CipherRestart(&context);
        }
      }
    }
  }
}
#endif

}  // namespace
}  // namespace kt::test
