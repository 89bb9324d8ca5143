/*
 * A module the shell transcripts load with "load vqtranscriptmod". It adds
 * what a plain shell cannot do on its own:
 *
 *   _control_msg <line>  hands the rest of its line to the interpreter as a
 *                        control message, as if another process had sent it
 *   _quit_note <word>    adds a quit callback that prints the word
 *
 * and, when loaded, one quit callback of its own, so that a transcript can
 * see whether and when the quit callbacks run, and the option
 * "transcript_numbers" of the one type no standard option has, the numeric
 * list.
 */
#include <stddef.h>
#include <string.h>

#include "vqutil/callback.h"
#include "vqutil/command.h"
#include "vqutil/lex.h"
#include "vqutil/memory.h"
#include "vqutil/module.h"
#include "vqutil/option.h"
#include "vqutil/output.h"

/* Longest control message taken; the interpreter reads lines of 4095
 * characters, so nothing a transcript types is cut. */
#define CONTROL_MSG_MAX 4096

/* Appends text to line (of CONTROL_MSG_MAX bytes, *length used), cutting
 * what does not fit. */
static void appendText(char *line, size_t *length, const char *text) {
  size_t n = strlen(text);
  if (n > CONTROL_MSG_MAX - 1 - *length) n = CONTROL_MSG_MAX - 1 - *length;
  memcpy(line + *length, text, n);
  *length += n;
  line[*length] = '\0';
}

/* The rest of the line, separators and all, exactly as typed from the first
 * token on: white space is read as tokens of its own so that quoted
 * strings and blanks survive. The buffer lives on the stack because a
 * syntax error long-jumps out of here. */
static void parseControlMsg(D_LEX *lexer) {
  char line[CONTROL_MSG_MAX];
  size_t length = 0;
  line[0] = '\0';
  D_INT4 saved_flag = D_GLEX_WHITE_SPACE_FLAG(lexer);
  D_GLEX_WHITE_SPACE_FLAG(lexer) = 1;
  while (DutLexGetToken(lexer) != D_TOK_EOF) {
    appendText(line, &length, DutLexGetTokenText(lexer));
    if (!DutLexAccept(lexer, DutLexGetToken(lexer))) return; /* the lexer is gone */
  }
  D_GLEX_WHITE_SPACE_FLAG(lexer) = saved_flag;
  DutCommandParseStrInternal(line, 1);
}

/* A quit callback: its argument is the word to print. */
static void quitNote(void *object, void *data, D_WORD arg) {
  (void)object;
  const D_CB_DATA *cb_data = (const D_CB_DATA *)data;
  /* The machinery hands each callback itself in the data's first field. */
  const char *found = cb_data != NULL && cb_data->cb != NULL ? "" : " (without its callback)";
  DutOut("Quit callback <%s> runs%s.\n", (const char *)arg, found);
}

/* The word is kept for the quit callback until the process ends. */
static void parseQuitNote(D_LEX *lexer) {
  if (!DutLexAcceptId(lexer)) return;
  const char *word = DutLexGetText(lexer);
  size_t n = strlen(word) + 1;
  char *copy = (char *)DutMallocCheck((D_INT4)n, "quit_note", "vqtranscriptmod.c", __LINE__);
  memcpy(copy, word, n);
  if (DutQuitCbCreate(quitNote, (D_WORD)copy) == NULL) {
    DutOut("Cannot add quit callback <%s>.\n", copy);
    DutFreeCheck(copy, "quit_note", "vqtranscriptmod.c", __LINE__);
    return;
  }
  DutOut("Quit callback <%s> added.\n", copy);
}

int DptModuleInit(D_WORD arg) {
  (void)arg;
  D_COMMAND *control = DutCommandCreate("_control_msg", parseControlMsg);
  D_COMMAND *note = DutCommandCreate("_quit_note", parseQuitNote);
  D_OPTION *numbers = DutOptionCreate("transcript_numbers", D_OPT_TYPE_NUMERIC_LIST);
  if (control != NULL && note != NULL && numbers != NULL && DutQuitCbCreate(quitNote, (D_WORD) "module") != NULL)
    return 1;
  /* Refused modules are unloaded: leave no command behind that points into
   * them. */
  if (control != NULL) DutCommandDestroy(control);
  if (note != NULL) DutCommandDestroy(note);
  if (numbers != NULL) DutOptionDestroy(numbers);
  return 0;
}
