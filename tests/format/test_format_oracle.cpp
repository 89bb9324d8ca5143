// Every conversion against the frexp-based reference encoders, over both
// ends of every binade in each exact range and a fixed-seed pseudo-random
// set, in both IEEE byte orders.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "format/format_oracle.hpp"
#include "format/format_support.hpp"

namespace {

using namespace vqfmt;
using vqoracle::ieeeBytes;
using vqoracle::pow2;

constexpr int kRandom = 20000;  // per family and direction

std::uint64_t randomBelow(std::uint64_t n) {
  static std::mt19937_64 engine(0x5EEDF00Du);
  return engine() % n;
}
int randomIn(int lo, int hi) { return lo + static_cast<int>(randomBelow(static_cast<std::uint64_t>(hi - lo + 1))); }

// IEEE values 1.f x 2^(field - bias) for the fields [lo, hi]: the two ends
// of every binade with both signs, and random ones.
template <typename T>
std::vector<T> ieeeValues(int lo, int hi) {
  constexpr int frac_bits = std::numeric_limits<T>::digits - 1;
  constexpr int bias = std::numeric_limits<T>::max_exponent - 1;
  std::vector<T> out;
  for (int field = lo; field <= hi; ++field) {
    const T low = std::ldexp(T(1), field - bias);
    const T high = std::ldexp(T(2) - std::ldexp(T(1), -frac_bits), field - bias);
    for (T v : {low, high, -low, -high}) out.push_back(v);
  }
  for (int i = 0; i < kRandom; ++i) {
    const T fraction = std::ldexp(static_cast<T>(randomBelow(pow2(frac_bits))), -frac_bits);
    out.push_back((randomBelow(2) ? T(-1) : T(1)) * std::ldexp(T(1) + fraction, randomIn(lo, hi) - bias));
  }
  return out;
}

template <std::size_t N>
std::array<unsigned char, N> randomDec(int exp_bits, int exp_lo, int exp_hi) {
  const int frac_bits = static_cast<int>(N) * 8 - 1 - exp_bits;
  return vqoracle::decFromFields<N>(randomBelow(2) != 0, randomIn(exp_lo, exp_hi), randomBelow(pow2(frac_bits)),
                                    exp_bits);
}

// Normalised IBM bytes: the leading hex digit is at least min_leading_digit.
template <std::size_t N>
std::array<unsigned char, N> randomIbm(int char_lo, int char_hi, int min_leading_digit = 1) {
  const std::uint64_t digit_unit = pow2(static_cast<int>(N) * 8 - 12);
  const auto leading = static_cast<std::uint64_t>(randomIn(min_leading_digit, 15));
  std::array<unsigned char, N> out{};
  out[0] = static_cast<unsigned char>((randomBelow(2) ? 128 : 0) + randomIn(char_lo, char_hi));
  vqoracle::putBigEndian(leading * digit_unit + randomBelow(digit_unit), static_cast<int>(N) - 1, out.data() + 1);
  return out;
}

class FormatOracle : public testing::Test {
 protected:
  void SetUp() override {
    if (!vqoracle::kWideLongDouble) GTEST_SKIP() << "long double too narrow for the reference decoders";
  }
  // Nothing in the exact ranges may warn.
  void TearDown() override { EXPECT_EQ("", capture_.Take()); }

  // IEEE values of the fields [lo, hi] go `to` the foreign format as
  // encode(v) says, and `back` to the IEEE value the foreign bytes hold,
  // which is v itself when `exact`, else never more than v in magnitude.
  template <typename T, typename Encode, typename Decode>
  void thereAndBack(int lo, int hi, Convert to, D_INT4 foreign, Convert back, Encode encode, Decode decode,
                    bool exact) {
    for (T v : ieeeValues<T>(lo, hi)) {
      const auto expected = encode(v);
      const auto held = static_cast<T>(decode(expected.data()));
      if (exact) {
        ASSERT_EQ(held, v);
      }
      ASSERT_LE(std::fabs(held), std::fabs(v));
      for (D_INT4 order : {kLittle, kBig}) {
        const auto there = run(to, ieeeBytes(v, order != kHost), order, foreign);
        ASSERT_EQ(D_TRUE, there.status);
        ASSERT_EQ(expected, there.bytes) << v << " order " << order;
        ASSERT_EQ(ieeeBytes(held, order != kHost), run(back, there.bytes, foreign, order).bytes) << v;
      }
    }
  }

  // Random foreign bytes from gen convert to the IEEE type T of value(bytes),
  // which T must hold exactly, in both byte orders.
  template <typename T, typename Gen, typename Value>
  void toIeee(Convert fn, D_INT4 foreign, Gen gen, Value value) {
    for (int i = 0; i < kRandom; ++i) {
      const auto bytes = gen();
      const long double exact = value(bytes.data());
      const auto expected = static_cast<T>(exact);
      ASSERT_EQ(static_cast<long double>(expected), exact);
      const D_INT4 order = i % 2 ? kBig : kLittle;
      ASSERT_EQ(ieeeBytes(expected, order != kHost), run(fn, bytes, foreign, order).bytes) << expected;
    }
  }

  // Random foreign bytes from gen convert to encode(value(bytes)).
  template <typename Gen, typename Value, typename Encode>
  void between(Convert fn, D_INT4 in, D_INT4 out, Gen gen, Value value, Encode encode) {
    for (int i = 0; i < kRandom; ++i) {
      const auto bytes = gen();
      ASSERT_EQ(encode(static_cast<double>(value(bytes.data()))), run(fn, bytes, in, out).bytes) << i;
    }
  }

  Capture capture_;
};

auto decF = [](double v) { return vqoracle::decFFromValue(v); };
auto decD = [](double v) { return vqoracle::decDFromValue(v); };
auto decG = [](double v) { return vqoracle::decGFromValue(v); };
auto ibm4 = [](double v) { return vqoracle::ibm4FromValue(v); };
auto ibm8 = [](double v) { return vqoracle::ibm8FromValue(v); };
auto ibm4Value = [](const unsigned char *b) { return vqoracle::ibmValue<4>(b); };
// DEC D and IBM double carry more fraction bits than IEEE double: truncated.
auto decDTruncated = [](const unsigned char *b) { return vqoracle::truncateSignificand(vqoracle::decDValue(b), 53); };
auto ibm8Truncated = [](const unsigned char *b) {
  return vqoracle::truncateSignificand(vqoracle::ibmValue<8>(b), 53);
};

TEST_F(FormatOracle, FourByteConversions) {
  thereAndBack<float>(1, 253, DutSwapReal4IeeeToDecF, kLittle, DutSwapReal4DecFToIeee, decF, vqoracle::decFValue,
                      true);
  // Up to three low bits are lost aligning on a hex digit.
  thereAndBack<float>(1, 254, DutSwapReal4IeeeToIbm370, kBig, DutSwapReal4Ibm370ToIeee, ibm4, ibm4Value, false);
  toIeee<float>(DutSwapReal4DecFToIeee, kLittle, [] { return randomDec<4>(8, 3, 255); }, vqoracle::decFValue);
  // Characteristic 33 is exact only with a leading digit of 4 or more.
  toIeee<float>(DutSwapReal4Ibm370ToIeee, kBig, [] { return randomIbm<4>(34, 96); }, ibm4Value);
  toIeee<float>(DutSwapReal4Ibm370ToIeee, kBig, [] { return randomIbm<4>(33, 33, 4); }, ibm4Value);
  between(DutSwapReal4DecFToIbm370, kLittle, kBig, [] { return randomDec<4>(8, 3, 255); }, vqoracle::decFValue,
          ibm4);
  // IBM values below 2^124 fit DEC F.
  between(DutSwapReal4Ibm370ToDecF, kBig, kLittle, [] { return randomIbm<4>(34, 95); }, ibm4Value, decF);
}

TEST_F(FormatOracle, EightByteConversions) {
  // Unbiased exponents -128..126 for DEC D; |x| in [2^-260, 2^252) for IBM.
  thereAndBack<double>(895, 1149, DutSwapReal8IeeeToDecD, kLittle, DutSwapReal8DecDToIeee, decD,
                       vqoracle::decDValue, true);
  thereAndBack<double>(1, 2045, DutSwapReal8IeeeToDecG, kLittle, DutSwapReal8DecGToIeee, decG, vqoracle::decGValue,
                       true);
  thereAndBack<double>(763, 1274, DutSwapReal8IeeeToIbm370, kBig, DutSwapReal8Ibm370ToIeee, ibm8,
                       [](const unsigned char *b) { return vqoracle::ibmValue<8>(b); }, true);
  toIeee<double>(DutSwapReal8DecDToIeee, kLittle, [] { return randomDec<8>(8, 1, 255); }, decDTruncated);
  toIeee<double>(DutSwapReal8DecGToIeee, kLittle, [] { return randomDec<8>(11, 3, 2047); }, vqoracle::decGValue);
  toIeee<double>(DutSwapReal8Ibm370ToIeee, kBig, [] { return randomIbm<8>(0, 127); }, ibm8Truncated);
}

TEST_F(FormatOracle, EightByteForeignToForeign) {
  const auto anyDecD = [] { return randomDec<8>(8, 1, 255); };
  between(DutSwapReal8DecDToDecG, kLittle, kLittle, anyDecD, decDTruncated, decG);
  // G exponents 897..1150 are the ones DEC D holds.
  between(DutSwapReal8DecGToDecD, kLittle, kLittle, [] { return randomDec<8>(11, 897, 1150); }, vqoracle::decGValue,
          decD);
  between(DutSwapReal8DecDToIbm370, kLittle, kBig, anyDecD, decDTruncated, ibm8);
  // G exponents whose IEEE exponent field stays in 763..1274.
  between(DutSwapReal8DecGToIbm370, kLittle, kBig, [] { return randomDec<8>(11, 765, 1276); }, vqoracle::decGValue,
          ibm8);
  between(DutSwapReal8Ibm370ToDecG, kBig, kLittle, [] { return randomIbm<8>(0, 127); }, ibm8Truncated, decG);
  // IBM characteristics 33..95 stay inside DEC D's range.
  between(DutSwapReal8Ibm370ToDecD, kBig, kLittle, [] { return randomIbm<8>(33, 95); }, ibm8Truncated, decD);
}

}  // namespace
