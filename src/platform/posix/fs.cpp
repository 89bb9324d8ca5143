// POSIX file-system calls.
#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/fs.hpp"

namespace vq::os {

namespace {

// Runs a call that reports through errno and hands the errno back, leaving
// the caller's errno as it was.
template <typename Call>
int errnoOf(Call call) noexcept {
  int saved = errno;
  int result = call() == 0 ? 0 : errno;
  errno = saved;
  return result;
}

}  // namespace

int fileAccess(const char *name, int mode) noexcept {
  int how = F_OK;
  if ((mode & 2) != 0) how |= W_OK;
  if ((mode & 4) != 0) how |= R_OK;
  return errnoOf([&] { return ::access(name, how); });
}

int fileSize(const char *name, std::int64_t *size) noexcept {
  struct stat info;
  int error = errnoOf([&] { return ::stat(name, &info); });
  if (error == 0) *size = static_cast<std::int64_t>(info.st_size);
  return error;
}

int fileUnlink(const char *name) noexcept {
  return errnoOf([&] { return ::unlink(name); });
}

int fileRename(const char *from, const char *to) noexcept {
  return errnoOf([&] { return std::rename(from, to); });
}

int makeDir(const char *name) noexcept {
  return errnoOf([&] { return ::mkdir(name, 0777); });
}

int changeDir(const char *name) noexcept {
  return errnoOf([&] { return ::chdir(name); });
}

int listDir(const char *name, std::vector<std::string> *entries) {
  int saved = errno;
  DIR *dir = ::opendir(name);
  if (dir == nullptr) {
    int error = errno;
    errno = saved;
    return error;
  }
  for (;;) {
    errno = 0;
    dirent *entry = ::readdir(dir);
    if (entry == nullptr) break;
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    entries->emplace_back(entry->d_name);
  }
  int error = errno;
  ::closedir(dir);
  errno = saved;
  return error;
}

long readRetry(int fd, void *buffer, std::size_t count, int *error) noexcept {
  int saved = errno;
  ssize_t n;
  do {
    n = ::read(fd, buffer, count);
  } while (n < 0 && errno == EINTR);
  *error = n < 0 ? errno : 0;
  errno = saved;
  return static_cast<long>(n);
}

long writeRetry(int fd, const void *buffer, std::size_t count, int *error) noexcept {
  int saved = errno;
  ssize_t n;
  do {
    n = ::write(fd, buffer, count);
  } while (n < 0 && errno == EINTR);
  *error = n < 0 ? errno : 0;
  errno = saved;
  return static_cast<long>(n);
}

int streamDescriptor(std::FILE *stream) noexcept {
  if (stream == nullptr) return -1;
  int saved = errno;
  int fd = ::fileno(stream);
  errno = saved;
  return fd;
}

int runShell(const char *command, int *error) noexcept {
  int saved = errno;
  int status = std::system(command);
  if (status == -1) {
    *error = errno;
    errno = saved;
    return -1;
  }
  errno = saved;
  *error = 0;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return status;
}

int ignoreInterrupt() noexcept {
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = SIG_IGN;
  sigemptyset(&action.sa_mask);
  return errnoOf([&] { return ::sigaction(SIGINT, &action, nullptr); });
}

}  // namespace vq::os
