// The backend's error values: the errno <-> Winsock numbering, per-thread
// last-error values and the system's texts. The backend's symbols are
// hidden inside the library, so its source is compiled in here.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "../../src/platform/posix/errors.cpp"

namespace os = vq::os;

TEST(SocketErrorMapping, KnownCodesFallbacksAndRoundTrips) {
  // Winsock numbers for known conditions (EAGAIN is would-block too), 10000
  // plus the errno for the others; no condition, no code.
  const std::pair<int, int> known[] = {{EINTR, 10004},       {EWOULDBLOCK, 10035},   {EAGAIN, 10035},
                                       {EMSGSIZE, 10040},    {ECONNREFUSED, 10061},  {EHOSTUNREACH, 10065},
                                       {ENOENT, 10000 + ENOENT}, {0, 0}};
  for (auto [e, code] : known) EXPECT_EQ(os::socketErrorFromErrno(e), code) << e;
  // Every errno's code maps back to it, or, when its fallback number is
  // taken by a real Winsock code, to that code's condition.
  for (int e = 1; e < os::runtimeErrorCount(); ++e) {
    int code = os::socketErrorFromErrno(e), back = os::errnoFromSocketError(code);
    EXPECT_TRUE(back == e || (back != 0 && os::socketErrorFromErrno(back) == code)) << e << " " << code << " " << back;
  }
  EXPECT_EQ(os::errnoFromSocketError(10035), EWOULDBLOCK);
  // Winsock codes with no errno behind them (not initialised, host not
  // found), and numbers that are no socket codes.
  for (int code : {10093, 11001, 0, ECONNREFUSED}) EXPECT_EQ(os::errnoFromSocketError(code), 0) << code;
}

TEST(LastError, PerThreadAndIndependentOfErrno) {
  os::setLastError(ENOENT);
  os::setSocketError(10061);
  errno = EINTR;
  int other_last = -1, other_socket = -1;
  std::thread([&] {
    other_last = os::lastError();
    other_socket = os::socketError();
    os::setLastError(EACCES);
  }).join();
  EXPECT_TRUE(other_last == 0 && other_socket == 0);
  EXPECT_TRUE(os::lastError() == ENOENT && os::socketError() == 10061 && errno == EINTR);
}

TEST(ErrorText, SystemAndRuntimeTextsAndTheirAbsence) {
  char text[128], small[5];
  EXPECT_TRUE(os::systemErrorText(ENOENT, text, sizeof text));
  EXPECT_STREQ(text, std::strerror(ENOENT));
  // Unknown: empty, and errno left alone.
  errno = EINTR;
  EXPECT_FALSE(os::systemErrorText(99999, text, sizeof text));
  EXPECT_TRUE(text[0] == '\0' && errno == EINTR);
  // Truncated to the buffer, still terminated.
  EXPECT_TRUE(os::systemErrorText(ENOENT, small, sizeof small));
  EXPECT_EQ(std::string(small), std::string(std::strerror(ENOENT)).substr(0, 4));
  // The runtime's table covers the errno range.
  int count = os::runtimeErrorCount();
  EXPECT_GT(count, EHOSTUNREACH);
  EXPECT_TRUE(os::runtimeErrorText(EACCES, text, sizeof text) && std::string(text) == std::strerror(EACCES));
  EXPECT_TRUE(os::runtimeErrorText(count - 1, text, sizeof text));
  for (int code : {count, 0, -1}) EXPECT_FALSE(os::runtimeErrorText(code, text, sizeof text)) << code;
}
