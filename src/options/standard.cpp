// The library's standard options: one table row per option, created in
// row order the first time the option table is touched.
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "frame/check.hpp"
#include "options/option_internal.hpp"
#include "platform/os.hpp"
#include "vqutil/command.h"
#include "vqutil/net.h"
#include "vqutil/stdopt.h"
#include "vqutil/time.h"

namespace {

constexpr const char *kFile = "option.c";

enum class Default {
  None,
  Bool,
  Num,
  Text,          // enumerated and string defaults through the typed setters
  CommandLine,   // a setopt line run through the command interpreter
  SocketDir,     // DutGetSocketDir()
  UniqueSubject  // the default unique subject of this process
};

struct StandardOption {
  const char *name;
  D_INT4 type;
  bool required = false;
  std::array<const char *, 4> legal_values = {};  // null-terminated when shorter
  D_OPTION_VERIFY_FUNC verify = nullptr;
  const char *verify_arg = nullptr;  // the kind of messages a log-file option logs
  Default default_kind = Default::None;
  D_INT4 default_bool = 0;
  D_REAL8 default_num = 0.0;
  const char *default_text = nullptr;  // text, or the whole command line
  D_CB_FUNC change_cb = nullptr;       // attached before the default is set
  const char *env_override = nullptr;  // "setopt <name> $VAR" when VAR is set
  const char *then_run = nullptr;      // a line run after this option is done
};

constexpr D_INT4 B = D_OPT_TYPE_BOOLEAN;
constexpr D_INT4 E = D_OPT_TYPE_ENUM;
constexpr D_INT4 N = D_OPT_TYPE_NUMERIC;
constexpr D_INT4 S = D_OPT_TYPE_STRING;
constexpr D_INT4 EL = D_OPT_TYPE_ENUM_LIST;
constexpr D_INT4 SL = D_OPT_TYPE_STRING_LIST;

#if defined(_WIN32)
constexpr const char *kDefaultEditor = "notepad";
#else
constexpr const char *kDefaultEditor = "vi";
#endif

constexpr StandardOption text(const char *name, D_INT4 type, bool required, const char *value,
                              D_OPTION_VERIFY_FUNC verify = nullptr) {
  return {.name = name, .type = type, .required = required, .verify = verify, .default_kind = Default::Text,
          .default_text = value};
}

constexpr StandardOption num(const char *name, bool required, D_REAL8 value, D_OPTION_VERIFY_FUNC verify = nullptr) {
  return {.name = name, .type = N, .required = required, .verify = verify, .default_kind = Default::Num,
          .default_num = value};
}

constexpr StandardOption boolean(const char *name, bool required, bool value) {
  return {.name = name, .type = B, .required = required, .default_kind = Default::Bool,
          .default_bool = value ? 1 : 0};
}

constexpr StandardOption line(const char *name, D_INT4 type, const char *command_line) {
  return {.name = name, .type = type, .default_kind = Default::CommandLine, .default_text = command_line};
}

constexpr StandardOption unset(const char *name, D_INT4 type, bool required = false,
                               D_OPTION_VERIFY_FUNC verify = nullptr) {
  return {.name = name, .type = type, .required = required, .verify = verify};
}

constexpr StandardOption logFile(const char *name, const char *kind) {
  return {.name = name, .type = S, .verify = DutOptionVerifyLogFile, .verify_arg = kind};
}

const StandardOption kStandardOptions[] = {
    unset("backup_name", S),
    {.name = "command_feedback", .type = E, .required = true, .legal_values = {"always", "never", "interactive"},
     .default_kind = Default::Text, .default_text = "interactive", .change_cb = DutCbCommandSetFeedback},
    text("dbms_driver", E, false, "vqsdb"),
    unset("dbms_driver_arg", S),
    unset("dbms_table_locking", B),
    unset("variable_table", S),
    unset("variable_filter", S),
    {.name = "default_primary_key", .type = E, .required = true, .legal_values = {"variable", "slot"},
     .default_kind = Default::Text, .default_text = "slot"},
    text("default_class_name", S, true, "class", DutOptionNameCheck),
    text("default_attr_name", S, true, "attr", DutOptionNameCheck),
    unset("subjects", SL),
    num("default_msg_priority", true, 0, DutOptionVerifyInt2),
    {.name = "default_protocols", .type = EL, .default_kind = Default::CommandLine,
     .default_text = "setopt default_protocols tcp", .env_override = "VQ_DEFAULT_PROTOCOLS"},
    unset("default_subject_prefix", S, false, DutOptionPrefixCheck),
    text("editor", S, true, kDefaultEditor),
    line("enable_control_msgs", EL, "setopt enable_control_msgs echo, quit"),
    num("frame_interval", true, 0, DutOptionVerifyNonNeg),
    {.name = "ipc_gmd_directory", .type = S, .required = true, .default_kind = Default::SocketDir},
    logFile("log_in_data", "incoming data"),
    logFile("log_in_internal", "incoming internal"),
    logFile("log_in_status", "incoming status"),
    logFile("log_out_data", "outgoing data"),
    logFile("log_out_internal", "outgoing internal"),
    logFile("log_out_status", "outgoing status"),
    text("monitor_scope", S, true, "/*", DutOptionScopeCheck),
    num("playback_check_count", false, 3),
    text("project", E, true, "vqsuite"),
    unset("prompt", S),
    text("real_number_format", S, true, "%g", DutOptionRealNumberFormatVf),
    boolean("server_auto_connect", true, true),
    num("server_auto_flush_size", true, 8192, DutOptionVerifyNonNeg),
    num("server_delivery_timeout", true, 30, DutOptionVerifyNonNeg),
    {.name = "server_disconnect_mode", .type = E, .required = true,
     .legal_values = {"gmd_failure", "warm", "gmd_success"}, .default_kind = Default::Text,
     .default_text = "gmd_failure"},
    num("server_keep_alive_timeout", true, 5, DutOptionVerifyNonNeg),
    boolean("server_msg_send", true, true),
    {.name = "server_names", .type = SL, .required = true, .default_kind = Default::CommandLine,
     .default_text = "setopt server_names _node"},
    {.name = "broker_names", .type = SL, .required = true, .default_kind = Default::CommandLine,
     .default_text = "setopt broker_names _node"},
    unset("_sna_trace", SL),
    unset("_sna_trace_file", S),
    text("sna_server_node", S, false, "_node"),
    text("sna_cpic_lib", S, true, "wcpic32.dll"),
    num("server_read_timeout", true, 30, DutOptionVerifyNonNeg),
    num("server_start_delay", true, 1),
    num("server_start_max_tries", true, 1),
    num("server_start_timeout", true, 30, DutOptionVerifyNonNeg),
    num("server_write_timeout", true, 30, DutOptionVerifyNonNeg),
    num("socket_connect_timeout", true, 5, DutOptionVerifyNonNeg),
    unset("time_format", E, true, DutTimeFormatCheck),
    num("udp_broadcast_timeout", true, 5, DutOptionVerifyNonNeg),
    boolean("use_encrypt_server", false, false),
    text("encrypt_server_cmd", S, false, "secsrvd.x"),
    unset("allowed_commands", SL, false, DutOptionVerifyCommand),
    line("ptm_client_accept_timeout", N, "setopt ptm_client_accept_timeout 60.0"),
    line("ptm_server_accept_timeout", N, "setopt ptm_server_accept_timeout 60.0"),
    line("ptm_resolve_timeout", N, "setopt ptm_resolve_timeout 60.0"),
    line("ptm_ftp_ack_timeout", N, "setopt ptm_ftp_ack_timeout 30.0"),
    // The control messages allowed by default grow by setopt once the
    // authentication module exists.
    {.name = "ptm_auth_module_name", .type = E, .default_kind = Default::CommandLine,
     .default_text = "setopt ptm_auth_module_name user", .then_run = "setopt enable_control_msgs echo, quit, setopt"},
    line("ptm_ftpd_reconnect_timeout", N, "setopt ptm_ftpd_reconnect_timeout 30.0"),
    line("ptm_resolve_method", E, "setopt ptm_resolve_method noop"),
    line("ptm_resolve_cache_timeout", N, "setopt ptm_resolve_cache_timeout 900"),
    text("realm", E, true, "quandrel"),
    text("default_encryption_module", E, true, "quandrel"),
    line("ptm_auth_credential_timeout", N, "setopt ptm_auth_credential_timeout 120.0"),
    line("ptm_ftp_ack_window", N, "setopt ptm_ftp_ack_window 100.0"),
    {.name = "unique_subject", .type = S, .required = true, .verify = DutOptionUniqueCheck,
     .default_kind = Default::UniqueSubject},
    num("_conn_init_timeout", true, 30, DutOptionVerifyNonNeg),
    num("_conn_socket_buffer_size", true, 49152, DutOptionVerifyNonNeg),
    num("_winsock_close_timeout", true, 5, DutOptionVerifyNonNeg),
    num("_winsock_connect_max_tries", true, 50, DutOptionVerifyNonNeg),
    num("_server_connect_timeout", true, 30, DutOptionVerifyNonNeg),
    num("_socket_buffer_size", true, 0, DutOptionVerifyNonNeg),
    num("_socket_linger_time", false, 60),
    num("_socket_listen_backlog", true, 50, DutOptionVerifyNonNeg),
    num("_conn_read_size_init", true, 8192, DutOptionVerifyNonNeg),
    num("default_history_buffer_size", true, 1000, DutOptionVerifyNonNeg),
};

// Runs a setopt line as the program's own (no feedback unless the mode is
// "always"); the option must hold a value afterwards.
void runLine(D_OPTION *option, const char *command_line) {
  DutCommandParseStr(command_line);
  VQ_EXPECT(D_GOPT_KNOWN(option), "D_TRUE == D_GOPT_KNOWN(option)", kFile);
}

void setDefault(D_OPTION *option, const StandardOption &row) {
  D_BOOL status = D_TRUE;
  switch (row.default_kind) {
    case Default::None:
      return;
    case Default::Bool:
      status = DutOptionSetBool(option, row.default_bool);
      break;
    case Default::Num:
      status = DutOptionSetNum(option, row.default_num);
      break;
    case Default::Text:
      status = row.type == D_OPT_TYPE_ENUM ? DutOptionSetEnum(option, row.default_text)
                                           : DutOptionSetStr(option, row.default_text);
      break;
    case Default::SocketDir:
      status = DutOptionSetStr(option, DutGetSocketDir());
      break;
    case Default::UniqueSubject: {
      // A forced node name may not make a valid subject; the process can
      // still run and set the option itself, so this only warns.
      char unique[D_UNIQUE_SUBJECT_SIZE];
      DutOptionGetUniqueSubjectDefault(unique, static_cast<D_WORD>(vq::os::processId()));
      VQ_EXPECT(DutOptionSetStr(option, unique) == D_TRUE, "D_TRUE == status", kFile);
      return;
    }
    case Default::CommandLine:
      runLine(option, row.default_text);
      return;
  }
  VQ_ASSERT(status == D_TRUE, "D_TRUE == status", kFile);
}

// The user's own value: it may fail to parse (the default stays) or be
// "unknown", neither of which is the library's fault.
void overrideFromEnvironment(const StandardOption &row) {
  if (row.env_override == nullptr) return;
  const char *value = std::getenv(row.env_override);
  if (value == nullptr) return;
  std::string command_line = "setopt ";
  command_line += row.name;
  command_line += ' ';
  command_line += value;
  DutCommandParseStr(command_line.c_str());
}

}  // namespace

namespace vq::options {

void createStandardOptions() {
  for (const StandardOption &row : kStandardOptions) {
    D_OPTION *option = DutOptionCreate(row.name, row.type);
    VQ_ASSERT(option != nullptr, "option != NULL", kFile);
    D_BOOL status = D_TRUE;
    if (row.required) {
      status = DutOptionSetRequired(option, 1);
      VQ_ASSERT(status == D_TRUE, "status == TRUE", kFile);
    }
    for (const char *legal : row.legal_values) {
      if (legal == nullptr) break;
      status = DutOptionLegValAdd(option, legal);
      VQ_ASSERT(status == D_TRUE, "status == TRUE", kFile);
    }
    if (row.verify != nullptr) {
      status = DutOptionSetVerifyFunc(option, row.verify, const_cast<char *>(row.verify_arg));
      VQ_ASSERT(status == D_TRUE, "status == TRUE", kFile);
    }
    // The callback goes on before the default, so that whatever the option
    // says is also what its listener was told.
    if (row.change_cb != nullptr) {
      D_CB *cb = DutOptionChangeCbCreate(option, row.change_cb, 0);
      VQ_ASSERT(cb != nullptr, "D_NULL != cb", kFile);
    }
    setDefault(option, row);
    overrideFromEnvironment(row);
    if (row.then_run != nullptr) DutCommandParseStr(row.then_run);
  }
}

}  // namespace vq::options
