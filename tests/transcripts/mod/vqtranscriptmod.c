/* Loaded by the transcripts ("load vqtranscriptmod") for what a plain shell
 * cannot do: "_control_msg <line>" hands the rest of its line to the
 * interpreter as a control message from another process, "_quit_note <word>"
 * adds a quit callback printing the word, the module adds one of its own,
 * and "transcript_numbers" is an option of the type no standard one has. */
#include <stddef.h>
#include <string.h>

#include "vqutil/callback.h"
#include "vqutil/command.h"
#include "vqutil/lex.h"
#include "vqutil/memory.h"
#include "vqutil/module.h"
#include "vqutil/option.h"
#include "vqutil/output.h"

/* The interpreter reads lines of 4095 characters: nothing typed is cut. */
#define CONTROL_MSG_MAX 4096

/* The rest of the line exactly as typed, white space read as tokens of its
 * own. The buffer is on the stack: a syntax error long-jumps out. */
static void parseControlMsg(D_LEX *lexer) {
  char line[CONTROL_MSG_MAX];
  size_t length = 0;
  D_INT4 saved_flag = D_GLEX_WHITE_SPACE_FLAG(lexer);
  D_GLEX_WHITE_SPACE_FLAG(lexer) = 1;
  while (DutLexGetToken(lexer) != D_TOK_EOF) {
    const char *text = DutLexGetTokenText(lexer);
    size_t n = strlen(text);
    if (n > CONTROL_MSG_MAX - 1 - length) n = CONTROL_MSG_MAX - 1 - length;
    memcpy(line + length, text, n);
    length += n;
    if (!DutLexAccept(lexer, DutLexGetToken(lexer))) return; /* the lexer is gone */
  }
  line[length] = '\0';
  D_GLEX_WHITE_SPACE_FLAG(lexer) = saved_flag;
  DutCommandParseStrInternal(line, 1);
}

/* A quit callback printing its argument; the machinery hands each callback
 * itself in the data's first field. */
static void quitNote(void *object, void *data, D_WORD arg) {
  const D_CB_DATA *cb_data = (const D_CB_DATA *)data;
  (void)object;
  DutOut("Quit callback <%s> runs%s.\n", (const char *)arg,
         cb_data != NULL && cb_data->cb != NULL ? "" : " (without its callback)");
}

/* The word is kept for the quit callback until the process ends. */
static void parseQuitNote(D_LEX *lexer) {
  char *copy;
  if (!DutLexAcceptId(lexer)) return;
  copy = (char *)DutMallocCheck((D_INT4)strlen(DutLexGetText(lexer)) + 1, "quit_note", "vqtranscriptmod.c", __LINE__);
  strcpy(copy, DutLexGetText(lexer));
  if (DutQuitCbCreate(quitNote, (D_WORD)copy) != NULL) {
    DutOut("Quit callback <%s> added.\n", copy);
    return;
  }
  DutOut("Cannot add quit callback <%s>.\n", copy);
  DutFreeCheck(copy, "quit_note", "vqtranscriptmod.c", __LINE__);
}

int DptModuleInit(D_WORD arg) {
  D_COMMAND *control = DutCommandCreate("_control_msg", parseControlMsg);
  D_COMMAND *note = DutCommandCreate("_quit_note", parseQuitNote);
  D_OPTION *numbers = DutOptionCreate("transcript_numbers", D_OPT_TYPE_NUMERIC_LIST);
  (void)arg;
  if (control != NULL && note != NULL && numbers != NULL && DutQuitCbCreate(quitNote, (D_WORD) "module") != NULL)
    return 1;
  /* Refused modules are unloaded: leave nothing behind that points into them. */
  if (control != NULL) DutCommandDestroy(control);
  if (note != NULL) DutCommandDestroy(note);
  if (numbers != NULL) DutOptionDestroy(numbers);
  return 0;
}
