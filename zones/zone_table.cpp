// The zone table ZM and the life of a zone: creation, adoption of a caller's
// buffer, release, resizing, raw reads and writes, and the end tests that
// the cursor builds on.
//
// Ownership: a record belongs to its slot and is freed on release; the
// buffer never is. A created zone's buffer goes to whoever takes it with
// KT_pucLireBuffer, an adopted one stays the caller's. Resizing is the one
// place that frees a buffer, whatever its origin.
#include <array>
#include <cstring>

#include "frame/frame_internal.h"
#include "traces/traces_internal.h"
#include "zones/zones_internal.h"

namespace {
constexpr std::uint16_t kTraceSub = 3;  // memory zones and length coding
}  // namespace

namespace kt::zones {
namespace {

// Slot i holds zone number i; null is a free slot.
std::array<std::atomic<ZoneRecord*>, kZoneCount> ZM{};
frame::SlotLocks<kZoneCount> g_locks;

// Frees the records, not the buffers: those belong to the callers.
void Reset() {
  for (std::atomic<ZoneRecord*>& record : ZM) {
    KT_Liberer(record.load(std::memory_order_relaxed));
    record.store(nullptr, std::memory_order_relaxed);
  }
}

// Takes the lowest free slot with a new cleared record, and holds the slot's
// lock in `guard`; null when no slot is free or memory runs out.
ZoneRecord* NewRecord(std::uint16_t* zone, frame::SlotGuard& guard) {
  std::uint16_t slot = 0;
  for (;;) {
    if (KT_bRechercherZoneLibre(&slot) == 0) return nullptr;
    guard.Acquire(g_locks.At(slot));
    // Another caller may have taken the slot between the search and the lock.
    if (ZM[slot].load(std::memory_order_relaxed) == nullptr) break;
    guard.Release();
  }
  auto* record = static_cast<ZoneRecord*>(KT_Allouer(sizeof(ZoneRecord)));
  if (record == nullptr) return nullptr;
  std::memset(record, 0, sizeof *record);
  ZM[slot].store(record, std::memory_order_release);
  *zone = slot;
  return record;
}

// Adoption shared by the full and non-full variants.
std::uint16_t Adopt(std::uint8_t* buffer, std::uint32_t capacity, std::uint32_t data_length,
                    std::uint16_t* zone, std::uint8_t structured) {
  std::uint16_t us = KT_OK;
  KT_TRACE(kt::traces::kTraceEnter, "KT_usInitZoneMemoire : buffer = 0x%p, taille = %u",
           static_cast<void*>(buffer), capacity);
  kt::traces::ExitTrace exit{kTraceSub, "cr = 0x%04X", &us};
  if (buffer == nullptr || capacity == 0 || zone == nullptr) return us = KT_FAIL(KT_ERR_ARGUMENT);
  frame::SlotGuard guard;
  ZoneRecord* z = NewRecord(zone, guard);
  if (z == nullptr) return us = KT_FAIL(KT_ERR_MEMOIRE);
  z->buffer = buffer;
  z->taille = capacity;
  z->tailleDonnees = data_length;
  z->bStructuree = structured;
  if (structured != 0) us = KT_usPositionnerDebut(*zone);
  return us;
}

// The record of a raw zone, for the byte-position operations.
std::uint16_t FindRawZone(std::uint16_t zone, ZoneRecord** record) {
  *record = FindZone(zone);
  if (*record == nullptr) return KT_FAIL(KT_ERR_NUMERO_INCONNU);
  if ((*record)->bStructuree != 0) return KT_FAIL(KT_ERR_MODE);
  return KT_OK;
}

// Shared by the three end tests.
template <bool (*Test)(const ZoneRecord&)>
std::uint16_t EndTest(std::uint16_t zone, std::uint32_t* end) {
  ZoneRecord* z = nullptr;
  const std::uint16_t us = FindStructuredZone(zone, &z);
  if (us != KT_OK) return us;
  if (end != nullptr) *end = Test(*z) ? 1 : 0;
  return KT_OK;
}

}  // namespace

frame::SlotLock* ZoneLock(std::uint16_t zone) noexcept { return g_locks.At(zone); }

ZoneRecord* FindZone(std::uint16_t zone) noexcept {
  return zone < kZoneCount ? ZM[zone].load(std::memory_order_relaxed) : nullptr;
}

std::uint16_t FindStructuredZone(std::uint16_t zone, ZoneRecord** record) noexcept {
  *record = FindZone(zone);
  if (*record == nullptr) return KT_FAIL(KT_ERR_NUMERO_INCONNU);
  if ((*record)->bStructuree == 0) return KT_FAIL(KT_ERR_MODE);
  return KT_OK;
}

void ClearCursor(ZoneRecord& z) noexcept {
  z.offsetChamp = 0;
  z.offsetGroupe = 0;
  z.tailleLongueurChamp = 0;
  z.reserved = 0;
  z.LongueurChamp = 0;
  z.longueurGroupe = 0;
  z.tailleEnteteGroupe = 0;
  z.identifiant = 0;
  z.numeroChamp = 0;
  z.compteurGroupe = 0;
  z.compteurChamp = 0;
}

}  // namespace kt::zones

void kt::testing::ResetZones() noexcept { kt::zones::Reset(); }

using namespace kt::traces;
using kt::zones::FindZone;
using kt::zones::ZoneRecord;

uint8_t KT_bRechercherZoneLibre(uint16_t* pusZone) {
  for (std::uint16_t i = 0; i < kt::zones::kZoneCount; ++i) {
    if (kt::zones::ZM[i].load(std::memory_order_acquire) == nullptr) {
      if (pusZone != nullptr) *pusZone = i;
      return 1;
    }
  }
  return 0;
}

uint16_t KT_usCreerZoneMemoire(uint32_t ulTaille, uint8_t bStructuree, uint16_t* pusZone) {
  KT_TRACE(kTraceEnter, "KT_usCreationZoneMemoire : taille = %u", ulTaille);
  // The exit trace shows the cursor's result, 0 when creation failed, not
  // the status returned (kept as it always was).
  std::uint16_t cr = KT_OK;
  ExitTrace exit{kTraceSub, "cr = 0x%04X", &cr};
  if (pusZone == nullptr) return KT_FAIL(KT_ERR_ARGUMENT);
  kt::frame::SlotGuard guard;
  ZoneRecord* z = kt::zones::NewRecord(pusZone, guard);
  if (z == nullptr) return KT_FAIL(KT_ERR_MEMOIRE);
  const std::uint32_t capacity = ulTaille == 0 ? 1 : ulTaille;
  auto* buffer = static_cast<std::uint8_t*>(KT_Allouer(capacity));
  // The record stays in its slot without a buffer; its capacity stays 0 so
  // that nothing is ever read or written through the null buffer.
  if (buffer == nullptr) return KT_FAIL(KT_ERR_MEMOIRE);
  std::memset(buffer, 0, capacity);
  z->buffer = buffer;
  z->taille = capacity;
  z->bStructuree = bStructuree;
  if (bStructuree != 0) cr = KT_usPositionnerDebut(*pusZone);
  return KT_OK;
}

uint16_t KT_usInitialiserZoneMemoire(uint8_t* pucBuffer, uint32_t ulTaille, uint16_t* pusZone,
                                     uint8_t bStructuree) {
  return kt::zones::Adopt(pucBuffer, ulTaille, ulTaille, pusZone, bStructuree);
}

uint16_t KT_usInitialiserZoneMemoireNonPlein(uint8_t* pucBuffer, uint32_t ulTaille,
                                             uint32_t ulTailleDonnees, uint16_t* pusZone,
                                             uint8_t bStructuree) {
  return kt::zones::Adopt(pucBuffer, ulTaille, ulTailleDonnees, pusZone, bStructuree);
}

uint16_t KT_usLibererZoneMemoire(uint16_t usZone) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  std::uint16_t us = KT_OK;
  KT_TRACE(kTraceEnter, "KT_usLibererZoneMemoire : numero de zone = %u", usZone);
  ExitTrace exit{kTraceSub, "cr = 0x%04X", &us};
  ZoneRecord* z = FindZone(usZone);
  if (z == nullptr) return us = KT_FAIL(KT_ERR_NUMERO_INCONNU);
  // The buffer stays with the caller, also when the library allocated it.
  KT_Liberer(z);
  kt::zones::ZM[usZone].store(nullptr, std::memory_order_release);
  return us;
}

uint16_t KT_usRedimensionner(uint16_t usZone, uint32_t ulTaille) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  std::uint16_t us = KT_OK;
  KT_TRACE(kTraceEnter, "KT_usRedimensionner : taille = %u", ulTaille);
  ExitTrace exit{kTraceSub, "cr = 0x%04X", &us};
  ZoneRecord* z = FindZone(usZone);
  if (z == nullptr) return us = KT_FAIL(KT_ERR_NUMERO_INCONNU);
  // Compared with the capacity although the message speaks of the data
  // (kept as it always was): a zone only grows or keeps its size.
  if (ulTaille < z->taille) {
    KT_TRACE(kTraceError, "Nouvelle taille (%u) inferieure a la taille des donnees (%u).", ulTaille,
             z->taille);
    return us = KT_FAIL(KT_ERR_MEMOIRE);
  }
  auto* buffer = static_cast<std::uint8_t*>(KT_Allouer(ulTaille));
  if (buffer == nullptr) return us = KT_FAIL(KT_ERR_MEMOIRE);
  // A non-full adoption may claim more data than the old buffer holds: only
  // what it really holds is copied.
  const std::uint32_t copied = kt::zones::ReadableEnd(*z);
  if (copied != 0) std::memcpy(buffer, z->buffer, copied);
  KT_Liberer(z->buffer);
  z->buffer = buffer;
  z->taille = ulTaille;
  return us;
}

uint16_t KT_pucLireBuffer(uint16_t usZone, uint32_t* pulTaille, uint8_t** ppucBuffer) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  const ZoneRecord* z = FindZone(usZone);
  if (z == nullptr) return KT_FAIL(KT_ERR_NUMERO_INCONNU);
  if (pulTaille != nullptr) *pulTaille = z->tailleDonnees;
  if (ppucBuffer != nullptr) *ppucBuffer = z->buffer;
  return KT_OK;
}

uint16_t KT_usLireZoneMemoire(uint16_t usZone, uint32_t ulPosition, uint8_t** ppucDestination,
                              uint32_t ulLongueur) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  ZoneRecord* z = nullptr;
  std::uint16_t us = kt::zones::FindRawZone(usZone, &z);
  if (us != KT_OK) return us;
  // The bound is the capacity, not the data length.
  if (std::uint64_t{ulPosition} + ulLongueur > z->taille) {
    us = KT_FAIL(KT_ERR_PLACE_ZONE);
    KT_TRACE(kTraceError, " cr = 0x%04X", us);
    return us;
  }
  if (ulLongueur == 0) return KT_OK;
  if (ppucDestination == nullptr || *ppucDestination == nullptr) return KT_FAIL(KT_ERR_ARGUMENT);
  std::memcpy(*ppucDestination, z->buffer + ulPosition, ulLongueur);
  return KT_OK;
}

uint16_t KT_usEcrireZoneMemoire(uint16_t usZone, uint32_t ulPosition, const uint8_t* pucSource,
                                uint32_t ulLongueur) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  ZoneRecord* z = nullptr;
  const std::uint16_t us = kt::zones::FindRawZone(usZone, &z);
  if (us != KT_OK) return us;
  const std::uint64_t end = std::uint64_t{ulPosition} + ulLongueur;
  if (end > z->taille) return KT_FAIL(KT_ERR_PLACE_ZONE);
  if (ulLongueur != 0) {
    if (pucSource == nullptr) return KT_FAIL(KT_ERR_ARGUMENT);
    std::memmove(z->buffer + ulPosition, pucSource, ulLongueur);
  }
  if (end > z->tailleDonnees) z->tailleDonnees = static_cast<std::uint32_t>(end);
  return KT_OK;
}

uint16_t KT_usFinDonnees(uint16_t usZone, uint32_t* pbFin) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  return kt::zones::EndTest<kt::zones::AtDataEnd>(usZone, pbFin);
}

uint16_t KT_usFinZone(uint16_t usZone, uint32_t* pbFin) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  return kt::zones::EndTest<kt::zones::AtZoneEnd>(usZone, pbFin);
}

uint16_t KT_usFinGroupe(uint16_t usZone, uint32_t* pbFin) {
  const kt::frame::SlotGuard guard{kt::zones::ZoneLock(usZone)};
  return kt::zones::EndTest<kt::zones::AtGroupEnd>(usZone, pbFin);
}
