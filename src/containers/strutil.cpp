// String helpers every family uses: owned copies, comparison ignoring
// case, and the printing of reals with the library's real-number format.
#include "vqutil/strutil.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "containers/real_format.hpp"
#include "frame/check.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/memory.h"
#include "vqutil/option.h"

namespace {

constexpr const char *kFile = "strutil.c";
// Longest text the real-number format produces, with its terminator.
constexpr std::size_t kRealTextSize = 40;

// Upper case + 32, other characters unchanged; signed, as the comparison
// results are differences of signed characters.
constexpr int fold(char c) { return (c >= 'A' && c <= 'Z') ? c + 32 : static_cast<signed char>(c); }

char utRealStr[kRealTextSize];

// The format held in the option "real_number_format", without a leading
// "OVERRIDE:" (which only bypasses the option's format check).
// The option is looked up once and kept, as every reader of it does.
std::atomic<D_OPTION *> utRealNumberFormatOption{nullptr};

const char *realNumberFormat() {
  D_OPTION *utRealNumberFormat = utRealNumberFormatOption.load(std::memory_order_acquire);
  if (utRealNumberFormat == nullptr) {
    utRealNumberFormat = DutOptionLookup("real_number_format");
    utRealNumberFormatOption.store(utRealNumberFormat, std::memory_order_release);
  }
  VQ_ASSERT(utRealNumberFormat != nullptr, "D_NULL != utRealNumberFormat", kFile);
  VQ_ASSERT(D_GOPT_TYPE(utRealNumberFormat) == D_OPT_TYPE_STRING,
            "D_OPT_TYPE_STRING == D_GOPT_TYPE(utRealNumberFormat)", kFile);
  VQ_ASSERT(D_GOPT_KNOWN(utRealNumberFormat), "D_TRUE == D_GOPT_KNOWN(utRealNumberFormat)", kFile);
  const char *format = static_cast<const char *>(D_GOPT_VALUE(utRealNumberFormat));
  constexpr D_INT4 kOverrideLength = 9;
  if (DutStrNCmpi(format, "OVERRIDE:", kOverrideLength) == 0) format += kOverrideLength;
  return format;
}

}  // namespace

namespace vq::strings {

void forgetRealNumberFormatOption(const D_OPTION *option) noexcept {
  D_OPTION *expected = const_cast<D_OPTION *>(option);
  utRealNumberFormatOption.compare_exchange_strong(expected, nullptr);
}

}  // namespace vq::strings

extern "C" {

D_EXPORT D_INT4 DutStringCopy(char **string_ptr, const char *string_value) {
  VQ_ASSERT(string_ptr != nullptr, "string_ptr", kFile);
  VQ_ASSERT(string_value != nullptr, "string_value", kFile);
  std::size_t n = std::strlen(string_value) + 1;
  // Copy before freeing: the new value may live inside the old string.
  char *copy = static_cast<char *>(DutMallocCheck(static_cast<D_INT4>(n), "*string_ptr", kFile, __LINE__));
  std::memcpy(copy, string_value, n);
  if (*string_ptr != nullptr) DutFreeCheck(*string_ptr, "*string_ptr", kFile, __LINE__);
  *string_ptr = copy;
  return 1;
}

D_EXPORT D_INT4 DutStrCmpi(const char *a, const char *b) {
  VQ_ASSERT(a != nullptr, "a", kFile);
  VQ_ASSERT(b != nullptr, "b", kFile);
  for (;; ++a, ++b) {
    int fa = fold(*a);
    int fb = fold(*b);
    if (fa != fb) return fa - fb;
    if (*a == '\0') return 0;
  }
}

D_EXPORT D_INT4 DutStrNCmpi(const char *a, const char *b, D_INT4 count) {
  VQ_ASSERT(a != nullptr, "a", kFile);
  VQ_ASSERT(b != nullptr, "b", kFile);
  // The count is tested after the first comparison, so a count of 0 or less
  // still compares the first character.
  for (D_INT4 matched = 0;; ++a, ++b) {
    int fa = fold(*a);
    int fb = fold(*b);
    if (fa != fb) return fa - fb;
    if (*a == '\0') return 0;
    if (++matched >= count) return 0;
  }
}

D_EXPORT char *DutRealToStrCopy(D_REAL8 value, char *buffer) {
  if (buffer == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return nullptr;
  }
  std::snprintf(buffer, kRealTextSize, realNumberFormat(), value);
  return buffer;
}

D_EXPORT const char *DutRealToStr(D_REAL8 value) {
  vq::ProcessLock lock;
  DutRealToStrCopy(value, utRealStr);
  return utRealStr;
}

}  // extern "C"
