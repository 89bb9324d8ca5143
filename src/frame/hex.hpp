// Addresses and machine words in debug, warning and dump lines. They go out
// as std::uintptr_t (std::intptr_t for the signed decimal ones) with the
// <cinttypes> pieces, e.g. "table %" PRIxPTR: through unsigned long they
// would lose their upper half where long is 32 bits and pointers 64
// (64-bit Windows), and name objects that do not exist. Where long already
// holds a pointer the digits are the same as with "%lx".
#pragma once

#include <cinttypes>
#include <cstdint>
#include <type_traits>

#include "vqutil/types.h"

namespace vq {

inline std::uintptr_t hexOf(const void *p) noexcept { return reinterpret_cast<std::uintptr_t>(p); }
inline std::uintptr_t hexOf(D_WORD w) noexcept { return static_cast<std::uintptr_t>(w); }

// Function pointers do not convert to const void *; their address is
// printed all the same.
template <class F, std::enable_if_t<std::is_function_v<F>, int> = 0>
inline std::uintptr_t hexOf(F *f) noexcept {
  return reinterpret_cast<std::uintptr_t>(f);
}

// For the lines that print an address as a signed decimal ("%" PRIdPTR).
inline std::intptr_t decimalOf(const void *p) noexcept { return reinterpret_cast<std::intptr_t>(p); }

}  // namespace vq
