// Reference encoders and decoders for the foreign real formats, built from
// the value itself: sign, frexp and scaling of the fraction, with the bytes
// cut out by division. They share no bit arithmetic with the library, so a
// wrong shift or mask there cannot hide behind the same mistake here.
// Also the speed reference of the format benchmark.
#pragma once

#include <array>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>

namespace vqoracle {

using Bytes4 = std::array<unsigned char, 4>;
using Bytes8 = std::array<unsigned char, 8>;

// The long double decoders must hold a 56-bit fraction.
inline constexpr bool kWideLongDouble = LDBL_MANT_DIG >= 56;

inline std::uint64_t pow2(int k) { return std::uint64_t{1} << k; }

// Writes n as `count` big-endian bytes at out.
template <typename Out>
void putBigEndian(std::uint64_t n, int count, Out *out) {
  for (int i = count - 1; i >= 0; --i) {
    out[i] = static_cast<unsigned char>(n % 256);
    n /= 256;
  }
}

template <typename In>
std::uint64_t getBigEndian(const In *in, int count) {
  std::uint64_t n = 0;
  for (int i = 0; i < count; ++i) n = n * 256 + in[i];
  return n;
}

// VAX order: 16-bit words, most significant first, each little-endian.
// Swapping the bytes of each word goes both ways.
template <std::size_t N>
std::array<unsigned char, N> swapWords(const unsigned char *in) {
  std::array<unsigned char, N> out{};
  for (std::size_t w = 0; w < N; w += 2) {
    out[w] = in[w + 1];
    out[w + 1] = in[w];
  }
  return out;
}

// ---- IBM System/370 ------------------------------------------------------

// IBM encoding (big-endian) of v with a fraction of 24 or 56 bits.
// force_characteristic, when given, replaces the computed one (for the
// clamped cases); the fraction digits stay those of v.
template <std::size_t N>
std::array<unsigned char, N> ibmFromValue(double v, int force_characteristic = -1) {
  constexpr int frac_bits = static_cast<int>(N) * 8 - 8;
  std::array<unsigned char, N> out{};
  if (v == 0.0) return out;
  int e2 = 0;
  const double f = std::frexp(std::fabs(v), &e2);  // |v| = f * 2^e2, f in [0.5, 1)
  // |v| = fraction * 16^h with fraction in [1/16, 1); h = floor((e2 + 3) / 4).
  const int h = e2 + 3 >= 0 ? (e2 + 3) / 4 : -((-(e2 + 3) + 3) / 4);
  const double fraction = std::ldexp(f, e2 - 4 * h);
  const auto digits = static_cast<std::uint64_t>(std::floor(std::ldexp(fraction, frac_bits)));
  const int characteristic = force_characteristic >= 0 ? force_characteristic : h + 64;
  out[0] = static_cast<unsigned char>((std::signbit(v) ? 128 : 0) + characteristic);
  putBigEndian(digits, static_cast<int>(N) - 1, out.data() + 1);
  return out;
}

inline Bytes4 ibm4FromValue(double v, int c = -1) { return ibmFromValue<4>(v, c); }
inline Bytes8 ibm8FromValue(double v, int c = -1) { return ibmFromValue<8>(v, c); }

template <std::size_t N>
long double ibmValue(const unsigned char *big_endian) {
  constexpr int frac_bits = static_cast<int>(N) * 8 - 8;
  const int characteristic = big_endian[0] % 128;
  const auto digits = static_cast<long double>(getBigEndian(big_endian + 1, static_cast<int>(N) - 1));
  const long double magnitude = std::ldexp(digits, 4 * (characteristic - 64) - frac_bits);
  return big_endian[0] >= 128 ? -magnitude : magnitude;
}

// ---- DEC F, D, G -------------------------------------------------------------

// DEC bytes in VAX order from sign, stored exponent and the fraction bits
// after the hidden leading 1.
template <std::size_t N>
std::array<unsigned char, N> decFromFields(bool negative, int exponent, std::uint64_t fraction, int exp_bits) {
  constexpr int total = static_cast<int>(N) * 8;
  const int frac_bits = total - 1 - exp_bits;
  const std::uint64_t logical =
      (negative ? pow2(total - 1) : 0) + static_cast<std::uint64_t>(exponent) * pow2(frac_bits) + fraction;
  std::array<unsigned char, N> big{};
  putBigEndian(logical, static_cast<int>(N), big.data());
  return swapWords<N>(big.data());
}

// DEC value 0.1f x 2^(exponent - bias). force_exponent, when given,
// replaces the computed exponent (for the clamped and wrapped cases).
template <std::size_t N>
std::array<unsigned char, N> decFromValue(double v, int exp_bits, int bias, int force_exponent = -1) {
  const int frac_bits = static_cast<int>(N) * 8 - 1 - exp_bits;
  if (v == 0.0) return {};
  int e2 = 0;
  const double f = std::frexp(std::fabs(v), &e2);  // already the 0.1f form
  const auto with_hidden = static_cast<std::uint64_t>(std::ldexp(f, frac_bits + 1));
  return decFromFields<N>(std::signbit(v), force_exponent >= 0 ? force_exponent : e2 + bias,
                          with_hidden - pow2(frac_bits), exp_bits);
}

inline Bytes4 decFFromValue(double v, int e = -1) { return decFromValue<4>(v, 8, 128, e); }
inline Bytes8 decDFromValue(double v, int e = -1) { return decFromValue<8>(v, 8, 128, e); }
inline Bytes8 decGFromValue(double v, int e = -1) { return decFromValue<8>(v, 11, 1024, e); }

// Value of DEC bytes in VAX order.
template <std::size_t N>
long double decValue(const unsigned char *vax, int exp_bits, int bias) {
  constexpr int total = static_cast<int>(N) * 8;
  const int frac_bits = total - 1 - exp_bits;
  const std::array<unsigned char, N> big = swapWords<N>(vax);
  const std::uint64_t logical = getBigEndian(big.data(), static_cast<int>(N));
  const int exponent = static_cast<int>((logical / pow2(frac_bits)) % pow2(exp_bits));
  const auto significand = static_cast<long double>(logical % pow2(frac_bits) + pow2(frac_bits));
  const long double magnitude = std::ldexp(significand, exponent - bias - (frac_bits + 1));
  return logical >= pow2(total - 1) ? -magnitude : magnitude;
}

inline long double decFValue(const unsigned char *vax) { return decValue<4>(vax, 8, 128); }
inline long double decDValue(const unsigned char *vax) { return decValue<8>(vax, 8, 128); }
inline long double decGValue(const unsigned char *vax) { return decValue<8>(vax, 11, 1024); }

// ---- IEEE --------------------------------------------------------------------

// x truncated toward zero to `bits` significant bits.
inline long double truncateSignificand(long double x, int bits) {
  if (x == 0) return x;
  int e = 0;
  const long double f = std::frexp(x, &e);
  return std::ldexp(std::trunc(std::ldexp(f, bits)), e - bits);
}

// Host-order bytes of a float or double, optionally reversed (the other
// byte order).
template <typename T>
std::array<unsigned char, sizeof(T)> ieeeBytes(T v, bool reversed) {
  std::array<unsigned char, sizeof(T)> out{};
  std::memcpy(out.data(), &v, sizeof v);
  if (reversed) {
    for (std::size_t i = 0; i < sizeof(T) / 2; ++i) std::swap(out[i], out[sizeof(T) - 1 - i]);
  }
  return out;
}

}  // namespace vqoracle
