/**
 * @defgroup util Umbrella header
 * The umbrella header. Includes every public header of the
 * library; hosts may include the family headers one by one instead.
 * @{
 */
/**
 * @file
 * @ingroup util
 * @brief Umbrella header (util).
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
#include "ptrary.h"
#include "safestr.h"
#include "quark.h"
#include "pattern.h"
#include "lobe.h"
#include "callback.h"
#include "graph.h"
#include "lex.h"
#include "option.h"
#include "command.h"
#include "interrupt.h"
#include "format.h"
#include "module.h"
#include "net.h"
#include "stdopt.h"
#include "rwmutex.h"
#include "type.h"
#include "filelock.h"
#include "ringbuf.h"

/** @} */
#endif /* VQUTIL_UTIL_H */
