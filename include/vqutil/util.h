/*
 * vqutil: the umbrella header. Includes every public header of the
 * library; hosts may include the family headers one by one instead.
 */
#ifndef VQUTIL_UTIL_H
#define VQUTIL_UTIL_H

#include "types.h"
#include "error.h"
#include "output.h"
#include "memory.h"
#include "thread.h"
#include "list.h"
#include "hash.h"
#include "strutil.h"
#include "file.h"
#include "time.h"
#include "platform.h"
#include "init.h"

#endif /* VQUTIL_UTIL_H */
