// Digital envelopes: content encrypted in CBC mode under a fresh key of the
// DES family, that key RSA-encrypted (PKCS #1 type 2) for each recipient.
// Content is padded PKCS #5 style: 1 to 8 bytes, each holding the pad
// length. Sealing encrypts every completed block at once; opening holds the
// last block back until Final, which checks and strips the padding.
#include <array>

#include "crypto/crypto_internal.h"

namespace kt::crypto {
namespace {

constexpr std::uint32_t kBlockLen = 8;
constexpr std::uint32_t kDesKeyLen = 8;
constexpr std::uint32_t kLongKeyLen = 24;

// Padding strings: entry i is i bytes of value i (entry 0 empty).
constexpr std::array<std::array<unsigned char, kBlockLen>, kBlockLen + 1> kPadding = [] {
  std::array<std::array<unsigned char, kBlockLen>, kBlockLen + 1> pad{};
  for (unsigned i = 1; i <= kBlockLen; ++i) {
    for (unsigned j = 0; j < i; ++j) pad[i][j] = static_cast<unsigned char>(i);
  }
  return pad;
}();

std::uint32_t KeyLen(std::int32_t algorithm) {
  return algorithm == KT_EA_DES_CBC ? kDesKeyLen : kLongKeyLen;
}

// Runs the cipher over what completes whole blocks: the pending block first,
// then the whole blocks of the rest straight from the input, keeping the
// tail in the buffer. With `hold_back` 1 at least one byte always stays
// behind (opening); with 0 the buffer may end empty (sealing).
std::uint32_t UpdateBlocks(R_EnvelopeContext* context, unsigned char* part_out,
                           std::uint32_t* part_out_len, const unsigned char* part_in,
                           std::uint32_t part_in_len, std::uint32_t hold_back) {
  const std::uint32_t room = kBlockLen - context->bufferLen;
  if (part_in_len < room + hold_back) {
    R_memcpy(&context->buffer[context->bufferLen], part_in, part_in_len);
    context->bufferLen += part_in_len;
    *part_out_len = 0;
    return KT_RE_OK;
  }
  R_memcpy(&context->buffer[context->bufferLen], part_in, room);
  std::uint32_t status = CipherUpdate(context, part_out, context->buffer, kBlockLen);
  if (status != KT_RE_OK) return status;
  part_in += room;
  part_in_len -= room;
  const std::uint32_t whole = kBlockLen * ((part_in_len - hold_back) / kBlockLen);
  status = CipherUpdate(context, &part_out[kBlockLen], part_in, whole);
  if (status != KT_RE_OK) return status;
  *part_out_len = whole + kBlockLen;
  context->bufferLen = part_in_len - whole;
  R_memcpy(context->buffer, &part_in[whole], context->bufferLen);
  return KT_RE_OK;
}

}  // namespace
}  // namespace kt::crypto

static_assert(sizeof(R_EnvelopeContext) == 420, "R_EnvelopeContext layout is part of the interface");

using kt::WipeOnExit;
using kt::crypto::kBlockLen;
using kt::crypto::kMaxModulusLen;

/* see kt_crypto.h */
uint32_t CipherInit(R_EnvelopeContext* context, int32_t encryptionAlgorithm,
                    const unsigned char* key, const unsigned char* iv, int32_t encrypt) {
  // Update and Restart dispatch on the context, which callers may reach
  // without R_SealInit or R_OpenInit.
  context->encryptionAlgorithm = encryptionAlgorithm;
  switch (encryptionAlgorithm) {
    case KT_EA_DES_CBC:
      DES_CBCInit(&context->cipherContext.des, key, iv, encrypt);
      return KT_RE_OK;
    case KT_EA_DES_EDE2_CBC:
    case KT_EA_DES_EDE3_CBC:
      DES3_CBCInit(&context->cipherContext.des3, key, iv, encrypt);
      return KT_RE_OK;
    case KT_EA_DESX_CBC:
      DESX_CBCInit(&context->cipherContext.desx, key, iv, encrypt);
      return KT_RE_OK;
    default:
      return KT_RE_ENCRYPTION_ALGORITHM;
  }
}

/* see kt_crypto.h */
uint32_t CipherUpdate(R_EnvelopeContext* context, unsigned char* output,
                      const unsigned char* input, uint32_t len) {
  switch (context->encryptionAlgorithm) {
    case KT_EA_DES_CBC:
      return DES_CBCUpdate(&context->cipherContext.des, output, input, len);
    case KT_EA_DES_EDE2_CBC:
    case KT_EA_DES_EDE3_CBC:
      return DES3_CBCUpdate(&context->cipherContext.des3, output, input, len);
    case KT_EA_DESX_CBC:
      return DESX_CBCUpdate(&context->cipherContext.desx, output, input, len);
    default:
      return KT_RE_ENCRYPTION_ALGORITHM;
  }
}

/* see kt_crypto.h */
void CipherRestart(R_EnvelopeContext* context) {
  switch (context->encryptionAlgorithm) {
    case KT_EA_DES_CBC:
      DES_CBCRestart(&context->cipherContext.des);
      break;
    case KT_EA_DES_EDE2_CBC:
    case KT_EA_DES_EDE3_CBC:
      DES3_CBCRestart(&context->cipherContext.des3);
      break;
    case KT_EA_DESX_CBC:
      DESX_CBCRestart(&context->cipherContext.desx);
      break;
    default:
      break;
  }
}

/* see kt_crypto.h */
uint32_t R_SealInit(R_EnvelopeContext* context, unsigned char** encryptedKeys,
                    uint32_t* encryptedKeyLens, unsigned char iv[8], uint32_t publicKeyCount,
                    R_RSAPublicKey** publicKeys, int32_t encryptionAlgorithm,
                    R_RandomContext* randomContext) {
  context->encryptionAlgorithm = encryptionAlgorithm;
  const uint32_t key_len = kt::crypto::KeyLen(encryptionAlgorithm);
  unsigned char key[kt::crypto::kLongKeyLen];
  WipeOnExit wipe(key);

  uint32_t status = R_GenerateBytes(key, key_len, randomContext);
  if (status == KT_RE_OK) status = R_GenerateBytes(iv, kBlockLen, randomContext);
  if (status != KT_RE_OK) return status;
  // Two-key triple DES is three-key triple DES with K3 = K1.
  if (encryptionAlgorithm == KT_EA_DES_EDE2_CBC) R_memcpy(&key[16], key, 8);
  // An unknown algorithm fails only here, after the draws (kept).
  status = CipherInit(context, encryptionAlgorithm, key, iv, 1);
  if (status != KT_RE_OK) return status;

  for (uint32_t i = 0; i < publicKeyCount; ++i) {
    if (RSAPublicEncrypt(encryptedKeys[i], &encryptedKeyLens[i], key, key_len, publicKeys[i],
                         randomContext) != KT_RE_OK) {
      return KT_RE_PUBLIC_KEY;
    }
  }
  context->bufferLen = 0;
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_SealUpdate(R_EnvelopeContext* context, unsigned char* partOut, uint32_t* partOutLen,
                      const unsigned char* partIn, uint32_t partInLen) {
  return kt::crypto::UpdateBlocks(context, partOut, partOutLen, partIn, partInLen, 0);
}

/* see kt_crypto.h */
uint32_t R_SealFinal(R_EnvelopeContext* context, unsigned char* partOut, uint32_t* partOutLen) {
  const uint32_t pad_len = kBlockLen - context->bufferLen;
  R_memset(&context->buffer[context->bufferLen], static_cast<int32_t>(pad_len), pad_len);
  const uint32_t status = CipherUpdate(context, partOut, context->buffer, kBlockLen);
  kt::SecureWipe(context->buffer, sizeof context->buffer);  // the content's tail
  if (status != KT_RE_OK) return status;
  *partOutLen = kBlockLen;
  // Back to the original IV: the same key and IV can seal another message.
  CipherRestart(context);
  context->bufferLen = 0;
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_OpenInit(R_EnvelopeContext* context, int32_t encryptionAlgorithm,
                    const unsigned char* encryptedKey, uint32_t encryptedKeyLen,
                    const unsigned char iv[8], const R_RSAPrivateKey* privateKey) {
  if (encryptedKeyLen > kMaxModulusLen) return KT_RE_LEN;
  context->encryptionAlgorithm = encryptionAlgorithm;
  unsigned char key[kMaxModulusLen];
  uint32_t key_len = 0;
  WipeOnExit wipe(key);
  if (RSAPrivateDecrypt(key, &key_len, encryptedKey, encryptedKeyLen, privateKey) != KT_RE_OK ||
      key_len != kt::crypto::KeyLen(encryptionAlgorithm)) {
    return KT_RE_PRIVATE_KEY;
  }
  const uint32_t status = CipherInit(context, encryptionAlgorithm, key, iv, 0);
  if (status != KT_RE_OK) return status;
  context->bufferLen = 0;
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_OpenUpdate(R_EnvelopeContext* context, unsigned char* partOut, uint32_t* partOutLen,
                      const unsigned char* partIn, uint32_t partInLen) {
  // The last 1 to 8 bytes stay in the buffer so that Final can strip the
  // padding (intended even when the input ends on a block boundary).
  return kt::crypto::UpdateBlocks(context, partOut, partOutLen, partIn, partInLen, 1);
}

/* see kt_crypto.h */
uint32_t R_OpenFinal(R_EnvelopeContext* context, unsigned char* partOut, uint32_t* partOutLen) {
  if (context->bufferLen == 0) {
    // An empty cryptogram opens to nothing (accepted as it is).
    *partOutLen = 0;
    CipherRestart(context);
    return KT_RE_OK;
  }
  if (context->bufferLen != kBlockLen) return KT_RE_CONTENT;
  unsigned char last[kBlockLen];
  WipeOnExit wipe(last);
  const uint32_t status = CipherUpdate(context, last, context->buffer, kBlockLen);
  if (status != KT_RE_OK) return status;
  const uint32_t pad_len = last[kBlockLen - 1];
  if (pad_len == 0 || pad_len > kBlockLen ||
      R_memcmp(&last[kBlockLen - pad_len], kt::crypto::kPadding[pad_len].data(), pad_len) != 0) {
    return KT_RE_CONTENT;
  }
  *partOutLen = kBlockLen - pad_len;
  R_memcpy(partOut, last, *partOutLen);
  CipherRestart(context);
  context->bufferLen = 0;
  return KT_RE_OK;
}
