// Helpers shared by the toolkit's tests: hex conversion, a seeded random
// context, reproducible random numbers, and conversions to OpenSSL's BIGNUM
// for the differential tests.
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
// RSA objects are built with the low-level interface, deprecated in
// OpenSSL 3 but the shortest way to load given key components.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#include <openssl/bn.h>
#include <openssl/rsa.h>
#endif

namespace kt::test {

using ByteVector = std::vector<unsigned char>;

inline std::string Hex(const unsigned char* p, std::size_t n) {
  static const char kDigits[] = "0123456789abcdef";
  std::string s;
  for (std::size_t i = 0; i < n; ++i) {
    s += kDigits[p[i] >> 4];
    s += kDigits[p[i] & 15];
  }
  return s;
}
inline std::string Hex(const ByteVector& v) { return Hex(v.data(), v.size()); }

inline ByteVector FromHex(std::string_view hex) {
  ByteVector out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<unsigned char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
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

// Key pairs made once per process with a fixed seed, by modulus length.
struct KeyPair {
  R_RSAPublicKey pub;
  R_RSAPrivateKey priv;
};
inline const KeyPair& TestKey(uint32_t bits) {
  static std::map<uint32_t, KeyPair> cache;
  auto it = cache.find(bits);
  if (it == cache.end()) {
    R_RandomContext random = SeededRandom(bits + 1000);
    R_ProtoKey proto = {bits, 1};
    KeyPair pair;
    if (R_GeneratePEMKeys(&pair.pub, &pair.priv, &proto, &random) != KT_RE_OK) std::abort();
    it = cache.emplace(bits, pair).first;
  }
  return it->second;
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
    switch (shape % 3) {
      case 0: n[i] = rng(); break;
      case 1: n[i] = (rng() % 4 == 0) ? rng() : 0xFFFFFFFFu; break;
      default: n[i] = (rng() % 4 == 0) ? rng() : 0; break;
    }
  }
  return n;
}

#ifdef KT_HAVE_OPENSSL
struct BnDeleter {
  void operator()(BIGNUM* b) const { BN_free(b); }
};
using Bn = std::unique_ptr<BIGNUM, BnDeleter>;

inline Bn ToBn(const NN_DIGIT* a, unsigned digits) {
  std::vector<unsigned char> bytes(4 * digits + 1);
  NN_Encode(bytes.data(), static_cast<uint32_t>(bytes.size()), a, digits);
  return Bn(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
}

// The number as `digits` digits (zero-extended).
inline std::vector<NN_DIGIT> FromBn(const BIGNUM* b, unsigned digits) {
  std::vector<unsigned char> bytes(4 * digits);
  BN_bn2binpad(b, bytes.data(), static_cast<int>(bytes.size()));
  std::vector<NN_DIGIT> n(MAX_NN_DIGITS * 2 + 1, 0);
  NN_Decode(n.data(), digits, bytes.data(), static_cast<uint32_t>(bytes.size()));
  return n;
}

// The key pair as an OpenSSL RSA object (freed with RSA_free).
inline RSA* ToOpenSsl(const KeyPair& key) {
  auto bn = [](const unsigned char* p, int len) { return BN_bin2bn(p, len, nullptr); };
  RSA* rsa = RSA_new();
  RSA_set0_key(rsa, bn(key.priv.modulus, 128), bn(key.priv.publicExponent, 128),
               bn(key.priv.exponent, 128));
  RSA_set0_factors(rsa, bn(key.priv.prime[0], 64), bn(key.priv.prime[1], 64));
  RSA_set0_crt_params(rsa, bn(key.priv.primeExponent[0], 64), bn(key.priv.primeExponent[1], 64),
                      bn(key.priv.coefficient, 64));
  return rsa;
}
#endif

}  // namespace kt::test

#endif  // KT_TESTS_CRYPTO_CRYPTO_TEST_UTIL_H_
