#include <cstdint>
#include <string>

#include "zones/zone_test_util.h"

namespace {

using kt::test::AsText;
using kt::test::Bytes;
using kt::test::ByteVector;
using kt::test::CaptureTrace;
using kt::test::Encode;

class ZoneEditing : public kt::test::ZoneTest {
 protected:
  static std::uint16_t Add(std::uint16_t zone, const std::string& value) {
    return KT_usAjouterChamp(zone, reinterpret_cast<const std::uint8_t*>(value.data()),
                             static_cast<std::uint32_t>(value.size()));
  }
  static std::uint16_t Modify(std::uint16_t zone, const std::string& bytes, std::uint32_t position,
                              bool grow = true) {
    return KT_usModifierChamp(zone, reinterpret_cast<const std::uint8_t*>(bytes.data()), position,
                              static_cast<std::uint32_t>(bytes.size()), grow ? 1 : 0);
  }
  // The trace lines after the entry line, whose pointer varies.
  static std::string AfterEntry(const std::string& trace) {
    return trace.substr(trace.find('\n') + 1);
  }
};

TEST_F(ZoneEditing, BuildsZonesFromNothingAtTheFrontAndAfterTheCursor) {
  const std::uint16_t zone = Create(16);
  std::string trace =
      CaptureTrace({3}, 2, [&] { ASSERT_EQ(KT_usAjouterGroupe(zone, 0x0102), KT_OK); });
  EXPECT_EQ(trace,
            "{ KT_usAjouterGroupe : identifiant = 258\n"
            "  { KT_stCoderEnteteGroupe : identifiant = 258, longueur = 0, offset = 0\n"
            "    { KT_stCoderLongueur : longueur = 0, offset = 2\n      nbOctets = 1\n    }\n"
            "    nbOctets = 3\n  }\n"
            "  cr = 0x0000, tailleDonnees = 3\n}\n");
  ASSERT_EQ(Add(zone, "AB"), KT_OK);
  EXPECT_EQ(Data(zone), Bytes({0x01, 0x02, 0x03, 0x02, 0x41, 0x42}));

  const std::uint16_t other = Adopt(Encode({{2, {"x", "z"}}, {3, {"q"}}}), 64);
  ASSERT_EQ(KT_usAjouterGroupe(other, 1), KT_OK);  // from the start: at the front
  ASSERT_EQ(Add(other, "a"), KT_OK);
  ASSERT_EQ(KT_usRechercherChamp(other, 2, 1, 1, 0, nullptr, nullptr), KT_OK);
  ASSERT_EQ(Add(other, "y"), KT_OK);  // after the current field
  ASSERT_EQ(KT_usRechercherGroupe(other, 3, 1, 0), KT_OK);
  ASSERT_EQ(Add(other, "p"), KT_OK);  // no current field: first
  ASSERT_EQ(KT_usRechercherGroupe(other, 1, 1, 0), KT_OK);
  ASSERT_EQ(KT_usAjouterGroupe(other, 9), KT_OK);  // what follows is longer: it moves
  ASSERT_EQ(Add(other, "i"), KT_OK);
  EXPECT_EQ(Data(other), Encode({{1, {"a"}}, {9, {"i"}}, {2, {"x", "y", "z"}}, {3, {"p", "q"}}}));
}

TEST_F(ZoneEditing, GroupAfterALongerMiddleGroupOverwritesWhatFollows) {
  // Kept as it always was: the end test looks at the old group's size.
  const std::uint16_t zone = Adopt(Encode({{1, {"long value"}}, {2, {"b"}}}), 64);
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 0, nullptr), KT_OK);
  ASSERT_EQ(KT_usAjouterGroupe(zone, 9), KT_OK);
  ByteVector expected = Encode({{1, {"long value"}}});
  for (int b : {0x00, 0x09, 0x00, 0x01, int{'b'}, 0xEE, 0xEE, 0xEE}) {
    expected.push_back(static_cast<std::uint8_t>(b));  // over "00 02 02", 3 bytes past the end
  }
  EXPECT_EQ(Data(zone), expected);
}

TEST_F(ZoneEditing, GroupHeaderGrowsAcross128And255) {
  const std::uint16_t zone = Create(300);
  ASSERT_EQ(KT_usAjouterGroupe(zone, 7), KT_OK);
  ASSERT_EQ(Add(zone, "ab"), KT_OK);
  ASSERT_EQ(Add(zone, std::string(124, 'v')), KT_OK);  // 3 + 125 = 128 content bytes
  EXPECT_EQ(Record(zone).tailleEnteteGroupe, 4u);
  EXPECT_EQ(Data(zone), Encode({{7, {"ab", std::string(124, 'v')}}}));
  std::uint8_t* value = nullptr;  // the new field stays current after the shift
  ASSERT_EQ(KT_usExtraireChamp(zone, &value, 0, 124), KT_OK);
  EXPECT_EQ(AsText(value, 124), std::string(124, 'v'));
  // 127 + 127 = 254 content bytes, then one more in the middle.
  const std::string a(126, 'a');
  const std::uint16_t middle = Adopt(Encode({{1, {a, a}}, {2, {"next"}}}), 300);
  ASSERT_EQ(KT_usRechercherChamp(middle, 1, 1, 1, 0, nullptr, nullptr), KT_OK);
  ASSERT_EQ(Add(middle, ""), KT_OK);
  EXPECT_EQ(Record(middle).tailleEnteteGroupe, 5u);
  EXPECT_EQ(Data(middle), Encode({{1, {a, "", a}}, {2, {"next"}}}));
}

TEST_F(ZoneEditing, NoRoomNoGroupNoFieldLeaveTheBytesUntouched) {
  const std::uint16_t zone = Adopt(Encode({{1, {"abc"}}}));
  EXPECT_EQ(Add(zone, "A"), KT_ERR_FIN);        // no current group
  EXPECT_EQ(Modify(zone, "A", 0), KT_ERR_FIN);  // no current field
  ASSERT_EQ(KT_usPositionnerFin(zone, 0), KT_OK);
  std::uint16_t us = 0;
  const std::string trace = CaptureTrace({3}, 2, [&] { us = KT_usAjouterGroupe(zone, 2); });
  EXPECT_EQ(us, KT_ERR_PLACE_ZONE);
  EXPECT_EQ(trace, "{ KT_usAjouterGroupe : identifiant = 2\n   cr = 0xF804\n}\n");
  EXPECT_EQ(Add(zone, ""), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(Modify(zone, "d", 3), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usAjouterChamp(zone, Bytes({1}).data(), 0xFFFFFFFF), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usAjouterChamp(zone, nullptr, 1), KT_ERR_ARGUMENT);
  EXPECT_EQ(Data(zone), Encode({{1, {"abc"}}}));
  const std::uint16_t zero = Create(8);
  ASSERT_EQ(KT_usAjouterGroupe(zero, 0), KT_OK);
  EXPECT_EQ(Add(zero, "A"), KT_ERR_FIN);  // identifier 0 reads as no group
}

TEST_F(ZoneEditing, PositionsInsideTheCurrentField) {
  const std::uint16_t zone = Adopt(Encode({{1, {"hello"}}, {2, {"z"}}}), 32);
  ASSERT_EQ(KT_usRechercherChamp(zone, 1, 1, 1, 0, nullptr, nullptr), KT_OK);
  EXPECT_EQ(Modify(zone, "", 5, false), KT_OK);
  EXPECT_EQ(Modify(zone, "J", 0, false), KT_OK);
  std::uint8_t* value = nullptr;
  ASSERT_EQ(KT_usExtraireChamp(zone, &value, 1, 4), KT_OK);
  EXPECT_EQ(AsText(value, 4), "ello");
  EXPECT_EQ(KT_usExtraireChamp(zone, &value, 5, 0), KT_OK);
  EXPECT_EQ(KT_usExtraireChamp(zone, &value, 1, 0xFFFFFFFF), KT_ERR_POSITION);
  std::uint16_t us[4] = {};
  const std::string traces[] = {
      CaptureTrace({3}, 2, [&] { us[0] = Modify(zone, "", 6); }),
      CaptureTrace({3}, 2, [&] { us[1] = Modify(zone, "!!", 4, false); }),
      CaptureTrace({3}, 2, [&] { us[2] = KT_usExtraireChamp(zone, &value, 6, 0); }),
      CaptureTrace({3}, 2, [&] { us[3] = KT_usExtraireChamp(zone, &value, 2, 4); }),
  };
  const char* errors[] = {
      " position > longueur du champ (5).",
      "Agrandissement non autorise Position + Longueur > ZM[Zone]->LongueurChamp (5).",
      " position  > longueur du champ (5).",
      " position + Longueur > longueur du champ (5).",
  };
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(us[i], KT_ERR_POSITION);
    EXPECT_EQ(AfterEntry(traces[i]),
              std::string("  ERREUR : ") + errors[i] + "\n  cr = 0xFFFE\n}\n");
  }
  EXPECT_EQ(Data(zone), Encode({{1, {"Jello"}}, {2, {"z"}}}));
}

TEST_F(ZoneEditing, GrowthKeepsTheValueAndEveryNeighbour) {
  const std::uint16_t zone = Adopt(Encode({{1, {"abc"}}, {2, {"z"}}}), 32);
  ASSERT_EQ(KT_usRechercherChamp(zone, 1, 1, 1, 0, nullptr, nullptr), KT_OK);
  ASSERT_EQ(Modify(zone, "de", 3), KT_OK);
  ASSERT_EQ(Modify(zone, "XY", 4), KT_OK);  // partly over the old value
  EXPECT_EQ(Data(zone), Encode({{1, {"abcdXY"}}, {2, {"z"}}}));
  // From position 0, across every boundary of the field and of the header,
  // an empty field included (its growth moves the most).
  for (std::uint32_t size : {127u, 128u, 254u, 255u, 300u, 65534u, 65535u}) {
    SCOPED_TRACE(size);
    const std::uint16_t grown = Adopt(Encode({{1, {"p", "", "q"}}, {2, {"next"}}}), 70000);
    ASSERT_EQ(KT_usRechercherChamp(grown, 1, 1, 2, 0, nullptr, nullptr), KT_OK);
    ASSERT_EQ(Modify(grown, std::string(size, 'w'), 0), KT_OK);
    EXPECT_EQ(Data(grown), Encode({{1, {"p", std::string(size, 'w'), "q"}}, {2, {"next"}}}));
    Release(grown);
  }
}

TEST_F(ZoneEditing, GrowthAtAPositionWhenLengthsWidenMovesTheKeptBytes) {
  // Kept as it always was: a 127-byte value grown at 127 gets a 2-byte coded
  // length over its first byte; the kept bytes end up one place earlier.
  std::string old_value;
  for (int i = 0; i < 127; ++i) old_value.push_back(static_cast<char>('0' + i % 64));
  const std::uint16_t zone = Create(200);
  ASSERT_EQ(KT_usAjouterGroupe(zone, 1), KT_OK);
  ASSERT_EQ(Add(zone, old_value), KT_OK);
  ASSERT_EQ(Modify(zone, "X", 127), KT_OK);
  EXPECT_EQ(Data(zone), Encode({{1, {old_value.substr(1) + std::string(1, '\0') + "X"}}}));
  // When the group's header widens, the fields ahead and dL + dC bytes of
  // this one move with it: "abc" grown by "de" keeps "a", finds "c" and a
  // stray byte where "bc" was. The next group is untouched.
  const std::string first(121, 'f');
  const std::uint16_t widened = Adopt(Encode({{1, {first, "abc"}}, {2, {"z"}}}), 200);
  ASSERT_EQ(KT_usRechercherChamp(widened, 1, 1, 2, 0, nullptr, nullptr), KT_OK);
  ASSERT_EQ(Modify(widened, "de", 3), KT_OK);
  EXPECT_EQ(Data(widened), Encode({{1, {first, std::string("ac\0de", 5)}}, {2, {"z"}}}));
}

TEST_F(ZoneEditing, EditsRefuseCursorsOutsideTheDataAndLongerLengthForms) {
  // The second group claims 9 bytes where 2 follow.
  const std::uint16_t zone = Adopt({0x01, 0x02, 0x01, 0x00, 0x03, 0x04, 0x09, 0x01, 0x41}, 64);
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 2, 0, nullptr), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(KT_usAjouterGroupe(zone, 5), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(Add(zone, "x"), KT_ERR_CODAGE_ZONE);
  ASSERT_EQ(KT_usAvancerChampSuivant(zone, 1, nullptr, nullptr, nullptr), KT_OK);
  EXPECT_EQ(Modify(zone, "xyz", 0), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(Modify(zone, "Z", 0, false), KT_OK);
  EXPECT_EQ(Data(zone), Bytes({0x01, 0x02, 0x01, 0x00, 0x03, 0x04, 0x09, 0x01, 'Z'}));
  // 81 03 and 81 01: well formed, but not rewritten in place.
  const std::uint16_t wide = Adopt({0x00, 0x01, 0x81, 0x03, 0x81, 0x01, 0x41}, 32);
  ASSERT_EQ(KT_usRechercherChamp(wide, 1, 1, 1, 0, nullptr, nullptr), KT_OK);
  EXPECT_EQ(Add(wide, "x"), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(Modify(wide, "xy", 0), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(Data(wide), Bytes({0x00, 0x01, 0x81, 0x03, 0x81, 0x01, 0x41}));
}

}  // namespace
