/**
 * @defgroup error Error numbers
 * The per-thread library error number, the foreign error values
 * beside it (C errno, OS last error, socket last error), their texts and
 * their printing.
 *
 * Every operation that can fail returns D_FALSE (or a null pointer) and
 * leaves the reason in the calling thread's library error number. Success
 * does not clear it. The numbers below 500 are set by this library; the
 * numbers from 500 up serve the programs built on it, which set them with
 * DutErrNumSet.
 *
 * Thread safety: the error number, the "unknown error" text buffer and the
 * report parameters are per thread. The text table and the messages of
 * open error-message files are built and read under the process-wide lock.
 * @{
 */
/**
 * @file
 * @ingroup error
 * @brief Error numbers (error).
 */
#ifndef VQUTIL_ERROR_H
#define VQUTIL_ERROR_H

#include <setjmp.h>
#include <stdarg.h>

#include "types.h"

#define D_ERR_C 1 /**< "C" */
#define D_ERR_OS 2 /**< "OS" */
#define D_ERR_NULL_PTR 3 /**< "NULL pointer" */
#define D_ERR_VAL_TOO_SMALL 4 /**< "value too small" */
#define D_ERR_VAL_TOO_LARGE 5 /**< "value too large" */
#define D_ERR_ALREADY_EXISTS 6 /**< "already exists" */
#define D_ERR_VAL_INVALID 7 /**< "value invalid" */
#define D_ERR_DOESNT_EXIST 8 /**< "doesn't exist" */
#define D_ERR_TIMEOUT_REACHED 9 /**< "timeout reached" */
#define D_ERR_EOF 10 /**< "end of file" */
#define D_ERR_VAL_SAME 11 /**< "value is the same" */
#define D_ERR_VAL_UNKNOWN 12 /**< "value unknown" */
#define D_ERR_VAL_REQUIRED 13 /**< "value required" */
#define D_ERR_TYPE_INVALID 14 /**< "type invalid" */
#define D_ERR_TYPE_MISMATCH 15 /**< "type mismatch" */
#define D_ERR_INTERRUPTED 16 /**< "interrupted" */
#define D_ERR_VERIFY_FAILED 17 /**< "verify failed" */
#define D_ERR_END_OF_TRAVERSAL 18 /**< "end of traversal" */
#define D_ERR_EMPTY 19 /**< "empty" */
#define D_ERR_VAL_MISMATCH 20 /**< "value mismatch" */
#define D_ERR_TYPE_UNKNOWN 21 /**< "type unknown" */
#define D_ERR_FILE_CORRUPT 24 /**< "file corrupt" */
#define D_ERR_WOULD_BLOCK 25 /**< "would block" */
#define D_ERR_READ_ONLY 28 /**< "read only" */
#define D_ERR_SOCKET 29 /**< "socket" */
#define D_ERR_NO_MEMORY 30 /**< "no memory" */
#define D_ERR_CONN_INIT_FAILED 500 /**< "connection initialization failed" */
#define D_ERR_SERVER_NOT_CONNECTED 502 /**< "server not connected" */
#define D_ERR_SERVER_ALREADY_CONNECTED 503 /**< "server already connected" */
#define D_ERR_SERVER_DENIED_ACCESS 504 /**< "server denied access" */
#define D_ERR_MSG_CORRUPT 505 /**< "message corrupt" */
#define D_ERR_MSG_INVALID 507 /**< "message invalid" */
#define D_ERR_END_OF_MSG 508 /**< "end of message" */
#define D_ERR_FIELD_TYPE_INVALID 509 /**< "field type invalid" */
#define D_ERR_FIELD_TYPE_MISMATCH 510 /**< "field type mismatch" */
#define D_ERR_IN_PROGRESS 512 /**< "in progress" */
#define D_ERR_FAILURE_DETECTED 514 /**< "failure detected" */
#define D_ERR_IN_USE 517 /**< "in use" */
#define D_ERR_GMD_SENDER_TIMEOUT 518 /**< "GMD sender timeout" */
#define D_ERR_GMD_RECEIVER_TIMEOUT 519 /**< "GMD receiver timeout" */
#define D_ERR_GMD_RECEIVER_EXIT 520 /**< "GMD receiver exit" */
#define D_ERR_GMD_NO_RECEIVERS 521 /**< "GMD no receivers" */
#define D_ERR_PROTOCOL_MISMATCH 522 /**< "protocol mismatch" */

/** Socket error numbers use the Winsock numbering on every platform:
 * 10000 plus the BSD number of the condition. */
#define D_SOCKET_ERR_BASE 10000

/** @{ */
/** Debug-flag numbers (indexes into DutGetDebugFlags()). */
#define D_DEBUG_MEMORY 0
#define D_DEBUG_HASH 2
#define D_DEBUG_RINGBUF 3
#define D_DEBUG_LEX 4
#define D_DEBUG_PATTERN 5
#define D_DEBUG_CALLBACK 6
#define D_DEBUG_FLAG_COUNT 256
/** @} */

/** The four error values of a thread, saved and restored as one record. */
typedef struct D_ERR_SAVE {
  D_INT4 err_num;    /**< library error number */
  D_INT4 c_err;      /**< C runtime errno */
  D_INT4 os_err;     /**< OS last error */
  D_INT4 socket_err; /**< socket last error */
} D_ERR_SAVE;

/** The per-thread library record, reached through thread-specific data. */
typedef struct D_TSD_RECORD {
  D_INT4 parse_mode; /**< owned by the command interpreter */
  D_INT4 err_num;    /**< library error number */
  char err_buf[256]; /**< the last "unknown error %ld" text of this thread */
} D_TSD_RECORD;

D_BEGIN_DECLS

/** Sets the calling thread's library error number; errno, the OS and the
 * socket last-error values stay exactly as they were. */
D_EXPORT void DutErrNumSet(D_INT4 err_num);
/** The calling thread's library error number (0 in a new thread). */
D_EXPORT D_INT4 DutErrNumGet(void);
/** Address of the calling thread's error number field, for polling. */
D_EXPORT D_INT4 *DutErrNumGetPtr(void);

/** @{ */
/** Set the error number to D_ERR_C with the C error value, or read that
 * value; a non-zero value is also stored in errno (0 keeps errno). */
D_EXPORT void DutErrNumSetC(D_INT4 c_err);
D_EXPORT D_INT4 DutErrNumGetC(void);
/** @} */
/** @{ */
/** Set the error number to D_ERR_OS with the OS error value, or read that
 * value; a non-zero value replaces the OS last error. */
D_EXPORT void DutErrNumSetOs(D_INT4 os_err);
D_EXPORT D_INT4 DutErrNumGetOs(void);
/** @} */
/** @{ */
/** Set the error number to D_ERR_SOCKET with the socket error value, or
 * read that value; a non-zero value replaces the socket last error. */
D_EXPORT void DutErrNumSetSocket(D_INT4 socket_err);
D_EXPORT D_INT4 DutErrNumGetSocket(void);
/** @} */
/** Sets the error number to D_ERR_OS and errno to sys_err; expects os_err
 * to be 0. */
D_EXPORT void DutErrNumSetVms(D_INT4 sys_err, D_INT4 os_err);

/** @{ */
/** Save / restore all four values. Null record: D_ERR_NULL_PTR, D_FALSE.
 * A saved foreign value of 0 is not written back by DutErrNumRestore. */
D_EXPORT D_BOOL DutErrNumSave(D_ERR_SAVE *save);
D_EXPORT D_BOOL DutErrNumRestore(const D_ERR_SAVE *save);
/** @} */
/** Saves the foreign values, fetches (creating if need be) the per-thread
 * record and returns it; null record: D_ERR_NULL_PTR, NULL. */
D_EXPORT D_TSD_RECORD *DutErrNumSaveTsd(D_ERR_SAVE *save);
/** Writes back all three foreign values (zeros included) and the library
 * number into tsd. Either null: D_ERR_NULL_PTR, D_FALSE. */
D_EXPORT D_BOOL DutErrNumRestoreTsd(const D_ERR_SAVE *save, D_TSD_RECORD *tsd);

/** The short text of a number. Known texts are owned by the library and
 * never freed; an unknown number gives "unknown error N" in a per-thread
 * buffer valid until the same thread formats another unknown number. */
D_EXPORT const char *DutErrNumToStr(D_INT4 err_num);
/** DutErrNumToStr(DutErrNumGet()). */
D_EXPORT const char *DutErrStrGet(void);
/** Adds a text for a number. The library keeps the pointer: the text must
 * live as long as the process. An existing number keeps its first text and
 * a warning is printed. Null text: D_ERR_NULL_PTR, D_FALSE. */
D_EXPORT D_BOOL DutErrStrCreate(D_INT4 err_num, const char *text);

/** Prints "prefix: system text" (through DutOutDebug) when the thread's
 * error number is D_ERR_C, D_ERR_OS or D_ERR_SOCKET; prints nothing for
 * any other number. Leaves all four error values untouched. Null prefix:
 * D_ERR_NULL_PTR, D_FALSE. */
D_EXPORT D_BOOL DutPerror(const char *prefix);
/** @{ */
/** Set / get whether DutPerror prints: 0 switches it off, 1 on; anything
 * else: D_ERR_VAL_INVALID. */
D_EXPORT D_BOOL DutPerrorSetEnable(D_INT4 enable);
D_EXPORT D_BOOL DutPerrorGetEnable(D_INT4 *enable);
/** @} */

/** @{ */
/** Feedback level and severity threshold of the parameterised reports. */
D_EXPORT void DutErrFeedbackSet(D_INT4 level);
D_EXPORT D_INT4 DutErrFeedbackGet(void);
D_EXPORT void DutErrSeveritySet(D_INT4 severity);
D_EXPORT D_INT4 DutErrSeverityGet(void);
/** @} */

/** @{ */
/** Severities of the messages in error-message files. A report is printed
 * when its severity is at least DutErrSeverityGet(); the levels above
 * D_ERR_SEVERITY_FATAL are the programs' own. */
#define D_ERR_SEVERITY_INFO 0
#define D_ERR_SEVERITY_WARNING 1
#define D_ERR_SEVERITY_ERROR 2
#define D_ERR_SEVERITY_FATAL 3
/** @} */
/** Parameters are numbered 1 to D_ERR_PARAM_COUNT (the places %1 .. %9). */
#define D_ERR_PARAM_COUNT 9

/** Loads an error-message file: lines "number severity text" (decimal
 * number and non-negative severity, then blanks, then the text to the end
 * of the line), where the text may hold the places %1 .. %9 and %% for a
 * percent sign; blank lines and lines starting with # are skipped. Several
 * files may be open; a number in more than one is taken from the file
 * opened last. Returns D_TRUE when loaded. Errors, all with no change to
 * the open messages: null name D_ERR_NULL_PTR; a file of that name already
 * open D_ERR_ALREADY_EXISTS; a file that cannot be opened D_ERR_C; a
 * malformed line or a number given twice in the file D_ERR_FILE_CORRUPT,
 * with a warning naming the file and the line. */
D_EXPORT D_BOOL DutErrOpenFile(const char *name);
/** Forgets the messages of a file loaded by DutErrOpenFile (the name as
 * given there). Null name: D_ERR_NULL_PTR; a name not open:
 * D_ERR_DOESNT_EXIST; D_FALSE. */
D_EXPORT D_BOOL DutErrCloseFile(const char *name);

/** Sets the calling thread's parameter index (1 .. D_ERR_PARAM_COUNT) to a
 * copy of text for its next report; null text clears it. Every report
 * clears all of the thread's parameters when done. Index below 1:
 * D_ERR_VAL_TOO_SMALL; above D_ERR_PARAM_COUNT: D_ERR_VAL_TOO_LARGE;
 * D_FALSE. */
D_EXPORT D_BOOL DutErrParamSet(D_INT4 index, const char *text);
/** Reports message number: the variable arguments are texts for %1, %2 ...
 * in order, ended by a null pointer (at most D_ERR_PARAM_COUNT are taken);
 * places they do not reach take the thread's DutErrParamSet values, and a
 * place with neither stays as written. The report is printed only when
 * the message's severity is at least DutErrSeverityGet(): warnings through
 * DutWarning, other severities through DutOut. Feedback level
 * (DutErrFeedbackGet) 0 or less prints "text", 1 "number: text", 2 and up
 * "number (severity s): text", each with a line feed. A number no open file
 * holds is reported with severity D_ERR_SEVERITY_ERROR and the library's
 * text for it (DutErrNumToStr) or else "unknown message <number>", then
 * the given parameters as " [p1, p2]". Returns D_TRUE when an open file
 * holds the number, D_FALSE otherwise; either way the thread's parameters
 * are cleared and all four error values are left as they were, so that a
 * report in a failure path keeps the failure's reason. */
D_EXPORT D_BOOL DutErrReportParams(D_INT4 number, ...) D_NULL_TERMINATED;
/** DutErrReportParams with the parameter texts in a va_list (still ended
 * by a null pointer). */
D_EXPORT D_BOOL DutErrVReportParams(D_INT4 number, va_list args);
/** Reports as DutErrReportParams, then long-jumps to jump_buffer, or to the
 * default one (DutErrGetJumpBufferPtr) when it is null; setjmp there
 * returns number (1 when number is 0). Never returns. A default buffer
 * that D_INIT never armed ends the process as DutDefaultJumpLanded does
 * (exit status 2). */
D_EXPORT D_NORETURN void DutErrReportParamsJmp(jmp_buf *jump_buffer, D_INT4 number, ...) D_NULL_TERMINATED;

/** The default error jump buffer (armed by DutInit). */
D_EXPORT jmp_buf *DutErrGetJumpBufferPtr(void);
/** The process-wide debug-flag array, D_DEBUG_FLAG_COUNT bytes. */
D_EXPORT unsigned char *DutGetDebugFlags(void);
/** @{ */
/** The check-only switch read by the file-name mapping. */
D_EXPORT void DutSetCheckOnly(D_INT4 check_only);
D_EXPORT D_INT4 DutGetCheckOnly(void);
/** @} */

D_END_DECLS

/** @} */
#endif /* VQUTIL_ERROR_H */
