/**
 * @defgroup memory Memory
 * Checked memory allocation.
 *
 * The lower layer (DutMalloc ...) wraps the runtime allocator so that a
 * request for zero bytes becomes one byte. The checked layer takes the name
 * of the variable being filled, the source file and line: running out of
 * heap is a fatal error (so callers never test for null), and with memory
 * tracing on (DutGetDebugFlags()[D_DEBUG_MEMORY]) each allocation and
 * release writes one line to the debug file.
 *
 * Thread safety: the allocators are the runtime's thread-safe ones; the
 * initial break is guarded by the process-wide lock.
 * @{
 */
/**
 * @file
 * @ingroup memory
 * @brief Memory (memory).
 */
#ifndef VQUTIL_MEMORY_H
#define VQUTIL_MEMORY_H

#include "types.h"

D_BEGIN_DECLS

/** Allocates size bytes (0 asks for 1) from the runtime allocator; null
 * when it has none left. */
D_EXPORT void *DutMalloc(D_INT4 size);
/** Allocates size zero-filled bytes (0 asks for 1); one count only: the
 * caller multiplies. */
D_EXPORT void *DutCalloc(D_INT4 size);
/** Resizes block; a size of 0 asks for 1 byte, so it never frees. */
D_EXPORT void *DutRealloc(void *block, D_INT4 size);
/** Frees a block from the allocators above. */
D_EXPORT void DutFree(void *block);

/** @{ */
/** Checked allocation of size bytes (zero-filled for the calloc form):
 * running out of heap is fatal, so the result is null only when the
 * environment lets a fatal error return (VQ_FATAL_ERROR_CONTINUE or
 * VQ_FATAL_ERROR_SLEEP). name, file and line label the trace line written
 * when memory tracing is on. */
D_EXPORT void *DutMallocCheck(D_INT4 size, const char *name, const char *file, D_INT4 line);
D_EXPORT void *DutCallocCheck(D_INT4 size, const char *name, const char *file, D_INT4 line);
/** @} */
/** Checked resize of block; a null block is a DutMallocCheck traced as "var" from the library. */
D_EXPORT void *DutReallocCheck(void *block, D_INT4 size, const char *name, const char *file,
                               D_INT4 line);
/** Checked free; freeing null is reported as an internal validation failure, not fatal. */
D_EXPORT void DutFreeCheck(void *block, const char *name, const char *file, D_INT4 line);

/** @{ */
/** The initial break: a high-water mark of heap addresses, taken once. */
D_EXPORT void DutSetInitialSbrk(void);
D_EXPORT D_UWORD DutGetInitialSbrk(void);
/** @} */
/** The highest address a probe allocation has ever returned. */
D_EXPORT D_UWORD DutWinGetCurrentSbrk(void);

D_END_DECLS

/** @cond */
#ifdef __cplusplus
#define D_ALLOC_CAST_(ptr) static_cast<decltype(ptr)>
#else
#define D_ALLOC_CAST_(ptr)
#endif
/** @endcond */
/** @{ */
/** Checked allocation into a variable, labelled with the variable's text:
 * D_MALLOC(node, sizeof *node); D_FREE(node). */
#define D_MALLOC(ptr, size) \
  ((ptr) = D_ALLOC_CAST_(ptr)(DutMallocCheck((D_INT4)(size), #ptr, __FILE__, __LINE__)))
#define D_CALLOC(ptr, size) \
  ((ptr) = D_ALLOC_CAST_(ptr)(DutCallocCheck((D_INT4)(size), #ptr, __FILE__, __LINE__)))
#define D_REALLOC(ptr, size) \
  ((ptr) = D_ALLOC_CAST_(ptr)(DutReallocCheck((ptr), (D_INT4)(size), #ptr, __FILE__, __LINE__)))
#define D_FREE(ptr) DutFreeCheck((ptr), #ptr, __FILE__, __LINE__)
/** @} */

/** @} */
#endif /* VQUTIL_MEMORY_H */
