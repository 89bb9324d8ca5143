// Time, process identity, system information, the environment and the
// system log.
#include <sys/utsname.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/os.hpp"

namespace vq::os {

void sleepSeconds(double seconds) noexcept {
  if (!(seconds > 0.0)) return;  // also NaN
  double whole = std::floor(seconds);
  timespec left;
  // Beyond what time_t holds the sleep is as good as for ever.
  left.tv_sec = whole >= 1e15 ? static_cast<time_t>(1e15) : static_cast<time_t>(whole);
  left.tv_nsec = static_cast<long>((seconds - whole) * 1e9);
  if (left.tv_nsec >= 1000000000L) left.tv_nsec = 999999999L;
  int saved = errno;
  // A signal cuts the sleep short; go on for the time that remains.
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
  errno = saved;
}

void wallClock(std::int64_t *seconds, std::int32_t *microseconds) noexcept {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  if (seconds != nullptr) *seconds = static_cast<std::int64_t>(ts.tv_sec);
  if (microseconds != nullptr) *microseconds = static_cast<std::int32_t>(ts.tv_nsec / 1000);
}

void ctimeText(std::time_t t, char *buffer, std::size_t size) noexcept {
  if (buffer == nullptr || size == 0) return;
  char text[64];
  if (ctime_r(&t, text) == nullptr) text[0] = '\0';
  std::size_t n = std::strlen(text);
  if (n >= size) n = size - 1;
  std::memcpy(buffer, text, n);
  buffer[n] = '\0';
}

bool localCalendar(std::time_t t, std::tm *fields) noexcept {
  return fields != nullptr && localtime_r(&t, fields) != nullptr;
}

int processId() noexcept { return static_cast<int>(getpid()); }

bool systemInfo(char *sysname, char *nodename, char *release, char *version, char *machine,
                std::size_t size) noexcept {
  utsname u;
  int saved = errno;
  bool ok = ::uname(&u) == 0;
  if (!ok) setLastError(errno);
  errno = saved;
  if (!ok) return false;
  const char *texts[] = {u.sysname, u.nodename, u.release, u.version, u.machine};
  char *buffers[] = {sysname, nodename, release, version, machine};
  for (int i = 0; i < 5; ++i) std::snprintf(buffers[i], size, "%s", texts[i]);
  return true;
}

bool setEnv(const char *name, const char *value) noexcept {
  if (name == nullptr || value == nullptr) {
    setLastError(EINVAL);
    return false;
  }
  int saved = errno;
  bool ok = setenv(name, value, 1) == 0;
  if (!ok) setLastError(errno);
  errno = saved;
  return ok;
}

void systemLog(const char *ident, const char *text) noexcept {
  if (text == nullptr) return;
  int saved = errno;
  openlog(ident, LOG_PID, LOG_USER);
  syslog(LOG_ERR, "%s", text);
  closelog();
  errno = saved;
}

}  // namespace vq::os
