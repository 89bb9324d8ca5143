// Checked allocation: exhaustion of the heap is a fatal error, so callers
// of the checked layer never test for null; with memory tracing on
// (debug flag 0) every allocation and release writes one debug line.
#include "vqutil/memory.h"

#include <cstdlib>

#include "frame/check.hpp"
#include "frame/hex.hpp"
#include "threads/process_lock.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"

namespace {

constexpr const char *kFile = "util.c";

D_UWORD utInitialSbrk = 0;
D_UWORD utCurrentSbrk = 0;

inline std::size_t requestSize(D_INT4 size) {
  // A zero-size request still yields a distinct block.
  return size == 0 ? 1u : static_cast<std::size_t>(static_cast<D_UINT4>(size));
}

inline bool tracing() { return DutGetDebugFlags()[D_DEBUG_MEMORY] != 0; }

using vq::decimalOf;

}  // namespace

extern "C" {

D_EXPORT void *DutMalloc(D_INT4 size) { return std::malloc(requestSize(size)); }
D_EXPORT void *DutCalloc(D_INT4 size) { return std::calloc(1, requestSize(size)); }
D_EXPORT void *DutRealloc(void *block, D_INT4 size) { return std::realloc(block, requestSize(size)); }
D_EXPORT void DutFree(void *block) { std::free(block); }

D_EXPORT void *DutMallocCheck(D_INT4 size, const char *name, const char *file, D_INT4 line) {
  void *p = DutMalloc(size);
  if (p == nullptr) {
    DutFatalError("D_MALLOC <%s>: %ld bytes: out of heap: file %s, line %ld", name, static_cast<long>(size), file,
                  static_cast<long>(line));
    return nullptr;
  }
  if (tracing()) {
    DutDebug("D_MALLOC: %s (%" PRIdPTR "): %ld bytes: file %s, line %ld\n", name, decimalOf(p),
             static_cast<long>(size), file, static_cast<long>(line));
  }
  return p;
}

D_EXPORT void *DutCallocCheck(D_INT4 size, const char *name, const char *file, D_INT4 line) {
  void *p = DutCalloc(size);
  if (p == nullptr) {
    DutFatalError("D_CALLOC <%s>: %ld bytes: out of heap: file %s, line %ld", name, static_cast<long>(size), file,
                  static_cast<long>(line));
    return nullptr;
  }
  if (tracing()) {
    DutDebug("D_CALLOC: %s (%" PRIdPTR "): %ld bytes: file %s, line %ld\n", name, decimalOf(p),
             static_cast<long>(size), file, static_cast<long>(line));
  }
  return p;
}

D_EXPORT void *DutReallocCheck(void *block, D_INT4 size, const char *name, const char *file, D_INT4 line) {
  // A null block is a fresh allocation, labelled as the library's own.
  if (block == nullptr) return DutMallocCheck(size, "var", kFile, 1854);
  void *p = DutRealloc(block, size);
  if (p == nullptr) {
    DutFatalError("D_REALLOC <%s>: %ld bytes: out of heap: file %s, line %ld", name, static_cast<long>(size), file,
                  static_cast<long>(line));
    return nullptr;
  }
  if (tracing()) {
    DutDebug("D_REALLOC: %s (%" PRIdPTR "): %ld bytes: file %s, line %ld\n", name, decimalOf(p),
             static_cast<long>(size), file, static_cast<long>(line));
  }
  return p;
}

D_EXPORT void DutFreeCheck(void *block, const char *name, const char *file, D_INT4 line) {
  VQ_EXPECT(block != nullptr, "(var) != NULL", kFile);
  if (tracing()) {
    DutDebug("D_FREE: %s (%" PRIdPTR "): file %s, line %ld\n", name, decimalOf(block), file, static_cast<long>(line));
  }
  DutFree(block);
}

D_EXPORT D_UWORD DutWinGetCurrentSbrk(void) {
  // A probe allocation shows where the heap currently ends.
  void *probe = std::malloc(1);
  D_UWORD at = reinterpret_cast<D_UWORD>(probe);
  std::free(probe);
  vq::ProcessLock lock;
  if (at > utCurrentSbrk) utCurrentSbrk = at;
  return utCurrentSbrk;
}

D_EXPORT void DutSetInitialSbrk(void) {
  vq::ProcessLock lock;
  if (utInitialSbrk == 0) utInitialSbrk = DutWinGetCurrentSbrk();
}

D_EXPORT D_UWORD DutGetInitialSbrk(void) {
  DutSetInitialSbrk();
  vq::ProcessLock lock;
  return utInitialSbrk;
}

}  // extern "C"
