// The CRC-16 of control type 1: check values, the stream computation, and
// files whose every byte is guarded.
#include <cctype>
#include <cstdio>
#include <string>

#include "binfiles/binfile_test_util.h"
#include "binfiles/binfiles_internal.h"
#include "frame/frame_internal.h"

namespace kt::test {
namespace {

using kt::testing::ArmFault;
using kt::testing::Fault;
using BinFileCrc = BinFileTest;

uint16_t Crc(const std::string& bytes) {
  kt::binfiles::Crc16 crc;
  crc.Update(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return crc.Value();
}

TEST(BinFileCrcValue, CheckValues) {
  EXPECT_EQ(Crc("123456789"), 0x7F50);
  EXPECT_EQ(Crc("A"), 0x0041);
  EXPECT_EQ(Crc(""), 0x0000);
  // With the two closing zero bytes the register is CRC-16/KERMIT's (check
  // value 0x2189), shown byte-swapped.
  EXPECT_EQ(Crc(std::string("123456789\0\0", 11)), 0x8921);
}

TEST_F(BinFileCrc, StreamValueCoversOffset4OnAndKeepsThePosition) {
  for (std::size_t covered : {0u, 1u, 1023u, 1024u, 2048u, 2500u}) {
    SCOPED_TRACE(covered);
    std::string bytes = "ABCD";
    for (std::size_t i = 0; i < covered; ++i) bytes += static_cast<char>(i * 7 + 3);
    WriteFile(Path("s"), bytes);
    std::FILE* stream = std::fopen(Path("s").c_str(), "rb");
    ASSERT_NE(stream, nullptr);
    std::fseek(stream, 2, SEEK_SET);
    uint16_t value = 0xFFFF;
    EXPECT_EQ(usCalculerCRC16(stream, &value), KT_OK);
    EXPECT_EQ(value, Crc(bytes.substr(4)));
    EXPECT_EQ(std::ftell(stream), 2);
    std::fclose(stream);
  }
}

TEST_F(BinFileCrc, SeekFailuresGiveOneOrFileError) {
  WriteFile(Path("s"), "0000 abc");
  std::FILE* stream = std::fopen(Path("s").c_str(), "rb");
  ASSERT_NE(stream, nullptr);
  uint16_t value = 0;
  ArmFault(Fault::kSeek, 0);  // the position query
  EXPECT_EQ(usCalculerCRC16(stream, &value), KT_ERR_FICHIER);
  ArmFault(Fault::kSeek, 1);  // offset 4
  EXPECT_EQ(usCalculerCRC16(stream, &value), KT_ECHEC);
  ArmFault(Fault::kSeek, 2);  // the way back
  EXPECT_EQ(usCalculerCRC16(stream, &value), KT_ERR_FICHIER);
  ArmFault(Fault::kSeek, 0);
  EXPECT_EQ(usEcrireCRC(stream, 1), KT_ERR_FICHIER);
  std::fclose(stream);
}

TEST_F(BinFileCrc, ClosedFileCarriesItsValueAndAnyChangedByteFailsTheOpen) {
  const std::string bytes = Build("guarded.bin", KT_CONTROLE_CRC, [](uint16_t n) {
    const EnteteTable table = MakeTable("TGROUPE", 3);
    ASSERT_EQ(KT_usEcrireEnteteTable(n, &table), KT_OK);
    for (int i = 0; i < 3; ++i) {
      ASSERT_EQ(KT_usEcrireChaineVariable(n, "groupe"), KT_OK);
      ASSERT_EQ(KT_usEcrireDouble(n, 12.75 * i), KT_OK);
    }
  });
  char stored[5];
  std::snprintf(stored, sizeof stored, "%04X", Crc(bytes.substr(4)));
  ASSERT_EQ(bytes.substr(0, 4), stored);
  uint16_t number = 0;
  ASSERT_EQ(Open("guarded.bin", KT_CONTROLE_CRC, &number), KT_OK);
  ASSERT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
  ExpectEveryChangeDetected("guarded.bin", KT_CONTROLE_CRC, bytes, KT_ERR_CONTROLE);
  // Control type 0 checks nothing.
  EXPECT_EQ(Open("guarded.bin", KT_CONTROLE_AUCUN, &number), KT_OK);
  ASSERT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
}

TEST_F(BinFileCrc, StoredDigitsOfEitherCaseButNotOthers) {
  std::string bytes = Build("d", KT_CONTROLE_CRC,
                            [](uint16_t n) { ASSERT_EQ(KT_usEcrireUnsignedLong(n, 3), KT_OK); });
  std::string lower = bytes;
  for (int i = 0; i < 4; ++i) lower[i] = static_cast<char>(std::tolower(lower[i]));
  WriteFile(Path("d"), lower);
  uint16_t number = 0;
  EXPECT_EQ(Open("d", KT_CONTROLE_CRC, &number), KT_OK);
  uint16_t value = 0;
  EXPECT_EQ(usLireCRC(number, &value), KT_OK);
  EXPECT_EQ(value, Crc(bytes.substr(4)));
  ASSERT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
  // "G" counts as 0xFFFF and spoils the sum without an error.
  std::string bad = bytes;
  bad[3] = 'G';
  WriteFile(Path("d"), bad);
  EXPECT_EQ(Open("d", KT_CONTROLE_CRC, &number), KT_ERR_CONTROLE);
  EXPECT_EQ(usLireCRC(number, &value), KT_OK);
  EXPECT_EQ(value, static_cast<uint16_t>((Crc(bytes.substr(4)) & 0xFFF0) + 0xFFFF));
  ArmFault(Fault::kRead, 0);
  EXPECT_EQ(usLireCRC(number, &value), KT_ERR_FICHIER);
  ASSERT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
}

TEST_F(BinFileCrc, FileOfFourBytesHasValueZero) {
  WriteFile(Path("four"), "ABCD");
  std::FILE* stream = std::fopen(Path("four").c_str(), "rb+");
  ASSERT_NE(stream, nullptr);
  uint16_t value = 1;
  EXPECT_EQ(usCalculerCRC16(stream, &value), KT_OK);
  EXPECT_EQ(value, 0);
  EXPECT_EQ(usEcrireCRC(stream, value), KT_OK);
  std::fclose(stream);
  EXPECT_EQ(ReadFile(Path("four")), "0000");
}

}  // namespace
}  // namespace kt::test
