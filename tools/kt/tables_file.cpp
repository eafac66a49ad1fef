#include "tools/kt/tables_file.h"

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "kt_crypto.h"
#include "tools/kt/output.h"
#include "tools/kt/status_text.h"
#include "tools/kt/workspace.h"

namespace kt::tool {
namespace {

constexpr std::uint32_t kSignatureBytes = 128;
constexpr std::uint32_t kSignatureBits = 1024;
// Modulus and two exponents of 128 bytes, five prime fields of 64.
constexpr std::size_t kPrivateKeyFields = 3 * KT_MAX_RSA_MODULUS_LEN + 5 * KT_MAX_RSA_PRIME_LEN;

std::string FieldAt(const char* block, std::size_t offset, std::size_t capacity) {
  return std::string(block + offset, strnlen(block + offset, capacity));
}

}  // namespace

const char* ControlName(Control control) {
  switch (control) {
    case Control::kCrc:
      return "crc";
    case Control::kSignature:
      return "signature";
    case Control::kNone:
      break;
  }
  return "none";
}

bool ParseControl(std::string_view text, Control* control) {
  for (const Control candidate : {Control::kNone, Control::kCrc, Control::kSignature}) {
    if (text == ControlName(candidate)) {
      *control = candidate;
      return true;
    }
  }
  return false;
}

std::uint16_t ControlType(Control control) {
  switch (control) {
    case Control::kCrc:
      return KT_CONTROLE_CRC;
    case Control::kSignature:
      return KT_CONTROLE_SIGNATURE;
    case Control::kNone:
      break;
  }
  return KT_CONTROLE_AUCUN;
}

std::string CheckResult::Describe() const {
  switch (control) {
    case Control::kCrc:
      if (good) return "CRC " + Hex4(computed_crc) + " good";
      return "CRC bad: the header holds " + Hex4(stored_crc) + ", the file's is " +
             Hex4(computed_crc);
    case Control::kSignature:
      if (good) return "signature good (built-in public key)";
      return "signature bad: " + StatusText(signature_status);
    case Control::kNone:
      break;
  }
  return "none (not checked)";
}

std::uint16_t TablesFile::Open(const std::string& path, Control control) {
  Close();
  std::error_code ignored;
  Progress checking(std::string("checking ") + path);
  const std::uintmax_t size = std::filesystem::file_size(path, ignored);
  if (control != Control::kNone && !ignored) checking.Announce(size);
  const PathParts parts = SplitPath(path);
  char block[KT_TAILLE_ENTETE_FICHIER] = {};
  check_ = CheckResult{};
  check_.control = control;
  const std::uint16_t us = KT_usInitialiserFichierBinaire(
      parts.directory.c_str(), parts.name.c_str(), ControlType(control), &number_, block);
  check_.status = us;
  if (us != KT_OK && us != KT_ERR_CONTROLE) {
    Close();
    return us;
  }
  check_.good = us == KT_OK;
  header_ = HeaderFields{FieldAt(block, KT_ENTETE_NOM, 13),
                         FieldAt(block, KT_ENTETE_VERSION, 5),
                         FieldAt(block, KT_ENTETE_CHAMP3, 6),
                         FieldAt(block, KT_ENTETE_CHAMP4, 9),
                         FieldAt(block, KT_ENTETE_VERSION_REQUISE, 5),
                         FieldAt(block, KT_ENTETE_CHAMP6, 6),
                         FieldAt(block, KT_ENTETE_CHAMP7, 11),
                         FieldAt(block, KT_ENTETE_COMMENTAIRE, KT_TAILLE_COMMENTAIRE + 1)};
  std::int32_t position = 0;
  (void)KT_usLongueurFichierBinaire(number_, &length_);
  if (KT_usLirePositionFichier(number_, &position) == KT_OK) {
    body_ = static_cast<std::uint32_t>(position);
  }
  std::uint8_t* field = nullptr;
  if (KT_usLireFichierBinaire(number_, 0, 4, &field) == KT_OK && field != nullptr) {
    crc_field_.assign(reinterpret_cast<const char*>(field), 4);
  }
  KT_Liberer(field);

  // The library itself reserves the last 128 bytes of every file not checked
  // by CRC; an unchecked file written without a signature has its tables to
  // the end, which is where they are looked for when they do not stop short.
  const std::uint32_t short_end = length_ < kSignatureBytes ? 0 : length_ - kSignatureBytes;
  data_end_ = control == Control::kCrc                                   ? length_
              : control == Control::kSignature || TablesEndAt(short_end) ? short_end
                                                                         : length_;
  if (control == Control::kCrc) {
    (void)usLireCRC(number_, &check_.stored_crc);
    check_.computed_crc = check_.stored_crc;
    // The opener compared them; a second pass only to show a bad one.
    FichierBinaire* record = nullptr;
    if (!check_.good && usRechercherFichier(number_, &record) == KT_OK) {
      (void)usCalculerCRC16(record->pfFichier, &check_.computed_crc);
    }
  } else if (control == Control::kSignature && !check_.good) {
    // The opener turns every failure into KT_ERR_CONTROLE; ask for the reason.
    check_.signature_status = KT_usVerifierSignatureFichier(number_);
  }
  return us;
}

void TablesFile::Close() {
  if (number_ != 0) (void)KT_usLibererFichierBinaire(number_, nullptr);  // opened for reading
  number_ = 0;
}

bool TablesFile::TablesEndAt(std::uint32_t end) const {
  std::uint64_t position = body_;
  bool readable = true;
  while (readable && position < end) {
    EnteteTable table{};
    std::int32_t data = 0;
    readable =
        KT_usPositionnerOffset(number_, static_cast<std::int32_t>(position), SEEK_SET) == KT_OK &&
        KT_usLireEnteteTable(number_, &table) == KT_OK &&
        KT_usLirePositionFichier(number_, &data) == KT_OK;
    position = static_cast<std::uint32_t>(data) + std::uint64_t{table.ulTailleDonnees};
  }
  // Back to the first table, where the opener left the file.
  (void)KT_usPositionnerOffset(number_, static_cast<std::int32_t>(body_), SEEK_SET);
  return readable && position == end;
}

Control DetectControl(const std::string& path) {
  Control layout = Control::kCrc;
  {
    TablesFile file;
    if (file.Open(path, Control::kNone) != KT_OK) return Control::kNone;
    if (file.crc_field() != CRC16_FICTIF) return Control::kCrc;
    if (file.TablesEndAt(file.data_end())) {
      layout = file.data_end() == file.length() ? Control::kNone : Control::kSignature;
    }
  }
  for (const Control control : {Control::kSignature, Control::kCrc}) {
    TablesFile file;
    if (file.Open(path, control) == KT_OK) return control;
  }
  return layout;
}

bool CheckSigningKey(const std::string& path, std::string* error) {
  const std::optional<std::string> bytes = ReadInput(path, error);
  if (!bytes) {
    *error = "key problem: " + *error;
    return false;
  }
  std::size_t digits = 0;
  while (digits < bytes->size() && (*bytes)[digits] >= '0' && (*bytes)[digits] <= '9') ++digits;
  constexpr std::size_t kPublicFields = 2 * KT_MAX_RSA_MODULUS_LEN;
  if (digits != 0 && bytes->size() == digits + kPublicFields) {
    *error = "key problem: " + path + " is a public-key file; signing needs the private key";
    return false;
  }
  if (digits == 0 || bytes->size() != digits + kPrivateKeyFields) {
    *error = "key problem: " + path + " is not a private-key file (" +
             std::to_string(bytes->size()) + " bytes; a 1024-bit one has " +
             std::to_string(4 + kPrivateKeyFields) + ")";
    return false;
  }
  R_RSAPrivateKey key;
  std::memset(&key, 0, sizeof key);
  const std::uint16_t us = KT_usLireClePrivee(path.c_str(), &key);
  bool ok = us == KT_OK;
  if (!ok) {
    *error = "key problem: cannot read the private key " + path + ": status " + StatusText(us);
  } else if (key.bits != kSignatureBits) {
    *error = "key problem: " + path + " holds a " + std::to_string(key.bits) +
             "-bit key; signed files need " + std::to_string(kSignatureBits) + " bits";
    ok = false;
  } else {
    static const unsigned char kProbe[] = "kt signing key check";
    unsigned char signature[KT_MAX_SIGNATURE_LEN];
    std::uint32_t length = 0;
    if (R_SignBlock(signature, &length, kProbe, sizeof kProbe, KT_DA_MD5, &key) != KT_RE_OK) {
      *error = "key problem: " + path + " does not sign (a damaged private key)";
      ok = false;
    }
  }
  volatile unsigned char* wipe = reinterpret_cast<volatile unsigned char*>(&key);
  for (std::size_t i = 0; i < sizeof key; ++i) wipe[i] = 0;
  return ok;
}

}  // namespace kt::tool
