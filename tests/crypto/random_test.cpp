// The seeded generator: seeding rule, determinism, the counter's carry rule
// and the construction (output = MD5 of the counter).
#include <gtest/gtest.h>

#include "crypto/crypto_test_util.h"

namespace {

using kt::test::ByteVector;
using kt::test::Hex;

TEST(Random, NeedsTwoHundredFiftySixSeedBytesInAnySplit) {
  R_RandomContext context;
  R_RandomInit(&context);
  unsigned char out[4] = {9, 9, 9, 9};
  EXPECT_EQ(R_GenerateBytes(out, 4, &context), KT_RE_NEED_RANDOM);
  EXPECT_EQ(out[0], 9);
  const unsigned char seed[200] = {1};
  uint32_t needed = 0;
  R_RandomUpdate(&context, seed, 200);
  R_GetRandomBytesNeeded(&needed, &context);
  EXPECT_EQ(needed, 56u);
  R_RandomUpdate(&context, seed, 55);
  EXPECT_EQ(R_GenerateBytes(out, 4, &context), KT_RE_NEED_RANDOM);
  R_RandomUpdate(&context, seed, 100);  // more than needed: saturates at 0
  R_GetRandomBytesNeeded(&needed, &context);
  EXPECT_EQ(needed, 0u);
  EXPECT_EQ(R_GenerateBytes(out, 4, &context), KT_RE_OK);
  R_RandomFinal(&context);
  EXPECT_EQ(context.bytesNeeded, 0u);
  EXPECT_EQ(Hex(context.output, 16), std::string(32, '0'));
}

TEST(Random, SameSeedsGiveTheSameStreamWhateverTheReadLengths) {
  R_RandomContext a = kt::test::SeededRandom(5), b = kt::test::SeededRandom(5);
  ByteVector one(100), two(100);
  R_GenerateBytes(one.data(), 100, &a);
  uint32_t offset = 0;
  for (uint32_t len : {1u, 15u, 16u, 17u, 0u, 3u, 32u}) {
    R_GenerateBytes(two.data() + offset, len, &b);
    offset += len;
  }
  R_GenerateBytes(two.data() + offset, 100 - offset, &b);
  EXPECT_EQ(one, two);
  R_RandomContext c = kt::test::SeededRandom(6);
  R_GenerateBytes(two.data(), 100, &c);
  EXPECT_NE(one, two);
}

TEST(Random, CounterCarriesOutOfAByteThatWasZero) {
  R_RandomContext context = kt::test::SeededRandom(1);
  unsigned char out[16];
  std::memset(context.state, 0, 16);
  context.state[15] = 0xFF;
  context.outputAvailable = 0;
  R_GenerateBytes(out, 16, &context);
  EXPECT_EQ(Hex(context.state, 16), std::string(32, '0'));  // FF -> 00, byte 14 unchanged

  R_GenerateBytes(out, 1, &context);  // all-zero state: every byte carries
  EXPECT_EQ(Hex(context.state, 16), "01010101010101010101010101010101");

  // The block handed out is the MD5 of the counter before it advanced.
  unsigned char expected[16];
  uint32_t len;
  const unsigned char zero[16] = {};
  R_DigestBlock(expected, &len, zero, 16, KT_DA_MD5);
  EXPECT_EQ(out[0], expected[0]);
  EXPECT_EQ(context.outputAvailable, 15u);
}

TEST(Random, UpdateAddsTheSeedDigestToTheStateBigEndian) {
  R_RandomContext context;
  R_RandomInit(&context);
  std::memset(context.state, 0xFF, 16);
  const unsigned char seed[3] = {'a', 'b', 'c'};
  R_RandomUpdate(&context, seed, 3);
  // FF..FF + d = d - 1 modulo 2^128.
  EXPECT_EQ(Hex(context.state, 16), "900150983cd24fb0d6963f7d28e17f71");
}

}  // namespace
