// Random zones built with the editing operations, checked against a model:
// after every change the bytes equal the model's reference coding, syntax
// control accepts them, and walking them gives back exactly what was added.
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "zones/zone_test_util.h"

namespace {

using namespace kt::test;

class ZoneProperty : public ZoneTest {
 protected:
  std::mt19937 rng_{20240611};
  std::size_t Below(std::size_t n) { return n == 0 ? 0 : rng_() % n; }

  // Mostly short, sometimes across the 127/128 and 254/255 boundaries.
  std::string RandomValue() {
    const std::size_t pick = Below(20);
    std::string value(pick < 14 ? Below(8) : pick < 18 ? 120 + Below(20) : 250 + Below(10), '\0');
    for (char& c : value) c = static_cast<char>(Below(256));
    return value;
  }
  static std::size_t T(std::size_t n) {
    return KT_stCalculerTailleLongueur(static_cast<std::uint32_t>(n));
  }
  // Runs an edit, growing the buffer while it does not fit.
  template <class Edit>
  static void WithRoom(std::uint16_t zone, Edit edit) {
    std::uint16_t us = KT_ERR_PLACE_ZONE;
    while ((us = edit()) == KT_ERR_PLACE_ZONE) {
      ASSERT_EQ(KT_usRedimensionner(zone, Record(zone).taille * 2 + 8), KT_OK);
    }
    ASSERT_EQ(us, KT_OK);
  }
  // The cursor after `groups` groups from the start and on field f of the
  // last (none for f = 0).
  static void Goto(std::uint16_t zone, std::size_t groups, std::size_t f) {
    ASSERT_EQ(KT_usPositionnerDebut(zone), KT_OK);
    if (groups == 0) return;
    ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, std::uint16_t(groups), 0, nullptr), KT_OK);
    if (f == 0) return;
    ASSERT_EQ(KT_usAvancerChampSuivant(zone, std::uint16_t(f), nullptr, nullptr, nullptr), KT_OK);
  }
};

TEST_F(ZoneProperty, RandomEditsKeepTheZoneWellFormedAndWalkable) {
  for (int round = 0; round < 100; ++round) {
    SCOPED_TRACE(round);
    const std::uint16_t zone = Create(static_cast<std::uint32_t>(1 + Below(64)));
    std::vector<RefGroup> model;
    for (int step = 0; step < 80; ++step) {
      const std::size_t op = model.empty() ? 0 : Below(10);
      const std::string value = RandomValue();
      const auto add = [&] { return Add(zone, value); };
      if (op < 3) {
        // A new group with its first field (a group is never empty), at the
        // front, at the end, or after a group no longer than what follows it
        // (a longer one overwrites what follows, as documented).
        const std::size_t at = Below(model.size() + 1);
        const std::size_t before = at == 0 ? 0 : Encode({model[at - 1]}).size();
        const std::size_t after =
            Encode(std::vector<RefGroup>(model.begin() + std::ptrdiff_t(at), model.end())).size();
        if (after != 0 && after <= before) continue;
        const auto id = static_cast<std::uint16_t>(1 + Below(4) * 0x0101);
        Goto(zone, at, 0);
        WithRoom(zone, [&] { return KT_usAjouterGroupe(zone, id); });
        WithRoom(zone, add);
        model.insert(model.begin() + std::ptrdiff_t(at), RefGroup{id, {value}});
      } else if (op < 7) {
        // A field after field f (0: first) of group g.
        const std::size_t g = Below(model.size());
        const std::size_t f = Below(model[g].fields.size() + 1);
        Goto(zone, g + 1, f);
        WithRoom(zone, add);
        model[g].fields.insert(model[g].fields.begin() + std::ptrdiff_t(f), value);
      } else {
        // Overwrite or grow field f of group g: from position 0, or further
        // on when neither the field's coded length nor the group's header
        // widens (those move the kept bytes, as documented).
        const std::size_t g = Below(model.size());
        const std::size_t f = Below(model[g].fields.size());
        std::string& field = model[g].fields[f];
        std::size_t position = Below(field.size() + 1);
        const std::size_t end = std::max(position + value.size(), field.size());
        std::size_t contents = 0;
        for (const std::string& v : model[g].fields) contents += T(v.size()) + v.size();
        if (T(end) != T(field.size()) || T(contents + end - field.size()) != T(contents)) {
          position = 0;
        }
        Goto(zone, g + 1, f + 1);
        WithRoom(zone, [&] {
          return KT_usModifierChamp(zone, reinterpret_cast<const std::uint8_t*>(value.data()),
                                    static_cast<std::uint32_t>(position),
                                    static_cast<std::uint32_t>(value.size()), 1);
        });
        field.resize(std::max(field.size(), position + value.size()));
        field.replace(position, value.size(), value);
      }
      ASSERT_EQ(KT_usControlerSyntaxeZoneMemoire(zone), KT_OK);
      ASSERT_EQ(Data(zone), Encode(model));
      ASSERT_EQ(Walk(zone), model);
    }
    // The occurrences as the next-group reading counts them again.
    std::map<std::uint16_t, std::uint16_t> seen{{model[0].id, 1}};
    ASSERT_EQ(KT_usRechercherGroupe(zone, model[0].id, 1, 0), KT_OK);
    for (std::size_t g = 1; g < model.size(); ++g) {
      std::uint16_t id = 0;
      std::uint16_t occurrence = 0;
      ASSERT_EQ(KT_usLireGroupeSuivant(zone, 0, &id, &occurrence), KT_OK);
      ASSERT_EQ(std::pair(id, occurrence), std::pair(model[g].id, ++seen[id]));
    }
    ASSERT_EQ(KT_usLireGroupeSuivant(zone, 0, nullptr, nullptr), KT_ERR_FIN);
    Release(zone);
  }
}

}  // namespace
