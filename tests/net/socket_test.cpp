// TCP and UDP sockets on the loopback address: exchanges, the receive
// loops' ends, server probing and options, failing connects, broadcast,
// readiness on any descriptor number, modes and buffer sizes.
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <string>
#include <tuple>
#include <vector>

#include "net_support.hpp"
#include "vqutil/interrupt.h"

using namespace net_test;
using Clock = std::chrono::steady_clock;

namespace {

std::string recvTimeout(int s, D_INT4 length, D_REAL8 timeout, D_INT4 *timed_out) {
  std::string buffer(static_cast<std::size_t>(length), '\0');
  D_INT4 n = DutSocketRecvTimeout(s, buffer.data(), length, 0, timeout, timed_out);
  buffer.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
  return buffer;
}

TEST(TcpSocket, ExchangeInBothDirections) {
  Connection c;
  ASSERT_TRUE(c.ok());
  char buffer[16];
  ASSERT_TRUE(sendAll(c.client, "hello") && sendAll(c.client, " server"));
  EXPECT_EQ(DutSocketRecvAll(c.accepted, buffer, 12, 0), 12);
  EXPECT_EQ(std::string(buffer, 12), "hello server");
  // The client is back in blocking mode after its bounded connect.
  D_INT4 blocking = -1;
  ASSERT_TRUE(DutSocketGetBlockMode(c.client, &blocking));
  EXPECT_EQ(blocking, 1);
  ASSERT_TRUE(DutSocketSetBlockMode(c.client, 0) && DutSocketGetBlockMode(c.client, &blocking));
  EXPECT_EQ(blocking, 0);
  EXPECT_SOCKET_FAILURE(DutSocketRecvAll(c.client, buffer, 1, 0), -1, 10035);
  ASSERT_TRUE(DutSocketSetBlockMode(c.client, 1));
  ASSERT_TRUE(sendAll(c.accepted, "end"));
  shutdown(c.accepted, SHUT_WR);
  EXPECT_EQ(DutSocketRecvAll(c.client, buffer, sizeof buffer, 0), 3);
  // Servers and connections stay out of programs the process starts.
  EXPECT_TRUE(closeOnExec(c.server) && closeOnExec(c.accepted));
}

// Ten bytes asked for each time: the loop ends at the peer's close, at a
// time-out (after a partial piece or none), or when all ten have come.
TEST(TcpSocket, RecvTimeoutEndsAtCloseTimeOutOrFullLength) {
  const std::tuple<std::string, bool, D_REAL8, D_INT4> cases[] = {
      {"abc", true, 5.0, 0},  {"", false, 0.2, 1},  {"abcd", false, 0.2, 1},
      {"", true, -1.0, 0},    {"0123456789", false, -1.0, 0},
  };
  for (const auto &[sent, peer_closes, timeout, expect_timed_out] : cases) {
    Connection c;
    ASSERT_TRUE(c.ok());
    ASSERT_TRUE(sendAll(c.accepted, sent));
    if (peer_closes) shutdown(c.accepted, SHUT_WR);
    D_INT4 timed_out = -1;
    DutErrNumSet(0);
    auto start = Clock::now();
    EXPECT_EQ(recvTimeout(c.client, 10, timeout, &timed_out), sent);
    EXPECT_EQ(timed_out, expect_timed_out) << sent;
    if (expect_timed_out == 1) {
      EXPECT_GE(secondsSince(start), timeout * 0.95);
      EXPECT_EQ(DutErrNumGet(), D_ERR_TIMEOUT_REACHED);
    }
  }
}

// A signal during the wait: without a pending interrupt the check fails
// with the socket error 10004, with one with D_ERR_INTERRUPTED; the receive
// loop waits on for the time that remained, not a fresh time-out.
TEST(TcpSocket, InterruptedWaits) {
  struct sigaction action{};
  action.sa_handler = [](int) {};  // no SA_RESTART: the wait really ends
  ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
  Connection c;
  ASSERT_TRUE(c.ok());
  for (D_INT4 pending : {0, 1}) {
    DutInterruptSet(pending);
    OutputCapture capture;
    const itimerval soon{{0, 0}, {0, 100000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_FALSE(DutSocketCheck(c.client, D_SOCKET_CHECK_READ, 5.0));
    EXPECT_EQ(DutErrNumGet(), pending ? D_ERR_INTERRUPTED : D_ERR_SOCKET);
    EXPECT_EQ(DutErrNumGetSocket(), 10004);
    EXPECT_EQ(capture.Take(), "");
  }
  DutInterruptReset();
  // A fresh time-out after the signal would end at 3.5 s.
  const itimerval late{{0, 0}, {1, 500000}};
  setitimer(ITIMER_REAL, &late, nullptr);
  D_INT4 timed_out = 0;
  auto start = Clock::now();
  EXPECT_EQ(recvTimeout(c.client, 4, 2.0, &timed_out), "");
  EXPECT_EQ(timed_out, 1);
  EXPECT_GE(secondsSince(start), 1.95);
  EXPECT_LT(secondsSince(start), 3.0);
}

// A served port: the probe finds the server and the call fails before
// binding (the first server sees the probe's connection). A port held by
// a socket that does not listen: the probe finds nobody and the bind
// fails; the error survives the close, errno is untouched.
TEST(TcpServer, ServedAndHeldPortsAreRefused) {
  Fd first(DutSocketCreateServerTcp(0));
  Fd holder(plainTcp());
  for (int port : {portOf(first), portOf(holder)}) {
    OutputCapture capture;
    errno = 12345;
    EXPECT_SOCKET_FAILURE(DutSocketCreateServerTcp(port), -1, 10048);
    EXPECT_EQ(errno, 12345);
    EXPECT_EQ(capture.Take(), "bind: Address already in use\n");
  }
  ASSERT_TRUE(DutSocketSetBlockMode(first, 0));
  Fd probe(DutSocketAccept(first));
  char byte;
  EXPECT_EQ(DutSocketRecvAll(probe, &byte, 1, 0), 0);
  EXPECT_FAILS(DutSocketAccept(first), -1, D_ERR_WOULD_BLOCK);
}

// A probe that finds nobody leaves no trace in the caller's error values.
TEST(TcpServer, ProbeOnAFreePortLeavesErrorsAlone) {
  const int port = portOf(Fd(plainTcp()));
  DutErrNumSetSocket(10050);
  DutErrNumSet(D_ERR_EOF);
  Fd server(DutSocketCreateServerTcp(port));
  EXPECT_EQ(std::tuple(portOf(server), DutErrNumGet(), DutErrNumGetSocket()), std::tuple(port, D_ERR_EOF, 10050));
}

TEST(TcpServer, NewSocketsTakeTheStandardOptionsAndBufferSizes) {
  D_INT4 system_size = 0;
  Fd fresh(socket(AF_INET, SOCK_STREAM, 0));
  ASSERT_TRUE(DutSocketGetRecvBufSize(fresh, &system_size));
  for (auto [buffer_size, linger_time] : {std::pair{0, 60}, std::pair{32768, -1}, std::pair{16384, 0}}) {
    OptionValue size("_socket_buffer_size", buffer_size);
    OptionValue linger_option("_socket_linger_time", linger_time);
    Connection c;
    ASSERT_TRUE(c.ok());
    int reuse = 0;
    socklen_t length = sizeof reuse;
    EXPECT_EQ(getsockopt(c.server, SOL_SOCKET, SO_REUSEADDR, &reuse, &length), 0);
    EXPECT_EQ(reuse, 1);
    for (int s : {int(c.server), int(c.client)}) {
      D_INT4 recv_size = 0, send_size = 0;
      ASSERT_TRUE(DutSocketGetRecvBufSize(s, &recv_size) && DutSocketGetSendBufSize(s, &send_size));
      EXPECT_EQ(recv_size, buffer_size > 0 ? buffer_size : system_size);
      if (buffer_size > 0) {
        EXPECT_EQ(send_size, buffer_size);
      }
      struct linger l{};
      length = sizeof l;
      ASSERT_EQ(getsockopt(s, SOL_SOCKET, SO_LINGER, &l, &length), 0);
      EXPECT_EQ(l.l_onoff != 0, linger_time >= 0);
      EXPECT_EQ(l.l_linger, linger_time >= 0 ? linger_time : 0);
      // Sizes set later read back as set, whatever the option gave.
      ASSERT_TRUE(DutSocketSetRecvBufSize(s, 8192) && DutSocketGetRecvBufSize(s, &recv_size));
      ASSERT_TRUE(DutSocketSetSendBufSize(s, 65536) && DutSocketGetSendBufSize(s, &send_size));
      EXPECT_EQ(recv_size, 8192);
      EXPECT_EQ(send_size, 65536);
    }
  }
}

// Nothing listens: a plain connect and a bounded one fail alike.
TEST(TcpClient, RefusedConnectReportsAndCloses) {
  Fd holder(plainTcp());
  for (double timeout : {0.0, 2.0}) {
    OptionValue option("socket_connect_timeout", timeout);
    OutputCapture capture;
    EXPECT_SOCKET_FAILURE(DutSocketCreateClientTcp("127.0.0.1", portOf(holder)), -1, 10061);
    EXPECT_EQ(capture.Take(), "connect: Connection refused\n");
  }
}

// A listener whose queue is full lets no further connection complete.
TEST(TcpClient, ConnectTimesOutAgainstAFullBacklog) {
  Fd listener(plainTcp(0));
  std::vector<int> fillers;
  bool full = false;
  sockaddr_in a = loopback(portOf(listener));
  while (!full && fillers.size() < 64) {
    fillers.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
    connect(fillers.back(), reinterpret_cast<sockaddr *>(&a), sizeof a);
    pollfd p{fillers.back(), POLLOUT, 0};
    full = poll(&p, 1, 200) == 0;
  }
  if (full) {
    OptionValue option("socket_connect_timeout", 0.3);
    OutputCapture capture;
    auto start = Clock::now();
    EXPECT_SOCKET_FAILURE(DutSocketCreateClientTcp("127.0.0.1", portOf(listener)), -1, 10060);
    EXPECT_GE(secondsSince(start), 0.28);
    EXPECT_EQ(capture.Take(), "connect: Connection timed out\n");
  }
  for (int s : fillers) close(s);
  if (!full) GTEST_SKIP() << "this system completes every connection to a full listener";
}

TEST(TcpClient, TranslatedNodeNames) {
  Fd server(DutSocketCreateServerTcp(0));
  EnvVar peer("peer.invalid", "127.0.0.1");
  for (bool translate : {false, true}) {
    EnvVar flag("TRANSLATE_NODE_NAME", translate ? "1" : nullptr);
    OutputCapture capture;
    Fd client(DutSocketCreateClientTcp("peer.invalid", portOf(server)));
    EXPECT_EQ(client >= 0, translate);
    EXPECT_EQ(capture.Take(), translate ? "" : "WARNING: unknown node peer.invalid\n");
  }
}

// Loopback only: the literal's own-network destination is checked, not used.
TEST(UdpBroadcast, ClientReachesServerAndTheLiteralMeansTheOwnNetwork) {
  Fd server(DutSocketCreateServerBcast(0));
  EXPECT_TRUE(closeOnExec(server));
  sockaddr_in to{};
  Fd client(DutSocketCreateClientBcast("127.0.0.1", portOf(server), &to));
  int broadcast = 0;
  socklen_t length = sizeof broadcast;
  EXPECT_EQ(getsockopt(client, SOL_SOCKET, SO_BROADCAST, &broadcast, &length), 0);
  EXPECT_EQ(broadcast, 1);
  EXPECT_EQ(to.sin_family, AF_INET);
  EXPECT_EQ(ntohl(to.sin_addr.s_addr), INADDR_LOOPBACK);
  EXPECT_EQ(ntohs(to.sin_port), portOf(server));
  ASSERT_EQ(sendto(client, "ping", 4, MSG_NOSIGNAL, reinterpret_cast<sockaddr *>(&to), sizeof to), 4);
  D_INT4 timed_out = -1;
  EXPECT_EQ(recvTimeout(server, 4, 5.0, &timed_out), "ping");
  Fd own(DutSocketCreateClientBcast("255.255.255.255", 4000, &to));
  EXPECT_STREQ(inet_ntoa(to.sin_addr), "127.255.255.255");
  EXPECT_EQ(ntohs(to.sin_port), 4000);
  OutputCapture capture;
  EXPECT_SOCKET_FAILURE(DutSocketCreateClientBcast("nosuch.invalid", 4000, &to), -1, 10065);
  EXPECT_EQ(capture.Take(), "WARNING: unknown node nosuch.invalid\n");
}

// select cannot watch descriptors from FD_SETSIZE up; the check must.
TEST(SocketCheck, WorksOnDescriptorsBeyondTheSelectLimit) {
  constexpr int kHigh = 1500;
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_cur <= kHigh + 1) {
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 2048);
    if (limit.rlim_cur <= kHigh + 1 || setrlimit(RLIMIT_NOFILE, &limit) != 0) {
      GTEST_SKIP() << "cannot open descriptor " << kHigh + 1 << " (hard limit " << limit.rlim_max << ")";
    }
  }
  Connection c, urgent;
  ASSERT_TRUE(c.ok() && urgent.ok());
  Fd high(dup2(c.client, kHigh)), high_urgent(dup2(urgent.client, kHigh + 1));
  EXPECT_FAILS(DutSocketCheck(high, D_SOCKET_CHECK_READ, 0.05), D_FALSE, D_ERR_TIMEOUT_REACHED);
  EXPECT_TRUE(DutSocketCheck(high, D_SOCKET_CHECK_WRITE, 0.0));
  ASSERT_TRUE(sendAll(c.accepted, "x"));
  EXPECT_TRUE(DutSocketCheck(high, D_SOCKET_CHECK_READ, 5.0));
  // Urgent data alone is an exceptional condition, which the check watches.
  ASSERT_EQ(send(urgent.accepted, "!", 1, MSG_OOB | MSG_NOSIGNAL), 1);
  EXPECT_TRUE(DutSocketCheck(high_urgent, D_SOCKET_CHECK_READ, 5.0));
}

}  // namespace
