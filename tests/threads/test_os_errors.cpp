// The backend's error values: the errno <-> Winsock numbering, per-thread
// last-error values and the system's texts. The backend's symbols are
// hidden inside the library, so its source is compiled in here.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "../../src/platform/posix/errors.cpp"

namespace os = vq::os;

TEST(SocketErrorMapping, KnownConditionsUseWinsockNumbers) {
  struct Case {
    int errno_value;
    int socket_code;
  };
  const Case cases[] = {
      {EINTR, 10004},         {EBADF, 10009},        {EACCES, 10013},       {EFAULT, 10014},
      {EINVAL, 10022},        {EMFILE, 10024},       {EWOULDBLOCK, 10035},  {EINPROGRESS, 10036},
      {EALREADY, 10037},      {ENOTSOCK, 10038},     {EMSGSIZE, 10040},     {ENOPROTOOPT, 10042},
      {EOPNOTSUPP, 10045},    {EAFNOSUPPORT, 10047}, {EADDRINUSE, 10048},   {EADDRNOTAVAIL, 10049},
      {ENETUNREACH, 10051},   {ECONNABORTED, 10053}, {ECONNRESET, 10054},   {ENOBUFS, 10055},
      {EISCONN, 10056},       {ENOTCONN, 10057},     {ETIMEDOUT, 10060},    {ECONNREFUSED, 10061},
      {ENAMETOOLONG, 10063},  {EHOSTUNREACH, 10065},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(os::socketErrorFromErrno(c.errno_value), c.socket_code) << c.errno_value;
    EXPECT_EQ(os::errnoFromSocketError(c.socket_code), c.errno_value) << c.socket_code;
  }
  // EAGAIN is the would-block condition too.
  EXPECT_EQ(os::socketErrorFromErrno(EAGAIN), 10035);
}

TEST(SocketErrorMapping, OtherValuesFallBackAndRoundTrip) {
  EXPECT_EQ(os::socketErrorFromErrno(0), 0);
  EXPECT_EQ(os::socketErrorFromErrno(ENOENT), 10000 + ENOENT);
  EXPECT_EQ(os::errnoFromSocketError(10000 + ENOENT), ENOENT);
  // Winsock codes with no errno behind them, and non-socket numbers.
  EXPECT_EQ(os::errnoFromSocketError(10093), 0);  // not initialised
  EXPECT_EQ(os::errnoFromSocketError(11001), 0);  // host not found
  EXPECT_EQ(os::errnoFromSocketError(0), 0);
  EXPECT_EQ(os::errnoFromSocketError(ECONNREFUSED), 0);
  // A fallback number that is taken by a real Winsock code maps to that
  // code's condition, never to the errno that happens to equal it - 10000.
  EXPECT_EQ(os::errnoFromSocketError(10035), EWOULDBLOCK);
}

TEST(LastError, PerThreadAndIndependentOfErrno) {
  os::setLastError(ENOENT);
  os::setSocketError(10061);
  errno = EINTR;
  int other_last = -1;
  int other_socket = -1;
  std::thread t([&] {
    other_last = os::lastError();
    other_socket = os::socketError();
    os::setLastError(EACCES);
  });
  t.join();
  EXPECT_EQ(other_last, 0);
  EXPECT_EQ(other_socket, 0);
  EXPECT_EQ(os::lastError(), ENOENT);
  EXPECT_EQ(os::socketError(), 10061);
  EXPECT_EQ(errno, EINTR);
}

TEST(ErrorText, SystemTextsAndTheirAbsence) {
  char text[128];
  EXPECT_TRUE(os::systemErrorText(ENOENT, text, sizeof text));
  EXPECT_STREQ(text, std::strerror(ENOENT));
  EXPECT_FALSE(os::systemErrorText(99999, text, sizeof text));
  EXPECT_STREQ(text, "");
  // Truncated to the buffer, still terminated.
  char small[5];
  EXPECT_TRUE(os::systemErrorText(ENOENT, small, sizeof small));
  EXPECT_EQ(std::strlen(small), 4u);
  EXPECT_EQ(std::strncmp(small, std::strerror(ENOENT), 4), 0);
  // errno is left alone.
  errno = EINTR;
  os::systemErrorText(99999, text, sizeof text);
  EXPECT_EQ(errno, EINTR);
}

TEST(ErrorText, RuntimeTableCoversTheErrnoRange) {
  int count = os::runtimeErrorCount();
  EXPECT_GT(count, EHOSTUNREACH);
  char text[128];
  EXPECT_TRUE(os::runtimeErrorText(EACCES, text, sizeof text));
  EXPECT_STREQ(text, std::strerror(EACCES));
  EXPECT_TRUE(os::runtimeErrorText(count - 1, text, sizeof text));
  EXPECT_FALSE(os::runtimeErrorText(count, text, sizeof text));
  EXPECT_FALSE(os::runtimeErrorText(0, text, sizeof text));
  EXPECT_FALSE(os::runtimeErrorText(-1, text, sizeof text));
}
