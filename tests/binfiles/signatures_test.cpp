// Signed files (control type 2) and message signatures, with the
// development key pair; OpenSSL checks a file's signature.
#include <algorithm>
#include <string>

#include "binfiles/binfile_test_util.h"
#include "crypto/crypto_test_util.h"
#include "frame/frame_internal.h"

#ifdef KT_HAVE_OPENSSL
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/rsa.h>
#endif

namespace kt::test {
namespace {

using kt::testing::ArmFault;
using kt::testing::Fault;
const std::string kKeyFile = std::string(KT_SOURCE_DIR) + "/keys/development.key";

// The files are signed with the development key: a build with another
// public key cannot verify them.
class BinFileSignatures : public BinFileTest {
 protected:
  void SetUp() override {
    BinFileTest::SetUp();
    const std::string key = ReadFile(kKeyFile);
    if (key.size() != 4 + 704 || !std::equal(MODULUS, MODULUS + 128, key.begin() + 4,
                                             [](uint16_t a, char b) { return a == uint8_t(b); })) {
      GTEST_SKIP() << "the built-in public key is not the development key";
    }
  }
  std::string BuildSigned(const std::string& name) {
    return Build(name, KT_CONTROLE_SIGNATURE, WriteSample, kKeyFile.c_str());
  }
};

// RSA blocks of the development key over "un message a signer": its MD5
// signature (checked apart with the public key), and RSAPublicEncrypt with
// the padding from SeededRandom(7).
const char kSignatureKat[] =
    "083de121f7a5c9c39bc3f687a276bc6de880b05d20f041f5f63fe82fa27106cb"
    "33f2b10b70e8ba5c0426472c9c42ac281d53d36f07ce79171e7c459807528cb9"
    "c026dbe53fa5a81f2fb3e9c37504a5ce1bf4952c2c758699708d572d42fac8a4"
    "54898cb2ebaa9e4ed90ad08c571833bd45befc64b9a4655c66fc8a14cbe015c7";
const char kCryptogramKat[] =
    "9be82fca0e42f757681d700ae6fdb901090e433965fcfe5c21c970b550bd1862"
    "1f9149e31bf29f561ef011cf38496a26a5ded44c29399b07238d961532afad8a"
    "700d54d74c2ab3e36e78e19b9428b7eea7a9fa41c61ad35e088237fc335a6c7e"
    "a3f8e5873e9623cbd56d15eddc76922b86deca538a8da6a61535f7e2a0c0c98d";

R_RSAPrivateKey ReadKey(const std::string& path) {
  R_RSAPrivateKey key{};
  EXPECT_EQ(KT_usLireClePrivee(path.c_str(), &key), KT_OK);
  return key;
}

TEST_F(BinFileSignatures, SignedFileOpensAndEveryChangedByteFromOffset4FailsIt) {
  const std::string bytes = BuildSigned("signed.vkt");
  ASSERT_EQ(bytes.size(), kBody + SampleBody().size() + 128);
  ASSERT_EQ(bytes.substr(0, 4), "0000");  // the CRC field is not used
  Read("signed.vkt", KT_CONTROLE_SIGNATURE, [](uint16_t n) {
    EnteteTable table{};
    EXPECT_EQ(KT_usRechercherTable(n, "TVALEUR", &table), KT_OK);
    EXPECT_EQ(table.ulTailleDonnees, 7u);  // written before the signature
    EXPECT_EQ(KT_usRechercherTable(n, "ABSENT", &table), KT_ERR_FIN);
  });
  ExpectEveryChangeDetected("signed.vkt", KT_CONTROLE_SIGNATURE, bytes, KT_OK);  // not signed

#ifdef KT_HAVE_OPENSSL
  R_RSAPublicKey* pub = KT_LireClePublique();
  ASSERT_NE(pub, nullptr);
  RSA* rsa = RSA_new();
  RSA_set0_key(rsa, BN_bin2bn(pub->modulus, 128, nullptr), BN_bin2bn(pub->exponent, 128, nullptr),
               nullptr);
  KT_Liberer(pub);
  unsigned char digest[16];
  unsigned int digest_length = 0;
  const std::string covered = bytes.substr(4, bytes.size() - 132);
  ASSERT_EQ(EVP_Digest(covered.data(), covered.size(), digest, &digest_length, EVP_md5(), nullptr),
            1);
  const auto* signature = reinterpret_cast<const unsigned char*>(bytes.data() + bytes.size() - 128);
  EXPECT_EQ(RSA_verify(NID_md5, digest, digest_length, signature, 128, rsa), 1);
  RSA_free(rsa);
#endif
}

TEST_F(BinFileSignatures, ShortFilesHaveNoSignatureAndReadNothingOutside) {
  const std::string line = Build("s", KT_CONTROLE_AUCUN);
  for (std::size_t length : {line.size(), std::size_t{131}, std::size_t{132}, std::size_t{300}}) {
    WriteFile(Path("s"), line + std::string(length - line.size(), 'z'));
    uint16_t number = 0;
    EXPECT_EQ(Open("s", KT_CONTROLE_SIGNATURE, &number), KT_ERR_CONTROLE) << length;
    if (length < 132) {
      EXPECT_EQ(KT_usVerifierSignatureFichier(number), KT_ERR_CONTROLE);
    }
    Close(number);
  }
}

TEST_F(BinFileSignatures, MessagesSignAndVerifyWithTheBuiltInKey) {
  const auto* data = reinterpret_cast<const uint8_t*>("un message a signer");
  uint8_t signature[128] = {};
  ASSERT_EQ(KT_usCalculerSignatureMessage(data, 19, ReadKey(kKeyFile), signature), KT_OK);
  R_RSAPublicKey* key = KT_LireClePublique();
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(KT_usVerifierSignatureMessage(data, 19, *key, signature), KT_OK);
  EXPECT_EQ(KT_usVerifierSignatureMessage(data, 18, *key, signature), KT_RE_SIGNATURE);
  signature[0] ^= 0xFF;  // no longer below the modulus, or a bad block
  EXPECT_EQ(KT_usVerifierSignatureMessage(data, 19, *key, signature), KT_RE_PUBLIC_KEY);
  EXPECT_EQ(KT_usVerifierSignatureMessage(data, 19, *key, nullptr), KT_ERR_ARGUMENT);

  // A newline after the key size shifts every byte: the key signs, wrongly.
  WriteFile(Path("newline.key"), "1024\n" + ReadFile(kKeyFile).substr(4));
  if (KT_usCalculerSignatureMessage(data, 19, ReadKey(Path("newline.key")), signature) == KT_OK) {
    EXPECT_NE(KT_usVerifierSignatureMessage(data, 19, *key, signature), KT_OK);
  }
  KT_Liberer(key);
  // A key shorter than 1024 bits signs with fewer than 128 bytes: refused.
  R_RSAPrivateKey small = ReadKey(kKeyFile);
  small.bits = 512;
  EXPECT_EQ(KT_usCalculerSignatureMessage(data, 19, small, signature), KT_ECHEC);
  ArmFault(Fault::kAlloc, 0);
  EXPECT_EQ(KT_LireClePublique(), nullptr);
}

// Known answers, the same on every host whatever its byte order.
TEST_F(BinFileSignatures, RsaBlocksAreKnownAnswers) {
  const auto* data = reinterpret_cast<const uint8_t*>("un message a signer");
  uint8_t signature[128] = {};
  ASSERT_EQ(KT_usCalculerSignatureMessage(data, 19, ReadKey(kKeyFile), signature), KT_OK);
  EXPECT_EQ(Hex(signature, 128), kSignatureKat);

  R_RandomContext random = SeededRandom(7);
  R_RSAPublicKey* pub = KT_LireClePublique();
  ASSERT_NE(pub, nullptr);
  unsigned char cryptogram[128], back[128];
  uint32_t length = 0, back_length = 0;
  EXPECT_EQ(RSAPublicEncrypt(cryptogram, &length, data, 19, pub, &random), KT_RE_OK);
  KT_Liberer(pub);
  R_RandomFinal(&random);
  ASSERT_EQ(length, 128u);
  EXPECT_EQ(Hex(cryptogram, 128), kCryptogramKat);
  const R_RSAPrivateKey priv = ReadKey(kKeyFile);
  ASSERT_EQ(RSAPrivateDecrypt(back, &back_length, cryptogram, length, &priv), KT_RE_OK);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(back), back_length), "un message a signer");
}

TEST_F(BinFileSignatures, KeyFileAndSigningFailures) {
  // A short key file leaves the fields it does not reach.
  WriteFile(Path("short.key"), "  +512\x01\x02");
  R_RSAPrivateKey partial{};
  partial.modulus[2] = 0x77;
  ASSERT_EQ(KT_usLireClePrivee(Path("short.key").c_str(), &partial), KT_OK);
  EXPECT_TRUE(partial.bits == 512 && partial.modulus[0] == 1 && partial.modulus[1] == 2 &&
              partial.modulus[2] == 0x77);
  ArmFault(Fault::kClose, 0);
  EXPECT_EQ(KT_usLireClePrivee(kKeyFile.c_str(), &partial), KT_ERR_FICHIER);

  // No key: reported, and the file stays unsigned.
  uint16_t n = 0;
  ASSERT_EQ(Create("nokey", KT_CONTROLE_SIGNATURE, &n), KT_OK);
  const std::string trace = CaptureTrace({7}, 1, [&] {
    EXPECT_EQ(KT_usLibererFichierBinaire(n, Path("missing.key").c_str()), KT_ERR_FICHIER);
  });
  for (const char* line : {"{ KT_usEcrireSignatureFichier : NumFichier = 1\n",
                           "  ERREUR : Probleme lors de la lecture de la cle privee\n",
                           "  KT_usEcrireSignatureFichier : Code retour = 0xf610\n"}) {
    EXPECT_NE(trace.find(line), std::string::npos) << line;
  }
  EXPECT_EQ(Contents("nokey").size(), kBody);
  EXPECT_EQ(Probe("nokey", KT_CONTROLE_SIGNATURE), KT_ERR_CONTROLE);

  ASSERT_EQ(Create("nowrite", KT_CONTROLE_SIGNATURE, &n), KT_OK);
  ArmFault(Fault::kWrite, 0);
  EXPECT_EQ(KT_usLibererFichierBinaire(n, kKeyFile.c_str()), KT_ERR_FICHIER);
  // Allocation failures in the check turn into a failed check.
  BuildSigned("ok");
  for (int delay = 0; delay < 3; ++delay) {
    ArmFault(Fault::kAlloc, 4 + delay);  // after the path, the record and its texts
    EXPECT_EQ(Probe("ok", KT_CONTROLE_SIGNATURE), KT_ERR_CONTROLE) << delay;
  }
}

}  // namespace
}  // namespace kt::test
