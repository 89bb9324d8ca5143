// Per-thread OS and socket last-error values, the errno <-> Winsock
// mapping and the system's error texts.
#include <cerrno>
#include <cstring>

// Relative, so that a test can compile this file in on its own.
#include "../os.hpp"

namespace vq::os {

namespace {

// Initial-exec: a few bytes of static TLS spare every access a lookup call.
[[gnu::tls_model("initial-exec")]] thread_local int tlsLastError = 0;
[[gnu::tls_model("initial-exec")]] thread_local int tlsSocketError = 0;

struct SocketCode {
  int errno_value;
  int socket_code;
};

// Winsock numbers are 10000 plus the BSD number of the condition; the BSD
// numbers differ from Linux's, hence a table rather than arithmetic.
constexpr SocketCode kSocketCodes[] = {
    {EINTR, 10004},           {EBADF, 10009},           {EACCES, 10013},
    {EFAULT, 10014},          {EINVAL, 10022},          {EMFILE, 10024},
    {EWOULDBLOCK, 10035},     {EINPROGRESS, 10036},     {EALREADY, 10037},
    {ENOTSOCK, 10038},        {EDESTADDRREQ, 10039},    {EMSGSIZE, 10040},
    {EPROTOTYPE, 10041},      {ENOPROTOOPT, 10042},     {EPROTONOSUPPORT, 10043},
    {ESOCKTNOSUPPORT, 10044}, {EOPNOTSUPP, 10045},      {EPFNOSUPPORT, 10046},
    {EAFNOSUPPORT, 10047},    {EADDRINUSE, 10048},      {EADDRNOTAVAIL, 10049},
    {ENETDOWN, 10050},        {ENETUNREACH, 10051},     {ENETRESET, 10052},
    {ECONNABORTED, 10053},    {ECONNRESET, 10054},      {ENOBUFS, 10055},
    {EISCONN, 10056},         {ENOTCONN, 10057},        {ESHUTDOWN, 10058},
    {ETOOMANYREFS, 10059},    {ETIMEDOUT, 10060},       {ECONNREFUSED, 10061},
    {ELOOP, 10062},           {ENAMETOOLONG, 10063},    {EHOSTDOWN, 10064},
    {EHOSTUNREACH, 10065},    {ENOTEMPTY, 10066},       {EUSERS, 10068},
    {EDQUOT, 10069},          {ESTALE, 10070},          {EREMOTE, 10071},
};

// EAGAIN is EWOULDBLOCK on Linux but not everywhere.
int canonicalErrno(int e) { return e == EAGAIN ? EWOULDBLOCK : e; }

// Both strerror_r flavours: GNU returns the text, XSI fills the buffer.
[[maybe_unused]] const char *pickText(const char *gnu_text, const char *) { return gnu_text; }
[[maybe_unused]] const char *pickText(int xsi_result, const char *buffer) { return xsi_result == 0 ? buffer : nullptr; }

// strerror_r's text for any number, its generic one included.
const char *anyErrnoText(int code, char *scratch, std::size_t size) {
  int saved = errno;
  const char *text = pickText(strerror_r(code, scratch, size), scratch);
  errno = saved;
  return text;
}

// The system text of an errno value, or null when the system only has its
// generic "Unknown error" text for it.
const char *errnoText(int code, char *scratch, std::size_t size) {
  const char *text = anyErrnoText(code, scratch, size);
  if (text == nullptr || std::strncmp(text, "Unknown error", 13) == 0) return nullptr;
  return text;
}

bool copyText(const char *text, char *buffer, std::size_t size) {
  if (buffer == nullptr || size == 0) return false;
  if (text == nullptr) {
    buffer[0] = '\0';
    return false;
  }
  std::size_t n = std::strlen(text);
  if (n >= size) n = size - 1;
  std::memcpy(buffer, text, n);
  buffer[n] = '\0';
  return true;
}

}  // namespace

int lastError() noexcept { return tlsLastError; }
void setLastError(int code) noexcept { tlsLastError = code; }
int socketError() noexcept { return tlsSocketError; }
void setSocketError(int code) noexcept { tlsSocketError = code; }

int socketErrorFromErrno(int errno_value) noexcept {
  if (errno_value == 0) return 0;
  int e = canonicalErrno(errno_value);
  for (const SocketCode &c : kSocketCodes) {
    if (c.errno_value == e) return c.socket_code;
  }
  return 10000 + errno_value;
}

int errnoFromSocketError(int socket_code) noexcept {
  for (const SocketCode &c : kSocketCodes) {
    if (c.socket_code == socket_code) return c.errno_value;
  }
  // Codes made by the fallback above map back; anything else has no errno.
  int e = socket_code - 10000;
  if (e > 0 && e < runtimeErrorCount() && socketErrorFromErrno(e) == socket_code) return e;
  return 0;
}

bool systemErrorText(int code, char *buffer, std::size_t size) noexcept {
  char scratch[256];
  return copyText(errnoText(code, scratch, sizeof scratch), buffer, size);
}

int runtimeErrorCount() noexcept {
  // The highest errno the runtime has a text for, plus one; computed once.
  static const int count = [] {
    char scratch[256];
    int last = 0;
    for (int e = 1; e < 4096; ++e) {
      if (errnoText(e, scratch, sizeof scratch) != nullptr) last = e;
    }
    return last + 1;
  }();
  return count;
}

bool runtimeErrorText(int errno_value, char *buffer, std::size_t size) noexcept {
  if (errno_value < 1 || errno_value >= runtimeErrorCount()) return copyText(nullptr, buffer, size);
  // The runtime's table has a row for every number in its range: the gaps
  // in it (41 and 58 on Linux) read as the generic text.
  char scratch[256];
  return copyText(anyErrnoText(errno_value, scratch, sizeof scratch), buffer, size);
}

}  // namespace vq::os
