// Internal checking macros: the library's own invariants go through
// DutAssert (fatal) and DutExpect (warn and go on) with the expression text
// the messages show and the source label of the family. The condition is
// tested inline, so a holding invariant costs no call.
#pragma once

#include "vqutil/output.h"

#define VQ_ASSERT(cond, text, file) ((cond) ? 1 : DutAssert(0, (text), (file), __LINE__))
#define VQ_EXPECT(cond, text, file) ((cond) ? 1 : DutExpect(0, (text), (file), __LINE__))
