// The array forms of the real conversions, against the per-value calls as
// the oracle: same bytes, same warnings in the same order, same argument
// errors, same fatal assertions.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "format/format_support.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"

namespace {

using namespace vqfmt;

using ConvertArray = D_BOOL (*)(void *, D_UINT4, D_INT4, D_INT4);

enum class Fmt { Ieee4, Ieee8, DecF, DecD, DecG, Ibm4, Ibm8 };

struct Layout {
  int size;
  int exp_bits;
  int frac_bits;
};

Layout layoutOf(Fmt f) {
  switch (f) {
    case Fmt::Ieee4: return {4, 8, 23};
    case Fmt::DecF: return {4, 8, 23};
    case Fmt::Ibm4: return {4, 7, 24};
    case Fmt::Ieee8: return {8, 11, 52};
    case Fmt::DecD: return {8, 8, 55};
    case Fmt::DecG: return {8, 11, 52};
    case Fmt::Ibm8: return {8, 7, 56};
  }
  return {};
}

bool isIeee(Fmt f) { return f == Fmt::Ieee4 || f == Fmt::Ieee8; }
bool isIbm(Fmt f) { return f == Fmt::Ibm4 || f == Fmt::Ibm8; }

// The byte orders a side may be given, and one it may not.
std::vector<D_INT4> ordersOf(Fmt f) {
  if (isIeee(f)) return {kLittle, kBig};
  return {isIbm(f) ? kBig : kLittle};
}
D_INT4 badOrderOf(Fmt f) { return isIeee(f) ? 2 : isIbm(f) ? kLittle : kBig; }

struct Member {
  const char *name;
  Convert one;
  ConvertArray many;
  Fmt from;
  Fmt to;
};

#define VQ_MEMBER(name, from, to) {#name, DutSwap##name, DutSwap##name##Array, Fmt::from, Fmt::to}
const Member kMembers[] = {
    VQ_MEMBER(Real4IeeeToDecF, Ieee4, DecF),   VQ_MEMBER(Real4DecFToIeee, DecF, Ieee4),
    VQ_MEMBER(Real4IeeeToIbm370, Ieee4, Ibm4), VQ_MEMBER(Real4Ibm370ToIeee, Ibm4, Ieee4),
    VQ_MEMBER(Real4DecFToIbm370, DecF, Ibm4),  VQ_MEMBER(Real4Ibm370ToDecF, Ibm4, DecF),
    VQ_MEMBER(Real8IeeeToDecD, Ieee8, DecD),   VQ_MEMBER(Real8IeeeToDecG, Ieee8, DecG),
    VQ_MEMBER(Real8DecDToIeee, DecD, Ieee8),   VQ_MEMBER(Real8DecGToIeee, DecG, Ieee8),
    VQ_MEMBER(Real8DecDToDecG, DecD, DecG),    VQ_MEMBER(Real8DecGToDecD, DecG, DecD),
    VQ_MEMBER(Real8IeeeToIbm370, Ieee8, Ibm8), VQ_MEMBER(Real8Ibm370ToIeee, Ibm8, Ieee8),
    VQ_MEMBER(Real8DecDToIbm370, DecD, Ibm8),  VQ_MEMBER(Real8DecGToIbm370, DecG, Ibm8),
    VQ_MEMBER(Real8Ibm370ToDecD, Ibm8, DecD),  VQ_MEMBER(Real8Ibm370ToDecG, Ibm8, DecG),
};
#undef VQ_MEMBER

// A logical bit pattern (sign in the top bit) stored as `f` keeps it in
// byte order `order`: big-endian bytes, each 16-bit pair swapped for VAX.
std::vector<unsigned char> store(std::uint64_t v, Fmt f, D_INT4 order) {
  const int size = layoutOf(f).size;
  std::vector<unsigned char> out(static_cast<std::size_t>(size));
  for (int i = size - 1; i >= 0; --i, v >>= 8) out[static_cast<std::size_t>(i)] = static_cast<unsigned char>(v);
  if (!isIeee(f) && !isIbm(f)) {
    for (std::size_t w = 0; w < out.size(); w += 2) std::swap(out[w], out[w + 1]);
  } else if (order == kLittle) {
    std::reverse(out.begin(), out.end());
  }
  return out;
}

// Every sign, the lowest and highest exponents and a middle one, and
// fractions of zero, one, all ones and each leading hex digit: zeros,
// denormals, infinities, NaNs, the extremes and (for DEC) reserved operands.
std::vector<std::uint64_t> edges(Fmt f) {
  const Layout l = layoutOf(f);
  const std::uint64_t max_exp = (std::uint64_t{1} << l.exp_bits) - 1;
  const std::uint64_t max_frac = (std::uint64_t{1} << l.frac_bits) - 1;
  const std::uint64_t top = std::uint64_t{1} << (l.frac_bits - 1);
  std::vector<std::uint64_t> out;
  for (std::uint64_t sign : {0, 1})
    for (std::uint64_t e : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{2}, std::uint64_t{3}, max_exp / 2,
                            max_exp / 2 + 1, max_exp - 1, max_exp})
      for (std::uint64_t frac : {std::uint64_t{0}, std::uint64_t{1}, max_frac, top, top >> 1, top >> 2, top >> 3})
        out.push_back((sign << (l.exp_bits + l.frac_bits)) | (e << l.frac_bits) | frac);
  return out;
}

// Inputs on which a per-value call fails a fatal assertion (IEEE denormal
// doubles into DEC, DEC G exponent 0 into DEC D) get exponent 1 instead;
// those are covered by the death test.
std::uint64_t avoidFatal(const Member &m, std::uint64_t v) {
  const bool ieee_to_dec = m.from == Fmt::Ieee8 && (m.to == Fmt::DecD || m.to == Fmt::DecG);
  const bool g_to_d = m.from == Fmt::DecG && m.to == Fmt::DecD;
  // IEEE negative zero is a zero; DEC's (a reserved operand) is not.
  const bool zero = ieee_to_dec ? (v << 1) == 0 : v == 0;
  if ((ieee_to_dec || g_to_d) && !zero && ((v >> 52) & 0x7FF) == 0) v |= std::uint64_t{1} << 52;
  return v;
}

struct Oracle {
  std::vector<unsigned char> bytes;  // the per-value results, one after the other
  std::string warnings;
};

Oracle perValue(const Member &m, const std::vector<unsigned char> &input, std::size_t size, D_INT4 in, D_INT4 out,
                Capture &capture) {
  Oracle o{input, {}};
  for (std::size_t at = 0; at < o.bytes.size(); at += size) EXPECT_EQ(D_TRUE, m.one(&o.bytes[at], in, out));
  o.warnings = capture.Take();
  return o;
}

void expectArrayMatches(const Member &m, const std::vector<unsigned char> &input, std::size_t size, D_INT4 in,
                        D_INT4 out, Capture &capture, const char *what) {
  const Oracle want = perValue(m, input, size, in, out, capture);
  // One byte off alignment: values are copied, never dereferenced as words.
  std::vector<unsigned char> buffer(input.size() + 1);
  std::memcpy(buffer.data() + 1, input.data(), input.size());
  EXPECT_EQ(D_TRUE, m.many(buffer.data() + 1, static_cast<D_UINT4>(input.size() / size), in, out));
  EXPECT_EQ(want.warnings, capture.Take()) << m.name << " " << in << "->" << out << " " << what;
  EXPECT_TRUE(std::equal(want.bytes.begin(), want.bytes.end(), buffer.begin() + 1))
      << m.name << " " << in << "->" << out << " " << what;
}

TEST(FormatArray, AgreesWithPerValueCallsOnEdgesAndRandomBits) {
  Capture capture;
  for (const Member &m : kMembers) {
    const auto size = static_cast<std::size_t>(layoutOf(m.from).size);
    for (D_INT4 in : ordersOf(m.from)) {
      for (D_INT4 out : ordersOf(m.to)) {
        std::mt19937_64 rng(0xA77A5u);
        std::vector<std::uint64_t> words = edges(m.from);
        const std::uint64_t mask = size == 4 ? 0xFFFFFFFFu : ~std::uint64_t{0};
        for (int i = 0; i < 3000; ++i) words.push_back(rng() & mask);
        std::shuffle(words.begin(), words.end(), rng);

        // Everything, warning or not, and then only the values that do not
        // warn, repeated past several blocks, so that the branch-free path
        // is checked as well as the value-by-value one.
        std::vector<unsigned char> all;
        std::vector<unsigned char> silent;
        for (std::uint64_t w : words) {
          const auto bytes = store(avoidFatal(m, w), m.from, in);
          all.insert(all.end(), bytes.begin(), bytes.end());
          std::vector<unsigned char> probe = bytes;
          m.one(probe.data(), in, out);
          if (capture.Take().empty()) silent.insert(silent.end(), bytes.begin(), bytes.end());
        }
        while (silent.size() < 2000 * size) silent.insert(silent.end(), silent.begin(), silent.end());
        silent.resize(silent.size() - 3 * size);  // a tail shorter than a block
        expectArrayMatches(m, all, size, in, out, capture, "all");
        expectArrayMatches(m, silent, size, in, out, capture, "silent");
      }
    }
  }
}

TEST(FormatArray, ArgumentsAreCheckedBeforeAnyValueChanges) {
  struct Case {
    bool null;
    D_UINT4 count;
    bool good_in;
    bool good_out;
    D_BOOL status;
    int error;  // 0: the error number is left alone
  };
  const Case cases[] = {
      {true, 0, true, true, D_TRUE, 0},          {false, 0, true, true, D_TRUE, 0},
      {true, 3, true, true, D_FALSE, D_ERR_NULL_PTR}, {true, 3, false, false, D_FALSE, D_ERR_NULL_PTR},
      {false, 3, false, true, D_FALSE, D_ERR_VAL_INVALID}, {false, 3, true, false, D_FALSE, D_ERR_VAL_INVALID},
      {false, 0, false, true, D_FALSE, D_ERR_VAL_INVALID}, {true, 0, true, false, D_FALSE, D_ERR_VAL_INVALID},
  };
  for (const Member &m : kMembers) {
    for (const Case &c : cases) {
      unsigned char values[3 * 8];
      std::memset(values, 0x41, sizeof values);  // an ordinary value in every format
      const D_INT4 in = c.good_in ? ordersOf(m.from).back() : badOrderOf(m.from);
      const D_INT4 out = c.good_out ? ordersOf(m.to).front() : badOrderOf(m.to);
      DutErrNumSet(0);
      EXPECT_EQ(c.status, m.many(c.null ? nullptr : values, c.count, in, out)) << m.name << " case " << &c - cases;
      EXPECT_EQ(c.error, DutErrNumGet()) << m.name << " case " << &c - cases;
      for (unsigned char b : values) ASSERT_EQ(0x41, b) << m.name << " case " << &c - cases;
    }
  }
}

TEST(FormatArray, WarningsComeOncePerValueInOrder) {
  Capture capture;
  const char *over = "WARNING: DutSwapReal4Ibm370ToIeee: IBM_370 exponent overflows IEEE exponent\n";
  const char *under = "WARNING: DutSwapReal4Ibm370ToIeee: IBM_370 exponent underflows IEEE exponent\n";
  // Overflow, a quiet value, underflow, zero (quiet), overflow.
  unsigned char values[] = {0x7F, 0x80, 0, 0, 0x41, 0x10, 0, 0, 0x01, 0x80, 0, 0, 0, 0, 0, 0, 0xFF, 0x80, 0, 0};
  EXPECT_EQ(D_TRUE, DutSwapReal4Ibm370ToIeeeArray(values, 5, kBig, kHost));
  EXPECT_EQ(std::string(over) + under + over, capture.Take());
}

TEST(FormatArrayDeathTest, FatalValuesAssertAsTheyDoOneByOne) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // 1.0 and then a denormal, in host order; a DEC G 0.5 and then exponent 0.
  const std::uint64_t ieee[2] = {0x3FF0000000000000u, 0x0000000000000001u};
  for (ConvertArray fn : {DutSwapReal8IeeeToDecDArray, DutSwapReal8IeeeToDecGArray}) {
    auto call = [&] {
      std::uint64_t v[2] = {ieee[0], ieee[1]};
      fn(v, 2, kHost, kLittle);
    };
    VQTEST_EXPECT_ASSERTION(call(), "D_IN_RANGE\\(ieee_exp, -1022, 1024\\)");
  }
  auto dec_g = [] {
    auto a = store(0x4000000000000000u, Fmt::DecG, kLittle);
    const auto b = store(0x0008000000000000u, Fmt::DecG, kLittle);
    a.insert(a.end(), b.begin(), b.end());
    DutSwapReal8DecGToDecDArray(a.data(), 2, kLittle, kLittle);
  };
  VQTEST_EXPECT_ASSERTION(dec_g(), "D_IN_RANGE\\(dec_g_exp, -1023, 1023\\)");
}

}  // namespace
