// The tool's own walk of zone bytes against the library's syntax control,
// in process.
#include "tools/kt/zone_report.h"

#include <random>
#include <vector>

#include "kt_frame.h"
#include "support/kt_test.h"
#include "tools/kt/output.h"

namespace {

using kt::tool::SyntaxFault;

class ZoneReport : public kt::test::KtTest {};

// Random zones that are mostly well formed: groups of short fields, then a
// few bytes changed, cut or added.
std::vector<std::uint8_t> RandomZone(std::mt19937& random) {
  std::vector<std::uint8_t> zone;
  const int groups = static_cast<int>(random() % 4);  // 0: the empty zone
  for (int g = 0; g < groups; ++g) {
    std::vector<std::uint8_t> fields;
    const int count = static_cast<int>(1 + random() % 3);
    for (int f = 0; f < count; ++f) {
      const int length = static_cast<int>(random() % 3 == 0 ? 128 + random() % 4 : random() % 5);
      if (length >= 128) fields.push_back(0x81);
      fields.push_back(static_cast<std::uint8_t>(length));
      for (int i = 0; i < length; ++i) fields.push_back(static_cast<std::uint8_t>(random()));
    }
    zone.push_back(static_cast<std::uint8_t>(random() % 3));
    zone.push_back(static_cast<std::uint8_t>(random()));
    if (fields.size() >= 128) zone.push_back(0x81);
    zone.push_back(static_cast<std::uint8_t>(fields.size()));
    zone.insert(zone.end(), fields.begin(), fields.end());
  }
  for (int changes = static_cast<int>(random() % 4) - 1; changes > 0 && !zone.empty(); --changes) {
    switch (random() % 3) {
      case 0:
        zone[random() % zone.size()] = static_cast<std::uint8_t>(random());
        break;
      case 1:
        zone.resize(random() % zone.size());
        break;
      default:
        zone.push_back(static_cast<std::uint8_t>(random()));
    }
  }
  return zone;
}

TEST_F(ZoneReport, WalkFindsAFaultExactlyWhenSyntaxControlFails) {
  std::mt19937 random(20261121);
  int faults = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::vector<std::uint8_t> zone = RandomZone(random);
    const kt::tool::ZoneCheck check = kt::tool::CheckZone(zone, false);
    SyntaxFault fault;
    (void)kt::tool::WalkZone(zone, &fault);
    ASSERT_EQ(fault.found, check.syntax != KT_OK)
        << kt::tool::HexBytes(zone.data(), zone.size()) << ": " << fault.Describe();
    faults += fault.found ? 1 : 0;
  }
  // Both kinds were met often enough to mean something.
  EXPECT_GT(faults, 4000);
  EXPECT_LT(faults, 16000);
}

TEST_F(ZoneReport, WalkGivesOffsetsAndLengths) {
  const std::vector<std::uint8_t> zone =
      kt::test::Bytes({0x00, 0x0a, 0x04, 0x02, 'A', 'B', 0x00, 0x00, 0x01, 0x81, 0x81, 0x80});
  SyntaxFault fault;
  const std::vector<kt::tool::ZoneGroup> groups = kt::tool::WalkZone(zone, &fault);
  ASSERT_TRUE(fault.found);
  EXPECT_EQ(fault.Describe(),
            "group 2 (id 1), at offset 7: the group claims 129 bytes; 1 follow its header");
  ASSERT_EQ(groups.size(), 1u);
  ASSERT_EQ(groups[0].fields.size(), 2u);
  EXPECT_EQ(groups[0].fields[1].offset, 6u);
  EXPECT_EQ(groups[0].fields[1].length, 0u);
  EXPECT_EQ(groups[0].fields[1].header, 1u);
}

}  // namespace
