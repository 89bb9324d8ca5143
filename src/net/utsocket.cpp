// TCP servers and clients, UDP broadcast sockets, readiness checks, the
// receive loops, blocking mode and buffer sizes.
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "frame/check.hpp"
#include "net/net_internal.hpp"
#include "platform/net.hpp"
#include "platform/os.hpp"
#include "vqutil/error.h"
#include "vqutil/interrupt.h"
#include "vqutil/net.h"
#include "vqutil/option.h"
#include "vqutil/output.h"
#include "vqutil/platform.h"

namespace {

namespace os = vq::os;
using vq::net::kFile;

constexpr D_INT4 kMaxPort = 65535;
constexpr int kInterrupted = 10004;
constexpr int kBadDescriptor = 10009;
constexpr int kWouldBlock = 10035;
constexpr int kProtocolNotSupported = 10043;
constexpr int kFamilyNotSupported = 10047;
constexpr int kAddressInUse = 10048;
constexpr int kTimedOut = 10060;

// ---- Helpers ------------------------------------------------------------------

// Set the error number of a refused argument; answer failure.
bool refused(D_INT4 error) {
  DutErrNumSet(error);
  return false;
}
D_INT4 noSocket(D_INT4 error) {
  DutErrNumSet(error);
  return -1;
}
bool nullArgument() { return refused(D_ERR_NULL_PTR); }

bool validPort(D_INT4 port, D_INT4 lowest) {
  if (port < lowest) return refused(D_ERR_VAL_TOO_SMALL);
  if (port > kMaxPort) return refused(D_ERR_VAL_TOO_LARGE);
  return true;
}

// Records the platform's socket error as the library's and prints it.
void socketFailure(const char *context) {
  DutErrNumSetSocket(0);
  DutPerror(context);
}

D_INT4 failAndClose(int s, const char *context) {
  socketFailure(context);
  vq::net::closeKeepingErrors(s);
  return -1;
}

// A numeric option, or fallback when it is missing or unknown; the
// caller's error number stays as it was.
double numericOption(const char *name, double fallback) {
  D_INT4 saved = DutErrNumGet();
  D_OPTION *option = DutOptionLookup(name);
  D_REAL8 value = fallback;
  if (option == nullptr || !DutOptionGetNum(option, &value)) value = fallback;
  DutErrNumSet(saved);
  return value;
}

int clampToInt(double v) {
  if (std::isnan(v)) return 0;
  if (v >= static_cast<double>(INT_MAX)) return INT_MAX;
  if (v <= static_cast<double>(INT_MIN)) return INT_MIN;
  return static_cast<int>(v);
}

// Servers are kept from programs the process starts, so that a child
// never holds a listening port open.
bool serverInheritable() { return DutWinVersionInfo() != 2; }

int openSocket(os::SocketKind kind, bool inheritable) {
  int s = os::socketOpen(kind, inheritable);
  if (s < 0) socketFailure("socket");
  return s;
}

// Buffer sizes, address reuse (servers) and linger of a new TCP socket.
// The warnings name the server function for clients too.
void applyTcpOptions(int s, bool server) {
  // Zero keeps the system's sizes: POSIX has no unbuffered sockets, and
  // zero would ask for the smallest buffers.
  int size = clampToInt(numericOption("_socket_buffer_size", 0.0));
  if (size > 0) {
    os::socketSetOption(s, os::SocketOption::ReceiveBuffer, size);
    os::socketSetOption(s, os::SocketOption::SendBuffer, size);
  }
  if (server && !os::socketSetOption(s, os::SocketOption::ReuseAddress, 1)) {
    DutWarning("DutSocketCreateServerTcp:could not set SO_REUSEADDR on TCP socket.\n");
    socketFailure("setsockopt");
  }
  double linger = numericOption("_socket_linger_time", -1.0);
  if (linger >= 0.0 && !os::socketSetLinger(s, clampToInt(linger))) {
    DutWarning("DutSocketCreateServerTcp:could not set SO_LINGER on TCP socket.\n");
  }
}

// A name that is itself the name of a set environment variable stands for
// the variable's value, when TRANSLATE_NODE_NAME asks for it.
const char *translatedName(const char *node_name) {
  if (std::getenv("TRANSLATE_NODE_NAME") == nullptr) return node_name;
  const char *value = std::getenv(node_name);
  return value != nullptr ? value : node_name;
}

// Whether a server already answers on the port of the own node. Quiet,
// and without trace in the caller's error values when nobody answers.
bool serverAlreadyThere(D_INT4 port) {
  if (port == 0) return false;  // port 0 asks for any free port
  D_ERR_SAVE saved;
  D_TSD_RECORD *tsd = DutErrNumSaveTsd(&saved);
  D_INT4 enabled = 1;
  DutPerrorGetEnable(&enabled);
  DutPerrorSetEnable(0);
  char node[D_NODE_NAME_SIZE];
  DutGetNodeName(node);
  D_INT4 probe = DutSocketCreateClientTcp(node, port);
  DutPerrorSetEnable(enabled);
  DutErrNumRestoreTsd(&saved, tsd);
  if (probe < 0) return false;
  vq::net::closeKeepingErrors(probe);
  return true;
}

// The wait behind DutSocketCheck and the receive loop; time null: no limit.
D_BOOL checkReady(int s, bool for_write, const os::WaitTime *time) {
  switch (os::socketWait(s, for_write, time)) {
    case os::SocketWait::Ready:
      return D_TRUE;
    case os::SocketWait::Timeout:
      DutErrNumSet(D_ERR_TIMEOUT_REACHED);
      return D_FALSE;
    case os::SocketWait::Failed:
      break;
  }
  DutErrNumSetSocket(0);
  if (os::socketError() != kInterrupted) DutPerror("select");
  if (DutInterruptGet() != 0) DutErrNumSet(D_ERR_INTERRUPTED);
  return D_FALSE;
}

// Waits for a pending connection; false (socket closed) when it fails.
bool connectionMade(int s, double timeout) {
  // The pause some old systems needed before this wait does not apply here.
  if (!DutSocketCheck(s, D_SOCKET_CHECK_WRITE, timeout)) {
    os::setSocketError(kTimedOut);
    failAndClose(s, "connect");
    return false;
  }
  int pending = os::socketPendingError(s);
  if (pending == 0) return true;
  if (pending > 0) os::setSocketError(pending);
  failAndClose(s, "connect");
  return false;
}

D_INT4 connectWithin(int s, std::uint32_t address, D_INT4 port) {
  double timeout = numericOption("socket_connect_timeout", 0.0);
  bool bounded = timeout > 0.0;
  if (bounded && timeout > vq::net::kMaxWaitSeconds) timeout = vq::net::kMaxWaitSeconds;
  if (bounded && !os::socketSetBlocking(s, false)) return failAndClose(s, "ioctlsocket");
  switch (os::socketConnect(s, address, port)) {
    case os::ConnectResult::Connected:
      break;
    case os::ConnectResult::Failed:
      return failAndClose(s, "connect");
    case os::ConnectResult::Pending:
      if (!connectionMade(s, bounded ? timeout : -1.0)) return -1;
      break;
  }
  // Callers go on with blocking receives, as after a plain connect.
  if (bounded && !os::socketSetBlocking(s, true)) return failAndClose(s, "ioctlsocket");
  return s;
}

// The destination of a broadcast client: the node, or for the broadcast
// literal the broadcast address of the own node's network.
bool broadcastTarget(const char *node_name, std::uint32_t *address) {
  if (std::strcmp(node_name, "255.255.255.255") != 0) return vq::net::parseNodeName(node_name, address);
  char own[D_NODE_NAME_SIZE];
  DutGetNodeName(own);
  std::uint32_t mine = 0;
  if (!vq::net::parseNodeName(own, &mine)) return false;
  *address = DutWinMakeaddr(DutWinNetof(mine), 0xFFFFFFFFu);
  return true;
}

double secondsOf(const os::WaitTime &time) {
  return static_cast<double>(time.seconds) + static_cast<double>(time.microseconds) * 1e-6;
}

os::WaitTime waitTimeFromSeconds(double seconds) {
  if (seconds < 0.0) seconds = 0.0;
  double whole = std::trunc(seconds);
  return {static_cast<std::int64_t>(whole), static_cast<std::int32_t>((seconds - whole) * 1e6)};
}

enum class Awaited { Data, TimedOut, Broken };

// Waits for data to read. Interrupted waits go on for the time that
// remains; other failures (already printed by the check) are warned about
// and tried again, except on a descriptor that is not open, which would
// fail for ever.
Awaited awaitData(int s, bool forever, os::WaitTime time) {
  double deadline = forever ? 0.0 : os::monotonicSeconds() + secondsOf(time);
  for (;;) {
    if (checkReady(s, false, forever ? nullptr : &time)) return Awaited::Data;
    if (DutErrNumGet() == D_ERR_TIMEOUT_REACHED) return Awaited::TimedOut;
    int code = os::socketError();
    if (code == kBadDescriptor || (code != kInterrupted && DutErrNumGet() != D_ERR_INTERRUPTED)) {
      DutWarning("DutSocketRecvTimeout: select failed\n");
      if (code == kBadDescriptor) return Awaited::Broken;
    }
    if (!forever) time = waitTimeFromSeconds(deadline - os::monotonicSeconds());
  }
}

bool receiveArguments(D_INT4 socket, const void *buffer, D_INT4 length) {
  if (buffer == nullptr) return nullArgument();
  if (socket < 0 || length < 1) return refused(D_ERR_VAL_TOO_SMALL);
  return true;
}

bool getBufferSize(D_INT4 socket, os::SocketOption which, D_INT4 *size) {
  DutWinStartWinsock();
  if (size == nullptr) return nullArgument();
  if (socket < 0) return refused(D_ERR_VAL_TOO_SMALL);
  int value = 0;
  bool ok = os::socketGetOption(socket, which, &value);
  if (!ok) DutErrNumSetSocket(0);
  VQ_EXPECT(ok, "0 == sys_status", kFile);
  if (ok) *size = value;
  return ok;
}

bool setBufferSize(D_INT4 socket, os::SocketOption which, D_INT4 size) {
  DutWinStartWinsock();
  if (socket < 0 || size < 0) return refused(D_ERR_VAL_TOO_SMALL);
  bool ok = os::socketSetOption(socket, which, size);
  if (!ok) DutErrNumSetSocket(0);
  VQ_EXPECT(ok, "0 == sys_status", kFile);
  return ok;
}

}  // namespace

namespace vq::net {

void closeKeepingErrors(int s) {
  D_ERR_SAVE saved;
  D_TSD_RECORD *tsd = DutErrNumSaveTsd(&saved);
  os::socketClose(s);
  DutErrNumRestoreTsd(&saved, tsd);
}

bool waitTimeOf(D_REAL8 timeout, os::WaitTime *time, bool *forever) {
  *forever = timeout == -1.0;
  if (*forever) return true;
  if (std::isnan(timeout)) return refused(D_ERR_VAL_INVALID);
  if (timeout < 0.0) return refused(D_ERR_VAL_TOO_SMALL);
  if (timeout > kMaxWaitSeconds) return refused(D_ERR_VAL_TOO_LARGE);
  *time = waitTimeFromSeconds(timeout);
  return true;
}

}  // namespace vq::net

extern "C" {

// ---- TCP ----------------------------------------------------------------------

D_EXPORT D_INT4 DutSocketCreateServerTcp(D_INT4 port) {
  DutWinStartWinsock();
  if (!validPort(port, 0)) return -1;
  if (serverAlreadyThere(port)) {
    DutErrNumSetSocket(kAddressInUse);
    DutPerror("bind");
    return -1;
  }
  int s = openSocket(os::SocketKind::Stream, serverInheritable());
  if (s < 0) return -1;
  applyTcpOptions(s, true);
  if (!os::socketBindAny(s, port)) return failAndClose(s, "bind");
  int backlog = clampToInt(numericOption("_socket_listen_backlog", 50.0));
  if (!os::socketListen(s, backlog)) return failAndClose(s, "listen");
  return s;
}

D_EXPORT D_INT4 DutSocketCreateClientTcp(const char *node_name, D_INT4 port) {
  DutWinStartWinsock();
  if (node_name == nullptr) return noSocket(D_ERR_NULL_PTR);
  if (!validPort(port, 1)) return -1;
  std::uint32_t address = 0;
  if (!vq::net::parseNodeName(translatedName(node_name), &address)) return -1;
  int s = openSocket(os::SocketKind::Stream, true);
  if (s < 0) return -1;
  applyTcpOptions(s, false);
  return connectWithin(s, address, port);
}

D_EXPORT D_INT4 DutSocketAccept(D_INT4 socket) {
  DutWinStartWinsock();
  if (socket < 0) return noSocket(D_ERR_VAL_TOO_SMALL);
  int c = os::socketAccept(socket);
  if (c >= 0) return c;
  if (os::socketError() == kWouldBlock) {
    DutErrNumSet(D_ERR_WOULD_BLOCK);
  } else {
    socketFailure("accept");
  }
  return -1;
}

// ---- UDP broadcast ----------------------------------------------------------------

D_EXPORT D_INT4 DutSocketCreateServerBcast(D_INT4 port) {
  DutWinStartWinsock();
  if (!validPort(port, 0)) return -1;
  int s = openSocket(os::SocketKind::Datagram, serverInheritable());
  if (s < 0) return -1;
  if (!os::socketBindAny(s, port)) return failAndClose(s, "bind");
  return s;
}

D_EXPORT D_INT4 DutSocketCreateClientBcast(const char *node_name, D_INT4 port, struct sockaddr_in *address) {
  DutWinStartWinsock();
  if (node_name == nullptr || address == nullptr) return noSocket(D_ERR_NULL_PTR);
  if (!validPort(port, 1)) return -1;
  std::uint32_t target = 0;
  if (!broadcastTarget(node_name, &target)) return -1;
  int s = openSocket(os::SocketKind::Datagram, true);
  if (s < 0) return -1;
  if (!os::socketSetOption(s, os::SocketOption::Broadcast, 1)) {
    DutErrNumSetSocket(0);
    DutWarning("DutSocketCreateClientBcast:could not set SO_BROADCAST on UDP socket.\n");
    vq::net::closeKeepingErrors(s);
    return -1;
  }
  os::ipv4StoreEndpoint(target, port, address);
  return s;
}

// ---- Unavailable kinds ---------------------------------------------------------------

D_EXPORT D_INT4 DutSocketCreateServerLocal(const char *) {
  DutWinStartWinsock();
  DutErrNumSetSocket(kFamilyNotSupported);
  return -1;
}

D_EXPORT D_INT4 DutSocketCreateClientLocal(const char *name) { return DutSocketCreateServerLocal(name); }

D_EXPORT D_INT4 DutSocketCreateServerDecnet(const char *) {
  DutWinStartWinsock();
  DutErrNumSetSocket(kProtocolNotSupported);
  DutPerror("decnet");
  return -1;
}

D_EXPORT D_INT4 DutSocketCreateClientDecnet(const char *node_name, const char *object_name) {
  if (node_name == nullptr) {
    DutErrNumSet(D_ERR_NULL_PTR);
    return 0;
  }
  return DutSocketCreateServerDecnet(object_name);
}

// ---- Waiting and receiving -------------------------------------------------------------

D_EXPORT D_BOOL DutSocketCheck(D_INT4 socket, D_INT4 mode, D_REAL8 timeout) {
  DutWinStartWinsock();
  if (socket < 0) return refused(D_ERR_VAL_TOO_SMALL);
  if (mode != D_SOCKET_CHECK_READ && mode != D_SOCKET_CHECK_WRITE) return refused(D_ERR_VAL_INVALID);
  os::WaitTime time{};
  bool forever = false;
  if (!vq::net::waitTimeOf(timeout, &time, &forever)) return D_FALSE;
  return checkReady(socket, mode == D_SOCKET_CHECK_WRITE, forever ? nullptr : &time);
}

D_EXPORT D_INT4 DutSocketRecvTimeout(D_INT4 socket, void *buffer, D_INT4 length, D_INT4 flags,
                                     D_REAL8 timeout, D_INT4 *timed_out) {
  DutWinStartWinsock();
  if (timed_out == nullptr) return noSocket(D_ERR_NULL_PTR);
  if (!receiveArguments(socket, buffer, length)) return -1;
  *timed_out = 0;
  os::WaitTime time{};
  bool forever = false;
  if (!vq::net::waitTimeOf(timeout, &time, &forever)) return -1;
  char *bytes = static_cast<char *>(buffer);
  D_INT4 count = 0;
  while (count < length) {
    switch (awaitData(socket, forever, time)) {
      case Awaited::Data:
        break;
      case Awaited::TimedOut:
        *timed_out = 1;
        return count;
      case Awaited::Broken:
        return -1;
    }
    long n = os::socketRecv(socket, bytes + count, static_cast<std::size_t>(length - count), flags);
    if (n < 0) {
      DutErrNumSetSocket(0);
      return -1;
    }
    if (n == 0) return count;
    count += static_cast<D_INT4>(n);
  }
  return count;
}

D_EXPORT D_INT4 DutSocketRecvAll(D_INT4 socket, void *buffer, D_INT4 length, D_INT4 flags) {
  DutWinStartWinsock();
  if (!receiveArguments(socket, buffer, length)) return -1;
  char *bytes = static_cast<char *>(buffer);
  D_INT4 count = 0;
  while (count < length) {
    long n = os::socketRecv(socket, bytes + count, static_cast<std::size_t>(length - count), flags);
    if (n < 0) {
      DutErrNumSetSocket(0);
      return -1;
    }
    if (n == 0) break;
    count += static_cast<D_INT4>(n);
  }
  return count;
}

// ---- Modes and sizes ----------------------------------------------------------------------

D_EXPORT D_BOOL DutSocketGetBlockMode(D_INT4 socket, D_INT4 *blocking) {
  DutWinStartWinsock();
  if (blocking == nullptr) return nullArgument();
  if (socket < 0) return refused(D_ERR_VAL_TOO_SMALL);
  if (!os::socketBlockingReadable()) {
    *blocking = 0;
    return refused(D_ERR_DOESNT_EXIST);
  }
  bool b = true;
  if (!os::socketGetBlocking(socket, &b)) {
    socketFailure("ioctlsocket");
    return D_FALSE;
  }
  *blocking = b ? 1 : 0;
  return D_TRUE;
}

D_EXPORT D_BOOL DutSocketSetBlockMode(D_INT4 socket, D_INT4 blocking) {
  DutWinStartWinsock();
  if (socket < 0) return refused(D_ERR_VAL_TOO_SMALL);
  if (blocking != 0 && blocking != 1) return refused(D_ERR_VAL_INVALID);
  if (!os::socketSetBlocking(socket, blocking == 1)) {
    socketFailure("ioctlsocket");
    return D_FALSE;
  }
  return D_TRUE;
}

D_EXPORT D_BOOL DutSocketGetRecvBufSize(D_INT4 socket, D_INT4 *size) {
  return getBufferSize(socket, os::SocketOption::ReceiveBuffer, size);
}
D_EXPORT D_BOOL DutSocketSetRecvBufSize(D_INT4 socket, D_INT4 size) {
  return setBufferSize(socket, os::SocketOption::ReceiveBuffer, size);
}
D_EXPORT D_BOOL DutSocketGetSendBufSize(D_INT4 socket, D_INT4 *size) {
  return getBufferSize(socket, os::SocketOption::SendBuffer, size);
}
D_EXPORT D_BOOL DutSocketSetSendBufSize(D_INT4 socket, D_INT4 size) {
  return setBufferSize(socket, os::SocketOption::SendBuffer, size);
}

D_EXPORT D_BOOL DutSleep(D_REAL8 seconds) {
  DutWinSleep(seconds);
  return D_TRUE;
}

}  // extern "C"
