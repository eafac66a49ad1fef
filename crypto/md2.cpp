// MD2 (RFC 1319): 16-byte blocks, a 48-byte work buffer run through 18
// rounds of the PI_SUBST permutation, and a running checksum appended at the
// end. The context is the caller's; Final clears it.
#include <array>

#include "crypto/crypto_internal.h"

namespace kt::crypto {
namespace {

// Permutation of 0..255 built from the digits of pi: PI_SUBST[x] replaces x.
constexpr std::array<unsigned char, 256> PI_SUBST = {
    41,  46,  67,  201, 162, 216, 124, 1,   61,  54,  84,  161, 236, 240, 6,   19,
    98,  167, 5,   243, 192, 199, 115, 140, 152, 147, 43,  217, 188, 76,  130, 202,
    30,  155, 87,  60,  253, 212, 224, 22,  103, 66,  111, 24,  138, 23,  229, 18,
    190, 78,  196, 214, 218, 158, 222, 73,  160, 251, 245, 142, 187, 47,  238, 122,
    169, 104, 121, 145, 21,  178, 7,   63,  148, 194, 16,  137, 11,  34,  95,  33,
    128, 127, 93,  154, 90,  144, 50,  39,  53,  62,  204, 231, 191, 247, 151, 3,
    255, 25,  48,  179, 72,  165, 181, 209, 215, 94,  146, 42,  172, 86,  170, 198,
    79,  184, 56,  210, 150, 164, 125, 182, 118, 252, 107, 226, 156, 116, 4,   241,
    69,  157, 112, 89,  100, 113, 135, 32,  134, 91,  207, 101, 230, 45,  168, 2,
    27,  96,  37,  173, 174, 176, 185, 246, 28,  70,  97,  105, 52,  64,  126, 15,
    85,  71,  163, 35,  221, 81,  175, 58,  195, 92,  249, 206, 186, 197, 234, 38,
    44,  83,  13,  110, 133, 40,  132, 9,   211, 223, 205, 244, 65,  129, 77,  82,
    106, 220, 55,  200, 108, 193, 171, 250, 36,  225, 123, 8,   12,  189, 177, 74,
    120, 136, 149, 139, 227, 99,  232, 109, 233, 203, 213, 254, 59,  0,   29,  57,
    242, 239, 183, 14,  102, 88,  208, 228, 166, 119, 114, 248, 235, 117, 75,  10,
    49,  68,  80,  180, 143, 237, 31,  26,  219, 153, 141, 51,  159, 17,  131, 20};

constexpr bool IsPermutation(const std::array<unsigned char, 256>& table) {
  std::array<bool, 256> seen{};
  for (unsigned char x : table) {
    if (seen[x]) return false;
    seen[x] = true;
  }
  return true;
}
static_assert(IsPermutation(PI_SUBST), "PI_SUBST must be a permutation of 0..255");

// Padding: entry i is i bytes of value i (entry 0 empty, never used).
constexpr std::array<std::array<unsigned char, 16>, 17> kPadding = [] {
  std::array<std::array<unsigned char, 16>, 17> pad{};
  for (unsigned i = 1; i <= 16; ++i) {
    for (unsigned j = 0; j < i; ++j) pad[i][j] = static_cast<unsigned char>(i);
  }
  return pad;
}();

}  // namespace
}  // namespace kt::crypto

static_assert(sizeof(MD2Context) == 52, "MD2Context layout is part of the interface");

/* see kt_crypto.h */
void MD2Init(MD2Context* context) {
  context->count = 0;
  MD2_memset(context->state, 0, sizeof context->state);
  MD2_memset(context->checksum, 0, sizeof context->checksum);
}

/* see kt_crypto.h */
void MD2Update(MD2Context* context, const unsigned char* input, uint32_t inputLen) {
  uint32_t index = context->count;
  context->count = (index + inputLen) & 0xF;
  const uint32_t part_len = 16 - index;
  uint32_t i;
  if (inputLen >= part_len) {
    MD2_memcpy(&context->buffer[index], input, part_len);
    MD2Transform(context->state, context->checksum, context->buffer);
    for (i = part_len; i + 15 < inputLen; i += 16) {
      MD2Transform(context->state, context->checksum, &input[i]);
    }
    index = 0;
  } else {
    i = 0;
  }
  MD2_memcpy(&context->buffer[index], &input[i], inputLen - i);
}

/* see kt_crypto.h */
void MD2Final(unsigned char digest[16], MD2Context* context) {
  const uint32_t pad_len = 16 - context->count;
  MD2Update(context, kt::crypto::kPadding[pad_len].data(), pad_len);
  // The buffer is empty here, so Update copies the checksum before the
  // transform changes it.
  MD2Update(context, context->checksum, 16);
  MD2_memcpy(digest, context->state, 16);
  kt::SecureWipe(context, sizeof *context);
}

/* see kt_crypto.h */
void MD2Transform(unsigned char state[16], unsigned char checksum[16],
                  const unsigned char block[16]) {
  using kt::crypto::PI_SUBST;
  unsigned char x[48];
  kt::WipeOnExit wipe(x);
  for (unsigned i = 0; i < 16; ++i) {
    x[i] = state[i];
    x[i + 16] = block[i];
    x[i + 32] = static_cast<unsigned char>(state[i] ^ block[i]);
  }
  unsigned t = 0;
  for (unsigned i = 0; i < 18; ++i) {
    for (unsigned j = 0; j < 48; ++j) t = x[j] ^= PI_SUBST[t];
    t = (t + i) & 0xFF;
  }
  MD2_memcpy(state, x, 16);
  unsigned l = checksum[15];
  for (unsigned i = 0; i < 16; ++i) l = checksum[i] ^= PI_SUBST[block[i] ^ l];
}

/* see kt_crypto.h */
void MD2_memcpy(unsigned char* output, const unsigned char* input, uint32_t len) {
  for (uint32_t i = 0; i < len; ++i) output[i] = input[i];
}

/* see kt_crypto.h */
void MD2_memset(unsigned char* output, int32_t value, uint32_t len) {
  for (uint32_t i = 0; i < len; ++i) output[i] = static_cast<unsigned char>(value);
}
