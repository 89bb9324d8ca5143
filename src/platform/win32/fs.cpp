// File-system calls through the C runtime's underscore names; directory
// listing through FindFirstFile.
#include <direct.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/fs.hpp"

namespace vq::os {

namespace {

template <typename Call>
int errnoOf(Call call) noexcept {
  int saved = errno;
  int result = call() == 0 ? 0 : errno;
  errno = saved;
  return result;
}

// The runtime's reading of a system error, for the few calls made directly.
int errnoFromSystem(DWORD code) noexcept {
  switch (code) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
      return ENOENT;
    case ERROR_ACCESS_DENIED:
      return EACCES;
    case ERROR_DIRECTORY:
      return ENOTDIR;
    case ERROR_NOT_ENOUGH_MEMORY:
      return ENOMEM;
    default:
      return EIO;
  }
}

}  // namespace

int fileAccess(const char *name, int mode) noexcept {
  return errnoOf([&] { return ::_access(name, mode & 6); });
}

int fileSize(const char *name, std::int64_t *size) noexcept {
  struct _stat64 info;
  int error = errnoOf([&] { return ::_stat64(name, &info); });
  if (error == 0) *size = static_cast<std::int64_t>(info.st_size);
  return error;
}

int fileUnlink(const char *name) noexcept {
  return errnoOf([&] { return ::_unlink(name); });
}

int fileRename(const char *from, const char *to) noexcept {
  return errnoOf([&] { return std::rename(from, to); });
}

int makeDir(const char *name) noexcept {
  return errnoOf([&] { return ::_mkdir(name); });
}

int changeDir(const char *name) noexcept {
  return errnoOf([&] { return ::_chdir(name); });
}

int listDir(const char *name, std::vector<std::string> *entries) {
  std::string pattern(name);
  if (!pattern.empty() && pattern.back() != '\\' && pattern.back() != '/') pattern += '\\';
  pattern += '*';
  WIN32_FIND_DATAA found;
  HANDLE h = ::FindFirstFileA(pattern.c_str(), &found);
  if (h == INVALID_HANDLE_VALUE) {
    const DWORD code = ::GetLastError();
    // An empty directory has no entries at all, not even "." on some drives.
    return code == ERROR_FILE_NOT_FOUND ? 0 : errnoFromSystem(code);
  }
  do {
    if (std::strcmp(found.cFileName, ".") == 0 || std::strcmp(found.cFileName, "..") == 0) continue;
    entries->emplace_back(found.cFileName);
  } while (::FindNextFileA(h, &found) != 0);
  const DWORD code = ::GetLastError();
  ::FindClose(h);
  return code == ERROR_NO_MORE_FILES ? 0 : errnoFromSystem(code);
}

long readRetry(int fd, void *buffer, std::size_t count, int *error) noexcept {
  int saved = errno;
  const unsigned n = count > 0x7FFFFFFFu ? 0x7FFFFFFFu : static_cast<unsigned>(count);
  int got = ::_read(fd, buffer, n);
  *error = got < 0 ? errno : 0;
  errno = saved;
  return got;
}

long writeRetry(int fd, const void *buffer, std::size_t count, int *error) noexcept {
  int saved = errno;
  const unsigned n = count > 0x7FFFFFFFu ? 0x7FFFFFFFu : static_cast<unsigned>(count);
  int put = ::_write(fd, buffer, n);
  *error = put < 0 ? errno : 0;
  errno = saved;
  return put;
}

int streamDescriptor(std::FILE *stream) noexcept {
  if (stream == nullptr) return -1;
  int saved = errno;
  int fd = ::_fileno(stream);
  errno = saved;
  return fd;
}

// The command interpreter's exit status is the command's.
int runShell(const char *command, int *error) noexcept {
  int saved = errno;
  int status = std::system(command);
  *error = status == -1 ? errno : 0;
  errno = saved;
  return status;
}

int ignoreInterrupt() noexcept {
  int saved = errno;
  int result = std::signal(SIGINT, SIG_IGN) == SIG_ERR ? errno : 0;
  errno = saved;
  return result;
}

}  // namespace vq::os
