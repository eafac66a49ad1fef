// Tables inside binary files: header bytes, size back-patching, walking
// and searching by name.
#include <string>

#include "binfiles/binfile_test_util.h"
#include "frame/frame_internal.h"

namespace kt::test {
namespace {

using BinFileTables = BinFileTest;

constexpr std::size_t kBody = 77;  // header line with the default comment

// Tables TGROUPE (2 records of 6 bytes), TCHAMP (none), TVALEUR (1 string).
void WriteThreeTables(uint16_t n) {
  EnteteTable table = MakeTable("TGROUPE", 2);
  ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
  for (uint32_t i = 1; i <= 2; ++i) {
    ASSERT_EQ(KT_usEcrireUnsignedLong(n, i), KT_OK);
    ASSERT_EQ(KT_usEcrireUnsignedShort(n, static_cast<uint16_t>(i * 10)), KT_OK);
  }
  ASSERT_EQ(KT_usEcrireTaille(n), KT_OK);
  table = MakeTable("TCHAMP", 0);
  ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
  ASSERT_EQ(KT_usEcrireTaille(n), KT_OK);
  table = MakeTable("TVALEUR", 1);
  ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
  ASSERT_EQ(KT_usEcrireChaineVariable(n, "valeur"), KT_OK);
  // Left open: closing the file writes its size.
}

TEST_F(BinFileTables, HeadersHaveTheirBytesAndPatchedSizes) {
  const std::string bytes = Build("t", KT_CONTROLE_AUCUN, WriteThreeTables);
  const std::string expected = std::string("TGROUPE   \0\0\0\x0C\0\0\0\x02\0\0\0\0\0\0\0", 25) +
                               std::string("\0\0\0\x01\0\x0A\0\0\0\x02\0\x14", 12) +
                               std::string("TCHAMP    \0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 25) +
                               std::string("TVALEUR   \0\0\0\x07\0\0\0\x01\0\0\0\0\0\0\0", 25) +
                               "\x06valeur";
  EXPECT_EQ(bytes.substr(kBody), expected);
}

TEST_F(BinFileTables, WalkingReadsEachHeaderAndStandsAtItsRecords) {
  Build("t", KT_CONTROLE_CRC, WriteThreeTables);
  Read("t", KT_CONTROLE_CRC, [](uint16_t n) {
    EnteteTable table{};
    ASSERT_EQ(KT_usLireEnteteTable(n, &table), KT_OK);
    EXPECT_STREQ(table.cNom, "TGROUPE");
    EXPECT_EQ(table.ulTailleDonnees, 12u);
    EXPECT_EQ(table.ulNbEnregistrements, 2u);
    uint32_t value = 0;
    uint16_t small = 0;
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(KT_usLireUnsignedLong(n, &value), KT_OK);
      EXPECT_EQ(KT_usLireUnsignedShort(n, &small), KT_OK);
    }
    EXPECT_EQ(small, 20);
    ASSERT_EQ(KT_usLireEnteteTable(n, &table), KT_OK);
    EXPECT_STREQ(table.cNom, "TCHAMP");
    EXPECT_EQ(table.ulTailleDonnees, 0u);  // the next table follows at once
    ASSERT_EQ(KT_usLireEnteteTable(n, &table), KT_OK);
    EXPECT_STREQ(table.cNom, "TVALEUR");
    char* text = nullptr;
    EXPECT_EQ(KT_usLireChaineVariable(n, &text), KT_OK);
    EXPECT_STREQ(text, "valeur");
    KT_Liberer(text);
    EXPECT_EQ(KT_usLireEnteteTable(n, &table), KT_ERR_FIN_FICHIER);
  });
}

TEST_F(BinFileTables, SearchWrapsOnceAndStopsWhereItStarted) {
  Build("t", KT_CONTROLE_CRC, WriteThreeTables);
  Read("t", KT_CONTROLE_CRC, [](uint16_t n) {
    EnteteTable table{};
    int32_t position = 0;
    ASSERT_EQ(KT_usRechercherTable(n, "TVALEUR", &table), KT_OK);
    EXPECT_EQ(table.ulNbEnregistrements, 1u);
    char* text = nullptr;
    ASSERT_EQ(KT_usLireChaineVariable(n, &text), KT_OK);
    KT_Liberer(text);
    // From the end of the last table, the search wraps and finds it again.
    ASSERT_EQ(KT_usRechercherTable(n, "TVALEUR", &table), KT_OK);
    EXPECT_EQ(KT_usLirePositionFichier(n, &position), KT_OK);
    EXPECT_EQ(position, int32_t(kBody + 37 + 25 + 25));
    ASSERT_EQ(KT_usRechercherTable(n, "TGROUPE", &table), KT_OK);
    EXPECT_EQ(KT_usLirePositionFichier(n, &position), KT_OK);
    EXPECT_EQ(position, int32_t(kBody + 25));
    // Standing inside a table's records, the search takes them for a header
    // and may pass over the next table before coming back to its start.
    EXPECT_EQ(KT_usRechercherTable(n, "TCHAMP", &table), KT_ERR_FIN);
    ASSERT_EQ(KT_usRechercherTable(n, "TGROUPE", &table), KT_OK);
    ASSERT_EQ(KT_usPositionnerOffset(n, 12, SEEK_CUR), KT_OK);  // past its records
    EXPECT_EQ(KT_usRechercherTable(n, "TCHAMP", &table), KT_OK);
    EXPECT_EQ(KT_usRechercherTable(n, "TGROUPE", &table), KT_OK);
    // Exact and case-sensitive.
    EXPECT_EQ(KT_usRechercherTable(n, "tgroupe", &table), KT_ERR_FIN);
    EXPECT_EQ(KT_usRechercherTable(n, "TGROUPE ", &table), KT_ERR_FIN);
    EXPECT_EQ(KT_usRechercherTable(n, "", &table), KT_ERR_FIN);
    EXPECT_EQ(KT_usRechercherTable(n, nullptr, &table), KT_ERR_ARGUMENT);
  });
}

TEST_F(BinFileTables, SearchInFilesWithoutTablesEndsNotFound) {
  Build("empty", KT_CONTROLE_CRC, [](uint16_t) {});
  Read("empty", KT_CONTROLE_CRC, [](uint16_t n) {
    EnteteTable table{};
    EXPECT_EQ(KT_usRechercherTable(n, "TGROUPE", &table), KT_ERR_FIN);
  });
  // A type-0 file of 100 bytes has a data size of -28: the search stops at once.
  uint16_t n = 0;
  ASSERT_EQ(Create("short", KT_CONTROLE_AUCUN, &n, MakeHeader("short", std::string(37, 'c'))),
            KT_OK);
  ASSERT_EQ(KT_usLibererFichierBinaire(n, nullptr), KT_OK);
  Read("short", KT_CONTROLE_AUCUN, [](uint16_t f) {
    EnteteTable table{};
    EXPECT_EQ(KT_usRechercherTable(f, "TGROUPE", &table), KT_ERR_FIN);
  });
}

TEST_F(BinFileTables, TablesInTheLast128BytesAreNotDataUnlessTypeIsOne) {
  const auto write = [](uint16_t n) {
    EnteteTable table = MakeTable("BIG", 1);
    ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
    const std::string filler(200, 'f');
    ASSERT_EQ(KT_usEcrireChampFixe(n, reinterpret_cast<const uint8_t*>(filler.data()), 200), KT_OK);
    ASSERT_EQ(KT_usEcrireTaille(n), KT_OK);
    table = MakeTable("TAIL", 1);
    ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
    ASSERT_EQ(KT_usEcrireUnsignedLong(n, 1), KT_OK);
  };
  Build("zero", KT_CONTROLE_AUCUN, write);
  Build("one", KT_CONTROLE_CRC, write);
  Read("zero", KT_CONTROLE_AUCUN, [](uint16_t n) {
    EnteteTable table{};
    EXPECT_EQ(KT_usRechercherTable(n, "TAIL", &table), KT_ERR_FIN);
    EXPECT_EQ(KT_usRechercherTable(n, "BIG", &table), KT_OK);
  });
  Read("one", KT_CONTROLE_CRC, [](uint16_t n) {
    EnteteTable table{};
    EXPECT_EQ(KT_usRechercherTable(n, "TAIL", &table), KT_OK);
  });
}

TEST_F(BinFileTables, SecondTableWithoutCloseLeavesTheFirstAtSizeZero) {
  const std::string bytes = Build("two", KT_CONTROLE_AUCUN, [](uint16_t n) {
    EnteteTable table = MakeTable("FIRST", 1);
    ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
    ASSERT_EQ(KT_usEcrireUnsignedLong(n, 7), KT_OK);
    table = MakeTable("SECOND", 1);
    ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
    ASSERT_EQ(KT_usEcrireUnsignedShort(n, 7), KT_OK);
  });
  EXPECT_EQ(bytes.substr(kBody + 10, 4), std::string(4, '\0'));
  EXPECT_EQ(bytes.substr(kBody + 29 + 10, 4), std::string("\0\0\0\x02", 4));
}

TEST_F(BinFileTables, NamesOfTenCharactersAndPaddedNames) {
  Build("n", KT_CONTROLE_CRC, [](uint16_t n) {
    EnteteTable table = MakeTable("ABCDEFGHIJ", 0);
    ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
    ASSERT_EQ(KT_usEcrireTaille(n), KT_OK);
    table = EnteteTable{};
    std::memcpy(table.cNom, "TNUL", 4);  // padded with NULs
    ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
    ASSERT_EQ(KT_usEcrireTaille(n), KT_OK);
  });
  Read("n", KT_CONTROLE_CRC, [](uint16_t n) {
    EnteteTable table{};
    ASSERT_EQ(KT_usLireEnteteTable(n, &table), KT_OK);
    EXPECT_STREQ(table.cNom, "ABCDEFGHIJ");
    EXPECT_EQ(KT_usRechercherTable(n, "TNUL", &table), KT_OK);
    EXPECT_EQ(KT_usRechercherTable(n, "ABCDEFGHIJ", &table), KT_OK);
  });
}

TEST_F(BinFileTables, ExtensionEntriesAreSkipped) {
  std::string bytes = Build("x", KT_CONTROLE_AUCUN, [](uint16_t n) {
    EnteteTable table = MakeTable("EXT", 1);
    ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
    ASSERT_EQ(KT_usEcrireUnsignedShort(n, 0x4142), KT_OK);
    ASSERT_EQ(KT_usEcrireTaille(n), KT_OK);
  });
  bytes[kBody + 22] = 1;  // A = 1, B = 1: ten bytes of entries before the records
  bytes[kBody + 23] = 1;
  bytes.insert(kBody + 25, "eeeeeEEEEE");
  WriteFile(Path("x"), bytes);
  Read("x", KT_CONTROLE_AUCUN, [](uint16_t n) {
    EnteteTable table{};
    ASSERT_EQ(KT_usLireEnteteTable(n, &table), KT_OK);
    EXPECT_EQ(table.ucNbExtensionsA, 1);
    uint16_t value = 0;
    EXPECT_EQ(KT_usLireUnsignedShort(n, &value), KT_OK);
    EXPECT_EQ(value, 0x4142);
  });
}

TEST_F(BinFileTables, SizeWriteFailuresAndTheirTraces) {
  uint16_t n = 0;
  ASSERT_EQ(Create("f", KT_CONTROLE_AUCUN, &n), KT_OK);
  std::string trace = CaptureTrace({7}, 1, [&] { EXPECT_EQ(KT_usEcrireTaille(n), KT_ERR_MODE); });
  EXPECT_EQ(trace,
            "{ KT_usEcrireEnteteTable : usNumFichierBinaire = 1\n"
            "  ERREUR : Pas d'entete de table de cree\n"
            "  KT_usEcrireTaille : Code retour = 0xf811\n}\n");
  const EnteteTable table = MakeTable("T", 0);
  ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
  ASSERT_EQ(KT_usEcrireUnsignedLong(n, 9), KT_OK);
  kt::testing::ArmFault(kt::testing::Fault::kSeek, 0);
  trace = CaptureTrace({7}, 1, [&] { EXPECT_EQ(KT_usEcrireTaille(n), KT_ERR_FICHIER); });
  EXPECT_NE(trace.find("  ERREUR : Probleme de positionnement dans le fichier\n"),
            std::string::npos);
  // The table is still pending: closing the file writes its size.
  ASSERT_EQ(KT_usLibererFichierBinaire(n, nullptr), KT_OK);
  EXPECT_EQ(Contents("f").substr(kBody + 10, 4), std::string("\0\0\0\x04", 4));

  Build("f", KT_CONTROLE_AUCUN, [](uint16_t) {});
  Read("f", KT_CONTROLE_AUCUN, [](uint16_t f) {
    EnteteTable out{};
    const std::string read_trace =
        CaptureTrace({7}, 1, [&] { (void)KT_usLireEnteteTable(f, &out); });
    EXPECT_EQ(read_trace.substr(0, 48), "{ KT_usLireEnteteTable : usNumFichierBinaire = 1");
    EXPECT_NE(read_trace.find("\n  KT_usEcrireEnteteTable : Code retour = 0xf640\n}\n"),
              std::string::npos);
  });
}

}  // namespace
}  // namespace kt::test
