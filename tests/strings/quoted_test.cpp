// The quoted form: what the dump functions write and that reading it back
// gives the original text, tabs, quotes, backslashes and newlines included.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>

#include "support.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"
#include "vqutil/strutil.h"

namespace {

std::string quoted(const std::string &text) {
  std::string out(2 * text.size() + 3, '\0');
  EXPECT_EQ(DutDumpStringToString(out.data(), text.c_str()), out.data());
  out.resize(std::char_traits<char>::length(out.c_str()));
  return out;
}

// An anonymous file holding text, positioned at its start.
FILE *fileWith(const std::string &text) {
  FILE *file = std::tmpfile();
  std::fputs(text.c_str(), file);
  std::rewind(file);
  return file;
}

TEST(QuotedForm, EscapesOnlyNewlineQuoteAndBackslash) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "\"\""},
      {"plain", "\"plain\""},
      {"a\tb", "\"a\tb\""},  // the tab stays raw
      {"say \"hi\"", "\"say \\\"hi\\\"\""},
      {"c:\\dir", "\"c:\\\\dir\""},
      {"one\ntwo", "\"one\\ntwo\""},
      {"\\\\\\", "\"\\\\\\\\\\\\\""},  // the worst case: twice the length plus three
  };
  for (const auto &[text, form] : cases) EXPECT_EQ(quoted(text), form) << text;
}

TEST(QuotedForm, FileDumpMatchesStringDumpAndReadsBack) {
  const std::string samples[] = {"", "plain", "tab\there", "quote\"inside", "back\\slash", "line\nbreak",
                                 "\\\"", "ends with \\", "\t\t", "\"", "mixed\t\"\\\n end"};
  // Twice each: once for the buffer reader, once for the pointer reader,
  // separated by the blanks, newlines and tabs the reader skips.
  FILE *file = std::tmpfile();
  std::string expected;
  for (int pass = 0; pass < 2; ++pass) {
    for (const std::string &text : samples) {
      EXPECT_EQ(DutDumpString(file, text.c_str()), D_TRUE);
      std::fputs(" \n\t", file);
      expected += quoted(text) + " \n\t";
    }
  }
  std::rewind(file);
  std::string written(expected.size() + 1, '\0');
  written.resize(std::fread(written.data(), 1, written.size(), file));
  EXPECT_EQ(written, expected);

  std::rewind(file);
  for (const std::string &text : samples) {
    char buffer[128];
    ASSERT_EQ(DutReadString(file, buffer), buffer);
    EXPECT_EQ(std::string(buffer), text);
  }
  for (const std::string &text : samples) {
    char *copy = DutReadStringPtr(file);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::string(copy), text);
    DutFreeCheck(copy, "copy", "quoted_test", __LINE__);
  }
  std::fclose(file);
}

TEST(QuotedForm, ReaderAcceptsBackslashTAndLongText) {
  const std::string long_text(1000, 'L');
  FILE *in = fileWith("\"a\\tb\\q\\n\"\"" + long_text + "\"\"after\"");
  char buffer[16];
  ASSERT_NE(DutReadString(in, buffer), nullptr);
  EXPECT_STREQ(buffer, "a\tbq\n");
  // The pointer reader has no length limit, and its scratch text is
  // emptied between calls.
  for (const std::string &text : {long_text, std::string("after")}) {
    char *read = DutReadStringPtr(in);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(std::string(read), text);
    DutFreeCheck(read, "read", "quoted_test", __LINE__);
  }
  std::fclose(in);
}

TEST(QuotedForm, EndOfFileInsideAStringStopsTheRead) {
  FILE *in = fileWith("\"unterminated");
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
  char buffer[16];
  EXPECT_ASSERTION("input_char == '\\\\\"'", DutReadString(fileWith("  word"), buffer));
  EXPECT_ASSERTION("file && str", DutReadString(nullptr, buffer));
  EXPECT_ASSERTION("str", DutDumpString(stdout, nullptr));
  EXPECT_ASSERTION("file", DutReadStringPtr(nullptr));
}

}  // namespace
