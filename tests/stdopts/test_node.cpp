// The naming checks of the standard options (what each accepts, what it
// refuses with which message and error number, and that a refusal keeps
// the value), the node name, the default unique subject built from it, and
// the socket directory.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <string>

#include "stdopts_support.hpp"
#include "vqutil/error.h"
#include "vqutil/net.h"
#include "vqutil/option.h"
#include "vqutil/stdopt.h"

namespace {

using stdopts::OutputCapture;
using stdopts::EnvGuard;

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

// The system's name unless VQ_FORCE_NODE_NAME is set (even to ""), cut to
// the buffer's size with nothing written past it.
TEST(NodeName, SystemNameUnlessForcedCutToTheBuffer) {
  char buffer[D_NODE_NAME_SIZE + 64];
  char host[512] = {};
  std::string system = ::gethostname(host, sizeof host - 1) != 0 || host[0] == '\0' ? "UNKNOWN" : host;
  const std::string longest(D_NODE_NAME_SIZE - 1, 'n');
  for (const auto &[forced, expected] : {std::pair<std::optional<std::string>, std::string>{std::nullopt, system},
                                         {"", ""},
                                         {longest + "nnnn", longest}}) {
    EnvGuard guard("VQ_FORCE_NODE_NAME", forced);
    std::memset(buffer, 'X', sizeof buffer);
    EXPECT_EQ(DutGetNodeName(buffer), buffer);
    EXPECT_EQ(std::string(buffer), expected.substr(0, D_NODE_NAME_SIZE - 1));
    EXPECT_EQ(buffer[D_NODE_NAME_SIZE], 'X');
  }
  EXPECT_FAILS(DutGetNodeName(nullptr), nullptr, D_ERR_NULL_PTR);
}

// "_<node>_<number>"; the node cut at its first '.' when asked to, negative
// numbers in hexadecimal, the full word; the longest fits the buffer.
TEST(UniqueSubjectDefault, NodeAndNumber) {
  const std::string word(2 * sizeof(D_WORD) - 1, '0');
  const std::string longest = "_" + std::string(D_NODE_NAME_SIZE - 1, 'h') + "_";
  const struct {
    std::string node;
    std::optional<std::string> shorten;
    D_WORD number;
    std::string expected;
  } cases[] = {
      {"station7.plant.example", std::nullopt, 4242, "_station7.plant.example_4242"},
      {"station7.plant.example", "yes", -256, "_station7_" + std::string(word.size() - 1, 'f') + "00"},
      {std::string(400, 'h'), std::nullopt, static_cast<D_WORD>(INTPTR_MIN), longest + "8" + word},
  };
  char buffer[D_UNIQUE_SUBJECT_SIZE];
  for (const auto &c : cases) {
    EnvGuard node("VQ_FORCE_NODE_NAME", c.node);
    EnvGuard shorten("VQ_FORCE_SHORT_NODE_NAME", c.shorten);
    EXPECT_EQ(DutOptionGetUniqueSubjectDefault(buffer, c.number), buffer);
    EXPECT_EQ(std::string(buffer), c.expected);
  }
  EXPECT_FAILS(DutOptionGetUniqueSubjectDefault(nullptr, 1), nullptr, D_ERR_NULL_PTR);
}

TEST(SocketDir, UnderTempCreatedOnceAndKept) {
  const char *dir = DutGetSocketDir();
  const char *temp = std::getenv("TEMP");  // always set once the library is loaded
  ASSERT_TRUE(dir != nullptr && temp != nullptr);
  EXPECT_EQ(std::string(dir), std::string(temp) + "/vqsuite");
  EXPECT_TRUE(std::filesystem::is_directory(dir));
  EnvGuard moved("TEMP", "/somewhere/else");
  EXPECT_EQ(DutGetSocketDir(), dir);
}

// Computed once per process: /tmp without TEMP; a TEMP that cannot be made
// (a path through a device, ENOTDIR) warns once and still answers.
TEST(SocketDir, WithoutTempOrWithAnUncreatableOne) {
  stdopts::InFreshProcess([](stdopts::ChildReport &report) {
    ::unsetenv("TEMP");
    report.Equal(std::string(DutGetSocketDir()), std::string("/tmp/vqsuite"), "socket dir without TEMP");
    report.Check(std::filesystem::is_directory("/tmp/vqsuite"), "/tmp/vqsuite not made");
  });
  stdopts::InFreshProcess([](stdopts::ChildReport &report) {
    ::setenv("TEMP", "/dev/null/sub", 1);
    OutputCapture capture;
    DutErrNumSet(0);
    report.Equal(std::string(DutGetSocketDir()), std::string("/dev/null/sub/vqsuite"), "name returned anyway");
    report.Equal(DutErrNumGet(), static_cast<D_INT4>(D_ERR_C), "error number");
    report.Equal(DutErrNumGetC(), static_cast<D_INT4>(ENOTDIR), "runtime error");
    std::string text = capture.Take();
    report.Check(text.find("WARNING: DutGetSocketDir: Cannot create directory /dev/null/sub\n") != std::string::npos &&
                     text.find("mkdir") != std::string::npos && text.find("sub/vqsuite") == std::string::npos,
                 "one warning with the mkdir report: " + text);
  });
}

}  // namespace
