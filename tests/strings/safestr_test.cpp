// Safe strings: where the buffer grows, by how much, and what shrinking,
// clearing and resizing keep.
#include "vqutil/safestr.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "support.hpp"
#include "vqutil/error.h"

namespace {

using strings_test::DebugFlag;
using strings_test::DebugTap;
using strings_test::TempDir;

// Sizes of the "dest->str" / "ssp->str" reallocations in a trace excerpt.
std::vector<int> reallocSizes(const std::string &trace, const std::string &label) {
  std::vector<int> sizes;
  // The labels used here hold no regex operators.
  const std::regex line("D_REALLOC: " + label + R"( \(-?\d+\): (\d+) bytes)");
  for (auto it = std::sregex_iterator(trace.begin(), trace.end(), line);
       it != std::sregex_iterator(); ++it) {
    sizes.push_back(std::stoi((*it)[1].str()));
  }
  return sizes;
}

TEST(SafeStringGrowth, NewStringIsEmptyWithDefaultSize) {
  D_SAFE_STRING s = DutSafeStringCreate();
  ASSERT_NE(s.str, nullptr);
  EXPECT_STREQ(s.str, "");
  EXPECT_EQ(D_SAFE_STRING_SIZE(s), 256);
  EXPECT_EQ(D_SAFE_STRING_LENGTH(s), 0);
  DutSafeStringDestroy(s);

  D_SAFE_STRING q = DutSafeStringQCreate(10);
  EXPECT_EQ(q.size, 10);
  EXPECT_EQ(q.length, 0);
  EXPECT_STREQ(D_SAFE_STRING_STR(q), "");
  DutSafeStringDestroy(q);
}

TEST(SafeStringGrowth, The256thCharacterReallocatesTo512) {
  // By string append.
  D_SAFE_STRING s = DutSafeStringCreate();
  DutSafeStringAppend(&s, std::string(255, 'a').c_str());
  EXPECT_EQ(s.size, 256);
  EXPECT_EQ(s.length, 255);
  DutSafeStringAppend(&s, "b");
  EXPECT_EQ(s.size, 512);
  EXPECT_EQ(s.length, 256);
  EXPECT_EQ(std::string(s.str), std::string(255, 'a') + "b");
  DutSafeStringDestroy(s);

  // By character append.
  D_SAFE_STRING c = DutSafeStringCreate();
  for (int i = 0; i < 255; ++i) {
    DutSafeStringAppendChar(&c, static_cast<char>('a' + i % 26));
  }
  EXPECT_EQ(c.size, 256);
  EXPECT_EQ(c.length, 255);
  DutSafeStringAppendChar(&c, 'z');
  EXPECT_EQ(c.size, 512);
  EXPECT_EQ(c.length, 256);
  EXPECT_EQ(c.str[255], 'z');
  EXPECT_EQ(c.str[256], '\0');
  DutSafeStringDestroy(c);
}

TEST(SafeStringGrowth, EmptyAppendChangesNothing) {
  D_SAFE_STRING s = DutSafeStringQCreate(1);
  DutSafeStringAppend(&s, "");
  EXPECT_EQ(s.size, 1);
  EXPECT_EQ(s.length, 0);
  DutSafeStringDestroy(s);
}

TEST(SafeStringGrowth, QuantumFormsGrowByTheirQuantum) {
  D_SAFE_STRING s = DutSafeStringQCreate(16);
  DutSafeStringQAppend(&s, "0123456789abcdef", 10);  // needs 17 bytes
  EXPECT_EQ(s.size, 26);
  EXPECT_EQ(s.length, 16);
  DutSafeStringQAppend(&s, "0123456789", 3);  // needs 27: one step of 3
  EXPECT_EQ(s.size, 29);
  EXPECT_EQ(s.length, 26);
  for (int i = 0; i < 3; ++i) {
    DutSafeStringQAppendChar(&s, 'x', 5);
  }
  // Two characters fit in 29 bytes; the third (needs 30) takes one step of 5.
  EXPECT_EQ(s.size, 34);
  EXPECT_EQ(s.length, 29);
  EXPECT_STREQ(s.str, "0123456789abcdef0123456789xxx");
  DutSafeStringDestroy(s);
}

TEST(SafeStringGrowth, LongAppendReallocatesOneQuantumPerStep) {
  TempDir dir;
  DebugTap tap(dir);
  if (!tap.available()) {
    GTEST_SKIP() << "debug output is on standard error in this process";
  }
  D_SAFE_STRING s = DutSafeStringCreate();
  {
    DebugFlag tracing(D_DEBUG_MEMORY);
    DutSafeStringAppend(&s, std::string(1000, 'q').c_str());
  }
  EXPECT_EQ(reallocSizes(tap.since(), "dest->str"), (std::vector<int>{512, 768, 1024}));
  EXPECT_EQ(s.size, 1024);
  EXPECT_EQ(s.length, 1000);
  DutSafeStringDestroy(s);
}

TEST(SafeStringResize, RoundsUpToMultiplesOf256) {
  D_SAFE_STRING s = DutSafeStringCreate();
  DutSafeStringAppend(&s, "keep me");
  EXPECT_EQ(DutSafeStringResize(&s, 300), D_TRUE);
  EXPECT_EQ(s.size, 512);
  EXPECT_EQ(s.length, 7);
  EXPECT_STREQ(s.str, "keep me");
  // At or below the current size: nothing happens.
  EXPECT_EQ(DutSafeStringResize(&s, 512), D_FALSE);
  EXPECT_EQ(DutSafeStringResize(&s, 100), D_FALSE);
  EXPECT_EQ(s.size, 512);
  EXPECT_EQ(DutSafeStringResize(&s, 513), D_TRUE);
  EXPECT_EQ(s.size, 768);
  EXPECT_EQ(DutSafeStringResize(&s, 1024), D_TRUE);
  EXPECT_EQ(s.size, 1024);
  EXPECT_STREQ(s.str, "keep me");
  DutSafeStringDestroy(s);

  D_SAFE_STRING small = DutSafeStringQCreate(10);
  EXPECT_EQ(DutSafeStringResize(&small, 11), D_TRUE);
  EXPECT_EQ(small.size, 256);
  DutSafeStringDestroy(small);
}

TEST(SafeStringResize, ResizedRoomIsUsedBeforeGrowing) {
  TempDir dir;
  DebugTap tap(dir);
  if (!tap.available()) {
    GTEST_SKIP() << "debug output is on standard error in this process";
  }
  D_SAFE_STRING s = DutSafeStringCreate();
  std::string trace;
  {
    DebugFlag tracing(D_DEBUG_MEMORY);
    DutSafeStringResize(&s, 2000);
    DutSafeStringAppend(&s, std::string(2047, 'r').c_str());
    trace = tap.since();
  }
  EXPECT_EQ(reallocSizes(trace, "ssp->str"), (std::vector<int>{2048}));
  EXPECT_TRUE(reallocSizes(trace, "dest->str").empty());
  EXPECT_EQ(s.size, 2048);
  DutSafeStringDestroy(s);
}

TEST(SafeStringShorten, RemovesFromTheEndWithinTheLength) {
  D_SAFE_STRING s = DutSafeStringCreate();
  DutSafeStringAppend(&s, "abcdef");
  EXPECT_EQ(DutSafeStringShorten(&s, 2), D_TRUE);
  EXPECT_STREQ(s.str, "abcd");
  EXPECT_EQ(s.length, 4);

  DutErrNumSet(0);
  EXPECT_EQ(DutSafeStringShorten(&s, 5), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_STREQ(s.str, "abcd");
  EXPECT_EQ(s.length, 4);

  EXPECT_EQ(DutSafeStringShorten(&s, -1), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_SMALL);
  EXPECT_EQ(s.length, 4);

  EXPECT_EQ(DutSafeStringShorten(&s, 0), D_TRUE);
  EXPECT_STREQ(s.str, "abcd");
  EXPECT_EQ(DutSafeStringShorten(&s, 4), D_TRUE);
  EXPECT_STREQ(s.str, "");
  EXPECT_EQ(s.length, 0);
  EXPECT_EQ(s.size, 256);

  // Appending after a shorten continues at the new end.
  DutSafeStringAppend(&s, "xy");
  EXPECT_STREQ(s.str, "xy");
  DutSafeStringDestroy(s);
}

TEST(SafeStringClear, KeepsTheBufferOrMakesOne) {
  D_SAFE_STRING s = DutSafeStringCreate();
  DutSafeStringAppend(&s, std::string(600, 'c').c_str());
  ASSERT_EQ(s.size, 768);
  DutSafeStringClear(&s);
  EXPECT_STREQ(s.str, "");
  EXPECT_EQ(s.length, 0);
  EXPECT_EQ(s.size, 768);
  DutSafeStringDestroy(s);

  D_SAFE_STRING none = {nullptr, 0, 0};
  DutSafeStringClear(&none);
  ASSERT_NE(none.str, nullptr);
  EXPECT_STREQ(none.str, "");
  EXPECT_EQ(none.size, 256);
  EXPECT_EQ(none.length, 0);
  DutSafeStringDestroy(none);
}

TEST(SafeStringClear, CopyReplacesTheText) {
  D_SAFE_STRING s = DutSafeStringCreate();
  DutSafeStringCopy(&s, "a longer first text");
  DutSafeStringCopy(&s, "short");
  EXPECT_STREQ(s.str, "short");
  EXPECT_EQ(s.length, 5);
  DutSafeStringQCopy(&s, std::string(300, 'k').c_str(), 100);
  EXPECT_EQ(s.length, 300);
  EXPECT_EQ(s.size, 356);  // 256 + one step of 100 covers 301 bytes
  DutSafeStringDestroy(s);

  // Copy into a record without a buffer creates one first.
  D_SAFE_STRING none = {nullptr, 0, 0};
  DutSafeStringCopy(&none, "fresh");
  EXPECT_STREQ(none.str, "fresh");
  EXPECT_EQ(none.size, 256);
  DutSafeStringDestroy(none);
}

TEST(SafeStringErrors, NullRecordsSetNullPointer) {
  DutErrNumSet(0);
  EXPECT_EQ(DutSafeStringResize(nullptr, 1000), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutSafeStringShorten(nullptr, 0), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  D_SAFE_STRING none = {nullptr, 0, 0};
  DutErrNumSet(0);
  EXPECT_EQ(DutSafeStringResize(&none, 1000), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(none.size, 0);
}

TEST(SafeStringDeathTest, AssertionsOnBadAppends) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_ASSERTION("c", {
    D_SAFE_STRING s = DutSafeStringCreate();
    DutSafeStringAppendChar(&s, '\0');
  });
  EXPECT_ASSERTION("src", {
    D_SAFE_STRING s = DutSafeStringCreate();
    DutSafeStringAppend(&s, nullptr);
  });
  EXPECT_ASSERTION("dest", DutSafeStringAppend(nullptr, "x"));
  EXPECT_ASSERTION("dest->str", {
    D_SAFE_STRING none = {nullptr, 0, 0};
    DutSafeStringAppend(&none, "x");
  });
  EXPECT_ASSERTION("safe_str", DutSafeStringClear(nullptr));
}

}  // namespace
