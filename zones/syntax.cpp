// Syntax control: checks that the whole data of a structured zone is a
// well-formed sequence of groups and fields, without knowing what they mean.
// It walks the zone with the zone's own cursor, keeping two running counts
// of its own, the data left and the group left, and stops at the first
// fault. The bytes are never changed; the cursor stays where the check
// stopped.
//
// Every round consumes at least one group header and every field at least
// its length byte, and the counts are checked before they are lowered, so
// the walk ends on any bytes.
#include "traces/traces_internal.h"
#include "zones/zones_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 1;  // syntax control of memory zones
}  // namespace

using namespace kt::traces;

namespace kt::zones {
namespace {

// The field loop over one group of group_length content bytes, the cursor
// standing on the group.
std::uint16_t CheckFields(ZoneRecord& z, std::uint32_t group_length, bool& empty_field_seen) {
  while (group_length != 0) {
    std::uint32_t length = 0;
    if (AdvanceFields(z, 1, nullptr, nullptr, &length) != KT_OK) {
      KT_TRACE(kTraceError, "Impossible de lire la longueur du champ");
      return KT_FAIL(KT_ERR_CODAGE_ZONE);
    }
    if (length == 0) empty_field_seen = true;  // fields of length 0 are allowed
    const std::uint32_t coded = z.tailleLongueurChamp;
    // Both messages print the empty-field flag where they announce a byte
    // count (kept as they always were).
    if (group_length < coded) {
      KT_TRACE(kTraceError, "Lg du groupe (%lu) < Nombre d'octets pour lg champ  (%u) ",
               static_cast<unsigned long>(group_length), empty_field_seen ? 1u : 0u);
      return KT_FAIL(KT_ERR_CODAGE_ZONE);
    }
    if (group_length - coded < length) {
      KT_TRACE(kTraceError,
               "Longueur du champ (%lu + %u) depasse la longueur du groupe restante (%lu)",
               static_cast<unsigned long>(length), empty_field_seen ? 1u : 0u,
               static_cast<unsigned long>(group_length));
      return KT_FAIL(KT_ERR_CODAGE_ZONE);
    }
    group_length -= length + coded;
    KT_TRACE(kTraceInfo, "stLongueurGroupe = %lu", static_cast<unsigned long>(group_length));
  }
  return KT_OK;
}

}  // namespace
}  // namespace kt::zones

uint16_t KT_usControlerSyntaxeZoneMemoire(uint16_t usZone) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  std::uint16_t us = KT_OK;
  KT_TRACE(kTraceEnter, "KT_usControlerSyntaxeZoneMemoire");
  ExitTrace exit{kTraceSub, "KT_usControlerSyntaxeZoneMemoire usResultat = 0x%04x", &us};
  us = KT_usPositionnerDebut(usZone);
  if (us != KT_OK) return us;
  kt::zones::ZoneRecord& z = *kt::zones::FindZone(usZone);
  std::uint32_t ulTailleDataIn = z.tailleDonnees;
  KT_TRACE(kTraceInfo, "Longueur des donnees d'entree (%lu)",
           static_cast<unsigned long>(ulTailleDataIn));
  bool empty_field_seen = false;
  bool end = false;
  while (us == KT_OK && !end) {
    // The next group starts at the cursor's group end, which a successful
    // step keeps inside the readable data.
    const auto next = static_cast<std::uint32_t>(kt::zones::GroupEnd(z));
    std::uint16_t usIdGroupe = 0;
    std::uint32_t stLongueurGroupe = 0;
    std::uint32_t stNbOctetsLongueurGroupe = 0;
    us = KT_usDecoderEnteteGroupe(z.buffer, kt::zones::ReadableEnd(z), next, &usIdGroupe,
                                  &stLongueurGroupe, &stNbOctetsLongueurGroupe);
    if (us != KT_OK) break;
    KT_TRACE(kTraceInfo, "usIdGroupe = %u", usIdGroupe);
    KT_TRACE(kTraceInfo, "stLongueurGroupe = %u, stNbOctetsLongueurGroupe = %u", stLongueurGroupe,
             stNbOctetsLongueurGroupe);
    if (stLongueurGroupe == 0) {
      KT_TRACE(kTraceError, "Groupe de longueur 0 => ERREUR");
      us = KT_FAIL(KT_ERR_CODAGE_ZONE);
      break;
    }
    if (ulTailleDataIn < stNbOctetsLongueurGroupe) {
      KT_TRACE(kTraceError, "ulTailleDataIn (%lu) < stNbOctetsLongueurGroupe (%u) ",
               static_cast<unsigned long>(ulTailleDataIn), stNbOctetsLongueurGroupe);
      us = KT_FAIL(KT_ERR_CODAGE_ZONE);
      break;
    }
    if (ulTailleDataIn - stNbOctetsLongueurGroupe < stLongueurGroupe) {
      KT_TRACE(kTraceError,
               "Longueur du groupe (%lu + %u) depasse la longueur des donnees d'entree restante "
               "(%lu)",
               static_cast<unsigned long>(stLongueurGroupe), stNbOctetsLongueurGroupe,
               static_cast<unsigned long>(ulTailleDataIn));
      us = KT_FAIL(KT_ERR_CODAGE_ZONE);
      break;
    }
    ulTailleDataIn -= stLongueurGroupe + stNbOctetsLongueurGroupe;
    KT_TRACE(kTraceInfo, "ulTailleDataIn = %lu", static_cast<unsigned long>(ulTailleDataIn));
    // Back to the first field of the group the cursor stands on: with the
    // fields counted, the step below walks that group's fields again.
    z.numeroChamp = 0;
    z.offsetChamp = z.offsetGroupe + z.tailleEnteteGroupe;
    z.LongueurChamp = 0;
    z.tailleLongueurChamp = 0;
    if (std::uint64_t{next} + stNbOctetsLongueurGroupe + stLongueurGroupe >
        kt::zones::ReadableEnd(z)) {
      KT_TRACE(kTraceError, kt::zones::kGroupPastDataText, stLongueurGroupe);
      us = KT_FAIL(KT_ERR_CODAGE_ZONE);
      break;
    }
    us = kt::zones::AdvanceGroups(z, 1, 1, nullptr);
    if (us != KT_OK) break;
    us = kt::zones::CheckFields(z, stLongueurGroupe, empty_field_seen);
    if (ulTailleDataIn == 0) end = true;
  }
  return us;
}
