#include <cstdint>
#include <string>
#include <tuple>

#include "zones/zone_test_util.h"

namespace {

using namespace kt::test;

class ZoneCursor : public ZoneTest {};

TEST_F(ZoneCursor, WalksTheOneFieldZoneAndTracesEachStep) {
  const std::uint16_t zone = Adopt({0x01, 0x02, 0x03, 0x02, 0x41, 0x42});
  std::uint16_t id = 0;
  std::uint16_t number = 0;
  std::uint8_t* value = nullptr;
  std::uint32_t length = 0;
  const std::string trace = CaptureTrace({3}, 2, [&] {
    ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 0, &id), KT_OK);
    ASSERT_EQ(KT_usAvancerChampSuivant(zone, 1, &number, &value, &length), KT_OK);
    EXPECT_EQ(KT_usAvancerChampSuivant(zone, 1, &number, &value, &length), KT_ERR_FIN);
    EXPECT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 0, &id), KT_ERR_FIN);
  });
  EXPECT_EQ(std::tuple(id, number), std::tuple(0x0102, 1));
  EXPECT_EQ(AsText(value, length), "AB");
  EXPECT_EQ(trace,
            "{ KT_stDecoderLongueur : offset = 2\n  cr = 0x0000\n}\n"
            "offsetGroupe = 0, longueurGroupe = 3, tailleEnteteGroupe  = 3\n"
            "offsetChamp = 3, longueurChamp = 0, tailleLongueurChamp  = 0\n"
            "{ KT_stDecoderLongueur : offset = 3\n  cr = 0x0000\n}\n"
            "offsetChamp  = 3, longueurChamp  = 2, tailleLongueurChamp = 1\n"
            "ERREUR :  Fin du groupe atteinte.\n"
            "ERREUR :  Fin de la zone atteinte.\n");
}

TEST_F(ZoneCursor, RepeatCountsAndFieldCounting) {
  const std::uint16_t zone = FourGroups();
  std::uint16_t id = 0;
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 0, 1, &id), KT_OK);  // 0 acts as 1
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 1, &id), KT_OK);  // over 2 fields
  EXPECT_EQ(std::tuple(id, Record(zone).compteurChamp), std::tuple(0x0B, 2));
  std::uint8_t* value = nullptr;
  std::uint32_t length = 0;
  ASSERT_EQ(KT_usAvancerChampSuivant(zone, 3, nullptr, &value, &length), KT_OK);
  EXPECT_EQ(AsText(value, length), "b3");
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 0, &id), KT_OK);  // not counting
  EXPECT_EQ(KT_usAvancerGroupeSuivant(zone, 5, 0, &id), KT_ERR_FIN);
  std::uint16_t counts[2] = {};  // stopped on the last group
  ASSERT_EQ(KT_usLireCompteurGroupe(zone, &counts[0]), KT_OK);
  ASSERT_EQ(KT_usLireCompteurChamp(zone, &counts[1]), KT_OK);
  EXPECT_EQ(std::tuple(counts[0], counts[1]), std::tuple(4, 5));
  ASSERT_EQ(KT_usPositionnerDebut(zone), KT_OK);
  ASSERT_EQ(KT_usPositionnerFin(zone, 1), KT_OK);
  EXPECT_EQ(std::tuple(Record(zone).compteurGroupe, Record(zone).compteurChamp), std::tuple(4, 7));
  const std::uint16_t empty = Create(8);
  ASSERT_EQ(KT_usPositionnerFin(empty, 1), KT_OK);
  EXPECT_EQ(Record(empty).compteurGroupe, 0);
}

TEST_F(ZoneCursor, SearchesByIdentifierOccurrenceAndFieldNumber) {
  const std::uint16_t zone = FourGroups();
  EXPECT_EQ(KT_usRechercherGroupe(zone, 0x0A, 3, 0), KT_OK);
  EXPECT_EQ(Record(zone).compteurGroupe, 4);
  EXPECT_EQ(KT_usRechercherGroupe(zone, 0x0B, 2, 0), KT_ERR_OCCURRENCE);
  EXPECT_EQ(KT_usRechercherGroupe(zone, 0x0C, 1, 0), KT_ERR_FIN);
  EXPECT_EQ(KT_usRechercherGroupe(zone, 0x0C, 2, 0), KT_ERR_FIN);
  EXPECT_EQ(KT_usRechercherGroupe(100, 0x0C, 0, 0), KT_ERR_ARGUMENT);  // before the number
  ASSERT_EQ(KT_usRechercherGroupe(zone, 0x0B, 1, 0), KT_OK);
  EXPECT_EQ(KT_usRechercherGroupeSuivant(zone, 0, 5, 0), KT_OK);  // identifier 0: no move
  EXPECT_EQ(Record(zone).compteurGroupe, 2);
  EXPECT_EQ(KT_usRechercherGroupeSuivant(zone, 0x0A, 2, 0), KT_OK);  // onward
  EXPECT_EQ(Record(zone).compteurGroupe, 4);
  EXPECT_EQ(KT_usRechercherChamp(zone, 0x0A, 2, 2, 0, nullptr, nullptr), KT_ERR_FIN);
  EXPECT_EQ(KT_usRechercherChamp(zone, 0x0A, 1, 0, 0, nullptr, nullptr), KT_ERR_ARGUMENT);
}

TEST_F(ZoneCursor, ReadNextGroupCountsOccurrencesAgainFromTheStart) {
  const std::uint16_t zone = FourGroups();
  std::uint16_t id = 0;
  std::uint16_t occurrence = 99;
  // From the start: the first identifier, occurrence 0, no move (kept as it always was).
  ASSERT_EQ(KT_usLireGroupeSuivant(zone, 0, &id, &occurrence), KT_OK);
  EXPECT_EQ(std::tuple(id, occurrence, Record(zone).compteurGroupe), std::tuple(0x0A, 0, 0));
  // Further on, the cursor ends on the next group; the occurrences of
  // random zones are checked with the editing properties.
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 2, 0, nullptr), KT_OK);
  ASSERT_EQ(KT_usLireGroupeSuivant(zone, 1, &id, &occurrence), KT_OK);
  EXPECT_EQ(std::tuple(id, occurrence, Record(zone).compteurGroupe), std::tuple(0x0A, 2, 3));
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 0, nullptr), KT_OK);
  EXPECT_EQ(KT_usLireGroupeSuivant(zone, 1, &id, &occurrence), KT_ERR_FIN);
  // A next group of identifier 0 sends the cursor back to the start.
  const std::uint16_t zero = Adopt(Encode({{0x0A, {"x"}}, {0, {"y"}}}));
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zero, 1, 0, nullptr), KT_OK);
  ASSERT_EQ(KT_usLireGroupeSuivant(zero, 0, &id, &occurrence), KT_OK);
  EXPECT_EQ(std::tuple(id, occurrence, Record(zero).offsetGroupe), std::tuple(0, 0, 0u));
}

TEST_F(ZoneCursor, FaultyGroupsAndFieldsAreSteppedOntoAndReported) {
  // The second group claims 9 bytes where 4 follow.
  const std::uint16_t zone = Adopt({0x01, 0x02, 0x01, 0x00, 0x03, 0x04, 0x09, 0x01, 0x41, 0x00});
  std::uint16_t id = 0x7777;
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 0, nullptr), KT_OK);
  const std::string trace = CaptureTrace(
      {3}, 2, [&] { EXPECT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 0, &id), KT_ERR_CODAGE_ZONE); });
  EXPECT_EQ(trace.substr(trace.find("ERREUR")),
            "ERREUR :  La taille du groupe (9) d\xE9"
            "passe la taille des donn\xE9"
            "es.\n");
  EXPECT_EQ(id, 0x7777);  // not written, but the cursor is on it
  EXPECT_EQ(std::tuple(Record(zone).identifiant, Record(zone).compteurGroupe),
            std::tuple(0x0304, 2));
  // A group of 2 content bytes whose field claims 5: the cursor moves onto it.
  const std::uint16_t overrun = Adopt({0x01, 0x02, 0x02, 0x05, 0x41, 0x01, 0x03, 0x01, 0x00});
  ASSERT_EQ(KT_usAvancerGroupeSuivant(overrun, 1, 0, nullptr), KT_OK);
  std::uint32_t length = 0;
  EXPECT_EQ(KT_usAvancerChampSuivant(overrun, 1, nullptr, nullptr, &length), KT_ERR_FIN);
  EXPECT_EQ(std::tuple(length, Record(overrun).compteurChamp),
            std::tuple(5u, 1));  // written, counted
  ASSERT_EQ(KT_usPositionnerDebut(overrun), KT_OK);
  ASSERT_EQ(KT_usAvancerGroupeSuivant(overrun, 2, 1, &id), KT_OK);  // counting goes on
  EXPECT_EQ(id, 0x0103);
  // A length that does not decode leaves the cursor where it was.
  const std::uint16_t bad = Adopt({0x01, 0x02, 0x03, 0x87, 0x41, 0x42});
  ASSERT_EQ(KT_usAvancerGroupeSuivant(bad, 1, 0, nullptr), KT_OK);
  EXPECT_EQ(KT_usAvancerChampSuivant(bad, 1, nullptr, nullptr, nullptr), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(Record(bad).numeroChamp, 0);
}

}  // namespace
