// Mutexes and events. Unnamed ones are the library's own (thread_lock.hpp):
// no kernel object, no system call while uncontended. Named ones are kernel
// objects in the system's namespace, shared between processes; a kernel
// mutex whose owner died reports "abandoned" to its next owner.
#include <windows.h>

#include <new>

#include "../os.hpp"
#include "../thread_lock.hpp"

namespace vq::os {

namespace {

struct KernelHandle : Handle {
  KernelHandle(HandleKind k, HANDLE h) noexcept : Handle{k}, handle(h) {}
  HANDLE handle;
};

bool fail(DWORD code) noexcept {
  ::SetLastError(code);
  return false;
}

bool isUnnamed(const char *name) noexcept { return name == nullptr || *name == '\0'; }

HANDLE kernelOf(Handle *h, HandleKind kind) noexcept {
  return h != nullptr && h->kind == kind ? static_cast<KernelHandle *>(h)->handle : nullptr;
}

Handle *wrap(HandleKind kind, HANDLE h) noexcept {
  if (h == nullptr) return nullptr;
  auto *k = new (std::nothrow) KernelHandle(kind, h);
  if (k == nullptr) {
    ::CloseHandle(h);
    fail(ERROR_NOT_ENOUGH_MEMORY);
  }
  return k;
}

// Creation that must be exclusive gives the new handle back when the name
// existed, leaving "already exists" as the last error.
Handle *wrapExclusive(HandleKind kind, HANDLE h) noexcept {
  if (h != nullptr && ::GetLastError() == ERROR_ALREADY_EXISTS) {
    ::CloseHandle(h);
    fail(ERROR_ALREADY_EXISTS);
    return nullptr;
  }
  return wrap(kind, h);
}

WaitResult waitKernel(HANDLE h, std::uint32_t timeout_ms) noexcept {
  switch (::WaitForSingleObject(h, timeout_ms)) {
    case WAIT_OBJECT_0:
      return WaitResult::Signalled;
    case WAIT_ABANDONED:
      return WaitResult::Abandoned;
    case WAIT_TIMEOUT:
      return WaitResult::Timeout;
    default:
      return WaitResult::Failed;
  }
}

WaitResult refuseWait() noexcept {
  fail(ERROR_INVALID_HANDLE);
  return WaitResult::Failed;
}

}  // namespace

// ---- Mutexes ------------------------------------------------------------------

Handle *mutexCreate(bool owned) noexcept {
  ThreadMutex *m = threadMutexCreate(owned);
  if (m == nullptr) fail(ERROR_NOT_ENOUGH_MEMORY);
  return m;
}

Handle *mutexCreateNamed(const char *name, bool owned) noexcept {
  if (isUnnamed(name)) return mutexCreate(owned);
  return wrapExclusive(HandleKind::SharedMutex, ::CreateMutexA(nullptr, owned ? TRUE : FALSE, name));
}

Handle *mutexAttach(const char *name) noexcept {
  return wrap(HandleKind::SharedMutex, ::OpenMutexA(MUTEX_ALL_ACCESS, FALSE, name));
}

WaitResult mutexLock(Handle *mutex, std::uint32_t timeout_ms) noexcept {
  if (ThreadMutex *own = asThreadMutex(mutex)) return own->lock(timeout_ms);
  HANDLE h = kernelOf(mutex, HandleKind::SharedMutex);
  return h != nullptr ? waitKernel(h, timeout_ms) : refuseWait();
}

bool mutexUnlock(Handle *mutex) noexcept {
  if (ThreadMutex *own = asThreadMutex(mutex)) return own->unlock();
  HANDLE h = kernelOf(mutex, HandleKind::SharedMutex);
  return h != nullptr ? ::ReleaseMutex(h) != 0 : fail(ERROR_INVALID_HANDLE);
}

// ---- Events ---------------------------------------------------------------------

Handle *eventCreate(bool initial_state) noexcept {
  auto *e = new (std::nothrow) ThreadEvent(initial_state);
  if (e == nullptr) fail(ERROR_NOT_ENOUGH_MEMORY);
  return e;
}

Handle *eventCreateNamed(const char *name, bool initial_state, bool exclusive) noexcept {
  if (isUnnamed(name)) return eventCreate(initial_state);
  HANDLE h = ::CreateEventA(nullptr, TRUE, initial_state ? TRUE : FALSE, name);
  return exclusive ? wrapExclusive(HandleKind::SharedEvent, h) : wrap(HandleKind::SharedEvent, h);
}

Handle *eventAttach(const char *name) noexcept {
  return wrap(HandleKind::SharedEvent, ::OpenEventA(EVENT_ALL_ACCESS, FALSE, name));
}

bool eventSet(Handle *event) noexcept {
  if (ThreadEvent *own = asThreadEvent(event)) {
    own->set();
    return true;
  }
  HANDLE h = kernelOf(event, HandleKind::SharedEvent);
  return h != nullptr ? ::SetEvent(h) != 0 : fail(ERROR_INVALID_HANDLE);
}

bool eventReset(Handle *event) noexcept {
  if (ThreadEvent *own = asThreadEvent(event)) {
    own->reset();
    return true;
  }
  HANDLE h = kernelOf(event, HandleKind::SharedEvent);
  return h != nullptr ? ::ResetEvent(h) != 0 : fail(ERROR_INVALID_HANDLE);
}

WaitResult eventWait(Handle *event, std::uint32_t timeout_ms) noexcept {
  if (ThreadEvent *own = asThreadEvent(event)) return own->wait(timeout_ms);
  HANDLE h = kernelOf(event, HandleKind::SharedEvent);
  return h != nullptr ? waitKernel(h, timeout_ms) : refuseWait();
}

// ---- Closing --------------------------------------------------------------------

bool closeHandle(Handle *handle) noexcept {
  if (handle == nullptr) return fail(ERROR_INVALID_HANDLE);
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
      return fail(ERROR_INVALID_HANDLE);
  }
  auto *k = static_cast<KernelHandle *>(handle);
  // The system drops the name with the last handle of any process.
  const bool ok = ::CloseHandle(k->handle) != 0;
  delete k;
  return ok;
}

}  // namespace vq::os
