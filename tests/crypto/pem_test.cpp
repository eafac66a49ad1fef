// The printable encoding and the one-call printable helpers: Base64 equality
// with OpenSSL, the acceptance rules, length limits and status translations.
#include <gtest/gtest.h>

#include "crypto/crypto_test_util.h"

#ifdef KT_HAVE_OPENSSL
#include <openssl/evp.h>
#endif

namespace {

using kt::test::ByteVector;
using kt::test::KeyPair;
using kt::test::TestKey;
using kt::test::Text;

uint32_t Decode(std::string_view text, ByteVector* out) {
  out->assign(3 * text.size() / 4 + 3, 0);
  uint32_t len = 0;
  const uint32_t status = R_DecodePEMBlock(out->data(), &len,
                                           reinterpret_cast<const unsigned char*>(text.data()),
                                           static_cast<uint32_t>(text.size()));
  if (status == KT_RE_OK) out->resize(len);
  return status;
}

TEST(Pem, DecodingAcceptsExactlyTheStatedForms) {
  ByteVector out;
  EXPECT_EQ(Decode("QQ==", &out), KT_RE_OK);
  EXPECT_EQ(out, ByteVector{0x41});
  EXPECT_EQ(Decode("QQ=A", &out), KT_RE_OK);  // after "=" the fourth is not looked at
  EXPECT_EQ(out, ByteVector{0x41});
  EXPECT_EQ(Decode("QUI=", &out), KT_RE_OK);
  EXPECT_EQ(out, Text("AB"));
  EXPECT_EQ(Decode("QUJD", &out), KT_RE_OK);
  EXPECT_EQ(out, Text("ABC"));
  EXPECT_EQ(Decode("QR==", &out), KT_RE_OK);  // unused low bits need not be zero
  EXPECT_EQ(Decode("", &out), KT_RE_OK);
  EXPECT_TRUE(out.empty());
  for (std::string_view bad : {"Q===", "QQ", "=QQQ", "QQ==QUJD", "QU*D", "QUJD\nQUJD", "QUJ"}) {
    EXPECT_EQ(Decode(bad, &out), KT_RE_ENCODING) << bad;
  }
}

#ifdef KT_HAVE_OPENSSL
TEST(Pem, EncodingIsStandardBase64WithoutLineBreaks) {
  std::mt19937 rng(21);
  for (std::size_t len = 0; len < 200; len += 1 + len / 10) {
    const ByteVector block = kt::test::RandomBytes(rng, len);
    std::string expected(4 * (len / 3 + 1) + 1, '\0');
    expected.resize(static_cast<std::size_t>(
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(expected.data()), block.data(),
                        static_cast<int>(len))));
    ByteVector encoded(expected.size() + 4);
    uint32_t encoded_len = 99;
    EXPECT_EQ(R_EncodePEMBlock(encoded.data(), &encoded_len, block.data(),
                               static_cast<uint32_t>(len)),
              KT_RE_OK);
    EXPECT_EQ(std::string(encoded.begin(), encoded.begin() + encoded_len), expected);
    ByteVector decoded;
    EXPECT_EQ(Decode(expected, &decoded), KT_RE_OK);
    EXPECT_EQ(decoded, block);
  }
}
#endif

std::string AsText(const unsigned char* p, uint32_t n) { return std::string(p, p + n); }
const unsigned char* Bytes(const std::string& s) {
  return reinterpret_cast<const unsigned char*>(s.data());
}

TEST(PemSignature, SignAndVerifyInPrintableFormWithLimits) {
  const KeyPair& key = TestKey(1024);
  const ByteVector content = Text("printable signed content");
  const uint32_t content_len = static_cast<uint32_t>(content.size());
  unsigned char encoded_content[64], encoded_signature[176];
  uint32_t encoded_content_len = 0, encoded_signature_len = 0;
  ASSERT_EQ(R_SignPEMBlock(encoded_content, &encoded_content_len, encoded_signature,
                           &encoded_signature_len, content.data(), content_len, 1, KT_DA_MD5,
                           &key.priv),
            KT_RE_OK);
  EXPECT_EQ(encoded_signature_len, 172u);
  EXPECT_EQ(encoded_content_len, 32u);
  const std::string signature = AsText(encoded_signature, encoded_signature_len);
  const std::string recoded = AsText(encoded_content, encoded_content_len);

  auto verify = [&](const std::string& text, int32_t recode, const std::string& sig) {
    unsigned char decoded[64];
    uint32_t decoded_len = 0;
    return R_VerifyPEMSignature(decoded, &decoded_len, Bytes(text),
                                static_cast<uint32_t>(text.size()), Bytes(sig),
                                static_cast<uint32_t>(sig.size()), recode, KT_DA_MD5, &key.pub);
  };
  const std::string plain(content.begin(), content.end());
  EXPECT_EQ(verify(recoded, 1, signature), KT_RE_OK);
  EXPECT_EQ(verify(plain, 0, signature), KT_RE_OK);
  EXPECT_EQ(verify(recoded, 0, signature), KT_RE_SIGNATURE);
  EXPECT_EQ(verify(recoded + "=", 1, signature), KT_RE_CONTENT_ENCODING);
  EXPECT_EQ(verify(plain, 0, signature + "AAAA"), KT_RE_SIGNATURE_ENCODING);  // 176 > 173
  EXPECT_EQ(verify(plain, 0, signature.substr(0, 171)), KT_RE_SIGNATURE_ENCODING);
  // 172 characters of 129 bytes: decoded, then refused by length.
  EXPECT_EQ(verify(plain, 0, std::string(172, 'A')), KT_RE_LEN);
}

struct SealedText {
  std::string content, key, signature;
  unsigned char iv[8];
};

SealedText SealText(const ByteVector& content, const KeyPair& key, R_RandomContext* random) {
  SealedText out;
  std::vector<unsigned char> encrypted(32 * (content.size() / 24 + 1)), encrypted_key(176),
      encrypted_signature(184);
  uint32_t content_len = 0, key_len = 0, signature_len = 0;
  R_RSAPublicKey pub = key.pub;
  EXPECT_EQ(R_SealPEMBlock(encrypted.data(), &content_len, encrypted_key.data(), &key_len,
                           encrypted_signature.data(), &signature_len, out.iv, content.data(),
                           static_cast<uint32_t>(content.size()), KT_DA_MD5, &pub, &key.priv,
                           random),
            KT_RE_OK);
  out.content = AsText(encrypted.data(), content_len);
  out.key = AsText(encrypted_key.data(), key_len);
  out.signature = AsText(encrypted_signature.data(), signature_len);
  return out;
}

uint32_t OpenText(const SealedText& s, const KeyPair& key, ByteVector* content) {
  content->assign(3 * s.content.size() / 4 + 8, 0);
  uint32_t len = 0;
  const uint32_t status = R_OpenPEMBlock(
      content->data(), &len, Bytes(s.content), static_cast<uint32_t>(s.content.size()),
      Bytes(s.key), static_cast<uint32_t>(s.key.size()), Bytes(s.signature),
      static_cast<uint32_t>(s.signature.size()), s.iv, KT_DA_MD5, &key.priv, &key.pub);
  if (status == KT_RE_OK) content->resize(len);
  return status;
}

TEST(PemEnvelope, SealAndOpenRoundTripWithPieceSizes) {
  const KeyPair& key = TestKey(1024);
  R_RandomContext random = kt::test::SeededRandom(22);
  std::mt19937 rng(22);
  for (std::size_t len : {0u, 23u, 24u, 25u, 47u, 48u, 100u}) {
    SCOPED_TRACE(len);
    const ByteVector content = kt::test::RandomBytes(rng, len);
    const SealedText sealed = SealText(content, key, &random);
    const std::size_t last_bytes = (len % 24) / 8 * 8 + 8;
    EXPECT_EQ(sealed.content.size(), 32 * (len / 24) + 4 * ((last_bytes + 2) / 3));
    if (len == 24) {
      EXPECT_EQ(sealed.content.size(), 32u + 12u);  // the pad block alone
    }
    EXPECT_EQ(sealed.key.size(), 172u);
    EXPECT_EQ(sealed.signature.size(), 184u);
    ByteVector opened;
    EXPECT_EQ(OpenText(sealed, key, &opened), KT_RE_OK);
    EXPECT_EQ(opened, content);
  }
}

TEST(PemEnvelope, OpenTranslatesEachFailure) {
  const KeyPair& key = TestKey(1024);
  R_RandomContext random = kt::test::SeededRandom(23);
  const SealedText good = SealText(Text("a message of some fifty bytes, sealed and signed."), key,
                                   &random);
  ByteVector opened;
  SealedText s = good;
  s.key += "AA";  // 174 characters: refused before any decoding
  EXPECT_EQ(OpenText(s, key, &opened), KT_RE_KEY_ENCODING);
  s = good;
  s.key[5] = '*';
  EXPECT_EQ(OpenText(s, key, &opened), KT_RE_KEY_ENCODING);
  s = good;
  s.signature += "A";
  EXPECT_EQ(OpenText(s, key, &opened), KT_RE_SIGNATURE_ENCODING);
  s = good;
  s.content[3] = '!';
  EXPECT_EQ(OpenText(s, key, &opened), KT_RE_CONTENT_ENCODING);
  s = good;
  s.content.resize(s.content.size() - 1);
  EXPECT_EQ(OpenText(s, key, &opened), KT_RE_CONTENT_ENCODING);
  s = good;
  s.content.resize(s.content.size() - 4);  // 3 bytes short of a whole block
  EXPECT_EQ(OpenText(s, key, &opened), KT_RE_CONTENT);
  s = good;
  s.signature[100] = '#';
  EXPECT_EQ(OpenText(s, key, &opened), KT_RE_SIGNATURE_ENCODING);
  s = good;
  s.signature.resize(180);
  EXPECT_EQ(OpenText(s, key, &opened), KT_RE_CONTENT);
  s = good;
  s.content[0] = s.content[0] == 'A' ? 'B' : 'A';  // first block garbled, padding intact
  EXPECT_EQ(OpenText(s, key, &opened), KT_RE_SIGNATURE);
  EXPECT_EQ(OpenText(good, key, &opened), KT_RE_OK);
}

}  // namespace
