// The naming checks of the standard options: what each accepts, what it
// refuses with which message and error number, and that a refusal keeps the
// option's value.
#include <gtest/gtest.h>

#include <string>

#include "stdopts_support.hpp"
#include "vqutil/error.h"
#include "vqutil/option.h"
#include "vqutil/stdopt.h"

namespace {

using stdopts::OutputCapture;

// Each accepted value is committed; each refusal leaves the value that was
// there, prints exactly its message ("%s" standing for the option's name)
// and sets D_ERR_VAL_INVALID.
void CheckOption(const char *name, std::initializer_list<const char *> accepted,
                 std::initializer_list<std::pair<const char *, std::string>> refused) {
  SCOPED_TRACE(name);
  D_OPTION *option = DutOptionLookup(name);
  ASSERT_NE(option, nullptr);
  OutputCapture capture;
  for (const char *value : accepted) {
    EXPECT_TRUE(DutOptionSetStr(option, value)) << value;
    EXPECT_EQ(stdopts::StrValue(name), value);
  }
  EXPECT_EQ(capture.Take(), "");
  for (const auto &[value, format] : refused) {
    EXPECT_FAILS(DutOptionSetStr(option, value), D_FALSE, D_ERR_VAL_INVALID);
    std::string message = format;
    message.replace(message.find("%s"), 2, name);
    EXPECT_EQ(capture.Take(), message);
    EXPECT_EQ(stdopts::StrValue(name), *std::prev(accepted.end())) << value;
  }
}

TEST(NamingChecks, EachStandardOptionAcceptsAndRefuses) {
  const std::string bad_name =
      "The option <%s> must be a name of letters, digits, '_' and '%', not starting with a digit: <";
  const std::string empty = "The option <%s> must not be empty.\n";
  const std::string slash = "The option <%s> must start with '/'.\n";
  const std::string level = "The option <%s> must not contain an empty level.\n";
  const std::string star = "The option <%s> must not contain the wildcard '*'.\n";
  const std::string query = "The option <%s> must not contain the wildcard '?'.\n";
  const std::string blank = "The option <%s> must not contain blanks or control characters.\n";
  const std::string last = "The option <%s> may use '*' only as its whole last level.\n";
  for (const char *name : {"default_class_name", "default_attr_name"}) {
    CheckOption(name, {"_hidden", "rate%", "Pump_2"},
                {{"", empty}, {"2pump", bad_name + "2pump>.\n"}, {"pump 2", bad_name + "pump 2>.\n"}});
  }
  CheckOption("default_subject_prefix", {"/a", "/x.y/z-1"},
              {{"", slash}, {"/", level}, {"/a//b", level}, {"/a/*", star}, {"/a?b", query}, {"/a\tb", blank}});
  // A scope may use "*" only as its whole last level.
  CheckOption("monitor_scope", {"/*", "/plant/line1", "/a/b/*"},
              {{"*", slash}, {"/plant/", level}, {"/*/line1", last}, {"/plant*", last}, {"/a?", query},
               {"/ *", blank}});
  // A unique subject is one level naming one subject.
  CheckOption("unique_subject", {"a", "station7.plant_99"},
              {{"", empty},
               {"a/b", "The option <%s> must be a single level without '/'.\n"},
               {"_host_*", star},
               {"?x", query},
               {"bad\nhost", blank}});
  // The prefix is not required: it may be made unknown again.
  EXPECT_TRUE(DutOptionSetUnknown(DutOptionLookup("default_subject_prefix")));
}

TEST(NamingChecks, UnknownIsLeftToTheRequiredFlag) {
  // Called directly, as an application attaching them to its own options.
  D_OPTION *mine = DutOptionCreate("stdopts_own_scope", D_OPT_TYPE_STRING);
  ASSERT_NE(mine, nullptr);
  for (D_OPTION_VERIFY_FUNC check : {DutOptionNameCheck, DutOptionPrefixCheck, DutOptionScopeCheck,
                                     DutOptionUniqueCheck}) {
    EXPECT_TRUE(check(mine, nullptr, nullptr));
  }
  EXPECT_TRUE(DutOptionDestroy(mine));
}

}  // namespace
