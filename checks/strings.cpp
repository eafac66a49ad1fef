// Texts of the kinds that field values take (type codes 'N' numeric, 'A'
// alphanumeric, 'L' alphabetic, 'D' date): classifiers, the reducers that
// check a text by its type and keep its significant part, conversion of free
// text to the accepted alphabet, and comparison ignoring case.
#include <cctype>
#include <cstdio>
#include <cstring>

#include "checks/checks_internal.h"
#include "frame/frame_internal.h"
#include "kt_checks.h"
#include "traces/traces_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 6;  // date and string checks
}  // namespace

namespace kt::checks {
namespace {

using kt::traces::kTraceEnter;
using kt::traces::kTraceExit;
using kt::traces::kTraceInfo;

bool IsUpperLetter(char c) { return std::isupper(static_cast<unsigned char>(c)) != 0; }

// Runs the classifier `accept` over every character, with the traces that
// the three classifiers share.
template <class Accept>
std::uint8_t Classify(const char* name, const char* text, Accept accept) {
  KT_TRACE(kTraceEnter, "%s", name);
  bool valid = text != nullptr;
  for (const char* c = text; valid && *c != '\0'; ++c) valid = accept(*c);
  KT_TRACE(kTraceInfo, valid ? "chaine valide" : "chaine invalide");
  const std::uint8_t result = valid ? 1 : 0;
  KT_TRACE(kTraceInfo, "bResultat = 0x%04x", unsigned{result});
  KT_TRACE(kTraceExit, "%s", name);
  return result;
}

enum class Reduction {
  kNone,
  kTrailingBlanks,  // down to length 0
  kLeadingZeros,    // while more than one character remains
};

// The rule shared by the three reducers, by type code. Codes not listed
// pass without check or reduction.
struct TypeRule {
  char type;
  std::uint8_t (*check)(const char*);
  const char* check_trace;  // result line of the check
  Reduction reduction;
};

constexpr TypeRule kTypeRules[] = {
    {'D', &KT_bEstNumerique, "KT_bEstNumerique:bResultat = 0x%04x", Reduction::kNone},
    {'A', &KT_bEstAlphaNumerique, "KT_bEstAlphaNumerique:bResultat = 0x%04x",
     Reduction::kTrailingBlanks},
    {'L', &KT_bEstAlphabetique, "KT_bEstAlphabetique:bResultat = 0x%04x",
     Reduction::kTrailingBlanks},
    {'N', &KT_bEstNumerique, "KT_bEstNumerique:bResultat = 0x%04x", Reduction::kLeadingZeros},
};

// Which extras of the rule a reducer applies.
struct RuleOptions {
  bool drop_leading_zeros;  // 'N' is reduced by KT_bReduireChaine only
  bool date_text;           // 'D' must also be a valid date text
};

// The check's result and the significant part [start, end) of the text.
struct Outcome {
  std::uint8_t result;
  std::size_t start;
  std::size_t end;
};

Outcome ApplyRule(const char* text, char type, RuleOptions options) {
  Outcome outcome{1, 0, std::strlen(text)};
  const TypeRule* rule = nullptr;
  for (const TypeRule& r : kTypeRules) {
    if (r.type == type) rule = &r;
  }
  if (rule == nullptr) return outcome;
  outcome.result = rule->check(text);
  KT_TRACE(kTraceInfo, rule->check_trace, unsigned{outcome.result});
  if (outcome.result != 0 && options.date_text && type == 'D') {
    outcome.result = KT_bEstDateChaineValide(text);
  }
  if (outcome.result == 0) return outcome;
  if (rule->reduction == Reduction::kTrailingBlanks) {
    while (outcome.end > 0 && text[outcome.end - 1] == ' ') --outcome.end;
  } else if (rule->reduction == Reduction::kLeadingZeros && options.drop_leading_zeros) {
    while (outcome.end - outcome.start > 1 && text[outcome.start] == '0') ++outcome.start;
  }
  return outcome;
}

// A new block of ulLength + 1 bytes holding the first `length` characters
// of `text` (fewer if the text is shorter), terminated. Null when it cannot
// be allocated.
char* CutCopy(const char* text, std::uint32_t length) {
  // length + 1 would wrap to 0 at the top of the range: the text is shorter
  // than that anyway.
  const std::size_t kept = strnlen(text, length);
  const std::uint32_t block = length == UINT32_MAX ? static_cast<std::uint32_t>(kept + 1)
                                                   : length + 1;
  char* copy = static_cast<char*>(KT_Allouer(block));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text, kept);
  copy[kept] = '\0';
  return copy;
}

void StoreLength(std::uint32_t* destination, std::size_t length) {
  if (destination != nullptr) *destination = static_cast<std::uint32_t>(length);
}

}  // namespace
}  // namespace kt::checks

using namespace kt::traces;

uint8_t KT_bEstNumerique(const char* pcChaine) {
  return kt::checks::Classify("KT_bEstNumerique", pcChaine, &kt::checks::IsDigit);
}

uint8_t KT_bEstAlphaNumerique(const char* pcChaine) {
  return kt::checks::Classify("KT_bEstAlphaNumerique", pcChaine, [](char c) {
    return kt::checks::IsDigit(c) || kt::checks::IsUpperLetter(c) || c == ' ';
  });
}

uint8_t KT_bEstAlphabetique(const char* pcChaine) {
  return kt::checks::Classify("KT_bEstAlphabetique", pcChaine,
                              [](char c) { return kt::checks::IsUpperLetter(c) || c == ' '; });
}

uint8_t KT_bLongAChaine(int32_t lValeur, char* pcChaine, uint32_t ulNbChiffres) {
  // The traces name the function as it was once called.
  KT_TRACE(kTraceEnter, "KT_usLongAChaine");
  // Intended: 10^digits in 32 bits wraps above 9 digits. Once the product
  // reaches 0 (from 32 digits on) it stays 0, so the loop stops there.
  uint32_t limit = 1;
  for (uint32_t i = 0; i < ulNbChiffres && limit != 0; ++i) limit *= 10;
  uint8_t result = 0;
  if (pcChaine != nullptr && lValeur < static_cast<int32_t>(limit)) {
    std::snprintf(pcChaine, 12, "%d", static_cast<int>(lValeur));
    result = 1;
  }
  KT_TRACE(kTraceInfo, "usResultat = 0x%04x", unsigned{result});
  KT_TRACE(kTraceExit, "KT_usLongAChaine");
  return result;
}

uint8_t KT_bReduireChaine(char* pcChaine, uint32_t ulLongueur, char cType,
                          uint32_t* pulNouvelleLongueur) {
  KT_TRACE(kTraceEnter, "KT_bReduireChaine");
  uint8_t result = 0;
  char* work = pcChaine != nullptr ? kt::checks::CutCopy(pcChaine, ulLongueur) : nullptr;
  if (work != nullptr) {
    std::strcpy(pcChaine, work);  // the text is first cut to ulLongueur characters
    const kt::checks::Outcome outcome = kt::checks::ApplyRule(pcChaine, cType, {true, false});
    result = outcome.result;
    if (result != 0) {
      const std::size_t length = outcome.end - outcome.start;
      kt::checks::StoreLength(pulNouvelleLongueur, length);
      std::memcpy(work, pcChaine + outcome.start, length);
      work[length] = '\0';
      std::strcpy(pcChaine, work);
    }
    KT_Liberer(work);
  }
  KT_TRACE(kTraceInfo, "KT_bReduireChaine:bResultat = 0x%04x", unsigned{result});
  KT_TRACE(kTraceExit, "KT_bReduireChaine");
  return result;
}

namespace kt::checks {

FormatCheck CheckFormat(const char* text, std::uint32_t length, char type,
                        std::uint32_t* significant) {
  // The traces carry the name the format control has always shown.
  KT_TRACE(kTraceEnter, "bReduireChaineCtrlFormat");
  FormatCheck check = FormatCheck::kNoMemory;
  char* work = text != nullptr ? CutCopy(text, length) : nullptr;
  if (text == nullptr) check = FormatCheck::kInvalid;
  if (work != nullptr) {
    const Outcome outcome = ApplyRule(work, type, {false, true});
    check = outcome.result != 0 ? FormatCheck::kValid : FormatCheck::kInvalid;
    if (check == FormatCheck::kValid) StoreLength(significant, outcome.end);
    KT_Liberer(work);
  }
  KT_TRACE(kTraceInfo, "bReduireChaineCtrlFormat:bResultat = 0x%04x",
           check == FormatCheck::kValid ? 1u : 0u);
  KT_TRACE(kTraceExit, "bReduireChaineCtrlFormat");
  return check;
}

}  // namespace kt::checks

uint8_t bChaineCtrlFormat(const char* pcChaine, uint32_t ulLongueur, char cType,
                          uint32_t* pulNouvelleLongueur) {
  return kt::checks::CheckFormat(pcChaine, ulLongueur, cType, pulNouvelleLongueur) ==
                 kt::checks::FormatCheck::kValid
             ? 1
             : 0;
}

uint8_t KT_bReduireChaineCtrl(const char* pcChaine, char** ppcCopie, uint32_t ulLongueur,
                              char cType, uint32_t* pulNouvelleLongueur) {
  KT_TRACE(kTraceEnter, "KT_bReduireChaineCtrl");
  uint8_t result = 0;
  char* copy = pcChaine != nullptr && ppcCopie != nullptr
                   ? kt::checks::CutCopy(pcChaine, ulLongueur)
                   : nullptr;
  if (ppcCopie != nullptr) *ppcCopie = copy;
  if (copy != nullptr) {
    const kt::checks::Outcome outcome = kt::checks::ApplyRule(copy, cType, {false, false});
    result = outcome.result;
    if (result != 0) {
      kt::checks::StoreLength(pulNouvelleLongueur, outcome.end);
      // Cut in place: the copy only loses trailing blanks here. (The
      // historical code went through a further block it never released.)
      copy[outcome.end] = '\0';
    }
  }
  KT_TRACE(kTraceInfo, "KT_bReduireChaine:bResultat = 0x%04x", unsigned{result});
  // The exit line names the in-place reducer, as it always has.
  KT_TRACE(kTraceExit, "KT_bReduireChaine");
  return result;
}

uint8_t KT_bConvertirEtenduEnAlpha(const char* pcChaine, char** ppcResultat,
                                   uint32_t* pulLongueur, uint8_t bSupprimer) {
  KT_TRACE(kTraceEnter, "KT_bConvertirEtenduEnAlpha");
  uint8_t result = 0;
  if (ppcResultat != nullptr) *ppcResultat = nullptr;
  const std::size_t n = pcChaine != nullptr ? std::strlen(pcChaine) : 0;
  // n + 2, not n + 1: with bSupprimer 0 the terminator also becomes a blank,
  // so the result is one character longer than the text.
  char* converted = n != 0 && ppcResultat != nullptr && n < UINT32_MAX - 2
                        ? static_cast<char*>(KT_Allouer(static_cast<uint32_t>(n + 2)))
                        : nullptr;
  if (converted != nullptr) {
    std::size_t out = 0;
    for (std::size_t i = 0; i <= n; ++i) {  // the terminator is converted too (intended)
      const char c = pcChaine[i];
      // Bytes 0x80 to 0xFF are negative here and never letters.
      const bool ascii = static_cast<unsigned char>(c) < 0x80;
      if (c == ' ' || kt::checks::IsDigit(c) || (ascii && std::isupper(c))) {
        converted[out++] = c;
      } else if (ascii && std::islower(c)) {
        converted[out++] = static_cast<char>(std::toupper(c));
      } else if (bSupprimer == 0) {
        converted[out++] = ' ';
      }
    }
    converted[out] = '\0';
    uint32_t length = 0;
    // Type code 2 has no rule: no check, no reduction; kept for its traces.
    (void)KT_bReduireChaine(converted, static_cast<uint32_t>(out), 2, &length);
    *ppcResultat = converted;
    if (pulLongueur != nullptr) *pulLongueur = static_cast<uint32_t>(std::strlen(converted));
    result = 1;
  }
  KT_TRACE(kTraceInfo, "bResultat = 0x%04x", unsigned{result});
  KT_TRACE(kTraceExit, "KT_bConvertirEtenduEnAlpha");
  return result;
}

uint8_t KT_bCompareChaine(const char* pcChaine1, const char* pcChaine2) {
  KT_TRACE(kTraceEnter, "KT_bCompareChaine");
  uint8_t result = 0;
  if (pcChaine1 != nullptr && pcChaine2 != nullptr) {
    // ASCII letters only, whatever the locale.
    const auto fold = [](char c) {
      return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    };
    const char* a = pcChaine1;
    const char* b = pcChaine2;
    while (*a != '\0' && fold(*a) == fold(*b)) {
      ++a;
      ++b;
    }
    result = fold(*a) == fold(*b) ? 1 : 0;
  }
  KT_TRACE(kTraceInfo, "bResultat = 0x%04x", unsigned{result});
  KT_TRACE(kTraceExit, "KT_bCompareChaine");
  return result;
}
