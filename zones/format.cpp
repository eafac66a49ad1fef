// Format control: checks a structured zone against the dictionary. Every
// group must be known, hold exactly the fields its record lists, and every
// value must pass its type check, its length bounds and, where the field has
// a list, match one of its allowed values. The failing group or field is
// told by its position, carried in the low bits of the result:
//
//   0x9000 + k  the field of rank k, counted over the whole zone (the field
//               counts of the dictionary records of the groups before it,
//               plus its number in its group)
//   0xA000 + n  the n-th group is unknown, or an allowed value is unreadable
//   0xA800 + n  the n-th group holds more or fewer fields than listed
//
// Sums are 16-bit. Fields are matched to records by position only.
#include <cstring>

#include "checks/checks_internal.h"
#include "frame/frame_internal.h"
#include "frame/locks.h"
#include "frame/support.h"
#include "kt_checks.h"
#include "kt_dictionary.h"
#include "kt_zones.h"
#include "traces/traces_internal.h"
#include "zones/zones_internal.h"

namespace {

constexpr std::uint16_t kTraceSub = 2;  // format control of memory zones
constexpr std::uint8_t kCompterChamps = 1;

using namespace kt::traces;

std::uint16_t Position(std::uint16_t base, std::uint32_t rank) {
  return static_cast<std::uint16_t>(base + rank);
}

bool Listed(const std::uint16_t* list, std::uint16_t count, std::uint16_t id) {
  for (std::uint16_t i = 0; i < count; ++i) {
    if (list[i] == id) return true;
  }
  return false;
}

// Traces the value of the field just stepped onto, through a terminated copy.
void TraceField(std::uint16_t status, std::uint16_t number, const std::uint8_t* value,
                std::uint32_t length) {
  char* copy = static_cast<char*>(KT_Allouer(length + 1));
  if (copy != nullptr) {
    if (value != nullptr && length != 0) std::memcpy(copy, value, length);
    copy[value != nullptr ? length : 0] = '\0';
  }
  KT_TRACE(kTraceInfo, "KT_usAvancerChampSuivant= 0x%04x", status);
  KT_TRACE(kTraceInfo, "Numero du champ = %d, Taille du champ = %d", number,
           static_cast<int>(length));
  KT_TRACE(kTraceInfo, "Valeur du champ = %s", copy != nullptr ? copy : "");
  KT_Liberer(copy);
}

// One check in progress: the zone, the dictionary's list of groups, the rank
// n of the current group, the running total of the listed field counts and
// the result so far. `at_once` marks a result returned as it stands, without
// the ending.
struct Check {
  std::uint16_t zone = 0;
  std::uint16_t* groups = nullptr;
  std::uint16_t group_count = 0;
  std::uint16_t n = 0;
  std::uint16_t total = 0;
  std::uint16_t us = KT_OK;
  bool at_once = false;
};

// Step 1: the syntax, the cursor at the start, the list of groups.
void Begin(Check& c) {
  c.us = KT_usControlerSyntaxeZoneMemoire(c.zone);
  if (c.us == KT_OK) c.us = KT_usPositionnerDebut(c.zone);
  if (c.us == KT_OK) {
    c.us = KT_usDonnerListeGroupes(&c.groups, &c.group_count);
    KT_TRACE(kTraceInfo, " KT_usDonnerListeGroupes= 0x%04x", c.us);
    // The queries hand out a null block when memory runs out.
    if (c.us == KT_OK && c.groups == nullptr && c.group_count != 0) c.us = KT_FAIL(KT_ERR_MEMOIRE);
  }
}

// Steps 2.4.3 to 2.4.5: the type check, then the bounds on the significant
// length; true when the value passes. A check that ran out of memory gives
// no verdict on the value: it sets KT_ERR_MEMOIRE.
bool ValueFits(Check& c, const stChamp& record, const char* text, std::uint32_t length,
               std::uint32_t* significant) {
  const kt::checks::FormatCheck check =
      kt::checks::CheckFormat(text, length, static_cast<char>(record.cType), significant);
  const std::uint8_t ok = check == kt::checks::FormatCheck::kValid ? 1 : 0;
  KT_TRACE(kTraceInfo, "Controle du champ suivant son type : bRetour= 0x%04x (1/OK)", ok);
  if (check == kt::checks::FormatCheck::kNoMemory) c.us = KT_FAIL(KT_ERR_MEMOIRE);
  if (ok != 1) return false;
  // An empty field passes, unless its code makes a minimum binding.
  if (*significant == 0) return record.usLongueurMin == 0 || record.lCodeChamp != 1;
  return *significant >= record.usLongueurMin &&
         (record.usLongueurMax == 0 || record.usLongueurMax >= *significant);
}

// Step 2.4.6: the reduced value against each allowed text; the field fails
// when every one differs. An allowed text that cannot be read ends the check
// at once, as an unknown group does.
void CheckAllowedValues(Check& c, std::uint16_t id, std::uint16_t number, const stChamp& record,
                        const char* text, std::uint32_t length, std::uint16_t field_error) {
  char* reduced = nullptr;
  std::uint32_t reduced_length = 0;
  (void)KT_bReduireChaineCtrl(text, &reduced, length, static_cast<char>(record.cType),
                              &reduced_length);  // passed the same check just before
  std::uint16_t differing = 0;
  for (std::uint16_t v = 1; v <= record.usNbValeurs; ++v) {
    char* allowed = nullptr;
    const std::uint16_t status = KT_usDonnerChampValeur(id, number, v, &allowed);
    KT_TRACE(kTraceInfo, "KT_usDonnerChampValeur= 0x%04x", status);
    if (status != KT_OK) {
      c.us = Position(KT_FORMAT_GROUPE, c.n);
      KT_TRACE(kTraceError, "ERREUR  groupe inconnu, usResultat= 0x%04x", c.us);
      KT_Liberer(reduced);
      c.at_once = true;
      return;
    }
    // Without either text nothing was compared: no verdict on the value.
    if (reduced == nullptr || allowed == nullptr) c.us = KT_FAIL(KT_ERR_MEMOIRE);
    if (c.us == KT_OK && KT_bCompareChaine(reduced, allowed) != 1) ++differing;
    KT_Liberer(allowed);
    if (c.us != KT_OK) break;
  }
  KT_Liberer(reduced);
  if (c.us == KT_OK && differing == record.usNbValeurs) {
    c.us = field_error;
    KT_TRACE(kTraceError, "ERREUR valeur de champ, usResultat= 0x%04x", c.us);
  }
}

// Step 2.4: the next field of the group against `record`, the group listing
// `field_count` records. False when the walk of the group's fields stops
// here, whatever the result.
bool CheckField(Check& c, std::uint16_t id, const stChamp& record, std::uint16_t field_count) {
  std::uint16_t number = 0;
  std::uint8_t* value = nullptr;
  std::uint32_t length = 0;
  c.us = KT_usAvancerChampSuivant(c.zone, 1, &number, &value, &length);
  TraceField(c.us, number, c.us == KT_OK ? value : nullptr, length);
  if (c.us == KT_ERR_FIN) {  // the group ended while records remain
    c.us = Position(KT_FORMAT_NB_CHAMPS, c.n);
    KT_TRACE(kTraceError, "ERREUR usResultat= 0x%04x", c.us);
    return false;
  }
  if (c.us != KT_OK) return false;

  const auto text = reinterpret_cast<const char*>(value);
  const std::uint16_t field_error =
      Position(KT_FORMAT_CHAMP, static_cast<std::uint16_t>(c.total - field_count + number));
  std::uint32_t significant = 0;
  if (!ValueFits(c, record, text, length, &significant)) {
    if (c.us != KT_OK) return false;  // out of memory
    c.us = field_error;
    KT_TRACE(kTraceError, "ERREUR usResultat= 0x%04x", c.us);
    return false;
  }
  if (record.usNbValeurs > 0 && significant != 0) {
    CheckAllowedValues(c, id, number, record, text, length, field_error);
  }
  return !c.at_once;
}

// Step 2: the next group. Its rank and identifier, the identifier in the
// list, its field records, each field in turn (2.4), and then the end of the
// group, which must come after the last record (2.4.7).
void CheckGroup(Check& c) {
  ++c.n;
  std::uint16_t id = 0;
  c.us = KT_usAvancerGroupeSuivant(c.zone, 1, kCompterChamps, &id);
  if (c.us == KT_ERR_FIN) {  // step 3: every group walked
    KT_TRACE(kTraceInfo, " KT_usAvancerGroupeSuivant= 0x%04x", c.us);
    return;
  }
  // The text has no conversion; the identifier is passed all the same.
  const char* group_text = " Groupe = 0xd";
  KT_TRACE(kTraceInfo, group_text, id);
  if (c.us != KT_OK) return;

  if (!Listed(c.groups, c.group_count, id)) {
    c.us = Position(KT_FORMAT_GROUPE, c.n);
    KT_TRACE(kTraceError, "ERREUR groupe inconnu = 0x%d", id);
    KT_TRACE(kTraceError, "ERREUR usResultat= 0x%04x", c.us);
    c.at_once = true;  // the cursor stays and the list is not freed
    return;
  }

  stChamp* fields = nullptr;
  std::uint16_t field_count = 0;
  c.us = KT_usDonnerInformationChamp(id, &fields, &field_count);
  KT_TRACE(kTraceInfo, " KT_usDonnerInformationChamp= 0x%04x", c.us);
  if (c.us == KT_OK && fields == nullptr && field_count != 0) c.us = KT_FAIL(KT_ERR_MEMOIRE);
  if (c.us != KT_OK) {
    KT_Liberer(c.groups);
    c.at_once = true;
    return;
  }
  c.total = static_cast<std::uint16_t>(c.total + field_count);

  for (std::uint16_t i = 0; i < field_count && c.us == KT_OK; ++i) {
    if (!CheckField(c, id, fields[i], field_count)) break;
  }
  if (c.at_once) return;  // as it stands, the field records included
  if (c.us == KT_OK) {
    std::uint32_t end = 0;
    c.us = KT_usFinGroupe(c.zone, &end);
    if (c.us == KT_OK && end == 0) {  // more fields than the record lists
      c.us = Position(KT_FORMAT_NB_CHAMPS, c.n);
      KT_TRACE(kTraceError, "ERREUR usResultat= 0x%04x", c.us);
    }
  }
  KT_Liberer(fields);
}

// Step 4: the ending.
std::uint16_t End(Check& c) {
  if (c.us == KT_ERR_FIN) c.us = KT_OK;
  KT_Liberer(c.groups);
  (void)KT_usPositionnerDebut(c.zone);  // result not used here
  KT_TRACE(kTraceInfo, "KT_usControlerFormatZoneMemoire:usResultat = 0x%04x", c.us);
  KT_TRACE(kTraceExit, "FIN de la fonction KT_usControlerFormatZoneMemoire");
  return c.us;
}

}  // namespace

uint16_t KT_usControlerFormatZoneMemoire(uint16_t usZone) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  // One hold of the dictionary for the whole control: a stop cannot release
  // the tables between two of its queries.
  const kt::frame::DictionaryReadGuard dictionary;
  KT_TRACE(kTraceEnter, "KT_usControlerFormatZoneMemoire");
  Check c;
  c.zone = usZone;
  Begin(c);                                          // step 1
  while (c.us == KT_OK && !c.at_once) CheckGroup(c);  // steps 2 and 3
  return c.at_once ? c.us : End(c);                  // step 4
}
