/**
 * @defgroup lex Lexical analyser
 * The lexical analyser.
 *
 * A lexer turns the text of a file, an open stream or a string into tokens.
 * Parsers drive it with accept functions: each checks that the current
 * token is of the expected kind, keeps its text (DutLexGetText) and value
 * (DutLexGetValue, or the out argument), reads the next token, and reports
 * an error through the lexer's error function otherwise.
 *
 * Errors: every syntax error goes through DutLexError, which DESTROYS THE
 * LEXER after the error function returns. An accept function that answers
 * D_FALSE has therefore already destroyed the lexer: do not touch it again.
 * Callers that survive errors install DutLexLongjmpErrorFunc or
 * DutLexQuietLongjmpErrorFunc with a jmp_buf as error argument and continue
 * at their setjmp with the value 42:
 *
 *     jmp_buf jb;
 *     D_LEX *volatile lexer = NULL;
 *     if (setjmp(jb) == 42) { ... the lexer is gone ... }
 *     lexer = DutLexCreate(D_LEX_ATT_STRING, text,
 *                          D_LEX_ATT_ERROR_FUNC, DutLexQuietLongjmpErrorFunc,
 *                          D_LEX_ATT_ERROR_ARG, &jb, 0);
 *
 * The default error function prints the message and ends the program with
 * DutFatalError.
 *
 * Thread safety: a lexer is used by one thread at a time. The reserved-word
 * table and the global error function are guarded by the process-wide lock.
 * @{
 */
/**
 * @file
 * @ingroup lex
 * @brief Lexical analyser (lex).
 */
#ifndef VQUTIL_LEX_H
#define VQUTIL_LEX_H

#include <setjmp.h>

#include "callback.h"
#include "safestr.h"
#include "types.h"

/** @{ */
/** Token kinds. Reserved words have positive kinds given by the application. */
#define D_TOK_IDENTIFIER 0
#define D_TOK_PATTERN (-1)
#define D_TOK_PLUS (-2)
#define D_TOK_PLUS_PLUS (-3)
#define D_TOK_PLUS_EQUALS (-4)
#define D_TOK_MINUS (-5)
#define D_TOK_MINUS_MINUS (-6)
#define D_TOK_MINUS_EQUALS (-7)
#define D_TOK_STAR (-8)
#define D_TOK_STAR_EQUALS (-9)
#define D_TOK_SLASH (-10)
#define D_TOK_SLASH_EQUALS (-11)
#define D_TOK_EQUALS (-12)
#define D_TOK_NOT_EQUAL (-13)
#define D_TOK_LESS (-14)
#define D_TOK_LESS_EQUAL (-15)
#define D_TOK_GREATER (-16)
#define D_TOK_GREATER_EQUAL (-17)
#define D_TOK_ASSIGN (-18)
#define D_TOK_LPAREN (-19)
#define D_TOK_RPAREN (-20)
#define D_TOK_LBRACKET (-21)
#define D_TOK_RBRACKET (-22)
#define D_TOK_LBRACE (-23)
#define D_TOK_RBRACE (-24)
#define D_TOK_COLON (-25)
#define D_TOK_DOT (-26)
#define D_TOK_COMMA (-27)
#define D_TOK_SEMICOLON (-28)
#define D_TOK_BANG (-29)
#define D_TOK_DOLLAR (-30)
#define D_TOK_CARET (-31)
#define D_TOK_AT (-32)
#define D_TOK_HASH (-33)
#define D_TOK_PERCENT (-34)
#define D_TOK_AMPERSAND (-35)
#define D_TOK_TILDE (-36)
#define D_TOK_BAR (-37)
#define D_TOK_UNSIGNED_NUMBER (-38)
#define D_TOK_STRING (-39)
#define D_TOK_BACKSLASH (-40)
#define D_TOK_WHITE_SPACE (-41)
#define D_TOK_EOF (-42)
#define D_TOK_ERROR (-43) /**< the lowest kind */
/** @} */

/** @{ */
/** DutLexCreate attributes; each is followed by its value, the list by 0. */
#define D_LEX_ATT_FILE_NAME 1   /**< const char *: opened for reading */
#define D_LEX_ATT_FILE 2        /**< FILE *: read, never closed by the lexer */
#define D_LEX_ATT_STRING 3      /**< const char *: kept by pointer */
#define D_LEX_ATT_ERROR_FUNC 4  /**< D_LEX_ERROR_FUNC */
#define D_LEX_ATT_ERROR_ARG 5   /**< void * */
#define D_LEX_ATT_WHITE_SPACE 6 /**< int: deliver white-space tokens */
#define D_LEX_ATT_FLAG2 7       /**< int: reserved, stored only */
/** @} */

/** @{ */
/** Size of one input block, and the initial token buffer size. */
#define D_LEX_BLOCK_SIZE 512
#define D_LEX_INITIAL_TOKEN_SIZE 512
/** @} */
/** Longest identifier or pattern. */
#define D_LEX_MAX_ID_LENGTH 63
/** The value a long-jump error function jumps with. */
#define D_LEX_JUMP_VALUE 42
/** The callback type of token callbacks (a direct type). */
#define D_LEX_TOKEN_CB_TYPE D_CB_TYPE_LEX_TOKEN

struct D_LEX;

/** An error function: the lexer, the message format and its arguments, and
 * the error argument given at creation. */
typedef void (*D_LEX_ERROR_FUNC)(struct D_LEX *lexer, const char *format, va_list args, void *error_arg);

/** A lexer: its input, the current token and what was last accepted. */
typedef struct D_LEX {
  D_INT4 token;                  /**< current token kind */
  char *token_str;               /**< its text, NUL-terminated */
  D_INT4 token_size;             /**< length of the text */
  D_INT4 max_token_size;         /**< size of the token buffer */
  D_REAL8 value;                 /**< value of the current numeric constant */
  D_SAFE_STRING value_str;       /**< text of the current string constant or file name */
  D_LEX_ERROR_FUNC error_func;   /**< or null: the global one */
  void *error_arg;               /**< given to error_func */
  char *input_file_name;         /**< owned copy, or null */
  FILE *input_file;              /**< the file read, or null */
  const char *input_string;      /**< the string read, or null */
  D_INT4 line_num;               /**< from 1 */
  D_INT4 cur_char;               /**< current input character, -1 at end */
  D_INT4 block_pos;              /**< read position in the block */
  D_INT4 block_len;              /**< characters in the block */
  char block[D_LEX_BLOCK_SIZE];  /**< the input block */
  D_INT4 white_space_flag;       /**< deliver white-space tokens */
  D_INT4 flag2;                  /**< reserved, stored only */
  D_CB_LIST *token_cb_list;      /**< the lexer's own token callbacks, or null */
  D_INT4 own_file;               /**< the lexer opened input_file by name */
  D_INT4 string_pos;             /**< read position in input_string */
  D_INT4 peek_char;              /**< the character after cur_char, or -2 when not read */
  D_INT4 newline_before;         /**< a newline was skipped before the current token */
  D_REAL8 accepted_value;        /**< value of the last accepted number */
  D_SAFE_STRING accepted_text;   /**< text of the last accepted token */
} D_LEX;

#define D_GLEX_TOKEN(lexer) ((lexer)->token) /**< `token` field */
#define D_GLEX_TOKEN_STR(lexer) ((lexer)->token_str) /**< `token_str` field */
#define D_GLEX_TOKEN_SIZE(lexer) ((lexer)->token_size) /**< `token_size` field */
#define D_GLEX_MAX_TOKEN_SIZE(lexer) ((lexer)->max_token_size) /**< `max_token_size` field */
#define D_GLEX_VALUE(lexer) ((lexer)->value) /**< `value` field */
#define D_GLEX_VALUE_STR(lexer) (D_SAFE_STRING_STR((lexer)->value_str)) /**< text of `value_str` */
#define D_GLEX_LINE_NUM(lexer) ((lexer)->line_num) /**< `line_num` field */
#define D_GLEX_INPUT_FILE_NAME(lexer) ((lexer)->input_file_name) /**< `input_file_name` field */
#define D_GLEX_WHITE_SPACE_FLAG(lexer) ((lexer)->white_space_flag) /**< `white_space_flag` field */

/** Token callback data: only the reserved head. */
typedef struct D_LEX_TOKEN_CB_DATA {
  void *cb; /**< the callback being called */
} D_LEX_TOKEN_CB_DATA;

D_BEGIN_DECLS

/** Creates a lexer from (attribute, value) pairs ending with 0 and reads the
 * first token. A file that cannot be opened is fatal. */
D_EXPORT D_LEX *DutLexCreate(D_INT4 attribute, ...);
/** Closes a file the lexer opened by name, destroys its token callbacks and
 * frees it; a null lexer is ignored. */
D_EXPORT void DutLexDestroy(D_LEX *lexer);

/** @{ */
/** The current token kind and text (valid until the next token is read). */
D_EXPORT D_INT4 DutLexGetToken(D_LEX *lexer);
D_EXPORT const char *DutLexGetTokenText(D_LEX *lexer);
/** @} */
/** The text of the last accepted token (the identifier, the decoded string
 * constant, the file name, the number as written; for a slot the whole
 * dotted name). Owned by the lexer; valid until the next accept. */
D_EXPORT const char *DutLexGetText(D_LEX *lexer);
/** The value of the last accepted number (signs applied). */
D_EXPORT D_REAL8 DutLexGetValue(D_LEX *lexer);

/** @{ */
/** Accept functions: D_TRUE and the next token read, or D_FALSE after the
 * error function ran (the lexer is then destroyed). */
D_EXPORT D_BOOL DutLexAccept(D_LEX *lexer, D_INT4 kind);
D_EXPORT D_BOOL DutLexAcceptId(D_LEX *lexer);
D_EXPORT D_BOOL DutLexAcceptPattern(D_LEX *lexer);
/** @} */
/** @{ */
/** Typed accepts: the accepted value is the result, and is also kept in the
 * lexer (DutLexGetValue, DutLexGetText).
 * - DutLexAcceptSignedReal: an optional "+" or "-", then an unsigned number;
 *   "-" negates it.
 * - DutLexAcceptSignedInt: the same, refusing a value that is not a whole
 *   number that 32 bits hold ("ERROR: Expected: signed integer,  Found:
 *   signed real <%s>").
 * - DutLexAcceptUnsignedInt: an unsigned number with the same whole-number
 *   check (0 to 4294967295) and, deliberately, the same "signed integer"
 *   message.
 * - DutLexAcceptBool: the identifier "true" or "false" (any case) gives 1 or 0.
 * On a syntax error the error function runs and the lexer is destroyed; the
 * result is then 0. A caller whose error function returns (rather than
 * long-jumping, as DutLexLongjmpErrorFunc does) cannot tell that 0 from an
 * accepted zero: install a long-jumping error function to survive errors. */
D_EXPORT D_REAL8 DutLexAcceptSignedReal(D_LEX *lexer);
D_EXPORT D_INT4 DutLexAcceptSignedInt(D_LEX *lexer);
D_EXPORT D_UINT4 DutLexAcceptUnsignedInt(D_LEX *lexer);
D_EXPORT D_BOOL DutLexAcceptBool(D_LEX *lexer);
/** @} */
/** An unquoted file name up to white space; read with white-space tokens. */
D_EXPORT D_BOOL DutLexAcceptFileName(D_LEX *lexer);
/** A slot name: adjacent identifiers and dots, with at least one dot, not
 * starting or ending with one and without two in a row. */
D_EXPORT D_BOOL DutLexAcceptSlot(D_LEX *lexer);
/** As DutLexAcceptSlot, also accepting a name without dots (an alias). */
D_EXPORT D_BOOL DutLexAcceptSlotOrAlias(D_LEX *lexer);
/** Skips the rest of the current line and reads the first token of the
 * next one; nothing at end of input. A block comment opened on the line is
 * an error. */
D_EXPORT void DutLexSkipToEoln(D_LEX *lexer);
/** Reads past white-space tokens; the lexer must deliver them (asserted). */
D_EXPORT void DutLexGobbleWhitespace(D_LEX *lexer);
/** The offset in the input file of the first character not yet part of a
 * token; -1 with a warning when the file cannot tell. A lexer without an
 * input file is an assertion failure. */
D_EXPORT long DutLexGetCurrentPositionInFile(D_LEX *lexer);

/** The text of a token kind into buffer (at least 64 bytes); returns it.
 * A null buffer sets D_ERR_NULL_PTR and answers null. */
D_EXPORT char *DutLexTokenToString(D_INT4 kind, char *buffer);
/** Makes word (lower-cased, matched ignoring case) a reserved word of the
 * given kind. Null word: D_ERR_NULL_PTR; kind below 1: D_ERR_VAL_TOO_SMALL;
 * a word already reserved: D_ERR_ALREADY_EXISTS; each D_FALSE. */
D_EXPORT D_BOOL DutLexAddReservedWord(const char *word, D_INT4 kind);
/** Prints each reserved word and its kind with DutOut; D_FALSE when none
 * was ever added. */
D_EXPORT D_BOOL DutLexPrintReservedWords(void);

/** @{ */
/** Token callbacks: lexer null selects the global list. */
D_EXPORT D_CB *DutLexTokenCbCreate(D_LEX *lexer, D_CB_FUNC func, D_WORD arg);
D_EXPORT D_CB *DutLexTokenCbLookup(D_LEX *lexer, D_CB_FUNC func, D_WORD arg);
/** @} */

/** @{ */
/** Reports an error through the lexer's error function (or the global one),
 * then destroys the lexer. */
D_EXPORT void DutLexError(D_LEX *lexer, const char *format, ...) D_PRINTF_FORMAT(2, 3);
/** @} */
/** Replaces the global error function, used by lexers created without one;
 * a null function is an assertion failure. */
D_EXPORT void DutLexSetUserErrorFunc(D_LEX_ERROR_FUNC error_func);
/** @{ */
/** Print the message and "\nFile: %s, Line: %ld\n" (the quiet one prints
 * nothing), destroy the lexer, longjmp((jmp_buf *)error_arg, 42). */
D_EXPORT void DutLexLongjmpErrorFunc(D_LEX *lexer, const char *format, va_list args, void *error_arg);
D_EXPORT void DutLexQuietLongjmpErrorFunc(D_LEX *lexer, const char *format, va_list args, void *error_arg);
/** @} */

D_END_DECLS

/** @} */
#endif /* VQUTIL_LEX_H */
