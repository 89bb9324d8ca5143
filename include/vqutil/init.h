/**
 * @defgroup init Library initialisation
 * What the library did when it was loaded into the process.
 *
 * At load the library fills VQHOME and VQARCH (when unset) from its
 * settings file (/etc/vqsuite/environment, or the file named by
 * VQ_SETTINGS_FILE; lines NAME=value) and TEMP (when unset) from TMPDIR,
 * else "/tmp". A settings file that exists but cannot be read is reported
 * to the system log under "NXC.vqutil" and its text kept here; loading goes
 * on.
 *
 * Also: naming the process (D_INIT), its CPU time and user name, and the
 * conversions between text and type masks, booleans, identifiers and slot
 * names.
 * @{
 */
/**
 * @file
 * @ingroup init
 * @brief Library initialisation (init).
 */
#ifndef VQUTIL_INIT_H
#define VQUTIL_INIT_H

#include <setjmp.h>

#include "error.h"
#include "types.h"

/* ---- Type masks --------------------------------------------------------- */

/** @{ */
/** Type masks: the kinds of value an argument or result may take, one bit
 * each. */
#define D_TYPE_BOOLEAN 1
#define D_TYPE_ENUM 2
#define D_TYPE_NUMERIC 4
#define D_TYPE_STRING 8
#define D_TYPE_ENUM_SET 16
#define D_TYPE_NUMERIC_SET 32
#define D_TYPE_STRING_SET 64
#define D_TYPE_ENUM_LIST 128
#define D_TYPE_NUMERIC_LIST 256
#define D_TYPE_STRING_LIST 512
#define D_TYPE_FIRST_ARG 1024
#define D_TYPE_SLOT 2048
#define D_TYPE_FLOAT 4096
#define D_TYPE_INTEGER 8192
/** @} */
/** Every value bit (0-9) at once. */
#define D_TYPE_ANY_VALUE 1023
/** Masks at or above this are illegal. */
#define D_TYPE_ILLEGAL 16384

/** Size of a buffer that holds any DutTypeToString text. */
#define D_TYPE_TEXT_SIZE 256
/** Size of a buffer for DutGetUserName. */
#define D_USER_NAME_SIZE 257

/* ---- Initialisation ------------------------------------------------------- */

/** Initialises the library for a process and arms the default error jump
 * buffer.
 *
 * D_INIT(process_type) names the process and arms the default error jump
 * buffer (DutErrGetJumpBufferPtr). A long jump to that buffer means no
 * caller set its own: the process prints "Default error jump buffer has not
 * been set.  Exiting.\n" and exits with status 2.
 *
 * Why a macro: setjmp must run in a frame that is still active when the
 * long jump comes; a jump into a function that has returned is undefined.
 * DutInit returns, so it cannot arm the buffer itself. Use D_INIT from main
 * (or from a frame that outlives every long jump to the default buffer);
 * calling DutInit alone leaves the buffer unarmed. */
#define D_INIT(process_type)                                          \
  do {                                                                \
    DutInit(process_type);                                            \
    if (setjmp(*DutErrGetJumpBufferPtr()) != 0) DutDefaultJumpLanded(); \
  } while (0)

D_BEGIN_DECLS

/** The text of the last start-up environment error, "" when there was none.
 * Owned by the library; valid for the life of the process. */
D_EXPORT const char *DutGetEnvErrorText(void);

/** Records process_type (kept by pointer: it must outlive the process's use
 * of it) as the process type and opens the debug file under that name
 * (DutDebugOpen). Returns 0. A null text is an assertion failure. Hosts call
 * it through D_INIT. */
D_EXPORT D_INT4 DutInit(const char *process_type);
/** Where a long jump to the default error jump buffer lands: prints the
 * message above through DutOut and exits with status 2. */
D_EXPORT D_NORETURN void DutDefaultJumpLanded(void);
/** The text given to DutInit, "unknown" before. */
D_EXPORT const char *DutGetProcessType(void);
/** The process's CPU time so far (user plus system) in whole milliseconds;
 * 0 when the platform cannot tell. */
D_EXPORT D_WORD DutGetCpuTime(void);

/* ---- Text conversions ------------------------------------------------------------
 * None of these sets an error number: a text that does not match gives
 * D_FALSE or null. Null texts are assertion failures (fatal). */

/** The names of the mask's bits joined by " or " ("void" for 0; "any value"
 * or, with D_TYPE_SLOT, "any slot" when all value bits are set; "<BAD TYPE
 * %ld>" with a warning for an illegal mask), written into buffer (at least
 * D_TYPE_TEXT_SIZE bytes) or, when buffer is null, into one static buffer
 * that the next such call overwrites. Returns the text. */
D_EXPORT char *DutTypeToString(D_UINT4 type_mask, char *buffer);
/** The text must be exactly one word, compared ignoring case: "boolean",
 * "enumerated", "numeric" or "string" store D_TYPE_BOOLEAN, D_TYPE_ENUM,
 * D_TYPE_NUMERIC or D_TYPE_STRING into *type; else D_FALSE, *type
 * untouched. */
D_EXPORT D_BOOL DutStringToType(D_UINT4 *type, const char *type_string);
/** Exactly one word, "true" (1) or "false" (0) in any case; else D_FALSE,
 * *value untouched. */
D_EXPORT D_BOOL DutStringToBool(D_BOOL *value, const char *type_string);
/** The identifier when the whole text is exactly one identifier, in a
 * static buffer overwritten by the next call; else null. */
D_EXPORT const char *DutStringToId(const char *input_str);
/** 1 when the text is an identifier: no leading digit, only letters, digits,
 * "_" and "%". The empty text is valid; null is not. */
D_EXPORT D_INT4 DutIdIsValid(const char *text);
/** 1 when the text is at least three identifiers joined by single dots. */
D_EXPORT D_INT4 DutSlotIsValid(const char *text);
/** Fills buffer (at least D_USER_NAME_SIZE bytes) with the user's name: the
 * system's name for the effective user, else the login name, else the
 * environment (USER, then USERNAME, with warnings), else "unknown";
 * VQ_FORCE_USER_NAME, when set, replaces whatever was found. Returns
 * buffer. */
D_EXPORT char *DutGetUserName(char *buffer);

D_END_DECLS

/** @} */
#endif /* VQUTIL_INIT_H */
