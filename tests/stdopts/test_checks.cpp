// The naming checks of the standard options: what each accepts, what it
// refuses with which message and error number, and that a refusal keeps the
// option's value.
#include <gtest/gtest.h>

#include <string>

#include "stdopts_support.hpp"
#include "vqutil/command.h"
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
  const char *before = nullptr;
  ASSERT_TRUE(DutOptionGetStr(option, &before));
  const std::string original = before;
  OutputCapture capture;
  for (const char *value : accepted) {
    SCOPED_TRACE(value);
    EXPECT_TRUE(DutOptionSetStr(option, value));
    EXPECT_EQ(capture.Take(), "");
    const char *now = nullptr;
    ASSERT_TRUE(DutOptionGetStr(option, &now));
    EXPECT_STREQ(now, value);
  }
  ASSERT_TRUE(DutOptionSetStr(option, original.c_str()));
  for (const Refusal &r : refused) {
    SCOPED_TRACE(r.value);
    DutErrNumSet(0);
    EXPECT_FALSE(DutOptionSetStr(option, r.value));
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
    EXPECT_EQ(capture.Take(), Message(r.message, name));
    const char *now = nullptr;
    ASSERT_TRUE(DutOptionGetStr(option, &now));
    EXPECT_EQ(now, original);
  }
}

TEST(NameCheck, ClassAndAttributeNamesAreIdentifiers) {
  const char *bad_name = "The option <%s> must be a name of letters, digits, '_' and '%', not starting with a digit: <";
  for (const char *name : {"default_class_name", "default_attr_name"}) {
    SCOPED_TRACE(name);
    CheckOption(name, {"x", "Pump_2", "_hidden", "rate%", "a1b2"},
                {{"", "The option <%s> must not be empty.\n"},
                 {"2pump", (std::string(bad_name) + "2pump>.\n").c_str()},
                 {"pump-2", (std::string(bad_name) + "pump-2>.\n").c_str()},
                 {"pump 2", (std::string(bad_name) + "pump 2>.\n").c_str()},
                 {"a.b", (std::string(bad_name) + "a.b>.\n").c_str()}});
  }
}

TEST(PrefixCheck, PrefixIsAPathWithoutWildcards) {
  D_OPTION *prefix = DutOptionLookup("default_subject_prefix");
  ASSERT_NE(prefix, nullptr);
  // Not required: it starts unknown and may be made unknown again.
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
}

TEST(ScopeCheck, StarOnlyAsTheWholeLastLevel) {
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
}

TEST(UniqueCheck, OneLevelNamingOneSubject) {
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

TEST(NamingChecks, RefusalThroughSetoptKeepsTheValue) {
  OutputCapture capture;
  DutCommandParseStr("setopt monitor_scope \"/plant/*\"");
  EXPECT_EQ(capture.Take(), "");
  DutCommandParseStr("setopt monitor_scope \"/plant*\"");
  EXPECT_EQ(capture.Take(), "The option <monitor_scope> may use '*' only as its whole last level.\n");
  EXPECT_STREQ(DutOptionValToStr(DutOptionLookup("monitor_scope")), "\"/plant/*\"");
  DutCommandParseStr("setopt default_class_name \"9lives\"");
  EXPECT_EQ(capture.Take(),
            "The option <default_class_name> must be a name of letters, digits, '_' and '%', not starting with a "
            "digit: <9lives>.\n");
  DutCommandParseStr("unsetopt default_class_name");
  EXPECT_EQ(capture.Take(), "Cannot unset <default_class_name>: option is required.\n");
  DutCommandParseStr("setopt monitor_scope \"/*\"");
}

}  // namespace
