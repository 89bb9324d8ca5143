/**
 * @defgroup safestr Safe strings
 * Safe strings, character buffers that grow in fixed quanta as text
 * is appended.
 *
 * A D_SAFE_STRING is a small record passed and returned by value. Its buffer
 * `str` is always NUL-terminated and owned by the record: it is allocated by
 * DutSafeStringQCreate / DutSafeStringCreate (or by DutSafeStringClear on a
 * record without a buffer) and freed only by DutSafeStringDestroy. Copies of
 * the record share the buffer; after an append or a resize only the record
 * that was passed by address knows the (possibly moved) buffer.
 *
 * Growth is linear: whenever the text no longer fits, `size` grows by the
 * quantum (256 bytes for the plain forms, the last argument of the "Q"
 * forms) and the buffer is reallocated, one quantum step at a time. Callers
 * that build long text pass a larger quantum or call DutSafeStringResize
 * first.
 *
 * Null records, buffers and texts given to the append, copy and clear
 * operations are assertion failures (fatal). Resize and shorten report bad
 * arguments through the error number instead.
 *
 * Thread safety: none; the caller serialises access to one safe string.
 * @{
 */
/**
 * @file
 * @ingroup safestr
 * @brief Safe strings (safestr).
 */
#ifndef VQUTIL_SAFESTR_H
#define VQUTIL_SAFESTR_H

#include "types.h"

/** Default initial size and default growth quantum, in bytes. */
#define D_SAFE_STRING_QUANTUM 256

/** A safe string: its text, the bytes allocated and the text's length. */
typedef struct D_SAFE_STRING {
  char *str;     /**< the text, always NUL-terminated; owned by the record */
  D_INT4 size;   /**< bytes allocated for str */
  D_INT4 length; /**< characters before the terminating NUL */
} D_SAFE_STRING;

/** @{ */
/** Field accessors; each takes a record (not a pointer) and is an lvalue. */
#define D_SAFE_STRING_STR(ss) ((ss).str)
#define D_SAFE_STRING_SIZE(ss) ((ss).size) /**< `size` field */
#define D_SAFE_STRING_LENGTH(ss) ((ss).length) /**< `length` field */
/** @} */

D_BEGIN_DECLS

/** A new safe string holding the empty text in a buffer of exactly `size`
 * bytes (label "safe_str.str"). The size must be at least 1 (asserted
 * "0 < size"). The caller owns the record's buffer until
 * DutSafeStringDestroy. */
D_EXPORT D_SAFE_STRING DutSafeStringQCreate(D_INT4 size);
/** DutSafeStringQCreate(256). */
D_EXPORT D_SAFE_STRING DutSafeStringCreate(void);
/** Frees the record's buffer (nothing when it has none). Other copies of the
 * record must not be used afterwards. */
D_EXPORT void DutSafeStringDestroy(D_SAFE_STRING safe_str);

/** Appends the NUL-terminated src to *dest, growing by `quantum` bytes per
 * step (label "dest->str"). Asserts "src", "dest", "dest->str" and a
 * positive quantum ("0 < quantum"). src may be dest's own text or a part
 * of it. */
D_EXPORT void DutSafeStringQAppend(D_SAFE_STRING *dest, const char *src, D_INT4 quantum);
/** DutSafeStringQAppend with quantum 256. */
D_EXPORT void DutSafeStringAppend(D_SAFE_STRING *dest, const char *src);
/** Appends one character, which must not be NUL (asserted "c"); asserts
 * "dest", "dest->str" and a positive quantum. */
D_EXPORT void DutSafeStringQAppendChar(D_SAFE_STRING *dest, char c, D_INT4 quantum);
/** DutSafeStringQAppendChar with quantum 256. */
D_EXPORT void DutSafeStringAppendChar(D_SAFE_STRING *dest, char c);

/** Empties the text (length 0, size kept). A record without a buffer is
 * filled with a new 256-byte safe string. Asserts "safe_str". */
D_EXPORT void DutSafeStringClear(D_SAFE_STRING *safe_str);
/** Clear, then DutSafeStringQAppend(dest, src, quantum). */
D_EXPORT void DutSafeStringQCopy(D_SAFE_STRING *dest, const char *src, D_INT4 quantum);
/** Clear, then append with quantum 256. */
D_EXPORT void DutSafeStringCopy(D_SAFE_STRING *dest, const char *src);

/** Grows the buffer to new_size rounded up to a multiple of 256 (label
 * "ssp->str"); text and length are kept. D_TRUE when it grew; D_FALSE,
 * with nothing changed and the error number untouched, when new_size is
 * not above the current size. Null record or buffer: D_ERR_NULL_PTR,
 * D_FALSE. */
D_EXPORT D_BOOL DutSafeStringResize(D_SAFE_STRING *ssp, D_INT4 new_size);
/** Removes the last `count` characters without reallocating. D_TRUE on
 * success. Null record or buffer: D_ERR_NULL_PTR; negative count:
 * D_ERR_VAL_TOO_SMALL; count above the length: D_ERR_VAL_INVALID; each
 * returns D_FALSE and leaves the text as it was. */
D_EXPORT D_BOOL DutSafeStringShorten(D_SAFE_STRING *ssp, D_INT4 count);

D_END_DECLS

/** @} */
#endif /* VQUTIL_SAFESTR_H */
