// Process identity: GetProcessTimes for CPU time; GetUserName, then the
// user entry of system.ini, for the user's name.
#include <windows.h>

#include <cstring>

#include "platform/process.hpp"

namespace vq::os {

namespace {

std::uint64_t ticksOf(const FILETIME &t) {
  return (static_cast<std::uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
}

}  // namespace

bool processCpuTimeMs(std::int64_t *milliseconds) noexcept {
  FILETIME created, ended, kernel, user;
  if (::GetProcessTimes(::GetCurrentProcess(), &created, &ended, &kernel, &user) == 0) return false;
  *milliseconds = static_cast<std::int64_t>((ticksOf(kernel) + ticksOf(user)) / 10000u);
  return true;
}

bool systemUserName(char *buffer, std::size_t size) noexcept {
  if (buffer == nullptr || size == 0) return false;
  char name[257];
  DWORD n = sizeof name;
  if (::GetUserNameA(name, &n) == 0 || name[0] == '\0') {
    n = ::GetPrivateProfileStringA("Network", "UserName", "", name, sizeof name, "system.ini");
    if (n == 0) return false;
  }
  std::size_t len = std::strlen(name);
  if (len >= size) len = size - 1;
  std::memcpy(buffer, name, len);
  buffer[len] = '\0';
  return true;
}

}  // namespace vq::os
