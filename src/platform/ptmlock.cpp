// File locks: a resource is locked through a companion lock file whose
// first bytes carry the lock. The platform pair that does the work is
// chosen at build time; the polling and tracing logic is shared by both.
#include <cmath>
#include <cstring>

#include "platform/filelock.hpp"
#include "platform/os.hpp"
#include "vqutil/error.h"
#include "vqutil/filelock.h"
#include "vqutil/memory.h"
#include "vqutil/option.h"
#include "vqutil/output.h"
#include "vqutil/platform.h"
#include "vqutil/safestr.h"

namespace {

constexpr D_INT4 kDefaultLoops = 600;
constexpr D_REAL8 kDefaultDelay = 0.2;
constexpr D_WORD kLiveMarker = 1;
// A lock file that its last holder removed while we waited is opened anew;
// this many times at most, so that a file system whose names never agree
// with their handles cannot keep a caller here for ever.
constexpr int kMaxReopens = 100;

bool refuse(D_INT4 error) {
  DutErrNumSet(error);
  return false;
}

// The failure of a system call, with its value beside the library number.
bool refuseOs() {
  DutErrNumSetOs(vq::os::lastError());
  return false;
}

// Reads an option's value; false when the option is missing or has no
// value of the expected type. An absent value is ordinary here, so the
// caller's error number is kept.
template <typename Stored>
bool readOption(const char *name, D_BOOL (*get)(D_OPTION *, Stored *), Stored *value) {
  const D_INT4 saved = DutErrNumGet();
  D_OPTION *option = DutOptionLookup(name);
  const bool found = option != nullptr && get(option, value) == D_TRUE;
  DutErrNumSet(saved);
  return found;
}

D_WORD openLockFile(const char *lock_file_name) {
  if (lock_file_name == nullptr) {
    refuse(D_ERR_NULL_PTR);
    return vq::os::kNoLockFile;
  }
  const vq::os::LockFileHandle file = vq::os::lockFileOpen(lock_file_name);
  if (file == vq::os::kNoLockFile) {
    if (DptLockFileTrace()) DutOut("CreateFile failure.  Error code %d\n", vq::os::lastError());
    refuseOs();
  }
  return file;
}

// One blocking request, or up to ptm_lock_loops polls ptm_lock_delay
// seconds apart. A failure closes the file.
D_BOOL lockLockFile(D_WORD file, bool exclusive, bool poll) {
  const bool trace = DptLockFileTrace();
  vq::os::LockResult result = vq::os::LockResult::Failed;
  if (!poll) {
    result = vq::os::lockFileLock(file, exclusive, true);
  } else {
    const D_INT4 loops = DptLockFileLoops();
    const D_REAL8 delay = DptLockFileWait();
    for (D_INT4 attempt = 0; attempt < loops; ++attempt) {
      result = vq::os::lockFileLock(file, exclusive, false);
      if (result != vq::os::LockResult::Busy) break;
      if (trace) DutOut("File in use; retrying operation \n");
      DutWinSleep(delay);
    }
  }
  if (result == vq::os::LockResult::Granted) return D_TRUE;
  const int os_error = vq::os::lastError();
  if (trace) DutOut("LockFile(Ex) failure.  Error code %d\n", os_error);
  vq::os::lockFileClose(file, nullptr);
  DutErrNumSetOs(os_error);
  return D_FALSE;
}

bool knownLockType(D_INT4 lock_type) { return lock_type == D_LOCK_SHARED || lock_type == D_LOCK_EXCLUSIVE; }

#if defined(_WIN32)
D_WORD openNative(const char *lock_file_name) { return DptLockFileOpenWindows(lock_file_name); }
D_BOOL lockNative(D_WORD file, D_INT4 lock_type) { return DptLockFileWindows(file, lock_type); }
#else
D_WORD openNative(const char *lock_file_name) { return DptLockFileOpenUnix(lock_file_name); }
// Blocking as the NT family does; the older family's polling is the one
// other path.
D_BOOL lockNative(D_WORD file, D_INT4 lock_type) {
  return DptLockFileUnix(file, lock_type, DutWinVersionInfo() == 1 ? D_TRUE : D_FALSE);
}
#endif

// The file is open and locked, and still the one its name leads to: a
// file removed by its last holder while we waited guards nothing, so the
// name is opened and locked again.
D_WORD openAndLock(const char *lock_file_name, D_INT4 lock_type) {
  for (int reopen = 0;; ++reopen) {
    const D_WORD file = openNative(lock_file_name);
    if (file == vq::os::kNoLockFile) return file;
    if (!lockNative(file, lock_type)) return vq::os::kNoLockFile;
    if (vq::os::lockFileStillNamed(file, lock_file_name)) return file;
    const int os_error = vq::os::lastError();
    vq::os::lockFileClose(file, nullptr);
    if (reopen == kMaxReopens) {
      DutErrNumSetOs(os_error);
      return vq::os::kNoLockFile;
    }
  }
}

}  // namespace

extern "C" {

D_EXPORT D_INT4 DptLockFileLoops(void) {
  D_REAL8 loops = 0.0;
  if (!readOption("ptm_lock_loops", DutOptionGetNum, &loops) || std::isnan(loops)) return kDefaultLoops;
  if (loops >= 2147483647.0) return 2147483647;
  if (loops <= -2147483648.0) return -2147483647 - 1;
  return static_cast<D_INT4>(loops);
}

D_EXPORT D_REAL8 DptLockFileWait(void) {
  D_REAL8 delay = 0.0;
  return readOption("ptm_lock_delay", DutOptionGetNum, &delay) ? delay : kDefaultDelay;
}

D_EXPORT D_BOOL DptLockFileTrace(void) {
  D_INT4 trace = 0;
  return readOption("ptm_lock_trace", DutOptionGetBool, &trace) && trace != 0 ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DptUnlockFile(D_LOCK_HANDLE **handle) {
  const bool trace = DptLockFileTrace();
  if (handle == nullptr || *handle == nullptr || (*handle)->marker != kLiveMarker) {
    if (trace) DutOut("Invalid pointer passed to DptUnlockFile\n");
    return refuse(handle == nullptr || *handle == nullptr ? D_ERR_NULL_PTR : D_ERR_VAL_INVALID);
  }
  D_LOCK_HANDLE *lock = *handle;
  D_BOOL result = D_TRUE;
  // The NT family removes the file at unlock; the older family's goes when
  // its last handle closes.
  const char *remove = DutWinVersionInfo() == 2 ? lock->name : nullptr;
  if (!vq::os::lockFileClose(lock->file, remove)) {
    if (trace) DutOut("CloseHandle failure.  Error code %d\n", vq::os::lastError());
    result = refuseOs();
  }
  lock->marker = 0;
  DutFree(lock->name);
  DutFree(lock);
  *handle = nullptr;
  return result;
}

D_EXPORT D_BOOL DptLockFile(const char *name, D_WORD reserved, D_INT4 lock_type, D_LOCK_HANDLE **handle) {
  static_cast<void>(reserved);
  const bool trace = DptLockFileTrace();
  if (handle == nullptr) {
    if (trace) DutOut("Invalid lock handle pointer passed to DptLockFile\n");
    return refuse(D_ERR_NULL_PTR);
  }
  if (lock_type == D_LOCK_UNLOCK) return DptUnlockFile(handle);
  if (!knownLockType(lock_type)) {
    if (trace) DutOut("DptLockFile: Invalid lock type passed %ld\n", static_cast<long>(lock_type));
    return refuse(D_ERR_VAL_INVALID);
  }
  if (name == nullptr) {
    if (trace) DutOut("Invalid filename pointer passed to DptLockFile\n");
    return refuse(D_ERR_NULL_PTR);
  }
  // An empty name would lock a file of the working directory that stands
  // for no resource.
  if (*name == '\0') {
    if (trace) DutOut("DptLockFile: Empty filename passed\n");
    return refuse(D_ERR_VAL_INVALID);
  }
  *handle = nullptr;
  const std::size_t length = std::strlen(name) + sizeof D_LOCK_FILE_SUFFIX;
  D_SAFE_STRING lock_name = DutSafeStringQCreate(static_cast<D_INT4>(length));
  DutSafeStringAppend(&lock_name, name);
  DutSafeStringAppend(&lock_name, D_LOCK_FILE_SUFFIX);

  const D_WORD file = openAndLock(lock_name.str, lock_type);
  if (file == vq::os::kNoLockFile) {
    DutSafeStringDestroy(lock_name);
    return D_FALSE;
  }
  if (trace) DutOut("File locked \n");
  auto *lock = static_cast<D_LOCK_HANDLE *>(DutMalloc(sizeof(D_LOCK_HANDLE)));
  char *name_copy = static_cast<char *>(DutMalloc(static_cast<D_INT4>(length)));
  if (lock == nullptr || name_copy == nullptr) {
    vq::os::lockFileClose(file, lock_name.str);
    DutSafeStringDestroy(lock_name);
    DutFree(lock);
    DutFree(name_copy);
    return refuse(D_ERR_NO_MEMORY);
  }
  std::memcpy(name_copy, lock_name.str, length);
  DutSafeStringDestroy(lock_name);
  lock->marker = kLiveMarker;
  lock->file = file;
  lock->name = name_copy;
  *handle = lock;
  return D_TRUE;
}

D_EXPORT D_WORD DptLockFileOpenUnix(const char *lock_file_name) {
#if defined(_WIN32)
  static_cast<void>(lock_file_name);
  return 0;
#else
  return openLockFile(lock_file_name);
#endif
}

D_EXPORT D_BOOL DptLockFileUnix(D_WORD file, D_INT4 lock_type, D_BOOL poll) {
#if defined(_WIN32)
  static_cast<void>(file);
  static_cast<void>(lock_type);
  static_cast<void>(poll);
  return D_FALSE;
#else
  if (!knownLockType(lock_type)) return refuse(D_ERR_VAL_INVALID);
  return lockLockFile(file, lock_type == D_LOCK_EXCLUSIVE, poll != D_FALSE);
#endif
}

D_EXPORT D_WORD DptLockFileOpenWindows(const char *lock_file_name) {
#if defined(_WIN32)
  return openLockFile(lock_file_name);
#else
  static_cast<void>(lock_file_name);
  return vq::os::kNoLockFile;
#endif
}

D_EXPORT D_BOOL DptLockFileWindows(D_WORD file, D_INT4 lock_type) {
#if defined(_WIN32)
  // The NT family blocks, shared or exclusive as asked; the older family
  // can only poll, and only exclusively.
  switch (DutWinVersionInfo()) {
    case 2:
      return lockLockFile(file, lock_type == D_LOCK_EXCLUSIVE, false);
    case 1:
      return lockLockFile(file, true, true);
    default:
      if (DptLockFileTrace()) DutOut("Unknown Windows OS returned \n");
      if (DptLockFileTrace()) DutOut("LockFile(Ex) failure.  Error code %d\n", vq::os::lastError());
      vq::os::lockFileClose(file, nullptr);
      return D_FALSE;
  }
#else
  static_cast<void>(file);
  static_cast<void>(lock_type);
  return D_FALSE;
#endif
}

}  // extern "C"
