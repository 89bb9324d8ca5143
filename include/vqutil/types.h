/**
 * @defgroup types Basic types
 * Shared types, truth values and the export macro.
 *
 * Every public header of the library includes this one. It compiles as C11
 * and as C++ and uses nothing beyond the C standard library.
 * @{
 */
/**
 * @file
 * @ingroup types
 * @brief Basic types (types).
 */
#ifndef VQUTIL_TYPES_H
#define VQUTIL_TYPES_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/** @def D_BEGIN_DECLS
 * Opens the block of a header's declarations: C linkage under C++. */
/** @def D_END_DECLS
 * Closes the block that D_BEGIN_DECLS opened. */
#ifdef __cplusplus
#define D_BEGIN_DECLS extern "C" {
#define D_END_DECLS }
#else
#define D_BEGIN_DECLS
#define D_END_DECLS
#endif

/** @def D_EXPORT
 * Marks every function the library exports. Everything else in the shared
 * library is hidden. */
#if defined(_WIN32) || defined(__CYGWIN__)
#if defined(VQUTIL_BUILDING)
#define D_EXPORT __declspec(dllexport)
#elif defined(VQUTIL_STATIC)
#define D_EXPORT
#else
#define D_EXPORT __declspec(dllimport)
#endif
#elif defined(__GNUC__) || defined(__clang__)
#define D_EXPORT __attribute__((visibility("default")))
#else
#define D_EXPORT
#endif

/** @def D_PRINTF_FORMAT(fmt, args)
 * printf-style checking of format strings; fmt and args are 1-based
 * argument positions (args 0 for the va_list forms). */
/** @def D_NORETURN
 * Marks a function that never returns. */
/** @def D_NULL_TERMINATED
 * The variable arguments must end with a null pointer. */
#if defined(__GNUC__) || defined(__clang__)
#define D_PRINTF_FORMAT(fmt, args) __attribute__((format(printf, fmt, args)))
#define D_NORETURN __attribute__((noreturn))
#define D_NULL_TERMINATED __attribute__((sentinel))
#elif defined(_MSC_VER)
#define D_PRINTF_FORMAT(fmt, args)
#define D_NORETURN __declspec(noreturn)
#define D_NULL_TERMINATED
#else
#define D_PRINTF_FORMAT(fmt, args)
#define D_NORETURN
#define D_NULL_TERMINATED
#endif

/** @{ */
/** Truth values returned by most operations. */
#define D_TRUE 1
#define D_FALSE 0
#define D_NULL NULL
/** @} */

/** @{ */
/** Fixed-width types used throughout the API. */
typedef int16_t D_INT2;
typedef uint16_t D_UINT2;
typedef int32_t D_INT4;
typedef uint32_t D_UINT4;
typedef double D_REAL8;
/** @} */

/** @{ */
/** A machine word: pointer-sized. Hash keys and values, callback arguments,
 * list items and thread exit codes are words. */
typedef intptr_t D_WORD;
typedef uintptr_t D_UWORD;
/** @} */

/** Result of the operations that answer D_TRUE / D_FALSE. */
typedef int D_BOOL;

/** A printf-like sink (DutOut and DutDebug have this shape). */
typedef void (*D_PRINT_FUNC)(const char *format, ...);

/** D_TRUE when lo <= v <= hi. */
#define D_IN_RANGE(v, lo, hi) ((v) >= (lo) && (v) <= (hi))

/** @} */
#endif /* VQUTIL_TYPES_H */
