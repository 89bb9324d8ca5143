/**
 * @defgroup stdopt Standard options
 * The checks behind the standard options, and the default unique
 * subject of a process.
 *
 * The standard options (created with the option table, see option.h) use
 * these verify functions; applications may attach them to options of their
 * own. Each is a D_OPTION_VERIFY_FUNC for a string option: it answers
 * D_TRUE to accept the new value; a refusal prints why through DutOut
 * (messages name the option) and sets D_ERR_VAL_INVALID. A null new value
 * (the option becoming unknown) is accepted: the required flag decides
 * whether an option may lose its value. The argument is not used.
 *
 * Subject names are paths of levels: "/" followed by levels separated by
 * "/". Levels are non-empty and hold no blanks or control characters.
 * @{
 */
/**
 * @file
 * @ingroup stdopt
 * @brief Standard options (stdopt).
 */
#ifndef VQUTIL_STDOPT_H
#define VQUTIL_STDOPT_H

#include "option.h"
#include "types.h"

/** Size of the buffer DutOptionGetUniqueSubjectDefault fills. */
#define D_UNIQUE_SUBJECT_SIZE 280

D_BEGIN_DECLS

/** A class or attribute name: a non-empty identifier of letters, digits,
 * "_" and "%" that does not start with a digit (DutIdIsValid). Messages:
 * "The option <%s> must not be empty.\n", "The option <%s> must be a name
 * of letters, digits, '_' and '%%', not starting with a digit: <%s>.\n". */
D_EXPORT D_BOOL DutOptionNameCheck(D_OPTION *option, void *new_value, void *arg);

/** A subject prefix: a subject path without wildcards ("*" or "?") and
 * without a trailing "/", such as "/plant/line1". Messages: "The option
 * <%s> must start with '/'.\n", "The option <%s> must not contain blanks or
 * control characters.\n", "The option <%s> must not contain an empty
 * level.\n", "The option <%s> must not contain the wildcard '%c'.\n". */
D_EXPORT D_BOOL DutOptionPrefixCheck(D_OPTION *option, void *new_value, void *arg);

/** A monitoring scope: a subject path whose last level may be "*" (every
 * subject below the levels before it; a slash and a star is everything).
 * "*" elsewhere, or inside a level, is refused with "The option <%s> may
 * use '*' only as its whole last level.\n"; "?" with the wildcard
 * message; otherwise the messages of DutOptionPrefixCheck. */
D_EXPORT D_BOOL DutOptionScopeCheck(D_OPTION *option, void *new_value, void *arg);

/** A unique subject: one non-empty level naming exactly one subject, so
 * that it can be appended to any prefix: no "/", no wildcard, no blanks or
 * control characters. Messages: "The option <%s> must not be empty.\n",
 * "The option <%s> must be a single level without '/'.\n", and those of
 * DutOptionPrefixCheck for wildcards, blanks and control characters. */
D_EXPORT D_BOOL DutOptionUniqueCheck(D_OPTION *option, void *new_value, void *arg);

/** Writes the default unique subject for a number (usually the process id)
 * into buffer (at least D_UNIQUE_SUBJECT_SIZE bytes): "_" + node name
 * (DutGetNodeName) + "_" + the number, in decimal when it is 0 or more and
 * in hexadecimal when it is negative. With the environment variable
 * VQ_FORCE_SHORT_NODE_NAME set, the node name is cut at its first ".".
 * Returns buffer; a null buffer sets D_ERR_NULL_PTR and answers null. */
D_EXPORT char *DutOptionGetUniqueSubjectDefault(char *buffer, D_WORD number);

D_END_DECLS

/** @} */
#endif /* VQUTIL_STDOPT_H */
