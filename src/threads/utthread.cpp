// Threads, mutexes, conditions, events and thread-specific data, and the
// process-wide lock every other family takes about its global tables.
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <mutex>

#include "frame/check.hpp"
#include "platform/os.hpp"
#include "platform/thread_lock.hpp"
#include "threads/own_sync.hpp"
#include "vqutil/error.h"
#include "vqutil/list.h"
#include "vqutil/memory.h"
#include "vqutil/platform.h"
#include "vqutil/thread.h"

namespace vq::threads {

// Beside the closure stored under the thread-identity key: DutThreadSelf
// runs on every read-write lock call.
constinit thread_local D_THREAD tlsSelf VQ_STATIC_TLS = D_INVALID_THREAD;

}  // namespace vq::threads

namespace {

using vq::threads::tlsSelf;

constexpr const char *kFile = "utthread";

// Start function, its argument and the thread's handle: the handle is the
// identity DutThreadSelf answers, so it is in place before the thread runs.
struct ThreadClosure {
  D_THREAD_FUNC func;
  D_WORD arg;
  D_THREAD handle;
};

// A destructor registered for a key; the first two words link it into
// utTsdList.
struct DataPair {
  D_DQ_NODE links;
  D_TSD_KEY key;
  D_TSD_DESTRUCTOR destructor;
};

std::atomic<bool> utInitialised{false};
std::atomic<D_MUTEX> utProcessMutex{D_INVALID_MUTEX};
std::atomic<D_TSD_KEY> utErrorKey{D_INVALID_TSD_KEY};
std::atomic<D_TSD_KEY> utThreadKey{D_INVALID_TSD_KEY};
D_DQ_NODE *utTsdList = nullptr;  // guarded by the process-wide lock

// Serialises the first DutInitThreads of racing threads.
std::mutex utInitGuard;

// While a thread builds its record, anything that reaches for the record
// again (tracing of the allocation, a warning) gets this stand-in instead
// of recursing.
thread_local bool tlsMakingRecord = false;
thread_local D_TSD_RECORD tlsStandInRecord;

inline vq::os::Handle *asHandle(D_WORD word) { return reinterpret_cast<vq::os::Handle *>(word); }
inline D_WORD asWord(const void *p) { return reinterpret_cast<D_WORD>(p); }

// Seconds (or, unscaled, milliseconds) to a 32-bit count of milliseconds:
// exactly -1.0 waits for ever, everything else truncates toward zero and a
// negative count wraps to a very long wait.
std::uint32_t waitMillis(double timeout, double scale) {
  if (timeout == -1.0) return vq::os::kInfinite;
  double ms = std::trunc(timeout * scale);
  if (std::isnan(ms)) return 0;
  if (!(ms > -9.0e18 && ms < 9.0e18)) return vq::os::kInfinite;
  return static_cast<std::uint32_t>(static_cast<std::int64_t>(ms));
}

D_BOOL failOs() {
  DutErrNumSetOs(vq::os::lastError());
  return D_FALSE;
}

// Lock-style results: signalled and abandoned succeed.
inline D_BOOL waitOutcome(vq::os::WaitResult r) {
  switch (r) {
    case vq::os::WaitResult::Signalled:
    case vq::os::WaitResult::Abandoned:
      return D_TRUE;
    case vq::os::WaitResult::Timeout:
      DutErrNumSet(D_ERR_TIMEOUT_REACHED);
      return D_FALSE;
    case vq::os::WaitResult::Failed:
      break;
  }
  return failOs();
}

// Allocates a key and files its destructor. `at_thread_end` is the system's
// own clean-up for threads that never pass through DutThreadExit.
D_BOOL keyCreate(D_TSD_KEY *key, D_TSD_DESTRUCTOR destructor, void (*at_thread_end)(void *)) {
  if (key == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  *key = vq::os::tlsAlloc(at_thread_end);
  if (*key == D_INVALID_TSD_KEY) return D_FALSE;
  DutProcessMutexLock();
  if (utTsdList == nullptr) DutDqOpen(&utTsdList);
  VQ_EXPECT(utTsdList != nullptr, "NULL != utTsdList", kFile);
  if (destructor != nullptr && utTsdList != nullptr) {
    auto *pair = static_cast<DataPair *>(DutCallocCheck(sizeof(DataPair), "data_pair", kFile, __LINE__));
    pair->key = *key;
    pair->destructor = destructor;
    DutDqRightInsert(pair, utTsdList->prev);  // at the tail: creation order
  }
  DutProcessMutexUnlock();
  return D_TRUE;
}

void freeRecord(void *record) { std::free(record); }

// Not noexcept: DutThreadExit ends the thread by unwinding through here.
void threadTrampoline(void *arg) {
  auto *closure = static_cast<ThreadClosure *>(arg);
  D_BOOL status = DutTsdSetValue(utThreadKey.load(), closure);
  VQ_EXPECT(status == D_TRUE, "D_TRUE == status", kFile);
  tlsSelf = closure->handle;
  D_WORD result = closure->func(closure->arg);
  DutFreeCheck(closure, "closure", kFile, __LINE__);
  vq::os::tlsSet(utThreadKey.load(), nullptr);
  tlsSelf = D_INVALID_THREAD;
  DutThreadExit(result);
}

}  // namespace

extern "C" {

// ---- Initialisation and the process-wide lock ------------------------------------

D_EXPORT D_BOOL DutInitThreads(void) {
  if (utInitialised.load()) return D_TRUE;
  std::lock_guard<std::mutex> guard(utInitGuard);
  if (utInitialised.load()) return D_TRUE;

  D_MUTEX mutex = DutMutexCreate(1);
  VQ_EXPECT(mutex != D_INVALID_MUTEX, "D_INVALID_MUTEX != utProcessMutex", kFile);
  utProcessMutex.store(mutex);

  // The record key gets the system's free too, so threads the library did
  // not start do not leak their records.
  D_TSD_KEY key = D_INVALID_TSD_KEY;
  D_BOOL status = keyCreate(&key, DutFree, &freeRecord);
  VQ_ASSERT(status == D_TRUE, "D_TRUE == status", kFile);
  utErrorKey.store(key);

  // The closure of a thread that leaves through DutThreadExit without
  // returning is freed by the system at its end.
  status = keyCreate(&key, nullptr, &freeRecord);
  VQ_ASSERT(status == D_TRUE, "D_TRUE == status", kFile);
  utThreadKey.store(key);

  DutSetCharFormat(DutGetCharFormatSystemDefault());
  utInitialised.store(true);
  DutProcessMutexUnlock();
  return D_TRUE;
}

// The process-wide lock is always one of the library's own mutexes.
D_EXPORT D_BOOL DutProcessMutexLock(void) {
  D_MUTEX mutex = utProcessMutex.load(std::memory_order_acquire);
  return mutex == D_INVALID_MUTEX ? D_TRUE : vq::threads::lockOwn(mutex);
}

D_EXPORT D_BOOL DutProcessMutexUnlock(void) {
  D_MUTEX mutex = utProcessMutex.load(std::memory_order_acquire);
  return mutex == D_INVALID_MUTEX ? D_TRUE : vq::threads::unlockOwn(mutex);
}

D_EXPORT D_TSD_RECORD *DutGetTsdValue(void) {
  D_TSD_KEY key = utErrorKey.load();
  if (key != D_INVALID_TSD_KEY) {
    if (void *record = vq::os::tlsGet(key); record != nullptr) return static_cast<D_TSD_RECORD *>(record);
  }
  if (tlsMakingRecord) return &tlsStandInRecord;
  tlsMakingRecord = true;

  if (key == D_INVALID_TSD_KEY) {
    // Threads the library did not start may get here together while the
    // process-wide lock is still a no-op: the lazy key is made exactly once.
    static std::once_flag lazy_key_once;
    std::call_once(lazy_key_once, [] {
      D_TSD_KEY made = D_INVALID_TSD_KEY;
      D_BOOL status = keyCreate(&made, &freeRecord, &freeRecord);
      VQ_EXPECT(status == D_TRUE, "D_TRUE == status", kFile);
      D_TSD_KEY none = D_INVALID_TSD_KEY;
      // DutInitThreads may have made its own key meanwhile; it wins.
      if (status == D_TRUE && !utErrorKey.compare_exchange_strong(none, made)) DutTsdKeyDestroy(made);
    });
    key = utErrorKey.load();
  }

  D_TSD_RECORD *record = &tlsStandInRecord;
  if (key != D_INVALID_TSD_KEY) {
    record = static_cast<D_TSD_RECORD *>(vq::os::tlsGet(key));
    if (record == nullptr) {
      record = static_cast<D_TSD_RECORD *>(DutCallocCheck(sizeof(D_TSD_RECORD), "tsd", kFile, __LINE__));
      bool stored = vq::os::tlsSet(key, record);
      VQ_EXPECT(stored, "D_TRUE == status", kFile);
      if (!stored) {
        std::free(record);
        record = &tlsStandInRecord;
      }
    }
  }
  tlsMakingRecord = false;
  return record;
}

// ---- Mutexes ----------------------------------------------------------------------

D_EXPORT D_MUTEX DutMutexCreate(D_INT4 owner) {
  if (owner != 0 && owner != 1) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_INVALID_MUTEX;
  }
  vq::os::Handle *h = vq::os::mutexCreate(owner == 1);
  if (h == nullptr) failOs();
  return asWord(h);
}

D_EXPORT D_MUTEX DutMutexCreateNamedNp(const char *name, D_INT4 owner) {
  if (owner != 0 && owner != 1) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_INVALID_MUTEX;
  }
  vq::os::Handle *h = vq::os::mutexCreateNamed(name, owner == 1);
  if (h == nullptr) failOs();
  return asWord(h);
}

D_EXPORT D_MUTEX DutMutexAttachNamedNp(const char *name) {
  vq::os::Handle *h = vq::os::mutexAttach(name);
  if (h == nullptr) failOs();
  return asWord(h);
}

// The library's own mutexes are taken inline; named ones, and handles that
// are no mutex, go through the platform.
D_EXPORT D_BOOL DutMutexLock(D_MUTEX mutex, D_REAL8 timeout) {
  const std::uint32_t ms = waitMillis(timeout, 1000.0);
  if (vq::os::ThreadMutex *own = vq::os::asThreadMutex(asHandle(mutex))) return waitOutcome(own->lock(ms));
  return waitOutcome(vq::os::mutexLock(asHandle(mutex), ms));
}

D_EXPORT D_BOOL DutMutexUnlock(D_MUTEX mutex) {
  vq::os::ThreadMutex *own = vq::os::asThreadMutex(asHandle(mutex));
  const bool done = own != nullptr ? own->unlock() : vq::os::mutexUnlock(asHandle(mutex));
  return done ? D_TRUE : failOs();
}

// Mutexes, conditions and events close alike.
D_EXPORT D_BOOL DutMutexDestroy(D_MUTEX mutex) {
  return vq::os::closeHandle(asHandle(mutex)) ? D_TRUE : failOs();
}

// ---- Conditions ---------------------------------------------------------------------

D_EXPORT D_COND DutCondCreate(void) {
  vq::os::Handle *h = vq::os::eventCreate(false);
  if (h == nullptr) failOs();
  return asWord(h);
}

D_EXPORT D_COND DutCondCreateNamedNp(const char *name) {
  vq::os::Handle *h = vq::os::eventCreateNamed(name, false, true);
  if (h == nullptr) failOs();
  return asWord(h);
}

D_EXPORT D_COND DutCondAttachNamedNp(const char *name) {
  vq::os::Handle *h = vq::os::eventAttach(name);
  if (h == nullptr) failOs();
  return asWord(h);
}

D_EXPORT D_BOOL DutCondWait(D_COND cond, D_MUTEX mutex, D_REAL8 timeout) {
  std::uint32_t ms = waitMillis(timeout, 1000.0);
  // Reset while the mutex is still held: a wake-up sent by the next holder
  // of the mutex then cannot be lost.
  if (!vq::os::eventReset(asHandle(cond))) return failOs();
  if (!vq::os::mutexUnlock(asHandle(mutex))) return failOs();
  switch (vq::os::eventWait(asHandle(cond), ms)) {
    case vq::os::WaitResult::Signalled:
    case vq::os::WaitResult::Abandoned:
      break;
    case vq::os::WaitResult::Timeout:
      // The caller re-locks the mutex itself.
      DutErrNumSet(D_ERR_TIMEOUT_REACHED);
      return D_FALSE;
    case vq::os::WaitResult::Failed:
      return failOs();
  }
  vq::os::WaitResult r = vq::os::mutexLock(asHandle(mutex), vq::os::kInfinite);
  if (r == vq::os::WaitResult::Signalled || r == vq::os::WaitResult::Abandoned) return D_TRUE;
  return failOs();
}

D_EXPORT D_BOOL DutCondWakeAll(D_COND cond) { return vq::os::eventSet(asHandle(cond)) ? D_TRUE : failOs(); }

D_EXPORT D_BOOL DutCondDestroy(D_COND cond) { return DutMutexDestroy(cond); }

// ---- Events -------------------------------------------------------------------------

D_EXPORT D_EVENT DutEventCreateNamed(const char *name, D_INT4 initial_state) {
  vq::os::Handle *h = vq::os::eventCreateNamed(name, initial_state != 0, false);
  if (h == nullptr) failOs();
  return asWord(h);
}

D_EXPORT D_EVENT DutEventCreateUnnamed(D_INT4 initial_state) {
  vq::os::Handle *h = vq::os::eventCreate(initial_state != 0);
  if (h == nullptr) failOs();
  return asWord(h);
}

D_EXPORT D_BOOL DutEventSet(D_EVENT event) { return DutCondWakeAll(event); }

D_EXPORT D_BOOL DutEventReset(D_EVENT event) { return vq::os::eventReset(asHandle(event)) ? D_TRUE : failOs(); }

D_EXPORT D_BOOL DutEventWait(D_EVENT event, D_REAL8 timeout) {
  // Milliseconds, unscaled, unlike mutexes and conditions.
  return waitOutcome(vq::os::eventWait(asHandle(event), waitMillis(timeout, 1.0)));
}

D_EXPORT D_BOOL DutEventDestroy(D_EVENT event) { return DutMutexDestroy(event); }

// ---- Threads ------------------------------------------------------------------------

D_EXPORT D_THREAD DutThreadCreate(D_THREAD_FUNC func, D_WORD arg, ...) {
  if (!utInitialised.load()) DutInitThreads();
  va_list args;
  va_start(args, arg);
  D_THREAD thread = DutThreadCreateVa(func, arg, args);
  va_end(args);
  return thread;
}

D_EXPORT D_THREAD DutThreadCreateVa(D_THREAD_FUNC func, D_WORD arg, va_list) {
  if (func == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_INVALID_THREAD;
  }
  auto *closure =
      static_cast<ThreadClosure *>(DutMallocCheck(sizeof(ThreadClosure), "thread_closure", kFile, __LINE__));
  closure->func = func;
  closure->arg = arg;
  vq::os::Thread *thread = vq::os::threadNew();
  if (thread != nullptr) {
    closure->handle = asWord(thread);
    if (vq::os::threadStart(thread, &threadTrampoline, closure)) return asWord(thread);
  }
  DutErrNumSetOs(vq::os::lastError());
  vq::os::threadFree(thread);
  DutFreeCheck(closure, "thread_closure", kFile, __LINE__);
  return D_INVALID_THREAD;
}

// Mutexes the thread still holds once its stack has unwound are given up,
// as abandoned, by the lock layer's own thread-end destructor, which the
// system runs for every thread that ever locked one (thread_lock.hpp).
D_EXPORT void DutThreadExit(D_WORD exit_code) {
  DutProcessMutexLock();
  if (utTsdList != nullptr) {
    for (auto *node = static_cast<D_DQ_NODE *>(DutDqFirst(utTsdList)); node != nullptr;) {
      D_DQ_NODE *next = node->next == utTsdList ? nullptr : node->next;
      auto *pair = reinterpret_cast<DataPair *>(node);
      void *value = nullptr;
      DutTsdGetValue(pair->key, &value);
      pair->destructor(value);
      // The value is gone: keep the system's own clean-up from seeing it.
      vq::os::tlsSet(pair->key, nullptr);
      node = next;
    }
  }
  DutProcessMutexUnlock();
  vq::os::threadExit(exit_code);
}

D_EXPORT D_THREAD DutThreadSelf(void) { return tlsSelf; }

D_EXPORT D_BOOL DutThreadEqual(D_THREAD a, D_THREAD b) { return a == b ? D_TRUE : D_FALSE; }

D_EXPORT D_BOOL DutThreadWait(D_THREAD thread, D_WORD *exit_code) {
  auto *t = reinterpret_cast<vq::os::Thread *>(thread);
  std::intptr_t code = 0;
  if (!vq::os::threadJoin(t, &code)) return failOs();
  if (exit_code != nullptr) *exit_code = code;
  vq::os::threadFree(t);
  return D_TRUE;
}

// ---- Thread-specific data -----------------------------------------------------------

D_EXPORT D_BOOL DutTsdKeyCreate(D_TSD_KEY *key, D_TSD_DESTRUCTOR destructor) {
  return keyCreate(key, destructor, nullptr);
}

D_EXPORT D_BOOL DutTsdKeyDestroy(D_TSD_KEY key) {
  if (key == D_INVALID_TSD_KEY) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  if (!vq::os::tlsFree(key)) return D_FALSE;
  DutProcessMutexLock();
  if (utTsdList != nullptr) {
    for (auto *node = static_cast<D_DQ_NODE *>(DutDqFirst(utTsdList)); node != nullptr;
         node = node->next == utTsdList ? nullptr : node->next) {
      auto *pair = reinterpret_cast<DataPair *>(node);
      if (pair->key == key) {
        DutDqDetach(utTsdList, pair);
        DutFreeCheck(pair, "pair", kFile, __LINE__);
        break;
      }
    }
  }
  DutProcessMutexUnlock();
  return D_TRUE;
}

D_EXPORT D_BOOL DutTsdGetValue(D_TSD_KEY key, void **value) {
  if (key == D_INVALID_TSD_KEY) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  if (value == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  *value = vq::os::tlsGet(key);
  return *value != nullptr ? D_TRUE : D_FALSE;
}

D_EXPORT D_BOOL DutTsdSetValue(D_TSD_KEY key, void *value) {
  if (key == D_INVALID_TSD_KEY) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  return vq::os::tlsSet(key, value) ? D_TRUE : D_FALSE;
}

}  // extern "C"

namespace vq::threads {

D_TSD_RECORD *existingTsdRecord() noexcept {
  D_TSD_KEY key = utErrorKey.load(std::memory_order_acquire);
  if (key == D_INVALID_TSD_KEY) return nullptr;
  return static_cast<D_TSD_RECORD *>(vq::os::tlsGet(key));
}

}  // namespace vq::threads
