#include <cstdint>
#include <string>

#include "zones/zone_test_util.h"

namespace {

using kt::test::Bytes;
using kt::test::ByteVector;
using kt::test::CaptureTrace;

class ZoneCoding : public kt::test::KtTest {};

// Order: length, coded bytes (their count is the coded size).
const std::pair<std::uint32_t, ByteVector> kLengthKats[] = {
    {0, {0x00}},
    {127, {0x7F}},
    {128, {0x81, 0x80}},
    {254, {0x81, 0xFE}},
    {255, {0x82, 0x00, 0xFF}},
    {300, {0x82, 0x01, 0x2C}},
    {65534, {0x82, 0xFF, 0xFE}},
    {65535, {0x83, 0x00, 0xFF, 0xFF}},
    {0xFFFFFE, {0x83, 0xFF, 0xFF, 0xFE}},
    {0xFFFFFF, {0x84, 0x00, 0xFF, 0xFF, 0xFF}},
    {0xFFFFFFFF, {0x84, 0xFF, 0xFF, 0xFF, 0xFF}},
};

TEST_F(ZoneCoding, EveryBoundarySizesCodesAndDecodesAlike) {
  for (const auto& [length, bytes] : kLengthKats) {
    SCOPED_TRACE(length);
    const auto size = static_cast<std::uint32_t>(bytes.size());
    EXPECT_EQ(KT_stCalculerTailleLongueur(length), size);
    EXPECT_EQ(KT_stCalculerTailleEnteteGroupe(length), size + 2);
    EXPECT_EQ(KT_stCalculerTailleChamp(length), size + length);
    EXPECT_EQ(KT_stCalculerTailleGroupe2(length), size + 2 + length);
    ByteVector buffer(size + 4, 0xAA);
    std::uint8_t* p = buffer.data();
    EXPECT_EQ(KT_stCoderLongueur(length, 2, &p), size);
    EXPECT_EQ(ByteVector(buffer.begin() + 2, buffer.end() - 2), bytes);
    EXPECT_EQ(buffer[size + 2], 0xAA);  // nothing written past the form
    std::uint32_t decoded = 0;
    std::uint32_t count = 0;
    EXPECT_EQ(KT_stDecoderLongueur(buffer.data(), size + 3, 2, &decoded, &count), KT_OK);
    EXPECT_EQ(decoded, length);
    EXPECT_EQ(count, size);
  }
}

TEST_F(ZoneCoding, DecoderReadsAnyFormThatFitsAndNothingElse) {
  std::uint32_t length = 0;
  std::uint32_t count = 0;
  const ByteVector forms = {0x80, 0x81, 0x05, 0x81, 0xFF, 0x00};
  EXPECT_EQ(KT_stDecoderLongueur(forms.data(), 1, 0, &length, &count), KT_OK);
  EXPECT_EQ(length * 10 + count, 1281u);  // the lone 0x80 is 128 in one byte
  EXPECT_EQ(KT_stDecoderLongueur(forms.data(), 6, 1, &length, &count), KT_OK);
  EXPECT_EQ(length * 10 + count, 52u);  // 81 05, not minimal
  EXPECT_EQ(KT_stDecoderLongueur(forms.data(), 6, 3, &length, &count), KT_OK);
  EXPECT_EQ(length, 255u);
  for (int first = 0x85; first <= 0xFF; ++first) {
    const ByteVector bytes(8, static_cast<std::uint8_t>(first));
    EXPECT_EQ(KT_stDecoderLongueur(bytes.data(), 8, 0, &length, &count), KT_ERR_CODAGE_ZONE);
  }
  // 82 01 needs a third byte; offsets at or past the end read nothing.
  const ByteVector truncated = {0x82, 0x01, 0x2C};
  EXPECT_EQ(KT_stDecoderLongueur(truncated.data(), 3, 0, &length, &count), KT_OK);
  EXPECT_EQ(KT_stDecoderLongueur(truncated.data(), 3, 3, &length, &count), KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(KT_stDecoderLongueur(truncated.data(), 3, 0xFFFFFFFF, &length, &count),
            KT_ERR_CODAGE_ZONE);
  std::uint16_t us = 0;
  const std::string trace = CaptureTrace({3}, 2, [&] {
    us = KT_stDecoderLongueur(truncated.data(), 2, 0, &length, &count);
    us |= KT_stDecoderLongueur(forms.data() + 1, 1, 0, &length, &count);
    us |= KT_stDecoderLongueur(Bytes({0xFF}).data(), 1, 0, &length, &count);
  });
  EXPECT_EQ(us, KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(trace,
            "{ KT_stDecoderLongueur : offset = 0\n"
            "  ERREUR :  Buffer trop petit pour coder la longueur (2) (tailleBuffer = 2).\n"
            "  cr = 0xF810\n}\n"
            "{ KT_stDecoderLongueur : offset = 0\n"
            "  ERREUR :  Buffer trop petit pour coder la longueur (1) (tailleBuffer = 1).\n"
            "  cr = 0xF810\n}\n"
            "{ KT_stDecoderLongueur : offset = 0\n"
            "  ERREUR :  Nombre d'octets pour coder la longueur (127) > 4.\n"
            "  cr = 0xF810\n}\n");
}

TEST_F(ZoneCoding, GroupHeaders) {
  ByteVector buffer(8, 0);
  std::uint8_t* p = buffer.data();
  std::string trace =
      CaptureTrace({3}, 2, [&] { EXPECT_EQ(KT_stCoderEnteteGroupe(513, 300, 1, &p), 5u); });
  EXPECT_EQ(buffer, Bytes({0, 0x02, 0x01, 0x82, 0x01, 0x2C, 0, 0}));
  EXPECT_EQ(trace,
            "{ KT_stCoderEnteteGroupe : identifiant = 513, longueur = 300, offset = 1\n"
            "  { KT_stCoderLongueur : longueur = 300, offset = 3\n"
            "    nbOctets = 3\n  }\n  nbOctets = 5\n}\n");
  std::uint16_t id = 0;
  std::uint32_t length = 0;
  std::uint32_t count = 0;
  EXPECT_EQ(KT_usDecoderEnteteGroupe(buffer.data(), 7, 1, &id, &length, &count), KT_OK);
  EXPECT_EQ(id, 513);
  EXPECT_EQ(length, 300u);
  EXPECT_EQ(count, 5u);
  // A header needs three bytes: not from offset size - 2.
  trace = CaptureTrace({3}, 2, [&] {
    EXPECT_EQ(KT_usDecoderEnteteGroupe(buffer.data(), 5, 3, &id, &length, &count),
              KT_ERR_CODAGE_ZONE);
  });
  EXPECT_EQ(trace, "ERREUR : Buffer trop petit pour coder l'identifiant (tailleBuffer = 5).\n");
  // 1 + 3 and 2 + 200 content bytes: 206 needs a 4-byte header.
  EXPECT_EQ(KT_stCalculerTailleGroupe1(2, std::uint32_t{3}, std::uint32_t{200}), 210u);
  EXPECT_EQ(KT_stCalculerTailleGroupe1(0), 3u);
}

}  // namespace
