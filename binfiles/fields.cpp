// Typed fields of binary table files: big-endian integers, the packed-decimal
// double, dates, fixed byte fields, length-prefixed strings and fixed fields
// of 16-bit units. Everything in a file, its header line included, goes
// through these operations.
//
// Writers refuse files opened for reading (the double excepted) and add the
// bytes they write to the slot's counter, from which table sizes are made.
// Integer writers put one byte at a time through the stream's buffering and
// move the counter even when a byte fails (kept: existing tables were sized
// that way). Readers do not look at the mode.
//
// Packed decimal (8 bytes, 16 nibbles):
//
//   nibble 0      sign: 0 positive, 1 negative (any non-zero reads negative)
//   nibbles 1-15  the 15 characters of the fixed-point text with 14 digits
//                 and one point: digit = its value, point = 15
//
//   3.5             03 F5 00 00 00 00 00 00
//   -1234.5         11 23 4F 50 00 00 00 00
//   12345678901234  01 23 45 67 89 01 23 4F
//
// The text is made and parsed with std::to_chars and std::from_chars, which
// round as "%.*f" does and always use ".", whatever the process's locale.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <system_error>

#include "binfiles/binfiles_internal.h"
#include "frame/frame_internal.h"
#include "traces/traces_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 7;  // dictionary and binary table files
}  // namespace

namespace kt::binfiles {
namespace {

constexpr int kDecimalDigits = 14;  // digits of the packed text
constexpr std::uint8_t kPointNibble = 15;

// Whether a writer raises the counter before or after its bytes go out.
enum class CountOrder { kBeforeWrite, kAfterWrite };

// Strings this long or longer are checked against what the file still
// holds before their block is allocated, so that a hostile prefix cannot
// make us allocate gigabytes for a read that must come up short.
constexpr std::uint32_t kLongString = 1U << 20;

// The file behind a number, in write mode: else the lookup's code or
// KT_ERR_MODE.
uint16_t FindForWriting(std::uint16_t number, FichierBinaire** file) {
  const uint16_t us = usRechercherFichier(number, file);
  if (us != KT_OK) return us;
  if (!InWriteMode(**file)) return KT_FAIL(KT_ERR_MODE);
  return KT_OK;
}

// Writes the low kWidth bytes of value, most significant first.
template <int kWidth>
uint16_t WriteBigEndian(std::uint16_t number, std::uint32_t value, CountOrder order) {
  FichierBinaire* file = nullptr;
  uint16_t us = FindForWriting(number, &file);
  if (us != KT_OK) return us;
  if (order == CountOrder::kBeforeWrite) file->ulCompteurOctets += kWidth;
  for (int i = kWidth - 1; i >= 0 && us == KT_OK; --i) {
    const int byte = static_cast<int>((value >> (8 * i)) & 0xFFU);
    if (kt::io::PutChar(byte, file->pfFichier) != byte) us = KT_FAIL(KT_ERR_FICHIER);
  }
  if (order == CountOrder::kAfterWrite) file->ulCompteurOctets += kWidth;
  return us;
}

// Reads kWidth bytes, most significant first; the destination is left
// untouched unless all of them came.
template <int kWidth>
uint16_t ReadBigEndian(std::uint16_t number, std::uint32_t* value) {
  FichierBinaire* file = nullptr;
  const uint16_t us = usRechercherFichier(number, &file);
  if (us != KT_OK) return us;
  if (value == nullptr) return KT_FAIL(KT_ERR_ARGUMENT);
  if (kt::io::Tell(file->pfFichier) < 0) return KT_FAIL(KT_ERR_FIN_FICHIER);
  std::uint32_t assembled = 0;
  for (int i = 0; i < kWidth; ++i) {
    const int byte = kt::io::GetChar(file->pfFichier);
    if (byte == EOF) return KT_FAIL(KT_ERR_FIN_FICHIER);
    assembled = (assembled << 8) | static_cast<std::uint32_t>(byte);
  }
  *value = assembled;
  return KT_OK;
}

// The block read behind KT_usLireChampFixe: asks for `count` bytes but
// stores at most `capacity` of them (a shorter block can then only come up
// short). Fewer than `count` is an end of file.
uint16_t ReadBlock(std::uint16_t number, std::uint8_t* buffer, std::uint32_t capacity,
                   std::uint32_t count) {
  FichierBinaire* file = nullptr;
  uint16_t us = usRechercherFichier(number, &file);
  if (us != KT_OK) return us;
  if (buffer == nullptr && capacity != 0) return KT_FAIL(KT_ERR_ARGUMENT);
  if (kt::io::Tell(file->pfFichier) < 0) return KT_FAIL(KT_ERR_FIN_FICHIER);
  const std::uint32_t wanted = std::min(capacity, count);
  const std::size_t got = wanted == 0 ? 0 : kt::io::Read(buffer, 1, wanted, file->pfFichier);
  if (got != count) {
    us = KT_FAIL(KT_ERR_FIN_FICHIER);
    KT_TRACE(traces::kTraceError, "KT_usLireChampFixe : Fin de fichier lu %d a liree %d usCr %d",
             static_cast<int>(got), static_cast<int>(count), us);
  }
  return us;
}

// Bytes left between the stream's position and its end; 0 when either
// cannot be told.
std::uint32_t BytesLeft(std::FILE* stream) {
  const kt::io::Offset here = kt::io::Tell(stream);
  std::uint32_t length = 0;
  if (here < 0 || KT_usLongueurFichier(stream, &length) != KT_OK) return 0;
  return length > static_cast<std::uint32_t>(here) ? length - static_cast<std::uint32_t>(here) : 0;
}

// The 16-bit units are moved through a small byte buffer, high byte first.
constexpr std::uint32_t kUnitChunk = 256;

}  // namespace

bool PackDecimal(double value, PackedDecimal& packed) noexcept {
  if (!std::isfinite(value)) return false;
  const int exponent =
      value != 0.0 ? static_cast<int>(std::floor(std::log10(std::fabs(value)))) : -1;
  const int integer_digits = exponent >= 0 ? exponent + 1 : 1;
  if (integer_digits > kDecimalDigits) return false;

  // At most a sign, 15 digits after a rounding carry and a point; the rest
  // stays zero, which reads as the digit 0.
  std::array<char, 32> text{};
  const std::to_chars_result printed =
      std::to_chars(text.data(), text.data() + text.size() - 2, value, std::chars_format::fixed,
                    kDecimalDigits - integer_digits);
  char* end = printed.ptr;
  if (integer_digits == kDecimalDigits) *end = '.';  // "%.0f" prints no point

  const char* digits = text.data();
  std::uint8_t sign = 0;
  if (*digits == '-') {
    sign = 1;
    ++digits;
  }
  auto nibble = [](char c) -> std::uint8_t {
    if (c == '.') return kPointNibble;
    return c >= '0' && c <= '9' ? static_cast<std::uint8_t>(c - '0') : 0;
  };
  packed[0] = static_cast<std::uint8_t>((sign << 4) | nibble(digits[0]));
  // Characters past the 15th (a rounding carry, as 9.99999999999999 printing
  // 10.0000000000000) are dropped.
  for (std::size_t i = 1; i < packed.size(); ++i) {
    packed[i] = static_cast<std::uint8_t>((nibble(digits[2 * i - 1]) << 4) | nibble(digits[2 * i]));
  }
  return true;
}

double UnpackDecimal(const PackedDecimal& packed) noexcept {
  std::array<char, 20> text{};
  std::size_t length = 0;
  if (packed[0] >= 16) text[length++] = '-';
  text[length++] = static_cast<char>('0' + (packed[0] & 0x0F));
  for (std::size_t i = 1; i < packed.size(); ++i) {
    for (const int nib : {packed[i] >> 4, packed[i] & 0x0F}) {
      text[length++] = nib == kPointNibble ? '.' : static_cast<char>('0' + nib);
    }
  }
  if (text[length - 1] == '.') --length;
  // Parsing stops at the first character that cannot continue a number, as
  // the C conversion does; no number at all gives 0.
  double value = 0.0;
  if (std::from_chars(text.data(), text.data() + length, value).ec != std::errc{}) value = 0.0;
  return value;
}

}  // namespace kt::binfiles

using kt::binfiles::CallTrace;
using kt::binfiles::CountOrder;
using namespace kt::traces;

uint16_t KT_usEcrireUnsignedChar(uint16_t usNumFichier, uint8_t ucValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  return us = kt::binfiles::WriteBigEndian<1>(usNumFichier, ucValeur, CountOrder::kBeforeWrite);
}

uint16_t KT_usEcrireSignedChar(uint16_t usNumFichier, int8_t cValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  return KT_usEcrireUnsignedChar(usNumFichier, static_cast<uint8_t>(cValeur));
}

uint16_t KT_usEcrireUnsignedShort(uint16_t usNumFichier, uint16_t usValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  return us = kt::binfiles::WriteBigEndian<2>(usNumFichier, usValeur, CountOrder::kAfterWrite);
}

uint16_t KT_usEcrireSignedShort(uint16_t usNumFichier, int16_t sValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  return KT_usEcrireUnsignedShort(usNumFichier, static_cast<uint16_t>(sValeur));
}

uint16_t KT_usEcrireUnsignedLong(uint16_t usNumFichier, uint32_t ulValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  return us = kt::binfiles::WriteBigEndian<4>(usNumFichier, ulValeur, CountOrder::kAfterWrite);
}

uint16_t KT_usEcrireSignedLong(uint16_t usNumFichier, int32_t lValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  return KT_usEcrireUnsignedLong(usNumFichier, static_cast<uint32_t>(lValeur));
}

uint16_t KT_usEcrireDouble(uint16_t usNumFichier, double dValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  // Only the lookup: the double does not check the mode (kept).
  us = usRechercherFichier(usNumFichier, &file);
  if (us != KT_OK) return us;
  kt::binfiles::PackedDecimal packed{};
  if (!kt::binfiles::PackDecimal(dValeur, packed)) return us = KT_FAIL(KT_ERR_FICHIER);
  file->ulCompteurOctets += packed.size();
  if (kt::io::Write(packed.data(), 1, packed.size(), file->pfFichier) != packed.size()) {
    us = KT_FAIL(KT_ERR_FICHIER);
  }
  return us;
}

uint16_t KT_usEcrireDate(uint16_t usNumFichier, uint16_t usAnnee, uint8_t ucMois, uint8_t ucJour) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindForWriting(usNumFichier, &file);
  if (us == KT_OK) us = KT_usEcrireUnsignedShort(usNumFichier, usAnnee);
  if (us == KT_OK) us = KT_usEcrireUnsignedChar(usNumFichier, ucMois);
  if (us == KT_OK) us = KT_usEcrireUnsignedChar(usNumFichier, ucJour);
  return us;
}

uint16_t KT_usEcrireChampFixe(uint16_t usNumFichier, const uint8_t* pucOctets, uint32_t ulNombre) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindForWriting(usNumFichier, &file);
  if (us != KT_OK) return us;
  if (pucOctets == nullptr && ulNombre != 0) return us = KT_FAIL(KT_ERR_ARGUMENT);
  if (ulNombre != 0 && kt::io::Write(pucOctets, 1, ulNombre, file->pfFichier) != ulNombre) {
    return us = KT_FAIL(KT_ERR_FICHIER);  // counter unchanged
  }
  file->ulCompteurOctets += ulNombre;
  return us;
}

uint16_t KT_usEcrireChampUnicodeFixe(uint16_t usNumFichier, const uint16_t* pusUnites,
                                     uint32_t ulNombre) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindForWriting(usNumFichier, &file);
  if (us != KT_OK) return us;
  if (pusUnites == nullptr && ulNombre != 0) return us = KT_FAIL(KT_ERR_ARGUMENT);
  std::array<uint8_t, 2 * kt::binfiles::kUnitChunk> bytes;
  for (uint32_t done = 0; done < ulNombre;) {
    const uint32_t chunk = std::min(ulNombre - done, kt::binfiles::kUnitChunk);
    for (uint32_t i = 0; i < chunk; ++i) kt::StoreBigEndian16(&bytes[2 * i], pusUnites[done + i]);
    if (kt::io::Write(bytes.data(), 2, chunk, file->pfFichier) != chunk) {
      return us = KT_FAIL(KT_ERR_FICHIER);  // counter unchanged
    }
    done += chunk;
  }
  file->ulCompteurOctets += 2 * ulNombre;
  return us;
}

uint16_t KT_usEcrireChaineVariable(uint16_t usNumFichier, const char* pcTexte) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  if (pcTexte == nullptr) {
    // Reads back as the empty text.
    constexpr uint8_t kEmpty = 0;
    return us = KT_usEcrireChampFixe(usNumFichier, &kEmpty, 1);
  }
  const auto length = static_cast<uint32_t>(std::strlen(pcTexte));
  std::array<uint8_t, 5> prefix{};
  us = KT_usEcrireChampFixe(usNumFichier, prefix.data(), stCoderLongueur(length, prefix.data(), 0));
  if (us == KT_OK) {
    us = KT_usEcrireChampFixe(usNumFichier, reinterpret_cast<const uint8_t*>(pcTexte), length);
  }
  return us;
}

uint16_t KT_usLireUnsignedChar(uint16_t usNumFichier, uint8_t* pucValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  uint32_t value = 0;
  us = kt::binfiles::ReadBigEndian<1>(usNumFichier, pucValeur != nullptr ? &value : nullptr);
  if (us == KT_OK) *pucValeur = static_cast<uint8_t>(value);
  return us;
}

uint16_t KT_usLireSignedChar(uint16_t usNumFichier, int8_t* pcValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint8_t bits = 0;
  const uint16_t us = KT_usLireUnsignedChar(usNumFichier, pcValeur != nullptr ? &bits : nullptr);
  if (us == KT_OK) *pcValeur = static_cast<int8_t>(bits);
  return us;
}

uint16_t KT_usLireUnsignedShort(uint16_t usNumFichier, uint16_t* pusValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  uint32_t value = 0;
  us = kt::binfiles::ReadBigEndian<2>(usNumFichier, pusValeur != nullptr ? &value : nullptr);
  if (us == KT_OK) *pusValeur = static_cast<uint16_t>(value);
  return us;
}

uint16_t KT_usLireSignedShort(uint16_t usNumFichier, int16_t* psValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t bits = 0;
  const uint16_t us = KT_usLireUnsignedShort(usNumFichier, psValeur != nullptr ? &bits : nullptr);
  if (us == KT_OK) *psValeur = static_cast<int16_t>(bits);
  return us;
}

uint16_t KT_usLireUnsignedLong(uint16_t usNumFichier, uint32_t* pulValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  return us = kt::binfiles::ReadBigEndian<4>(usNumFichier, pulValeur);
}

uint16_t KT_usLireSignedLong(uint16_t usNumFichier, int32_t* plValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint32_t bits = 0;
  const uint16_t us = KT_usLireUnsignedLong(usNumFichier, plValeur != nullptr ? &bits : nullptr);
  if (us == KT_OK) *plValeur = static_cast<int32_t>(bits);
  return us;
}

uint16_t KT_usLireDouble(uint16_t usNumFichier, double* pdValeur) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindFile(usNumFichier, &file, pdValeur != nullptr);
  if (us != KT_OK) return us;
  if (kt::io::Tell(file->pfFichier) < 0) return us = KT_FAIL(KT_ERR_FIN_FICHIER);
  kt::binfiles::PackedDecimal packed{};
  if (kt::io::Read(packed.data(), 1, packed.size(), file->pfFichier) != packed.size() ||
      kt::io::Error(file->pfFichier)) {
    return us = KT_FAIL(KT_ERR_FIN_FICHIER);
  }
  *pdValeur = kt::binfiles::UnpackDecimal(packed);
  return us;
}

uint16_t KT_usLireDate(uint16_t usNumFichier, uint16_t* pusAnnee, uint8_t* pucMois,
                       uint8_t* pucJour) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  us = KT_usLireUnsignedShort(usNumFichier, pusAnnee);
  if (us == KT_OK) us = KT_usLireUnsignedChar(usNumFichier, pucMois);
  if (us == KT_OK) us = KT_usLireUnsignedChar(usNumFichier, pucJour);
  return us;
}

uint16_t KT_usLireChampFixe(uint16_t usNumFichier, uint8_t* pucBuffer, uint32_t ulNombre) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  return us = kt::binfiles::ReadBlock(usNumFichier, pucBuffer, ulNombre, ulNombre);
}

uint16_t KT_usLireChampUnicodeFixe(uint16_t usNumFichier, uint16_t* pusUnites, uint32_t ulNombre) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindFile(usNumFichier, &file, pusUnites != nullptr || ulNombre == 0);
  if (us != KT_OK) return us;
  if (kt::io::Tell(file->pfFichier) < 0) return us = KT_FAIL(KT_ERR_FIN_FICHIER);
  std::array<uint8_t, 2 * kt::binfiles::kUnitChunk> bytes;
  uint32_t done = 0;
  while (done < ulNombre) {
    const uint32_t chunk = std::min(ulNombre - done, kt::binfiles::kUnitChunk);
    const std::size_t got = kt::io::Read(bytes.data(), 2, chunk, file->pfFichier);
    for (std::size_t i = 0; i < got; ++i) pusUnites[done + i] = kt::LoadBigEndian16(&bytes[2 * i]);
    done += static_cast<uint32_t>(got);
    if (got != chunk) break;
  }
  if (done != ulNombre) {
    us = KT_FAIL(KT_ERR_FIN_FICHIER);
    KT_TRACE(kTraceError, "KT_usLireChampUnicodeFixe : Fin de fichier lu %d a liree %d usCr %d",
             static_cast<int>(done), static_cast<int>(ulNombre), us);
  }
  return us;
}

uint16_t KT_usLireChaineVariable(uint16_t usNumFichier, char** ppcTexte) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindFile(usNumFichier, &file, ppcTexte != nullptr);
  if (us != KT_OK) return us;
  *ppcTexte = nullptr;

  // The prefix is decoded here with unsigned bytes (not usDecoderLongueur).
  // End of file on the first byte makes the length 0xFFFFFFFF and the block
  // 0 bytes long, so that the read below fails (kept).
  const int first = kt::io::GetChar(file->pfFichier);
  uint32_t length = static_cast<uint32_t>(first);
  if (first > 0x80) {
    const uint32_t n = static_cast<uint32_t>(first) - 0x80U;
    if (n >= 5) {
      KT_TRACE(kTraceError,
               "KT_usLireChaineVariable : Nombre d'octets pour coder la longueur (%u) > %d.", n, 4);
      return us = KT_FAIL(KT_ERR_ARGUMENT);
    }
    length = 0;
    // A prefix cut by the end of the file ends early, without an error.
    for (uint32_t i = 0; i < n; ++i) {
      const int byte = kt::io::GetChar(file->pfFichier);
      if (byte == EOF) break;
      length = length * 256U + static_cast<uint32_t>(byte);
    }
  }
  uint32_t block_size = length + 1;  // 0 after the wrap above
  if (length >= kt::binfiles::kLongString) {
    block_size = std::min(block_size - 1, kt::binfiles::BytesLeft(file->pfFichier)) + 1;
  }
  auto* text = static_cast<char*>(KT_Allouer(block_size));
  // The one check added to the reader: a null block cannot be filled.
  if (text == nullptr) return us = KT_FAIL(KT_ERR_MEMOIRE);
  *ppcTexte = text;
  // The block is handed out after a failed read too, unterminated.
  const uint32_t capacity = block_size == 0 ? 0 : block_size - 1;
  us = kt::binfiles::ReadBlock(usNumFichier, reinterpret_cast<uint8_t*>(text), capacity, length);
  if (us == KT_OK) text[length] = '\0';
  return us;
}
