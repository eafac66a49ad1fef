// The header line of a binary table file, the file coder of lengths and the
// hexadecimal digits of the CRC field.
//
// Header line, byte by byte (n = the comment's length):
//
//   0     "0000" (CRC16_FICTIF), the CRC of a type-1 file once closed
//   4     ' '
//   5     name, 12 bytes, space-padded         17  ' '
//   18    version, 4                           22  ' '
//   23    field 3, 5                           28  ' '
//   29    field 4, 8                           37  ' '
//   38    required version, 4                  42  ' '
//   43    field 6, 5                           48  ' '
//   49    field 7, 10                          59  ' '
//   60    comment, n bytes
//   60+n  0x0D 0x0A 0x1A (the last stops a console at the header)
//   63+n  the first table
//
// In the header record the same fields sit at fixed offsets with a NUL each
// (KT_ENTETE_... in kt_binfiles.h). Everything after the CRC field is
// written with the typed writers, so the slot's byte counter sees it.
//
// Coded lengths of the file (in front of variable strings):
//
//   0 .. 127              L
//   128 .. 255            0x81 L
//   256 .. 65 535         0x82 L L
//   65 536 .. 16 777 215  0x83 L L L
//   16 777 216 and above  0x84 L L L L
//
// The memory zones widen one value earlier (at 255, 65 535, 16 777 215):
// the two coders are separate on purpose.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "binfiles/binfiles_internal.h"
#include "frame/frame_internal.h"
#include "traces/traces_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 7;  // dictionary and binary table files

// Fields 2 to 7 of the header record: where they sit in the record and how
// many characters the header line gives them.
struct HeaderField {
  std::uint32_t offset;
  std::uint32_t width;
};
constexpr std::array<HeaderField, 6> kHeaderFields{{
    {KT_ENTETE_VERSION, 4},
    {KT_ENTETE_CHAMP3, 5},
    {KT_ENTETE_CHAMP4, 8},
    {KT_ENTETE_VERSION_REQUISE, 4},
    {KT_ENTETE_CHAMP6, 5},
    {KT_ENTETE_CHAMP7, 10},
}};

constexpr std::uint8_t kSpace = ' ';
constexpr std::uint8_t kCarriageReturn = 0x0D;
constexpr std::uint8_t kLineFeed = 0x0A;
constexpr std::uint8_t kEndOfText = 0x1A;

// Reads `count` bytes of which the first `keep` go to `buffer`; the rest are
// read and dropped. False on a short read or a stream error.
bool ReadKeeping(std::FILE* stream, char* buffer, std::uint32_t keep, std::uint32_t count) {
  std::array<char, 512> scratch;
  for (std::uint32_t done = 0; done < count;) {
    const bool kept = done < keep;
    const std::uint32_t chunk =
        kept ? keep - done : std::min<std::uint32_t>(count - done, scratch.size());
    if (kt::io::Read(kept ? buffer + done : scratch.data(), 1, chunk, stream) != chunk) {
      return false;
    }
    done += chunk;
  }
  return !kt::io::Error(stream);
}

}  // namespace

// The header record's offsets are what callers index the block with.
static_assert(sizeof(EnteteFichier) == KT_TAILLE_ENTETE_FICHIER, "header record is 256 bytes");
static_assert(offsetof(EnteteFichier, cVersion) == KT_ENTETE_VERSION);
static_assert(offsetof(EnteteFichier, cChamp3) == KT_ENTETE_CHAMP3);
static_assert(offsetof(EnteteFichier, cChamp4) == KT_ENTETE_CHAMP4);
static_assert(offsetof(EnteteFichier, cVersionRequise) == KT_ENTETE_VERSION_REQUISE);
static_assert(offsetof(EnteteFichier, cChamp6) == KT_ENTETE_CHAMP6);
static_assert(offsetof(EnteteFichier, cChamp7) == KT_ENTETE_CHAMP7);
static_assert(offsetof(EnteteFichier, cCommentaire) == KT_ENTETE_COMMENTAIRE);

using kt::binfiles::CallTrace;
using namespace kt::traces;

const char CRC16_FICTIF[5] = "0000";

uint16_t usEcrireEnteteFichierBinaire(uint16_t usNumFichier, const char* pcEntete) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindFile(usNumFichier, &file, pcEntete != nullptr);
  if (us != KT_OK) return us;

  // Both messages carry the lookup's name (kept as they are).
  if (kt::io::Seek(file->pfFichier, 0L, SEEK_SET) != 0) {
    KT_TRACE(kTraceError, "usRechercherFichier : probleme de positionnement en debut de fichier");
    return us = KT_FAIL(KT_ERR_FICHIER);
  }
  if (kt::io::Printf(file->pfFichier, "%s ", CRC16_FICTIF) < 0) {
    KT_TRACE(kTraceError, "usRechercherFichier : probleme d'ecriture dans le fichier");
    return us = KT_FAIL(KT_ERR_FICHIER);
  }

  const char* name = pcEntete + KT_ENTETE_NOM;
  const auto name_length = static_cast<uint32_t>(strnlen(name, kt::binfiles::kNameFieldWidth));
  us = KT_usEcrireChampFixe(usNumFichier, reinterpret_cast<const uint8_t*>(name), name_length);
  for (uint32_t i = name_length; i < kt::binfiles::kNameFieldWidth && us == KT_OK; ++i) {
    us = KT_usEcrireUnsignedChar(usNumFichier, kSpace);
  }
  for (const HeaderField& field : kHeaderFields) {
    if (us == KT_OK) us = KT_usEcrireUnsignedChar(usNumFichier, kSpace);
    if (us == KT_OK) {
      us = KT_usEcrireChampFixe(
          usNumFichier, reinterpret_cast<const uint8_t*>(pcEntete + field.offset), field.width);
    }
  }
  if (us == KT_OK) us = KT_usEcrireUnsignedChar(usNumFichier, kSpace);
  if (us == KT_OK) {
    const char* comment = pcEntete + KT_ENTETE_COMMENTAIRE;
    us = KT_usEcrireChampFixe(usNumFichier, reinterpret_cast<const uint8_t*>(comment),
                              static_cast<uint32_t>(std::strlen(comment)));
  }
  for (const uint8_t end : {kCarriageReturn, kLineFeed, kEndOfText}) {
    if (us == KT_OK) us = KT_usEcrireUnsignedChar(usNumFichier, end);
  }
  return us;
}

uint16_t usLireEnteteFichierBinaire(uint16_t usNumFichier, char* pcEntete) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindFile(usNumFichier, &file, pcEntete != nullptr);
  if (us != KT_OK) return us;

  if (kt::io::Seek(file->pfFichier, kt::binfiles::kNameFieldOffset, SEEK_SET) != 0) {
    KT_TRACE(kTraceError, "usRechercherFichier : probleme de positionnement en debut de fichier");
    return us = KT_FAIL(KT_ERR_FICHIER);
  }
  char* name = pcEntete + KT_ENTETE_NOM;
  us = KT_usLireChampFixe(usNumFichier, reinterpret_cast<uint8_t*>(name),
                          kt::binfiles::kNameFieldWidth);
  name[kt::binfiles::kNameFieldWidth] = '\0';
  if (us == KT_OK) kt::binfiles::StripTrailingSpaces(name, kt::binfiles::kNameFieldWidth);

  // Separators are read and dropped without being checked.
  uint8_t separator = 0;
  for (const HeaderField& field : kHeaderFields) {
    if (us == KT_OK) us = KT_usLireUnsignedChar(usNumFichier, &separator);
    if (us == KT_OK) {
      us = KT_usLireChampFixe(usNumFichier, reinterpret_cast<uint8_t*>(pcEntete + field.offset),
                              field.width);
      pcEntete[field.offset + field.width] = '\0';
    }
  }
  if (us == KT_OK) us = KT_usLireUnsignedChar(usNumFichier, &separator);
  if (us == KT_OK) us = usLireCommentaire(usNumFichier, pcEntete + KT_ENTETE_COMMENTAIRE);
  // Passes over the line feed and the end-of-text mark; after an empty
  // comment the line feed is already read and this skips the first body
  // byte too (kept: writers always give a comment).
  if (us == KT_OK && kt::io::Seek(file->pfFichier, 2L, SEEK_CUR) != 0) {
    KT_TRACE(kTraceError, "usLireEnteteFichierBinaire : en fin d'entete");
    us = KT_FAIL(KT_ERR_FIN_FICHIER);
  }
  return us;
}

uint16_t usLireCommentaire(uint16_t usNumFichier, char* pcCommentaire) {
  const kt::frame::SlotGuard guard{kt::binfiles::FileLock(usNumFichier)};
  uint16_t us = KT_OK;
  CallTrace trace{__func__, usNumFichier, &us};
  FichierBinaire* file = nullptr;
  us = kt::binfiles::FindFile(usNumFichier, &file, pcCommentaire != nullptr);
  if (us != KT_OK) return us;

  std::FILE* stream = file->pfFichier;
  const kt::io::Offset start = kt::io::Tell(stream);
  if (start < 0) return us = KT_FAIL(KT_ERR_FIN_FICHIER);
  uint32_t count = 0;
  for (int c = kt::io::GetChar(stream); c != kCarriageReturn; c = kt::io::GetChar(stream)) {
    if (c == EOF) return us = KT_FAIL(KT_ERR_FIN_FICHIER);
    ++count;
  }
  // With no character counted there is no seek back, so the byte read
  // below is the one after the carriage return (kept).
  if (count > 0 && kt::io::Seek(stream, start, SEEK_SET) != 0) {
    return us = KT_FAIL(KT_ERR_FIN_FICHIER);
  }
  // The comment and its carriage return are read; the header record has
  // room for KT_TAILLE_COMMENTAIRE characters, so a longer comment is cut
  // there rather than written past the caller's block.
  const uint32_t keep = std::min<uint32_t>(count + 1, KT_TAILLE_COMMENTAIRE + 1);
  if (!ReadKeeping(stream, pcCommentaire, keep, count + 1)) return us = KT_FAIL(KT_ERR_FIN_FICHIER);
  pcCommentaire[keep - 1] = '\0';
  return us;
}

uint16_t usConvertirHexa(char cCaractere) {
  if (cCaractere >= '0' && cCaractere <= '9') return static_cast<uint16_t>(cCaractere - '0');
  if (cCaractere >= 'A' && cCaractere <= 'F') return static_cast<uint16_t>(cCaractere - 'A' + 10);
  if (cCaractere >= 'a' && cCaractere <= 'f') return static_cast<uint16_t>(cCaractere - 'a' + 10);
  return KT_ERR_RETOUR_POSITION;  // not a digit: the value 0xFFFF
}

uint32_t stCoderLongueur(uint32_t ulLongueur, uint8_t* pucBuffer, uint32_t ulIndex) {
  uint8_t* out = pucBuffer + ulIndex;
  uint32_t value_bytes = 0;
  if (ulLongueur >= 16777216U) {
    value_bytes = 4;
  } else if (ulLongueur >= 65536U) {
    value_bytes = 3;
  } else if (ulLongueur >= 256U) {
    value_bytes = 2;
  } else if (ulLongueur >= 128U) {
    value_bytes = 1;
  } else {
    out[0] = static_cast<uint8_t>(ulLongueur);
    return 1;
  }
  out[0] = static_cast<uint8_t>(0x80U | value_bytes);
  for (uint32_t i = 0; i < value_bytes; ++i) {
    out[1 + i] = static_cast<uint8_t>(ulLongueur >> (8 * (value_bytes - 1 - i)));
  }
  return value_bytes + 1;
}

uint16_t usDecoderLongueur(const uint8_t* pucBuffer, uint32_t ulTailleBuffer, uint32_t ulIndex,
                           uint32_t* pulLongueur, uint32_t* pulNbOctets) {
  if (pucBuffer == nullptr || pulLongueur == nullptr || pulNbOctets == nullptr ||
      ulIndex >= ulTailleBuffer) {
    return KT_FAIL(KT_ERR_ARGUMENT);
  }
  const uint8_t first = pucBuffer[ulIndex];
  // 0x80 passes as the one-byte length 128, which the coder never writes
  // (kept: part of this routine's contract).
  if (first <= 0x80U) {
    *pulLongueur = first;
    *pulNbOctets = 1;
    return KT_OK;
  }
  const uint32_t n = first & 0x7FU;
  if (n > 4 || std::uint64_t{ulIndex} + n >= ulTailleBuffer) return KT_FAIL(KT_ERR_ARGUMENT);
  // Each length byte counts as a signed value, and the count given back is
  // n, not n + 1: both are kept, callers of this routine rely on them.
  uint32_t length = 0;
  for (uint32_t i = 1; i <= n; ++i) {
    length = length * 256U + static_cast<uint32_t>(
                                 static_cast<int32_t>(static_cast<int8_t>(pucBuffer[ulIndex + i])));
  }
  *pulLongueur = length;
  *pulNbOctets = n;
  return KT_OK;
}
