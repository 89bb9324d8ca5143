// The standard option set: every option with its type, flags, legal values,
// verify function and default, the defaults set by command lines, the
// environment override of the protocols, and how the options reach the
// parts of the library that listen to them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

#include "stdopts_support.hpp"
#include "vqutil/command.h"
#include "vqutil/error.h"
#include "vqutil/hash.h"
#include "vqutil/net.h"
#include "vqutil/option.h"
#include "vqutil/stdopt.h"
#include "vqutil/time.h"

namespace {

using stdopts::EnvGuard;
using stdopts::OutputCapture;

constexpr D_INT4 B = D_OPT_TYPE_BOOLEAN;
constexpr D_INT4 E = D_OPT_TYPE_ENUM;
constexpr D_INT4 N = D_OPT_TYPE_NUMERIC;
constexpr D_INT4 S = D_OPT_TYPE_STRING;
constexpr D_INT4 EL = D_OPT_TYPE_ENUM_LIST;
constexpr D_INT4 SL = D_OPT_TYPE_STRING_LIST;

// Defaults computed at start-up rather than written down.
constexpr const char *kSocketDir = "<socket dir>";
constexpr const char *kUnique = "<unique subject>";

struct Expected {
  const char *name;
  D_INT4 type;
  bool required;
  std::vector<std::string> legal;
  D_OPTION_VERIFY_FUNC verify;
  const char *shown;  // DutOptionValToStr of the default with "%g" reals
};

const std::vector<Expected> &StandardTable() {
  static const std::vector<Expected> table = {
      {"backup_name", S, false, {}, nullptr, "UNKNOWN"},
      {"command_feedback", E, true, {"always", "never", "interactive"}, nullptr, "interactive"},
      {"dbms_driver", E, false, {}, nullptr, "vqsdb"},
      {"dbms_driver_arg", S, false, {}, nullptr, "UNKNOWN"},
      {"dbms_table_locking", B, false, {}, nullptr, "UNKNOWN"},
      {"variable_table", S, false, {}, nullptr, "UNKNOWN"},
      {"variable_filter", S, false, {}, nullptr, "UNKNOWN"},
      {"default_primary_key", E, true, {"variable", "slot"}, nullptr, "slot"},
      {"default_class_name", S, true, {}, DutOptionNameCheck, "\"class\""},
      {"default_attr_name", S, true, {}, DutOptionNameCheck, "\"attr\""},
      {"subjects", SL, false, {}, nullptr, "UNKNOWN"},
      {"default_msg_priority", N, true, {}, DutOptionVerifyInt2, "0"},
      {"default_protocols", EL, false, {}, nullptr, "tcp"},
      {"default_subject_prefix", S, false, {}, DutOptionPrefixCheck, "UNKNOWN"},
      {"editor", S, true, {}, nullptr, "\"vi\""},
      {"enable_control_msgs", EL, false, {}, nullptr, "echo, quit, setopt"},
      {"frame_interval", N, true, {}, DutOptionVerifyNonNeg, "0"},
      {"ipc_gmd_directory", S, true, {}, nullptr, kSocketDir},
      {"log_in_data", S, false, {}, DutOptionVerifyLogFile, "UNKNOWN"},
      {"log_in_internal", S, false, {}, DutOptionVerifyLogFile, "UNKNOWN"},
      {"log_in_status", S, false, {}, DutOptionVerifyLogFile, "UNKNOWN"},
      {"log_out_data", S, false, {}, DutOptionVerifyLogFile, "UNKNOWN"},
      {"log_out_internal", S, false, {}, DutOptionVerifyLogFile, "UNKNOWN"},
      {"log_out_status", S, false, {}, DutOptionVerifyLogFile, "UNKNOWN"},
      {"monitor_scope", S, true, {}, DutOptionScopeCheck, "\"/*\""},
      {"playback_check_count", N, false, {}, nullptr, "3"},
      {"project", E, true, {}, nullptr, "vqsuite"},
      {"prompt", S, false, {}, nullptr, "UNKNOWN"},
      {"real_number_format", S, true, {}, DutOptionRealNumberFormatVf, "\"%g\""},
      {"server_auto_connect", B, true, {}, nullptr, "TRUE"},
      {"server_auto_flush_size", N, true, {}, DutOptionVerifyNonNeg, "8192"},
      {"server_delivery_timeout", N, true, {}, DutOptionVerifyNonNeg, "30"},
      {"server_disconnect_mode", E, true, {"gmd_failure", "warm", "gmd_success"}, nullptr, "gmd_failure"},
      {"server_keep_alive_timeout", N, true, {}, DutOptionVerifyNonNeg, "5"},
      {"server_msg_send", B, true, {}, nullptr, "TRUE"},
      {"server_names", SL, true, {}, nullptr, "\"_node\""},
      {"broker_names", SL, true, {}, nullptr, "\"_node\""},
      {"_sna_trace", SL, false, {}, nullptr, "UNKNOWN"},
      {"_sna_trace_file", S, false, {}, nullptr, "UNKNOWN"},
      {"sna_server_node", S, false, {}, nullptr, "\"_node\""},
      {"sna_cpic_lib", S, true, {}, nullptr, "\"wcpic32.dll\""},
      {"server_read_timeout", N, true, {}, DutOptionVerifyNonNeg, "30"},
      {"server_start_delay", N, true, {}, nullptr, "1"},
      {"server_start_max_tries", N, true, {}, nullptr, "1"},
      {"server_start_timeout", N, true, {}, DutOptionVerifyNonNeg, "30"},
      {"server_write_timeout", N, true, {}, DutOptionVerifyNonNeg, "30"},
      {"socket_connect_timeout", N, true, {}, DutOptionVerifyNonNeg, "5"},
      {"time_format", E, true, {}, DutTimeFormatCheck, "UNKNOWN"},
      {"udp_broadcast_timeout", N, true, {}, DutOptionVerifyNonNeg, "5"},
      {"use_encrypt_server", B, false, {}, nullptr, "FALSE"},
      {"encrypt_server_cmd", S, false, {}, nullptr, "\"secsrvd.x\""},
      {"allowed_commands", SL, false, {}, DutOptionVerifyCommand, "UNKNOWN"},
      {"ptm_client_accept_timeout", N, false, {}, nullptr, "60"},
      {"ptm_server_accept_timeout", N, false, {}, nullptr, "60"},
      {"ptm_resolve_timeout", N, false, {}, nullptr, "60"},
      {"ptm_ftp_ack_timeout", N, false, {}, nullptr, "30"},
      {"ptm_auth_module_name", E, false, {}, nullptr, "user"},
      {"ptm_ftpd_reconnect_timeout", N, false, {}, nullptr, "30"},
      {"ptm_resolve_method", E, false, {}, nullptr, "noop"},
      {"ptm_resolve_cache_timeout", N, false, {}, nullptr, "900"},
      {"realm", E, true, {}, nullptr, "quandrel"},
      {"default_encryption_module", E, true, {}, nullptr, "quandrel"},
      {"ptm_auth_credential_timeout", N, false, {}, nullptr, "120"},
      {"ptm_ftp_ack_window", N, false, {}, nullptr, "100"},
      {"unique_subject", S, true, {}, DutOptionUniqueCheck, kUnique},
      {"_conn_init_timeout", N, true, {}, DutOptionVerifyNonNeg, "30"},
      {"_conn_socket_buffer_size", N, true, {}, DutOptionVerifyNonNeg, "49152"},
      {"_winsock_close_timeout", N, true, {}, DutOptionVerifyNonNeg, "5"},
      {"_winsock_connect_max_tries", N, true, {}, DutOptionVerifyNonNeg, "50"},
      {"_server_connect_timeout", N, true, {}, DutOptionVerifyNonNeg, "30"},
      {"_socket_buffer_size", N, true, {}, DutOptionVerifyNonNeg, "0"},
      {"_socket_linger_time", N, false, {}, nullptr, "60"},
      {"_socket_listen_backlog", N, true, {}, DutOptionVerifyNonNeg, "50"},
      {"_conn_read_size_init", N, true, {}, DutOptionVerifyNonNeg, "8192"},
      {"ptm_lock_loops", N, false, {}, DutOptionVerifyNonNeg, "600"},
      {"ptm_lock_delay", N, false, {}, DutOptionVerifyNonNeg, "0.2"},
      {"ptm_lock_trace", B, false, {}, nullptr, "FALSE"},
      {"default_history_buffer_size", N, true, {}, DutOptionVerifyNonNeg, "1000"},
  };
  return table;
}

std::vector<std::string> LegalValues(D_OPTION *option) {
  std::vector<std::string> values;
  if (D_GOPT_TYPE(option) != D_OPT_TYPE_ENUM) return values;
  DutOptionLegValTraverse(
      option,
      [](D_WORD key, D_WORD, void *arg) -> D_WORD {
        static_cast<std::vector<std::string> *>(arg)->emplace_back(reinterpret_cast<const char *>(key));
        return 0;
      },
      &values);
  std::sort(values.begin(), values.end());
  return values;
}

std::string ExpectedShown(const Expected &row) {
  if (row.shown == kSocketDir) return std::string("\"") + DutGetSocketDir() + "\"";
  if (row.shown == kUnique) {
    char unique[D_UNIQUE_SUBJECT_SIZE];
    DutOptionGetUniqueSubjectDefault(unique, ::getpid());
    return std::string("\"") + unique + "\"";
  }
  return row.shown;
}

TEST(StandardOptions, EveryOptionHasItsTypeFlagsLegalValuesAndVerifyFunction) {
  for (const Expected &row : StandardTable()) {
    SCOPED_TRACE(row.name);
    D_OPTION *option = DutOptionLookup(row.name);
    ASSERT_NE(option, nullptr);
    EXPECT_STREQ(D_GOPT_NAME(option), row.name);
    EXPECT_EQ(D_GOPT_TYPE(option), row.type);
    EXPECT_EQ(D_GOPT_REQUIRED(option), row.required ? 1 : 0);
    EXPECT_EQ(D_GOPT_VERIFY_FUNC(option), row.verify);
    std::vector<std::string> legal = row.legal;
    std::sort(legal.begin(), legal.end());
    EXPECT_EQ(LegalValues(option), legal);
    if (row.verify == DutOptionVerifyLogFile) {
      // The log-file check names the kind of messages in its report.
      ASSERT_NE(D_GOPT_VERIFY_ARG(option), nullptr);
    } else {
      EXPECT_EQ(D_GOPT_VERIFY_ARG(option), nullptr);
    }
  }
}

// Defaults are read in a fresh process: other tests of this program change
// options, and the creation itself is what is being tested.
TEST(StandardOptions, FreshProcessHoldsEveryDefaultAndNothingElse) {
  stdopts::InFreshProcess([](stdopts::ChildReport &report) {
    ::unsetenv("VQ_DEFAULT_PROTOCOLS");
    ::unsetenv("VQ_FORCE_NODE_NAME");
    D_HASH_TABLE *table = DutGetOptionTable();
    report.Equal(DutHashGetSize(table), static_cast<D_INT4>(StandardTable().size()), "option count");
    for (const Expected &row : StandardTable()) {
      D_OPTION *option = DutOptionLookup(row.name);
      if (option == nullptr) {
        report.Check(false, std::string("missing ") + row.name);
        continue;
      }
      report.Equal(std::string(DutOptionValToStr(option)), ExpectedShown(row),
                   std::string(row.name) + " shows " + DutOptionValToStr(option));
      report.Equal(D_GOPT_READ_ONLY(option), 0, std::string(row.name) + " read-only");
    }
    // A second trigger creates nothing more.
    DutOptionLookup("editor");
    DutGetOptionTable();
    report.Equal(DutHashGetSize(table), static_cast<D_INT4>(StandardTable().size()), "count after second use");
    // The feedback listener was told the default.
    report.Equal(DutCommandGetFeedbackMode(), static_cast<D_INT4>(D_FEEDBACK_INTERACTIVE), "feedback mode");
  });
}

TEST(StandardOptions, ProtocolsComeFromTheEnvironmentInTheOrderWritten) {
  // One protocol replaces tcp; several keep the order written.
  for (const char *protocols : {"udp, tcp", "decnet"}) {
    EnvGuard given("VQ_DEFAULT_PROTOCOLS", protocols);
    stdopts::InFreshProcess([](stdopts::ChildReport &report) {
      const D_OPTION_STR_NODE *node = nullptr;
      report.Check(DutOptionGetEnumList(DutOptionLookup("default_protocols"), &node), "protocols unknown");
      std::string items;
      for (; node != nullptr; node = node->next) items += std::string(items.empty() ? "" : ", ") + node->str;
      report.Equal(items, std::string(std::getenv("VQ_DEFAULT_PROTOCOLS")), "protocols from the environment");
    });
  }
}

TEST(StandardOptions, ForcedNodeNameShapesTheUniqueSubject) {
  stdopts::InFreshProcess([](stdopts::ChildReport &report) {
    ::setenv("VQ_FORCE_NODE_NAME", "station7.plant.example", 1);
    ::setenv("VQ_FORCE_SHORT_NODE_NAME", "1", 1);
    report.Equal(stdopts::StrValue("unique_subject"), "_station7_" + std::to_string(::getpid()), "short subject");
    // "_node" is a placeholder for whichever host resolves it, not a name.
    report.Equal(stdopts::StrValue("sna_server_node"), std::string("_node"), "sna_server_node");
  });
}

TEST(StandardOptions, UnusableNodeNameLeavesTheUniqueSubjectUnknownButRuns) {
  stdopts::InFreshProcess([](stdopts::ChildReport &report) {
    ::setenv("VQ_FORCE_NODE_NAME", "bad host", 1);
    ::unsetenv("VQ_EXPECT_ABORT");
    D_OPTION *unique = DutOptionLookup("unique_subject");
    report.Check(unique != nullptr, "unique_subject missing");
    if (unique != nullptr) report.Check(!D_GOPT_KNOWN(unique), "a subject with a blank was accepted");
    // The rest of the set is still there.
    report.Check(DutOptionLookup("_conn_read_size_init") != nullptr, "creation stopped early");
  });
}

TEST(StandardOptions, SocketDirectoryFollowsTemp) {
  namespace fs = std::filesystem;
  fs::path base = fs::temp_directory_path() / ("vq-stdopts-temp-" + std::to_string(::getpid()));
  fs::remove_all(base);
  fs::create_directories(base);
  // TEMP itself does not exist yet: both levels are made.
  {
    EnvGuard temp("VQ_STDOPTS_TEMP", (base / "fresh").string());
    stdopts::InFreshProcess([](stdopts::ChildReport &report) {
      ::setenv("TEMP", std::getenv("VQ_STDOPTS_TEMP"), 1);
      const std::string dir = std::string(std::getenv("TEMP")) + "/vqsuite";
      report.Equal(stdopts::StrValue("ipc_gmd_directory"), dir, "directory option");
      report.Check(std::filesystem::is_directory(dir), "directory not created");
    });
  }
  fs::remove_all(base);
}

// ---- The options at work ---------------------------------------------------------

TEST(StandardOptions, FeedbackOptionDrivesTheInterpreter) {
  D_OPTION *feedback = DutOptionLookup("command_feedback");
  ASSERT_NE(feedback, nullptr);
  ASSERT_TRUE(DutOptionSetEnum(feedback, "Never"));
  EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_NEVER);
  ASSERT_TRUE(DutOptionSetEnum(feedback, "always"));
  EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_ALWAYS);
  // A refused value changes neither the option nor the interpreter.
  DutErrNumSet(0);
  EXPECT_FALSE(DutOptionSetEnum(feedback, "sometimes"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_ALWAYS);
  ASSERT_TRUE(DutOptionSetEnum(feedback, "interactive"));
  EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_INTERACTIVE);
}

TEST(StandardOptions, TimeFormatSelectsTheCurrentConverter) {
  D_OPTION *format = DutOptionLookup("time_format");
  ASSERT_NE(format, nullptr);
  ASSERT_TRUE(DutOptionSetEnum(format, "numeric"));
  EXPECT_STREQ(DutTimeNumToStr(1234.5), "1234.5");
  OutputCapture capture;
  DutErrNumSet(0);
  EXPECT_FALSE(DutOptionSetEnum(format, "sundial"));
  // The failed converter lookup's number stands.
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_NE(capture.Take().find("Time converter <sundial> does not exist.\n"), std::string::npos);
  EXPECT_STREQ(DutOptionValToStr(format), "numeric");
  ASSERT_TRUE(DutOptionSetEnum(format, "hms"));
  EXPECT_EQ(std::strlen(DutTimeNumToStr(1234.5)), 8u);  // hh:mm:ss
}

TEST(StandardOptions, LogFileOptionsNameTheirMessages) {
  namespace fs = std::filesystem;
  fs::path dir = fs::temp_directory_path() / ("vq-stdopts-log-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  const std::string file = (dir / "out.log").string();
  OutputCapture capture;
  ASSERT_TRUE(DutOptionSetStr(DutOptionLookup("log_out_status"), file.c_str()));
  EXPECT_EQ(capture.Take(), "Now logging outgoing status messages to <" + file + ">.\n");
  ASSERT_TRUE(DutOptionUnset("log_out_status"));
  fs::remove_all(dir);
}

}  // namespace
