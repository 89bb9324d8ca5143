// Safe strings: a NUL-terminated buffer with its size and length, grown one
// quantum at a time. Every step of growth is its own reallocation, so the
// memory trace shows exactly the sizes the buffer went through.
#include "vqutil/safestr.h"

#include <cstdint>
#include <cstring>

#include "frame/check.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"

namespace {

constexpr const char *kFile = "safestr.c";
constexpr D_INT4 kQuantum = D_SAFE_STRING_QUANTUM;

// Grows dest until `needed` bytes fit, one quantum per reallocation.
inline void growTo(D_SAFE_STRING *dest, D_INT4 needed, D_INT4 quantum) {
  while (needed > dest->size) [[unlikely]] {
      dest->size += quantum;
      dest->str =
          static_cast<char *>(DutReallocCheck(dest->str, dest->size, "dest->str", kFile, __LINE__));
    }
}

// Appends are the hot path of text building: the checks call out to
// DutAssert only when they fail, and the exported forms share one inlined
// body instead of calling each other through the export table.
#define SAFESTR_CHECK(cond, text)            \
  do {                                       \
    if (!(cond)) [[unlikely]] {              \
      DutAssert(0, (text), kFile, __LINE__); \
    }                                        \
  } while (0)

inline void appendText(D_SAFE_STRING *dest, const char *src, D_INT4 quantum) {
  SAFESTR_CHECK(src != nullptr, "src");
  SAFESTR_CHECK(dest != nullptr, "dest");
  SAFESTR_CHECK(dest->str != nullptr, "dest->str");
  SAFESTR_CHECK(quantum > 0, "0 < quantum");
  const auto n = static_cast<D_INT4>(std::strlen(src));
  // The source may be dest's own text: find it again after the buffer moved.
  const std::uintptr_t at =
      reinterpret_cast<std::uintptr_t>(src) - reinterpret_cast<std::uintptr_t>(dest->str);
  const bool own = at < static_cast<std::uintptr_t>(dest->size);
  growTo(dest, dest->length + n + 1, quantum);
  if (own) src = dest->str + at;
  std::memmove(dest->str + dest->length, src, static_cast<std::size_t>(n) + 1);
  dest->length += n;
}

inline void appendChar(D_SAFE_STRING *dest, char c, D_INT4 quantum) {
  SAFESTR_CHECK(c != '\0', "c");
  SAFESTR_CHECK(dest != nullptr, "dest");
  SAFESTR_CHECK(dest->str != nullptr, "dest->str");
  SAFESTR_CHECK(quantum > 0, "0 < quantum");
  growTo(dest, dest->length + 2, quantum);
  dest->str[dest->length] = c;
  dest->str[dest->length + 1] = '\0';
  dest->length += 1;
}

}  // namespace

extern "C" {

D_EXPORT D_SAFE_STRING DutSafeStringQCreate(D_INT4 size) {
  VQ_ASSERT(size > 0, "0 < size", kFile);
  D_SAFE_STRING safe_str;
  safe_str.str = static_cast<char *>(DutMallocCheck(size, "safe_str.str", kFile, __LINE__));
  safe_str.str[0] = '\0';
  safe_str.size = size;
  safe_str.length = 0;
  return safe_str;
}

D_EXPORT D_SAFE_STRING DutSafeStringCreate(void) { return DutSafeStringQCreate(kQuantum); }

D_EXPORT void DutSafeStringDestroy(D_SAFE_STRING safe_str) {
  if (safe_str.str != nullptr) {
    DutFreeCheck(safe_str.str, "safe_str.str", kFile, __LINE__);
  }
}

D_EXPORT void DutSafeStringQAppend(D_SAFE_STRING *dest, const char *src, D_INT4 quantum) {
  appendText(dest, src, quantum);
}

D_EXPORT void DutSafeStringAppend(D_SAFE_STRING *dest, const char *src) {
  appendText(dest, src, kQuantum);
}

D_EXPORT void DutSafeStringQAppendChar(D_SAFE_STRING *dest, char c, D_INT4 quantum) {
  appendChar(dest, c, quantum);
}

D_EXPORT void DutSafeStringAppendChar(D_SAFE_STRING *dest, char c) {
  appendChar(dest, c, kQuantum);
}

D_EXPORT void DutSafeStringClear(D_SAFE_STRING *safe_str) {
  VQ_ASSERT(safe_str != nullptr, "safe_str", kFile);
  if (safe_str->str == nullptr) {
    *safe_str = DutSafeStringQCreate(kQuantum);
    return;
  }
  safe_str->str[0] = '\0';
  safe_str->length = 0;
}

D_EXPORT void DutSafeStringQCopy(D_SAFE_STRING *dest, const char *src, D_INT4 quantum) {
  DutSafeStringClear(dest);
  DutSafeStringQAppend(dest, src, quantum);
}

D_EXPORT void DutSafeStringCopy(D_SAFE_STRING *dest, const char *src) {
  DutSafeStringQCopy(dest, src, kQuantum);
}

D_EXPORT D_BOOL DutSafeStringResize(D_SAFE_STRING *ssp, D_INT4 new_size) {
  if (ssp == nullptr || ssp->str == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (new_size <= ssp->size) {
    return D_FALSE;
  }
  if (new_size % kQuantum != 0) {
    new_size = (new_size / kQuantum + 1) * kQuantum;
  }
  ssp->str = static_cast<char *>(DutReallocCheck(ssp->str, new_size, "ssp->str", kFile, __LINE__));
  ssp->size = new_size;
  return D_TRUE;
}

D_EXPORT D_BOOL DutSafeStringShorten(D_SAFE_STRING *ssp, D_INT4 count) {
  if (ssp == nullptr || ssp->str == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return D_FALSE;
  }
  if (count < 0) {
    DutErrNumSet(D_ERR_VAL_TOO_SMALL);
    return D_FALSE;
  }
  if (count > ssp->length) {
    DutErrNumSet(D_ERR_VAL_INVALID);
    return D_FALSE;
  }
  ssp->length -= count;
  ssp->str[ssp->length] = '\0';
  return D_TRUE;
}

}  // extern "C"
