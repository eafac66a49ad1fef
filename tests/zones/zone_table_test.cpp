#include <cstdint>
#include <cstring>
#include <string>

#include "frame/frame_internal.h"
#include "zones/zone_test_util.h"

namespace {

using kt::test::Bytes;
using kt::test::ByteVector;
using kt::test::CaptureTrace;
using kt::testing::ArmFault;
using kt::testing::Fault;

class ZoneTable : public kt::test::ZoneTest {};

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
  EXPECT_EQ(Record(zone).taille, 1u);
  EXPECT_EQ(Record(zone).buffer[0], 0);
  EXPECT_TRUE(Data(zone).empty());
  std::uint16_t us = 0;
  const std::string trace = CaptureTrace({3}, 2, [&] { us = KT_usRedimensionner(zone, 0); });
  EXPECT_EQ(us, KT_ERR_MEMOIRE);  // even with no data
  EXPECT_EQ(trace,
            "{ KT_usRedimensionner : taille = 0\n"
            "  ERREUR : Nouvelle taille (0) inferieure a la taille des donnees (1).\n"
            "  cr = 0xF801\n}\n");
  // Same size: a new buffer all the same; the data and the cursor are kept.
  const std::uint16_t built = Create(16);
  ASSERT_EQ(KT_usAjouterGroupe(built, 0x0102), KT_OK);
  ASSERT_EQ(KT_usAjouterChamp(built, reinterpret_cast<const std::uint8_t*>("AB"), 2), KT_OK);
  const std::uint8_t* before = Record(built).buffer;
  ASSERT_EQ(KT_usRedimensionner(built, 16), KT_OK);
  EXPECT_NE(Record(built).buffer, before);
  ASSERT_EQ(KT_usRedimensionner(built, 64), KT_OK);
  ASSERT_EQ(KT_usAjouterChamp(built, reinterpret_cast<const std::uint8_t*>("C"), 1), KT_OK);
  EXPECT_EQ(Data(built), Bytes({0x01, 0x02, 0x05, 0x02, 0x41, 0x42, 0x01, 0x43}));
}

TEST_F(ZoneTable, RawWritesRaiseTheDataAndReadsReachTheCapacity) {
  const std::uint16_t zone = Create(20, false);
  const std::uint8_t four[] = {9, 8, 7, 6};
  ASSERT_EQ(KT_usEcrireZoneMemoire(zone, 10, four, 4), KT_OK);
  EXPECT_EQ(Data(zone), Bytes({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9, 8, 7, 6}));
  ASSERT_EQ(KT_usEcrireZoneMemoire(zone, 0, four, 1), KT_OK);
  EXPECT_EQ(Data(zone).size(), 14u);  // never shrinks
  EXPECT_EQ(KT_usEcrireZoneMemoire(zone, 17, four, 4), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usEcrireZoneMemoire(zone, 0xFFFFFFFF, four, 2), KT_ERR_PLACE_ZONE);
  std::uint8_t out[6] = {};
  std::uint8_t* dest = out;
  EXPECT_EQ(KT_usLireZoneMemoire(zone, 12, &dest, 6), KT_OK);  // past the data
  EXPECT_EQ(ByteVector(out, out + 6), Bytes({7, 6, 0, 0, 0, 0}));
  std::uint16_t us = 0;
  const std::string trace =
      CaptureTrace({3}, 2, [&] { us = KT_usLireZoneMemoire(zone, 15, &dest, 6); });
  EXPECT_EQ(us, KT_ERR_PLACE_ZONE);
  EXPECT_EQ(trace, "ERREUR :  cr = 0xF804\n");
  EXPECT_EQ(KT_usLireZoneMemoire(zone, 0xFFFFFFFE, &dest, 4), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usLireZoneMemoire(zone, 0, nullptr, 4), KT_ERR_ARGUMENT);
}

TEST_F(ZoneTable, AdoptionTakesTheCallersBufferAsItStands) {
  std::uint8_t bytes[8] = {1, 2, 3, 2, 'A', 'B', 0x55, 0x55};
  std::uint16_t zone = 0;
  EXPECT_EQ(KT_usInitialiserZoneMemoire(nullptr, 8, &zone, 1), KT_ERR_ARGUMENT);
  EXPECT_EQ(KT_usInitialiserZoneMemoireNonPlein(bytes, 0, 0, &zone, 1), KT_ERR_ARGUMENT);
  ASSERT_EQ(KT_usInitialiserZoneMemoireNonPlein(bytes, 8, 6, &zone, 1), KT_OK);
  EXPECT_EQ(Record(zone).buffer, bytes);  // not copied
  ASSERT_EQ(KT_usPositionnerFin(zone, 0), KT_OK);
  ASSERT_EQ(KT_usAjouterChamp(zone, nullptr, 0), KT_OK);  // room was left
  EXPECT_EQ(ByteVector(bytes, bytes + 8), Bytes({1, 2, 4, 2, 'A', 'B', 0, 0x55}));
  ASSERT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
  // Claiming more data than the buffer holds: nothing reads past it.
  ASSERT_EQ(KT_usInitialiserZoneMemoireNonPlein(bytes, 3, 200, &zone, 1), KT_OK);
  EXPECT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 1, nullptr), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(KT_usAvancerChampSuivant(zone, 1, nullptr, nullptr, nullptr), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(KT_usAjouterGroupe(zone, 5), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usPositionnerFin(zone, 1), KT_OK);
  std::uint32_t size = 0;
  ASSERT_EQ(KT_pucLireBuffer(zone, &size, nullptr), KT_OK);
  EXPECT_EQ(size, 200u);  // reported as given
  ASSERT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
}

TEST_F(ZoneTable, UnknownNumbersAndWrongKindsAreRefused) {
  const std::uint16_t raw = Create(8, false);
  const std::uint16_t structured = Create(8);
  std::uint8_t byte = 0;
  std::uint8_t* p = &byte;
  std::uint32_t word = 0;
  // One operation of each family; all share the same lookup.
  for (std::uint16_t zone : {std::uint16_t{100}, std::uint16_t{0xFFFF}, std::uint16_t{42}}) {
    EXPECT_EQ(KT_usLibererZoneMemoire(zone), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(KT_pucLireBuffer(zone, &word, &p), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(KT_usEcrireZoneMemoire(zone, 0, &byte, 1), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(KT_usFinGroupe(zone, &word), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(KT_usLireGroupeSuivant(zone, 1, nullptr, nullptr), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(KT_usModifierChamp(zone, &byte, 0, 1, 1), KT_ERR_NUMERO_INCONNU);
  }
  EXPECT_EQ(KT_usLireZoneMemoire(structured, 0, &p, 1), KT_ERR_MODE);
  EXPECT_EQ(KT_usEcrireZoneMemoire(structured, 0, &byte, 1), KT_ERR_MODE);
  EXPECT_EQ(KT_usFinZone(raw, &word), KT_ERR_MODE);
  EXPECT_EQ(KT_usAvancerGroupeSuivant(raw, 1, 0, nullptr), KT_ERR_MODE);
  EXPECT_EQ(KT_usRechercherChamp(raw, 1, 1, 1, 0, nullptr, nullptr), KT_ERR_MODE);
  EXPECT_EQ(KT_usAjouterGroupe(raw, 1), KT_ERR_MODE);
}

TEST_F(ZoneTable, AllocationFailures) {
  std::uint16_t zone = 0xFFFF;
  ArmFault(Fault::kAlloc, 0);  // no record: the slot stays free
  EXPECT_EQ(KT_usCreerZoneMemoire(8, 1, &zone), KT_ERR_MEMOIRE);
  EXPECT_EQ(KT_bRechercherZoneLibre(&zone), 1);
  EXPECT_EQ(zone, 0);
  ArmFault(Fault::kAlloc, 1);  // no buffer: the record stays, with nothing to write into
  std::uint16_t us = 0;
  const std::string trace = CaptureTrace({3}, 2, [&] { us = KT_usCreerZoneMemoire(8, 0, &zone); });
  EXPECT_EQ(us, KT_ERR_MEMOIRE);
  EXPECT_EQ(trace, "{ KT_usCreationZoneMemoire : taille = 8\n  cr = 0x0000\n}\n");
  EXPECT_EQ(Record(0).buffer, nullptr);
  std::uint8_t byte = 0;
  EXPECT_EQ(KT_usEcrireZoneMemoire(0, 0, &byte, 1), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usRedimensionner(0, 4), KT_OK);
  EXPECT_EQ(KT_usEcrireZoneMemoire(0, 0, &byte, 1), KT_OK);
  // A failed resize keeps the old buffer.
  const std::uint8_t* before = Record(0).buffer;
  ArmFault(Fault::kAlloc, 0);
  EXPECT_EQ(KT_usRedimensionner(0, 100), KT_ERR_MEMOIRE);
  EXPECT_EQ(Record(0).buffer, before);
  EXPECT_EQ(Record(0).taille, 4u);
}

TEST_F(ZoneTable, ReleaseLeavesTheBufferToTheCaller) {
  std::uint16_t zone = 0xFFFF;
  std::uint8_t* buffer = nullptr;
  const std::string trace = CaptureTrace({3}, 2, [&] {
    ASSERT_EQ(KT_usCreerZoneMemoire(16, 0, &zone), KT_OK);
    ASSERT_EQ(KT_pucLireBuffer(zone, nullptr, &buffer), KT_OK);
    ASSERT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
    ASSERT_EQ(KT_usLibererZoneMemoire(zone), KT_ERR_NUMERO_INCONNU);
  });
  KT_Liberer(buffer);  // still ours: the sanitizer build checks it was not freed twice
  EXPECT_EQ(trace,
            "{ KT_usCreationZoneMemoire : taille = 16\n  cr = 0x0000\n}\n"
            "{ KT_usLibererZoneMemoire : numero de zone = 0\n  cr = 0x0000\n}\n"
            "{ KT_usLibererZoneMemoire : numero de zone = 0\n  cr = 0xF807\n}\n");
  // An adopted buffer from the allocator is freed by a resize.
  auto* bytes = static_cast<std::uint8_t*>(KT_Allouer(4));
  std::memcpy(bytes, "\x01\x02\x01\x00", 4);
  ASSERT_EQ(KT_usInitialiserZoneMemoire(bytes, 4, &zone, 1), KT_OK);
  ASSERT_EQ(KT_usRedimensionner(zone, 32), KT_OK);
  EXPECT_EQ(Data(zone), Bytes({1, 2, 1, 0}));
}

}  // namespace
