// One-wildcard patterns: plain names, the instance the wildcard stands for,
// failures, the trace under debug flag 5 and the assertions.
#include "vqutil/pattern.h"

#include <gtest/gtest.h>

#include <string>

#include "support.hpp"
#include "vqutil/error.h"

namespace {

TEST(Pattern, MatchesAndInstances) {
  // instance: what the wildcard stood for; "untouched" when the call must
  // not write it, null when it does not matter.
  const struct { const char *pattern, *name; D_BOOL matches; const char *instance; } cases[] = {
      // Plain names match exactly, case counting, and leave the instance.
      {"abc", "abc", D_TRUE, "untouched"}, {"abc", "ABC", D_FALSE, "untouched"}, {"abc", "abcd", D_FALSE, "untouched"},
      {"a?x?c", "abbc", D_TRUE, "bb"}, {"a?x?c", "ac", D_TRUE, ""}, {"a?x?c", "abd", D_FALSE, nullptr},
      // The wildcard name takes no part in matching; empty prefix and
      // suffix make the instance the whole name.
      {"node.?region name?.cfg", "node.east.cfg", D_TRUE, "east"}, {"?all?", "", D_TRUE, ""},
      {"?all?", "everything", D_TRUE, "everything"}, {"pre?x?", "prefix", D_TRUE, "fix"},
      // The suffix must be exactly the tail: a repeated suffix stays in the instance.
      {"a?x?b", "abbb", D_TRUE, "bb"}, {"x?w?.log", "x.log.log", D_TRUE, ".log"},
      {"abc?x?", "ab", D_FALSE, nullptr}, {"a?x?bcd", "abc", D_FALSE, nullptr}, {"A?x?", "abc", D_FALSE, nullptr},
      // A second wildcard in the suffix can never match a name.
      {"a?x?b?y?c", "aZbQc", D_FALSE, nullptr},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.pattern) + " / " + c.name);
    char instance[64] = "untouched";
    DutErrNumSet(D_ERR_EOF);
    EXPECT_EQ(DutMatchPattern(c.pattern, c.name, instance), c.matches);
    EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);
    if (c.instance != nullptr) {
      EXPECT_STREQ(instance, c.instance);
    }
  }
}

TEST(Pattern, TraceUnderDebugFlag5) {
  strings_test::DebugTap tap;
  if (!tap.available()) GTEST_SKIP() << "debug output is on standard error in this process";
  char instance[16];
  {
    strings_test::DebugFlag flag(D_DEBUG_PATTERN);
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
  VQTEST_EXPECT_ASSERTION(DutMatchPattern("a?x?", "a?b", instance), "!D_IS_A_PATTERN\\(match\\)");
  VQTEST_EXPECT_ASSERTION(DutMatchPattern("", "a", instance), "D_C_STRLEN\\(pattern\\) > 0");
  VQTEST_EXPECT_ASSERTION(DutMatchPattern(nullptr, "a", instance), "pattern != NULL");
  VQTEST_EXPECT_ASSERTION(DutMatchPattern("a?x", "ab", instance), "pattern_ptr");
  VQTEST_EXPECT_ASSERTION(DutMatchPattern("a?x?", "ab", nullptr), "instance_return != NULL");
}

}  // namespace
