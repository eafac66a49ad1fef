// DES, DESX and triple DES in CBC mode: published vectors, the relations
// between the three ciphers, the length rule, Restart and parity bits, and
// OpenSSL as an oracle on random keys, IVs and data.
#include <gtest/gtest.h>

#include "crypto/crypto_test_util.h"

#ifdef KT_HAVE_OPENSSL
// The low-level DES interface is deprecated in OpenSSL 3 but is the only one
// that offers single DES and DESX without the legacy provider.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <openssl/des.h>
#endif

namespace {

using kt::test::ByteVector;
using kt::test::FromHex;
using kt::test::Hex;

// Runs one of the three CBC ciphers over `in` with a fresh context.
template <class Context, auto kInit, auto kUpdate>
ByteVector Cbc(const ByteVector& key, const ByteVector& iv, const ByteVector& in, int encrypt) {
  Context context;
  kInit(&context, key.data(), iv.data(), encrypt);
  ByteVector out(in.size());
  EXPECT_EQ(kUpdate(&context, out.data(), in.data(), static_cast<uint32_t>(in.size())), KT_RE_OK);
  return out;
}
constexpr auto DesCbc = Cbc<DESContext, DES_CBCInit, DES_CBCUpdate>;
constexpr auto Des3Cbc = Cbc<DES3Context, DES3_CBCInit, DES3_CBCUpdate>;
constexpr auto DesxCbc = Cbc<DESXContext, DESX_CBCInit, DESX_CBCUpdate>;

// Single-block vectors (a zero IV makes CBC one ECB block). Order: key,
// plaintext, ciphertext.
struct BlockKat {
  const char *key, *plain, *cipher;
};
constexpr BlockKat kDesBlockKats[] = {
    {"133457799bbcdff1", "0123456789abcdef", "85e813540f0ab405"},  // FIPS 46 worked example
    {"0123456789abcdef", "4e6f772069732074", "3fa40e8a984d4815"},  // FIPS 81 ECB, "Now is t"
    {"0101010101010101", "8000000000000000", "95f8a5e5dd31d900"},  // variable plaintext
    {"8001010101010101", "0000000000000000", "95a8d72813daa94d"},  // variable key
};

TEST(DesCbc, PublishedBlockVectorsEncryptAndDecrypt) {
  const ByteVector zero_iv(8, 0);
  for (const BlockKat& kat : kDesBlockKats) {
    SCOPED_TRACE(kat.key);
    EXPECT_EQ(Hex(DesCbc(FromHex(kat.key), zero_iv, FromHex(kat.plain), 1)), kat.cipher);
    EXPECT_EQ(Hex(DesCbc(FromHex(kat.key), zero_iv, FromHex(kat.cipher), 0)), kat.plain);
  }
}

TEST(DesCbc, Fips81CbcExample) {
  const ByteVector key = FromHex("0123456789abcdef"), iv = FromHex("1234567890abcdef");
  const ByteVector plain = kt::test::Text("Now is the time for all ");
  const std::string cipher = "e5c7cdde872bf27c43e934008c389c0f683788499a7c05f6";
  EXPECT_EQ(Hex(DesCbc(key, iv, plain, 1)), cipher);
  EXPECT_EQ(DesCbc(key, iv, FromHex(cipher), 0), plain);
}

TEST(DesCbc, LengthRuleRestartAndInPlaceOperation) {
  const ByteVector key = FromHex("0123456789abcdef"), iv = FromHex("1234567890abcdef");
  DESContext context;
  DES_CBCInit(&context, key.data(), iv.data(), 1);
  unsigned char buffer[24] = {};
  EXPECT_EQ(DES_CBCUpdate(&context, buffer, buffer, 0), KT_RE_OK);
  const DESContext before = context;
  EXPECT_EQ(DES_CBCUpdate(&context, buffer, buffer, 12), KT_RE_LEN);
  EXPECT_EQ(std::memcmp(&before, &context, sizeof context), 0);
  EXPECT_EQ(Hex(buffer, 24), std::string(48, '0'));

  // In place, then again after Restart: the same cryptogram.
  unsigned char first[24] = {}, second[24] = {};
  EXPECT_EQ(DES_CBCUpdate(&context, first, first, 24), KT_RE_OK);
  DES_CBCRestart(&context);
  EXPECT_EQ(DES_CBCUpdate(&context, second, second, 24), KT_RE_OK);
  EXPECT_EQ(Hex(first, 24), Hex(second, 24));
}

TEST(DesCbc, ParityBitsDoNotMatter) {
  const ByteVector iv(8, 7), plain(32, 0x5A);
  const ByteVector key = FromHex("0123456789abcdef");
  ByteVector flipped = key;
  for (auto& b : flipped) b ^= 1;
  EXPECT_EQ(DesCbc(key, iv, plain, 1), DesCbc(flipped, iv, plain, 1));
}

TEST(DesCbc, TripleDesWithEqualKeysAndDesxWithZeroWhitenersEqualDes) {
  std::mt19937 rng(3);
  const ByteVector key = kt::test::RandomBytes(rng, 8), iv = kt::test::RandomBytes(rng, 8);
  const ByteVector plain = kt::test::RandomBytes(rng, 64);
  const ByteVector des = DesCbc(key, iv, plain, 1);
  ByteVector triple = key;
  triple.insert(triple.end(), key.begin(), key.end());
  triple.insert(triple.end(), key.begin(), key.end());
  EXPECT_EQ(Des3Cbc(triple, iv, plain, 1), des);
  EXPECT_EQ(Des3Cbc(triple, iv, des, 0), plain);
  ByteVector desx = key;
  desx.resize(24, 0);
  EXPECT_EQ(DesxCbc(desx, iv, plain, 1), des);
  EXPECT_EQ(DesxCbc(desx, iv, des, 0), plain);
}

#ifdef KT_HAVE_OPENSSL
TEST(DesCbc, MatchesOpenSslOnRandomKeysIvsAndData) {
  std::mt19937 rng(11);
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    const ByteVector key = kt::test::RandomBytes(rng, 24), iv = kt::test::RandomBytes(rng, 8);
    const ByteVector plain = kt::test::RandomBytes(rng, 8 * (rng() % 20));
    DES_key_schedule k1, k2, k3;
    DES_cblock b1, b2, b3, ivec;
    std::memcpy(b1, key.data(), 8);
    std::memcpy(b2, key.data() + 8, 8);
    std::memcpy(b3, key.data() + 16, 8);
    DES_set_key_unchecked(&b1, &k1);
    DES_set_key_unchecked(&b2, &k2);
    DES_set_key_unchecked(&b3, &k3);
    ByteVector expected(plain.size());

    std::memcpy(ivec, iv.data(), 8);
    DES_ncbc_encrypt(plain.data(), expected.data(), static_cast<long>(plain.size()), &k1, &ivec,
                     DES_ENCRYPT);
    EXPECT_EQ(DesCbc(key, iv, plain, 1), expected);
    EXPECT_EQ(DesCbc(key, iv, expected, 0), plain);

    std::memcpy(ivec, iv.data(), 8);
    DES_ede3_cbc_encrypt(plain.data(), expected.data(), static_cast<long>(plain.size()), &k1, &k2,
                         &k3, &ivec, DES_ENCRYPT);
    EXPECT_EQ(Des3Cbc(key, iv, plain, 1), expected);
    EXPECT_EQ(Des3Cbc(key, iv, expected, 0), plain);

    std::memcpy(ivec, iv.data(), 8);
    DES_xcbc_encrypt(plain.data(), expected.data(), static_cast<long>(plain.size()), &k1, &ivec,
                     &b2, &b3, DES_ENCRYPT);
    EXPECT_EQ(DesxCbc(key, iv, plain, 1), expected);
    EXPECT_EQ(DesxCbc(key, iv, expected, 0), plain);
  }
}
#endif

}  // namespace
