// Reference model of the real formats, built from the value itself: a
// logical word (sign, exponent, fraction as numbers) decodes to its exact
// value and a value encodes by frexp and truncation, with the bytes cut
// out by division. It shares no bit arithmetic with the library, so a wrong
// shift or mask there cannot hide behind the same mistake here. Also the
// speed reference of the format benchmark.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace vqoracle {

enum class Fmt { Ieee4, Ieee8, DecF, DecD, DecG, Ibm4, Ibm8 };

// bias: the value of a normal word is 1.f x 2^(exponent - bias) for IEEE
// and DEC (whose 0.1f form is one more); IBM is 0.f x 16^(exponent - 64).
struct Layout { int size, exp_bits, frac_bits, bias; };

inline Layout layoutOf(Fmt f) {
  constexpr Layout kLayouts[] = {{4, 8, 23, 127}, {8, 11, 52, 1023}, {4, 8, 23, 129}, {8, 8, 55, 129},
                                 {8, 11, 52, 1025}, {4, 7, 24, 64},  {8, 7, 56, 64}};
  return kLayouts[static_cast<int>(f)];
}
inline bool isIeee(Fmt f) { return f == Fmt::Ieee4 || f == Fmt::Ieee8; }
inline bool isIbm(Fmt f) { return f == Fmt::Ibm4 || f == Fmt::Ibm8; }
inline bool isDec(Fmt f) { return !isIeee(f) && !isIbm(f); }
inline std::uint64_t pow2(int k) { return std::uint64_t{1} << k; }

// Bytes of a logical word: big-endian for IBM and big-endian IEEE, reversed
// for little-endian IEEE, big-endian with each 16-bit pair swapped for VAX.
inline std::vector<unsigned char> store(std::uint64_t word, Fmt f, bool little) {
  const auto size = static_cast<std::size_t>(layoutOf(f).size);
  std::vector<unsigned char> out(size);
  for (std::size_t i = size; i-- > 0; word /= 256) out[i] = static_cast<unsigned char>(word % 256);
  if (isIeee(f) && little) std::reverse(out.begin(), out.end());
  for (std::size_t i = 0; isDec(f) && i < size; i += 2) std::swap(out[i], out[i + 1]);
  return out;
}

// The exact value of a normal word, or of a zero; nothing for denormals,
// infinities, NaNs, DEC reserved operands and unnormalised IBM words.
inline std::optional<long double> decode(Fmt f, std::uint64_t word) {
  const Layout l = layoutOf(f);
  const std::uint64_t frac = word % pow2(l.frac_bits);
  const auto e = static_cast<int>(word / pow2(l.frac_bits) % pow2(l.exp_bits));
  const bool negative = word / pow2(l.size * 8 - 1) != 0;
  if (word == 0 || (isIeee(f) && e == 0 && frac == 0)) return 0.0L;
  long double magnitude;
  if (isIbm(f)) {
    if (frac < pow2(l.frac_bits - 4)) return std::nullopt;
    magnitude = std::ldexp(static_cast<long double>(frac), 4 * (e - 64) - l.frac_bits);
  } else {
    if (e == 0 || (isIeee(f) && e + 1 == static_cast<int>(pow2(l.exp_bits)))) return std::nullopt;
    magnitude = std::ldexp(static_cast<long double>(frac + pow2(l.frac_bits)), e - l.bias - l.frac_bits);
  }
  return negative ? -magnitude : magnitude;
}

// x truncated toward zero to `bits` significant bits.
inline long double truncateSignificand(long double x, int bits) {
  if (x == 0) return x;
  int e = 0;
  const long double m = std::frexp(x, &e);
  return std::ldexp(std::trunc(std::ldexp(m, bits)), e - bits);
}

// The normal word of v truncated toward zero, or nothing when its
// exponent does not fit; zeros of either sign give the all-zero word.
inline std::optional<std::uint64_t> encode(Fmt f, long double v) {
  const Layout l = layoutOf(f);
  if (v == 0) return 0;
  int e2 = 0;
  const long double m = std::frexp(std::fabs(v), &e2);  // |v| = m x 2^e2, m in [0.5, 1)
  std::uint64_t exponent, frac;
  if (isIbm(f)) {
    const int h = e2 > 0 ? (e2 + 3) / 4 : -(-e2 / 4);  // ceil(e2 / 4)
    exponent = static_cast<std::uint64_t>(h + 64);
    frac = static_cast<std::uint64_t>(std::floor(std::ldexp(m, l.frac_bits + e2 - 4 * h)));
    if (h + 64 < 0 || h + 64 > 127) return std::nullopt;
  } else {
    const int e = e2 - 1 + l.bias;
    const int top = static_cast<int>(pow2(l.exp_bits)) - (isIeee(f) ? 2 : 1);
    if (e < 1 || e > top) return std::nullopt;
    exponent = static_cast<std::uint64_t>(e);
    frac = static_cast<std::uint64_t>(std::ldexp(m, l.frac_bits + 1)) - pow2(l.frac_bits);
  }
  return (std::signbit(v) ? pow2(l.size * 8 - 1) : 0) + exponent * pow2(l.frac_bits) + frac;
}

}  // namespace vqoracle
