// Every conversion against the frexp-based reference encoders, over powers
// of two, both sides of every exponent boundary, the ends of each range and
// a fixed-seed pseudo-random set, in both IEEE byte orders.
#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "format/format_oracle.hpp"
#include "format/format_support.hpp"
#include "vqutil/format.h"

namespace {

using vqfmt::Capture;
using vqfmt::kBig;
using vqfmt::kLittle;
using vqfmt::run;
using B4 = std::array<unsigned char, 4>;
using B8 = std::array<unsigned char, 8>;

constexpr D_INT4 kHost = std::endian::native == std::endian::little ? kLittle : kBig;
constexpr int kRandom = 20000;  // per family and direction

std::mt19937_64 &rng() {
  static std::mt19937_64 engine(0x5EEDF00Du);
  return engine;
}

std::uint64_t randomBelow(std::uint64_t n) { return rng()() % n; }
double randomSign() { return randomBelow(2) ? -1.0 : 1.0; }

// IEEE values 1.f x 2^(field - bias) for the fields [lo, hi]: the two ends
// of every binade, its power of two with both signs, and random ones.
template <typename T>
std::vector<T> ieeeValues(int lo, int hi, int random_count) {
  constexpr int frac_bits = std::numeric_limits<T>::digits - 1;
  constexpr int bias = std::numeric_limits<T>::max_exponent - 1;
  std::vector<T> out;
  for (int field = lo; field <= hi; ++field) {
    const T low = std::ldexp(T(1), field - bias);
    const T high = std::ldexp(T(2) - std::ldexp(T(1), -frac_bits), field - bias);
    for (T v : {low, high, -low, -high}) out.push_back(v);
  }
  for (int i = 0; i < random_count; ++i) {
    const int field = lo + static_cast<int>(randomBelow(static_cast<std::uint64_t>(hi - lo + 1)));
    const T fraction = std::ldexp(static_cast<T>(randomBelow(std::uint64_t{1} << frac_bits)), -frac_bits);
    out.push_back(static_cast<T>(randomSign()) * std::ldexp(T(1) + fraction, field - bias));
  }
  return out;
}

// DEC bytes from sign, stored exponent and fraction bits after the hidden 1.
template <std::size_t N>
std::array<unsigned char, N> decBytes(bool negative, int exponent, std::uint64_t fraction, int exp_bits) {
  const int total = static_cast<int>(N) * 8;
  const int frac_bits = total - 1 - exp_bits;
  const std::uint64_t logical = (negative ? vqoracle::pow2(total - 1) : 0) +
                                static_cast<std::uint64_t>(exponent) * vqoracle::pow2(frac_bits) + fraction;
  std::array<unsigned char, N> big{};
  vqoracle::putBigEndian(logical, static_cast<int>(N), big.data());
  return vqoracle::vaxBytes(big);
}

template <std::size_t N>
std::array<unsigned char, N> randomDec(int exp_bits, int exp_lo, int exp_hi) {
  const int frac_bits = static_cast<int>(N) * 8 - 1 - exp_bits;
  const int exponent = exp_lo + static_cast<int>(randomBelow(static_cast<std::uint64_t>(exp_hi - exp_lo + 1)));
  return decBytes<N>(randomBelow(2) != 0, exponent, randomBelow(vqoracle::pow2(frac_bits)), exp_bits);
}

// Normalised IBM bytes (leading hex digit not zero).
template <std::size_t N>
std::array<unsigned char, N> randomIbm(int char_lo, int char_hi, int min_leading_digit = 1) {
  const int frac_bits = static_cast<int>(N) * 8 - 8;
  const std::uint64_t digit_unit = vqoracle::pow2(frac_bits - 4);
  const std::uint64_t leading = static_cast<std::uint64_t>(min_leading_digit) +
                                randomBelow(static_cast<std::uint64_t>(16 - min_leading_digit));
  const std::uint64_t digits = leading * digit_unit + randomBelow(digit_unit);
  const int characteristic = char_lo + static_cast<int>(randomBelow(static_cast<std::uint64_t>(char_hi - char_lo + 1)));
  std::array<unsigned char, N> out{};
  out[0] = static_cast<unsigned char>((randomBelow(2) ? 128 : 0) + characteristic);
  vqoracle::putBigEndian(digits, static_cast<int>(N) - 1, out.data() + 1);
  return out;
}

float asFloat(long double v) { return static_cast<float>(v); }
double asDouble(long double v) { return static_cast<double>(v); }

class FormatOracle : public testing::Test {
 protected:
  void SetUp() override {
    if (!vqoracle::kWideLongDouble) GTEST_SKIP() << "long double too narrow for the reference decoders";
  }
  // Nothing in the exact ranges may warn.
  void TearDown() override { EXPECT_EQ("", capture_.take()); }

  Capture capture_;
};

// ---- 4 bytes ------------------------------------------------------------------

TEST_F(FormatOracle, IeeeSingleToDecFAndBack) {
  for (float v : ieeeValues<float>(1, 253, kRandom)) {
    const B4 expected = vqoracle::decFFromValue(v);
    for (D_INT4 order : {kLittle, kBig}) {
      const B4 ieee = vqoracle::ieeeBytes(v, order != kHost);
      const auto dec = run(DutSwapReal4IeeeToDecF, ieee, order, kLittle);
      ASSERT_EQ(D_TRUE, dec.status);
      ASSERT_EQ(expected, dec.bytes) << v << " order " << order;
      ASSERT_EQ(ieee, run(DutSwapReal4DecFToIeee, dec.bytes, kLittle, order).bytes) << v << " order " << order;
    }
  }
}

TEST_F(FormatOracle, RandomDecFToIeee) {
  for (int i = 0; i < kRandom; ++i) {
    const B4 dec = randomDec<4>(8, 3, 255);
    const float expected = asFloat(vqoracle::decFValue(dec.data()));
    const D_INT4 order = i % 2 ? kBig : kLittle;
    ASSERT_EQ(vqoracle::ieeeBytes(expected, order != kHost), run(DutSwapReal4DecFToIeee, dec, kLittle, order).bytes)
        << expected;
  }
}

TEST_F(FormatOracle, IeeeSingleToIbmTruncates) {
  for (float v : ieeeValues<float>(1, 254, kRandom)) {
    const B4 expected = vqoracle::ibm4FromValue(v);
    for (D_INT4 order : {kLittle, kBig}) {
      const auto ibm = run(DutSwapReal4IeeeToIbm370, vqoracle::ieeeBytes(v, order != kHost), order, kBig);
      ASSERT_EQ(D_TRUE, ibm.status);
      ASSERT_EQ(expected, ibm.bytes) << v << " order " << order;
      // Back: the truncated value, never more than v in magnitude.
      const float truncated = asFloat(vqoracle::ibmValue<4>(expected.data()));
      ASSERT_LE(std::fabs(truncated), std::fabs(v));
      ASSERT_EQ(vqoracle::ieeeBytes(truncated, order != kHost),
                run(DutSwapReal4Ibm370ToIeee, ibm.bytes, kBig, order).bytes)
          << v;
    }
  }
}

TEST_F(FormatOracle, RandomIbmSingleToIeeeIsExact) {
  for (int i = 0; i < kRandom; ++i) {
    // Characteristic 33 is exact only with a leading digit of 4 or more.
    const B4 ibm = i % 8 == 0 ? randomIbm<4>(33, 33, 4) : randomIbm<4>(34, 96);
    const float expected = asFloat(vqoracle::ibmValue<4>(ibm.data()));
    ASSERT_EQ(static_cast<long double>(expected), vqoracle::ibmValue<4>(ibm.data()));
    const D_INT4 order = i % 2 ? kBig : kLittle;
    ASSERT_EQ(vqoracle::ieeeBytes(expected, order != kHost), run(DutSwapReal4Ibm370ToIeee, ibm, kBig, order).bytes)
        << expected;
  }
}

TEST_F(FormatOracle, DecFAndIbmThroughIeee) {
  for (int i = 0; i < kRandom; ++i) {
    const B4 dec = randomDec<4>(8, 3, 255);
    ASSERT_EQ(vqoracle::ibm4FromValue(asFloat(vqoracle::decFValue(dec.data()))),
              run(DutSwapReal4DecFToIbm370, dec, kLittle, kBig).bytes);
    // IBM values below 2^124 fit DEC F.
    const B4 ibm = randomIbm<4>(34, 95);
    ASSERT_EQ(vqoracle::decFFromValue(asFloat(vqoracle::ibmValue<4>(ibm.data()))),
              run(DutSwapReal4Ibm370ToDecF, ibm, kBig, kLittle).bytes);
  }
}

// ---- 8 bytes ------------------------------------------------------------------

TEST_F(FormatOracle, IeeeDoubleToDecDAndBack) {
  // Unbiased exponents -128..126.
  for (double v : ieeeValues<double>(895, 1149, kRandom)) {
    const B8 expected = vqoracle::decDFromValue(v);
    for (D_INT4 order : {kLittle, kBig}) {
      const B8 ieee = vqoracle::ieeeBytes(v, order != kHost);
      const auto dec = run(DutSwapReal8IeeeToDecD, ieee, order, kLittle);
      ASSERT_EQ(D_TRUE, dec.status);
      ASSERT_EQ(expected, dec.bytes) << v << " order " << order;
      ASSERT_EQ(ieee, run(DutSwapReal8DecDToIeee, dec.bytes, kLittle, order).bytes) << v;
    }
  }
}

TEST_F(FormatOracle, IeeeDoubleToDecGAndBack) {
  for (double v : ieeeValues<double>(1, 2045, kRandom)) {
    const B8 expected = vqoracle::decGFromValue(v);
    for (D_INT4 order : {kLittle, kBig}) {
      const B8 ieee = vqoracle::ieeeBytes(v, order != kHost);
      const auto dec = run(DutSwapReal8IeeeToDecG, ieee, order, kLittle);
      ASSERT_EQ(D_TRUE, dec.status);
      ASSERT_EQ(expected, dec.bytes) << v << " order " << order;
      ASSERT_EQ(ieee, run(DutSwapReal8DecGToIeee, dec.bytes, kLittle, order).bytes) << v;
    }
  }
}

TEST_F(FormatOracle, IeeeDoubleToIbmAndBack) {
  // |x| in [2^-260, 2^252): exact both ways.
  for (double v : ieeeValues<double>(763, 1274, kRandom)) {
    const B8 expected = vqoracle::ibm8FromValue(v);
    for (D_INT4 order : {kLittle, kBig}) {
      const B8 ieee = vqoracle::ieeeBytes(v, order != kHost);
      const auto ibm = run(DutSwapReal8IeeeToIbm370, ieee, order, kBig);
      ASSERT_EQ(D_TRUE, ibm.status);
      ASSERT_EQ(expected, ibm.bytes) << v << " order " << order;
      ASSERT_EQ(ieee, run(DutSwapReal8Ibm370ToIeee, ibm.bytes, kBig, order).bytes) << v;
    }
  }
}

TEST_F(FormatOracle, RandomDecDTruncatesToIeeeAndG) {
  for (int i = 0; i < kRandom; ++i) {
    const B8 dec = randomDec<8>(8, 1, 255);
    const double expected = asDouble(vqoracle::truncateSignificand(vqoracle::decDValue(dec.data()), 53));
    const D_INT4 order = i % 2 ? kBig : kLittle;
    ASSERT_EQ(vqoracle::ieeeBytes(expected, order != kHost), run(DutSwapReal8DecDToIeee, dec, kLittle, order).bytes)
        << expected;
    ASSERT_EQ(vqoracle::decGFromValue(expected), run(DutSwapReal8DecDToDecG, dec, kLittle, kLittle).bytes) << expected;
  }
}

TEST_F(FormatOracle, RandomDecGToIeeeAndD) {
  for (int i = 0; i < kRandom; ++i) {
    const B8 dec = randomDec<8>(11, 3, 2047);
    const double expected = asDouble(vqoracle::decGValue(dec.data()));
    ASSERT_EQ(static_cast<long double>(expected), vqoracle::decGValue(dec.data()));
    const D_INT4 order = i % 2 ? kBig : kLittle;
    ASSERT_EQ(vqoracle::ieeeBytes(expected, order != kHost), run(DutSwapReal8DecGToIeee, dec, kLittle, order).bytes)
        << expected;
    // G exponents 897..1150 are the ones DEC D holds.
    const B8 g = randomDec<8>(11, 897, 1150);
    ASSERT_EQ(vqoracle::decDFromValue(asDouble(vqoracle::decGValue(g.data()))),
              run(DutSwapReal8DecGToDecD, g, kLittle, kLittle).bytes);
  }
}

TEST_F(FormatOracle, RandomIbmDoubleTruncatesToIeee) {
  for (int i = 0; i < kRandom; ++i) {
    const B8 ibm = randomIbm<8>(0, 127);
    const double expected = asDouble(vqoracle::truncateSignificand(vqoracle::ibmValue<8>(ibm.data()), 53));
    const D_INT4 order = i % 2 ? kBig : kLittle;
    ASSERT_EQ(vqoracle::ieeeBytes(expected, order != kHost), run(DutSwapReal8Ibm370ToIeee, ibm, kBig, order).bytes)
        << expected;
  }
}

TEST_F(FormatOracle, DecAndIbmDoubleThroughIeee) {
  for (int i = 0; i < kRandom; ++i) {
    const B8 d = randomDec<8>(8, 1, 255);
    const double d_value = asDouble(vqoracle::truncateSignificand(vqoracle::decDValue(d.data()), 53));
    ASSERT_EQ(vqoracle::ibm8FromValue(d_value), run(DutSwapReal8DecDToIbm370, d, kLittle, kBig).bytes);

    // G exponents whose IEEE exponent field stays in 763..1274.
    const B8 g = randomDec<8>(11, 765, 1276);
    ASSERT_EQ(vqoracle::ibm8FromValue(asDouble(vqoracle::decGValue(g.data()))),
              run(DutSwapReal8DecGToIbm370, g, kLittle, kBig).bytes);

    const B8 ibm = randomIbm<8>(0, 127);
    const double ibm_value = asDouble(vqoracle::truncateSignificand(vqoracle::ibmValue<8>(ibm.data()), 53));
    ASSERT_EQ(vqoracle::decGFromValue(ibm_value), run(DutSwapReal8Ibm370ToDecG, ibm, kBig, kLittle).bytes);
    // IBM characteristics 33..95 stay inside DEC D's range.
    const B8 ibm_d = randomIbm<8>(33, 95);
    const double ibm_d_value = asDouble(vqoracle::truncateSignificand(vqoracle::ibmValue<8>(ibm_d.data()), 53));
    ASSERT_EQ(vqoracle::decDFromValue(ibm_d_value), run(DutSwapReal8Ibm370ToDecD, ibm_d, kBig, kLittle).bytes);
  }
}

}  // namespace
