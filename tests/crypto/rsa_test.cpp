// RSA with PKCS #1 v1.5 blocks and signatures: the length and block
// boundaries, malformed blocks, and OpenSSL as an oracle (signatures byte for
// byte, encryption both ways).
#include <gtest/gtest.h>

#include <thread>
#include <tuple>
#include <vector>

#include "crypto/crypto_test_util.h"

#ifdef KT_HAVE_OPENSSL
#include <openssl/objects.h>
#endif

namespace kt::test {
namespace {

TEST(Rsa, DataOfModulusLenMinusElevenIsTheLimitForBothEncryptions) {
  R_RandomContext random = SeededRandom(3);
  for (uint32_t bits : {512u, 1024u}) {
    SCOPED_TRACE(bits);
    const KeyPair& key = TestKey(bits);
    const uint32_t len = (bits + 7) / 8;  // 64 for 512 bits, from the same 128-byte fields
    const ByteVector data(len - 10, 0x42);
    unsigned char out[128], back[128];
    uint32_t out_len = 0, back_len = 0;
    EXPECT_EQ(RSAPublicEncrypt(out, &out_len, data.data(), len - 10, &key.pub, &random), KT_RE_LEN);
    EXPECT_EQ(RSAPrivateEncrypt(out, &out_len, data.data(), len - 10, &key.priv), KT_RE_LEN);
    ASSERT_EQ(RSAPublicEncrypt(out, &out_len, data.data(), len - 11, &key.pub, &random), KT_RE_OK);
    ASSERT_EQ(RSAPrivateDecrypt(back, &back_len, out, out_len, &key.priv), KT_RE_OK);
    EXPECT_EQ(back_len, len - 11);
    ASSERT_EQ(RSAPrivateEncrypt(out, &out_len, data.data(), len - 11, &key.priv), KT_RE_OK);
    EXPECT_EQ(out_len, len);
    ASSERT_EQ(RSAPublicDecrypt(back, &back_len, out, out_len, &key.pub), KT_RE_OK);
    EXPECT_EQ(back_len, len - 11);
    EXPECT_EQ(RSAPublicDecrypt(back, &back_len, out, len + 1, &key.pub), KT_RE_LEN);
  }
}

// Public operations one after the other on different moduli, two of them
// alike but for one digit, and on a few threads: each gives b^e mod n of
// its own modulus, as the exponentiation computes it from scratch.
TEST(Rsa, PublicOperationsOnChangingModuliUseEachTheirOwn) {
  auto modulus = [](unsigned char top, unsigned char low) {
    R_RSAPublicKey key{};
    key.bits = 1024;
    for (uint32_t i = 0; i < 128; ++i) key.modulus[i] = static_cast<unsigned char>(0x5B + 37 * i);
    key.modulus[0] = top;
    key.modulus[127] = low;  // odd
    key.exponent[125] = 1;   // 65537
    key.exponent[127] = 1;
    return key;
  };
  const R_RSAPublicKey keys[] = {modulus(0xC1, 0x01), modulus(0xC1, 0x03), modulus(0xC2, 0x01),
                                 TestKey(512).pub, TestKey(1024).pub};
  auto check = [&keys](int thread) {
    for (int round = 0; round < 3; ++round) {
      for (const R_RSAPublicKey& key : keys) {
        const uint32_t len = (key.bits + 7) / 8;
        const ByteVector input(len - 1, static_cast<unsigned char>(0x21 + thread + round));
        NN_DIGIT b[MAX_NN_DIGITS] = {}, e[MAX_NN_DIGITS] = {},
                 n[MAX_NN_DIGITS] = {}, expected[MAX_NN_DIGITS] = {};
        NN_Decode(b, MAX_NN_DIGITS, input.data(), len - 1);
        NN_Decode(e, MAX_NN_DIGITS, key.exponent, 128);
        NN_Decode(n, MAX_NN_DIGITS, key.modulus, 128);
        NN_ModExp(expected, b, e, MAX_NN_DIGITS, n, MAX_NN_DIGITS);
        unsigned char want[128], got[128];
        NN_Encode(want, len, expected, MAX_NN_DIGITS);
        uint32_t got_len = 0;
        ASSERT_EQ(RSAPublicBlock(got, &got_len, input.data(), len - 1, &key), KT_RE_OK);
        ASSERT_EQ(got_len, len);
        EXPECT_EQ(ByteVector(got, got + len), ByteVector(want, want + len));
      }
    }
  };
  check(0);
  std::vector<std::thread> threads;
  for (int t = 1; t <= 3; ++t) threads.emplace_back(check, t);
  for (std::thread& thread : threads) thread.join();
}

// An unseeded generator never yields a non-zero padding byte: its status
// ends the encryption instead of a loop without end.
TEST(Rsa, PublicEncryptReturnsTheGeneratorsFailure) {
  R_RandomContext unseeded = UnseededRandom();
  const unsigned char data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  unsigned char out[128];
  uint32_t out_len = 0;
  EXPECT_EQ(RSAPublicEncrypt(out, &out_len, data, sizeof data, &TestKey(512).pub, &unseeded),
            KT_RE_NEED_RANDOM);
  EXPECT_EQ(KT_RE_NEED_RANDOM, 0x408u);
}

TEST(Rsa, InputAtTheModulusAndKeysBeyondTheFieldsAreRefused) {
  KeyPair key = TestKey(512);
  unsigned char out[256] = {}, in[1] = {1};
  uint32_t out_len;
  const unsigned char* n = key.pub.modulus + 64;
  EXPECT_EQ(RSAPublicBlock(out, &out_len, n, 64, &key.pub), KT_RE_DATA);
  EXPECT_EQ(RSAPrivateBlock(out, &out_len, n, 64, &key.priv), KT_RE_DATA);
  EXPECT_EQ(RSAPublicDecrypt(out, &out_len, n, 64, &key.pub), KT_RE_DATA);
  EXPECT_EQ(RSAPrivateDecrypt(out, &out_len, n, 64, &key.priv), KT_RE_DATA);
  key.pub.bits = key.priv.bits = 1025;
  EXPECT_EQ(RSAPublicBlock(out, &out_len, in, 1, &key.pub), KT_RE_LEN);
  EXPECT_EQ(RSAPrivateEncrypt(out, &out_len, in, 1, &key.priv), KT_RE_LEN);
}

TEST(Rsa, MalformedBlocksAreRefusedWithBadData) {
  // Blocks of 64 bytes: 00, the type byte, `fill` bytes, a 00 separator at
  // `separator` (none if -1) and fill again. A signer's block goes through
  // the private operation to RSAPublicDecrypt, the others the other way.
  const std::tuple<bool, unsigned char, unsigned char, int, uint32_t> cases[] = {
      {true, 1, 0xFF, 10, KT_RE_OK},    {true, 1, 0xFF, -1, KT_RE_DATA},
      {true, 1, 0xFF, 9, KT_RE_DATA},   {true, 1, 0xFE, 10, KT_RE_DATA},
      {true, 2, 0xFF, 10, KT_RE_DATA},  {false, 2, 0x5A, 10, KT_RE_OK},
      {false, 2, 0x5A, -1, KT_RE_DATA}, {false, 2, 0x5A, 9, KT_RE_DATA},
      {false, 2, 0x5A, 63, KT_RE_DATA}, {false, 1, 0x5A, 10, KT_RE_DATA},
  };
  const KeyPair& key = TestKey(512);
  for (auto [signer, type, fill, separator, expected] : cases) {
    SCOPED_TRACE(testing::Message()
                 << "type " << int{type} << " fill " << int{fill} << " separator " << separator);
    ByteVector block(64, fill);
    block[0] = 0;
    block[1] = type;
    if (separator >= 0) block[separator] = 0;
    unsigned char cryptogram[128], out[128];
    uint32_t len, out_len = 0, status;
    if (signer) {
      ASSERT_EQ(RSAPrivateBlock(cryptogram, &len, block.data(), 64, &key.priv), KT_RE_OK);
      status = RSAPublicDecrypt(out, &out_len, cryptogram, len, &key.pub);
    } else {
      ASSERT_EQ(RSAPublicBlock(cryptogram, &len, block.data(), 64, &key.pub), KT_RE_OK);
      status = RSAPrivateDecrypt(out, &out_len, cryptogram, len, &key.priv);
    }
    EXPECT_EQ(status, expected);
    if (status == KT_RE_OK) {
      EXPECT_EQ(out_len, 53u);  // exactly 8 padding bytes
    }
  }
}

TEST(Signature, ContextsRestartAfterFinalAndFailuresGiveTheirStatuses) {
  const KeyPair& key = TestKey(512);
  const unsigned char* message = reinterpret_cast<const unsigned char*>("abc");
  unsigned char signature[128];
  uint32_t len = 0;
  R_DigestContext sign, verify;
  ASSERT_EQ(R_SignInit(&sign, KT_DA_MD5), KT_RE_OK);
  ASSERT_EQ(R_VerifyInit(&verify, KT_DA_MD5), KT_RE_OK);
  for (int round = 0; round < 2; ++round) {  // no second Init
    R_SignUpdate(&sign, message, 3);
    ASSERT_EQ(R_SignFinal(&sign, signature, &len, &key.priv), KT_RE_OK);
    EXPECT_EQ(len, 64u);
    R_VerifyUpdate(&verify, message, 3);
    // Too long: refused before the digest is consumed, so the retry works.
    EXPECT_EQ(R_VerifyFinal(&verify, signature, 129, &key.pub), KT_RE_LEN);
    EXPECT_EQ(R_VerifyFinal(&verify, signature, len, &key.pub), KT_RE_OK);
  }

  auto verify_block = [&](uint32_t message_len, const unsigned char* sig, int32_t algorithm) {
    return R_VerifyBlockSignature(message, message_len, sig, len, algorithm, &key.pub);
  };
  ASSERT_EQ(R_SignBlock(signature, &len, message, 3, KT_DA_MD2, &key.priv), KT_RE_OK);
  EXPECT_EQ(verify_block(3, signature, KT_DA_MD2), KT_RE_OK);
  EXPECT_EQ(verify_block(3, signature, KT_DA_MD5), KT_RE_SIGNATURE);
  EXPECT_EQ(verify_block(2, signature, KT_DA_MD2), KT_RE_SIGNATURE);
  EXPECT_EQ(verify_block(3, key.pub.modulus + 64, KT_DA_MD2), KT_RE_PUBLIC_KEY);
  signature[5] ^= 1;  // no longer a type-1 block
  EXPECT_EQ(verify_block(3, signature, KT_DA_MD2), KT_RE_PUBLIC_KEY);
  EXPECT_EQ(R_SignBlock(signature, &len, message, 3, 4, &key.priv), KT_RE_DIGEST_ALGORITHM);
  R_RSAPrivateKey broken = key.priv;
  broken.bits = 2000;
  EXPECT_EQ(R_SignBlock(signature, &len, message, 3, KT_DA_MD5, &broken), KT_RE_PRIVATE_KEY);
}

#ifdef KT_HAVE_OPENSSL
TEST(RsaVersusOpenSsl, SignaturesAreIdenticalAndEncryptionDecryptsBothWays) {
  std::mt19937 rng(17);
  R_RandomContext random = SeededRandom(8);
  for (uint32_t bits : {512u, 1024u}) {
    const KeyPair& key = TestKey(bits);
    RSA* rsa = ToOpenSsl(key);
    const uint32_t modulus_len = (bits + 7) / 8;
    for (int round = 0; round < 4; ++round) {
      SCOPED_TRACE(testing::Message() << bits << " bits, round " << round);
      ByteVector message = RandomBytes(rng, rng() % 500);
      uint32_t len = static_cast<uint32_t>(message.size());
      unsigned char ours[128], theirs[128], digest[16];
      uint32_t ours_len, digest_len;
      unsigned int theirs_len;
      ASSERT_EQ(R_SignBlock(ours, &ours_len, message.data(), len, KT_DA_MD5, &key.priv), KT_RE_OK);
      R_DigestBlock(digest, &digest_len, message.data(), len, KT_DA_MD5);
      ASSERT_EQ(RSA_sign(NID_md5, digest, 16, theirs, &theirs_len, rsa), 1);
      EXPECT_EQ(Hex(ours, ours_len), Hex(theirs, theirs_len));
      EXPECT_EQ(RSA_verify(NID_md5, digest, 16, ours, ours_len, rsa), 1);
      EXPECT_EQ(
          R_VerifyBlockSignature(message.data(), len, theirs, theirs_len, KT_DA_MD5, &key.pub),
          KT_RE_OK);

      message = RandomBytes(rng, 1 + rng() % (modulus_len - 11));
      len = static_cast<uint32_t>(message.size());
      ASSERT_EQ(RSAPublicEncrypt(ours, &ours_len, message.data(), len, &key.pub, &random),
                KT_RE_OK);
      ASSERT_EQ(
          RSA_private_decrypt(static_cast<int>(ours_len), ours, theirs, rsa, RSA_PKCS1_PADDING),
          static_cast<int>(len));
      EXPECT_EQ(ByteVector(theirs, theirs + len), message);
      ASSERT_EQ(
          RSA_public_encrypt(static_cast<int>(len), message.data(), theirs, rsa, RSA_PKCS1_PADDING),
          static_cast<int>(modulus_len));
      ASSERT_EQ(RSAPrivateDecrypt(ours, &ours_len, theirs, modulus_len, &key.priv), KT_RE_OK);
      EXPECT_EQ(ByteVector(ours, ours + ours_len), message);
    }
    RSA_free(rsa);
  }
}
#endif

}  // namespace
}  // namespace kt::test
