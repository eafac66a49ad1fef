// The seeded generator: seeding rule, determinism, the counter's carry rule
// and the construction (output = MD5 of the counter).
#include <gtest/gtest.h>

#include "crypto/crypto_test_util.h"

namespace kt::test {
namespace {

TEST(Random, NeedsTwoHundredFiftySixSeedBytesInAnySplit) {
  R_RandomContext context = UnseededRandom();
  unsigned char out[4] = {9, 9, 9, 9};
  EXPECT_EQ(R_GenerateBytes(out, 4, &context), KT_RE_NEED_RANDOM);
  EXPECT_EQ(out[0], 9);
  const unsigned char seed[200] = {1};
  uint32_t needed = 0;
  R_RandomUpdate(&context, seed, 200);
  R_RandomUpdate(&context, seed, 55);
  R_GetRandomBytesNeeded(&needed, &context);
  EXPECT_EQ(needed, 1u);
  EXPECT_EQ(R_GenerateBytes(out, 4, &context), KT_RE_NEED_RANDOM);
  R_RandomUpdate(&context, seed, 100);  // more than needed: saturates at 0
  R_GetRandomBytesNeeded(&needed, &context);
  EXPECT_EQ(needed, 0u);
  EXPECT_EQ(R_GenerateBytes(out, 4, &context), KT_RE_OK);
  R_RandomFinal(&context);
  const auto* bytes = reinterpret_cast<const unsigned char*>(&context);
  EXPECT_EQ(Hex(bytes, sizeof context), std::string(2 * sizeof context, '0'));
}

TEST(Random, SameSeedsGiveTheSameStreamWhateverTheReadLengths) {
  R_RandomContext a = SeededRandom(5), b = SeededRandom(5);
  ByteVector one(100), two(100);
  R_GenerateBytes(one.data(), 100, &a);
  uint32_t offset = 0;
  for (uint32_t len : {1u, 15u, 16u, 17u, 0u, 3u, 32u}) {
    R_GenerateBytes(two.data() + offset, len, &b);
    offset += len;
  }
  R_GenerateBytes(two.data() + offset, 100 - offset, &b);
  EXPECT_EQ(one, two);
}

TEST(Random, CounterCarriesOutOfAByteThatWasZero) {
  R_RandomContext context = SeededRandom(1);
  unsigned char out[16];
  std::memset(context.state, 0, 16);
  context.state[15] = 0xFF;
  context.outputAvailable = 0;
  R_GenerateBytes(out, 16, &context);
  EXPECT_EQ(Hex(context.state, 16), std::string(32, '0'));  // FF -> 00, byte 14 unchanged

  R_GenerateBytes(out, 1, &context);  // all-zero state: every byte carries
  EXPECT_EQ(Hex(context.state, 16), "01010101010101010101010101010101");

  // The block handed out is the MD5 of the counter before it advanced.
  EXPECT_EQ(Hex(context.output, 16), "4ae71336e44bf9bf79d2752e234818a5");
  EXPECT_EQ(out[0], 0x4a);
  EXPECT_EQ(context.outputAvailable, 15u);
}

TEST(Random, UpdateAddsTheSeedDigestToTheStateBigEndian) {
  R_RandomContext context = UnseededRandom();
  std::memset(context.state, 0xFF, 16);
  const unsigned char seed[3] = {'a', 'b', 'c'};
  R_RandomUpdate(&context, seed, 3);
  // FF..FF + d = d - 1 modulo 2^128.
  EXPECT_EQ(Hex(context.state, 16), "900150983cd24fb0d6963f7d28e17f71");
}

}  // namespace
}  // namespace kt::test
