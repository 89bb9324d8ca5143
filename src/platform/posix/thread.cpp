// Threads and thread-local storage on pthreads.
#include <pthread.h>

#include <cerrno>
#include <cstdint>
#include <new>
#include <type_traits>

// Relative, so that a test can compile this file in on its own.
#include "../os.hpp"

namespace vq::os {

// The record behind a thread handle: it exists before the thread runs, so
// the handle can serve as the thread's identity from its first instruction.
struct Thread {
  pthread_t id{};
  ThreadEntry entry = nullptr;
  void *arg = nullptr;
  bool started = false;
};

namespace {

// Not noexcept: threadExit unwinds through here.
void *threadMain(void *record) {
  auto *t = static_cast<Thread *>(record);
  t->entry(t->arg);
  return nullptr;
}

static_assert(std::is_integral_v<pthread_key_t>, "TLS keys are handed out as integers");

}  // namespace

Thread *threadNew() noexcept {
  auto *t = new (std::nothrow) Thread;
  if (t == nullptr) setLastError(ENOMEM);
  return t;
}

bool threadStart(Thread *thread, ThreadEntry entry, void *arg) noexcept {
  if (thread == nullptr || entry == nullptr) {
    setLastError(EINVAL);
    return false;
  }
  thread->entry = entry;
  thread->arg = arg;
  int rc = pthread_create(&thread->id, nullptr, &threadMain, thread);
  if (rc != 0) {
    setLastError(rc);
    return false;
  }
  thread->started = true;
  return true;
}

void threadExit(std::intptr_t exit_code) { pthread_exit(reinterpret_cast<void *>(exit_code)); }

bool threadJoin(Thread *thread, std::intptr_t *exit_code) noexcept {
  if (thread == nullptr || !thread->started) {
    setLastError(EBADF);
    return false;
  }
  void *result = nullptr;
  int rc = pthread_join(thread->id, &result);
  if (rc != 0) {
    setLastError(rc);
    return false;
  }
  thread->started = false;  // joined: a second join is refused
  if (exit_code != nullptr) *exit_code = reinterpret_cast<std::intptr_t>(result);
  return true;
}

void threadFree(Thread *thread) noexcept {
  // A started thread that was never joined keeps running on its own.
  if (thread != nullptr && thread->started) pthread_detach(thread->id);
  delete thread;
}

// ---- Thread-local storage ---------------------------------------------------

std::uint32_t tlsAlloc(void (*at_thread_end)(void *)) noexcept {
  pthread_key_t key;
  int rc = pthread_key_create(&key, at_thread_end);
  if (rc != 0) {
    setLastError(rc);
    return kInvalidTlsKey;
  }
  if (static_cast<std::uint64_t>(key) >= kInvalidTlsKey) {
    pthread_key_delete(key);
    setLastError(EAGAIN);
    return kInvalidTlsKey;
  }
  return static_cast<std::uint32_t>(key);
}

bool tlsFree(std::uint32_t key) noexcept {
  int rc = pthread_key_delete(static_cast<pthread_key_t>(key));
  if (rc != 0) {
    setLastError(rc);
    return false;
  }
  return true;
}

void *tlsGet(std::uint32_t key) noexcept {
  int saved = errno;
  void *value = pthread_getspecific(static_cast<pthread_key_t>(key));
  errno = saved;
  return value;
}

bool tlsSet(std::uint32_t key, void *value) noexcept {
  int saved = errno;
  int rc = pthread_setspecific(static_cast<pthread_key_t>(key), value);
  errno = saved;
  return rc == 0;
}

}  // namespace vq::os
