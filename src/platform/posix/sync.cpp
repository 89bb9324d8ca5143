// Mutexes and manual-reset events on pthreads, unnamed in the heap or named
// in POSIX shared memory.
//
// Every mutex is recursive and robust, so that a lock taken after the
// owner died (thread or process) succeeds as "abandoned". An event is a
// mutex, a condition variable, a signalled flag and a generation count: a
// set bumps the generation, which releases every thread waiting at that
// moment even when another thread resets the event before they wake.
// Timed waits use CLOCK_MONOTONIC.
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>

#include "platform/os.hpp"

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

namespace vq::os {

namespace {

// Besides the pthread mutex, who holds it and how often: closing needs to
// know whether the caller holds it, and a refused unlock should not reach
// pthreads at all. Only the holder writes these fields.
struct MutexState {
  pthread_mutex_t mutex;
  std::atomic<std::uint64_t> owner;  // holder's token, 0 when free
  std::uint32_t depth;
};

struct EventState {
  pthread_mutex_t mutex;
  pthread_cond_t cond;
  std::uint32_t signalled;
  std::uint64_t generation;
};

// The head of a shared-memory block: `ready` turns 1 once the creator has
// initialised the object; `refs` counts open handles in all processes.
struct SharedHeader {
  std::atomic<std::uint32_t> ready;
  std::atomic<std::int32_t> refs;
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "shared counters need lock-free atomics");
static_assert(std::atomic<std::int32_t>::is_always_lock_free, "shared counters need lock-free atomics");
static_assert(std::atomic<std::uint64_t>::is_always_lock_free, "shared owners need lock-free atomics");

struct SharedMutex {
  SharedHeader header;
  MutexState state;
};

struct SharedEvent {
  SharedHeader header;
  EventState state;
};

enum class Kind { Mutex, Event };

}  // namespace

struct Handle {
  Kind kind;
  MutexState *mutex = nullptr;  // points at local or into the mapping
  EventState *event = nullptr;
  SharedHeader *shared = nullptr;  // null for unnamed objects
  std::size_t map_size = 0;
  std::string shm_name;
  MutexState local_mutex;  // the object itself when unnamed
  EventState local_event;

  explicit Handle(Kind k) : kind(k) {}
};

namespace {

// Stores the failure as the OS last error and answers false / null.
bool fail(int code) {
  setLastError(code);
  return false;
}

std::uint64_t monotonicNowNs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<std::uint64_t>(ts.tv_sec) * 1000000000u + static_cast<std::uint64_t>(ts.tv_nsec);
}

timespec deadlineAfter(std::uint32_t timeout_ms) {
  std::uint64_t at = monotonicNowNs() + static_cast<std::uint64_t>(timeout_ms) * 1000000u;
  timespec ts;
  ts.tv_sec = static_cast<time_t>(at / 1000000000u);
  ts.tv_nsec = static_cast<long>(at % 1000000000u);
  return ts;
}

// A thread's token: unique among the threads of all processes that share
// a mutex (process id and a serial number), never reused in a process.
[[gnu::tls_model("initial-exec")]] thread_local std::uint64_t tlsOwnerToken = 0;
std::atomic<std::uint32_t> utThreadSerial{0};

std::uint64_t ownerToken() {
  if (tlsOwnerToken == 0) {
    tlsOwnerToken = (static_cast<std::uint64_t>(static_cast<std::uint32_t>(getpid())) << 32) |
                    (utThreadSerial.fetch_add(1, std::memory_order_relaxed) + 1u);
  }
  return tlsOwnerToken;
}

// The child of a fork is another process: its thread needs a new token.
[[maybe_unused]] const int utAtForkRegistered = pthread_atfork(nullptr, nullptr, [] { tlsOwnerToken = 0; });

bool heldByCaller(MutexState *m) { return m->owner.load(std::memory_order_relaxed) == ownerToken(); }

void noteLocked(MutexState *m, WaitResult r) {
  if (r == WaitResult::Signalled && heldByCaller(m)) {
    ++m->depth;
  } else if (r == WaitResult::Signalled || r == WaitResult::Abandoned) {
    // After an owner died the pthread count starts again at one.
    m->owner.store(ownerToken(), std::memory_order_relaxed);
    m->depth = 1;
  }
}

int initMutex(pthread_mutex_t *m, bool shared) {
  pthread_mutexattr_t attr;
  int rc = pthread_mutexattr_init(&attr);
  if (rc != 0) return rc;
  rc = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  // Robust: a thread (or, shared, a process) that ends holding the mutex
  // leaves it to be taken over, as a wait that returns "abandoned".
  if (rc == 0) rc = pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
  if (rc == 0 && shared) rc = pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
  if (rc == 0) rc = pthread_mutex_init(m, &attr);
  pthread_mutexattr_destroy(&attr);
  return rc;
}

int initEvent(EventState *e, bool shared, bool initial_state) {
  int rc = initMutex(&e->mutex, shared);
  if (rc != 0) return rc;
  pthread_condattr_t attr;
  rc = pthread_condattr_init(&attr);
  if (rc == 0) {
    rc = pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    if (rc == 0 && shared) rc = pthread_condattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    if (rc == 0) rc = pthread_cond_init(&e->cond, &attr);
    pthread_condattr_destroy(&attr);
  }
  if (rc != 0) {
    pthread_mutex_destroy(&e->mutex);
    return rc;
  }
  e->signalled = initial_state ? 1u : 0u;
  e->generation = 0;
  return 0;
}

// The event's internal mutex guards only a few words; a process that died
// inside it left them consistent enough to go on.
int lockInternal(pthread_mutex_t *m) {
  int rc = pthread_mutex_lock(m);
  if (rc == EOWNERDEAD) rc = pthread_mutex_consistent(m);
  return rc;
}

WaitResult lockResult(pthread_mutex_t *m, int rc) {
  switch (rc) {
    case 0:
      return WaitResult::Signalled;
    case EOWNERDEAD:
      // The previous owner died holding it: take it over, as Windows does.
      if (int c = pthread_mutex_consistent(m); c != 0) {
        setLastError(c);
        return WaitResult::Failed;
      }
      return WaitResult::Abandoned;
    case EBUSY:
    case ETIMEDOUT:
      return WaitResult::Timeout;
    default:
      setLastError(rc);
      return WaitResult::Failed;
  }
}

WaitResult lockMutex(pthread_mutex_t *m, std::uint32_t timeout_ms) {
  if (timeout_ms == kInfinite) return lockResult(m, pthread_mutex_lock(m));
  if (timeout_ms == 0) return lockResult(m, pthread_mutex_trylock(m));
#if VQ_THREAD_SANITIZER
  // The thread sanitizer does not know pthread_mutex_clocklock; the
  // wall-clock form it does know keeps its lock tracking whole.
  timespec deadline;
  clock_gettime(CLOCK_REALTIME, &deadline);
  std::uint64_t at = static_cast<std::uint64_t>(deadline.tv_sec) * 1000000000u +
                     static_cast<std::uint64_t>(deadline.tv_nsec) + static_cast<std::uint64_t>(timeout_ms) * 1000000u;
  deadline.tv_sec = static_cast<time_t>(at / 1000000000u);
  deadline.tv_nsec = static_cast<long>(at % 1000000000u);
  return lockResult(m, pthread_mutex_timedlock(m, &deadline));
#else
  timespec deadline = deadlineAfter(timeout_ms);
  return lockResult(m, pthread_mutex_clocklock(m, CLOCK_MONOTONIC, &deadline));
#endif
}

int initOwnedState(MutexState *m, bool shared, bool owned) {
  m->owner.store(0, std::memory_order_relaxed);
  m->depth = 0;
  int rc = initMutex(&m->mutex, shared);
  if (rc == 0 && owned) {
    rc = pthread_mutex_lock(&m->mutex);
    if (rc == 0) noteLocked(m, WaitResult::Signalled);
  }
  return rc;
}

bool unlockState(MutexState *m) {
  if (!heldByCaller(m)) {
    setLastError(EPERM);
    return false;
  }
  // Give up the bookkeeping first: the next holder writes it at once.
  if (--m->depth == 0) m->owner.store(0, std::memory_order_relaxed);
  int rc = pthread_mutex_unlock(&m->mutex);
  if (rc != 0) {
    setLastError(rc);
    return false;
  }
  return true;
}

WaitResult waitEvent(EventState *e, std::uint32_t timeout_ms) {
  timespec deadline{};
  if (timeout_ms != kInfinite && timeout_ms != 0) deadline = deadlineAfter(timeout_ms);
  if (int rc = lockInternal(&e->mutex); rc != 0) {
    setLastError(rc);
    return WaitResult::Failed;
  }
  const std::uint64_t start = e->generation;
  int rc = 0;
  while (e->signalled == 0 && e->generation == start && timeout_ms != 0) {
    rc = timeout_ms == kInfinite ? pthread_cond_wait(&e->cond, &e->mutex)
                                 : pthread_cond_timedwait(&e->cond, &e->mutex, &deadline);
    if (rc == EOWNERDEAD) rc = pthread_mutex_consistent(&e->mutex);
    if (rc != 0) break;
  }
  const bool released = e->signalled != 0 || e->generation != start;
  pthread_mutex_unlock(&e->mutex);
  if (released) return WaitResult::Signalled;
  if (rc == 0 || rc == ETIMEDOUT) return WaitResult::Timeout;
  setLastError(rc);
  return WaitResult::Failed;
}

// ---- Shared memory ------------------------------------------------------------

std::string sharedName(const char *prefix, const char *name) { return std::string(prefix) + name; }

// Waits (briefly) for a creator in another process to finish its work:
// between O_EXCL and the ready flag the block is not yet usable.
template <typename Pred>
bool waitFor(Pred ready) {
  for (int i = 0; i < 2000; ++i) {
    if (ready()) return true;
    timespec pause{0, 500000};
    nanosleep(&pause, nullptr);
  }
  return ready();
}

enum class OpenMode { CreateExclusive, CreateOrOpen, OpenOnly };

// Maps the named block, creating and initialising it with `init` when
// asked. Returns the mapping or null with the OS last error set.
template <typename Block, typename Init>
Block *openShared(const std::string &shm_name, OpenMode mode, Init init) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    if (mode != OpenMode::OpenOnly) {
      int fd = shm_open(shm_name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
      if (fd >= 0) {
        Block *block = nullptr;
        int rc = ftruncate(fd, sizeof(Block)) == 0 ? 0 : errno;
        if (rc == 0) {
          void *p = mmap(nullptr, sizeof(Block), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
          if (p == MAP_FAILED) {
            rc = errno;
          } else {
            block = static_cast<Block *>(p);
            rc = init(block);
            if (rc != 0) munmap(p, sizeof(Block));
          }
        }
        close(fd);
        if (rc != 0) {
          shm_unlink(shm_name.c_str());
          fail(rc);
          return nullptr;
        }
        block->header.refs.store(1, std::memory_order_relaxed);
        block->header.ready.store(1, std::memory_order_release);
        return block;
      }
      if (errno != EEXIST || mode == OpenMode::CreateExclusive) {
        fail(errno);
        return nullptr;
      }
    }
    int fd = shm_open(shm_name.c_str(), O_RDWR | O_CLOEXEC, 0);
    if (fd < 0) {
      if (errno == ENOENT && mode == OpenMode::CreateOrOpen) continue;  // removed meanwhile
      fail(errno);
      return nullptr;
    }
    struct stat st;
    bool sized = waitFor([&] { return fstat(fd, &st) == 0 && st.st_size >= static_cast<off_t>(sizeof(Block)); });
    if (!sized) {
      close(fd);
      fail(EAGAIN);
      return nullptr;
    }
    void *p = mmap(nullptr, sizeof(Block), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    int map_error = errno;
    close(fd);
    if (p == MAP_FAILED) {
      fail(map_error);
      return nullptr;
    }
    auto *block = static_cast<Block *>(p);
    if (!waitFor([&] { return block->header.ready.load(std::memory_order_acquire) == 1; })) {
      munmap(p, sizeof(Block));
      fail(EAGAIN);
      return nullptr;
    }
    // Count the new handle unless the last one is already being closed.
    std::int32_t refs = block->header.refs.load();
    while (refs > 0 && !block->header.refs.compare_exchange_weak(refs, refs + 1)) {
    }
    if (refs > 0) return block;
    munmap(p, sizeof(Block));
    if (mode != OpenMode::CreateOrOpen) {
      fail(ENOENT);
      return nullptr;
    }
  }
  fail(EAGAIN);
  return nullptr;
}

template <typename Block>
Handle *sharedHandle(Kind kind, Block *block, std::string shm_name) {
  auto *h = new (std::nothrow) Handle(kind);
  if (h == nullptr) {
    if (block->header.refs.fetch_sub(1) == 1) shm_unlink(shm_name.c_str());
    munmap(block, sizeof(Block));
    fail(ENOMEM);
    return nullptr;
  }
  h->shared = &block->header;
  h->map_size = sizeof(Block);
  h->shm_name = std::move(shm_name);
  return h;
}

Handle *namedMutex(const char *name, OpenMode mode, bool owned) {
  if (name == nullptr) {
    fail(EINVAL);
    return nullptr;
  }
  std::string shm_name = sharedName("/vq.mutex.", name);
  auto *block = openShared<SharedMutex>(shm_name, mode,
                                       [owned](SharedMutex *b) { return initOwnedState(&b->state, true, owned); });
  if (block == nullptr) return nullptr;
  Handle *h = sharedHandle(Kind::Mutex, block, std::move(shm_name));
  if (h != nullptr) h->mutex = &block->state;
  return h;
}

Handle *namedEvent(const char *name, OpenMode mode, bool initial_state) {
  if (name == nullptr) {
    fail(EINVAL);
    return nullptr;
  }
  std::string shm_name = sharedName("/vq.event.", name);
  auto *block = openShared<SharedEvent>(
      shm_name, mode, [initial_state](SharedEvent *b) { return initEvent(&b->state, true, initial_state); });
  if (block == nullptr) return nullptr;
  Handle *h = sharedHandle(Kind::Event, block, std::move(shm_name));
  if (h != nullptr) h->event = &block->state;
  return h;
}

bool isUnnamed(const char *name) { return name == nullptr || name[0] == '\0'; }

MutexState *mutexOf(Handle *h) {
  if (h == nullptr) {
    fail(EBADF);
    return nullptr;
  }
  if (h->kind != Kind::Mutex) {
    fail(EINVAL);
    return nullptr;
  }
  return h->mutex;
}

EventState *eventOf(Handle *h) {
  if (h == nullptr) {
    fail(EBADF);
    return nullptr;
  }
  if (h->kind != Kind::Event) {
    fail(EINVAL);
    return nullptr;
  }
  return h->event;
}

}  // namespace

// ---- Mutexes ------------------------------------------------------------------

Handle *mutexCreate(bool owned) noexcept {
  auto *h = new (std::nothrow) Handle(Kind::Mutex);
  if (h == nullptr) {
    fail(ENOMEM);
    return nullptr;
  }
  h->mutex = &h->local_mutex;
  if (int rc = initOwnedState(h->mutex, false, owned); rc != 0) {
    delete h;
    fail(rc);
    return nullptr;
  }
  return h;
}

Handle *mutexCreateNamed(const char *name, bool owned) noexcept {
  // No name is an ordinary unnamed mutex, as with CreateMutex.
  if (isUnnamed(name)) return mutexCreate(owned);
  return namedMutex(name, OpenMode::CreateExclusive, owned);
}

Handle *mutexAttach(const char *name) noexcept { return namedMutex(name, OpenMode::OpenOnly, false); }

WaitResult mutexLock(Handle *mutex, std::uint32_t timeout_ms) noexcept {
  MutexState *m = mutexOf(mutex);
  if (m == nullptr) return WaitResult::Failed;
  WaitResult r = lockMutex(&m->mutex, timeout_ms);
  noteLocked(m, r);
  return r;
}

bool mutexUnlock(Handle *mutex) noexcept {
  MutexState *m = mutexOf(mutex);
  if (m == nullptr) return false;
  return unlockState(m);
}

// ---- Events ---------------------------------------------------------------------

Handle *eventCreate(bool initial_state) noexcept {
  auto *h = new (std::nothrow) Handle(Kind::Event);
  if (h == nullptr) {
    fail(ENOMEM);
    return nullptr;
  }
  h->event = &h->local_event;
  if (int rc = initEvent(h->event, false, initial_state); rc != 0) {
    delete h;
    fail(rc);
    return nullptr;
  }
  return h;
}

Handle *eventCreateNamed(const char *name, bool initial_state, bool exclusive) noexcept {
  if (isUnnamed(name)) return eventCreate(initial_state);
  return namedEvent(name, exclusive ? OpenMode::CreateExclusive : OpenMode::CreateOrOpen, initial_state);
}

Handle *eventAttach(const char *name) noexcept { return namedEvent(name, OpenMode::OpenOnly, false); }

bool eventSet(Handle *event) noexcept {
  EventState *e = eventOf(event);
  if (e == nullptr) return false;
  if (int rc = lockInternal(&e->mutex); rc != 0) return fail(rc);
  e->signalled = 1;
  ++e->generation;
  int rc = pthread_cond_broadcast(&e->cond);
  pthread_mutex_unlock(&e->mutex);
  return rc == 0 ? true : fail(rc);
}

bool eventReset(Handle *event) noexcept {
  EventState *e = eventOf(event);
  if (e == nullptr) return false;
  if (int rc = lockInternal(&e->mutex); rc != 0) return fail(rc);
  e->signalled = 0;
  pthread_mutex_unlock(&e->mutex);
  return true;
}

WaitResult eventWait(Handle *event, std::uint32_t timeout_ms) noexcept {
  EventState *e = eventOf(event);
  if (e == nullptr) return WaitResult::Failed;
  return waitEvent(e, timeout_ms);
}

// ---- Closing --------------------------------------------------------------------

bool closeHandle(Handle *handle) noexcept {
  if (handle == nullptr) return fail(EBADF);
  if (handle->kind == Kind::Mutex) {
    // A robust mutex stays linked into its owner's robust list: the caller's
    // holds must go before the memory does.
    while (heldByCaller(handle->mutex)) {
      if (!unlockState(handle->mutex)) return false;
    }
    pthread_mutex_t *m = &handle->mutex->mutex;
    if (handle->shared == nullptr) {
      int rc = pthread_mutex_trylock(m);
      if (rc == EOWNERDEAD) rc = pthread_mutex_consistent(m);
      if (rc != 0) return fail(rc);  // EBUSY: another thread holds it
      pthread_mutex_unlock(m);
      if (rc = pthread_mutex_destroy(m); rc != 0) return fail(rc);
    }
  } else if (handle->shared == nullptr) {
    int rc = pthread_cond_destroy(&handle->event->cond);
    if (rc == 0) rc = pthread_mutex_destroy(&handle->event->mutex);
    if (rc != 0) return fail(rc);
  }
  if (handle->shared != nullptr) {
    // The last handle anywhere removes the name; the memory goes with the
    // last mapping.
    if (handle->shared->refs.fetch_sub(1) == 1) shm_unlink(handle->shm_name.c_str());
    munmap(static_cast<void *>(handle->shared), handle->map_size);
  }
  delete handle;
  return true;
}

}  // namespace vq::os
