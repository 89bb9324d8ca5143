// One-wildcard patterns: plain names, the instance the wildcard stands for,
// failures, the trace under debug flag 5 and the assertions.
#include "vqutil/pattern.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support.hpp"
#include "vqutil/error.h"

namespace {

using strings_test::DebugFlag;
using strings_test::DebugTap;
using strings_test::TempDir;

TEST(Pattern, PlainNamesMatchExactlyAndLeaveTheInstance) {
  char instance[32] = "untouched";
  EXPECT_EQ(DutMatchPattern("abc", "abc", instance), D_TRUE);
  EXPECT_STREQ(instance, "untouched");
  EXPECT_EQ(DutMatchPattern("abc", "ABC", instance), D_FALSE);
  EXPECT_EQ(DutMatchPattern("abc", "abcd", instance), D_FALSE);
  EXPECT_EQ(DutMatchPattern("abc", "", instance), D_FALSE);
  EXPECT_STREQ(instance, "untouched");
}

TEST(Pattern, WildcardInstances) {
  char instance[64];
  EXPECT_EQ(DutMatchPattern("a?x?c", "abbc", instance), D_TRUE);
  EXPECT_STREQ(instance, "bb");
  std::strcpy(instance, "garbage");
  EXPECT_EQ(DutMatchPattern("a?x?c", "ac", instance), D_TRUE);
  EXPECT_STREQ(instance, "");
  EXPECT_EQ(DutMatchPattern("a?x?c", "abd", instance), D_FALSE);

  // The wildcard name takes no part in matching.
  EXPECT_EQ(DutMatchPattern("node.??.cfg", "node.east.cfg", instance), D_TRUE);
  EXPECT_STREQ(instance, "east");
  EXPECT_EQ(DutMatchPattern("node.?region name?.cfg", "node.east.cfg", instance), D_TRUE);
  EXPECT_STREQ(instance, "east");

  // Empty prefix and suffix: the instance is the whole name.
  EXPECT_EQ(DutMatchPattern("?all?", "everything", instance), D_TRUE);
  EXPECT_STREQ(instance, "everything");
  EXPECT_EQ(DutMatchPattern("?all?", "", instance), D_TRUE);
  EXPECT_STREQ(instance, "");
  EXPECT_EQ(DutMatchPattern("pre?x?", "prefix", instance), D_TRUE);
  EXPECT_STREQ(instance, "fix");

  // The suffix must be exactly the tail: a repeated suffix stays in the
  // instance.
  EXPECT_EQ(DutMatchPattern("a?x?b", "abbb", instance), D_TRUE);
  EXPECT_STREQ(instance, "bb");
  EXPECT_EQ(DutMatchPattern("x?w?.log", "x.log.log", instance), D_TRUE);
  EXPECT_STREQ(instance, ".log");
}

TEST(Pattern, MismatchesAnswerFalse) {
  char instance[64];
  EXPECT_EQ(DutMatchPattern("ab?x?", "ac", instance), D_FALSE);   // prefix differs
  EXPECT_EQ(DutMatchPattern("abc?x?", "ab", instance), D_FALSE);  // name too short
  EXPECT_EQ(DutMatchPattern("a?x?bcd", "abc", instance), D_FALSE);
  EXPECT_EQ(DutMatchPattern("A?x?", "abc", instance), D_FALSE);  // case counts
  // A second wildcard in the suffix can never match a name.
  EXPECT_EQ(DutMatchPattern("a?x?b?y?c", "aZbQc", instance), D_FALSE);
}

TEST(Pattern, TraceUnderDebugFlag5) {
  TempDir dir;
  DebugTap tap(dir);
  if (!tap.available()) {
    GTEST_SKIP() << "debug output is on standard error in this process";
  }
  char instance[16];
  {
    DebugFlag flag(D_DEBUG_PATTERN);
    ASSERT_EQ(DutMatchPattern("a?x?c", "abbc", instance), D_TRUE);
    ASSERT_EQ(DutMatchPattern("plain", "other", instance), D_FALSE);
    ASSERT_EQ(DutMatchPattern("ab?x?", "ac", instance), D_FALSE);
  }
  EXPECT_EQ(tap.since(),
            "Entering DutMatchPattern(a?x?c, abbc)\n"
            "  while loop: *pattern_ptr = a, *match_ptr = a\n"
            "    pattern_ptr and match_ptr are the same\n"
            "  while loop: *pattern_ptr = ?, *match_ptr = b\n"
            "    found start of wildcard in *pattern_ptr\n"
            "    calling D_STREQ(bbc,c)\n"
            "    calling D_STREQ(bc,c)\n"
            "    calling D_STREQ(c,c)\n"
            "    wildcard:instance_return=<<bb>>\n"
            "Entering DutMatchPattern(plain, other)\n"
            "  no pattern: returning <<0>>\n"
            "Entering DutMatchPattern(ab?x?, ac)\n"
            "  while loop: *pattern_ptr = a, *match_ptr = a\n"
            "    pattern_ptr and match_ptr are the same\n"
            "  while loop: *pattern_ptr = b, *match_ptr = c\n"
            "    characters do not match (returning FALSE)\n");

  // With the flag off nothing is written.
  const DebugTap quiet(dir);
  DutMatchPattern("a?x?c", "abbc", instance);
  if (quiet.available()) {
    EXPECT_EQ(quiet.since(), "");
  }
}

TEST(PatternDeathTest, AssertionsOnBadArguments) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  char instance[16];
  EXPECT_ASSERTION("!D_IS_A_PATTERN\\(match\\)", DutMatchPattern("a?x?", "a?b", instance));
  EXPECT_ASSERTION("D_C_STRLEN\\(pattern\\) > 0", DutMatchPattern("", "a", instance));
  EXPECT_ASSERTION("pattern != NULL", DutMatchPattern(nullptr, "a", instance));
  EXPECT_ASSERTION("pattern_ptr", DutMatchPattern("a?x", "ab", instance));
  EXPECT_ASSERTION("instance_return != NULL", DutMatchPattern("a?x?", "ab", nullptr));
}

}  // namespace
