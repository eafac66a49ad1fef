// Signatures of messages and of files of control type 2: PKCS #1 v1.5 over
// an MD5 digest with 1024-bit keys, made by the crypto toolkit. A signed file
// ends with its 128-byte signature of bytes 4 to the end of the data; the
// CRC field stays "0000" and is not signed:
//
//   0     "0000"
//   4     header line, tables ...  <- signed range, length L - 132
//   L-128 signature, 128 bytes
//
// The private key comes from a key file named by the closer, the public key
// from MODULUS and EXPONENT, which the build makes from a public-key file.
// Every copy of the private key is cleared before returning.
#include <array>
#include <cctype>
#include <cstring>

#include "binfiles/binfiles_internal.h"
#include "frame/frame_internal.h"
#include "traces/traces_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 7;  // dictionary and binary table files

constexpr std::uint32_t kKeyBits = 1024;
constexpr std::uint32_t kModulusBytes = KT_MAX_RSA_MODULUS_LEN;
constexpr std::uint32_t kPrimeBytes = KT_MAX_RSA_PRIME_LEN;
constexpr std::uint32_t kKeyFileBytes = 3 * kModulusBytes + 5 * kPrimeBytes;  // after the digits

// Releases the blocks of a file verification on every path.
struct Blocks {
  R_RSAPublicKey* key = nullptr;
  std::uint8_t* data = nullptr;
  std::uint8_t* signature = nullptr;
  ~Blocks() {
    KT_Liberer(key);
    KT_Liberer(data);
    KT_Liberer(signature);
  }
};

// Reads the key size as "%d" would: blanks skipped, an optional sign, the
// digits. Gives back the first character after them (EOF at the end), which
// belongs to the binary part; `bits` is left alone when there are no digits.
int ReadDecimal(std::FILE* stream, std::uint32_t& bits) {
  int c = kt::io::GetChar(stream);
  while (c != EOF && std::isspace(c)) c = kt::io::GetChar(stream);
  const bool negative = c == '-';
  if (c == '-' || c == '+') c = kt::io::GetChar(stream);
  bool any = false;
  std::uint32_t value = 0;
  for (; c != EOF && c >= '0' && c <= '9'; c = kt::io::GetChar(stream)) {
    value = value * 10U + static_cast<std::uint32_t>(c - '0');  // wraps instead of overflowing
    any = true;
  }
  if (any) bits = negative ? 0U - value : value;
  return c;
}

}  // namespace

using kt::binfiles::Text;
using namespace kt::traces;

uint16_t KT_usCalculerSignatureMessage(const uint8_t* pucDonnees, uint32_t ulLongueur,
                                       R_RSAPrivateKey sClePrivee, uint8_t* pucSignature) {
  KT_TRACE(kTraceEnter, "KT_usCalculerSignatureMessage : ulLongueur = %lu",
           static_cast<unsigned long>(ulLongueur));
  uint16_t us = KT_OK;
  ExitTrace exit_trace{kTraceSub, "KT_usCalculerSignatureMessage : Code retour = 0x%04x", &us};
  R_DigestContext context{};
  kt::WipeOnExit wipe(sClePrivee, context);
  if ((pucDonnees == nullptr && ulLongueur != 0) || pucSignature == nullptr) {
    return us = KT_FAIL(KT_ECHEC);
  }
  uint32_t length = 0;
  uint32_t status = R_SignInit(&context, KT_DA_MD5);
  if (status == KT_RE_OK) status = R_SignUpdate(&context, pucDonnees, ulLongueur);
  if (status == KT_RE_OK) status = R_SignFinal(&context, pucSignature, &length, &sClePrivee);
  if (status != KT_RE_OK || length != KT_MAX_SIGNATURE_LEN) us = KT_FAIL(KT_ECHEC);
  return us;
}

uint16_t KT_usVerifierSignatureMessage(const uint8_t* pucDonnees, uint32_t ulLongueur,
                                       R_RSAPublicKey sClePublique, const uint8_t* pucSignature) {
  KT_TRACE(kTraceEnter, "KT_usVerifierSignatureMessage : ulLongueur = %lu",
           static_cast<unsigned long>(ulLongueur));
  uint16_t us = KT_OK;
  ExitTrace exit_trace{kTraceSub, "KT_usVerifierSignatureMessage : Code retour = 0x%04x", &us};
  if ((pucDonnees == nullptr && ulLongueur != 0) || pucSignature == nullptr) {
    return us = KT_FAIL(KT_ERR_ARGUMENT);
  }
  R_DigestContext context{};
  kt::WipeOnExit wipe(context);
  uint32_t status = R_VerifyInit(&context, KT_DA_MD5);
  if (status == KT_RE_OK) status = R_VerifyUpdate(&context, pucDonnees, ulLongueur);
  if (status == KT_RE_OK) {
    status = R_VerifyFinal(&context, pucSignature, KT_MAX_SIGNATURE_LEN, &sClePublique);
  }
  // The toolkit's status goes back as it is (all of them fit 16 bits).
  return us = static_cast<uint16_t>(status);
}

uint16_t KT_usLireClePrivee(const char* pcFichier, R_RSAPrivateKey* psClePrivee) {
  KT_TRACE(kTraceEnter, "KT_usLireClePrivee : pcFichier = %s", Text(pcFichier));
  uint16_t us = KT_OK;
  ExitTrace exit_trace{kTraceSub, "KT_usLireClePrivee : Code retour = 0x%04x", &us};
  if (psClePrivee == nullptr) return us = KT_FAIL(KT_ERR_ARGUMENT);
  std::FILE* stream = pcFichier != nullptr ? kt::io::Open(pcFichier, "rb") : nullptr;
  if (stream == nullptr) return us = KT_FAIL(KT_ERR_FICHIER);

  std::array<std::uint8_t, kKeyFileBytes> raw{};
  kt::WipeOnExit wipe(raw);
  std::uint32_t available = 0;
  const int first = ReadDecimal(stream, psClePrivee->bits);
  if (first != EOF) raw[available++] = static_cast<std::uint8_t>(first);
  available += static_cast<std::uint32_t>(
      kt::io::Read(raw.data() + available, 1, raw.size() - available, stream));

  // The fields in file order; a short file leaves the ones it does not
  // reach as they were (short reads are not detected).
  const std::array<std::pair<unsigned char*, std::uint32_t>, 8> fields{{
      {psClePrivee->modulus, kModulusBytes},
      {psClePrivee->publicExponent, kModulusBytes},
      {psClePrivee->exponent, kModulusBytes},
      {psClePrivee->prime[0], kPrimeBytes},
      {psClePrivee->prime[1], kPrimeBytes},
      {psClePrivee->primeExponent[0], kPrimeBytes},
      {psClePrivee->primeExponent[1], kPrimeBytes},
      {psClePrivee->coefficient, kPrimeBytes},
  }};
  std::uint32_t offset = 0;
  for (const auto& [field, size] : fields) {
    const std::uint32_t take = std::min(size, available - offset);
    std::memcpy(field, raw.data() + offset, take);
    offset += take;
  }
  if (kt::io::Close(stream) != 0) us = KT_FAIL(KT_ERR_FICHIER);
  return us;
}

R_RSAPublicKey* KT_LireClePublique(void) {
  auto* key = static_cast<R_RSAPublicKey*>(KT_Allouer(sizeof(R_RSAPublicKey)));
  if (key == nullptr) return nullptr;
  *key = R_RSAPublicKey{};
  key->bits = kKeyBits;
  for (std::uint32_t i = 0; i < kModulusBytes; ++i) {
    key->modulus[i] = static_cast<unsigned char>(MODULUS[i] & 0xFFU);
    key->exponent[i] = static_cast<unsigned char>(EXPONENT[i] & 0xFFU);
  }
  return key;
}

uint16_t KT_usEcrireSignatureFichier(uint16_t usNumFichier, const char* pcClePrivee) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  KT_TRACE(kTraceEnter, "KT_usEcrireSignatureFichier : NumFichier = %d", usNumFichier);
  uint16_t us = KT_OK;
  ExitTrace exit_trace{kTraceSub, "KT_usEcrireSignatureFichier : Code retour = 0x%04x", &us};
  R_RSAPrivateKey key{};
  kt::WipeOnExit wipe(key);
  us = KT_usLireClePrivee(pcClePrivee, &key);
  if (us != KT_OK) {
    KT_TRACE(kTraceError, "Probleme lors de la lecture de la cle privee");
    return us;
  }
  uint32_t length = 0;
  us = KT_usLongueurFichierBinaire(usNumFichier, &length);
  if (us != KT_OK) return us;
  const uint32_t signed_length =
      length > kt::binfiles::kCrcFieldBytes ? length - kt::binfiles::kCrcFieldBytes : 0;

  uint8_t* data = nullptr;
  us = KT_usLireFichierBinaire(usNumFichier, kt::binfiles::kCrcFieldBytes, signed_length, &data);
  // The block reader can answer 0 without a block: the block tells.
  if (us == KT_OK && data == nullptr) us = KT_FAIL(KT_ERR_FICHIER);
  std::array<uint8_t, KT_MAX_SIGNATURE_LEN> signature{};
  if (us == KT_OK) us = KT_usCalculerSignatureMessage(data, signed_length, key, signature.data());
  KT_Liberer(data);
  if (us == KT_OK &&
      KT_usPositionnerOffset(usNumFichier, static_cast<int32_t>(length), SEEK_SET) != KT_OK) {
    us = KT_FAIL(KT_ERR_FICHIER);
  }
  if (us == KT_OK) {
    us = KT_usEcrireChampFixe(usNumFichier, signature.data(), KT_MAX_SIGNATURE_LEN);
    if (us != KT_OK) us = KT_FAIL(KT_ERR_FICHIER);
  }
  return us;
}

uint16_t KT_usVerifierSignatureFichier(uint16_t usNumFichier) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  KT_TRACE(kTraceEnter, "KT_usVerifierSignatureFichier : NumFichier = %d", usNumFichier);
  uint16_t us = KT_OK;
  ExitTrace exit_trace{kTraceSub, "KT_usVerifierSignatureFichier : Code retour = 0x%04x", &us};
  Blocks blocks;
  blocks.key = KT_LireClePublique();
  if (blocks.key == nullptr) return us = KT_FAIL(KT_ERR_FICHIER);
  uint32_t length = 0;
  us = KT_usLongueurFichierBinaire(usNumFichier, &length);
  if (us != KT_OK) return us;
  // The lengths below are unsigned: a file with no room for its CRC field
  // and a signature has no signature, and nothing of it is read.
  constexpr uint32_t kOverhead = kt::binfiles::kCrcFieldBytes + KT_MAX_SIGNATURE_LEN;
  if (length < kOverhead) return us = KT_FAIL(KT_ERR_CONTROLE);
  const uint32_t signed_length = length - kOverhead;

  us = KT_usLireFichierBinaire(usNumFichier, kt::binfiles::kCrcFieldBytes, signed_length,
                               &blocks.data);
  if (us == KT_OK) {
    us = KT_usLireFichierBinaire(usNumFichier, length - KT_MAX_SIGNATURE_LEN, KT_MAX_SIGNATURE_LEN,
                                 &blocks.signature);
  }
  // The block reader can answer 0 without a block: the blocks tell.
  if (us == KT_OK && (blocks.data == nullptr || blocks.signature == nullptr)) {
    us = KT_FAIL(KT_ERR_FICHIER);
  }
  if (us == KT_OK) {
    us = KT_usVerifierSignatureMessage(blocks.data, signed_length, *blocks.key, blocks.signature);
  }
  return us;
}
