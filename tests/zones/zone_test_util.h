// Helpers shared by the zone tests: a fixture that gives back the buffers of
// created zones (the library never frees them), zones adopted over bytes the
// test keeps, and a reference encoder written without the library.
#ifndef KT_TESTS_ZONES_ZONE_TEST_UTIL_H_
#define KT_TESTS_ZONES_ZONE_TEST_UTIL_H_

#include <algorithm>
#include <cstdint>
#include <deque>
#include <set>
#include <string>
#include <vector>

#include "kt_zones.h"
#include "support/kt_test.h"
#include "zones/zones_internal.h"

namespace kt::test {

using ByteVector = std::vector<std::uint8_t>;

class ZoneTest : public KtTest {
 protected:
  void TearDown() override {
    for (std::uint16_t zone = 0; zone < 100; ++zone) Release(zone);
    KtTest::TearDown();
  }
  static std::uint16_t Create(std::uint32_t capacity, bool structured = true) {
    std::uint16_t zone = 0xFFFF;
    EXPECT_EQ(KT_usCreerZoneMemoire(capacity, structured ? 1 : 0, &zone), KT_OK);
    return zone;
  }
  // A structured zone over a copy of `bytes` kept by the test: full when
  // capacity is 0, else padded with 0xEE up to the capacity.
  std::uint16_t Adopt(const ByteVector& bytes, std::uint32_t capacity = 0) {
    ByteVector& copy = kept_.emplace_back(bytes);
    copy.resize(std::max<std::size_t>({capacity, bytes.size(), 1}), 0xEE);
    owned_.insert(copy.data());
    std::uint16_t zone = 0xFFFF;
    const auto size = static_cast<std::uint32_t>(bytes.size());
    EXPECT_EQ(capacity == 0
                  ? KT_usInitialiserZoneMemoire(copy.data(), size, &zone, 1)
                  : KT_usInitialiserZoneMemoireNonPlein(copy.data(), capacity, size, &zone, 1),
              KT_OK);
    return zone;
  }
  // Releases the zone and frees its buffer unless the test owns it.
  void Release(std::uint16_t zone) {
    std::uint8_t* buffer = nullptr;
    if (KT_pucLireBuffer(zone, nullptr, &buffer) != KT_OK) return;
    EXPECT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
    if (owned_.count(buffer) == 0) KT_Liberer(buffer);
  }
  static ByteVector Data(std::uint16_t zone) {
    std::uint8_t* buffer = nullptr;
    std::uint32_t size = 0;
    EXPECT_EQ(KT_pucLireBuffer(zone, &size, &buffer), KT_OK);
    return buffer == nullptr ? ByteVector{} : ByteVector(buffer, buffer + size);
  }
  static const kt::zones::ZoneRecord& Record(std::uint16_t zone) {
    return *kt::zones::FindZone(zone);
  }

 private:
  std::deque<ByteVector> kept_;
  std::set<const std::uint8_t*> owned_;
};

// Reference coding, from the format table alone.
inline void AppendLength(ByteVector& out, std::uint32_t n) {
  const int bytes = n < 128 ? 0 : n < 255 ? 1 : n < 65535 ? 2 : n < 0xFFFFFF ? 3 : 4;
  if (bytes != 0) out.push_back(static_cast<std::uint8_t>(0x80 + bytes));
  for (int i = bytes == 0 ? 0 : bytes - 1; i >= 0; --i) {
    out.push_back(static_cast<std::uint8_t>(n >> (8 * i)));
  }
}

struct RefGroup {
  std::uint16_t id;
  std::vector<std::string> fields;
};

inline ByteVector Encode(const std::vector<RefGroup>& groups) {
  ByteVector out;
  for (const RefGroup& g : groups) {
    ByteVector contents;
    for (const std::string& f : g.fields) {
      AppendLength(contents, static_cast<std::uint32_t>(f.size()));
      contents.insert(contents.end(), f.begin(), f.end());
    }
    out.push_back(static_cast<std::uint8_t>(g.id >> 8));
    out.push_back(static_cast<std::uint8_t>(g.id));
    AppendLength(out, static_cast<std::uint32_t>(contents.size()));
    out.insert(out.end(), contents.begin(), contents.end());
  }
  return out;
}

inline std::string AsText(const std::uint8_t* value, std::uint32_t length) {
  return value == nullptr ? std::string()
                          : std::string(reinterpret_cast<const char*>(value), length);
}

}  // namespace kt::test

#endif  // KT_TESTS_ZONES_ZONE_TEST_UTIL_H_
