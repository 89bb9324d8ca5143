// Inline fast paths of the thread layer for code inside the library that
// knows its handles are the library's own unnamed objects (the read-write
// mutex): the same operations as DutThreadSelf, DutMutexLock with an endless
// wait, DutMutexUnlock and DutCondWakeAll, without the calls and checks of
// the exported entry points.
#pragma once

#include "platform/thread_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/thread.h"

namespace vq::threads {

// The calling library thread's handle (DutThreadSelf).
extern constinit thread_local D_THREAD tlsSelf VQ_STATIC_TLS;

inline D_THREAD threadSelf() noexcept { return tlsSelf; }

inline os::ThreadMutex *ownMutex(D_MUTEX mutex) noexcept {
  return static_cast<os::ThreadMutex *>(reinterpret_cast<os::Handle *>(mutex));
}

// An endless wait on one of our own mutexes cannot fail.
inline D_BOOL lockOwn(D_MUTEX mutex) noexcept {
  ownMutex(mutex)->lock(os::kInfinite);
  return D_TRUE;
}

inline D_BOOL unlockOwn(D_MUTEX mutex) noexcept {
  if (ownMutex(mutex)->unlock()) return D_TRUE;
  DutErrNumSetOs(os::lastError());
  return D_FALSE;
}

inline void wakeAllOwn(D_COND cond) noexcept {
  static_cast<os::ThreadEvent *>(reinterpret_cast<os::Handle *>(cond))->set();
}

}  // namespace vq::threads
