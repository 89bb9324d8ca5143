// String utilities: case-insensitive comparison, search, extraction and
// replacement (with the 255-character limit), tokens, names and lists, and
// the wall-clock text.
#include "vqutil/strutil.h"

#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>

#include "support.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"

namespace {

using strings_test::OutputCapture;

// Frees a caller-owned new string at the end of a scope.
struct Owned {
  char *ptr;
  explicit Owned(char *p) : ptr(p) {}
  ~Owned() {
    if (ptr != nullptr) {
      DutFreeCheck(ptr, "ptr", "strutil_test", __LINE__);
    }
  }
  Owned(const Owned &) = delete;
  Owned &operator=(const Owned &) = delete;
};

TEST(StrCmpi, FoldsCaseAndAnswersTheFoldedDifference) {
  EXPECT_EQ(DutStrCmpi("Hello", "hELLO"), 0);
  EXPECT_EQ(DutStrCmpi("a", "B"), 'a' - 'b');
  EXPECT_EQ(DutStrCmpi("abc", "ab"), 'c');
  EXPECT_EQ(DutStrCmpi("ab", "ABC"), -'c');
}

TEST(StrCmpi, CountedFormAlwaysComparesTheFirstCharacter) {
  EXPECT_LT(DutStrNCmpi("a", "b", 0), 0);
  EXPECT_LT(DutStrNCmpi("a", "b", -3), 0);
  EXPECT_EQ(DutStrNCmpi("a", "A", 0), 0);
  EXPECT_EQ(DutStrNCmpi("abc", "ABD", 2), 0);
  EXPECT_EQ(DutStrNCmpi("abc", "ABD", 3), 'c' - 'd');
  EXPECT_EQ(DutStrNCmpi("abc", "abc", 10), 0);
  EXPECT_EQ(DutStrNCmpi("ab", "abc", 3), -'c');
}

TEST(StrPredicates, WhiteEmptyOrNull) {
  EXPECT_EQ(DutIsWhiteEmptyOrNullStr(nullptr), D_TRUE);
  EXPECT_EQ(DutIsWhiteEmptyOrNullStr(""), D_TRUE);
  EXPECT_EQ(DutIsWhiteEmptyOrNullStr(" \t\n\r\v\f"), D_TRUE);
  EXPECT_EQ(DutIsWhiteEmptyOrNullStr("  x "), D_FALSE);
  EXPECT_EQ(DutIsWhiteEmptyOrNullStr("\xA0"), D_FALSE);
}

TEST(StrPredicates, StartsAndEndsWith) {
  EXPECT_EQ(DutStrStartsWith("prefix.rest", "prefix"), D_TRUE);
  EXPECT_EQ(DutStrStartsWith("prefix.rest", "PREFIX"), D_FALSE);
  EXPECT_EQ(DutStriStartsWith("prefix.rest", "PREFIX"), D_TRUE);
  EXPECT_EQ(DutStrStartsWith("pre", "prefix"), D_FALSE);
  EXPECT_EQ(DutStrStartsWith("abc", ""), D_TRUE);

  EXPECT_EQ(DutStrEndsWith("name.CM", ".CM"), D_TRUE);
  EXPECT_EQ(DutStrEndsWith("name.CM", ".cm"), D_FALSE);
  EXPECT_EQ(DutStriEndsWith("name.CM", ".cm"), D_TRUE);
  EXPECT_EQ(DutStriEndsWith("cm", ".cm"), D_FALSE);
  EXPECT_EQ(DutStrEndsWith("abc", ""), D_TRUE);
  EXPECT_EQ(DutStriEndsWith("xABC", "abc"), D_TRUE);

  DutErrNumSet(0);
  EXPECT_EQ(DutStrStartsWith(nullptr, "a"), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutStriEndsWith("a", nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(StrCase, LowerAndUpperCopies) {
  char buf[32];
  EXPECT_EQ(DutStrLwr(buf, "MiXeD 123_Z"), buf);
  EXPECT_STREQ(buf, "mixed 123_z");
  EXPECT_EQ(DutStrUpr(buf, "MiXeD 123_a"), buf);
  EXPECT_STREQ(buf, "MIXED 123_A");
  char in_place[] = "Both Ways";
  DutStrLwr(in_place, in_place);
  EXPECT_STREQ(in_place, "both ways");
  DutStrUpr(in_place, in_place);
  EXPECT_STREQ(in_place, "BOTH WAYS");
}

TEST(StrNew, DupAndStripAreFreshCopies) {
  const char *source = "a,b,,c,";
  Owned dup(DutStrDup(source));
  EXPECT_NE(dup.ptr, source);
  EXPECT_STREQ(dup.ptr, source);

  Owned stripped(DutStrStripChar(source, ','));
  EXPECT_STREQ(stripped.ptr, "abc");
  Owned untouched(DutStrStripChar(source, 'z'));
  EXPECT_STREQ(untouched.ptr, source);
  Owned empty(DutStrStripChar(",,,", ','));
  EXPECT_STREQ(empty.ptr, "");

  DutErrNumSet(0);
  EXPECT_EQ(DutStrStripChar(nullptr, ','), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(StrSearch, FindSubStringPositions) {
  EXPECT_EQ(DutFindSubString("", "abc"), 3);
  EXPECT_EQ(DutFindSubString("", ""), 0);
  EXPECT_EQ(DutFindSubString("abcd", "abc"), -1);
  EXPECT_EQ(DutFindSubString("abc", "abc"), 0);
  EXPECT_EQ(DutFindSubString("bc", "abcbc"), 1);
  EXPECT_EQ(DutFindSubString("c", "abc"), 2);
  EXPECT_EQ(DutFindSubString("aab", "aaab"), 1);
  DutErrNumSet(0);
  EXPECT_EQ(DutFindSubString(nullptr, "abc"), -1);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutFindSubString("a", nullptr), -1);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(StrSearch, GetSubStrBoundaries) {
  char out[16];
  std::strcpy(out, "garbage");
  EXPECT_EQ(DutGetSubStr("hello", out, 4, 5), D_FALSE);
  EXPECT_STREQ(out, "lo");
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_LARGE);

  std::strcpy(out, "garbage");
  EXPECT_EQ(DutGetSubStr("hello", out, 0, 1), D_FALSE);
  EXPECT_STREQ(out, "");
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);

  std::strcpy(out, "garbage");
  EXPECT_EQ(DutGetSubStr("hello", out, 6, 1), D_FALSE);
  EXPECT_STREQ(out, "");

  std::strcpy(out, "garbage");
  EXPECT_EQ(DutGetSubStr("hello", out, 2, 0), D_FALSE);
  EXPECT_STREQ(out, "");

  EXPECT_EQ(DutGetSubStr("hello", out, 5, 1), D_TRUE);
  EXPECT_STREQ(out, "o");
  EXPECT_EQ(DutGetSubStr("hello", out, 1, 5), D_TRUE);
  EXPECT_STREQ(out, "hello");
  EXPECT_EQ(DutGetSubStr("hello", out, 2, 3), D_TRUE);
  EXPECT_STREQ(out, "ell");

  std::strcpy(out, "garbage");
  EXPECT_EQ(DutGetSubStr("", out, 1, 1), D_FALSE);
  EXPECT_STREQ(out, "");
}

TEST(StrReplace, OneReplacesTheFirstOccurrence) {
  D_BOOL replaced = -1;
  EXPECT_STREQ(DutStrReplaceOne("a.b.c", ".", "::", &replaced), "a::b.c");
  EXPECT_EQ(replaced, D_TRUE);
  EXPECT_STREQ(DutStrReplaceOne("abc", "abc", "", &replaced), "");
  EXPECT_EQ(replaced, D_TRUE);
  // The empty text is found at the end, so it appends.
  EXPECT_STREQ(DutStrReplaceOne("abc", "", "X", &replaced), "abcX");
  EXPECT_EQ(replaced, D_TRUE);

  const char *input = "nothing here";
  EXPECT_EQ(DutStrReplaceOne(input, "zz", "y", &replaced), input);
  EXPECT_EQ(replaced, D_FALSE);

  // A previous result can be fed back in.
  const char *first = DutStrReplaceOne("aXb", "X", "YY", &replaced);
  EXPECT_STREQ(DutStrReplaceOne(first, "Y", "Z", &replaced), "aZYb");
}

TEST(StrReplace, OneRefusesResultsBeyond255Characters) {
  D_BOOL replaced = -1;
  const std::string base(248, 'b');
  const std::string fits = base + "<X>";
  EXPECT_EQ(std::string(DutStrReplaceOne(fits.c_str(), "X", "12345", &replaced)),
            base + "<12345>");  // exactly 255
  EXPECT_EQ(replaced, D_TRUE);

  OutputCapture out;
  DutErrNumSet(0);
  const char *result = DutStrReplaceOne(fits.c_str(), "X", "123456", &replaced);
  EXPECT_EQ(result, fits.c_str());
  EXPECT_EQ(replaced, D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_LARGE);
  EXPECT_EQ(fits, base + "<X>");
  EXPECT_EQ(out.text().rfind("WARNING: DutStrReplaceOne: ", 0), 0U) << out.text();
  EXPECT_NE(out.text().find("255"), std::string::npos);

  DutErrNumSet(0);
  EXPECT_EQ(DutStrReplaceOne(nullptr, "a", "b", &replaced), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutStrReplaceOne("a", "a", "b", nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(StrReplace, AllRepeatsFromTheBeginning) {
  EXPECT_STREQ(DutStrReplaceAll("a.b.c.d", ".", "/"), "a/b/c/d");
  EXPECT_STREQ(DutStrReplaceAll("aaaa", "aa", "a"), "a");
  EXPECT_STREQ(DutStrReplaceAll("abc", "x", "xx"), "abc");  // absent: no growth
  EXPECT_STREQ(DutStrReplaceAll("", "x", "y"), "");
  // A replacement that creates a new occurrence is replaced in turn.
  EXPECT_STREQ(DutStrReplaceAll("aab", "ab", "b"), "b");
  const std::string longest(255, 'l');
  EXPECT_EQ(std::string(DutStrReplaceAll(longest.c_str(), "x", "y")), longest);
}

TEST(StrReplace, AllRefusesGrowthAndEndlessPairs) {
  const char *kept = DutStrReplaceAll("keep-me", "-", "+");
  ASSERT_STREQ(kept, "keep+me");

  OutputCapture out;
  const char *input = "x";
  DutErrNumSet(0);
  EXPECT_EQ(DutStrReplaceAll(input, "x", "xx"), input);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_LARGE);
  EXPECT_EQ(out.text().rfind("WARNING: DutStrReplaceAll: ", 0), 0U) << out.text();
  EXPECT_STREQ(kept, "keep+me");  // the last result survives a refusal

  out.text().clear();
  DutErrNumSet(0);
  const char *same_pair = "cab";
  EXPECT_EQ(DutStrReplaceAll(same_pair, "ab", "ab"), same_pair);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_NE(out.text().find("WARNING: "), std::string::npos);

  DutErrNumSet(0);
  const std::string too_long(256, 'l');
  EXPECT_EQ(DutStrReplaceAll(too_long.c_str(), "x", "y"), too_long.c_str());
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_LARGE);

  DutErrNumSet(0);
  EXPECT_EQ(DutStrReplaceAll("a", nullptr, "b"), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(StrTok, SplitsOnWhiteSpace) {
  char text[] = "  a b";
  char *rest = reinterpret_cast<char *>(1);
  char *tok = DutStrTok(text, &rest);
  ASSERT_NE(tok, nullptr);
  EXPECT_STREQ(tok, "a");
  ASSERT_NE(rest, nullptr);
  EXPECT_STREQ(rest, "b");
  tok = DutStrTok(rest, &rest);
  EXPECT_STREQ(tok, "b");
  EXPECT_EQ(rest, nullptr);
  EXPECT_EQ(DutStrTok(rest, &rest), nullptr);
  EXPECT_EQ(rest, nullptr);

  char blanks[] = " \t  ";
  rest = blanks;
  EXPECT_EQ(DutStrTok(blanks, &rest), nullptr);
  EXPECT_EQ(rest, nullptr);

  char tabs[] = "tok\t\tnext  ";
  tok = DutStrTok(tabs, &rest);
  EXPECT_STREQ(tok, "tok");
  EXPECT_STREQ(rest, "\tnext  ");
  tok = DutStrTok(rest, &rest);
  EXPECT_STREQ(tok, "next");
  EXPECT_STREQ(rest, " ");
  EXPECT_EQ(DutStrTok(rest, &rest), nullptr);
  EXPECT_EQ(rest, nullptr);
}

TEST(StrNames, IdFileNameReplacesEverythingButLettersAndDigits) {
  char name[] = "a-b.c d9/_Z";
  EXPECT_EQ(DutStrToIdFileName(name), D_TRUE);
  EXPECT_STREQ(name, "a_b_c_d9__Z");
  DutErrNumSet(0);
  EXPECT_EQ(DutStrToIdFileName(nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_STREQ(DutErrStrGet(), "NULL pointer");
}

TEST(StrLists, DupCopiesEveryString) {
  const char *list[] = {"one", "Two", ""};
  char **copy = DutStrListDup(list, 3);
  ASSERT_NE(copy, nullptr);
  for (int i = 0; i < 3; ++i) {
    EXPECT_NE(copy[i], list[i]);
    EXPECT_STREQ(copy[i], list[i]);
  }
  EXPECT_EQ(DutStrListEquali(list, 3, copy, 3), D_TRUE);
  for (int i = 0; i < 3; ++i) {
    DutFreeCheck(copy[i], "copy[i]", "strutil_test", __LINE__);
  }
  DutFreeCheck(copy, "copy", "strutil_test", __LINE__);

  char **none = DutStrListDup(list, 0);
  ASSERT_NE(none, nullptr);
  DutFreeCheck(none, "none", "strutil_test", __LINE__);

  DutErrNumSet(0);
  EXPECT_EQ(DutStrListDup(nullptr, 1), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(DutStrListDup(list, -1), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_SMALL);
  EXPECT_STREQ(DutErrStrGet(), "value too small");
}

TEST(StrLists, EqualiComparesPositionByPosition) {
  const char *a[] = {"alpha", "Beta"};
  const char *b[] = {"ALPHA", "beta"};
  const char *swapped[] = {"beta", "alpha"};
  EXPECT_EQ(DutStrListEquali(a, 2, b, 2), D_TRUE);
  EXPECT_EQ(DutStrListEquali(a, 2, swapped, 2), D_FALSE);
  EXPECT_EQ(DutStrListEquali(a, 2, b, 1), D_FALSE);
  EXPECT_EQ(DutStrListEquali(a, 0, b, 0), D_TRUE);

  OutputCapture out;
  EXPECT_EQ(DutStrListEquali(nullptr, 0, b, 0), D_FALSE);
  EXPECT_NE(out.text().find("Internal validation <D_NULL != str_list1> failed"), std::string::npos)
      << out.text();
  out.text().clear();
  EXPECT_EQ(DutStrListEquali(a, 2, b, -1), D_FALSE);
  EXPECT_NE(out.text().find("Internal validation <0 <= num_str_list2> failed"), std::string::npos)
      << out.text();
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
  EXPECT_ASSERTION("str != NULL", DutStrDup(nullptr));
  EXPECT_ASSERTION("str != NULL", {
    char out[4];
    DutGetSubStr(nullptr, out, 1, 1);
  });
  EXPECT_ASSERTION("substr != NULL", DutGetSubStr("abc", nullptr, 1, 1));
  EXPECT_ASSERTION("dest", DutStrLwr(nullptr, "abc"));
  EXPECT_ASSERTION("src", {
    char out[4];
    DutStrUpr(out, nullptr);
  });
}

}  // namespace
