// The printable encoding and the one-call printable helpers: Base64 equality
// with OpenSSL, the acceptance rules, length limits and status translations.
#include <gtest/gtest.h>

#include <functional>

#include "crypto/crypto_test_util.h"

#ifdef KT_HAVE_OPENSSL
#include <openssl/evp.h>
#endif

namespace kt::test {
namespace {

const unsigned char* Bytes(std::string_view s) {
  return reinterpret_cast<const unsigned char*>(s.data());
}
template <class T>
uint32_t Len(const T& s) {
  return static_cast<uint32_t>(s.size());
}
std::string AsText(const unsigned char* p, uint32_t n) { return std::string(p, p + n); }

// The decoded bytes as text, or "refused" for KT_RE_ENCODING.
std::string Decode(std::string_view text) {
  ByteVector out(3 * text.size() / 4 + 3);
  uint32_t len = 0;
  const uint32_t status = R_DecodePEMBlock(out.data(), &len, Bytes(text), Len(text));
  return status == KT_RE_OK         ? AsText(out.data(), len)
         : status == KT_RE_ENCODING ? "refused"
                                    : "other status";
}

TEST(Pem, DecodingAcceptsExactlyTheStatedForms) {
  // After "=" the fourth character is not looked at; unused low bits need not be zero.
  const std::pair<std::string_view, std::string_view> accepted[] = {
      {"QQ==", "A"}, {"QQ=A", "A"}, {"QR==", "A"}, {"QUI=", "AB"}, {"QUJD", "ABC"}, {"", ""}};
  for (auto [text, bytes] : accepted) EXPECT_EQ(Decode(text), bytes) << text;
  for (std::string_view text : {"Q===", "QQ", "=QQQ", "QQ==QUJD", "QU*D", "QUJD\nQUJD", "QUJ"}) {
    EXPECT_EQ(Decode(text), "refused") << text;
  }
}

#ifdef KT_HAVE_OPENSSL
TEST(Pem, EncodingIsStandardBase64WithoutLineBreaks) {
  std::mt19937 rng(21);
  for (std::size_t len = 0; len < 200; len += 1 + len / 10) {
    const ByteVector block = RandomBytes(rng, len);
    ByteVector expected(4 * (len / 3 + 1) + 1), encoded(expected.size());
    expected.resize(EVP_EncodeBlock(expected.data(), block.data(), static_cast<int>(len)));
    uint32_t encoded_len = 99;
    EXPECT_EQ(R_EncodePEMBlock(encoded.data(), &encoded_len, block.data(), Len(block)), KT_RE_OK);
    encoded.resize(encoded_len);
    EXPECT_EQ(encoded, expected);
    EXPECT_EQ(Decode(AsText(expected.data(), Len(expected))), AsText(block.data(), Len(block)));
  }
}
#endif

TEST(PemSignature, SignAndVerifyInPrintableFormWithLimits) {
  const KeyPair& key = TestKey(1024);
  const std::string plain = "printable signed content";
  unsigned char encoded_content[64], encoded_signature[176];
  uint32_t encoded_content_len = 0, encoded_signature_len = 0;
  ASSERT_EQ(
      R_SignPEMBlock(encoded_content, &encoded_content_len, encoded_signature,
                     &encoded_signature_len, Bytes(plain), Len(plain), 1, KT_DA_MD5, &key.priv),
      KT_RE_OK);
  const std::string signature = AsText(encoded_signature, encoded_signature_len);
  const std::string recoded = AsText(encoded_content, encoded_content_len);

  auto verify = [&](const std::string& text, int32_t recode, const std::string& sig) {
    unsigned char decoded[64];
    uint32_t decoded_len = 0;
    return R_VerifyPEMSignature(decoded, &decoded_len, Bytes(text), Len(text), Bytes(sig), Len(sig),
                                recode, KT_DA_MD5, &key.pub);
  };
  EXPECT_EQ(verify(recoded, 1, signature), KT_RE_OK);
  EXPECT_EQ(verify(plain, 0, signature), KT_RE_OK);
  EXPECT_EQ(verify(recoded, 0, signature), KT_RE_SIGNATURE);
  EXPECT_EQ(verify(recoded + "=", 1, signature), KT_RE_CONTENT_ENCODING);
  // 176 characters that would decode (to 132 bytes): refused by length first.
  EXPECT_EQ(verify(plain, 0, std::string(176, 'A')), KT_RE_SIGNATURE_ENCODING);
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
  ByteVector encrypted(32 * (content.size() / 24 + 1)), encrypted_key(176), signature(184);
  uint32_t content_len = 0, key_len = 0, signature_len = 0;
  R_RSAPublicKey pub = key.pub;
  EXPECT_EQ(
      R_SealPEMBlock(encrypted.data(), &content_len, encrypted_key.data(), &key_len,
                     signature.data(), &signature_len, out.iv, content.data(),
                     static_cast<uint32_t>(content.size()), KT_DA_MD5, &pub, &key.priv, random),
      KT_RE_OK);
  out.content = AsText(encrypted.data(), content_len);
  out.key = AsText(encrypted_key.data(), key_len);
  out.signature = AsText(signature.data(), signature_len);
  return out;
}

uint32_t OpenText(const SealedText& s, const KeyPair& key, ByteVector* content) {
  content->assign(3 * s.content.size() / 4 + 8, 0);
  uint32_t len = 0;
  const uint32_t status = R_OpenPEMBlock(content->data(), &len, Bytes(s.content), Len(s.content),
                                         Bytes(s.key), Len(s.key), Bytes(s.signature),
                                         Len(s.signature), s.iv, KT_DA_MD5, &key.priv, &key.pub);
  if (status == KT_RE_OK) content->resize(len);
  return status;
}

TEST(PemEnvelope, SealAndOpenRoundTripWithPieceSizes) {
  const KeyPair& key = TestKey(1024);
  R_RandomContext random = SeededRandom(22);
  std::mt19937 rng(22);
  for (std::size_t len : {0u, 23u, 24u, 25u, 47u, 48u, 100u}) {
    SCOPED_TRACE(len);
    const ByteVector content = RandomBytes(rng, len);
    const SealedText sealed = SealText(content, key, &random);
    // Whole 24-byte pieces give 32 characters; the rest and the padding
    // (a whole pad block alone after 24 bytes: 32 + 12) encode as one piece.
    const std::size_t last_bytes = (len % 24) / 8 * 8 + 8;
    EXPECT_EQ(sealed.content.size(), 32 * (len / 24) + 4 * ((last_bytes + 2) / 3));
    EXPECT_EQ(sealed.signature.size(), 184u);
    ByteVector opened;
    EXPECT_EQ(OpenText(sealed, key, &opened), KT_RE_OK);
    EXPECT_EQ(opened, content);
  }
}

TEST(PemEnvelope, OpenTranslatesEachFailure) {
  const KeyPair& key = TestKey(1024);
  R_RandomContext random = SeededRandom(23);
  const SealedText good =
      SealText(Text("a message of some fifty bytes, sealed and signed."), key, &random);
  const std::pair<std::function<void(SealedText&)>, uint32_t> cases[] = {
      // Texts longer than allowed that would decode: refused by length first.
      {[](SealedText& s) { s.key = std::string(176, 'A'); }, KT_RE_KEY_ENCODING},
      {[](SealedText& s) { s.key[5] = '*'; }, KT_RE_KEY_ENCODING},
      {[](SealedText& s) { s.signature = std::string(188, 'A'); }, KT_RE_SIGNATURE_ENCODING},
      {[](SealedText& s) { s.signature[100] = '#'; }, KT_RE_SIGNATURE_ENCODING},
      {[](SealedText& s) { s.signature.resize(180); }, KT_RE_CONTENT},
      {[](SealedText& s) { s.content[3] = '!'; }, KT_RE_CONTENT_ENCODING},
      {[](SealedText& s) { s.content.pop_back(); }, KT_RE_CONTENT_ENCODING},
      {[](SealedText& s) { s.content.resize(s.content.size() - 4); }, KT_RE_CONTENT},
      // First block garbled, padding intact: opens, but the signature fails.
      {[](SealedText& s) { s.content[0] = s.content[0] == 'A' ? 'B' : 'A'; }, KT_RE_SIGNATURE},
      {[](SealedText&) {}, KT_RE_OK},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    SealedText s = good;
    cases[i].first(s);
    ByteVector opened;
    EXPECT_EQ(OpenText(s, key, &opened), cases[i].second) << "case " << i;
  }
}

}  // namespace
}  // namespace kt::test
