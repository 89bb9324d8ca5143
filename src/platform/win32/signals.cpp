// The console interrupt through the runtime's signal(), which takes the
// key from the console (SetConsoleCtrlHandler) and runs the handler on a
// thread of the system's; raise(SIGINT) reaches it too. The runtime resets
// the handler on each delivery, so the wrapper puts it back first.
#include <atomic>
#include <cerrno>
#include <csignal>

#include "platform/os.hpp"
#include "platform/signals.hpp"

namespace vq::os {

namespace {

std::atomic<SignalHandler> utHandler{nullptr};

void onInterrupt(int signal_number) {
  std::signal(SIGINT, &onInterrupt);
  if (SignalHandler h = utHandler.load()) h(signal_number);
}

bool install(void (*handler)(int)) noexcept {
  const int saved = errno;
  const bool ok = std::signal(SIGINT, handler) != SIG_ERR;
  if (!ok) setLastError(87);  // ERROR_INVALID_PARAMETER
  errno = saved;
  return ok;
}

}  // namespace

bool installInterruptHandler(SignalHandler handler) noexcept {
  if (handler == nullptr) {
    setLastError(87);
    return false;
  }
  utHandler.store(handler);
  return install(&onInterrupt);
}

bool restoreInterruptDefault() noexcept {
  utHandler.store(nullptr);
  return install(SIG_DFL);
}

}  // namespace vq::os
