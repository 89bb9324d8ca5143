// POSIX process identity: getrusage for CPU time, the password database
// and the login name for the user.
#include "platform/process.hpp"

#include <pwd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstring>
#include <vector>

namespace {

bool copyName(const char *name, char *buffer, std::size_t size) {
  if (name == nullptr || name[0] == '\0' || size == 0) return false;
  std::size_t n = std::strlen(name);
  if (n >= size) n = size - 1;
  std::memcpy(buffer, name, n);
  buffer[n] = '\0';
  return true;
}

}  // namespace

namespace vq::os {

bool processCpuTimeMs(std::int64_t *milliseconds) noexcept {
  rusage usage{};
  if (getrusage(RUSAGE_SELF, &usage) != 0) return false;
  // Sum in microseconds first so that the two parts truncate only once.
  std::int64_t us = static_cast<std::int64_t>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000000 +
                    static_cast<std::int64_t>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
  *milliseconds = us / 1000;
  return true;
}

bool systemUserName(char *buffer, std::size_t size) noexcept {
  try {
    long hint = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> scratch(hint > 0 ? static_cast<std::size_t>(hint) : 16384);
    passwd entry{};
    passwd *found = nullptr;
    if (getpwuid_r(geteuid(), &entry, scratch.data(), scratch.size(), &found) == 0 && found != nullptr &&
        copyName(found->pw_name, buffer, size))
      return true;
  } catch (...) {
    // Out of memory for the scratch area: fall back to the login name.
  }
  char login[256];
  if (getlogin_r(login, sizeof login) == 0 && copyName(login, buffer, size)) return true;
  return false;
}

}  // namespace vq::os
