// Helpers shared by the zone tests: a reference encoder written without the
// library, and a fixture that creates and adopts zones, frees their buffers
// at the end (the library never does) and reads a zone back through its
// cursor.
#ifndef KT_TESTS_ZONES_ZONE_TEST_UTIL_H_
#define KT_TESTS_ZONES_ZONE_TEST_UTIL_H_

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kt_zones.h"
#include "support/kt_test.h"
#include "zones/zones_internal.h"

namespace kt::test {

using ByteVector = std::vector<std::uint8_t>;

struct RefGroup {
  std::uint16_t id;
  std::vector<std::string> fields;
  bool operator==(const RefGroup&) const = default;
};

// Reference coding, from the format table alone.
inline void AppendLength(ByteVector& out, std::uint32_t n) {
  const int bytes = n < 128 ? 0 : n < 255 ? 1 : n < 65535 ? 2 : n < 0xFFFFFF ? 3 : 4;
  if (bytes != 0) out.push_back(static_cast<std::uint8_t>(0x80 + bytes));
  for (int i = bytes == 0 ? 0 : bytes - 1; i >= 0; --i) out.push_back(std::uint8_t(n >> (8 * i)));
}

inline ByteVector Encode(const std::vector<RefGroup>& groups) {
  ByteVector out;
  for (const RefGroup& g : groups) {
    ByteVector contents;
    for (const std::string& f : g.fields) {
      AppendLength(contents, static_cast<std::uint32_t>(f.size()));
      contents.insert(contents.end(), f.begin(), f.end());
    }
    out.insert(out.end(), {std::uint8_t(g.id >> 8), std::uint8_t(g.id)});
    AppendLength(out, static_cast<std::uint32_t>(contents.size()));
    out.insert(out.end(), contents.begin(), contents.end());
  }
  return out;
}

inline std::string AsText(const std::uint8_t* value, std::uint32_t length) {
  return value == nullptr ? std::string()
                          : std::string(reinterpret_cast<const char*>(value), length);
}

class ZoneTest : public KtTest {
 protected:
  void TearDown() override {
    for (std::uint16_t zone = 0; zone < 100; ++zone) Release(zone);
    KtTest::TearDown();
  }
  // Every buffer a zone holds comes from the allocator, so that any may be
  // resized; it is freed here with its zone.
  static void Release(std::uint16_t zone) {
    std::uint8_t* buffer = nullptr;
    if (KT_pucLireBuffer(zone, nullptr, &buffer) != KT_OK) return;
    EXPECT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
    KT_Liberer(buffer);
  }
  static std::uint16_t Create(std::uint32_t capacity, bool structured = true) {
    std::uint16_t zone = 0xFFFF;
    EXPECT_EQ(KT_usCreerZoneMemoire(capacity, structured ? 1 : 0, &zone), KT_OK);
    return zone;
  }
  // A structured zone over a copy of `bytes`: full when capacity is 0, else
  // padded with 0xEE up to the capacity.
  static std::uint16_t Adopt(const ByteVector& bytes, std::uint32_t capacity = 0) {
    const auto size = static_cast<std::uint32_t>(bytes.size());
    const std::uint32_t room = std::max({capacity, size, 1u});
    auto* copy = static_cast<std::uint8_t*>(KT_Allouer(room));
    std::memset(copy, 0xEE, room);
    if (size != 0) std::memcpy(copy, bytes.data(), size);
    std::uint16_t zone = 0xFFFF;
    EXPECT_EQ(capacity == 0 ? KT_usInitialiserZoneMemoire(copy, size, &zone, 1)
                            : KT_usInitialiserZoneMemoireNonPlein(copy, capacity, size, &zone, 1),
              KT_OK);
    return zone;
  }
  // Groups 0x0A (2 fields), 0x0B (3 fields), 0x0A (1 field), 0x0A (1 empty field).
  static std::uint16_t FourGroups() {
    return Adopt(
        Encode({{0x0A, {"a1", "a2"}}, {0x0B, {"b1", "", "b3"}}, {0x0A, {"c"}}, {0x0A, {""}}}));
  }
  static const kt::zones::ZoneRecord& Record(std::uint16_t zone) {
    return *kt::zones::FindZone(zone);
  }
  static ByteVector Data(std::uint16_t zone) {
    return ByteVector(Record(zone).buffer, Record(zone).buffer + Record(zone).tailleDonnees);
  }
  static std::uint16_t Add(std::uint16_t zone, const std::string& value) {
    return KT_usAjouterChamp(zone, reinterpret_cast<const std::uint8_t*>(value.data()),
                             static_cast<std::uint32_t>(value.size()));
  }
  // Every group and field from the start, stepped one at a time, fields
  // counted; stops at the first step that does not succeed.
  static std::vector<RefGroup> Walk(std::uint16_t zone) {
    std::vector<RefGroup> groups;
    EXPECT_EQ(KT_usPositionnerDebut(zone), KT_OK);
    std::uint16_t id = 0;
    std::uint8_t* value = nullptr;
    std::uint32_t length = 0;
    while (KT_usAvancerGroupeSuivant(zone, 1, 1, &id) == KT_OK) {
      groups.push_back({id, {}});
      while (KT_usAvancerChampSuivant(zone, 1, nullptr, &value, &length) == KT_OK) {
        groups.back().fields.push_back(AsText(value, length));
      }
    }
    return groups;
  }
};

}  // namespace kt::test

#endif  // KT_TESTS_ZONES_ZONE_TEST_UTIL_H_
