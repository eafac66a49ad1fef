// Editing a structured zone in place through its cursor: inserting groups
// and fields, overwriting or growing the current field, handing out a piece
// of its value. The bytes stay in the coded form after every change:
// inserting moves the rest of the zone up inside the buffer and rewrites
// the enclosing group's length, whose own coded form may grow. Nothing here
// enlarges the buffer; every size is checked against the capacity before
// the first byte moves, so a refused change leaves the zone as it was.
//
// Appending at the end moves nothing but the group's contents when its
// header grows, which happens at most four times per group: building a
// zone by appending is linear in its size.
//
// Sizes are added in 64 bits: a caller's length near 2^32 must fail the
// capacity check, not wrap past it.
#include <cstring>

#include "traces/traces_internal.h"
#include "zones/zones_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 3;  // memory zones and length coding

constexpr std::uint32_t kEmptyGroupBytes = 3;  // identifier and the length byte 0x00
constexpr std::uint32_t kIdentifierBytes = 2;
}  // namespace

using namespace kt::traces;
using kt::zones::FindStructuredZone;
using kt::zones::ZoneRecord;

namespace kt::zones {
namespace {

std::uint32_t T(std::uint32_t n) { return KT_stCalculerTailleLongueur(n); }
// A field's size; in 64 bits, as n may come from the caller.
std::uint64_t C(std::uint64_t n) {
  return n > UINT32_MAX ? n + 5 : T(static_cast<std::uint32_t>(n)) + n;
}

// The rewrites below assume that the lengths they replace were coded by the
// coder, in the shortest form. A zone coded elsewhere may hold a longer form
// (81 05) or the lone 0x80; rewriting those in place would leave stray bytes
// or push the bytes behind one place too far, so such a zone is refused.
bool GroupHeaderIsShortest(const ZoneRecord& z) {
  return z.tailleEnteteGroupe == kIdentifierBytes + T(z.longueurGroupe);
}
bool FieldLengthIsShortest(const ZoneRecord& z) {
  return z.tailleLongueurChamp == T(z.LongueurChamp);
}

// The checks of the operations on the current field: there is one, and the
// position lies inside its value. Each operation words the error its own way.
std::uint16_t CheckPosition(const ZoneRecord& z, std::uint32_t position, const char* error) {
  if (z.numeroChamp == 0) return KT_FAIL(KT_ERR_FIN);
  if (position > z.LongueurChamp) {
    KT_TRACE(kTraceError, error, z.LongueurChamp);
    return KT_FAIL(KT_ERR_POSITION);
  }
  return KT_OK;
}

void Move(ZoneRecord& z, std::uint64_t to, std::uint64_t from, std::uint64_t count) {
  if (count != 0) std::memmove(z.buffer + to, z.buffer + from, count);
}

}  // namespace
}  // namespace kt::zones

using kt::zones::C;
using kt::zones::T;

uint16_t KT_usAjouterGroupe(uint16_t usZone, uint16_t usIdentifiant) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  std::uint16_t us = KT_OK;
  KT_TRACE(kTraceEnter, "KT_usAjouterGroupe : identifiant = %u", usIdentifiant);
  ExitTrace failed{kTraceSub, " cr = 0x%04X", &us};
  ZoneRecord* found = nullptr;
  us = FindStructuredZone(usZone, &found);
  if (us != KT_OK) return us;
  ZoneRecord& z = *found;
  if (std::uint64_t{z.tailleDonnees} + kEmptyGroupBytes > z.taille) {
    return us = KT_FAIL(KT_ERR_PLACE_ZONE);
  }
  if (!kt::zones::GroupInsideData(z)) return us = KT_FAIL(KT_ERR_CODAGE_ZONE);
  z.offsetGroupe = static_cast<std::uint32_t>(kt::zones::GroupEnd(z));
  // The end test runs on the new offset with the old group's header and
  // length, so after a group in the middle the following groups move only
  // when the old group is no longer than what follows it (kept as it always
  // was). At the end of the zone and from its start it moves exactly what
  // it should.
  if (!kt::zones::AtZoneEnd(z)) {
    kt::zones::Move(z, std::uint64_t{z.offsetGroupe} + kEmptyGroupBytes, z.offsetGroupe,
                    z.tailleDonnees - z.offsetGroupe);
  }
  z.identifiant = usIdentifiant;
  z.longueurGroupe = 0;
  z.tailleEnteteGroupe = KT_stCoderEnteteGroupe(usIdentifiant, 0, z.offsetGroupe, &z.buffer);
  ++z.compteurGroupe;
  z.numeroChamp = 0;
  z.offsetChamp = z.offsetGroupe + z.tailleEnteteGroupe;
  z.LongueurChamp = 0;
  z.tailleLongueurChamp = 0;
  z.tailleDonnees += z.tailleEnteteGroupe;
  failed.Dismiss();
  KT_TRACE(kTraceExit, "cr = 0x%04X, tailleDonnees = %u", us, z.tailleDonnees);
  return us;
}

uint16_t KT_usAjouterChamp(uint16_t usZone, const uint8_t* pucDonnees, uint32_t ulLongueur) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  std::uint16_t us = KT_OK;
  KT_TRACE(kTraceEnter, "KT_usAjouterChamp : donnees = 0x%p, longueur = %u",
           static_cast<const void*>(pucDonnees), ulLongueur);
  ExitTrace failed{kTraceSub, " cr = 0x%04X", &us};
  ZoneRecord* found = nullptr;
  us = FindStructuredZone(usZone, &found);
  if (us != KT_OK) return us;
  ZoneRecord& z = *found;
  // No current group, or a group of identifier 0: both read as none.
  if (z.identifiant == 0) return us = KT_FAIL(KT_ERR_FIN);
  if (ulLongueur != 0 && pucDonnees == nullptr) return us = KT_FAIL(KT_ERR_ARGUMENT);
  if (!kt::zones::GroupInsideData(z) || !kt::zones::FieldInsideData(z) ||
      !kt::zones::GroupHeaderIsShortest(z)) {
    return us = KT_FAIL(KT_ERR_CODAGE_ZONE);
  }
  const std::uint64_t t = C(ulLongueur);
  // Checked before the header's growth, whose sum could pass 32 bits; the
  // growth only adds to the size, so the status is the same.
  if (z.tailleDonnees + t > z.taille) return us = KT_FAIL(KT_ERR_PLACE_ZONE);
  const auto grown = static_cast<std::uint32_t>(z.longueurGroupe + t);
  const std::uint32_t d = T(grown) - T(z.longueurGroupe);
  if (z.tailleDonnees + t + d > z.taille) return us = KT_FAIL(KT_ERR_PLACE_ZONE);

  z.offsetChamp = static_cast<std::uint32_t>(kt::zones::FieldEnd(z));
  if (z.offsetChamp < z.tailleDonnees) {
    kt::zones::Move(z, z.offsetChamp + d + t, z.offsetChamp, z.tailleDonnees - z.offsetChamp);
  }
  if (d != 0) {
    const std::uint32_t contents = z.offsetGroupe + z.tailleEnteteGroupe;
    kt::zones::Move(z, contents + d, contents, z.offsetChamp - contents);
    z.tailleEnteteGroupe += d;
    z.offsetChamp += d;
  }
  z.longueurGroupe = grown;
  (void)KT_stCoderLongueur(z.longueurGroupe, z.offsetGroupe + kIdentifierBytes, &z.buffer);
  ++z.compteurChamp;
  ++z.numeroChamp;
  z.LongueurChamp = ulLongueur;
  z.tailleLongueurChamp = KT_stCoderLongueur(ulLongueur, z.offsetChamp, &z.buffer);
  if (ulLongueur != 0) {
    std::memmove(z.buffer + z.offsetChamp + z.tailleLongueurChamp, pucDonnees, ulLongueur);
  }
  z.tailleDonnees += static_cast<std::uint32_t>(t) + d;
  failed.Dismiss();
  KT_TRACE(kTraceExit, "cr = 0x%04X, tailleDonnees = %u", us, z.tailleDonnees);
  return us;
}

uint16_t KT_usModifierChamp(uint16_t usZone, const uint8_t* pucDonnees, uint32_t ulPosition,
                            uint32_t ulLongueur, uint8_t bAgrandissement) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  std::uint16_t us = KT_OK;
  KT_TRACE(kTraceEnter, "KT_usModifierChamp : donnees = 0x%p, longueur = %u",
           static_cast<const void*>(pucDonnees), ulLongueur);
  ExitTrace exit{kTraceSub, "cr = 0x%04X", &us};
  ZoneRecord* found = nullptr;
  us = FindStructuredZone(usZone, &found);
  if (us != KT_OK) return us;
  ZoneRecord& z = *found;
  us = kt::zones::CheckPosition(z, ulPosition, " position > longueur du champ (%u).");
  if (us != KT_OK) return us;
  if (ulLongueur != 0 && pucDonnees == nullptr) return us = KT_FAIL(KT_ERR_ARGUMENT);
  if (!kt::zones::FieldInsideData(z)) return us = KT_FAIL(KT_ERR_CODAGE_ZONE);
  const std::uint64_t fin = std::uint64_t{ulPosition} + ulLongueur;
  const std::uint64_t value = std::uint64_t{z.offsetChamp} + z.tailleLongueurChamp;
  if (fin <= z.LongueurChamp) {
    if (ulLongueur != 0) std::memmove(z.buffer + value + ulPosition, pucDonnees, ulLongueur);
    return us;
  }
  if (bAgrandissement == 0) {
    KT_TRACE(kTraceError,
             "Agrandissement non autorise Position + Longueur > ZM[Zone]->LongueurChamp (%u).",
             z.LongueurChamp);
    return us = KT_FAIL(KT_ERR_POSITION);
  }
  if (!kt::zones::GroupInsideData(z) || !kt::zones::GroupHeaderIsShortest(z) ||
      !kt::zones::FieldLengthIsShortest(z)) {
    return us = KT_FAIL(KT_ERR_CODAGE_ZONE);
  }
  // The field grows by at least fin - LongueurChamp bytes: checking that
  // first keeps every sum below within 32 bits.
  if (z.tailleDonnees + (fin - z.LongueurChamp) > z.taille) return us = KT_FAIL(KT_ERR_PLACE_ZONE);
  const auto new_length = static_cast<std::uint32_t>(fin);
  const std::uint32_t dL = T(new_length) - T(z.LongueurChamp);
  const auto dC = static_cast<std::uint32_t>(C(new_length) - C(z.LongueurChamp));
  const std::uint32_t dE = T(z.longueurGroupe + dC) - T(z.longueurGroupe);
  if (std::uint64_t{z.tailleDonnees} + dE + dC > z.taille) return us = KT_FAIL(KT_ERR_PLACE_ZONE);

  // The new field ends here once the header has grown.
  const std::uint64_t new_field_end = z.offsetChamp + dE + C(new_length);
  const std::uint64_t old_field_end = kt::zones::FieldEnd(z);
  if (z.offsetChamp < z.tailleDonnees) {
    kt::zones::Move(z, new_field_end, old_field_end, z.tailleDonnees - old_field_end);
  }
  if (dE != 0) {
    const std::uint32_t contents = z.offsetGroupe + z.tailleEnteteGroupe;
    // The fields ahead and dL + dC bytes of this one move with the header.
    // That count passes the new field's end when a field of 0 to 2 bytes
    // grows into a long form; it is cut there, as what lies beyond is the
    // next field, already in place.
    std::uint64_t count = std::uint64_t{z.offsetChamp} - contents + dL + dC;
    if (contents + dE + count > new_field_end) count = new_field_end - contents - dE;
    kt::zones::Move(z, contents + dE, contents, count);
    z.tailleEnteteGroupe += dE;
    z.offsetChamp += dE;
  }
  z.longueurGroupe += dC;
  (void)KT_stCoderLongueur(z.longueurGroupe, z.offsetGroupe + kIdentifierBytes, &z.buffer);
  // The old value bytes ahead of the position are not moved when the field's
  // own coded length grows: from a position above 0 they end up dL places
  // earlier (kept as it always was; a rewrite from 0 is unaffected).
  z.LongueurChamp = new_length;
  z.tailleLongueurChamp = KT_stCoderLongueur(new_length, z.offsetChamp, &z.buffer);
  if (ulLongueur != 0) {
    std::memmove(z.buffer + z.offsetChamp + z.tailleLongueurChamp + ulPosition, pucDonnees,
                 ulLongueur);
  }
  z.tailleDonnees += dC + dE;
  return us;
}

uint16_t KT_usExtraireChamp(uint16_t usZone, uint8_t** ppucDonnees, uint32_t ulPosition,
                            uint32_t ulLongueur) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  std::uint16_t us = KT_OK;
  KT_TRACE(kTraceEnter, "KT_usExtraireChamp : donnees = 0x%p, pos = %u",
           static_cast<void*>(ppucDonnees), ulPosition);
  ExitTrace exit{kTraceSub, "cr = 0x%04X", &us};
  ZoneRecord* found = nullptr;
  us = FindStructuredZone(usZone, &found);
  if (us != KT_OK) return us;
  ZoneRecord& z = *found;
  us = kt::zones::CheckPosition(z, ulPosition, " position  > longueur du champ (%u).");
  if (us != KT_OK) return us;
  if (std::uint64_t{ulPosition} + ulLongueur > z.LongueurChamp) {
    KT_TRACE(kTraceError, " position + Longueur > longueur du champ (%u).", z.LongueurChamp);
    return us = KT_FAIL(KT_ERR_POSITION);
  }
  if (!kt::zones::FieldInsideData(z)) return us = KT_FAIL(KT_ERR_CODAGE_ZONE);
  if (ppucDonnees != nullptr) {
    *ppucDonnees = z.buffer + z.offsetChamp + z.tailleLongueurChamp + ulPosition;
  }
  return us;
}
