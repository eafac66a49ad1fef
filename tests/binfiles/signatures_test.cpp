// Signed files (control type 2) and message signatures, with the
// development key pair; OpenSSL checks the signatures and the key.
#include <string>
#include <vector>

#include "binfiles/binfile_test_util.h"
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
    for (std::size_t i = 0; i < 128; ++i) {
      if (key.size() < 132 || static_cast<uint8_t>(key[4 + i]) != MODULUS[i]) {
        GTEST_SKIP() << "the built-in public key is not the development key";
      }
    }
  }
};

void WriteTables(uint16_t n) {
  const EnteteTable table = MakeTable("TVALEUR", 2);
  ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
  ASSERT_EQ(KT_usEcrireChaineVariable(n, "premiere valeur"), KT_OK);
  ASSERT_EQ(KT_usEcrireDouble(n, -42.125), KT_OK);
}

R_RSAPrivateKey DevelopmentKey() {
  R_RSAPrivateKey key{};
  EXPECT_EQ(KT_usLireClePrivee(kKeyFile.c_str(), &key), KT_OK);
  return key;
}

TEST_F(BinFileSignatures, SignedFileOpensAndEveryChangedByteFromOffset4FailsIt) {
  const std::string bytes =
      Build("signed.vkt", KT_CONTROLE_SIGNATURE, WriteTables, kKeyFile.c_str());
  ASSERT_EQ(bytes.substr(0, 4), "0000");  // the CRC field is not used
  Read("signed.vkt", KT_CONTROLE_SIGNATURE, [](uint16_t n) {
    EnteteTable table{};
    EXPECT_EQ(KT_usRechercherTable(n, "TVALEUR", &table), KT_OK);
    EXPECT_EQ(table.ulTailleDonnees, 24u);  // the signature is not data
    EXPECT_EQ(KT_usRechercherTable(n, "ABSENT", &table), KT_ERR_FIN);
  });
  ExpectEveryChangeDetected("signed.vkt", KT_CONTROLE_SIGNATURE, bytes, KT_OK);  // not signed
}

TEST_F(BinFileSignatures, ShortFilesHaveNoSignatureAndReadNothingOutside) {
  const std::string line = Build(
      "s", KT_CONTROLE_AUCUN, [](uint16_t) {}, nullptr);
  for (std::size_t length :
       {line.size(), std::size_t{100}, std::size_t{131}, std::size_t{132}, std::size_t{300}}) {
    SCOPED_TRACE(length);
    std::string bytes = line;
    bytes.resize(length, 'z');
    WriteFile(Path("s"), bytes);
    uint16_t number = 0;
    EXPECT_EQ(Open("s", KT_CONTROLE_SIGNATURE, &number), KT_ERR_CONTROLE);
    if (length < 132) {
      EXPECT_EQ(KT_usVerifierSignatureFichier(number), KT_ERR_CONTROLE);
    }
    ASSERT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
  }
}

TEST_F(BinFileSignatures, MessagesSignAndVerifyWithTheBuiltInKey) {
  const std::string message = "un message a signer";
  const auto* data = reinterpret_cast<const uint8_t*>(message.data());
  uint8_t signature[128] = {};
  ASSERT_EQ(KT_usCalculerSignatureMessage(data, 19, DevelopmentKey(), signature), KT_OK);
  R_RSAPublicKey* key = KT_LireClePublique();
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key->bits, 1024u);
  EXPECT_EQ(key->modulus[0], MODULUS[0]);
  EXPECT_EQ(key->exponent[127], EXPONENT[127]);
  EXPECT_EQ(KT_usVerifierSignatureMessage(data, 19, *key, signature), KT_OK);
  EXPECT_EQ(KT_usVerifierSignatureMessage(data, 18, *key, signature), KT_RE_SIGNATURE);
  signature[0] ^= 0xFF;  // no longer below the modulus, or a bad block
  EXPECT_EQ(KT_usVerifierSignatureMessage(data, 19, *key, signature), KT_RE_PUBLIC_KEY);
  EXPECT_EQ(KT_usVerifierSignatureMessage(data, 19, *key, nullptr), KT_ERR_ARGUMENT);
  KT_Liberer(key);
  // A key shorter than 1024 bits signs with fewer than 128 bytes: refused.
  R_RSAPrivateKey small = DevelopmentKey();
  small.bits = 512;
  EXPECT_EQ(KT_usCalculerSignatureMessage(data, 19, small, signature), KT_ECHEC);
  ArmFault(Fault::kAlloc, 0);
  EXPECT_EQ(KT_LireClePublique(), nullptr);
}

TEST_F(BinFileSignatures, PrivateKeyFileIsReadAsItWasWritten) {
  const std::string raw = ReadFile(kKeyFile);
  ASSERT_EQ(raw.size(), 4u + 704u);
  const R_RSAPrivateKey key = DevelopmentKey();
  EXPECT_EQ(key.bits, 1024u);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(key.coefficient), 64), raw.substr(4 + 640));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(key.modulus), 128), raw.substr(4, 128));

  // A newline after the size shifts every byte: the key signs, wrongly.
  WriteFile(Path("newline.key"), "1024\n" + raw.substr(4));
  R_RSAPrivateKey shifted{};
  ASSERT_EQ(KT_usLireClePrivee(Path("newline.key").c_str(), &shifted), KT_OK);
  uint8_t signature[128];
  const uint8_t data[3] = {1, 2, 3};
  R_RSAPublicKey* pub = KT_LireClePublique();
  if (KT_usCalculerSignatureMessage(data, 3, shifted, signature) == KT_OK) {
    EXPECT_NE(KT_usVerifierSignatureMessage(data, 3, *pub, signature), KT_OK);
  }
  KT_Liberer(pub);

  // A short file leaves the fields it does not reach.
  WriteFile(Path("short.key"), "  +512\x01\x02");
  R_RSAPrivateKey partial{};
  partial.modulus[2] = 0x77;
  ASSERT_EQ(KT_usLireClePrivee(Path("short.key").c_str(), &partial), KT_OK);
  EXPECT_EQ(partial.bits, 512u);
  EXPECT_EQ(partial.modulus[0], 1);
  EXPECT_EQ(partial.modulus[1], 2);
  EXPECT_EQ(partial.modulus[2], 0x77);

  EXPECT_EQ(KT_usLireClePrivee(Path("missing.key").c_str(), &partial), KT_ERR_FICHIER);
  ArmFault(Fault::kClose, 0);
  EXPECT_EQ(KT_usLireClePrivee(kKeyFile.c_str(), &partial), KT_ERR_FICHIER);
}

TEST_F(BinFileSignatures, FailedSigningIsReportedAndTheFileStaysUnsigned) {
  uint16_t n = 0;
  ASSERT_EQ(Create("nokey", KT_CONTROLE_SIGNATURE, &n), KT_OK);
  const std::string trace = CaptureTrace({7}, 1, [&] {
    EXPECT_EQ(KT_usLibererFichierBinaire(n, Path("missing.key").c_str()), KT_ERR_FICHIER);
  });
  EXPECT_NE(trace.find("{ KT_usEcrireSignatureFichier : NumFichier = 1\n"), std::string::npos);
  EXPECT_NE(trace.find("ERREUR : Probleme lors de la lecture de la cle privee\n"),
            std::string::npos);
  EXPECT_NE(trace.find("KT_usEcrireSignatureFichier : Code retour = 0xf610\n"), std::string::npos);
  EXPECT_EQ(Contents("nokey").size(), 77u);
  EXPECT_EQ(Open("nokey", KT_CONTROLE_SIGNATURE, &n), KT_ERR_CONTROLE);
  ASSERT_EQ(KT_usLibererFichierBinaire(n, nullptr), KT_OK);

  ASSERT_EQ(Create("nowrite", KT_CONTROLE_SIGNATURE, &n), KT_OK);
  ArmFault(Fault::kWrite, 0);
  EXPECT_EQ(KT_usLibererFichierBinaire(n, kKeyFile.c_str()), KT_ERR_FICHIER);
  // Allocation failures in the check turn into a failed check.
  Build("ok", KT_CONTROLE_SIGNATURE, WriteTables, kKeyFile.c_str());
  for (int delay = 0; delay < 3; ++delay) {
    ArmFault(Fault::kAlloc, 4 + delay);  // after the path, the record and its texts
    EXPECT_EQ(Open("ok", KT_CONTROLE_SIGNATURE, &n), KT_ERR_CONTROLE) << delay;
    kt::testing::DisarmAllFaults();
    ASSERT_EQ(KT_usLibererFichierBinaire(n, nullptr), KT_OK);
  }
}

#ifdef KT_HAVE_OPENSSL
BIGNUM* Bn(const unsigned char* bytes, int length) { return BN_bin2bn(bytes, length, nullptr); }

TEST_F(BinFileSignatures, OpenSslVerifiesTheFileSignatureAndTheKeyPair) {
  const std::string bytes = Build("o.vkt", KT_CONTROLE_SIGNATURE, WriteTables, kKeyFile.c_str());
  R_RSAPublicKey* pub = KT_LireClePublique();
  ASSERT_NE(pub, nullptr);
  RSA* rsa = RSA_new();
  RSA_set0_key(rsa, Bn(pub->modulus, 128), Bn(pub->exponent, 128), nullptr);
  KT_Liberer(pub);
  unsigned char digest[16];
  unsigned int digest_length = 0;
  const std::string covered = bytes.substr(4, bytes.size() - 132);
  ASSERT_EQ(EVP_Digest(covered.data(), covered.size(), digest, &digest_length, EVP_md5(), nullptr),
            1);
  const std::string signature = bytes.substr(bytes.size() - 128);
  EXPECT_EQ(RSA_verify(NID_md5, digest, digest_length,
                       reinterpret_cast<const unsigned char*>(signature.data()), 128, rsa),
            1);
  RSA_free(rsa);

  // The shipped private key is a consistent RSA key for the built-in public one.
  const R_RSAPrivateKey key = DevelopmentKey();
  RSA* pair = RSA_new();
  RSA_set0_key(pair, Bn(key.modulus, 128), Bn(key.publicExponent, 128), Bn(key.exponent, 128));
  RSA_set0_factors(pair, Bn(key.prime[0], 64), Bn(key.prime[1], 64));
  RSA_set0_crt_params(pair, Bn(key.primeExponent[0], 64), Bn(key.primeExponent[1], 64),
                      Bn(key.coefficient, 64));
  EXPECT_EQ(RSA_check_key(pair), 1);
  for (int i = 0; i < 128; ++i) ASSERT_EQ(key.modulus[i], MODULUS[i]) << i;
  RSA_free(pair);
}
#endif

}  // namespace
}  // namespace kt::test
