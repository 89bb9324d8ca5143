// Putting back a thread's four error values after printing, and the
// table texts a report falls back on.
#pragma once

#include "vqutil/error.h"

namespace vq::errors {

// DutErrNumRestore, and the foreign values that were 0 when saved as well
// (its setters take 0 as "keep"): a first write to a stream or a first
// time-zone lookup may leave errno set, and whoever printed must find all
// four values exactly as they were.
D_BOOL restoreExactly(const D_ERR_SAVE &save) noexcept;

// The text the library's table holds for a number (its own rows and those
// added with DutErrStrCreate), or null; the caller's error number is kept.
const char *tableText(D_INT4 err_num) noexcept;

}  // namespace vq::errors
