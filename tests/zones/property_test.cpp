// Random zones built with the editing operations, checked against a model:
// after every change the bytes equal the model's reference coding, syntax
// control accepts them, and walking them gives back exactly what was added.
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "zones/zone_test_util.h"

namespace {

using kt::test::AsText;
using kt::test::Encode;
using kt::test::RefGroup;

class ZoneProperty : public kt::test::ZoneTest {
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
  static std::uint32_t T(std::size_t n) {
    return KT_stCalculerTailleLongueur(static_cast<std::uint32_t>(n));
  }
  static std::size_t Contents(const RefGroup& g) {
    std::size_t total = 0;
    for (const std::string& f : g.fields) total += T(f.size()) + f.size();
    return total;
  }

  // Runs an edit, doubling the buffer until it fits.
  template <class Edit>
  void WithRoom(std::uint16_t zone, Edit edit) {
    std::uint16_t us = edit();
    while (us == KT_ERR_PLACE_ZONE) {
      ASSERT_EQ(KT_usRedimensionner(zone, Record(zone).taille * 2 + 8), KT_OK);
      us = edit();
    }
    ASSERT_EQ(us, KT_OK);
  }
  // The cursor on group g (from 0) and, for f > 0, on its field f.
  static void Goto(std::uint16_t zone, std::size_t g, std::size_t f) {
    ASSERT_EQ(KT_usPositionnerDebut(zone), KT_OK);
    ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, static_cast<std::uint16_t>(g + 1), 0, nullptr),
              KT_OK);
    if (f > 0) {
      ASSERT_EQ(
          KT_usAvancerChampSuivant(zone, static_cast<std::uint16_t>(f), nullptr, nullptr, nullptr),
          KT_OK);
    }
  }

  static void CheckWalk(std::uint16_t zone, const std::vector<RefGroup>& model) {
    ASSERT_EQ(KT_usControlerSyntaxeZoneMemoire(zone), KT_OK);
    ASSERT_EQ(Data(zone), Encode(model));
    ASSERT_EQ(KT_usPositionnerDebut(zone), KT_OK);
    std::size_t fields = 0;
    for (const RefGroup& g : model) {
      std::uint16_t id = 0;
      ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 1, &id), KT_OK);
      ASSERT_EQ(id, g.id);
      for (const std::string& field : g.fields) {
        std::uint8_t* value = nullptr;
        std::uint32_t length = 0;
        ASSERT_EQ(KT_usAvancerChampSuivant(zone, 1, nullptr, &value, &length), KT_OK);
        ASSERT_EQ(AsText(value, length), field);
      }
      ASSERT_EQ(KT_usAvancerChampSuivant(zone, 1, nullptr, nullptr, nullptr), KT_ERR_FIN);
      fields += g.fields.size();
    }
    ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 1, nullptr), KT_ERR_FIN);
    ASSERT_EQ(Record(zone).compteurGroupe, model.size());
    ASSERT_EQ(Record(zone).compteurChamp, fields);
  }

  // Field search by identifier and occurrence, and the occurrences that
  // KT_usLireGroupeSuivant reports along the way.
  void CheckSearches(std::uint16_t zone, const std::vector<RefGroup>& model) {
    std::map<std::uint16_t, std::uint16_t> seen;
    ASSERT_EQ(KT_usPositionnerDebut(zone), KT_OK);
    for (std::size_t g = 0; g < model.size(); ++g) {
      std::uint16_t id = 0;
      std::uint16_t occurrence = 0;
      if (g == 0) {
        ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 0, &id), KT_OK);
        occurrence = 1;
      } else {
        ASSERT_EQ(KT_usLireGroupeSuivant(zone, 0, &id, &occurrence), KT_OK);
      }
      ASSERT_EQ(id, model[g].id);
      ASSERT_EQ(occurrence, ++seen[id]);
    }
    ASSERT_EQ(KT_usLireGroupeSuivant(zone, 0, nullptr, nullptr), KT_ERR_FIN);
    seen.clear();
    for (const RefGroup& g : model) {
      const std::size_t f = Below(g.fields.size());
      std::uint8_t* value = nullptr;
      std::uint32_t length = 0;
      ASSERT_EQ(KT_usRechercherChamp(zone, g.id, ++seen[g.id], static_cast<std::uint16_t>(f + 1), 1,
                                     &value, &length),
                KT_OK);
      ASSERT_EQ(AsText(value, length), g.fields[f]);
    }
    for (const auto& [id, count] : seen) {
      ASSERT_EQ(KT_usRechercherGroupe(zone, id, static_cast<std::uint16_t>(count + 1), 0),
                KT_ERR_OCCURRENCE);
    }
  }
};

TEST_F(ZoneProperty, RandomEditsKeepTheZoneWellFormedAndWalkable) {
  for (int round = 0; round < 100; ++round) {
    SCOPED_TRACE(round);
    const std::uint16_t zone = Create(static_cast<std::uint32_t>(1 + Below(64)));
    std::vector<RefGroup> model;
    for (int step = 0; step < 80; ++step) {
      const std::size_t op = model.empty() ? 0 : Below(10);
      if (op < 3) {
        // A new group with its first field (a group is never empty), at the
        // front, at the end, or after a group smaller than what follows it
        // (otherwise what follows is not moved).
        const std::size_t at = Below(model.size() + 1);
        std::size_t after = 0;
        for (std::size_t g = at; g < model.size(); ++g) after += Encode({model[g]}).size();
        if (at > 0 && after != 0 && after <= Encode({model[at - 1]}).size()) continue;
        const RefGroup group{static_cast<std::uint16_t>(1 + Below(4) * 0x0101), {RandomValue()}};
        if (at == 0) {
          ASSERT_EQ(KT_usPositionnerDebut(zone), KT_OK);
        } else {
          Goto(zone, at - 1, 0);
        }
        WithRoom(zone, [&] { return KT_usAjouterGroupe(zone, group.id); });
        WithRoom(zone, [&] {
          return KT_usAjouterChamp(zone,
                                   reinterpret_cast<const std::uint8_t*>(group.fields[0].data()),
                                   static_cast<std::uint32_t>(group.fields[0].size()));
        });
        model.insert(model.begin() + static_cast<std::ptrdiff_t>(at), group);
      } else if (op < 7) {
        // A field after field f (0: first) of group g.
        const std::size_t g = Below(model.size());
        const std::size_t f = Below(model[g].fields.size() + 1);
        const std::string value = RandomValue();
        Goto(zone, g, f);
        WithRoom(zone, [&] {
          return KT_usAjouterChamp(zone, reinterpret_cast<const std::uint8_t*>(value.data()),
                                   static_cast<std::uint32_t>(value.size()));
        });
        model[g].fields.insert(model[g].fields.begin() + static_cast<std::ptrdiff_t>(f), value);
      } else {
        // Overwrite or grow field f of group g: from position 0, or further
        // on when neither the field's coded length nor the group's header
        // widens (those move the kept bytes, as documented).
        const std::size_t g = Below(model.size());
        const std::size_t f = Below(model[g].fields.size());
        std::string& field = model[g].fields[f];
        const std::string bytes = RandomValue();
        std::size_t position = Below(field.size() + 1);
        const std::size_t end = position + bytes.size();
        const std::size_t contents = Contents(model[g]);
        if (end > field.size() &&
            (T(end) != T(field.size()) || T(contents + end - field.size()) != T(contents))) {
          position = 0;
        }
        Goto(zone, g, f + 1);
        WithRoom(zone, [&] {
          return KT_usModifierChamp(zone, reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                    static_cast<std::uint32_t>(position),
                                    static_cast<std::uint32_t>(bytes.size()), 1);
        });
        if (position + bytes.size() > field.size()) field.resize(position + bytes.size());
        field.replace(position, bytes.size(), bytes);
      }
      CheckWalk(zone, model);
      if (HasFatalFailure()) return;
    }
    CheckSearches(zone, model);
    if (HasFatalFailure()) return;
    Release(zone);
  }
}

}  // namespace
