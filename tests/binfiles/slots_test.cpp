// File slots and the life of a binary file: numbers, create, open, close,
// raw access, and what failures leave behind.
#include <cstdio>
#include <string>
#include <utility>

#include "binfiles/binfile_test_util.h"
#include "frame/frame_internal.h"

namespace kt::test {
namespace {

using kt::testing::ArmFault;
using kt::testing::Fault;
using BinFileSlots = BinFileTest;

TEST_F(BinFileSlots, HundredNumbersThenExhaustionAndLowestFreeFirst) {
  uint16_t number = 0;
  for (int i = 1; i <= 100; ++i) {
    ASSERT_EQ(Create("f" + std::to_string(i), KT_CONTROLE_AUCUN, &number), KT_OK);
    ASSERT_EQ(number, i);
  }
  EXPECT_EQ(Create("extra", KT_CONTROLE_AUCUN, &number), KT_ERR_PLUS_DE_FICHIER);
  EXPECT_EQ(number, 0);
  // A failure while holding number 100 leaves it reserved (kept).
  Close(100);
  ArmFault(Fault::kOpen, 0);
  EXPECT_EQ(Create("last", KT_CONTROLE_AUCUN, &number), KT_ERR_FICHIER);
  EXPECT_EQ(KT_usLibererFichierBinaire(100, nullptr), KT_ERR_NUMERO_INCONNU);
  EXPECT_EQ(Open("f1", KT_CONTROLE_AUCUN, &number), KT_ERR_PLUS_DE_FICHIER);
  Close(63);
  Close(37);
  EXPECT_EQ(Open("f63", KT_CONTROLE_AUCUN, &number), KT_OK);
  EXPECT_EQ(number, 37);
  EXPECT_EQ(Create("again", KT_CONTROLE_AUCUN, &number), KT_OK);
  EXPECT_EQ(number, 63);
}

TEST_F(BinFileSlots, UnknownNumbersAreRefused) {
  uint16_t number = 0;
  ASSERT_EQ(Create("a", KT_CONTROLE_AUCUN, &number), KT_OK);
  uint32_t value = 0;
  int32_t position = 0;
  for (uint16_t unknown : {0, 2, 100, 101, 0xFFFF}) {
    SCOPED_TRACE(unknown);
    EXPECT_EQ(KT_usLibererFichierBinaire(unknown, nullptr), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(KT_usEcrireUnsignedLong(unknown, 1), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(KT_usLireUnsignedLong(unknown, &value), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(usTailleDonnneeFichierBinaire(unknown, &value), KT_ERR_NUMERO_INCONNU);
    EXPECT_EQ(KT_usEcrireTaille(unknown), KT_ERR_NUMERO_INCONNU);
    // Raw access reports every failure as a file failure.
    EXPECT_EQ(KT_usLongueurFichierBinaire(unknown, &value), KT_ERR_FICHIER);
    EXPECT_EQ(KT_usLirePositionFichier(unknown, &position), KT_ERR_FICHIER);
    EXPECT_EQ(KT_usPositionnerOffset(unknown, 0, SEEK_SET), KT_ERR_FICHIER);
  }
  EXPECT_EQ(usRenseignerFichierTableau(0, nullptr), KT_ERR_NUMERO_INCONNU);
}

TEST_F(BinFileSlots, NullArgumentsAreRefusedFirst) {
  const std::string dir_text = Dir();
  const char* dir = dir_text.c_str();
  const Header header = MakeHeader("a");
  Header out{};
  uint16_t number = 7;
  EXPECT_EQ(KT_usCreerFichierBinaire(nullptr, "a", 0, header.data(), &number), KT_ERR_ARGUMENT);
  EXPECT_EQ(number, 0);
  EXPECT_EQ(KT_usCreerFichierBinaire(dir, nullptr, 0, header.data(), &number), KT_ERR_ARGUMENT);
  EXPECT_EQ(KT_usCreerFichierBinaire(dir, "a", 0, nullptr, &number), KT_ERR_ARGUMENT);
  EXPECT_EQ(KT_usCreerFichierBinaire(dir, "a", 0, header.data(), nullptr), KT_ERR_POINTEUR_NUL);
  EXPECT_EQ(KT_usInitialiserFichierBinaire(dir, "a", 0, nullptr, out.data()), KT_ERR_POINTEUR_NUL);
  EXPECT_EQ(KT_usInitialiserFichierBinaire(dir, "a", 0, &number, nullptr), KT_ERR_POINTEUR_NUL);
  // The open's message names the create operation (kept).
  const std::string trace = CaptureTrace({7}, 2, [&] {
    EXPECT_EQ(KT_usInitialiserFichierBinaire(nullptr, "a", 3, &number, out.data()),
              KT_ERR_ARGUMENT);
  });
  EXPECT_EQ(trace,
            "{ KT_usInitialiserFichierBinaire : pcRepertoire = (null), pcNomFichier =a, "
            "usTypeControle = 3\n\n"
            "  ERREUR : KT_usCreerFichierBinaire : Nom de repertoire ou nom de fichier nul.\n"
            "  KT_usInitialiserFichierBinaire : Code retour = 0xf802\n}\n");
}

// Every failure before the file is open gives the number back and sets
// *number to 0; those after it keep the file open until closed.
TEST_F(BinFileSlots, FailuresGiveTheNumberBackUntilTheFileIsOpen) {
  Build("src", KT_CONTROLE_CRC);
  uint16_t number = 9;
  for (int delay = 0; delay < 4; ++delay) {  // record, directory, name, path
    ArmFault(Fault::kAlloc, delay);
    EXPECT_EQ(Create("new", KT_CONTROLE_AUCUN, &number), KT_ERR_MEMOIRE) << delay;
    EXPECT_EQ(number, 0);
    ArmFault(Fault::kAlloc, delay);
    EXPECT_EQ(Open("src", KT_CONTROLE_CRC, &number), KT_ERR_MEMOIRE) << delay;
    EXPECT_EQ(number, 0);
  }
  ArmFault(Fault::kOpen, 0);
  EXPECT_EQ(Create("new", KT_CONTROLE_AUCUN, &number), KT_ERR_FICHIER);
  EXPECT_EQ(Open("missing", KT_CONTROLE_AUCUN, &number), KT_ERR_FICHIER);
  EXPECT_EQ(number, 0);
  // After it, a failed length query or header write keeps the number.
  ArmFault(Fault::kSeek, 1);  // the length query's seek where the stream stands
  EXPECT_EQ(Open("src", KT_CONTROLE_CRC, &number), KT_ERR_FICHIER);
  EXPECT_EQ(number, 1);  // every number above was given back
  Close(number);
  for (const auto& [fault, delay] : {std::pair{Fault::kSeek, 0},
                                     {Fault::kWrite, 0},
                                     {Fault::kWrite, 5}}) {  // to 0, "0000 ", a typed byte
    ArmFault(fault, delay);
    EXPECT_EQ(Create("new", KT_CONTROLE_AUCUN, &number), KT_ERR_FICHIER) << delay;
    Close(number);
  }
}

TEST_F(BinFileSlots, DataSizeLeavesOut128BytesUnlessTypeIsOne) {
  for (uint16_t type : {0, 1, 2, 5}) {
    uint16_t number = 0;
    ASSERT_EQ(Create("d", type, &number, MakeHeader("d", std::string(37, 'c'))), KT_OK);
    uint32_t size = 0;
    ASSERT_EQ(usTailleDonnneeFichierBinaire(number, &size), KT_OK);
    EXPECT_EQ(size, type == 1 ? 100u : uint32_t(100 - 128)) << type;  // wraps for 100 bytes
    ASSERT_EQ(usLibererFichier(number), KT_OK);                       // no CRC, no signature
  }
}

TEST_F(BinFileSlots, PendingTableSizeGoesIntoWhicheverWrittenFileClosesFirst) {
  const std::string bytes = Build("r", KT_CONTROLE_CRC);
  uint16_t a = 0, b = 0;
  ASSERT_EQ(Create("a", KT_CONTROLE_AUCUN, &a), KT_OK);
  const EnteteTable table = MakeTable("T", 1);
  ASSERT_EQ(KT_usEcrireEnteteTable(a, &table), KT_OK);
  ASSERT_EQ(KT_usEcrireUnsignedLong(a, 0xAABBCCDD), KT_OK);
  Read("r", KT_CONTROLE_CRC, [](uint16_t) {});  // a read-mode file writes nothing
  EXPECT_EQ(Contents("r"), bytes);
  ASSERT_EQ(Create("b", KT_CONTROLE_AUCUN, &b, MakeHeader("b", std::string(40, 'x'))), KT_OK);
  Close(b);
  // b's counter (the typed header bytes, 58 + comment) lands at a's size
  // position, 77 + 10, inside b's comment.
  EXPECT_EQ(Contents("b").substr(87, 4), std::string("\0\0\0\x62", 4));
  Close(a);
  EXPECT_EQ(Contents("a").substr(87, 4), std::string(4, '\0'));  // a keeps size 0
}

TEST_F(BinFileSlots, RecordAndNamesStayCountedAfterClose) {
  const uint32_t before = kt::frame::AllocatedTotal();
  Build("m", KT_CONTROLE_AUCUN);
  const uint32_t after = kt::frame::AllocatedTotal();
  // The record and its two texts go back with the plain free (kept).
  EXPECT_GE(after - before, sizeof(FichierBinaire) + Dir().size() + 1 + 2);
  Build("m", KT_CONTROLE_AUCUN);
  EXPECT_EQ(kt::frame::AllocatedTotal() - after, after - before);
}

TEST_F(BinFileSlots, CloseFailuresAreReportedAndTheSlotFreed) {
  for (Fault fault : {Fault::kClose, Fault::kWrite}) {  // the close, the CRC write
    uint16_t number = 0;
    ASSERT_EQ(Create("c", KT_CONTROLE_CRC, &number), KT_OK);
    ArmFault(fault, 0);
    EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_ERR_FICHIER);
    EXPECT_EQ(usRechercherFichier(number, nullptr), KT_ERR_NUMERO_INCONNU);
  }
  EXPECT_EQ(Contents("c").substr(0, 4), "0000");
  EXPECT_EQ(Probe("c", KT_CONTROLE_CRC), KT_ERR_CONTROLE);
}

TEST_F(BinFileSlots, RawAccessReadsBlocksAndRestoresPosition) {
  Build("raw", KT_CONTROLE_AUCUN,
        [](uint16_t n) { EXPECT_EQ(KT_usEcrireUnsignedLong(n, 0x01020304), KT_OK); });
  Read("raw", KT_CONTROLE_AUCUN, [](uint16_t n) {
    uint32_t length = 0;
    EXPECT_EQ(KT_usLongueurFichierBinaire(n, &length), KT_OK);
    EXPECT_EQ(length, 81u);
    FichierBinaire* record = nullptr;
    ASSERT_EQ(usRechercherFichier(n, &record), KT_OK);
    EXPECT_EQ(record->ulCompteurOctets, length);  // set at open
    EXPECT_EQ(KT_usPositionnerOffset(n, -2, SEEK_END), KT_OK);
    uint8_t* block = nullptr;
    EXPECT_EQ(KT_usLireFichierBinaire(n, 78, 3, &block), KT_OK);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(block), 3), "\x02\x03\x04");
    KT_Liberer(block);
    EXPECT_EQ(Position(n), 79);
    // A short read or a failed allocation followed by a good seek back
    // returns 0: the seek's result wins (kept), the buffer tells.
    EXPECT_EQ(KT_usLireFichierBinaire(n, 80, 5, &block), KT_OK);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[0], 0x04);
    KT_Liberer(block);
    ArmFault(Fault::kAlloc, 0);
    EXPECT_EQ(KT_usLireFichierBinaire(n, 0, 5, &block), KT_OK);
    EXPECT_EQ(block, nullptr);
    ArmFault(Fault::kSeek, 3);  // the seek back
    EXPECT_EQ(KT_usLireFichierBinaire(n, 0, 5, &block), KT_ERR_FICHIER);
    KT_Liberer(block);
  });
}

}  // namespace
}  // namespace kt::test
