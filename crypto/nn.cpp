// Fixed-capacity multi-precision arithmetic on non-negative integers, sized
// for 1024-bit RSA (33 digits of 32 bits, products of 66), and the toolkit's
// byte helpers R_memset, R_memcpy, R_memcmp.
//
// A number is an array of NN_DIGIT, least significant digit first, with its
// digit count beside it; digits above the count are never read. Nothing is
// allocated: temporaries are stack arrays, cleared before every return since
// these routines run on private-key material. The digit primitives use a
// 64-bit intermediate; the division, the exponentiation window and the
// inverse follow the classic schoolbook formulation step by step. None of it
// is constant-time (the loops depend on the values).
#include <cstring>

#include "crypto/crypto_internal.h"
#include "crypto/nn_mont.h"

namespace kt::crypto {
namespace {

constexpr NN_DIGIT kMaxDigit = 0xFFFFFFFFu;

// Shifts by c bits (1..31 shift, 0 copies, 32 or more writes nothing) and
// returns the bits pushed out: the top ones of the last digit going left, the
// bottom ones of digit 0, left-aligned, going right.
template <bool kLeft>
NN_DIGIT Shift(NN_DIGIT* a, const NN_DIGIT* b, std::uint32_t c, std::uint32_t digits) noexcept {
  if (c >= kDigitBits) return 0;
  if (c == 0) {
    NN_Assign(a, b, digits);
    return 0;
  }
  const std::uint32_t t = kDigitBits - c;
  NN_DIGIT carry = 0;
  for (std::uint32_t k = 0; k < digits; ++k) {
    const std::uint32_t i = kLeft ? k : digits - 1 - k;
    const NN_DIGIT bi = b[i];
    a[i] = kLeft ? (bi << c) | carry : (bi >> c) | carry;
    carry = kLeft ? bi >> t : bi << t;
  }
  return carry;
}

// Scratch of one long division: the normalised dividend (2 x 33 + 1 digits)
// and divisor.
struct DivScratch {
  NN_DIGIT cc[2 * kMaxDigits + 1];
  NN_DIGIT dd[kMaxDigits];
};

// The division steps, with the quotient optional (a == nullptr) and the
// scratch supplied, so that repeated reductions clear it only once.
void DivCore(NN_DIGIT* a, NN_DIGIT* b, const NN_DIGIT* c, std::uint32_t c_digits, const NN_DIGIT* d,
             std::uint32_t d_digits, DivScratch& s) noexcept {
  const std::uint32_t dd_digits = NN_Digits(d, d_digits);
  if (dd_digits == 0) return;  // division by zero writes nothing

  const std::uint32_t shift = kDigitBits - NN_DigitBits(d[dd_digits - 1]);
  s.cc[c_digits] = NN_LShift(s.cc, c, shift, c_digits);
  // A dividend shorter than the divisor: the remainder reads these digits.
  if (dd_digits > c_digits + 1) NN_AssignZero(&s.cc[c_digits + 1], dd_digits - c_digits - 1);
  NN_LShift(s.dd, d, shift, dd_digits);
  const NN_DIGIT t = s.dd[dd_digits - 1];

  if (a != nullptr) NN_AssignZero(a, c_digits);
  for (std::int64_t i = static_cast<std::int64_t>(c_digits) - dd_digits; i >= 0; --i) {
    NN_DIGIT* window = &s.cc[i];
    NN_DIGIT ai;
    // Underestimate the quotient digit, then correct it upwards.
    if (t == kMaxDigit) {
      ai = window[dd_digits];
    } else {
      NN_DigitDiv(&ai, &window[dd_digits - 1], t + 1);
    }
    window[dd_digits] -= NN_SubDigitMult(window, window, ai, s.dd, dd_digits);
    while (window[dd_digits] != 0 || NN_Cmp(window, s.dd, dd_digits) >= 0) {
      ++ai;
      window[dd_digits] -= NN_Sub(window, window, s.dd, dd_digits);
    }
    if (a != nullptr) a[i] = ai;
  }

  NN_AssignZero(b, d_digits);
  NN_RShift(b, s.cc, shift, dd_digits);
}

// Product into a 66-digit buffer, without the final copy.
void MultCore(NN_DIGIT* t, const NN_DIGIT* b, const NN_DIGIT* c, std::uint32_t digits) noexcept {
  NN_AssignZero(t, 2 * digits);
  const std::uint32_t b_digits = NN_Digits(b, digits);
  const std::uint32_t c_digits = NN_Digits(c, digits);
  for (std::uint32_t i = 0; i < b_digits; ++i) {
    t[i + c_digits] += NN_AddDigitMult(&t[i], &t[i], b[i], c, c_digits);
  }
}

struct ModMultScratch {
  Product t;
  DivScratch div;
};

void ModMultCore(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, const NN_DIGIT* d,
                 std::uint32_t digits, ModMultScratch& s) noexcept {
  MultCore(s.t, b, c, digits);
  DivCore(nullptr, a, s.t, 2 * digits, d, digits, s.div);
}

}  // namespace
}  // namespace kt::crypto

using kt::WipeOnExit;
using kt::crypto::kDigitBits;
using kt::crypto::kMaxDigits;

// The classic 2-bit window with division after every product: the path for
// even moduli, which Montgomery reduction cannot take. It skips leading zero
// bits and multiplies only for non-zero windows, so it is not constant-time.
void kt::crypto::ModExpByDivision(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c,
                                  uint32_t cDigits, const NN_DIGIT* d, uint32_t dDigits) noexcept {
  using kt::crypto::ModMultCore;
  // One scratch for every product and reduction, cleared once at the end.
  // The powers start cleared: a zero modulus leaves them unwritten.
  NN_DIGIT b_power[3][kMaxDigits] = {};
  kt::crypto::Number t;
  kt::crypto::ModMultScratch scratch;
  WipeOnExit wipe(b_power, t, scratch);

  // b, b^2 and b^3 for the 2-bit window.
  NN_Assign(b_power[0], b, dDigits);
  ModMultCore(b_power[1], b_power[0], b, d, dDigits, scratch);
  ModMultCore(b_power[2], b_power[1], b, d, dDigits, scratch);

  NN_AssignZero(t, kMaxDigits);
  t[0] = 1;
  const std::uint32_t e_digits = NN_Digits(c, cDigits);
  for (std::int64_t i = static_cast<std::int64_t>(e_digits) - 1; i >= 0; --i) {
    NN_DIGIT ci = c[i];
    std::uint32_t ci_bits = kDigitBits;
    if (i == static_cast<std::int64_t>(e_digits) - 1) {
      // Skip the leading 00 pairs of the top digit.
      while ((ci >> (kDigitBits - 2)) == 0) {
        ci <<= 2;
        ci_bits -= 2;
      }
    }
    for (std::uint32_t j = 0; j < ci_bits; j += 2, ci <<= 2) {
      ModMultCore(t, t, t, d, dDigits, scratch);
      ModMultCore(t, t, t, d, dDigits, scratch);
      const NN_DIGIT s = ci >> (kDigitBits - 2);
      if (s != 0) ModMultCore(t, t, b_power[s - 1], d, dDigits, scratch);
    }
  }
  NN_Assign(a, t, dDigits);
}

/* see kt_crypto.h */
void R_memset(void* output, int32_t value, uint32_t len) {
  if (len != 0) std::memset(output, value, len);
}

/* see kt_crypto.h */
void R_memcpy(void* output, const void* input, uint32_t len) {
  if (len != 0) std::memcpy(output, input, len);
}

/* see kt_crypto.h */
int32_t R_memcmp(const void* firstBlock, const void* secondBlock, uint32_t len) {
  if (len == 0) return 0;
  const auto* x = static_cast<const unsigned char*>(firstBlock);
  const auto* y = static_cast<const unsigned char*>(secondBlock);
  for (uint32_t i = 0; i < len; ++i) {
    if (x[i] != y[i]) return static_cast<int32_t>(x[i]) - static_cast<int32_t>(y[i]);
  }
  return 0;
}

/* see kt_crypto.h */
void NN_Decode(NN_DIGIT* a, uint32_t digits, const unsigned char* b, uint32_t len) {
  // Bytes are taken from the end of the string, four per digit.
  uint32_t i = 0;
  int64_t j = static_cast<int64_t>(len) - 1;
  for (; i < digits && j >= 0; ++i) {
    NN_DIGIT t = 0;
    for (uint32_t u = 0; j >= 0 && u < kDigitBits; --j, u += 8) t |= NN_DIGIT{b[j]} << u;
    a[i] = t;
  }
  for (; i < digits; ++i) a[i] = 0;
}

/* see kt_crypto.h */
void NN_Encode(unsigned char* a, uint32_t len, const NN_DIGIT* b, uint32_t digits) {
  int64_t j = static_cast<int64_t>(len) - 1;
  for (uint32_t i = 0; i < digits && j >= 0; ++i) {
    const NN_DIGIT t = b[i];
    for (uint32_t u = 0; j >= 0 && u < kDigitBits; --j, u += 8) {
      a[j] = static_cast<unsigned char>(t >> u);
    }
  }
  for (; j >= 0; --j) a[j] = 0;
}

/* see kt_crypto.h */
void NN_Assign(NN_DIGIT* a, const NN_DIGIT* b, uint32_t digits) {
  for (uint32_t i = 0; i < digits; ++i) a[i] = b[i];
}

/* see kt_crypto.h */
void NN_AssignZero(NN_DIGIT* a, uint32_t digits) {
  for (uint32_t i = 0; i < digits; ++i) a[i] = 0;
}

/* see kt_crypto.h */
void NN_Assign2Exp(NN_DIGIT* a, uint32_t b, uint32_t digits) {
  NN_AssignZero(a, digits);
  if (b >= kDigitBits * static_cast<uint64_t>(digits)) return;
  a[b / kDigitBits] = NN_DIGIT{1} << (b % kDigitBits);
}

/* see kt_crypto.h */
NN_DIGIT NN_Add(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t digits) {
  NN_DIGIT carry = 0;
  for (uint32_t i = 0; i < digits; ++i) {
    const uint64_t sum = uint64_t{b[i]} + c[i] + carry;
    a[i] = static_cast<NN_DIGIT>(sum);
    carry = static_cast<NN_DIGIT>(sum >> 32);
  }
  return carry;
}

/* see kt_crypto.h */
NN_DIGIT NN_Sub(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t digits) {
  NN_DIGIT borrow = 0;
  for (uint32_t i = 0; i < digits; ++i) {
    const uint64_t diff = uint64_t{b[i]} - c[i] - borrow;
    a[i] = static_cast<NN_DIGIT>(diff);
    borrow = static_cast<NN_DIGIT>((diff >> 32) & 1);
  }
  return borrow;
}

/* see kt_crypto.h */
void NN_Mult(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t digits) {
  if (digits > kMaxDigits) return;  // beyond capacity: defined, writes nothing
  kt::crypto::Product t;
  WipeOnExit wipe(t);
  kt::crypto::MultCore(t, b, c, digits);
  NN_Assign(a, t, 2 * digits);
}

/* see kt_crypto.h */
NN_DIGIT NN_LShift(NN_DIGIT* a, const NN_DIGIT* b, uint32_t c, uint32_t digits) {
  return kt::crypto::Shift<true>(a, b, c, digits);
}

/* see kt_crypto.h */
NN_DIGIT NN_RShift(NN_DIGIT* a, const NN_DIGIT* b, uint32_t c, uint32_t digits) {
  return kt::crypto::Shift<false>(a, b, c, digits);
}

/* see kt_crypto.h */
void NN_Div(NN_DIGIT* a, NN_DIGIT* b, const NN_DIGIT* c, uint32_t cDigits, const NN_DIGIT* d,
            uint32_t dDigits) {
  if (cDigits > 2 * kMaxDigits || dDigits > kMaxDigits) return;  // beyond capacity
  kt::crypto::DivScratch s;
  WipeOnExit wipe(s);
  kt::crypto::DivCore(a, b, c, cDigits, d, dDigits, s);
}

/* see kt_crypto.h */
void NN_Mod(NN_DIGIT* a, const NN_DIGIT* b, uint32_t bDigits, const NN_DIGIT* c, uint32_t cDigits) {
  if (bDigits > 2 * kMaxDigits || cDigits > kMaxDigits) return;  // beyond capacity
  kt::crypto::Product t;
  kt::crypto::DivScratch s;
  WipeOnExit wipe(t, s);
  kt::crypto::DivCore(t, a, b, bDigits, c, cDigits, s);
}

/* see kt_crypto.h */
void NN_ModMult(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, const NN_DIGIT* d,
                uint32_t digits) {
  if (digits > kMaxDigits) return;  // beyond capacity
  kt::crypto::ModMultScratch s;
  WipeOnExit wipe(s);
  kt::crypto::ModMultCore(a, b, c, d, digits, s);
}

/* see kt_crypto.h */
void NN_ModInv(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t digits) {
  if (digits > kMaxDigits) return;  // beyond capacity
  // Extended Euclid keeping one cofactor and its sign.
  kt::crypto::Number q, t1, t3, u1, u3, v1, v3;
  kt::crypto::Product w;
  WipeOnExit wipe(q, t1, t3, u1, u3, v1, v3, w);
  kt::crypto::AssignDigit(u1, 1, digits);
  NN_AssignZero(v1, digits);
  NN_Assign(u3, b, digits);
  NN_Assign(v3, c, digits);
  int32_t u1_sign = 1;
  while (!NN_Zero(v3, digits)) {
    NN_Div(q, t3, u3, digits, v3, digits);
    NN_Mult(w, q, v1, digits);
    NN_Add(t1, u1, w, digits);
    NN_Assign(u1, v1, digits);
    NN_Assign(v1, t1, digits);
    NN_Assign(u3, v3, digits);
    NN_Assign(v3, t3, digits);
    u1_sign = -u1_sign;
  }
  if (u1_sign < 0) {
    NN_Sub(a, c, u1, digits);
  } else {
    NN_Assign(a, u1, digits);
  }
}

/* see kt_crypto.h */
void NN_Gcd(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t digits) {
  if (digits > kMaxDigits) return;  // beyond capacity
  kt::crypto::Number t, u, v;
  WipeOnExit wipe(t, u, v);
  NN_Assign(u, b, digits);
  NN_Assign(v, c, digits);
  while (!NN_Zero(v, digits)) {
    NN_Mod(t, u, digits, v, digits);
    NN_Assign(u, v, digits);
    NN_Assign(v, t, digits);
  }
  NN_Assign(a, u, digits);
}

/* see kt_crypto.h */
int32_t NN_Cmp(const NN_DIGIT* a, const NN_DIGIT* b, uint32_t digits) {
  for (int64_t i = static_cast<int64_t>(digits) - 1; i >= 0; --i) {
    if (a[i] > b[i]) return 1;
    if (a[i] < b[i]) return -1;
  }
  return 0;
}

/* see kt_crypto.h */
uint8_t NN_Zero(const NN_DIGIT* a, uint32_t digits) {
  for (uint32_t i = 0; i < digits; ++i) {
    if (a[i] != 0) return 0;
  }
  return 1;
}

/* see kt_crypto.h */
uint32_t NN_Bits(const NN_DIGIT* a, uint32_t digits) {
  digits = NN_Digits(a, digits);
  if (digits == 0) return 0;
  return (digits - 1) * kDigitBits + NN_DigitBits(a[digits - 1]);
}

/* see kt_crypto.h */
uint32_t NN_Digits(const NN_DIGIT* a, uint32_t digits) {
  while (digits != 0 && a[digits - 1] == 0) --digits;
  return digits;
}

/* see kt_crypto.h */
uint32_t NN_DigitBits(NN_DIGIT a) {
  uint32_t i = 0;
  for (; i < kDigitBits && a != 0; ++i) a >>= 1;
  return i;
}

/* see kt_crypto.h */
void NN_DigitMult(NN_DIGIT a[2], NN_DIGIT b, NN_DIGIT c) {
  const uint64_t t = uint64_t{b} * c;
  a[0] = static_cast<NN_DIGIT>(t);
  a[1] = static_cast<NN_DIGIT>(t >> 32);
}

/* see kt_crypto.h */
void NN_DigitDiv(NN_DIGIT* a, const NN_DIGIT b[2], NN_DIGIT c) {
  if (c == 0) {
    *a = 0xFFFFFFFFu;  // precondition broken: a defined value instead of a trap
    return;
  }
  // With b[1] < c the quotient fits one digit and equals the half-digit
  // method's result exactly.
  const uint64_t dividend = (uint64_t{b[1]} << 32) | b[0];
  *a = static_cast<NN_DIGIT>(dividend / c);
}

/* see kt_crypto.h */
NN_DIGIT NN_AddDigitMult(NN_DIGIT* a, const NN_DIGIT* b, NN_DIGIT c, const NN_DIGIT* d,
                         uint32_t digits) {
  if (c == 0) return 0;
  NN_DIGIT carry = 0;
  for (uint32_t i = 0; i < digits; ++i) {
    // At most (2^32 - 1)^2 + 2 (2^32 - 1) = 2^64 - 1: no overflow.
    const uint64_t t = uint64_t{c} * d[i] + b[i] + carry;
    a[i] = static_cast<NN_DIGIT>(t);
    carry = static_cast<NN_DIGIT>(t >> 32);
  }
  return carry;
}

/* see kt_crypto.h */
NN_DIGIT NN_SubDigitMult(NN_DIGIT* a, const NN_DIGIT* b, NN_DIGIT c, const NN_DIGIT* d,
                         uint32_t digits) {
  if (c == 0) return 0;
  NN_DIGIT borrow = 0;
  for (uint32_t i = 0; i < digits; ++i) {
    const uint64_t t = uint64_t{c} * d[i] + borrow;
    const NN_DIGIT low = static_cast<NN_DIGIT>(t);
    const NN_DIGIT bi = b[i];
    a[i] = bi - low;
    borrow = static_cast<NN_DIGIT>(t >> 32) + (bi < low ? 1u : 0u);
  }
  return borrow;
}
