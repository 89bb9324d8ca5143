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

constexpr D_OPTION_VERIFY_FUNC kNonNeg = DutOptionVerifyNonNeg;
constexpr D_OPTION_VERIFY_FUNC kLogFile = DutOptionVerifyLogFile;

// Name, type, required, DutOptionValToStr of the default with "%g" reals,
// verify function, legal values.
struct Expected {
  const char *name;
  D_INT4 type;
  int required;
  const char *shown;
  D_OPTION_VERIFY_FUNC verify = nullptr;
  std::vector<std::string> legal = {};
};

const std::vector<Expected> &StandardTable() {
  static const std::vector<Expected> table = {
      {"backup_name", S, 0, "UNKNOWN"},
      {"command_feedback", E, 1, "interactive", nullptr, {"always", "never", "interactive"}},
      {"dbms_driver", E, 0, "vqsdb"}, {"dbms_driver_arg", S, 0, "UNKNOWN"}, {"dbms_table_locking", B, 0, "UNKNOWN"},
      {"variable_table", S, 0, "UNKNOWN"}, {"variable_filter", S, 0, "UNKNOWN"},
      {"default_primary_key", E, 1, "slot", nullptr, {"variable", "slot"}},
      {"default_class_name", S, 1, "\"class\"", DutOptionNameCheck},
      {"default_attr_name", S, 1, "\"attr\"", DutOptionNameCheck}, {"subjects", SL, 0, "UNKNOWN"},
      {"default_msg_priority", N, 1, "0", DutOptionVerifyInt2}, {"default_protocols", EL, 0, "tcp"},
      {"default_subject_prefix", S, 0, "UNKNOWN", DutOptionPrefixCheck}, {"editor", S, 1, "\"vi\""},
      {"enable_control_msgs", EL, 0, "echo, quit, setopt"}, {"frame_interval", N, 1, "0", kNonNeg},
      {"ipc_gmd_directory", S, 1, kSocketDir}, {"log_in_data", S, 0, "UNKNOWN", kLogFile},
      {"log_in_internal", S, 0, "UNKNOWN", kLogFile}, {"log_in_status", S, 0, "UNKNOWN", kLogFile},
      {"log_out_data", S, 0, "UNKNOWN", kLogFile}, {"log_out_internal", S, 0, "UNKNOWN", kLogFile},
      {"log_out_status", S, 0, "UNKNOWN", kLogFile}, {"monitor_scope", S, 1, "\"/*\"", DutOptionScopeCheck},
      {"playback_check_count", N, 0, "3"}, {"project", E, 1, "vqsuite"}, {"prompt", S, 0, "UNKNOWN"},
      {"real_number_format", S, 1, "\"%g\"", DutOptionRealNumberFormatVf}, {"server_auto_connect", B, 1, "TRUE"},
      {"server_auto_flush_size", N, 1, "8192", kNonNeg}, {"server_delivery_timeout", N, 1, "30", kNonNeg},
      {"server_disconnect_mode", E, 1, "gmd_failure", nullptr, {"gmd_failure", "warm", "gmd_success"}},
      {"server_keep_alive_timeout", N, 1, "5", kNonNeg}, {"server_msg_send", B, 1, "TRUE"},
      {"server_names", SL, 1, "\"_node\""}, {"broker_names", SL, 1, "\"_node\""}, {"_sna_trace", SL, 0, "UNKNOWN"},
      {"_sna_trace_file", S, 0, "UNKNOWN"}, {"sna_server_node", S, 0, "\"_node\""},
      {"sna_cpic_lib", S, 1, "\"wcpic32.dll\""}, {"server_read_timeout", N, 1, "30", kNonNeg},
      {"server_start_delay", N, 1, "1"}, {"server_start_max_tries", N, 1, "1"},
      {"server_start_timeout", N, 1, "30", kNonNeg}, {"server_write_timeout", N, 1, "30", kNonNeg},
      {"socket_connect_timeout", N, 1, "5", kNonNeg}, {"time_format", E, 1, "UNKNOWN", DutTimeFormatCheck},
      {"udp_broadcast_timeout", N, 1, "5", kNonNeg}, {"use_encrypt_server", B, 0, "FALSE"},
      {"encrypt_server_cmd", S, 0, "\"secsrvd.x\""}, {"allowed_commands", SL, 0, "UNKNOWN", DutOptionVerifyCommand},
      {"ptm_client_accept_timeout", N, 0, "60"}, {"ptm_server_accept_timeout", N, 0, "60"},
      {"ptm_resolve_timeout", N, 0, "60"}, {"ptm_ftp_ack_timeout", N, 0, "30"},
      {"ptm_auth_module_name", E, 0, "user"}, {"ptm_ftpd_reconnect_timeout", N, 0, "30"},
      {"ptm_resolve_method", E, 0, "noop"}, {"ptm_resolve_cache_timeout", N, 0, "900"}, {"realm", E, 1, "quandrel"},
      {"default_encryption_module", E, 1, "quandrel"}, {"ptm_auth_credential_timeout", N, 0, "120"},
      {"ptm_ftp_ack_window", N, 0, "100"}, {"unique_subject", S, 1, kUnique, DutOptionUniqueCheck},
      {"_conn_init_timeout", N, 1, "30", kNonNeg}, {"_conn_socket_buffer_size", N, 1, "49152", kNonNeg},
      {"_winsock_close_timeout", N, 1, "5", kNonNeg}, {"_winsock_connect_max_tries", N, 1, "50", kNonNeg},
      {"_server_connect_timeout", N, 1, "30", kNonNeg}, {"_socket_buffer_size", N, 1, "0", kNonNeg},
      {"_socket_linger_time", N, 0, "60"}, {"_socket_listen_backlog", N, 1, "50", kNonNeg},
      {"_conn_read_size_init", N, 1, "8192", kNonNeg},
  };
  return table;
}

// The legal values of an enumerated option, sorted.
std::vector<std::string> LegalValues(D_OPTION *option) {
  std::vector<std::string> values;
  auto collect = [](D_WORD key, D_WORD, void *arg) -> D_WORD {
    static_cast<std::vector<std::string> *>(arg)->emplace_back(reinterpret_cast<const char *>(key));
    return 0;
  };
  if (D_GOPT_TYPE(option) == D_OPT_TYPE_ENUM) DutOptionLegValTraverse(option, collect, &values);
  std::sort(values.begin(), values.end());
  return values;
}

// Defaults are read in a fresh process, whose TEMP names a folder not yet
// there: other tests of this program change options, and the creation
// itself (making both folders of the socket directory) is what is tested.
TEST(StandardOptions, FreshProcessHoldsEveryOptionAsDefinedAndNothingElse) {
  namespace fs = std::filesystem;
  fs::path base = fs::temp_directory_path() / ("vq-stdopts-temp-" + std::to_string(::getpid()));
  fs::remove_all(base);
  fs::create_directories(base);
  EnvGuard temp("VQ_STDOPTS_TEMP", (base / "fresh").string());
  stdopts::InFreshProcess([](stdopts::ChildReport &report) {
    ::unsetenv("VQ_DEFAULT_PROTOCOLS");
    ::unsetenv("VQ_FORCE_NODE_NAME");
    ::setenv("TEMP", std::getenv("VQ_STDOPTS_TEMP"), 1);
    D_HASH_TABLE *table = DutGetOptionTable();
    report.Equal(DutHashGetSize(table), static_cast<D_INT4>(StandardTable().size()), "option count");
    for (const Expected &row : StandardTable()) {
      const std::string name = row.name;
      D_OPTION *option = DutOptionLookup(row.name);
      if (option == nullptr) {
        report.Check(false, "missing " + name);
        continue;
      }
      std::vector<std::string> legal = row.legal;
      std::sort(legal.begin(), legal.end());
      report.Equal(D_GOPT_TYPE(option), row.type, name + " type");
      report.Equal(D_GOPT_REQUIRED(option), row.required, name + " required");
      report.Equal(D_GOPT_READ_ONLY(option), 0, name + " read-only");
      report.Check(D_GOPT_VERIFY_FUNC(option) == row.verify, name + " verify function");
      // Only the log-file check takes an argument: the kind of messages it names.
      report.Equal(D_GOPT_VERIFY_ARG(option) != nullptr, row.verify == DutOptionVerifyLogFile, name + " verify arg");
      report.Equal(LegalValues(option), legal, name + " legal values");
      char unique[D_UNIQUE_SUBJECT_SIZE];
      DutOptionGetUniqueSubjectDefault(unique, ::getpid());
      const std::string shown = row.shown == kSocketDir ? std::string("\"") + DutGetSocketDir() + "\""
                                : row.shown == kUnique  ? std::string("\"") + unique + "\""
                                                        : row.shown;
      report.Equal(std::string(DutOptionValToStr(option)), shown, name + " shows " + DutOptionValToStr(option));
    }
    report.Check(std::filesystem::is_directory(std::string(std::getenv("TEMP")) + "/vqsuite"), "socket dir");
    // A second trigger creates nothing more.
    DutOptionLookup("editor");
    report.Equal(DutHashGetSize(table), static_cast<D_INT4>(StandardTable().size()), "count after second use");
    // The feedback listener was told the default.
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

TEST(StandardOptions, FeedbackAndLogFileOptionsReachTheirListeners) {
  D_OPTION *feedback = DutOptionLookup("command_feedback");
  ASSERT_TRUE(DutOptionSetEnum(feedback, "Never"));
  EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_NEVER);
  ASSERT_TRUE(DutOptionSetEnum(feedback, "always"));
  EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_ALWAYS);
  // A refused value changes neither the option nor the interpreter.
  EXPECT_FAILS(DutOptionSetEnum(feedback, "sometimes"), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_EQ(DutCommandGetFeedbackMode(), D_FEEDBACK_ALWAYS);

  namespace fs = std::filesystem;
  const std::string file = (fs::temp_directory_path() / ("vq-stdopts-" + std::to_string(::getpid()) + ".log")).string();
  OutputCapture capture;
  ASSERT_TRUE(DutOptionSetStr(DutOptionLookup("log_out_status"), file.c_str()));
  EXPECT_EQ(capture.Take(), "Now logging outgoing status messages to <" + file + ">.\n");
  ASSERT_TRUE(DutOptionUnset("log_out_status"));
  fs::remove(file);
}

}  // namespace
