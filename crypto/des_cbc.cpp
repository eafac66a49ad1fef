// DES, DESX and triple DES (EDE) in cipher-block-chaining mode. Blocks, IVs
// and whiteners are held as two big-endian words (Pack/Unpack), so host byte
// order never shows. Update takes whole blocks only; Restart rewinds the
// chaining value to the IV given at Init.
#include "crypto/crypto_internal.h"

namespace kt::crypto {
namespace {

constexpr std::uint32_t kNoWhitener[2] = {0, 0};

// Sets the chaining value and the copy that Restart brings back.
void StartChain(std::uint32_t iv[2], std::uint32_t original_iv[2], const unsigned char* bytes) {
  Pack(iv, bytes);
  original_iv[0] = iv[0];
  original_iv[1] = iv[1];
}

void Rewind(std::uint32_t iv[2], const std::uint32_t original_iv[2]) {
  iv[0] = original_iv[0];
  iv[1] = original_iv[1];
}

// CBC over whole blocks. `cipher` runs the block function(s) in place on two
// words, `cipher2` on two blocks at once; DESX adds its whiteners around it
// (zero for the other ciphers). Decryption does not chain through the block
// function, so it takes blocks in pairs to overlap their rounds. Both blocks
// of a pair are read before either is written, so output may equal input.
template <class Cipher, class Cipher2>
std::uint32_t CbcUpdate(std::uint32_t iv[2], std::int32_t encrypt, const std::uint32_t in_white[2],
                        const std::uint32_t out_white[2], unsigned char* output,
                        const unsigned char* input, std::uint32_t len, Cipher cipher,
                        Cipher2 cipher2) {
  if (len % 8 != 0) return KT_RE_LEN;
  std::uint32_t input_block[2], work[2], input_next[2], work_next[2];
  kt::WipeOnExit wipe(input_block, work, input_next, work_next);
  std::uint32_t i = 0;
  if (encrypt) {
    for (; i < len; i += 8) {
      Pack(input_block, &input[i]);
      work[0] = input_block[0] ^ iv[0] ^ in_white[0];
      work[1] = input_block[1] ^ iv[1] ^ in_white[1];
      cipher(work);
      work[0] ^= out_white[0];
      work[1] ^= out_white[1];
      iv[0] = work[0];
      iv[1] = work[1];
      Unpack(&output[i], work);
    }
    return KT_RE_OK;
  }
  for (; len - i >= 16; i += 16) {
    Pack(input_block, &input[i]);
    Pack(input_next, &input[i + 8]);
    work[0] = input_block[0] ^ out_white[0];
    work[1] = input_block[1] ^ out_white[1];
    work_next[0] = input_next[0] ^ out_white[0];
    work_next[1] = input_next[1] ^ out_white[1];
    cipher2(work, work_next);
    work[0] ^= iv[0] ^ in_white[0];
    work[1] ^= iv[1] ^ in_white[1];
    work_next[0] ^= input_block[0] ^ in_white[0];
    work_next[1] ^= input_block[1] ^ in_white[1];
    iv[0] = input_next[0];
    iv[1] = input_next[1];
    Unpack(&output[i], work);
    Unpack(&output[i + 8], work_next);
  }
  if (i < len) {
    Pack(input_block, &input[i]);
    work[0] = input_block[0] ^ out_white[0];
    work[1] = input_block[1] ^ out_white[1];
    cipher(work);
    work[0] ^= iv[0] ^ in_white[0];
    work[1] ^= iv[1] ^ in_white[1];
    iv[0] = input_block[0];
    iv[1] = input_block[1];
    Unpack(&output[i], work);
  }
  return KT_RE_OK;
}

}  // namespace
}  // namespace kt::crypto

static_assert(sizeof(DESContext) == 148, "DESContext layout is part of the interface");
static_assert(sizeof(DESXContext) == 164, "DESXContext layout is part of the interface");
static_assert(sizeof(DES3Context) == 404, "DES3Context layout is part of the interface");

/* see kt_crypto.h */
void DES_CBCInit(DESContext* context, const unsigned char* key, const unsigned char* iv,
                 int32_t encrypt) {
  DESKey(context->subkeys, key, encrypt);
  kt::crypto::StartChain(context->iv, context->originalIV, iv);
  context->encrypt = encrypt;
}

/* see kt_crypto.h */
uint32_t DES_CBCUpdate(DESContext* context, unsigned char* output, const unsigned char* input,
                       uint32_t len) {
  const uint32_t* keys = context->subkeys;
  return kt::crypto::CbcUpdate(
      context->iv, context->encrypt, kt::crypto::kNoWhitener, kt::crypto::kNoWhitener, output,
      input, len, [keys](uint32_t block[2]) { DESFunction(block, keys); },
      [keys](uint32_t a[2], uint32_t b[2]) { kt::crypto::DESFunction2(a, b, keys); });
}

/* see kt_crypto.h */
void DES_CBCRestart(DESContext* context) { kt::crypto::Rewind(context->iv, context->originalIV); }

/* see kt_crypto.h */
void DESX_CBCInit(DESXContext* context, const unsigned char* key, const unsigned char* iv,
                  int32_t encrypt) {
  DESKey(context->subkeys, key, encrypt);
  Pack(context->inputWhitener, &key[8]);
  Pack(context->outputWhitener, &key[16]);
  kt::crypto::StartChain(context->iv, context->originalIV, iv);
  context->encrypt = encrypt;
}

/* see kt_crypto.h */
uint32_t DESX_CBCUpdate(DESXContext* context, unsigned char* output, const unsigned char* input,
                        uint32_t len) {
  const uint32_t* keys = context->subkeys;
  return kt::crypto::CbcUpdate(
      context->iv, context->encrypt, context->inputWhitener, context->outputWhitener, output, input,
      len, [keys](uint32_t block[2]) { DESFunction(block, keys); },
      [keys](uint32_t a[2], uint32_t b[2]) { kt::crypto::DESFunction2(a, b, keys); });
}

/* see kt_crypto.h */
void DESX_CBCRestart(DESXContext* context) { kt::crypto::Rewind(context->iv, context->originalIV); }

/* see kt_crypto.h */
void DES3_CBCInit(DES3Context* context, const unsigned char* key, const unsigned char* iv,
                  int32_t encrypt) {
  // Encrypt-decrypt-encrypt; decryption runs the keys backwards.
  if (encrypt) {
    DESKey(context->subkeys[0], &key[0], 1);
    DESKey(context->subkeys[1], &key[8], 0);
    DESKey(context->subkeys[2], &key[16], 1);
  } else {
    DESKey(context->subkeys[0], &key[16], 0);
    DESKey(context->subkeys[1], &key[8], 1);
    DESKey(context->subkeys[2], &key[0], 0);
  }
  kt::crypto::StartChain(context->iv, context->originalIV, iv);
  context->encrypt = encrypt;
}

/* see kt_crypto.h */
uint32_t DES3_CBCUpdate(DES3Context* context, unsigned char* output, const unsigned char* input,
                        uint32_t len) {
  const auto& keys = context->subkeys;
  return kt::crypto::CbcUpdate(
      context->iv, context->encrypt, kt::crypto::kNoWhitener, kt::crypto::kNoWhitener, output,
      input, len,
      [&keys](uint32_t block[2]) {
        DESFunction(block, keys[0]);
        DESFunction(block, keys[1]);
        DESFunction(block, keys[2]);
      },
      [&keys](uint32_t a[2], uint32_t b[2]) {
        kt::crypto::DESFunction2(a, b, keys[0]);
        kt::crypto::DESFunction2(a, b, keys[1]);
        kt::crypto::DESFunction2(a, b, keys[2]);
      });
}

/* see kt_crypto.h */
void DES3_CBCRestart(DES3Context* context) { kt::crypto::Rewind(context->iv, context->originalIV); }
