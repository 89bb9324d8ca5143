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

struct Refusal {
  const char *value;
  const char *message;  // %s stands for the option name
};

std::string Message(const char *format, const char *name) {
  std::string text = format;
  text.replace(text.find("%s"), 2, name);
  return text;
}

// Each accepted value is committed; each refusal leaves the value that was
// there, prints exactly its message and sets D_ERR_VAL_INVALID.
void CheckOption(const char *name, std::initializer_list<const char *> accepted,
                 std::initializer_list<Refusal> refused) {
  D_OPTION *option = DutOptionLookup(name);
  ASSERT_NE(option, nullptr);
  const std::string original = stdopts::StrValue(name);
  OutputCapture capture;
  for (const char *value : accepted) {
    EXPECT_TRUE(DutOptionSetStr(option, value)) << value;
    EXPECT_EQ(capture.Take(), "") << value;
    EXPECT_EQ(stdopts::StrValue(name), value);
  }
  ASSERT_TRUE(DutOptionSetStr(option, original.c_str()));
  for (const Refusal &r : refused) {
    DutErrNumSet(0);
    EXPECT_FALSE(DutOptionSetStr(option, r.value)) << r.value;
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID) << r.value;
    EXPECT_EQ(capture.Take(), Message(r.message, name));
    EXPECT_EQ(stdopts::StrValue(name), original) << r.value;
  }
}

TEST(NamingChecks, EachStandardOptionAcceptsAndRefuses) {
  const std::string bad_name =
      "The option <%s> must be a name of letters, digits, '_' and '%', not starting with a digit: <";
  for (const char *name : {"default_class_name", "default_attr_name"}) {
    SCOPED_TRACE(name);
    CheckOption(name, {"x", "Pump_2", "_hidden", "rate%", "a1b2"},
                {{"", "The option <%s> must not be empty.\n"},
                 {"2pump", (bad_name + "2pump>.\n").c_str()},
                 {"pump-2", (bad_name + "pump-2>.\n").c_str()},
                 {"pump 2", (bad_name + "pump 2>.\n").c_str()},
                 {"a.b", (bad_name + "a.b>.\n").c_str()}});
  }
  // The prefix is not required: it starts unknown and may be made unknown
  // again.
  D_OPTION *prefix = DutOptionLookup("default_subject_prefix");
  ASSERT_TRUE(DutOptionSetStr(prefix, "/start"));
  CheckOption("default_subject_prefix", {"/a", "/plant/line1", "/x.y/z-1"},
              {{"", "The option <%s> must start with '/'.\n"},
               {"plant", "The option <%s> must start with '/'.\n"},
               {"/", "The option <%s> must not contain an empty level.\n"},
               {"/a/", "The option <%s> must not contain an empty level.\n"},
               {"/a//b", "The option <%s> must not contain an empty level.\n"},
               {"/a/*", "The option <%s> must not contain the wildcard '*'.\n"},
               {"/a?b", "The option <%s> must not contain the wildcard '?'.\n"},
               {"/a b", "The option <%s> must not contain blanks or control characters.\n"},
               {"/a\tb", "The option <%s> must not contain blanks or control characters.\n"}});
  EXPECT_TRUE(DutOptionSetUnknown(prefix));
  // A scope may use "*" only as its whole last level.
  CheckOption("monitor_scope", {"/*", "/plant/*", "/plant/line1", "/a/b/c/*"},
              {{"*", "The option <%s> must start with '/'.\n"},
               {"/", "The option <%s> must not contain an empty level.\n"},
               {"/plant/", "The option <%s> must not contain an empty level.\n"},
               {"//*", "The option <%s> must not contain an empty level.\n"},
               {"/*/line1", "The option <%s> may use '*' only as its whole last level.\n"},
               {"/plant*", "The option <%s> may use '*' only as its whole last level.\n"},
               {"/plant/*x", "The option <%s> may use '*' only as its whole last level.\n"},
               {"/**", "The option <%s> may use '*' only as its whole last level.\n"},
               {"/a?", "The option <%s> must not contain the wildcard '?'.\n"},
               {"/ *", "The option <%s> must not contain blanks or control characters.\n"}});
  // A unique subject is one level naming one subject.
  CheckOption("unique_subject", {"_host_12", "station7.plant_99", "a"},
              {{"", "The option <%s> must not be empty.\n"},
               {"/a", "The option <%s> must be a single level without '/'.\n"},
               {"a/b", "The option <%s> must be a single level without '/'.\n"},
               {"_host_*", "The option <%s> must not contain the wildcard '*'.\n"},
               {"?x", "The option <%s> must not contain the wildcard '?'.\n"},
               {"bad host", "The option <%s> must not contain blanks or control characters.\n"},
               {"bad\nhost", "The option <%s> must not contain blanks or control characters.\n"}});
}

TEST(NamingChecks, UnknownIsLeftToTheRequiredFlag) {
  // Called directly, as an application attaching them to its own options.
  D_OPTION *mine = DutOptionCreate("stdopts_own_scope", D_OPT_TYPE_STRING);
  ASSERT_NE(mine, nullptr);
  for (D_OPTION_VERIFY_FUNC check : {DutOptionNameCheck, DutOptionPrefixCheck, DutOptionScopeCheck,
                                     DutOptionUniqueCheck}) {
    EXPECT_TRUE(check(mine, nullptr, nullptr));
  }
  ASSERT_TRUE(DutOptionSetVerifyFunc(mine, DutOptionScopeCheck, nullptr));
  OutputCapture capture;
  EXPECT_FALSE(DutOptionSetStr(mine, "/x/*/y"));
  EXPECT_EQ(capture.Take(), "The option <stdopts_own_scope> may use '*' only as its whole last level.\n");
  EXPECT_TRUE(DutOptionSetStr(mine, "/x/y/*"));
  EXPECT_TRUE(DutOptionSetUnknown(mine));
  EXPECT_TRUE(DutOptionDestroy(mine));
}

}  // namespace
