// String utilities: case-insensitive comparison, search, extraction and
// replacement (with the 255-character limit), tokens, names and lists, the
// wall-clock text, and the quoted form of the dump functions.
#include "vqutil/strutil.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <regex>
#include <string>
#include <utility>

#include "support.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"

namespace {

using strings_test::OutputCapture;

// A caller-owned new string, freed at the end of its scope.
struct FreeCheck {
  void operator()(char *p) const { DutFreeCheck(p, "owned", "strutil_test", __LINE__); }
};
using Owned = std::unique_ptr<char, FreeCheck>;

TEST(StrCmpi, FoldedDifferenceAndTheCountedForm) {
  // count -99: the uncounted form. The first character is always
  // compared, whatever the count.
  const struct { const char *a, *b; D_INT4 count, expected; } cases[] = {
      {"Hello", "hELLO", -99, 0}, {"a", "B", -99, 'a' - 'b'}, {"abc", "ab", -99, 'c'}, {"ab", "ABC", -99, -'c'},
      {"a", "b", 0, 'a' - 'b'},   {"a", "b", -3, 'a' - 'b'},  {"a", "A", 0, 0},        {"abc", "ABD", 2, 0},
      {"abc", "ABD", 3, 'c' - 'd'}, {"abc", "abc", 10, 0},   {"ab", "abc", 3, -'c'}};
  for (const auto &c : cases) {
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
  const struct { Predicate test; const char *str, *part; D_BOOL expected; } cases[] = {
      {DutStrStartsWith, "prefix.rest", "prefix", D_TRUE}, {DutStrStartsWith, "prefix.rest", "PREFIX", D_FALSE},
      {DutStriStartsWith, "prefix.rest", "PREFIX", D_TRUE}, {DutStrStartsWith, "pre", "prefix", D_FALSE},
      {DutStrStartsWith, "abc", "", D_TRUE},                {DutStrEndsWith, "name.CM", ".CM", D_TRUE},
      {DutStrEndsWith, "name.CM", ".cm", D_FALSE},           {DutStriEndsWith, "name.CM", ".cm", D_TRUE},
      {DutStriEndsWith, "cm", ".cm", D_FALSE},               {DutStrEndsWith, "abc", "", D_TRUE}};
  for (const auto &c : cases) EXPECT_EQ(c.test(c.str, c.part), c.expected) << &c - cases << " " << c.str;
  for (Predicate test : {DutStrStartsWith, DutStriStartsWith, DutStrEndsWith, DutStriEndsWith}) {
    EXPECT_FAILS(test(nullptr, "a"), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(test("a", nullptr), D_FALSE, D_ERR_NULL_PTR);
  }
}

TEST(StrNew, CaseCopiesDupAndStrip) {
  char buf[32];
  EXPECT_EQ(DutStrLwr(buf, "MiXeD 123_Z"), buf);
  EXPECT_STREQ(buf, "mixed 123_z");
  EXPECT_EQ(DutStrUpr(buf, buf), buf);  // in place
  EXPECT_STREQ(buf, "MIXED 123_Z");

  const char *source = "a,b,,c,";
  Owned dup(DutStrDup(source));
  EXPECT_NE(dup.get(), source);
  EXPECT_STREQ(dup.get(), source);
  EXPECT_STREQ(Owned(DutStrStripChar(source, ',')).get(), "abc");
  EXPECT_STREQ(Owned(DutStrStripChar(source, 'z')).get(), source);
  EXPECT_STREQ(Owned(DutStrStripChar(",,,", ',')).get(), "");
  EXPECT_FAILS(DutStrStripChar(nullptr, ','), nullptr, D_ERR_NULL_PTR);
}

TEST(StrSearch, FindSubStringAndGetSubStrBoundaries) {
  const std::tuple<const char *, const char *, D_INT4> found[] = {
      {"", "abc", 3}, {"", "", 0}, {"abcd", "abc", -1}, {"abc", "abc", 0}, {"bc", "abcbc", 1}, {"aab", "aaab", 1}};
  for (const auto &[text, str, at] : found) EXPECT_EQ(DutFindSubString(text, str), at) << text << " in " << str;
  EXPECT_FAILS(DutFindSubString(nullptr, "abc"), -1, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutFindSubString("a", nullptr), -1, D_ERR_NULL_PTR);

  // err 0: not set.
  const struct { const char *str; D_INT4 start, count; D_BOOL ok; const char *out; D_INT4 err; } cases[] = {
      {"hello", 5, 1, D_TRUE, "o", 0},      {"hello", 1, 5, D_TRUE, "hello", 0},
      {"hello", 2, 3, D_TRUE, "ell", 0},    {"hello", 4, 5, D_FALSE, "lo", D_ERR_VAL_TOO_LARGE},
      {"hello", 0, 1, D_FALSE, "", D_ERR_VAL_INVALID}, {"hello", 6, 1, D_FALSE, "", D_ERR_VAL_INVALID},
      {"hello", 2, 0, D_FALSE, "", D_ERR_VAL_INVALID}, {"", 1, 1, D_FALSE, "", D_ERR_VAL_INVALID}};
  for (const auto &c : cases) {
    char out[16] = "garbage";
    EXPECT_FAILS(DutGetSubStr(c.str, out, c.start, c.count), c.ok, c.err);
    EXPECT_STREQ(out, c.out) << c.start << "," << c.count;
  }
}

TEST(StrReplace, OneReplacesTheFirstOccurrenceWithin255Characters) {
  D_BOOL replaced = -1;
  EXPECT_STREQ(DutStrReplaceOne("a.b.c", ".", "::", &replaced), "a::b.c");
  EXPECT_EQ(replaced, D_TRUE);
  EXPECT_STREQ(DutStrReplaceOne("abc", "", "X", &replaced), "abcX");  // "" is found at the end
  const char *input = "nothing here";
  EXPECT_EQ(DutStrReplaceOne(input, "zz", "y", &replaced), input);
  EXPECT_EQ(replaced, D_FALSE);
  const char *first = DutStrReplaceOne("aXb", "X", "YY", &replaced);  // a result fed back in
  EXPECT_STREQ(DutStrReplaceOne(first, "Y", "Z", &replaced), "aZYb");

  const std::string base(248, 'b');
  const std::string fits = base + "<X>";
  EXPECT_EQ(std::string(DutStrReplaceOne(fits.c_str(), "X", "12345", &replaced)), base + "<12345>");  // 255
  OutputCapture out;
  EXPECT_FAILS(DutStrReplaceOne(fits.c_str(), "X", "123456", &replaced), fits.c_str(), D_ERR_VAL_TOO_LARGE);
  EXPECT_EQ(replaced, D_FALSE);
  const std::string warning = out.Take();
  EXPECT_EQ(warning.rfind("WARNING: DutStrReplaceOne: ", 0), 0U) << warning;
  EXPECT_NE(warning.find("255"), std::string::npos);
  EXPECT_FAILS(DutStrReplaceOne(nullptr, "a", "b", &replaced), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutStrReplaceOne("a", "a", "b", nullptr), nullptr, D_ERR_NULL_PTR);
}

TEST(StrReplace, AllRepeatsFromTheBeginningAndRefusesGrowth) {
  const std::string longest(255, 'l'), too_long(256, 'l');
  const std::pair<const char *, const char *> done[][2] = {
      {{"a.b.c.d", "a/b/c/d"}, {".", "/"}}, {{"aaaa", "a"}, {"aa", "a"}},
      {{"aab", "b"}, {"ab", "b"}},  // a new occurrence is replaced in turn
      {{"abc", "abc"}, {"x", "xx"}},  // absent: no growth
      {{"", ""}, {"x", "y"}}, {{longest.c_str(), longest.c_str()}, {"x", "y"}}};
  for (const auto &d : done) EXPECT_STREQ(DutStrReplaceAll(d[0].first, d[1].first, d[1].second), d[0].second);
  const char *kept = DutStrReplaceAll("keep-me", "-", "+");
  ASSERT_STREQ(kept, "keep+me");
  OutputCapture out;
  const struct { const char *str, *old_str, *new_str; D_INT4 err; } refused[] = {
      {"x", "x", "xx", D_ERR_VAL_TOO_LARGE},
      {"cab", "ab", "ab", D_ERR_VAL_INVALID},  // would go on for ever
      {too_long.c_str(), "x", "y", D_ERR_VAL_TOO_LARGE}};
  for (const auto &r : refused) {
    EXPECT_FAILS(DutStrReplaceAll(r.str, r.old_str, r.new_str), r.str, r.err);
    EXPECT_EQ(out.Take().rfind("WARNING: DutStrReplaceAll: ", 0), 0U) << r.old_str;
  }
  EXPECT_STREQ(kept, "keep+me");  // the last result survives a refusal
  EXPECT_FAILS(DutStrReplaceAll("a", nullptr, "b"), nullptr, D_ERR_NULL_PTR);
}

// Each token with the rest after it; one separator is consumed, and the
// rest is null once the text is used up.
TEST(StrTok, SplitsOnWhiteSpace) {
  const std::pair<std::string, std::string> cases[] = {
      {"  a b", "<a>b <b>(null) "}, {" \t  ", ""}, {"tok\t\tnext  ", "<tok>\tnext   <next>  "}};
  for (const auto &[input, tokens] : cases) {
    std::string text = input, seen;
    char *rest = text.data() + 1;
    for (char *t = DutStrTok(text.data(), &rest); t != nullptr; t = DutStrTok(rest, &rest))
      seen += "<" + std::string(t) + ">" + (rest != nullptr ? rest : "(null)") + " ";
    EXPECT_EQ(seen, tokens) << input;
    EXPECT_EQ(rest, nullptr) << input;
  }
  EXPECT_EQ(DutStrTok(nullptr, nullptr), nullptr);
}

TEST(StrNames, IdFileNameReplacesEverythingButLettersAndDigits) {
  char name[] = "a-b.c d9/_Z";
  EXPECT_EQ(DutStrToIdFileName(name), D_TRUE);
  EXPECT_STREQ(name, "a_b_c_d9__Z");
  EXPECT_FAILS(DutStrToIdFileName(nullptr), D_FALSE, D_ERR_NULL_PTR);
}

TEST(StrLists, DupCopiesEveryStringAndEqualiComparesByPosition) {
  const char *list[] = {"one", "Two", ""};
  char **copy = DutStrListDup(list, 3);
  ASSERT_NE(copy, nullptr);
  for (int i = 0; i < 3; ++i) {
    EXPECT_NE(copy[i], list[i]);
    EXPECT_STREQ(copy[i], list[i]);
    DutFreeCheck(copy[i], "copy[i]", "strutil_test", __LINE__);
  }
  DutFreeCheck(copy, "copy", "strutil_test", __LINE__);
  DutFreeCheck(DutStrListDup(list, 0), "none", "strutil_test", __LINE__);
  EXPECT_FAILS(DutStrListDup(nullptr, 1), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutStrListDup(list, -1), nullptr, D_ERR_VAL_TOO_SMALL);

  const char *a[] = {"alpha", "Beta"};
  const char *b[] = {"ALPHA", "beta"};
  const char *swapped[] = {"beta", "alpha"};
  EXPECT_EQ(DutStrListEquali(a, 2, b, 2), D_TRUE);
  EXPECT_TRUE(!DutStrListEquali(a, 2, swapped, 2) && !DutStrListEquali(a, 2, b, 1));
  EXPECT_EQ(DutStrListEquali(a, 0, b, 0), D_TRUE);
  OutputCapture out;
  EXPECT_FAILS(DutStrListEquali(nullptr, 0, b, 0), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutStrListEquali(a, 2, b, -1), D_FALSE, D_ERR_VAL_TOO_SMALL);
}

TEST(StrWallTime, CtimeFormWithoutNewline) {
  EXPECT_TRUE(std::regex_match(DutGetWallTimeStr(), std::regex("[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] "
                                                               "[0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}")));
}

// ---- The quoted form: what the dump functions write and that reading it
// back gives the original text, tabs, quotes, backslashes and newlines included.

// An anonymous file holding text, positioned at its start.
FILE *fileWith(const std::string &text) {
  FILE *file = std::tmpfile();
  std::fputs(text.c_str(), file);
  std::rewind(file);
  return file;
}

// Only newline, quote and backslash are escaped; the tab stays raw. Each
// sample is dumped twice, once for the buffer reader and once for the
// pointer reader, separated by the blanks, newlines and tabs the reader
// skips; the file dump writes what the string dump gives.
TEST(QuotedForm, DumpsEscapeOnlyNewlineQuoteAndBackslashAndReadBack) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "\"\""}, {"a\tb", "\"a\tb\""}, {"say \"hi\"", "\"say \\\"hi\\\"\""}, {"c:\\dir", "\"c:\\\\dir\""},
      {"one\ntwo", "\"one\\ntwo\""}, {"ends with \\", "\"ends with \\\\\""},
      {"\\\\\\", "\"\\\\\\\\\\\\\""},  // the worst case: twice the length plus three
      {"mixed\t\"\\\n end", "\"mixed\t\\\"\\\\\\n end\""}};
  FILE *file = std::tmpfile();
  std::string expected;
  for (int pass = 0; pass < 2; ++pass) {
    for (const auto &[text, form] : cases) {
      std::string out(2 * text.size() + 3, '\0');
      EXPECT_EQ(DutDumpStringToString(out.data(), text.c_str()), out.data());
      EXPECT_STREQ(out.c_str(), form.c_str()) << text;
      EXPECT_EQ(DutDumpString(file, text.c_str()), D_TRUE);
      std::fputs(" \n\t", file);
      expected += form + " \n\t";
    }
  }
  std::rewind(file);
  std::string written(expected.size() + 1, '\0');
  written.resize(std::fread(written.data(), 1, written.size(), file));
  EXPECT_EQ(written, expected);
  std::rewind(file);
  for (const auto &[text, form] : cases) {
    char buffer[128];
    ASSERT_EQ(DutReadString(file, buffer), buffer);
    EXPECT_EQ(std::string(buffer), text);
  }
  for (const auto &[text, form] : cases) {
    char *copy = DutReadStringPtr(file);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::string(copy), text);
    DutFreeCheck(copy, "copy", "quoted_test", __LINE__);
  }
  std::fclose(file);
}

// The pointer reader has no length limit, and its scratch text is emptied
// between calls; an end of file inside a string stops either reader.
TEST(QuotedForm, ReaderAcceptsBackslashTLongTextAndStopsAtTheEnd) {
  const std::string long_text(1000, 'L');
  FILE *in = fileWith("\"a\\tb\\q\\n\"\"" + long_text + "\"\"after\"\"unterminated");
  char buffer[16];
  ASSERT_NE(DutReadString(in, buffer), nullptr);
  EXPECT_STREQ(buffer, "a\tbq\n");
  for (const std::string &text : {long_text, std::string("after")}) {
    char *read = DutReadStringPtr(in);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(std::string(read), text);
    DutFreeCheck(read, "read", "quoted_test", __LINE__);
  }
  const long unterminated = std::ftell(in);
  EXPECT_FAILS(DutReadString(in, buffer), nullptr, D_ERR_EOF);
  EXPECT_STREQ(buffer, "unterminated");
  std::fseek(in, unterminated, SEEK_SET);
  EXPECT_FAILS(DutReadStringPtr(in), nullptr, D_ERR_EOF);
  std::fclose(in);
}

TEST(QuotedFormDeathTest, ReadingWithoutAnOpeningQuoteIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  char buffer[16];
  VQTEST_EXPECT_ASSERTION(DutReadString(fileWith("  word"), buffer), "input_char == '\\\\\"'");
  VQTEST_EXPECT_ASSERTION(DutReadString(nullptr, buffer), "file && str");
  VQTEST_EXPECT_ASSERTION(DutDumpString(stdout, nullptr), "str");
  VQTEST_EXPECT_ASSERTION(DutReadStringPtr(nullptr), "file");
}

TEST(StrUtilDeathTest, AssertionsOnNullStrings) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  char out[4];
  VQTEST_EXPECT_ASSERTION(DutStrDup(nullptr), "str != NULL");
  VQTEST_EXPECT_ASSERTION(DutGetSubStr(nullptr, out, 1, 1), "str != NULL");
  VQTEST_EXPECT_ASSERTION(DutGetSubStr("abc", nullptr, 1, 1), "substr != NULL");
  VQTEST_EXPECT_ASSERTION(DutStrLwr(nullptr, "abc"), "dest");
  VQTEST_EXPECT_ASSERTION(DutStrUpr(out, nullptr), "src");
}

}  // namespace
