// MD5 (RFC 1321): 64-byte blocks read as sixteen little-endian words, four
// rounds of sixteen steps written out in full, a 64-bit bit count. Byte order
// is converted explicitly (Encode, Decode), never by casting a buffer. Whole
// blocks are hashed straight from the caller's input; the word copy of the
// input is cleared once per call rather than once per block.
#include <cstddef>

#include "crypto/crypto_internal.h"

namespace kt::crypto {
namespace {

// 0x80 then zeros: the first padding byte sets the bit after the message.
constexpr unsigned char kPadding[64] = {0x80};

inline std::uint32_t Rotl(std::uint32_t x, unsigned n) { return (x << n) | (x >> (32 - n)); }

inline std::uint32_t LoadLittleEndian32(const unsigned char* p) {
  return std::uint32_t{p[0]} | (std::uint32_t{p[1]} << 8) | (std::uint32_t{p[2]} << 16) |
         (std::uint32_t{p[3]} << 24);
}

// The four auxiliary functions, in forms that keep the newest word (x) on a
// short dependency path. F equals (x & y) | (~x & z); G's two terms are
// disjoint, so adding them equals (x & z) | (y & ~z), and y & ~z can start
// before x is known.
#define KT_MD5_F(x, y, z) ((((y) ^ (z)) & (x)) ^ (z))
#define KT_MD5_G(x, y, z) (((x) & (z)) + ((y) & ~(z)))
#define KT_MD5_H(x, y, z) ((x) ^ ((y) ^ (z)))
#define KT_MD5_I(x, y, z) ((y) ^ ((x) | ~(z)))
#define KT_MD5_STEP(f, a, b, c, d, x, s, ac) \
  (a) = Rotl((a) + f((b), (c), (d)) + (x) + std::uint32_t{ac}, (s)) + (b)

// One compression over sixteen decoded words.
inline void Compress(std::uint32_t state[4], const std::uint32_t x[16]) {
  std::uint32_t a = state[0], b = state[1], c = state[2], d = state[3];

  KT_MD5_STEP(KT_MD5_F, a, b, c, d, x[0], 7, 0xd76aa478);
  KT_MD5_STEP(KT_MD5_F, d, a, b, c, x[1], 12, 0xe8c7b756);
  KT_MD5_STEP(KT_MD5_F, c, d, a, b, x[2], 17, 0x242070db);
  KT_MD5_STEP(KT_MD5_F, b, c, d, a, x[3], 22, 0xc1bdceee);
  KT_MD5_STEP(KT_MD5_F, a, b, c, d, x[4], 7, 0xf57c0faf);
  KT_MD5_STEP(KT_MD5_F, d, a, b, c, x[5], 12, 0x4787c62a);
  KT_MD5_STEP(KT_MD5_F, c, d, a, b, x[6], 17, 0xa8304613);
  KT_MD5_STEP(KT_MD5_F, b, c, d, a, x[7], 22, 0xfd469501);
  KT_MD5_STEP(KT_MD5_F, a, b, c, d, x[8], 7, 0x698098d8);
  KT_MD5_STEP(KT_MD5_F, d, a, b, c, x[9], 12, 0x8b44f7af);
  KT_MD5_STEP(KT_MD5_F, c, d, a, b, x[10], 17, 0xffff5bb1);
  KT_MD5_STEP(KT_MD5_F, b, c, d, a, x[11], 22, 0x895cd7be);
  KT_MD5_STEP(KT_MD5_F, a, b, c, d, x[12], 7, 0x6b901122);
  KT_MD5_STEP(KT_MD5_F, d, a, b, c, x[13], 12, 0xfd987193);
  KT_MD5_STEP(KT_MD5_F, c, d, a, b, x[14], 17, 0xa679438e);
  KT_MD5_STEP(KT_MD5_F, b, c, d, a, x[15], 22, 0x49b40821);

  KT_MD5_STEP(KT_MD5_G, a, b, c, d, x[1], 5, 0xf61e2562);
  KT_MD5_STEP(KT_MD5_G, d, a, b, c, x[6], 9, 0xc040b340);
  KT_MD5_STEP(KT_MD5_G, c, d, a, b, x[11], 14, 0x265e5a51);
  KT_MD5_STEP(KT_MD5_G, b, c, d, a, x[0], 20, 0xe9b6c7aa);
  KT_MD5_STEP(KT_MD5_G, a, b, c, d, x[5], 5, 0xd62f105d);
  KT_MD5_STEP(KT_MD5_G, d, a, b, c, x[10], 9, 0x02441453);
  KT_MD5_STEP(KT_MD5_G, c, d, a, b, x[15], 14, 0xd8a1e681);
  KT_MD5_STEP(KT_MD5_G, b, c, d, a, x[4], 20, 0xe7d3fbc8);
  KT_MD5_STEP(KT_MD5_G, a, b, c, d, x[9], 5, 0x21e1cde6);
  KT_MD5_STEP(KT_MD5_G, d, a, b, c, x[14], 9, 0xc33707d6);
  KT_MD5_STEP(KT_MD5_G, c, d, a, b, x[3], 14, 0xf4d50d87);
  KT_MD5_STEP(KT_MD5_G, b, c, d, a, x[8], 20, 0x455a14ed);
  KT_MD5_STEP(KT_MD5_G, a, b, c, d, x[13], 5, 0xa9e3e905);
  KT_MD5_STEP(KT_MD5_G, d, a, b, c, x[2], 9, 0xfcefa3f8);
  KT_MD5_STEP(KT_MD5_G, c, d, a, b, x[7], 14, 0x676f02d9);
  KT_MD5_STEP(KT_MD5_G, b, c, d, a, x[12], 20, 0x8d2a4c8a);

  KT_MD5_STEP(KT_MD5_H, a, b, c, d, x[5], 4, 0xfffa3942);
  KT_MD5_STEP(KT_MD5_H, d, a, b, c, x[8], 11, 0x8771f681);
  KT_MD5_STEP(KT_MD5_H, c, d, a, b, x[11], 16, 0x6d9d6122);
  KT_MD5_STEP(KT_MD5_H, b, c, d, a, x[14], 23, 0xfde5380c);
  KT_MD5_STEP(KT_MD5_H, a, b, c, d, x[1], 4, 0xa4beea44);
  KT_MD5_STEP(KT_MD5_H, d, a, b, c, x[4], 11, 0x4bdecfa9);
  KT_MD5_STEP(KT_MD5_H, c, d, a, b, x[7], 16, 0xf6bb4b60);
  KT_MD5_STEP(KT_MD5_H, b, c, d, a, x[10], 23, 0xbebfbc70);
  KT_MD5_STEP(KT_MD5_H, a, b, c, d, x[13], 4, 0x289b7ec6);
  KT_MD5_STEP(KT_MD5_H, d, a, b, c, x[0], 11, 0xeaa127fa);
  KT_MD5_STEP(KT_MD5_H, c, d, a, b, x[3], 16, 0xd4ef3085);
  KT_MD5_STEP(KT_MD5_H, b, c, d, a, x[6], 23, 0x04881d05);
  KT_MD5_STEP(KT_MD5_H, a, b, c, d, x[9], 4, 0xd9d4d039);
  KT_MD5_STEP(KT_MD5_H, d, a, b, c, x[12], 11, 0xe6db99e5);
  KT_MD5_STEP(KT_MD5_H, c, d, a, b, x[15], 16, 0x1fa27cf8);
  KT_MD5_STEP(KT_MD5_H, b, c, d, a, x[2], 23, 0xc4ac5665);

  KT_MD5_STEP(KT_MD5_I, a, b, c, d, x[0], 6, 0xf4292244);
  KT_MD5_STEP(KT_MD5_I, d, a, b, c, x[7], 10, 0x432aff97);
  KT_MD5_STEP(KT_MD5_I, c, d, a, b, x[14], 15, 0xab9423a7);
  KT_MD5_STEP(KT_MD5_I, b, c, d, a, x[5], 21, 0xfc93a039);
  KT_MD5_STEP(KT_MD5_I, a, b, c, d, x[12], 6, 0x655b59c3);
  KT_MD5_STEP(KT_MD5_I, d, a, b, c, x[3], 10, 0x8f0ccc92);
  KT_MD5_STEP(KT_MD5_I, c, d, a, b, x[10], 15, 0xffeff47d);
  KT_MD5_STEP(KT_MD5_I, b, c, d, a, x[1], 21, 0x85845dd1);
  KT_MD5_STEP(KT_MD5_I, a, b, c, d, x[8], 6, 0x6fa87e4f);
  KT_MD5_STEP(KT_MD5_I, d, a, b, c, x[15], 10, 0xfe2ce6e0);
  KT_MD5_STEP(KT_MD5_I, c, d, a, b, x[6], 15, 0xa3014314);
  KT_MD5_STEP(KT_MD5_I, b, c, d, a, x[13], 21, 0x4e0811a1);
  KT_MD5_STEP(KT_MD5_I, a, b, c, d, x[4], 6, 0xf7537e82);
  KT_MD5_STEP(KT_MD5_I, d, a, b, c, x[11], 10, 0xbd3af235);
  KT_MD5_STEP(KT_MD5_I, c, d, a, b, x[2], 15, 0x2ad7d2bb);
  KT_MD5_STEP(KT_MD5_I, b, c, d, a, x[9], 21, 0xeb86d391);

  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

#undef KT_MD5_F
#undef KT_MD5_G
#undef KT_MD5_H
#undef KT_MD5_I
#undef KT_MD5_STEP

// Hashes `blocks` consecutive 64-byte blocks with one word buffer, cleared
// once at the end.
void TransformBlocks(std::uint32_t state[4], const unsigned char* input, std::size_t blocks) {
  std::uint32_t x[16];
  kt::WipeOnExit wipe(x);
  for (; blocks != 0; --blocks, input += 64) {
    for (unsigned i = 0; i < 16; ++i) x[i] = LoadLittleEndian32(&input[4 * i]);
    Compress(state, x);
  }
}

}  // namespace
}  // namespace kt::crypto

static_assert(sizeof(MD5Context) == 88, "MD5Context layout is part of the interface");

/* see kt_crypto.h */
void MD5Init(MD5Context* context) {
  context->count[0] = context->count[1] = 0;
  context->state[0] = 0x67452301;
  context->state[1] = 0xefcdab89;
  context->state[2] = 0x98badcfe;
  context->state[3] = 0x10325476;
}

/* see kt_crypto.h */
void MD5Update(MD5Context* context, const unsigned char* input, uint32_t inputLen) {
  uint32_t index = (context->count[0] >> 3) & 0x3F;
  const uint32_t added_bits = inputLen << 3;  // modulo 2^32; the high part follows
  if ((context->count[0] += added_bits) < added_bits) ++context->count[1];
  context->count[1] += inputLen >> 29;

  const uint32_t part_len = 64 - index;
  uint32_t i;
  if (inputLen >= part_len) {
    MD5_memcpy(&context->buffer[index], input, part_len);
    MD5Transform(context->state, context->buffer);
    const uint32_t whole = (inputLen - part_len) / 64;
    kt::crypto::TransformBlocks(context->state, &input[part_len], whole);
    i = part_len + 64 * whole;
    index = 0;
  } else {
    i = 0;
  }
  MD5_memcpy(&context->buffer[index], &input[i], inputLen - i);
}

/* see kt_crypto.h */
void MD5Final(unsigned char digest[16], MD5Context* context) {
  unsigned char bits[8];
  Encode(bits, context->count, 8);
  const uint32_t index = (context->count[0] >> 3) & 0x3F;
  const uint32_t pad_len = index < 56 ? 56 - index : 120 - index;
  MD5Update(context, kt::crypto::kPadding, pad_len);
  MD5Update(context, bits, 8);
  Encode(digest, context->state, 16);
  kt::SecureWipe(context, sizeof *context);
}

/* see kt_crypto.h */
void MD5Transform(uint32_t state[4], const unsigned char block[64]) {
  kt::crypto::TransformBlocks(state, block, 1);
}

/* see kt_crypto.h */
void Encode(unsigned char* output, const uint32_t* input, uint32_t len) {
  for (uint32_t i = 0, j = 0; len - j >= 4; ++i, j += 4) {
    output[j] = static_cast<unsigned char>(input[i]);
    output[j + 1] = static_cast<unsigned char>(input[i] >> 8);
    output[j + 2] = static_cast<unsigned char>(input[i] >> 16);
    output[j + 3] = static_cast<unsigned char>(input[i] >> 24);
  }
}

/* see kt_crypto.h */
void Decode(uint32_t* output, const unsigned char* input, uint32_t len) {
  for (uint32_t i = 0, j = 0; len - j >= 4; ++i, j += 4) {
    output[i] = kt::crypto::LoadLittleEndian32(&input[j]);
  }
}

/* see kt_crypto.h */
void MD5_memcpy(unsigned char* output, const unsigned char* input, uint32_t len) {
  for (uint32_t i = 0; i < len; ++i) output[i] = input[i];
}

/* see kt_crypto.h */
void MD5_memset(unsigned char* output, int32_t value, uint32_t len) {
  for (uint32_t i = 0; i < len; ++i) output[i] = static_cast<unsigned char>(value);
}
