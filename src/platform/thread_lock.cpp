// The slow paths of the library's own locks: waiting for a held word,
// the registry of live mutexes, and giving up a thread's mutexes when it
// ends. Only addressWait/addressWake and thread-local storage come from
// the backend.

// Relative, so that a test can compile this file in on its own.
#include "thread_lock.hpp"

#include <cerrno>
#include <mutex>
#include <new>

namespace vq::os {

constinit thread_local LockThread tlsLockThread VQ_STATIC_TLS = {0, 0};

namespace {

// A holder usually leaves within a few hundred cycles: look again a few
// times before paying for a sleep and a wake-up.
constexpr int kSpins = 64;

inline void cpuRelax() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

// The refusals in the platform's own numbering, as its kernel mutexes
// would report them.
#if defined(_WIN32)
constexpr int kNotOwner = 288;  // ERROR_NOT_OWNER
constexpr int kNoMemory = 8;    // ERROR_NOT_ENOUGH_MEMORY
constexpr int kBusy = 170;      // ERROR_BUSY
#else
constexpr int kNotOwner = EPERM;
constexpr int kNoMemory = ENOMEM;
constexpr int kBusy = EBUSY;
#endif

// Live ThreadMutexes, searched only by threads that end holding some.
std::mutex utRegistryGuard;
ThreadMutex *utRegistry = nullptr;

void onThreadEnd(void *) { abandonHeldMutexes(); }

// A key whose system destructor runs at the end of every thread that ever
// locked: threads the library did not start end without DutThreadExit.
std::uint32_t threadEndKey() noexcept {
  static const std::uint32_t key = tlsAlloc(&onThreadEnd);
  return key;
}

}  // namespace

bool LockWord::lockContended(std::uint32_t timeout_ms) noexcept {
  for (int i = 0; i < kSpins; ++i) {
    std::uint32_t s = state_.load(std::memory_order_relaxed);
    if (s == 0 && state_.compare_exchange_weak(s, 1, std::memory_order_acquire, std::memory_order_relaxed)) return true;
    cpuRelax();
  }
  const std::uint64_t deadline = deadlineAfterMs(timeout_ms);
  // From here on the word says "someone may sleep", also when we take it,
  // since we cannot know whether we were the last sleeper.
  while (state_.exchange(2, std::memory_order_acquire) != 0) {
    if (!addressWait(state_, 2, deadline)) return false;
  }
  return true;
}

std::uint64_t lockTokenFirstUse() noexcept {
  static std::atomic<std::uint64_t> serial{0};
  LockThread &me = tlsLockThread;
  me.token = serial.fetch_add(1, std::memory_order_relaxed) + 1;
  // Any non-null value makes the system call onThreadEnd for this thread.
  const std::uint32_t key = threadEndKey();
  if (key != kInvalidTlsKey) tlsSet(key, &me);
  return me.token;
}

bool ThreadMutex::refuseUnlock() noexcept {
  setLastError(kNotOwner);
  return false;
}

ThreadMutex *threadMutexCreate(bool owned) noexcept {
  auto *m = new (std::nothrow) ThreadMutex;
  if (m == nullptr) {
    setLastError(kNoMemory);
    return nullptr;
  }
  {
    std::lock_guard<std::mutex> hold(utRegistryGuard);
    m->next = utRegistry;
    if (utRegistry != nullptr) utRegistry->prev = m;
    utRegistry = m;
  }
  if (owned) m->lock(0);
  return m;
}

bool threadMutexClose(ThreadMutex *m) noexcept {
  if (m->owner.load(std::memory_order_relaxed) == tlsLockThread.token && tlsLockThread.token != 0) {
    m->depth = 1;
    m->unlock();
  }
  if (!m->word.lock(0)) {
    setLastError(kBusy);
    return false;
  }
  {
    std::lock_guard<std::mutex> hold(utRegistryGuard);
    if (m->prev != nullptr) m->prev->next = m->next;
    else utRegistry = m->next;
    if (m->next != nullptr) m->next->prev = m->prev;
  }
  m->word.unlock();
  delete m;
  return true;
}

void abandonHeldMutexes() noexcept {
  LockThread &me = tlsLockThread;
  if (me.held != 0) {
    std::lock_guard<std::mutex> hold(utRegistryGuard);
    for (ThreadMutex *m = utRegistry; m != nullptr && me.held != 0; m = m->next) {
      if (m->owner.load(std::memory_order_relaxed) != me.token) continue;
      m->abandoned = true;
      m->depth = 1;
      m->unlock();
    }
  }
  // A lock taken after this (by a later TSD destructor) starts afresh and
  // registers for the thread's end again.
  me.token = 0;
  me.held = 0;
}

WaitResult ThreadEvent::waitContended(std::uint32_t seen, std::uint32_t timeout_ms) noexcept {
  const std::uint64_t deadline = deadlineAfterMs(timeout_ms);
  auto released = [seen](std::uint32_t s) { return (s & 1u) != 0 || (s >> 1) != (seen >> 1); };
  // Sets usually follow soon: a waiter that sees one while spinning spares
  // the setter the wake-up call as well as itself the sleep.
  for (int i = 0; i < kSpins; ++i) {
    if (released(state.load(std::memory_order_acquire))) return WaitResult::Signalled;
    cpuRelax();
  }
  waiters.fetch_add(1, std::memory_order_seq_cst);
  WaitResult result = WaitResult::Signalled;
  for (;;) {
    const std::uint32_t s = state.load(std::memory_order_seq_cst);
    if (released(s)) break;
    if (!addressWait(state, s, deadline)) {
      if (!released(state.load(std::memory_order_acquire))) result = WaitResult::Timeout;
      break;
    }
  }
  waiters.fetch_sub(1, std::memory_order_relaxed);
  return result;
}

}  // namespace vq::os
