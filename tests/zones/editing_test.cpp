#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "zones/zone_test_util.h"

namespace {

using namespace kt::test;

class ZoneEditing : public ZoneTest {
 protected:
  static std::uint16_t Modify(std::uint16_t zone, const std::string& bytes, std::uint32_t position,
                              bool grow = true) {
    return KT_usModifierChamp(zone, reinterpret_cast<const std::uint8_t*>(bytes.data()), position,
                              static_cast<std::uint32_t>(bytes.size()), grow ? 1 : 0);
  }
};

TEST_F(ZoneEditing, GroupAfterALongerMiddleGroupOverwritesWhatFollows) {
  // Kept as it always was: the end test looks at the old group's size.
  const std::uint16_t zone = Adopt(Encode({{1, {"long value"}}, {2, {"b"}}}), 64);
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 0, nullptr), KT_OK);
  ASSERT_EQ(KT_usAjouterGroupe(zone, 9), KT_OK);
  ByteVector expected = Encode({{1, {"long value"}}});
  // Over "00 02 02", and 3 bytes past the end.
  expected.insert(expected.end(), {0x00, 0x09, 0x00, 0x01, 'b', 0xEE, 0xEE, 0xEE});
  EXPECT_EQ(Data(zone), expected);
}

TEST_F(ZoneEditing, AddsAndChangesGiveTheReferenceBytesAndStayOnTheField) {
  // Order: groups; the field of the first group the cursor stands on (0:
  // none); the position to write the bytes at, or kAdd to add them as a
  // field after it; the bytes; the groups after.
  constexpr std::uint32_t kAdd = 0xFFFFFFFF;
  using Case = std::tuple<std::vector<RefGroup>, std::uint16_t, std::uint32_t, std::string,
                          std::vector<RefGroup>>;
  const std::string a(126, 'a');
  const std::string v(124, 'v');
  std::string old;
  for (int i = 0; i < 127; ++i) old.push_back(static_cast<char>('0' + i % 64));
  const std::string f(121, 'f');
  std::vector<Case> cases = {
      // The group's header grows across 128 and 255 content bytes, with the
      // new field last, in the middle or first.
      {{{1, {"ab"}}}, 1, kAdd, v, {{1, {"ab", v}}}},
      {{{1, {a, a}}, {2, {"next"}}}, 1, kAdd, "", {{1, {a, "", a}}, {2, {"next"}}}},
      {{{1, {a, a}}}, 0, kAdd, "x", {{1, {"x", a, a}}}},
      // Writing at the end of the value: nothing, then growth.
      {{{1, {"hello"}}}, 1, 5, "", {{1, {"hello"}}}},
      {{{1, {"abc"}}, {2, {"z"}}}, 1, 3, "de", {{1, {"abcde"}}, {2, {"z"}}}},
      // Kept as they always were. When the value's coded length widens,
      // the kept bytes end up one place earlier, before a stray byte (the
      // buffer's 0xEE); when the group's header widens, the fields ahead
      // and dL + dC bytes of this one move with it: "a", then "c" and a
      // stray byte where "bc" was.
      {{{1, {old}}}, 1, 127, "X", {{1, {old.substr(1) + '\xEE' + 'X'}}}},
      {{{1, {f, "abc"}}, {2, {"z"}}}, 2, 3, "de", {{1, {f, std::string("ac\0de", 5)}}, {2, {"z"}}}},
  };
  // Growth from position 0 across every boundary of the field and of the
  // header, an empty field included (its growth moves the most).
  for (std::uint32_t size : {127u, 128u, 254u, 255u, 300u, 65534u, 65535u}) {
    const std::string w(size, 'w');
    cases.push_back({{{1, {"p", "", "q"}}, {2, {"n"}}}, 2, 0, w, {{1, {"p", w, "q"}}, {2, {"n"}}}});
  }
  for (const auto& [before, field, position, bytes, after] : cases) {
    SCOPED_TRACE(std::to_string(bytes.size()) + " bytes at " + std::to_string(position));
    const std::uint16_t zone = Adopt(Encode(before), 70000);
    ASSERT_EQ(field == 0 ? KT_usRechercherGroupe(zone, 1, 1, 0)
                         : KT_usRechercherChamp(zone, 1, 1, field, 0, nullptr, nullptr),
              KT_OK);
    ASSERT_EQ(position == kAdd ? Add(zone, bytes) : Modify(zone, bytes, position), KT_OK);
    EXPECT_EQ(Data(zone), Encode(after));
    const std::uint32_t length = Record(zone).LongueurChamp;
    std::uint8_t* value = nullptr;
    ASSERT_EQ(KT_usExtraireChamp(zone, &value, 0, length), KT_OK);
    EXPECT_EQ(AsText(value, length), after[0].fields[field - (position == kAdd ? 0 : 1)]);
  }
}

TEST_F(ZoneEditing, PositionsOutsideTheCurrentFieldAreRefused) {
  const std::uint16_t zone = Adopt(Encode({{1, {"hello"}}}), 32);
  ASSERT_EQ(KT_usRechercherChamp(zone, 1, 1, 1, 0, nullptr, nullptr), KT_OK);
  std::uint8_t* value = nullptr;
  EXPECT_EQ(KT_usExtraireChamp(zone, &value, 5, 0), KT_OK);
  EXPECT_EQ(Modify(zone, "", 6), KT_ERR_POSITION);
  EXPECT_EQ(Modify(zone, "!!", 4, false), KT_ERR_POSITION);
  EXPECT_EQ(KT_usExtraireChamp(zone, &value, 2, 4), KT_ERR_POSITION);
  EXPECT_EQ(KT_usExtraireChamp(zone, &value, 1, 0xFFFFFFFF), KT_ERR_POSITION);
  std::uint16_t us = 0;
  const std::string trace =
      CaptureTrace({3}, 2, [&] { us = KT_usExtraireChamp(zone, &value, 6, 0); });
  EXPECT_EQ(us, KT_ERR_POSITION);
  // After the entry line, whose pointer varies; two blanks before ">".
  EXPECT_EQ(trace.substr(trace.find('\n') + 1),
            "  ERREUR :  position  > longueur du champ (5).\n  cr = 0xFFFE\n}\n");
  EXPECT_EQ(Data(zone), Encode({{1, {"hello"}}}));
}

TEST_F(ZoneEditing, NoRoomNoGroupNoFieldLeaveTheBytesUntouched) {
  const std::uint16_t zone = Adopt(Encode({{1, {"abc"}}}));
  EXPECT_EQ(Add(zone, "A"), KT_ERR_FIN);        // no current group
  EXPECT_EQ(Modify(zone, "A", 0), KT_ERR_FIN);  // no current field
  ASSERT_EQ(KT_usPositionnerFin(zone, 0), KT_OK);
  EXPECT_EQ(KT_usAjouterGroupe(zone, 2), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(Add(zone, ""), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(Modify(zone, "d", 3), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usAjouterChamp(zone, Bytes({1}).data(), 0xFFFFFFFF), KT_ERR_PLACE_ZONE);
  EXPECT_EQ(KT_usAjouterChamp(zone, nullptr, 1), KT_ERR_ARGUMENT);
  EXPECT_EQ(Data(zone), Encode({{1, {"abc"}}}));
  const std::uint16_t zero = Create(8);
  ASSERT_EQ(KT_usAjouterGroupe(zero, 0), KT_OK);
  EXPECT_EQ(Add(zero, "A"), KT_ERR_FIN);  // identifier 0 reads as no group
}

// Adds that fill the zone to the last byte succeed; one byte less of
// capacity refuses them. The last case also grows the group's length form
// from one byte to two (126 to 128 bytes of content).
TEST_F(ZoneEditing, AddsThatFitExactlySucceed) {
  struct Case {
    const char* what;
    std::vector<std::string> fields;  // added to one group, in order
    std::uint32_t exact;
  };
  const Case cases[] = {
      {"empty group", {}, 3},
      {"1-byte field", {"A"}, 5},
      {"header growth", {std::string(125, 'x'), "A"}, 3 + 126 + 2 + 1},
  };
  for (const Case& c : cases) {
    for (std::uint32_t capacity : {c.exact, c.exact - 1}) {
      SCOPED_TRACE(testing::Message() << c.what << " capacity " << capacity);
      const std::uint16_t zone = Create(capacity);
      std::uint16_t last = KT_usAjouterGroupe(zone, 7);
      for (const std::string& field : c.fields) {
        if (last == KT_OK) last = Add(zone, field);
      }
      EXPECT_EQ(last, capacity == c.exact ? KT_OK : KT_ERR_PLACE_ZONE);
      if (capacity == c.exact) {
        EXPECT_EQ(Data(zone).size(), c.exact);
      }
      Release(zone);
    }
  }
}

TEST_F(ZoneEditing, EditsRefuseCursorsOutsideTheDataAndLongerLengthForms) {
  // The second group claims 9 bytes where 2 follow; then 81 03 and 81 01,
  // well formed but not rewritten in place.
  const ByteVector faulty = {0x01, 0x02, 0x01, 0x00, 0x03, 0x04, 0x09, 0x01, 0x41};
  const ByteVector wide = {0x00, 0x01, 0x81, 0x03, 0x81, 0x01, 0x41};
  const std::uint16_t zone = Adopt(faulty, 64);
  const std::uint16_t other = Adopt(wide, 64);
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 2, 0, nullptr), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(KT_usAjouterGroupe(zone, 5), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(Add(zone, "x"), KT_ERR_CODAGE_ZONE);
  ASSERT_EQ(KT_usAvancerChampSuivant(zone, 1, nullptr, nullptr, nullptr), KT_OK);
  EXPECT_EQ(Modify(zone, "xyz", 0), KT_ERR_CODAGE_ZONE);
  ASSERT_EQ(KT_usRechercherChamp(other, 1, 1, 1, 0, nullptr, nullptr), KT_OK);
  EXPECT_EQ(Add(other, "x"), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(Modify(other, "xy", 0), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(Data(zone), faulty);
  EXPECT_EQ(Data(other), wide);
}

}  // namespace
