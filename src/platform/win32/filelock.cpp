// Lock files: CreateFile shared for reading and writing, then LockFileEx
// (blocking, shared or exclusive) or LockFile (one exclusive attempt, for
// the polling path). Locks belong to the handle, so two handles of one
// process conflict.
#include <windows.h>

#include "platform/filelock.hpp"
#include "platform/os.hpp"

namespace vq::os {

namespace {

HANDLE handleOf(LockFileHandle file) noexcept { return reinterpret_cast<HANDLE>(file); }

}  // namespace

LockFileHandle lockFileOpen(const char *name) noexcept {
  // The older family's file goes with its last handle.
  const DWORD attributes = systemFamily() == 1 ? 0x4000002u : FILE_ATTRIBUTE_NORMAL;
  // No security attributes: programs the process starts do not inherit it.
  HANDLE h = ::CreateFileA(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                           attributes, nullptr);
  if (h == INVALID_HANDLE_VALUE) return kNoLockFile;
  // Opening a file that exists leaves "already exists" behind: that is success.
  if (::GetLastError() == ERROR_ALREADY_EXISTS) ::SetLastError(0);
  return reinterpret_cast<LockFileHandle>(h);
}

LockResult lockFileLock(LockFileHandle file, bool exclusive, bool wait) noexcept {
  BOOL ok;
  if (wait) {
    OVERLAPPED at{};
    ok = ::LockFileEx(handleOf(file), exclusive ? LOCKFILE_EXCLUSIVE_LOCK : 0, 0, kLockBytes, 0, &at);
  } else {
    ok = ::LockFile(handleOf(file), 0, 0, kLockBytes, 0);
  }
  if (ok != 0) return LockResult::Granted;
  const DWORD code = ::GetLastError();
  return !wait && (code == ERROR_LOCK_VIOLATION || code == ERROR_SHARING_VIOLATION) ? LockResult::Busy
                                                                                     : LockResult::Failed;
}

// An open file cannot lose its name here: it is not shared for deletion.
bool lockFileStillNamed(LockFileHandle, const char *) noexcept { return true; }

bool lockFileClose(LockFileHandle file, const char *remove_name) noexcept {
  if (::CloseHandle(handleOf(file)) == 0) return false;
  // Fails, harmlessly, while another handle still has the file open.
  if (remove_name != nullptr) {
    const DWORD saved = ::GetLastError();
    ::DeleteFileA(remove_name);
    ::SetLastError(saved);
  }
  return true;
}

}  // namespace vq::os
