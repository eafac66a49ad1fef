/*
 * kt_crypto.h - the cryptographic toolkit of the KT common module.
 *
 * Big numbers, the MD2 and MD5 digests, DES, DESX and triple DES in CBC mode,
 * a seeded random generator, RSA key generation and RSA with PKCS #1 v1.5
 * blocks, signatures, digital envelopes, the printable (Base64) encoding and
 * Diffie-Hellman.
 *
 * Conventions of the toolkit, which differ from the rest of the library:
 * - functions that can fail return an unsigned 32-bit status: 0 on success,
 *   otherwise one of the KT_RE_ codes below;
 * - nothing is allocated and nothing is traced: every context and buffer
 *   belongs to the caller, and every temporary that held key material, a
 *   digest or a plaintext block is cleared before the function returns;
 * - numbers cross the interface as unsigned big-endian byte strings; inside,
 *   a number is an array of NN_DIGIT, least significant digit first, with
 *   its digit count passed beside it;
 * - no function keeps global state that a caller could see: the public-key
 *   operations only keep, per thread, the precomputed form of the last
 *   public modulus they used (public data, redone when another comes); the
 *   random context is the only source of fresh secrets and is seeded by
 *   the caller.
 * Lengths are byte counts. Pointers may be null only where a length of 0
 * says that nothing is read or written.
 */
#ifndef KT_CRYPTO_H
#define KT_CRYPTO_H

#include "kt_frame.h"

KT_BEGIN_DECLS

/*
 * Status codes of the toolkit (unsigned 32-bit, 0 = success). The values are
 * shared with the suite's components: DO NOT CHANGE THEM.
 */
#define KT_RE_OK                   ((uint32_t)0x0000) /* success */
#define KT_RE_CONTENT_ENCODING     ((uint32_t)0x0400) /* content not in printable form */
#define KT_RE_DATA                 ((uint32_t)0x0401) /* number not below the modulus, malformed block, no prime in range */
#define KT_RE_DIGEST_ALGORITHM     ((uint32_t)0x0402) /* unknown digest algorithm */
#define KT_RE_ENCODING             ((uint32_t)0x0403) /* printable block of bad length or character */
#define KT_RE_CONTENT              ((uint32_t)0x0404) /* envelope content cannot be opened */
#define KT_RE_KEY_ENCODING         ((uint32_t)0x0405) /* encrypted key too long or not printable */
#define KT_RE_LEN                  ((uint32_t)0x0406) /* length error */
#define KT_RE_MODULUS_LEN          ((uint32_t)0x0407) /* modulus length outside 508..1024 bits */
#define KT_RE_NEED_RANDOM          ((uint32_t)0x0408) /* random generator not yet seeded */
#define KT_RE_PRIVATE_KEY          ((uint32_t)0x0409) /* private-key operation failed */
#define KT_RE_PUBLIC_KEY           ((uint32_t)0x040A) /* public-key operation failed */
#define KT_RE_SIGNATURE            ((uint32_t)0x040B) /* signature does not match */
#define KT_RE_SIGNATURE_ENCODING   ((uint32_t)0x040C) /* signature too long or not printable */
#define KT_RE_ENCRYPTION_ALGORITHM ((uint32_t)0x040D) /* unknown content-encryption algorithm */

/* Digest algorithm identifiers (stored in files and messages). */
#define KT_DA_MD2 3
#define KT_DA_MD5 5

/* Content-encryption algorithm identifiers of envelopes. */
#define KT_EA_DES_CBC      1 /* DES-CBC, 8-byte key */
#define KT_EA_DES_EDE2_CBC 2 /* two-key triple DES, 24-byte key whose bytes 16..23 repeat 0..7 */
#define KT_EA_DES_EDE3_CBC 3 /* three-key triple DES, 24-byte key */
#define KT_EA_DESX_CBC     4 /* DESX: DES key, input whitener, output whitener */

/* Sizes. */
#define MAX_NN_DIGITS 33              /* capacity of a number: 1024 bits and a spare digit */
#define KT_MIN_RSA_MODULUS_BITS 508
#define KT_MAX_RSA_MODULUS_BITS 1024
#define KT_MAX_RSA_MODULUS_LEN 128    /* bytes of a modulus or exponent field */
#define KT_MAX_RSA_PRIME_LEN 64       /* bytes of a prime, prime exponent or coefficient field */
#define KT_MAX_DIGEST_LEN 16
#define KT_DIGEST_INFO_LEN 34
#define KT_MAX_SIGNATURE_LEN 128
#define KT_MAX_PEM_SIGNATURE_LEN 173           /* printable characters */
#define KT_MAX_PEM_ENCRYPTED_SIGNATURE_LEN 184 /* printable characters */
#define KT_MAX_PEM_ENCRYPTED_KEY_LEN 173       /* printable characters */

/* One digit of a number. */
typedef uint32_t NN_DIGIT;

/*
 * RSA keys. Every number is unsigned big-endian and right-aligned in its
 * field (leading zero bytes); modulusLen = (bits + 7) / 8 bytes of the
 * modulus field are significant. The private key holds p > q and the CRT
 * values dP = d mod (p - 1), dQ = d mod (q - 1), coefficient = q^-1 mod p.
 */
typedef struct {
  uint32_t bits;                                     /* modulus length in bits, 508..1024 */
  unsigned char modulus[KT_MAX_RSA_MODULUS_LEN];     /* n */
  unsigned char exponent[KT_MAX_RSA_MODULUS_LEN];    /* e */
} R_RSAPublicKey;

typedef struct {
  uint32_t bits;                                          /* modulus length in bits */
  unsigned char modulus[KT_MAX_RSA_MODULUS_LEN];          /* n */
  unsigned char publicExponent[KT_MAX_RSA_MODULUS_LEN];   /* e */
  unsigned char exponent[KT_MAX_RSA_MODULUS_LEN];         /* d */
  unsigned char prime[2][KT_MAX_RSA_PRIME_LEN];           /* p, then q */
  unsigned char primeExponent[2][KT_MAX_RSA_PRIME_LEN];   /* dP, then dQ */
  unsigned char coefficient[KT_MAX_RSA_PRIME_LEN];        /* q^-1 mod p */
} R_RSAPrivateKey;

/* A key-generation request. */
typedef struct {
  uint32_t bits;      /* modulus length, 508..1024 */
  int32_t useFermat4; /* non-zero: public exponent 65537; zero: 3 */
} R_ProtoKey;

/* Diffie-Hellman parameters: big-endian numbers in caller buffers. */
typedef struct {
  unsigned char* prime;     /* p */
  uint32_t primeLen;
  unsigned char* generator; /* g */
  uint32_t generatorLen;
} R_DHParams;

typedef struct {
  unsigned char state[16];    /* running MD2 state */
  unsigned char checksum[16]; /* running MD2 checksum */
  uint32_t count;             /* bytes pending in buffer, 0..15 */
  unsigned char buffer[16];   /* pending input */
} MD2Context;

typedef struct {
  uint32_t state[4];         /* A, B, C, D */
  uint32_t count[2];         /* message length in bits mod 2^64, low word first */
  unsigned char buffer[64];  /* pending input */
} MD5Context;

/* Digest context; signatures and verifications use the same record. */
typedef struct {
  int32_t digestAlgorithm; /* KT_DA_MD2 or KT_DA_MD5 */
  union {
    MD2Context md2;
    MD5Context md5;
  } context;
} R_DigestContext;

/* Seeded generator: MD5 over a 128-bit counter. */
typedef struct {
  uint32_t bytesNeeded;     /* seed bytes still required before output; 256 after init */
  unsigned char state[16];  /* 128-bit big-endian counter */
  uint32_t outputAvailable; /* unread bytes left at the end of output, 0..16 */
  unsigned char output[16]; /* last MD5 output block */
} R_RandomContext;

typedef struct {
  uint32_t subkeys[32];   /* 16 rounds x 2 words, in the order of use */
  uint32_t iv[2];         /* current chaining value */
  uint32_t originalIV[2]; /* chaining value restored by Restart */
  int32_t encrypt;        /* non-zero to encrypt, 0 to decrypt */
} DESContext;

typedef struct {
  uint32_t subkeys[32];
  uint32_t iv[2];
  uint32_t inputWhitener[2];
  uint32_t outputWhitener[2];
  uint32_t originalIV[2];
  int32_t encrypt;
} DESXContext;

typedef struct {
  uint32_t subkeys[3][32]; /* three schedules, applied in order */
  uint32_t iv[2];
  uint32_t originalIV[2];
  int32_t encrypt;
} DES3Context;

typedef struct {
  int32_t encryptionAlgorithm; /* KT_EA_ identifier */
  union {
    DESContext des;
    DES3Context des3;
    DESXContext desx;
  } cipherContext;
  unsigned char buffer[8]; /* pending input */
  uint32_t bufferLen;      /* 0..8 */
} R_EnvelopeContext;

/* ========================================================================
 * Byte helpers. Each does nothing when len is 0 (the pointers are then not
 * used).
 */
KT_API void R_memset(void* output, int32_t value, uint32_t len);
KT_API void R_memcpy(void* output, const void* input, uint32_t len);
/* Signed comparison of len bytes as unsigned values: <0, 0, >0. */
KT_API int32_t R_memcmp(const void* firstBlock, const void* secondBlock, uint32_t len);

/* ========================================================================
 * Big numbers. a, b, c, d are digit arrays of at most MAX_NN_DIGITS digits
 * (products: 2 x MAX_NN_DIGITS); results go through the first argument,
 * which may be one of the inputs. No function reports an error: the
 * preconditions are the caller's; a count beyond the capacity makes the
 * function write nothing. Temporaries are cleared before return.
 */

/* a (digits digits) = the big-endian string b of len bytes. Bytes beyond
 * 4 x digits (the most significant ones) are ignored; missing digits are 0. */
KT_API void NN_Decode(NN_DIGIT* a, uint32_t digits, const unsigned char* b, uint32_t len);
/* a = len big-endian bytes of b (digits digits): high-order digits that do not
 * fit are dropped, a longer string gets leading zero bytes. */
KT_API void NN_Encode(unsigned char* a, uint32_t len, const NN_DIGIT* b, uint32_t digits);
KT_API void NN_Assign(NN_DIGIT* a, const NN_DIGIT* b, uint32_t digits);
KT_API void NN_AssignZero(NN_DIGIT* a, uint32_t digits);
/* a = 2^b; a = 0 when b >= 32 x digits. */
KT_API void NN_Assign2Exp(NN_DIGIT* a, uint32_t b, uint32_t digits);
/* a = b + c; returns the carry (0 or 1). */
KT_API NN_DIGIT NN_Add(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t digits);
/* a = b - c; returns the borrow (0 or 1). */
KT_API NN_DIGIT NN_Sub(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t digits);
/* a (2 x digits digits) = b x c; digits <= MAX_NN_DIGITS. */
KT_API void NN_Mult(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t digits);
/* a = b << c; returns the bits shifted out of the top digit. A count of 32 or
 * more returns 0 and leaves a unwritten. */
KT_API NN_DIGIT NN_LShift(NN_DIGIT* a, const NN_DIGIT* b, uint32_t c, uint32_t digits);
/* a = b >> c; returns the bits shifted out of the bottom digit, left-aligned.
 * A count of 32 or more returns 0 and leaves a unwritten. */
KT_API NN_DIGIT NN_RShift(NN_DIGIT* a, const NN_DIGIT* b, uint32_t c, uint32_t digits);
/* a (cDigits digits) = c div d; b (dDigits digits) = c mod d.
 * REQUIRES: cDigits <= 2 x MAX_NN_DIGITS, dDigits <= MAX_NN_DIGITS.
 * d = 0 leaves a and b untouched. */
KT_API void NN_Div(NN_DIGIT* a, NN_DIGIT* b, const NN_DIGIT* c, uint32_t cDigits,
                   const NN_DIGIT* d, uint32_t dDigits);
/* a (cDigits digits) = b mod c. */
KT_API void NN_Mod(NN_DIGIT* a, const NN_DIGIT* b, uint32_t bDigits, const NN_DIGIT* c,
                   uint32_t cDigits);
/* a = b x c mod d. */
KT_API void NN_ModMult(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, const NN_DIGIT* d,
                       uint32_t digits);
/* a (dDigits digits) = b^c mod d. An exponent of 0 gives 1, even for d = 1.
 * REQUIRES: b < d (a larger b, within dDigits digits, is reduced correctly).
 * For an odd d: Montgomery products, a fixed 4-bit window over all cDigits x
 * 32 bits of c (leading zero digits are not skipped), a product for every
 * window and the window's table entry picked by reading every entry, so no
 * branch and no memory address depends on c's value for a given cDigits. It
 * does depend on cDigits, dDigits and the length and bit length of d. An
 * even d takes the division path, which is not constant-time. */
KT_API void NN_ModExp(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t cDigits,
                      const NN_DIGIT* d, uint32_t dDigits);
/* a = b^-1 mod c. REQUIRES: gcd(b, c) = 1 (not checked). */
KT_API void NN_ModInv(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t digits);
/* a = gcd(b, c). */
KT_API void NN_Gcd(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t digits);
/* 1 if a > b, -1 if a < b, 0 if equal. */
KT_API int32_t NN_Cmp(const NN_DIGIT* a, const NN_DIGIT* b, uint32_t digits);
/* 1 if every digit is 0, else 0. */
KT_API uint8_t NN_Zero(const NN_DIGIT* a, uint32_t digits);
/* Significant bits (0 for zero). */
KT_API uint32_t NN_Bits(const NN_DIGIT* a, uint32_t digits);
/* Significant digits (0 for zero). */
KT_API uint32_t NN_Digits(const NN_DIGIT* a, uint32_t digits);

/* Internal steps, exported for callers that use them. */

/* Significant bits of one digit, 0..32. */
KT_API uint32_t NN_DigitBits(NN_DIGIT a);
/* a[0..1] (low digit first) = b x c. */
KT_API void NN_DigitMult(NN_DIGIT a[2], NN_DIGIT b, NN_DIGIT c);
/* *a = b[0..1] div c. REQUIRES: b[1] < c (otherwise the quotient is
 * truncated to 32 bits; c = 0 gives FFFFFFFF). */
KT_API void NN_DigitDiv(NN_DIGIT* a, const NN_DIGIT b[2], NN_DIGIT c);
/* a = b + c x d; returns the carry digit. c = 0 returns 0, a unwritten. */
KT_API NN_DIGIT NN_AddDigitMult(NN_DIGIT* a, const NN_DIGIT* b, NN_DIGIT c, const NN_DIGIT* d,
                                uint32_t digits);
/* a = b - c x d; returns the borrow digit. c = 0 returns 0, a unwritten. */
KT_API NN_DIGIT NN_SubDigitMult(NN_DIGIT* a, const NN_DIGIT* b, NN_DIGIT c, const NN_DIGIT* d,
                                uint32_t digits);

/* ========================================================================
 * Message digests: MD2 (RFC 1319) and MD5 (RFC 1321), 16-byte results.
 * A context is valid from Init to Final; Final clears it.
 */
KT_API void MD2Init(MD2Context* context);
KT_API void MD2Update(MD2Context* context, const unsigned char* input, uint32_t inputLen);
/* Writes 16 bytes to digest and clears the 52-byte context. */
KT_API void MD2Final(unsigned char digest[16], MD2Context* context);
KT_API void MD5Init(MD5Context* context);
KT_API void MD5Update(MD5Context* context, const unsigned char* input, uint32_t inputLen);
/* Writes 16 bytes to digest and clears the 88-byte context. */
KT_API void MD5Final(unsigned char digest[16], MD5Context* context);

/*
 * R_DigestInit - stores digestAlgorithm in the context, then starts MD2 (3)
 * or MD5 (5). Any other value returns KT_RE_DIGEST_ALGORITHM and stays
 * stored: Update and Final test only for MD2 and treat every other value as
 * MD5 (callers that ignore the status get MD5 over an unstarted context).
 */
KT_API uint32_t R_DigestInit(R_DigestContext* context, int32_t digestAlgorithm);
/* R_DigestUpdate - appends partInLen bytes. Returns 0. */
KT_API uint32_t R_DigestUpdate(R_DigestContext* context, const unsigned char* partIn,
                               uint32_t partInLen);
/* R_DigestFinal - writes 16 bytes to digest, 16 to *digestLen, clears the
 * algorithm's context (the identifier stays). Returns 0. */
KT_API uint32_t R_DigestFinal(R_DigestContext* context, unsigned char* digest,
                              uint32_t* digestLen);
/* R_DigestBlock - digest of one block on a local context, cleared on every
 * path. KT_RE_DIGEST_ALGORITHM writes nothing to digest. */
KT_API uint32_t R_DigestBlock(unsigned char* digest, uint32_t* digestLen, const unsigned char* block,
                              uint32_t blockLen, int32_t digestAlgorithm);

/* Internal steps, exported for callers that use them. */

/* Writes the 34-byte DER DigestInfo of a 16-byte digest; the algorithm is
 * labelled MD2 for 3 and MD5 for every other value. */
KT_API void R_EncodeDigestInfo(unsigned char* digestInfo, int32_t digestAlgorithm,
                               const unsigned char* digest);
/* One MD2 block step; clears its work buffer. */
KT_API void MD2Transform(unsigned char state[16], unsigned char checksum[16],
                         const unsigned char block[16]);
/* One MD5 compression; clears its copy of the block. */
KT_API void MD5Transform(uint32_t state[4], const unsigned char block[64]);
/* Little-endian conversions; len is a byte count, a multiple of 4. */
KT_API void Encode(unsigned char* output, const uint32_t* input, uint32_t len);
KT_API void Decode(uint32_t* output, const unsigned char* input, uint32_t len);
/* Byte loops of the digests, equal to memcpy and memset. */
KT_API void MD2_memcpy(unsigned char* output, const unsigned char* input, uint32_t len);
KT_API void MD2_memset(unsigned char* output, int32_t value, uint32_t len);
KT_API void MD5_memcpy(unsigned char* output, const unsigned char* input, uint32_t len);
KT_API void MD5_memset(unsigned char* output, int32_t value, uint32_t len);

/* ========================================================================
 * DES, DESX and triple DES (EDE) in CBC mode over 8-byte blocks. Keys are
 * 8 bytes (DES; parity bits ignored) or 24 bytes (DESX: key, input whitener,
 * output whitener; triple DES: K1, K2, K3). IVs are 8 bytes. The table-driven
 * round function is not constant-time (table lookups indexed by key-dependent
 * data).
 */
KT_API void DES_CBCInit(DESContext* context, const unsigned char* key, const unsigned char* iv,
                        int32_t encrypt);
/* Processes len bytes; output may equal input. A len that is not a multiple
 * of 8 returns KT_RE_LEN and changes nothing. */
KT_API uint32_t DES_CBCUpdate(DESContext* context, unsigned char* output,
                              const unsigned char* input, uint32_t len);
/* Rewinds the chaining value to the IV given at Init. */
KT_API void DES_CBCRestart(DESContext* context);
KT_API void DESX_CBCInit(DESXContext* context, const unsigned char* key, const unsigned char* iv,
                         int32_t encrypt);
KT_API uint32_t DESX_CBCUpdate(DESXContext* context, unsigned char* output,
                               const unsigned char* input, uint32_t len);
KT_API void DESX_CBCRestart(DESXContext* context);
KT_API void DES3_CBCInit(DES3Context* context, const unsigned char* key, const unsigned char* iv,
                         int32_t encrypt);
KT_API uint32_t DES3_CBCUpdate(DES3Context* context, unsigned char* output,
                               const unsigned char* input, uint32_t len);
KT_API void DES3_CBCRestart(DES3Context* context);

/* Internal steps, exported for callers that use them. */

/* Builds a 32-word schedule from 8 key bytes (reversed when encrypt is 0). */
KT_API void DESKey(uint32_t subkeys[32], const unsigned char key[8], int32_t encrypt);
/* Turns 32 raw round-key words into the 6-bit-group form of DESFunction,
 * reversing the round order when encrypt is 0. */
KT_API void CookKey(uint32_t subkeys[32], const uint32_t raw[32], int32_t encrypt);
/* One DES pass over the two-word block, in place, as the schedule says. */
KT_API void DESFunction(uint32_t block[2], const uint32_t subkeys[32]);
/* 8 bytes to two big-endian words, and back. */
KT_API void Pack(uint32_t into[2], const unsigned char outof[8]);
KT_API void Unpack(unsigned char into[8], const uint32_t outof[2]);

/* ========================================================================
 * Random generator. Deterministic for a given seed: 256 bytes of seed (in any
 * split) must be fed before output is given. The context is the caller's
 * and changes on every draw.
 */
KT_API uint32_t R_RandomInit(R_RandomContext* context);
/* Stirs blockLen bytes in. Returns 0. */
KT_API uint32_t R_RandomUpdate(R_RandomContext* context, const unsigned char* block,
                               uint32_t blockLen);
/* *bytesNeeded = seed bytes still needed. Returns 0. */
KT_API uint32_t R_GetRandomBytesNeeded(uint32_t* bytesNeeded, const R_RandomContext* context);
/* Clears the 40-byte context. */
KT_API void R_RandomFinal(R_RandomContext* context);
/* Fills output with len bytes; KT_RE_NEED_RANDOM (nothing written) before
 * 256 seed bytes were fed. */
KT_API uint32_t R_GenerateBytes(unsigned char* output, uint32_t len, R_RandomContext* context);

/* ========================================================================
 * Key generation and Diffie-Hellman.
 */

/*
 * R_GeneratePEMKeys - draws an RSA key pair of protoKey->bits bits (508 to
 * 1024, else KT_RE_MODULUS_LEN) with e = 65537 (useFermat4 non-zero) or 3.
 * The modulus has exactly the requested bits and p > q. Returns
 * KT_RE_NEED_RANDOM for an unseeded generator, KT_RE_DATA if no prime was
 * found in range.
 */
KT_API uint32_t R_GeneratePEMKeys(R_RSAPublicKey* publicKey, R_RSAPrivateKey* privateKey,
                                  const R_ProtoKey* protoKey, R_RandomContext* randomContext);
/*
 * R_GenerateDHParams - draws a prime p of primeBits bits with p = 1 mod 2q
 * for a prime q of subPrimeBits bits, and g = 2^((p-1)/q) mod p. The caller
 * gives params->prime and params->generator of (primeBits + 7) / 8 bytes;
 * both lengths are set to that. REQUIRES: primeBits <= 1024 (larger values
 * return KT_RE_LEN) and 2 <= subPrimeBits < primeBits.
 */
KT_API uint32_t R_GenerateDHParams(R_DHParams* params, uint32_t primeBits, uint32_t subPrimeBits,
                                   R_RandomContext* randomContext);
/*
 * R_SetupDHAgreement - draws privateValueLen random bytes into privateValue
 * and writes y = g^x mod p with primeLen bytes into publicValue.
 */
KT_API uint32_t R_SetupDHAgreement(unsigned char* publicValue, unsigned char* privateValue,
                                   uint32_t privateValueLen, const R_DHParams* params,
                                   R_RandomContext* randomContext);
/*
 * R_ComputeDHAgreedKey - writes z = y^x mod p (primeLen bytes) for the other
 * party's y of primeLen bytes; y >= p returns KT_RE_DATA.
 */
KT_API uint32_t R_ComputeDHAgreedKey(unsigned char* agreedKey, const unsigned char* otherPublicValue,
                                     const unsigned char* privateValue, uint32_t privateValueLen,
                                     const R_DHParams* params);

/* Internal steps, exported for callers that use them. */

/* a = a probable prime with b <= a <= c and a = 1 mod d, from one random
 * draw of 4 x digits bytes, then stepping by d. KT_RE_DATA when the range is
 * exhausted; the generator's status when it fails. */
KT_API uint32_t GeneratePrime(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, const NN_DIGIT* d,
                              uint32_t digits, R_RandomContext* randomContext);
/* No factor among 3, 5, 7, 11 and 2^a mod a = 2. */
KT_API uint8_t ProbablePrime(const NN_DIGIT* a, uint32_t digits);
/* 1 when 3, 5, 7 or 11 divides a (a itself being one of them excepted). */
KT_API uint8_t SmallFactor(const NN_DIGIT* a, uint32_t digits);
/* 1 when 2^a mod a = 2. */
KT_API uint8_t FermatTest(const NN_DIGIT* a, uint32_t digits);
/* 1 when gcd(a, b) = 1, computed over aDigits digits. */
KT_API uint8_t RelativelyPrime(const NN_DIGIT* a, uint32_t aDigits, const NN_DIGIT* b,
                               uint32_t bDigits);
/* 1 when gcd(a - 1, b) = 1. */
KT_API uint8_t RSAFilter(const NN_DIGIT* a, uint32_t aDigits, const NN_DIGIT* b, uint32_t bDigits);

/* ========================================================================
 * RSA with PKCS #1 v1.5 blocks. modulusLen = (bits + 7) / 8; output buffers
 * hold modulusLen bytes. Keys of more than 1024 bits are refused with
 * KT_RE_LEN. Outputs are unspecified after a failure.
 */

/* Block type 2 (random non-zero padding) then x^e mod n. inputLen + 11 >
 * modulusLen returns KT_RE_LEN. A failure of the generator ends the call
 * with its status (KT_RE_NEED_RANDOM from an unseeded one), since such a
 * generator would never yield the non-zero padding bytes. */
KT_API uint32_t RSAPublicEncrypt(unsigned char* output, uint32_t* outputLen,
                                 const unsigned char* input, uint32_t inputLen,
                                 const R_RSAPublicKey* publicKey, R_RandomContext* randomContext);
/* Block type 1 (FF padding) then the CRT private operation. */
KT_API uint32_t RSAPrivateEncrypt(unsigned char* output, uint32_t* outputLen,
                                  const unsigned char* input, uint32_t inputLen,
                                  const R_RSAPrivateKey* privateKey);
/* Public operation, then checks and strips a type-1 block: KT_RE_LEN for an
 * input longer than modulusLen, KT_RE_DATA for an input >= n or a malformed
 * block. output receives at most modulusLen - 11 bytes. */
KT_API uint32_t RSAPublicDecrypt(unsigned char* output, uint32_t* outputLen,
                                 const unsigned char* input, uint32_t inputLen,
                                 const R_RSAPublicKey* publicKey);
/* Private operation, then checks and strips a type-2 block (same statuses). */
KT_API uint32_t RSAPrivateDecrypt(unsigned char* output, uint32_t* outputLen,
                                  const unsigned char* input, uint32_t inputLen,
                                  const R_RSAPrivateKey* privateKey);

/* Internal steps, exported for callers that use them. */

/* output = input^e mod n, modulusLen bytes; KT_RE_DATA when input >= n.
 * Variable-time in e (square and multiply over its bits): e is public. */
KT_API uint32_t RSAPublicBlock(unsigned char* output, uint32_t* outputLen,
                               const unsigned char* input, uint32_t inputLen,
                               const R_RSAPublicKey* publicKey);
/* output = input^d mod n by CRT, modulusLen bytes; KT_RE_DATA when input >= n.
 * Both halves run through the constant-time exponentiation of NN_ModExp,
 * which also reduces the input modulo p and q without division, and the
 * recombination subtracts, adds p back and multiplies without branching on
 * values. Still variable-time: the refusal of an input >= n; the digit
 * counts and bit lengths of n, p and q; the fallback for a key whose p or q
 * is even or below 2 (division and NN_ModExp's even path); and, in
 * RSAPrivateDecrypt, the checks of the recovered type-2 block, whose status
 * tells a well-formed block from a malformed one. */
KT_API uint32_t RSAPrivateBlock(unsigned char* output, uint32_t* outputLen,
                                const unsigned char* input, uint32_t inputLen,
                                const R_RSAPrivateKey* privateKey);

/* ========================================================================
 * Signatures: PKCS #1 v1.5 type-1 blocks around a DigestInfo. The context is
 * an R_DigestContext; a successful Final starts it again with the same
 * algorithm, so the next message can follow without a new Init.
 */
KT_API uint32_t R_SignInit(R_DigestContext* context, int32_t digestAlgorithm);
KT_API uint32_t R_SignUpdate(R_DigestContext* context, const unsigned char* partIn,
                             uint32_t partInLen);
/* Writes modulusLen (at most 128) bytes to signature. KT_RE_PRIVATE_KEY when
 * the private-key operation fails. */
KT_API uint32_t R_SignFinal(R_DigestContext* context, unsigned char* signature,
                            uint32_t* signatureLen, const R_RSAPrivateKey* privateKey);
KT_API uint32_t R_VerifyInit(R_DigestContext* context, int32_t digestAlgorithm);
KT_API uint32_t R_VerifyUpdate(R_DigestContext* context, const unsigned char* partIn,
                               uint32_t partInLen);
/* KT_RE_LEN for signatureLen > 128 (the digest is then not consumed),
 * KT_RE_PUBLIC_KEY when the public-key operation fails, KT_RE_SIGNATURE when
 * the recovered DigestInfo differs. */
KT_API uint32_t R_VerifyFinal(R_DigestContext* context, const unsigned char* signature,
                              uint32_t signatureLen, const R_RSAPublicKey* publicKey);
/* Init, Update and Final on a local context, cleared on every path. */
KT_API uint32_t R_SignBlock(unsigned char* signature, uint32_t* signatureLen,
                            const unsigned char* block, uint32_t blockLen, int32_t digestAlgorithm,
                            const R_RSAPrivateKey* privateKey);
KT_API uint32_t R_VerifyBlockSignature(const unsigned char* block, uint32_t blockLen,
                                       const unsigned char* signature, uint32_t signatureLen,
                                       int32_t digestAlgorithm, const R_RSAPublicKey* publicKey);

/* ========================================================================
 * Digital envelopes: content under a fresh DES-family key (PKCS #5 padding),
 * the key RSA-encrypted for each recipient.
 */

/*
 * R_SealInit - draws the content key (8 bytes for KT_EA_DES_CBC, else 24)
 * and the 8-byte iv, and encrypts the key for each of the publicKeyCount
 * recipients into encryptedKeys[i] (modulusLen bytes each), with the length
 * in encryptedKeyLens[i]. Statuses: the generator's (KT_RE_NEED_RANDOM),
 * KT_RE_ENCRYPTION_ALGORITHM, KT_RE_PUBLIC_KEY (a recipient failed).
 */
KT_API uint32_t R_SealInit(R_EnvelopeContext* context, unsigned char** encryptedKeys,
                           uint32_t* encryptedKeyLens, unsigned char iv[8],
                           uint32_t publicKeyCount, R_RSAPublicKey** publicKeys,
                           int32_t encryptionAlgorithm, R_RandomContext* randomContext);
/* Encrypts what completes whole blocks; partOut holds partInLen + 7 bytes. */
KT_API uint32_t R_SealUpdate(R_EnvelopeContext* context, unsigned char* partOut,
                             uint32_t* partOutLen, const unsigned char* partIn, uint32_t partInLen);
/* Pads and writes the last 8 bytes; the context can then seal another
 * message with the same key and IV. */
KT_API uint32_t R_SealFinal(R_EnvelopeContext* context, unsigned char* partOut,
                            uint32_t* partOutLen);
/* Recovers the content key: KT_RE_LEN for encryptedKeyLen > 128,
 * KT_RE_PRIVATE_KEY when it cannot be recovered or has the wrong length,
 * KT_RE_ENCRYPTION_ALGORITHM. */
KT_API uint32_t R_OpenInit(R_EnvelopeContext* context, int32_t encryptionAlgorithm,
                           const unsigned char* encryptedKey, uint32_t encryptedKeyLen,
                           const unsigned char iv[8], const R_RSAPrivateKey* privateKey);
/* Decrypts all but the last block; partOut holds partInLen + 7 bytes. */
KT_API uint32_t R_OpenUpdate(R_EnvelopeContext* context, unsigned char* partOut,
                             uint32_t* partOutLen, const unsigned char* partIn, uint32_t partInLen);
/* Decrypts the held-back block and strips the padding (0 to 7 bytes out).
 * KT_RE_CONTENT for an incomplete block or bad padding. An empty cryptogram
 * is accepted and gives nothing. */
KT_API uint32_t R_OpenFinal(R_EnvelopeContext* context, unsigned char* partOut,
                            uint32_t* partOutLen);

/* ========================================================================
 * Printable encoding: RFC 1421 (Base64) without line breaks.
 */
/* Encodes blockLen bytes into 4 x ceil(blockLen / 3) characters (no NUL).
 * Returns 0. */
KT_API uint32_t R_EncodePEMBlock(unsigned char* encodedBlock, uint32_t* encodedBlockLen,
                                 const unsigned char* block, uint32_t blockLen);
/* Decodes; KT_RE_ENCODING for a length that is not a multiple of 4, a
 * character outside the alphabet, or "=" other than in the last two places.
 * block holds 3 x encodedBlockLen / 4 bytes. */
KT_API uint32_t R_DecodePEMBlock(unsigned char* block, uint32_t* blockLen,
                                 const unsigned char* encodedBlock, uint32_t encodedBlockLen);

/*
 * R_SignPEMBlock - signs content and encodes the signature (at most 172
 * characters); with recode non-zero also encodes content into
 * encodedContent (4 x ceil(contentLen / 3) characters).
 */
KT_API uint32_t R_SignPEMBlock(unsigned char* encodedContent, uint32_t* encodedContentLen,
                               unsigned char* encodedSignature, uint32_t* encodedSignatureLen,
                               const unsigned char* content, uint32_t contentLen, int32_t recode,
                               int32_t digestAlgorithm, const R_RSAPrivateKey* privateKey);
/*
 * R_VerifyPEMSignature - with recode non-zero decodes encodedContent into
 * content (KT_RE_CONTENT_ENCODING when not printable) and verifies that;
 * otherwise verifies encodedContent as it is and sets *contentLen to its
 * length. KT_RE_SIGNATURE_ENCODING for a signature longer than 173
 * characters or not printable; then the statuses of R_VerifyFinal.
 */
KT_API uint32_t R_VerifyPEMSignature(unsigned char* content, uint32_t* contentLen,
                                     const unsigned char* encodedContent,
                                     uint32_t encodedContentLen,
                                     const unsigned char* encodedSignature,
                                     uint32_t encodedSignatureLen, int32_t recode,
                                     int32_t digestAlgorithm, const R_RSAPublicKey* publicKey);
/*
 * R_SealPEMBlock - signs content with privateKey, seals it under DES-CBC for
 * publicKey and writes the printable cryptogram, encrypted key and encrypted
 * signature, and the 8-byte iv. encryptedContent holds
 * 4 x (contentLen / 24 + 1) x 8 bytes; encryptedKey 172; encryptedSignature 184.
 */
KT_API uint32_t R_SealPEMBlock(unsigned char* encryptedContent, uint32_t* encryptedContentLen,
                               unsigned char* encryptedKey, uint32_t* encryptedKeyLen,
                               unsigned char* encryptedSignature, uint32_t* encryptedSignatureLen,
                               unsigned char iv[8], const unsigned char* content,
                               uint32_t contentLen, int32_t digestAlgorithm,
                               R_RSAPublicKey* publicKey, const R_RSAPrivateKey* privateKey,
                               R_RandomContext* randomContext);
/*
 * R_OpenPEMBlock - opens what R_SealPEMBlock made and verifies the
 * signature. Statuses: KT_RE_KEY_ENCODING (key longer than 173 characters
 * or not printable), KT_RE_SIGNATURE_ENCODING (signature longer than 184
 * characters or not printable), KT_RE_CONTENT_ENCODING (content not
 * printable), KT_RE_CONTENT (content cannot be opened), those of R_OpenInit
 * and of R_VerifyFinal. content holds 3 x encryptedContentLen / 4 bytes.
 */
KT_API uint32_t R_OpenPEMBlock(unsigned char* content, uint32_t* contentLen,
                               const unsigned char* encryptedContent, uint32_t encryptedContentLen,
                               const unsigned char* encryptedKey, uint32_t encryptedKeyLen,
                               const unsigned char* encryptedSignature,
                               uint32_t encryptedSignatureLen, const unsigned char iv[8],
                               int32_t digestAlgorithm, const R_RSAPrivateKey* privateKey,
                               const R_RSAPublicKey* publicKey);

/* Internal steps, exported for callers that use them. */

/* Dispatch to the DES family by identifier; KT_RE_ENCRYPTION_ALGORITHM for
 * an unknown one. CipherInit records the identifier in the context, on which
 * CipherUpdate and CipherRestart then dispatch. */
KT_API uint32_t CipherInit(R_EnvelopeContext* context, int32_t encryptionAlgorithm,
                           const unsigned char* key, const unsigned char* iv, int32_t encrypt);
KT_API uint32_t CipherUpdate(R_EnvelopeContext* context, unsigned char* output,
                             const unsigned char* input, uint32_t len);
KT_API void CipherRestart(R_EnvelopeContext* context);
/* Seals content and encodes the cryptogram in 32-character pieces. */
KT_API uint32_t EncryptPEMUpdateFinal(R_EnvelopeContext* context, unsigned char* encryptedContent,
                                      uint32_t* encryptedContentLen, const unsigned char* content,
                                      uint32_t contentLen);
/* Decodes and opens a printable cryptogram (statuses of R_DecodePEMBlock
 * and R_OpenFinal). */
KT_API uint32_t DecryptPEMUpdateFinal(R_EnvelopeContext* context, unsigned char* content,
                                      uint32_t* contentLen, const unsigned char* encryptedContent,
                                      uint32_t encryptedContentLen);
/* 3 bytes to 4 characters. */
KT_API void EncodeQuantum(unsigned char encodedBlock[4], const unsigned char block[3]);
/* 1 to 3 bytes to 4 characters, "=" for the missing ones. */
KT_API void EncodeLastQuantum(unsigned char encodedBlock[4], const unsigned char* block,
                              uint32_t blockLen);
/* 4 characters to 3 bytes; KT_RE_ENCODING for a character outside the
 * alphabet ("=" included). */
KT_API uint32_t DecodeQuantum(unsigned char block[3], const unsigned char encodedBlock[4]);
/* Last 4 characters to 1 to 3 bytes; "=" allowed in the last two places. */
KT_API uint32_t DecodeLastQuantum(unsigned char* block, uint32_t* blockLen,
                                  const unsigned char encodedBlock[4]);

KT_END_DECLS

#endif /* KT_CRYPTO_H */
