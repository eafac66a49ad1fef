// The CRC-16 of control type 1: computed over the file from offset 4 (the
// space after the CRC field) to its end when a file written for it is
// closed, stored as four upper-case hexadecimal digits at offset 0, and
// compared when the file is opened. Existing files carry this exact value
// (see Crc16 in binfiles_internal.h); "123456789" gives 0x7F50. The register
// is computed eight bytes at a time with eight tables (slicing by 8), and
// the file is read in large blocks.
#include <array>

#include "binfiles/binfiles_internal.h"
#include "frame/frame_internal.h"

namespace {
constexpr std::size_t kBlockBytes = 32 * 1024;
constexpr int kCrcDigits = 4;
constexpr std::uint16_t kPolynomial = 0x8408;  // 0x1021 reflected

// kTables[0][x]: eight register steps on the byte x; kTables[k][x]: the same
// byte followed by k zero bytes.
using CrcTables = std::array<std::array<std::uint16_t, 256>, 8>;
constexpr CrcTables kTables = [] {
  CrcTables t{};
  for (unsigned x = 0; x < 256; ++x) {
    unsigned c = x;
    for (int bit = 0; bit < 8; ++bit) c = (c & 1U) != 0 ? (c >> 1) ^ kPolynomial : c >> 1;
    t[0][x] = static_cast<std::uint16_t>(c);
  }
  for (unsigned k = 1; k < 8; ++k) {
    for (unsigned x = 0; x < 256; ++x) {
      t[k][x] = static_cast<std::uint16_t>((t[k - 1][x] >> 8) ^ t[0][t[k - 1][x] & 0xFFU]);
    }
  }
  return t;
}();

// The table-driven register over `count` bytes.
std::uint16_t Kermit(std::uint16_t crc, const std::uint8_t* p, std::size_t count) noexcept {
  for (; count >= 8; count -= 8, p += 8) {
    crc = kTables[7][(p[0] ^ crc) & 0xFFU] ^ kTables[6][(p[1] ^ (crc >> 8)) & 0xFFU] ^
          kTables[5][p[2]] ^ kTables[4][p[3]] ^ kTables[3][p[4]] ^ kTables[2][p[5]] ^
          kTables[1][p[6]] ^ kTables[0][p[7]];
  }
  for (; count != 0; --count, ++p) crc = (crc >> 8) ^ kTables[0][(crc ^ *p) & 0xFFU];
  return crc;
}

}  // namespace

void kt::binfiles::Crc16::Update(const std::uint8_t* bytes, std::size_t count) noexcept {
  if (count < 2) {
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint8_t leaving = static_cast<std::uint8_t>(in_flight_ & 0xFFU);
      kermit_ = Kermit(kermit_, &leaving, 1);
      in_flight_ = static_cast<std::uint16_t>((in_flight_ >> 8) | (bytes[i] << 8));
    }
    return;
  }
  // The two bytes in flight go in, then all but the last two new ones.
  const std::uint8_t leaving[2] = {static_cast<std::uint8_t>(in_flight_ & 0xFFU),
                                   static_cast<std::uint8_t>(in_flight_ >> 8)};
  kermit_ = Kermit(Kermit(kermit_, leaving, 2), bytes, count - 2);
  in_flight_ = static_cast<std::uint16_t>(bytes[count - 2] | (bytes[count - 1] << 8));
}

using kt::binfiles::CallTrace;

uint16_t usCalculerCRC16(FILE* pfFichier, uint16_t* pusCRC) {
  if (pfFichier == nullptr || pusCRC == nullptr) return KT_FAIL(KT_ERR_ARGUMENT);
  const kt::io::Offset saved = kt::io::Tell(pfFichier);
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

  const kt::io::Offset saved = kt::io::Tell(file->pfFichier);
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
