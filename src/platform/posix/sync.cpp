// Mutexes and manual-reset events: the handle operations for every kind,
// and the named kinds, which live in POSIX shared memory as pthread objects.
// The unnamed kinds are the library's own (thread_lock.hpp).
//
// A named mutex is recursive and robust, so that a lock taken after the
// owner died (thread or process) succeeds as "abandoned". A named event is
// a mutex, a condition variable, a signalled flag and a generation count: a
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

// Relative, so that a test can compile this file in on its own.
#include "../os.hpp"
#include "../thread_lock.hpp"

namespace vq::os {

namespace {

// Besides the pthread mutex, who holds it and how often: closing needs to
// know whether the caller holds it, and a refused unlock should not reach
// pthreads at all. Only the holder writes these fields; both are atomic
// because an owner that died never released what it wrote.
struct MutexState {
  pthread_mutex_t mutex;
  std::atomic<std::uint64_t> owner;  // holder's token, 0 when free
  std::atomic<std::uint32_t> depth;
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

// A handle of a named object: a mapping of its shared block.
struct SharedHandle : Handle {
  explicit SharedHandle(HandleKind k) : Handle{k} {}
  MutexState *mutex = nullptr;  // into the mapping
  EventState *event = nullptr;
  SharedHeader *shared = nullptr;
  std::size_t map_size = 0;
  std::string shm_name;
};

// Stores the failure as the OS last error and answers false / null.
bool fail(int code) {
  setLastError(code);
  return false;
}

timespec deadlineAfter(std::uint32_t timeout_ms) {
  std::uint64_t at = deadlineAfterMs(timeout_ms);
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
    m->depth.store(m->depth.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  } else if (r == WaitResult::Signalled || r == WaitResult::Abandoned) {
    // After an owner died the pthread count starts again at one.
    m->owner.store(ownerToken(), std::memory_order_relaxed);
    m->depth.store(1, std::memory_order_relaxed);
  }
}

int initMutex(pthread_mutex_t *m) {
  pthread_mutexattr_t attr;
  int rc = pthread_mutexattr_init(&attr);
  if (rc != 0) return rc;
  rc = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  // Robust: a thread or process that ends holding the mutex leaves it to
  // be taken over, as a wait that returns "abandoned".
  if (rc == 0) rc = pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST);
  if (rc == 0) rc = pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
  if (rc == 0) rc = pthread_mutex_init(m, &attr);
  pthread_mutexattr_destroy(&attr);
  return rc;
}

int initEvent(EventState *e, bool initial_state) {
  int rc = initMutex(&e->mutex);
  if (rc != 0) return rc;
  pthread_condattr_t attr;
  rc = pthread_condattr_init(&attr);
  if (rc == 0) {
    rc = pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    if (rc == 0) rc = pthread_condattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
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
  // The thread sanitizer does not know pthread_mutex_clocklock, and its
  // timed form does not count a mutex taken over from a dead owner as
  // taken; its try form it knows fully, so a finite wait polls that.
  const std::uint64_t deadline = deadlineAfterMs(timeout_ms);
  for (;;) {
    const int rc = pthread_mutex_trylock(m);
    if (rc != EBUSY || monotonicNs() >= deadline) return lockResult(m, rc);
    timespec pause{0, 200000};
    nanosleep(&pause, nullptr);
  }
#else
  timespec deadline = deadlineAfter(timeout_ms);
  return lockResult(m, pthread_mutex_clocklock(m, CLOCK_MONOTONIC, &deadline));
#endif
}

int initOwnedState(MutexState *m, bool owned) {
  m->owner.store(0, std::memory_order_relaxed);
  m->depth.store(0, std::memory_order_relaxed);
  int rc = initMutex(&m->mutex);
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
  const std::uint32_t depth = m->depth.load(std::memory_order_relaxed) - 1;
  m->depth.store(depth, std::memory_order_relaxed);
  if (depth == 0) m->owner.store(0, std::memory_order_relaxed);
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
SharedHandle *sharedHandle(HandleKind kind, Block *block, std::string shm_name) {
  auto *h = new (std::nothrow) SharedHandle(kind);
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
                                       [owned](SharedMutex *b) { return initOwnedState(&b->state, owned); });
  if (block == nullptr) return nullptr;
  SharedHandle *h = sharedHandle(HandleKind::SharedMutex, block, std::move(shm_name));
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
      shm_name, mode, [initial_state](SharedEvent *b) { return initEvent(&b->state, initial_state); });
  if (block == nullptr) return nullptr;
  SharedHandle *h = sharedHandle(HandleKind::SharedEvent, block, std::move(shm_name));
  if (h != nullptr) h->event = &block->state;
  return h;
}

bool isUnnamed(const char *name) { return name == nullptr || name[0] == '\0'; }

// A null handle is EBADF, one of another kind EINVAL.
bool refuseHandle(const Handle *h) { return fail(h == nullptr ? EBADF : EINVAL); }

MutexState *sharedMutexOf(Handle *h) {
  return h != nullptr && h->kind == HandleKind::SharedMutex ? static_cast<SharedHandle *>(h)->mutex : nullptr;
}

EventState *sharedEventOf(Handle *h) {
  return h != nullptr && h->kind == HandleKind::SharedEvent ? static_cast<SharedHandle *>(h)->event : nullptr;
}

}  // namespace

// ---- Mutexes ------------------------------------------------------------------

Handle *mutexCreate(bool owned) noexcept { return threadMutexCreate(owned); }

Handle *mutexCreateNamed(const char *name, bool owned) noexcept {
  // No name is an ordinary unnamed mutex, as with CreateMutex.
  if (isUnnamed(name)) return mutexCreate(owned);
  return namedMutex(name, OpenMode::CreateExclusive, owned);
}

Handle *mutexAttach(const char *name) noexcept { return namedMutex(name, OpenMode::OpenOnly, false); }

WaitResult mutexLock(Handle *mutex, std::uint32_t timeout_ms) noexcept {
  if (ThreadMutex *own = asThreadMutex(mutex)) return own->lock(timeout_ms);
  MutexState *m = sharedMutexOf(mutex);
  if (m == nullptr) {
    refuseHandle(mutex);
    return WaitResult::Failed;
  }
  WaitResult r = lockMutex(&m->mutex, timeout_ms);
  noteLocked(m, r);
  return r;
}

bool mutexUnlock(Handle *mutex) noexcept {
  if (ThreadMutex *own = asThreadMutex(mutex)) return own->unlock();
  MutexState *m = sharedMutexOf(mutex);
  if (m == nullptr) return refuseHandle(mutex);
  return unlockState(m);
}

// ---- Events ---------------------------------------------------------------------

Handle *eventCreate(bool initial_state) noexcept {
  auto *e = new (std::nothrow) ThreadEvent(initial_state);
  if (e == nullptr) fail(ENOMEM);
  return e;
}

Handle *eventCreateNamed(const char *name, bool initial_state, bool exclusive) noexcept {
  if (isUnnamed(name)) return eventCreate(initial_state);
  return namedEvent(name, exclusive ? OpenMode::CreateExclusive : OpenMode::CreateOrOpen, initial_state);
}

Handle *eventAttach(const char *name) noexcept { return namedEvent(name, OpenMode::OpenOnly, false); }

bool eventSet(Handle *event) noexcept {
  if (ThreadEvent *own = asThreadEvent(event)) {
    own->set();
    return true;
  }
  EventState *e = sharedEventOf(event);
  if (e == nullptr) return refuseHandle(event);
  if (int rc = lockInternal(&e->mutex); rc != 0) return fail(rc);
  e->signalled = 1;
  ++e->generation;
  int rc = pthread_cond_broadcast(&e->cond);
  pthread_mutex_unlock(&e->mutex);
  return rc == 0 ? true : fail(rc);
}

bool eventReset(Handle *event) noexcept {
  if (ThreadEvent *own = asThreadEvent(event)) {
    own->reset();
    return true;
  }
  EventState *e = sharedEventOf(event);
  if (e == nullptr) return refuseHandle(event);
  if (int rc = lockInternal(&e->mutex); rc != 0) return fail(rc);
  e->signalled = 0;
  pthread_mutex_unlock(&e->mutex);
  return true;
}

WaitResult eventWait(Handle *event, std::uint32_t timeout_ms) noexcept {
  if (ThreadEvent *own = asThreadEvent(event)) return own->wait(timeout_ms);
  EventState *e = sharedEventOf(event);
  if (e == nullptr) {
    refuseHandle(event);
    return WaitResult::Failed;
  }
  return waitEvent(e, timeout_ms);
}

// ---- Closing --------------------------------------------------------------------

bool closeHandle(Handle *handle) noexcept {
  if (handle == nullptr) return fail(EBADF);
  switch (handle->kind) {
    case HandleKind::ThreadMutex:
      return threadMutexClose(static_cast<ThreadMutex *>(handle));
    case HandleKind::ThreadEvent:
      delete static_cast<ThreadEvent *>(handle);
      return true;
    case HandleKind::SharedMutex:
    case HandleKind::SharedEvent:
      break;
    default:
      return fail(EINVAL);
  }
  auto *h = static_cast<SharedHandle *>(handle);
  // A robust mutex stays linked into its owner's robust list: the caller's
  // holds must go before the mapping does.
  while (h->mutex != nullptr && heldByCaller(h->mutex)) {
    if (!unlockState(h->mutex)) return false;
  }
  // The last handle anywhere removes the name; the memory goes with the
  // last mapping.
  if (h->shared->refs.fetch_sub(1) == 1) shm_unlink(h->shm_name.c_str());
  munmap(static_cast<void *>(h->shared), h->map_size);
  delete h;
  return true;
}

}  // namespace vq::os
