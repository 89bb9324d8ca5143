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

}  // namespace
