#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "kt_dictionary.h"
#include "kt_zones.h"
#include "support/dictionary_builder.h"
#include "support/kt_test.h"

namespace {

using kt::test::ScratchDir;

using Group = std::pair<std::uint16_t, std::vector<std::string>>;

// The sample dictionary: group 10 (N 1-6 code 1, A 1-20, D 8-12 code 1),
// group 20 (L 1-10 code 1 with values ACHAT, VENTE, ECHANGE; N 0-9),
// group 30 (A, no bounds).
class ZoneFormat : public kt::test::KtTest {
 protected:
  void SetUp() override {
    KtTest::SetUp();
    ASSERT_EQ(kt::test::LoadDictionary(dir_.path().string(), kt::test::LoadSampleDictionary()),
              KT_OK);
  }
  void TearDown() override {
    // Releasing a zone leaves its buffer with the caller.
    for (std::uint16_t zone : zones_) {
      std::uint32_t size = 0;
      std::uint8_t* buffer = nullptr;
      EXPECT_EQ(KT_pucLireBuffer(zone, &size, &buffer), KT_OK);
      EXPECT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
      KT_Liberer(buffer);
    }
    kt::test::FreeDictionaryValueTexts();
    KtTest::TearDown();
  }

  std::uint16_t Build(const std::vector<Group>& groups) {
    std::uint16_t zone = 0;
    EXPECT_EQ(KT_usCreerZoneMemoire(4096, 1, &zone), KT_OK);
    for (const auto& [id, fields] : groups) {
      EXPECT_EQ(KT_usAjouterGroupe(zone, id), KT_OK);
      for (const std::string& field : fields) {
        EXPECT_EQ(KT_usAjouterChamp(zone, reinterpret_cast<const std::uint8_t*>(field.data()),
                                    static_cast<std::uint32_t>(field.size())),
                  KT_OK);
      }
    }
    zones_.push_back(zone);
    return zone;
  }

  std::uint16_t Check(const std::vector<Group>& groups) {
    return KT_usControlerFormatZoneMemoire(Build(groups));
  }

  std::uint16_t GroupCounter(std::uint16_t zone) {
    std::uint16_t counter = 0;
    EXPECT_EQ(KT_usLireCompteurGroupe(zone, &counter), KT_OK);
    return counter;
  }

  ScratchDir dir_;
  std::vector<std::uint16_t> zones_;
};

const Group kIdentity = {10, {"123", "AB C", "20040229"}};
const Group kOrder = {20, {"VENTE", "42"}};
const Group kComment = {30, {"ANYTHING AT ALL 42"}};

TEST_F(ZoneFormat, ConformingZonePassesWithTheCursorBackAtTheStart) {
  const std::uint16_t zone = Build({kIdentity, kOrder, kComment, kOrder});
  EXPECT_EQ(KT_usControlerFormatZoneMemoire(zone), KT_OK);
  EXPECT_EQ(GroupCounter(zone), 0);
  std::uint16_t id = 0;
  EXPECT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 0, &id), KT_OK);
  EXPECT_EQ(id, 10);
}

TEST_F(ZoneFormat, SyntaxFaultComesFirst) {
  std::uint8_t bytes[] = {0x00, 0x0A, 0x05, 0x02, 0x41, 0x42};  // group claims 5 bytes, 3 follow
  std::uint16_t zone = 0;
  ASSERT_EQ(KT_usInitialiserZoneMemoire(bytes, sizeof bytes, &zone, 1), KT_OK);
  EXPECT_EQ(KT_usControlerFormatZoneMemoire(zone), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(KT_usControlerFormatZoneMemoire(100), KT_ERR_NUMERO_INCONNU);
  EXPECT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
}

TEST_F(ZoneFormat, UnknownGroupReturnsItsRankAndLeavesTheCursorOnIt) {
  EXPECT_EQ(Check({kIdentity, {99, {"x"}}}), 0xA002);
  EXPECT_EQ(GroupCounter(zones_.back()), 2);
  EXPECT_EQ(Check({{99, {"x"}}}), 0xA001);
}

TEST_F(ZoneFormat, FieldCountMustMatchTheRecord) {
  EXPECT_EQ(Check({{10, {"123", "AB"}}}), 0xA801);
  EXPECT_EQ(Check({{10, {"123", "AB", "20040229", "extra"}}}), 0xA801);
  EXPECT_EQ(Check({kIdentity, kComment, {20, {"VENTE"}}}), 0xA803);
}

TEST_F(ZoneFormat, FieldRankCountsTheRecordsOfEarlierGroups) {
  // Group 20 has two records, so the first field of the next group is rank 3.
  EXPECT_EQ(Check({kOrder, {10, {"12a", "AB", "20040229"}}}), 0x9003);
  EXPECT_EQ(Check({{10, {"1234567", "AB", "20040229"}}}), 0x9001);  // above the maximum
  EXPECT_EQ(Check({{10, {"1", "AB", "2004"}}}), 0x9003);  // 4 characters: below the minimum
  EXPECT_EQ(Check({{10, {"1", "AB", "20040230"}}}), 0x9003);  // not a date
  EXPECT_EQ(Check({{10, {"1", "ab", "20040229"}}}), 0x9002);  // capitals only
}

TEST_F(ZoneFormat, AllowedValuesAreComparedAfterReduction) {
  EXPECT_EQ(Check({{20, {"ACHETER", "1"}}}), 0x9001);
  EXPECT_EQ(Check({{20, {"ECHANGE", "1"}}}), KT_OK);
  EXPECT_EQ(Check({{20, {"ACHAT  ", "1"}}}), KT_OK);  // trailing blanks dropped
}

TEST_F(ZoneFormat, EmptyFieldPassesUnlessItsCodeIsOneWithAMinimum) {
  EXPECT_EQ(Check({{10, {"", "AB", "20040229"}}}), 0x9001);  // code 1, minimum 1
  EXPECT_EQ(Check({{10, {"1", "", "20040229"}}}), KT_OK);    // code 0, minimum 1
  EXPECT_EQ(Check({{10, {"1", "   ", "20040229"}}}), KT_OK);  // blanks reduce to nothing
  EXPECT_EQ(Check({{20, {"VENTE", ""}}}), KT_OK);
}

TEST_F(ZoneFormat, TraceEndsWithTheResultAndTheEndLine) {
  const std::uint16_t zone = Build({{10, {"1", "A", "20040229"}}});
  const std::string trace =
      kt::test::CaptureTrace({2}, 2, [&] { EXPECT_EQ(KT_usControlerFormatZoneMemoire(zone), 0); });
  EXPECT_EQ(trace.rfind("{ KT_usControlerFormatZoneMemoire\n", 0), 0u) << trace;
  EXPECT_NE(trace.find("  Groupe = 0xd\n"), std::string::npos) << trace;
  EXPECT_NE(trace.find("  Numero du champ = 3, Taille du champ = 8\n  Valeur du champ = 20040229\n"),
            std::string::npos)
      << trace;
  const std::string end =
      "  KT_usControlerFormatZoneMemoire:usResultat = 0x0000\n"
      "  FIN de la fonction KT_usControlerFormatZoneMemoire\n}\n";
  ASSERT_GE(trace.size(), end.size());
  EXPECT_EQ(trace.substr(trace.size() - end.size()), end);
}

}  // namespace
