#include "tools/kt/status_text.h"

#include <array>
#include <cstdio>

#include "kt_crypto.h"
#include "kt_frame.h"

namespace kt::tool {
namespace {

struct Meaning {
  std::uint32_t code;
  const char* words;
};

// One line per status of the library; keep it beside kt_frame.h's list.
constexpr std::array kStatusMeanings = {
    Meaning{KT_OK, "success"},
    // What a bare failure means depends on the call: callers that can meet it
    // say so through StatusText(status, meaning).
    Meaning{KT_ECHEC, "failure"},
    Meaning{KT_ERR_TRACE_SOUS_MODULE, "trace sub-module outside 1..8"},
    Meaning{KT_ERR_TRACE_OUVERTURE, "the trace file cannot be opened"},
    Meaning{KT_ERR_TRACE_PLEINE, "trace table full"},
    Meaning{KT_ERR_FICHIER, "a file operation failed"},
    Meaning{KT_ERR_VERSION, "the tables file's versions do not fit the library's 0100"},
    Meaning{KT_ERR_CONTROLE, "CRC mismatch or signature not valid"},
    Meaning{KT_ERR_FIN_FICHIER, "end of file or read error in a binary file, or a foreign table"},
    Meaning{KT_ERR_NOM_FICHIER, "the name in the file's header differs from the file's name"},
    Meaning{KT_ERR_REP_TABLES, "no tables directory (repertoiretable) configured"},
    Meaning{KT_ERR_REP_TRAVAIL, "no working directory (repertoiretravail) configured"},
    Meaning{KT_ERR_FICHIER_VERSION, "a component version file cannot be named or created"},
    Meaning{KT_ERR_POINTEUR_NUL, "null file number or header pointer"},
    Meaning{KT_ERR_MEMOIRE, "out of memory, no free zone, or a null output"},
    Meaning{KT_ERR_ARGUMENT, "bad argument"},
    Meaning{KT_ERR_PLACE_ZONE, "not enough room in the zone"},
    Meaning{KT_ERR_FIN, "end reached or not found"},
    Meaning{KT_ERR_OCCURRENCE, "the group is present fewer times than asked"},
    Meaning{KT_ERR_NUMERO_INCONNU, "unknown zone or file number"},
    Meaning{KT_ERR_PLUS_DE_FICHIER, "no free binary file number"},
    Meaning{KT_ERR_CODAGE_ZONE, "badly coded zone"},
    Meaning{KT_ERR_MODE, "wrong mode or wrong kind of zone"},
    Meaning{KT_ERR_BUFFER_TRAVAIL, "working buffer not allocated"},
    Meaning{KT_ERR_POSITION, "position outside the current field, or growth refused"},
    Meaning{KT_ERR_RETOUR_POSITION, "the seek back failed"},
};

constexpr std::array kToolkitMeanings = {
    Meaning{KT_RE_OK, "success"},
    Meaning{KT_RE_CONTENT_ENCODING, "content not in printable form"},
    Meaning{KT_RE_DATA, "bad data: number not below the modulus, malformed block, no prime"},
    Meaning{KT_RE_DIGEST_ALGORITHM, "unknown digest algorithm"},
    Meaning{KT_RE_ENCODING, "printable block of bad length or character"},
    Meaning{KT_RE_CONTENT, "envelope content cannot be opened"},
    Meaning{KT_RE_KEY_ENCODING, "encrypted key too long or not printable"},
    Meaning{KT_RE_LEN, "length error"},
    Meaning{KT_RE_MODULUS_LEN, "modulus length outside 508..1024 bits"},
    Meaning{KT_RE_NEED_RANDOM, "random generator not seeded"},
    Meaning{KT_RE_PRIVATE_KEY, "private-key operation failed"},
    Meaning{KT_RE_PUBLIC_KEY, "public-key operation failed"},
    Meaning{KT_RE_SIGNATURE, "signature does not match"},
    Meaning{KT_RE_SIGNATURE_ENCODING, "signature too long or not printable"},
    Meaning{KT_RE_ENCRYPTION_ALGORITHM, "unknown content-encryption algorithm"},
};

template <std::size_t N>
const char* Lookup(const std::array<Meaning, N>& table, std::uint32_t code) {
  for (const Meaning& meaning : table) {
    if (meaning.code == code) return meaning.words;
  }
  return nullptr;
}

std::string Hex(std::uint32_t code, int digits) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%0*X", digits, static_cast<unsigned>(code));
  return text;
}

}  // namespace

FormatCode DecodeFormatCode(std::uint16_t status) {
  // The families sit side by side: 0x9000-0x9FFF, 0xA000-0xA7FF, 0xA800-0xAFFF.
  // A position past its family's room (4096 fields, 2048 groups) wraps into
  // the next family; zones that large are not met in practice.
  if (status > KT_FORMAT_CHAMP && status < KT_FORMAT_GROUPE) {
    return {FormatCode::Kind::kField, static_cast<std::uint16_t>(status - KT_FORMAT_CHAMP)};
  }
  if (status > KT_FORMAT_GROUPE && status < KT_FORMAT_NB_CHAMPS) {
    return {FormatCode::Kind::kGroup, static_cast<std::uint16_t>(status - KT_FORMAT_GROUPE)};
  }
  if (status > KT_FORMAT_NB_CHAMPS && status < KT_FORMAT_NB_CHAMPS + 0x800) {
    return {FormatCode::Kind::kFieldCount,
            static_cast<std::uint16_t>(status - KT_FORMAT_NB_CHAMPS)};
  }
  return {};
}

std::string StatusText(std::uint16_t status) {
  const std::string code = Hex(status, 4);
  if (const char* words = Lookup(kStatusMeanings, status)) return code + " (" + words + ")";
  const FormatCode format = DecodeFormatCode(status);
  const std::string position = std::to_string(format.position);
  switch (format.kind) {
    case FormatCode::Kind::kField:
      return code + " (the field of rank " + position + " fails format control)";
    case FormatCode::Kind::kGroup:
      return code + " (group " + position + " is not in the dictionary)";
    case FormatCode::Kind::kFieldCount:
      return code + " (group " + position + " holds more or fewer fields than listed)";
    case FormatCode::Kind::kNone:
      break;
  }
  // The toolkit's codes come through unchanged from message verification.
  if (const char* words = Lookup(kToolkitMeanings, status)) return code + " (" + words + ")";
  return code + " (unknown status)";
}

std::string StatusText(std::uint16_t status, const char* failure_meaning) {
  if (status == KT_ECHEC) return Hex(status, 4) + " (" + failure_meaning + ")";
  return StatusText(status);
}

std::string ToolkitStatusText(std::uint32_t status) {
  const char* words = Lookup(kToolkitMeanings, status);
  return Hex(status, 4) + " (" + (words != nullptr ? words : "unknown status") + ")";
}

}  // namespace kt::tool
