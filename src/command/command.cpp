// The command and alias tables, line parsing with alias expansion, syntax
// errors, help files, command files, history and the main loop.
//
// A syntax error long-jumps from inside the lexer back to the parse of the
// line, so the parsing frames own nothing with a destructor: plain buffers
// and explicit lock/unlock only.
#include <atomic>
#include <cerrno>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "command/command_internal.hpp"
#include "containers/hash_internal.hpp"
#include "frame/check.hpp"
#include "platform/console.hpp"
#include "platform/fs.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/init.h"
#include "vqutil/interrupt.h"
#include "vqutil/list.h"
#include "vqutil/memory.h"
#include "vqutil/output.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"

namespace {

// Command and help files are found by names built with the platform's separator.
constexpr char kSep = vq::os::kPathSeparator;

constexpr const char *kFile = "command.c";
constexpr D_INT4 kTableSize = 32;
constexpr std::size_t kNameSize = 256;
constexpr int kFileLineSize = 4096;  // lines of up to 4095 characters

D_HASH_TABLE *utCommandTable = nullptr;
D_HASH_TABLE *utAliasTable = nullptr;
D_PQ_HDR utHistory = {nullptr, nullptr};
D_INT4 utHistoryCount = 0;
D_INT4 utFeedbackMode = D_FEEDBACK_INTERACTIVE;
bool utTablesBuilt = false;
// utTablesBuilt for readers outside the lock: every line checks it.
std::atomic<bool> utTablesReady{false};
bool utBuildingTables = false;
D_COMMAND_LINE_READER utLineReader = nullptr;
void *utLineReaderArg = nullptr;

struct LegacyName {
  const char *old_name;
  const char *new_name;
};
constexpr LegacyName kLegacyNames[] = {
    {"join_dg", "subscribe"}, {"leave_dg", "unsubscribe"}, {"retrieve_dg", "retrieve"}};

// What the syntax-error handler needs to know about the line being parsed.
struct ParseContext {
  jmp_buf jump;
  const D_COMMAND *command;  // identified on this line, or null
  char command_name[kNameSize];
};

D_INT4 &parseMode() { return DutGetTsdValue()->parse_mode; }

void syntaxError(D_LEX *lexer, const char *format, va_list args, void *error_arg) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  VQ_ASSERT(format != nullptr, "format_str != NULL", kFile);
  VQ_ASSERT(error_arg != nullptr, "error_ptr != NULL", kFile);
  auto *ctx = static_cast<ParseContext *>(error_arg);
  DutVOut(format, args);
  DutOut("\n");
  if (ctx->command != nullptr) {
    if (DutLexGetToken(lexer) == D_TOK_EOF)
      DutOut("%s: not enough arguments\n", ctx->command_name);
    else
      DutOut("%s: syntax error at or near \"%s\"\n", ctx->command_name, DutLexGetTokenText(lexer));
    DutOut("\nCommand Usage:\n");
    DutCommandHelpPrint(ctx->command_name);
  } else {
    DutOut("bad command <%s> (type \"help\" for help)\n", DutLexGetTokenText(lexer));
  }
  DutLexDestroy(lexer);
  std::longjmp(ctx->jump, D_LEX_JUMP_VALUE);
}

char *copyText(const char *text, const char *label) {
  std::size_t n = std::strlen(text) + 1;
  char *copy = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(n), label, kFile, __LINE__));
  std::memcpy(copy, text, n);
  return copy;
}

// Expands an alias found for name: "value token rest", parsed in the mode
// of the current line. The process lock taken for the lookup stays held
// (one extra hold of the recursive lock), as the interpreter always did.
void expandAlias(D_ALIAS *alias, const char *name, D_LEX *lexer, D_INT4 control_msg) {
  // "value token rest", put together directly: this runs for every line
  // that uses an alias.
  const char *parts[] = {alias->value, DutLexGetTokenText(lexer), vq::command::restOfInput(lexer)};
  std::size_t lengths[3];
  std::size_t n = 3;  // two spaces and the NUL
  for (int i = 0; i < 3; ++i) n += lengths[i] = std::strlen(parts[i]);
  char *line = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(n), "new_command", kFile, __LINE__));
  char *out = line;
  for (int i = 0; i < 3; ++i) {
    if (i > 0) *out++ = ' ';
    std::memcpy(out, parts[i], lengths[i]);
    out += lengths[i];
  }
  *out = '\0';
  alias->in_use = 1;
  if (parseMode() == 0)
    DutCommandParseStrInternal(line, control_msg);
  else
    DutCommandParseTypedStrInternal(line);
  // The expansion may have removed the alias (an alias that unaliases
  // itself): clear the mark of whatever record the name has now.
  alias = vq::command::aliasLookup(name);
  if (alias != nullptr) alias->in_use = 0;
  DutFreeCheck(line, "new_command", kFile, __LINE__);
}

// The common body of the parse operations.
void parseLine(const char *command_string, D_INT4 control_msg) {
  VQ_ASSERT(command_string != nullptr, "command_string != NULL", kFile);
  vq::command::ensureTables();
  ParseContext ctx;
  ctx.command = nullptr;
  ctx.command_name[0] = '\0';
  if (setjmp(ctx.jump) != 0) return;  // a syntax error abandoned the line
  D_LEX *lexer = DutLexCreate(D_LEX_ATT_STRING, command_string, D_LEX_ATT_ERROR_FUNC, syntaxError,
                              D_LEX_ATT_ERROR_ARG, &ctx, 0);
  for (;;) {
    ctx.command = nullptr;
    while (DutLexGetToken(lexer) == D_TOK_COMMAND_SEPARATOR) DutLexAccept(lexer, D_TOK_COMMAND_SEPARATOR);
    if (DutLexGetToken(lexer) == D_TOK_EOF) {
      DutLexDestroy(lexer);
      return;
    }
    DutLexAcceptId(lexer);
    vq::command::copyName(ctx.command_name, sizeof ctx.command_name, DutLexGetText(lexer));

    DutProcessMutexLock();
    D_ALIAS *alias = vq::command::aliasLookup(ctx.command_name);
    if (alias != nullptr && !alias->in_use) {
      expandAlias(alias, ctx.command_name, lexer, control_msg);
      DutLexDestroy(lexer);
      return;
    }
    if (alias != nullptr) {
      DutOut("Alias loop on command <%s>.\n", ctx.command_name);
      alias->in_use = 0;
      DutProcessMutexUnlock();
      DutLexDestroy(lexer);
      return;
    }
    DutProcessMutexUnlock();

    D_COMMAND *command = vq::command::commandFind(ctx.command_name);
    if (command == nullptr) {
      DutOut("bad command <%s> (type \"help\" for help)\n", ctx.command_name);
      DutLexDestroy(lexer);
      return;
    }
    ctx.command = command;
    VQ_EXPECT(control_msg == 0 || control_msg == 1, "D_IS_BOOLEAN(control_msg)", kFile);
    if (control_msg == 1 && !vq::command::controlMessageAllowed(ctx.command_name, command_string)) {
      DutLexDestroy(lexer);
      return;
    }
    if (DutIsCommandAllowed(ctx.command_name))
      command->parse_func(lexer);
    else
      DutOut("Command <%s> has been disable.\n", ctx.command_name);
    // Words the command did not read end the line.
    if (!vq::command::atEndOfCommand(lexer)) {
      DutLexDestroy(lexer);
      return;
    }
  }
}

void parseWithMode(const char *command_string, D_INT4 mode, D_INT4 control_msg) {
  D_TSD_RECORD *record = DutGetTsdValue();  // the thread's own, for the whole line
  D_INT4 saved = record->parse_mode;
  record->parse_mode = mode;
  parseLine(command_string, control_msg);
  record->parse_mode = saved;
}

// Legacy names of commands map to their present names; most lines start
// with a name that matches no legacy first letter.
const char *currentName(const char *name) {
  for (const LegacyName &legacy : kLegacyNames) {
    if ((name[0] | 0x20) == legacy.old_name[0] && DutStrCmpi(name, legacy.old_name) == 0) return legacy.new_name;
  }
  return name;
}

bool fileReadable(const char *name) {
  FILE *f = std::fopen(name, "r");
  if (f == nullptr) return false;
  std::fclose(f);
  return true;
}

// Loads the ".cm" / ".cmd" pair: the new name if it exists, else the old.
bool loadPair(const char *new_name, const char *old_name) {
  bool has_new = fileReadable(new_name);
  bool has_old = fileReadable(old_name);
  if (has_new && has_old)
    DutWarning("Both old <%s> and new <%s> exist: please rename old one.\n", old_name, new_name);
  if (has_new) return DutCommandParseFile(new_name) == D_TRUE;
  if (has_old) return DutCommandParseFile(old_name) == D_TRUE;
  return false;
}

// Help entries: an identifier and one or more strings.
struct HelpSearch {
  jmp_buf jump;
};

void helpError(D_LEX *lexer, const char *, va_list, void *error_arg) {
  DutLexDestroy(lexer);
  std::longjmp(static_cast<HelpSearch *>(error_arg)->jump, D_LEX_JUMP_VALUE);
}

// Prints the item's help from one file: true when the file holds the item.
bool helpFromFile(const char *path, const char *item, D_INT4 help_type, bool *aborted) {
  FILE *volatile f = std::fopen(path, "r");
  if (f == nullptr) return false;
  HelpSearch search;
  volatile bool found = false;
  if (setjmp(search.jump) != 0) {
    std::fclose(f);
    DutOut("Help aborted.\n");
    *aborted = true;
    return found;
  }
  D_LEX *lexer = DutLexCreate(D_LEX_ATT_FILE, static_cast<FILE *>(f), D_LEX_ATT_ERROR_FUNC, helpError,
                              D_LEX_ATT_ERROR_ARG, &search, 0);
  while (!found && DutLexGetToken(lexer) != D_TOK_EOF) {
    DutLexAcceptId(lexer);
    bool match = std::strcmp(DutLexGetText(lexer), item) == 0;
    DutLexAccept(lexer, D_TOK_STRING);
    if (match && help_type == D_HELP_SYNOPSIS) DutOut("%s\n", DutLexGetText(lexer));
    while (DutLexGetToken(lexer) == D_TOK_STRING) {
      DutLexAccept(lexer, D_TOK_STRING);
      if (match && help_type == D_HELP_DETAILED) DutOut("%s\n", DutLexGetText(lexer));
    }
    found = match;
  }
  DutLexDestroy(lexer);
  std::fclose(f);
  return found;
}

}  // namespace

namespace vq::command {

D_HASH_TABLE *commandTable() { return utCommandTable; }
D_HASH_TABLE *aliasTable() { return utAliasTable; }

void ensureTables() {
  if (utTablesReady.load(std::memory_order_acquire)) return;
  DutProcessMutexLock();
  if (utTablesBuilt || utBuildingTables) {
    DutProcessMutexUnlock();
    return;
  }
  utBuildingTables = true;
  utCommandTable = DutHashCreateStr(kTableSize);
  utAliasTable = DutHashCreateStr(kTableSize);
  DutProcessMutexUnlock();
  // The built-ins are registered (and the default aliases parsed) through
  // the public operations, which come back here and find the build running.
  registerBuiltins();
  DutProcessMutexLock();
  utTablesBuilt = true;
  utBuildingTables = false;
  utTablesReady.store(true, std::memory_order_release);
  DutProcessMutexUnlock();
}

D_ALIAS *aliasLookup(const char *name) {
  D_HASH_BUCKET *bucket = vq::hash::find(utAliasTable, reinterpret_cast<D_WORD>(name));
  return bucket != nullptr ? reinterpret_cast<D_ALIAS *>(bucket->value) : nullptr;
}

D_COMMAND *commandFind(const char *name) {
  name = currentName(name);
  DutProcessMutexLock();
  D_HASH_BUCKET *bucket = vq::hash::find(utCommandTable, reinterpret_cast<D_WORD>(name));
  D_COMMAND *command = bucket != nullptr ? reinterpret_cast<D_COMMAND *>(bucket->value) : nullptr;
  DutProcessMutexUnlock();
  return command;
}

void copyName(char *into, std::size_t size, const char *name) {
  std::size_t n = std::strlen(name);
  if (n >= size) n = size - 1;
  std::memcpy(into, name, n);
  into[n] = '\0';
}

void aliasSet(const char *name, const char *value) {
  DutProcessMutexLock();
  D_ALIAS *alias = aliasLookup(name);
  if (alias != nullptr) {
    DutStringCopy(&alias->value, value);
  } else {
    alias = static_cast<D_ALIAS *>(DutCallocCheck(sizeof(D_ALIAS), "alias", kFile, __LINE__));
    alias->name = copyText(name, "alias->name");
    alias->value = copyText(value, "alias->value");
    DutHashInsert(utAliasTable, reinterpret_cast<D_WORD>(alias->name), reinterpret_cast<D_WORD>(alias));
  }
  DutProcessMutexUnlock();
}

bool aliasRemove(const char *name) {
  DutProcessMutexLock();
  D_ALIAS *alias = aliasLookup(name);
  if (alias != nullptr) {
    DutHashDelete(utAliasTable, reinterpret_cast<D_WORD>(name));
    DutFreeCheck(alias->name, "alias->name", kFile, __LINE__);
    DutFreeCheck(alias->value, "alias->value", kFile, __LINE__);
    DutFreeCheck(alias, "alias", kFile, __LINE__);
  }
  DutProcessMutexUnlock();
  return alias != nullptr;
}

const char *restOfInput(D_LEX *lexer) {
  if (lexer->input_string == nullptr) return "";
  // The characters read ahead (the current one and a peeked one) belong to
  // the rest.
  D_INT4 pos = lexer->string_pos;
  if (lexer->cur_char >= 0) --pos;
  if (lexer->peek_char >= 0) --pos;
  if (pos < 0) pos = 0;
  return lexer->input_string + pos;
}

bool feedbackShown() {
  DutProcessMutexLock();
  D_INT4 mode = utFeedbackMode;
  DutProcessMutexUnlock();
  return mode == D_FEEDBACK_ALWAYS || (mode == D_FEEDBACK_INTERACTIVE && parseMode() == 1);
}

bool atEndOfCommand(D_LEX *lexer) {
  D_INT4 token = DutLexGetToken(lexer);
  return token == D_TOK_EOF || token == D_TOK_COMMAND_SEPARATOR;
}

char *readLine(const char *prompt) {
  if (utLineReader != nullptr) return utLineReader(prompt, utLineReaderArg);
  if (prompt != nullptr && vq::os::stdinIsTerminal()) {
    DutOut("%s", prompt);
    std::fflush(stdout);
  }
  std::size_t size = 256;
  std::size_t len = 0;
  char *line = static_cast<char *>(std::malloc(size));
  if (line == nullptr) return nullptr;
  for (;;) {
    if (std::fgets(line + len, static_cast<int>(size - len), stdin) == nullptr) {
      if (len > 0 && !std::ferror(stdin)) break;  // a last line without newline
      std::free(line);
      return nullptr;
    }
    len += std::strlen(line + len);
    if (len > 0 && line[len - 1] == '\n') {
      line[--len] = '\0';
      break;
    }
    if (len + 1 < size) continue;
    size *= 2;
    char *grown = static_cast<char *>(std::realloc(line, size));
    if (grown == nullptr) {
      std::free(line);
      return nullptr;
    }
    line = grown;
  }
  if (len > 0 && line[len - 1] == '\r') line[--len] = '\0';
  return line;
}

}  // namespace vq::command

extern "C" {

// ---- Tables -------------------------------------------------------------------------

D_EXPORT D_COMMAND *DutCommandCreate(const char *name, D_COMMAND_PARSE_FUNC parse_func) {
  if (name == nullptr || parse_func == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  vq::command::ensureTables();
  if (DutCommandLookup(name) != nullptr) {
    DutErrNumSet(D_ERR_ALREADY_EXISTS);
    return nullptr;
  }
  auto *command = static_cast<D_COMMAND *>(DutCallocCheck(sizeof(D_COMMAND), "command", kFile, __LINE__));
  command->name = name;
  command->parse_func = parse_func;
  DutProcessMutexLock();
  DutHashInsert(utCommandTable, reinterpret_cast<D_WORD>(name), reinterpret_cast<D_WORD>(command));
  DutProcessMutexUnlock();
  return command;
}

D_EXPORT D_COMMAND *DutCommandLookup(const char *name) {
  if (name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  vq::command::ensureTables();
  return vq::command::commandFind(name);  // absent is not an error here
}

D_EXPORT D_BOOL DutCommandDestroy(D_COMMAND *command) {
  if (command == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  DutProcessMutexLock();
  auto *del_command =
      reinterpret_cast<D_COMMAND *>(DutHashDelete(utCommandTable, reinterpret_cast<D_WORD>(command->name)));
  DutProcessMutexUnlock();
  VQ_ASSERT(del_command == command, "del_command == command", kFile);
  DutFreeCheck(command, "command", kFile, __LINE__);
  return D_TRUE;
}

D_EXPORT D_BOOL DutCommandSetParseFunc(D_COMMAND *command, D_COMMAND_PARSE_FUNC parse_func) {
  if (command == nullptr || parse_func == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  command->parse_func = parse_func;
  return D_TRUE;
}

D_EXPORT D_BOOL DutCommandSetHidden(D_COMMAND *command, D_INT4 hidden) {
  if (command == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  command->hidden = hidden;
  return D_TRUE;
}

// ---- Parsing ------------------------------------------------------------------------

D_EXPORT void DutCommandParseStr(const char *command_string) { DutCommandParseStrInternal(command_string, 0); }

D_EXPORT void DutCommandParseStrInternal(const char *command_string, D_INT4 control_msg) {
  parseWithMode(command_string, 0, control_msg);
}

D_EXPORT void DutCommandParseTypedStr(const char *command_string) { DutCommandParseTypedStrInternal(command_string); }

D_EXPORT void DutCommandParseTypedStrInternal(const char *command_string) { parseWithMode(command_string, 1, 0); }

D_EXPORT D_BOOL DutCommandParseFile(const char *file_name) {
  if (file_name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  FILE *f = DutOpenFile(file_name, "r");
  if (f == nullptr) {
    DutOut("ERROR: Cannot open file <%s> for reading.\n", file_name);
    return D_FALSE;
  }
  char *line = static_cast<char *>(DutMallocCheck(kFileLineSize, "line", kFile, __LINE__));
  while (std::fgets(line, kFileLineSize, f) != nullptr) {
    std::size_t n = std::strlen(line);
    while (n > 0 && (line[n - 1] == '\n' || line[n - 1] == '\r')) line[--n] = '\0';
    DutCommandParseStr(line);
  }
  DutFreeCheck(line, "line", kFile, __LINE__);
  DutCloseFile(f);
  return D_TRUE;
}

D_EXPORT D_BOOL DutCommandParseStd(const char *module_name, const char *local_file_name) {
  if (module_name == nullptr || local_file_name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  char cm[4096];
  char cmd[4096];
  const char *home = std::getenv("VQHOME");
  if (home == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  std::snprintf(cm, sizeof cm, "%s%cstandard%c%s.cm", home, kSep, kSep, module_name);
  std::snprintf(cmd, sizeof cmd, "%s%cstandard%c%s.cmd", home, kSep, kSep, module_name);
  if (!loadPair(cm, cmd)) DutWarning("Cannot open command file <%s> for reading.\n", cm);

  const char *user_home = std::getenv("HOME");
  if (user_home != nullptr) {
    std::snprintf(cm, sizeof cm, "%s%c%s.cm", user_home, kSep, module_name);
    std::snprintf(cmd, sizeof cmd, "%s%c%s.cmd", user_home, kSep, module_name);
    loadPair(cm, cmd);
  }

  std::size_t n = std::strlen(local_file_name);
  if (n >= 4 && std::strcmp(local_file_name + n - 4, ".cmd") == 0) {
    std::snprintf(cm, sizeof cm, "%.*s", static_cast<int>(n - 1), local_file_name);
    std::snprintf(cmd, sizeof cmd, "%s", local_file_name);
  } else {
    std::snprintf(cm, sizeof cm, "%s", local_file_name);
    std::snprintf(cmd, sizeof cmd, "%sd", local_file_name);
  }
  if (loadPair(cm, cmd)) return D_TRUE;
  bool optional = (std::strcmp(module_name, "vqserver") == 0 && std::strcmp(local_file_name, "vqserver.cm") == 0) ||
                  (std::strcmp(module_name, "vqbroker") == 0 && std::strcmp(local_file_name, "vqbroker.cm") == 0);
  if (!optional) DutOut("Cannot open command file <%s> for reading.\n", local_file_name);
  return D_TRUE;
}

// ---- History ------------------------------------------------------------------------

D_EXPORT void DutCommandRecordString(const char *command_string) {
  VQ_ASSERT(command_string != nullptr, "command_string != NULL", kFile);
  if (DutIsWhiteEmptyOrNullStr(command_string)) return;
  char *copy = copyText(command_string, "history_line");
  DutProcessMutexLock();
  DutPqAdd(&utHistory, copy);
  ++utHistoryCount;
  DutProcessMutexUnlock();
}

D_EXPORT D_INT4 DutCommandHistoryCount(void) {
  DutProcessMutexLock();
  D_INT4 n = utHistoryCount;
  DutProcessMutexUnlock();
  return n;
}

D_EXPORT const char *DutCommandHistoryLine(D_INT4 n) {
  DutProcessMutexLock();
  const char *line = nullptr;
  D_INT4 i = 1;
  for (D_PQ_NODE *p = utHistory.front; p != nullptr; p = p->next, ++i) {
    if (i == n) {
      line = static_cast<const char *>(p->ptr);
      break;
    }
  }
  DutProcessMutexUnlock();
  return line;
}

// ---- Main loop and prompts ------------------------------------------------------------

D_EXPORT void DutCommandSetLineReader(D_COMMAND_LINE_READER reader, void *arg) {
  DutProcessMutexLock();
  utLineReader = reader;
  utLineReaderArg = arg;
  DutProcessMutexUnlock();
}

D_EXPORT void DutCommandMainLoop(void) {
  DutInterruptInit();
  vq::command::ensureTables();
  DutOut("Type 'help' for help.\n");
  for (;;) {
    char *line = vq::command::readLine(vq::command::promptText());
    if (line == nullptr) {
      // An interrupt ends the read; only a true end of input ends the loop.
      if (DutInterruptGet() != 0) {
        DutInterruptReset();
        std::clearerr(stdin);
        DutOut("\n");
        continue;
      }
      return;
    }
    if (line[0] == '\0') {
      std::free(line);
      continue;
    }
    const char *command_line = line;
    D_INT4 count = DutCommandHistoryCount();
    if (DutStrCmpi(line, "!!") == 0) {
      if (count == 0) {
        DutOut("No history available.\n");
        std::free(line);
        continue;
      }
      command_line = DutCommandHistoryLine(count);
    } else if (line[0] == '!') {
      const char *prefix = line + 1;
      const char *match = nullptr;
      for (D_INT4 i = count; i >= 1 && match == nullptr; --i) {
        const char *h = DutCommandHistoryLine(i);
        if (prefix[0] == '!' || DutStriStartsWith(h, prefix)) match = h;
      }
      if (match == nullptr) {
        DutOut("No history matching <%s> available.\n", line);
        std::free(line);
        continue;
      }
      command_line = match;
    }
    // Copy before recording: the history may move while the line is used.
    char *copy = copyText(command_line, "command_line");
    std::free(line);
    DutCommandRecordString(copy);
    DutCommandParseTypedStr(copy);
    DutFreeCheck(copy, "command_line", kFile, __LINE__);
  }
}

D_EXPORT D_BOOL DutCommandGetYesOrNo(const char *prompt) {
  VQ_ASSERT(prompt != nullptr, "prompt", kFile);
  for (;;) {
    DutOut("%s", prompt);
    std::fflush(stdout);
    char *volatile line = vq::command::readLine(nullptr);
    if (line == nullptr) return D_FALSE;
    HelpSearch quiet;
    if (setjmp(quiet.jump) != 0) {
      std::free(line);
      return D_FALSE;
    }
    D_LEX *lexer = DutLexCreate(D_LEX_ATT_STRING, static_cast<const char *>(line), D_LEX_ATT_ERROR_FUNC, helpError,
                                D_LEX_ATT_ERROR_ARG, &quiet, 0);
    int answer = -1;
    if (DutLexGetToken(lexer) == D_TOK_IDENTIFIER) {
      const char *word = DutLexGetTokenText(lexer);
      if (std::strcmp(word, "yes") == 0 || std::strcmp(word, "y") == 0) answer = 1;
      if (std::strcmp(word, "no") == 0 || std::strcmp(word, "n") == 0) answer = 0;
    }
    DutLexDestroy(lexer);
    std::free(line);
    if (answer >= 0) return answer;
    DutOut("Please enter yes or no.\n");
  }
}

// ---- Feedback -----------------------------------------------------------------------

D_EXPORT void DutCommandPrintFeedback(const char *format, ...) {
  if (!vq::command::feedbackShown()) return;
  va_list args;
  va_start(args, format);
  DutVOut(format, args);
  va_end(args);
}

D_EXPORT D_INT4 DutCommandGetFeedbackMode(void) {
  DutProcessMutexLock();
  D_INT4 mode = utFeedbackMode;
  DutProcessMutexUnlock();
  return mode;
}

D_EXPORT D_BOOL DutCommandSetFeedbackMode(D_INT4 mode) {
  if (mode != D_FEEDBACK_INTERACTIVE && mode != D_FEEDBACK_NEVER && mode != D_FEEDBACK_ALWAYS) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  DutProcessMutexLock();
  utFeedbackMode = mode;
  DutProcessMutexUnlock();
  return D_TRUE;
}

// ---- Help -----------------------------------------------------------------------------

D_EXPORT void DutHelpPrint(const char *category, const char *item, D_INT4 help_type) {
  VQ_ASSERT(help_type == D_HELP_SYNOPSIS || help_type == D_HELP_DETAILED,
            "help_type == D_HELP_SYNOPSIS || help_type == D_HELP_DETAILED", kFile);
  const char *home = std::getenv("VQHOME");
  if (home == nullptr) {
    DutWarning("Environment variable %s is not set.\n", "VQHOME");
    DutWarning("Aborting help.\n");
    return;
  }
  char path[4096];
  bool aborted = false;
  std::snprintf(path, sizeof path, "%s%chelp%c%s%c%s.hlp", home, kSep, kSep, category, kSep, DutGetProcessType());
  if (helpFromFile(path, item, help_type, &aborted) || aborted) return;
  std::snprintf(path, sizeof path, "%s%chelp%c%s%ccommon.hlp", home, kSep, kSep, category, kSep);
  if (helpFromFile(path, item, help_type, &aborted) || aborted) return;
  DutOut("no help available for %s\n", item);
}

D_EXPORT void DutCommandHelpPrint(const char *command) {
  VQ_ASSERT(command != nullptr, "command != NULL", kFile);
  DutHelpPrint("commands", command, D_HELP_DETAILED);
}

}  // extern "C"
