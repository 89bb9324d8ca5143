// The process-wide debug-flag array, for the library's hot paths: read in
// place, without a call to DutGetDebugFlags() or a load of its address.
#pragma once

#include "vqutil/error.h"

namespace vq {

#if defined(__ELF__)
[[gnu::visibility("hidden")]]
#endif
extern unsigned char utDebugFlags[D_DEBUG_FLAG_COUNT];

}  // namespace vq
