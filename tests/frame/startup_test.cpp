#include <cstdlib>
#include <filesystem>
#include <string>

#include "frame/frame_internal.h"
#include "frame/ini_fixture.h"
#include "kt_binfiles.h"
#include "kt_dictionary.h"
#include "kt_zones.h"
#include "support/dictionary_builder.h"
#include "support/kt_test.h"
#include "traces/traces_internal.h"

namespace {

using kt::test::DictionarySource;
using kt::test::ReadFile;
using kt::test::ScratchDir;
using kt::test::TablesFileOptions;
using kt::test::WriteFile;

// A preferences directory with "volen.ini", a working directory and a tables
// directory holding the sample dictionary.
class Startup : public kt::test::IniTest {
 protected:
  void SetUp() override {
    IniTest::SetUp();
    WriteVolen(true, true);
    source_ = kt::test::LoadSampleDictionary();
  }
  void TearDown() override {
    kt::test::FreeDictionaryValueTexts();
    IniTest::TearDown();
  }

  void WriteVolen(bool with_work, bool with_tables) {
    std::string text = "[commun]\n";
    if (with_work) text += "repertoiretravail=" + work_.path().string() + "\n";
    if (with_tables) text += "repertoiretable=" + tables_.path().string() + "\n";
    WriteFile(prefs_.File("volen.ini"), text);
  }

  void WriteTables(const TablesFileOptions& options = {}) {
    ASSERT_EQ(kt::test::WriteTablesFile(tables_.path().string(), source_, options), KT_OK);
  }

  std::uint16_t Start() {
    kt_version_.clear();
    tables_version_.clear();
    char* kt_version = nullptr;
    char* tables_version = nullptr;
    const std::uint16_t us = KT_usInitLIB(&kt_version, &tables_version);
    if (kt_version != nullptr) kt_version_ = kt_version;
    if (tables_version != nullptr) tables_version_ = tables_version;
    KT_Liberer(kt_version);
    KT_Liberer(tables_version);
    return us;
  }

  ScratchDir work_, tables_;
  DictionarySource source_;
  std::string kt_version_, tables_version_;
};

TEST_F(Startup, FirstStartLoadsTheDictionaryAndWritesBothVersionFiles) {
  source_.version = "0123";
  WriteTables();
  ASSERT_EQ(Start(), KT_OK);
  EXPECT_EQ(kt_version_, "0100");
  EXPECT_EQ(tables_version_, "0123");
  EXPECT_EQ(ReadFile(work_.File("92.adm")), "0100");
  EXPECT_EQ(ReadFile(work_.File("93.adm")), "0123");
  EXPECT_EQ(kt::frame::LoadCount(), 1);
  EXPECT_EQ(g_ulNbTabGrp, 3u);
  EXPECT_EQ(g_ulNbTabVal, 3u);
  // The tables file's slot is given back.
  FichierBinaire* slot = nullptr;
  EXPECT_EQ(usRechercherFichier(1, &slot), KT_ERR_NUMERO_INCONNU);
}

TEST_F(Startup, LaterStartsOnlyCountAndTheLastStopReleases) {
  WriteTables();
  ASSERT_EQ(Start(), KT_OK);
  char* untouched = reinterpret_cast<char*>(0x1);
  EXPECT_EQ(KT_usInitLIB(&untouched, &untouched), KT_OK);
  EXPECT_EQ(untouched, reinterpret_cast<char*>(0x1));
  EXPECT_EQ(kt::frame::LoadCount(), 2);
  EXPECT_EQ(KT_usTermLIB(), KT_OK);
  EXPECT_NE(g_stTabGrp, nullptr);
  kt::test::FreeDictionaryValueTexts();
  EXPECT_EQ(KT_usTermLIB(), KT_OK);
  EXPECT_EQ(g_stTabGrp, nullptr);
  EXPECT_EQ(g_cTabVal, nullptr);
  EXPECT_EQ(kt::frame::LoadCount(), 0);
}

TEST_F(Startup, StopWithoutStartOnlyWrapsTheCounter) {
  WriteTables();
  EXPECT_EQ(KT_usTermLIB(), KT_OK);
  EXPECT_EQ(kt::frame::LoadCount(), 65535);
}

TEST_F(Startup, MissingTablesDirectoryFails) {
  WriteVolen(true, false);
  EXPECT_EQ(Start(), KT_ERR_REP_TABLES);
  EXPECT_EQ(kt::frame::LoadCount(), 0);
  EXPECT_EQ(g_stTabGrp, nullptr);
}

TEST_F(Startup, MissingWorkingDirectoryFailsWithTheDictionaryKept) {
  WriteTables();
  WriteVolen(false, true);
  EXPECT_EQ(Start(), KT_ERR_REP_TRAVAIL);
  EXPECT_EQ(kt::frame::LoadCount(), 0);
  EXPECT_EQ(g_ulNbTabGrp, 3u);
  FichierBinaire* slot = nullptr;  // the tables file went back with its slot
  EXPECT_EQ(usRechercherFichier(1, &slot), KT_ERR_NUMERO_INCONNU);
}

TEST_F(Startup, VersionFieldsAreComparedWithTheLibraryVersion) {
  struct Case {
    const char* version;
    const char* required;
    std::uint16_t expected;
  };
  for (const Case& c : {Case{"0099", "0100", KT_ERR_VERSION}, Case{"0100", "0100", KT_OK},
                        Case{"0100", "0101", KT_ERR_VERSION}, Case{"0200", "0050", KT_OK}}) {
    SCOPED_TRACE(std::string(c.version) + "/" + c.required);
    kt::testing::ResetAll();
    source_.version = c.version;
    source_.required_version = c.required;
    WriteTables();
    EXPECT_EQ(Start(), c.expected);
    FichierBinaire* slot = nullptr;
    if (c.expected == KT_ERR_VERSION) {
      // The tables file stays open in its slot and nothing is loaded.
      EXPECT_EQ(usRechercherFichier(1, &slot), KT_OK);
      EXPECT_EQ(g_stTabGrp, nullptr);
      EXPECT_EQ(kt::frame::LoadCount(), 0);
    } else {
      kt::test::FreeDictionaryValueTexts();
    }
  }
}

TEST_F(Startup, TablesMayComeInAnyOrderAndAFourthIsNeverRead) {
  TablesFileOptions options;
  options.order = {"TVALEUR", "TGROUPE", "TCHAMP", "TEXTRA"};
  WriteTables(options);
  ASSERT_EQ(Start(), KT_OK);
  EXPECT_EQ(g_ulNbTabGrp, 3u);
  EXPECT_EQ(g_ulNbTabChp, 6u);
  EXPECT_STREQ(g_cTabVal[0], "ACHAT");
}

TEST_F(Startup, AForeignTableReleasesWhatWasLoaded) {
  TablesFileOptions options;
  options.order = {"TGROUPE", "TAUTRE", "TCHAMP"};
  WriteTables(options);
  EXPECT_EQ(Start(), KT_ERR_FIN_FICHIER);
  EXPECT_EQ(g_stTabGrp, nullptr);
  EXPECT_EQ(kt::frame::LoadCount(), 0);
  FichierBinaire* slot = nullptr;
  EXPECT_EQ(usRechercherFichier(1, &slot), KT_ERR_NUMERO_INCONNU);
  // Failed starts never use up the slots.
  for (int i = 0; i < 110; ++i) ASSERT_EQ(Start(), KT_ERR_FIN_FICHIER) << i;
}

TEST_F(Startup, CorruptedTablesFileFailsItsCrc) {
  WriteTables();
  std::string bytes = ReadFile(tables_.File("tablebin.vkt"));
  bytes[bytes.size() - 1] ^= 0x01;
  WriteFile(tables_.File("tablebin.vkt"), bytes);
  EXPECT_EQ(Start(), KT_ERR_CONTROLE);
  EXPECT_EQ(kt::frame::LoadCount(), 0);
}

TEST_F(Startup, VersionFileFailureIsReportedButTheLibraryIsStarted) {
  WriteTables();
  std::filesystem::remove_all(work_.path());
  EXPECT_EQ(Start(), KT_ERR_FICHIER_VERSION);
  EXPECT_EQ(kt::frame::LoadCount(), 1);
  EXPECT_EQ(kt_version_, "0100");
}

// A start takes its directories from this start's reading of "volen.ini",
// never from an earlier start, and replaces the copies an earlier start kept.
TEST_F(Startup, DirectoriesComeFromThisStartOnly) {
  WriteTables();
  const std::string trace_path = prefs_.File("start.trace");
  WriteVolen(true, false);
  EXPECT_EQ(Start(), KT_ERR_REP_TABLES);
  const std::uint32_t kept_after_one = kt::frame::AllocatedTotal();
  EXPECT_EQ(Start(), KT_ERR_REP_TABLES);
  EXPECT_EQ(kt::frame::AllocatedTotal(), kept_after_one);
  EXPECT_EQ(kt::frame::LoadCount(), 0);
  EXPECT_EQ(g_stTabGrp, nullptr);

  WriteVolen(false, true);
  ASSERT_EQ(KT_usActiverTrace(trace_path.c_str(), "w", 1, 5, 2), KT_OK);
  EXPECT_EQ(Start(), KT_ERR_REP_TRAVAIL);
  ASSERT_EQ(KT_usActiverTrace(trace_path.c_str(), "w", 1, 5, 0), KT_OK);
  EXPECT_EQ(g_ulNbTabGrp, 3u);  // the dictionary was loaded and stays
  EXPECT_TRUE(kt_version_.empty());
  EXPECT_TRUE(tables_version_.empty());
  EXPECT_EQ(kt::frame::LoadCount(), 0);
  EXPECT_FALSE(std::filesystem::exists(work_.File("92.adm")));
  EXPECT_FALSE(std::filesystem::exists(work_.File("93.adm")));
  const std::string trace = ReadFile(trace_path);
  for (const char* line : {"ecriture des fichiers composants impossible\n",
                           "erreur repertoire de travail absent / usResultat=0xf6f1\n"}) {
    EXPECT_NE(trace.find(line), std::string::npos) << "missing: " << line << "\n" << trace;
  }

  // And the tables directory: dropped from "volen.ini", it is missing again.
  kt::test::FreeDictionaryValueTexts();
  WriteVolen(true, false);
  EXPECT_EQ(Start(), KT_ERR_REP_TABLES);
  EXPECT_EQ(kt::frame::LoadCount(), 0);
  EXPECT_TRUE(kt_version_.empty());
}

// Every allocation of a first start fails in turn. A start that reports
// success, or that counts itself, hands out both version blocks; any other
// hands out nothing and leaves the library stopped, ready to start again.
TEST_F(Startup, AllocationFailuresNeverHandOutNullVersions) {
  using kt::testing::ArmFault;
  using kt::testing::Fault;
  WriteTables();
  ArmFault(Fault::kAlloc, 1 << 20);
  ASSERT_EQ(Start(), KT_OK);
  const int allocations = kt::testing::FaultCallsSeen(Fault::kAlloc);
  ASSERT_GT(allocations, 2);
  for (int delay = 0; delay < allocations; ++delay) {
    SCOPED_TRACE(delay);
    kt::testing::ResetAll();
    ArmFault(Fault::kAlloc, delay);
    const std::uint16_t us = Start();
    if (delay == 0) {
      EXPECT_EQ(us, KT_ERR_BUFFER_TRAVAIL);
    }
    if (delay >= allocations - 2) {  // the version blocks themselves
      EXPECT_EQ(us, KT_ERR_MEMOIRE);
    }
    if (us == KT_OK || kt::frame::LoadCount() == 1) {
      EXPECT_EQ(kt_version_, "0100");
      EXPECT_EQ(tables_version_, source_.version);
      continue;
    }
    EXPECT_NE(us, KT_OK);
    EXPECT_TRUE(kt_version_.empty());
    EXPECT_TRUE(tables_version_.empty());
    EXPECT_EQ(kt::frame::LoadCount(), 0);
    if (us == KT_ERR_MEMOIRE && delay >= allocations - 2) {
      EXPECT_EQ(g_stTabGrp, nullptr);
      FichierBinaire* slot = nullptr;
      EXPECT_EQ(usRechercherFichier(1, &slot), KT_ERR_NUMERO_INCONNU);
    }
    kt::testing::DisarmAllFaults();
    kt::test::FreeDictionaryValueTexts();
    EXPECT_EQ(Start(), KT_OK);
    EXPECT_EQ(kt_version_, "0100");
  }
}

// A component starts the library, builds a message, checks its format and
// hands its bytes to another, which adopts, checks and walks them; then both
// stop. The trace shows every operation's entry and exit, balanced.
TEST_F(Startup, TypicalMessageFromStartToStop) {
  WriteTables();
  const std::string trace_path = work_.File("message.trace");
  for (std::uint16_t sub : {1, 2, 3, 5}) {
    ASSERT_EQ(KT_usActiverTrace(trace_path.c_str(), "w", 1, sub, 2), KT_OK);
  }
  ASSERT_EQ(Start(), KT_OK);

  std::uint16_t sender = 0;
  ASSERT_EQ(KT_usCreerZoneMemoire(64, 1, &sender), KT_OK);
  ASSERT_EQ(KT_usAjouterGroupe(sender, 20), KT_OK);
  const std::string kind = "VENTE", quantity = "42";
  ASSERT_EQ(KT_usAjouterChamp(sender, reinterpret_cast<const std::uint8_t*>(kind.data()), 5), KT_OK);
  ASSERT_EQ(KT_usAjouterChamp(sender, reinterpret_cast<const std::uint8_t*>(quantity.data()), 2),
            KT_OK);
  ASSERT_EQ(KT_usControlerFormatZoneMemoire(sender), KT_OK);
  std::uint32_t size = 0;
  std::uint8_t* bytes = nullptr;
  ASSERT_EQ(KT_pucLireBuffer(sender, &size, &bytes), KT_OK);
  ASSERT_EQ(KT_usLibererZoneMemoire(sender), KT_OK);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(bytes), size),
            std::string("\x00\x14\x09\x05VENTE\x02" "42", 12));

  std::uint16_t receiver = 0;
  ASSERT_EQ(KT_usInitialiserZoneMemoire(bytes, size, &receiver, 1), KT_OK);
  ASSERT_EQ(KT_usControlerSyntaxeZoneMemoire(receiver), KT_OK);
  ASSERT_EQ(KT_usPositionnerDebut(receiver), KT_OK);
  std::uint16_t id = 0, number = 0;
  std::uint8_t* value = nullptr;
  std::uint32_t length = 0;
  ASSERT_EQ(KT_usAvancerGroupeSuivant(receiver, 1, 0, &id), KT_OK);
  EXPECT_EQ(id, 20);
  ASSERT_EQ(KT_usAvancerChampSuivant(receiver, 2, &number, &value, &length), KT_OK);
  EXPECT_EQ(number, 2);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(value), length), "42");
  ASSERT_EQ(KT_usLibererZoneMemoire(receiver), KT_OK);
  KT_Liberer(bytes);
  kt::test::FreeDictionaryValueTexts();
  ASSERT_EQ(KT_usTermLIB(), KT_OK);
  EXPECT_EQ(kt::traces::Depth(), 0);
  ASSERT_EQ(KT_usActiverTrace(trace_path.c_str(), "w", 1, 1, 0), KT_OK);

  const std::string trace = ReadFile(trace_path);
  for (const char* line :
       {"{ KT_usInitLIB\n", "  Nombre de modules ayant initialis\xE9 le KT = 0\n",
        "{ IAInitialisation\n", "  ecriture des fichiers .adm composants\n",
        "{ KT_usControlerFormatZoneMemoire\n",
        "  FIN de la fonction KT_usControlerFormatZoneMemoire\n",
        "{ KT_usTermLIB\n", "  { usIADecharger\n", "  KT_usTermLIB\n}\n"}) {
    EXPECT_NE(trace.find(line), std::string::npos) << "missing: " << line << "\n" << trace;
  }
  EXPECT_NE(trace.find("{ Suppression des tables /usGTSupprTables\n"), std::string::npos);
}

}  // namespace
