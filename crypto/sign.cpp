// Signatures: a PKCS #1 type-1 block around the DER DigestInfo of an MD2 or
// MD5 digest, made with the private key and checked with the public key.
// The signature context is the digest context; a successful Final starts it
// again with the same algorithm, so the next message can follow at once.
#include "crypto/crypto_internal.h"

using kt::WipeOnExit;
using kt::crypto::kDigestInfoLen;
using kt::crypto::kDigestLen;
using kt::crypto::kMaxModulusLen;

/* see kt_crypto.h */
uint32_t R_SignInit(R_DigestContext* context, int32_t digestAlgorithm) {
  return R_DigestInit(context, digestAlgorithm);
}

/* see kt_crypto.h */
uint32_t R_SignUpdate(R_DigestContext* context, const unsigned char* partIn, uint32_t partInLen) {
  return R_DigestUpdate(context, partIn, partInLen);
}

/* see kt_crypto.h */
uint32_t R_SignFinal(R_DigestContext* context, unsigned char* signature, uint32_t* signatureLen,
                     const R_RSAPrivateKey* privateKey) {
  unsigned char digest[kDigestLen], digest_info[kDigestInfoLen];
  uint32_t digest_len;
  WipeOnExit wipe(digest, digest_info);
  uint32_t status = R_DigestFinal(context, digest, &digest_len);
  if (status != KT_RE_OK) return status;
  R_EncodeDigestInfo(digest_info, context->digestAlgorithm, digest);
  if (RSAPrivateEncrypt(signature, signatureLen, digest_info, kDigestInfoLen, privateKey) !=
      KT_RE_OK) {
    return KT_RE_PRIVATE_KEY;
  }
  // Ready for the next message; an identifier Init refused stays refused
  // and is not reported again here.
  (void)R_DigestInit(context, context->digestAlgorithm);
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_VerifyInit(R_DigestContext* context, int32_t digestAlgorithm) {
  return R_DigestInit(context, digestAlgorithm);
}

/* see kt_crypto.h */
uint32_t R_VerifyUpdate(R_DigestContext* context, const unsigned char* partIn,
                        uint32_t partInLen) {
  return R_DigestUpdate(context, partIn, partInLen);
}

/* see kt_crypto.h */
uint32_t R_VerifyFinal(R_DigestContext* context, const unsigned char* signature,
                       uint32_t signatureLen, const R_RSAPublicKey* publicKey) {
  if (signatureLen > kMaxModulusLen) return KT_RE_LEN;  // before the digest is consumed
  unsigned char digest[kDigestLen], digest_info[kDigestInfoLen], recovered[kMaxModulusLen];
  uint32_t digest_len, recovered_len = 0;
  WipeOnExit wipe(digest, digest_info, recovered);
  uint32_t status = R_DigestFinal(context, digest, &digest_len);
  if (status != KT_RE_OK) return status;
  R_EncodeDigestInfo(digest_info, context->digestAlgorithm, digest);
  if (RSAPublicDecrypt(recovered, &recovered_len, signature, signatureLen, publicKey) !=
      KT_RE_OK) {
    return KT_RE_PUBLIC_KEY;
  }
  if (recovered_len != kDigestInfoLen || R_memcmp(recovered, digest_info, kDigestInfoLen) != 0) {
    return KT_RE_SIGNATURE;
  }
  (void)R_DigestInit(context, context->digestAlgorithm);  // as in R_SignFinal
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_SignBlock(unsigned char* signature, uint32_t* signatureLen, const unsigned char* block,
                     uint32_t blockLen, int32_t digestAlgorithm,
                     const R_RSAPrivateKey* privateKey) {
  R_DigestContext context;
  WipeOnExit wipe(context);
  uint32_t status = R_SignInit(&context, digestAlgorithm);
  if (status == KT_RE_OK) status = R_SignUpdate(&context, block, blockLen);
  if (status == KT_RE_OK) status = R_SignFinal(&context, signature, signatureLen, privateKey);
  return status;
}

/* see kt_crypto.h */
uint32_t R_VerifyBlockSignature(const unsigned char* block, uint32_t blockLen,
                                const unsigned char* signature, uint32_t signatureLen,
                                int32_t digestAlgorithm, const R_RSAPublicKey* publicKey) {
  R_DigestContext context;
  WipeOnExit wipe(context);
  uint32_t status = R_VerifyInit(&context, digestAlgorithm);
  if (status == KT_RE_OK) status = R_VerifyUpdate(&context, block, blockLen);
  if (status == KT_RE_OK) status = R_VerifyFinal(&context, signature, signatureLen, publicKey);
  return status;
}
