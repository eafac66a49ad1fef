// One-call helpers that sign, verify, seal and open whole blocks in
// printable form. Envelope content goes through the printable coder in
// pieces of 24 bytes (32 characters), so that the envelope's pending buffer
// is empty at every piece boundary. Printable inputs come from outside:
// their lengths are bounded before decoding, and the fixed buffers they
// decode into have room for the longest text those bounds let through.
#include "crypto/crypto_internal.h"

namespace kt::crypto {
namespace {

constexpr std::uint32_t kPiece = 24;         // content bytes per printable piece
constexpr std::uint32_t kPieceChars = 32;    // characters per piece
constexpr std::uint32_t kMaxPemSignature = KT_MAX_PEM_SIGNATURE_LEN;
constexpr std::uint32_t kMaxPemEncryptedKey = KT_MAX_PEM_ENCRYPTED_KEY_LEN;
constexpr std::uint32_t kMaxPemEncryptedSignature = KT_MAX_PEM_ENCRYPTED_SIGNATURE_LEN;

// Room for what the bounded printable texts decode to: 172 characters give
// 129 bytes, one more than a signature or encrypted key may have (the length
// check that follows refuses it); an encrypted signature of 184 characters
// opens to at most 137 bytes.
constexpr std::uint32_t kDecodedSignatureRoom = 3 * (kMaxPemSignature / 4);
constexpr std::uint32_t kDecodedKeyRoom = 3 * (kMaxPemEncryptedKey / 4);
constexpr std::uint32_t kOpenedSignatureRoom = 3 * (kMaxPemEncryptedSignature / 4);

// A decryption failure of an envelope's printable part, as the helpers
// report it: a bad text gives `encoding_status`, anything else KT_RE_CONTENT.
std::uint32_t TranslateOpenFailure(std::uint32_t status, std::uint32_t encoding_status) {
  return (status == KT_RE_LEN || status == KT_RE_ENCODING) ? encoding_status : KT_RE_CONTENT;
}

}  // namespace
}  // namespace kt::crypto

using kt::WipeOnExit;
using kt::crypto::kMaxModulusLen;
using kt::crypto::kPiece;
using kt::crypto::kPieceChars;

/* see kt_crypto.h */
uint32_t EncryptPEMUpdateFinal(R_EnvelopeContext* context, unsigned char* encryptedContent,
                               uint32_t* encryptedContentLen, const unsigned char* content,
                               uint32_t contentLen) {
  // A piece is 24 bytes; the last one, with the padding block, is at most 24
  // bytes too when the envelope's buffer starts empty, and 32 otherwise.
  unsigned char part[kPiece + 8];
  WipeOnExit wipe(part);
  uint32_t part_len = 0, encoded_len = 0, status = KT_RE_OK;
  const uint32_t pieces = contentLen / kPiece;
  for (uint32_t i = 0; i < pieces; ++i) {
    status = R_SealUpdate(context, part, &part_len, &content[kPiece * i], kPiece);
    if (status != KT_RE_OK) return status;
    R_EncodePEMBlock(&encryptedContent[kPieceChars * i], &encoded_len, part, part_len);
  }
  status = R_SealUpdate(context, part, &part_len, &content[kPiece * pieces],
                        contentLen - kPiece * pieces);
  if (status != KT_RE_OK) return status;
  uint32_t last_len = 0;
  status = R_SealFinal(context, &part[part_len], &last_len);
  if (status != KT_RE_OK) return status;
  R_EncodePEMBlock(&encryptedContent[kPieceChars * pieces], &encoded_len, part,
                   part_len + last_len);
  *encryptedContentLen = kPieceChars * pieces + encoded_len;
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t DecryptPEMUpdateFinal(R_EnvelopeContext* context, unsigned char* content,
                               uint32_t* contentLen, const unsigned char* encryptedContent,
                               uint32_t encryptedContentLen) {
  unsigned char part[kPiece];
  WipeOnExit wipe(part);
  uint32_t part_len = 0, out_len = 0, status = KT_RE_OK;
  *contentLen = 0;
  const uint32_t pieces = encryptedContentLen / kPieceChars;
  // Whole pieces, then the rest (possibly nothing), then Final.
  for (uint32_t i = 0; i <= pieces; ++i) {
    const uint32_t chars = i < pieces ? kPieceChars : encryptedContentLen - kPieceChars * pieces;
    status = R_DecodePEMBlock(part, &part_len, &encryptedContent[kPieceChars * i], chars);
    if (status == KT_RE_OK) status = R_OpenUpdate(context, &content[*contentLen], &out_len, part, part_len);
    if (status != KT_RE_OK) return status;
    *contentLen += out_len;
  }
  status = R_OpenFinal(context, &content[*contentLen], &out_len);
  if (status != KT_RE_OK) return status;
  *contentLen += out_len;
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_SignPEMBlock(unsigned char* encodedContent, uint32_t* encodedContentLen,
                        unsigned char* encodedSignature, uint32_t* encodedSignatureLen,
                        const unsigned char* content, uint32_t contentLen, int32_t recode,
                        int32_t digestAlgorithm, const R_RSAPrivateKey* privateKey) {
  unsigned char signature[kMaxModulusLen];
  uint32_t signature_len = 0;
  WipeOnExit wipe(signature);
  const uint32_t status =
      R_SignBlock(signature, &signature_len, content, contentLen, digestAlgorithm, privateKey);
  if (status != KT_RE_OK) return status;
  R_EncodePEMBlock(encodedSignature, encodedSignatureLen, signature, signature_len);
  if (recode) R_EncodePEMBlock(encodedContent, encodedContentLen, content, contentLen);
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_VerifyPEMSignature(unsigned char* content, uint32_t* contentLen,
                              const unsigned char* encodedContent, uint32_t encodedContentLen,
                              const unsigned char* encodedSignature, uint32_t encodedSignatureLen,
                              int32_t recode, int32_t digestAlgorithm,
                              const R_RSAPublicKey* publicKey) {
  if (encodedSignatureLen > kt::crypto::kMaxPemSignature) return KT_RE_SIGNATURE_ENCODING;
  const unsigned char* signed_content = encodedContent;
  if (recode) {
    if (R_DecodePEMBlock(content, contentLen, encodedContent, encodedContentLen) != KT_RE_OK) {
      return KT_RE_CONTENT_ENCODING;
    }
    signed_content = content;
  } else {
    *contentLen = encodedContentLen;
  }
  unsigned char signature[kt::crypto::kDecodedSignatureRoom];
  uint32_t signature_len = 0;
  if (R_DecodePEMBlock(signature, &signature_len, encodedSignature, encodedSignatureLen) !=
      KT_RE_OK) {
    return KT_RE_SIGNATURE_ENCODING;
  }
  return R_VerifyBlockSignature(signed_content, *contentLen, signature, signature_len,
                                digestAlgorithm, publicKey);
}

/* see kt_crypto.h */
uint32_t R_SealPEMBlock(unsigned char* encryptedContent, uint32_t* encryptedContentLen,
                        unsigned char* encryptedKey, uint32_t* encryptedKeyLen,
                        unsigned char* encryptedSignature, uint32_t* encryptedSignatureLen,
                        unsigned char iv[8], const unsigned char* content, uint32_t contentLen,
                        int32_t digestAlgorithm, R_RSAPublicKey* publicKey,
                        const R_RSAPrivateKey* privateKey, R_RandomContext* randomContext) {
  R_EnvelopeContext context;
  unsigned char signature[kMaxModulusLen], key_block[kMaxModulusLen];
  uint32_t signature_len = 0, key_len = 0;
  WipeOnExit wipe(context, signature);

  uint32_t status =
      R_SignBlock(signature, &signature_len, content, contentLen, digestAlgorithm, privateKey);
  if (status != KT_RE_OK) return status;
  unsigned char* key_blocks[1] = {key_block};
  R_RSAPublicKey* recipients[1] = {publicKey};
  status = R_SealInit(&context, key_blocks, &key_len, iv, 1, recipients, KT_EA_DES_CBC,
                      randomContext);
  if (status != KT_RE_OK) return status;
  R_EncodePEMBlock(encryptedKey, encryptedKeyLen, key_block, key_len);
  status = EncryptPEMUpdateFinal(&context, encryptedContent, encryptedContentLen, content,
                                 contentLen);
  if (status != KT_RE_OK) return status;
  return EncryptPEMUpdateFinal(&context, encryptedSignature, encryptedSignatureLen, signature,
                               signature_len);
}

/* see kt_crypto.h */
uint32_t R_OpenPEMBlock(unsigned char* content, uint32_t* contentLen,
                        const unsigned char* encryptedContent, uint32_t encryptedContentLen,
                        const unsigned char* encryptedKey, uint32_t encryptedKeyLen,
                        const unsigned char* encryptedSignature, uint32_t encryptedSignatureLen,
                        const unsigned char iv[8], int32_t digestAlgorithm,
                        const R_RSAPrivateKey* privateKey, const R_RSAPublicKey* publicKey) {
  using kt::crypto::TranslateOpenFailure;
  if (encryptedKeyLen > kt::crypto::kMaxPemEncryptedKey) return KT_RE_KEY_ENCODING;
  if (encryptedSignatureLen > kt::crypto::kMaxPemEncryptedSignature) {
    return KT_RE_SIGNATURE_ENCODING;
  }
  R_EnvelopeContext context;
  unsigned char key_block[kt::crypto::kDecodedKeyRoom];
  unsigned char signature[kt::crypto::kOpenedSignatureRoom];
  uint32_t key_len = 0, signature_len = 0;
  WipeOnExit wipe(context, signature);

  if (R_DecodePEMBlock(key_block, &key_len, encryptedKey, encryptedKeyLen) != KT_RE_OK) {
    return KT_RE_KEY_ENCODING;
  }
  uint32_t status = R_OpenInit(&context, KT_EA_DES_CBC, key_block, key_len, iv, privateKey);
  if (status != KT_RE_OK) return status;
  status = DecryptPEMUpdateFinal(&context, content, contentLen, encryptedContent,
                                 encryptedContentLen);
  if (status != KT_RE_OK) return TranslateOpenFailure(status, KT_RE_CONTENT_ENCODING);
  status = DecryptPEMUpdateFinal(&context, signature, &signature_len, encryptedSignature,
                                 encryptedSignatureLen);
  if (status != KT_RE_OK) return TranslateOpenFailure(status, KT_RE_SIGNATURE_ENCODING);
  return R_VerifyBlockSignature(content, *contentLen, signature, signature_len, digestAlgorithm,
                                publicKey);
}
