// The header line, the coded-length decoder and hexadecimal digits.
#include <cctype>
#include <string>
#include <vector>

#include "binfiles/binfile_test_util.h"
#include "frame/frame_internal.h"

namespace kt::test {
namespace {

using BinFileFormat = BinFileTest;

constexpr char kLine[] = "0000 f.bin        0100 ABCDE 20240131 0100 XYZ12 0123456789 ";

TEST_F(BinFileFormat, HeaderLineHasExactBytesAndReadsBack) {
  uint16_t number = 0;
  ASSERT_EQ(Create("f.bin", KT_CONTROLE_AUCUN, &number, MakeHeader("f.bin", "")), KT_OK);
  ASSERT_EQ(KT_usEcrireUnsignedChar(number, 'U'), KT_OK);
  Close(number);
  EXPECT_EQ(Contents("f.bin"), kLine + std::string("\r\n\x1AU"));  // the body at 63
  // The comment runs to the first carriage return.
  struct Case {
    std::string comment, read;
    int32_t position;
  } const cases[] = {
      {"Tables", "Tables", 69},
      {"", "", 64},          // no seek back: the reader passes over the first body byte (kept)
      {"ab\rcd", "ab", 65},  // "cd" is taken for the body
      {std::string(300, 'c'), std::string(200, 'c'), 363},  // cut to the record's room
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.comment);
    WriteFile(Path("f.bin"), kLine + c.comment + "\r\n\x1AU");
    Header header{};
    ASSERT_EQ(Open("f.bin", KT_CONTROLE_AUCUN, &number, &header), KT_OK);
    EXPECT_EQ(header, MakeHeader("f.bin", c.read));  // every field, terminated
    EXPECT_EQ(Position(number), c.position);
    Close(number);
  }
  for (std::size_t cut : {0u, 3u, 10u, 40u, 59u, 62u}) {  // a truncated line
    WriteFile(Path("f.bin"), (kLine + std::string("Tables\r\n")).substr(0, cut));
    EXPECT_EQ(Probe("f.bin", KT_CONTROLE_AUCUN), KT_ERR_FIN_FICHIER) << cut;
  }
}

TEST_F(BinFileFormat, NameFieldIsPaddedCutAndStripped) {
  // Twelve characters fill the field; a thirteenth is cut, and the file then
  // fails its name check, keeping its number until closed.
  const std::string full = Build("tablebin.vkt", KT_CONTROLE_AUCUN);
  EXPECT_EQ(full.substr(4, 14), " tablebin.vkt ");
  EXPECT_EQ(Build("tablebin.vkt2", KT_CONTROLE_AUCUN).substr(5, 13), "tablebin.vkt ");
  uint16_t number = 0;
  EXPECT_EQ(Open("tablebin.vkt2", KT_CONTROLE_AUCUN, &number), KT_ERR_NOM_FICHIER);
  EXPECT_EQ(usRechercherFichier(number, nullptr), KT_OK);
  Close(number);
  WriteFile(Path("blank"), full.substr(0, 5) + std::string(12, ' ') + full.substr(17));
  Header header;
  header.fill('#');
  EXPECT_EQ(Probe("blank", KT_CONTROLE_AUCUN, &header), KT_ERR_NOM_FICHIER);
  EXPECT_STREQ(header.data(), "");
}

TEST(BinFileCodedLength, DecoderKeepsItsSignedBytesAndShortCount) {
  struct Case {
    std::vector<uint8_t> bytes;
    uint32_t size, index;
    uint16_t status;
    uint32_t length, count;
  } const cases[] = {
      {{0x80}, 1, 0, KT_OK, 128, 1},  // never written, accepted
      {{0x82, 0x01, 0x00}, 3, 0, KT_OK, 256, 2},
      {{0x81, 0xFF}, 2, 0, KT_OK, 0xFFFFFFFF, 1},  // bytes of 0x80 or more subtract
      {{0x82, 0x01, 0x80}, 3, 0, KT_OK, 128, 2},
      {{0x85, 0, 0, 0, 0, 0}, 6, 0, KT_ERR_ARGUMENT, 0, 0},
      {{0x82, 0x01, 0x00}, 2, 0, KT_ERR_ARGUMENT, 0, 0},  // past the buffer
      {{0x82, 0x01, 0x00}, 3, 3, KT_ERR_ARGUMENT, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.bytes));
    uint32_t length = 0, count = 0;
    ASSERT_EQ(usDecoderLongueur(c.bytes.data(), c.size, c.index, &length, &count), c.status);
    EXPECT_TRUE(length == c.length && count == c.count) << length << " " << count;
  }
  uint32_t length = 0;
  EXPECT_EQ(usDecoderLongueur(nullptr, 3, 0, &length, &length), KT_ERR_ARGUMENT);
}

TEST(BinFileHex, DigitsOfEitherCaseAndNothingElse) {
  const std::string digits = "0123456789ABCDEF";
  for (uint16_t v = 0; v < 16; ++v) {
    EXPECT_EQ(usConvertirHexa(digits[v]), v);
    EXPECT_EQ(usConvertirHexa(static_cast<char>(std::tolower(digits[v]))), v);
  }
  for (char c : std::string("/:@G`g \x80")) EXPECT_EQ(usConvertirHexa(c), 0xFFFF) << int(c);
}

}  // namespace
}  // namespace kt::test
