// DES, DESX and triple DES in CBC mode: published vectors (also through the
// degenerate triple and DESX keys), the length rule, Restart and parity
// bits, and OpenSSL as an oracle on random keys, IVs and data.
#include <gtest/gtest.h>

#include <algorithm>

#include "crypto/crypto_test_util.h"

namespace kt::test {
namespace {

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

// Order: key, IV, plaintext, ciphertext. A zero IV makes CBC plain ECB.
struct Kat {
  const char *key, *iv, *plain, *cipher;
};
constexpr Kat kDesKats[] = {
    // FIPS 46 worked example.
    {"133457799bbcdff1", "0000000000000000", "0123456789abcdef", "85e813540f0ab405"},
    // FIPS 81 ECB and CBC examples, "Now is the time for all ".
    {"0123456789abcdef", "0000000000000000", "4e6f772069732074", "3fa40e8a984d4815"},
    {"0123456789abcdef", "1234567890abcdef", "4e6f77206973207468652074696d6520666f7220616c6c20",
     "e5c7cdde872bf27c43e934008c389c0f683788499a7c05f6"},
    // Variable plaintext and variable key tests.
    {"0101010101010101", "0000000000000000", "8000000000000000", "95f8a5e5dd31d900"},
    {"8001010101010101", "0000000000000000", "0000000000000000", "95a8d72813daa94d"},
};

// Triple DES with K1 = K2 = K3 and DESX with zero whiteners must give DES.
TEST(DesCbc, PublishedVectorsHoldForDesAndItsDegenerateTripleAndDesxForms) {
  for (const Kat& kat : kDesKats) {
    SCOPED_TRACE(kat.cipher);
    const std::string k = kat.key;
    const ByteVector iv = FromHex(kat.iv), plain = FromHex(kat.plain), cipher = FromHex(kat.cipher);
    for (auto [run, key] : {std::pair{DesCbc, FromHex(k)},
                            {Des3Cbc, FromHex(k + k + k)},
                            {DesxCbc, FromHex(k + std::string(32, '0'))}}) {
      EXPECT_EQ(run(key, iv, plain, 1), cipher);
      EXPECT_EQ(run(key, iv, cipher, 0), plain);
    }
  }
}

TEST(DesCbc, LengthRuleRestartInPlaceAndParityBits) {
  const ByteVector key = FromHex("0123456789abcdef"), iv = FromHex("1234567890abcdef");
  DESContext context;
  DES_CBCInit(&context, key.data(), iv.data(), 1);
  unsigned char first[24] = {}, second[24] = {};
  EXPECT_EQ(DES_CBCUpdate(&context, first, first, 0), KT_RE_OK);
  const DESContext before = context;
  EXPECT_EQ(DES_CBCUpdate(&context, first, first, 12), KT_RE_LEN);
  EXPECT_EQ(std::memcmp(&before, &context, sizeof context), 0);
  EXPECT_EQ(Hex(first, 24), std::string(48, '0'));

  // In place, then again after Restart: the same cryptogram.
  EXPECT_EQ(DES_CBCUpdate(&context, first, first, 24), KT_RE_OK);
  DES_CBCRestart(&context);
  EXPECT_EQ(DES_CBCUpdate(&context, second, second, 24), KT_RE_OK);
  EXPECT_EQ(Hex(first, 24), Hex(second, 24));

  // The same key with every parity bit flipped.
  EXPECT_EQ(DesCbc(FromHex("0022446688aaccee"), iv, ByteVector(24, 0), 1),
            ByteVector(first, first + 24));
}

// Decrypts `cipher` in place, fed in pieces of odd and even block counts so
// the chaining value crosses both paired and single blocks between calls.
template <class Context, auto kInit, auto kUpdate>
ByteVector DecryptInPlaceInPieces(const ByteVector& key, const ByteVector& iv, ByteVector data) {
  Context context;
  kInit(&context, key.data(), iv.data(), 0);
  std::size_t at = 0;
  for (std::size_t blocks : {3, 1, 2, 1, 4}) {
    const std::size_t len = std::min(8 * blocks, data.size() - at);
    EXPECT_EQ(kUpdate(&context, &data[at], &data[at], static_cast<uint32_t>(len)), KT_RE_OK);
    at += len;
  }
  EXPECT_EQ(at, data.size());
  return data;
}

TEST(DesCbc, DecryptsInPlaceAcrossUpdatesOfOddAndEvenBlockCounts) {
  std::mt19937 rng(5);
  const ByteVector key = RandomBytes(rng, 24), iv = RandomBytes(rng, 8);
  const ByteVector plain = RandomBytes(rng, 8 * 11);
  EXPECT_EQ((DecryptInPlaceInPieces<DESContext, DES_CBCInit, DES_CBCUpdate>(
                key, iv, DesCbc(key, iv, plain, 1))),
            plain);
  EXPECT_EQ((DecryptInPlaceInPieces<DES3Context, DES3_CBCInit, DES3_CBCUpdate>(
                key, iv, Des3Cbc(key, iv, plain, 1))),
            plain);
  EXPECT_EQ((DecryptInPlaceInPieces<DESXContext, DESX_CBCInit, DESX_CBCUpdate>(
                key, iv, DesxCbc(key, iv, plain, 1))),
            plain);
}

#ifdef KT_HAVE_OPENSSL
TEST(DesCbc, MatchesOpenSslOnRandomKeysIvsAndData) {
  std::mt19937 rng(11);
  for (int round = 0; round < 40; ++round) {
    const ByteVector key = RandomBytes(rng, 24), iv = RandomBytes(rng, 8);
    const ByteVector plain = RandomBytes(rng, 8 * (rng() % 20));
    for (auto [algorithm, ours] :
         {std::pair{KT_EA_DES_CBC, DesCbc}, std::pair{KT_EA_DES_EDE3_CBC, Des3Cbc},
          std::pair{KT_EA_DESX_CBC, DesxCbc}}) {
      SCOPED_TRACE(testing::Message() << "round " << round << " algorithm " << algorithm);
      const ByteVector expected = OpenSslCbc(algorithm, key.data(), iv.data(), plain, 1);
      EXPECT_EQ(ours(key, iv, plain, 1), expected);
      EXPECT_EQ(ours(key, iv, expected, 0), plain);
    }
  }
}
#endif

}  // namespace
}  // namespace kt::test
