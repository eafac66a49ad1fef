// kt zone check | dump, end to end.
#include <string>

#include "tools/run_kt.h"

namespace kt::test {
namespace {

using testing::HasSubstr;

// Group 10 (N 1-6 code 1, A 1-20, D 8-12 code 1), group 20 (L 1-10 code 1
// with ACHAT, VENTE, ECHANGE; N 0-9), group 30 (A, free): the sample.
constexpr const char* kGroup10 =
    "000a1c 06313233343536 0b4455504f4e54204a45414e 083230323430313331";
constexpr const char* kOrder = "00140b 054143484154 0431353030";

class ToolZone : public KtTool {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(File("tables"));
    CompileSample("tables/tablebin.vkt");
  }
  KtRun Check(const std::string& hex, bool json = false) {
    std::vector<std::string> args = {"zone", "check", "--tables", "tables", "--hex", hex};
    if (json) args.push_back("--json");
    return Run(args);
  }
};

TEST_F(ToolZone, CheckAcceptsAConformingZone) {
  const KtRun run = Check(std::string(kGroup10) + kOrder);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "syntax   good (45 bytes)\nformat   good (dictionary version 0100)\n");
  // Without a dictionary only the syntax is checked; a zone can come from a file.
  WriteFile(File("zone.bin"), std::string("\x01\x02\x03\x02\x41\x42", 6));
  EXPECT_EQ(Run({"zone", "check", "zone.bin"}).status, 0);
}

TEST_F(ToolZone, CheckNamesEachFaultOfForm) {
  const struct {
    const char* hex;
    const char* where;
  } cases[] = {
      {"", "group 1, at offset 0: the zone is empty"},
      {"010200", "group 1 (id 258), at offset 0: a group of length 0"},
      {"0102050241 42", "the group claims 5 bytes; 3 follow its header"},
      {"0102030541 42", "group 1 (id 258), field 1, at offset 3: the field claims 5 bytes"},
      {"01020100 07", "group 2, at offset 4: the group header does not decode (1 byte left)"},
      {"010202 85 00", "field 1, at offset 3: the field's length does not decode"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.hex);
    const KtRun run = Check(c.hex);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.out, HasSubstr("syntax   bad: 0xF810 (badly coded zone)"));
    EXPECT_THAT(run.out, HasSubstr(c.where));
  }
}

TEST_F(ToolZone, CheckDecodesEachFormatFailure) {
  const std::string group10(kGroup10);
  const struct {
    std::string hex;
    const char* code;
    const char* where;
  } cases[] = {
      {group10 + "001409 03444f4e 0431353030", "0x9004",
       "group 2 (id 20), field 1 (rank 4 in the zone): value \"DON\" is none of the allowed "
       "values ACHAT, VENTE, ECHANGE"},
      {"00140b 054143484154 04313530 41", "0x9002", "value \"150A\" is not of type N (digits)"},
      {"000a1b 0731323334353637 094455504f4e54204a45 083230323430313331", "0x9001",
       "has 7 significant characters, above the maximum 6"},
      {"000a16 00 0b4455504f4e54204a45414e 083230323430313331", "0x9001",
       "the field is empty, but its code is 1 and its minimum length 1"},
      {group10 + "002802 0158", "0xA002", "group 2 (id 40): the group is not in the dictionary"},
      {"001406 0556454e5445", "0xA801",
       "group 1 (id 20): the group holds 1 field; the "
       "dictionary lists 2"},
      {std::string(kOrder) + "001e04 0141 0142", "0xA802",
       "the group holds 2 fields; the "
       "dictionary lists 1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.hex);
    const KtRun run = Check(c.hex);
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_THAT(run.out, HasSubstr(std::string("format   bad: ") + c.code));
    EXPECT_THAT(run.out, HasSubstr(c.where));
  }
  const KtRun json = Check(group10 + "001409 03444f4e 0431353030", true);
  EXPECT_THAT(json.out, HasSubstr("\"status\":\"0x9004\",\"good\":false,\"kind\":\"field\","
                                  "\"position\":4,\"group\":2,\"id\":20,\"field\":1"));
  EXPECT_THAT(json.out, HasSubstr("\"good\":false}\n"));
}

TEST_F(ToolZone, CheckWithoutAGoodTablesFileNamesTheStartUpStatus) {
  std::string bytes = ReadFile(File("tables/tablebin.vkt"));
  bytes.back() ^= 1;
  WriteFile(File("tables/tablebin.vkt"), bytes);
  const KtRun run = Check(kOrder);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("status 0xF630 (CRC mismatch or signature not valid)"));
}

TEST_F(ToolZone, DumpShowsGroupsFieldsAndTheFirstFault) {
  const KtRun run = Run({"zone", "dump", "--hex", "000a05 024142 0107 0014"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out,
            "zone of 10 bytes: 1 group, 2 fields\n"
            "group 1  id 10 (0x000A) at 0: header 3 bytes, fields 5 bytes\n"
            "  field 1  at 3, 2 bytes: \"AB\"\n"
            "  field 2  at 6, 1 byte: 07\n"
            "syntax control: bad, 0xF810 (badly coded zone)\n"
            "  group 2, at offset 8: the group header does not decode (2 bytes left)\n");
  const KtRun json = Run({"zone", "dump", "--json", "--hex", "000a03 024142"});
  EXPECT_EQ(json.status, 0);
  EXPECT_EQ(json.out,
            "{\"length\":6,\"groups\":[{\"rank\":1,\"id\":10,\"offset\":0,\"header\":3,"
            "\"length\":3,\"fields\":[{\"number\":1,\"offset\":3,\"length\":2,\"text\":\"AB\"}]}],"
            "\"syntax\":{\"status\":\"0x0000\",\"good\":true}}\n");
}

}  // namespace
}  // namespace kt::test
