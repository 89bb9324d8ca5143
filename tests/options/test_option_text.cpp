// Option values as text: parsing from the lexer, printing, dumps, and the
// real-number format that DutRealToStr follows.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "options_support.hpp"
#include "vqutil/strutil.h"

using opttest::Items;
using opttest::NodeChain;
using opttest::OutputCapture;
using opttest::Parse;
using opttest::ParseEnd;

namespace {

const char *Stored(D_OPTION *option) { return static_cast<const char *>(D_GOPT_VALUE(option)); }

TEST(OptionParse, BooleanWordsAreExact) {
  OutputCapture capture;
  D_OPTION *b = DutOptionCreate("p_bool", D_OPT_TYPE_BOOLEAN);
  EXPECT_EQ(Parse(b, "true"), ParseEnd::Committed);
  EXPECT_EQ(*static_cast<D_INT4 *>(D_GOPT_VALUE(b)), 1);
  EXPECT_EQ(Parse(b, "false"), ParseEnd::Committed);
  EXPECT_EQ(*static_cast<D_INT4 *>(D_GOPT_VALUE(b)), 0);
  EXPECT_EQ(capture.Take(), "");
  EXPECT_EQ(Parse(b, "TRUE"), ParseEnd::Refused);
  EXPECT_EQ(capture.Take(), "WARNING: Bad boolean value <TRUE> for option <p_bool>.\n");
  EXPECT_EQ(Parse(b, "yes"), ParseEnd::Refused);
  EXPECT_EQ(capture.Take(), "WARNING: Bad boolean value <yes> for option <p_bool>.\n");
  EXPECT_EQ(*static_cast<D_INT4 *>(D_GOPT_VALUE(b)), 0);
  // Not an identifier at all: the lexer's error path.
  EXPECT_EQ(Parse(b, "1"), ParseEnd::LexError);
  EXPECT_EQ(Parse(b, "UnKnown"), ParseEnd::Committed);
  EXPECT_FALSE(D_GOPT_KNOWN(b));
}

TEST(OptionParse, UnknownWordOnRequiredOptionKeepsTheValue) {
  D_OPTION *n = DutOptionCreate("p_required", D_OPT_TYPE_NUMERIC);
  ASSERT_TRUE(DutOptionSetNum(n, 4.0));
  ASSERT_TRUE(DutOptionSetRequired(n, 1));
  EXPECT_EQ(Parse(n, "unknown"), ParseEnd::Refused);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_REQUIRED);
  EXPECT_EQ(*static_cast<D_REAL8 *>(D_GOPT_VALUE(n)), 4.0);
}

TEST(OptionParse, EnumeratedWithAndWithoutLegalValues) {
  OutputCapture capture;
  D_OPTION *free_word = DutOptionCreate("p_free", D_OPT_TYPE_ENUM);
  EXPECT_EQ(Parse(free_word, "Whatever"), ParseEnd::Committed);
  EXPECT_STREQ(Stored(free_word), "Whatever");

  D_OPTION *mode = DutOptionCreate("p_mode", D_OPT_TYPE_ENUM);
  ASSERT_TRUE(DutOptionLegValAdd(mode, "Always"));
  EXPECT_EQ(Parse(mode, "ALWAYS"), ParseEnd::Committed);
  EXPECT_STREQ(Stored(mode), "ALWAYS");
  EXPECT_EQ(capture.Take(), "");
  EXPECT_EQ(Parse(mode, "sometimes"), ParseEnd::Refused);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_EQ(capture.Take(), "<sometimes> is not a legal value for enumerated option p_mode.\nLegal values: always\n");
  EXPECT_STREQ(Stored(mode), "ALWAYS");

  ASSERT_TRUE(DutOptionLegValAdd(mode, "never"));
  EXPECT_EQ(Parse(mode, "rarely"), ParseEnd::Refused);
  std::string text = capture.Take();
  EXPECT_EQ(text.rfind("<rarely> is not a legal value for enumerated option p_mode.\nLegal values:", 0), 0u);
  EXPECT_NE(text.find(" always"), std::string::npos);
  EXPECT_NE(text.find(" never"), std::string::npos);
  EXPECT_EQ(text.back(), '\n');
}

D_BOOL RefuseWithInvalid(D_OPTION *, void *, void *) {
  DutErrNumSet(D_ERR_VAL_INVALID);
  return D_FALSE;
}

TEST(OptionParse, VerifyRefusalIsNotReportedAsAnIllegalValue) {
  OutputCapture capture;
  D_OPTION *e = DutOptionCreate("p_checked", D_OPT_TYPE_ENUM);
  ASSERT_TRUE(DutOptionSetVerifyFunc(e, RefuseWithInvalid, nullptr));
  EXPECT_EQ(Parse(e, "word"), ParseEnd::Refused);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_EQ(capture.Take(), "");
}

TEST(OptionParse, NumbersAndStrings) {
  D_OPTION *n = DutOptionCreate("p_num", D_OPT_TYPE_NUMERIC);
  EXPECT_EQ(Parse(n, "-2.5"), ParseEnd::Committed);
  EXPECT_EQ(*static_cast<D_REAL8 *>(D_GOPT_VALUE(n)), -2.5);
  EXPECT_EQ(Parse(n, "+1e3"), ParseEnd::Committed);
  EXPECT_EQ(*static_cast<D_REAL8 *>(D_GOPT_VALUE(n)), 1000.0);
  EXPECT_EQ(Parse(n, "abc"), ParseEnd::LexError);
  EXPECT_EQ(*static_cast<D_REAL8 *>(D_GOPT_VALUE(n)), 1000.0);

  D_OPTION *s = DutOptionCreate("p_str", D_OPT_TYPE_STRING);
  EXPECT_EQ(Parse(s, "\"two words\""), ParseEnd::Committed);
  EXPECT_STREQ(Stored(s), "two words");
  EXPECT_EQ(Parse(s, "/tmp/some-file.log"), ParseEnd::Committed);
  EXPECT_STREQ(Stored(s), "/tmp/some-file.log");
  EXPECT_EQ(Parse(s, "\"unterminated"), ParseEnd::LexError);
  EXPECT_STREQ(Stored(s), "/tmp/some-file.log");
}

TEST(OptionParse, ListsInOrder) {
  D_OPTION *el = DutOptionCreate("p_enumlist", D_OPT_TYPE_ENUM_LIST);
  const D_OPTION_STR_NODE *first = nullptr;
  EXPECT_EQ(Parse(el, "tcp, udp ,Local"), ParseEnd::Committed);
  ASSERT_TRUE(DutOptionGetEnumList(el, &first));
  EXPECT_EQ(Items(first), (std::vector<std::string>{"tcp", "udp", "Local"}));
  EXPECT_EQ(Parse(el, "single"), ParseEnd::Committed);
  ASSERT_TRUE(DutOptionGetEnumList(el, &first));
  EXPECT_EQ(Items(first), (std::vector<std::string>{"single"}));
  // Errors after some items were read: nothing changes, nothing leaks.
  EXPECT_EQ(Parse(el, "a, b, , c"), ParseEnd::LexError);
  EXPECT_EQ(Parse(el, "a, b,"), ParseEnd::LexError);
  ASSERT_TRUE(DutOptionGetEnumList(el, &first));
  EXPECT_EQ(Items(first), (std::vector<std::string>{"single"}));

  D_OPTION *sl = DutOptionCreate("p_strlist", D_OPT_TYPE_STRING_LIST);
  EXPECT_EQ(Parse(sl, "\"x y\", \"z\""), ParseEnd::Committed);
  ASSERT_TRUE(DutOptionGetStrList(sl, &first));
  EXPECT_EQ(Items(first), (std::vector<std::string>{"x y", "z"}));
  EXPECT_EQ(Parse(sl, "\"ok\", \"broken"), ParseEnd::LexError);
  ASSERT_TRUE(DutOptionGetStrList(sl, &first));
  EXPECT_EQ(Items(first), (std::vector<std::string>{"x y", "z"}));
}

TEST(OptionParse, ListRefusedByReadOnlyIsFreed) {
  D_OPTION *el = DutOptionCreate("p_locked", D_OPT_TYPE_ENUM_LIST);
  ASSERT_TRUE(DutOptionSetReadOnly(el, 1));
  EXPECT_EQ(Parse(el, "a, b"), ParseEnd::Refused);
  EXPECT_EQ(DutErrNumGet(), D_ERR_READ_ONLY);
  EXPECT_FALSE(D_GOPT_KNOWN(el));
}

TEST(OptionParse, NumericListCannotBeParsed) {
  OutputCapture capture;
  D_OPTION *nl = DutOptionCreate("p_numlist", D_OPT_TYPE_NUMERIC_LIST);
  EXPECT_EQ(Parse(nl, "1, 2"), ParseEnd::Refused);
  EXPECT_EQ(capture.Take(), "WARNING: DutOptionParseValue: bad type 5 for option p_numlist.\n");
}

TEST(OptionText, ValueTextPerType) {
  D_OPTION *b = DutOptionCreate("x_bool", D_OPT_TYPE_BOOLEAN);
  EXPECT_STREQ(DutOptionValToStr(b), "UNKNOWN");
  ASSERT_TRUE(DutOptionSetBool(b, 1));
  EXPECT_STREQ(DutOptionValToStr(b), "TRUE");
  ASSERT_TRUE(DutOptionSetBool(b, 0));
  EXPECT_STREQ(DutOptionValToStr(b), "FALSE");

  D_OPTION *e = DutOptionCreate("t_enum", D_OPT_TYPE_ENUM);
  ASSERT_TRUE(DutOptionSetEnum(e, "Mixed"));
  EXPECT_STREQ(DutOptionValToStr(e), "Mixed");

  D_OPTION *n = DutOptionCreate("t_num", D_OPT_TYPE_NUMERIC);
  ASSERT_TRUE(DutOptionSetNum(n, 2.5));
  EXPECT_STREQ(DutOptionValToStr(n), "2.5");

  D_OPTION *s = DutOptionCreate("t_str", D_OPT_TYPE_STRING);
  ASSERT_TRUE(DutOptionSetStr(s, "a b"));
  EXPECT_STREQ(DutOptionValToStr(s), "\"a b\"");
  ASSERT_TRUE(DutOptionSetStr(s, ""));
  EXPECT_STREQ(DutOptionValToStr(s), "\"\"");

  NodeChain chain({"x", "y", "z"});
  D_OPTION *el = DutOptionCreate("t_enumlist", D_OPT_TYPE_ENUM_LIST);
  ASSERT_TRUE(DutOptionSetEnumList(el, chain.first()));
  EXPECT_STREQ(DutOptionValToStr(el), "x, y, z");
  D_OPTION *sl = DutOptionCreate("t_strlist", D_OPT_TYPE_STRING_LIST);
  ASSERT_TRUE(DutOptionSetStrList(sl, chain.first()));
  EXPECT_STREQ(DutOptionValToStr(sl), "\"x\", \"y\", \"z\"");

  EXPECT_EQ(DutOptionValToStr(nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(OptionText, DumpOneAndAll) {
  D_OPTION *s = DutOptionCreate("d_visible", D_OPT_TYPE_STRING);
  ASSERT_TRUE(DutOptionSetStr(s, "v"));
  DutOptionCreate("_d_hidden", D_OPT_TYPE_BOOLEAN);
  DutOptionCreate("aaa_first", D_OPT_TYPE_NUMERIC);

  opttest::Captured().clear();
  EXPECT_TRUE(DutOptionDump("D_VISIBLE", opttest::PrintToCapture));
  EXPECT_EQ(opttest::Captured(), "d_visible \"v\"\n");
  opttest::Captured().clear();
  EXPECT_TRUE(DutOptionDump("_d_hidden", opttest::PrintToCapture));
  EXPECT_EQ(opttest::Captured(), "_d_hidden UNKNOWN\n");
  opttest::Captured().clear();
  EXPECT_FALSE(DutOptionDump("nope", opttest::PrintToCapture));
  EXPECT_EQ(opttest::Captured(), "No option named <nope>\n");

  opttest::Captured().clear();
  EXPECT_TRUE(DutOptionDump(nullptr, opttest::PrintToCapture));
  std::string all = opttest::Captured();
  EXPECT_EQ(all.find("_d_hidden"), std::string::npos);
  size_t first = all.find("aaa_first UNKNOWN\n");
  size_t backup = all.find("backup_name UNKNOWN\n");
  size_t editor = all.find("editor \"vi\"\n");
  size_t visible = all.find("d_visible \"v\"\n");
  size_t format = all.find("real_number_format \"");
  ASSERT_EQ(first, 0u);
  ASSERT_NE(backup, std::string::npos);
  ASSERT_NE(visible, std::string::npos);
  ASSERT_NE(editor, std::string::npos);
  ASSERT_NE(format, std::string::npos);
  EXPECT_LT(backup, visible);
  EXPECT_LT(visible, editor);
  EXPECT_LT(editor, format);
}

TEST(OptionRealFormat, RealToStrFollowsTheOption) {
  OutputCapture capture;
  EXPECT_STREQ(DutRealToStr(2.5), "2.5");
  ASSERT_NE(DutOptionSet("real_number_format", "%.3f"), nullptr);
  EXPECT_STREQ(DutRealToStr(2.5), "2.500");
  char buffer[64];
  EXPECT_EQ(DutRealToStrCopy(-1.0, buffer), buffer);
  EXPECT_STREQ(buffer, "-1.000");

  D_OPTION *n = DutOptionCreate("rf_num", D_OPT_TYPE_NUMERIC);
  ASSERT_TRUE(DutOptionSetNum(n, 0.25));
  EXPECT_STREQ(DutOptionValToStr(n), "0.250");

  ASSERT_TRUE(DutOptionSetStr(DutOptionLookup("real_number_format"), "OvErRiDe:%.1e"));
  EXPECT_STREQ(DutRealToStr(2.5), "2.5e+00");
  EXPECT_EQ(DutRealToStrCopy(1.0, nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
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
