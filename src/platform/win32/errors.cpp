// The OS last error is the system's own (GetLastError). Winsock keeps its
// last error in that same slot, so the socket layer copies each failure's
// code into a per-thread value of its own: the two kinds never overwrite
// each other, as the error record keeps them apart. Texts come from
// FormatMessage.
#include <winsock2.h>
#include <windows.h>

#include <cerrno>
#include <cstring>

#include "../os.hpp"

namespace vq::os {

namespace {

thread_local int tlsSocketError = 0;

bool copyText(const char *text, std::size_t n, char *buffer, std::size_t size) {
  if (buffer == nullptr || size == 0) return false;
  if (text == nullptr) {
    buffer[0] = '\0';
    return false;
  }
  if (n >= size) n = size - 1;
  std::memcpy(buffer, text, n);
  buffer[n] = '\0';
  return true;
}

// The runtime's text, or null where it only has its generic "Unknown error".
const char *runtimeText(int e) {
  const int saved = errno;
  const char *text = std::strerror(e);
  errno = saved;
  if (text == nullptr || std::strncmp(text, "Unknown error", 13) == 0) return nullptr;
  return text;
}

}  // namespace

int lastError() noexcept { return static_cast<int>(::GetLastError()); }
void setLastError(int code) noexcept { ::SetLastError(static_cast<DWORD>(code)); }
// A thread's first touch of a thread_local may go through the runtime's TLS
// calls, which clear the system's last error: keep it.
int socketError() noexcept {
  const DWORD saved = ::GetLastError();
  const int code = tlsSocketError;
  ::SetLastError(saved);
  return code;
}
void setSocketError(int code) noexcept {
  const DWORD saved = ::GetLastError();
  tlsSocketError = code;
  ::SetLastError(saved);
}

// Sockets report Winsock codes already; errno values only come from the
// runtime, which knows few socket conditions.
int socketErrorFromErrno(int errno_value) noexcept {
  switch (errno_value) {
    case 0:
      return 0;
    case EINTR:
      return WSAEINTR;
    case EBADF:
      return WSAEBADF;
    case EACCES:
      return WSAEACCES;
    case EFAULT:
      return WSAEFAULT;
    case EINVAL:
      return WSAEINVAL;
    case EMFILE:
      return WSAEMFILE;
    case EAGAIN:
      return WSAEWOULDBLOCK;
    default:
      return 10000 + errno_value;
  }
}

// The system has a text for every Winsock code itself.
int errnoFromSocketError(int socket_code) noexcept { return socket_code; }

bool systemErrorText(int code, char *buffer, std::size_t size) noexcept {
  const DWORD saved = ::GetLastError();
  char text[512];
  DWORD n = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                             static_cast<DWORD>(code), 0, text, sizeof text, nullptr);
  ::SetLastError(saved);
  // The system's texts end in a line break (and often a full stop).
  while (n > 0 && (text[n - 1] == '\n' || text[n - 1] == '\r' || text[n - 1] == ' ')) --n;
  return copyText(n > 0 ? text : nullptr, n, buffer, size);
}

int runtimeErrorCount() noexcept {
  static const int count = [] {
    int last = 0;
    for (int e = 1; e < 256; ++e) {
      if (runtimeText(e) != nullptr) last = e;
    }
    return last + 1;
  }();
  return count;
}

bool runtimeErrorText(int errno_value, char *buffer, std::size_t size) noexcept {
  // Every number in the range has a row in the runtime's table, a gap
  // reading "Unknown error".
  const int saved = errno;
  const char *text = errno_value >= 1 && errno_value < runtimeErrorCount() ? std::strerror(errno_value) : nullptr;
  errno = saved;
  return copyText(text, text != nullptr ? std::strlen(text) : 0, buffer, size);
}

}  // namespace vq::os
