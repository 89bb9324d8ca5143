/**
 * @defgroup time Time
 * The current time, wall time, the frame count and time converters.
 *
 * Two clocks. The current time is the application's notion of the present
 * moment for its data: the application sets it explicitly (it may run
 * ahead of, behind or apart from the real clock, as in playback), and every
 * change is announced to the time-change callbacks. The wall time is the
 * real clock, which a test may pin to a fixed value.
 *
 * Beside them: a frame counter with a pacing check against the option
 * "frame_interval", and a registry of named time converters that turn a
 * time (a real number of seconds since the epoch) into text and back. One
 * converter is current for the whole process; DutTimeNumToStr and
 * DutTimeStrToNum go through it. Three are built in: "full" (a ctime-like
 * date with the fraction of the second), "hms" (hh:mm:ss, the current one
 * at start) and "numeric" (the number as the option "real_number_format"
 * prints it).
 *
 * Thread safety: the current time, its record, the test pin, the converter
 * table and the current converter are guarded by the process-wide lock;
 * time-change callbacks run with that lock held. DutGetCurrentTime reads
 * without the lock. Texts returned by converters live in buffers shared by
 * the process: copy them (DutTimeToString) before the next conversion.
 * @{
 */
/**
 * @file
 * @ingroup time
 * @brief Time (time).
 */
#ifndef VQUTIL_TIME_H
#define VQUTIL_TIME_H

#include "callback.h"
#include "hash.h"
#include "types.h"

/** A time as whole seconds and microseconds (0 to 999999 when normalised). */
typedef struct D_TIME_VALUE {
  D_INT4 seconds;      /**< whole seconds */
  D_INT4 microseconds; /**< microseconds */
} D_TIME_VALUE;

/** The callback data of a time change: the reserved head every callback
 * data record starts with, then a copy of the new current time. */
typedef struct D_TIME_CHANGE_CB_DATA {
  struct D_CB *cb;   /**< the callback being called */
  D_TIME_VALUE time; /**< the new current time */
} D_TIME_CHANGE_CB_DATA;

/** @{ */
/** The callback type of time changes: global callbacks only. */
#define D_TIME_CHANGE_CB_TYPE D_CB_TYPE_TIME_CHANGE
#define D_TIME_CHANGE_CB_TYPE_NAME "time_change"
/** @} */

/** A converter's number-to-text function: stores a text it owns (valid
 * until its next call) in *str_return; D_TRUE or D_FALSE. */
typedef D_BOOL (*D_TIME_CVT_NUM_TO_STR_FUNC)(D_REAL8 time, const char **str_return);
/** A converter's text-to-number function: stores the time in *time_return;
 * D_TRUE or D_FALSE (with a warning naming the bad field). */
typedef D_BOOL (*D_TIME_CVT_STR_TO_NUM_FUNC)(const char *str, D_REAL8 *time_return);
/** Called when the converter is destroyed (frees what the converter owns). */
typedef void (*D_TIME_CVT_CLEANUP_FUNC)(void);

/** A named time converter between numbers and texts. */
typedef struct D_TIME_CVT {
  char *name; /**< owned, lower case */
  D_TIME_CVT_NUM_TO_STR_FUNC num_to_str_func; /**< number to text */
  D_TIME_CVT_STR_TO_NUM_FUNC str_to_num_func; /**< text to number */
  D_TIME_CVT_CLEANUP_FUNC cleanup_func; /**< or null */
} D_TIME_CVT;

struct D_OPTION;

/** What DutTimeNumToStr gives when the current converter fails. */
#define D_TIME_UNKNOWN_STR "<UNKNOWN>"

D_BEGIN_DECLS

/* ---- Current time ------------------------------------------------------ */

/** The current time in seconds; 0.0 until the application sets one. Read
 * without the lock. */
D_EXPORT D_REAL8 DutGetCurrentTime(void);
/** Copies the current time into *time_return. Null: D_ERR_NULL_PTR; never
 * set: D_ERR_VAL_TOO_SMALL; both answer D_FALSE. */
D_EXPORT D_BOOL DutGetCurrentTimeStruct(D_TIME_VALUE *time_return);
/** Sets the current time (seconds = the whole part, microseconds = the
 * fraction times one million plus 0.1, truncated, so .5 never turns into
 * .499999; a fraction within 0.1 us of one gives 1000000, not carried)
 * and runs the time-change callbacks. Negative: D_ERR_VAL_TOO_SMALL;
 * not a number: D_ERR_VAL_INVALID; 2^31 seconds or more (beyond the
 * record): D_ERR_VAL_TOO_LARGE; each answers D_FALSE and calls nothing. */
D_EXPORT D_BOOL DutSetCurrentTime(D_REAL8 time);
/** Sets the current time from a record (microseconds not range-checked) and
 * runs the time-change callbacks. Null: D_ERR_NULL_PTR; a negative field:
 * D_ERR_VAL_TOO_SMALL; both answer D_FALSE. */
D_EXPORT D_BOOL DutSetCurrentTimeStruct(const D_TIME_VALUE *time);
/** Adds a global time-change callback (the type -101 "time_change" is
 * created on first use). Called as func(NULL, D_TIME_CHANGE_CB_DATA *, arg)
 * with the process-wide lock held. A duplicate (func, arg):
 * D_ERR_ALREADY_EXISTS, NULL. A null func is an assertion failure. The
 * caller owns the callback (DutCbDestroy). */
D_EXPORT D_CB *DutTimeChangeCbCreate(D_CB_FUNC func, D_WORD arg);
/** The time-change callback (func, arg), or NULL (D_ERR_DOESNT_EXIST when
 * the type exists but has no such callback; no error number when no
 * time-change callback was ever created). */
D_EXPORT D_CB *DutTimeChangeCbLookup(D_CB_FUNC func, D_WORD arg);

/* ---- Wall time ----------------------------------------------------------- */

/** The real clock in seconds (microsecond resolution), or the pinned test
 * wall time while one is pinned. */
D_EXPORT D_REAL8 DutGetWallTime(void);
/** The same as a record; always D_TRUE (time_return must not be null). */
D_EXPORT D_BOOL DutGetWallTimeStruct(D_TIME_VALUE *time_return);
/** Pins the wall time for tests; the record {-1, -1} releases the pin. The
 * wall time counts as pinned while neither field is -1. */
D_EXPORT void DutSetTestWallTimeStruct(const D_TIME_VALUE *time);

/* ---- Arithmetic ---------------------------------------------------------- */

/** a divided by b (each taken as seconds plus microseconds), truncated
 * toward zero. A zero b: D_ERR_VAL_INVALID, 0; a quotient beyond 32 bits:
 * D_ERR_VAL_TOO_LARGE and the nearest 32-bit value. */
D_EXPORT D_INT4 DutTimeRatio(const D_TIME_VALUE *a, const D_TIME_VALUE *b);
/** *result = *time times n: the seconds multiplied, the microseconds
 * multiplied with their whole millions carried into the seconds. Negative
 * products are not normalised (the microseconds stay negative). D_TRUE;
 * a null argument: D_ERR_NULL_PTR, D_FALSE. result may be time. */
D_EXPORT D_BOOL DutTimeMultInt(D_TIME_VALUE *result, const D_TIME_VALUE *time, D_INT4 n);

/* ---- Frames ---------------------------------------------------------------- */

/** The process's frame count; callers add one per frame processed. */
D_EXPORT D_UINT4 *DutFrameCountGetPtr(void);
/** Paces frames against the numeric option "frame_interval" (seconds; 0 or
 * less: no pacing). The first call (after DutFrameReset) only notes the
 * wall time. Later calls: a frame that took longer than the interval
 * warns "Unable to keep up with frame interval by %s seconds.\n" and
 * answers D_FALSE with D_ERR_TIMEOUT_REACHED; otherwise, with sleep 1, the
 * call sleeps out the rest of the interval. D_TRUE. A sleep flag other than
 * 0 or 1: D_ERR_VAL_INVALID, D_FALSE. */
D_EXPORT D_BOOL DutFrameCheck(D_INT4 sleep);
/** Forgets the pacing state: the next DutFrameCheck starts afresh. */
D_EXPORT void DutFrameReset(void);

/* ---- Time converters --------------------------------------------------- */

/** Registers a converter under a lower-cased copy of name. NULL name:
 * D_ERR_NULL_PTR, NULL. A name already registered (case ignored): NULL
 * without an error number of its own. Null functions are assertion
 * failures; cleanup may be null. The registry owns the record. */
D_EXPORT D_TIME_CVT *DutTimeCvtCreate(const char *name, D_TIME_CVT_NUM_TO_STR_FUNC num_to_str_func,
                                      D_TIME_CVT_STR_TO_NUM_FUNC str_to_num_func,
                                      D_TIME_CVT_CLEANUP_FUNC cleanup_func);
/** The converter of that name (case ignored), or NULL with
 * D_ERR_DOESNT_EXIST. A null name is an assertion failure. */
D_EXPORT D_TIME_CVT *DutTimeCvtLookup(const char *name);
/** Runs the converter's clean-up, unregisters and frees it; D_TRUE. The
 * current converter is not destroyed: D_FALSE, no error number. */
D_EXPORT D_BOOL DutTimeCvtDestroy(D_TIME_CVT *time_cvtr);
/** func(name, converter, arg) over the registry under the lock; the hash
 * traversal's result (see hash.h). */
D_EXPORT D_WORD DutTimeCvtTraverse(D_HASH_TRAV_FUNC func, void *arg);
/** @{ */
/** Calls the converter's functions; a null converter or destination is an
 * assertion failure. The standard converters ("full", "hms", "numeric")
 * give texts in buffers shared by every thread, valid until that
 * converter's next call: a host converting on several threads makes the
 * call and copies the text under DutProcessMutexLock, which the converters
 * take too (DutTimeToString does so). */
D_EXPORT D_BOOL DutTimeCvtNumToStr(D_TIME_CVT *time_cvtr, D_REAL8 time, const char **str_return);
D_EXPORT D_BOOL DutTimeCvtStrToNum(D_TIME_CVT *time_cvtr, const char *str, D_REAL8 *time_return);
/** @} */
/** Makes the converter current; D_TRUE. Null is an assertion failure. */
D_EXPORT D_BOOL DutTimeCvtSetCurrent(D_TIME_CVT *time_cvtr);
/** The current converter. */
D_EXPORT D_TIME_CVT *DutTimeCvtGetCurrent(void);

/** The verify function of the option "time_format" (an enumerated option
 * whose value names a converter): the converter of that name becomes
 * current and the value is accepted. An unknown name warns "Time converter
 * <%s> does not exist.\n" and refuses (D_ERR_DOESNT_EXIST). A value
 * becoming unknown is accepted and changes nothing. */
D_EXPORT D_BOOL DutTimeFormatCheck(struct D_OPTION *option, void *new_value, void *arg);

/** The current converter's text for time, or "<UNKNOWN>" when it fails.
 * Shared buffer: valid until the next conversion. */
D_EXPORT const char *DutTimeNumToStr(D_REAL8 time);
/** The current converter's reading of str into *time_return. */
D_EXPORT D_BOOL DutTimeStrToNum(const char *str, D_REAL8 *time_return);
/** Copies DutTimeNumToStr(time) into buffer (which must hold 64 bytes for
 * the built-in converters) and returns buffer. Null buffer: D_ERR_NULL_PTR,
 * NULL. */
D_EXPORT char *DutTimeToString(D_REAL8 time, char *buffer);

D_END_DECLS

/** @} */
#endif /* VQUTIL_TIME_H */
