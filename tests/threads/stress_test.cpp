// Many threads on the public operations at once, all traced: each thread's
// results must be exactly what it would get alone, the allocation totals
// must come back to where they were, and the trace file must hold only whole
// lines, each thread's indented by its own depth. Built and run under
// ThreadSanitizer too (scripts/test.sh).
#include <malloc.h>

#include <atomic>
#include <barrier>
#include <cstdio>
#include <cstring>
#include <functional>
#include <latch>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "binfiles/binfile_test_util.h"
#include "frame/frame_internal.h"
#include "frame/ini_fixture.h"
#include "kt_binfiles.h"
#include "kt_dictionary.h"
#include "kt_traces.h"
#include "kt_zones.h"
#include "support/dictionary_builder.h"
#include "support/kt_test.h"
#include "traces/traces_internal.h"

namespace {

using kt::test::ReadFile;
using kt::test::ScratchDir;

constexpr int kThreads = 6;
constexpr int kDumpBytes = 16;  // the marker each thread dumps into the trace
const std::string kKeyFile = std::string(KT_SOURCE_DIR) + "/keys/development.key";

// Runs body(t) on kThreads threads released together.
void RunThreads(const std::function<void(int)>& body) {
  std::latch start{kThreads};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      body(t);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

const std::uint8_t* Bytes(const std::string& text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}
std::uint32_t Size(const std::string& text) { return static_cast<std::uint32_t>(text.size()); }

// Traces every sub-module of the library at level 2 into a scratch file for
// the whole test, then checks the file's lines.
class Stress : public kt::test::IniTest {
 protected:
  void SetUp() override {
    IniTest::SetUp();
    for (std::uint16_t sub = 1; sub <= 8; ++sub) {
      ASSERT_EQ(KT_usActiverTrace(trace_path_.c_str(), "w", 1, sub, 2), KT_OK);
    }
    baseline_ = kt::frame::AllocatedTotal();
  }
  void TearDown() override {
    ASSERT_EQ(KT_usActiverTrace(trace_path_.c_str(), "w", 1, 1, 0), KT_OK);
    CheckTrace(ReadFile(trace_path_));
    IniTest::TearDown();
  }

  // A trace event of this thread: one line per byte, "T<t>[i] = 0x..",
  // which must come out whole and indented by this thread's own depth
  // (a start that only counts leaves its entry open, by design).
  static void Mark(int t) {
    std::uint8_t bytes[kDumpBytes];
    for (int i = 0; i < kDumpBytes; ++i) bytes[i] = static_cast<std::uint8_t>(t * kDumpBytes + i);
    const std::string label = "T" + std::to_string(t);
    mark_indents_[t].push_back(2 * kt::traces::Depth());
    KT_TraceEcrireBinaire(1, 8, label.c_str(), bytes, kDumpBytes);
  }

  // Every line is whole: after its indentation, no other event begins in
  // it. The markers are all there, each unindented and intact.
  static void CheckTrace(const std::string& text) {
    std::istringstream lines{text};
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "### DEBUT TRACE ###");
    const std::regex marker{R"(T(\d)\[(\d+)\] = 0x([0-9a-f]{2}))"};
    std::map<int, std::size_t> marker_lines;
    int torn = 0;
    bool footer = false;
    while (std::getline(lines, line)) {
      if (line == "### FIN TRACE ###") {
        footer = true;
        continue;
      }
      const std::size_t indent = line.find_first_not_of(' ');
      if (indent == std::string::npos) continue;  // texts with their own newline
      const std::string body = line.substr(indent);
      const bool whole = !footer && body.find("###") == std::string::npos &&
                         body.find("{ ", 1) == std::string::npos &&
                         body.find("ERREUR : ", 1) == std::string::npos &&
                         (body[0] != '}' || body == "}");
      std::smatch m;
      if (body[0] == 'T' && std::regex_search(body, m, marker)) {
        const int t = std::stoi(m[1]);
        const int i = std::stoi(m[2]);
        const std::size_t k = marker_lines[t]++ / kDumpBytes;  // this thread's k-th mark
        const bool exact = m.position(0) == 0 && m.length(0) == static_cast<long>(body.size()) &&
                           std::stoi(m[3], nullptr, 16) == t * kDumpBytes + i &&
                           k < mark_indents_[t].size() &&
                           static_cast<int>(indent) == mark_indents_[t][k];
        if (!exact) {
          ++torn;
          ADD_FAILURE() << "marker line out of place: [" << line << "]";
        }
      }
      if (!whole) {
        ++torn;
        ADD_FAILURE() << "torn trace line: [" << line << "]";
      }
    }
    EXPECT_TRUE(footer);
    EXPECT_EQ(torn, 0);
    for (int t = 0; t < kThreads; ++t) {
      EXPECT_EQ(marker_lines[t], mark_indents_[t].size() * kDumpBytes) << "thread " << t;
      mark_indents_[t].clear();
    }
  }

  std::string trace_path_ = prefs_.File("stress.trace");
  std::uint32_t baseline_ = 0;
  // The indentation each mark of thread t must have; only t writes its own.
  static inline std::vector<int> mark_indents_[kThreads];
};

// Builds a zone whose contents depend on (t, i), hands its buffer to a second
// zone, checks syntax and walks it back.
bool ZoneRoundTrip(int t, int i) {
  std::uint16_t zone = 0;
  if (KT_usCreerZoneMemoire(512, 1, &zone) != KT_OK) return false;
  std::vector<std::string> fields;
  bool ok = true;
  for (int g = 0; g < 3; ++g) {
    ok = ok && KT_usAjouterGroupe(zone, static_cast<std::uint16_t>(100 * t + g + 1)) == KT_OK;
    for (int f = 0; f < 4; ++f) {
      fields.push_back(std::to_string(t) + "/" + std::to_string(i) + "/" + std::to_string(g) +
                       std::string(static_cast<std::size_t>(f), '*'));
      ok = ok && KT_usAjouterChamp(zone, Bytes(fields.back()), Size(fields.back())) == KT_OK;
    }
  }
  std::uint32_t size = 0;
  std::uint8_t* buffer = nullptr;
  ok = KT_pucLireBuffer(zone, &size, &buffer) == KT_OK && ok;
  ok = KT_usLibererZoneMemoire(zone) == KT_OK && ok;
  std::uint16_t adopted = 0;
  ok = KT_usInitialiserZoneMemoire(buffer, size, &adopted, 1) == KT_OK && ok;
  ok = ok && KT_usControlerSyntaxeZoneMemoire(adopted) == KT_OK &&
       KT_usPositionnerDebut(adopted) == KT_OK;
  std::size_t next = 0;
  for (int g = 0; ok && g < 3; ++g) {
    std::uint16_t id = 0;
    ok = KT_usAvancerGroupeSuivant(adopted, 1, 0, &id) == KT_OK && id == 100 * t + g + 1;
    for (int f = 0; ok && f < 4; ++f, ++next) {
      std::uint8_t* value = nullptr;
      std::uint32_t length = 0;
      ok = KT_usAvancerChampSuivant(adopted, 1, nullptr, &value, &length) == KT_OK &&
           std::string(reinterpret_cast<char*>(value), length) == fields[next];
    }
  }
  ok = KT_usLibererZoneMemoire(adopted) == KT_OK && ok;
  KT_Liberer(buffer);
  return ok;
}

TEST_F(Stress, ZonesOfEachThreadRoundTrip) {
  std::atomic<int> failures{0};
  RunThreads([&](int t) {
    Mark(t);
    for (int i = 0; i < 40; ++i) {
      if (!ZoneRoundTrip(t, i)) failures.fetch_add(1);
    }
    Mark(t);
  });
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(kt::frame::AllocatedTotal(), baseline_);
  std::uint16_t free_zone = 99;
  EXPECT_EQ(KT_bRechercherZoneLibre(&free_zone), 1);
  EXPECT_EQ(free_zone, 0);  // every slot given back
}

// Calls on one zone from every thread are serialised: every field arrives
// whole, once.
TEST_F(Stress, CallsOnOneZoneAreSerialised) {
  constexpr int kFields = 60;
  std::uint16_t zone = 0;
  ASSERT_EQ(KT_usCreerZoneMemoire(16384, 1, &zone), KT_OK);
  ASSERT_EQ(KT_usAjouterGroupe(zone, 7), KT_OK);
  RunThreads([&](int t) {
    Mark(t);
    for (int i = 0; i < kFields; ++i) {
      char field[16];
      std::snprintf(field, sizeof field, "t%d-%04d", t, i);
      EXPECT_EQ(KT_usAjouterChamp(zone, reinterpret_cast<const std::uint8_t*>(field),
                                  static_cast<std::uint32_t>(std::strlen(field))),
                KT_OK);
      std::uint16_t counter = 0;
      EXPECT_EQ(KT_usLireCompteurChamp(zone, &counter), KT_OK);
    }
  });
  ASSERT_EQ(KT_usControlerSyntaxeZoneMemoire(zone), KT_OK);
  ASSERT_EQ(KT_usPositionnerDebut(zone), KT_OK);
  ASSERT_EQ(KT_usAvancerGroupeSuivant(zone, 1, 0, nullptr), KT_OK);
  std::map<std::string, int> seen;
  std::uint8_t* value = nullptr;
  std::uint32_t length = 0;
  while (KT_usAvancerChampSuivant(zone, 1, nullptr, &value, &length) == KT_OK) {
    ++seen[std::string(reinterpret_cast<char*>(value), length)];
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(kThreads * kFields));
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kFields; ++i) {
      char field[16];
      std::snprintf(field, sizeof field, "t%d-%04d", t, i);
      EXPECT_EQ(seen[field], 1) << field;
    }
  }
  std::uint8_t* buffer = nullptr;
  ASSERT_EQ(KT_pucLireBuffer(zone, nullptr, &buffer), KT_OK);
  EXPECT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
  KT_Liberer(buffer);
  EXPECT_EQ(kt::frame::AllocatedTotal(), baseline_);
}

// Writes a file of one table whose records depend on (t, c, i), closes it
// (the size of the table this thread left pending goes into it), opens it
// again with its check and reads everything back.
bool FileRoundTrip(const std::string& dir, int t, std::uint16_t control, int i) {
  const std::string name = "s" + std::to_string(t) + std::to_string(control) + "_" +
                           std::to_string(i) + ".bin";
  kt::test::Header header = kt::test::MakeHeader(name);
  constexpr std::uint32_t kRecords = 5;
  EnteteTable table = kt::test::MakeTable(("T" + std::to_string(t)).c_str(), kRecords);
  std::uint16_t n = 0;
  bool ok = KT_usCreerFichierBinaire(dir.c_str(), name.c_str(), control, header.data(), &n) == KT_OK;
  ok = ok && KT_usEcrireEnteteTable(n, &table) == KT_OK;
  for (std::uint32_t r = 0; ok && r < kRecords; ++r) {
    const std::string text = name + "#" + std::to_string(r);
    ok = KT_usEcrireUnsignedLong(n, 1000000u * t + 1000u * i + r) == KT_OK &&
         KT_usEcrireChaineVariable(n, text.c_str()) == KT_OK &&
         KT_usEcrireDouble(n, t + r / 4.0) == KT_OK;
  }
  const char* key = control == KT_CONTROLE_SIGNATURE ? kKeyFile.c_str() : nullptr;
  ok = KT_usLibererFichierBinaire(n, key) == KT_OK && ok;

  kt::test::Header read_header{};
  ok = ok && KT_usInitialiserFichierBinaire(dir.c_str(), name.c_str(), control, &n,
                                            read_header.data()) == KT_OK;
  EnteteTable read_table{};
  ok = ok && KT_usLireEnteteTable(n, &read_table) == KT_OK &&
       std::string(read_table.cNom) == "T" + std::to_string(t) &&
       read_table.ulNbEnregistrements == kRecords && read_table.ulTailleDonnees != 0;
  for (std::uint32_t r = 0; ok && r < kRecords; ++r) {
    std::uint32_t number = 0;
    char* text = nullptr;
    double value = 0;
    ok = KT_usLireUnsignedLong(n, &number) == KT_OK && number == 1000000u * t + 1000u * i + r &&
         KT_usLireChaineVariable(n, &text) == KT_OK &&
         std::string(text) == name + "#" + std::to_string(r) &&
         KT_usLireDouble(n, &value) == KT_OK && value == t + r / 4.0;
    KT_Liberer(text);
  }
  if (n != 0) ok = KT_usLibererFichierBinaire(n, nullptr) == KT_OK && ok;
  return ok;
}

bool BuiltWithDevelopmentKey() {
  const std::string key = ReadFile(kKeyFile);
  return key.size() == 4 + 704 &&
         std::equal(MODULUS, MODULUS + 128, key.begin() + 4,
                    [](std::uint16_t a, char b) { return a == static_cast<std::uint8_t>(b); });
}

TEST_F(Stress, BinaryFilesOfEveryControlTypeRoundTrip) {
  ScratchDir dir;
  std::vector<std::uint16_t> controls = {0, KT_CONTROLE_CRC};
  if (BuiltWithDevelopmentKey()) controls.push_back(KT_CONTROLE_SIGNATURE);
  std::atomic<int> failures{0};
  RunThreads([&](int t) {
    Mark(t);
    for (int i = 0; i < 4; ++i) {
      for (std::uint16_t control : controls) {
        if (!FileRoundTrip(dir.path().string(), t, control, i)) failures.fetch_add(1);
      }
    }
    Mark(t);
  });
  EXPECT_EQ(failures.load(), 0);
  FichierBinaire* file = nullptr;
  for (std::uint16_t n = 1; n <= 100; ++n) EXPECT_NE(usRechercherFichier(n, &file), KT_OK);
  // Records and their texts go back with the plain free, outside the totals
  // (kept); so only no other block may be left.
  EXPECT_LE(kt::frame::AllocatedTotal(), baseline_ + 100000u);
}

// The sample dictionary in a tables directory, and "volen.ini" naming it.
class StressStartup : public Stress {
 protected:
  void SetUp() override {
    Stress::SetUp();
    ASSERT_EQ(kt::test::WriteTablesFile(tables_.path().string(), kt::test::LoadSampleDictionary()),
              KT_OK);
    kt::test::WriteFile(prefs_.File("volen.ini"), "[commun]\nrepertoiretravail=" +
                                                      work_.path().string() + "\nrepertoiretable=" +
                                                      tables_.path().string() + "\n");
  }

  static std::uint16_t Start() {
    char* kt_version = nullptr;
    char* tables_version = nullptr;
    const std::uint16_t us = KT_usInitLIB(&kt_version, &tables_version);
    KT_Liberer(kt_version);
    KT_Liberer(tables_version);
    return us;
  }

  ScratchDir work_, tables_;
};

// Format control on a zone of one group.
std::uint16_t FormatOf(std::uint16_t group, std::initializer_list<const char*> fields) {
  std::uint16_t zone = 0;
  EXPECT_EQ(KT_usCreerZoneMemoire(256, 1, &zone), KT_OK);
  EXPECT_EQ(KT_usAjouterGroupe(zone, group), KT_OK);
  for (const char* field : fields) {
    EXPECT_EQ(KT_usAjouterChamp(zone, reinterpret_cast<const std::uint8_t*>(field),
                                static_cast<std::uint32_t>(std::strlen(field))),
              KT_OK);
  }
  const std::uint16_t us = KT_usControlerFormatZoneMemoire(zone);
  std::uint8_t* buffer = nullptr;
  EXPECT_EQ(KT_pucLireBuffer(zone, nullptr, &buffer), KT_OK);
  EXPECT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
  KT_Liberer(buffer);
  return us;
}

// What the queries and format control must give on the sample dictionary.
void QueriesAndFormat() {
  std::uint16_t* groups = nullptr;
  std::uint16_t count = 0;
  EXPECT_EQ(KT_usDonnerListeGroupes(&groups, &count), KT_OK);
  EXPECT_EQ(std::vector<std::uint16_t>(groups, groups + count), (std::vector<std::uint16_t>{10, 20, 30}));
  KT_Liberer(groups);
  stChamp* fields = nullptr;
  EXPECT_EQ(KT_usDonnerInformationChamp(20, &fields, &count), KT_OK);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(fields[0].usNbValeurs, 3);
  KT_Liberer(fields);
  char* value = nullptr;
  EXPECT_EQ(KT_usDonnerChampValeur(20, 1, 2, &value), KT_OK);
  EXPECT_STREQ(value, "VENTE");
  KT_Liberer(value);

  EXPECT_EQ(FormatOf(20, {"VENTE", "42"}), KT_OK);
  EXPECT_EQ(FormatOf(99, {"x"}), 0xA001);  // the 1st group is unknown
  EXPECT_EQ(FormatOf(20, {"TROC", "42"}), 0x9001);  // field 1: not an allowed value
}

// Every thread starts, queries, runs format control and stops, in rounds:
// the first start of a round loads the dictionary, the last stop releases
// it, and the counter counts every start and stop. Then the same without
// rounds, under a start held by the test.
TEST_F(StressStartup, StartsStopsQueriesAndFormatControl) {
  std::atomic<int> failures{0};
  std::barrier sync{kThreads};
  RunThreads([&](int t) {
    Mark(t);
    for (int round = 0; round < 3; ++round) {
      EXPECT_EQ(Start(), KT_OK);
      sync.arrive_and_wait();
      if (t == 0) {
        EXPECT_EQ(kt::frame::LoadCount(), kThreads);
      }
      QueriesAndFormat();
      sync.arrive_and_wait();
      // The dictionary never releases its value texts: the test does.
      if (t == 0) kt::test::FreeDictionaryValueTexts();
      sync.arrive_and_wait();
      EXPECT_EQ(KT_usTermLIB(), KT_OK);
      sync.arrive_and_wait();
      if (t == 0) {
        EXPECT_EQ(kt::frame::LoadCount(), 0);
        EXPECT_EQ(g_stTabGrp, nullptr);
      }
      sync.arrive_and_wait();
    }
    Mark(t);
  });
  EXPECT_EQ(failures.load(), 0);

  ASSERT_EQ(Start(), KT_OK);
  RunThreads([&](int t) {
    Mark(t);
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(Start(), KT_OK);
      QueriesAndFormat();
      EXPECT_EQ(KT_usTermLIB(), KT_OK);
    }
  });
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(kt::frame::LoadCount(), 1);
  kt::test::FreeDictionaryValueTexts();
  EXPECT_EQ(KT_usTermLIB(), KT_OK);
  EXPECT_EQ(kt::frame::LoadCount(), 0);
}

// The totals count every block of every thread exactly: at the moment all
// threads hold their blocks, the total is the baseline plus all of them and
// the peak is at least that; once all are freed the total is back.
TEST_F(Stress, AllocationTotalsStayExact) {
  constexpr int kBlocks = 50;
  std::atomic<std::uint32_t> held{0};
  std::uint32_t total_when_held = 0;
  std::uint32_t peak_when_held = 0;
  std::barrier sync{kThreads};
  RunThreads([&](int t) {
    void* blocks[kBlocks];
    std::uint32_t mine = 0;
    for (int i = 0; i < kBlocks; ++i) {
      blocks[i] = KT_Allouer(static_cast<std::uint32_t>(1000 + 16 * t + i));
      mine += static_cast<std::uint32_t>(malloc_usable_size(blocks[i]));
    }
    held.fetch_add(mine);
    sync.arrive_and_wait();
    if (t == 0) {
      total_when_held = kt::frame::AllocatedTotal();
      peak_when_held = kt::frame::AllocatedPeak();
    }
    sync.arrive_and_wait();
    for (void* block : blocks) KT_Liberer(block);
  });
  EXPECT_EQ(total_when_held, baseline_ + held.load());
  EXPECT_GE(peak_when_held, total_when_held);
  EXPECT_EQ(kt::frame::AllocatedPeak(), peak_when_held);
  EXPECT_EQ(kt::frame::AllocatedTotal(), baseline_);
}

// Each thread writes its own ini file in the one preferences directory; the
// writers' shared temporary file must never mix them. Each file must end as
// the same writes made by one thread alone leave it.
void WriteIni(int t, const std::string& file, std::atomic<int>& failures) {
  for (int i = 0; i < 25; ++i) {
    const std::string key = "k" + std::to_string(i);
    const std::string value = "v" + std::to_string(t) + "-" + std::to_string(i);
    if (KT_bEcrireChaineIni("s", key.c_str(), value.c_str(), file.c_str()) != 1) {
      failures.fetch_add(1);
    }
  }
}

TEST_F(Stress, IniWritersOfEachThreadKeepTheirOwnFiles) {
  std::atomic<int> failures{0};
  RunThreads([&](int t) {
    Mark(t);
    WriteIni(t, "w" + std::to_string(t) + ".ini", failures);
  });
  for (int t = 0; t < kThreads; ++t) WriteIni(t, "alone" + std::to_string(t) + ".ini", failures);
  EXPECT_EQ(failures.load(), 0);
  for (int t = 0; t < kThreads; ++t) {
    const std::string alone = Contents("alone" + std::to_string(t) + ".ini");
    EXPECT_NE(alone.find("k24=v" + std::to_string(t) + "-24"), std::string::npos);
    EXPECT_EQ(Contents("w" + std::to_string(t) + ".ini"), alone) << "thread " << t;
  }
  EXPECT_EQ(kt::frame::AllocatedTotal(), baseline_);
}

}  // namespace
