// Dates as digit strings of 6 (YYMMDD), 8 (YYYYMMDD) and 12 (YYYYMMDDHHMM)
// characters, told apart by their length alone, and as numbers: checks and
// conversions between the two.
#include <cstdio>
#include <cstring>

#include "checks/checks_internal.h"
#include "kt_checks.h"
#include "traces/traces_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 6;  // date and string checks
}  // namespace

namespace kt::checks {
namespace {

constexpr std::uint16_t kMaxYear = 9999;

// Days of each month of a common year; index 0 is January.
constexpr std::uint8_t kDaysInMonth[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

bool IsLeapYear(std::uint16_t year) {
  return year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
}

bool IsValidDay(std::uint16_t year, std::uint8_t month, std::uint8_t day) {
  if (year > kMaxYear || month < 1 || month > 12 || day < 1) return false;
  const unsigned last = kDaysInMonth[month - 1] + (month == 2 && IsLeapYear(year) ? 1 : 0);
  return day <= last;
}

// The value of `count` digits from `text`, by n = n * 10 + digit.
unsigned DigitsValue(const char* text, int count) {
  unsigned n = 0;
  for (int i = 0; i < count; ++i) n = n * 10 + static_cast<unsigned>(text[i] - '0');
  return n;
}

// Whether the first `count` characters are digits; stops at the terminator.
bool LeadingDigits(const char* text, int count) {
  for (int i = 0; i < count; ++i) {
    if (!IsDigit(text[i])) return false;
  }
  return true;
}

struct DateFields {
  std::uint16_t year;
  std::uint8_t month;
  std::uint8_t day;
};

// Year of `year_digits` digits, then month and day of two digits each.
DateFields ReadDate(const char* text, int year_digits) {
  return {static_cast<std::uint16_t>(DigitsValue(text, year_digits)),
          static_cast<std::uint8_t>(DigitsValue(text + year_digits, 2)),
          static_cast<std::uint8_t>(DigitsValue(text + year_digits + 2, 2))};
}

std::uint8_t Finish(std::uint8_t result) {
  KT_TRACE(kt::traces::kTraceInfo, "bResultat = 0x%04x", static_cast<unsigned>(result));
  return result;
}

std::uint8_t FinishValidity(std::uint8_t result) {
  KT_TRACE(kt::traces::kTraceInfo, result != 0 ? "Date valide" : "Date invalide");
  return Finish(result);
}

// The check of a date text of 6, 8 or 12 characters: all digits, then a
// valid date (and time). The 6-character form takes its two digits as the
// year itself, with no century added.
std::uint8_t CheckDateText(const char* text, int length, const char* entry_name,
                           const char* exit_name) {
  KT_TRACE(kt::traces::kTraceEnter, "%s", entry_name);
  std::uint8_t result = 0;
  if (text != nullptr && LeadingDigits(text, length)) {
    const DateFields date = ReadDate(text, length == 6 ? 2 : 4);
    std::uint8_t hour = 0;
    std::uint8_t minute = 0;
    if (length == 8) {
      KT_TRACE(kt::traces::kTraceInfo, "date = %02u/%02u/%04u", unsigned{date.day},
               unsigned{date.month}, unsigned{date.year});
    } else if (length == 12) {
      KT_TRACE(kt::traces::kTraceInfo, "date = %u/%u/%u", unsigned{date.day},
               unsigned{date.month}, unsigned{date.year});
      hour = static_cast<std::uint8_t>(DigitsValue(text + 8, 2));
      minute = static_cast<std::uint8_t>(DigitsValue(text + 10, 2));
      KT_TRACE(kt::traces::kTraceInfo, "heure = %u:%u", unsigned{hour}, unsigned{minute});
    }
    result = bOUTILSEstDateValide(date.year, date.month, date.day, hour, minute);
  }
  Finish(result);
  KT_TRACE(kt::traces::kTraceExit, "%s", exit_name);
  return result;
}

}  // namespace
}  // namespace kt::checks

using namespace kt::traces;
using kt::checks::DateFields;

uint8_t bOUTILSEstDateValide(uint16_t usAnnee, uint8_t ucMois, uint8_t ucJour, uint8_t ucHeure,
                             uint8_t ucMinute) {
  KT_TRACE(kTraceEnter, "bOUTILSEstDateValide");
  KT_TRACE(kTraceInfo, "date = %02u/%02u/%04u, %02u:%02u", unsigned{ucJour}, unsigned{ucMois},
           unsigned{usAnnee}, unsigned{ucHeure}, unsigned{ucMinute});
  // The time counts only once the date holds.
  const bool valid = kt::checks::IsValidDay(usAnnee, ucMois, ucJour) && ucHeure <= 23 &&
                     ucMinute <= 59;
  const uint8_t result = kt::checks::FinishValidity(valid ? 1 : 0);
  KT_TRACE(kTraceExit, "bOUTILSEstDateValide");
  return result;
}

uint8_t KT_bEstDateNumeriqueValide(uint16_t usAnnee, uint8_t ucMois, uint8_t ucJour) {
  KT_TRACE(kTraceEnter, "KT_bEstDateNumeriqueValide");
  KT_TRACE(kTraceInfo, "date = %02u/%02u/%04u", unsigned{ucJour}, unsigned{ucMois},
           unsigned{usAnnee});
  const uint8_t result =
      kt::checks::FinishValidity(kt::checks::IsValidDay(usAnnee, ucMois, ucJour) ? 1 : 0);
  KT_TRACE(kTraceExit, "KT_bEstDateNumeriqueValide");
  return result;
}

uint8_t bOUTILSEstDate6(const char* pcDate) {
  return kt::checks::CheckDateText(pcDate, 6, "bOUTILSEstDate6", "bOUTILSEstDate6");
}

uint8_t bOUTILSEstDate8(const char* pcDate) {
  // Intended: the exit line names the 6-character check; traces are compared.
  return kt::checks::CheckDateText(pcDate, 8, "bOUTILSEstDate8", "bOUTILSEstDate6");
}

uint8_t bOUTILSEstDate12(const char* pcDate) {
  return kt::checks::CheckDateText(pcDate, 12, "bOUTILSEstDate12", "bOUTILSEstDate12");
}

uint8_t KT_bEstDateChaineValide(const char* pcDate) {
  KT_TRACE(kTraceEnter, "KT_bEstDateChaineValide");
  uint8_t result = 0;
  if (pcDate != nullptr) {
    const auto length = static_cast<uint16_t>(std::strlen(pcDate));
    KT_TRACE(kTraceInfo, "sLongueurDate= %u", unsigned{length});
    for (uint16_t i = 0; i < length; ++i) {
      // The character code as a signed char, printed unsigned as it always was.
      KT_TRACE(kTraceInfo, "pcDate[i]= %u",
               static_cast<unsigned>(static_cast<int>(static_cast<signed char>(pcDate[i]))));
    }
    switch (length) {
      case 6: result = bOUTILSEstDate6(pcDate); break;
      case 8: result = bOUTILSEstDate8(pcDate); break;
      case 12: result = bOUTILSEstDate12(pcDate); break;
      default: result = 1; break;  // intended: other lengths pass here
    }
  }
  KT_TRACE(kTraceExit, "KT_bEstDateChaineValide");
  return result;
}

uint8_t KT_bDateChaineANumerique(const char* pcDate, uint16_t* pusAnnee, uint8_t* pucMois,
                                 uint8_t* pucJour) {
  KT_TRACE(kTraceEnter, "KT_bDateChaineANumerique");
  uint8_t result = 0;
  if (pcDate != nullptr && pusAnnee != nullptr && pucMois != nullptr && pucJour != nullptr) {
    *pusAnnee = 0;
    result = KT_bEstDateChaineValide(pcDate);
    if (result != 0) {
      switch (std::strlen(pcDate)) {
        case 6: {
          const DateFields date = kt::checks::ReadDate(pcDate, 2);
          *pusAnnee = date.year;
          *pucMois = date.month;
          *pucJour = date.day;
          break;
        }
        case 8:
        case 12:
          // Intended: each year digit goes to its own 16-bit unit from
          // pusAnnee on, and month and day are not stored. Callers pass four
          // units, so these writes stay inside their array.
          for (int k = 0; k < 4; ++k) {
            pusAnnee[k] = static_cast<uint16_t>(pusAnnee[k] * 10 + (pcDate[k] - '0'));
          }
          break;
        default:
          result = 0;
          break;
      }
    }
  }
  kt::checks::FinishValidity(result);
  KT_TRACE(kTraceExit, "KT_bDateChaineANumerique");
  return result;
}

uint8_t KT_bDateNumeriqueAChaine(uint16_t usAnnee, uint8_t ucMois, uint8_t ucJour,
                                 uint8_t ucLongueur, char* pcDate) {
  KT_TRACE(kTraceEnter, "KT_bDateNumeriqueAChaine");
  (void)KT_bEstDateNumeriqueValide(usAnnee, ucMois, ucJour);  // result not used here
  uint8_t result = 0;
  if (pcDate != nullptr && (ucLongueur == 6 || ucLongueur == 8 || ucLongueur == 12)) {
    // Each field is printed at its place, its terminator overwritten by the
    // next one. Wide values run past ucLongueur characters, so the text is
    // built in a larger block and cut to ucLongueur characters.
    char text[32] = {};
    const int year = usAnnee;
    if (ucLongueur == 6) {
      // Intended: the year is not reduced modulo 100.
      std::snprintf(text, 8, "%02i", year);
      std::snprintf(text + 2, 8, "%02i", int{ucMois});
      std::snprintf(text + 4, 8, "%02i", int{ucJour});
    } else {
      std::snprintf(text, 8, "%04i", year);
      std::snprintf(text + 4, 8, "%02i", int{ucMois});
      std::snprintf(text + 6, 8, "%02i", int{ucJour});
      if (ucLongueur == 12) std::snprintf(text + 8, 8, "%04i", 0);
    }
    std::memcpy(pcDate, text, ucLongueur);
    pcDate[ucLongueur] = '\0';
    result = 1;
  }
  kt::checks::FinishValidity(result);
  KT_TRACE(kTraceExit, "KT_bDateNumeriqueAChaine");
  return result;
}
