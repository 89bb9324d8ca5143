// Host formats, names, byte swaps, argument errors, the known vectors,
// zeros, and the clamping paths with their warning texts; then every
// conversion against the frexp-based reference encoders, over both ends of
// every binade in each exact range and a fixed-seed pseudo-random set, in
// both IEEE byte orders.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "format/format_oracle.hpp"
#include "format/format_support.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"
#include "vqutil/thread.h"

namespace {

using namespace vqfmt;
using vqoracle::ieeeBytes;

float floatOf(std::uint32_t u) {
  float f;
  std::memcpy(&f, &u, sizeof f);
  return f;
}

template <typename T, std::size_t N>
T valueOf(const std::array<unsigned char, N> &bytes) {
  static_assert(sizeof(T) == N);
  T v;
  std::memcpy(&v, bytes.data(), N);
  return v;
}

template <typename Fn>
void fatalCall(Fn fn) {
  setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
  DutSetFatalErrorFile(stderr);
  fn();
}

// ---- Host formats, names and byte swaps ----------------------------------------

TEST(FormatNames, HostFormatsAndTheirTexts) {
  EXPECT_EQ(kHost, DutGetIntFormat());
  EXPECT_EQ(D_REAL_IEEE, DutGetRealFormat());
  using ToStr = D_BOOL (*)(D_INT4, const char **);
  // text null: an unknown format.
  const struct { ToStr fn; D_INT4 format; const char *text; } cases[] = {
      {DutIntFormatToStr, 0, "LITTLE_ENDIAN"}, {DutIntFormatToStr, 1, "BIG_ENDIAN"}, {DutIntFormatToStr, -1, nullptr},
      {DutIntFormatToStr, 2, nullptr},         {DutRealFormatToStr, 0, "DEC_D"},     {DutRealFormatToStr, 1, "DEC_G"},
      {DutRealFormatToStr, 2, "IEEE"},         {DutRealFormatToStr, 3, "IBM_370"},   {DutRealFormatToStr, -1, nullptr},
      {DutRealFormatToStr, 4, nullptr}};
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << (c.fn == DutRealFormatToStr ? "real " : "int ") << c.format);
    const char *sentinel = "untouched";
    const char *text = sentinel;
    // Neither an answer nor a refusal of an unknown format sets an error.
    DutErrNumSet(42);
    EXPECT_EQ(c.text ? D_TRUE : D_FALSE, c.fn(c.format, &text));
    EXPECT_EQ(42, DutErrNumGet());
    EXPECT_STREQ(c.text ? c.text : sentinel, text);
    // The null check comes before the format is looked at.
    EXPECT_FAILS(c.fn(c.format, nullptr), D_FALSE, D_ERR_NULL_PTR);
  }
}

using Swap = void (*)(void *);
const Swap kSwaps[] = {DutSwapTwoBytes, DutSwapFourBytes, DutSwapEightBytes, DutSwapSixteenBytes};

TEST(FormatSwap, ReversesExactlyItsBytes) {
  std::size_t size = 2;
  for (Swap swap : kSwaps) {
    // Guard bytes on both sides must not move; an odd start address checks
    // that no alignment is assumed.
    unsigned char buffer[1 + 16 + 1 + 16];
    for (std::size_t i = 0; i < sizeof buffer; ++i) buffer[i] = static_cast<unsigned char>(0xA0 + i);
    unsigned char expected[sizeof buffer];
    std::memcpy(expected, buffer, sizeof buffer);
    std::reverse(expected + 1, expected + 1 + size);
    swap(buffer + 1);
    EXPECT_EQ(0, std::memcmp(expected, buffer, sizeof buffer)) << size;
    size *= 2;
  }
}

TEST(FormatSwapDeathTest, NullPointerIsAnAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (Swap swap : kSwaps) {
    EXPECT_EXIT(fatalCall([&] { swap(nullptr); }), testing::KilledBySignal(SIGABRT),
                "Assertion <val_in_out != NULL> failed");
  }
}

// ---- Argument errors ------------------------------------------------------

enum Side { kIeee, kDec, kIbm };

struct Member {
  const char *name;
  Convert fn;
  Side from, to;
};

#define MEMBER(name, from, to) {#name, DutSwap##name, from, to}
const Member kMembers[] = {
    MEMBER(Real4IeeeToDecF, kIeee, kDec),     MEMBER(Real4DecFToIeee, kDec, kIeee),
    MEMBER(Real4IeeeToIbm370, kIeee, kIbm),   MEMBER(Real4Ibm370ToIeee, kIbm, kIeee),
    MEMBER(Real4DecFToIbm370, kDec, kIbm),    MEMBER(Real4Ibm370ToDecF, kIbm, kDec),
    MEMBER(Real8IeeeToDecD, kIeee, kDec),     MEMBER(Real8IeeeToDecG, kIeee, kDec),
    MEMBER(Real8DecDToIeee, kDec, kIeee),     MEMBER(Real8DecGToIeee, kDec, kIeee),
    MEMBER(Real8DecDToDecG, kDec, kDec),      MEMBER(Real8DecGToDecD, kDec, kDec),
    MEMBER(Real8IeeeToIbm370, kIeee, kIbm),   MEMBER(Real8Ibm370ToIeee, kIbm, kIeee),
    MEMBER(Real8DecDToIbm370, kDec, kIbm),    MEMBER(Real8DecGToIbm370, kDec, kIbm),
    MEMBER(Real8Ibm370ToDecD, kIbm, kDec),    MEMBER(Real8Ibm370ToDecG, kIbm, kDec)};
#undef MEMBER

bool allowed(Side side, D_INT4 format) {
  return side == kIeee ? format == kLittle || format == kBig : format == (side == kIbm ? kBig : kLittle);
}

// A refused conversion leaves the value alone; all-zero bytes stay zero,
// silently, since a zero is no exponent out of range; success, even with
// a warning, leaves the error number alone.
TEST(FormatArguments, EveryMemberChecksPointerAndBothFormats) {
  Capture capture;
  for (const Member &m : kMembers) {
    SCOPED_TRACE(m.name);
    for (D_INT4 in : {-1, 0, 1, 2}) {
      // The null check comes before the formats are looked at.
      EXPECT_FAILS(m.fn(nullptr, in, in), D_FALSE, D_ERR_NULL_PTR);
      for (D_INT4 out : {-1, 0, 1, 2}) {
        SCOPED_TRACE(testing::Message() << in << "->" << out);
        const bool ok = allowed(m.from, in) && allowed(m.to, out);
        unsigned char value[8];
        std::memset(value, 'A', sizeof value);  // an ordinary normal value in every format
        EXPECT_FAILS(m.fn(value, in, out), ok ? D_TRUE : D_FALSE, ok ? 0 : D_ERR_VAL_INVALID);
        EXPECT_TRUE(ok || std::string(8, 'A') == std::string(value, value + 8));
      }
    }
    unsigned char zero[8] = {};
    EXPECT_EQ(D_TRUE, m.fn(zero, m.from == kIbm ? kBig : kLittle, m.to == kIbm ? kBig : kLittle));
    EXPECT_EQ(std::string(8, '\0'), std::string(zero, zero + 8));
  }
  capture.Take();
  DutErrNumSet(123);
  EXPECT_EQ(D_TRUE, run(DutSwapReal4Ibm370ToIeee, B4{0x7F, 0x80, 0x00, 0x00}, kBig, kHost).status);
  EXPECT_EQ(123, DutErrNumGet());
  EXPECT_NE("", capture.Take());
}

// ---- Known vectors and zeros -------------------------------------------------

// 1.0: DEC words 0x4080 (F, D) or 0x4010 (G), each stored low byte first;
// IBM characteristic 0x41 with leading digit 1. The reference encoders
// give these bytes too, which pins them for the oracle suite.
TEST(FormatVectors, OneInEveryFormat) {
  const B4 decf = {0x80, 0x40, 0, 0}, ibm4 = {0x41, 0x10, 0, 0};
  const B8 decd = {0x80, 0x40, 0, 0, 0, 0, 0, 0}, decg = {0x10, 0x40, 0, 0, 0, 0, 0, 0};
  const B8 ibm8 = {0x41, 0x10, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(decf, vqoracle::decFFromValue(1.0));
  EXPECT_EQ(ibm4, vqoracle::ibm4FromValue(1.0));
  EXPECT_EQ(decd, vqoracle::decDFromValue(1.0));
  EXPECT_EQ(decg, vqoracle::decGFromValue(1.0));
  EXPECT_EQ(ibm8, vqoracle::ibm8FromValue(1.0));
  for (D_INT4 order : {kLittle, kBig}) {
    const B4 f = ieeeBytes(1.0f, order != kHost);
    const B8 d = ieeeBytes(1.0, order != kHost);
    EXPECT_EQ(decf, run(DutSwapReal4IeeeToDecF, f, order, kLittle).bytes) << order;
    EXPECT_EQ(f, run(DutSwapReal4Ibm370ToIeee, ibm4, kBig, order).bytes) << order;
    EXPECT_EQ(decg, run(DutSwapReal8IeeeToDecG, d, order, kLittle).bytes) << order;
    EXPECT_EQ(d, run(DutSwapReal8Ibm370ToIeee, ibm8, kBig, order).bytes) << order;
  }
  EXPECT_EQ(decg, run(DutSwapReal8DecDToDecG, decd, kLittle, kLittle).bytes);
}

TEST(FormatZeros, NegativeZeroLosesItsSign) {
  for (D_INT4 order : {kLittle, kBig}) {
    const B4 neg4 = ieeeBytes(-0.0f, order != kHost);
    const B8 neg8 = ieeeBytes(-0.0, order != kHost);
    using To = std::pair<Convert, D_INT4>;
    for (auto [fn, to] : {To{DutSwapReal4IeeeToDecF, kLittle}, To{DutSwapReal4IeeeToIbm370, kBig}})
      EXPECT_EQ(B4{}, run(fn, neg4, order, to).bytes) << order;
    for (auto [fn, to] :
         {To{DutSwapReal8IeeeToDecD, kLittle}, To{DutSwapReal8IeeeToDecG, kLittle}, To{DutSwapReal8IeeeToIbm370, kBig}})
      EXPECT_EQ(B8{}, run(fn, neg8, order, to).bytes) << order;
  }
  // 0x80 in the last byte is -0.0f only when read little-endian; read
  // big-endian it is the smallest denormal with its hidden bit assumed.
  const B4 bytes = {0x00, 0x00, 0x00, 0x80};
  EXPECT_EQ(B4{}, run(DutSwapReal4IeeeToIbm370, bytes, kLittle, kBig).bytes);
  EXPECT_NE(B4{}, run(DutSwapReal4IeeeToIbm370, bytes, kBig, kBig).bytes);
}

// ---- Deliberate behaviour at the edges --------------------------------------

TEST(FormatEdges, DecFCarriesIntoTheSignAtTheTop) {
  // Exponent field 254 (2^127) plus two overflows the DEC F exponent into
  // the sign bit: words 0x8000, 0x0000. With the sign already set the carry
  // leaves the word: all zero.
  EXPECT_EQ((B4{0x00, 0x80, 0x00, 0x00}),
            run(DutSwapReal4IeeeToDecF, ieeeBytes(std::ldexp(1.0f, 127), false), kHost, kLittle).bytes);
  EXPECT_EQ(B4{}, run(DutSwapReal4IeeeToDecF, ieeeBytes(-std::ldexp(1.0f, 127), false), kHost, kLittle).bytes);
}

TEST(FormatEdges, DecFDenormalsRoundTripBitForBit) {
  for (std::uint32_t bits : {0x00000001u, 0x00400000u, 0x007FFFFFu, 0x80012345u}) {
    const B4 ieee = ieeeBytes(floatOf(bits), false);
    auto dec = run(DutSwapReal4IeeeToDecF, ieee, kHost, kLittle);
    // The denormal's exponent 0 becomes DEC exponent 2: 0.1f x 2^-126.
    const double as_read = std::ldexp(1.0 + std::ldexp((bits & 0x7FFFFFu) * 1.0, -23), -127);
    EXPECT_EQ(vqoracle::decFFromValue(bits >= 0x80000000u ? -as_read : as_read), dec.bytes) << std::hex << bits;
    EXPECT_EQ(ieee, run(DutSwapReal4DecFToIeee, dec.bytes, kLittle, kHost).bytes) << std::hex << bits;
  }
}

TEST(FormatEdges, IeeeSingleSpecialsToIbmAreOrdinaryBits) {
  Capture capture;
  auto toIbm = [](float v) { return run(DutSwapReal4IeeeToIbm370, ieeeBytes(v, false), kHost, kBig).bytes; };
  // A denormal's fraction 0x400000 with exponent 0 is read as 1.5 x 2^-127.
  EXPECT_EQ(vqoracle::ibm4FromValue(std::ldexp(1.5, -127)), toIbm(floatOf(0x00400000u)));
  // Exponent field 255 reads as 2^128: IBM characteristic 97.
  EXPECT_EQ(vqoracle::ibm4FromValue(std::ldexp(1.0, 128)), toIbm(INFINITY));
  EXPECT_EQ(vqoracle::ibm4FromValue(std::ldexp(1.5, 128)), toIbm(floatOf(0x7FC00000u)));
  // Exponent field 254 reaches characteristic 96, still no warning.
  EXPECT_EQ(vqoracle::ibm4FromValue(FLT_MAX), toIbm(FLT_MAX));
  EXPECT_EQ(0x60, vqoracle::ibm4FromValue(FLT_MAX)[0]);
  EXPECT_EQ("", capture.Take());
}

TEST(FormatEdges, IbmSingleClampsWithWarnings) {
  Capture capture;
  const struct { unsigned char clamped_to; std::vector<unsigned char> exponents; std::string warning; } bands[] = {
      {0x60, {0x61, 0x70, 0x7F}, "WARNING: DutSwapReal4Ibm370ToIeee: IBM_370 exponent overflows IEEE exponent\n"},
      {0x21, {0x00, 0x01, 0x20}, "WARNING: DutSwapReal4Ibm370ToIeee: IBM_370 exponent underflows IEEE exponent\n"}};
  for (const auto &band : bands) {
    for (unsigned char sign : {0x00, 0x80}) {
      for (unsigned char digit : {0x10, 0x20, 0x40, 0x80, 0xF0}) {
        const auto limit = run(DutSwapReal4Ibm370ToIeee, B4{static_cast<unsigned char>(sign | band.clamped_to), digit,
                                                            0x12, 0x34}, kBig, kHost);
        EXPECT_EQ("", capture.Take());
        for (unsigned char e : band.exponents) {
          auto got = run(DutSwapReal4Ibm370ToIeee, B4{static_cast<unsigned char>(sign | e), digit, 0x12, 0x34}, kBig,
                         kHost);
          EXPECT_EQ(D_TRUE, got.status);
          EXPECT_EQ(limit.bytes, got.bytes) << int(e) << " digit " << int(digit);
          EXPECT_EQ(band.warning, capture.Take());
        }
      }
    }
  }
  // Exponent 127 clamps to 96: all digits set give the largest float.
  EXPECT_EQ(FLT_MAX, valueOf<float>(run(DutSwapReal4Ibm370ToIeee, B4{0x7F, 0xFF, 0xFF, 0xFF}, kBig, kHost).bytes));
  EXPECT_EQ(bands[0].warning, capture.Take());
}

TEST(FormatEdges, IbmSingleLowExponentKeepsEightBits) {
  Capture capture;
  // Characteristic 33 with a leading digit of 1: exponent -1 stored as 255.
  EXPECT_EQ((B4{0x7F, 0x80, 0x00, 0x00}), run(DutSwapReal4Ibm370ToIeee, B4{0x21, 0x10, 0x00, 0x00}, kBig, kBig).bytes);
  // With a leading digit of 4 or more it is the smallest normal exactly.
  EXPECT_EQ(FLT_MIN, valueOf<float>(run(DutSwapReal4Ibm370ToIeee, B4{0x21, 0x40, 0, 0}, kBig, kHost).bytes));
  // An unnormalised zero fraction keeps exponent 4E - 129: 0x41000000 is 16.
  EXPECT_EQ(16.0f, valueOf<float>(run(DutSwapReal4Ibm370ToIeee, B4{0x41, 0x00, 0, 0}, kBig, kHost).bytes));
  EXPECT_EQ("", capture.Take());
}

// Eight-byte conversions at and beyond the ends of their exact ranges:
// clamped exponents keep the fraction and warn; wrapped or unchecked ones
// are silent.
TEST(FormatEdges, EightByteRangeEndsWithTheirWarnings) {
  const std::string ibm_over = "WARNING: DutSwapReal8IeeeToIbm370: IEEE exponent overflows IBM_370 exponent\n";
  const std::string ibm_under = "WARNING: DutSwapReal8IeeeToIbm370: IEEE exponent underflows IBM_370 exponent\n";
  auto to_d = [](int e) {
    return "WARNING: DutSwapReal8IeeeToDecD: IEEE exponent " + std::to_string(e) + " cannot fit in DEC_D exponent.\n";
  };
  auto to_g = [](int e) {
    return "WARNING: DutSwapReal8IeeeToDecD: IEEE exponent " + std::to_string(e) + " cannot fit in DEC_G exponent.\n";
  };
  auto g_to_d = [](int e) {
    return "WARNING: DutSwapReal8DecGToDecD: DEC_G exponent " + std::to_string(e) + " cannot fit in DEC_D exponent.\n";
  };
  auto p2 = [](double m, int e) { return std::ldexp(m, e); };
  auto big = [](double v) { return ieeeBytes(v, kHost != kBig); };
  auto ibm = [](double v, int c = -1) { return vqoracle::ibm8FromValue(v, c); };
  auto d = [](double v, int e = -1) { return vqoracle::decDFromValue(v, e); };
  auto g = [](double v, int e = -1) { return vqoracle::decGFromValue(v, e); };
  const double below = 1 - DBL_EPSILON / 2;  // the largest fraction
  Capture capture;
  int row = 0;
  auto check = [&](Convert fn, B8 in, D_INT4 from, D_INT4 to, B8 expected, const std::string &warning) {
    const auto got = run(fn, in, from, to);
    EXPECT_EQ(D_TRUE, got.status) << "row " << row;
    EXPECT_EQ(expected, got.bytes) << "row " << row;
    EXPECT_EQ(warning, capture.Take()) << "row " << row;
    ++row;
  };
  // IEEE -> IBM: exact in [2^-260, 2^252), else characteristic 0 or 127.
  auto to_ibm = [&](double v, B8 expected, const std::string &warning) {
    check(DutSwapReal8IeeeToIbm370, big(v), kBig, kBig, expected, warning);
  };
  for (double v : {p2(1, -260), -p2(1, -260), p2(below, 252)}) to_ibm(v, ibm(v), "");
  for (double v : {p2(1, -261), p2(-1.75, -300), DBL_MIN}) to_ibm(v, ibm(v, 0), ibm_under);
  for (double v : {p2(1, 252), p2(-1.5, 400), DBL_MAX}) to_ibm(v, ibm(v, 127), ibm_over);
  to_ibm(-HUGE_VAL, ibm(-1.0, 127), ibm_over);  // 2^1024 has the hex digits of 1.0
  // IEEE -> DEC D: exact in [2^-128, 2^127); above, exponent 255 with a
  // warning; below, the exponent wraps modulo 256 without one.
  auto to_decd = [&](double v, B8 expected, const std::string &warning) {
    check(DutSwapReal8IeeeToDecD, big(v), kBig, kLittle, expected, warning);
  };
  to_decd(p2(below, 127), d(p2(below, 127)), "");
  to_decd(p2(1, 127), d(0.5, 255), to_d(127));
  to_decd(-p2(1.375, 500), d(-0.6875, 255), to_d(500));
  to_decd(DBL_MAX, d(below, 255), to_d(1023));
  to_decd(HUGE_VAL, d(0.5, 255), to_d(1024));
  to_decd(p2(1, -128), d(p2(1, -128)), "");
  to_decd(p2(1, -129), B8{}, "");
  to_decd(p2(1.5, -130), d(0.75, 255), "");
  // IEEE -> DEC G: every normal below 2^1023; above, exponent 2047.
  auto to_decg = [&](double v, B8 expected, const std::string &warning) {
    check(DutSwapReal8IeeeToDecG, big(v), kBig, kLittle, expected, warning);
  };
  to_decg(DBL_MIN, g(DBL_MIN), "");
  to_decg(p2(below, 1023), g(p2(below, 1023)), "");
  to_decg(DBL_MAX, g(below, 2047), to_g(1023));
  to_decg(-p2(1, 1023), g(-0.5, 2047), to_g(1023));
  to_decg(std::nan(""), g(0.75, 2047), to_g(1024));
  // DEC G -> DEC D: e = 127 would fit exponent 255, yet is clamped to 254;
  // below 2^-128 the exponent wraps.
  check(DutSwapReal8DecGToDecD, g(p2(below, 126)), kLittle, kLittle, d(p2(below, 126)), "");
  for (int e : {127, 128, 1023}) {
    check(DutSwapReal8DecGToDecD, g(p2(-0.75, e)), kLittle, kLittle, d(-0.75, 254), g_to_d(e));
  }
  check(DutSwapReal8DecGToDecD, g(p2(0.5, -129)), kLittle, kLittle, d(0.5, 255), "");
  // IBM -> DEC D passes the DEC warning through.
  check(DutSwapReal8Ibm370ToDecD, ibm(p2(1, 200)), kBig, kLittle, d(0.5, 255), to_d(200));
  // DEC D exponent 0 with bits set reads as exponent 256 on the IEEE side
  // and as 2^-128 scale on the G side; DEC G exponent 2 gives the pattern of
  // IEEE exponent field 0.
  check(DutSwapReal8DecDToIeee, d(0.75, 0), kLittle, kBig, big(p2(0.75, 128)), "");
  check(DutSwapReal8DecDToDecG, d(0.75, 0), kLittle, kLittle, g(p2(0.75, -128)), "");
  check(DutSwapReal8DecGToIeee, g(0.75, 2), kLittle, kBig, big(p2(1, -1023)), "");
  // An IBM double with leading hex digit 0 keeps its fraction, with
  // exponent 4E + 767.
  check(DutSwapReal8Ibm370ToIeee, B8{0x40, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD}, kBig, kBig,
        B8{0x3F, 0xF1, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD}, "");
}

// A single-precision pattern of DEC F exponent 2 is the IEEE denormal.
TEST(FormatEdges, DecFExponentTwoIsAnIeeeDenormal) {
  EXPECT_EQ(ieeeBytes(floatOf(0x00400000u), false),
            run(DutSwapReal4DecFToIeee, vqoracle::decFFromValue(0.75, 2), kLittle, kHost).bytes);
}

// ---- Fatal paths --------------------------------------------------------------

TEST(FormatDeathTest, DenormalDoubleToDecAndDecGExponentZeroAreFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const B8 denormal = ieeeBytes(DBL_MIN / 4, false);
  for (Convert fn : {DutSwapReal8IeeeToDecD, DutSwapReal8IeeeToDecG}) {
    EXPECT_EXIT(fatalCall([&] { run(fn, denormal, kHost, kLittle); }), testing::KilledBySignal(SIGABRT),
                "Assertion <D_IN_RANGE\\(ieee_exp, -1022, 1024\\)> failed");
  }
  EXPECT_EXIT(fatalCall([] { run(DutSwapReal8DecGToDecD, vqoracle::decGFromValue(0.75, 0), kLittle, kLittle); }),
              testing::KilledBySignal(SIGABRT), "Assertion <D_IN_RANGE\\(dec_g_exp, -1023, 1023\\)> failed");
}

// ---- Threads --------------------------------------------------------------------

TEST(FormatThreads, ConcurrentConversionsAndWarnings) {
  DutInitThreads();
  Capture capture;
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  std::vector<int> failures(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &failures] {
      for (int i = 0; i < kRounds; ++i) {
        const double v = std::ldexp(1.0 + i / 4096.0, (i % 200) - 100) * (t % 2 ? -1 : 1);
        auto ibm = run(DutSwapReal8IeeeToIbm370, ieeeBytes(v, false), kHost, kBig);
        if (run(DutSwapReal8Ibm370ToIeee, ibm.bytes, kBig, kHost).bytes != ieeeBytes(v, false)) ++failures[t];
        // One overflow warning per round.
        run(DutSwapReal4Ibm370ToIeee, B4{0x7F, 0x10, 0x00, static_cast<unsigned char>(i)}, kBig, kHost);
      }
    });
  }
  for (auto &th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(0, failures[t]) << t;
  const std::string text = capture.Take();
  // The prefix and the text are separate output calls, so they are counted
  // apart.
  EXPECT_EQ(kThreads * kRounds, countOf(text, "WARNING: "));
  EXPECT_EQ(kThreads * kRounds, countOf(text, "DutSwapReal4Ibm370ToIeee: IBM_370 exponent overflows IEEE exponent\n"));
}

// ---- Against the reference encoders ------------------------------------------

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
