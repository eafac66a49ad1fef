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

enum class Outcome { kNext, kEnd, kReturnNow };

}  // namespace

uint16_t KT_usControlerFormatZoneMemoire(uint16_t usZone) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  // One hold of the dictionary for the whole control: a stop cannot release
  // the tables between two of its queries.
  const kt::frame::DictionaryReadGuard dictionary;
  KT_TRACE(kTraceEnter, "KT_usControlerFormatZoneMemoire");
  std::uint16_t us = KT_usControlerSyntaxeZoneMemoire(usZone);
  if (us == KT_OK) us = KT_usPositionnerDebut(usZone);
  std::uint16_t* groups = nullptr;
  std::uint16_t group_count = 0;
  if (us == KT_OK) {
    us = KT_usDonnerListeGroupes(&groups, &group_count);
    KT_TRACE(kTraceInfo, " KT_usDonnerListeGroupes= 0x%04x", us);
  }

  std::uint16_t n = 0;        // rank of the group, from 1
  std::uint16_t total = 0;    // dictionary field counts of the groups so far
  while (us == KT_OK) {
    ++n;
    std::uint16_t id = 0;
    us = KT_usAvancerGroupeSuivant(usZone, 1, kCompterChamps, &id);
    if (us == KT_ERR_FIN) {
      KT_TRACE(kTraceInfo, " KT_usAvancerGroupeSuivant= 0x%04x", us);
      break;
    }
    // The text has no conversion; the identifier is passed all the same.
    const char* group_text = " Groupe = 0xd";
    KT_TRACE(kTraceInfo, group_text, id);
    if (us != KT_OK) break;

    if (!Listed(groups, group_count, id)) {
      us = Position(KT_FORMAT_GROUPE, n);
      KT_TRACE(kTraceError, "ERREUR groupe inconnu = 0x%d", id);
      KT_TRACE(kTraceError, "ERREUR usResultat= 0x%04x", us);
      // Returns at once: the cursor stays and the list is not freed.
      return us;
    }

    stChamp* fields = nullptr;
    std::uint16_t field_count = 0;
    us = KT_usDonnerInformationChamp(id, &fields, &field_count);
    KT_TRACE(kTraceInfo, " KT_usDonnerInformationChamp= 0x%04x", us);
    if (us != KT_OK) {
      KT_Liberer(groups);
      return us;
    }
    total = static_cast<std::uint16_t>(total + field_count);

    for (std::uint16_t i = 0; i < field_count && us == KT_OK; ++i) {
      const stChamp& record = fields[i];
      std::uint16_t number = 0;
      std::uint8_t* value = nullptr;
      std::uint32_t length = 0;
      us = KT_usAvancerChampSuivant(usZone, 1, &number, &value, &length);
      TraceField(us, number, us == KT_OK ? value : nullptr, length);
      if (us == KT_ERR_FIN) {  // the group ended while records remain
        us = Position(KT_FORMAT_NB_CHAMPS, n);
        KT_TRACE(kTraceError, "ERREUR usResultat= 0x%04x", us);
        break;
      }
      if (us != KT_OK) break;

      const auto text = reinterpret_cast<const char*>(value);
      const std::uint16_t field_error =
          Position(KT_FORMAT_CHAMP, static_cast<std::uint16_t>(total - field_count + number));
      std::uint32_t significant = 0;
      const std::uint8_t ok = bChaineCtrlFormat(text, length, static_cast<char>(record.cType),
                                                &significant);
      KT_TRACE(kTraceInfo, "Controle du champ suivant son type : bRetour= 0x%04x (1/OK)", ok);
      bool failed = ok != 1;
      if (!failed && significant == 0) {
        // An empty field passes, unless its code makes a minimum binding.
        failed = record.usLongueurMin != 0 && record.lCodeChamp == 1;
      } else if (!failed) {
        failed = significant < record.usLongueurMin ||
                 (record.usLongueurMax != 0 && record.usLongueurMax < significant);
      }
      if (failed) {
        us = field_error;
        KT_TRACE(kTraceError, "ERREUR usResultat= 0x%04x", us);
        break;
      }

      if (record.usNbValeurs > 0 && significant != 0) {
        char* reduced = nullptr;
        std::uint32_t reduced_length = 0;
        (void)KT_bReduireChaineCtrl(text, &reduced, length, static_cast<char>(record.cType),
                                    &reduced_length);  // passed the same check just above
        std::uint16_t differing = 0;
        for (std::uint16_t v = 1; v <= record.usNbValeurs; ++v) {
          char* allowed = nullptr;
          const std::uint16_t status = KT_usDonnerChampValeur(id, number, v, &allowed);
          KT_TRACE(kTraceInfo, "KT_usDonnerChampValeur= 0x%04x", status);
          if (status != KT_OK) {
            us = Position(KT_FORMAT_GROUPE, n);
            KT_TRACE(kTraceError, "ERREUR  groupe inconnu, usResultat= 0x%04x", us);
            // Returns at once, as for an unknown group.
            KT_Liberer(reduced);
            return us;
          }
          if (KT_bCompareChaine(reduced, allowed) != 1) ++differing;
          KT_Liberer(allowed);
        }
        KT_Liberer(reduced);
        if (differing == record.usNbValeurs) {
          us = field_error;
          KT_TRACE(kTraceError, "ERREUR valeur de champ, usResultat= 0x%04x", us);
        }
      }
    }

    if (us == KT_OK) {
      std::uint32_t end = 0;
      us = KT_usFinGroupe(usZone, &end);
      if (us == KT_OK && end == 0) {  // more fields than the record lists
        us = Position(KT_FORMAT_NB_CHAMPS, n);
        KT_TRACE(kTraceError, "ERREUR usResultat= 0x%04x", us);
      }
    }
    KT_Liberer(fields);
  }

  if (us == KT_ERR_FIN) us = KT_OK;  // every group walked
  KT_Liberer(groups);
  (void)KT_usPositionnerDebut(usZone);  // result not used here
  KT_TRACE(kTraceInfo, "KT_usControlerFormatZoneMemoire:usResultat = 0x%04x", us);
  KT_TRACE(kTraceExit, "FIN de la fonction KT_usControlerFormatZoneMemoire");
  return us;
}
