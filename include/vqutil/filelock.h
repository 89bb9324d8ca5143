/**
 * @defgroup filelock File locks
 * Advisory file locks between processes.
 *
 * Locking a resource named N opens (creating it when missing) the
 * companion file N followed by "-LOCKFILE-" and locks its first 16 bytes,
 * shared or exclusive. A lock belongs to its handle, not to the process:
 * two handles of one process conflict just as two processes do. Unlocking
 * closes the file and removes it unless another handle still holds a lock
 * on it. The resource file itself is never opened.
 *
 * The platform pairs: DptLockFileOpenUnix / DptLockFileUnix do the work on
 * POSIX, DptLockFileOpenWindows / DptLockFileWindows on Windows; the other
 * pair reports failure ("not available") and sets no error number.
 *
 * Options read (looked up by name each time; a missing option or one
 * without a value gives the default). The library does not create them: a
 * host that wants them settable creates them itself (numeric, numeric and
 * boolean):
 *   ptm_lock_loops  attempts of the polling path (default 600);
 *   ptm_lock_delay  seconds between those attempts (default 0.2);
 *   ptm_lock_trace  true: every failure and retry is reported through
 *                   DutOut (default false).
 *
 * Errors: D_ERR_NULL_PTR (3) for null arguments and cleared handles,
 * D_ERR_VAL_INVALID (7) for a lock type outside 0..2, an empty resource
 * name and a handle that is not a lock handle, D_ERR_OS (2) with the OS
 * value (DutErrNumGetOs) when the system refuses to open, lock or close.
 *
 * Thread safety: any thread may lock and unlock; one handle is used by one
 * thread at a time.
 * @{
 */
/**
 * @file
 * @ingroup filelock
 * @brief File locks (filelock).
 */
#ifndef VQUTIL_FILELOCK_H
#define VQUTIL_FILELOCK_H

#include "types.h"

/** @{ */
/** Lock types. */
#define D_LOCK_SHARED 0
#define D_LOCK_EXCLUSIVE 1
#define D_LOCK_UNLOCK 2
/** @} */

/** What follows the resource name in the lock file's name. */
#define D_LOCK_FILE_SUFFIX "-LOCKFILE-"

/** A held lock, allocated by DptLockFile and freed by DptUnlockFile. */
typedef struct D_LOCK_HANDLE {
  D_WORD marker; /**< 1 while the handle is live */
  D_WORD file;   /**< the platform's handle of the open lock file */
  char *name;    /**< own copy of the lock file's name */
} D_LOCK_HANDLE;

D_BEGIN_DECLS

/** Takes a lock of lock_type on the resource name and stores the new handle
 * in *handle; lock type D_LOCK_UNLOCK is DptUnlockFile(handle) instead.
 * Blocks until the lock is granted. reserved is ignored. Checks, in order:
 * null handle D_ERR_NULL_PTR; type 2 unlocks; a type outside 0..2
 * D_ERR_VAL_INVALID; null name D_ERR_NULL_PTR; empty name
 * D_ERR_VAL_INVALID. Then *handle is cleared, and a lock file that cannot
 * be opened or locked gives D_ERR_OS (a name longer than any path:
 * ENAMETOOLONG beside it). D_TRUE on success. With ptm_lock_trace on, the
 * refusals print "Invalid lock handle pointer passed to DptLockFile\n",
 * "DptLockFile: Invalid lock type passed %ld\n" and "Invalid filename
 * pointer passed to DptLockFile\n", a success "File locked \n". */
D_EXPORT D_BOOL DptLockFile(const char *name, D_WORD reserved, D_INT4 lock_type, D_LOCK_HANDLE **handle);

/** Releases the lock: closes the lock file, removes it unless another
 * handle still holds a lock on it, frees the handle and clears *handle.
 * A null handle or a cleared *handle: D_ERR_NULL_PTR, D_FALSE (traced as
 * "Invalid pointer passed to DptUnlockFile\n"); a record that is not a
 * live lock handle: D_ERR_VAL_INVALID, D_FALSE, left alone. A failing
 * close ("CloseHandle failure.  Error code %d\n"): D_ERR_OS, D_FALSE, but
 * the handle is freed and cleared all the same. */
D_EXPORT D_BOOL DptUnlockFile(D_LOCK_HANDLE **handle);

/** Opens the lock file (not the resource) named lock_file_name for reading
 * and writing, creating it when missing. The file handle, or -1 with
 * D_ERR_OS ("CreateFile failure.  Error code %d\n" when tracing); a null
 * name: D_ERR_NULL_PTR, -1. */
D_EXPORT D_WORD DptLockFileOpenUnix(const char *lock_file_name);

/** Locks the first 16 bytes of an open lock file, shared (0) or exclusive
 * (1). poll D_FALSE: one request that blocks until granted. poll D_TRUE:
 * up to ptm_lock_loops attempts that do not block; each one that meets
 * another handle's lock prints "File in use; retrying operation \n" (when
 * tracing) and pauses ptm_lock_delay seconds; any other failure stops at
 * once. On failure the file is closed, "LockFile(Ex) failure.  Error code
 * %d\n" is traced, and D_ERR_OS is set with the system's value (EAGAIN or
 * EACCES when the lock stayed busy). A lock type outside 0..1:
 * D_ERR_VAL_INVALID, the file stays open. D_TRUE when locked. */
D_EXPORT D_BOOL DptLockFileUnix(D_WORD file, D_INT4 lock_type, D_BOOL poll);

/** @{ */
/** The Windows pair: -1 and D_FALSE on POSIX. */
D_EXPORT D_WORD DptLockFileOpenWindows(const char *lock_file_name);
D_EXPORT D_BOOL DptLockFileWindows(D_WORD file, D_INT4 lock_type);
/** @} */

/** @{ */
/** The option values with their defaults: attempts of the polling path
 * (ptm_lock_loops, truncated; 600), seconds between them (ptm_lock_delay;
 * 0.2), and whether to trace (ptm_lock_trace; D_FALSE). The caller's error
 * number is left as it was. */
D_EXPORT D_INT4 DptLockFileLoops(void);
D_EXPORT D_REAL8 DptLockFileWait(void);
D_EXPORT D_BOOL DptLockFileTrace(void);
/** @} */

D_END_DECLS

/** @} */
#endif /* VQUTIL_FILELOCK_H */
