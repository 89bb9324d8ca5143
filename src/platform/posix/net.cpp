// Network services on POSIX: BSD sockets, poll-based readiness and
// getaddrinfo resolution.
#include "platform/net.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/os.hpp"

namespace vq::os {

namespace {

// The caller's errno survives every function here; failures travel in the
// socket last error instead.
class ErrnoKeeper {
 public:
  ErrnoKeeper() noexcept : saved_(errno) {}
  ~ErrnoKeeper() { errno = saved_; }
  ErrnoKeeper(const ErrnoKeeper &) = delete;
  ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

 private:
  int saved_;
};

// Records errno as the socket last error.
bool failed() noexcept {
  setSocketError(socketErrorFromErrno(errno));
  return false;
}

int optionName(SocketOption option) noexcept {
  switch (option) {
    case SocketOption::ReuseAddress:
      return SO_REUSEADDR;
    case SocketOption::Broadcast:
      return SO_BROADCAST;
    case SocketOption::ReceiveBuffer:
      return SO_RCVBUF;
    case SocketOption::SendBuffer:
      return SO_SNDBUF;
  }
  return -1;
}

[[maybe_unused]] bool isBufferOption(SocketOption option) noexcept {
  return option == SocketOption::ReceiveBuffer || option == SocketOption::SendBuffer;
}

sockaddr_in endpoint(std::uint32_t address, int port) noexcept {
  sockaddr_in a;
  std::memset(&a, 0, sizeof a);
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<std::uint16_t>(port));
  a.sin_addr.s_addr = address;
  return a;
}

// Winsock's resolver codes: 11001 host not found, 11002 try again, 11003
// unrecoverable, 11004 no address of the family asked for.
int resolverCode(int gai_error) noexcept {
  switch (gai_error) {
    case EAI_NONAME:
      return 11001;
    case EAI_AGAIN:
      return 11002;
#ifdef EAI_NODATA
    case EAI_NODATA:
      return 11004;
#endif
#ifdef EAI_ADDRFAMILY
    case EAI_ADDRFAMILY:
      return 11004;
#endif
    case EAI_SYSTEM:
      return socketErrorFromErrno(errno);
    default:
      return 11003;
  }
}

}  // namespace

int hostName(char *buffer, std::size_t size) noexcept {
  if (buffer == nullptr || size == 0) return EINVAL;
  ErrnoKeeper keep;
  int result = ::gethostname(buffer, size);
  int error = result == 0 ? 0 : errno;
  // POSIX leaves termination unspecified when the name was truncated.
  buffer[size - 1] = '\0';
  if (error != 0) buffer[0] = '\0';
  return error;
}

int socketOpen(SocketKind kind, bool inheritable) noexcept {
  ErrnoKeeper keep;
  int type = kind == SocketKind::Stream ? SOCK_STREAM : SOCK_DGRAM;
  // Set at creation, so that no fork in another thread sees it inheritable.
  if (!inheritable) type |= SOCK_CLOEXEC;
  int s = ::socket(AF_INET, type, 0);
  if (s < 0) failed();
  return s;
}

bool socketClose(int s) noexcept {
  ErrnoKeeper keep;
  // Linux releases the descriptor even when close reports EINTR, so a
  // retry could close a descriptor another thread just opened.
  if (::close(s) == 0 || errno == EINTR) return true;
  return failed();
}

bool socketBindAny(int s, int port) noexcept {
  ErrnoKeeper keep;
  sockaddr_in a = endpoint(htonl(INADDR_ANY), port);
  if (::bind(s, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0) return true;
  return failed();
}

bool socketListen(int s, int backlog) noexcept {
  ErrnoKeeper keep;
  if (::listen(s, backlog) == 0) return true;
  return failed();
}

int socketAccept(int s) noexcept {
  ErrnoKeeper keep;
  for (;;) {
    int c = ::accept4(s, nullptr, nullptr, SOCK_CLOEXEC);
    if (c >= 0) return c;
    if (errno != EINTR) {
      failed();
      return -1;
    }
  }
}

ConnectResult socketConnect(int s, std::uint32_t address, int port) noexcept {
  ErrnoKeeper keep;
  sockaddr_in a = endpoint(address, port);
  if (::connect(s, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0) return ConnectResult::Connected;
  // An interrupted connect goes on in the background, as a non-blocking one does.
  if (errno == EINPROGRESS || errno == EINTR) {
    setSocketError(socketErrorFromErrno(EINPROGRESS));
    return ConnectResult::Pending;
  }
  failed();
  return ConnectResult::Failed;
}

int socketPendingError(int s) noexcept {
  ErrnoKeeper keep;
  int error = 0;
  socklen_t size = sizeof error;
  if (::getsockopt(s, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
    failed();
    return -1;
  }
  return socketErrorFromErrno(error);
}

bool socketSetOption(int s, SocketOption option, int value) noexcept {
  ErrnoKeeper keep;
  if (::setsockopt(s, SOL_SOCKET, optionName(option), &value, sizeof value) == 0) return true;
  return failed();
}

bool socketGetOption(int s, SocketOption option, int *value) noexcept {
  ErrnoKeeper keep;
  socklen_t size = sizeof *value;
  if (::getsockopt(s, SOL_SOCKET, optionName(option), value, &size) != 0) return failed();
#ifdef __linux__
  // Linux doubles what it is given, to cover its own bookkeeping.
  if (isBufferOption(option)) *value /= 2;
#endif
  return true;
}

bool socketSetLinger(int s, int seconds) noexcept {
  ErrnoKeeper keep;
  linger l;
  l.l_onoff = 1;
  l.l_linger = seconds;
  if (::setsockopt(s, SOL_SOCKET, SO_LINGER, &l, sizeof l) == 0) return true;
  return failed();
}

bool socketSetBlocking(int s, bool blocking) noexcept {
  ErrnoKeeper keep;
  int flags = ::fcntl(s, F_GETFL);
  if (flags < 0) return failed();
  int wanted = blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK;
  if (wanted == flags || ::fcntl(s, F_SETFL, wanted) == 0) return true;
  return failed();
}

bool socketGetBlocking(int s, bool *blocking) noexcept {
  ErrnoKeeper keep;
  int flags = ::fcntl(s, F_GETFL);
  if (flags < 0) return failed();
  *blocking = (flags & O_NONBLOCK) == 0;
  return true;
}

bool socketBlockingReadable() noexcept { return true; }

SocketWait socketWait(int s, bool for_write, const WaitTime *time) noexcept {
  ErrnoKeeper keep;
  // poll rather than select: select cannot watch descriptors from
  // FD_SETSIZE up. POLLPRI stands for select's exception set.
  pollfd p;
  p.fd = s;
  p.events = static_cast<short>((for_write ? POLLOUT : POLLIN) | POLLPRI);
  p.revents = 0;
#ifdef __linux__
  timespec ts;
  if (time != nullptr) {
    ts.tv_sec = static_cast<time_t>(time->seconds);
    ts.tv_nsec = static_cast<long>(time->microseconds) * 1000;
  }
  int n = ::ppoll(&p, 1, time != nullptr ? &ts : nullptr, nullptr);
#else
  int ms = -1;
  if (time != nullptr) {
    std::int64_t total = time->seconds * 1000 + (time->microseconds + 999) / 1000;
    ms = total > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(total);
  }
  int n = ::poll(&p, 1, ms);
#endif
  if (n < 0) {
    failed();
    return SocketWait::Failed;
  }
  if (n == 0) return SocketWait::Timeout;
  // select fails on a descriptor that is not open; poll only flags it.
  if ((p.revents & POLLNVAL) != 0) {
    setSocketError(socketErrorFromErrno(EBADF));
    return SocketWait::Failed;
  }
  return SocketWait::Ready;
}

long socketRecv(int s, void *buffer, std::size_t length, int flags) noexcept {
  ErrnoKeeper keep;
  for (;;) {
    ssize_t n = ::recv(s, buffer, length, flags);
    if (n >= 0) return static_cast<long>(n);
    if (errno != EINTR) {
      failed();
      return -1;
    }
  }
}

double monotonicSeconds() noexcept {
  timespec ts;
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

bool parseIpv4(const char *text, std::uint32_t *address) noexcept {
  in_addr a;
  if (::inet_aton(text, &a) == 0) return false;
  *address = a.s_addr;
  return true;
}

bool resolveIpv4(const char *name, std::uint32_t *address) noexcept {
  ErrnoKeeper keep;
  addrinfo hints;
  std::memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
#ifdef VQUTIL_RESOLVE_NUMERIC_ONLY
  // Fuzzing builds never ask the network about a name.
  hints.ai_flags |= AI_NUMERICHOST;
#endif
  addrinfo *list = nullptr;
  int status = ::getaddrinfo(name, nullptr, &hints, &list);
  if (status != 0) {
    setSocketError(resolverCode(status));
    return false;
  }
  bool found = false;
  for (addrinfo *p = list; p != nullptr && !found; p = p->ai_next) {
    if (p->ai_family == AF_INET && p->ai_addr != nullptr) {
      *address = reinterpret_cast<const sockaddr_in *>(p->ai_addr)->sin_addr.s_addr;
      found = true;
    }
  }
  ::freeaddrinfo(list);
  if (!found) setSocketError(11004);
  return found;
}

std::uint32_t ipv4MakeAddress(std::uint32_t network, std::uint32_t host) noexcept {
  return ::inet_makeaddr(network, host).s_addr;
}

std::uint32_t ipv4NetworkOf(std::uint32_t address) noexcept {
  in_addr a;
  a.s_addr = address;
  return ::inet_netof(a);
}

void ipv4Store(std::uint32_t address, in_addr *destination) noexcept { destination->s_addr = address; }

void ipv4StoreEndpoint(std::uint32_t address, int port, sockaddr_in *destination) noexcept {
  *destination = endpoint(address, port);
}

}  // namespace vq::os
