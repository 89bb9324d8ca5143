// The standard option set: defaults that every option's own rules accept,
// the computed defaults, the environment override of the protocols, and
// how the options reach the parts of the library that listen to them.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "stdopts_support.hpp"
#include "vqutil/command.h"
#include "vqutil/error.h"
#include "vqutil/net.h"
#include "vqutil/option.h"
#include "vqutil/stdopt.h"

namespace {

using stdopts::EnvGuard;
using stdopts::OutputCapture;

// Read in a fresh process, whose TEMP names a folder not yet there: other
// tests of this program change options, and the creation itself (making
// both folders of the socket directory) is what is tested. Every option
// holds a default its own rules accept: a required one is known, a known
// one can be set to its value again (verify function and legal values
// passing), only the log-file check takes an argument. The defaults that
// are computed are what they are computed from.
TEST(StandardOptions, FreshProcessHoldsDefaultsTheirOwnRulesAccept) {
  namespace fs = std::filesystem;
  fs::path base = fs::temp_directory_path() / ("vq-stdopts-temp-" + std::to_string(::getpid()));
  fs::remove_all(base);
  fs::create_directories(base);
  EnvGuard temp("VQ_STDOPTS_TEMP", (base / "fresh").string());
  stdopts::InFreshProcess([](stdopts::ChildReport &report) {
    ::unsetenv("VQ_DEFAULT_PROTOCOLS");
    ::setenv("TEMP", std::getenv("VQ_STDOPTS_TEMP"), 1);
    D_INT4 count = 0;
    D_OPTION **options = DutOptionSort(&count);
    report.Check(count >= 74, "too few options: " + std::to_string(count));
    for (D_INT4 i = 0; i < count; ++i) {
      D_OPTION *option = options[i];
      const std::string name = D_GOPT_NAME(option), shown = DutOptionValToStr(option);
      report.Check(D_GOPT_VERIFY_ARG(option) == nullptr || D_GOPT_VERIFY_FUNC(option) == DutOptionVerifyLogFile,
                   name + " has a verify argument");
      if (!D_GOPT_KNOWN(option)) continue;
      const bool again = D_GOPT_TYPE(option) == D_OPT_TYPE_ENUM
                             ? DutOptionSetEnum(option, static_cast<const char *>(D_GOPT_VALUE(option)))
                             : DutOptionSet(name.c_str(), D_GOPT_VALUE(option)) != nullptr;
      report.Check(again, name + " refuses its own default " + shown);
      report.Equal(std::string(DutOptionValToStr(option)), shown, name + " changed by setting it again");
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
      report.Equal(std::string(DutOptionValToStr(DutOptionLookup(name))), shown, name);
    }
    report.Check(std::filesystem::is_directory(dir), "socket dir");
    report.Equal(DutCommandGetFeedbackMode(), static_cast<D_INT4>(D_FEEDBACK_INTERACTIVE), "feedback mode");
  });
  fs::remove_all(base);
}

// The environment's protocols in the order written (one replaces tcp); a
// node name that makes no subject leaves the unique subject unknown
// without stopping the rest.
TEST(StandardOptions, EnvironmentShapesProtocolsAndUniqueSubject) {
  for (const char *protocols : {"udp, tcp", "decnet"}) {
    EnvGuard given("VQ_DEFAULT_PROTOCOLS", protocols);
    EnvGuard bad_node("VQ_FORCE_NODE_NAME", "bad host");
    stdopts::InFreshProcess([](stdopts::ChildReport &report) {
      report.Equal(std::string(DutOptionValToStr(DutOptionLookup("default_protocols"))),
                   std::string(std::getenv("VQ_DEFAULT_PROTOCOLS")), "protocols from the environment");
      report.Check(!D_GOPT_KNOWN(DutOptionLookup("unique_subject")), "a subject with a blank was accepted");
      report.Check(DutOptionLookup("_conn_read_size_init") != nullptr, "creation stopped early");
    });
  }
}

TEST(StandardOptions, FeedbackOptionDrivesTheInterpreter) {
  D_OPTION *feedback = DutOptionLookup("command_feedback");
  ASSERT_TRUE(DutOptionSetEnum(feedback, "Never"));
  EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_NEVER);
  ASSERT_TRUE(DutOptionSetEnum(feedback, "always"));
  EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_ALWAYS);
  // A refused value changes neither the option nor the interpreter.
  EXPECT_FAILS(DutOptionSetEnum(feedback, "sometimes"), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_ALWAYS);
}

}  // namespace
