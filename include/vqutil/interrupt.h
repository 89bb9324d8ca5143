/**
 * @defgroup interrupt Interrupt counter
 * The interrupt counter fed by the console interrupt (SIGINT).
 *
 * DutInterruptInit installs DutSigintHandler, which adds one to a
 * process-wide counter per interrupt. A command loop reads the counter to
 * notice the key and resets it; when the counter, never reset, exceeds the
 * interrupt limit (5, or the environment variable VQ_INTERRUPT_MAX read by
 * DutInterruptInit) the handler ends the process with abort(), so a hung
 * process still dies after a few presses of the key.
 *
 * Thread safety: the counter is one word written from the signal handler
 * and read and written by the functions below without any lock.
 * @{
 */
/**
 * @file
 * @ingroup interrupt
 * @brief Interrupt counter (interrupt).
 */
#ifndef VQUTIL_INTERRUPT_H
#define VQUTIL_INTERRUPT_H

#include "types.h"

/** The interrupt limit when VQ_INTERRUPT_MAX is not set. */
#define D_INTERRUPT_MAX_DEFAULT 5

D_BEGIN_DECLS

/** The number of interrupts since the last reset. */
D_EXPORT D_INT4 DutInterruptGet(void);
/** Sets the counter. */
D_EXPORT void DutInterruptSet(D_INT4 count);
/** Adds one to the counter (without the limit check of the handler). */
D_EXPORT void DutInterruptIncr(void);
/** Sets the counter to 0. */
D_EXPORT void DutInterruptReset(void);
/** The limit beyond which an interrupt ends the process. */
D_EXPORT D_INT4 DutInterruptGetMax(void);

/** Reads VQ_INTERRUPT_MAX (decimal) into the limit when it is set, printing
 * "utInterruptMax = %ld\n", and installs DutSigintHandler for SIGINT.
 * D_TRUE; when the handler cannot be installed (after the assertion
 * failure "status" was reported and survived): D_ERR_C with the system's
 * error, the error printed with the prefix "signal", the warning
 * "utInterruptEnable: could not install SIGINT handler.\n", D_FALSE. */
D_EXPORT D_BOOL DutInterruptInit(void);
/** The handler: adds one to the counter; when the counter exceeds the
 * limit, ends the socket layer and calls abort(). */
D_EXPORT void DutSigintHandler(int signal_number);

D_END_DECLS

/** @} */
#endif /* VQUTIL_INTERRUPT_H */
