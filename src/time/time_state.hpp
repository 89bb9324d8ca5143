// Process-wide state of the time family, shared between its files.
#pragma once

#include "vqutil/types.h"

namespace vq::time {
// Read without the lock; written under the process-wide lock.
extern volatile D_REAL8 utCurrentTime;
}  // namespace vq::time
