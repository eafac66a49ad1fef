// A fixed 512-bit key pair for the toolkit's fuzz targets, made once per
// process from a constant seed, and a small reader over the fuzz input.
#ifndef KT_FUZZ_FUZZ_KEYS_H_
#define KT_FUZZ_FUZZ_KEYS_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "kt_crypto.h"

namespace kt::fuzz {

struct FixedKeys {
  R_RSAPublicKey pub;
  R_RSAPrivateKey priv;
  R_RandomContext random;
};

inline FixedKeys& Keys() {
  static FixedKeys* keys = [] {
    static FixedKeys k;
    R_RandomInit(&k.random);
    unsigned char seed[256] = {42};
    R_RandomUpdate(&k.random, seed, sizeof seed);
    R_ProtoKey proto = {512, 1};
    if (R_GeneratePEMKeys(&k.pub, &k.priv, &proto, &k.random) != KT_RE_OK) std::abort();
    return &k;
  }();
  return *keys;
}

// Takes bytes from the front of the input; past the end it gives zeros.
class Reader {
 public:
  Reader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  std::uint8_t Byte() { return size_ != 0 ? (--size_, *data_++) : 0; }
  const std::uint8_t* rest() const { return data_; }
  std::size_t left() const { return size_; }
  // Up to n bytes; *taken says how many there were.
  const std::uint8_t* Take(std::size_t n, std::size_t* taken) {
    *taken = n < size_ ? n : size_;
    const std::uint8_t* p = data_;
    data_ += *taken;
    size_ -= *taken;
    return p;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

}  // namespace kt::fuzz

#endif  // KT_FUZZ_FUZZ_KEYS_H_
