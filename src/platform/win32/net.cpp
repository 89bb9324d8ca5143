// Network services on Winsock: sockets are SOCKET handles carried as
// integers (the system hands out small values), readiness is select, and
// names resolve through getaddrinfo.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <cctype>
#include <cstring>

#include "platform/net.hpp"
#include "platform/os.hpp"

namespace vq::os {

namespace {

SOCKET socketOf(int s) noexcept { return static_cast<SOCKET>(static_cast<unsigned>(s)); }

// Records Winsock's code of the failure as the socket last error; the OS
// last error, which Winsock shares, is put back as it was.
class KeepLastError {
 public:
  KeepLastError() noexcept : saved_(::GetLastError()) {}
  ~KeepLastError() { ::SetLastError(saved_); }
  KeepLastError(const KeepLastError &) = delete;
  KeepLastError &operator=(const KeepLastError &) = delete;

 private:
  DWORD saved_;
};

bool failed() noexcept {
  setSocketError(::WSAGetLastError());
  return false;
}

template <typename Result>
Result failedWith(Result result) noexcept {
  failed();
  return result;
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

sockaddr_in endpoint(std::uint32_t address, int port) noexcept {
  sockaddr_in a;
  std::memset(&a, 0, sizeof a);
  a.sin_family = AF_INET;
  a.sin_port = htons(static_cast<u_short>(port));
  a.sin_addr.s_addr = address;
  return a;
}

// Cleared inheritance keeps programs the process starts from holding it open.
void notInheritable(SOCKET s) noexcept {
  ::SetHandleInformation(reinterpret_cast<HANDLE>(s), HANDLE_FLAG_INHERIT, 0);
}

int resolverCode(int gai_error) noexcept {
  switch (gai_error) {
    case WSAHOST_NOT_FOUND:
    case WSATRY_AGAIN:
    case WSANO_RECOVERY:
    case WSANO_DATA:
      return gai_error;
    default:
      return WSANO_RECOVERY;
  }
}

// Parses one part of a dotted address as inet_aton does: decimal, octal
// (leading 0) or hexadecimal (leading 0x).
bool parsePart(const char *&p, std::uint32_t *value) noexcept {
  std::uint64_t v = 0;
  int base = 10;
  if (*p == '0') {
    base = 8;
    ++p;
    if (*p == 'x' || *p == 'X') {
      base = 16;
      ++p;
      if (!std::isxdigit(static_cast<unsigned char>(*p))) return false;
    } else if (*p < '0' || *p > '9') {
      *value = 0;
      return true;
    }
  } else if (*p < '1' || *p > '9') {
    return false;
  }
  for (;; ++p) {
    int d;
    const char c = *p;
    if (c >= '0' && c <= '9') d = c - '0';
    else if (base == 16 && c >= 'a' && c <= 'f') d = c - 'a' + 10;
    else if (base == 16 && c >= 'A' && c <= 'F') d = c - 'A' + 10;
    else break;
    if (d >= base) return false;
    v = v * static_cast<unsigned>(base) + static_cast<unsigned>(d);
    if (v > 0xFFFFFFFFu) return false;
  }
  *value = static_cast<std::uint32_t>(v);
  return true;
}

}  // namespace

int hostName(char *buffer, std::size_t size) noexcept {
  KeepLastError keep;
  if (buffer == nullptr || size == 0) return WSAEINVAL;
  const int n = size > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(size);
  const int error = ::gethostname(buffer, n) == 0 ? 0 : ::WSAGetLastError();
  if (error != 0) setSocketError(error);
  buffer[size - 1] = '\0';
  if (error != 0) buffer[0] = '\0';
  return error;
}

int socketOpen(SocketKind kind, bool inheritable) noexcept {
  KeepLastError keep;
  const SOCKET s = ::socket(AF_INET, kind == SocketKind::Stream ? SOCK_STREAM : SOCK_DGRAM, 0);
  if (s == INVALID_SOCKET) return failedWith(-1);
  if (!inheritable) notInheritable(s);
  return static_cast<int>(s);
}

bool socketClose(int s) noexcept {
  KeepLastError keep;
  return ::closesocket(socketOf(s)) == 0 || failed();
}

bool socketBindAny(int s, int port) noexcept {
  KeepLastError keep;
  sockaddr_in a = endpoint(htonl(INADDR_ANY), port);
  return ::bind(socketOf(s), reinterpret_cast<sockaddr *>(&a), sizeof a) == 0 || failed();
}

bool socketListen(int s, int backlog) noexcept {
  KeepLastError keep;
  return ::listen(socketOf(s), backlog) == 0 || failed();
}

int socketAccept(int s) noexcept {
  KeepLastError keep;
  const SOCKET c = ::accept(socketOf(s), nullptr, nullptr);
  if (c == INVALID_SOCKET) return failedWith(-1);
  notInheritable(c);
  // An accepted socket inherits the listener's non-blocking mode; the
  // interface promises a blocking one.
  u_long blocking = 0;
  ::ioctlsocket(c, FIONBIO, &blocking);
  return static_cast<int>(c);
}

ConnectResult socketConnect(int s, std::uint32_t address, int port) noexcept {
  KeepLastError keep;
  sockaddr_in a = endpoint(address, port);
  if (::connect(socketOf(s), reinterpret_cast<sockaddr *>(&a), sizeof a) == 0) return ConnectResult::Connected;
  failed();
  return socketError() == WSAEWOULDBLOCK ? ConnectResult::Pending : ConnectResult::Failed;
}

int socketPendingError(int s) noexcept {
  KeepLastError keep;
  int error = 0;
  int size = sizeof error;
  if (::getsockopt(socketOf(s), SOL_SOCKET, SO_ERROR, reinterpret_cast<char *>(&error), &size) != 0) {
    return failedWith(-1);
  }
  return error;
}

bool socketSetOption(int s, SocketOption option, int value) noexcept {
  KeepLastError keep;
  return ::setsockopt(socketOf(s), SOL_SOCKET, optionName(option), reinterpret_cast<const char *>(&value),
                      sizeof value) == 0 ||
         failed();
}

bool socketGetOption(int s, SocketOption option, int *value) noexcept {
  KeepLastError keep;
  int size = sizeof *value;
  return ::getsockopt(socketOf(s), SOL_SOCKET, optionName(option), reinterpret_cast<char *>(value), &size) == 0 ||
         failed();
}

bool socketSetLinger(int s, int seconds) noexcept {
  KeepLastError keep;
  linger l;
  l.l_onoff = 1;
  l.l_linger = static_cast<u_short>(seconds);
  return ::setsockopt(socketOf(s), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char *>(&l), sizeof l) == 0 ||
         failed();
}

bool socketSetBlocking(int s, bool blocking) noexcept {
  KeepLastError keep;
  u_long non_blocking = blocking ? 0 : 1;
  return ::ioctlsocket(socketOf(s), FIONBIO, &non_blocking) == 0 || failed();
}

// Winsock cannot tell a socket's mode.
bool socketGetBlocking(int, bool *) noexcept {
  setSocketError(WSAEOPNOTSUPP);
  return false;
}

bool socketBlockingReadable() noexcept { return false; }

SocketWait socketWait(int s, bool for_write, const WaitTime *time) noexcept {
  KeepLastError keep;
  fd_set ready;
  fd_set exceptional;
  FD_ZERO(&ready);
  FD_ZERO(&exceptional);
  FD_SET(socketOf(s), &ready);
  FD_SET(socketOf(s), &exceptional);
  timeval tv{};
  if (time != nullptr) {
    tv.tv_sec = time->seconds > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<long>(time->seconds);
    tv.tv_usec = time->microseconds;
  }
  const int n = ::select(s + 1, for_write ? nullptr : &ready, for_write ? &ready : nullptr, &exceptional,
                         time != nullptr ? &tv : nullptr);
  if (n == SOCKET_ERROR) return failedWith(SocketWait::Failed);
  return n == 0 ? SocketWait::Timeout : SocketWait::Ready;
}

long socketRecv(int s, void *buffer, std::size_t length, int flags) noexcept {
  KeepLastError keep;
  const int n = length > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(length);
  const int got = ::recv(socketOf(s), static_cast<char *>(buffer), n, flags);
  return got == SOCKET_ERROR ? failedWith(-1L) : got;
}

double monotonicSeconds() noexcept {
  LARGE_INTEGER f;
  LARGE_INTEGER now;
  ::QueryPerformanceFrequency(&f);
  ::QueryPerformanceCounter(&now);
  return static_cast<double>(now.QuadPart) / static_cast<double>(f.QuadPart);
}

// inet_addr cannot tell 255.255.255.255 from an error and takes trailing
// junk: the parts are read here, as inet_aton reads them.
bool parseIpv4(const char *text, std::uint32_t *address) noexcept {
  if (text == nullptr) return false;
  std::uint32_t parts[4];
  int count = 0;
  const char *p = text;
  for (;;) {
    if (count == 4 || !parsePart(p, &parts[count])) return false;
    ++count;
    if (*p != '.') break;
    ++p;
  }
  if (*p != '\0' && !std::isspace(static_cast<unsigned char>(*p))) return false;
  std::uint32_t v = 0;
  for (int i = 0; i < count - 1; ++i) {
    if (parts[i] > 255) return false;
    v |= parts[i] << (24 - 8 * i);
  }
  const std::uint32_t last_max = count == 1 ? 0xFFFFFFFFu : 0xFFFFFFFFu >> (8 * (count - 1));
  if (parts[count - 1] > last_max) return false;
  v |= parts[count - 1];
  *address = htonl(v);
  return true;
}

bool resolveIpv4(const char *name, std::uint32_t *address) noexcept {
  KeepLastError keep;
  addrinfo hints;
  std::memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
#ifdef VQUTIL_RESOLVE_NUMERIC_ONLY
  hints.ai_flags |= AI_NUMERICHOST;
#endif
  addrinfo *list = nullptr;
  const int status = ::getaddrinfo(name, nullptr, &hints, &list);
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
  if (!found) setSocketError(WSANO_DATA);
  return found;
}

// Classful arithmetic, as inet_makeaddr and inet_netof do it.
std::uint32_t ipv4MakeAddress(std::uint32_t network, std::uint32_t host) noexcept {
  std::uint32_t a;
  if (network < 128) a = (network << 24) | (host & 0x00FFFFFFu);
  else if (network < 65536) a = (network << 16) | (host & 0x0000FFFFu);
  else if (network < 16777216) a = (network << 8) | (host & 0x000000FFu);
  else a = network | host;
  return htonl(a);
}

std::uint32_t ipv4NetworkOf(std::uint32_t address) noexcept {
  const std::uint32_t a = ntohl(address);
  if ((a & 0x80000000u) == 0) return a >> 24;
  if ((a & 0xC0000000u) == 0x80000000u) return a >> 16;
  return a >> 8;
}

void ipv4Store(std::uint32_t address, in_addr *destination) noexcept { destination->s_addr = address; }

void ipv4StoreEndpoint(std::uint32_t address, int port, sockaddr_in *destination) noexcept {
  *destination = endpoint(address, port);
}

}  // namespace vq::os
