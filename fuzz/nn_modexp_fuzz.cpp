// NN_ModExp against an oracle on fuzzer-chosen operands: modulus of 1 to 33
// digits (odd or even, leading zero digits allowed), base of any value the
// digit count holds, exponent of up to 33 digits. The oracle is OpenSSL's
// exponentiation where the build has it, and the division-based one
// otherwise; that one took four fifths of the time, and its answers for a
// zero exponent or modulus (1, whatever the modulus) are the library's own
// conventions, so it keeps those cases.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz/fuzz_keys.h"
#include "tests/crypto/nn_oracle.h"

#if defined(KT_HAVE_OPENSSL)
#include <openssl/bn.h>
#endif

namespace {

constexpr std::uint32_t kMaxBytes = 4 * MAX_NN_DIGITS;

#if defined(KT_HAVE_OPENSSL)
BIGNUM* ToBignum(const NN_DIGIT* x, std::uint32_t digits) {
  unsigned char bytes[kMaxBytes];
  NN_Encode(bytes, 4 * digits, x, digits);
  return BN_bin2bn(bytes, static_cast<int>(4 * digits), nullptr);
}

// a (d_digits digits) = b^c mod d, for c and d not zero.
void PeerModExp(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, std::uint32_t c_digits,
                const NN_DIGIT* d, std::uint32_t d_digits) {
  BIGNUM* bb = ToBignum(b, d_digits);
  BIGNUM* bc = ToBignum(c, c_digits);
  BIGNUM* bd = ToBignum(d, d_digits);
  BIGNUM* r = BN_new();
  BN_CTX* ctx = BN_CTX_new();
  if (bb == nullptr || bc == nullptr || bd == nullptr || r == nullptr || ctx == nullptr ||
      BN_mod_exp(r, bb, bc, bd, ctx) != 1) {
    std::abort();
  }
  unsigned char bytes[kMaxBytes];
  if (BN_bn2binpad(r, bytes, static_cast<int>(4 * d_digits)) < 0) std::abort();
  NN_Decode(a, d_digits, bytes, 4 * d_digits);
  BN_CTX_free(ctx);
  BN_free(r);
  BN_free(bd);
  BN_free(bc);
  BN_free(bb);
}
#endif

void Oracle(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, std::uint32_t c_digits,
            const NN_DIGIT* d, std::uint32_t d_digits) {
#if defined(KT_HAVE_OPENSSL)
  if (!NN_Zero(c, c_digits) && !NN_Zero(d, d_digits)) {
    PeerModExp(a, b, c, c_digits, d, d_digits);
    return;
  }
#endif
  kt::test::OracleModExp(a, b, c, c_digits, d, d_digits);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kt::fuzz::Reader in(data, size);
  const std::uint32_t d_digits = 1 + in.Byte() % MAX_NN_DIGITS;
  const std::uint32_t c_digits = in.Byte() % (MAX_NN_DIGITS + 1);
  NN_DIGIT b[MAX_NN_DIGITS] = {}, c[MAX_NN_DIGITS] = {}, d[MAX_NN_DIGITS] = {};
  std::size_t taken;
  const std::uint8_t* p = in.Take(4 * d_digits, &taken);
  NN_Decode(d, d_digits, p, static_cast<std::uint32_t>(taken));
  p = in.Take(4 * c_digits, &taken);
  NN_Decode(c, c_digits, p, static_cast<std::uint32_t>(taken));
  p = in.Take(4 * d_digits, &taken);
  NN_Decode(b, d_digits, p, static_cast<std::uint32_t>(taken));

  NN_DIGIT ours[MAX_NN_DIGITS + 1], oracle[MAX_NN_DIGITS + 1];
  std::memset(ours, 0xA5, sizeof ours);
  std::memset(oracle, 0xA5, sizeof oracle);
  NN_ModExp(ours, b, c, c_digits, d, d_digits);
  Oracle(oracle, b, c, c_digits, d, d_digits);
  if (std::memcmp(ours, oracle, sizeof ours) != 0) std::abort();
  return 0;
}
