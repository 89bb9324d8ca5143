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

/** Size of each text of D_SYSTEM_INFO, terminator included. */
#define D_SYSTEM_INFO_TEXT_SIZE 256

/** What the system says of itself, as uname gives it on POSIX. Every text
 * is NUL-terminated, cut to its field when longer. */
typedef struct D_SYSTEM_INFO {
  char sysname[D_SYSTEM_INFO_TEXT_SIZE];  /**< "Linux"; "Windows NT" */
  char nodename[D_SYSTEM_INFO_TEXT_SIZE]; /**< the host's name on its network */
  char release[D_SYSTEM_INFO_TEXT_SIZE];  /**< "6.1.0-18-amd64"; "10.0" */
  char version[D_SYSTEM_INFO_TEXT_SIZE];  /**< the kernel's build; the build number */
  char machine[D_SYSTEM_INFO_TEXT_SIZE];  /**< "x86_64"; "AMD64", "x86", "ARM64" */
} D_SYSTEM_INFO;

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
/** Fills info (owned by the caller) with the system's name, the node name,
 * the system's release and version and the machine's architecture. Returns
 * D_TRUE; a null info: D_ERR_NULL_PTR, D_FALSE; when the system cannot
 * tell: D_ERR_OS with the OS error value, D_FALSE, every text then "". */
D_EXPORT D_BOOL DutGetSystemInfo(D_SYSTEM_INFO *info);

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
