// What every fuzz target sets up first: the library prints nothing (the
// output of millions of inputs is noise) and its warnings about the input
// (unknown escapes and the like) never stop the run.
#pragma once

#include <cstdarg>
#include <cstdlib>

#include "vqutil/output.h"

namespace fuzz {

inline int quietOutput(const char *, va_list) { return 0; }

inline void quietLibrary() {
  DutSetOutputFunc(quietOutput);
  unsetenv("VQ_WARNING_ABORT");
}

}  // namespace fuzz
