/*
 * vqutil: what the library did when it was loaded into the process.
 *
 * At load the library fills VQHOME and VQARCH (when unset) from its
 * settings file (/etc/vqsuite/environment, or the file named by
 * VQ_SETTINGS_FILE; lines NAME=value) and TEMP (when unset) from TMPDIR,
 * else "/tmp". A settings file that exists but cannot be read is reported
 * to the system log under "NXC.vqutil" and its text kept here; loading goes
 * on.
 */
#ifndef VQUTIL_INIT_H
#define VQUTIL_INIT_H

#include "types.h"

D_BEGIN_DECLS

/* The text of the last start-up environment error, "" when there was none.
 * Owned by the library; valid for the life of the process. */
D_EXPORT const char *DutGetEnvErrorText(void);

D_END_DECLS

#endif /* VQUTIL_INIT_H */
