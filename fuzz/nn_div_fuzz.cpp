// NN_Div on arbitrary operands of up to 66 and 33 digits: the quotient and
// remainder must satisfy c = q d + r with r < d (no oracle needed), and a
// zero divisor must leave both outputs untouched.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz/fuzz_keys.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kt::fuzz::Reader in(data, size);
  const std::uint32_t c_digits = in.Byte() % (2 * MAX_NN_DIGITS + 1);
  const std::uint32_t d_digits = 1 + in.Byte() % MAX_NN_DIGITS;
  NN_DIGIT c[2 * MAX_NN_DIGITS] = {}, d[MAX_NN_DIGITS] = {};
  std::size_t taken;
  const std::uint8_t* p = in.Take(4 * d_digits, &taken);
  NN_Decode(d, d_digits, p, static_cast<std::uint32_t>(taken));
  p = in.Take(4 * c_digits, &taken);
  NN_Decode(c, c_digits, p, static_cast<std::uint32_t>(taken));

  NN_DIGIT q[2 * MAX_NN_DIGITS], r[MAX_NN_DIGITS];
  std::memset(q, 0xA5, sizeof q);
  std::memset(r, 0x5A, sizeof r);
  NN_Div(q, r, c, c_digits, d, d_digits);
  if (NN_Zero(d, d_digits)) {
    for (NN_DIGIT x : q) if (x != 0xA5A5A5A5u) std::abort();
    for (NN_DIGIT x : r) if (x != 0x5A5A5A5Au) std::abort();
    return 0;
  }
  if (NN_Cmp(r, d, d_digits) >= 0) std::abort();

  // t = q d + r over c_digits + d_digits + 1 digits.
  NN_DIGIT t[3 * MAX_NN_DIGITS + 2] = {};
  for (std::uint32_t i = 0; i < c_digits; ++i) {
    t[i + d_digits] += NN_AddDigitMult(&t[i], &t[i], q[i], d, d_digits);
  }
  NN_DIGIT carry = NN_Add(t, t, r, d_digits);
  for (std::uint32_t i = d_digits; carry != 0 && i < sizeof t / sizeof t[0]; ++i) {
    carry = (++t[i] == 0);
  }
  if (NN_Cmp(t, c, c_digits) != 0) std::abort();
  if (!NN_Zero(&t[c_digits], d_digits + 1)) std::abort();
  return 0;
}
