/*
 * vqutil: string helpers shared by every family.
 *
 * Thread safety: the functions that return a static buffer take the
 * process-wide lock while they fill it; the buffer stays valid only until
 * the next call.
 */
#ifndef VQUTIL_STRUTIL_H
#define VQUTIL_STRUTIL_H

#include "types.h"

D_BEGIN_DECLS

/* Frees the string *string_ptr holds (if any) and stores a checked copy of
 * string_value there; returns non-zero. Both must be non-null (asserted). */
D_EXPORT D_INT4 DutStringCopy(char **string_ptr, const char *string_value);

/* Comparison ignoring case: folded a minus folded b at the first
 * difference, 0 when the strings end together. */
D_EXPORT D_INT4 DutStrCmpi(const char *a, const char *b);
/* As DutStrCmpi, but 0 once count characters have matched. The first
 * character is always compared, so a count of 0 can answer non-zero. */
D_EXPORT D_INT4 DutStrNCmpi(const char *a, const char *b, D_INT4 count);

/* Formats a real with the library's real-number format into the caller's
 * buffer and returns it; null buffer: D_ERR_NULL_PTR, NULL. */
D_EXPORT char *DutRealToStrCopy(D_REAL8 value, char *buffer);
/* The same into one static buffer, valid until the next call. */
D_EXPORT const char *DutRealToStr(D_REAL8 value);

D_END_DECLS

#endif /* VQUTIL_STRUTIL_H */
