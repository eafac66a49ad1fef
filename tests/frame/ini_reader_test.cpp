// The ini reader against real files in a scratch preferences directory: its
// scan rules, its limits and its behaviour on failures and odd content.
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include "frame/frame_internal.h"
#include "frame/ini_fixture.h"

namespace kt::test {
namespace {

using kt::testing::ArmFault;
using kt::testing::Fault;

class IniReader : public IniTest {};

struct ScanCase {
  std::string file;
  const char* section;
  const char* key;
  std::uint32_t size;
  const char* expected;  // "?" is the default: not found
};

TEST_F(IniReader, ScanRules) {
  const std::string odd("\xff\x80[s\0s]\n\x01\x02[ss]\n\xe9t\xe9=1\nkey=v", 26);
  const std::string long_section(300, 's');
  const std::string long_key(300, 'k');
  const std::string long_value(1000, 'v');
  const ScanCase cases[] = {
      // Names compare ignoring case; values keep theirs.
      {"[Commun]\nrepertoireTravail=/Data\n", "commun", "repertoiretravail", 200, "/Data"},
      {"[Commun]\nrepertoireTravail=/Data\n", "COMMUN", "REPERTOIRETRAVAIL", 200, "/Data"},
      // Blanks around "=" belong to key and value; leading blanks are passed over.
      {"[ss]\nkey = v\n", "ss", "key", 200, "?"},
      {"[ss]\nkey = v\n", "ss", "key ", 200, " v"},
      {"[ss]\n  ind=1\n", "ss", "ind", 200, "1"},
      {"[ss]\n  ind=1\n", "ss", "  ind", 200, "?"},
      // One-character names are never found.
      {"[a]\nkey=v\n", "a", "key", 200, "?"},
      {"[ab]\nk=v\nkk=w\n", "ab", "k", 200, "?"},
      {"[ab]\nk=v\nkk=w\n", "ab", "kk", 200, "w"},
      // The value is cut to size characters.
      {"[ss]\nkey=abcdefgh\n", "ss", "key", 3, "abc"},
      {"[ss]\nkey=abcdefgh\n", "ss", "key", 0, ""},
      // Comments, keys outside the section and other sections are skipped.
      {"key=top\n[other]\nkey=no\n[ss]\n;key=no\n#key=no\nkey=yes\n", "ss", "key", 200, "yes"},
      {"[ss]\nkey=1\n[tt]\nkey=2\n", "tt", "key", 200, "2"},
      // After a key that does not match, the scan goes on inside its value.
      {"[ss]\nother=key=found\n", "ss", "key", 200, "found"},
      {"[ss]\nx1=[tt]\nkey=v\n", "ss", "key", 200, "?"},
      {"[ss]\nx1=[ss]\nkey=v\n", "ss", "key", 200, "v"},
      {"[ss]\nx1=;key=hidden\nkey=v\n", "ss", "key", 200, "v"},
      {"[tt]\nx1=[ss]\nkey=v\n", "ss", "key", 200, "?"},  // outside: whole lines skipped
      // Line ends, end of file, binary bytes, a "[" or "=" at the very end.
      {"[ss]\r\nkey=v1\r\nend=last", "ss", "end", 200, "last"},
      {"[ss]\r\nkey=v1\r\nend=last", "ss", "key", 200, "v1"},
      {odd, "ss", "key", 200, "v"},
      {"[ss]\nkey=v\n[", "ss", "key", 200, "v"},
      {"[ss]\nkey=v\n[s", "ss", "other", 200, "?"},
      {"[ss]\nkey=v\nk=", "ss", "other", 200, "?"},
      {"[ss]\nkey=", "ss", "key", 200, ""},
      {"", "ss", "key", 200, "?"},
      // Lines longer than the historical 256-character buffers.
      {"[" + long_section + "]\n" + long_key + "=" + long_value + "\n", long_section.c_str(),
       long_key.c_str(), 1000, long_value.c_str()},
  };
  for (const ScanCase& c : cases) {
    SCOPED_TRACE(c.file.substr(0, 60) + " / " + c.key);
    Put(c.file);
    EXPECT_EQ(Get(c.section, c.key, c.size), c.expected);
  }
}

TEST_F(IniReader, DefaultsNumbersAndPaths) {
  EXPECT_EQ(Get("ss", "key", 4, "defaults"), "def");  // size - 1 characters
  EXPECT_EQ(Get("ss", "key", 4, "four"), "four");
  EXPECT_EQ(Get("ss", "key", 0, "x"), "");
  EXPECT_EQ(Get("ss", "key", 200, nullptr), "");
  Put("[ss]\nn1=  -42abc\nn2=abc\nbig=99999999999\nsmall=-99999999999\n");
  EXPECT_EQ(GetIniInt("ss", "n1", 5, "t.ini"), -42);
  EXPECT_EQ(GetIniInt("ss", "n2", 5, "t.ini"), 0);
  EXPECT_EQ(GetIniInt("ss", "big", 5, "t.ini"), INT32_MAX);
  EXPECT_EQ(GetIniInt("ss", "small", 5, "t.ini"), INT32_MIN);
  EXPECT_EQ(GetIniInt("ss", "none", 5, "t.ini"), 5);
  EXPECT_EQ(GetIniInt("ss", "n1", 5, "missing.ini"), 5);
  // A name with "/" is used as it stands; one too long for a path is missing.
  ScratchDir elsewhere;
  WriteFile(elsewhere.File("t.ini"), "[ss]\nn1=absolute\n");
  EXPECT_EQ(Get("ss", "n1", 200, "?", elsewhere.File("t.ini").c_str()), "absolute");
  EXPECT_EQ(Get("ss", "n1", 200, "?", std::string(5000, 'h').c_str()), "?");
  EXPECT_EQ(GetIniString("ss", "n1", "d", nullptr, 4, "t.ini"), 0u);
}

TEST_F(IniReader, FailuresLeaveTheDefaultAndNoMemory) {
  Put("[ss]\nkey=value\n");
  const std::uint32_t before = kt::frame::AllocatedTotal();
  for (Fault fault : {Fault::kOpen, Fault::kAlloc, Fault::kRead, Fault::kClose}) {
    ArmFault(fault, 0);
    // A failed close after a full read changes nothing.
    EXPECT_EQ(Get("ss", "key"), fault == Fault::kClose ? "value" : "?");
    EXPECT_EQ(kt::frame::AllocatedTotal(), before);
  }
  // A failed size query is the one null result, which GetIniString ignores.
  char buffer[16] = "dflt";
  ArmFault(Fault::kSeek, 0);
  EXPECT_EQ(vln_GetIniInfo("ss", "key", buffer, 's', 8, "t.ini"), nullptr);
  EXPECT_STREQ(buffer, "dflt");
  ArmFault(Fault::kSeek, 0);
  EXPECT_EQ(Get("ss", "key", 200, "dflt"), "dflt");
}

TEST_F(IniReader, ReadLineKeepsItsHistoricalEnds) {
  const std::string path = Prefs("lines.txt");
  WriteFile(path, "one\r\n" + std::string(300, 'x') + "\ntwo\xff" "after\nlast");
  std::FILE* stream = std::fopen(path.c_str(), "r");
  ASSERT_NE(stream, nullptr);
  char line[256];
  EXPECT_EQ(read_line(stream, line), 1);
  EXPECT_STREQ(line, "one\r");
  EXPECT_EQ(read_line(stream, line), 1);
  EXPECT_EQ(std::string(line), std::string(255, 'x'));  // the rest is dropped
  std::memset(line, '#', sizeof line);
  EXPECT_EQ(read_line(stream, line), 0);  // 0xFF ends the line, unterminated
  EXPECT_EQ(std::string(line, 4), "two#");
  EXPECT_EQ(read_line(stream, line), 1);
  EXPECT_EQ(read_line(stream, line), 0);  // no final line feed
  std::fclose(stream);
}

}  // namespace
}  // namespace kt::test
