// Scoped hold of the process-wide lock. Not for frames that a longjmp may
// cross: those call DutProcessMutexLock / DutProcessMutexUnlock explicitly.
#pragma once

#include "vqutil/thread.h"

namespace vq {

class ProcessLock {
 public:
  ProcessLock() noexcept { DutProcessMutexLock(); }
  ~ProcessLock() { DutProcessMutexUnlock(); }
  ProcessLock(const ProcessLock &) = delete;
  ProcessLock &operator=(const ProcessLock &) = delete;
};

}  // namespace vq
