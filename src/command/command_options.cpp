// Where the command interpreter meets the options: the option commands
// (setopt, unsetopt, helpopt), control-message checks, the prompt, the
// permitted-commands list and the feedback option.
#include <cstring>

#include "command/command_internal.hpp"
#include "frame/check.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"
#include "vqutil/option.h"
#include "vqutil/output.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

namespace {

constexpr const char *kFile = "command.c";
constexpr D_INT4 kAllowedTableSize = 30;

// Null: every command is permitted.
D_HASH_TABLE *utAllowedCommands = nullptr;

// Skips the tokens left in the current command.
void skipCommand(D_LEX *lexer) {
  while (!vq::command::atEndOfCommand(lexer)) DutLexAccept(lexer, DutLexGetToken(lexer));
}

}  // namespace

namespace vq::command {

bool controlMessageAllowed(const char *name, const char *line) {
  D_OPTION *option = DutOptionLookup("enable_control_msgs");
  VQ_ASSERT(option != nullptr, "D_NULL != option", kFile);
  if (!D_GOPT_KNOWN(option)) {
    DutOut("Enable_Control_Msgs is UNKNOWN: disallow command <%s>.\n", line);
    return false;
  }
  const D_OPTION_STR_NODE *node = nullptr;
  if (D_GOPT_TYPE(option) == D_OPT_TYPE_STRING_LIST)
    DutOptionGetStrList(option, &node);
  else
    DutOptionGetEnumList(option, &node);
  for (; node != nullptr; node = node->next) {
    if (DutStrCmpi(node->str, name) == 0 || DutStrCmpi(node->str, "_all") == 0) return true;
  }
  DutOut("Enable_Control_Msgs no match: disallow command <%s>.\n", line);
  return false;
}

const char *promptText() {
  D_OPTION *option = DutOptionLookup("prompt");
  const char *prompt = nullptr;
  if (option != nullptr && D_GOPT_KNOWN(option) && D_GOPT_TYPE(option) == D_OPT_TYPE_STRING)
    DutOptionGetStr(option, &prompt);
  return prompt != nullptr ? prompt : "> ";
}

void parseSetopt(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (atEndOfCommand(lexer)) {
    DutOptionDump(nullptr, DutOut);
    return;
  }
  DutLexAcceptId(lexer);
  char name[256];
  copyName(name, sizeof name, DutLexGetText(lexer));
  if (atEndOfCommand(lexer)) {
    DutOptionDump(name, DutOut);
    return;
  }
  D_OPTION *option = DutOptionLookup(name);
  if (option == nullptr) {
    DutOut("setopt: unknown option <%s>.\n", name);
    skipCommand(lexer);
    return;
  }
  DutErrNumSet(0);
  if (!DutOptionParseValue(option, lexer)) {
    if (DutErrNumGet() == D_ERR_READ_ONLY) DutOut("Cannot set <%s>: option is currently read only.\n", name);
    skipCommand(lexer);
    return;
  }
  if (!D_GOPT_KNOWN(option))
    DutCommandPrintFeedback("Option %s set to UNKNOWN.\n", name);
  else if (feedbackShown())  // formatting the value costs; skip it when silent
    DutCommandPrintFeedback("Option %s set to %s.\n", name, DutOptionValToStr(option));
  // Unread words are left where they are: they end the line.
  if (!atEndOfCommand(lexer))
    DutOut("setopt %s: too many arguments (stopped at %s)\n", name, DutLexGetTokenText(lexer));
}

void parseUnsetopt(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  DutLexAcceptId(lexer);
  const char *name = DutLexGetText(lexer);
  D_OPTION *option = DutOptionLookup(name);
  if (option == nullptr) {
    DutOut("Cannot unset <%s>: no such option.\n", name);
    return;
  }
  DutErrNumSet(0);
  if (DutOptionSetUnknown(option)) {
    DutCommandPrintFeedback("Option %s unset\n", name);
    return;
  }
  D_INT4 err = DutErrNumGet();
  if (err == D_ERR_VAL_REQUIRED)
    DutOut("Cannot unset <%s>: option is required.\n", name);
  else if (err == D_ERR_READ_ONLY)
    DutOut("Cannot unset <%s>: option is currently read only.\n", name);
  else
    DutWarning("unsetopt: Unexpected error code %ld from DutOptionSetUnknown.\n", static_cast<long>(err));
}

void parseHelpopt(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (!atEndOfCommand(lexer)) {
    DutLexAcceptId(lexer);
    const char *name = DutLexGetText(lexer);
    if (DutOptionLookup(name) != nullptr)
      DutHelpPrint("options", name, D_HELP_DETAILED);
    else
      DutOut("ERROR: Unknown Option <%s>\n", name);
    return;
  }
  DutOut("Legal Options Are:\n");
  D_INT4 count = 0;
  D_OPTION **options = DutOptionSort(&count);
  for (D_INT4 i = 0; i < count; ++i) {
    if (D_GOPT_NAME(options[i])[0] == '_') continue;
    DutHelpPrint("options", D_GOPT_NAME(options[i]), D_HELP_SYNOPSIS);
  }
  if (options != nullptr) DutFreeCheck(options, "options", kFile, __LINE__);
}

}  // namespace vq::command

extern "C" {

D_EXPORT D_BOOL DutIsCommandAllowed(const char *command_name) {
  if (command_name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (DutStrCmpi(command_name, "setopt") == 0) return D_TRUE;
  DutProcessMutexLock();
  D_BOOL allowed = D_TRUE;
  if (utAllowedCommands != nullptr) {
    D_INT4 before = DutErrNumGet();
    allowed = DutHashLookupBucket(utAllowedCommands, reinterpret_cast<D_WORD>(command_name)) != nullptr;
    if (!allowed) DutErrNumSet(before);
  }
  DutProcessMutexUnlock();
  return allowed;
}

D_EXPORT D_BOOL DutOptionVerifyCommand(D_OPTION *option, void *new_value, void *dummy) {
  VQ_ASSERT(option != nullptr, "option != NULL", kFile);
  VQ_ASSERT(dummy == nullptr, "dummy == NULL", kFile);
  // The list can be set once.
  if (D_GOPT_READ_ONLY(option)) return D_FALSE;
  auto *names = static_cast<const D_OPTION_STR_NODE *>(new_value);
  DutProcessMutexLock();
  bool had_table = utAllowedCommands != nullptr;
  if (had_table) {
    DutHashDestroyFreeKey(utAllowedCommands);
    utAllowedCommands = nullptr;
  }
  // An empty list after a list: everything is permitted again. An empty
  // list as the first one: only setopt is (an empty table), as intended.
  if (names == nullptr && had_table) {
    DutProcessMutexUnlock();
    return D_TRUE;
  }
  utAllowedCommands = DutHashCreateStri(kAllowedTableSize);
  for (const D_OPTION_STR_NODE *node = names; node != nullptr; node = node->next) {
    const char *command_name = node->str;
    VQ_ASSERT(command_name != nullptr, "command_name != NULL", kFile);
    if (DutCommandLookup(command_name) == nullptr) {
      DutOut("The option <%s> contains command <%s> which is not a valid command.\n", D_GOPT_NAME(option),
             command_name);
      // The names before the bad one stay permitted: the refusal leaves the
      // process restricted rather than opening every command again.
      DutProcessMutexUnlock();
      DutErrNumSet(D_ERR_VAL_INVALID);
      return D_FALSE;
    }
    // The table keeps copies: the option's value may be replaced later.
    if (DutHashLookupBucket(utAllowedCommands, reinterpret_cast<D_WORD>(command_name)) == nullptr)
      DutHashInsert(utAllowedCommands, reinterpret_cast<D_WORD>(DutStrDup(command_name)), 1);
  }
  DutProcessMutexUnlock();
  DutOptionSetReadOnly(option, 1);
  return D_TRUE;
}

D_EXPORT void DutCbCommandSetFeedback(void *option, void *data, D_WORD arg) {
  VQ_ASSERT(option != nullptr, "D_NULL != option", kFile);
  VQ_ASSERT(data != nullptr, "D_NULL != data", kFile);
  VQ_ASSERT(arg == 0, "D_NULL == arg", kFile);
  const char *value = static_cast<const char *>(static_cast<D_OPTION_CHANGE_DATA *>(data)->value);
  if (value == nullptr) return;
  if (DutStrCmpi(value, "always") == 0)
    DutCommandSetFeedbackMode(D_FEEDBACK_ALWAYS);
  else if (DutStrCmpi(value, "never") == 0)
    DutCommandSetFeedbackMode(D_FEEDBACK_NEVER);
  else if (DutStrCmpi(value, "interactive") == 0)
    DutCommandSetFeedbackMode(D_FEEDBACK_INTERACTIVE);
  else
    DutOut("Invalid value <%s> for option command_feedback\n", value);
}

}  // extern "C"
