// Process-wide state of the time family, shared between its files.
#pragma once

#include <atomic>

#include "vqutil/types.h"

namespace vq::time {

// Source label of the family's checks.
inline constexpr const char *kTimeFile = "time.c";

// The current time in seconds. Written under the process-wide lock, read
// without it: an atomic keeps that unlocked read whole.
extern std::atomic<D_REAL8> utCurrentTime;

// The base of the text readers: the current time when one is set, else the
// wall clock.
D_REAL8 baseTime();

}  // namespace vq::time
