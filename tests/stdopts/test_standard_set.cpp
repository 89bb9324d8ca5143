// The standard option set: defaults that every option's own rules accept,
// the computed defaults, the environment override of the protocols, and
// how the options reach the parts of the library that listen to them; the
// naming checks of the standard options (what each accepts, what it refuses
// with which message and error number, and that a refusal keeps the value);
// the node name, the default unique subject built from it, and the socket
// directory.
#include <gtest/gtest.h>
#include <unistd.h>
#ifdef _WIN32
#include <winsock2.h>  // gethostname
#endif

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/child_process.hpp"
#include "support/env_var.hpp"
#include "support/output_capture.hpp"
#include "support/temp_dir.hpp"
#include "vqutil/command.h"
#include "vqutil/error.h"
#include "vqutil/net.h"
#include "vqutil/option.h"
#include "vqutil/stdopt.h"

namespace {

using vqtest::EnvVar;
using vqtest::OutputCapture;
using vqtest::RunInChild;

// Read in a fresh process, whose TEMP names a folder not yet there: other
// tests of this program change options, and the creation itself (making
// both folders of the socket directory) is what is tested. Every option
// holds a default its own rules accept: a known one can be set to its
// value again (verify function and legal values passing), and only the
// log-file check takes an argument. The computed defaults are what they are
// computed from; a sample of the others is as defined.
TEST(StandardOptions, FreshProcessHoldsDefaultsTheirOwnRulesAccept) {
  const vqtest::TempDir base("vq-stdopts-temp");
  EnvVar temp("VQ_STDOPTS_TEMP", base.file("fresh").c_str());
  RunInChild("threadsafe", [] {
    ::unsetenv("VQ_DEFAULT_PROTOCOLS");
    ::setenv("TEMP", std::getenv("VQ_STDOPTS_TEMP"), 1);
    D_INT4 count = 0;
    D_OPTION **options = DutOptionSort(&count);
    EXPECT_GE(count, 74);
    for (D_INT4 i = 0; i < count; ++i) {
      D_OPTION *option = options[i];
      const std::string name = D_GOPT_NAME(option), shown = DutOptionValToStr(option);
      EXPECT_TRUE(D_GOPT_VERIFY_ARG(option) == nullptr || D_GOPT_VERIFY_FUNC(option) == DutOptionVerifyLogFile)
          << name << " has a verify argument";
      if (!D_GOPT_KNOWN(option)) continue;
      const bool again = D_GOPT_TYPE(option) == D_OPT_TYPE_ENUM
                             ? DutOptionSetEnum(option, static_cast<const char *>(D_GOPT_VALUE(option)))
                             : DutOptionSet(name.c_str(), D_GOPT_VALUE(option)) != nullptr;
      EXPECT_TRUE(again) << name << " refuses its own default " << shown;
      EXPECT_EQ(DutOptionValToStr(option), shown) << name << " changed by setting it again";
    }
    char unique[D_UNIQUE_SUBJECT_SIZE];
    DutOptionGetUniqueSubjectDefault(unique, ::getpid());
    const std::string dir = std::string(std::getenv("TEMP")) + "/vqsuite";
    for (const auto &[name, shown] : std::vector<std::pair<const char *, std::string>>{
             {"ipc_gmd_directory", "\"" + dir + "\""}, {"unique_subject", "\"" + std::string(unique) + "\""},
             {"default_protocols", "tcp"}, {"enable_control_msgs", "echo, quit, setopt"}, {"time_format", "UNKNOWN"},
             {"command_feedback", "interactive"}, {"server_disconnect_mode", "gmd_failure"}, {"frame_interval", "0"},
             {"_conn_socket_buffer_size", "49152"}, {"use_encrypt_server", "FALSE"}, {"server_names", "\"_node\""},
             {"monitor_scope", "\"/*\""}, {"sna_cpic_lib", "\"wcpic32.dll\""}, {"backup_name", "UNKNOWN"}}) {
      EXPECT_EQ(DutOptionValToStr(DutOptionLookup(name)), shown) << name;
    }
    EXPECT_TRUE(std::filesystem::is_directory(dir)) << dir;
    EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_INTERACTIVE);
    // The option drives the interpreter; a refused value reaches neither.
    ASSERT_TRUE(DutOptionSetEnum(DutOptionLookup("command_feedback"), "Never"));
    EXPECT_FAILS(DutOptionSetEnum(DutOptionLookup("command_feedback"), "sometimes"), D_FALSE, D_ERR_VAL_INVALID);
    EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_NEVER);
    // The new program made a folder of its own for TEMP; its parent is gone
    // with this process.
    std::filesystem::remove_all(std::filesystem::path(std::getenv("TEMP")).parent_path());
  });
}

// The environment's protocols in the order written (one replaces tcp, and
// "unknown" is a value like any other: no internal check complains); a
// node name that makes no subject leaves the unique subject unknown
// without stopping the rest.
TEST(StandardOptions, EnvironmentShapesProtocolsAndUniqueSubject) {
  for (const char *protocols : {"udp, tcp", "decnet", "unknown"}) {
    EnvVar given("VQ_DEFAULT_PROTOCOLS", protocols);
    EnvVar bad_node("VQ_FORCE_NODE_NAME", "bad host");
    RunInChild("threadsafe", [] {
      OutputCapture capture;
      EXPECT_STRCASEEQ(DutOptionValToStr(DutOptionLookup("default_protocols")), std::getenv("VQ_DEFAULT_PROTOCOLS"));
      EXPECT_EQ(capture.Take().find("D_GOPT_KNOWN"), std::string::npos);
      EXPECT_FALSE(D_GOPT_KNOWN(DutOptionLookup("unique_subject"))) << "a subject with a blank was accepted";
      EXPECT_NE(DutOptionLookup("_conn_read_size_init"), nullptr) << "creation stopped early";
    });
  }
}

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
    EXPECT_EQ(DutOptionValToStr(option), "\"" + std::string(value) + "\"");
  }
  EXPECT_EQ(capture.Take(), "");
  for (const auto &[value, format] : refused) {
    EXPECT_FAILS(DutOptionSetStr(option, value), D_FALSE, D_ERR_VAL_INVALID);
    std::string message = format;
    message.replace(message.find("%s"), 2, name);
    EXPECT_EQ(capture.Take(), message);
    EXPECT_EQ(DutOptionValToStr(option), "\"" + std::string(*std::prev(accepted.end())) + "\"") << value;
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
                {{"", empty}, {"pump 2", bad_name + "pump 2>.\n"}});
  }
  CheckOption("default_subject_prefix", {"/a", "/x.y/z-1"},
              {{"", slash}, {"/", level}, {"/a//b", level}, {"/a/*", star}, {"/a?b", query}, {"/a\tb", blank}});
  // A scope may use "*" only as its whole last level.
  CheckOption("monitor_scope", {"/*", "/plant/line1", "/a/b/*"},
              {{"*", slash}, {"/plant/", level}, {"/*/line1", last}, {"/ *", blank}});
  // A unique subject is one level naming one subject.
  CheckOption("unique_subject", {"a", "station7.plant_99"},
              {{"a/b", "The option <%s> must be a single level without '/'.\n"}, {"_host_*", star},
               {"bad\nhost", blank}});
  // The prefix is not required: it may be made unknown again.
  EXPECT_TRUE(DutOptionSetUnknown(DutOptionLookup("default_subject_prefix")));
}

// The node name: the system's name unless VQ_FORCE_NODE_NAME is set (even
// to ""), cut to the buffer's size with nothing written past it.
TEST(NodeName, SystemNameUnlessForcedCutToTheBufferAndTheUniqueSubjectFromIt) {
  char buffer[D_NODE_NAME_SIZE + 64];
  char host[512] = {};
  std::string system = ::gethostname(host, sizeof host - 1) != 0 || host[0] == '\0' ? "UNKNOWN" : host;
  const std::string longest(D_NODE_NAME_SIZE - 1, 'n');
  for (const auto &[forced, expected] : {std::pair<std::optional<std::string>, std::string>{std::nullopt, system},
                                         {"", ""},
                                         {longest + "nnnn", longest}}) {
#ifdef _WIN32
    if (forced == "") continue;  // Windows holds no empty variable: that row is the unset one
#endif
    EnvVar guard("VQ_FORCE_NODE_NAME", forced ? forced->c_str() : nullptr);
    std::memset(buffer, 'X', sizeof buffer);
    EXPECT_TRUE(DutGetNodeName(buffer) == buffer && buffer[D_NODE_NAME_SIZE] == 'X');
    EXPECT_EQ(std::string(buffer), expected.substr(0, D_NODE_NAME_SIZE - 1));
  }
  EXPECT_FAILS(DutGetNodeName(nullptr), nullptr, D_ERR_NULL_PTR);

  // The default unique subject "_<node>_<number>": the node cut at its
  // first '.' when asked to, negative numbers in hexadecimal, the full
  // word; the longest fits the buffer.
  const std::string word(2 * sizeof(D_WORD) - 1, '0');
  const struct {
    std::string node;
    const char *shorten;
    D_WORD number;
    std::string expected;
  } cases[] = {
      {"station7.plant.example", nullptr, 4242, "_station7.plant.example_4242"},
      {"station7.plant.example", "yes", -256, "_station7_" + std::string(word.size() - 1, 'f') + "00"},
      {longest + "nnnn", nullptr, static_cast<D_WORD>(INTPTR_MIN), "_" + longest + "_8" + word},
  };
  char unique[D_UNIQUE_SUBJECT_SIZE];
  for (const auto &c : cases) {
    EnvVar node("VQ_FORCE_NODE_NAME", c.node.c_str()), shorten("VQ_FORCE_SHORT_NODE_NAME", c.shorten);
    EXPECT_EQ(DutOptionGetUniqueSubjectDefault(unique, c.number), unique);
    EXPECT_EQ(std::string(unique), c.expected);
  }
  EXPECT_FAILS(DutOptionGetUniqueSubjectDefault(nullptr, 1), nullptr, D_ERR_NULL_PTR);
}

// The socket directory, computed once per process: /tmp without TEMP; a
// TEMP that cannot be made (a path through a device, ENOTDIR) warns once
// and still answers.
TEST(SocketDir, WithoutTempOrWithAnUncreatableOne) {
#ifdef _WIN32
  GTEST_SKIP() << "Windows takes an unset TEMP from the registry and has no device path that gives ENOTDIR";
#endif
  RunInChild("threadsafe", [] {
    ::unsetenv("TEMP");
    const char *dir = DutGetSocketDir();
    EXPECT_STREQ(dir, "/tmp/vqsuite");
    ::setenv("TEMP", "/elsewhere", 1);
    EXPECT_EQ(DutGetSocketDir(), dir) << "computed again";
    EXPECT_TRUE(std::filesystem::is_directory("/tmp/vqsuite"));
  });
  RunInChild("threadsafe", [] {
    ::setenv("TEMP", "/dev/null/sub", 1);
    OutputCapture capture;
    DutErrNumSet(0);
    EXPECT_STREQ(DutGetSocketDir(), "/dev/null/sub/vqsuite") << "name returned anyway";
    EXPECT_EQ(DutErrNumGet(), D_ERR_C);
    EXPECT_EQ(DutErrNumGetC(), ENOTDIR);
    std::string text = capture.Take();
    EXPECT_TRUE(text.find("WARNING: DutGetSocketDir: Cannot create directory /dev/null/sub\n") != std::string::npos &&
                text.find("mkdir") != std::string::npos && text.find("sub/vqsuite") == std::string::npos)
        << "one warning with the mkdir report: " << text;
  });
}

}  // namespace
