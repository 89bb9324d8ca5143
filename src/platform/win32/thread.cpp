// Threads from _beginthreadex and thread-local storage from TlsAlloc.
#include <process.h>
#include <windows.h>

#include <new>

#include "../os.hpp"

namespace vq::os {

// The record behind a thread handle, as on every platform: it exists
// before the thread runs, so the handle is the thread's identity from its
// first instruction.
struct Thread {
  HANDLE handle = nullptr;
  ThreadEntry entry = nullptr;
  void *arg = nullptr;
};

namespace {

unsigned __stdcall threadMain(void *record) {
  auto *t = static_cast<Thread *>(record);
  t->entry(t->arg);
  return 0;
}

// Slots with an end-of-thread function are fiber-local slots, the only
// kind the system cleans up for every ending thread; they carry this bit
// so that one key space serves both kinds.
constexpr std::uint32_t kFlsBit = 0x40000000u;

bool isFls(std::uint32_t key) noexcept { return (key & kFlsBit) != 0; }

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

// Exit codes are 32-bit on Windows; the word is cut to that.
void threadExit(std::intptr_t exit_code) { ::_endthreadex(static_cast<unsigned>(exit_code)); }

bool threadJoin(Thread *thread, std::intptr_t *exit_code) noexcept {
  if (thread == nullptr || thread->handle == nullptr) {
    ::SetLastError(ERROR_INVALID_HANDLE);
    return false;
  }
  const DWORD r = ::WaitForSingleObject(thread->handle, INFINITE);
  if (r != WAIT_OBJECT_0 && r != WAIT_ABANDONED) return false;
  DWORD code = 0;
  if (exit_code != nullptr && ::GetExitCodeThread(thread->handle, &code) != 0) {
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
  if (at_thread_end == nullptr) {
    const DWORD key = ::TlsAlloc();
    return key == TLS_OUT_OF_INDEXES || key >= kFlsBit ? kInvalidTlsKey : key;
  }
  const DWORD key = ::FlsAlloc(reinterpret_cast<PFLS_CALLBACK_FUNCTION>(at_thread_end));
  if (key == FLS_OUT_OF_INDEXES || key >= kFlsBit) return kInvalidTlsKey;
  return key | kFlsBit;
}

bool tlsFree(std::uint32_t key) noexcept {
  if (key == kInvalidTlsKey) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  return (isFls(key) ? ::FlsFree(key & ~kFlsBit) : ::TlsFree(key)) != 0;
}

void *tlsGet(std::uint32_t key) noexcept {
  // A successful read clears the last error; the caller's must survive.
  const DWORD saved = ::GetLastError();
  void *value = isFls(key) ? ::FlsGetValue(key & ~kFlsBit) : ::TlsGetValue(key);
  ::SetLastError(saved);
  return value;
}

bool tlsSet(std::uint32_t key, void *value) noexcept {
  const DWORD saved = ::GetLastError();
  const BOOL ok = isFls(key) ? ::FlsSetValue(key & ~kFlsBit, value) : ::TlsSetValue(key, value);
  if (ok) ::SetLastError(saved);
  return ok != 0;
}

}  // namespace vq::os
