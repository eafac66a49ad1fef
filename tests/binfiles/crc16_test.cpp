// The CRC-16 of control type 1: check values, the stream computation, and
// closed files whose every byte is guarded.
#include <cstdio>
#include <string>
#include <utility>

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

TEST_F(BinFileCrc, CheckValuesAndTheStreamFromOffset4On) {
  EXPECT_EQ(Crc("123456789"), 0x7F50);
  EXPECT_EQ(Crc("A"), 0x0041);
  // With two closing zero bytes the register is CRC-16/KERMIT's (0x2189).
  EXPECT_EQ(Crc(std::string("123456789\0\0", 11)), 0x8921);
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
    EXPECT_EQ(value, covered == 0 ? 0 : Crc(bytes.substr(4)));
    EXPECT_EQ(std::ftell(stream), 2);  // put back
    std::fclose(stream);
  }
}

TEST_F(BinFileCrc, SeekFailuresGiveOneOrFileError) {
  WriteFile(Path("s"), "0000 abc");
  std::FILE* stream = std::fopen(Path("s").c_str(), "rb+");
  ASSERT_NE(stream, nullptr);
  uint16_t value = 0;
  // The position query, the seek to offset 4 (a bare 1, kept), the way back.
  for (const auto& [delay, status] :
       {std::pair{0, KT_ERR_FICHIER}, {1, KT_ECHEC}, {2, KT_ERR_FICHIER}}) {
    ArmFault(Fault::kSeek, delay);
    EXPECT_EQ(usCalculerCRC16(stream, &value), status) << delay;
  }
  EXPECT_EQ(usEcrireCRC(stream, 0x7F5), KT_OK);
  ArmFault(Fault::kSeek, 0);
  EXPECT_EQ(usEcrireCRC(stream, 1), KT_ERR_FICHIER);
  std::fclose(stream);
  EXPECT_EQ(ReadFile(Path("s")), "07F5 abc");
}

TEST_F(BinFileCrc, ClosedFileOpensAndAnyChangedByteFailsIt) {
  const std::string bytes = Build("guarded.bin", KT_CONTROLE_CRC, WriteSample);
  char stored[5];
  std::snprintf(stored, sizeof stored, "%04X", Crc(bytes.substr(4)));
  ASSERT_EQ(bytes.substr(0, 4), stored);
  EXPECT_EQ(Probe("guarded.bin", KT_CONTROLE_CRC), KT_OK);
  ExpectEveryChangeDetected("guarded.bin", KT_CONTROLE_CRC, bytes, KT_ERR_CONTROLE);
  EXPECT_EQ(Probe("guarded.bin", KT_CONTROLE_AUCUN), KT_OK);  // type 0 checks nothing
  // Lower-case digits count; any other character counts 0xFFFF (kept).
  for (const auto& [field, value] : {std::pair{"7f5a", 0x7F5A}, {"7F5G", 0x7F4F}}) {
    WriteFile(Path("guarded.bin"), field + bytes.substr(4));
    uint16_t n = 0;
    ASSERT_EQ(Open("guarded.bin", KT_CONTROLE_AUCUN, &n), KT_OK);
    EXPECT_EQ(ReadValue(n, usLireCRC), value) << field;
    ArmFault(Fault::kRead, 0);
    uint16_t ignored = 0;
    EXPECT_EQ(usLireCRC(n, &ignored), KT_ERR_FICHIER);
    Close(n);
  }
}

}  // namespace
}  // namespace kt::test
