// Threads from _beginthreadex and thread-local storage from TlsAlloc.
#include <process.h>
#include <windows.h>

#include <new>
#include <vector>

#include "../os.hpp"

namespace vq::os {

// The record behind a thread handle, as on every platform: it exists
// before the thread runs, so the handle is the thread's identity from its
// first instruction.
// The exit word is kept whole in the record: the system's exit code has
// only 32 bits.
struct Thread {
  HANDLE handle = nullptr;
  ThreadEntry entry = nullptr;
  void *arg = nullptr;
  std::intptr_t exit_word = 0;
  bool exited = false;
};

namespace {

thread_local Thread *tlsThread = nullptr;

unsigned __stdcall threadMain(void *record) {
  auto *t = static_cast<Thread *>(record);
  tlsThread = t;
  t->entry(t->arg);
  return 0;
}

// Slots with an end-of-thread function: the system runs no function for a
// TLS slot, but it does for a fiber-local one. One such slot, set for every
// thread that stored a value under a key with a function, runs the
// functions of all those keys when the thread ends.
struct EndFunction {
  DWORD key;
  void (*function)(void *);
};
SRWLOCK utEndLock = SRWLOCK_INIT;
std::vector<EndFunction> *utEndFunctions = nullptr;  // never freed: threads may end late
DWORD utEndSlot = FLS_OUT_OF_INDEXES;

void WINAPI onThreadEnd(void *) {
  std::vector<EndFunction> functions;
  ::AcquireSRWLockShared(&utEndLock);
  if (utEndFunctions != nullptr) functions = *utEndFunctions;
  ::ReleaseSRWLockShared(&utEndLock);
  for (const EndFunction &f : functions) {
    if (void *value = ::TlsGetValue(f.key)) f.function(value);
  }
}

// Whether key has an end-of-thread function (under the lock).
bool hasEndFunction(DWORD key) {
  if (utEndFunctions == nullptr) return false;
  for (const EndFunction &f : *utEndFunctions) {
    if (f.key == key) return true;
  }
  return false;
}

}  // namespace

Thread *threadNew() noexcept {
  auto *t = new (std::nothrow) Thread;
  if (t == nullptr) ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return t;
}

bool threadStart(Thread *thread, ThreadEntry entry, void *arg) noexcept {
  if (thread == nullptr || entry == nullptr) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  thread->entry = entry;
  thread->arg = arg;
  // Created suspended, so that the handle is stored before the thread runs.
  const std::uintptr_t h = ::_beginthreadex(nullptr, 0, &threadMain, thread, CREATE_SUSPENDED, nullptr);
  if (h == 0) {
    // The runtime reports through errno; the system's code is what is kept.
    if (::GetLastError() == 0) ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return false;
  }
  thread->handle = reinterpret_cast<HANDLE>(h);
  if (::ResumeThread(thread->handle) == static_cast<DWORD>(-1)) {
    const DWORD error = ::GetLastError();
    ::TerminateThread(thread->handle, 0);
    ::CloseHandle(thread->handle);
    thread->handle = nullptr;
    ::SetLastError(error);
    return false;
  }
  return true;
}

void threadExit(std::intptr_t exit_code) {
  if (Thread *t = tlsThread) {
    t->exit_word = exit_code;
    t->exited = true;
  }
  ::_endthreadex(static_cast<unsigned>(exit_code));
}

bool threadJoin(Thread *thread, std::intptr_t *exit_code) noexcept {
  if (thread == nullptr || thread->handle == nullptr) {
    ::SetLastError(ERROR_INVALID_HANDLE);
    return false;
  }
  const DWORD r = ::WaitForSingleObject(thread->handle, INFINITE);
  if (r != WAIT_OBJECT_0 && r != WAIT_ABANDONED) return false;
  DWORD code = 0;
  if (exit_code != nullptr && thread->exited) {
    *exit_code = thread->exit_word;
  } else if (exit_code != nullptr && ::GetExitCodeThread(thread->handle, &code) != 0) {
    *exit_code = static_cast<std::int32_t>(code);  // -1 stays -1
  }
  ::CloseHandle(thread->handle);
  thread->handle = nullptr;  // waited for: a second wait is refused
  return true;
}

void threadFree(Thread *thread) noexcept {
  // A thread never waited for keeps running on its own.
  if (thread != nullptr && thread->handle != nullptr) ::CloseHandle(thread->handle);
  delete thread;
}

// ---- Thread-local storage ---------------------------------------------------

std::uint32_t tlsAlloc(void (*at_thread_end)(void *)) noexcept {
  const DWORD key = ::TlsAlloc();
  if (key == TLS_OUT_OF_INDEXES) return kInvalidTlsKey;
  if (at_thread_end == nullptr) return key;
  bool filed = false;
  ::AcquireSRWLockExclusive(&utEndLock);
  try {
    if (utEndSlot == FLS_OUT_OF_INDEXES) utEndSlot = ::FlsAlloc(&onThreadEnd);
    if (utEndSlot != FLS_OUT_OF_INDEXES) {
      if (utEndFunctions == nullptr) utEndFunctions = new std::vector<EndFunction>;
      utEndFunctions->push_back({key, at_thread_end});
      filed = true;
    }
  } catch (...) {
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  }
  ::ReleaseSRWLockExclusive(&utEndLock);
  if (filed) return key;
  const DWORD error = ::GetLastError();
  ::TlsFree(key);
  ::SetLastError(error);
  return kInvalidTlsKey;
}

bool tlsFree(std::uint32_t key) noexcept {
  ::AcquireSRWLockExclusive(&utEndLock);
  if (utEndFunctions != nullptr) {
    std::erase_if(*utEndFunctions, [key](const EndFunction &f) { return f.key == key; });
  }
  ::ReleaseSRWLockExclusive(&utEndLock);
  return ::TlsFree(key) != 0;
}

void *tlsGet(std::uint32_t key) noexcept {
  // A successful read clears the last error; the caller's must survive.
  const DWORD saved = ::GetLastError();
  void *value = ::TlsGetValue(key);
  ::SetLastError(saved);
  return value;
}

bool tlsSet(std::uint32_t key, void *value) noexcept {
  const DWORD saved = ::GetLastError();
  if (!::TlsSetValue(key, value)) return false;
  if (value != nullptr) {
    // Arms the thread's end-of-thread call when the key has a function.
    ::AcquireSRWLockShared(&utEndLock);
    const bool arm = hasEndFunction(key);
    const DWORD slot = utEndSlot;
    ::ReleaseSRWLockShared(&utEndLock);
    if (arm && ::FlsGetValue(slot) == nullptr) ::FlsSetValue(slot, reinterpret_cast<void *>(1));
  }
  ::SetLastError(saved);
  return true;
}

}  // namespace vq::os
