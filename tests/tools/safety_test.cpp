// What kt promises a deployer, end to end on the installed kt: every command
// fails with status 1 and names the path and the reason on bad inputs;
// `kt ini set` never loses a line while reporting success; outputs keep
// their links and modes; two writers at once never mix files; failures are
// honest about writes, keys and --json.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tools/run_kt.h"

namespace kt::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

const std::string kDevelopmentKey = SourcePath("keys/development.key");
const std::string kDevelopmentPub = SourcePath("keys/development.pub");

class ToolSafety : public KtTool {
 protected:
  // Every command that reads a file, with the file given as `path`.
  std::vector<std::vector<std::string>> Readers(const std::string& path) {
    return {
        {"tables", "compile", path, "-o", "out.vkt"},
        {"tables", "dump", path},
        {"zone", "check", path},
        {"zone", "dump", path},
        {"file", "sign", path, "--key", kDevelopmentKey},
        {"file", "verify", path},
        {"ini", "get", path.find('/') == std::string::npos ? "./" + path : path, "section", "key"},
        {"tables", "compile", SourcePath(kSample), "-o", "out.vkt", "--control", "signature",
         "--key", path},
    };
  }
  mode_t Mode(const std::string& name) {
    struct stat info;
    EXPECT_EQ(stat(File(name).c_str(), &info), 0) << name;
    return info.st_mode & 07777;
  }
};

TEST_F(ToolSafety, EveryCommandNamesThePathAndTheReason) {
  std::filesystem::create_directory(File("dir"));
  struct Case {
    std::string path;
    std::string reason;
  };
  std::vector<Case> cases = {
      {"dir", "dir: Is a directory"},
      {"missing", "missing: No such file or directory"},
  };
  // Its size says 0 and yet it has bytes: what was read cannot be trusted.
  // An emulator (a foreign host's run) serves the file with a true size.
  if (std::vector<std::string>{KT_TOOL_EMULATOR}.empty()) {
    cases.push_back({"/proc/self/stat", "/proc/self/stat: it changed while it was read"});
  }
  if (geteuid() != 0) {  // root reads whatever the mode says
    WriteFile(File("locked"), "x");
    chmod(File("locked").c_str(), 0);
    cases.push_back({"locked", "locked: Permission denied"});
  }
  for (const Case& c : cases) {
    for (const std::vector<std::string>& command : Readers(c.path)) {
      if (c.path == "/proc/self/stat" && (command[1] == "dump" || command[1] == "verify" ||
                                          command[1] == "sign" || command[1] == "get")) {
        continue;  // read through the library, which takes the file as it comes
      }
      const KtRun run = Run(command);
      EXPECT_EQ(run.status, 1) << testing::PrintToString(command) << run.err;
      EXPECT_THAT(run.err, HasSubstr(c.reason)) << testing::PrintToString(command);
    }
  }
  EXPECT_FALSE(std::filesystem::exists(File("out.vkt")));
  const KtRun tables = Run({"zone", "check", "--tables", "dir", "--hex", "010203024142"});
  EXPECT_EQ(tables.status, 1);
  EXPECT_THAT(tables.err, HasSubstr("cannot read dir/tablebin.vkt: No such file or directory"));
  const KtRun key = Run({"key", "generate", "--bits", "512", "--out", "missing/k"});
  EXPECT_EQ(key.status, 1);
  EXPECT_THAT(key.err, HasSubstr("cannot write missing/k.key: No such file or directory"));
  const KtRun set = Run({"ini", "set", "./dir", "section", "key", "value"});
  EXPECT_EQ(set.status, 1);
  EXPECT_THAT(set.err, HasSubstr("cannot read ./dir: Is a directory; ./dir left as it was"));
}

TEST_F(ToolSafety, IniSetRefusesWritesThatLoseOrHideData) {
  struct Case {
    const char* what;
    std::string content;
    std::vector<std::string> entry;  // section, key, value
    std::string message;
  };
  const std::vector<Case> cases = {
      {"no final line feed",
       "[commun]\nkey=1\nlast=2",
       {"commun", "key", "3"},
       "the last line (line 3, \"last=2\") has no final line feed: the writer would drop it"},
      {"byte 0xFF",
       "[commun]\nkey=1\nx=\xFF\ny=2\n",
       {"commun", "key", "3"},
       "line 3 holds a byte 0xFF: the writer stops copying there and would drop it and the 1 "
       "line after it"},
      {"prefix match",
       "[commun]\nrepertoiretravail=/w\nrep=1\n",
       {"commun", "rep", "2"},
       "line 2 \"repertoiretravail=/w\" only begins with the key rep: the writer would replace "
       "it"},
      {"CRLF section",
       "[commun]\r\nkey=1\r\n",
       {"commun", "key", "2"},
       "line 1 \"[commun]\\x0D\" is section [commun] for readers, but the writer knows only the "
       "exact line \"[commun]\""},
      {"case of the section",
       "[Commun]\nkey=1\n",
       {"commun", "key", "2"},
       "line 1 \"[Commun]\" is section [commun] for readers"},
      {"line feed in the value", "", {"commun", "key", "a\nb=c"}, "the value holds a line break"},
      {"= in the key", "", {"commun", "a=b", "1"}, "the key holds '='"},
      {"] in the section", "", {"com]mun", "key", "1"}, "the section name holds ']'"},
      {"one-character key",
       "",
       {"commun", "k", "1"},
       "a one-character key is written but can never be read back"},
      {"NUL byte",
       std::string("[commun]\nkey=a\0b\n", 17),
       {"commun", "other", "1"},
       "line 2 holds a NUL byte"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    if (!c.content.empty()) WriteFile(File("f.ini"), c.content);
    std::vector<std::string> args = {"ini", "set", "./f.ini"};
    args.insert(args.end(), c.entry.begin(), c.entry.end());
    const KtRun run = Run(args);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr(c.message));
    EXPECT_THAT(run.err, HasSubstr("nothing written (--force writes anyway)"));
    if (c.content.empty()) {
      EXPECT_FALSE(std::filesystem::exists(File("f.ini")));
    } else {
      EXPECT_EQ(ReadFile(File("f.ini")), c.content);
    }
    args.push_back("--force");
    EXPECT_EQ(Run(args).status, 0);
    std::filesystem::remove(File("f.ini"));
  }
  // What is safe goes through: the key's own line, a new key before the
  // empty line that ends the section, a new section at the end.
  WriteFile(File("f.ini"), "; comment\n[commun]\nkey=1\n\n[autre]\nx=1\n");
  ASSERT_EQ(Run({"ini", "set", "./f.ini", "commun", "key", "2"}).status, 0);
  ASSERT_EQ(Run({"ini", "set", "./f.ini", "commun", "new", "3"}).status, 0);
  ASSERT_EQ(Run({"ini", "set", "./f.ini", "third", "key", "4"}).status, 0);
  EXPECT_EQ(ReadFile(File("f.ini")),
            "; comment\n[commun]\nkey=2\nnew=3\n\n[autre]\nx=1\n\n[third]\nkey=4\n");
}

TEST_F(ToolSafety, IniGetReadsLongValuesWholeAndNamesUnreadableFiles) {
  const std::string long_value(10000, 'v');
  WriteFile(File("f.ini"), "[commun]\nkey=" + long_value + "\n");
  const KtRun get = Run({"ini", "get", "./f.ini", "commun", "key"});
  EXPECT_EQ(get.status, 0);
  EXPECT_EQ(get.out, long_value + "\n");
  const KtRun missing =
      Run({"ini", "get", "volen.ini", "commun", "key"}, {{"KT_PREFERENCES_DIR", File("prefs")}});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "kt ini get: cannot read " + File("prefs") +
                             "/volen.ini: No such file or directory (volen.ini in the "
                             "preferences directory)\n");
}

TEST_F(ToolSafety, OutputsKeepTheirModeAndWriteThroughLinks) {
  std::filesystem::create_directory(File("real"));
  // ini set
  WriteFile(File("real/a.ini"), "[commun]\nkey=1\n");
  chmod(File("real/a.ini").c_str(), 0640);
  std::filesystem::create_symlink("real/a.ini", File("link.ini"));
  ASSERT_EQ(Run({"ini", "set", "./link.ini", "commun", "key", "2"}).status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(File("link.ini")));
  EXPECT_EQ(ReadFile(File("real/a.ini")), "[commun]\nkey=2\n");
  EXPECT_EQ(Mode("real/a.ini"), 0640u);
  // tables compile -o: the header keeps the link's name, which opens it.
  WriteFile(File("real/t.vkt"), "old");
  chmod(File("real/t.vkt").c_str(), 0604);
  std::filesystem::create_symlink("real/t.vkt", File("tables.vkt"));
  CompileSample("tables.vkt");
  EXPECT_TRUE(std::filesystem::is_symlink(File("tables.vkt")));
  EXPECT_EQ(Mode("real/t.vkt"), 0604u);
  EXPECT_EQ(Run({"file", "verify", "tables.vkt"}).status, 0);
  // file sign
  chmod(File("real/t.vkt").c_str(), 0600);
  ASSERT_EQ(Run({"file", "sign", "tables.vkt", "--key", kDevelopmentKey}).status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(File("tables.vkt")));
  EXPECT_EQ(Mode("real/t.vkt"), 0600u);
  EXPECT_THAT(Run({"file", "verify", "tables.vkt"}).out,
              HasSubstr("signature check: signature good"));
  // key generate --force
  ASSERT_EQ(Run({"key", "generate", "--bits", "512", "--out", "real/k"}).status, 0);
  std::filesystem::create_symlink("real/k.key", File("k.key"));
  std::filesystem::create_symlink("real/k.pub", File("k.pub"));
  chmod(File("real/k.pub").c_str(), 0640);
  const std::string old_key = ReadFile(File("real/k.key"));
  ASSERT_EQ(Run({"key", "generate", "--bits", "512", "--out", "k", "--force"}).status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(File("k.key")));
  EXPECT_NE(ReadFile(File("real/k.key")), old_key);
  EXPECT_EQ(Mode("real/k.key"), 0600u);
  EXPECT_EQ(Mode("real/k.pub"), 0640u);
}

// Writers of one directory share the library's lock: the tool puts the
// writer's temporary file beside the file it writes.
TEST_F(ToolSafety, ConcurrentIniSetsNeverMixFiles) {
  constexpr int kWrites = 25;
  const auto writer = [&](const std::string& file, const std::string& key) {
    const pid_t pid = fork();
    if (pid == 0) {
      for (int i = 0; i < kWrites; ++i) {
        const KtRun run = RunKt({"ini", "set", file, "section", key + std::to_string(i), "v"},
                                dir_.path().string());
        if (run.status != 0) _exit(1);
      }
      _exit(0);
    }
    return pid;
  };
  // The lock is the library's (a file beside its temporary file); a library
  // without it cannot pass, whatever the tool does.
  ASSERT_EQ(Run({"ini", "set", "./probe.ini", "section", "key", "v"}).status, 0);
  if (!std::filesystem::exists(File("WriteIniTmp.lck"))) {
    GTEST_SKIP() << "the library's ini writer takes no lock beside its temporary file";
  }
  for (const bool one_file : {false, true}) {
    SCOPED_TRACE(one_file ? "one file" : "two files");
    const std::string second = one_file ? "./a.ini" : "./b.ini";
    const pid_t first_writer = writer("./a.ini", "first");
    const pid_t second_writer = writer(second, "second");
    for (const pid_t pid : {first_writer, second_writer}) {
      int status = 0;
      ASSERT_EQ(waitpid(pid, &status, 0), pid);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    std::string first_lines;
    std::string second_lines;
    for (int i = 0; i < kWrites; ++i) {
      first_lines += "first" + std::to_string(i) + "=v\n";
      second_lines += "second" + std::to_string(i) + "=v\n";
    }
    const std::string a = ReadFile(File("a.ini"));
    if (one_file) {
      EXPECT_THAT(a, StartsWith("[section]\n"));
      EXPECT_EQ(a.size(), 10 + first_lines.size() + second_lines.size());
      for (int i = 0; i < kWrites; ++i) {
        EXPECT_THAT(a, HasSubstr("\nfirst" + std::to_string(i) + "=v\n"));
        EXPECT_THAT(a, HasSubstr("\nsecond" + std::to_string(i) + "=v\n"));
      }
    } else {
      EXPECT_EQ(a, "[section]\n" + first_lines);
      EXPECT_EQ(ReadFile(File("b.ini")), "[section]\n" + second_lines);
    }
    std::filesystem::remove(File("a.ini"));
    std::filesystem::remove(File("b.ini"));
  }
}

TEST_F(ToolSafety, HonestResults) {
  CompileSample("s.vkt");
  // Write errors, also those found only at exit.
  const KtRun full = Run({"tables", "dump", "--source", "s.vkt"}, {}, {"", "/dev/full"});
  EXPECT_EQ(full.status, 1);
  EXPECT_THAT(full.err, HasSubstr("cannot write standard output: No space left on device"));
  // Key checks come before anything is written; a key that cannot be read
  // is a key problem.
  for (const auto& [key, message] : std::vector<std::pair<std::string, std::string>>{
           {kDevelopmentPub, "is a public-key file; signing needs the private key"},
           {"small.key", "small.key holds a 512-bit key; signed files need 1024 bits"},
           {"missing.key", "key problem: cannot read missing.key: No such file or directory"}}) {
    if (key == "small.key") {
      ASSERT_EQ(Run({"key", "generate", "--bits", "512", "--out", "small"}).status, 0);
    }
    const KtRun run = Run({"tables", "compile", SourcePath(kSample), "-o", "n.vkt", "--control",
                           "signature", "--key", key});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr(message));
    EXPECT_FALSE(std::filesystem::exists(File("n.vkt")));
  }
  // --trace never truncates a file the command uses, nor a foreign file
  // unless forced.
  const std::string tables = ReadFile(File("s.vkt"));
  const KtRun same = Run({"--trace", "s.vkt", "tables", "dump", "s.vkt"});
  EXPECT_EQ(same.status, 1);
  EXPECT_THAT(same.err, HasSubstr("--trace s.vkt is s.vkt, which this command uses"));
  EXPECT_EQ(ReadFile(File("s.vkt")), tables);
  WriteFile(File("notes.txt"), "precious");
  const KtRun foreign = Run({"tables", "dump", "s.vkt", "--trace", "notes.txt"});
  EXPECT_EQ(foreign.status, 1);
  EXPECT_THAT(foreign.err, HasSubstr("exists and is not a trace file (--force replaces it)"));
  EXPECT_EQ(ReadFile(File("notes.txt")), "precious");
  EXPECT_EQ(Run({"tables", "dump", "s.vkt", "--trace", "notes.txt", "--force"}).status, 0);
  EXPECT_EQ(Run({"tables", "dump", "s.vkt", "--trace", "notes.txt"}).status, 0);  // a trace now
  // file verify finds the check as a dump does and says which it ran.
  const KtRun verify = Run({"file", "verify", "s.vkt"});
  EXPECT_EQ(verify.status, 0);
  EXPECT_THAT(verify.out, StartsWith("s.vkt: crc check: CRC "));
  // --json failures are JSON too.
  const KtRun json = Run({"tables", "dump", "--json", "missing.vkt"});
  EXPECT_EQ(json.status, 1);
  EXPECT_EQ(json.out,
            "{\"error\":\"cannot read missing.vkt: No such file or directory\",\"status\":null,"
            "\"path\":\"missing.vkt\"}\n");
  // Bytes of the input echoed in messages are escaped.
  const KtRun control = Run({"frob\x1b[2J"});
  EXPECT_THAT(control.err, HasSubstr("unknown command 'frob\\x1B[2J'"));
  // Plurals.
  EXPECT_THAT(Run({"zone", "dump", "--hex", "010203024142"}).out,
              HasSubstr("zone of 6 bytes: 1 group, 1 field\n"));
}

TEST_F(ToolSafety, UserExpectations) {
  // Versions and the built-in key's fingerprint.
  const KtRun version = Run({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_THAT(version.out, StartsWith("kt 1."));
  EXPECT_THAT(version.out, HasSubstr("built-in public key: MD5 of the modulus "));
  EXPECT_EQ(Run({"version"}).out, version.out);
  // "-" reads standard input.
  const KtRun compiled =
      Run({"tables", "compile", "-", "-o", "in.vkt"}, {}, {ReadFile(SourcePath(kSample)), ""});
  EXPECT_EQ(compiled.status, 0) << compiled.err;
  EXPECT_EQ(Run({"file", "verify", "in.vkt"}).status, 0);
  const KtRun zone = Run({"zone", "dump", "-"}, {},
                         {"\x01\x02\x03\x02"
                          "AB",
                          ""});
  EXPECT_THAT(zone.out, HasSubstr("zone of 6 bytes: 1 group, 1 field\n"));
  // help TOPIC and TOPIC --help are one text.
  EXPECT_EQ(Run({"help", "ini", "set"}).out, Run({"ini", "set", "--help"}).out);
  EXPECT_THAT(Run({"--help"}).out, HasSubstr("kt(1)"));
  EXPECT_THAT(Run({"help", "tables", "compile"}).out, HasSubstr("kt(1), DESCRIPTION FORMAT"));
  // The manual page and the completion are installed beside the tool.
  const std::filesystem::path prefix =
      std::filesystem::path(ToolPath()).parent_path().parent_path();
  if (ToolPath() != KT_TOOL_PATH) {
    EXPECT_THAT(ReadFile((prefix / "share/man/man1/kt.1").string()),
                HasSubstr("DESCRIPTION FORMAT"));
    EXPECT_THAT(ReadFile((prefix / "share/bash-completion/completions/kt").string()),
                HasSubstr("complete -o filenames -F _kt kt"));
  }
  // The demo's last line runs as shown.
  const KtRun demo = Run({"demo", "--dir", "d"});
  ASSERT_EQ(demo.status, 0);
  const std::string last = demo.out.substr(demo.out.rfind("next: ") + 6);
  EXPECT_THAT(last, StartsWith(ToolPath() + " tables dump "));
}

}  // namespace
}  // namespace kt::test
