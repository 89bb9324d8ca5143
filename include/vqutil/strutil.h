/**
 * @defgroup strutil String helpers
 * String helpers shared by every family.
 *
 * Thread safety: the functions that return a static buffer take the
 * process-wide lock while they fill it; the buffer stays valid only until
 * the next call.
 * @{
 */
/**
 * @file
 * @ingroup strutil
 * @brief String helpers (strutil).
 */
#ifndef VQUTIL_STRUTIL_H
#define VQUTIL_STRUTIL_H

#include "types.h"

D_BEGIN_DECLS

/** Frees the string *string_ptr holds (if any) and stores a checked copy of
 * string_value there; returns non-zero. Both must be non-null (asserted). */
D_EXPORT D_INT4 DutStringCopy(char **string_ptr, const char *string_value);

/** Comparison ignoring case: folded a minus folded b at the first
 * difference, 0 when the strings end together. */
D_EXPORT D_INT4 DutStrCmpi(const char *a, const char *b);
/** As DutStrCmpi, but 0 once count characters have matched. The first
 * character is always compared, so a count of 0 can answer non-zero. */
D_EXPORT D_INT4 DutStrNCmpi(const char *a, const char *b, D_INT4 count);

/** Formats a real with the library's real-number format into the caller's
 * buffer and returns it; null buffer: D_ERR_NULL_PTR, NULL. The text is
 * cut to 39 characters, so a buffer of 40 bytes always suffices. */
D_EXPORT char *DutRealToStrCopy(D_REAL8 value, char *buffer);
/** The same into one static buffer, valid until the next call. */
D_EXPORT const char *DutRealToStr(D_REAL8 value);

/* ---- Tests and case ------------------------------------------------- */

/** D_TRUE for a null string, the empty string and a string of white-space
 * characters only (isspace in the current locale); else D_FALSE. */
D_EXPORT D_BOOL DutIsWhiteEmptyOrNullStr(const char *str);
/** D_TRUE when str begins with prefix, byte for byte. D_FALSE when the
 * prefix is longer, or (with D_ERR_NULL_PTR) when either is null. */
D_EXPORT D_BOOL DutStrStartsWith(const char *str, const char *prefix);
/** As DutStrStartsWith, ignoring case. */
D_EXPORT D_BOOL DutStriStartsWith(const char *str, const char *prefix);
/** D_TRUE when str ends with suffix; otherwise as DutStrStartsWith. */
D_EXPORT D_BOOL DutStrEndsWith(const char *str, const char *suffix);
/** As DutStrEndsWith, ignoring case. */
D_EXPORT D_BOOL DutStriEndsWith(const char *str, const char *suffix);

/** Copies src into dest with upper-case letters made lower case; returns
 * dest. dest may be src. Asserts "src" and "dest". */
D_EXPORT char *DutStrLwr(char *dest, const char *src);
/** Copies src into dest with lower-case letters made upper case; returns
 * dest. dest may be src. Asserts "src" and "dest". */
D_EXPORT char *DutStrUpr(char *dest, const char *src);

/* ---- New strings ---------------------------------------------------- */

/** A new copy of str (label "(newstr)"), owned by the caller, who frees it
 * with DutFreeCheck. Asserts "str != NULL". */
D_EXPORT char *DutStrDup(const char *str);
/** A new string (label "(newstr)") holding str without any occurrence of c.
 * Null str: D_ERR_NULL_PTR, NULL. The caller owns the result. */
D_EXPORT char *DutStrStripChar(const char *str, char c);

/* ---- Search, extraction and replacement ------------------------------ */

/** Index (0-based) of the first occurrence of text in str, or -1. The empty
 * text is found at the end of str: the answer is strlen(str). Null
 * argument: D_ERR_NULL_PTR, -1. */
D_EXPORT D_INT4 DutFindSubString(const char *text, const char *str);
/** Copies the characters of str from position start (1-based) up to
 * start + count - 1 or the end of str into substr, NUL-terminated. D_TRUE
 * only when exactly count characters were copied; a request that runs past
 * the end copies what there is and answers D_FALSE (D_ERR_VAL_TOO_LARGE).
 * A start outside 1 .. strlen(str) or a count below 1 leaves substr empty
 * and answers D_FALSE (D_ERR_VAL_INVALID). substr must hold count + 1
 * bytes. Asserts "str != NULL" and "substr != NULL". */
D_EXPORT D_BOOL DutGetSubStr(const char *str, char *substr, D_INT4 start, D_INT4 count);

/** Replaces the first occurrence of old_str in str by new_str. When there is
 * none, *replaced is D_FALSE and str itself is returned. Otherwise
 * *replaced is D_TRUE and the result is in a 256-byte static buffer, valid
 * until the next call (filled under the process-wide lock; concurrent
 * callers overwrite each other's result). A result longer than 255
 * characters is refused: a warning is printed, *replaced is D_FALSE, the
 * error number is D_ERR_VAL_TOO_LARGE and str is returned unchanged. Any
 * null argument: D_ERR_NULL_PTR, NULL. */
D_EXPORT const char *DutStrReplaceOne(const char *str, const char *old_str, const char *new_str,
                                      D_BOOL *replaced);
/** Replaces old_str by new_str again and again, each round searching from
 * the beginning, until none is left; the result is in a second 256-byte
 * static buffer, valid until the next call. Because every round starts
 * over, a new_str containing old_str keeps growing the text: such a round
 * (or any round whose result exceeds 255 characters, or a str that is
 * itself longer than 255) is refused with a warning and
 * D_ERR_VAL_TOO_LARGE, and str is returned unchanged. A pair that would
 * replace old_str by itself for ever is refused the same way with
 * D_ERR_VAL_INVALID. Any null argument: D_ERR_NULL_PTR, NULL. */
D_EXPORT const char *DutStrReplaceAll(const char *str, const char *old_str, const char *new_str);

/* ---- Quoted form ------------------------------------------------------- */

/** Writes str to file in quoted form: a double quote, the characters with
 * newline as \n, double quote as \" and backslash as \\ (tabs and every
 * other byte as they are), and a closing double quote. D_TRUE; a failing
 * write: D_ERR_C, D_FALSE. Asserts "file" and "str". */
D_EXPORT D_BOOL DutDumpString(FILE *file, const char *str);
/** The same quoted form into dest_str_return, which must hold up to
 * 2 * strlen(str) + 3 bytes; returns dest_str_return. Asserts
 * "dest_str_return" and "str". */
D_EXPORT char *DutDumpStringToString(char *dest_str_return, const char *str);
/** Reads one quoted string from file into str and returns str. Blanks,
 * newlines and tabs before it are skipped; the next character must be a
 * double quote (asserted). Inside, a backslash takes the next character:
 * n gives newline, t gives tab, anything else stands for itself.
 * The buffer is unbounded: nothing limits what is written into str, so the
 * caller must know the longest string the file can hold (DutReadStringPtr
 * has no such limit). End of file inside the string ends the text there
 * and answers NULL with D_ERR_EOF. Asserts "file && str". */
D_EXPORT char *DutReadString(FILE *file, char *str);
/** Reads one quoted string like DutReadString and returns it as a new
 * string (label "(return_str)") owned by the caller. Uses one static
 * scratch safe string under the process-wide lock. End of file inside the
 * string: D_ERR_EOF, NULL. Asserts "file". */
D_EXPORT char *DutReadStringPtr(FILE *file);

/* ---- Tokens, names and lists -------------------------------------------- */

/** The next white-space-separated token of str, which is modified in place:
 * the white space ending the token becomes NUL and *rest points just after
 * it; a token ending at the end of str leaves *rest null. Only white space
 * left, or a null str: NULL with *rest null. Pass *rest back in as str for
 * the next token. Null rest: D_ERR_NULL_PTR, NULL. */
D_EXPORT char *DutStrTok(char *str, char **rest);
/** Replaces, in place, every character that is neither a letter nor a digit
 * by an underscore; D_TRUE. Null str: D_ERR_NULL_PTR, D_FALSE. */
D_EXPORT D_BOOL DutStrToIdFileName(char *str);
/** A list of strings that the list functions only read. C++ takes both
 * char ** and const char ** as const char *const *; C converts neither to
 * the other, so C callers pass the char ** that DutStrListDup returns. */
#ifdef __cplusplus
typedef const char *const *D_STR_LIST;
#else
typedef char *const *D_STR_LIST;
#endif
/** A new array of `count` new copies of the strings of str_list (labels
 * "new_str_list" and "(new_str_list[counter])"); a null entry stays null.
 * The caller frees every string and then the array with DutFreeCheck.
 * Null list: D_ERR_NULL_PTR, NULL; negative count: D_ERR_VAL_TOO_SMALL,
 * NULL. */
D_EXPORT char **DutStrListDup(D_STR_LIST str_list, D_INT4 count);
/** D_TRUE when both lists have the same count and the strings at each
 * position compare equal ignoring case (order matters). A null list or a
 * negative count fails an internal validation (warning) and answers
 * D_FALSE with D_ERR_NULL_PTR or D_ERR_VAL_TOO_SMALL. */
D_EXPORT D_BOOL DutStrListEquali(D_STR_LIST str_list1, D_INT4 num_str_list1, D_STR_LIST str_list2,
                                 D_INT4 num_str_list2);

/* ---- Wall-clock text ------------------------------------------------------ */

/** The current wall-clock date and time in ctime form without the newline,
 * e.g. "Sat Nov 14 12:31:27 2026", in one static buffer valid until the
 * next call (filled under the process-wide lock). */
D_EXPORT const char *DutGetWallTimeStr(void);

/* ---- Text to number ------------------------------------------------------- */
/** @} */
/** @addtogroup strutil
 *
 * @par Text to number
 * The whole text must be one number as the lexer reads it (lex.h): an
 * optional "+" or "-" and a number token, then nothing else; a lexical
 * error or trailing text makes it invalid. A signed integer is a signed
 * number whose value is a whole number in the D_INT4 range, so "12.0" is
 * an integer and "12.5" is not. No error number is set. A null text is an
 * assertion failure.
 * @{
 */

/** The integer; 0 with the warning "DutStringToInt: Unexpected invalid
 * integer detected" when invalid. */
D_EXPORT D_INT4 DutStringToInt(const char *input_str);
/** The real; 0.0 with the warning "DutStringToSignedReal: Unexpected
 * invalid real number detected" when invalid. */
D_EXPORT D_REAL8 DutStringToSignedReal(const char *input_str);
/** The number without a sign (a leading sign makes it invalid); -1.0,
 * without a warning, when invalid. */
D_EXPORT D_REAL8 DutStringToUnsignedReal(const char *input_str);
/** @{ */
/** D_TRUE when the text is not a valid signed integer / signed real. */
D_EXPORT D_BOOL DutStringToIntInvalid(const char *input_str);
D_EXPORT D_BOOL DutStringToRealInvalid(const char *input_str);
/** @} */

D_END_DECLS

/** @} */
#endif /* VQUTIL_STRUTIL_H */
