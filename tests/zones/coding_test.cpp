#include <cstdint>
#include <string>
#include <tuple>

#include "zones/zone_test_util.h"

namespace {

using namespace kt::test;

class ZoneCoding : public KtTest {};

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

// The decoded length and byte count as "length/count", or the status.
std::string Decode(const ByteVector& bytes, std::uint32_t size, std::uint32_t offset = 0) {
  std::uint32_t length = 0;
  std::uint32_t count = 0;
  const std::uint16_t us = KT_stDecoderLongueur(bytes.data(), size, offset, &length, &count);
  return us != KT_OK ? std::to_string(us) : std::to_string(length) + "/" + std::to_string(count);
}

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
    EXPECT_EQ(Decode(buffer, size + 3, 2), std::to_string(length) + "/" + std::to_string(size));
  }
}

TEST_F(ZoneCoding, DecoderReadsAnyFormThatFitsAndNothingElse) {
  const std::string bad = std::to_string(KT_ERR_CODAGE_ZONE);
  EXPECT_EQ(Decode({0x80}, 1), "128/1");      // the short form of 128, never coded
  EXPECT_EQ(Decode({0x81, 0x05}, 2), "5/2");  // not minimal
  EXPECT_EQ(Decode({0x81, 0xFF, 0x00}, 3), "255/2");
  EXPECT_EQ(Decode({0x82, 0x01, 0x2C}, 2), bad);     // needs a third byte
  EXPECT_EQ(Decode({0x82, 0x01, 0x2C}, 3, 3), bad);  // offsets at or past the end
  EXPECT_EQ(Decode({0x00}, 1, 0xFFFFFFFF), bad);
  for (int first = 0x85; first <= 0xFF; ++first) {
    EXPECT_EQ(Decode(ByteVector(8, static_cast<std::uint8_t>(first)), 8), bad);
  }
  EXPECT_EQ(CaptureTrace({3}, 2,
                         [] {
                           (void)Decode({0x82, 0x01}, 2);
                         }),
            "{ KT_stDecoderLongueur : offset = 0\n"
            "  ERREUR :  Buffer trop petit pour coder la longueur (2) (tailleBuffer = 2).\n"
            "  cr = 0xF810\n}\n");
}

TEST_F(ZoneCoding, GroupHeaders) {
  ByteVector buffer(8, 0);
  std::uint8_t* p = buffer.data();
  EXPECT_EQ(KT_stCoderEnteteGroupe(513, 300, 1, &p), 5u);
  EXPECT_EQ(buffer, Bytes({0, 0x02, 0x01, 0x82, 0x01, 0x2C, 0, 0}));
  std::uint16_t id = 0;
  std::uint32_t length = 0;
  std::uint32_t count = 0;
  EXPECT_EQ(KT_usDecoderEnteteGroupe(buffer.data(), 7, 1, &id, &length, &count), KT_OK);
  EXPECT_EQ(std::tuple(id, length, count), std::tuple(std::uint16_t{513}, 300u, 5u));
  // A header needs three bytes: not from offset size - 2.
  EXPECT_EQ(KT_usDecoderEnteteGroupe(buffer.data(), 5, 3, nullptr, nullptr, nullptr),
            KT_ERR_CODAGE_ZONE);
  // 1 + 3 and 2 + 200 content bytes: 206 needs a 4-byte header.
  EXPECT_EQ(KT_stCalculerTailleGroupe1(2, std::uint32_t{3}, std::uint32_t{200}), 210u);
}

}  // namespace
