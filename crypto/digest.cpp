// The digest dispatch: one context record for MD2 and MD5, selected by a
// numeric identifier, and the DER DigestInfo that PKCS #1 signatures carry.
// Only Init checks the identifier; Update and Final select MD2 for 3 and MD5
// for anything else (intended: callers rely on that exact asymmetry).
#include "crypto/crypto_internal.h"

namespace kt::crypto {
namespace {

// DER header of a DigestInfo whose algorithm is 1.2.840.113549.2.x, up to
// the last arc, and the NULL parameters plus the OCTET STRING header.
constexpr unsigned char DIGEST_INFO_A[13] = {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a,
                                             0x86, 0x48, 0x86, 0xf7, 0x0d, 0x02};
constexpr unsigned char DIGEST_INFO_B[4] = {0x05, 0x00, 0x04, 0x10};
static_assert(sizeof DIGEST_INFO_A + 1 + sizeof DIGEST_INFO_B + kDigestLen == kDigestInfoLen);

}  // namespace
}  // namespace kt::crypto

static_assert(sizeof(R_DigestContext) == 92, "R_DigestContext layout is part of the interface");

/* see kt_crypto.h */
uint32_t R_DigestInit(R_DigestContext* context, int32_t digestAlgorithm) {
  context->digestAlgorithm = digestAlgorithm;
  switch (digestAlgorithm) {
    case KT_DA_MD2:
      MD2Init(&context->context.md2);
      return KT_RE_OK;
    case KT_DA_MD5:
      MD5Init(&context->context.md5);
      return KT_RE_OK;
    default:
      // The identifier stays stored; see the file comment.
      return KT_RE_DIGEST_ALGORITHM;
  }
}

/* see kt_crypto.h */
uint32_t R_DigestUpdate(R_DigestContext* context, const unsigned char* partIn,
                        uint32_t partInLen) {
  if (context->digestAlgorithm == KT_DA_MD2) {
    MD2Update(&context->context.md2, partIn, partInLen);
  } else {
    MD5Update(&context->context.md5, partIn, partInLen);
  }
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_DigestFinal(R_DigestContext* context, unsigned char* digest, uint32_t* digestLen) {
  *digestLen = kt::crypto::kDigestLen;
  if (context->digestAlgorithm == KT_DA_MD2) {
    MD2Final(digest, &context->context.md2);
  } else {
    MD5Final(digest, &context->context.md5);
  }
  return KT_RE_OK;
}

/* see kt_crypto.h */
uint32_t R_DigestBlock(unsigned char* digest, uint32_t* digestLen, const unsigned char* block,
                       uint32_t blockLen, int32_t digestAlgorithm) {
  R_DigestContext context;
  kt::WipeOnExit wipe(context);
  uint32_t status = R_DigestInit(&context, digestAlgorithm);
  if (status == KT_RE_OK) status = R_DigestUpdate(&context, block, blockLen);
  if (status == KT_RE_OK) status = R_DigestFinal(&context, digest, digestLen);
  return status;
}

/* see kt_crypto.h */
void R_EncodeDigestInfo(unsigned char* digestInfo, int32_t digestAlgorithm,
                        const unsigned char* digest) {
  using kt::crypto::DIGEST_INFO_A;
  using kt::crypto::DIGEST_INFO_B;
  R_memcpy(digestInfo, DIGEST_INFO_A, sizeof DIGEST_INFO_A);
  // Every identifier but MD2's is labelled MD5 (kept: it matches the dispatch).
  digestInfo[sizeof DIGEST_INFO_A] = digestAlgorithm == KT_DA_MD2 ? 2 : 5;
  R_memcpy(&digestInfo[sizeof DIGEST_INFO_A + 1], DIGEST_INFO_B, sizeof DIGEST_INFO_B);
  R_memcpy(&digestInfo[sizeof DIGEST_INFO_A + 1 + sizeof DIGEST_INFO_B], digest,
           kt::crypto::kDigestLen);
}
