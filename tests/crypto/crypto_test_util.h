// Helpers shared by the toolkit's tests: hex conversion, a seeded random
// context, reproducible random numbers and cached key pairs, and the bridges
// to OpenSSL (BIGNUM, RSA, DES) for the differential tests.
#ifndef KT_TESTS_CRYPTO_CRYPTO_TEST_UTIL_H_
#define KT_TESTS_CRYPTO_CRYPTO_TEST_UTIL_H_

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "kt_crypto.h"

#ifdef KT_HAVE_OPENSSL
// RSA objects and single DES/DESX are reached through the low-level
// interfaces, deprecated in OpenSSL 3 but the only ones offering them
// without the legacy provider.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <openssl/bn.h>
#include <openssl/des.h>
#include <openssl/rsa.h>
#endif

namespace kt::test {

using ByteVector = std::vector<unsigned char>;

inline std::string Hex(const unsigned char* p, std::size_t n) {
  static const char kDigits[] = "0123456789abcdef";
  std::string s;
  for (std::size_t i = 0; i < n; ++i) s.append({kDigits[p[i] >> 4], kDigits[p[i] & 15]});
  return s;
}

inline ByteVector FromHex(std::string_view hex) {
  ByteVector out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<unsigned char>(std::stoi(std::string(hex.substr(i, 2)), 0, 16)));
  }
  return out;
}

inline ByteVector Text(std::string_view s) { return ByteVector(s.begin(), s.end()); }

// A generator seeded with 256 bytes derived from `seed`: reproducible.
inline R_RandomContext SeededRandom(unsigned seed) {
  R_RandomContext context;
  R_RandomInit(&context);
  unsigned char block[256];
  for (unsigned i = 0; i < sizeof block; ++i) block[i] = static_cast<unsigned char>(seed * 31 + i);
  R_RandomUpdate(&context, block, sizeof block);
  return context;
}

inline R_RandomContext UnseededRandom() {
  R_RandomContext context;
  R_RandomInit(&context);
  return context;
}

// Key pairs made once per process with a fixed seed, by modulus length.
struct KeyPair {
  R_RSAPublicKey pub;
  R_RSAPrivateKey priv;
};
inline const KeyPair& TestKey(uint32_t bits) {
  static std::map<uint32_t, KeyPair> cache;
  if (!cache.count(bits)) {
    R_RandomContext random = SeededRandom(bits + 1000);
    R_ProtoKey proto = {bits, 1};
    KeyPair& pair = cache[bits];
    if (R_GeneratePEMKeys(&pair.pub, &pair.priv, &proto, &random) != KT_RE_OK) std::abort();
  }
  return cache.at(bits);
}

inline ByteVector RandomBytes(std::mt19937& rng, std::size_t n) {
  ByteVector v(n);
  for (auto& b : v) b = static_cast<unsigned char>(rng());
  return v;
}

// A number of `digits` digits with random content; `shape` picks plain
// random digits, all-ones runs or sparse digits, which stress the carries
// and the quotient corrections.
inline std::vector<NN_DIGIT> RandomNumber(std::mt19937& rng, unsigned digits, unsigned shape = 0) {
  std::vector<NN_DIGIT> n(MAX_NN_DIGITS * 2 + 1, 0);
  for (unsigned i = 0; i < digits; ++i) {
    const NN_DIGIT r = rng();
    n[i] = (shape % 3 == 0 || r % 4 == 0) ? rng() : shape % 3 == 1 ? 0xFFFFFFFFu : 0;
  }
  return n;
}

#ifdef KT_HAVE_OPENSSL
struct BnDeleter {
  void operator()(BIGNUM* b) const { BN_free(b); }
};
using Bn = std::unique_ptr<BIGNUM, BnDeleter>;

inline Bn BnOf(const unsigned char* p, std::size_t len) {
  return Bn(BN_bin2bn(p, static_cast<int>(len), nullptr));
}

inline Bn ToBn(const NN_DIGIT* a, unsigned digits) {
  std::vector<unsigned char> bytes(4 * digits + 1);
  NN_Encode(bytes.data(), static_cast<uint32_t>(bytes.size()), a, digits);
  return BnOf(bytes.data(), bytes.size());
}

// The key pair as an OpenSSL RSA object (freed with RSA_free).
inline RSA* ToOpenSsl(const KeyPair& key) {
  auto bn = [](const unsigned char* p, std::size_t len) { return BnOf(p, len).release(); };
  const R_RSAPrivateKey& k = key.priv;
  RSA* rsa = RSA_new();
  RSA_set0_key(rsa, bn(k.modulus, 128), bn(k.publicExponent, 128), bn(k.exponent, 128));
  RSA_set0_factors(rsa, bn(k.prime[0], 64), bn(k.prime[1], 64));
  RSA_set0_crt_params(rsa, bn(k.primeExponent[0], 64), bn(k.primeExponent[1], 64),
                      bn(k.coefficient, 64));
  return rsa;
}

// OpenSSL's CBC for a content-encryption algorithm (KT_EA_...) over the
// first 8 (DES) or 24 bytes of `key`; `encrypt` 1 or 0.
inline ByteVector OpenSslCbc(int32_t algorithm, const unsigned char* key, const unsigned char* iv,
                             const ByteVector& in, int encrypt) {
  DES_cblock k[3], ivec;
  DES_key_schedule s[3];
  for (int i = 0; i < 3; ++i) {
    std::memcpy(k[i], key + 8 * (algorithm == KT_EA_DES_CBC ? 0 : i), 8);
    DES_set_key_unchecked(&k[i], &s[i]);
  }
  std::memcpy(ivec, iv, 8);
  ByteVector out(in.size());
  const long n = static_cast<long>(in.size());
  if (algorithm == KT_EA_DES_CBC) {
    DES_ncbc_encrypt(in.data(), out.data(), n, &s[0], &ivec, encrypt);
  } else if (algorithm == KT_EA_DESX_CBC) {
    DES_xcbc_encrypt(in.data(), out.data(), n, &s[0], &ivec, &k[1], &k[2], encrypt);
  } else {
    DES_ede3_cbc_encrypt(in.data(), out.data(), n, &s[0], &s[1], &s[2], &ivec, encrypt);
  }
  return out;
}
#endif

}  // namespace kt::test

#endif  // KT_TESTS_CRYPTO_CRYPTO_TEST_UTIL_H_
