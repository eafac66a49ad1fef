// MD2 and MD5 against the RFC 1319 and RFC 1321 test suites (whole, byte by
// byte and split at every offset), MD5 against OpenSSL on random messages,
// and the dispatch layer with its deliberate asymmetry.
#include <gtest/gtest.h>

#include <string_view>

#include "crypto/crypto_test_util.h"

#ifdef KT_HAVE_OPENSSL
#include <openssl/evp.h>
#endif

namespace kt::test {
namespace {

// RFC 1319 and RFC 1321, appendix A.5 of each. Order: message, MD2, MD5.
struct Kat {
  std::string_view message, md2, md5;
};
constexpr Kat kKats[] = {
    {"", "8350e5a3e24c153df2275c9f80692773", "d41d8cd98f00b204e9800998ecf8427e"},
    {"a", "32ec01ec4a6dac72c0ab96fb34c0b5d1", "0cc175b9c0f1b6a831c399e269772661"},
    {"abc", "da853b0d3f88d99b30283a69e6ded6bb", "900150983cd24fb0d6963f7d28e17f72"},
    {"message digest", "ab4f496bfb2a530b219ff33031fe06b0", "f96b697d7cb7938d525a2f31aaf161d0"},
    {"abcdefghijklmnopqrstuvwxyz", "4e8ddff3650292ab5a4108c3aa47940b",
     "c3fcd3d76192e4007dfb496cca67e13b"},
    {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
     "da33def2a42df13975352846c30338cd", "d174ab98d277d9f5a5611c2c9f419d9f"},
    {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
     "d5976f79d83d3a0dc9806c3c66f3efd8", "57edf4a22be3c955ac49da2e2107b67a"},
};

// Digest of `message` fed through the dispatch in pieces cut at `cuts`.
std::string DigestInPieces(int32_t algorithm, const ByteVector& message,
                           std::vector<std::size_t> cuts) {
  R_DigestContext context;
  EXPECT_EQ(R_DigestInit(&context, algorithm), KT_RE_OK);
  cuts.push_back(message.size());
  std::size_t from = 0;
  for (std::size_t to : cuts) {
    R_DigestUpdate(&context, message.data() + from, static_cast<uint32_t>(to - from));
    from = to;
  }
  unsigned char digest[16];
  uint32_t len = 0;
  EXPECT_EQ(R_DigestFinal(&context, digest, &len), KT_RE_OK);
  EXPECT_EQ(len, 16u);
  return Hex(digest, 16);
}

TEST(Digest, Md2AndMd5PassTheRfcSuitesWholeByteByByteAndSplitAnywhere) {
  for (const Kat& kat : kKats) {
    for (auto [algorithm, expected] : {std::pair{KT_DA_MD2, kat.md2}, {KT_DA_MD5, kat.md5}}) {
      SCOPED_TRACE(testing::Message() << algorithm << " " << kat.message);
      const ByteVector message = Text(kat.message);
      std::vector<std::size_t> every_byte;
      for (std::size_t i = 1; i < message.size(); ++i) every_byte.push_back(i);
      EXPECT_EQ(DigestInPieces(algorithm, message, every_byte), expected);
      for (std::size_t cut = 0; cut <= message.size(); ++cut) {  // the empty cut: whole
        EXPECT_EQ(DigestInPieces(algorithm, message, {cut, cut}), expected);
      }
    }
  }
}

TEST(Digest, FinalClearsTheAlgorithmContextButKeepsTheIdentifier) {
  for (auto [algorithm, size] :
       {std::pair{KT_DA_MD2, sizeof(MD2Context)}, std::pair{KT_DA_MD5, sizeof(MD5Context)}}) {
    const unsigned char data[70] = {1};
    unsigned char digest[16];
    uint32_t len;
    R_DigestContext context;
    R_DigestInit(&context, algorithm);
    R_DigestUpdate(&context, data, sizeof data);
    R_DigestFinal(&context, digest, &len);
    EXPECT_EQ(context.digestAlgorithm, algorithm);
    const auto* bytes = reinterpret_cast<const unsigned char*>(&context.context);
    EXPECT_EQ(Hex(bytes, size), std::string(2 * size, '0')) << algorithm;
  }
}

TEST(Digest, OnlyInitChecksTheIdentifierAndOthersActAsMd5) {
  R_DigestContext context;
  EXPECT_EQ(R_DigestInit(&context, 4), KT_RE_DIGEST_ALGORITHM);
  EXPECT_EQ(context.digestAlgorithm, 4);
  // A caller that goes on anyway gets MD5 (here over a context it started).
  MD5Init(&context.context.md5);
  R_DigestUpdate(&context, reinterpret_cast<const unsigned char*>("abc"), 3);
  unsigned char digest[16];
  uint32_t len;
  EXPECT_EQ(R_DigestFinal(&context, digest, &len), KT_RE_OK);
  EXPECT_EQ(Hex(digest, 16), "900150983cd24fb0d6963f7d28e17f72");

  unsigned char untouched[16] = {0xAA};
  EXPECT_EQ(R_DigestBlock(untouched, &len, digest, 16, 4), KT_RE_DIGEST_ALGORITHM);
  EXPECT_EQ(Hex(untouched, 2), "aa00");

  // DigestInfo labels every non-MD2 identifier as MD5.
  for (int i = 0; i < 16; ++i) digest[i] = static_cast<unsigned char>(i);
  unsigned char info[34];
  R_EncodeDigestInfo(info, KT_DA_MD2, digest);
  EXPECT_EQ(Hex(info, 34), "3020300c06082a864886f70d020205000410000102030405060708090a0b0c0d0e0f");
  R_EncodeDigestInfo(info, 4, digest);
  EXPECT_EQ(info[13], 5);
}

#ifdef KT_HAVE_OPENSSL
TEST(Digest, Md5MatchesOpenSslOnRandomMessagesOfEveryPaddingCase) {
  std::mt19937 rng(7);
  for (std::size_t len = 0; len < 300; len += (len < 140 ? 1 : 37)) {
    const ByteVector message = RandomBytes(rng, len);
    unsigned char expected[16];
    unsigned int expected_len = 0;
    EVP_Digest(message.data(), message.size(), expected, &expected_len, EVP_md5(), nullptr);
    const std::size_t cut = len == 0 ? 0 : rng() % len;
    EXPECT_EQ(DigestInPieces(KT_DA_MD5, message, {cut}), Hex(expected, 16)) << "length " << len;
  }
}
#endif

}  // namespace
}  // namespace kt::test
