// One-wildcard pattern matching. The common prefix is walked first; at the
// wildcard the suffix after the closing delimiter is tried against every
// tail of the name, shortest instance first.
#include "vqutil/pattern.h"

#include <cstring>

#include "frame/check.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"

namespace {

constexpr const char *kFile = "pattern.c";

inline bool tracing() { return DutGetDebugFlags()[D_DEBUG_PATTERN] != 0; }

}  // namespace

extern "C" {

D_EXPORT D_BOOL DutMatchPattern(const char *pattern, const char *match, char *instance_return) {
  VQ_ASSERT(pattern != nullptr, "pattern != NULL", kFile);
  VQ_ASSERT(pattern[0] != '\0', "D_C_STRLEN(pattern) > 0", kFile);
  VQ_ASSERT(match != nullptr, "match != NULL", kFile);
  VQ_ASSERT(!D_IS_A_PATTERN(match), "!D_IS_A_PATTERN(match)", kFile);
  VQ_ASSERT(instance_return != nullptr, "instance_return != NULL", kFile);
  const bool trace = tracing();
  if (trace) {
    DutDebug("Entering DutMatchPattern(%s, %s)\n", pattern, match);
  }

  if (!D_IS_A_PATTERN(pattern)) {
    const D_BOOL same = std::strcmp(pattern, match) == 0 ? D_TRUE : D_FALSE;
    if (trace) {
      DutDebug("  no pattern: returning <<%d>>\n", same);
    }
    return same;
  }
  VQ_ASSERT(D_IS_A_PATTERN(pattern), "D_IS_A_PATTERN(pattern)", kFile);

  const char *pattern_ptr = pattern;
  const char *match_ptr = match;
  while (*pattern_ptr != '\0') {
    if (trace) {
      DutDebug("  while loop: *pattern_ptr = %c, *match_ptr = %c\n", *pattern_ptr, *match_ptr);
    }
    if (*pattern_ptr != *match_ptr) {
      break;
    }
    if (trace) {
      DutDebug("    pattern_ptr and match_ptr are the same\n");
    }
    ++pattern_ptr;
    ++match_ptr;
  }
  if (*pattern_ptr == '\0') {
    // Unreachable while names hold no delimiter; kept as a guard.
    DutWarning("DutMatchPattern(%s, %s) fell through while loop.\n", pattern, match);
    return D_FALSE;
  }
  if (*pattern_ptr != D_PATTERN_DELIMITER) {
    if (trace) {
      DutDebug("    characters do not match (returning FALSE)\n");
    }
    return D_FALSE;
  }
  if (trace) {
    DutDebug("    found start of wildcard in *pattern_ptr\n");
  }
  pattern_ptr = std::strchr(pattern_ptr + 1, D_PATTERN_DELIMITER);
  VQ_ASSERT(pattern_ptr != nullptr, "pattern_ptr", kFile);
  const char *suffix = pattern_ptr + 1;

  for (const char *p = match_ptr;; ++p) {
    if (trace) {
      DutDebug("    calling D_STREQ(%s,%s)\n", p, suffix);
    }
    if (std::strcmp(p, suffix) == 0) {
      const auto n = static_cast<std::size_t>(p - match_ptr);
      std::memcpy(instance_return, match_ptr, n);
      instance_return[n] = '\0';
      if (trace) {
        DutDebug("    wildcard:instance_return=<<%s>>\n", instance_return);
      }
      return D_TRUE;
    }
    if (*p == '\0') {
      return D_FALSE;
    }
  }
}

}  // extern "C"
