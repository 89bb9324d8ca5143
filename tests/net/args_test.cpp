// Refused arguments, unusable descriptors and the unavailable socket
// kinds: every call answers at once with its failure value and a clear
// error number.
#include <limits>
#include <string>

#include "net_support.hpp"

using namespace net_test;

namespace {

TEST(SocketArguments, RefusedWithClearErrorNumbers) {
  EnvVar no_abort("VQ_EXPECT_ABORT", nullptr);
  Fd s(socket(AF_INET, SOCK_STREAM, 0));
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  Fd pipe_in(fds[0]), pipe_out(fds[1]);
  ASSERT_EQ(write(pipe_out, "x", 1), 1);  // readable, so that waits on it end
  const int closed = 999;                 // a descriptor number that is not open
  ASSERT_EQ(fcntl(closed, F_GETFD), -1);
  const std::string too_long(300, 'a');
  const double nan = std::numeric_limits<double>::quiet_NaN();
  in_addr address{};
  sockaddr_in to{};
  char buf[8];
  D_INT4 flag = 7, v = 0;  // cleared only once the arguments pass
  constexpr D_INT4 R = D_SOCKET_CHECK_READ, SMALL = D_ERR_VAL_TOO_SMALL, LARGE = D_ERR_VAL_TOO_LARGE,
                   NUL = D_ERR_NULL_PTR, BAD = D_ERR_VAL_INVALID;
  OutputCapture capture;

  EXPECT_FAILS(DutSocketParseIpAddr(nullptr, &address), 0, NUL);
  EXPECT_FAILS(DutSocketParseIpAddr("127.0.0.1", nullptr), 0, NUL);
  EXPECT_FAILS(DutSocketParseIpAddr(too_long.c_str(), &address), 0, LARGE);
  EXPECT_FAILS(DutCompareNodeNames("a", "a", nullptr), 0, NUL);
  EXPECT_FAILS(DutSocketCreateServerTcp(-1), -1, SMALL);
  EXPECT_FAILS(DutSocketCreateServerTcp(65536), -1, LARGE);
  EXPECT_FAILS(DutSocketCreateClientTcp(nullptr, 80), -1, NUL);
  EXPECT_FAILS(DutSocketCreateClientTcp("127.0.0.1", 0), -1, SMALL);
  EXPECT_FAILS(DutSocketCreateClientTcp(too_long.c_str(), 80), -1, LARGE);
  EXPECT_FAILS(DutSocketCreateServerBcast(-5), -1, SMALL);
  EXPECT_FAILS(DutSocketCreateClientBcast(nullptr, 1, &to), -1, NUL);
  EXPECT_FAILS(DutSocketCreateClientBcast("127.0.0.1", 0, &to), -1, SMALL);
  EXPECT_SOCKET_FAILURE(DutSocketCreateServerLocal("x"), -1, 10047);
  EXPECT_SOCKET_FAILURE(DutSocketCreateServerDecnet("x"), -1, 10043);
  EXPECT_SOCKET_FAILURE(DutSocketCreateClientDecnet("n", "x"), -1, 10043);
  EXPECT_FAILS(DutSocketCreateClientDecnet(nullptr, "x"), 0, NUL);
  EXPECT_FAILS(DutSocketCheck(-1, R, 0.0), 0, SMALL);
  EXPECT_FAILS(DutSocketCheck(s, 2, 0.0), 0, BAD);
  EXPECT_FAILS(DutSocketCheck(s, R, -0.5), 0, SMALL);
  EXPECT_FAILS(DutSocketCheck(s, R, nan), 0, BAD);
  EXPECT_FAILS(DutSocketCheck(s, R, 2147483648.0), 0, LARGE);
  EXPECT_TRUE(DutSocketCheck(s, R, 2147483647.0));  // the longest wait; an unconnected socket is hung up
  EXPECT_SOCKET_FAILURE(DutSocketCheck(closed, R, 1.0), 0, 10009);
  EXPECT_FAILS(DutSocketRecvTimeout(s, nullptr, 8, 0, 1.0, &flag), -1, NUL);
  EXPECT_FAILS(DutSocketRecvTimeout(s, buf, 0, 0, 1.0, &flag), -1, SMALL);
  EXPECT_FAILS(DutSocketRecvTimeout(s, buf, 8, 0, 1e12, &flag), -1, LARGE);
  EXPECT_EQ(flag, 0);
  EXPECT_SOCKET_FAILURE(DutSocketRecvTimeout(closed, buf, 8, 0, -1.0, &flag), -1, 10009);
  EXPECT_SOCKET_FAILURE(DutSocketRecvTimeout(pipe_in, buf, 8, 0, -1.0, &flag), -1, 10038);
  EXPECT_FAILS(DutSocketRecvAll(s, nullptr, 8, 0), -1, NUL);
  EXPECT_FAILS(DutSocketRecvAll(-1, buf, 8, 0), -1, SMALL);
  EXPECT_FAILS(DutSocketRecvAll(s, buf, -8, 0), -1, SMALL);
  EXPECT_SOCKET_FAILURE(DutSocketRecvAll(closed, buf, 8, 0), -1, 10009);
  EXPECT_SOCKET_FAILURE(DutSocketRecvAll(pipe_in, buf, 8, 0), -1, 10038);
  EXPECT_FAILS(DutSocketAccept(-1), -1, SMALL);
  EXPECT_SOCKET_FAILURE(DutSocketAccept(closed), -1, 10009);
  EXPECT_SOCKET_FAILURE(DutSocketAccept(pipe_in), -1, 10038);
  EXPECT_SOCKET_FAILURE(DutSocketAccept(s), -1, 10022);  // not listening
  EXPECT_FAILS(DutSocketGetBlockMode(s, nullptr), 0, NUL);
  EXPECT_FAILS(DutSocketGetBlockMode(-1, &v), 0, SMALL);
  EXPECT_SOCKET_FAILURE(DutSocketGetBlockMode(closed, &v), 0, 10009);
  EXPECT_FAILS(DutSocketSetBlockMode(-1, 1), 0, SMALL);
  EXPECT_FAILS(DutSocketSetBlockMode(s, 2), 0, BAD);
  EXPECT_FAILS(DutSocketGetRecvBufSize(s, nullptr), 0, NUL);
  EXPECT_FAILS(DutSocketSetRecvBufSize(s, -1), 0, SMALL);
  EXPECT_SOCKET_FAILURE(DutSocketGetRecvBufSize(closed, &v), 0, 10009);
  EXPECT_SOCKET_FAILURE(DutSocketSetSendBufSize(pipe_in, 4096), 0, 10038);
  EXPECT_SOCKET_FAILURE(DutWinCloseSocket(closed), -1, 10009);

  // The failed system calls were reported, each with its context.
  const std::string printed = capture.Take();
  for (const char *expected :
       {"decnet: Protocol not supported\n", "select: Bad file descriptor\n",
        "WARNING: DutSocketRecvTimeout: select failed\n", "accept: Socket operation on non-socket\n",
        "ioctlsocket: Bad file descriptor\n", "Internal validation <0 == sys_status> failed, file: utsocket"}) {
    EXPECT_NE(printed.find(expected), std::string::npos) << expected << " in:\n" << printed;
  }
}

}  // namespace
