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
using opttest::Stored;
using Strings = std::vector<std::string>;

namespace {

TEST(OptionParse, BooleanWordsAreExactAndUnknownMayBeRefused) {
  OutputCapture capture;
  D_OPTION *b = DutOptionCreate("p_bool", D_OPT_TYPE_BOOLEAN);
  EXPECT_EQ(Parse(b, "true"), ParseEnd::Committed);
  EXPECT_EQ(*static_cast<D_INT4 *>(D_GOPT_VALUE(b)), 1);
  EXPECT_EQ(Parse(b, "false"), ParseEnd::Committed);
  EXPECT_EQ(*static_cast<D_INT4 *>(D_GOPT_VALUE(b)), 0);
  EXPECT_EQ(capture.Take(), "");
  for (const char *bad : {"TRUE", "yes"}) {
    EXPECT_EQ(Parse(b, bad), ParseEnd::Refused);
    EXPECT_EQ(capture.Take(), "WARNING: Bad boolean value <" + std::string(bad) + "> for option <p_bool>.\n");
  }
  EXPECT_EQ(*static_cast<D_INT4 *>(D_GOPT_VALUE(b)), 0);
  EXPECT_EQ(Parse(b, "1"), ParseEnd::LexError);  // not an identifier at all
  EXPECT_EQ(Parse(b, "UnKnown"), ParseEnd::Committed);
  EXPECT_FALSE(D_GOPT_KNOWN(b));

  D_OPTION *n = DutOptionCreate("p_required", D_OPT_TYPE_NUMERIC);
  ASSERT_TRUE(DutOptionSetNum(n, 4.0));
  ASSERT_TRUE(DutOptionSetRequired(n, 1));
  EXPECT_EQ(Parse(n, "unknown"), ParseEnd::Refused);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_REQUIRED);
  EXPECT_EQ(Num(n), 4.0);
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

TEST(OptionParse, NumbersAndStrings) {
  D_OPTION *n = DutOptionCreate("p_num", D_OPT_TYPE_NUMERIC);
  EXPECT_EQ(Parse(n, "-2.5"), ParseEnd::Committed);
  EXPECT_EQ(Num(n), -2.5);
  EXPECT_EQ(Parse(n, "+1e3"), ParseEnd::Committed);
  EXPECT_EQ(Num(n), 1000.0);
  EXPECT_EQ(Parse(n, "abc"), ParseEnd::LexError);
  EXPECT_EQ(Num(n), 1000.0);

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
  EXPECT_EQ(Items(first), (Strings{"tcp", "udp", "Local"}));
  EXPECT_EQ(Parse(el, "single"), ParseEnd::Committed);
  // Errors after some items were read: nothing changes, nothing leaks.
  EXPECT_EQ(Parse(el, "a, b, , c"), ParseEnd::LexError);
  EXPECT_EQ(Parse(el, "a, b,"), ParseEnd::LexError);
  ASSERT_TRUE(DutOptionSetReadOnly(el, 1));
  EXPECT_EQ(Parse(el, "a, b"), ParseEnd::Refused);  // the refused list is freed
  EXPECT_EQ(DutErrNumGet(), D_ERR_READ_ONLY);
  ASSERT_TRUE(DutOptionGetEnumList(el, &first));
  EXPECT_EQ(Items(first), Strings{"single"});

  D_OPTION *sl = DutOptionCreate("p_strlist", D_OPT_TYPE_STRING_LIST);
  EXPECT_EQ(Parse(sl, "\"x y\", \"z\""), ParseEnd::Committed);
  EXPECT_EQ(Parse(sl, "\"ok\", \"broken"), ParseEnd::LexError);
  ASSERT_TRUE(DutOptionGetStrList(sl, &first));
  EXPECT_EQ(Items(first), (Strings{"x y", "z"}));

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
  EXPECT_FAILS(DutOptionValToStr(nullptr), nullptr, D_ERR_NULL_PTR);
}

TEST(OptionText, DumpOneAndAll) {
  ASSERT_TRUE(DutOptionSetStr(DutOptionCreate("d_visible", D_OPT_TYPE_STRING), "v"));
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
  for (const char *line : {"backup_name UNKNOWN\n", "d_visible \"v\"\n", "editor \"vi\"\n",
                           "real_number_format \""}) {
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
  D_OPTION *n = DutOptionCreate("rf_num", D_OPT_TYPE_NUMERIC);
  ASSERT_TRUE(DutOptionSetNum(n, 0.25));
  EXPECT_STREQ(DutOptionValToStr(n), "0.250");

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
