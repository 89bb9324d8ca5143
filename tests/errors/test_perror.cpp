// DutPerror: which numbers print, which system text each foreign kind
// takes, the socket text table, and that printing leaves all four values.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/thread.h"

namespace {

void SetAllFour(D_INT4 number, int c_err, D_INT4 os_err, D_INT4 socket_err) {
  D_ERR_SAVE save{number, c_err, os_err, socket_err};
  ASSERT_TRUE(DutErrNumRestoreTsd(&save, DutGetTsdValue()));
}

void ExpectAllFour(D_INT4 number, int c_err, D_INT4 os_err, D_INT4 socket_err, const std::string &context) {
  // Read errno first: the other getters must not be what keeps it.
  const int seen_errno = errno;
  EXPECT_EQ(seen_errno, c_err) << context;
  EXPECT_EQ(DutErrNumGetOs(), os_err) << context;
  EXPECT_EQ(DutErrNumGetSocket(), socket_err) << context;
  EXPECT_EQ(DutErrNumGet(), number) << context;
}

std::string Sys(int code) { return std::strerror(code); }

class Perror : public ::testing::Test {
 protected:
  vqtest::OutputCapture capture_;
};

TEST_F(Perror, TextOfEachForeignKindAndLeavesAllFourValues) {
  struct Case {
    D_INT4 number;
    int c_err;
    D_INT4 os_err, socket_err;
    const char *prefix;
    std::string expected;
  };
  const std::string unknown = "Unknown Windows error number ";
  const Case cases[] = {
      {D_ERR_C, ENOENT, 0, 0, "open", "open: " + Sys(ENOENT) + "\n"},
      {D_ERR_C, EACCES, 2, 10061, "", ": " + Sys(EACCES) + "\n"},
      {D_ERR_C, 0, 0, 0, "read", "read: Error 0\n"},  // outside the runtime's table
      {D_ERR_C, 50000, 0, 0, "read", "read: Error 50000\n"},
      {D_ERR_C, -3, 0, 0, "read", "read: Error -3\n"},
      // The system text carries no line break of its own.
      {D_ERR_OS, EINVAL, 2, 10054, "open", "open: " + Sys(2) + "\n"},
      {D_ERR_OS, 0, EPIPE, 0, "write", "write: " + Sys(EPIPE) + "\n"},
      {D_ERR_OS, 0, 0, 0, "x", "x: Error 0\n"},
      {D_ERR_OS, 0, 4464, 0, "x", "x: " + unknown + "(4464)\n"},
      // Codes are taken as signed 16-bit numbers: 70000 - 65536 = 4464,
      // 0x18000 keeps 0x8000, 65538 is code 2 again and 65536 is code 0.
      {D_ERR_OS, 0, 70000, 0, "x", "x: " + unknown + "(4464)\n"},
      {D_ERR_SOCKET, 0, 0, 70000, "s", "s: " + unknown + "(4464)\n"},
      {D_ERR_OS, 0, 0x18000, 0, "x", "x: " + unknown + "(-32768)\n"},
      {D_ERR_OS, 0, 65538, 0, "x", "x: " + Sys(2) + "\n"},
      {D_ERR_OS, 0, 65536, 0, "x", "x: Error 0\n"},
      // Winsock numbers are 10000 + the BSD number, not the host's errno.
      {D_ERR_SOCKET, EBADF, 3, 10061, "connect", "connect: " + Sys(ECONNREFUSED) + "\n"},
      {D_ERR_SOCKET, 0, 0, 10035, "recv", "recv: " + Sys(EWOULDBLOCK) + "\n"},
      {D_ERR_SOCKET, 0, 0, 10048, "bind", "bind: " + Sys(EADDRINUSE) + "\n"},
      {D_ERR_SOCKET, 0, 0, 10060, "wait", "wait: " + Sys(ETIMEDOUT) + "\n"},
      {D_ERR_SOCKET, 0, 0, 10065, "route", "route: " + Sys(EHOSTUNREACH) + "\n"},
      {D_ERR_SOCKET, 0, 0, 0, "sock", "sock: Error 0\n"},
      // No host text: the socket table, up to 10094 and no further.
      {D_ERR_SOCKET, 0, 0, 10091, "up", "up: WSASYSNOTREADY - The network subsystem is unusable.\n"},
      {D_ERR_SOCKET, 0, 0, 10092, "up",
       "up: WSAVERNOTSUPPORTED - This Winsock DLL cannot support this application.\n"},
      {D_ERR_SOCKET, 0, 0, 10093, "up", "up: WSANOTINITIALIZED - WSAStartup has not been called.\n"},
      {D_ERR_SOCKET, 0, 0, 10094, "up", "up: 94: Unknown Error\n"},
      {D_ERR_SOCKET, 0, 0, 10095, "up", "up: " + unknown + "(10095)\n"},
      // A prefix with conversions in it is data, not a format.
      {D_ERR_C, ENOENT, 0, 0, "100%s done %d", "100%s done %d: " + Sys(ENOENT) + "\n"},
  };
  for (const Case &c : cases) {
    const std::string context = std::string(c.prefix) + " " + std::to_string(c.number) + "/" +
                                std::to_string(c.os_err) + "/" + std::to_string(c.socket_err);
    SetAllFour(c.number, c.c_err, c.os_err, c.socket_err);
    EXPECT_TRUE(DutPerror(c.prefix)) << context;
    ExpectAllFour(c.number, c.c_err, c.os_err, c.socket_err, context);
    EXPECT_EQ(capture_.Take(), c.expected) << context;
  }
}

TEST_F(Perror, OtherNumbersPrintNothing) {
  for (D_INT4 number : {0, D_ERR_NULL_PTR, D_ERR_VAL_INVALID, D_ERR_NO_MEMORY, 500, 23}) {
    SetAllFour(number, ENOENT, 2, 10061);
    EXPECT_TRUE(DutPerror("open"));
    EXPECT_EQ(capture_.Take(), "") << number;
  }
}

TEST_F(Perror, SwitchedOffPrintsNothingAndSucceeds) {
  ASSERT_TRUE(DutPerrorSetEnable(0));
  SetAllFour(D_ERR_C, ENOENT, 2, 10061);
  EXPECT_TRUE(DutPerror("open"));
  ExpectAllFour(D_ERR_C, ENOENT, 2, 10061, "off");
  EXPECT_EQ(capture_.Take(), "");
  ASSERT_TRUE(DutPerrorSetEnable(1));
  EXPECT_TRUE(DutPerror("open"));
  EXPECT_EQ(capture_.Take(), "open: " + Sys(ENOENT) + "\n");
}

TEST_F(Perror, NullPrefixIsRefused) {
  SetAllFour(D_ERR_C, ENOENT, 0, 0);
  EXPECT_FALSE(DutPerror(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(capture_.Take(), "");
}

}  // namespace
