// Option values as text: parsing lists from the lexer, printing, dumps,
// and the real-number format that DutRealToStr follows. (The command
// transcripts pin the messages of every other parse.)
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "options_support.hpp"
#include "vqutil/strutil.h"

using opttest::Items;
using opttest::Parse;
using opttest::ParseEnd;
using Strings = std::vector<std::string>;

namespace {

// Items are identifiers, strings or file names; an error after some items
// frees them and keeps the old list; so does a refused list.
TEST(OptionParse, ListsInOrderAndErrorsKeepTheOldList) {
  D_OPTION *el = DutOptionCreate("p_enumlist", D_OPT_TYPE_ENUM_LIST);
  D_OPTION *sl = DutOptionCreate("p_strlist", D_OPT_TYPE_STRING_LIST);
  const D_OPTION_STR_NODE *first = nullptr;
  EXPECT_EQ(Parse(el, "tcp, udp ,Local"), ParseEnd::Committed);
  EXPECT_EQ(Parse(el, "a, b, , c"), ParseEnd::LexError);
  EXPECT_EQ(Parse(sl, "\"x y\", /tmp/z.log"), ParseEnd::Committed);
  EXPECT_EQ(Parse(sl, "\"ok\", \"broken"), ParseEnd::LexError);
  ASSERT_TRUE(DutOptionSetReadOnly(el, 1));
  EXPECT_EQ(Parse(el, "a, b"), ParseEnd::Refused);
  EXPECT_EQ(DutErrNumGet(), D_ERR_READ_ONLY);
  ASSERT_TRUE(DutOptionGetEnumList(el, &first));
  EXPECT_EQ(Items(first), (Strings{"tcp", "udp", "Local"}));
  EXPECT_STREQ(DutOptionValToStr(sl), "\"x y\", \"/tmp/z.log\"");
  EXPECT_FAILS(DutOptionValToStr(nullptr), nullptr, D_ERR_NULL_PTR);
}

TEST(OptionText, DumpOneOrAllButTheHiddenSortedByName) {
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
  opttest::OutputCapture capture;
  ASSERT_NE(DutOptionSet("real_number_format", "%.3f"), nullptr);
  char buffer[64];
  EXPECT_EQ(DutRealToStrCopy(-1.0, buffer), buffer);
  EXPECT_STREQ(buffer, "-1.000");
  ASSERT_TRUE(DutOptionSetStr(DutOptionLookup("real_number_format"), "OvErRiDe:%.1e"));
  EXPECT_STREQ(DutRealToStr(2.5), "2.5e+00");
  EXPECT_FAILS(DutRealToStrCopy(1.0, nullptr), nullptr, D_ERR_NULL_PTR);
  OPT_EXPECT_ASSERTION(
      {
        DutOptionDestroy(DutOptionLookup("real_number_format"));
        DutRealToStr(1.0);
      },
      "D_NULL != utRealNumberFormat");
}

}  // namespace
