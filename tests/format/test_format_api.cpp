// Host formats, names, byte swaps, argument errors, the known vectors,
// zeros, and the clamping paths with their warning texts.
#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "format/format_oracle.hpp"
#include "format/format_support.hpp"
#include "vqutil/error.h"
#include "vqutil/format.h"
#include "vqutil/output.h"
#include "vqutil/thread.h"

namespace {

using vqfmt::Capture;
using vqfmt::kBig;
using vqfmt::kLittle;
using vqfmt::run;
using B4 = std::array<unsigned char, 4>;
using B8 = std::array<unsigned char, 8>;

constexpr D_INT4 kHost = std::endian::native == std::endian::little ? kLittle : kBig;

std::uint32_t bitsOf(float f) {
  std::uint32_t u;
  std::memcpy(&u, &f, sizeof u);
  return u;
}

float floatOf(std::uint32_t u) {
  float f;
  std::memcpy(&f, &u, sizeof f);
  return f;
}

std::uint64_t bitsOf(double d) {
  std::uint64_t u;
  std::memcpy(&u, &d, sizeof u);
  return u;
}

double doubleOf(std::uint64_t u) {
  double d;
  std::memcpy(&d, &u, sizeof d);
  return d;
}

// ---- Host formats and names ---------------------------------------------

TEST(FormatNames, HostFormats) {
  EXPECT_EQ(kHost, DutGetIntFormat());
  EXPECT_EQ(D_REAL_IEEE, DutGetRealFormat());
}

TEST(FormatNames, IntFormatTexts) {
  const char *text = nullptr;
  ASSERT_EQ(D_TRUE, DutIntFormatToStr(D_INT_LITTLE_ENDIAN, &text));
  EXPECT_STREQ("LITTLE_ENDIAN", text);
  ASSERT_EQ(D_TRUE, DutIntFormatToStr(D_INT_BIG_ENDIAN, &text));
  EXPECT_STREQ("BIG_ENDIAN", text);
}

TEST(FormatNames, RealFormatTexts) {
  const char *expected[] = {"DEC_D", "DEC_G", "IEEE", "IBM_370"};
  for (D_INT4 format = 0; format < 4; ++format) {
    const char *text = nullptr;
    ASSERT_EQ(D_TRUE, DutRealFormatToStr(format, &text)) << format;
    EXPECT_STREQ(expected[format], text);
  }
}

TEST(FormatNames, UnknownFormatFailsWithoutErrorNumber) {
  const char *sentinel = "untouched";
  for (D_INT4 format : {-1, 2, 100}) {
    const char *text = sentinel;
    DutErrNumSet(42);
    EXPECT_EQ(D_FALSE, DutIntFormatToStr(format, &text)) << format;
    EXPECT_EQ(42, DutErrNumGet());
    EXPECT_EQ(sentinel, text);
  }
  for (D_INT4 format : {-1, 4, 100}) {
    const char *text = sentinel;
    DutErrNumSet(42);
    EXPECT_EQ(D_FALSE, DutRealFormatToStr(format, &text)) << format;
    EXPECT_EQ(42, DutErrNumGet());
    EXPECT_EQ(sentinel, text);
  }
}

TEST(FormatNames, NullDestinationIsErrorThree) {
  DutErrNumSet(0);
  EXPECT_EQ(D_FALSE, DutIntFormatToStr(D_INT_LITTLE_ENDIAN, nullptr));
  EXPECT_EQ(D_ERR_NULL_PTR, DutErrNumGet());
  DutErrNumSet(0);
  EXPECT_EQ(D_FALSE, DutRealFormatToStr(D_REAL_IEEE, nullptr));
  EXPECT_EQ(D_ERR_NULL_PTR, DutErrNumGet());
  // The null check comes before the format is looked at.
  DutErrNumSet(0);
  EXPECT_EQ(D_FALSE, DutRealFormatToStr(99, nullptr));
  EXPECT_EQ(D_ERR_NULL_PTR, DutErrNumGet());
}

// ---- Byte swaps ---------------------------------------------------------------

TEST(FormatSwap, ReversesExactlyItsBytes) {
  struct Case {
    void (*swap)(void *);
    std::size_t size;
  };
  const Case cases[] = {{DutSwapTwoBytes, 2}, {DutSwapFourBytes, 4}, {DutSwapEightBytes, 8},
                        {DutSwapSixteenBytes, 16}};
  for (const Case &c : cases) {
    // Guard bytes on both sides must not move; an odd start address checks
    // that no alignment is assumed.
    unsigned char buffer[1 + 16 + 1 + 16];
    for (std::size_t i = 0; i < sizeof buffer; ++i) buffer[i] = static_cast<unsigned char>(0xA0 + i);
    unsigned char original[sizeof buffer];
    std::memcpy(original, buffer, sizeof buffer);
    unsigned char *value = buffer + 1;
    c.swap(value);
    for (std::size_t i = 0; i < c.size; ++i) EXPECT_EQ(original[1 + c.size - 1 - i], value[i]) << c.size;
    EXPECT_EQ(original[0], buffer[0]);
    EXPECT_EQ(0, std::memcmp(original + 1 + c.size, buffer + 1 + c.size, sizeof buffer - 1 - c.size));
    c.swap(value);
    EXPECT_EQ(0, std::memcmp(original, buffer, sizeof buffer)) << c.size;
  }
}

TEST(FormatSwapDeathTest, NullPointerIsAnAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto fatal = [](void (*swap)(void *)) {
    setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
    DutSetFatalErrorFile(stderr);
    swap(nullptr);
  };
  EXPECT_EXIT(fatal(DutSwapTwoBytes), testing::KilledBySignal(SIGABRT),
              "Assertion <val_in_out != NULL> failed");
  EXPECT_EXIT(fatal(DutSwapFourBytes), testing::KilledBySignal(SIGABRT), "val_in_out != NULL");
  EXPECT_EXIT(fatal(DutSwapEightBytes), testing::KilledBySignal(SIGABRT), "val_in_out != NULL");
  EXPECT_EXIT(fatal(DutSwapSixteenBytes), testing::KilledBySignal(SIGABRT), "val_in_out != NULL");
}

// ---- Argument errors ------------------------------------------------------

enum Side { kIeee, kDec, kIbm };

struct Member {
  const char *name;
  vqfmt::Convert fn;
  std::size_t size;
  Side from;
  Side to;
};

const Member kMembers[] = {
    {"Real4IeeeToDecF", DutSwapReal4IeeeToDecF, 4, kIeee, kDec},
    {"Real4DecFToIeee", DutSwapReal4DecFToIeee, 4, kDec, kIeee},
    {"Real4IeeeToIbm370", DutSwapReal4IeeeToIbm370, 4, kIeee, kIbm},
    {"Real4Ibm370ToIeee", DutSwapReal4Ibm370ToIeee, 4, kIbm, kIeee},
    {"Real4DecFToIbm370", DutSwapReal4DecFToIbm370, 4, kDec, kIbm},
    {"Real4Ibm370ToDecF", DutSwapReal4Ibm370ToDecF, 4, kIbm, kDec},
    {"Real8IeeeToDecD", DutSwapReal8IeeeToDecD, 8, kIeee, kDec},
    {"Real8IeeeToDecG", DutSwapReal8IeeeToDecG, 8, kIeee, kDec},
    {"Real8DecDToIeee", DutSwapReal8DecDToIeee, 8, kDec, kIeee},
    {"Real8DecGToIeee", DutSwapReal8DecGToIeee, 8, kDec, kIeee},
    {"Real8DecDToDecG", DutSwapReal8DecDToDecG, 8, kDec, kDec},
    {"Real8DecGToDecD", DutSwapReal8DecGToDecD, 8, kDec, kDec},
    {"Real8IeeeToIbm370", DutSwapReal8IeeeToIbm370, 8, kIeee, kIbm},
    {"Real8Ibm370ToIeee", DutSwapReal8Ibm370ToIeee, 8, kIbm, kIeee},
    {"Real8DecDToIbm370", DutSwapReal8DecDToIbm370, 8, kDec, kIbm},
    {"Real8DecGToIbm370", DutSwapReal8DecGToIbm370, 8, kDec, kIbm},
    {"Real8Ibm370ToDecD", DutSwapReal8Ibm370ToDecD, 8, kIbm, kDec},
    {"Real8Ibm370ToDecG", DutSwapReal8Ibm370ToDecG, 8, kIbm, kDec},
};

bool allowed(Side side, D_INT4 format) {
  switch (side) {
    case kIeee:
      return format == kLittle || format == kBig;
    case kDec:
      return format == kLittle;
    case kIbm:
      return format == kBig;
  }
  return false;
}

TEST(FormatArguments, EveryMemberChecksBothFormats) {
  Capture quiet;
  for (const Member &m : kMembers) {
    for (D_INT4 in : {-1, 0, 1, 2}) {
      for (D_INT4 out : {-1, 0, 1, 2}) {
        // 0x41 in every byte is an ordinary normal value in every format.
        unsigned char value[8];
        std::memset(value, 0x41, sizeof value);
        DutErrNumSet(0);
        const D_BOOL status = m.fn(value, in, out);
        if (allowed(m.from, in) && allowed(m.to, out)) {
          EXPECT_EQ(D_TRUE, status) << m.name << " " << in << "->" << out;
          EXPECT_EQ(0, DutErrNumGet()) << m.name;
        } else {
          EXPECT_EQ(D_FALSE, status) << m.name << " " << in << "->" << out;
          EXPECT_EQ(D_ERR_VAL_INVALID, DutErrNumGet()) << m.name << " " << in << "->" << out;
          for (unsigned char b : value) ASSERT_EQ(0x41, b) << m.name << " touched the value";
        }
      }
    }
  }
}

TEST(FormatArguments, NullPointerIsErrorThreeBeforeFormats) {
  for (const Member &m : kMembers) {
    for (D_INT4 in : {0, 1, 7}) {
      DutErrNumSet(0);
      EXPECT_EQ(D_FALSE, m.fn(nullptr, in, in)) << m.name;
      EXPECT_EQ(D_ERR_NULL_PTR, DutErrNumGet()) << m.name << " " << in;
    }
  }
}

TEST(FormatArguments, AllZeroBytesStayZeroEverywhere) {
  Capture capture;
  for (const Member &m : kMembers) {
    const D_INT4 in = m.from == kIbm ? kBig : kLittle;
    const D_INT4 out = m.to == kIbm ? kBig : kLittle;
    unsigned char value[8] = {};
    EXPECT_EQ(D_TRUE, m.fn(value, in, out)) << m.name;
    for (unsigned char b : value) EXPECT_EQ(0, b) << m.name;
  }
  // A zero is no exponent out of range.
  EXPECT_EQ("", capture.take());
}

TEST(FormatArguments, ErrorNumberSurvivesSuccessAndWarnings) {
  Capture capture;
  DutErrNumSet(123);
  B4 ibm = {0x7F, 0x80, 0x00, 0x00};
  EXPECT_EQ(D_TRUE, DutSwapReal4Ibm370ToIeee(ibm.data(), kBig, kHost));
  EXPECT_EQ(123, DutErrNumGet());
  EXPECT_NE("", capture.take());
}

// ---- Known vectors ------------------------------------------------------------

TEST(FormatVectors, OneAsDecF) {
  for (D_INT4 order : {kLittle, kBig}) {
    const B4 ieee = vqoracle::ieeeBytes(1.0f, order != kHost);
    auto dec = run(DutSwapReal4IeeeToDecF, ieee, order, kLittle);
    ASSERT_EQ(D_TRUE, dec.status);
    // Words 0x4080, 0x0000, each stored low byte first.
    EXPECT_EQ((B4{0x80, 0x40, 0x00, 0x00}), dec.bytes) << order;
    auto back = run(DutSwapReal4DecFToIeee, dec.bytes, kLittle, order);
    ASSERT_EQ(D_TRUE, back.status);
    EXPECT_EQ(ieee, back.bytes) << order;
  }
  EXPECT_EQ(0x3F800000u, bitsOf(1.0f));
}

TEST(FormatVectors, OneAsIbmSingle) {
  for (D_INT4 order : {kLittle, kBig}) {
    const B4 ieee = vqoracle::ieeeBytes(1.0f, order != kHost);
    auto ibm = run(DutSwapReal4IeeeToIbm370, ieee, order, kBig);
    ASSERT_EQ(D_TRUE, ibm.status);
    EXPECT_EQ((B4{0x41, 0x10, 0x00, 0x00}), ibm.bytes) << order;
    auto back = run(DutSwapReal4Ibm370ToIeee, ibm.bytes, kBig, order);
    EXPECT_EQ(ieee, back.bytes) << order;
  }
}

TEST(FormatVectors, OneAsEightByteFormats) {
  for (D_INT4 order : {kLittle, kBig}) {
    const B8 ieee = vqoracle::ieeeBytes(1.0, order != kHost);
    EXPECT_EQ((B8{0x80, 0x40, 0, 0, 0, 0, 0, 0}), run(DutSwapReal8IeeeToDecD, ieee, order, kLittle).bytes);
    EXPECT_EQ((B8{0x10, 0x40, 0, 0, 0, 0, 0, 0}), run(DutSwapReal8IeeeToDecG, ieee, order, kLittle).bytes);
    EXPECT_EQ((B8{0x41, 0x10, 0, 0, 0, 0, 0, 0}), run(DutSwapReal8IeeeToIbm370, ieee, order, kBig).bytes);
    EXPECT_EQ(ieee, run(DutSwapReal8DecDToIeee, B8{0x80, 0x40, 0, 0, 0, 0, 0, 0}, kLittle, order).bytes);
    EXPECT_EQ(ieee, run(DutSwapReal8DecGToIeee, B8{0x10, 0x40, 0, 0, 0, 0, 0, 0}, kLittle, order).bytes);
    EXPECT_EQ(ieee, run(DutSwapReal8Ibm370ToIeee, B8{0x41, 0x10, 0, 0, 0, 0, 0, 0}, kBig, order).bytes);
  }
  EXPECT_EQ((B8{0x10, 0x40, 0, 0, 0, 0, 0, 0}),
            run(DutSwapReal8DecDToDecG, B8{0x80, 0x40, 0, 0, 0, 0, 0, 0}, kLittle, kLittle).bytes);
  EXPECT_EQ((B8{0x80, 0x40, 0, 0, 0, 0, 0, 0}),
            run(DutSwapReal8DecGToDecD, B8{0x10, 0x40, 0, 0, 0, 0, 0, 0}, kLittle, kLittle).bytes);
}

TEST(FormatVectors, CompositesMatchTheirTwoSteps) {
  // -3.75 carries sign, exponent and fraction bits in every format.
  const B4 decf = vqoracle::decFFromValue(-3.75);
  const B4 ibm4 = vqoracle::ibm4FromValue(-3.75);
  EXPECT_EQ(ibm4, run(DutSwapReal4DecFToIbm370, decf, kLittle, kBig).bytes);
  EXPECT_EQ(decf, run(DutSwapReal4Ibm370ToDecF, ibm4, kBig, kLittle).bytes);
  const B8 decd = vqoracle::decDFromValue(-3.75);
  const B8 decg = vqoracle::decGFromValue(-3.75);
  const B8 ibm8 = vqoracle::ibm8FromValue(-3.75);
  EXPECT_EQ(ibm8, run(DutSwapReal8DecDToIbm370, decd, kLittle, kBig).bytes);
  EXPECT_EQ(ibm8, run(DutSwapReal8DecGToIbm370, decg, kLittle, kBig).bytes);
  EXPECT_EQ(decd, run(DutSwapReal8Ibm370ToDecD, ibm8, kBig, kLittle).bytes);
  EXPECT_EQ(decg, run(DutSwapReal8Ibm370ToDecG, ibm8, kBig, kLittle).bytes);
}

// ---- Zeros --------------------------------------------------------------------

TEST(FormatZeros, NegativeZeroLosesItsSign) {
  for (D_INT4 order : {kLittle, kBig}) {
    const B4 neg4 = vqoracle::ieeeBytes(-0.0f, order != kHost);
    EXPECT_EQ(B4{}, run(DutSwapReal4IeeeToDecF, neg4, order, kLittle).bytes) << order;
    EXPECT_EQ(B4{}, run(DutSwapReal4IeeeToIbm370, neg4, order, kBig).bytes) << order;
    const B8 neg8 = vqoracle::ieeeBytes(-0.0, order != kHost);
    EXPECT_EQ(B8{}, run(DutSwapReal8IeeeToDecD, neg8, order, kLittle).bytes) << order;
    EXPECT_EQ(B8{}, run(DutSwapReal8IeeeToDecG, neg8, order, kLittle).bytes) << order;
    EXPECT_EQ(B8{}, run(DutSwapReal8IeeeToIbm370, neg8, order, kBig).bytes) << order;
  }
}

TEST(FormatZeros, NegativeZeroInTheWrongOrderIsNotZero) {
  // 0x80 in the last byte is -0.0f only when read little-endian; read
  // big-endian it is the smallest denormal with its hidden bit assumed.
  const B4 bytes = {0x00, 0x00, 0x00, 0x80};
  EXPECT_EQ(B4{}, run(DutSwapReal4IeeeToIbm370, bytes, kLittle, kBig).bytes);
  EXPECT_NE(B4{}, run(DutSwapReal4IeeeToIbm370, bytes, kBig, kBig).bytes);
}

// ---- Deliberate behaviour at the edges --------------------------------------

TEST(FormatEdges, DecFCarriesIntoTheSignAtTheTop) {
  // Exponent field 254 (2^127) plus two overflows the DEC F exponent into
  // the sign bit: words 0x8000, 0x0000.
  B4 top = vqoracle::ieeeBytes(std::ldexp(1.0f, 127), false);
  EXPECT_EQ(D_TRUE, DutSwapReal4IeeeToDecF(top.data(), kHost, kLittle));
  EXPECT_EQ((B4{0x00, 0x80, 0x00, 0x00}), top);
  // With the sign already set the carry leaves the word: all zero.
  B4 neg = vqoracle::ieeeBytes(-std::ldexp(1.0f, 127), false);
  EXPECT_EQ(D_TRUE, DutSwapReal4IeeeToDecF(neg.data(), kHost, kLittle));
  EXPECT_EQ(B4{}, neg);
}

TEST(FormatEdges, DecFDenormalsRoundTripBitForBit) {
  for (std::uint32_t bits : {0x00000001u, 0x00400000u, 0x007FFFFFu, 0x80012345u}) {
    const B4 ieee = vqoracle::ieeeBytes(floatOf(bits), false);
    auto dec = run(DutSwapReal4IeeeToDecF, ieee, kHost, kLittle);
    // The denormal's exponent 0 becomes DEC exponent 2: 0.1f x 2^-126.
    EXPECT_EQ(vqoracle::decFFromValue(std::copysign(std::ldexp(1.0 + std::ldexp((bits & 0x7FFFFFu) * 1.0, -23), -127),
                                                    bits >= 0x80000000u ? -1.0 : 1.0)),
              dec.bytes)
        << std::hex << bits;
    EXPECT_EQ(ieee, run(DutSwapReal4DecFToIeee, dec.bytes, kLittle, kHost).bytes) << std::hex << bits;
  }
}

TEST(FormatEdges, IbmSingleDenormalTakesTheHiddenBit) {
  // Fraction 0x400000 with exponent 0 is read as 1.5 x 2^-127.
  const B4 ieee = vqoracle::ieeeBytes(floatOf(0x00400000u), false);
  EXPECT_EQ(vqoracle::ibm4FromValue(std::ldexp(1.5, -127)),
            run(DutSwapReal4IeeeToIbm370, ieee, kHost, kBig).bytes);
}

TEST(FormatEdges, IeeeInfinityAndNanAreOrdinaryBits) {
  Capture capture;
  // Exponent field 255 reads as 2^128: IBM characteristic 97.
  const B4 inf = vqoracle::ieeeBytes(INFINITY, false);
  EXPECT_EQ(vqoracle::ibm4FromValue(std::ldexp(1.0, 128)), run(DutSwapReal4IeeeToIbm370, inf, kHost, kBig).bytes);
  const B4 nan = vqoracle::ieeeBytes(floatOf(0x7FC00000u), false);
  EXPECT_EQ(vqoracle::ibm4FromValue(std::ldexp(1.5, 128)), run(DutSwapReal4IeeeToIbm370, nan, kHost, kBig).bytes);
  // Exponent field 254 reaches characteristic 96, still no warning.
  EXPECT_EQ(vqoracle::ibm4FromValue(FLT_MAX), run(DutSwapReal4IeeeToIbm370, vqoracle::ieeeBytes(FLT_MAX, false), kHost, kBig).bytes);
  EXPECT_EQ(0x60, vqoracle::ibm4FromValue(FLT_MAX)[0]);
  EXPECT_EQ("", capture.take());
}

TEST(FormatEdges, IbmSingleClampsWithWarnings) {
  Capture capture;
  const std::string over = "WARNING: DutSwapReal4Ibm370ToIeee: IBM_370 exponent overflows IEEE exponent\n";
  const std::string under = "WARNING: DutSwapReal4Ibm370ToIeee: IBM_370 exponent underflows IEEE exponent\n";
  for (unsigned char sign : {0x00, 0x80}) {
    for (unsigned char digit : {0x10, 0x20, 0x40, 0x80, 0xF0}) {
      const B4 clamp_hi = {static_cast<unsigned char>(sign | 0x60), digit, 0x12, 0x34};
      const auto expected_hi = run(DutSwapReal4Ibm370ToIeee, clamp_hi, kBig, kHost);
      EXPECT_EQ("", capture.take());
      for (unsigned char e : {0x61, 0x70, 0x7F}) {
        B4 ibm = {static_cast<unsigned char>(sign | e), digit, 0x12, 0x34};
        auto got = run(DutSwapReal4Ibm370ToIeee, ibm, kBig, kHost);
        EXPECT_EQ(D_TRUE, got.status);
        EXPECT_EQ(expected_hi.bytes, got.bytes) << int(e);
        EXPECT_EQ(over, capture.take());
      }
      const B4 clamp_lo = {static_cast<unsigned char>(sign | 0x21), digit, 0x12, 0x34};
      const auto expected_lo = run(DutSwapReal4Ibm370ToIeee, clamp_lo, kBig, kHost);
      EXPECT_EQ("", capture.take());
      for (unsigned char e : {0x00, 0x01, 0x20}) {
        B4 ibm = {static_cast<unsigned char>(sign | e), digit, 0x12, 0x34};
        auto got = run(DutSwapReal4Ibm370ToIeee, ibm, kBig, kHost);
        EXPECT_EQ(D_TRUE, got.status);
        EXPECT_EQ(expected_lo.bytes, got.bytes) << int(e);
        EXPECT_EQ(under, capture.take());
      }
    }
  }
  // Exponent 127 clamps to 96: all digits set give the largest float.
  auto top = run(DutSwapReal4Ibm370ToIeee, B4{0x7F, 0xFF, 0xFF, 0xFF}, kBig, kHost);
  float f;
  std::memcpy(&f, top.bytes.data(), 4);
  EXPECT_EQ(FLT_MAX, f);
  EXPECT_EQ(over, capture.take());
}

TEST(FormatEdges, IbmSingleLowExponentKeepsEightBits) {
  Capture capture;
  // Characteristic 33 with a leading digit of 1: exponent -1 stored as 255.
  auto r = run(DutSwapReal4Ibm370ToIeee, B4{0x21, 0x10, 0x00, 0x00}, kBig, kBig);
  EXPECT_EQ((B4{0x7F, 0x80, 0x00, 0x00}), r.bytes);
  // Characteristic 33 with a leading digit of 4 or more is the smallest
  // normal exactly.
  r = run(DutSwapReal4Ibm370ToIeee, B4{0x21, 0x40, 0x00, 0x00}, kBig, kHost);
  float f;
  std::memcpy(&f, r.bytes.data(), 4);
  EXPECT_EQ(FLT_MIN, f);
  // An unnormalised zero fraction keeps exponent 4E - 129: 0x41000000 is 16.
  r = run(DutSwapReal4Ibm370ToIeee, B4{0x41, 0x00, 0x00, 0x00}, kBig, kHost);
  std::memcpy(&f, r.bytes.data(), 4);
  EXPECT_EQ(16.0f, f);
  EXPECT_EQ("", capture.take());
}

TEST(FormatEdges, IeeeToIbmDoubleClampsWithWarnings) {
  Capture capture;
  const std::string over = "WARNING: DutSwapReal8IeeeToIbm370: IEEE exponent overflows IBM_370 exponent\n";
  const std::string under = "WARNING: DutSwapReal8IeeeToIbm370: IEEE exponent underflows IBM_370 exponent\n";
  // The range ends are exact and silent.
  for (double v : {std::ldexp(1.0, -260), std::ldexp(1.0, 252) * (1 - DBL_EPSILON / 2), -std::ldexp(1.0, -260)}) {
    EXPECT_EQ(vqoracle::ibm8FromValue(v), run(DutSwapReal8IeeeToIbm370, vqoracle::ieeeBytes(v, false), kHost, kBig).bytes);
  }
  EXPECT_EQ("", capture.take());
  // Below: characteristic 0, digits kept.
  for (double v : {std::ldexp(1.0, -261), std::ldexp(-1.75, -300), DBL_MIN, std::ldexp(1.25, -1000)}) {
    auto got = run(DutSwapReal8IeeeToIbm370, vqoracle::ieeeBytes(v, true), kBig, kBig);
    EXPECT_EQ(D_TRUE, got.status);
    EXPECT_EQ(vqoracle::ibm8FromValue(v, 0), got.bytes) << v;
    EXPECT_EQ(under, capture.take());
  }
  // Above: characteristic 127, digits kept; infinity reads as 2^1024.
  for (double v : {std::ldexp(1.0, 252), std::ldexp(-1.5, 400), DBL_MAX}) {
    auto got = run(DutSwapReal8IeeeToIbm370, vqoracle::ieeeBytes(v, false), kHost, kBig);
    EXPECT_EQ(vqoracle::ibm8FromValue(v, 127), got.bytes) << v;
    EXPECT_EQ(over, capture.take());
  }
  auto inf = run(DutSwapReal8IeeeToIbm370, vqoracle::ieeeBytes(-HUGE_VAL, false), kHost, kBig);
  // 2^1024 has the hex digits of 1.0 (1024 is a multiple of four).
  EXPECT_EQ(vqoracle::ibm8FromValue(-1.0, 127), inf.bytes);
  EXPECT_EQ(over, capture.take());
}

TEST(FormatEdges, IeeeToDecDClampsAboveAndWrapsBelow) {
  Capture capture;
  // e = 126 is the largest exact exponent.
  const double largest = std::ldexp(1.0, 127) * (1 - DBL_EPSILON / 2);
  EXPECT_EQ(vqoracle::decDFromValue(largest), run(DutSwapReal8IeeeToDecD, vqoracle::ieeeBytes(largest, false), kHost, kLittle).bytes);
  EXPECT_EQ("", capture.take());
  struct Case {
    double value;
    int e;
  };
  for (const Case &c : {Case{std::ldexp(1.0, 127), 127}, Case{-std::ldexp(1.375, 500), 500},
                        Case{DBL_MAX, 1023}, Case{HUGE_VAL, 1024}}) {
    int e2 = 0;
    const double f = std::frexp(std::isinf(c.value) ? 0.5 : c.value, &e2);
    auto got = run(DutSwapReal8IeeeToDecD, vqoracle::ieeeBytes(c.value, true), kBig, kLittle);
    EXPECT_EQ(D_TRUE, got.status);
    EXPECT_EQ(vqoracle::decDFromValue(f, 255), got.bytes) << c.value;
    EXPECT_EQ("WARNING: DutSwapReal8IeeeToDecD: IEEE exponent " + std::to_string(c.e) +
                  " cannot fit in DEC_D exponent.\n",
              capture.take());
  }
  // 2^-128 is the smallest exact value; 2^-129 lands on DEC exponent 0 and
  // smaller exponents wrap to the top, all without a warning.
  EXPECT_EQ(vqoracle::decDFromValue(std::ldexp(1.0, -128)),
            run(DutSwapReal8IeeeToDecD, vqoracle::ieeeBytes(std::ldexp(1.0, -128), false), kHost, kLittle).bytes);
  EXPECT_EQ(B8{}, run(DutSwapReal8IeeeToDecD, vqoracle::ieeeBytes(std::ldexp(1.0, -129), false), kHost, kLittle).bytes);
  EXPECT_EQ(vqoracle::decDFromValue(1.5, 255),
            run(DutSwapReal8IeeeToDecD, vqoracle::ieeeBytes(std::ldexp(1.5, -130), false), kHost, kLittle).bytes);
  EXPECT_EQ("", capture.take());
}

TEST(FormatEdges, IeeeToDecGClampsAbove) {
  Capture capture;
  for (double v : {DBL_MAX, -std::ldexp(1.0, 1023)}) {
    int e2 = 0;
    const double f = std::frexp(v, &e2);
    EXPECT_EQ(vqoracle::decGFromValue(f, 2047),
              run(DutSwapReal8IeeeToDecG, vqoracle::ieeeBytes(v, false), kHost, kLittle).bytes);
    EXPECT_EQ("WARNING: DutSwapReal8IeeeToDecD: IEEE exponent 1023 cannot fit in DEC_G exponent.\n",
              capture.take());
  }
  run(DutSwapReal8IeeeToDecG, vqoracle::ieeeBytes(std::nan(""), false), kHost, kLittle);
  EXPECT_EQ("WARNING: DutSwapReal8IeeeToDecD: IEEE exponent 1024 cannot fit in DEC_G exponent.\n",
            capture.take());
  // The smallest normal and the largest exact value are silent.
  for (double v : {DBL_MIN, std::ldexp(1.0, 1023) * (1 - DBL_EPSILON / 2)}) {
    EXPECT_EQ(vqoracle::decGFromValue(v), run(DutSwapReal8IeeeToDecG, vqoracle::ieeeBytes(v, false), kHost, kLittle).bytes);
  }
  EXPECT_EQ("", capture.take());
}

TEST(FormatEdges, DecGToDecDClampsOneBelowTheTop) {
  Capture capture;
  // G exponent 1150 (e = 126) is the largest exact one.
  const double exact = std::ldexp(1.0, 126) * (1 - DBL_EPSILON / 2);
  EXPECT_EQ(vqoracle::decDFromValue(exact), run(DutSwapReal8DecGToDecD, vqoracle::decGFromValue(exact), kLittle, kLittle).bytes);
  EXPECT_EQ("", capture.take());
  // e = 127 would fit DEC D exponent 255, yet is clamped to 254.
  for (int e : {127, 128, 1023}) {
    const double v = std::ldexp(-0.75, e);
    auto got = run(DutSwapReal8DecGToDecD, vqoracle::decGFromValue(v), kLittle, kLittle);
    EXPECT_EQ(D_TRUE, got.status);
    EXPECT_EQ(vqoracle::decDFromValue(-0.75, 254), got.bytes) << e;
    EXPECT_EQ("WARNING: DutSwapReal8DecGToDecD: DEC_G exponent " + std::to_string(e) +
                  " cannot fit in DEC_D exponent.\n",
              capture.take());
  }
  // Below 2^-128 the exponent wraps silently.
  EXPECT_EQ(vqoracle::decDFromValue(0.5, 255),
            run(DutSwapReal8DecGToDecD, vqoracle::decGFromValue(std::ldexp(0.5, -129)), kLittle, kLittle).bytes);
  EXPECT_EQ("", capture.take());
}

TEST(FormatEdges, DecExponentWraps) {
  // DEC D exponent 0 with bits set reads as exponent 256 on the IEEE side
  // and as 2^-128 scale on the G side.
  const B8 dirty = vqoracle::decDFromValue(0.75, 0);
  auto ieee = run(DutSwapReal8DecDToIeee, dirty, kLittle, kHost);
  double d;
  std::memcpy(&d, ieee.bytes.data(), 8);
  EXPECT_EQ(std::ldexp(0.75, 128), d);
  EXPECT_EQ(vqoracle::decGFromValue(std::ldexp(0.75, -128)), run(DutSwapReal8DecDToDecG, dirty, kLittle, kLittle).bytes);
  // DEC G exponent 2 gives the IEEE pattern of exponent field 0.
  ieee = run(DutSwapReal8DecGToIeee, vqoracle::decGFromValue(0.75, 2), kLittle, kHost);
  std::memcpy(&d, ieee.bytes.data(), 8);
  EXPECT_EQ(bitsOf(doubleOf(std::uint64_t{1} << 51)), bitsOf(d));
  // DEC F exponent 2 likewise gives an IEEE denormal pattern.
  auto f = run(DutSwapReal4DecFToIeee, vqoracle::decFFromValue(0.75, 2), kLittle, kHost);
  EXPECT_EQ(vqoracle::ieeeBytes(floatOf(0x00400000u), false), f.bytes);
}

TEST(FormatEdges, IbmDoubleUnnormalisedFraction) {
  // Leading hex digit 0: the fraction stays, exponent 4E + 767.
  const B8 ibm = {0x40, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD};
  auto r = run(DutSwapReal8Ibm370ToIeee, ibm, kBig, kBig);
  EXPECT_EQ((B8{0x3F, 0xF1, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD}), r.bytes);
}

TEST(FormatEdges, IbmToDecDPassesTheDecWarningThrough) {
  Capture capture;
  const double v = std::ldexp(1.0, 200);
  auto got = run(DutSwapReal8Ibm370ToDecD, vqoracle::ibm8FromValue(v), kBig, kLittle);
  EXPECT_EQ(D_TRUE, got.status);
  EXPECT_EQ(vqoracle::decDFromValue(0.5, 255), got.bytes);
  EXPECT_EQ("WARNING: DutSwapReal8IeeeToDecD: IEEE exponent 200 cannot fit in DEC_D exponent.\n", capture.take());
}

// ---- Fatal paths --------------------------------------------------------------

template <typename Fn>
void fatalCall(Fn fn) {
  setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
  DutSetFatalErrorFile(stderr);
  fn();
}

TEST(FormatDeathTest, DenormalDoubleToDecIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const B8 denormal = vqoracle::ieeeBytes(DBL_MIN / 4, false);
  EXPECT_EXIT(fatalCall([&] {
                B8 v = denormal;
                DutSwapReal8IeeeToDecD(v.data(), kHost, kLittle);
              }),
              testing::KilledBySignal(SIGABRT), "Assertion <D_IN_RANGE\\(ieee_exp, -1022, 1024\\)> failed");
  EXPECT_EXIT(fatalCall([&] {
                B8 v = denormal;
                DutSwapReal8IeeeToDecG(v.data(), kHost, kLittle);
              }),
              testing::KilledBySignal(SIGABRT), "Assertion <D_IN_RANGE\\(ieee_exp, -1022, 1024\\)> failed");
}

TEST(FormatDeathTest, DecGExponentZeroToDecDIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(fatalCall([] {
                B8 v = vqoracle::decGFromValue(0.75, 0);
                DutSwapReal8DecGToDecD(v.data(), kLittle, kLittle);
              }),
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
        auto ibm = run(DutSwapReal8IeeeToIbm370, vqoracle::ieeeBytes(v, false), kHost, kBig);
        auto back = run(DutSwapReal8Ibm370ToIeee, ibm.bytes, kBig, kHost);
        if (back.bytes != vqoracle::ieeeBytes(v, false)) ++failures[t];
        // One overflow warning per round.
        B4 clamp = {0x7F, 0x10, 0x00, static_cast<unsigned char>(i)};
        DutSwapReal4Ibm370ToIeee(clamp.data(), kBig, kHost);
      }
    });
  }
  for (auto &th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(0, failures[t]) << t;
  const std::string text = capture.take();
  // The prefix and the text are separate output calls, so they are counted
  // apart.
  EXPECT_EQ(kThreads * kRounds, vqfmt::countOf(text, "WARNING: "));
  EXPECT_EQ(kThreads * kRounds,
            vqfmt::countOf(text, "DutSwapReal4Ibm370ToIeee: IBM_370 exponent overflows IEEE exponent\n"));
}

}  // namespace
