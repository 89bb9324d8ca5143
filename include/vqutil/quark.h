/**
 * @defgroup quark Quarks
 * Quarks, interned strings.
 *
 * Each distinct string, compared ignoring case, gets a small positive
 * integer (its quark) for the life of the process, and the quark maps back
 * to the library's own copy of the string as first spelled. Quarks start at
 * 1 and are never reused or freed; the copies live until the process ends.
 *
 * Errors: D_ERR_NULL_PTR (3) for null arguments, D_ERR_VAL_TOO_SMALL (4)
 * for a quark below 1, D_ERR_DOESNT_EXIST (8) for a quark never given out.
 *
 * Thread safety: the quark tables are process-wide and every operation
 * holds the process-wide lock while it reads or changes them, so any thread
 * may call them (after DutInitThreads when several threads do).
 * @{
 */
/**
 * @file
 * @ingroup quark
 * @brief Quarks (quark).
 */
#ifndef VQUTIL_QUARK_H
#define VQUTIL_QUARK_H

#include "types.h"

/** A quark: the number interned for a string (ignoring case). */
typedef D_INT4 D_QUARK;

D_BEGIN_DECLS

/** Stores the quark of str in *quark, creating one (and the library's copy
 * of str, label "(str_copy)") when the string, ignoring case, is new.
 * D_TRUE; a null str or quark: D_ERR_NULL_PTR, D_FALSE. */
D_EXPORT D_BOOL DutStrToQuark(const char *str, D_QUARK *quark);
/** Stores in *str the library's copy of the quark's string (the spelling of
 * the first DutStrToQuark call); the copy is owned by the library and stays
 * valid for the life of the process. D_TRUE; quark below 1:
 * D_ERR_VAL_TOO_SMALL; null str: D_ERR_NULL_PTR; unknown quark:
 * D_ERR_DOESNT_EXIST; each D_FALSE. */
D_EXPORT D_BOOL DutQuarkToStr(D_QUARK quark, const char **str);
/** Prints "Printing quark table.\n" and one line "  quark %ld = string <%s>\n"
 * per quark (in the string table's chain order), or
 * "  quark tables do not exist.\n" before the first quark, through output.
 * The process-wide lock is held while output runs. D_TRUE; null output:
 * D_ERR_NULL_PTR, D_FALSE. */
D_EXPORT D_BOOL DutQuarkTablePrint(D_PRINT_FUNC output);

D_END_DECLS

/** @} */
#endif /* VQUTIL_QUARK_H */
