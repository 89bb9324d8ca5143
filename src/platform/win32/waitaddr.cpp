// Sleeping on a word with WaitOnAddress, against the performance counter.
#include <windows.h>

#include "../thread_lock.hpp"

namespace vq::os {

std::uint64_t monotonicNs() noexcept {
  static const std::uint64_t frequency = [] {
    LARGE_INTEGER f;
    ::QueryPerformanceFrequency(&f);
    return static_cast<std::uint64_t>(f.QuadPart);
  }();
  LARGE_INTEGER now;
  ::QueryPerformanceCounter(&now);
  const auto ticks = static_cast<std::uint64_t>(now.QuadPart);
  // Whole seconds and the rest apart, so that the product cannot overflow.
  return ticks / frequency * 1000000000u + ticks % frequency * 1000000000u / frequency;
}

std::uint64_t deadlineAfterMs(std::uint32_t timeout_ms) noexcept {
  if (timeout_ms == kInfinite) return 0;
  return monotonicNs() + static_cast<std::uint64_t>(timeout_ms) * 1000000u;
}

bool addressWait(std::atomic<std::uint32_t> &word, std::uint32_t expected, std::uint64_t deadline_ns) noexcept {
  DWORD ms = INFINITE;
  if (deadline_ns != 0) {
    const std::uint64_t now = monotonicNs();
    if (now >= deadline_ns) return false;
    // Rounded up: waking a little late is harmless, early would spin.
    const std::uint64_t left = (deadline_ns - now + 999999u) / 1000000u;
    ms = left >= INFINITE ? INFINITE - 1 : static_cast<DWORD>(left);
  }
  const DWORD saved = ::GetLastError();
  const BOOL woken = ::WaitOnAddress(reinterpret_cast<volatile void *>(&word), &expected, sizeof expected, ms);
  const bool timed_out = !woken && ::GetLastError() == ERROR_TIMEOUT;
  ::SetLastError(saved);
  return !timed_out || monotonicNs() < deadline_ns;
}

void addressWake(std::atomic<std::uint32_t> &word, bool all) noexcept {
  if (all) ::WakeByAddressAll(reinterpret_cast<void *>(&word));
  else ::WakeByAddressSingle(reinterpret_cast<void *>(&word));
}

}  // namespace vq::os
