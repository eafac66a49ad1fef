// The CRC-16 of control type 1: computed over the file from offset 4 (the
// space after the CRC field) to its end when a file written for it is
// closed, stored as four upper-case hexadecimal digits at offset 0, and
// compared when the file is opened. Existing files carry this exact value,
// so the register (see Crc16 in binfiles_internal.h) is run bit by bit as it
// always was; "123456789" gives 0x7F50.
#include <array>

#include "binfiles/binfiles_internal.h"
#include "frame/frame_internal.h"

namespace {
constexpr std::size_t kBlockBytes = 1024;
constexpr int kCrcDigits = 4;
}  // namespace

using kt::binfiles::CallTrace;

uint16_t usCalculerCRC16(FILE* pfFichier, uint16_t* pusCRC) {
  if (pfFichier == nullptr || pusCRC == nullptr) return KT_FAIL(KT_ERR_ARGUMENT);
  const long saved = kt::io::Tell(pfFichier);
  if (saved < 0) return KT_FAIL(KT_ERR_FICHIER);
  // The one place that fails with a bare 1.
  if (kt::io::Seek(pfFichier, kt::binfiles::kCrcFieldBytes, SEEK_SET) != 0) {
    return KT_FAIL(KT_ECHEC);
  }
  kt::binfiles::Crc16 crc;
  std::array<uint8_t, kBlockBytes> block;
  std::size_t got = 0;
  do {
    got = kt::io::Read(block.data(), 1, block.size(), pfFichier);
    crc.Update(block.data(), got);
  } while (got == block.size());
  *pusCRC = crc.Value();
  if (kt::io::Seek(pfFichier, saved, SEEK_SET) != 0) return KT_FAIL(KT_ERR_FICHIER);
  return KT_OK;
}

uint16_t usEcrireCRC(FILE* pfFichier, uint16_t usCRC) {
  if (pfFichier == nullptr) return KT_FAIL(KT_ERR_ARGUMENT);
  if (kt::io::Seek(pfFichier, 0L, SEEK_SET) != 0) return KT_FAIL(KT_ERR_FICHIER);
  if (kt::io::Printf(pfFichier, "%04X", static_cast<unsigned>(usCRC)) != kCrcDigits) {
    return KT_FAIL(KT_ERR_FICHIER);
  }
  return KT_OK;
}

uint16_t usLireCRC(uint16_t usNumFichier, uint16_t* pusCRC) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindFile(usNumFichier, &file, pusCRC != nullptr);
  if (us != KT_OK) return us;

  const long saved = kt::io::Tell(file->pfFichier);
  if (saved < 0) return us = KT_FAIL(KT_ERR_FICHIER);
  std::array<uint8_t, kCrcDigits> digits{};
  if (kt::io::Seek(file->pfFichier, 0L, SEEK_SET) != 0 ||
      KT_usLireChampFixe(usNumFichier, digits.data(), kCrcDigits) != KT_OK) {
    us = KT_FAIL(KT_ERR_FICHIER);
  }
  if (us == KT_OK) {
    // A character that is not a digit counts as 0xFFFF and spoils the sum
    // without an error: the comparison at open then fails (kept).
    uint32_t value = 0;
    for (int i = 0; i < kCrcDigits; ++i) {
      value += uint32_t{usConvertirHexa(static_cast<char>(digits[i]))}
               << (4 * (kCrcDigits - 1 - i));
    }
    *pusCRC = static_cast<uint16_t>(value);
  }
  if (kt::io::Seek(file->pfFichier, saved, SEEK_SET) != 0 && us == KT_OK) {
    us = KT_FAIL(KT_ERR_FICHIER);
  }
  return us;
}
