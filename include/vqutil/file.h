/*
 * vqutil: file names, open files and search paths.
 */
#ifndef VQUTIL_FILE_H
#define VQUTIL_FILE_H

#include "types.h"

D_BEGIN_DECLS

/* 1 when name ends with extension, compared ignoring case; a name shorter
 * than the extension answers 0. */
D_EXPORT D_BOOL DutHasExtension(const char *name, const char *extension);

D_END_DECLS

#endif /* VQUTIL_FILE_H */
