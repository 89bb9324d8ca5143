/**
 * @defgroup rwmutex Read-write mutex
 * Read-write mutex.
 *
 * Many concurrent readers or one writer, built from one library mutex and
 * manual-reset conditions (thread.h). Both modes are recursive. A writer's
 * read locks are further write levels. A reader may upgrade to writer with
 * a time-out; upgraders are served first come, first served and before
 * plain writers. While any writer or upgrader waits, new readers are held
 * back; threads that already hold a read lock are never blocked by a
 * recursive read.
 *
 * Thread identity is DutThreadSelf: every thread not started by
 * DutThreadCreate (the main thread among them) counts as one and the same
 * thread. A host that uses the lock from threads of its own calls
 * DutInitThreads first.
 *
 * Every operation returns D_TRUE on success and D_FALSE on failure; a null
 * rw-mutex sets D_ERR_VAL_INVALID (7). Misuse (unlocking a lock the caller
 * does not hold, unlocking a free lock, upgrading without holding) is a
 * fatal assertion, not an error number.
 *
 * The record belongs to its creator until DutRwMutexDestroy. All fields are
 * guarded by `mutex`; callers never touch them.
 * @{
 */
/**
 * @file
 * @ingroup rwmutex
 * @brief Read-write mutex (rwmutex).
 */
#ifndef VQUTIL_RWMUTEX_H
#define VQUTIL_RWMUTEX_H

#include "list.h"
#include "thread.h"
#include "types.h"

/** Largest read quota accepted by create and set; the quota still grows
 * past it on demand. */
#define D_RW_MUTEX_MAX_READ_QUOTA 32

/** A thread waiting to write: the lock's own `write` record heads the queue
 * of waiting upgraders; each upgrader has one of these on its stack. */
typedef struct D_RW_WAIT {
  D_DQ_NODE links;    /**< left and right link in the wait queue */
  D_COND cond;        /**< where this waiter sleeps */
  D_INT4 lock_count;  /**< see D_RW_MUTEX */
  D_THREAD thread;    /**< writer (head) or upgrader */
} D_RW_WAIT;

/** A read-write mutex, made by DutRwMutexCreate. */
typedef struct D_RW_MUTEX {
  D_MUTEX mutex;              /**< guards every field below */
  D_COND read_cond;           /**< blocked new readers wait here */
  D_INT4 read_quota;          /**< number of reader slots allocated */
  D_THREAD *read_threads;     /**< slot owners */
  D_INT4 *read_lock_counts;   /**< slot i is in use while its count > 0 */
  D_INT4 wait_count;          /**< writers and upgraders waiting now */
  D_DQ_NODE *wait_queue;      /**< head of the upgrader queue: &write */
  /** write.lock_count is the state of the lock: 0 free, n > 0 read-held
   * (sum of the slots minus queued upgraders' counts), -d write-held by
   * write.thread at depth d. write.cond is where plain writers wait. */
  D_RW_WAIT write;
} D_RW_MUTEX;

D_BEGIN_DECLS

/** Creates a read-write mutex. locked must be 0 or 1 and read_quota 1..32
 * (D_ERR_VAL_INVALID and null otherwise). locked 1 returns the lock held
 * for writing (depth 1) by the caller. read_quota is the initial number of
 * reader slots, not a limit. The caller owns the record. */
D_EXPORT D_RW_MUTEX *DutRwMutexCreate(D_INT4 locked, D_INT4 read_quota);

/** Frees the lock. It should be free or write-held by the caller with no
 * waiters; otherwise a warning is printed and it is destroyed anyway. */
D_EXPORT D_BOOL DutRwMutexDestroy(D_RW_MUTEX *rw_mutex);

/** Stores the current number of reader slots (it may have grown past the
 * quota set). Null read_quota: D_ERR_NULL_PTR. */
D_EXPORT D_BOOL DutRwMutexGetReadQuota(D_RW_MUTEX *rw_mutex, D_INT4 *read_quota);

/** Replaces the reader slots by read_quota (1..32, else D_ERR_VAL_INVALID)
 * fresh ones. Takes and releases one write level to do it, so a caller's
 * read locks come back as write levels. */
D_EXPORT D_BOOL DutRwMutexSetReadQuota(D_RW_MUTEX *rw_mutex, D_INT4 read_quota);

/** Takes a read lock; waits while a writer holds the lock or any writer or
 * upgrader waits, unless the caller already holds a read lock. A writer's
 * read lock is one more write level. Each lock needs one unlock. */
D_EXPORT D_BOOL DutRwMutexReadLock(D_RW_MUTEX *rw_mutex);

/** Takes the write lock, waiting without limit. A caller holding n read
 * locks upgrades first and ends at depth n + 1 (n + 1 unlocks). */
D_EXPORT D_BOOL DutRwMutexWriteLock(D_RW_MUTEX *rw_mutex);

/** Releases one level of whatever the caller holds. When the lock becomes
 * free, wakes the oldest upgrader (or the plain writers) when anyone waits
 * to write, else the waiting readers. */
D_EXPORT D_BOOL DutRwMutexUnlock(D_RW_MUTEX *rw_mutex);

/** Turns the caller's n read locks into n write levels. timeout is in
 * seconds, exactly -1.0 for ever; any other negative value:
 * D_ERR_VAL_TOO_SMALL. 0.0 fails at once with D_ERR_TIMEOUT_REACHED when
 * other readers hold the lock. On a time-out the result is D_FALSE with
 * D_ERR_TIMEOUT_REACHED and the read locks are kept. While the caller
 * waits, its read locks are out of the count, so a later upgrader who is
 * then the only reader counted goes ahead; a time-out that passes while
 * such an upgrader holds the lock takes effect only once it has left (the
 * caller then finds the lock free and upgrades). The write holder
 * upgrading succeeds and changes nothing. */
D_EXPORT D_BOOL DutRwMutexUpgradeLock(D_RW_MUTEX *rw_mutex, D_REAL8 timeout);

/** D_TRUE when the caller holds the write lock or at least one read lock;
 * D_FALSE otherwise (no error number). */
D_EXPORT D_BOOL DutRwMutexReadLocked(D_RW_MUTEX *rw_mutex);

/** D_TRUE when the caller holds the write lock. */
D_EXPORT D_BOOL DutRwMutexWriteLocked(D_RW_MUTEX *rw_mutex);

D_END_DECLS

/** @} */
#endif /* VQUTIL_RWMUTEX_H */
