// The real-format conversions. Host formats, names and byte swaps; the
// argument checks of both call forms; a table of known words and of the
// deliberate behaviour at the edges, each warning text in it once; fatal
// assertions; threads. Then every conversion over one shared set of edge
// and random words: one value at a time against the reference model, and
// as arrays against the per-value calls.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "format/format_oracle.hpp"
#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/format.h"
#include "vqutil/thread.h"

namespace {

using vqoracle::Fmt;
using Bytes = std::vector<unsigned char>;
using Convert = D_BOOL (*)(void *, D_INT4, D_INT4);
using ConvertArray = D_BOOL (*)(void *, D_UINT4, D_INT4, D_INT4);
constexpr D_INT4 kLittle = D_INT_LITTLE_ENDIAN;
constexpr D_INT4 kBig = D_INT_BIG_ENDIAN;
constexpr D_INT4 kHost = std::endian::native == std::endian::little ? kLittle : kBig;

struct Conversion { const char *name; Convert one; ConvertArray many; Fmt from, to; };

#define VQ_CONVERSION(name, from, to) {#name, DutSwap##name, DutSwap##name##Array, Fmt::from, Fmt::to}
const Conversion kConversions[] = {
    VQ_CONVERSION(Real4IeeeToDecF, Ieee4, DecF),   VQ_CONVERSION(Real4DecFToIeee, DecF, Ieee4),
    VQ_CONVERSION(Real4IeeeToIbm370, Ieee4, Ibm4), VQ_CONVERSION(Real4Ibm370ToIeee, Ibm4, Ieee4),
    VQ_CONVERSION(Real4DecFToIbm370, DecF, Ibm4),  VQ_CONVERSION(Real4Ibm370ToDecF, Ibm4, DecF),
    VQ_CONVERSION(Real8IeeeToDecD, Ieee8, DecD),   VQ_CONVERSION(Real8IeeeToDecG, Ieee8, DecG),
    VQ_CONVERSION(Real8DecDToIeee, DecD, Ieee8),   VQ_CONVERSION(Real8DecGToIeee, DecG, Ieee8),
    VQ_CONVERSION(Real8DecDToDecG, DecD, DecG),    VQ_CONVERSION(Real8DecGToDecD, DecG, DecD),
    VQ_CONVERSION(Real8IeeeToIbm370, Ieee8, Ibm8), VQ_CONVERSION(Real8Ibm370ToIeee, Ibm8, Ieee8),
    VQ_CONVERSION(Real8DecDToIbm370, DecD, Ibm8),  VQ_CONVERSION(Real8DecGToIbm370, DecG, Ibm8),
    VQ_CONVERSION(Real8Ibm370ToDecD, Ibm8, DecD),  VQ_CONVERSION(Real8Ibm370ToDecG, Ibm8, DecG),
};
#undef VQ_CONVERSION

// By name: a DLL's functions may have more than one address in a host
// (import stubs), so function pointers do not identify them everywhere.
const Conversion &named(const char *name) {
  auto it = std::find_if(std::begin(kConversions), std::end(kConversions),
                         [name](auto &c) { return std::strcmp(c.name, name) == 0; });
  if (it == std::end(kConversions)) std::abort();
  return *it;
}
std::vector<D_INT4> ordersOf(Fmt f) {
  return vqoracle::isIeee(f) ? std::vector{kLittle, kBig} : std::vector{vqoracle::isIbm(f) ? kBig : kLittle};
}
bool allowed(Fmt f, D_INT4 order) {
  return order == kBig ? !vqoracle::isDec(f) : order == kLittle && !vqoracle::isIbm(f);
}
int sizeOf(const Conversion &c) { return vqoracle::layoutOf(c.from).size; }
Bytes store(std::uint64_t word, Fmt f, D_INT4 order) { return vqoracle::store(word, f, order == kLittle); }

// ---- Host formats, names and byte swaps ---------------------------------------

using Swap = void (*)(void *);
const Swap kSwaps[] = {DutSwapTwoBytes, DutSwapFourBytes, DutSwapEightBytes, DutSwapSixteenBytes};

TEST(FormatNames, HostFormatsTheirTextsAndByteSwaps) {
  EXPECT_EQ(kHost, DutGetIntFormat());
  EXPECT_EQ(D_REAL_IEEE, DutGetRealFormat());
  using ToStr = D_BOOL (*)(D_INT4, const char **);
  const struct { ToStr fn; D_INT4 format; const char *text; } cases[] = {  // text null: unknown
      {DutIntFormatToStr, 0, "LITTLE_ENDIAN"}, {DutIntFormatToStr, 1, "BIG_ENDIAN"}, {DutIntFormatToStr, 2, nullptr},
      {DutRealFormatToStr, 0, "DEC_D"},        {DutRealFormatToStr, 1, "DEC_G"},     {DutRealFormatToStr, 2, "IEEE"},
      {DutRealFormatToStr, 3, "IBM_370"},      {DutRealFormatToStr, -1, nullptr},    {DutRealFormatToStr, 4, nullptr}};
  for (const auto &c : cases) {
    const char *text = "untouched";
    // Neither an answer nor a refusal sets an error; a null result does,
    // before the format is looked at.
    DutErrNumSet(42);
    EXPECT_EQ(c.text ? D_TRUE : D_FALSE, c.fn(c.format, &text)) << c.format;
    EXPECT_EQ(42, DutErrNumGet());
    EXPECT_STREQ(c.text ? c.text : "untouched", text);
    EXPECT_FAILS(c.fn(c.format, nullptr), D_FALSE, D_ERR_NULL_PTR);
  }
  for (std::size_t k = 0; k < std::size(kSwaps); ++k) {
    const std::size_t size = std::size_t{2} << k;
    // Guard bytes must not move; an odd start checks no alignment is assumed.
    unsigned char buffer[18], expected[18];
    for (std::size_t i = 0; i < sizeof buffer; ++i) buffer[i] = expected[i] = static_cast<unsigned char>(0xA0 + i);
    std::reverse(expected + 1, expected + 1 + size);
    kSwaps[k](buffer + 1);
    EXPECT_EQ(0, std::memcmp(expected, buffer, sizeof buffer)) << size;
  }
}

// ---- Arguments ----------------------------------------------------------------

// Null first (for arrays only with values to convert), then both formats;
// a refusal leaves every value alone, success leaves the error number.
TEST(FormatArguments, BothFormsCheckPointerAndFormats) {
  for (const Conversion &c : kConversions) {
    for (int k = 0; k < 64; ++k) {  // formats -1..2 in and out, null or not, 0 or 3 values
      const D_INT4 in = k % 4 - 1, out = k / 4 % 4 - 1;
      const bool null = k / 16 % 2 != 0, ok = allowed(c.from, in) && allowed(c.to, out);
      const auto count = static_cast<D_UINT4>(k / 32 * 3);
      SCOPED_TRACE(testing::Message() << c.name << " " << in << "->" << out << " null " << null << " " << count);
      std::string values(24, 'A');  // an ordinary normal value in every format
      void *const p = null ? nullptr : values.data();
      for (bool array : {false, true}) {
        const int error = null && (!array || count > 0) ? D_ERR_NULL_PTR : ok ? 99 : D_ERR_VAL_INVALID;
        DutErrNumSet(99);
        EXPECT_EQ(error == 99 ? D_TRUE : D_FALSE, array ? c.many(p, count, in, out) : c.one(p, in, out));
        EXPECT_EQ(error, DutErrNumGet());
      }
      EXPECT_TRUE(ok || values == std::string(24, 'A'));
    }
  }
}

// ---- Known words and the edges ------------------------------------------------

// Logical words (sign in the top bit); the warning's text after "WARNING: ".
struct Edge { const char *fn; std::uint64_t in; D_INT4 in_order, out_order; std::uint64_t out; const char *warning; };

const char kIbm4Over[] = "DutSwapReal4Ibm370ToIeee: IBM_370 exponent overflows IEEE exponent\n";

const Edge kEdges[] = {
    // 1.0 in every format, which pins the reference model too.
    {"Real4IeeeToDecF", 0x3F800000, kBig, kLittle, 0x40800000, ""},
    {"Real4IeeeToIbm370", 0x3F800000, kBig, kBig, 0x41100000, ""},
    {"Real8IeeeToDecD", 0x3FF0000000000000, kLittle, kLittle, 0x4080000000000000, ""},
    {"Real8IeeeToDecG", 0x3FF0000000000000, kBig, kLittle, 0x4010000000000000, ""},
    {"Real8Ibm370ToIeee", 0x4110000000000000, kBig, kBig, 0x3FF0000000000000, ""},
    // DEC F: 2^127 carries into the sign, and out of the word when it is
    // set; an IEEE denormal is DEC exponent 2 and back.
    {"Real4IeeeToDecF", 0x7F000000, kHost, kLittle, 0x80000000, ""},
    {"Real4IeeeToDecF", 0xFF000000, kHost, kLittle, 0, ""},
    {"Real4DecFToIeee", 0x01400000, kLittle, kHost, 0x00400000, ""},
    // IEEE single exponent fields 0 and 255 are ordinary bits to IBM.
    {"Real4IeeeToIbm370", 0x00400000, kHost, kBig, 0x21300000, ""},
    {"Real4IeeeToIbm370", 0x7F800000, kHost, kBig, 0x61100000, ""},
    // IBM single: characteristics outside 33..96 clamp with a warning; 33
    // keeps eight exponent bits; a zero leading digit stays unnormalised.
    {"Real4Ibm370ToIeee", 0x7FFFFFFF, kBig, kBig, 0x7F7FFFFF, kIbm4Over},
    {"Real4Ibm370ToIeee", 0xE1101234, kBig, kBig, 0xFD8091A0, kIbm4Over},
    {"Real4Ibm370ToIeee", 0x20F00000, kBig, kBig, 0x01700000,
     "DutSwapReal4Ibm370ToIeee: IBM_370 exponent underflows IEEE exponent\n"},
    {"Real4Ibm370ToIeee", 0x21100000, kBig, kBig, 0x7F800000, ""},
    {"Real4Ibm370ToIeee", 0x41000000, kBig, kBig, 0x41800000, ""},
    {"Real4Ibm370ToDecF", 0x61101234, kBig, kLittle, 0x7E8091A0, kIbm4Over},
    // Eight bytes: IBM's range is [2^-260, 2^252), DEC D's [2^-128, 2^127);
    // above, the exponent clamps with a warning, below DEC D it wraps.
    {"Real8IeeeToIbm370", 0x4FB0000000000000, kBig, kBig, 0x7F10000000000000,
     "DutSwapReal8IeeeToIbm370: IEEE exponent overflows IBM_370 exponent\n"},
    {"Real8IeeeToIbm370", 0x0010000000000000, kBig, kBig, 0x0040000000000000,
     "DutSwapReal8IeeeToIbm370: IEEE exponent underflows IBM_370 exponent\n"},
    {"Real8IeeeToDecD", 0x47E0000000000000, kBig, kLittle, 0x7F80000000000000,
     "DutSwapReal8IeeeToDecD: IEEE exponent 127 cannot fit in DEC_D exponent.\n"},
    {"Real8IeeeToDecD", 0x37D8000000000000, kBig, kLittle, 0x7FC0000000000000, ""},
    {"Real8IeeeToDecG", 0x7FEFFFFFFFFFFFFF, kBig, kLittle, 0x7FFFFFFFFFFFFFFF,
     "DutSwapReal8IeeeToDecD: IEEE exponent 1023 cannot fit in DEC_G exponent.\n"},
    // DEC G exponent 127 would fit DEC D's 255, yet clamps to 254.
    {"Real8DecGToDecD", 0xC7F8000000000000, kLittle, kLittle, 0xFF40000000000000,
     "DutSwapReal8DecGToDecD: DEC_G exponent 127 cannot fit in DEC_D exponent.\n"},
    {"Real8DecGToDecD", 0x37F0000000000000, kLittle, kLittle, 0x7F80000000000000, ""},
    {"Real8Ibm370ToDecD", 0x7310000000000000, kBig, kLittle, 0x7F80000000000000,
     "DutSwapReal8IeeeToDecD: IEEE exponent 200 cannot fit in DEC_D exponent.\n"},
    // DEC D exponent 0 reads as 2^128 scale to IEEE, 2^-128 to DEC G; DEC G
    // exponent 2 gives IEEE exponent field 0; IBM leading digit 0 stays.
    {"Real8DecDToIeee", 0x0040000000000000, kLittle, kBig, 0x47E8000000000000, ""},
    {"Real8DecDToDecG", 0x0040000000000000, kLittle, kLittle, 0x3808000000000000, ""},
    {"Real8DecGToIeee", 0x0028000000000000, kLittle, kBig, 0x0008000000000000, ""},
    {"Real8Ibm370ToIeee", 0x400123456789ABCD, kBig, kBig, 0x3FF123456789ABCD, ""},
};

TEST(FormatEdges, KnownWordsAndWarnings) {
  vqtest::OutputCapture capture;
  for (const Edge &e : kEdges) {
    const Conversion &c = named(e.fn);
    SCOPED_TRACE(testing::Message() << c.name << " " << std::hex << e.in);
    // Success, even with a warning, leaves the error number alone.
    DutErrNumSet(7);
    for (bool array : {false, true}) {
      Bytes bytes = store(e.in, c.from, e.in_order);
      EXPECT_EQ(D_TRUE, array ? c.many(bytes.data(), 1, e.in_order, e.out_order)
                              : c.one(bytes.data(), e.in_order, e.out_order));
      EXPECT_EQ(store(e.out, c.to, e.out_order), bytes);
      EXPECT_EQ(*e.warning ? std::string("WARNING: ") + e.warning : "", capture.Take());
    }
    EXPECT_EQ(7, DutErrNumGet());
  }
}

// ---- Fatal paths ----------------------------------------------------------------

TEST(FormatDeathTest, NullSwapsDenormalDoublesToDecAndDecGExponentZero) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (Swap swap : kSwaps) VQTEST_EXPECT_ASSERTION(swap(nullptr), "val_in_out != NULL");
  // After a good value, so that arrays stop at the value a per-value call would.
  const struct { const char *fn; std::uint64_t bad; const char *text; } cases[] = {
      {"Real8IeeeToDecD", 0x0004000000000000, "Assertion <D_IN_RANGE\\(ieee_exp, -1022, 1024\\)> failed"},
      {"Real8IeeeToDecG", 0x0004000000000000, "Assertion <D_IN_RANGE\\(ieee_exp, -1022, 1024\\)> failed"},
      {"Real8DecGToDecD", 0x0008000000000000, "Assertion <D_IN_RANGE\\(dec_g_exp, -1023, 1023\\)> failed"}};
  for (const auto &k : cases) {
    const Conversion &c = named(k.fn);
    Bytes bytes = store(0x4000000000000000, c.from, kLittle);
    for (unsigned char b : store(k.bad, c.from, kLittle)) bytes.push_back(b);
    VQTEST_EXPECT_FATAL(c.one(bytes.data() + 8, kLittle, kLittle), k.text);
    VQTEST_EXPECT_FATAL(c.many(bytes.data(), 2, kLittle, kLittle), k.text);
  }
}

// ---- Threads ----------------------------------------------------------------------

TEST(FormatThreads, ConcurrentConversionsAndWarnings) {
  DutInitThreads();
  vqtest::OutputCapture capture;
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &failures] {
      for (std::uint64_t i = 0; i < kRounds; ++i) {
        // IEEE -> IBM -> IEEE is exact for doubles in IBM's range.
        const std::uint64_t word =
            ((900 + i % 200) << 52 | i * 0x9E3779B97F4A7C15u >> 12) ^ (t % 2 ? std::uint64_t{1} << 63 : 0);
        Bytes bytes = store(word, Fmt::Ieee8, kHost);
        DutSwapReal8IeeeToIbm370(bytes.data(), kHost, kBig);
        DutSwapReal8Ibm370ToIeee(bytes.data(), kBig, kHost);
        failures += bytes != store(word, Fmt::Ieee8, kHost);
        // One overflow warning per round.
        Bytes over = store(0x7F100000 + i, Fmt::Ibm4, kBig);
        DutSwapReal4Ibm370ToIeeeArray(over.data(), 1, kBig, kHost);
      }
    });
  }
  for (auto &th : threads) th.join();
  EXPECT_EQ(0, failures.load());
  // The prefix and the text are separate output calls, which threads may
  // interleave: the texts are counted, the prefixes only by length.
  const std::string text = capture.Take();
  std::size_t n = 0;
  for (auto at = text.find(kIbm4Over); at != std::string::npos; at = text.find(kIbm4Over, at + 1)) ++n;
  EXPECT_EQ(std::size_t{kThreads * kRounds}, n);
  EXPECT_EQ(n * (std::strlen("WARNING: ") + std::strlen(kIbm4Over)), text.size());
}

// ---- Every conversion over edge and random words ----------------------------------

// Edges (both signs; exponents 0..3, the middle two, the top two and
// either side of IBM single's exact range;
// fractions zero, one, all ones and each leading hex digit) and random
// words, half with an exponent near the middle, some with the fraction at
// either end of its binade. Words a per-value call would fail an assertion
// on (IEEE denormal doubles to DEC, DEC G exponent 0 to DEC D) get exponent
// 1 instead: the death test has them.
constexpr std::size_t kEdgeWords = 2 * 14 * 7;

std::vector<std::uint64_t> wordsFor(const Conversion &c, int random) {
  using U = std::uint64_t;
  const vqoracle::Layout l = vqoracle::layoutOf(c.from);
  const std::uint64_t max_exp = vqoracle::pow2(l.exp_bits) - 1, max_frac = vqoracle::pow2(l.frac_bits) - 1;
  const std::uint64_t top = max_frac / 2 + 1;
  auto word = [&](std::uint64_t sign, std::uint64_t e, std::uint64_t frac) {
    const bool fatal = (c.from == Fmt::Ieee8 && c.to != Fmt::Ibm8) || (c.from == Fmt::DecG && c.to == Fmt::DecD);
    if (fatal && e == 0 && (c.from == Fmt::DecG ? sign + frac : frac) != 0) e = 1;
    return (sign << (l.exp_bits + l.frac_bits)) | (e << l.frac_bits) | frac;
  };
  std::vector<std::uint64_t> out;
  for (std::uint64_t sign : {U{0}, U{1}})
    for (std::uint64_t e : {U{0}, U{1}, U{2}, U{3}, U{32}, U{33}, U{34}, U{95}, U{96}, U{97}, max_exp / 2,
                            max_exp / 2 + 1, max_exp - 1, max_exp})
      for (std::uint64_t frac : {U{0}, U{1}, max_frac, top, top >> 1, top >> 2, top >> 3})
        out.push_back(word(sign, e, frac));
  std::mt19937_64 rng(0xF0A7u + static_cast<unsigned>(c.from) * 8 + static_cast<unsigned>(c.to));
  const std::uint64_t span = std::min<std::uint64_t>(120, max_exp / 2 - 1);
  for (int i = 0; i < random; ++i) {
    const std::uint64_t r = rng(), e = rng() % 2 ? rng() & max_exp : max_exp / 2 - span + rng() % (2 * span + 1);
    const std::uint64_t frac = r % 8 == 0 ? 0 : r % 8 == 1 ? max_frac : rng() & max_frac;
    out.push_back(word(r >> 63, e, frac));
  }
  return out;
}

// The model's result, when the value is normal (or zero) and fits: the
// value truncated to the precision of IEEE, through which all but the DEC
// to DEC conversions go, and then to the target's.
std::optional<Bytes> modelled(const Conversion &c, std::uint64_t word, D_INT4 out) {
  const auto value = vqoracle::decode(c.from, word);
  if (!value) return std::nullopt;
  const long double v = vqoracle::truncateSignificand(*value, sizeOf(c) == 4 ? 24 : 53);
  const bool dec_to_dec = (c.from == Fmt::DecD || c.from == Fmt::DecG) && (c.to == Fmt::DecD || c.to == Fmt::DecG);
  if (!dec_to_dec && !vqoracle::encode(sizeOf(c) == 4 ? Fmt::Ieee4 : Fmt::Ieee8, v)) return std::nullopt;
  const auto want = vqoracle::encode(c.to, v);
  // DEC G exponent 127 clamps to DEC D's 254 (in the edge table).
  if (!want || (c.from == Fmt::DecG && c.to == Fmt::DecD && (*want >> 55) % 256 == 255)) return std::nullopt;
  return store(*want, c.to, out);
}

// Each conversion and pair of orders over its words: one value at a time
// against the model, then all as one array call, which must give the bytes
// and the warnings of the per-value calls, in order, one byte off alignment.
// The array's words: a run of plain ones (modelled and well inside every
// range, which the array code takes without a detour); each other word
// (every edge, a sample of the random ones) alone among plain ones in 257
// values, more than one block of the array code, so that its block has
// nothing else to redo; then all the words in a row, and a short tail.
TEST(FormatOracle, PerValueAgainstTheModelAndArraysAgainstPerValue) {
  // The model needs long double's 64-bit significand, which valgrind's x87
  // emulation does not keep: there eight-byte values skip the model.
  volatile long double unit = 1;
  const bool extended = unit + std::ldexp(1.0L, -60) != unit;
  vqtest::OutputCapture capture;
  for (const Conversion &c : kConversions) {
    const vqoracle::Layout l = vqoracle::layoutOf(c.from);
    const bool model = extended || l.size == 4;
    for (D_INT4 in : ordersOf(c.from)) {
      for (D_INT4 out : ordersOf(c.to)) {
        SCOPED_TRACE(testing::Message() << c.name << " " << in << "->" << out);
        const std::vector<std::uint64_t> words = wordsFor(c, 3000);
        std::vector<std::size_t> plain, other, layout;
        std::vector<Bytes> converted;
        std::vector<std::string> warned;
        int checked = 0;
        for (std::size_t i = 0; i < words.size(); ++i) {
          converted.push_back(store(words[i], c.from, in));
          EXPECT_EQ(D_TRUE, c.one(converted.back().data(), in, out));
          warned.push_back(capture.Take());
          const auto want = modelled(c, words[i], out);
          const auto e = static_cast<std::int64_t>(words[i] >> l.frac_bits) %
                         static_cast<std::int64_t>(vqoracle::pow2(l.exp_bits));
          const bool inside = std::abs(e - static_cast<std::int64_t>(vqoracle::pow2(l.exp_bits - 1))) <= 16;
          (inside && want ? plain : other).push_back(i);
          if (!want || !model) continue;
          ++checked;
          ASSERT_EQ(*want, converted.back()) << std::hex << words[i];
          ASSERT_EQ("", warned.back()) << std::hex << words[i];  // nothing in range warns
        }
        EXPECT_TRUE(checked > 1000 || !model) << checked;
        ASSERT_GT(plain.size(), 100u);
        for (std::size_t i = 0; i < 1024; ++i) layout.push_back(plain[i % plain.size()]);
        for (std::size_t k = 0; k < other.size(); ++k) {
          if (other[k] >= kEdgeWords && k % 4 != 0) continue;  // past the edges, a quarter
          for (std::size_t i = 0; i < 257; ++i) layout.push_back(i == 128 ? other[k] : plain[(k + i) % plain.size()]);
        }
        for (std::size_t i = 0; i < words.size() + 3; ++i)
          layout.push_back(i < words.size() ? i : plain[i % plain.size()]);
        const auto size = static_cast<std::size_t>(l.size);
        Bytes input(1 + layout.size() * size), want(layout.size() * size);
        std::string warnings;
        for (std::size_t i = 0; i < layout.size(); ++i) {
          std::memcpy(&input[1 + i * size], store(words[layout[i]], c.from, in).data(), size);
          std::memcpy(&want[i * size], converted[layout[i]].data(), size);
          warnings += warned[layout[i]];
        }
        ASSERT_EQ(D_TRUE, c.many(input.data() + 1, static_cast<D_UINT4>(layout.size()), in, out));
        EXPECT_EQ(warnings, capture.Take());
        EXPECT_TRUE(std::equal(want.begin(), want.end(), input.begin() + 1));
      }
    }
  }
}

}  // namespace
