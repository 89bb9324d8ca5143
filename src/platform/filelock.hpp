// Advisory locks on the first bytes of a lock file, for the file-lock
// family. A lock belongs to the handle, not to the process, so two handles
// of one process conflict as two processes do.
#pragma once

#include <cstdint>

namespace vq::os {

using LockFileHandle = std::intptr_t;
inline constexpr LockFileHandle kNoLockFile = -1;
// The locked region: this many bytes from offset 0.
inline constexpr int kLockBytes = 16;

// Opens the lock file for reading and writing, creating it when missing;
// programs the process starts do not inherit the handle. kNoLockFile, with
// the OS last error set, on failure.
LockFileHandle lockFileOpen(const char *name) noexcept;

enum class LockResult { Granted, Busy, Failed };

// Locks the region shared or exclusive. With wait the call blocks until the
// lock is granted; without, a conflicting lock held through another handle
// answers Busy at once. Busy and Failed leave the OS last error set.
LockResult lockFileLock(LockFileHandle file, bool exclusive, bool wait) noexcept;

// Whether name still leads to the file behind the handle. The last holder
// removes the file when it unlocks; a handle that was waiting on it then
// holds a lock on a file nobody will open again, which guards nothing.
// False, with the OS last error set, when it no longer does.
bool lockFileStillNamed(LockFileHandle file, const char *name) noexcept;

// Closes the handle, which releases its lock. Given a name, the file goes
// too, unless a lock on it is still held through another handle. False,
// with the OS last error set, when the close fails; the handle is gone all
// the same.
bool lockFileClose(LockFileHandle file, const char *remove_name) noexcept;

}  // namespace vq::os
