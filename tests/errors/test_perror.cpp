// DutPerror: which numbers print, which system text each foreign kind
// takes, the socket text table, and that printing leaves all four values.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "support/capture.hpp"
#include "vqutil/error.h"
#include "vqutil/thread.h"

namespace {

void SetAllFour(D_INT4 number, int c_err, D_INT4 os_err, D_INT4 socket_err) {
  D_ERR_SAVE save{number, c_err, os_err, socket_err};
  ASSERT_TRUE(DutErrNumRestoreTsd(&save, DutGetTsdValue()));
}

void ExpectAllFour(D_INT4 number, int c_err, D_INT4 os_err, D_INT4 socket_err) {
  // Read errno first: the other getters must not be what keeps it.
  const int seen_errno = errno;
  EXPECT_EQ(seen_errno, c_err);
  EXPECT_EQ(DutErrNumGetOs(), os_err);
  EXPECT_EQ(DutErrNumGetSocket(), socket_err);
  EXPECT_EQ(DutErrNumGet(), number);
}

std::string SystemText(int code) { return std::strerror(code); }

class Perror : public ::testing::Test {
 protected:
  // Runs DutPerror with the given state and returns what it printed.
  std::string Print(const char *prefix) {
    EXPECT_TRUE(DutPerror(prefix));
    return capture_.Take();
  }
  vqtest::OutputCapture capture_;
};

TEST_F(Perror, CKindPrintsTheRuntimeText) {
  SetAllFour(D_ERR_C, ENOENT, 0, 0);
  EXPECT_EQ(Print("open"), "open: " + SystemText(ENOENT) + "\n");
  SetAllFour(D_ERR_C, EACCES, 0, 0);
  EXPECT_EQ(Print(""), ": " + SystemText(EACCES) + "\n");
}

TEST_F(Perror, CKindOutsideTheRuntimeTableIsANumber) {
  SetAllFour(D_ERR_C, 0, 0, 0);
  EXPECT_EQ(Print("read"), "read: Error 0\n");
  SetAllFour(D_ERR_C, 50000, 0, 0);
  EXPECT_EQ(Print("read"), "read: Error 50000\n");
  SetAllFour(D_ERR_C, -3, 0, 0);
  EXPECT_EQ(Print("read"), "read: Error -3\n");
}

TEST_F(Perror, OsKindPrintsTheSystemTextWithoutALineBreakOfItsOwn) {
  SetAllFour(0, 0, 0, 0);
  DutErrNumSetOs(2);
  EXPECT_EQ(Print("open"), "open: " + SystemText(2) + "\n");
  DutErrNumSetOs(EPIPE);
  EXPECT_EQ(Print("write"), "write: " + SystemText(EPIPE) + "\n");
}

TEST_F(Perror, OsKindZeroAndUnknownCodes) {
  SetAllFour(D_ERR_OS, 0, 0, 0);
  EXPECT_EQ(Print("x"), "x: Error 0\n");
  SetAllFour(D_ERR_OS, 0, 4464, 0);
  EXPECT_EQ(Print("x"), "x: Unknown Windows error number (4464)\n");
}

TEST_F(Perror, CodesAreTakenAsSigned16Bit) {
  // 70000 loses its upper half: 70000 - 65536 = 4464.
  SetAllFour(D_ERR_OS, 0, 70000, 0);
  EXPECT_EQ(Print("x"), "x: Unknown Windows error number (4464)\n");
  SetAllFour(D_ERR_SOCKET, 0, 0, 70000);
  EXPECT_EQ(Print("s"), "s: Unknown Windows error number (4464)\n");
  // 0x18000 keeps 0x8000, the most negative 16-bit number.
  SetAllFour(D_ERR_OS, 0, 0x18000, 0);
  EXPECT_EQ(Print("x"), "x: Unknown Windows error number (-32768)\n");
  // 65536 + 2 is code 2 again.
  SetAllFour(D_ERR_OS, 0, 65538, 0);
  EXPECT_EQ(Print("x"), "x: " + SystemText(2) + "\n");
  // 65536 alone is code 0.
  SetAllFour(D_ERR_OS, 0, 65536, 0);
  EXPECT_EQ(Print("x"), "x: Error 0\n");
}

TEST_F(Perror, SocketKindMapsBackToTheHostErrorText) {
  SetAllFour(0, 0, 0, 0);
  DutErrNumSetSocket(10061);
  EXPECT_EQ(Print("connect"), "connect: " + SystemText(ECONNREFUSED) + "\n");
  // Winsock numbers are 10000 + the BSD number, not the host's errno.
  DutErrNumSetSocket(10035);
  EXPECT_EQ(Print("recv"), "recv: " + SystemText(EWOULDBLOCK) + "\n");
  DutErrNumSetSocket(10048);
  EXPECT_EQ(Print("bind"), "bind: " + SystemText(EADDRINUSE) + "\n");
  DutErrNumSetSocket(10060);
  EXPECT_EQ(Print("wait"), "wait: " + SystemText(ETIMEDOUT) + "\n");
  DutErrNumSetSocket(10065);
  EXPECT_EQ(Print("route"), "route: " + SystemText(EHOSTUNREACH) + "\n");
  SetAllFour(D_ERR_SOCKET, 0, 0, 0);
  EXPECT_EQ(Print("sock"), "sock: Error 0\n");
}

TEST_F(Perror, SocketCodesWithoutAHostTextUseTheSocketTable) {
  SetAllFour(D_ERR_SOCKET, 0, 0, 10091);
  EXPECT_EQ(Print("startup"), "startup: WSASYSNOTREADY - The network subsystem is unusable.\n");
  SetAllFour(D_ERR_SOCKET, 0, 0, 10092);
  EXPECT_EQ(Print("startup"),
            "startup: WSAVERNOTSUPPORTED - This Winsock DLL cannot support this application.\n");
  SetAllFour(D_ERR_SOCKET, 0, 0, 10093);
  EXPECT_EQ(Print("startup"), "startup: WSANOTINITIALIZED - WSAStartup has not been called.\n");
  SetAllFour(D_ERR_SOCKET, 0, 0, 10094);
  EXPECT_EQ(Print("startup"), "startup: 94: Unknown Error\n");
  // Just past the table: no text anywhere.
  SetAllFour(D_ERR_SOCKET, 0, 0, 10095);
  EXPECT_EQ(Print("startup"), "startup: Unknown Windows error number (10095)\n");
}

TEST_F(Perror, OtherNumbersPrintNothing) {
  const D_INT4 numbers[] = {0, D_ERR_NULL_PTR, D_ERR_VAL_INVALID, D_ERR_NO_MEMORY, 500, 23};
  for (D_INT4 number : numbers) {
    SCOPED_TRACE(number);
    SetAllFour(number, ENOENT, 2, 10061);
    EXPECT_EQ(Print("open"), "");
  }
}

TEST_F(Perror, LeavesAllFourValuesAsTheyWere) {
  SetAllFour(D_ERR_OS, EINVAL, 2, 10054);
  Print("a");
  ExpectAllFour(D_ERR_OS, EINVAL, 2, 10054);
  SetAllFour(D_ERR_SOCKET, EBADF, 3, 10091);
  Print("b");
  ExpectAllFour(D_ERR_SOCKET, EBADF, 3, 10091);
  SetAllFour(D_ERR_C, ENOSPC, 6, 0);
  Print("c");
  ExpectAllFour(D_ERR_C, ENOSPC, 6, 0);
  SetAllFour(D_ERR_C, 0, 0, 0);
  Print("d");
  ExpectAllFour(D_ERR_C, 0, 0, 0);
}

TEST_F(Perror, SwitchedOffPrintsNothingAndSucceeds) {
  ASSERT_TRUE(DutPerrorSetEnable(0));
  SetAllFour(D_ERR_C, ENOENT, 2, 10061);
  EXPECT_TRUE(DutPerror("open"));
  EXPECT_EQ(capture_.Take(), "");
  ExpectAllFour(D_ERR_C, ENOENT, 2, 10061);
  ASSERT_TRUE(DutPerrorSetEnable(1));
  SetAllFour(D_ERR_C, ENOENT, 2, 10061);
  EXPECT_EQ(Print("open"), "open: " + SystemText(ENOENT) + "\n");
}

TEST_F(Perror, NullPrefixIsRefused) {
  SetAllFour(D_ERR_C, ENOENT, 0, 0);
  EXPECT_FALSE(DutPerror(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  EXPECT_EQ(capture_.Take(), "");
}

TEST_F(Perror, PrefixIsPrintedVerbatim) {
  // A prefix with conversions in it is data, not a format.
  SetAllFour(D_ERR_C, ENOENT, 0, 0);
  EXPECT_EQ(Print("100%s done %d"), "100%s done %d: " + SystemText(ENOENT) + "\n");
}

}  // namespace
