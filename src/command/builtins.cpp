// The built-in commands (those that do not work on options; the option
// commands live beside the option checks in command_options.cpp).
//
// Each parse function reads its own arguments from the lexer; a failed
// accept long-jumps to the parse of the line, so nothing here owns an
// object with a destructor.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "command/command_internal.hpp"
#include "frame/check.hpp"
#include "platform/console.hpp"
#include "vqutil/callback.h"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/init.h"
#include "vqutil/interrupt.h"
#include "vqutil/memory.h"
#include "vqutil/module.h"
#include "vqutil/output.h"
#include "vqutil/platform.h"
#include "vqutil/safestr.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"
#include "vqutil/time.h"

namespace vq::command {
// The option commands (command_options.cpp).
void parseSetopt(D_LEX *lexer);
void parseUnsetopt(D_LEX *lexer);
void parseHelpopt(D_LEX *lexer);
}  // namespace vq::command

namespace {

constexpr const char *kFile = "command.c";

using vq::command::atEndOfCommand;

// The stats command's previous run.
struct Stats {
  D_INT4 cpu_ms;
  D_REAL8 wall;
  D_UINT4 frames;
  D_UWORD sbrk;
};
Stats utLastStats = {0, 0.0, 0, 0};

// Truncation to a 32-bit count, with values beyond it held at its ends.
D_INT4 toInt(D_REAL8 value) {
  if (!(value == value)) return 0;  // NaN
  if (value >= 2147483647.0) return 2147483647;
  if (value <= -2147483648.0) return -2147483647 - 1;
  return static_cast<D_INT4>(value);
}

D_INT4 acceptInt(D_LEX *lexer) {
  DutLexAccept(lexer, D_TOK_UNSIGNED_NUMBER);
  return toInt(DutLexGetValue(lexer));
}

void parseAbort(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  DutCommandPrintFeedback("Aborting process\n");
  DutWinEndWinsock();
  if (std::getenv("VQ_ABORT_NATIVE") == nullptr) vq::os::exitImmediately(2);
  std::abort();
}

void parseAlarm(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  DutOut("alarm is not supported by Windows\n");
}

// The command never checked the number and still confirms any; a number
// beyond the array changes nothing rather than another flag.
void setDebugFlag(D_INT4 n, unsigned char on) {
  if (n >= 0 && n < D_DEBUG_FLAG_COUNT) DutGetDebugFlags()[n] = on;
}

void parseDebugOn(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  D_INT4 n = acceptInt(lexer);
  setDebugFlag(n, 1);
  DutCommandPrintFeedback("Debugging flag %ld turned on\n", static_cast<long>(n));
}

void parseDebugOff(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  D_INT4 n = acceptInt(lexer);
  setDebugFlag(n, 0);
  DutCommandPrintFeedback("Debugging flag %ld turned off\n", static_cast<long>(n));
}

void parseDebugSet(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  DutLexAcceptFileName(lexer);
  const char *name = DutLexGetText(lexer);
  DutDebugClose();
  DutDebugOpen(name);
  DutCommandPrintFeedback("Debugging file set to %s\n", name);
}

void parsePrintSbrk(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  DutOut("Current break is %ld\n", static_cast<long>(DutWinGetCurrentSbrk()));
}

void parseSetFdLimit(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  DutOut("The _set_fd_limit command does not exist on this architecture.\n");
}

void parseSetFrameCount(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (atEndOfCommand(lexer)) {
    DutOut("Frame Count is %ld\n", static_cast<long>(*DutFrameCountGetPtr()));
    return;
  }
  D_REAL8 value = DutLexAcceptSignedReal(lexer);
  *DutFrameCountGetPtr() = static_cast<D_UINT4>(toInt(value));
  DutOut("Frame count is now %ld\n", static_cast<long>(*DutFrameCountGetPtr()));
}

void parseSetTime(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (atEndOfCommand(lexer)) {
    DutOut("Current time is %s\n", DutRealToStr(DutGetCurrentTime()));
    return;
  }
  D_REAL8 value = DutLexAcceptSignedReal(lexer);
  DutSetCurrentTime(value);
  DutOut("Current time is now %s\n", DutRealToStr(DutGetCurrentTime()));
}

void parseSigint(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (atEndOfCommand(lexer)) {
    DutCommandPrintFeedback("Incrementing interrupt counter.\n");
    DutInterruptIncr();
    return;
  }
  DutLexAcceptId(lexer);
  const char *word = DutLexGetText(lexer);
  if (DutStrCmpi(word, "incr") == 0) {
    DutCommandPrintFeedback("Incrementing interrupt counter.\n");
    DutInterruptIncr();
  } else if (DutStrCmpi(word, "init") == 0) {
    DutCommandPrintFeedback("Initializing interrupt handler.\n");
    DutInterruptInit();
  } else if (DutStrCmpi(word, "reset") == 0) {
    DutCommandPrintFeedback("Resetting interrupt counter.\n");
    DutInterruptReset();
  } else if (DutStrCmpi(word, "get") == 0) {
    DutCommandPrintFeedback("Interrupt counter is %ld\n", static_cast<long>(DutInterruptGet()));
  } else {
    DutOut("ERROR: Bad argument for _sigint command.\n");
  }
  if (!atEndOfCommand(lexer)) DutOut("ERROR: Too many arguments for _sigint command.\n");
}

void parseSleep(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  D_REAL8 seconds = DutLexAcceptSignedReal(lexer);
  DutWinSleep(seconds);
}

void parsePutenv(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  DutLexAccept(lexer, D_TOK_STRING);
  const char *text = DutLexGetText(lexer);
  // The environment keeps the string: it is never freed.
  std::size_t n = std::strlen(text) + 1;
  char *copy = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(n), "(enviroment)", kFile, __LINE__));
  std::memcpy(copy, text, n);
  if (!vq::os::putEnv(copy)) DutWarning("utCommandParsePutenv: putenv could not allocate memory.\n");
}

// A per-thread text buffer for the commands that gather words: a syntax
// error long-jumps out of them, so nothing they own may need freeing.
struct Scratch {
  D_SAFE_STRING text = DutSafeStringCreate();
  ~Scratch() { DutSafeStringDestroy(text); }
};

D_SAFE_STRING &scratchText() {
  thread_local Scratch scratch;
  DutSafeStringClear(&scratch.text);
  return scratch.text;
}

// Gathers the texts of the tokens up to the end of the command, a white-space
// token becoming one blank except just before the end.
void gatherWords(D_LEX *lexer, D_SAFE_STRING *into) {
  D_INT4 saved = lexer->white_space_flag;
  lexer->white_space_flag = 1;
  // The token after the command name was read without white space; the
  // blank before it was already skipped.
  while (!atEndOfCommand(lexer)) {
    if (DutLexGetToken(lexer) == D_TOK_WHITE_SPACE) {
      DutLexAccept(lexer, D_TOK_WHITE_SPACE);
      if (!atEndOfCommand(lexer)) DutSafeStringAppendChar(into, ' ');
      continue;
    }
    DutSafeStringAppend(into, DutLexGetTokenText(lexer));
    DutLexAccept(lexer, DutLexGetToken(lexer));
  }
  lexer->white_space_flag = saved;
}

void parseEcho(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  D_SAFE_STRING &text = scratchText();
  gatherWords(lexer, &text);
  DutOut("%s\n", D_SAFE_STRING_STR(text));
}

void parseSh(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (atEndOfCommand(lexer)) {
    DutSystem("");
    return;
  }
  D_SAFE_STRING &text = scratchText();
  gatherWords(lexer, &text);
  DutCommandPrintFeedback("sh command executing with string: %s\n", D_SAFE_STRING_STR(text));
  DutSystem(D_SAFE_STRING_STR(text));
}

void parseAlias(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (atEndOfCommand(lexer)) {
    DutProcessMutexLock();
    D_INT4 count = 0;
    D_WORD *aliases = DutHashSort(vq::command::aliasTable(), &count, nullptr, nullptr);
    for (D_INT4 i = 0; i < count; ++i) {
      auto *alias = reinterpret_cast<D_ALIAS *>(aliases[i]);
      DutOut("%s\t%s\n", alias->name, alias->value);
    }
    if (aliases != nullptr) DutFreeCheck(aliases, "aliases", kFile, __LINE__);
    DutProcessMutexUnlock();
    return;
  }
  DutLexAcceptId(lexer);
  char name[256];
  std::snprintf(name, sizeof name, "%s", DutLexGetText(lexer));
  if (atEndOfCommand(lexer)) {
    DutProcessMutexLock();
    D_ALIAS *alias = vq::command::aliasLookup(name);
    if (alias != nullptr)
      DutOut("%s\n", alias->value);
    else
      DutOut("alias: <%s> not found\n", name);
    DutProcessMutexUnlock();
    return;
  }
  // The value: the following token texts joined by one blank.
  D_SAFE_STRING &value = scratchText();
  while (!atEndOfCommand(lexer)) {
    if (D_SAFE_STRING_LENGTH(value) > 0) DutSafeStringAppendChar(&value, ' ');
    DutSafeStringAppend(&value, DutLexGetTokenText(lexer));
    DutLexAccept(lexer, DutLexGetToken(lexer));
  }
  vq::command::aliasSet(name, D_SAFE_STRING_STR(value));
  DutCommandPrintFeedback("Alias %s installed\n", name);
}

void parseUnalias(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  DutLexAcceptId(lexer);
  const char *name = DutLexGetText(lexer);
  if (vq::command::aliasRemove(name))
    DutCommandPrintFeedback("Unalias command executed for alias %s\n", name);
  else
    DutOut("No alias named <%s>.\n", name);
}

void parseCd(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  const char *dir = nullptr;
  if (atEndOfCommand(lexer)) {
    dir = std::getenv("HOME");
    if (dir == nullptr) {
      DutOut("cd: cannot find HOME directory\n");
      dir = "";  // still tried, so that the failure reports why
    }
  } else {
    DutLexAcceptFileName(lexer);
    dir = DutLexGetText(lexer);
  }
  if (vq::os::changeDirectory(dir)) {
    DutCommandPrintFeedback("Current directory changed to %s\n", dir);
    return;
  }
  DutErrNumSetC(0);
  DutPerror(dir);
}

void parseEdit(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  DutLexAcceptFileName(lexer);
  const char *name = DutLexGetText(lexer);
  DutCommandPrintFeedback("Editing file %s\n", name);
  DutEditFile(name, 1);
}

// Sorting commands by name for the help listing.
D_INT4 byName(D_WORD a, D_WORD b) {
  return std::strcmp(reinterpret_cast<const char *>(a), reinterpret_cast<const char *>(b));
}

void parseHelp(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (!atEndOfCommand(lexer)) {
    DutLexAcceptId(lexer);
    const char *name = DutLexGetText(lexer);
    if (DutCommandLookup(name) != nullptr)
      DutCommandHelpPrint(name);
    else
      DutOut("ERROR: Unknown Command <%s>\n", name);
    return;
  }
  DutOut("Legal Commands Are:\n");
  DutProcessMutexLock();
  D_INT4 count = 0;
  D_WORD *commands = DutHashSort(vq::command::commandTable(), &count, byName, nullptr);
  DutProcessMutexUnlock();
  for (D_INT4 i = 0; i < count; ++i) {
    auto *command = reinterpret_cast<D_COMMAND *>(commands[i]);
    if (command->name[0] == '_' || command->hidden) continue;
    DutHelpPrint("commands", command->name, D_HELP_SYNOPSIS);
  }
  if (commands != nullptr) DutFreeCheck(commands, "commands", kFile, __LINE__);
}

void parseHistory(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  D_INT4 count = DutCommandHistoryCount();
  D_INT4 first = 1;
  if (!atEndOfCommand(lexer)) {
    D_INT4 n = acceptInt(lexer);
    if (count > 0) {
      VQ_ASSERT(count >= 1, "history_size >= 1", kFile);
      if (n < count) first = count - n + 1;
    }
  }
  for (D_INT4 i = first; i <= count; ++i) DutOut("%4ld: %s\n", static_cast<long>(i), DutCommandHistoryLine(i));
}

void runQuitCallbacks() {
  D_CB_TYPE *type = DutCbTypeNumLookup(D_CB_TYPE_QUIT);
  if (type == nullptr) return;
  D_CB_DATA data = {nullptr};
  DutCbTypeCall(type, nullptr, &data);
}

void parseQuit(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (atEndOfCommand(lexer)) {
    if (!DutCommandGetYesOrNo("Really quit? ")) return;
    DutCommandPrintFeedback("This process is now exiting.\n");
    std::exit(0);
  }
  DutLexAcceptId(lexer);
  const char *word = DutLexGetText(lexer);
  if (std::strcmp(word, "force") != 0) {
    DutOut("Don't know how to quit <%s>\n", word);
    return;
  }
  runQuitCallbacks();
  DutCommandPrintFeedback("This process is now exiting.\n");
  std::exit(0);
}

void parseSource(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (atEndOfCommand(lexer)) {
    DutOut("source: not enough arguments\n");
    return;
  }
  DutLexAcceptFileName(lexer);
  // The file's lines reuse the lexer machinery: keep our own copy of the name.
  char name[4096];
  std::snprintf(name, sizeof name, "%s", DutLexGetText(lexer));
  DutCommandPrintFeedback("Executing source command with file %s\n", name);
  DutCommandParseFile(name);
}

void parseStats(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  if (!atEndOfCommand(lexer)) {
    DutWarning("stats: too many arguments\n");
    return;
  }
  D_REAL8 wall = DutGetWallTime();
  D_INT4 cpu_ms = static_cast<D_INT4>(DutGetCpuTime());
  D_UWORD sbrk = DutWinGetCurrentSbrk();
  D_UINT4 frames = *DutFrameCountGetPtr();
  char text[64];
  DutOut("Total accumulated CPU time: %s seconds\n", DutRealToStrCopy(cpu_ms * 0.001, text));
  DutOut("Total frames processed: %ld\n", static_cast<long>(frames));
  DutOut("Current sbrk address: %" PRIuPTR "\n", sbrk);
  DutProcessMutexLock();
  Stats last = utLastStats;
  utLastStats = Stats{cpu_ms, wall, frames, sbrk};
  DutProcessMutexUnlock();
  if (last.cpu_ms == 0) return;
  D_REAL8 wall_diff = wall - last.wall;
  long frame_diff = static_cast<long>(frames) - static_cast<long>(last.frames);
  char text2[64];
  DutOut("Differences since last stats command:\n");
  DutOut("  CPU time, %s seconds", DutRealToStrCopy((cpu_ms - last.cpu_ms) * 0.001, text));
  DutOut(", wall time, %s seconds\n", DutRealToStrCopy(wall_diff, text2));
  DutOut("  Frame count: %ld, Frame rate: %s frames per wall second\n", frame_diff,
         DutRealToStrCopy(wall_diff != 0.0 ? static_cast<D_REAL8>(frame_diff) / wall_diff : 0.0, text));
  long change = static_cast<long>(sbrk) - static_cast<long>(last.sbrk);
  DutOut("  Sbrk address changed by %d bytes.\n", static_cast<int>(change < 0 ? -change : change));
}

void parseLoad(D_LEX *lexer) {
  VQ_ASSERT(lexer != nullptr, "lexer != NULL", kFile);
  DutLexAcceptId(lexer);
  const char *name = DutLexGetText(lexer);
  if (DptModuleLookup(name) != nullptr) return;
  if (DptModuleCreate(name, 0) == nullptr) {
    DutOut("Cannot load module <%s>\n", name);
    return;
  }
  DutErrNumSet(0);
  DutCommandPrintFeedback("Module %s has been loaded.\n", name);
}

struct Builtin {
  const char *name;
  D_COMMAND_PARSE_FUNC func;
  bool asserted;  // registration checked fatally rather than reported
};

constexpr Builtin kBuiltins[] = {
    {"_abort", parseAbort, false},
    {"_alarm", parseAlarm, false},
    {"_debug_on", parseDebugOn, false},
    {"_debug_off", parseDebugOff, false},
    {"_debug_set", parseDebugSet, false},
    {"_print_sbrk", parsePrintSbrk, false},
    {"_set_fd_limit", parseSetFdLimit, false},
    {"_set_frame_count", parseSetFrameCount, false},
    {"_set_time", parseSetTime, false},
    {"_sigint", parseSigint, false},
    {"_sleep", parseSleep, true},
    {"_putenv", parsePutenv, true},
    {"alias", parseAlias, false},
    {"cd", parseCd, false},
    {"echo", parseEcho, false},
    {"edit", parseEdit, false},
    {"help", parseHelp, false},
    {"helpopt", vq::command::parseHelpopt, false},
    {"history", parseHistory, false},
    {"quit", parseQuit, false},
    {"setopt", vq::command::parseSetopt, false},
    {"sh", parseSh, false},
    {"source", parseSource, false},
    {"stats", parseStats, false},
    {"unalias", parseUnalias, false},
    {"unsetopt", vq::command::parseUnsetopt, false},
    {"load", parseLoad, false},
};

constexpr const char *kDefaultAliases[] = {"alias exit quit force", "alias ls sh ls", "alias pwd sh pwd"};

}  // namespace

namespace vq::command {

void registerBuiltins() {
  for (const Builtin &b : kBuiltins) {
    D_COMMAND *command = DutCommandCreate(b.name, b.func);
    if (b.asserted)
      VQ_ASSERT(command != nullptr, "D_NULL != command", kFile);
    else
      VQ_EXPECT(command != nullptr, "D_NULL != command", kFile);
  }
  for (const char *line : kDefaultAliases) DutCommandParseStr(line);
}

}  // namespace vq::command
