#include <cstdint>
#include <string>
#include <tuple>

#include "frame/frame_internal.h"
#include "zones/zone_test_util.h"

namespace {

using namespace kt::test;
using kt::testing::ArmFault;
using kt::testing::Fault;

class ZoneTable : public ZoneTest {};

TEST_F(ZoneTable, LowestFreeSlotFirstAndAHundredAtMost) {
  EXPECT_EQ(Create(8), 0);
  EXPECT_EQ(Create(8, false), 1);
  Release(0);
  EXPECT_EQ(Adopt({1, 2, 3}), 0);
  for (int i = 2; i < 100; ++i) ASSERT_EQ(Create(1), i);
  std::uint16_t zone = 0xFFFF;
  EXPECT_EQ(KT_bRechercherZoneLibre(&zone), 0);
  EXPECT_EQ(KT_usCreerZoneMemoire(1, 1, &zone), KT_ERR_MEMOIRE);
  std::uint8_t byte = 0;
  EXPECT_EQ(KT_usInitialiserZoneMemoire(&byte, 1, &zone, 1), KT_ERR_MEMOIRE);
  EXPECT_EQ(zone, 0xFFFF);
}

TEST_F(ZoneTable, CapacityZeroGivesOneZeroByteAndZonesOnlyGrow) {
  const std::uint16_t zone = Create(0, false);
  EXPECT_EQ(std::tuple(Record(zone).taille, Record(zone).buffer[0], Record(zone).tailleDonnees),
            std::tuple(1u, 0, 0u));
  EXPECT_EQ(KT_usRedimensionner(zone, 0), KT_ERR_MEMOIRE);  // the capacity, not the data
  // Same size: a new buffer all the same; the data and the cursor are kept,
  // so building from nothing goes on.
  const std::uint16_t built = Create(16);
  ASSERT_EQ(KT_usAjouterGroupe(built, 0x0102), KT_OK);
  const std::uint8_t* before = Record(built).buffer;
  ASSERT_EQ(KT_usRedimensionner(built, 16), KT_OK);
  EXPECT_NE(Record(built).buffer, before);
  ASSERT_EQ(Add(built, "AB"), KT_OK);
  EXPECT_EQ(Data(built), Bytes({0x01, 0x02, 0x03, 0x02, 0x41, 0x42}));
  // An adopted buffer is freed by a resize too (a leak fails the sanitizer build).
  EXPECT_EQ(KT_usRedimensionner(Adopt({1, 2, 1, 0}), 32), KT_OK);
}

TEST_F(ZoneTable, RawWritesRaiseTheDataAndReadsReachTheCapacity) {
  const std::uint16_t zone = Create(20, false);
  const std::uint8_t four[] = {9, 8, 7, 6};
  ASSERT_EQ(KT_usEcrireZoneMemoire(zone, 10, four, 4), KT_OK);
  ASSERT_EQ(KT_usEcrireZoneMemoire(zone, 0, four, 1), KT_OK);  // never shrinks
  EXPECT_EQ(Data(zone), Bytes({9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9, 8, 7, 6}));
  EXPECT_EQ(KT_usEcrireZoneMemoire(zone, 17, four, 4), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usEcrireZoneMemoire(zone, 0xFFFFFFFF, four, 2), KT_ERR_PLACE_ZONE);
  std::uint8_t out[6] = {};
  std::uint8_t* dest = out;
  EXPECT_EQ(KT_usLireZoneMemoire(zone, 12, &dest, 6), KT_OK);  // past the data
  EXPECT_EQ(ByteVector(out, out + 6), Bytes({7, 6, 0, 0, 0, 0}));
  EXPECT_EQ(KT_usLireZoneMemoire(zone, 15, &dest, 6), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usLireZoneMemoire(zone, 0xFFFFFFFE, &dest, 4), KT_ERR_PLACE_ZONE);
}

TEST_F(ZoneTable, AdoptionTakesTheCallersBufferAsItStands) {
  std::uint8_t byte = 0;
  std::uint16_t zone = 0;
  EXPECT_EQ(KT_usInitialiserZoneMemoire(nullptr, 8, &zone, 1), KT_ERR_ARGUMENT);
  EXPECT_EQ(KT_usInitialiserZoneMemoireNonPlein(&byte, 0, 0, &zone, 1), KT_ERR_ARGUMENT);
  zone = Adopt({1, 2, 3, 2, 'A', 'B'}, 8);
  std::uint8_t* buffer = Record(zone).buffer;
  ASSERT_EQ(KT_usPositionnerFin(zone, 0), KT_OK);
  ASSERT_EQ(KT_usAjouterChamp(zone, nullptr, 0), KT_OK);  // in place: room was left
  EXPECT_EQ(ByteVector(buffer, buffer + 8), Bytes({1, 2, 4, 2, 'A', 'B', 0, 0xEE}));
  // Claiming more data than the buffer holds: nothing reads or writes past it.
  ASSERT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
  ASSERT_EQ(KT_usInitialiserZoneMemoireNonPlein(buffer, 3, 200, &zone, 1), KT_OK);
  EXPECT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 1, nullptr), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(KT_usAjouterGroupe(zone, 5), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usControlerSyntaxeZoneMemoire(zone), KT_ERR_CODAGE_ZONE);
}

TEST_F(ZoneTable, UnknownNumbersAndWrongKindsAreRefused) {
  const std::uint16_t raw = Create(8, false);
  const std::uint16_t structured = Create(8);
  std::uint8_t byte = 0;
  std::uint8_t* p = &byte;
  // 100 is past the table, 42 a free slot; one operation of each family.
  for (std::uint16_t zone : {std::uint16_t{100}, std::uint16_t{42}}) {
    EXPECT_EQ(KT_pucLireBuffer(zone, nullptr, &p), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(KT_usEcrireZoneMemoire(zone, 0, &byte, 1), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(KT_usLireGroupeSuivant(zone, 1, nullptr, nullptr), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(KT_usModifierChamp(zone, &byte, 0, 1, 1), KT_ERR_NUMERO_INCONNU);
  }
  EXPECT_EQ(KT_usEcrireZoneMemoire(structured, 0, &byte, 1), KT_ERR_MODE);
  EXPECT_EQ(KT_usRechercherChamp(raw, 1, 1, 1, 0, nullptr, nullptr), KT_ERR_MODE);
  EXPECT_EQ(KT_usAjouterGroupe(raw, 1), KT_ERR_MODE);
}

TEST_F(ZoneTable, FailedAllocationsAndReleaseLeaveEverythingUsable) {
  std::uint16_t zone = 0xFFFF;
  ArmFault(Fault::kAlloc, 0);  // no record: the slot stays free
  EXPECT_EQ(KT_usCreerZoneMemoire(8, 1, &zone), KT_ERR_MEMOIRE);
  EXPECT_EQ(KT_bRechercherZoneLibre(nullptr), 1);
  ArmFault(Fault::kAlloc, 1);  // no buffer: the record stays, with nothing to write into
  std::uint16_t us = 0;
  const std::string trace = CaptureTrace({3}, 2, [&] { us = KT_usCreerZoneMemoire(8, 0, &zone); });
  EXPECT_EQ(us, KT_ERR_MEMOIRE);  // traced as 0, kept as it always was
  EXPECT_EQ(trace, "{ KT_usCreationZoneMemoire : taille = 8\n  cr = 0x0000\n}\n");
  const std::uint8_t byte = 0;
  EXPECT_EQ(KT_usEcrireZoneMemoire(zone, 0, &byte, 1), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usRedimensionner(zone, 4), KT_OK);
  // A failed resize keeps the old buffer.
  std::uint8_t* buffer = Record(zone).buffer;
  ArmFault(Fault::kAlloc, 0);
  EXPECT_EQ(KT_usRedimensionner(zone, 100), KT_ERR_MEMOIRE);
  EXPECT_EQ(Record(zone).buffer, buffer);
  // Release keeps the buffer: the sanitizer build checks it is not freed twice.
  ASSERT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
  EXPECT_EQ(KT_usLibererZoneMemoire(zone), KT_ERR_NUMERO_INCONNU);
  KT_Liberer(buffer);
}

}  // namespace
