/*
 * vqutil: the current time (the application's notion of the present, set
 * explicitly), wall time and the frame count.
 */
#ifndef VQUTIL_TIME_H
#define VQUTIL_TIME_H

#include "types.h"

D_BEGIN_DECLS

/* The current time in seconds; 0.0 until the application sets one. Read
 * without the lock. */
D_EXPORT D_REAL8 DutGetCurrentTime(void);

D_END_DECLS

#endif /* VQUTIL_TIME_H */
