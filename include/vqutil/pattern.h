/**
 * @defgroup pattern Name patterns
 * One-wildcard name patterns.
 *
 * A pattern is a non-empty string. Without a question mark it is a plain
 * name that matches only itself, byte for byte (case counts). With one it
 * has the form prefix?wildcard-name?suffix: the wildcard name (possibly
 * empty) only documents the pattern; a name matches when it starts with the
 * prefix and the rest of it ends with exactly the suffix, and the text in
 * between is the instance. The wildcard takes the shortest such text.
 * Names never contain a question mark.
 *
 * With debug flag 5 (D_DEBUG_PATTERN) on, each match traces its steps to
 * the debug file.
 *
 * Thread safety: matching has no state; any thread may call it.
 * @{
 */
/**
 * @file
 * @ingroup pattern
 * @brief Name patterns (pattern).
 */
#ifndef VQUTIL_PATTERN_H
#define VQUTIL_PATTERN_H

#include <string.h>

#include "types.h"

/** The wildcard delimiter. */
#define D_PATTERN_DELIMITER '?'
/** True when s holds a wildcard delimiter. */
#define D_IS_A_PATTERN(s) (strchr((s), D_PATTERN_DELIMITER) != NULL)

D_BEGIN_DECLS

/** D_TRUE when match matches pattern. For a wildcard pattern the matched
 * text is copied, NUL-terminated, into instance_return, which is unbounded:
 * it must hold strlen(match) + 1 bytes, the longest possible instance.
 * A plain pattern leaves instance_return untouched. No match: D_FALSE with
 * the error number untouched.
 * Asserts "pattern != NULL", "D_C_STRLEN(pattern) > 0", "match != NULL",
 * "!D_IS_A_PATTERN(match)", "instance_return != NULL", and for a wildcard
 * pattern a closing delimiter ("pattern_ptr"). */
D_EXPORT D_BOOL DutMatchPattern(const char *pattern, const char *match, char *instance_return);

D_END_DECLS

/** @} */
#endif /* VQUTIL_PATTERN_H */
