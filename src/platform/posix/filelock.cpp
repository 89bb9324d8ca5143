// POSIX lock files: open-file-description locks, which belong to the open
// file rather than to the process, so that two handles of one process
// conflict as they do on Windows.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "platform/filelock.hpp"
#include "platform/os.hpp"

namespace vq::os {

namespace {

// The caller's errno survives every call here: failures go to the OS last
// error instead.
class KeepErrno {
 public:
  KeepErrno() noexcept : saved_(errno) {}
  ~KeepErrno() { errno = saved_; }
  KeepErrno(const KeepErrno &) = delete;
  KeepErrno &operator=(const KeepErrno &) = delete;

 private:
  int saved_;
};

// A handle that cannot be a descriptor becomes -1, which the system
// refuses with EBADF.
int descriptorOf(LockFileHandle file) noexcept {
  return file >= 0 && file <= INT_MAX ? static_cast<int>(file) : -1;
}

int setRegion(int fd, short type, bool wait) noexcept {
  struct flock region = {};
  region.l_type = type;
  region.l_whence = SEEK_SET;
  region.l_start = 0;
  region.l_len = kLockBytes;
  int rc;
  do {
    rc = ::fcntl(fd, wait ? F_OFD_SETLKW : F_OFD_SETLK, &region);
  } while (rc != 0 && errno == EINTR);
  return rc;
}

}  // namespace

LockFileHandle lockFileOpen(const char *name) noexcept {
  KeepErrno keep;
  int fd;
  do {
    fd = ::open(name, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    setLastError(errno);
    return kNoLockFile;
  }
  return fd;
}

LockResult lockFileLock(LockFileHandle file, bool exclusive, bool wait) noexcept {
  KeepErrno keep;
  if (setRegion(descriptorOf(file), exclusive ? F_WRLCK : F_RDLCK, wait) == 0) return LockResult::Granted;
  setLastError(errno);
  return !wait && (errno == EAGAIN || errno == EACCES) ? LockResult::Busy : LockResult::Failed;
}

bool lockFileStillNamed(LockFileHandle file, const char *name) noexcept {
  KeepErrno keep;
  struct stat held;
  struct stat named;
  if (::fstat(descriptorOf(file), &held) != 0 || ::stat(name, &named) != 0) {
    setLastError(errno);
    return false;
  }
  if (held.st_dev != named.st_dev || held.st_ino != named.st_ino) {
    setLastError(ESTALE);
    return false;
  }
  return true;
}

bool lockFileClose(LockFileHandle file, const char *remove_name) noexcept {
  KeepErrno keep;
  const int fd = descriptorOf(file);
  // The name goes while this handle still holds the whole region, which
  // proves that no other handle holds a lock on the file; a handle that
  // only waits for it finds the name gone and opens the file anew.
  if (remove_name != nullptr && setRegion(fd, F_WRLCK, false) == 0) ::unlink(remove_name);
  // Released explicitly: a child forked meanwhile shares the open file, and
  // the close alone would leave the lock held for as long as the child
  // keeps its copy.
  setRegion(fd, F_UNLCK, false);
  if (::close(fd) != 0) {
    setLastError(errno);
    return false;
  }
  return true;
}

}  // namespace vq::os
