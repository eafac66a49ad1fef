// The CRC-16 of control type 1: check values, the stream computation, and
// closed files whose every byte is guarded.
#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <utility>
#include <vector>

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

// The register run bit by bit, as the file format defines it.
uint16_t BitwiseCrc(const std::vector<uint8_t>& bytes) {
  uint32_t r = 0;
  for (uint8_t b : bytes) {
    r |= uint32_t{b} << 16;
    for (int bit = 0; bit < 8; ++bit) r = (r & 1U) != 0 ? (r >> 1) ^ 0x8408U : r >> 1;
  }
  return static_cast<uint16_t>(((r >> 8) & 0xFFU) | ((r & 0xFFU) << 8));
}

TEST(Crc16, TableDrivenEqualsBitwiseOnRandomDataInAnySplit) {
  std::mt19937 rng(16);
  for (std::size_t size : {0u, 1u, 2u, 3u, 7u, 8u, 9u, 15u, 16u, 17u, 1000u, 70000u}) {
    std::vector<uint8_t> bytes(size);
    for (auto& b : bytes) b = static_cast<uint8_t>(rng());
    const uint16_t expected = BitwiseCrc(bytes);
    // Whole, then in pieces of 0 to 19 bytes.
    kt::binfiles::Crc16 whole, pieces;
    whole.Update(bytes.data(), bytes.size());
    EXPECT_EQ(whole.Value(), expected) << size;
    for (std::size_t at = 0; at < size;) {
      const std::size_t n = std::min<std::size_t>(rng() % 20, size - at);
      pieces.Update(bytes.data() + at, n);
      at += n;
    }
    EXPECT_EQ(pieces.Value(), expected) << size;
  }
}

TEST_F(BinFileCrc, CheckValuesAndTheStreamFromOffset4On) {
  EXPECT_EQ(Crc("123456789"), 0x7F50);
  EXPECT_EQ(Crc("A"), 0x0041);
  // With two closing zero bytes the register is CRC-16/KERMIT's (0x2189).
  EXPECT_EQ(Crc(std::string("123456789\0\0", 11)), 0x8921);
  for (std::size_t covered : {0u, 1u, 1023u, 1024u, 2048u, 2500u, 32768u, 100001u}) {
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
