/**
 * @defgroup platform Platform services
 * The portability layer's exported services, and the library's
 * character-format setting.
 *
 * The Win names are kept on every platform: on POSIX, starting and ending
 * the socket library are no-ops and DutWinVersionInfo answers 2.
 * @{
 */
/**
 * @file
 * @ingroup platform
 * @brief Platform services (platform).
 */
#ifndef VQUTIL_PLATFORM_H
#define VQUTIL_PLATFORM_H

#include "types.h"

/** @{ */
/** Character formats (code pages). */
#define D_CHAR_FORMAT_ASCII 1
#define D_CHAR_FORMAT_LATIN1 2
#define D_CHAR_FORMAT_UTF8 3
/** @} */

D_BEGIN_DECLS

/** Sleeps for the time given in seconds; resumes after a signal for the
 * time that remains. */
D_EXPORT void DutWinSleep(D_REAL8 seconds);
/** @{ */
/** Starts / ends the socket library (once per process). */
D_EXPORT D_BOOL DutWinStartWinsock(void);
D_EXPORT void DutWinEndWinsock(void);
/** @} */
/** 1 for the older Windows family, 2 for the NT family and POSIX. */
D_EXPORT D_INT4 DutWinVersionInfo(void);

/** @{ */
/** The host's default character format and the library's current one. */
D_EXPORT D_INT4 DutGetCharFormatSystemDefault(void);
D_EXPORT D_INT4 DutGetCharFormat(void);
/** @} */
/** Sets the library's character format; an unknown format:
 * D_ERR_VAL_INVALID, D_FALSE. */
D_EXPORT D_BOOL DutSetCharFormat(D_INT4 format);

D_END_DECLS

/** @} */
#endif /* VQUTIL_PLATFORM_H */
