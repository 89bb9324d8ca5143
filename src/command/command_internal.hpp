// Internals shared by the command interpreter's files.
#pragma once

#include <cstddef>

#include "vqutil/command.h"
#include "vqutil/hash.h"

namespace vq::command {

// Builds the command and alias tables, the built-in commands and the
// default aliases on first use. Callers need not hold the lock.
void ensureTables();
// Registers the built-in commands and parses the default aliases; called
// once by ensureTables.
void registerBuiltins();

// The tables; valid after ensureTables, guarded by the process-wide lock.
D_HASH_TABLE *commandTable();
D_HASH_TABLE *aliasTable();

// The command of a name (legacy names included), or null; takes the lock
// and leaves the error number alone.
D_COMMAND *commandFind(const char *name);

// Copies a name into a fixed buffer, cut to fit.
void copyName(char *into, std::size_t size, const char *name);

// Alias helpers for the alias and unalias commands (under the lock).
D_ALIAS *aliasLookup(const char *name);
void aliasSet(const char *name, const char *value);
bool aliasRemove(const char *name);

// The text of the input after the current token, for alias expansion and
// for commands that take the rest of their line.
const char *restOfInput(D_LEX *lexer);

// Option-dependent checks (the option family may be absent from a
// process's configuration; these answer as if no option were set).
// A control message may run the command when "enable_control_msgs" lists
// it (or "_all"); prints the refusal otherwise.
bool controlMessageAllowed(const char *name, const char *line);
// The prompt of the main loop.
const char *promptText();

// Reads one line for the main loop or the yes-or-no prompt: the host's
// reader when one is installed, else standard input. The result is
// allocated with malloc; null at end of input.
char *readLine(const char *prompt);

// Whether DutCommandPrintFeedback would print now (so that callers skip
// formatting what nobody sees).
bool feedbackShown();

// The current token is the end of input or a command separator.
bool atEndOfCommand(D_LEX *lexer);

}  // namespace vq::command
