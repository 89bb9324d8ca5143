// Sleeping on a word with Linux futexes, against the monotonic clock.
#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

// Relative, so that a test can compile this file in on its own.
#include "../thread_lock.hpp"

namespace vq::os {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t) &&
                  std::atomic<std::uint32_t>::is_always_lock_free,
              "a futex is a plain 32-bit word");

namespace {

long futex(std::atomic<std::uint32_t> &word, int op, std::uint32_t value, const timespec *deadline) noexcept {
  // The words are the process's own: private futexes skip the kernel's
  // shared-mapping lookup.
  return syscall(SYS_futex, reinterpret_cast<std::uint32_t *>(&word), op | FUTEX_PRIVATE_FLAG, value, deadline,
                 nullptr, FUTEX_BITSET_MATCH_ANY);
}

}  // namespace

std::uint64_t monotonicNs() noexcept {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<std::uint64_t>(ts.tv_sec) * 1000000000u + static_cast<std::uint64_t>(ts.tv_nsec);
}

std::uint64_t deadlineAfterMs(std::uint32_t timeout_ms) noexcept {
  if (timeout_ms == kInfinite) return 0;
  return monotonicNs() + static_cast<std::uint64_t>(timeout_ms) * 1000000u;
}

bool addressWait(std::atomic<std::uint32_t> &word, std::uint32_t expected, std::uint64_t deadline_ns) noexcept {
  const int saved = errno;
  timespec at{};
  at.tv_sec = static_cast<time_t>(deadline_ns / 1000000000u);
  at.tv_nsec = static_cast<long>(deadline_ns % 1000000000u);
  // FUTEX_WAIT_BITSET takes an absolute time on CLOCK_MONOTONIC, so waking
  // early for any reason never stretches the wait.
  const long rc = futex(word, FUTEX_WAIT_BITSET, expected, deadline_ns != 0 ? &at : nullptr);
  const bool timed_out = rc == -1 && errno == ETIMEDOUT;
  errno = saved;
  return !timed_out;
}

void addressWake(std::atomic<std::uint32_t> &word, bool all) noexcept {
  const int saved = errno;
  futex(word, FUTEX_WAKE_BITSET, all ? INT_MAX : 1, nullptr);
  errno = saved;
}

}  // namespace vq::os
