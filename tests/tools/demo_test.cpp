// kt demo, kt ini get | set, traces and the command line, end to end.
#include <filesystem>
#include <string>

#include "tools/run_kt.h"

namespace kt::test {
namespace {

using testing::HasSubstr;

class ToolDemo : public KtTool {};

TEST_F(ToolDemo, RunsWithoutArgumentsInAScratchDirectory) {
  std::filesystem::create_directory(File("tmp"));
  const KtRun run = Run({"demo"}, {{"TMPDIR", File("tmp")}, {"KT_PREFERENCES_DIR", ""}});
  ASSERT_EQ(run.status, 0) << run.out << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_THAT(run.out, HasSubstr("3 groups, 6 fields, 3 allowed values"));
  EXPECT_THAT(run.out, HasSubstr("syntax control 0x0000 (success), format control 0x0000"));
  EXPECT_THAT(run.out, HasSubstr("format control 0x9004 (the field of rank 4 fails format "
                                 "control)\n                  group 2 (id 20), field 1"));
  EXPECT_THAT(run.out, HasSubstr("format control 0xA002"));
  EXPECT_THAT(run.out, HasSubstr("format control 0xA801"));

  std::filesystem::directory_iterator made(File("tmp"));
  ASSERT_NE(made, std::filesystem::directory_iterator());
  const std::filesystem::path root = made->path();
  EXPECT_EQ(ReadFile((root / "work/92.adm").string()), "0100");
  EXPECT_EQ(ReadFile((root / "work/93.adm").string()), "0100");
  EXPECT_THAT(ReadFile((root / "preferences/volen.ini").string()),
              HasSubstr("repertoiretable=" + (root / "tables").string()));
  const std::string trace = ReadFile((root / "kt-demo.trace").string());
  EXPECT_THAT(trace, HasSubstr("KT_usControlerFormatZoneMemoire"));
  EXPECT_THAT(trace, HasSubstr("### FIN TRACE ###"));
  EXPECT_EQ(Run({"tables", "dump", (root / "tables/tablebin.vkt").string()}).status, 0);
}

TEST_F(ToolDemo, GlobalTraceGoesWhereAsked) {
  const KtRun run = Run({"--trace", "t.txt", "demo", "--dir", "d", "--trace-level", "1"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("t.txt (module 1, sub-modules 1 to 8, level 1)"));
  EXPECT_THAT(ReadFile(File("t.txt")), HasSubstr("IAInitialisation"));
  EXPECT_TRUE(std::filesystem::exists(File("d/tables/tablebin.vkt")));
  EXPECT_FALSE(std::filesystem::exists(File("d/kt-demo.trace")));

  const KtRun zone = Run({"zone", "check", "--hex", "01020100", "--trace", "z.txt"});
  EXPECT_EQ(zone.status, 0);
  EXPECT_THAT(ReadFile(File("z.txt")), HasSubstr("KT_usControlerSyntaxeZoneMemoire"));
}

TEST_F(ToolDemo, IniSetThenGet) {
  EXPECT_EQ(Run({"ini", "set", "./a.ini", "commun", "cle", "une valeur"}).status, 0);
  EXPECT_EQ(Run({"ini", "set", "./a.ini", "commun", "vide", ""}).status, 0);
  EXPECT_EQ(ReadFile(File("a.ini")), "[commun]\ncle=une valeur\nvide=\n");
  EXPECT_FALSE(std::filesystem::exists(File("WriteIniTmp.txt")));
  const KtRun get = Run({"ini", "get", "./a.ini", "COMMUN", "Cle"});
  EXPECT_EQ(get.status, 0);
  EXPECT_EQ(get.out, "une valeur\n");
  EXPECT_EQ(Run({"ini", "get", "./a.ini", "commun", "vide"}).out, "\n");
  const KtRun missing = Run({"ini", "get", "./a.ini", "commun", "absente"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "kt ini get: no key absente in section commun of ./a.ini\n");
  // A bare name lies in the preferences directory.
  EXPECT_EQ(
      Run({"ini", "set", "b.ini", "sec", "key", "v"}, {{"KT_PREFERENCES_DIR", File("")}}).status,
      0);
  EXPECT_EQ(ReadFile(File("b.ini")), "[sec]\nkey=v\n");
  EXPECT_EQ(Run({"ini", "set", "./no/such/c.ini", "sec", "key", "v"}).status, 1);
}

TEST_F(ToolDemo, UsageErrorsExitTwoAndHelpZero) {
  const std::vector<std::vector<std::string>> wrong = {
      {},
      {"frobnicate"},
      {"tables"},
      {"tables", "frob"},
      {"tables", "compile", "x.txt"},
      {"tables", "compile", "x.txt", "-o", "y", "--control", "signature"},
      {"tables", "dump"},
      {"tables", "dump", "a", "b"},
      {"zone", "check", "--hex", "0"},
      {"zone", "dump", "--hex", "00", "file"},
      {"key", "generate"},
      {"file", "sign", "x.vkt"},
      {"ini", "set", "a", "b", "c"},
      {"ini", "get", "a", "b", "c", "--colour"},
      {"--trace"},
      {"demo", "--trace-level", "3"},
  };
  for (const std::vector<std::string>& args : wrong) {
    const KtRun run = Run(args);
    EXPECT_EQ(run.status, 2) << testing::PrintToString(args);
    EXPECT_THAT(run.err, HasSubstr("usage: kt")) << testing::PrintToString(args);
  }
  for (const char* command : {"demo", "tables compile", "tables dump", "zone check", "zone dump",
                              "key generate", "file sign", "file verify", "ini get", "ini set"}) {
    std::vector<std::string> args;
    for (std::string rest = command; !rest.empty();) {
      const std::size_t blank = rest.find(' ');
      args.push_back(rest.substr(0, blank));
      rest = blank == std::string::npos ? "" : rest.substr(blank + 1);
    }
    args.push_back("--help");
    const KtRun run = Run(args);
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_THAT(run.out, HasSubstr(std::string("usage: kt ") + command)) << command;
  }
  EXPECT_EQ(Run({"--help"}).status, 0);
  EXPECT_EQ(Run({"zone", "--help"}).status, 0);
}

}  // namespace
}  // namespace kt::test
