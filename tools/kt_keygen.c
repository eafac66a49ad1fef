/*
 * kt_keygen - makes a 1024-bit RSA key pair for signed binary table files
 * with the library's own key generation, seeded with 256 bytes from the
 * operating system's random source (/dev/urandom).
 *
 * Usage: kt_keygen BASE
 * writes BASE.key (the private-key file that KT_usLibererFichierBinaire
 * signs with) and BASE.pub (the public-key file that the build turns into
 * the library's MODULUS and EXPONENT, through KT_PUBLIC_KEY_FILE).
 *
 *   BASE.pub  "1024" modulus(128) public exponent(128)
 *   BASE.key  "1024" modulus(128) public exponent(128) private exponent(128)
 *             p(64) q(64) d mod (p-1)(64) d mod (q-1)(64) q^-1 mod p(64)
 *
 * Numbers are big-endian and follow the digits with no separator. The new
 * pair signs and verifies a test message before anything is written.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kt.h"

#define SEED_BYTES 256
#define KEY_BITS 1024

/* Clears secrets through a volatile pointer, which the optimiser keeps. */
static void wipe(void* p, size_t n) {
  volatile unsigned char* b = (volatile unsigned char*)p;
  while (n-- != 0) *b++ = 0;
}

static int read_seed(unsigned char* seed) {
  FILE* source = fopen("/dev/urandom", "rb");
  size_t got;
  if (source == NULL) return 0;
  got = fread(seed, 1, SEED_BYTES, source);
  fclose(source);
  return got == SEED_BYTES;
}

/* Writes "1024" and the fields; the first modulus byte of a 1024-bit key is
 * 0x80 or more, so it can never be taken for a digit of the size. */
static int write_file(const char* path, const unsigned char* const* fields, const size_t* sizes,
                      int count) {
  FILE* out = fopen(path, "wb");
  int ok;
  int i;
  if (out == NULL) return 0;
  ok = fprintf(out, "%d", KEY_BITS) > 0;
  for (i = 0; ok && i < count; ++i) ok = fwrite(fields[i], 1, sizes[i], out) == sizes[i];
  if (fclose(out) != 0) ok = 0;
  return ok;
}

static int self_test(const R_RSAPublicKey* public_key, const R_RSAPrivateKey* private_key) {
  static const unsigned char message[] = "kt_keygen self-test";
  unsigned char signature[KT_MAX_SIGNATURE_LEN];
  uint32_t signature_len = 0;
  if (R_SignBlock(signature, &signature_len, message, sizeof message, KT_DA_MD5, private_key) !=
          KT_RE_OK ||
      signature_len != KT_MAX_SIGNATURE_LEN) {
    return 0;
  }
  return R_VerifyBlockSignature(message, sizeof message, signature, signature_len, KT_DA_MD5,
                                public_key) == KT_RE_OK;
}

int main(int argc, char** argv) {
  unsigned char seed[SEED_BYTES];
  R_RandomContext random;
  R_ProtoKey proto;
  R_RSAPublicKey public_key;
  R_RSAPrivateKey private_key;
  uint32_t needed = 1;
  uint32_t status;
  char path[4096];
  int ok;

  if (argc != 2 || strlen(argv[1]) + 5 > sizeof path) {
    fprintf(stderr, "usage: kt_keygen BASE   (writes BASE.key and BASE.pub)\n");
    return 2;
  }
  if (!read_seed(seed)) {
    fprintf(stderr, "kt_keygen: cannot read %d bytes from /dev/urandom\n", SEED_BYTES);
    return 1;
  }
  R_RandomInit(&random);
  R_RandomUpdate(&random, seed, SEED_BYTES);
  wipe(seed, sizeof seed);
  R_GetRandomBytesNeeded(&needed, &random);
  proto.bits = KEY_BITS;
  proto.useFermat4 = 1;
  status = needed == 0 ? R_GeneratePEMKeys(&public_key, &private_key, &proto, &random)
                       : KT_RE_NEED_RANDOM;
  R_RandomFinal(&random);
  if (status != KT_RE_OK || !self_test(&public_key, &private_key)) {
    fprintf(stderr, "kt_keygen: key generation failed (status 0x%03X)\n", (unsigned)status);
    wipe(&private_key, sizeof private_key);
    return 1;
  }

  {
    const unsigned char* public_fields[2];
    const size_t public_sizes[2] = {KT_MAX_RSA_MODULUS_LEN, KT_MAX_RSA_MODULUS_LEN};
    const unsigned char* private_fields[8];
    const size_t private_sizes[8] = {KT_MAX_RSA_MODULUS_LEN, KT_MAX_RSA_MODULUS_LEN,
                                     KT_MAX_RSA_MODULUS_LEN, KT_MAX_RSA_PRIME_LEN,
                                     KT_MAX_RSA_PRIME_LEN,   KT_MAX_RSA_PRIME_LEN,
                                     KT_MAX_RSA_PRIME_LEN,   KT_MAX_RSA_PRIME_LEN};
    public_fields[0] = public_key.modulus;
    public_fields[1] = public_key.exponent;
    private_fields[0] = private_key.modulus;
    private_fields[1] = private_key.publicExponent;
    private_fields[2] = private_key.exponent;
    private_fields[3] = private_key.prime[0];
    private_fields[4] = private_key.prime[1];
    private_fields[5] = private_key.primeExponent[0];
    private_fields[6] = private_key.primeExponent[1];
    private_fields[7] = private_key.coefficient;

    snprintf(path, sizeof path, "%s.key", argv[1]);
    ok = write_file(path, private_fields, private_sizes, 8);
    if (ok) {
      snprintf(path, sizeof path, "%s.pub", argv[1]);
      ok = write_file(path, public_fields, public_sizes, 2);
    }
  }
  wipe(&private_key, sizeof private_key);
  if (!ok) {
    fprintf(stderr, "kt_keygen: cannot write %s\n", path);
    return 1;
  }
  printf("kt_keygen: wrote %s.key and %s.pub (%d bits)\n", argv[1], argv[1], KEY_BITS);
  return 0;
}
