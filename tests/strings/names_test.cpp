// Names: quarks (numbering from 1, case folding with the first spelling
// kept, the error numbers and the table listing; interning from many
// threads is in tests/tsan) and one-wildcard patterns (plain names, the
// instance the wildcard stands for, failures, the trace under debug flag 5
// and the assertions).
#include "vqutil/pattern.h"
#include "vqutil/quark.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "support/child_process.hpp"
#include "support/output_capture.hpp"
#include "support/random_text.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"

namespace {

std::string &printed = vqtest::Captured();
using vqtest::CapturePrint;

D_QUARK quarkOf(const std::string &text) {
  D_QUARK quark = -1;
  EXPECT_EQ(DutStrToQuark(text.c_str(), &quark), D_TRUE) << text;
  return quark;
}

const char *stringOf(D_QUARK quark) {
  const char *text = nullptr;
  EXPECT_EQ(DutQuarkToStr(quark, &text), D_TRUE) << quark;
  return text == nullptr ? "<null>" : text;
}

// A new process, so no other test has made a quark yet: numbering starts
// at 1 and the listing is known whole. Case folds; the first spelling is
// kept, in the library's own stable copy. Then the error numbers.
TEST(QuarkDeathTest, FreshProcessNumbersFromOneListsFirstSpellingsAndRefuses) {
  vqtest::RunInChild("threadsafe", [] {
    const char *text = nullptr;
    EXPECT_FAILS(DutQuarkToStr(1, &text), D_FALSE, D_ERR_DOESNT_EXIST);
    EXPECT_EQ(DutQuarkTablePrint(CapturePrint), D_TRUE);
    EXPECT_EQ(printed, "Printing quark table.\n  quark tables do not exist.\n");
    char caller[] = "Listed Alpha";
    EXPECT_EQ(quarkOf(caller), 1);
    caller[0] = 'X';
    EXPECT_EQ(quarkOf("LISTED ALPHA"), 1);
    EXPECT_EQ(quarkOf("second"), 2);
    EXPECT_STREQ(stringOf(1), "Listed Alpha");
    printed.clear();
    ASSERT_EQ(DutQuarkTablePrint(CapturePrint), D_TRUE);
    EXPECT_EQ(printed, "Printing quark table.\n  quark 1 = string <Listed Alpha>\n  quark 2 = string <second>\n");
    D_QUARK q = 0;
    vqtest::ExpectRefused(D_ERR_NULL_PTR, {AS_WORD(DutStrToQuark(nullptr, &q)), AS_WORD(DutStrToQuark("x", nullptr)),
                                           AS_WORD(DutQuarkToStr(1, nullptr)), AS_WORD(DutQuarkTablePrint(nullptr))});
    EXPECT_FAILS(DutQuarkToStr(0, &text), D_FALSE, D_ERR_VAL_TOO_SMALL);
    EXPECT_FAILS(DutQuarkToStr(3, &text), D_FALSE, D_ERR_DOESNT_EXIST);
    // Making a new quark leaves the caller's error number alone.
    DutErrNumSet(D_ERR_TIMEOUT_REACHED);
    EXPECT_EQ(quarkOf("third"), 3);
    EXPECT_EQ(DutErrNumGet(), D_ERR_TIMEOUT_REACHED);
  });
}

// A plain name matches only itself, case counting; "prefix?name?suffix"
// matches a name that starts with the prefix and ends with the suffix, the
// wildcard standing for what lies between (the name between the marks
// takes no part). Matching leaves the error number, and the instance of a
// plain name; a second wildcard in the suffix never matches.
TEST(Pattern, RandomPatternsAgainstAReference) {
  std::mt19937 rng(4);
  auto text = [&](unsigned longest) { return vqtest::RandomText(rng, longest, "abB."); };
  for (int round = 0; round < 4000; ++round) {
    const std::string prefix = text(2), suffix = text(2) + (rng() % 8 ? "" : "?y?"), name = text(5);
    const bool plain = rng() % 4 == 0 && !prefix.empty();
    const std::string pattern = plain ? prefix : prefix + "?" + text(2) + "?" + suffix;
    const std::size_t middle = name.size() - std::min(name.size(), prefix.size() + suffix.size());
    const bool matches = plain ? name == prefix
                               : name.size() >= prefix.size() + suffix.size() && name.rfind(prefix, 0) == 0 &&
                                     name.substr(prefix.size() + middle) == suffix;
    SCOPED_TRACE(pattern + " / " + name);
    char instance[64] = "untouched";
    DutErrNumSet(D_ERR_EOF);
    ASSERT_EQ(DutMatchPattern(pattern.c_str(), name.c_str(), instance), matches);
    EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);
    EXPECT_TRUE(!(plain || matches) || instance == (plain ? "untouched" : name.substr(prefix.size(), middle)))
        << instance;
  }
}

TEST(Pattern, TraceUnderDebugFlag5) {
  // The debug file on standard error, captured there.
  unsetenv("VQDEBUGFILENAME");
  DutDebugClose();
  DutDebugOpen("stderr");
  char instance[16];
  unsigned char &flag = DutGetDebugFlags()[D_DEBUG_PATTERN];
  ::testing::internal::CaptureStderr();
  flag = 1;
  EXPECT_EQ(DutMatchPattern("a?x?c", "abbc", instance), D_TRUE);
  EXPECT_EQ(DutMatchPattern("plain", "other", instance), D_FALSE);
  EXPECT_EQ(DutMatchPattern("ab?x?", "ac", instance), D_FALSE);
  flag = 0;
  DutMatchPattern("a?x?c", "abbc", instance);  // with the flag off nothing is written
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
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
