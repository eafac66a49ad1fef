// NN_ModExp against the division-based oracle on fuzzer-chosen operands:
// modulus of 1 to 33 digits (odd or even, leading zero digits allowed), base
// of any value the digit count holds, exponent of up to 33 digits.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz/fuzz_keys.h"
#include "tests/crypto/nn_oracle.h"

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
  kt::test::OracleModExp(oracle, b, c, c_digits, d, d_digits);
  if (std::memcmp(ours, oracle, sizeof ours) != 0) std::abort();
  return 0;
}
