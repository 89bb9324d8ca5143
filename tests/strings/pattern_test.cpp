// One-wildcard patterns: plain names, the instance the wildcard stands for,
// failures, the trace under debug flag 5 and the assertions.
#include "vqutil/pattern.h"

#include <gtest/gtest.h>

#include <string>

#include "support.hpp"
#include "vqutil/error.h"

namespace {

using strings_test::DebugFlag;
using strings_test::DebugTap;

TEST(Pattern, MatchesAndInstances) {
  struct Case {
    const char *pattern, *name;
    D_BOOL matches;
    const char *instance;  // "untouched" when the match must not write it
  };
  const Case cases[] = {
      // Plain names match exactly, case counting, and leave the instance.
      {"abc", "abc", D_TRUE, "untouched"}, {"abc", "ABC", D_FALSE, "untouched"},
      {"abc", "abcd", D_FALSE, "untouched"}, {"abc", "", D_FALSE, "untouched"},
      {"a?x?c", "abbc", D_TRUE, "bb"}, {"a?x?c", "ac", D_TRUE, ""}, {"a?x?c", "abd", D_FALSE, nullptr},
      // The wildcard name takes no part in matching.
      {"node.??.cfg", "node.east.cfg", D_TRUE, "east"},
      {"node.?region name?.cfg", "node.east.cfg", D_TRUE, "east"},
      // Empty prefix and suffix: the instance is the whole name.
      {"?all?", "everything", D_TRUE, "everything"}, {"?all?", "", D_TRUE, ""},
      {"pre?x?", "prefix", D_TRUE, "fix"},
      // The suffix must be exactly the tail: a repeated suffix stays in the
      // instance.
      {"a?x?b", "abbb", D_TRUE, "bb"}, {"x?w?.log", "x.log.log", D_TRUE, ".log"},
      {"ab?x?", "ac", D_FALSE, nullptr},   // prefix differs
      {"abc?x?", "ab", D_FALSE, nullptr},  // name too short
      {"a?x?bcd", "abc", D_FALSE, nullptr}, {"A?x?", "abc", D_FALSE, nullptr},
      // A second wildcard in the suffix can never match a name.
      {"a?x?b?y?c", "aZbQc", D_FALSE, nullptr},
  };
  for (const Case &c : cases) {
    char instance[64] = "untouched";
    DutErrNumSet(D_ERR_EOF);
    EXPECT_EQ(DutMatchPattern(c.pattern, c.name, instance), c.matches) << c.pattern << " / " << c.name;
    EXPECT_EQ(DutErrNumGet(), D_ERR_EOF) << c.pattern << " / " << c.name;
    if (c.instance != nullptr) {
      EXPECT_STREQ(instance, c.instance) << c.pattern << " / " << c.name;
    }
  }
}

TEST(Pattern, TraceUnderDebugFlag5) {
  DebugTap tap;
  if (!tap.available()) GTEST_SKIP() << "debug output is on standard error in this process";
  char instance[16];
  {
    DebugFlag flag(D_DEBUG_PATTERN);
    ASSERT_EQ(DutMatchPattern("a?x?c", "abbc", instance), D_TRUE);
    ASSERT_EQ(DutMatchPattern("plain", "other", instance), D_FALSE);
    ASSERT_EQ(DutMatchPattern("ab?x?", "ac", instance), D_FALSE);
  }
  const std::string trace = tap.since();
  EXPECT_EQ(trace,
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
  DutMatchPattern("a?x?c", "abbc", instance);  // with the flag off nothing is written
  EXPECT_EQ(tap.since(), trace);
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
