// The ini writer against real files: where it puts a key, what it keeps,
// and that a failure at any step leaves the target as it was.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

#include "frame/frame_internal.h"
#include "frame/ini_fixture.h"

namespace kt::test {
namespace {

using kt::testing::ArmFault;
using kt::testing::Fault;

constexpr const char* kSample =
    "; settings\n[commun]\n# directories\nrepertoiretravail=/w\nrepertoiretable=/t\n\n"
    "[autre]\ncle=1\n";

class IniWriter : public IniTest {
 protected:
  bool Write(const char* section, const char* key, const char* value,
             const std::string& file = "t.ini") {
    return WriteIniString(section, key, value, file.c_str()) == 1;
  }
  // Neither the temporary nor the copy made beside the target is left.
  void ExpectNoLeftovers() const {
    EXPECT_FALSE(std::filesystem::exists(Prefs("WriteIniTmp.txt")));
    EXPECT_FALSE(std::filesystem::exists(Prefs("t.ini~WriteIniTmp")));
  }
};

struct WriteCase {
  std::string before;
  const char* section;
  const char* key;
  std::string after;
};

TEST_F(IniWriter, PlacesTheKeyAndKeepsEveryOtherLine) {
  const std::string sample = kSample;
  const std::string long_line = "long=" + std::string(5000, 'L') + "\n";
  const WriteCase cases[] = {
      // An existing key: only its line changes (comments kept, in order).
      {sample, "commun", "repertoiretable",
       "; settings\n[commun]\n# directories\nrepertoiretravail=/w\nrepertoiretable=V\n\n"
       "[autre]\ncle=1\n"},
      // A new key goes before the empty line that ends its section...
      {sample, "commun", "neuf",
       "; settings\n[commun]\n# directories\nrepertoiretravail=/w\nrepertoiretable=/t\nneuf=V\n"
       "\n[autre]\ncle=1\n"},
      // ... or at the end of a last section without one.
      {sample, "autre", "deux", sample + "deux=V\n"},
      // The key matches as a prefix of the line.
      {sample, "commun", "rep",
       "; settings\n[commun]\n# directories\nrep=V\nrepertoiretable=/t\n\n[autre]\ncle=1\n"},
      // The header matches case-sensitively, else the section is appended.
      {"[Commun]\nrep=/w\n", "commun", "rep", "[Commun]\nrep=/w\n\n[commun]\nrep=V\n"},
      {"[a1]\r\nk=1\r\n" + long_line, "a1", "k", "[a1]\r\nk=1\r\n" + long_line + "\n[a1]\nk=V\n"},
      // A last line without line feed, and all after a byte 0xFF, are lost.
      {"[a1]\nk=1\nlast", "a1", "new", "[a1]\nk=1\nnew=V\n"},
      {"[a1]\nx\xffy\n[b1]\nz=2\n", "b1", "z", "[a1]\n\n[b1]\nz=V\n"},
  };
  for (const WriteCase& c : cases) {
    SCOPED_TRACE(c.before.substr(0, 40) + " / " + c.key);
    Put(c.before);
    EXPECT_TRUE(Write(c.section, c.key, "V"));
    EXPECT_EQ(Contents(), c.after);
    ExpectNoLeftovers();
  }
  // A missing file is created with two lines, and the reader finds the key.
  std::filesystem::remove(Prefs("t.ini"));
  EXPECT_TRUE(Write("commun", "repertoiretravail", "/data"));
  EXPECT_EQ(Contents(), "[commun]\nrepertoiretravail=/data\n");
  EXPECT_EQ(Get("commun", "repertoiretravail"), "/data");
}

TEST_F(IniWriter, RefusesWhatWouldLoseData) {
  EXPECT_FALSE(Write(nullptr, "k", "v"));
  EXPECT_FALSE(Write("s1", "k", nullptr));
  // The temporary file itself as target would be emptied by the copy.
  Put(kSample, "WriteIniTmp.txt");
  EXPECT_FALSE(Write("s1", "k", "v", "WriteIniTmp.txt"));
  EXPECT_EQ(Contents("WriteIniTmp.txt"), kSample);
  // Nor is the writers' lock file replaced.
  EXPECT_FALSE(Write("s1", "k", "v", "WriteIniTmp.lck"));
  EXPECT_FALSE(Write("s1", "k", "v", Prefs("no/such.ini")));
  // A file that exists but cannot be opened is not recreated empty.
  Put(kSample);
  ArmFault(Fault::kOpen, 0);
  EXPECT_FALSE(Write("commun", "k", "v"));
  EXPECT_EQ(Contents(), kSample);
  // A creation that fails half-way leaves no file.
  std::filesystem::remove(Prefs("t.ini"));
  ArmFault(Fault::kWrite, 1);
  EXPECT_FALSE(Write("s1", "k", "v"));
  EXPECT_FALSE(std::filesystem::exists(Prefs("t.ini")));
}

// Every failure of every step, one at a time and from then on: each run
// either succeeds with the expected file or leaves the target as it was.
TEST_F(IniWriter, AnyFailedStepLeavesTheTargetAsItWas) {
  const std::string expected = std::string(kSample) + "deux=2\n";
  for (Fault fault : {Fault::kOpen, Fault::kRead, Fault::kWrite, Fault::kClose, Fault::kAlloc,
                      Fault::kRename}) {
    for (int delay = 0; delay < 200; ++delay) {
      SCOPED_TRACE(::testing::Message() << "fault " << static_cast<int>(fault) << " at " << delay);
      Put(kSample);
      ArmFault(fault, delay, /*persistent=*/true);
      const bool written = Write("autre", "deux", "2");
      const bool fired = kt::testing::FaultCallsSeen(fault) > delay;
      kt::testing::DisarmAllFaults();
      ExpectNoLeftovers();
      EXPECT_EQ(Contents(), written ? expected : std::string(kSample));
      if (written) break;
      ASSERT_TRUE(fired) << "failed without a fault";
    }
  }
}

// The temporary lies in the preferences directory whatever the target's.
TEST_F(IniWriter, RenameAcrossFileSystemsFallsBackToACopy) {
  ScratchDir elsewhere;
  const std::string target = elsewhere.File("other.ini");
  WriteFile(target, "[s1]\nk=1\n");
  ArmFault(Fault::kRename, 0);  // the first rename reports EXDEV
  EXPECT_TRUE(Write("s1", "k", "2", target));
  EXPECT_EQ(ReadFile(target), "[s1]\nk=2\n");
  ExpectNoLeftovers();
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(elsewhere.path()), {}), 1);
}

// Writers take turns through the one temporary file: two processes, then two
// threads, each add kWrites keys to their own file of one preferences
// directory, and every file holds exactly its own lines.
TEST_F(IniWriter, ConcurrentWritersKeepTheirFilesApart) {
  constexpr int kWrites = 150;
  const auto line = [](const std::string& file, int i) {
    char text[64];
    std::snprintf(text, sizeof text, "k%03d=%s-%d", i, file.c_str(), i);
    return std::string(text);
  };
  // The number of writes that did not return 1.
  const auto write_all = [&](const std::string& file) {
    int failed = 0;
    for (int i = 0; i < kWrites; ++i) {
      const std::string entry = line(file, i);
      const std::size_t equals = entry.find('=');
      failed += WriteIniString("s1", entry.substr(0, equals).c_str(),
                               entry.substr(equals + 1).c_str(), file.c_str()) != 1;
    }
    return failed;
  };
  const auto expect_own_lines = [&](const std::string& file) {
    std::string expected = "[s1]\n";
    for (int i = 0; i < kWrites; ++i) expected += line(file, i) + "\n";
    EXPECT_EQ(Contents(file), expected) << file;
  };

  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(write_all("child.ini") == 0 ? 0 : 1);
  EXPECT_EQ(write_all("parent.ini"), 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
  expect_own_lines("parent.ini");
  expect_own_lines("child.ini");

  int failed[2] = {};
  std::thread first([&] { failed[0] = write_all("first.ini"); });
  std::thread second([&] { failed[1] = write_all("second.ini"); });
  first.join();
  second.join();
  EXPECT_EQ(failed[0], 0);
  EXPECT_EQ(failed[1], 0);
  expect_own_lines("first.ini");
  expect_own_lines("second.ini");
  EXPECT_FALSE(std::filesystem::exists(Prefs("WriteIniTmp.txt")));
}

// Without a lock file (here: no preferences directory at all) the writer
// still does what it can do without the temporary: create a missing target.
TEST_F(IniWriter, WritesWithoutTheLockWhenItCannotBeMade) {
  ScratchDir elsewhere;
  const std::string target = elsewhere.File("new.ini");
  setenv("KT_PREFERENCES_DIR", Prefs("missing").c_str(), 1);
  EXPECT_TRUE(Write("s1", "k", "1", target));
  EXPECT_EQ(ReadFile(target), "[s1]\nk=1\n");
  EXPECT_FALSE(Write("s1", "k", "2", target));  // the temporary cannot be made
  EXPECT_EQ(ReadFile(target), "[s1]\nk=1\n");
}

}  // namespace
}  // namespace kt::test
