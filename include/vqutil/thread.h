/**
 * @defgroup thread Threads and synchronisation
 * Threads, mutexes, conditions, events and thread-specific data.
 *
 * Every operation returns 0 (or a null handle) on failure after setting the
 * calling thread's error number: library codes with DutErrNumSet, operating
 * system failures with DutErrNumSetOs (the platform's last error is kept).
 *
 * Time-outs: mutexes and conditions take seconds, events take milliseconds;
 * exactly -1.0 means wait for ever in both. Other values are truncated
 * toward zero to whole milliseconds, so 0.0004 s is no wait at all.
 *
 * The process-wide lock (DutProcessMutexLock) is a no-op until
 * DutInitThreads has run; DutThreadCreate runs it. A host that calls the
 * library from threads of its own calls DutInitThreads first.
 * @{
 */
/**
 * @file
 * @ingroup thread
 * @brief Threads and synchronisation (thread).
 */
#ifndef VQUTIL_THREAD_H
#define VQUTIL_THREAD_H

#include "error.h"
#include "types.h"

/** @{ */
/** Opaque handle words. 0 is invalid. */
typedef D_WORD D_MUTEX;
typedef D_WORD D_COND;
typedef D_WORD D_EVENT;
typedef D_WORD D_THREAD;
#define D_INVALID_MUTEX ((D_MUTEX)0)
#define D_INVALID_COND ((D_COND)0)
#define D_INVALID_EVENT ((D_EVENT)0)
#define D_INVALID_THREAD ((D_THREAD)0)
/** @} */

/** Wait for ever. */
#define D_WAIT_FOREVER (-1.0)

/** @{ */
/** Thread-specific-data key; all ones is invalid. */
typedef D_UINT4 D_TSD_KEY;
#define D_INVALID_TSD_KEY ((D_TSD_KEY)0xFFFFFFFFu)
/** @} */

/** A thread's start function: one word in, its exit code out. */
typedef D_WORD (*D_THREAD_FUNC)(D_WORD arg);
/** A TSD destructor; called with the slot's value, also when it is null. */
typedef void (*D_TSD_DESTRUCTOR)(void *value);

D_BEGIN_DECLS

/** Creates the process-wide lock and the library's keys; idempotent. */
D_EXPORT D_BOOL DutInitThreads(void);
/** @{ */
/** The process-wide recursive lock; both are no-ops (and answer D_TRUE)
 * before DutInitThreads. */
D_EXPORT D_BOOL DutProcessMutexLock(void);
D_EXPORT D_BOOL DutProcessMutexUnlock(void);
/** @} */
/** The calling thread's library record, created on first use; never null. */
D_EXPORT D_TSD_RECORD *DutGetTsdValue(void);

/** @{ */
/** Recursive mutexes. owner must be 0 or 1 (D_ERR_VAL_INVALID otherwise);
 * 1 returns the mutex already held by the caller. A named mutex lives in
 * the system's object namespace and is shared between processes; creating
 * a name that exists fails (exclusive creation). A mutex whose owner died
 * is taken over by the next lock. */
D_EXPORT D_MUTEX DutMutexCreate(D_INT4 owner);
D_EXPORT D_MUTEX DutMutexCreateNamedNp(const char *name, D_INT4 owner);
D_EXPORT D_MUTEX DutMutexAttachNamedNp(const char *name);
/** @} */
/** Locks the mutex (again, when the caller holds it);
 * D_ERR_TIMEOUT_REACHED when the time-out (seconds) passes. */
D_EXPORT D_BOOL DutMutexLock(D_MUTEX mutex, D_REAL8 timeout);
/** Releases one level of the caller's hold on the mutex. */
D_EXPORT D_BOOL DutMutexUnlock(D_MUTEX mutex);
/** Destroys the mutex. */
D_EXPORT D_BOOL DutMutexDestroy(D_MUTEX mutex);

/** @{ */
/** Conditions: manual-reset events used with a mutex. */
D_EXPORT D_COND DutCondCreate(void);
D_EXPORT D_COND DutCondCreateNamedNp(const char *name);
D_EXPORT D_COND DutCondAttachNamedNp(const char *name);
/** @} */
/** The caller holds the mutex. On a wake-up the mutex is held again and the
 * result is D_TRUE; on a time-out (seconds) the result is D_FALSE with
 * D_ERR_TIMEOUT_REACHED and the mutex is NOT held. */
D_EXPORT D_BOOL DutCondWait(D_COND cond, D_MUTEX mutex, D_REAL8 timeout);
/** Releases every current waiter; stays signalled until the next wait. */
D_EXPORT D_BOOL DutCondWakeAll(D_COND cond);
/** Destroys the condition. */
D_EXPORT D_BOOL DutCondDestroy(D_COND cond);

/** @{ */
/** Manual-reset events. A named event that exists is shared, not refused. */
D_EXPORT D_EVENT DutEventCreateNamed(const char *name, D_INT4 initial_state);
D_EXPORT D_EVENT DutEventCreateUnnamed(D_INT4 initial_state);
D_EXPORT D_BOOL DutEventSet(D_EVENT event);
D_EXPORT D_BOOL DutEventReset(D_EVENT event);
/** @} */
/** Waits until the event is set; the time-out is in milliseconds (-1.0:
 * for ever). */
D_EXPORT D_BOOL DutEventWait(D_EVENT event, D_REAL8 timeout);
/** Destroys the event. */
D_EXPORT D_BOOL DutEventDestroy(D_EVENT event);

/** @{ */
/** Starts a thread running func(arg); arguments after arg are ignored.
 * Runs DutInitThreads first. The handle is the thread's identity and must
 * be released once with DutThreadWait. Null func: D_ERR_NULL_PTR. */
D_EXPORT D_THREAD DutThreadCreate(D_THREAD_FUNC func, D_WORD arg, ...);
D_EXPORT D_THREAD DutThreadCreateVa(D_THREAD_FUNC func, D_WORD arg, va_list args);
/** @} */
/** Runs the calling thread's TSD destructors, then ends it. */
D_EXPORT D_NORETURN void DutThreadExit(D_WORD exit_code);
/** The handle of the calling library thread; 0 for any other thread. */
D_EXPORT D_THREAD DutThreadSelf(void);
/** D_TRUE when the two handles name the same thread. */
D_EXPORT D_BOOL DutThreadEqual(D_THREAD a, D_THREAD b);
/** Waits for the thread to end, stores its exit code (if asked) and
 * releases the handle. */
D_EXPORT D_BOOL DutThreadWait(D_THREAD thread, D_WORD *exit_code);

/** @{ */
/** Thread-specific data. Destructors run, in key-creation order, when a
 * library thread leaves through DutThreadExit. */
D_EXPORT D_BOOL DutTsdKeyCreate(D_TSD_KEY *key, D_TSD_DESTRUCTOR destructor);
D_EXPORT D_BOOL DutTsdKeyDestroy(D_TSD_KEY key);
/** @} */
/** Stores the calling thread's value of the key in *value: D_TRUE when it
 * is non-null. An invalid key: D_ERR_VAL_INVALID; a null value pointer:
 * D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutTsdGetValue(D_TSD_KEY key, void **value);
/** Sets the calling thread's value of the key; an invalid key:
 * D_ERR_VAL_INVALID. */
D_EXPORT D_BOOL DutTsdSetValue(D_TSD_KEY key, void *value);

D_END_DECLS

/** @} */
#endif /* VQUTIL_THREAD_H */
