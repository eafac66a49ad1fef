// Fault loops over whole public operations (support/fault_loop.h), and the
// check that they fail every allocation and I/O site of the library.
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "binfiles/binfile_test_util.h"
#include "frame/frame_internal.h"
#include "frame/ini_fixture.h"
#include "kt_binfiles.h"
#include "kt_checks.h"
#include "kt_dictionary.h"
#include "kt_zones.h"
#include "support/dictionary_builder.h"
#include "support/fault_loop.h"
#include "support/kt_test.h"

namespace {

namespace fs = std::filesystem;
using kt::test::FaultedOperation;
using kt::test::ReadFile;
using kt::test::RunFaultLoops;
using kt::test::ScratchDir;
using kt::test::WriteFile;
using kt::testing::ArmFault;
using kt::testing::Fault;

const std::string kKeyFile = std::string(KT_SOURCE_DIR) + "/keys/development.key";

// The loops create, sync and remove thousands of files: a memory-backed
// directory keeps them to seconds.
[[maybe_unused]] const bool g_in_memory = [] {
  if (fs::is_directory("/dev/shm")) setenv("KT_TEST_TMPDIR", "/dev/shm", 1);
  return true;
}();

// The first failing status of a chain of calls.
std::uint16_t First(std::initializer_list<std::uint16_t> statuses) {
  for (std::uint16_t us : statuses) {
    if (us != KT_OK) return us;
  }
  return KT_OK;
}

// A configured library: preferences, working and tables directories, the
// sample dictionary as "tablebin.vkt".
class FaultLoops : public kt::test::IniTest {
 protected:
  void SetUp() override {
    IniTest::SetUp();
    WriteFile(Prefs("volen.ini"), "[commun]\nrepertoiretravail=" + work_.path().string() +
                                      "\nrepertoiretable=" + tables_.path().string() + "\n");
    source_ = kt::test::LoadSampleDictionary();
    source_.version = "0123";
    ASSERT_EQ(kt::test::WriteTablesFile(tables_.path().string(), source_), KT_OK);
  }
  void TearDown() override {
    kt::test::FreeDictionaryValueTexts();
    IniTest::TearDown();
  }

  // Loads the dictionary as start-up does, outside the loops.
  void LoadDictionary() {
    ASSERT_EQ(kt::test::LoadDictionary(tables_.path().string(), source_), KT_OK);
  }

  ScratchDir work_, tables_, files_;
  kt::test::DictionarySource source_;
};

// --- Start-up ----------------------------------------------------------------

FaultedOperation StartAndStop(const std::string& work) {
  FaultedOperation op;
  op.prepare = [work] {
    fs::remove(work + "/92.adm");
    fs::remove(work + "/93.adm");
  };
  op.run = [] {
    char* library = nullptr;
    char* tables = nullptr;
    const std::uint16_t us = KT_usInitLIB(&library, &tables);
    if (us == KT_OK) {
      // A start that succeeds hands out both versions.
      EXPECT_STREQ(library, "0100");
      EXPECT_STREQ(tables, "0123");
    }
    KT_Liberer(library);
    KT_Liberer(tables);
    if (kt::frame::LoadCount() != 0) {
      EXPECT_EQ(KT_usTermLIB(), KT_OK);
    }
    EXPECT_EQ(kt::frame::LoadCount(), 0);
    return us;
  };
  op.failures = {KT_ECHEC, KT_ERR_BUFFER_TRAVAIL, KT_ERR_REP_TABLES, KT_ERR_REP_TRAVAIL, KT_ERR_FICHIER,
                 KT_ERR_CONTROLE,       KT_ERR_FIN_FICHIER, KT_ERR_FICHIER_VERSION, KT_ERR_MEMOIRE,
                 KT_ERR_POINTEUR_NUL,   KT_ERR_NOM_FICHIER};
  op.targets = {work + "/92.adm", work + "/93.adm"};
  return op;
}

TEST_F(FaultLoops, StartAndStop) { RunFaultLoops(StartAndStop(work_.path().string())); }

// --- Version files -------------------------------------------------------------

FaultedOperation VersionFiles(const std::string& work) {
  FaultedOperation op;
  op.prepare = [work] { WriteFile(work + "/45.adm", "0001"); };
  op.run = [] {
    char* directory = nullptr;
    char* content = nullptr;
    std::uint32_t length = 0;
    std::uint16_t us = First({KT_usDonnerRepertoireTravail(&directory),
                              KT_usEcrireVersionComposant(45, "0002", 4)});
    if (us == KT_OK) us = KT_usLireVersionComposant(45, &content, &length);
    // The reader ignores a failed length query (so says its contract) and
    // then reads nothing.
    if (us == KT_OK && length != 0) {
      EXPECT_EQ(std::string(content, length), "0002");
    }
    KT_Liberer(directory);
    KT_Liberer(content);
    return us;
  };
  op.failures = {KT_ERR_BUFFER_TRAVAIL, KT_ERR_REP_TRAVAIL, KT_ERR_FICHIER_VERSION, KT_ERR_FICHIER,
                 KT_ERR_MEMOIRE};
  op.targets = {work + "/45.adm"};
  return op;
}

TEST_F(FaultLoops, VersionFiles) { RunFaultLoops(VersionFiles(work_.path().string())); }

// --- Binary files --------------------------------------------------------------

// Files are signed with the development key: a build with another public
// key cannot verify them.
bool BuiltInKeyIsDevelopmentKey() {
  const std::string key = ReadFile(kKeyFile);
  return key.size() == 4 + 704 &&
         std::equal(MODULUS, MODULUS + 128, key.begin() + 4,
                    [](std::uint16_t a, char b) { return a == static_cast<std::uint8_t>(b); });
}

// An empty table, then one with a field of every type, written, closed
// (signed with `key` for type 2), opened again with its control and read back.
std::uint16_t WriteAndReadBack(const std::string& dir, std::uint16_t control,
                               const std::string& key) {
  const kt::test::Header header = kt::test::MakeHeader("data.bin");
  const EnteteTable empty = kt::test::MakeTable("TVIDE", 0);
  const EnteteTable table = kt::test::MakeTable("TCHAMPS", 1);
  const std::uint16_t units[] = {0x1234, 0x00E9};
  const std::string long_text(200, 'v');  // a length prefix of two bytes
  std::uint16_t n = 0;
  std::uint16_t us =
      KT_usCreerFichierBinaire(dir.c_str(), "data.bin", control, header.data(), &n);
  if (n == 0) return us;
  us = First({us, KT_usEcrireEnteteTable(n, &empty), KT_usEcrireTaille(n),
              KT_usEcrireEnteteTable(n, &table), KT_usEcrireUnsignedChar(n, 0xAB),
              KT_usEcrireSignedChar(n, -2), KT_usEcrireUnsignedShort(n, 0x1234),
              KT_usEcrireSignedShort(n, -2), KT_usEcrireUnsignedLong(n, 0x01020304),
              KT_usEcrireSignedLong(n, -2), KT_usEcrireDate(n, 2024, 12, 31),
              KT_usEcrireChampFixe(n, reinterpret_cast<const std::uint8_t*>("xyz"), 3),
              KT_usEcrireChampUnicodeFixe(n, units, 2), KT_usEcrireChaineVariable(n, "abc"),
              KT_usEcrireChaineVariable(n, long_text.c_str()), KT_usEcrireDouble(n, -1234.5)});
  us = First({us, KT_usLibererFichierBinaire(n, control == 2 ? key.c_str() : nullptr)});
  if (us != KT_OK) return us;

  kt::test::Header read_header{};
  us = KT_usInitialiserFichierBinaire(dir.c_str(), "data.bin", control, &n, read_header.data());
  if (n == 0) return us;
  EnteteTable found{};
  std::uint8_t uc = 0, fixed[3] = {};
  std::int8_t c = 0;
  std::uint16_t us16 = 0, year = 0, read_units[2] = {};
  std::int16_t s = 0;
  std::uint32_t ul = 0, length = 0;
  std::int32_t l = 0, position = 0;
  std::uint8_t month = 0, day = 0;
  double d = 0;
  char* text = nullptr;
  char* long_read = nullptr;
  // Searching needs the 128 bytes that every type but 1 keeps out of the
  // data: type 0 has none, and reads the two headers in turn.
  us = First({us,
              control == 0 ? First({KT_usLireEnteteTable(n, &found),
                                    KT_usLireEnteteTable(n, &found)})
                           : KT_usRechercherTable(n, "TCHAMPS", &found),
              KT_usLireUnsignedChar(n, &uc), KT_usLireSignedChar(n, &c),
              KT_usLireUnsignedShort(n, &us16), KT_usLireSignedShort(n, &s),
              KT_usLireUnsignedLong(n, &ul), KT_usLireSignedLong(n, &l),
              KT_usLireDate(n, &year, &month, &day), KT_usLireChampFixe(n, fixed, 3),
              KT_usLireChampUnicodeFixe(n, read_units, 2), KT_usLireChaineVariable(n, &text),
              KT_usLireChaineVariable(n, &long_read), KT_usLireDouble(n, &d),
              KT_usLongueurFichierBinaire(n, &length), KT_usLirePositionFichier(n, &position)});
  if (us == KT_OK) {
    EXPECT_STREQ(found.cNom, "TCHAMPS");
    EXPECT_EQ(uc, 0xAB);
    EXPECT_EQ(l, -2);
    EXPECT_EQ(year, 2024);
    EXPECT_EQ(read_units[1], 0x00E9);
    EXPECT_STREQ(text, "abc");
    EXPECT_EQ(long_read, long_text);
    EXPECT_EQ(d, -1234.5);
  }
  KT_Liberer(text);
  KT_Liberer(long_read);
  std::uint8_t* block = nullptr;
  if (us == KT_OK) {
    // The raw read allocates and reads the header bytes back.
    us = KT_usLireFichierBinaire(n, 5, 8, &block);
    // A failed read followed by a good seek back still gives 0 and a
    // zero-filled block: the raw reader's known property.
    if (us == KT_OK && block != nullptr) {
      const std::string bytes(reinterpret_cast<const char*>(block), 8);
      EXPECT_TRUE(bytes == "data.bin" || bytes == std::string(8, '\0')) << bytes;
    }
    KT_Liberer(block);
  }
  return First({us, KT_usLibererFichierBinaire(n, nullptr)});
}

// The private key is read as "%d" would read its size: a copy of the
// development key that starts with a blank and a sign reads the same.
FaultedOperation BinaryFile(const std::string& dir, std::uint16_t control) {
  const std::string key = dir + "/signing.key";
  WriteFile(key, " +" + ReadFile(kKeyFile));
  FaultedOperation op;
  op.run = [dir, control, key] { return WriteAndReadBack(dir, control, key); };
  op.failures = {KT_ECHEC,        KT_ERR_FICHIER,     KT_ERR_MEMOIRE,        KT_ERR_FIN_FICHIER,
                 KT_ERR_CONTROLE, KT_ERR_NOM_FICHIER, KT_ERR_RETOUR_POSITION};
  return op;
}

class BinaryFileLoops : public FaultLoops, public ::testing::WithParamInterface<int> {};

TEST_P(BinaryFileLoops, WriteCloseAndReopen) {
  const auto control = static_cast<std::uint16_t>(GetParam());
  if (control == 2 && !BuiltInKeyIsDevelopmentKey()) {
    GTEST_SKIP() << "the built-in public key is not the development key";
  }
  RunFaultLoops(BinaryFile(files_.path(), control));
}

INSTANTIATE_TEST_SUITE_P(EachControl, BinaryFileLoops, ::testing::Values(0, 1, 2));

// --- The length of a device --------------------------------------------------

// A stream on a device has no file size to ask for: its end is sought, and
// the stream put back.
FaultedOperation DeviceLength() {
  FaultedOperation op;
  op.run = [] {
    std::FILE* stream = std::fopen("/dev/null", "rb");
    if (stream == nullptr) {
      ADD_FAILURE() << "no /dev/null";
      return std::uint16_t{KT_OK};
    }
    std::uint32_t length = 1;
    const std::uint16_t us = KT_usLongueurFichier(stream, &length);
    if (us == KT_OK) {
      EXPECT_EQ(length, 0u);
    }
    std::fclose(stream);
    return us;
  };
  op.failures = {KT_ERR_FICHIER, KT_ERR_RETOUR_POSITION};
  return op;
}

TEST_F(FaultLoops, DeviceLength) { RunFaultLoops(DeviceLength()); }

// --- Format control and the dictionary queries -----------------------------------

// A zone of the sample dictionary's groups, built, checked and released.
std::uint16_t BuildAndCheckZone() {
  std::uint16_t zone = 0xFFFF;
  std::uint16_t us = KT_usCreerZoneMemoire(8, 1, &zone);
  if (zone == 0xFFFF) return us;  // without a buffer the record still holds the slot
  const std::vector<std::pair<std::uint16_t, std::vector<std::string>>> groups = {
      {10, {"123", "ABC 12", "20240131"}}, {20, {"VENTE", "42"}}, {30, {"LIBRE"}}};
  for (const auto& [id, fields] : groups) {
    us = First({us, KT_usRedimensionner(zone, 64 * id), KT_usAjouterGroupe(zone, id)});
    for (const std::string& field : fields) {
      us = First({us, KT_usAjouterChamp(zone, reinterpret_cast<const std::uint8_t*>(field.data()),
                                        static_cast<std::uint32_t>(field.size()))});
    }
  }
  us = First({us, KT_usControlerSyntaxeZoneMemoire(zone), KT_usControlerFormatZoneMemoire(zone)});
  std::uint32_t size = 0;
  std::uint8_t* buffer = nullptr;
  EXPECT_EQ(KT_pucLireBuffer(zone, &size, &buffer), KT_OK);
  EXPECT_EQ(KT_usLibererZoneMemoire(zone), KT_OK);
  KT_Liberer(buffer);
  return us;
}

// An operation on memory only: it can fail for want of memory (a Boolean
// result 0 counts as KT_ECHEC) and touches no file.
FaultedOperation InMemory(std::uint16_t (*run)()) {
  FaultedOperation op;
  op.run = run;
  op.failures = {KT_ERR_MEMOIRE, KT_ECHEC};
  return op;
}

TEST_F(FaultLoops, FormatControl) {
  LoadDictionary();
  RunFaultLoops(InMemory(BuildAndCheckZone));
}

std::uint16_t QueryDictionary() {
  std::uint16_t* groups = nullptr;
  stChamp* fields = nullptr;
  char* value = nullptr;
  std::uint16_t group_count = 0, field_count = 0;
  const std::uint16_t us = First({KT_usDonnerListeGroupes(&groups, &group_count),
                                  KT_usDonnerInformationChamp(20, &fields, &field_count),
                                  KT_usDonnerChampValeur(20, 1, 2, &value)});
  // These queries do not report an exhausted allocator: a block that could
  // not be allocated is handed out as null.
  if (us == KT_OK) {
    EXPECT_EQ(group_count, 3);
    EXPECT_EQ(field_count, 2);
    EXPECT_TRUE(groups == nullptr || groups[1] == 20);
    EXPECT_TRUE(fields == nullptr || fields[0].cType == 'L');
    EXPECT_TRUE(value == nullptr || std::string(value) == "VENTE");
  }
  KT_Liberer(groups);
  KT_Liberer(fields);
  KT_Liberer(value);
  return us;
}

TEST_F(FaultLoops, DictionaryQueries) {
  LoadDictionary();
  RunFaultLoops(InMemory(QueryDictionary));
}

// --- String conversions ---------------------------------------------------------

std::uint16_t ConvertStrings() {
  char* converted = nullptr;
  char* reduced = nullptr;
  std::uint32_t length = 0, reduced_length = 0;
  const bool ok = KT_bConvertirEtenduEnAlpha("Caf\xE9 cr\xE8me", &converted, &length, 1) == 1 &&
                  KT_bReduireChaineCtrl("ABC  ", &reduced, 5, 'A', &reduced_length) == 1;
  if (ok) {
    EXPECT_STREQ(converted, "CAF CRME");
    EXPECT_EQ(reduced_length, 3u);
  }
  KT_Liberer(converted);
  KT_Liberer(reduced);
  return ok ? KT_OK : KT_ECHEC;  // 0: the block could not be allocated
}

TEST_F(FaultLoops, StringConversions) { RunFaultLoops(InMemory(ConvertStrings)); }

// --- The ini writer ---------------------------------------------------------------

// Sets one key of `file` in the preferences directory; with `cross_device`
// the first rename reports EXDEV, so that the copy beside the target is used.
FaultedOperation WriteIni(const std::string& prefs, std::optional<std::string> before,
                          bool cross_device) {
  FaultedOperation op;
  const std::string file = prefs + "/t.ini";
  op.prepare = [file, before] {
    if (before) {
      WriteFile(file, *before);
    } else {
      fs::remove(file);
    }
  };
  op.run = [cross_device] {
    if (cross_device) ArmFault(Fault::kRename, 0);
    const std::uint8_t written = KT_bEcrireChaineIni("commun", "cle", "nouvelle", "t.ini");
    kt::testing::DisarmFault(Fault::kRename);
    return written == 1 ? KT_OK : KT_ECHEC;
  };
  op.failures = {KT_ECHEC};
  op.targets = {file};
  op.leftovers = {prefs + "/WriteIniTmp.txt", file + "~WriteIniTmp"};
  return op;
}

// A line longer than the copy's line buffer makes it grow.
const std::string kIni =
    "; comment\n[autre]\na=" + std::string(300, 'x') + "\n\n[commun]\ncle=ancienne\nx=2\n";

TEST_F(FaultLoops, IniWriterRenames) { RunFaultLoops(WriteIni(prefs_.path(), kIni, false)); }
TEST_F(FaultLoops, IniWriterCopiesAcrossDevices) {
  RunFaultLoops(WriteIni(prefs_.path(), kIni, true));
}
TEST_F(FaultLoops, IniWriterCreates) { RunFaultLoops(WriteIni(prefs_.path(), std::nullopt, false)); }

// --- Coverage -----------------------------------------------------------------

// "folder/file.cpp:line" -> number of calls on that line.
using SiteCounts = std::map<std::string, int>;

// The library's calls to the allocator and to the stream seam, from its sources.
SiteCounts SitesInSources() {
  static const std::regex kCall(
      R"(\bKT_Allouer\(|\bkt::frame::CopyText\(|\bkt::io::(Open|Close|Read|Write|Seek|Tell|)"
      R"(GetChar|PutChar|Printf|Sync|OpenForReading|DescriptorSize|ReadDescriptor|)"
      R"(StreamFileSize|CloseDescriptor|Rename|Unlink)\()");
  SiteCounts sites;
  for (const char* folder : {"frame", "traces", "dictionary", "zones", "binfiles", "checks",
                             "crypto"}) {
    for (const auto& entry : fs::directory_iterator(fs::path(KT_SOURCE_DIR) / folder)) {
      if (entry.path().extension() != ".cpp") continue;
      std::ifstream in(entry.path());
      std::string line;
      for (int number = 1; std::getline(in, line); ++number) {
        const std::size_t start = line.find_first_not_of(' ');
        if (start != std::string::npos && line.compare(start, 2, "//") == 0) continue;
        const auto calls = std::distance(std::sregex_iterator(line.begin(), line.end(), kCall),
                                         std::sregex_iterator());
        if (calls != 0) {
          sites[std::string(folder) + "/" + entry.path().filename().string() + ":" +
                std::to_string(number)] += static_cast<int>(calls);
        }
      }
    }
  }
  return sites;
}

// The sites the seam failed, in the same form (distinct columns per line).
SiteCounts FailedSites() {
  std::set<std::pair<std::string, int>> seen;
  SiteCounts sites;
  for (int i = 0; i < kt::testing::FailedSiteCount(); ++i) {
    const kt::testing::FailedSite site = kt::testing::FailedSiteAt(i);
    const fs::path file(site.file);
    const std::string key = file.parent_path().filename().string() + "/" +
                            file.filename().string() + ":" + std::to_string(site.line);
    if (seen.insert({key, site.column}).second) ++sites[key];
  }
  return sites;
}

TEST_F(FaultLoops, EveryAllocationAndIoSiteIsFailed) {
  if (!BuiltInKeyIsDevelopmentKey()) GTEST_SKIP() << "signed files need the development key";
  kt::testing::ForgetFailedSites();
  const std::string work = work_.path().string(), prefs = prefs_.path().string();
  std::vector<FaultedOperation> operations = {StartAndStop(work), VersionFiles(work),
                                              WriteIni(prefs, kIni, false),
                                              WriteIni(prefs, kIni, true),
                                              WriteIni(prefs, std::nullopt, false),
                                              DeviceLength()};
  for (std::uint16_t control : {0, 1, 2}) operations.push_back(BinaryFile(files_.path(), control));
  int runs = 0;
  for (const FaultedOperation& op : operations) {
    runs += RunFaultLoops(op);
    // Each loop starts from a clean library, whatever the last one left.
    kt::test::FreeDictionaryValueTexts();
    kt::testing::ResetAll();
  }
  LoadDictionary();
  for (auto run : {BuildAndCheckZone, QueryDictionary, ConvertStrings}) {
    runs += RunFaultLoops(InMemory(run));
  }

  const SiteCounts expected = SitesInSources(), failed = FailedSites();
  int expected_total = 0, failed_total = 0;
  for (const auto& [site, count] : expected) {
    expected_total += count;
    const auto found = failed.find(site);
    EXPECT_EQ(found == failed.end() ? 0 : found->second, count) << "never failed: " << site;
  }
  for (const auto& [site, count] : failed) {
    failed_total += count;
    EXPECT_TRUE(expected.count(site) != 0) << "failed but not found in the sources: " << site;
  }
  EXPECT_EQ(failed_total, expected_total);
  RecordProperty("runs", runs);
  RecordProperty("sites", expected_total);
}

// --- The seam itself ----------------------------------------------------------

using Seam = kt::test::KtTest;

TEST_F(Seam, ResetForgetsTheStreamOfAnInjectedFailure) {
  ScratchDir dir;
  WriteFile(dir.File("f"), "abc");
  std::FILE* stream = kt::io::Open(dir.File("f").c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  char buffer[3];
  ArmFault(Fault::kRead, 0);
  EXPECT_EQ(kt::io::Read(buffer, 1, 3, stream), 0u);
  EXPECT_TRUE(kt::io::Error(stream));
  kt::testing::ResetAll();
  EXPECT_FALSE(kt::io::Error(stream));
  EXPECT_EQ(kt::io::Close(stream), 0);
}

TEST_F(Seam, ResetClosesFileSlotsThroughTheSeam) {
  ScratchDir dir;
  const int handles = kt::testing::OpenHandles();
  const kt::test::Header header = kt::test::MakeHeader("f.bin");
  std::uint16_t n = 0;
  ASSERT_EQ(KT_usCreerFichierBinaire(dir.path().c_str(), "f.bin", 0, header.data(), &n), KT_OK);
  EXPECT_EQ(kt::testing::OpenHandles(), handles + 1);
  kt::testing::ResetAll();
  EXPECT_EQ(kt::testing::OpenHandles(), handles);
}

TEST_F(Seam, UnlinkFailsWhenArmed) {
  ScratchDir dir;
  WriteFile(dir.File("f"), "abc");
  ArmFault(Fault::kUnlink, 0);
  EXPECT_EQ(kt::io::Unlink(dir.File("f").c_str()), -1);
  EXPECT_TRUE(fs::exists(dir.File("f")));
  EXPECT_EQ(kt::io::Unlink(dir.File("f").c_str()), 0);
  EXPECT_FALSE(fs::exists(dir.File("f")));
}

}  // namespace
