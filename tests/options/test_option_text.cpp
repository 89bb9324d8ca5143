// Option values as text: parsing from the lexer, printing, dumps, and the
// real-number format that DutRealToStr follows.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "options_support.hpp"
#include "vqutil/strutil.h"

using opttest::Items;
using opttest::NodeChain;
using opttest::Num;
using opttest::OutputCapture;
using opttest::Parse;
using opttest::ParseEnd;
using Strings = std::vector<std::string>;

namespace {

// Each text is parsed into an option of its type: committed (the option
// then shows the text given), refused with a message and number, or a
// lexical error; neither of the last two changes the value.
TEST(OptionParse, EveryTypeCommitsRefusesOrStopsAtTheLexer) {
  OutputCapture capture;
  D_OPTION *b = DutOptionCreate("p_bool", D_OPT_TYPE_BOOLEAN);
  D_OPTION *e = DutOptionCreate("p_mode", D_OPT_TYPE_ENUM);
  D_OPTION *n = DutOptionCreate("p_num", D_OPT_TYPE_NUMERIC);
  D_OPTION *s = DutOptionCreate("p_str", D_OPT_TYPE_STRING);
  D_OPTION *el = DutOptionCreate("p_enumlist", D_OPT_TYPE_ENUM_LIST);
  D_OPTION *sl = DutOptionCreate("p_strlist", D_OPT_TYPE_STRING_LIST);
  D_OPTION *nl = DutOptionCreate("p_numlist", D_OPT_TYPE_NUMERIC_LIST);
  ASSERT_TRUE(DutOptionLegValAdd(e, "Always"));
  const struct {
    D_OPTION *option;
    const char *text;
    ParseEnd end;
    const char *shown;  // the option's text afterwards
    const char *printed;
  } cases[] = {
      {b, "true", ParseEnd::Committed, "TRUE", ""},
      {b, "TRUE", ParseEnd::Refused, "TRUE", "WARNING: Bad boolean value <TRUE> for option <p_bool>.\n"},
      {b, "1", ParseEnd::LexError, "TRUE", ""},
      {b, "false", ParseEnd::Committed, "FALSE", ""},
      {b, "UnKnown", ParseEnd::Committed, "UNKNOWN", ""},
      {e, "ALWAYS", ParseEnd::Committed, "ALWAYS", ""},
      {e, "sometimes", ParseEnd::Refused, "ALWAYS",
       "<sometimes> is not a legal value for enumerated option p_mode.\nLegal values: always\n"},
      {n, "-2.5", ParseEnd::Committed, "-2.5", ""},
      {n, "+1e3", ParseEnd::Committed, "1000", ""},
      {n, "abc", ParseEnd::LexError, "1000", ""},
      {s, "\"two words\"", ParseEnd::Committed, "\"two words\"", ""},
      {s, "/tmp/some-file.log", ParseEnd::Committed, "\"/tmp/some-file.log\"", ""},
      {s, "\"unterminated", ParseEnd::LexError, "\"/tmp/some-file.log\"", ""},
      {el, "tcp, udp ,Local", ParseEnd::Committed, "tcp, udp, Local", ""},
      // Errors after some items were read: nothing changes, nothing leaks.
      {el, "a, b, , c", ParseEnd::LexError, "tcp, udp, Local", ""},
      {sl, "\"x y\", z", ParseEnd::Committed, "\"x y\", \"z\"", ""},
      {sl, "\"ok\", \"broken", ParseEnd::LexError, "\"x y\", \"z\"", ""},
      {nl, "1, 2", ParseEnd::Refused, "UNKNOWN", "WARNING: DutOptionParseValue: bad type 5 for option p_numlist.\n"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << D_GOPT_NAME(c.option) << " <" << c.text << ">");
    EXPECT_EQ(Parse(c.option, c.text), c.end);
    EXPECT_STREQ(DutOptionValToStr(c.option), c.shown);
    EXPECT_EQ(capture.Take(), c.printed);
  }
  // A refused list is freed; refusals carry their numbers.
  ASSERT_TRUE(DutOptionSetReadOnly(el, 1));
  EXPECT_EQ(Parse(el, "a, b"), ParseEnd::Refused);
  EXPECT_EQ(DutErrNumGet(), D_ERR_READ_ONLY);
  ASSERT_TRUE(DutOptionSetNum(n, 4.0) && DutOptionSetRequired(n, 1));
  EXPECT_EQ(Parse(n, "unknown"), ParseEnd::Refused);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_REQUIRED);
  EXPECT_EQ(Num(n), 4.0);
}

TEST(OptionParse, EnumeratedRefusalsListTheLegalValuesOnly) {
  OutputCapture capture;
  D_OPTION *free_word = DutOptionCreate("p_free", D_OPT_TYPE_ENUM);
  EXPECT_EQ(Parse(free_word, "Whatever"), ParseEnd::Committed);
  D_OPTION *mode = DutOptionCreate("p_mode", D_OPT_TYPE_ENUM);
  ASSERT_TRUE(DutOptionLegValAdd(mode, "Always") && DutOptionLegValAdd(mode, "never"));
  EXPECT_EQ(Parse(mode, "rarely"), ParseEnd::Refused);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  std::string text = capture.Take();
  EXPECT_EQ(text.rfind("<rarely> is not a legal value for enumerated option p_mode.\nLegal values:", 0), 0u);
  EXPECT_NE(text.find(" always"), std::string::npos);
  EXPECT_NE(text.find(" never"), std::string::npos);
  EXPECT_EQ(text.back(), '\n');
  // A verify function's refusal is not reported as an illegal value.
  D_OPTION *checked = DutOptionCreate("p_checked", D_OPT_TYPE_ENUM);
  ASSERT_TRUE(DutOptionSetVerifyFunc(
      checked,
      [](D_OPTION *, void *, void *) -> D_BOOL {
        DutErrNumSet(D_ERR_VAL_INVALID);
        return D_FALSE;
      },
      nullptr));
  EXPECT_EQ(Parse(checked, "word"), ParseEnd::Refused);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_EQ(capture.Take(), "");
}

TEST(OptionText, ValueTextOfListsAndDumps) {
  NodeChain chain({"x", "y"});
  D_OPTION *el = DutOptionCreate("t_enumlist", D_OPT_TYPE_ENUM_LIST);
  ASSERT_TRUE(DutOptionSetEnumList(el, chain.first()));
  EXPECT_STREQ(DutOptionValToStr(el), "x, y");
  D_OPTION *s = DutOptionCreate("d_visible", D_OPT_TYPE_STRING);
  ASSERT_TRUE(DutOptionSetStr(s, ""));
  EXPECT_STREQ(DutOptionValToStr(s), "\"\"");
  EXPECT_FAILS(DutOptionValToStr(nullptr), nullptr, D_ERR_NULL_PTR);
  ASSERT_TRUE(DutOptionSetStr(s, "v"));
  DutOptionCreate("_d_hidden", D_OPT_TYPE_BOOLEAN);
  DutOptionCreate("aaa_first", D_OPT_TYPE_NUMERIC);
  auto dump = [](const char *name, D_BOOL expected) {
    opttest::Captured().clear();
    EXPECT_EQ(DutOptionDump(name, opttest::PrintToCapture), expected) << (name ? name : "all");
    return opttest::Captured();
  };
  EXPECT_EQ(dump("D_VISIBLE", D_TRUE), "d_visible \"v\"\n");
  EXPECT_EQ(dump("_d_hidden", D_TRUE), "_d_hidden UNKNOWN\n");
  EXPECT_EQ(dump("nope", D_FALSE), "No option named <nope>\n");
  // All options but the hidden ones, sorted by name.
  const std::string all = dump(nullptr, D_TRUE);
  EXPECT_EQ(all.find("_d_hidden"), std::string::npos);
  EXPECT_EQ(all.find("aaa_first UNKNOWN\n"), 0u);
  size_t at = 0;
  for (const char *line : {"backup_name UNKNOWN\n", "d_visible \"v\"\n", "editor \"vi\"\n", "real_number_format \""}) {
    size_t next = all.find(line);
    ASSERT_NE(next, std::string::npos) << line;
    EXPECT_GT(next, at) << line;
    at = next;
  }
}

TEST(OptionRealFormat, RealToStrFollowsTheOption) {
  OutputCapture capture;
  EXPECT_STREQ(DutRealToStr(2.5), "2.5");
  ASSERT_NE(DutOptionSet("real_number_format", "%.3f"), nullptr);
  EXPECT_STREQ(DutRealToStr(2.5), "2.500");
  char buffer[64];
  EXPECT_EQ(DutRealToStrCopy(-1.0, buffer), buffer);
  EXPECT_STREQ(buffer, "-1.000");
  ASSERT_TRUE(DutOptionSetStr(DutOptionLookup("real_number_format"), "OvErRiDe:%.1e"));
  EXPECT_STREQ(DutRealToStr(2.5), "2.5e+00");
  EXPECT_FAILS(DutRealToStrCopy(1.0, nullptr), nullptr, D_ERR_NULL_PTR);
}

TEST(OptionRealFormatDeath, MissingFormatOptionIsAnAssertion) {
  OPT_EXPECT_ASSERTION(
      {
        DutOptionDestroy(DutOptionLookup("real_number_format"));
        DutRealToStr(1.0);
      },
      "D_NULL != utRealNumberFormat");
}

}  // namespace
