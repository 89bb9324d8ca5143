/**
 * @defgroup command Command interpreter
 * The command interpreter.
 *
 * Processes are driven by short text commands: typed at a console (the main
 * loop), read from command files, or handed over as strings (including
 * control messages from other processes). A command is a name and a parse
 * function that reads its own arguments from the lexer (lex.h), which is
 * positioned on the first token after the name. Aliases replace a command
 * name by their value and consume the rest of their line. Commands on one
 * line are separated by ";".
 *
 * A syntax error inside a command prints the lexer's message, the command's
 * usage from the help files and abandons the rest of the line.
 *
 * Help files: $VQHOME/help/commands and $VQHOME/help/options hold
 * "<process type>.hlp" and "common.hlp"; each entry is an identifier and
 * one or more strings: the synopsis, then the detailed help.
 *
 * Feedback (confirmations of the built-in commands) is shown as the mode
 * says: interactive (only for typed lines), never, or always.
 *
 * Ownership: a command's name is kept by pointer and must outlive the
 * command; aliases and history lines are the library's own copies.
 *
 * Thread safety: the command, alias and history tables and the feedback
 * mode are guarded by the process-wide lock; parse functions run without
 * it (except inside an alias expansion). The parse mode (typed or not) is
 * per thread.
 * @{
 */
/**
 * @file
 * @ingroup command
 * @brief Command interpreter (command).
 */
#ifndef VQUTIL_COMMAND_H
#define VQUTIL_COMMAND_H

#include "lex.h"
#include "option.h"
#include "types.h"

/** @{ */
/** Feedback modes. */
#define D_FEEDBACK_INTERACTIVE 0
#define D_FEEDBACK_NEVER 1
#define D_FEEDBACK_ALWAYS 2
/** @} */

/** @{ */
/** Help kinds. */
#define D_HELP_SYNOPSIS 0
#define D_HELP_DETAILED 1
/** @} */

/** The command separator token. */
#define D_TOK_COMMAND_SEPARATOR D_TOK_SEMICOLON

/** A parse function: reads its arguments from the lexer and acts. */
typedef void (*D_COMMAND_PARSE_FUNC)(D_LEX *lexer);

/** A command: its name, what parses it, and whether help lists it. */
typedef struct D_COMMAND {
  const char *name;                /**< the caller's text, kept by pointer */
  D_COMMAND_PARSE_FUNC parse_func; /**< reads the arguments and acts */
  D_INT4 hidden;                   /**< left out of the "help" listing */
} D_COMMAND;

/** An alias: a name that expands to a command text. */
typedef struct D_ALIAS {
  char *name;    /**< the alias */
  char *value;   /**< the text it expands to */
  D_INT4 in_use; /**< set while the alias is being expanded */
} D_ALIAS;

/** A host's own line reader for the main loop: shows the prompt, returns a
 * line allocated with malloc (without its newline; the library frees it),
 * or null at end of input (with errno EINTR when an interrupt ended it). */
typedef char *(*D_COMMAND_LINE_READER)(const char *prompt, void *arg);

D_BEGIN_DECLS

/** Creates a command. Null name or function: D_ERR_NULL_PTR; an existing
 * name: D_ERR_ALREADY_EXISTS. */
D_EXPORT D_COMMAND *DutCommandCreate(const char *name, D_COMMAND_PARSE_FUNC parse_func);
/** The command, after mapping the legacy names join_dg, leave_dg and
 * retrieve_dg; null when absent (no error number). */
D_EXPORT D_COMMAND *DutCommandLookup(const char *name);
/** Removes the command from the table and frees it. Null command:
 * D_ERR_NULL_PTR, D_FALSE. */
D_EXPORT D_BOOL DutCommandDestroy(D_COMMAND *command);
/** Replaces the parse function. Null command or function: D_ERR_NULL_PTR,
 * D_FALSE. */
D_EXPORT D_BOOL DutCommandSetParseFunc(D_COMMAND *command, D_COMMAND_PARSE_FUNC parse_func);
/** Sets whether "help" leaves the command out. Null command:
 * D_ERR_NULL_PTR, D_FALSE. */
D_EXPORT D_BOOL DutCommandSetHidden(D_COMMAND *command, D_INT4 hidden);

/** Parses a line as given by the program (feedback only in "always" mode). */
D_EXPORT void DutCommandParseStr(const char *command_string);
/** control_msg 1: the line came from another process and must pass the
 * option "enable_control_msgs". */
D_EXPORT void DutCommandParseStrInternal(const char *command_string, D_INT4 control_msg);
/** @{ */
/** Parse a line as typed by a user (feedback in "interactive" mode). */
D_EXPORT void DutCommandParseTypedStr(const char *command_string);
D_EXPORT void DutCommandParseTypedStrInternal(const char *command_string);
/** @} */
/** Parses every line of a file. A file that cannot be opened prints an
 * error and answers D_FALSE (no error number). */
D_EXPORT D_BOOL DutCommandParseFile(const char *file_name);
/** The standard command files of a module: $VQHOME/standard/&lt;module&gt;.cm,
 * $HOME/&lt;module&gt;.cm and the local file (each also as the older ".cmd"). */
D_EXPORT D_BOOL DutCommandParseStd(const char *module_name, const char *local_file_name);

/** Appends a copy of the line to the history (blank lines are not kept). */
D_EXPORT void DutCommandRecordString(const char *command_string);
/** @{ */
/** The number of history lines, and line n (1 = oldest), owned by the
 * history; null when n is out of range. */
D_EXPORT D_INT4 DutCommandHistoryCount(void);
D_EXPORT const char *DutCommandHistoryLine(D_INT4 n);
/** @} */

/** The interactive loop: prompt, read, history references, record, parse.
 * Returns at the end of standard input. */
D_EXPORT void DutCommandMainLoop(void);
/** Replaces how the main loop and the yes-or-no prompt read a line (null
 * restores standard input). */
D_EXPORT void DutCommandSetLineReader(D_COMMAND_LINE_READER reader, void *arg);
/** D_TRUE for yes or y, D_FALSE for no, n or end of input; asks again
 * otherwise. */
D_EXPORT D_BOOL DutCommandGetYesOrNo(const char *prompt);

/** Prints like DutOut when the feedback mode shows feedback for the line
 * being parsed; otherwise prints nothing. */
D_EXPORT void DutCommandPrintFeedback(const char *format, ...) D_PRINTF_FORMAT(1, 2);
/** The feedback mode: D_FEEDBACK_INTERACTIVE, _NEVER or _ALWAYS. */
D_EXPORT D_INT4 DutCommandGetFeedbackMode(void);
/** D_FEEDBACK_INTERACTIVE, _NEVER or _ALWAYS; else D_ERR_VAL_INVALID. */
D_EXPORT D_BOOL DutCommandSetFeedbackMode(D_INT4 mode);
/** The change callback of the option "command_feedback". */
D_EXPORT void DutCbCommandSetFeedback(void *option, void *data, D_WORD arg);

/** Prints the detailed help of a command from the help files. */
D_EXPORT void DutCommandHelpPrint(const char *command);
/** Prints the synopsis (D_HELP_SYNOPSIS) or detailed help of an item of a
 * category ("commands" or "options"). */
D_EXPORT void DutHelpPrint(const char *category, const char *item, D_INT4 help_type);
/** "setopt" always; every command when no permitted list is set. */
D_EXPORT D_BOOL DutIsCommandAllowed(const char *command_name);
/** The verify function of the option listing the permitted commands (a
 * string list): every name must be a command; the list can be set once
 * (the option becomes read-only). dummy must be null. */
D_EXPORT D_BOOL DutOptionVerifyCommand(D_OPTION *option, void *new_value, void *dummy);

D_END_DECLS

/** @} */
#endif /* VQUTIL_COMMAND_H */
