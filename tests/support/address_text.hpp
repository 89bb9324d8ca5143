// The texts the library's debug and dump lines must show for an address or
// a machine word: every bit of it, in lower-case hex without prefix (or in
// signed decimal). Written with std::to_chars rather than printf, so that a
// line cut to the width of long (64-bit Windows) differs from them.
#pragma once

#include <charconv>
#include <cstdint>
#include <string>
#include <type_traits>

#include "vqutil/types.h"

namespace vqtest {

inline std::string HexText(std::uintmax_t value) {
  char text[32];
  return std::string(text, std::to_chars(text, text + sizeof text, value, 16).ptr);
}
inline std::string Hex(D_WORD w) { return HexText(static_cast<std::uintptr_t>(w)); }
inline std::string Hex(const void *p) { return HexText(reinterpret_cast<std::uintptr_t>(p)); }
template <class F, std::enable_if_t<std::is_function_v<F>, int> = 0>
std::string Hex(F *f) {
  return HexText(reinterpret_cast<std::uintptr_t>(f));
}
inline std::string Decimal(const void *p) { return std::to_string(reinterpret_cast<std::intptr_t>(p)); }

// A word whose upper half is set where words have 64 bits: a line that
// narrows it to 32 bits prints other digits.
inline D_WORD WideWord() { return static_cast<D_WORD>(UINT64_C(0x5a6b7c8d12345678)); }

}  // namespace vqtest
