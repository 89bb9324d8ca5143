// The console interrupt through SetConsoleCtrlHandler. The system calls
// the routine on a thread of its own; a console read the key interrupts
// returns, so the main loop sees the interrupt counter as on POSIX.
#include <windows.h>

#include <atomic>
#include <csignal>

#include "platform/os.hpp"
#include "platform/signals.hpp"

namespace vq::os {

namespace {

std::atomic<SignalHandler> utHandler{nullptr};
std::atomic<bool> utRoutineInstalled{false};

BOOL WINAPI onControl(DWORD type) {
  if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT) return FALSE;
  SignalHandler h = utHandler.load();
  if (h == nullptr) return FALSE;  // the default: the process ends
  h(SIGINT);
  return TRUE;
}

}  // namespace

bool installInterruptHandler(SignalHandler handler) noexcept {
  if (handler == nullptr) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  utHandler.store(handler);
  if (utRoutineInstalled.exchange(true)) return true;
  if (::SetConsoleCtrlHandler(&onControl, TRUE) != 0) return true;
  utRoutineInstalled.store(false);
  utHandler.store(nullptr);
  return false;
}

bool restoreInterruptDefault() noexcept {
  utHandler.store(nullptr);
  if (utRoutineInstalled.exchange(false)) return ::SetConsoleCtrlHandler(&onControl, FALSE) != 0;
  return true;
}

}  // namespace vq::os
