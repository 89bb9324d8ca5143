// The calling thread's library record when it already exists: the fast
// path of every error-number access, which neither creates anything nor
// disturbs errno or the OS and socket error values.
#pragma once

#include "vqutil/error.h"

namespace vq::threads {

D_TSD_RECORD *existingTsdRecord() noexcept;

}  // namespace vq::threads
