// The console interrupt on POSIX: sigaction without SA_RESTART, so a read
// interrupted by the key returns EINTR instead of silently resuming.
#include <signal.h>

#include <cerrno>

#include "platform/os.hpp"
#include "platform/signals.hpp"

namespace vq::os {

namespace {

bool install(void (*handler)(int)) noexcept {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;
  int saved = errno;
  bool ok = sigaction(SIGINT, &action, nullptr) == 0;
  if (!ok) setLastError(errno);
  errno = saved;
  return ok;
}

}  // namespace

bool installInterruptHandler(SignalHandler handler) noexcept {
  if (handler == nullptr) {
    setLastError(EINVAL);
    return false;
  }
  return install(handler);
}

bool restoreInterruptDefault() noexcept { return install(SIG_DFL); }

}  // namespace vq::os
