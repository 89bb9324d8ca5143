// The text-to-number parsers: the lexer's number grammar, the whole text
// consumed, and their warnings.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "init_support.hpp"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

using inittest::OutputCapture;

namespace {

constexpr char kIntWarning[] = "WARNING: DutStringToInt: Unexpected invalid integer detected";
constexpr char kRealWarning[] = "WARNING: DutStringToSignedReal: Unexpected invalid real number detected";

TEST(StringToInt, ValidIntegersIncludingZeroFractions) {
  OutputCapture capture;
  EXPECT_EQ(DutStringToInt("42"), 42);
  EXPECT_EQ(DutStringToInt("-17"), -17);
  EXPECT_EQ(DutStringToInt("+5"), 5);
  EXPECT_EQ(DutStringToInt("  7  "), 7);
  EXPECT_EQ(DutStringToInt("12.0"), 12);
  EXPECT_EQ(DutStringToInt("1e3"), 1000);
  EXPECT_EQ(DutStringToInt("2147483647"), 2147483647);
  EXPECT_EQ(DutStringToInt("-2147483648"), -2147483647 - 1);
  EXPECT_EQ(capture.Take(), "");
}

TEST(StringToInt, InvalidTextsWarnAndGiveZero) {
  OutputCapture capture;
  for (const char *bad : {"12x", "12.5", "", "abc", "2147483648", "-2147483649", "1 2", "- -1", "\"3\""}) {
    EXPECT_EQ(DutStringToInt(bad), 0) << bad;
    EXPECT_EQ(capture.Take(), kIntWarning) << bad;
    EXPECT_TRUE(DutStringToIntInvalid(bad)) << bad;
    EXPECT_EQ(capture.Take(), "") << bad;
  }
  for (const char *good : {"0", "-0", "12", "1.0", "+3"}) EXPECT_FALSE(DutStringToIntInvalid(good)) << good;
}

TEST(StringToReal, SignedReals) {
  OutputCapture capture;
  EXPECT_EQ(DutStringToSignedReal("-2.5"), -2.5);
  EXPECT_EQ(DutStringToSignedReal(".5"), 0.5);
  EXPECT_EQ(DutStringToSignedReal("1."), 1.0);
  EXPECT_EQ(DutStringToSignedReal("+1e3"), 1000.0);
  EXPECT_EQ(capture.Take(), "");
  for (const char *bad : {"abc", "1.5 2", "", "1.5;", "--1"}) {
    EXPECT_EQ(DutStringToSignedReal(bad), 0.0) << bad;
    EXPECT_EQ(capture.Take(), kRealWarning) << bad;
    EXPECT_TRUE(DutStringToRealInvalid(bad)) << bad;
  }
  EXPECT_FALSE(DutStringToRealInvalid("-0.25"));
  EXPECT_EQ(capture.Take(), "");
}

TEST(StringToReal, UnsignedRealRefusesSignsQuietly) {
  OutputCapture capture;
  EXPECT_EQ(DutStringToUnsignedReal("2.5"), 2.5);
  EXPECT_EQ(DutStringToUnsignedReal("0"), 0.0);
  EXPECT_EQ(DutStringToUnsignedReal("-1"), -1.0);
  EXPECT_EQ(DutStringToUnsignedReal("+1"), -1.0);
  EXPECT_EQ(DutStringToUnsignedReal("x"), -1.0);
  EXPECT_EQ(DutStringToUnsignedReal("3 4"), -1.0);
  EXPECT_EQ(capture.Take(), "");
}

TEST(StringToNumberDeath, NullTextsAreAssertions) {
  INIT_EXPECT_ASSERTION(DutStringToInt(nullptr), "input_str != NULL");
  INIT_EXPECT_ASSERTION(DutStringToIntInvalid(nullptr), "input_str != D_NULL");
  INIT_EXPECT_ASSERTION(DutStringToSignedReal(nullptr), "input_str != NULL");
  INIT_EXPECT_ASSERTION(DutStringToUnsignedReal(nullptr), "input_str != NULL");
  INIT_EXPECT_ASSERTION(DutStringToRealInvalid(nullptr), "input_str != NULL");
}

// Each call has its own lexer and jump target: threads do not interfere,
// including on the error path.
TEST(StringToNumberThreads, ParallelParsing) {
  ASSERT_TRUE(DutInitThreads());
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 300; ++i) {
        std::string text = std::to_string(t * 1000 + i);
        EXPECT_EQ(DutStringToInt(text.c_str()), t * 1000 + i);
        EXPECT_TRUE(DutStringToIntInvalid((text + ".5").c_str()));
        EXPECT_EQ(DutStringToUnsignedReal(("-" + text).c_str()), -1.0);
      }
    });
  }
  for (auto &th : threads) th.join();
}

}  // namespace
