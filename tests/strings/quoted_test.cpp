// The quoted form: what the dump functions write and that reading it back
// gives the original text, tabs, quotes, backslashes and newlines included.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"
#include "vqutil/strutil.h"

namespace {

using strings_test::readAll;
using strings_test::TempDir;

// Texts whose quoted forms exercise every escape and the raw tab.
const std::vector<std::string> &samples() {
  static const std::vector<std::string> texts = {"",
                                                 "plain",
                                                 "tab\there",
                                                 "quote\"inside",
                                                 "back\\slash",
                                                 "line\nbreak",
                                                 "\\\"",
                                                 "ends with \\",
                                                 "\t\t",
                                                 "\"",
                                                 "mixed\t\"\\\n end"};
  return texts;
}

std::string quoted(const std::string &text) {
  std::string out(2 * text.size() + 3, '\0');
  DutDumpStringToString(out.data(), text.c_str());
  out.resize(std::char_traits<char>::length(out.c_str()));
  return out;
}

FILE *openFile(const TempDir &dir, const char *name, const char *mode) {
  FILE *file = std::fopen(dir.file(name).string().c_str(), mode);
  EXPECT_NE(file, nullptr);
  return file;
}

TEST(QuotedForm, EscapesOnlyNewlineQuoteAndBackslash) {
  EXPECT_EQ(quoted(""), "\"\"");
  EXPECT_EQ(quoted("plain"), "\"plain\"");
  EXPECT_EQ(quoted("a\tb"), "\"a\tb\"");  // the tab stays raw
  EXPECT_EQ(quoted("say \"hi\""), "\"say \\\"hi\\\"\"");
  EXPECT_EQ(quoted("c:\\dir"), "\"c:\\\\dir\"");
  EXPECT_EQ(quoted("one\ntwo"), "\"one\\ntwo\"");
  // Twice the length plus three is the worst case.
  EXPECT_EQ(quoted("\\\\\\").size(), 2 * 3 + 2U);

  char dest[8];
  EXPECT_EQ(DutDumpStringToString(dest, "x"), dest);
}

TEST(QuotedForm, FileDumpMatchesStringDump) {
  TempDir dir;
  FILE *out = openFile(dir, "dump.txt", "w");
  ASSERT_NE(out, nullptr);
  std::string expected;
  for (const auto &text : samples()) {
    EXPECT_EQ(DutDumpString(out, text.c_str()), D_TRUE);
    expected += quoted(text);
  }
  std::fclose(out);
  EXPECT_EQ(readAll(dir.file("dump.txt")), expected);
}

TEST(QuotedForm, ReadBackRoundTripsEverySample) {
  TempDir dir;
  FILE *out = openFile(dir, "round.txt", "w");
  ASSERT_NE(out, nullptr);
  // Twice each: once for the buffer reader, once for the pointer reader,
  // separated by the blanks, newlines and tabs the reader skips.
  for (int pass = 0; pass < 2; ++pass) {
    for (const auto &text : samples()) {
      DutDumpString(out, text.c_str());
      std::fputs(" \n\t", out);
    }
  }
  std::fclose(out);

  FILE *in = openFile(dir, "round.txt", "r");
  ASSERT_NE(in, nullptr);
  for (const auto &text : samples()) {
    char buffer[128];
    ASSERT_EQ(DutReadString(in, buffer), buffer);
    EXPECT_EQ(std::string(buffer), text);
  }
  for (const auto &text : samples()) {
    char *copy = DutReadStringPtr(in);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::string(copy), text);
    DutFreeCheck(copy, "copy", "quoted_test", __LINE__);
  }
  std::fclose(in);
}

TEST(QuotedForm, ReaderAcceptsBackslashTAndLongText) {
  TempDir dir;
  const std::string long_text(1000, 'L');
  FILE *out = openFile(dir, "escapes.txt", "w");
  ASSERT_NE(out, nullptr);
  std::fputs("\"a\\tb\\q\\n\"\"", out);
  std::fputs(long_text.c_str(), out);
  std::fputs("\"\"after\"", out);
  std::fclose(out);

  FILE *in = openFile(dir, "escapes.txt", "r");
  ASSERT_NE(in, nullptr);
  char buffer[16];
  ASSERT_NE(DutReadString(in, buffer), nullptr);
  EXPECT_STREQ(buffer, "a\tbq\n");
  // The pointer reader has no length limit, and its scratch text is
  // emptied between calls.
  char *big = DutReadStringPtr(in);
  ASSERT_NE(big, nullptr);
  EXPECT_EQ(std::string(big), long_text);
  DutFreeCheck(big, "big", "quoted_test", __LINE__);
  char *after = DutReadStringPtr(in);
  ASSERT_NE(after, nullptr);
  EXPECT_STREQ(after, "after");
  DutFreeCheck(after, "after", "quoted_test", __LINE__);
  std::fclose(in);
}

TEST(QuotedForm, EndOfFileInsideAStringStopsTheRead) {
  TempDir dir;
  FILE *out = openFile(dir, "cut.txt", "w");
  ASSERT_NE(out, nullptr);
  std::fputs("\"unterminated", out);
  std::fclose(out);

  FILE *in = openFile(dir, "cut.txt", "r");
  ASSERT_NE(in, nullptr);
  char buffer[32];
  DutErrNumSet(0);
  EXPECT_EQ(DutReadString(in, buffer), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);
  EXPECT_STREQ(buffer, "unterminated");
  std::rewind(in);
  DutErrNumSet(0);
  EXPECT_EQ(DutReadStringPtr(in), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);
  std::fclose(in);
}

TEST(QuotedFormDeathTest, ReadingWithoutAnOpeningQuoteIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_ASSERTION("input_char == '\\\\\"'", {
    FILE *in = std::tmpfile();
    std::fputs("  word", in);
    std::rewind(in);
    char buffer[16];
    DutReadString(in, buffer);
  });
  EXPECT_ASSERTION("file && str", {
    char buffer[16];
    DutReadString(nullptr, buffer);
  });
  EXPECT_ASSERTION("str", DutDumpString(stdout, nullptr));
  EXPECT_ASSERTION("file", DutReadStringPtr(nullptr));
}

}  // namespace
