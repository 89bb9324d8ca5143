// Network services of the operating-system interface: the node name,
// BSD sockets and IPv4 name resolution.
//
// Sockets are plain integer descriptors. Every socket function that fails
// stores the Winsock-numbered code of the failure (10000 + BSD number, see
// os.hpp) in the calling thread's socket last error and leaves errno as it
// was. Addresses are IPv4 addresses in network byte order, as they sit in
// an in_addr.
#pragma once

#include <cstddef>
#include <cstdint>

struct in_addr;
struct sockaddr_in;

namespace vq::os {

// The host's node name (gethostname) into buffer, NUL-terminated even when
// the system cuts it short. Answers 0, or the system's errno value on
// failure (buffer then holds "").
int hostName(char *buffer, std::size_t size) noexcept;

// ---- Sockets ------------------------------------------------------------------

enum class SocketKind { Stream, Datagram };

// A new IPv4 socket, close-on-exec when not inheritable; -1 on failure.
int socketOpen(SocketKind kind, bool inheritable) noexcept;
bool socketClose(int s) noexcept;
// Binds to any local address on the port (0: one the system picks).
bool socketBindAny(int s, int port) noexcept;
bool socketListen(int s, int backlog) noexcept;
// A connection taken from the queue (close-on-exec, blocking), or -1;
// signals do not end the wait.
int socketAccept(int s) noexcept;

enum class ConnectResult { Connected, Pending, Failed };
// Pending: a non-blocking socket whose connection is under way.
ConnectResult socketConnect(int s, std::uint32_t address, int port) noexcept;
// The Winsock code with which a pending connection ended (0: connected),
// or -1 when it cannot be read.
int socketPendingError(int s) noexcept;

enum class SocketOption { ReuseAddress, Broadcast, ReceiveBuffer, SendBuffer };
// Socket-level integer options. Buffer sizes read back as the size that
// was asked for, not the kernel's doubled bookkeeping figure.
bool socketSetOption(int s, SocketOption option, int value) noexcept;
bool socketGetOption(int s, SocketOption option, int *value) noexcept;
// Linger on close for that many seconds.
bool socketSetLinger(int s, int seconds) noexcept;
bool socketSetBlocking(int s, bool blocking) noexcept;
bool socketGetBlocking(int s, bool *blocking) noexcept;
// Whether a socket's blocking mode can be read back at all (not on Windows).
bool socketBlockingReadable() noexcept;

// A bounded wait: whole seconds and microseconds.
struct WaitTime {
  std::int64_t seconds;
  std::int32_t microseconds;
};
enum class SocketWait { Ready, Timeout, Failed };
// Waits until the socket can be read (or written), has an exceptional
// condition, or has hung up; a null time waits for ever. Descriptors of
// any number work. An interruption fails with 10004; a descriptor that is
// not open with 10009.
SocketWait socketWait(int s, bool for_write, const WaitTime *time) noexcept;
// recv; a signal that arrives before any byte is retried over. 0: the
// peer closed; -1: failure.
long socketRecv(int s, void *buffer, std::size_t length, int flags) noexcept;

// Seconds on a clock that never jumps, for the time left of a wait.
double monotonicSeconds() noexcept;

// ---- IPv4 addresses --------------------------------------------------------

// Dotted notation as inet_aton reads it ("a.b.c.d", "a.b.c", "a.b", "a",
// parts in decimal, octal or hexadecimal).
bool parseIpv4(const char *text, std::uint32_t *address) noexcept;
// The first IPv4 address of a host name (getaddrinfo). On failure the
// socket last error is 11001 (host not found), 11002 (try again), 11003
// (resolver failure) or 11004 (no IPv4 address).
bool resolveIpv4(const char *name, std::uint32_t *address) noexcept;
// Classful network arithmetic (inet_makeaddr / inet_netof): the network
// number is in host byte order.
std::uint32_t ipv4MakeAddress(std::uint32_t network, std::uint32_t host) noexcept;
std::uint32_t ipv4NetworkOf(std::uint32_t address) noexcept;
void ipv4Store(std::uint32_t address, in_addr *destination) noexcept;
void ipv4StoreEndpoint(std::uint32_t address, int port, sockaddr_in *destination) noexcept;

}  // namespace vq::os
