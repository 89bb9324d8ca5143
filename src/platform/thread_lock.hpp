// The library's own locks for the threads of one process: a one-word lock
// over the platform's cheapest way to sleep on a word, the recursive mutex
// built on it (every unnamed library mutex and the process-wide lock), and
// the manual-reset event behind unnamed events and conditions.
//
// Uncontended, a lock or unlock is one atomic operation; only a thread
// that finds the word held goes to the system (addressWait/addressWake: a
// futex on Linux; WaitOnAddress would serve on Windows, or a backend may
// put an SRW lock behind LockWord, which asks no more than an exclusive,
// non-recursive lock with a timed acquire).
//
// Ownership, recursion and "abandoned" are kept by the mutex itself. A
// thread that ends holding mutexes gives them up in its thread-end code
// (abandonHeldMutexes), the destructor of a thread-local key that the
// system runs, once the thread's stack has unwound, for every thread that
// ever locked one: library threads (DutThreadExit ends them through the
// system's thread exit) and the host's own threads alike. The next locker
// gets the mutex with the result "abandoned".
// Mutexes shared between processes are not these: they are the robust
// pthread mutexes of sync.cpp, the only ones whose owner can die unseen.
#pragma once

#include <atomic>
#include <cstdint>

#include "os.hpp"

#if defined(__SANITIZE_THREAD__)
#define VQ_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VQ_THREAD_SANITIZER 1
#endif
#endif
#ifndef VQ_THREAD_SANITIZER
#define VQ_THREAD_SANITIZER 0
#endif

#if VQ_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
// The sanitizer does not see a futex: it is told where the lock is taken
// and released, and ignores the lock's own atomics in between.
#define VQ_TSAN(call) call
#else
#define VQ_TSAN(call) ((void)0)
#endif

// Thread-local words read on every lock call sit in the static TLS block:
// one load, no call into the dynamic linker.
#if defined(__GNUC__) && !defined(_WIN32)
#define VQ_STATIC_TLS [[gnu::tls_model("initial-exec")]]
#else
#define VQ_STATIC_TLS
#endif

namespace vq::os {

// ---- Sleeping on a word -------------------------------------------------------

// Now on the monotonic clock, in nanoseconds.
std::uint64_t monotonicNs() noexcept;
// The monotonic deadline of a wait of timeout_ms; 0 (none) for kInfinite.
std::uint64_t deadlineAfterMs(std::uint32_t timeout_ms) noexcept;
// Sleeps while `word` holds `expected`, until woken or until the deadline
// (0: none). Returns false only when the deadline has passed; any other
// return (woken, value changed, signal) is true, and callers re-check.
bool addressWait(std::atomic<std::uint32_t> &word, std::uint32_t expected, std::uint64_t deadline_ns) noexcept;
// Wakes one, or every, thread sleeping on `word`.
void addressWake(std::atomic<std::uint32_t> &word, bool all) noexcept;

// ---- The lock word ----------------------------------------------------------------

// Exclusive, not recursive, with no owner: 0 free, 1 held, 2 held with
// (possibly) someone asleep on it, so that unlock calls the system only
// then.
class LockWord {
 public:
  LockWord() noexcept { VQ_TSAN(__tsan_mutex_create(this, __tsan_mutex_not_static)); }
  ~LockWord() { VQ_TSAN(__tsan_mutex_destroy(this, __tsan_mutex_not_static)); }
  LockWord(const LockWord &) = delete;
  LockWord &operator=(const LockWord &) = delete;

  // Takes the word, waiting at most timeout_ms (0: one try; kInfinite: for
  // ever). False on time-out.
  bool lock(std::uint32_t timeout_ms) noexcept {
    [[maybe_unused]] const unsigned tries = timeout_ms == kInfinite ? 0u : tsanTryLock;
    VQ_TSAN(__tsan_mutex_pre_lock(this, tries));
    std::uint32_t free = 0;
    const bool got = state_.compare_exchange_strong(free, 1, std::memory_order_acquire, std::memory_order_relaxed) ||
                     (timeout_ms != 0 && lockContended(timeout_ms));
    VQ_TSAN(__tsan_mutex_post_lock(this, got ? tries : tries | tsanTryLockFailed, 0));
    return got;
  }

  void unlock() noexcept {
    VQ_TSAN(__tsan_mutex_pre_unlock(this, 0));
    if (state_.exchange(0, std::memory_order_release) == 2) addressWake(state_, false);
    VQ_TSAN(__tsan_mutex_post_unlock(this, 0));
  }

 private:
#if VQ_THREAD_SANITIZER
  static constexpr unsigned tsanTryLock = __tsan_mutex_try_lock;
  static constexpr unsigned tsanTryLockFailed = __tsan_mutex_try_lock_failed;
#else
  static constexpr unsigned tsanTryLock = 0;
  static constexpr unsigned tsanTryLockFailed = 0;
#endif
  // Spins briefly, then sleeps until the word is free or the time is up.
  bool lockContended(std::uint32_t timeout_ms) noexcept;

  std::atomic<std::uint32_t> state_{0};
};

// ---- The recursive mutex ------------------------------------------------------------

// What a thread's locks need to know about it.
struct LockThread {
  std::uint64_t token;  // identifies the owner; 0 until the thread's first lock
  std::uint32_t held;   // ThreadMutexes it holds, each counted once
};
extern constinit thread_local LockThread tlsLockThread VQ_STATIC_TLS;

// Gives the calling thread its token and arranges that it gives up its
// mutexes when it ends. Once per thread, on its first lock.
std::uint64_t lockTokenFirstUse() noexcept;

// The calling thread's token.
inline std::uint64_t lockToken() noexcept {
  const std::uint64_t token = tlsLockThread.token;
  return token != 0 ? token : lockTokenFirstUse();
}

// Recursive: the owner locks again by counting, without touching the word.
// `owner` is atomic because any thread may compare it with its own token;
// only the holder writes it, and `depth` and `abandoned` too. Aligned so
// that the fields every lock and unlock touch never straddle two cache
// lines.
struct alignas(32) ThreadMutex : Handle {
  ThreadMutex() noexcept : Handle{HandleKind::ThreadMutex} {}

  WaitResult lock(std::uint32_t timeout_ms) noexcept {
    const std::uint64_t me = lockToken();
    if (owner.load(std::memory_order_relaxed) == me) {
      ++depth;
      return WaitResult::Signalled;
    }
    if (!word.lock(timeout_ms)) return WaitResult::Timeout;
    owner.store(me, std::memory_order_relaxed);
    depth = 1;
    ++tlsLockThread.held;
    if (abandoned) [[unlikely]] {
      abandoned = false;
      return WaitResult::Abandoned;
    }
    return WaitResult::Signalled;
  }

  // False (EPERM as the OS last error) when the caller does not hold it.
  bool unlock() noexcept {
    const std::uint64_t me = tlsLockThread.token;
    if (me == 0 || owner.load(std::memory_order_relaxed) != me) [[unlikely]]
      return refuseUnlock();
    if (--depth != 0) return true;
    owner.store(0, std::memory_order_relaxed);
    --tlsLockThread.held;
    word.unlock();
    return true;
  }

  static bool refuseUnlock() noexcept;

  LockWord word;
  std::atomic<std::uint64_t> owner{0};
  std::uint32_t depth = 0;
  bool abandoned = false;  // the last owner ended holding it
  // Every live ThreadMutex is linked into one registry, which an ending
  // thread searches for the mutexes it still holds.
  ThreadMutex *prev = nullptr;
  ThreadMutex *next = nullptr;
};

inline ThreadMutex *asThreadMutex(Handle *h) noexcept {
  return h != nullptr && h->kind == HandleKind::ThreadMutex ? static_cast<ThreadMutex *>(h) : nullptr;
}

ThreadMutex *threadMutexCreate(bool owned) noexcept;
// Releases the caller's holds first; refuses (EBUSY) while another thread
// holds it.
bool threadMutexClose(ThreadMutex *mutex) noexcept;
// Gives up every ThreadMutex the calling thread holds, marking each
// abandoned for its next owner. The thread-end code of every thread.
void abandonHeldMutexes() noexcept;

// ---- The manual-reset event -----------------------------------------------------------

// `state`: bit 0 is the signalled flag; the bits above count the sets
// that found the event unsignalled, so a waiter is released by a set that
// came after it started waiting even when a reset follows at once.
// `waiters` tells a set whether anyone may be asleep.
struct ThreadEvent : Handle {
  explicit ThreadEvent(bool initial_state) noexcept
      : Handle{HandleKind::ThreadEvent}, state(initial_state ? 1u : 0u) {}

  void set() noexcept {
    std::uint32_t s = state.load(std::memory_order_acquire);
    // Already set: nobody sleeps on it and nobody new will, so a set that
    // finds no reset since the last one costs a single load.
    while ((s & 1u) == 0) {
      if (state.compare_exchange_weak(s, (s | 1u) + 2u, std::memory_order_seq_cst, std::memory_order_acquire)) {
        if (waiters.load(std::memory_order_seq_cst) != 0) addressWake(state, true);
        return;
      }
    }
  }

  void reset() noexcept {
    if ((state.load(std::memory_order_relaxed) & 1u) != 0) state.fetch_and(~1u, std::memory_order_acq_rel);
  }

  WaitResult wait(std::uint32_t timeout_ms) noexcept {
    const std::uint32_t s = state.load(std::memory_order_acquire);
    if ((s & 1u) != 0) return WaitResult::Signalled;
    if (timeout_ms == 0) return WaitResult::Timeout;
    return waitContended(s, timeout_ms);
  }

  WaitResult waitContended(std::uint32_t seen, std::uint32_t timeout_ms) noexcept;

  std::atomic<std::uint32_t> state;
  std::atomic<std::uint32_t> waiters{0};
};

inline ThreadEvent *asThreadEvent(Handle *h) noexcept {
  return h != nullptr && h->kind == HandleKind::ThreadEvent ? static_cast<ThreadEvent *>(h) : nullptr;
}

}  // namespace vq::os
