// Tables inside binary files: searching by name with its wrap-around, what
// counts as data, size back-patching and its failures, extension entries.
// The sample's bytes and a walk through it are in fields_test.cpp.
#include <string>

#include "binfiles/binfile_test_util.h"
#include "frame/frame_internal.h"

namespace kt::test {
namespace {

using BinFileTables = BinFileTest;

// Where the sample's tables start; their records follow 25 bytes on.
constexpr int32_t kChamps = kBody, kVide = kChamps + 25 + 38, kValeur = kVide + 25;

EnteteTable Search(uint16_t n, const char* name, uint16_t expected) {
  EnteteTable table{};
  EXPECT_EQ(KT_usRechercherTable(n, name, &table), expected) << (name ? name : "(null)");
  return table;
}

TEST_F(BinFileTables, SearchWrapsOnceAndStopsWhereItStarted) {
  Build("t", KT_CONTROLE_CRC, WriteSample);
  Read("t", KT_CONTROLE_CRC, [](uint16_t n) {
    EXPECT_EQ(Search(n, "TVALEUR", KT_OK).ulTailleDonnees, 7u);
    EXPECT_EQ(Position(n), kValeur + 25);
    ASSERT_EQ(KT_usPositionnerOffset(n, 0, SEEK_END), KT_OK);
    Search(n, "TVALEUR", KT_OK);  // from the end, through the header, to it again
    EXPECT_EQ(Position(n), kValeur + 25);
    Search(n, "TCHAMPS", KT_OK);
    EXPECT_EQ(Position(n), kChamps + 25);
    ASSERT_EQ(KT_usPositionnerOffset(n, 38, SEEK_CUR), KT_OK);
    Search(n, "TABLE_VIDE", KT_OK);
    EXPECT_EQ(Position(n), kVide + 25);
    for (const char* name : {"tvaleur", "TVALEUR ", "", "ABSENT"}) Search(n, name, KT_ERR_FIN);
    Search(n, nullptr, KT_ERR_ARGUMENT);
  });
}

TEST_F(BinFileTables, SizesPast2GiBSkipBeyondTheEndOnEveryHost) {
  // A 32-bit host once took these sizes for negative offsets: the skip
  // failed with KT_ERR_FIN_FICHIER instead of wrapping round.
  for (const uint32_t size : {0x80000000u, 0xFFFFFFFFu}) {
    std::string bytes = Build("big", KT_CONTROLE_AUCUN, WriteSample);
    for (int i = 0; i < 4; ++i) bytes[kChamps + 10 + i] = static_cast<char>(size >> (24 - 8 * i));
    WriteFile(Path("big"), bytes + std::string(128, 's'));  // the tables are data
    Read("big", KT_CONTROLE_AUCUN, [size](uint16_t n) {
      Search(n, "TVALEUR", KT_ERR_FIN);  // skips past the end, wraps, stops
      EXPECT_EQ(Position(n), kChamps);
      EXPECT_EQ(Search(n, "TCHAMPS", KT_OK).ulTailleDonnees, size);
    });
  }
}

TEST_F(BinFileTables, OnlyTypeOneCountsTheLast128BytesAsData) {
  // 197 bytes: less 128, the data end before the first table.
  Build("zero", KT_CONTROLE_AUCUN, WriteSample);
  Read("zero", KT_CONTROLE_AUCUN, [](uint16_t n) { Search(n, "TCHAMPS", KT_ERR_FIN); });
  Build("one", KT_CONTROLE_CRC, WriteSample);
  Read("one", KT_CONTROLE_CRC, [](uint16_t n) { Search(n, "TCHAMPS", KT_OK); });
  Build("empty", KT_CONTROLE_CRC);  // no tables
  Read("empty", KT_CONTROLE_CRC, [](uint16_t n) { Search(n, "TCHAMPS", KT_ERR_FIN); });
  // A data size of -28 (100 bytes of type 0): from the end, it stops there.
  uint16_t n = 0;
  ASSERT_EQ(Create("short", KT_CONTROLE_AUCUN, &n, MakeHeader("short", std::string(37, 'c'))),
            KT_OK);
  Close(n);
  Read("short", KT_CONTROLE_AUCUN, [](uint16_t f) { Search(f, "TCHAMPS", KT_ERR_FIN); });
}

TEST_F(BinFileTables, SecondTableWithoutCloseLeavesTheFirstAtSizeZero) {
  const std::string bytes = Build("two", KT_CONTROLE_AUCUN, [](uint16_t n) {
    const EnteteTable first = MakeTable("FIRST", 1), second = MakeTable("SECOND", 1);
    EXPECT_EQ(KT_usEcrireEnteteTable(n, &first), KT_OK);
    EXPECT_EQ(KT_usEcrireUnsignedLong(n, 7), KT_OK);
    EXPECT_EQ(KT_usEcrireEnteteTable(n, &second), KT_OK);
    EXPECT_EQ(KT_usEcrireUnsignedShort(n, 7), KT_OK);
  });
  EXPECT_EQ(bytes.substr(kBody + 10, 4), std::string(4, '\0'));
  EXPECT_EQ(bytes.substr(kBody + 29 + 10, 4), std::string("\0\0\0\x02", 4));
}

TEST_F(BinFileTables, ExtensionEntriesAreSkipped) {
  std::string bytes = Build("x", KT_CONTROLE_AUCUN, WriteSample);
  bytes[kChamps + 22] = 1;  // A = 1, B = 1: ten bytes of entries before the records
  bytes[kChamps + 23] = 1;
  bytes.insert(kChamps + 25, "eeeeeEEEEE");
  WriteFile(Path("x"), bytes);
  Read("x", KT_CONTROLE_AUCUN, [](uint16_t n) {
    EnteteTable table{};
    ASSERT_EQ(KT_usLireEnteteTable(n, &table), KT_OK);
    EXPECT_TRUE(table.ucNbExtensionsA == 1 && table.ucNbExtensionsB == 1);
    EXPECT_EQ(ReadValue(n, KT_usLireUnsignedChar), 0xAB);
  });
}

TEST_F(BinFileTables, SizeWriteFailuresAndTheirTraces) {
  uint16_t n = 0;
  ASSERT_EQ(Create("f", KT_CONTROLE_AUCUN, &n), KT_OK);
  // The entry trace names the opening operation (kept).
  std::string trace = CaptureTrace({7}, 1, [&] { EXPECT_EQ(KT_usEcrireTaille(n), KT_ERR_MODE); });
  EXPECT_EQ(trace,
            "{ KT_usEcrireEnteteTable : usNumFichierBinaire = 1\n"
            "  ERREUR : Pas d'entete de table de cree\n"
            "  KT_usEcrireTaille : Code retour = 0xf811\n}\n");
  const EnteteTable table = MakeTable("T", 0);
  ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
  ASSERT_EQ(KT_usEcrireUnsignedLong(n, 9), KT_OK);
  kt::testing::ArmFault(kt::testing::Fault::kSeek, 0);
  EXPECT_EQ(KT_usEcrireTaille(n), KT_ERR_FICHIER);
  Close(n);  // the table is still pending: closing writes its size
  EXPECT_EQ(Contents("f").substr(kBody + 10, 4), std::string("\0\0\0\x04", 4));

  // Reading a header traces the writing operation's name on exit (kept).
  Read("f", KT_CONTROLE_AUCUN, [&](uint16_t f) {
    ASSERT_EQ(KT_usPositionnerOffset(f, 0, SEEK_END), KT_OK);
    EnteteTable out{};
    trace =
        CaptureTrace({7}, 1, [&] { EXPECT_EQ(KT_usLireEnteteTable(f, &out), KT_ERR_FIN_FICHIER); });
  });
  EXPECT_EQ(trace.substr(0, 48), "{ KT_usLireEnteteTable : usNumFichierBinaire = 1");
  EXPECT_NE(trace.find("\n  KT_usEcrireEnteteTable : Code retour = 0xf640\n}\n"),
            std::string::npos);
}

}  // namespace
}  // namespace kt::test
