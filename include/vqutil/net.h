/**
 * @defgroup net Node name and sockets
 * The host's node name, the socket directory, and sockets.
 *
 * The node name identifies this host to the family's processes (it is part
 * of the default unique subject of a process and the default server and
 * broker names). The socket directory is where processes of one host keep
 * their rendezvous files; the option "ipc_gmd_directory" starts with it.
 *
 * Sockets are plain integer descriptors of IPv4 sockets; -1 means no
 * socket. Ports are in host byte order (0 to 65535). Addresses are the
 * system's struct in_addr and struct sockaddr_in (declared here only as
 * names: include the system's socket headers to look inside them).
 *
 * Errors: a null argument sets D_ERR_NULL_PTR (3); a negative socket, port
 * or length D_ERR_VAL_TOO_SMALL (4); a port above 65535 D_ERR_VAL_TOO_LARGE
 * (5). A failing socket call sets D_ERR_SOCKET (29) with the socket error
 * in Winsock numbering (10000 + BSD number: 10035 would block, 10048
 * address in use, 10060 timed out, 10061 refused, 10065 unknown host, ...),
 * read with DutErrNumGetSocket, and usually prints it with DutPerror and a
 * context word ("socket", "bind", "listen", "connect", "accept", "select",
 * "setsockopt", "ioctlsocket"). Where a socket is closed on a failure, the
 * caller still sees the first failure's error values.
 *
 * Time-outs are seconds: exactly -1.0 waits for ever; NaN sets
 * D_ERR_VAL_INVALID (7), other negative values D_ERR_VAL_TOO_SMALL, values
 * above 2147483647 seconds D_ERR_VAL_TOO_LARGE.
 *
 * Options read (numeric, from the standard option set): "_socket_buffer_size"
 * (send and receive buffer of new TCP sockets; 0 keeps the system's),
 * "_socket_linger_time" (linger on close of TCP sockets, seconds; negative:
 * not set), "_socket_listen_backlog" (backlog of TCP servers) and
 * "socket_connect_timeout" (seconds a TCP client waits for its connection;
 * 0 or less: a plain blocking connect).
 *
 * Node names: a name with a letter is resolved (its first IPv4 address);
 * any other is read in dotted notation. "localhost" and names ending in
 * ".localhost" are the loopback address; names under the reserved domain
 * "invalid", and names that cannot be host names, are unknown; none of
 * these asks the resolver.
 *
 * Thread safety: every function may be called from any thread; a socket
 * is used by one thread at a time unless the caller serialises it.
 * DutGetSocketDir computes its result once under the process-wide lock.
 * @{
 */
/**
 * @file
 * @ingroup net
 * @brief Node name and sockets (net).
 */
#ifndef VQUTIL_NET_H
#define VQUTIL_NET_H

#include "types.h"

/** Size of the buffer DutGetNodeName fills, terminator included. */
#define D_NODE_NAME_SIZE 256

/** @{ */
/** Modes of DutSocketCheck. */
#define D_SOCKET_CHECK_READ 0
#define D_SOCKET_CHECK_WRITE 1
/** @} */

struct in_addr;
struct sockaddr_in;

D_BEGIN_DECLS

/* ---- Node name and socket directory ------------------------------------ */

/** Fills buffer (at least D_NODE_NAME_SIZE bytes, owned by the caller) with
 * the host's node name, or "UNKNOWN" when the system cannot tell. When the
 * environment variable VQ_FORCE_NODE_NAME is set, its value replaces the
 * name (cut to D_NODE_NAME_SIZE - 1 characters). Returns buffer; a null
 * buffer sets D_ERR_NULL_PTR and answers null. */
D_EXPORT char *DutGetNodeName(char *buffer);

/** The socket directory: "$TEMP/vqsuite" ("/tmp/vqsuite" when TEMP is
 * unset). The first call creates TEMP and then the directory; one that
 * already exists, or that cannot be created for lack of permission, is
 * fine. Any other failure records the runtime error (D_ERR_C), prints it
 * with DutPerror("mkdir") and warns "DutGetSocketDir: Cannot create
 * directory %s\n"; the name is returned anyway. The text belongs to the
 * library and stays the same for the life of the process. */
D_EXPORT const char *DutGetSocketDir(void);

/* ---- Addresses ------------------------------------------------------------ */

/** The IPv4 address of a node name into *address. 1 on success. A name
 * longer than 255 characters: D_ERR_VAL_TOO_LARGE. An unknown node (one
 * that does not resolve, or a name without letters that is not in dotted
 * notation) warns "unknown node %s\n" and sets the socket error 10065.
 * "255.255.255.255" is accepted. Each failure answers 0. */
D_EXPORT D_BOOL DutSocketParseIpAddr(const char *node_name, struct in_addr *address);
/** The same as DutSocketParseIpAddr. */
D_EXPORT D_BOOL DutGetHostByName(const char *node_name, struct in_addr *address);

/** Whether two node names name the same host, into *result: 1 when they are
 * equal ignoring case, or when both turn into IPv4 addresses (dotted
 * notation first, else the resolver) and the addresses are equal; else 0,
 * also when a name does not resolve. Answers 1; a null argument sets
 * D_ERR_NULL_PTR and answers 0. */
D_EXPORT D_BOOL DutCompareNodeNames(const char *name1, const char *name2, D_INT4 *result);

/* ---- TCP ----------------------------------------------------------------- */

/** A listening TCP socket on port (0: a port the system picks), or -1.
 * First a client connection to the own node name on that port is tried
 * quietly: when it connects, a server is already there, and the call
 * fails with the socket error 10048 before binding. Then: buffer sizes,
 * SO_REUSEADDR (a failure only warns "DutSocketCreateServerTcp:could not
 * set SO_REUSEADDR on TCP socket.\n"), linger (a failure warns
 * "DutSocketCreateServerTcp:could not set SO_LINGER on TCP socket.\n"),
 * bind to any address ("bind"), listen with the option backlog ("listen").
 * The socket is not inherited by programs the process starts. */
D_EXPORT D_INT4 DutSocketCreateServerTcp(D_INT4 port);

/** A TCP socket connected to node_name on port (1 or more), or -1. When the
 * environment variable TRANSLATE_NODE_NAME is set and node_name is the
 * name of a set environment variable, that variable's value is the node.
 * An unknown node fails as in DutSocketParseIpAddr. Buffer sizes and
 * linger as for the server (same warnings). With a positive
 * "socket_connect_timeout", a connection not made within that many
 * seconds fails with the socket error 10060; any failure prints
 * "connect". The socket comes back in blocking mode. */
D_EXPORT D_INT4 DutSocketCreateClientTcp(const char *node_name, D_INT4 port);

/** Takes a connection from a listening socket: the new socket (blocking,
 * not inherited), or -1. A non-blocking socket without a pending
 * connection sets D_ERR_WOULD_BLOCK (25); other failures print "accept". */
D_EXPORT D_INT4 DutSocketAccept(D_INT4 socket);

/* ---- UDP broadcast --------------------------------------------------------- */

/** A UDP socket bound to port on any address, not inherited, or -1
 * ("socket", "bind"). */
D_EXPORT D_INT4 DutSocketCreateServerBcast(D_INT4 port);

/** A UDP socket allowed to broadcast, or -1, and in *address where to send:
 * node_name on port, or for "255.255.255.255" the broadcast address of the
 * own node's network (its classful network with the host part all ones).
 * An unknown node fails as in DutSocketParseIpAddr; a failure to allow
 * broadcasts warns "DutSocketCreateClientBcast:could not set SO_BROADCAST
 * on UDP socket.\n". */
D_EXPORT D_INT4 DutSocketCreateClientBcast(const char *node_name, D_INT4 port, struct sockaddr_in *address);

/* ---- Unavailable kinds ----------------------------------------------------- */

/** @{ */
/** Local (same-host) sockets are not available: -1 with the socket error
 * 10047 (address family not supported). */
D_EXPORT D_INT4 DutSocketCreateServerLocal(const char *name);
D_EXPORT D_INT4 DutSocketCreateClientLocal(const char *name);
/** @} */
/** @{ */
/** DECnet sockets are not available: -1 with the socket error 10043
 * (protocol not supported), printed as "decnet". A null node_name for the
 * client sets D_ERR_NULL_PTR and answers 0. */
D_EXPORT D_INT4 DutSocketCreateServerDecnet(const char *object_name);
D_EXPORT D_INT4 DutSocketCreateClientDecnet(const char *node_name, const char *object_name);
/** @} */

/* ---- Waiting and receiving -------------------------------------------------- */

/** 1 when the socket is ready for mode (D_SOCKET_CHECK_READ or
 * D_SOCKET_CHECK_WRITE, else D_ERR_VAL_INVALID), has an exceptional
 * condition or has hung up, within timeout seconds; else 0: the time-out
 * sets D_ERR_TIMEOUT_REACHED (9); a failure records the socket error and
 * prints "select" (not for an interruption, 10004), and with an interrupt
 * pending (DutInterruptGet) sets D_ERR_INTERRUPTED (16) instead. A
 * descriptor that is not open fails with 10009. Descriptors of any number
 * can be watched. */
D_EXPORT D_BOOL DutSocketCheck(D_INT4 socket, D_INT4 mode, D_REAL8 timeout);

/** Receives length bytes (1 or more) into buffer, waiting at most timeout
 * seconds for each piece; answers the count received, or -1. *timed_out is
 * set to 0, and to 1 when a wait timed out (the count so far is returned).
 * A peer that closes ends the call with the count so far. Interrupted
 * waits go on for the time that remains; other failed waits print
 * "select" and warn "DutSocketRecvTimeout: select failed\n", and are tried
 * again unless the descriptor is not open (-1). A failed recv: -1 with
 * the socket error. flags are recv's. */
D_EXPORT D_INT4 DutSocketRecvTimeout(D_INT4 socket, void *buffer, D_INT4 length, D_INT4 flags,
                                     D_REAL8 timeout, D_INT4 *timed_out);

/** Receives until length bytes (1 or more) are in buffer or the peer closes;
 * answers the count, or -1 with the socket error. */
D_EXPORT D_INT4 DutSocketRecvAll(D_INT4 socket, void *buffer, D_INT4 length, D_INT4 flags);

/* ---- Modes and sizes ---------------------------------------------------------- */

/** *blocking = 1 when the socket blocks, 0 when it does not. */
D_EXPORT D_BOOL DutSocketGetBlockMode(D_INT4 socket, D_INT4 *blocking);
/** blocking 1 or 0 (else D_ERR_VAL_INVALID); a failure prints
 * "ioctlsocket". */
D_EXPORT D_BOOL DutSocketSetBlockMode(D_INT4 socket, D_INT4 blocking);

/** @{ */
/** The receive and send buffer sizes, in bytes, as set (the system may
 * round a size up to its minimum or down to its maximum). Sizes must not
 * be negative. A failing system call sets the socket error and fails the
 * internal validation "0 == sys_status" (a warning). */
D_EXPORT D_BOOL DutSocketGetRecvBufSize(D_INT4 socket, D_INT4 *size);
D_EXPORT D_BOOL DutSocketSetRecvBufSize(D_INT4 socket, D_INT4 size);
D_EXPORT D_BOOL DutSocketGetSendBufSize(D_INT4 socket, D_INT4 *size);
D_EXPORT D_BOOL DutSocketSetSendBufSize(D_INT4 socket, D_INT4 size);
/** @} */

/* ---- Platform entry points ------------------------------------------------------ */

/** Sleeps for seconds (DutWinSleep); answers 1. */
D_EXPORT D_BOOL DutSleep(D_REAL8 seconds);

/** Closes a socket: 0, or -1 with D_ERR_SOCKET and the socket error. */
D_EXPORT D_INT4 DutWinCloseSocket(D_INT4 socket);
/** @{ */
/** The address (network byte order, as in in_addr) of a classful network
 * number and a host number (both host byte order), and the network number
 * of an address: inet_makeaddr and inet_netof. */
D_EXPORT D_UINT4 DutWinMakeaddr(D_UINT4 network, D_UINT4 host);
D_EXPORT D_UINT4 DutWinNetof(D_UINT4 address);
/** @} */

D_END_DECLS

/** @} */
#endif /* VQUTIL_NET_H */
