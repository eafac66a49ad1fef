// Header line and coded lengths of binary table files.
#include <string>
#include <vector>

#include "binfiles/binfile_test_util.h"
#include "frame/frame_internal.h"

namespace kt::test {
namespace {

using BinFileFormat = BinFileTest;

constexpr char kExpectedLine[] =
    "0000 f.bin        0100 ABCDE 20240131 0100 XYZ12 0123456789 Tables\r\n\x1A";

TEST_F(BinFileFormat, HeaderLineHasExactBytesAndReadsBack) {
  uint16_t number = 0;
  ASSERT_EQ(Create("f.bin", KT_CONTROLE_AUCUN, &number, MakeHeader("f.bin", "Tables")), KT_OK);
  ASSERT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
  EXPECT_EQ(Contents("f.bin"), std::string(kExpectedLine));

  Header header{};
  WriteFile(Path("f.bin"), kExpectedLine + std::string("body"));
  ASSERT_EQ(Open("f.bin", KT_CONTROLE_AUCUN, &number, &header), KT_OK);
  EXPECT_STREQ(header.data() + KT_ENTETE_NOM, "f.bin");
  EXPECT_STREQ(header.data() + KT_ENTETE_VERSION, "0100");
  EXPECT_STREQ(header.data() + KT_ENTETE_CHAMP3, "ABCDE");
  EXPECT_STREQ(header.data() + KT_ENTETE_CHAMP4, "20240131");
  EXPECT_STREQ(header.data() + KT_ENTETE_VERSION_REQUISE, "0100");
  EXPECT_STREQ(header.data() + KT_ENTETE_CHAMP6, "XYZ12");
  EXPECT_STREQ(header.data() + KT_ENTETE_CHAMP7, "0123456789");
  EXPECT_STREQ(header.data() + KT_ENTETE_COMMENTAIRE, "Tables");
  int32_t position = 0;
  EXPECT_EQ(KT_usLirePositionFichier(number, &position), KT_OK);
  EXPECT_EQ(position, 69);  // 63 + comment
  EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
}

TEST_F(BinFileFormat, NameFieldIsPaddedCutAndStripped) {
  // Twelve characters fill the field; a thirteenth is cut and the file then
  // fails its name check, keeping its number until closed.
  std::string full = Build("tablebin.vkt", KT_CONTROLE_AUCUN, [](uint16_t) {});
  EXPECT_EQ(full.substr(4, 14), " tablebin.vkt ");
  std::string cut = Build("tablebin.vkt2", KT_CONTROLE_AUCUN, [](uint16_t) {});
  EXPECT_EQ(cut.substr(5, 13), "tablebin.vkt ");
  uint16_t number = 0;
  EXPECT_EQ(Open("tablebin.vkt2", KT_CONTROLE_AUCUN, &number), KT_ERR_NOM_FICHIER);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(usRechercherFichier(1, nullptr), KT_OK);
  EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);

  // A name of twelve spaces reads back empty.
  std::string blank = full;
  blank.replace(5, 12, std::string(12, ' '));
  WriteFile(Path("blank"), blank);
  Header header{};
  header.fill('#');
  EXPECT_EQ(Open("blank", KT_CONTROLE_AUCUN, &number, &header), KT_ERR_NOM_FICHIER);
  EXPECT_STREQ(header.data(), "");
  EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
}

TEST_F(BinFileFormat, EmptyCommentEndsLineAt63ButReaderSkipsFirstBodyByte) {
  uint16_t number = 0;
  ASSERT_EQ(Create("e", KT_CONTROLE_AUCUN, &number, MakeHeader("e", "")), KT_OK);
  ASSERT_EQ(KT_usEcrireUnsignedChar(number, 0x55), KT_OK);
  ASSERT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
  const std::string bytes = Contents("e");
  ASSERT_EQ(bytes.size(), 64u);
  EXPECT_EQ(bytes.substr(59, 5), std::string(" \r\n\x1A\x55"));

  Header header{};
  ASSERT_EQ(Open("e", KT_CONTROLE_AUCUN, &number, &header), KT_OK);
  EXPECT_STREQ(header.data() + KT_ENTETE_COMMENTAIRE, "");
  int32_t position = 0;
  EXPECT_EQ(KT_usLirePositionFichier(number, &position), KT_OK);
  EXPECT_EQ(position, 64);
  EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
}

TEST_F(BinFileFormat, CommentIsCutAtCarriageReturnAndAtItsCapacity) {
  Header header{};
  uint16_t number = 0;
  Build("cr", KT_CONTROLE_AUCUN, [](uint16_t) {});
  std::string bytes = Contents("cr");
  bytes.replace(60, 14, "ab\rcd");  // "Tables de test" becomes "ab\rcd"
  WriteFile(Path("cr"), bytes);
  ASSERT_EQ(Open("cr", KT_CONTROLE_AUCUN, &number, &header), KT_OK);
  EXPECT_STREQ(header.data() + KT_ENTETE_COMMENTAIRE, "ab");
  int32_t position = 0;
  EXPECT_EQ(KT_usLirePositionFichier(number, &position), KT_OK);
  EXPECT_EQ(position, 65);  // the rest of the comment is taken for the body
  EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);

  // A comment longer than the record holds is cut, the file still left
  // after the line.
  const std::string long_comment(300, 'c');
  bytes = Contents("cr");
  bytes.replace(60, 5, long_comment);
  WriteFile(Path("cr"), bytes);
  header.fill('#');
  ASSERT_EQ(Open("cr", KT_CONTROLE_AUCUN, &number, &header), KT_OK);
  EXPECT_EQ(std::string(header.data() + KT_ENTETE_COMMENTAIRE), long_comment.substr(0, 200));
  EXPECT_EQ(KT_usLirePositionFichier(number, &position), KT_OK);
  EXPECT_EQ(position, 60 + 300 + 3);
  EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
}

TEST_F(BinFileFormat, TruncatedHeaderGivesEndOfFile) {
  const std::string line(kExpectedLine);
  for (std::size_t cut : {0u, 3u, 10u, 40u, 59u, 62u}) {
    SCOPED_TRACE(cut);
    WriteFile(Path("f.bin"), line.substr(0, cut));
    uint16_t number = 0;
    const uint16_t us = Open("f.bin", KT_CONTROLE_AUCUN, &number);
    EXPECT_EQ(us, KT_ERR_FIN_FICHIER);
    EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
  }
}

TEST_F(BinFileFormat, HeaderWriteFailureKeepsTheNumber) {
  kt::testing::ArmFault(kt::testing::Fault::kWrite, 0);
  uint16_t number = 0;
  EXPECT_EQ(Create("w", KT_CONTROLE_AUCUN, &number), KT_ERR_FICHIER);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
  kt::testing::ArmFault(kt::testing::Fault::kSeek, 0);
  EXPECT_EQ(Create("w", KT_CONTROLE_AUCUN, &number), KT_ERR_FICHIER);
  EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
  // Later bytes go through the typed writers.
  kt::testing::ArmFault(kt::testing::Fault::kWrite, 5);
  EXPECT_EQ(Create("w", KT_CONTROLE_AUCUN, &number), KT_ERR_FICHIER);
  EXPECT_EQ(KT_usLibererFichierBinaire(number, nullptr), KT_OK);
}

TEST(BinFileCodedLength, CoderWidensAt256And65536And16777216) {
  struct Case {
    uint32_t length;
    std::vector<uint8_t> bytes;
  };
  const Case cases[] = {
      {0, {0x00}},
      {127, {0x7F}},
      {128, {0x81, 0x80}},
      {255, {0x81, 0xFF}},
      {256, {0x82, 0x01, 0x00}},
      {65535, {0x82, 0xFF, 0xFF}},
      {65536, {0x83, 0x01, 0x00, 0x00}},
      {16777215, {0x83, 0xFF, 0xFF, 0xFF}},
      {16777216, {0x84, 0x01, 0x00, 0x00, 0x00}},
      {0xFFFFFFFF, {0x84, 0xFF, 0xFF, 0xFF, 0xFF}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.length);
    std::vector<uint8_t> buffer(8, 0xEE);
    ASSERT_EQ(stCoderLongueur(c.length, buffer.data(), 2), c.bytes.size());
    EXPECT_EQ(std::vector<uint8_t>(buffer.begin() + 2, buffer.begin() + 2 + c.bytes.size()),
              c.bytes);
    EXPECT_EQ(buffer[1], 0xEE);
    EXPECT_EQ(buffer[2 + c.bytes.size()], 0xEE);
  }
}

TEST(BinFileCodedLength, DecoderKeepsItsSignedBytesAndShortCount) {
  uint32_t length = 0;
  uint32_t count = 0;
  const auto b80 = Bytes({0x80});
  EXPECT_EQ(usDecoderLongueur(b80.data(), 1, 0, &length, &count), KT_OK);
  EXPECT_EQ(length, 128u);
  EXPECT_EQ(count, 1u);
  const auto b256 = Bytes({0x82, 0x01, 0x00});
  EXPECT_EQ(usDecoderLongueur(b256.data(), 3, 0, &length, &count), KT_OK);
  EXPECT_EQ(length, 256u);
  EXPECT_EQ(count, 2u);
  // A length byte of 0x80 or more subtracts.
  const auto signed_bytes = Bytes({0x81, 0xFF});
  EXPECT_EQ(usDecoderLongueur(signed_bytes.data(), 2, 0, &length, &count), KT_OK);
  EXPECT_EQ(length, 0xFFFFFFFFu);
  const auto mixed = Bytes({0x82, 0x01, 0x80});
  EXPECT_EQ(usDecoderLongueur(mixed.data(), 3, 0, &length, &count), KT_OK);
  EXPECT_EQ(length, 128u);

  const auto b85 = Bytes({0x85, 0, 0, 0, 0, 0});
  EXPECT_EQ(usDecoderLongueur(b85.data(), 6, 0, &length, &count), KT_ERR_ARGUMENT);
  // The length bytes must end before the buffer does.
  EXPECT_EQ(usDecoderLongueur(b256.data(), 2, 0, &length, &count), KT_ERR_ARGUMENT);
  EXPECT_EQ(usDecoderLongueur(b256.data(), 3, 3, &length, &count), KT_ERR_ARGUMENT);
  EXPECT_EQ(usDecoderLongueur(nullptr, 3, 0, &length, &count), KT_ERR_ARGUMENT);
}

TEST(BinFileHex, DigitsOfEitherCaseAndNothingElse) {
  const std::string digits = "0123456789ABCDEFabcdef";
  const uint16_t values[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10,
                             11, 12, 13, 14, 15, 10, 11, 12, 13, 14, 15};
  for (std::size_t i = 0; i < digits.size(); ++i) EXPECT_EQ(usConvertirHexa(digits[i]), values[i]);
  for (char c : std::string("/:@G`g \x80")) EXPECT_EQ(usConvertirHexa(c), 0xFFFF) << int(c);
}

}  // namespace
}  // namespace kt::test
