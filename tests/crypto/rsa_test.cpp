// RSA with PKCS #1 v1.5 blocks and signatures: the length and block
// boundaries, malformed blocks, and OpenSSL as an oracle (signatures byte for
// byte, encryption both ways).
#include <gtest/gtest.h>

#include "crypto/crypto_test_util.h"

#ifdef KT_HAVE_OPENSSL
#include <openssl/objects.h>
#endif

namespace {

using kt::test::ByteVector;
using kt::test::KeyPair;
using kt::test::TestKey;

uint32_t ModulusLen(const R_RSAPublicKey& key) { return (key.bits + 7) / 8; }

TEST(Rsa, DataOfModulusLenMinusElevenIsTheLimitForBothEncryptions) {
  for (uint32_t bits : {512u, 1024u}) {
    SCOPED_TRACE(bits);
    const KeyPair& key = TestKey(bits);
    const uint32_t len = ModulusLen(key.pub);
    R_RandomContext random = kt::test::SeededRandom(3);
    ByteVector data(len - 10, 0x42), out(128), back(128);
    uint32_t out_len = 0, back_len = 0;
    EXPECT_EQ(RSAPublicEncrypt(out.data(), &out_len, data.data(), len - 10, &key.pub, &random),
              KT_RE_LEN);
    EXPECT_EQ(RSAPrivateEncrypt(out.data(), &out_len, data.data(), len - 10, &key.priv),
              KT_RE_LEN);
    ASSERT_EQ(RSAPublicEncrypt(out.data(), &out_len, data.data(), len - 11, &key.pub, &random),
              KT_RE_OK);
    EXPECT_EQ(out_len, len);  // 64 bytes for a 512-bit key
    ASSERT_EQ(RSAPrivateDecrypt(back.data(), &back_len, out.data(), out_len, &key.priv), KT_RE_OK);
    EXPECT_EQ(ByteVector(back.begin(), back.begin() + back_len), ByteVector(len - 11, 0x42));
    ASSERT_EQ(RSAPrivateEncrypt(out.data(), &out_len, data.data(), len - 11, &key.priv), KT_RE_OK);
    ASSERT_EQ(RSAPublicDecrypt(back.data(), &back_len, out.data(), out_len, &key.pub), KT_RE_OK);
    EXPECT_EQ(back_len, len - 11);
    EXPECT_EQ(RSAPublicDecrypt(back.data(), &back_len, out.data(), len + 1, &key.pub), KT_RE_LEN);
  }
}

TEST(Rsa, InputEqualToTheModulusIsRefusedOnBothSides) {
  const KeyPair& key = TestKey(512);
  unsigned char out[128];
  uint32_t out_len;
  const unsigned char* n = key.pub.modulus + 64;
  EXPECT_EQ(RSAPublicBlock(out, &out_len, n, 64, &key.pub), KT_RE_DATA);
  EXPECT_EQ(RSAPrivateBlock(out, &out_len, n, 64, &key.priv), KT_RE_DATA);
  EXPECT_EQ(RSAPublicDecrypt(out, &out_len, n, 64, &key.pub), KT_RE_DATA);
  EXPECT_EQ(RSAPrivateDecrypt(out, &out_len, n, 64, &key.priv), KT_RE_DATA);
}

// Runs a hand-made block through the private operation (as a signer would)
// and hands it to RSAPublicDecrypt, or through the public operation and
// hands it to RSAPrivateDecrypt.
uint32_t OpenCraftedBlock(const KeyPair& key, const ByteVector& block, bool type1,
                          uint32_t* out_len) {
  unsigned char cryptogram[128], out[128];
  uint32_t len;
  if (type1) {
    EXPECT_EQ(RSAPrivateBlock(cryptogram, &len, block.data(), 64, &key.priv), KT_RE_OK);
    return RSAPublicDecrypt(out, out_len, cryptogram, len, &key.pub);
  }
  EXPECT_EQ(RSAPublicBlock(cryptogram, &len, block.data(), 64, &key.pub), KT_RE_OK);
  return RSAPrivateDecrypt(out, out_len, cryptogram, len, &key.priv);
}

TEST(Rsa, MalformedBlocksAreRefusedWithBadData) {
  const KeyPair& key = TestKey(512);
  uint32_t out_len = 0;
  ByteVector block(64, 0xFF);
  block[0] = 0;
  block[1] = 1;
  EXPECT_EQ(OpenCraftedBlock(key, block, true, &out_len), KT_RE_DATA);  // no separator
  block[10] = 0;
  EXPECT_EQ(OpenCraftedBlock(key, block, true, &out_len), KT_RE_OK);  // 8 FF bytes
  EXPECT_EQ(out_len, 53u);
  block[9] = 0;
  EXPECT_EQ(OpenCraftedBlock(key, block, true, &out_len), KT_RE_DATA);  // 7 FF bytes
  block[9] = 0xFE;
  EXPECT_EQ(OpenCraftedBlock(key, block, true, &out_len), KT_RE_DATA);  // not FF, not 00
  block[1] = 2;
  EXPECT_EQ(OpenCraftedBlock(key, block, true, &out_len), KT_RE_DATA);  // wrong type

  ByteVector type2(64, 0x5A);
  type2[0] = 0;
  type2[1] = 2;
  EXPECT_EQ(OpenCraftedBlock(key, type2, false, &out_len), KT_RE_DATA);  // no separator
  type2[10] = 0;
  EXPECT_EQ(OpenCraftedBlock(key, type2, false, &out_len), KT_RE_OK);
  EXPECT_EQ(out_len, 53u);
  type2[9] = 0;
  EXPECT_EQ(OpenCraftedBlock(key, type2, false, &out_len), KT_RE_DATA);  // separator at 9
  type2[63] = 0;
  type2[9] = type2[10] = 1;
  EXPECT_EQ(OpenCraftedBlock(key, type2, false, &out_len), KT_RE_DATA);  // 00 only last
  type2[1] = 1;
  EXPECT_EQ(OpenCraftedBlock(key, type2, false, &out_len), KT_RE_DATA);  // wrong type
}

TEST(Rsa, KeysBeyondTheFieldsAreRefused) {
  KeyPair key = TestKey(512);
  key.pub.bits = key.priv.bits = 1025;
  unsigned char out[256] = {}, in[1] = {1};
  uint32_t out_len;
  EXPECT_EQ(RSAPublicBlock(out, &out_len, in, 1, &key.pub), KT_RE_LEN);
  EXPECT_EQ(RSAPrivateEncrypt(out, &out_len, in, 1, &key.priv), KT_RE_LEN);
}

TEST(Signature, SuccessfulFinalRestartsTheContextForTheNextMessage) {
  const KeyPair& key = TestKey(512);
  const ByteVector message = kt::test::Text("message to sign");
  R_DigestContext sign, verify;
  ASSERT_EQ(R_SignInit(&sign, KT_DA_MD5), KT_RE_OK);
  ASSERT_EQ(R_VerifyInit(&verify, KT_DA_MD5), KT_RE_OK);
  for (int round = 0; round < 2; ++round) {
    unsigned char signature[128];
    uint32_t signature_len = 0;
    R_SignUpdate(&sign, message.data(), static_cast<uint32_t>(message.size()));
    ASSERT_EQ(R_SignFinal(&sign, signature, &signature_len, &key.priv), KT_RE_OK);
    EXPECT_EQ(signature_len, 64u);
    R_VerifyUpdate(&verify, message.data(), static_cast<uint32_t>(message.size()));
    // Too long: refused before the digest is consumed, so the retry works.
    EXPECT_EQ(R_VerifyFinal(&verify, signature, 129, &key.pub), KT_RE_LEN);
    EXPECT_EQ(R_VerifyFinal(&verify, signature, signature_len, &key.pub), KT_RE_OK);
  }
}

TEST(Signature, MismatchesAndFailuresGiveTheirStatuses) {
  const KeyPair& key = TestKey(512);
  const ByteVector message = kt::test::Text("abc");
  const uint32_t len = static_cast<uint32_t>(message.size());
  unsigned char signature[128];
  uint32_t signature_len;
  ASSERT_EQ(R_SignBlock(signature, &signature_len, message.data(), len, KT_DA_MD2, &key.priv),
            KT_RE_OK);
  EXPECT_EQ(R_VerifyBlockSignature(message.data(), len, signature, signature_len, KT_DA_MD2,
                                   &key.pub),
            KT_RE_OK);
  EXPECT_EQ(R_VerifyBlockSignature(message.data(), len, signature, signature_len, KT_DA_MD5,
                                   &key.pub),
            KT_RE_SIGNATURE);
  EXPECT_EQ(R_VerifyBlockSignature(message.data(), len - 1, signature, signature_len, KT_DA_MD2,
                                   &key.pub),
            KT_RE_SIGNATURE);
  signature[5] ^= 1;  // no longer a type-1 block
  EXPECT_EQ(R_VerifyBlockSignature(message.data(), len, signature, signature_len, KT_DA_MD2,
                                   &key.pub),
            KT_RE_PUBLIC_KEY);
  EXPECT_EQ(R_VerifyBlockSignature(message.data(), len, key.pub.modulus + 64, 64, KT_DA_MD2,
                                   &key.pub),
            KT_RE_PUBLIC_KEY);
  EXPECT_EQ(R_SignBlock(signature, &signature_len, message.data(), len, 4, &key.priv),
            KT_RE_DIGEST_ALGORITHM);
  R_RSAPrivateKey broken = key.priv;
  broken.bits = 2000;
  EXPECT_EQ(R_SignBlock(signature, &signature_len, message.data(), len, KT_DA_MD5, &broken),
            KT_RE_PRIVATE_KEY);
}

#ifdef KT_HAVE_OPENSSL
using kt::test::ToOpenSsl;

TEST(RsaVersusOpenSsl, Md5SignaturesAreIdenticalAndVerifyBothWays) {
  std::mt19937 rng(17);
  for (uint32_t bits : {512u, 1024u}) {
    const KeyPair& key = TestKey(bits);
    RSA* rsa = ToOpenSsl(key);
    for (int round = 0; round < 4; ++round) {
      const ByteVector message = kt::test::RandomBytes(rng, rng() % 500);
      const uint32_t len = static_cast<uint32_t>(message.size());
      unsigned char ours[128], theirs[128], digest[16];
      uint32_t ours_len, digest_len;
      unsigned int theirs_len;
      ASSERT_EQ(R_SignBlock(ours, &ours_len, message.data(), len, KT_DA_MD5, &key.priv), KT_RE_OK);
      R_DigestBlock(digest, &digest_len, message.data(), len, KT_DA_MD5);
      ASSERT_EQ(RSA_sign(NID_md5, digest, 16, theirs, &theirs_len, rsa), 1);
      ASSERT_EQ(ours_len, theirs_len);
      EXPECT_EQ(kt::test::Hex(ours, ours_len), kt::test::Hex(theirs, theirs_len));
      EXPECT_EQ(RSA_verify(NID_md5, digest, 16, ours, ours_len, rsa), 1);
      EXPECT_EQ(R_VerifyBlockSignature(message.data(), len, theirs, theirs_len, KT_DA_MD5,
                                       &key.pub),
                KT_RE_OK);
    }
    RSA_free(rsa);
  }
}

TEST(RsaVersusOpenSsl, PublicKeyEncryptionDecryptsBothWays) {
  std::mt19937 rng(19);
  R_RandomContext random = kt::test::SeededRandom(8);
  for (uint32_t bits : {512u, 1024u}) {
    const KeyPair& key = TestKey(bits);
    RSA* rsa = ToOpenSsl(key);
    const int modulus_len = static_cast<int>(ModulusLen(key.pub));
    for (int round = 0; round < 4; ++round) {
      const ByteVector data = kt::test::RandomBytes(rng, 1 + rng() % (modulus_len - 11));
      const uint32_t len = static_cast<uint32_t>(data.size());
      unsigned char cryptogram[128], plain[128];
      uint32_t cryptogram_len, plain_len;
      ASSERT_EQ(RSAPublicEncrypt(cryptogram, &cryptogram_len, data.data(), len, &key.pub, &random),
                KT_RE_OK);
      ASSERT_EQ(RSA_private_decrypt(static_cast<int>(cryptogram_len), cryptogram, plain, rsa,
                                    RSA_PKCS1_PADDING),
                static_cast<int>(len));
      EXPECT_EQ(ByteVector(plain, plain + len), data);
      ASSERT_EQ(RSA_public_encrypt(static_cast<int>(len), data.data(), cryptogram, rsa,
                                   RSA_PKCS1_PADDING),
                modulus_len);
      ASSERT_EQ(RSAPrivateDecrypt(plain, &plain_len, cryptogram, modulus_len, &key.priv),
                KT_RE_OK);
      EXPECT_EQ(ByteVector(plain, plain + plain_len), data);
    }
    RSA_free(rsa);
  }
}
#endif

}  // namespace
