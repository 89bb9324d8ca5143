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

// Sizes of the reallocations of one label (no regex operators in it) in a
// memory trace.
std::vector<int> reallocSizes(const std::string &trace, const std::string &label) {
  std::vector<int> sizes;
  const std::regex line("D_REALLOC: " + label + R"( \(-?\d+\): (\d+) bytes)");
  for (auto it = std::sregex_iterator(trace.begin(), trace.end(), line); it != std::sregex_iterator(); ++it) {
    sizes.push_back(std::stoi((*it)[1].str()));
  }
  return sizes;
}

TEST(SafeStringGrowth, The256thCharacterReallocatesTo512) {
  for (bool by_char : {false, true}) {
    D_SAFE_STRING s = DutSafeStringCreate();
    EXPECT_STREQ(D_SAFE_STRING_STR(s), "");
    EXPECT_EQ(D_SAFE_STRING_SIZE(s), 256);
    EXPECT_EQ(D_SAFE_STRING_LENGTH(s), 0);
    for (int i = 0; i < 256; ++i) {
      if (by_char) {
        DutSafeStringAppendChar(&s, static_cast<char>('a' + i % 26));
      } else {
        DutSafeStringAppend(&s, i < 255 ? "a" : "b");
      }
      EXPECT_EQ(s.size, i < 255 ? 256 : 512) << by_char << " " << i;
      EXPECT_EQ(s.length, i + 1);
    }
    EXPECT_EQ(s.str[256], '\0');
    DutSafeStringAppend(&s, "");  // nothing to add: nothing changes
    EXPECT_EQ(s.size, 512);
    EXPECT_EQ(s.length, 256);
    DutSafeStringDestroy(s);
  }
}

TEST(SafeStringGrowth, QuantumFormsGrowByTheirQuantum) {
  D_SAFE_STRING s = DutSafeStringQCreate(16);
  EXPECT_EQ(s.size, 16);
  DutSafeStringQAppend(&s, "0123456789abcdef", 10);  // needs 17 bytes
  EXPECT_EQ(s.size, 26);
  DutSafeStringQAppend(&s, "0123456789", 3);  // needs 27: one step of 3
  EXPECT_EQ(s.size, 29);
  EXPECT_EQ(s.length, 26);
  // Two characters fit in 29 bytes; the third (needs 30) takes one step of 5.
  for (int i = 0; i < 3; ++i) DutSafeStringQAppendChar(&s, 'x', 5);
  EXPECT_EQ(s.size, 34);
  EXPECT_EQ(s.length, 29);
  EXPECT_STREQ(s.str, "0123456789abcdef0123456789xxx");
  DutSafeStringDestroy(s);
}

TEST(SafeStringGrowth, ReallocationsGoOneQuantumPerStepAndUseResizedRoom) {
  DebugTap tap;
  if (!tap.available()) GTEST_SKIP() << "debug output is on standard error in this process";
  D_SAFE_STRING s = DutSafeStringCreate();
  D_SAFE_STRING r = DutSafeStringCreate();
  std::string appended, resized;
  {
    DebugFlag tracing(D_DEBUG_MEMORY);
    DutSafeStringAppend(&s, std::string(1000, 'q').c_str());
    appended = tap.since();
    DutSafeStringResize(&r, 2000);
    DutSafeStringAppend(&r, std::string(2047, 'r').c_str());
    resized = tap.since().substr(appended.size());
  }
  EXPECT_EQ(reallocSizes(appended, "dest->str"), (std::vector<int>{512, 768, 1024}));
  EXPECT_EQ(s.size, 1024);
  EXPECT_EQ(s.length, 1000);
  EXPECT_EQ(reallocSizes(resized, "ssp->str"), (std::vector<int>{2048}));
  EXPECT_TRUE(reallocSizes(resized, "dest->str").empty());
  EXPECT_EQ(r.size, 2048);
  DutSafeStringDestroy(s);
  DutSafeStringDestroy(r);
}

TEST(SafeStringResize, RoundsUpToMultiplesOf256) {
  D_SAFE_STRING s = DutSafeStringCreate();
  DutSafeStringAppend(&s, "keep me");
  // At or below the current size nothing happens.
  const int steps[][3] = {{300, D_TRUE, 512}, {512, D_FALSE, 512}, {100, D_FALSE, 512},
                          {513, D_TRUE, 768}, {1024, D_TRUE, 1024}};
  for (const auto &step : steps) {
    DutErrNumSet(0);
    EXPECT_EQ(DutSafeStringResize(&s, step[0]), step[1]) << step[0];
    EXPECT_EQ(s.size, step[2]) << step[0];
    EXPECT_EQ(DutErrNumGet(), 0) << step[0];
  }
  EXPECT_STREQ(s.str, "keep me");
  EXPECT_EQ(s.length, 7);
  DutSafeStringDestroy(s);

  D_SAFE_STRING small = DutSafeStringQCreate(10);
  EXPECT_EQ(DutSafeStringResize(&small, 11), D_TRUE);
  EXPECT_EQ(small.size, 256);
  DutSafeStringDestroy(small);
}

TEST(SafeStringShorten, RemovesFromTheEndWithinTheLength) {
  D_SAFE_STRING s = DutSafeStringCreate();
  DutSafeStringAppend(&s, "abcdef");
  EXPECT_EQ(DutSafeStringShorten(&s, 2), D_TRUE);
  EXPECT_STREQ(s.str, "abcd");
  for (auto [count, err] : {std::pair{5, D_ERR_VAL_INVALID}, std::pair{-1, D_ERR_VAL_TOO_SMALL}}) {
    DutErrNumSet(0);
    EXPECT_EQ(DutSafeStringShorten(&s, count), D_FALSE);
    EXPECT_EQ(DutErrNumGet(), err);
    EXPECT_STREQ(s.str, "abcd");
    EXPECT_EQ(s.length, 4);
  }
  EXPECT_EQ(DutSafeStringShorten(&s, 0), D_TRUE);
  EXPECT_STREQ(s.str, "abcd");
  EXPECT_EQ(DutSafeStringShorten(&s, 4), D_TRUE);
  EXPECT_STREQ(s.str, "");
  EXPECT_EQ(s.length, 0);
  EXPECT_EQ(s.size, 256);
  DutSafeStringAppend(&s, "xy");  // continues at the new end
  EXPECT_STREQ(s.str, "xy");
  DutSafeStringDestroy(s);
}

TEST(SafeStringClear, ClearAndCopyKeepTheBufferOrMakeOne) {
  D_SAFE_STRING s = DutSafeStringCreate();
  DutSafeStringAppend(&s, std::string(600, 'c').c_str());
  ASSERT_EQ(s.size, 768);
  DutSafeStringClear(&s);
  EXPECT_STREQ(s.str, "");
  EXPECT_EQ(s.length, 0);
  EXPECT_EQ(s.size, 768);
  DutSafeStringCopy(&s, "a longer first text");
  DutSafeStringCopy(&s, "short");
  EXPECT_STREQ(s.str, "short");
  EXPECT_EQ(s.length, 5);
  DutSafeStringDestroy(s);

  D_SAFE_STRING q = DutSafeStringCreate();
  DutSafeStringQCopy(&q, std::string(300, 'k').c_str(), 100);
  EXPECT_EQ(q.length, 300);
  EXPECT_EQ(q.size, 356);  // 256 + one step of 100 covers 301 bytes
  DutSafeStringDestroy(q);

  // A record without a buffer gets a fresh one of 256 bytes.
  D_SAFE_STRING none = {nullptr, 0, 0};
  DutSafeStringClear(&none);
  ASSERT_NE(none.str, nullptr);
  EXPECT_EQ(none.size, 256);
  EXPECT_EQ(none.length, 0);
  DutSafeStringDestroy(none);
  D_SAFE_STRING copied = {nullptr, 0, 0};
  DutSafeStringCopy(&copied, "fresh");
  EXPECT_STREQ(copied.str, "fresh");
  EXPECT_EQ(copied.size, 256);
  DutSafeStringDestroy(copied);
}

TEST(SafeStringErrors, NullRecordsSetNullPointer) {
  using strings_test::errAfter;
  D_SAFE_STRING none = {nullptr, 0, 0};
  EXPECT_EQ(errAfter([] { EXPECT_FALSE(DutSafeStringResize(nullptr, 1000)); }), D_ERR_NULL_PTR);
  EXPECT_EQ(errAfter([&] { EXPECT_FALSE(DutSafeStringResize(&none, 1000)); }), D_ERR_NULL_PTR);
  EXPECT_EQ(none.size, 0);
  EXPECT_EQ(errAfter([] { EXPECT_FALSE(DutSafeStringShorten(nullptr, 0)); }), D_ERR_NULL_PTR);
}

TEST(SafeStringDeathTest, AssertionsOnBadAppends) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  D_SAFE_STRING none = {nullptr, 0, 0};
  EXPECT_ASSERTION("c", {
    D_SAFE_STRING s = DutSafeStringCreate();
    DutSafeStringAppendChar(&s, '\0');
  });
  EXPECT_ASSERTION("src", {
    D_SAFE_STRING s = DutSafeStringCreate();
    DutSafeStringAppend(&s, nullptr);
  });
  EXPECT_ASSERTION("dest", DutSafeStringAppend(nullptr, "x"));
  EXPECT_ASSERTION("dest->str", DutSafeStringAppend(&none, "x"));
  EXPECT_ASSERTION("safe_str", DutSafeStringClear(nullptr));
}

}  // namespace
