// The seeded random generator: a 128-bit counter (state) stirred with the
// MD5 of every seed block, and output blocks that are the MD5 of the counter,
// which then advances. Nothing here gathers entropy: the caller feeds at
// least 256 seed bytes before the first draw. The generator is fully
// deterministic for a given sequence of seed blocks.
#include "crypto/crypto_internal.h"

namespace kt::crypto {
namespace {

constexpr std::uint32_t kSeedBytesNeeded = 256;

void Md5(unsigned char digest[16], const unsigned char* input, std::uint32_t len) {
  MD5Context context;
  MD5Init(&context);
  MD5Update(&context, input, len);
  MD5Final(digest, &context);  // clears the context
}

// state += 1, carrying out of a byte whose old value was 0 rather than one
// that wrapped from FF (intended: it fixes the output stream callers rely on).
void AdvanceCounter(unsigned char state[16]) {
  for (int i = 15; i >= 0; --i) {
    if (state[i]++ != 0) break;
  }
}

}  // namespace
}  // namespace kt::crypto

static_assert(sizeof(R_RandomContext) == 40, "R_RandomContext layout is part of the interface");

/* see kt_crypto.h */
uint32_t R_RandomInit(R_RandomContext* context) {
  context->bytesNeeded = kt::crypto::kSeedBytesNeeded;
  R_memset(context->state, 0, sizeof context->state);
  context->outputAvailable = 0;
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_RandomUpdate(R_RandomContext* context, const unsigned char* block, uint32_t blockLen) {
  unsigned char digest[16];
  kt::WipeOnExit wipe(digest);
  kt::crypto::Md5(digest, block, blockLen);

  // state = state + digest mod 2^128, both big-endian.
  unsigned x = 0;
  for (int i = 15; i >= 0; --i) {
    x += context->state[i] + digest[i];
    context->state[i] = static_cast<unsigned char>(x);
    x >>= 8;
  }
  // Seeding is counted in bytes of input, whatever their quality.
  context->bytesNeeded = blockLen < context->bytesNeeded ? context->bytesNeeded - blockLen : 0;
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_GetRandomBytesNeeded(uint32_t* bytesNeeded, const R_RandomContext* context) {
  *bytesNeeded = context->bytesNeeded;
  return KT_RE_OK;
}

/* see kt_crypto.h */
void R_RandomFinal(R_RandomContext* context) { kt::SecureWipe(context, sizeof *context); }

/* see kt_crypto.h */
uint32_t R_GenerateBytes(unsigned char* output, uint32_t len, R_RandomContext* context) {
  if (context->bytesNeeded != 0) return KT_RE_NEED_RANDOM;
  uint32_t available = context->outputAvailable;
  while (len > available) {
    R_memcpy(output, &context->output[16 - available], available);
    output += available;
    len -= available;
    kt::crypto::Md5(context->output, context->state, 16);
    available = 16;
    kt::crypto::AdvanceCounter(context->state);
  }
  R_memcpy(output, &context->output[16 - available], len);
  context->outputAvailable = available - len;
  return KT_RE_OK;
}
