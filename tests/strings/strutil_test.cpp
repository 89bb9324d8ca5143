// String utilities: case-insensitive comparison, search, extraction and
// replacement (with the 255-character limit), tokens, names and lists, and
// the wall-clock text.
#include "vqutil/strutil.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <regex>
#include <string>

#include "support.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"

namespace {

using strings_test::errAfter;
using strings_test::OutputCapture;

// A caller-owned new string, freed at the end of its scope.
struct FreeCheck {
  void operator()(char *p) const { DutFreeCheck(p, "owned", "strutil_test", __LINE__); }
};
using Owned = std::unique_ptr<char, FreeCheck>;

TEST(StrCmpi, FoldedDifferenceAndTheCountedForm) {
  struct Case {
    const char *a, *b;
    D_INT4 count;  // -99: the uncounted form
    D_INT4 expected;
  };
  const Case cases[] = {
      {"Hello", "hELLO", -99, 0}, {"a", "B", -99, 'a' - 'b'}, {"abc", "ab", -99, 'c'},
      {"ab", "ABC", -99, -'c'},
      // The first character is always compared, whatever the count.
      {"a", "b", 0, 'a' - 'b'}, {"a", "b", -3, 'a' - 'b'}, {"a", "A", 0, 0}, {"abc", "ABD", 2, 0},
      {"abc", "ABD", 3, 'c' - 'd'}, {"abc", "abc", 10, 0}, {"ab", "abc", 3, -'c'},
  };
  for (const Case &c : cases) {
    const D_INT4 got = c.count == -99 ? DutStrCmpi(c.a, c.b) : DutStrNCmpi(c.a, c.b, c.count);
    EXPECT_EQ(got, c.expected) << c.a << " / " << c.b << " / " << c.count;
  }
}

TEST(StrPredicates, WhiteSpaceAndEnds) {
  for (const char *white : {static_cast<const char *>(nullptr), "", " \t\n\r\v\f"})
    EXPECT_EQ(DutIsWhiteEmptyOrNullStr(white), D_TRUE);
  EXPECT_EQ(DutIsWhiteEmptyOrNullStr("  x "), D_FALSE);
  EXPECT_EQ(DutIsWhiteEmptyOrNullStr("\xA0"), D_FALSE);

  using Predicate = D_BOOL (*)(const char *, const char *);
  struct Case {
    Predicate test;
    const char *name, *str, *part;
    D_BOOL expected;
  };
  const Case cases[] = {
      {DutStrStartsWith, "starts", "prefix.rest", "prefix", D_TRUE},
      {DutStrStartsWith, "starts", "prefix.rest", "PREFIX", D_FALSE},
      {DutStriStartsWith, "istarts", "prefix.rest", "PREFIX", D_TRUE},
      {DutStrStartsWith, "starts", "pre", "prefix", D_FALSE},
      {DutStrStartsWith, "starts", "abc", "", D_TRUE},
      {DutStrEndsWith, "ends", "name.CM", ".CM", D_TRUE},
      {DutStrEndsWith, "ends", "name.CM", ".cm", D_FALSE},
      {DutStriEndsWith, "iends", "name.CM", ".cm", D_TRUE},
      {DutStriEndsWith, "iends", "cm", ".cm", D_FALSE},
      {DutStrEndsWith, "ends", "abc", "", D_TRUE},
      {DutStriEndsWith, "iends", "xABC", "abc", D_TRUE},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(c.test(c.str, c.part), c.expected) << c.name << " " << c.str << " " << c.part;
  }
  for (Predicate test : {DutStrStartsWith, DutStriStartsWith, DutStrEndsWith, DutStriEndsWith}) {
    EXPECT_EQ(errAfter([&] { EXPECT_FALSE(test(nullptr, "a")); }), D_ERR_NULL_PTR);
    EXPECT_EQ(errAfter([&] { EXPECT_FALSE(test("a", nullptr)); }), D_ERR_NULL_PTR);
  }
}

TEST(StrNew, CaseCopiesDupAndStrip) {
  char buf[32];
  EXPECT_EQ(DutStrLwr(buf, "MiXeD 123_Z"), buf);
  EXPECT_STREQ(buf, "mixed 123_z");
  EXPECT_EQ(DutStrUpr(buf, "MiXeD 123_a"), buf);
  EXPECT_STREQ(buf, "MIXED 123_A");
  DutStrLwr(buf, buf);  // in place
  EXPECT_STREQ(buf, "mixed 123_a");

  const char *source = "a,b,,c,";
  Owned dup(DutStrDup(source));
  EXPECT_NE(dup.get(), source);
  EXPECT_STREQ(dup.get(), source);
  EXPECT_STREQ(Owned(DutStrStripChar(source, ',')).get(), "abc");
  EXPECT_STREQ(Owned(DutStrStripChar(source, 'z')).get(), source);
  EXPECT_STREQ(Owned(DutStrStripChar(",,,", ',')).get(), "");
  EXPECT_EQ(errAfter([] { EXPECT_EQ(DutStrStripChar(nullptr, ','), nullptr); }), D_ERR_NULL_PTR);
}

TEST(StrSearch, FindSubStringPositions) {
  const std::tuple<const char *, const char *, D_INT4> cases[] = {
      {"", "abc", 3}, {"", "", 0},       {"abcd", "abc", -1}, {"abc", "abc", 0},
      {"bc", "abcbc", 1}, {"c", "abc", 2}, {"aab", "aaab", 1}};
  for (const auto &[text, str, at] : cases) {
    EXPECT_EQ(DutFindSubString(text, str), at) << text << " in " << str;
  }
  EXPECT_EQ(errAfter([] { EXPECT_EQ(DutFindSubString(nullptr, "abc"), -1); }), D_ERR_NULL_PTR);
  EXPECT_EQ(errAfter([] { EXPECT_EQ(DutFindSubString("a", nullptr), -1); }), D_ERR_NULL_PTR);
}

TEST(StrSearch, GetSubStrBoundaries) {
  struct Case {
    const char *str;
    D_INT4 start, count;
    D_BOOL ok;
    const char *out;
    D_INT4 err;  // 0: not set
  };
  const Case cases[] = {
      {"hello", 5, 1, D_TRUE, "o", 0},      {"hello", 1, 5, D_TRUE, "hello", 0},
      {"hello", 2, 3, D_TRUE, "ell", 0},    {"hello", 4, 5, D_FALSE, "lo", D_ERR_VAL_TOO_LARGE},
      {"hello", 0, 1, D_FALSE, "", D_ERR_VAL_INVALID}, {"hello", 6, 1, D_FALSE, "", D_ERR_VAL_INVALID},
      {"hello", 2, 0, D_FALSE, "", D_ERR_VAL_INVALID}, {"", 1, 1, D_FALSE, "", D_ERR_VAL_INVALID},
  };
  for (const Case &c : cases) {
    char out[16] = "garbage";
    DutErrNumSet(0);
    EXPECT_EQ(DutGetSubStr(c.str, out, c.start, c.count), c.ok) << c.start << "," << c.count;
    EXPECT_STREQ(out, c.out) << c.start << "," << c.count;
    EXPECT_EQ(DutErrNumGet(), c.err) << c.start << "," << c.count;
  }
}

TEST(StrReplace, OneReplacesTheFirstOccurrenceWithin255Characters) {
  D_BOOL replaced = -1;
  EXPECT_STREQ(DutStrReplaceOne("a.b.c", ".", "::", &replaced), "a::b.c");
  EXPECT_EQ(replaced, D_TRUE);
  EXPECT_STREQ(DutStrReplaceOne("abc", "abc", "", &replaced), "");
  EXPECT_STREQ(DutStrReplaceOne("abc", "", "X", &replaced), "abcX");  // "" is found at the end
  EXPECT_EQ(replaced, D_TRUE);
  const char *input = "nothing here";
  EXPECT_EQ(DutStrReplaceOne(input, "zz", "y", &replaced), input);
  EXPECT_EQ(replaced, D_FALSE);
  const char *first = DutStrReplaceOne("aXb", "X", "YY", &replaced);  // a result fed back in
  EXPECT_STREQ(DutStrReplaceOne(first, "Y", "Z", &replaced), "aZYb");

  const std::string base(248, 'b');
  const std::string fits = base + "<X>";
  EXPECT_EQ(std::string(DutStrReplaceOne(fits.c_str(), "X", "12345", &replaced)), base + "<12345>");  // 255
  OutputCapture out;
  DutErrNumSet(0);
  EXPECT_EQ(DutStrReplaceOne(fits.c_str(), "X", "123456", &replaced), fits.c_str());
  EXPECT_EQ(replaced, D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_LARGE);
  const std::string warning = out.Take();
  EXPECT_EQ(warning.rfind("WARNING: DutStrReplaceOne: ", 0), 0U) << warning;
  EXPECT_NE(warning.find("255"), std::string::npos);

  EXPECT_EQ(errAfter([&] { EXPECT_EQ(DutStrReplaceOne(nullptr, "a", "b", &replaced), nullptr); }),
            D_ERR_NULL_PTR);
  EXPECT_EQ(errAfter([] { EXPECT_EQ(DutStrReplaceOne("a", "a", "b", nullptr), nullptr); }), D_ERR_NULL_PTR);
}

TEST(StrReplace, AllRepeatsFromTheBeginningAndRefusesGrowth) {
  EXPECT_STREQ(DutStrReplaceAll("a.b.c.d", ".", "/"), "a/b/c/d");
  EXPECT_STREQ(DutStrReplaceAll("aaaa", "aa", "a"), "a");
  EXPECT_STREQ(DutStrReplaceAll("aab", "ab", "b"), "b");  // a new occurrence is replaced in turn
  EXPECT_STREQ(DutStrReplaceAll("abc", "x", "xx"), "abc");  // absent: no growth
  EXPECT_STREQ(DutStrReplaceAll("", "x", "y"), "");
  const std::string longest(255, 'l');
  EXPECT_EQ(std::string(DutStrReplaceAll(longest.c_str(), "x", "y")), longest);

  const char *kept = DutStrReplaceAll("keep-me", "-", "+");
  ASSERT_STREQ(kept, "keep+me");
  OutputCapture out;
  const std::string too_long(256, 'l');
  const struct {
    const char *str, *old_str, *new_str;
    D_INT4 err;
  } refused[] = {{"x", "x", "xx", D_ERR_VAL_TOO_LARGE},
                 {"cab", "ab", "ab", D_ERR_VAL_INVALID},  // would go on for ever
                 {too_long.c_str(), "x", "y", D_ERR_VAL_TOO_LARGE}};
  for (const auto &r : refused) {
    DutErrNumSet(0);
    EXPECT_EQ(DutStrReplaceAll(r.str, r.old_str, r.new_str), r.str) << r.old_str;
    EXPECT_EQ(DutErrNumGet(), r.err) << r.old_str;
    EXPECT_EQ(out.Take().rfind("WARNING: DutStrReplaceAll: ", 0), 0U) << r.old_str;
  }
  EXPECT_STREQ(kept, "keep+me");  // the last result survives a refusal
  EXPECT_EQ(errAfter([] { EXPECT_EQ(DutStrReplaceAll("a", nullptr, "b"), nullptr); }), D_ERR_NULL_PTR);
}

TEST(StrTok, SplitsOnWhiteSpace) {
  char text[] = "  a b";
  char *rest = reinterpret_cast<char *>(1);
  EXPECT_STREQ(DutStrTok(text, &rest), "a");
  ASSERT_NE(rest, nullptr);
  EXPECT_STREQ(rest, "b");
  EXPECT_STREQ(DutStrTok(rest, &rest), "b");
  EXPECT_EQ(rest, nullptr);  // the token ended the text
  EXPECT_EQ(DutStrTok(rest, &rest), nullptr);
  EXPECT_EQ(rest, nullptr);

  char blanks[] = " \t  ";
  rest = blanks;
  EXPECT_EQ(DutStrTok(blanks, &rest), nullptr);
  EXPECT_EQ(rest, nullptr);

  char tabs[] = "tok\t\tnext  ";
  EXPECT_STREQ(DutStrTok(tabs, &rest), "tok");
  EXPECT_STREQ(rest, "\tnext  ");  // one separator consumed
  EXPECT_STREQ(DutStrTok(rest, &rest), "next");
  EXPECT_STREQ(rest, " ");
  EXPECT_EQ(DutStrTok(rest, &rest), nullptr);
  EXPECT_EQ(rest, nullptr);
}

TEST(StrNames, IdFileNameReplacesEverythingButLettersAndDigits) {
  char name[] = "a-b.c d9/_Z";
  EXPECT_EQ(DutStrToIdFileName(name), D_TRUE);
  EXPECT_STREQ(name, "a_b_c_d9__Z");
  EXPECT_EQ(errAfter([] { EXPECT_FALSE(DutStrToIdFileName(nullptr)); }), D_ERR_NULL_PTR);
}

TEST(StrLists, DupCopiesEveryStringAndEqualiComparesByPosition) {
  const char *list[] = {"one", "Two", ""};
  char **copy = DutStrListDup(list, 3);
  ASSERT_NE(copy, nullptr);
  for (int i = 0; i < 3; ++i) {
    EXPECT_NE(copy[i], list[i]);
    EXPECT_STREQ(copy[i], list[i]);
  }
  EXPECT_EQ(DutStrListEquali(list, 3, copy, 3), D_TRUE);
  for (int i = 0; i < 3; ++i) DutFreeCheck(copy[i], "copy[i]", "strutil_test", __LINE__);
  DutFreeCheck(copy, "copy", "strutil_test", __LINE__);
  char **none = DutStrListDup(list, 0);
  ASSERT_NE(none, nullptr);
  DutFreeCheck(none, "none", "strutil_test", __LINE__);
  EXPECT_EQ(errAfter([] { EXPECT_EQ(DutStrListDup(nullptr, 1), nullptr); }), D_ERR_NULL_PTR);
  EXPECT_EQ(errAfter([&] { EXPECT_EQ(DutStrListDup(list, -1), nullptr); }), D_ERR_VAL_TOO_SMALL);

  const char *a[] = {"alpha", "Beta"};
  const char *b[] = {"ALPHA", "beta"};
  const char *swapped[] = {"beta", "alpha"};
  EXPECT_EQ(DutStrListEquali(a, 2, b, 2), D_TRUE);
  EXPECT_EQ(DutStrListEquali(a, 2, swapped, 2), D_FALSE);
  EXPECT_EQ(DutStrListEquali(a, 2, b, 1), D_FALSE);
  EXPECT_EQ(DutStrListEquali(a, 0, b, 0), D_TRUE);
  OutputCapture out;
  EXPECT_EQ(errAfter([&] { EXPECT_FALSE(DutStrListEquali(nullptr, 0, b, 0)); }), D_ERR_NULL_PTR);
  EXPECT_NE(out.Take().find("Internal validation <D_NULL != str_list1> failed"), std::string::npos);
  EXPECT_EQ(errAfter([&] { EXPECT_FALSE(DutStrListEquali(a, 2, b, -1)); }), D_ERR_VAL_TOO_SMALL);
  EXPECT_NE(out.Take().find("Internal validation <0 <= num_str_list2> failed"), std::string::npos);
}

TEST(StrWallTime, CtimeFormWithoutNewline) {
  const char *now = DutGetWallTimeStr();
  ASSERT_NE(now, nullptr);
  EXPECT_TRUE(std::regex_match(now, std::regex(R"([A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] )"
                                               R"([0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4})")))
      << '<' << now << '>';
}

TEST(StrUtilDeathTest, AssertionsOnNullStrings) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  char out[4];
  EXPECT_ASSERTION("str != NULL", DutStrDup(nullptr));
  EXPECT_ASSERTION("str != NULL", DutGetSubStr(nullptr, out, 1, 1));
  EXPECT_ASSERTION("substr != NULL", DutGetSubStr("abc", nullptr, 1, 1));
  EXPECT_ASSERTION("dest", DutStrLwr(nullptr, "abc"));
  EXPECT_ASSERTION("src", DutStrUpr(out, nullptr));
}

}  // namespace
