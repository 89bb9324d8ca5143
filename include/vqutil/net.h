/*
 * vqutil: the host's node name and the socket directory.
 *
 * The node name identifies this host to the family's processes (it is part
 * of the default unique subject of a process and the default server and
 * broker names). The socket directory is where processes of one host keep
 * their rendezvous files; the option "ipc_gmd_directory" starts with it.
 *
 * Thread safety: both may be called from any thread. DutGetSocketDir
 * computes its result once under the process-wide lock.
 */
#ifndef VQUTIL_NET_H
#define VQUTIL_NET_H

#include "types.h"

/* Size of the buffer DutGetNodeName fills, terminator included. */
#define D_NODE_NAME_SIZE 256

D_BEGIN_DECLS

/* Fills buffer (at least D_NODE_NAME_SIZE bytes, owned by the caller) with
 * the host's node name, or "UNKNOWN" when the system cannot tell. When the
 * environment variable VQ_FORCE_NODE_NAME is set, its value replaces the
 * name (cut to D_NODE_NAME_SIZE - 1 characters). Returns buffer; a null
 * buffer sets D_ERR_NULL_PTR and answers null. */
D_EXPORT char *DutGetNodeName(char *buffer);

/* The socket directory: "$TEMP/vqsuite" ("/tmp/vqsuite" when TEMP is
 * unset). The first call creates TEMP and then the directory; one that
 * already exists, or that cannot be created for lack of permission, is
 * fine. Any other failure records the runtime error (D_ERR_C), prints it
 * with DutPerror("mkdir") and warns "DutGetSocketDir: Cannot create
 * directory %s\n"; the name is returned anyway. The text belongs to the
 * library and stays the same for the life of the process. */
D_EXPORT const char *DutGetSocketDir(void);

D_END_DECLS

#endif /* VQUTIL_NET_H */
