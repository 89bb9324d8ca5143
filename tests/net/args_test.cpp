// Refused arguments and unusable descriptors: every call answers at once
// with its failure value and a clear error number.
#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include "net_support.hpp"

using namespace net_test;

namespace {

struct ArgCase {
  const char *what;
  std::function<long()> call;
  long result;
  D_INT4 error;
  D_INT4 socket_error;  // checked when not 0
};

TEST(SocketArguments, RefusedWithClearErrorNumbers) {
  EnvVar no_abort("VQ_EXPECT_ABORT", nullptr);
  Fd s(socket(AF_INET, SOCK_STREAM, 0));
  int pipe_fds[2];
  ASSERT_EQ(pipe(pipe_fds), 0);
  Fd pipe_in(pipe_fds[0]), pipe_out(pipe_fds[1]);
  ASSERT_EQ(write(pipe_out, "x", 1), 1);  // readable, so that waits on it end
  // A descriptor number that is not open.
  const int closed = 999;
  ASSERT_EQ(fcntl(closed, F_GETFD), -1);
  const std::string too_long(300, 'a');
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  in_addr address{};
  sockaddr_in endpoint{};
  char buffer[8];
  D_INT4 flag = 0, value = 0;
  constexpr D_INT4 R = D_SOCKET_CHECK_READ;

  const ArgCase cases[] = {
      {"parse null name", [&] { return DutSocketParseIpAddr(nullptr, &address); }, 0, D_ERR_NULL_PTR, 0},
      {"parse null address", [&] { return DutSocketParseIpAddr("127.0.0.1", nullptr); }, 0, D_ERR_NULL_PTR, 0},
      {"parse long name", [&] { return DutSocketParseIpAddr(too_long.c_str(), &address); }, 0, D_ERR_VAL_TOO_LARGE, 0},
      {"compare null", [&] { return DutCompareNodeNames("a", nullptr, &value); }, 0, D_ERR_NULL_PTR, 0},
      {"compare null result", [&] { return DutCompareNodeNames("a", "a", nullptr); }, 0, D_ERR_NULL_PTR, 0},
      {"server port -1", [] { return DutSocketCreateServerTcp(-1); }, -1, D_ERR_VAL_TOO_SMALL, 0},
      {"server port 65536", [] { return DutSocketCreateServerTcp(65536); }, -1, D_ERR_VAL_TOO_LARGE, 0},
      {"client null name", [] { return DutSocketCreateClientTcp(nullptr, 80); }, -1, D_ERR_NULL_PTR, 0},
      {"client port 0", [] { return DutSocketCreateClientTcp("127.0.0.1", 0); }, -1, D_ERR_VAL_TOO_SMALL, 0},
      {"client port 70000", [] { return DutSocketCreateClientTcp("127.0.0.1", 70000); }, -1, D_ERR_VAL_TOO_LARGE, 0},
      {"client long name", [&] { return DutSocketCreateClientTcp(too_long.c_str(), 80); }, -1, D_ERR_VAL_TOO_LARGE, 0},
      {"bcast server port -5", [] { return DutSocketCreateServerBcast(-5); }, -1, D_ERR_VAL_TOO_SMALL, 0},
      {"bcast client null name", [&] { return DutSocketCreateClientBcast(nullptr, 1, &endpoint); }, -1, D_ERR_NULL_PTR, 0},
      {"bcast client null address", [] { return DutSocketCreateClientBcast("127.0.0.1", 1, nullptr); }, -1,
       D_ERR_NULL_PTR, 0},
      {"bcast client port 0", [&] { return DutSocketCreateClientBcast("127.0.0.1", 0, &endpoint); }, -1,
       D_ERR_VAL_TOO_SMALL, 0},
      {"check socket -1", [] { return DutSocketCheck(-1, R, 0.0); }, 0, D_ERR_VAL_TOO_SMALL, 0},
      {"check mode 2", [&] { return DutSocketCheck(s, 2, 0.0); }, 0, D_ERR_VAL_INVALID, 0},
      {"check mode -1", [&] { return DutSocketCheck(s, -1, 0.0); }, 0, D_ERR_VAL_INVALID, 0},
      {"check time -0.5", [&] { return DutSocketCheck(s, R, -0.5); }, 0, D_ERR_VAL_TOO_SMALL, 0},
      {"check time -inf", [&] { return DutSocketCheck(s, R, -inf); }, 0, D_ERR_VAL_TOO_SMALL, 0},
      {"check time NaN", [&] { return DutSocketCheck(s, R, nan); }, 0, D_ERR_VAL_INVALID, 0},
      {"check time 1e300", [&] { return DutSocketCheck(s, R, 1e300); }, 0, D_ERR_VAL_TOO_LARGE, 0},
      {"check time inf", [&] { return DutSocketCheck(s, R, inf); }, 0, D_ERR_VAL_TOO_LARGE, 0},
      {"check closed", [&] { return DutSocketCheck(closed, R, 1.0); }, 0, D_ERR_SOCKET, 10009},
      {"recvt null buffer", [&] { return DutSocketRecvTimeout(s, nullptr, 8, 0, 1.0, &flag); }, -1, D_ERR_NULL_PTR, 0},
      {"recvt null flag", [&] { return DutSocketRecvTimeout(s, buffer, 8, 0, 1.0, nullptr); }, -1, D_ERR_NULL_PTR, 0},
      {"recvt socket -2", [&] { return DutSocketRecvTimeout(-2, buffer, 8, 0, 1.0, &flag); }, -1,
       D_ERR_VAL_TOO_SMALL, 0},
      {"recvt length 0", [&] { return DutSocketRecvTimeout(s, buffer, 0, 0, 1.0, &flag); }, -1, D_ERR_VAL_TOO_SMALL, 0},
      {"recvt length -8", [&] { return DutSocketRecvTimeout(s, buffer, -8, 0, 1.0, &flag); }, -1,
       D_ERR_VAL_TOO_SMALL, 0},
      {"recvt time NaN", [&] { return DutSocketRecvTimeout(s, buffer, 8, 0, nan, &flag); }, -1, D_ERR_VAL_INVALID, 0},
      {"recvt time 1e12", [&] { return DutSocketRecvTimeout(s, buffer, 8, 0, 1e12, &flag); }, -1,
       D_ERR_VAL_TOO_LARGE, 0},
      {"recvt time -2", [&] { return DutSocketRecvTimeout(s, buffer, 8, 0, -2.0, &flag); }, -1,
       D_ERR_VAL_TOO_SMALL, 0},
      {"recvt closed", [&] { return DutSocketRecvTimeout(closed, buffer, 8, 0, -1.0, &flag); }, -1, D_ERR_SOCKET,
       10009},
      {"recvt foreign", [&] { return DutSocketRecvTimeout(pipe_in, buffer, 8, 0, -1.0, &flag); }, -1, D_ERR_SOCKET,
       10038},
      {"recvall null buffer", [&] { return DutSocketRecvAll(s, nullptr, 8, 0); }, -1, D_ERR_NULL_PTR, 0},
      {"recvall socket -1", [&] { return DutSocketRecvAll(-1, buffer, 8, 0); }, -1, D_ERR_VAL_TOO_SMALL, 0},
      {"recvall length 0", [&] { return DutSocketRecvAll(s, buffer, 0, 0); }, -1, D_ERR_VAL_TOO_SMALL, 0},
      {"recvall closed", [&] { return DutSocketRecvAll(closed, buffer, 8, 0); }, -1, D_ERR_SOCKET, 10009},
      {"recvall foreign", [&] { return DutSocketRecvAll(pipe_in, buffer, 8, 0); }, -1, D_ERR_SOCKET, 10038},
      {"accept -1", [] { return DutSocketAccept(-1); }, -1, D_ERR_VAL_TOO_SMALL, 0},
      {"accept closed", [&] { return DutSocketAccept(closed); }, -1, D_ERR_SOCKET, 10009},
      {"accept foreign", [&] { return DutSocketAccept(pipe_in); }, -1, D_ERR_SOCKET, 10038},
      {"accept not listening", [&] { return DutSocketAccept(s); }, -1, D_ERR_SOCKET, 10022},
      {"get mode null", [&] { return DutSocketGetBlockMode(s, nullptr); }, 0, D_ERR_NULL_PTR, 0},
      {"get mode -1", [&] { return DutSocketGetBlockMode(-1, &value); }, 0, D_ERR_VAL_TOO_SMALL, 0},
      {"get mode closed", [&] { return DutSocketGetBlockMode(closed, &value); }, 0, D_ERR_SOCKET, 10009},
      {"set mode -1", [] { return DutSocketSetBlockMode(-1, 1); }, 0, D_ERR_VAL_TOO_SMALL, 0},
      {"set mode 2", [&] { return DutSocketSetBlockMode(s, 2); }, 0, D_ERR_VAL_INVALID, 0},
      {"get recv size null", [&] { return DutSocketGetRecvBufSize(s, nullptr); }, 0, D_ERR_NULL_PTR, 0},
      {"get send size -1", [&] { return DutSocketGetSendBufSize(-1, &value); }, 0, D_ERR_VAL_TOO_SMALL, 0},
      {"set recv size -1", [&] { return DutSocketSetRecvBufSize(s, -1); }, 0, D_ERR_VAL_TOO_SMALL, 0},
      {"set send size socket -1", [] { return DutSocketSetSendBufSize(-1, 4096); }, 0, D_ERR_VAL_TOO_SMALL, 0},
      {"get recv size closed", [&] { return DutSocketGetRecvBufSize(closed, &value); }, 0, D_ERR_SOCKET, 10009},
      {"set send size foreign", [&] { return DutSocketSetSendBufSize(pipe_in, 4096); }, 0, D_ERR_SOCKET, 10038},
      {"close closed", [&] { return DutWinCloseSocket(closed); }, -1, D_ERR_SOCKET, 10009},
  };
  OutputCapture capture;
  for (const ArgCase &c : cases) {
    DutErrNumSet(0);
    EXPECT_EQ(c.call(), c.result) << c.what;
    EXPECT_EQ(DutErrNumGet(), c.error) << c.what;
    if (c.socket_error != 0) {
      EXPECT_EQ(DutErrNumGetSocket(), c.socket_error) << c.what;
    }
  }
  // The system calls that failed were reported, each with its context.
  const std::string printed = capture.Take();
  for (const char *expected :
       {"select: Bad file descriptor\n", "WARNING: DutSocketRecvTimeout: select failed\n",
        "accept: Socket operation on non-socket\n", "ioctlsocket: Bad file descriptor\n",
        "Internal validation <0 == sys_status> failed, file: utsocket"}) {
    EXPECT_NE(printed.find(expected), std::string::npos) << expected << " in:\n" << printed;
  }
}

}  // namespace
