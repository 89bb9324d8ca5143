// Internal checking macros: the library's own invariants go through
// DutAssert (fatal) and DutExpect (warn and go on) with the expression text
// the messages show and the source label of the family.
#pragma once

#include "vqutil/output.h"

#define VQ_ASSERT(cond, text, file) DutAssert((cond) ? 1 : 0, (text), (file), __LINE__)
#define VQ_EXPECT(cond, text, file) DutExpect((cond) ? 1 : 0, (text), (file), __LINE__)
