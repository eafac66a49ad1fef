// The cursor of a structured zone: stepping over groups and fields, searches
// by identifier and occurrence, and the running counters. Every move decodes
// the zone's bytes in place; values are handed out as pointers into the
// buffer, never copied.
//
// Every step moves forward by at least one byte or fails, and every decode
// is bounded by the readable end of the zone, so no walk can loop or read
// outside the buffer whatever the bytes say. Repeat counts and occurrence
// searches are loops rather than the self-calls they stand for: a count of
// 65 535 must not take 65 535 stack frames.
#include <cstdint>

#include "traces/traces_internal.h"
#include "zones/zones_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 3;  // memory zones and length coding
}  // namespace

using namespace kt::traces;
using kt::zones::FindStructuredZone;
using kt::zones::ZoneRecord;

namespace kt::zones {
namespace {

void TraceGroupTooLong(std::uint32_t length) {
  KT_TRACE(kTraceError, kt::zones::kGroupPastDataText, length);
}

std::uint16_t StepField(ZoneRecord& z, std::uint16_t* number, std::uint8_t** value,
                        std::uint32_t* length);

// One step of KT_usAvancerGroupeSuivant.
std::uint16_t StepGroup(ZoneRecord& z, std::uint8_t count_fields, std::uint16_t* identifier) {
  if (AtZoneEnd(z)) {
    KT_TRACE(kTraceError, " Fin de la zone atteinte.");
    return KT_FAIL(KT_ERR_FIN);
  }
  if (count_fields != 0) {
    // A failed field step only ends the counting.
    while (!AtGroupEnd(z) && StepField(z, nullptr, nullptr, nullptr) == KT_OK) {
    }
  }
  // Not at the zone's end, so the next group starts inside the readable data.
  const auto next = static_cast<std::uint32_t>(GroupEnd(z));
  std::uint16_t id = 0;
  std::uint32_t length = 0;
  std::uint32_t header = 0;
  const std::uint16_t us =
      KT_usDecoderEnteteGroupe(z.buffer, ReadableEnd(z), next, &id, &length, &header);
  if (us != KT_OK) return us;
  z.offsetGroupe = next;
  ++z.compteurGroupe;
  z.identifiant = id;
  z.longueurGroupe = length;
  z.tailleEnteteGroupe = header;
  z.offsetChamp = next + header;
  z.numeroChamp = 0;
  z.LongueurChamp = 0;
  z.tailleLongueurChamp = 0;
  // The cursor stays on the faulty group.
  if (!GroupInsideData(z)) {
    TraceGroupTooLong(z.longueurGroupe);
    return KT_FAIL(KT_ERR_CODAGE_ZONE);
  }
  if (identifier != nullptr) *identifier = id;
  KT_TRACE(kTraceInfo, "offsetGroupe = %u, longueurGroupe = %u, tailleEnteteGroupe  = %u",
           z.offsetGroupe, z.longueurGroupe, z.tailleEnteteGroupe);
  KT_TRACE(kTraceInfo, "offsetChamp = %u, longueurChamp = %u, tailleLongueurChamp  = %u",
           z.offsetChamp, z.LongueurChamp, z.tailleLongueurChamp);
  return KT_OK;
}

// One step of KT_usAvancerChampSuivant.
std::uint16_t StepField(ZoneRecord& z, std::uint16_t* number, std::uint8_t** value,
                        std::uint32_t* length) {
  if (AtGroupEnd(z)) {
    KT_TRACE(kTraceError, " Fin du groupe atteinte.");
    return KT_FAIL(KT_ERR_FIN);
  }
  const std::uint64_t next = FieldEnd(z);
  // Only inside a group that overruns the data can the next field lie past
  // any 32-bit offset; it cannot be decoded there.
  if (next > UINT32_MAX) {
    TraceGroupTooLong(z.longueurGroupe);
    return KT_FAIL(KT_ERR_CODAGE_ZONE);
  }
  std::uint32_t field_length = 0;
  std::uint32_t coded = 0;
  const std::uint16_t us = KT_stDecoderLongueur(
      z.buffer, ReadableEnd(z), static_cast<std::uint32_t>(next), &field_length, &coded);
  if (us != KT_OK) return us;
  // The caller's length is written before the field is checked.
  if (length != nullptr) *length = field_length;
  z.offsetChamp = static_cast<std::uint32_t>(next);
  ++z.numeroChamp;
  ++z.compteurChamp;
  z.LongueurChamp = field_length;
  z.tailleLongueurChamp = coded;
  // The cursor and both counters have already moved onto the overrunning
  // field (kept as it always was).
  if (FieldEnd(z) > GroupEnd(z)) {
    KT_TRACE(kTraceError, " Fin du groupe atteinte.");
    return KT_FAIL(KT_ERR_FIN);
  }
  // Within its group, but the group itself overruns the data: the value
  // cannot be handed out.
  if (FieldEnd(z) > ReadableEnd(z)) {
    TraceGroupTooLong(z.longueurGroupe);
    return KT_FAIL(KT_ERR_CODAGE_ZONE);
  }
  if (number != nullptr) *number = z.numeroChamp;
  if (value != nullptr) *value = z.buffer + z.offsetChamp + z.tailleLongueurChamp;
  KT_TRACE(kTraceInfo, "offsetChamp  = %u, longueurChamp  = %u, tailleLongueurChamp = %u",
           z.offsetChamp, z.LongueurChamp, z.tailleLongueurChamp);
  return KT_OK;
}

}  // namespace

std::uint16_t AdvanceGroups(ZoneRecord& z, std::uint16_t count, std::uint8_t count_fields,
                            std::uint16_t* identifier) noexcept {
  std::uint16_t us = KT_OK;
  // A count of 0 acts as 1.
  for (std::uint32_t i = 0; us == KT_OK && (i == 0 || i < count); ++i) {
    us = StepGroup(z, count_fields, identifier);
  }
  return us;
}

std::uint16_t AdvanceFields(ZoneRecord& z, std::uint16_t count, std::uint16_t* number,
                            std::uint8_t** value, std::uint32_t* length) noexcept {
  std::uint16_t us = KT_OK;
  for (std::uint32_t i = 0; us == KT_OK && (i == 0 || i < count); ++i) {
    us = StepField(z, number, value, length);
  }
  return us;
}

namespace {

// Shared by the two counter reads.
template <std::uint16_t ZoneRecord::*Counter>
std::uint16_t ReadCounter(std::uint16_t zone, std::uint16_t* count) {
  ZoneRecord* z = nullptr;
  const std::uint16_t us = FindStructuredZone(zone, &z);
  if (us == KT_OK && count != nullptr) *count = z->*Counter;
  return us;
}

}  // namespace
}  // namespace kt::zones

uint16_t KT_usPositionnerDebut(uint16_t usZone) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  ZoneRecord* z = nullptr;
  const std::uint16_t us = FindStructuredZone(usZone, &z);
  if (us != KT_OK) return us;
  kt::zones::ClearCursor(*z);
  return KT_OK;
}

uint16_t KT_usPositionnerFin(uint16_t usZone, uint8_t bCompterChamps) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  ZoneRecord* z = nullptr;
  std::uint16_t us = FindStructuredZone(usZone, &z);
  if (us != KT_OK) return us;
  // Ends in practice when the step past the last group reports the end.
  bool end = kt::zones::AtZoneEnd(*z);
  while (!end && us == KT_OK) {
    us = KT_usAvancerGroupeSuivant(usZone, 1, bCompterChamps, nullptr);
    end = kt::zones::AtDataEnd(*z);
  }
  while (!kt::zones::AtGroupEnd(*z) &&
         KT_usAvancerChampSuivant(usZone, 1, nullptr, nullptr, nullptr) == KT_OK) {
  }
  // Faults met on the way are not reported.
  return KT_OK;
}

uint16_t KT_usAvancerGroupeSuivant(uint16_t usZone, uint16_t usNombre, uint8_t bCompterChamps,
                                   uint16_t* pusIdentifiant) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  ZoneRecord* z = nullptr;
  std::uint16_t us = FindStructuredZone(usZone, &z);
  if (us == KT_OK) us = kt::zones::AdvanceGroups(*z, usNombre, bCompterChamps, pusIdentifiant);
  return us;
}

uint16_t KT_usAvancerChampSuivant(uint16_t usZone, uint16_t usNombre, uint16_t* pusNumero,
                                  uint8_t** ppucDonnees, uint32_t* pulLongueur) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  ZoneRecord* z = nullptr;
  std::uint16_t us = FindStructuredZone(usZone, &z);
  if (us == KT_OK) us = kt::zones::AdvanceFields(*z, usNombre, pusNumero, ppucDonnees, pulLongueur);
  return us;
}

uint16_t KT_usRechercherGroupeSuivant(uint16_t usZone, uint16_t usIdentifiant,
                                      uint16_t usOccurrence, uint8_t bCompterChamps) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  ZoneRecord* z = nullptr;
  std::uint16_t us = FindStructuredZone(usZone, &z);
  if (us != KT_OK) return us;
  // Occurrence j is searched from where occurrence j - 1 was found. Each
  // search starts from a read identifier of 0, so identifier 0 is found at
  // once without moving.
  const std::uint32_t last = usOccurrence == 0 ? 1 : usOccurrence;
  for (std::uint32_t j = 1; j <= last; ++j) {
    std::uint16_t read = 0;
    while (us == KT_OK && read != usIdentifiant) {
      us = KT_usAvancerGroupeSuivant(usZone, 1, bCompterChamps, &read);
    }
    if (us != KT_OK) {
      // The first occurrence missing means no such group after the cursor.
      if (us == KT_ERR_FIN && j > 1) return KT_FAIL(KT_ERR_OCCURRENCE);
      return us;
    }
  }
  return KT_OK;
}

uint16_t KT_usRechercherGroupe(uint16_t usZone, uint16_t usIdentifiant, uint16_t usOccurrence,
                               uint8_t bCompterChamps) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  std::uint16_t us = KT_OK;
  KT_TRACE(kTraceEnter, "KT_usRechercherGroupe");
  ExitTrace exit{kTraceSub, "cr = 0x%04X", &us};
  // Tested before the zone number.
  if (usOccurrence == 0) return us = KT_FAIL(KT_ERR_ARGUMENT);
  us = KT_usPositionnerDebut(usZone);
  if (us == KT_OK) {
    us = KT_usRechercherGroupeSuivant(usZone, usIdentifiant, usOccurrence, bCompterChamps);
  }
  return us;
}

uint16_t KT_usRechercherChamp(uint16_t usZone, uint16_t usIdentifiant, uint16_t usOccurrence,
                              uint16_t usNumero, uint8_t bCompterChamps, uint8_t** ppucDonnees,
                              uint32_t* pulLongueur) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  std::uint16_t us = KT_OK;
  KT_TRACE(kTraceEnter,
           "KT_usRechercherChamp: identifiant = %u, occurrenceGroupe = %u, numero = %u",
           usIdentifiant, usOccurrence, usNumero);
  ExitTrace failed{kTraceSub, " cr = 0x%04X", &us};
  // The number first, the arguments next; the kind through the group search.
  if (kt::zones::FindZone(usZone) == nullptr) return us = KT_FAIL(KT_ERR_NUMERO_INCONNU);
  if (usOccurrence == 0 || usNumero == 0) return us = KT_FAIL(KT_ERR_ARGUMENT);
  us = KT_usRechercherGroupe(usZone, usIdentifiant, usOccurrence, bCompterChamps);
  if (us != KT_OK) return us;
  failed.Dismiss();
  std::uint8_t* value = nullptr;
  std::uint32_t length = 0;
  us = KT_usAvancerChampSuivant(usZone, usNumero, nullptr, &value, &length);
  if (us == KT_OK) {
    if (ppucDonnees != nullptr) *ppucDonnees = value;
    if (pulLongueur != nullptr) *pulLongueur = length;
  }
  KT_TRACE(kTraceExit, "cr = 0x%04X, donnees = 0x%p, longueur = %u", us, static_cast<void*>(value),
           length);
  return us;
}

uint16_t KT_usLireGroupeSuivant(uint16_t usZone, uint8_t bCompterChamps, uint16_t* pusIdentifiant,
                                uint16_t* pusOccurrence) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  ZoneRecord* z = nullptr;
  std::uint16_t us = FindStructuredZone(usZone, &z);
  if (us != KT_OK) return us;
  if (kt::zones::AtZoneEnd(*z)) {
    KT_TRACE(kTraceError, " Fin des donnees atteinte.");
    return KT_FAIL(KT_ERR_FIN);
  }
  const auto next = static_cast<std::uint32_t>(kt::zones::GroupEnd(*z));
  std::uint16_t id = 0;
  us = KT_usDecoderEnteteGroupe(z->buffer, kt::zones::ReadableEnd(*z), next, &id, nullptr, nullptr);
  if (us != KT_OK) {
    KT_TRACE(kTraceError, " cr = 0x%04X", us);
    return us;
  }
  if (pusIdentifiant != nullptr) *pusIdentifiant = id;
  (void)KT_usPositionnerDebut(usZone);  // cannot fail: the zone was checked
  // Counts the occurrences again from the start, one search each, until the
  // search stands on the next group: quadratic, and from the start of the
  // zone (next offset 0) it reports occurrence 0 without moving; both kept
  // as they always were. A search for identifier 0 never moves, so that
  // loop would only stop when the 16-bit occurrence wraps to 0 and the
  // search refuses it; its outcome (cursor at the start, occurrence 0) is
  // given at once instead.
  std::uint16_t occurrence = 1;
  if (id != 0) {
    std::uint16_t found = KT_OK;
    while (z->offsetGroupe < next && found == KT_OK) {
      found = KT_usRechercherGroupe(usZone, id, occurrence, bCompterChamps);
      ++occurrence;
    }
  }
  if (pusOccurrence != nullptr) *pusOccurrence = static_cast<std::uint16_t>(occurrence - 1);
  return KT_OK;
}

uint16_t KT_usLireCompteurGroupe(uint16_t usZone, uint16_t* pusCompteur) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  return kt::zones::ReadCounter<&ZoneRecord::compteurGroupe>(usZone, pusCompteur);
}

uint16_t KT_usLireCompteurChamp(uint16_t usZone, uint16_t* pusCompteur) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  return kt::zones::ReadCounter<&ZoneRecord::compteurChamp>(usZone, pusCompteur);
}
