// What the zone files share: the zone record, the lookup into the zone
// table and the arithmetic of the cursor. Never included from include/.
//
// Safety model. A zone adopted from a caller holds arbitrary bytes, and a
// non-full adoption may even claim more data than its buffer holds. Every
// read of the structure is therefore bounded by ReadableEnd(), the data
// length cut to the capacity, and every end is computed in 64 bits so that
// a huge decoded length cannot wrap around and pass a bound. For a zone
// whose data length fits its capacity (every zone the library builds) these
// bounds are exactly the data length, so no result changes.
#ifndef KT_ZONES_ZONES_INTERNAL_H_
#define KT_ZONES_ZONES_INTERNAL_H_

#include <algorithm>
#include <cstdint>

#include "frame/locks.h"
#include "frame/support.h"
#include "kt_zones.h"

namespace kt::zones {

inline constexpr std::uint16_t kZoneCount = 100;

// One memory zone. The members from offsetChamp to compteurChamp are the
// cursor; the cursor at the start is all zero, an empty pseudo-group at
// offset 0, so that the next group always begins at the current group's end.
struct ZoneRecord {
  std::uint8_t* buffer;               // the zone's bytes
  std::uint32_t taille;               // capacity of buffer
  std::uint32_t tailleDonnees;        // meaningful bytes from offset 0
  std::uint32_t bStructuree;          // non-zero: groups and fields; zero: raw bytes
  std::uint32_t offsetChamp;          // offset of the current field's coded length
  std::uint32_t offsetGroupe;         // offset of the current group's header
  std::uint32_t tailleLongueurChamp;  // bytes of the current field's coded length
  std::uint32_t reserved;             // cleared with the cursor, used by nothing
  std::uint32_t LongueurChamp;        // value length of the current field
  std::uint32_t longueurGroupe;       // content length of the current group
  std::uint32_t tailleEnteteGroupe;   // bytes of the current group's header
  std::uint16_t identifiant;          // identifier of the current group
  std::uint16_t numeroChamp;          // current field within its group, from 1; 0 before
  std::uint16_t compteurGroupe;       // groups stepped onto since the last start
  std::uint16_t compteurChamp;        // fields stepped onto since the last start
};
// A pointer, ten 32-bit and four 16-bit members, padded only at the end:
// 56 bytes with 64-bit pointers, 52 with 32-bit ones.
static_assert(sizeof(ZoneRecord) ==
                  (sizeof(std::uint8_t*) + 10 * 4 + 4 * 2 + alignof(ZoneRecord) - 1) /
                      alignof(ZoneRecord) * alignof(ZoneRecord),
              "zone record layout");

// The lock that serialises the calls on one zone: every public operation on
// a zone number holds it for its whole call. Calls on different zones never
// wait on each other; a number above 99 has none (null).
frame::SlotLock* ZoneLock(std::uint16_t zone) noexcept;

// The record of a used slot, or null for a number above 99 or a free slot.
// The caller holds the zone's lock.
ZoneRecord* FindZone(std::uint16_t zone) noexcept;

// The record of a structured zone: KT_ERR_NUMERO_INCONNU for a bad number,
// KT_ERR_MODE for a raw zone.
[[nodiscard]] std::uint16_t FindStructuredZone(std::uint16_t zone, ZoneRecord** record) noexcept;

// KT_usAvancerGroupeSuivant and KT_usAvancerChampSuivant on a structured
// zone whose lock the caller holds: the zone's own operations step with
// these rather than through the public calls.
std::uint16_t AdvanceGroups(ZoneRecord& z, std::uint16_t count, std::uint8_t count_fields,
                            std::uint16_t* identifier) noexcept;
std::uint16_t AdvanceFields(ZoneRecord& z, std::uint16_t count, std::uint16_t* number,
                            std::uint8_t** value, std::uint32_t* length) noexcept;

// Clears the cursor (the start of the zone).
void ClearCursor(ZoneRecord& z) noexcept;

// The data length, cut to the capacity: the bound of every structural read.
inline std::uint32_t ReadableEnd(const ZoneRecord& z) noexcept {
  return std::min(z.tailleDonnees, z.taille);
}

// Where the next group begins: the current group's end.
inline std::uint64_t GroupEnd(const ZoneRecord& z) noexcept {
  return std::uint64_t{z.offsetGroupe} + z.tailleEnteteGroupe + z.longueurGroupe;
}

// Where the next field begins: the current field's end.
inline std::uint64_t FieldEnd(const ZoneRecord& z) noexcept {
  return std::uint64_t{z.offsetChamp} + z.tailleLongueurChamp + z.LongueurChamp;
}

// Where the current group's contents begin.
inline std::uint64_t ContentStart(const ZoneRecord& z) noexcept {
  return std::uint64_t{z.offsetGroupe} + z.tailleEnteteGroupe;
}

// Error text of a group that runs past the data, traced by the cursor and by
// syntax control (ISO 8859-1).
inline constexpr char kGroupPastDataText[] =
    " La taille du groupe (%u) d\xE9"
    "passe la taille des donn\xE9"
    "es.";

// The three end tests.
inline bool AtDataEnd(const ZoneRecord& z) noexcept { return FieldEnd(z) >= ReadableEnd(z); }
inline bool AtZoneEnd(const ZoneRecord& z) noexcept { return GroupEnd(z) >= ReadableEnd(z); }
inline bool AtGroupEnd(const ZoneRecord& z) noexcept { return FieldEnd(z) >= GroupEnd(z); }

// Editing trusts the cursor's offsets. They always lie inside the data when
// the cursor got there through successful steps; a failed step on a badly
// coded zone may leave it on a group or field that overruns the data, and
// no edit may start from there.
inline bool GroupInsideData(const ZoneRecord& z) noexcept { return GroupEnd(z) <= ReadableEnd(z); }
inline bool FieldInsideData(const ZoneRecord& z) noexcept {
  return z.offsetChamp >= ContentStart(z) && FieldEnd(z) <= ReadableEnd(z);
}

}  // namespace kt::zones

#endif  // KT_ZONES_ZONES_INTERNAL_H_
