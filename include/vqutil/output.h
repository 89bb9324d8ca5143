/**
 * @defgroup output Output and diagnostics
 * Output, debug log, warnings, fatal errors and assertions.
 *
 * All user-visible text goes through one replaceable output function (by
 * default vprintf to standard output). Printing never changes the caller's
 * error values: DutOut and DutWarning save and restore all four.
 *
 * Thread safety: the output function, the debug file and the fatal error
 * file are read and changed under the process-wide lock, which is held while
 * the output function runs; an output function must therefore not wait for
 * another thread that prints.
 *
 * Environment: VQTIMESTAMPOUTPUT (time-stamp every output call),
 * VQDEBUGFILENAME (overrides the debug file name), VQ_WARNING_ABORT,
 * VQ_EXPECT_ABORT, VQ_FATAL_ERROR_CONTINUE, VQ_FATAL_ERROR_ABORT,
 * VQ_FATAL_ERROR_SLEEP.
 * @{
 */
/**
 * @file
 * @ingroup output
 * @brief Output and diagnostics (output).
 */
#ifndef VQUTIL_OUTPUT_H
#define VQUTIL_OUTPUT_H

#include "safestr.h"
#include "types.h"

/** The shape of the output function: that of vprintf. */
typedef int (*D_OUTPUT_FUNC)(const char *format, va_list args);
/** A function registered with DutAtExit. */
typedef void (*D_AT_EXIT_FUNC)(void);

D_BEGIN_DECLS

/** Prints through the output function under the process lock. */
D_EXPORT void DutOut(const char *format, ...) D_PRINTF_FORMAT(1, 2);
/** As DutOut without saving and restoring the error values. */
D_EXPORT void DutVOut(const char *format, va_list args) D_PRINTF_FORMAT(1, 0);
/** DutVOut, and a copy to the debug file when that is not standard error. */
D_EXPORT void DutOutDebug(const char *format, ...) D_PRINTF_FORMAT(1, 2);
/** Replaces the output function; asserts it is not null. */
D_EXPORT void DutSetOutputFunc(D_OUTPUT_FUNC output_func);
/** The current output function (vprintf until one is set). */
D_EXPORT D_OUTPUT_FUNC DutGetOutputFunc(void);
/** fflush(stdout). */
D_EXPORT int DutFlushStdout(void);

/** Opens the debug file once: "stderr" (any case) means standard error;
 * other names get ".dbg" appended unless they end in it. VQDEBUGFILENAME,
 * when set, replaces the name and is used exactly as written. A file that
 * cannot be opened falls back to standard error with a message. */
D_EXPORT void DutDebugOpen(const char *file_name);
/** Closes a debug file on disk; keeps its name for DutDebugReopen. */
D_EXPORT void DutDebugClose(void);
/** Reopens the kept name for appending; returns the stream. */
D_EXPORT FILE *DutDebugReopen(void);
/** Renames the open debug file (or leaves standard error for a new file).
 * Errors: D_ERR_NULL_PTR, D_ERR_DOESNT_EXIST (nothing open),
 * D_ERR_ALREADY_EXISTS (same name), D_ERR_C (rename or fopen failed). */
D_EXPORT D_BOOL DutDebugRename(const char *new_name);
/** The kept debug file name (null before the first open). */
D_EXPORT const char *DutDebugFileName(void);
/** The debug stream (null when closed). */
D_EXPORT FILE *DutDebugFilePtr(void);
/** @{ */
/** Writes to the debug file (opening "stderr" if none is open) and flushes. */
D_EXPORT void DutDebug(const char *format, ...) D_PRINTF_FORMAT(1, 2);
D_EXPORT void DutVDebug(const char *format, va_list args) D_PRINTF_FORMAT(1, 0);
/** @} */

/** "WARNING: " and the text through the output function, and to the debug
 * file when it is on disk. Leaves the error values as they were. */
D_EXPORT void DutWarning(const char *format, ...) D_PRINTF_FORMAT(1, 2);
/** A zero condition is a fatal error "Assertion <text> failed, ...". */
D_EXPORT D_INT4 DutAssert(D_INT4 condition, const char *text, const char *file, D_INT4 line);
/** A zero condition is reported as an internal validation failure. */
D_EXPORT D_INT4 DutExpect(D_INT4 condition, const char *text, const char *file, D_INT4 line);
/** Writes the fatal-error report, then exits with status 2 after a short
 * pause, unless the environment asks to continue, abort or sleep. */
D_EXPORT void DutFatalError(const char *format, ...) D_PRINTF_FORMAT(1, 2);
/** @{ */
/** Get / set the file the fatal-error report goes to. A null pointer:
 * D_ERR_NULL_PTR, D_FALSE. */
D_EXPORT D_BOOL DutGetFatalErrorFile(FILE **file);
D_EXPORT D_BOOL DutSetFatalErrorFile(FILE *file);
/** @} */

/** Registers a function to run when the library is unloaded or the process
 * ends, in reverse order of registration. Null: D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutAtExit(D_AT_EXIT_FUNC func);
/** Appends the text of $VQHOME/standard/support.txt to notice. A file that
 * cannot be opened: a warning and D_FALSE. Null notice: D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutGetSupportNotice(D_SAFE_STRING *notice);

D_END_DECLS

/** @{ */
/** Convenience checks for hosts: the expression text, file and line. */
#define D_ASSERT(expr) DutAssert((expr) ? 1 : 0, #expr, __FILE__, __LINE__)
#define D_EXPECT(expr) DutExpect((expr) ? 1 : 0, #expr, __FILE__, __LINE__)
/** @} */

/** @} */
#endif /* VQUTIL_OUTPUT_H */
