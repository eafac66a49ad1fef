// Constant-time check, run under Valgrind's Memcheck: the secret exponents
// are marked undefined, so any branch or memory address that depends on
// them is reported as a use of an uninitialised value. Run with
//   valgrind --error-exitcode=1 kt_ct_check
// The results are marked defined again before they are looked at.
#include <valgrind/memcheck.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "kt_crypto.h"

namespace {

void Fill(NN_DIGIT* a, unsigned digits, unsigned seed) {
  for (unsigned i = 0; i < digits; ++i) a[i] = (seed + i) * 2654435761u ^ (i << 7);
}

// b^c mod d for several sizes, c undefined over its whole digit count.
bool CheckModExp() {
  for (unsigned digits : {1u, 8u, 16u, 17u, 32u, 33u}) {
    NN_DIGIT a[MAX_NN_DIGITS] = {}, b[MAX_NN_DIGITS] = {}, c[MAX_NN_DIGITS] = {},
             d[MAX_NN_DIGITS] = {};
    Fill(d, digits, 1);
    d[0] |= 1;
    d[digits - 1] |= 0x80000000u;
    Fill(b, digits, 2);
    NN_Mod(b, b, digits, d, digits);
    Fill(c, digits, 3);
    VALGRIND_MAKE_MEM_UNDEFINED(c, digits * sizeof c[0]);
    NN_ModExp(a, b, c, digits, d, digits);
    VALGRIND_MAKE_MEM_DEFINED(a, digits * sizeof a[0]);
    VALGRIND_MAKE_MEM_DEFINED(c, digits * sizeof c[0]);
  }
  return true;
}

// The CRT private operation with dP, dQ and qInv undefined.
bool CheckPrivateBlock() {
  R_RandomContext random;
  R_RandomInit(&random);
  unsigned char seed[256];
  for (unsigned i = 0; i < sizeof seed; ++i) seed[i] = static_cast<unsigned char>(i * 13);
  R_RandomUpdate(&random, seed, sizeof seed);
  R_RSAPublicKey pub;
  R_RSAPrivateKey priv;
  R_ProtoKey proto = {1024, 1};
  if (R_GeneratePEMKeys(&pub, &priv, &proto, &random) != KT_RE_OK) return false;

  unsigned char input[128], output[128];
  for (unsigned i = 0; i < sizeof input; ++i) input[i] = static_cast<unsigned char>(i * 7);
  input[0] = 0;
  VALGRIND_MAKE_MEM_UNDEFINED(priv.primeExponent, sizeof priv.primeExponent);
  VALGRIND_MAKE_MEM_UNDEFINED(priv.coefficient, sizeof priv.coefficient);
  uint32_t len = 0;
  const uint32_t status = RSAPrivateBlock(output, &len, input, sizeof input, &priv);
  VALGRIND_MAKE_MEM_DEFINED(output, sizeof output);
  VALGRIND_MAKE_MEM_DEFINED(&priv, sizeof priv);
  return status == KT_RE_OK && len == 128;
}

}  // namespace

int main() {
  if (!CheckModExp() || !CheckPrivateBlock()) {
    std::puts("constant-time check: setup failed");
    return 1;
  }
  std::puts(RUNNING_ON_VALGRIND ? "constant-time check ran under valgrind"
                                : "constant-time check: run it under valgrind");
  return 0;
}
