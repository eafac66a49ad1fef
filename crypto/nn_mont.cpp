// Modular exponentiation with Montgomery multiplication (odd moduli), and
// NN_ModExp on top of it.
//
// Numbers are moved from the 32-bit digit arrays into wide limbs, multiplied
// with the interleaved (FIOS) Montgomery product, unrolled for each limb
// count, and moved back. The exponentiation is a fixed 4-bit window over all
// of cDigits x 32 exponent bits: every window costs four squarings, a scan
// of the whole 16-entry table under masks and one multiplication, whatever
// the bits are. What still depends on values, and is public: the digit
// counts given, the significant length and bit length of the modulus, and
// whether the modulus is odd. The base's value never steers a branch either.
#include "crypto/nn_mont.h"

#include <utility>

namespace kt::crypto {
namespace {

constexpr std::uint32_t kWindowBits = 4;
constexpr std::uint32_t kTableSize = 1u << kWindowBits;

// Keeps the optimiser from turning masked selections back into branches.
inline Limb Opaque(Limb x) noexcept {
#if defined(__GNUC__)
  __asm__("" : "+r"(x));
#endif
  return x;
}

// All ones when x == y, else zero, without comparing.
inline Limb EqualMask(Limb x, Limb y) noexcept {
  const Limb z = x ^ y;
  return Opaque(static_cast<Limb>(0) - ((~z & (z - 1)) >> (kLimbBits - 1)));
}

// Clears a leaf's scratch a limb at a time: the byte-wise wipe would cost a
// third of a product.
template <std::size_t N>
inline void WipeLimbs(Limb (&t)[N]) noexcept {
  volatile Limb* p = t;
  for (std::size_t i = 0; i < N; ++i) p[i] = 0;
}

inline Limb Lo(WideLimb x) noexcept { return static_cast<Limb>(x); }
inline Limb Hi(WideLimb x) noexcept { return static_cast<Limb>(x >> kLimbBits); }

// r = t - n when t (k limbs below the top limb `t_top`) is at least n, else
// t; t < 2n. The subtraction is always done, under a mask.
template <std::uint32_t K>
inline void FinalSubtract(Limb* r, const Limb* t, Limb t_top, const Limb* n) noexcept {
  Limb borrow = 0;
  for (std::uint32_t j = 0; j < K; ++j) {
    borrow = Hi(static_cast<WideLimb>(t[j]) - n[j] - borrow) & 1;
  }
  // t < n exactly when the subtraction borrows past the top limb.
  const Limb take = Opaque(static_cast<Limb>(0) - ((borrow & ~t_top & 1) ^ 1));
  borrow = 0;
  for (std::uint32_t j = 0; j < K; ++j) {
    const WideLimb d = static_cast<WideLimb>(t[j]) - (n[j] & take) - borrow;
    r[j] = Lo(d);
    borrow = Hi(d) & 1;
  }
}

// A three-limb column accumulator for product scanning: every product is
// added into registers, and only finished limbs are stored.
struct Column {
  WideLimb low = 0;  // the two lower limbs
  Limb top = 0;

  inline void Add(WideLimb p) noexcept {
    low += p;
    top += static_cast<Limb>(low < p);
  }
  // The finished lowest limb out, the rest down one limb.
  inline Limb Shift() noexcept {
    const Limb out = Lo(low);
    low = (low >> kLimbBits) | (static_cast<WideLimb>(top) << kLimbBits);
    top = 0;
    return out;
  }
};

inline WideLimb Product(Limb x, Limb y) noexcept { return static_cast<WideLimb>(x) * y; }

// r = a b / R mod n for a b < n R; r may alias a or b. Product and
// reduction are scanned column by column (the quotient limbs mi computed as
// their column is reached), so the partial sums stay in registers.
template <std::uint32_t K>
void MontMul(Limb* r, const Limb* a, const Limb* b, const MontModulus& m) {
  const Limb* n = m.n;
  Limb q[K], t[K];
  Column acc;
#pragma GCC unroll 32
  for (std::uint32_t i = 0; i < K; ++i) {
#pragma GCC unroll 32
    for (std::uint32_t j = 0; j < i; ++j) {
      acc.Add(Product(a[j], b[i - j]));
      acc.Add(Product(q[j], n[i - j]));
    }
    acc.Add(Product(a[i], b[0]));
    q[i] = Lo(acc.low) * m.n0;
    acc.Add(Product(q[i], n[0]));
    acc.Shift();
  }
#pragma GCC unroll 32
  for (std::uint32_t i = K; i < 2 * K - 1; ++i) {
#pragma GCC unroll 32
    for (std::uint32_t j = i - K + 1; j < K; ++j) {
      acc.Add(Product(a[j], b[i - j]));
      acc.Add(Product(q[j], n[i - j]));
    }
    t[i - K] = acc.Shift();
  }
  t[K - 1] = acc.Shift();
  FinalSubtract<K>(r, t, Lo(acc.low), n);
  WipeLimbs(q);
  WipeLimbs(t);
}

// r = a^2 / R mod n for a < n: the same scan with each cross product taken
// once and doubled.
template <std::uint32_t K>
void MontSqr(Limb* r, const Limb* a, const MontModulus& m) {
  const Limb* n = m.n;
  Limb q[K], t[K];
  Column acc;
  // Adds the column's cross products a[j] a[i - j], j < i - j, twice.
  auto cross = [a, &acc](std::uint32_t i, std::uint32_t from) {
    Column pairs;
#pragma GCC unroll 32
    for (std::uint32_t j = from; 2 * j < i; ++j) pairs.Add(Product(a[j], a[i - j]));
    // Twice the pairs: at most three limbs since each pair sum is below 2^(3 limbs - 1).
    const Limb carry = static_cast<Limb>(pairs.low >> (2 * kLimbBits - 1));
    pairs.top = (pairs.top << 1) | carry;
    pairs.low <<= 1;
    acc.Add(pairs.low);
    acc.top += pairs.top;
    if (i % 2 == 0) acc.Add(Product(a[i / 2], a[i / 2]));
  };
#pragma GCC unroll 32
  for (std::uint32_t i = 0; i < K; ++i) {
    cross(i, 0);
#pragma GCC unroll 32
    for (std::uint32_t j = 0; j < i; ++j) acc.Add(Product(q[j], n[i - j]));
    q[i] = Lo(acc.low) * m.n0;
    acc.Add(Product(q[i], n[0]));
    acc.Shift();
  }
#pragma GCC unroll 32
  for (std::uint32_t i = K; i < 2 * K - 1; ++i) {
    cross(i, i - K + 1);
#pragma GCC unroll 32
    for (std::uint32_t j = i - K + 1; j < K; ++j) acc.Add(Product(q[j], n[i - j]));
    t[i - K] = acc.Shift();
  }
  t[K - 1] = acc.Shift();
  FinalSubtract<K>(r, t, Lo(acc.low), n);
  WipeLimbs(q);
  WipeLimbs(t);
}

template <std::uint32_t... K>
void PickFor(MontModulus& m, std::integer_sequence<std::uint32_t, K...>) {
  static_cast<void>(
      ((m.k == K + 1 && (m.mul = &MontMul<K + 1>, m.sqr = &MontSqr<K + 1>, true)) || ...));
}

std::uint32_t LimbsFor(std::uint32_t digits) {
  return (digits + kDigitsPerLimb - 1) / kDigitsPerLimb;
}

// out (k limbs) = the first `digits` digits of d, zero above.
void ToLimbs(Limb* out, std::uint32_t k, const NN_DIGIT* d, std::uint32_t digits) {
  for (std::uint32_t i = 0; i < k; ++i) {
    Limb x = 0;
    for (std::uint32_t u = 0; u < kDigitsPerLimb; ++u) {
      const std::uint32_t j = i * kDigitsPerLimb + u;
      if (j < digits) x |= static_cast<Limb>(d[j]) << (u * kDigitBits);
    }
    out[i] = x;
  }
}

// out (`digits` digits) = x (k limbs), zero above.
void ToDigits(NN_DIGIT* out, std::uint32_t digits, const Limb* x, std::uint32_t k) {
  for (std::uint32_t j = 0; j < digits; ++j) {
    const std::uint32_t i = j / kDigitsPerLimb;
    out[j] = i < k ? static_cast<NN_DIGIT>(x[i] >> ((j % kDigitsPerLimb) * kDigitBits)) : 0;
  }
}

// r = a + b mod n, for a, b < n.
void ModAdd(Limb* r, const Limb* a, const Limb* b, const MontModulus& m) {
  Limb s[kMaxLimbs];
  Limb carry = 0;
  for (std::uint32_t j = 0; j < m.k; ++j) {
    const WideLimb x = static_cast<WideLimb>(a[j]) + b[j] + carry;
    s[j] = Lo(x);
    carry = Hi(x);
  }
  Limb borrow = 0;
  for (std::uint32_t j = 0; j < m.k; ++j) {
    borrow = Hi(static_cast<WideLimb>(s[j]) - m.n[j] - borrow) & 1;
  }
  const Limb take = Opaque(static_cast<Limb>(0) - ((borrow & ~carry & 1) ^ 1));
  borrow = 0;
  for (std::uint32_t j = 0; j < m.k; ++j) {
    const WideLimb d = static_cast<WideLimb>(s[j]) - (m.n[j] & take) - borrow;
    r[j] = Lo(d);
    borrow = Hi(d) & 1;
  }
  WipeLimbs(s);
}

void Copy(Limb* r, const Limb* a, std::uint32_t k) {
  for (std::uint32_t j = 0; j < k; ++j) r[j] = a[j];
}

// The Montgomery form b R mod n of b (b_digits digits, any size): Horner's
// rule over chunks of k limbs, each one brought in with one product by R^2.
void ToMont(Limb* out, const NN_DIGIT* b, std::uint32_t b_digits, const MontModulus& m) {
  const std::uint32_t k = m.k;
  const std::uint32_t chunk_digits = k * kDigitsPerLimb;
  const std::uint32_t chunks = (b_digits + chunk_digits - 1) / chunk_digits;
  Limb x[kMaxLimbs] = {};
  WipeOnExit wipe(x);
  for (std::uint32_t j = 0; j < k; ++j) out[j] = 0;
  for (std::uint32_t c = chunks; c-- > 0;) {
    const std::uint32_t first = c * chunk_digits;
    ToLimbs(x, k, b + first, b_digits - first);
    m.mul(x, x, m.rr, m);
    if (c + 1 != chunks) {
      m.mul(out, out, m.rr, m);
      ModAdd(out, out, x, m);
    } else {
      Copy(out, x, k);
    }
  }
}

// Back from Montgomery form into `digits` digits.
void FromMont(NN_DIGIT* a, std::uint32_t digits, const Limb* x, const MontModulus& m) {
  Limb unit[kMaxLimbs] = {1};
  Limb y[kMaxLimbs];
  WipeOnExit wipe(y);
  m.mul(y, x, unit, m);
  ToDigits(a, digits, y, m.k);
}

// Selects table[w] by reading every entry, each under its mask.
void Select(Limb* out, const Limb (*table)[kMaxLimbs], Limb w, std::uint32_t k) {
  Limb mask[kTableSize];
  for (std::uint32_t i = 0; i < kTableSize; ++i) mask[i] = EqualMask(i, w);
  for (std::uint32_t j = 0; j < k; ++j) {
    Limb x = 0;
    for (std::uint32_t i = 0; i < kTableSize; ++i) x |= table[i][j] & mask[i];
    out[j] = x;
  }
  WipeLimbs(mask);  // the masks spell out the window's bits
}

std::uint32_t LimbBitLength(Limb x) {
  std::uint32_t bits = 0;
  for (; x != 0; x >>= 1) ++bits;
  return bits;
}

}  // namespace

void MontSetup(MontModulus& m, const NN_DIGIT* d, std::uint32_t d_digits) noexcept {
  m.digits = NN_Digits(d, d_digits);
  m.k = LimbsFor(m.digits);
  PickFor(m, std::make_integer_sequence<std::uint32_t, kMaxLimbs>{});
  const std::uint32_t k = m.k;
  ToLimbs(m.n, kMaxLimbs, d, m.digits);

  // -1/n mod 2^limb by Newton's iteration: n is its own inverse mod 8.
  Limb inv = m.n[0];
  for (int i = 0; i < 5; ++i) inv *= 2 - m.n[0] * inv;
  m.n0 = static_cast<Limb>(0) - inv;

  // R mod n by doubling 2^(bits - 1) < n up to 2^(k x limb bits), with
  // masked subtractions: one doubling for the usual full-length modulus.
  const std::uint32_t bits = (k - 1) * kLimbBits + LimbBitLength(m.n[k - 1]);
  Limb x[kMaxLimbs] = {};
  WipeOnExit wipe(x);
  x[(bits - 1) / kLimbBits] = static_cast<Limb>(1) << ((bits - 1) % kLimbBits);
  for (std::uint32_t i = bits - 1; i < k * kLimbBits; ++i) ModAdd(x, x, x, m);
  Copy(m.one, x, k);
  // R^2 mod n is R in Montgomery form: 2 in Montgomery form raised to the
  // public power k x limb bits, where a product by 2 is a doubling.
  ModAdd(x, x, x, m);
  const std::uint32_t e = k * kLimbBits;
  for (std::uint32_t bit = LimbBitLength(e) - 1; bit-- > 0;) {
    m.sqr(x, x, m);
    if ((e >> bit) & 1) ModAdd(x, x, x, m);
  }
  Copy(m.rr, x, k);
  for (std::uint32_t j = k; j < kMaxLimbs; ++j) m.one[j] = m.rr[j] = 0;
}

void MontExp(NN_DIGIT* a, const NN_DIGIT* b, std::uint32_t b_digits, const NN_DIGIT* c,
             std::uint32_t c_digits, const MontModulus& m) noexcept {
  const std::uint32_t k = m.k;
  Limb table[kTableSize][kMaxLimbs];
  Limb acc[kMaxLimbs], y[kMaxLimbs];
  WipeOnExit wipe(table, acc, y);
  Copy(table[0], m.one, k);
  ToMont(table[1], b, b_digits, m);
  for (std::uint32_t i = 2; i < kTableSize; ++i) {
    if (i % 2 == 0) {
      m.sqr(table[i], table[i / 2], m);
    } else {
      m.mul(table[i], table[i - 1], table[1], m);
    }
  }

  // Windows from the top, every one of them, every multiplication done.
  Copy(acc, m.one, k);
  const std::uint32_t windows = c_digits * (kDigitBits / kWindowBits);
  for (std::uint32_t w = windows; w-- > 0;) {
    const std::uint32_t pos = w * kWindowBits;
    const Limb bits = (c[pos / kDigitBits] >> (pos % kDigitBits)) & (kTableSize - 1);
    Select(y, table, bits, k);
    if (w + 1 == windows) {
      Copy(acc, y, k);
      continue;
    }
    for (std::uint32_t s = 0; s < kWindowBits; ++s) m.sqr(acc, acc, m);
    m.mul(acc, acc, y, m);
  }
  FromMont(a, m.digits, acc, m);
}

void MontExpPublic(NN_DIGIT* a, const NN_DIGIT* b, std::uint32_t b_digits, const NN_DIGIT* c,
                   std::uint32_t c_digits, const MontModulus& m) noexcept {
  Limb base[kMaxLimbs], acc[kMaxLimbs];
  WipeOnExit wipe(base, acc);
  ToMont(base, b, b_digits, m);
  const std::uint32_t bits = NN_Bits(c, c_digits);
  Copy(acc, bits == 0 ? m.one : base, m.k);
  for (std::uint32_t i = bits == 0 ? 0 : bits - 1; i-- > 0;) {
    m.sqr(acc, acc, m);
    if ((c[i / kDigitBits] >> (i % kDigitBits)) & 1) m.mul(acc, acc, base, m);
  }
  FromMont(a, m.digits, acc, m);
}

void MontModMult(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, const MontModulus& m) noexcept {
  Limb x[kMaxLimbs], y[kMaxLimbs];
  WipeOnExit wipe(x, y);
  ToLimbs(x, m.k, b, m.digits);
  ToLimbs(y, m.k, c, m.digits);
  m.mul(x, x, y, m);     // b c / R
  m.mul(x, x, m.rr, m);  // b c
  ToDigits(a, m.digits, x, m.k);
}

}  // namespace kt::crypto

using kt::WipeOnExit;
using kt::crypto::MaskIfNonZero;

/* see kt_crypto.h */
void NN_ModExp(NN_DIGIT* a, const NN_DIGIT* b, const NN_DIGIT* c, uint32_t cDigits,
               const NN_DIGIT* d, uint32_t dDigits) {
  if (dDigits > kt::crypto::kMaxDigits) return;  // beyond capacity
  const uint32_t d_digits = NN_Digits(d, dDigits);
  if (d_digits == 0) {  // no modulus: every reduction is a no-op, t stays 1
    kt::crypto::AssignDigit(a, 1, dDigits);
    return;
  }
  if ((d[0] & 1) == 0) {
    kt::crypto::ModExpByDivision(a, b, c, cDigits, d, dDigits);
    return;
  }
  if (d_digits == 1 && d[0] == 1) {
    // Modulo 1 everything is 0, except c^0, which stays the unreduced 1.
    NN_DIGIT any = 0;
    for (uint32_t i = 0; i < cDigits; ++i) any |= c[i];
    kt::crypto::AssignDigit(a, ~MaskIfNonZero(any) & 1, dDigits);
    return;
  }
  kt::crypto::MontModulus m;
  WipeOnExit wipe(m);
  kt::crypto::MontSetup(m, d, d_digits);
  kt::crypto::MontExp(a, b, dDigits, c, cDigits, m);
  NN_AssignZero(a + m.digits, dDigits - m.digits);
}
