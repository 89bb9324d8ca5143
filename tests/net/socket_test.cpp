// TCP and UDP sockets on the loopback address: exchanges, the receive
// loops' ends, server probing and options, failing connects, broadcast,
// readiness on any descriptor number, modes and buffer sizes.
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <chrono>
#include <cstring>
#include <string>
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
  ASSERT_TRUE(sendAll(c.client, "hello server"));
  char buffer[12];
  EXPECT_EQ(DutSocketRecvAll(c.accepted, buffer, sizeof buffer, 0), 12);
  EXPECT_EQ(std::string(buffer, 12), "hello server");
  ASSERT_TRUE(sendAll(c.accepted, "hi client"));
  D_INT4 timed_out = -1;
  EXPECT_EQ(recvTimeout(c.client, 9, 5.0, &timed_out), "hi client");
  EXPECT_EQ(timed_out, 0);
  // Servers and connections stay out of programs the process starts; the
  // client is back in blocking mode after its bounded connect.
  EXPECT_TRUE(closeOnExec(c.server));
  EXPECT_TRUE(closeOnExec(c.accepted));
  D_INT4 blocking = -1;
  EXPECT_TRUE(DutSocketGetBlockMode(c.client, &blocking));
  EXPECT_EQ(blocking, 1);
}

struct RecvCase {
  std::string sent;
  bool peer_closes;
  D_REAL8 timeout;
  D_INT4 timed_out;
};

// Ten bytes asked for each time: the loop ends at the peer's close, at a
// time-out after a partial piece, or when all ten have come in pieces.
TEST(TcpSocket, RecvTimeoutEndsAtCloseTimeOutOrFullLength) {
  const RecvCase cases[] = {
      {"abc", true, 5.0, 0},
      {"", false, 0.2, 1},
      {"abcd", false, 0.2, 1},
      {"", true, -1.0, 0},
      {"0123456789", false, -1.0, 0},
  };
  for (const RecvCase &c : cases) {
    Connection pair;
    ASSERT_TRUE(pair.ok());
    ASSERT_TRUE(sendAll(pair.accepted, c.sent));
    if (c.peer_closes) shutdown(pair.accepted, SHUT_WR);
    D_INT4 timed_out = -1;
    DutErrNumSet(0);
    auto start = Clock::now();
    EXPECT_EQ(recvTimeout(pair.client, 10, c.timeout, &timed_out), c.sent);
    EXPECT_EQ(timed_out, c.timed_out) << c.sent;
    if (c.timed_out == 1) {
      EXPECT_GE(secondsSince(start), c.timeout * 0.95);
      EXPECT_EQ(DutErrNumGet(), D_ERR_TIMEOUT_REACHED);
    }
  }
}

TEST(TcpSocket, RecvAllGathersPiecesUntilFullOrClosed) {
  Connection c;
  ASSERT_TRUE(c.ok());
  ASSERT_TRUE(sendAll(c.accepted, "one"));
  ASSERT_TRUE(sendAll(c.accepted, "two"));
  char buffer[16];
  EXPECT_EQ(DutSocketRecvAll(c.client, buffer, 6, 0), 6);
  EXPECT_EQ(std::string(buffer, 6), "onetwo");
  ASSERT_TRUE(sendAll(c.accepted, "end"));
  shutdown(c.accepted, SHUT_WR);
  EXPECT_EQ(DutSocketRecvAll(c.client, buffer, sizeof buffer, 0), 3);
  EXPECT_EQ(DutSocketRecvAll(c.client, buffer, sizeof buffer, 0), 0);
}

void onAlarm(int) {}

// A signal during the wait: without a pending interrupt the check fails
// with the socket error 10004, with one with D_ERR_INTERRUPTED; the receive
// loop waits on for the time that remained, not a fresh time-out.
TEST(TcpSocket, InterruptedWaits) {
  struct sigaction action{};
  action.sa_handler = onAlarm;  // no SA_RESTART: the wait really ends
  ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
  Connection c;
  ASSERT_TRUE(c.ok());
  const itimerval soon{{0, 0}, {0, 100000}};
  for (D_INT4 pending : {0, 1}) {
    DutInterruptSet(pending);
    OutputCapture capture;
    setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_FALSE(DutSocketCheck(c.client, D_SOCKET_CHECK_READ, 5.0));
    EXPECT_EQ(DutErrNumGet(), pending ? D_ERR_INTERRUPTED : D_ERR_SOCKET);
    EXPECT_EQ(DutErrNumGetSocket(), 10004);
    EXPECT_EQ(capture.Take(), "");
  }
  DutInterruptReset();
  const itimerval late{{0, 0}, {0, 600000}};
  setitimer(ITIMER_REAL, &late, nullptr);
  D_INT4 timed_out = 0;
  auto start = Clock::now();
  EXPECT_EQ(recvTimeout(c.client, 4, 1.0, &timed_out), "");
  double elapsed = secondsSince(start);
  EXPECT_EQ(timed_out, 1);
  EXPECT_GE(elapsed, 0.95);
  EXPECT_LT(elapsed, 1.5);
}

// The probe finds the first server and the second fails before binding:
// the first server sees the probe's connection.
TEST(TcpServer, SecondServerOnAServedPortIsRefused) {
  Fd first(DutSocketCreateServerTcp(0));
  ASSERT_GE(first, 0);
  OutputCapture capture;
  EXPECT_EQ(DutSocketCreateServerTcp(portOf(first)), -1);
  EXPECT_EQ(DutErrNumGet(), D_ERR_SOCKET);
  EXPECT_EQ(DutErrNumGetSocket(), 10048);
  EXPECT_EQ(capture.Take(), "bind: Address already in use\n");
  ASSERT_TRUE(DutSocketSetBlockMode(first, 0));
  Fd probe(DutSocketAccept(first));
  ASSERT_GE(probe, 0);
  char byte;
  EXPECT_EQ(DutSocketRecvAll(probe, &byte, 1, 0), 0);
}

// A port held by a bound socket that does not listen: the probe finds
// nobody, the bind fails, and the error survives the close.
TEST(TcpServer, BindFailureKeepsTheFirstError) {
  Fd holder(plainTcp(std::nullopt));
  OutputCapture capture;
  errno = 12345;
  EXPECT_EQ(DutSocketCreateServerTcp(portOf(holder)), -1);
  EXPECT_EQ(errno, 12345);
  EXPECT_EQ(DutErrNumGet(), D_ERR_SOCKET);
  EXPECT_EQ(DutErrNumGetSocket(), 10048);
  EXPECT_EQ(capture.Take(), "bind: Address already in use\n");
}

// A probe that finds nobody leaves no trace in the caller's error values.
TEST(TcpServer, ProbeOnAFreePortLeavesErrorsAlone) {
  int port;
  {
    Fd spare(plainTcp(std::nullopt));
    port = portOf(spare);
  }
  DutErrNumSetSocket(10050);
  DutErrNumSet(D_ERR_EOF);
  Fd server(DutSocketCreateServerTcp(port));
  ASSERT_GE(server, 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);
  EXPECT_EQ(DutErrNumGetSocket(), 10050);
  EXPECT_EQ(portOf(server), port);
}

struct OptionCase {
  double buffer_size;  // 0 keeps the system's size
  double linger;       // negative: no linger
};

TEST(TcpServer, NewSocketsTakeTheStandardOptions) {
  int system_size = 0;
  {
    Fd probe(socket(AF_INET, SOCK_STREAM, 0));
    D_INT4 size = 0;
    ASSERT_TRUE(DutSocketGetRecvBufSize(probe, &size));
    system_size = size;
  }
  for (OptionCase c : {OptionCase{0, 60}, OptionCase{32768, -1}, OptionCase{16384, 0}}) {
    NumOption size("_socket_buffer_size", c.buffer_size);
    NumOption linger("_socket_linger_time", c.linger);
    Connection pair;
    ASSERT_TRUE(pair.ok());
    EXPECT_EQ(intOption(pair.server, SOL_SOCKET, SO_REUSEADDR), 1);
    for (int s : {pair.server.get(), pair.client.get()}) {
      D_INT4 recv_size = 0, send_size = 0;
      ASSERT_TRUE(DutSocketGetRecvBufSize(s, &recv_size));
      ASSERT_TRUE(DutSocketGetSendBufSize(s, &send_size));
      if (c.buffer_size > 0) {
        EXPECT_EQ(recv_size, c.buffer_size);
        EXPECT_EQ(send_size, c.buffer_size);
      } else {
        EXPECT_EQ(recv_size, system_size);
      }
      struct linger l{};
      socklen_t length = sizeof l;
      ASSERT_EQ(getsockopt(s, SOL_SOCKET, SO_LINGER, &l, &length), 0);
      EXPECT_EQ(l.l_onoff != 0, c.linger >= 0);
      if (c.linger >= 0) {
        EXPECT_EQ(l.l_linger, c.linger);
      }
    }
  }
}

// Nothing listens: a plain connect and a bounded one fail alike.
TEST(TcpClient, RefusedConnectReportsAndCloses) {
  Fd holder(plainTcp(std::nullopt));
  for (double timeout : {0.0, 2.0}) {
    NumOption option("socket_connect_timeout", timeout);
    OutputCapture capture;
    errno = 777;
    EXPECT_EQ(DutSocketCreateClientTcp("127.0.0.1", portOf(holder)), -1);
    EXPECT_EQ(errno, 777);
    EXPECT_EQ(DutErrNumGet(), D_ERR_SOCKET);
    EXPECT_EQ(DutErrNumGetSocket(), 10061);
    EXPECT_EQ(capture.Take(), "connect: Connection refused\n");
  }
}

// A listener whose queue is full lets no further connection complete.
TEST(TcpClient, ConnectTimesOutAgainstAFullBacklog) {
  Fd listener(plainTcp(0));
  std::vector<int> fillers;
  bool full = false;
  for (int i = 0; i < 64 && !full; ++i) {
    int s = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    fillers.push_back(s);
    sockaddr_in a = loopback(portOf(listener));
    connect(s, reinterpret_cast<sockaddr *>(&a), sizeof a);
    pollfd p{s, POLLOUT, 0};
    full = poll(&p, 1, 200) == 0;
  }
  auto closeFillers = [&fillers] {
    for (int s : fillers) close(s);
  };
  if (!full) {
    closeFillers();
    GTEST_SKIP() << "this system completes every connection to a full listener";
  }
  NumOption option("socket_connect_timeout", 0.3);
  OutputCapture capture;
  auto start = Clock::now();
  EXPECT_EQ(DutSocketCreateClientTcp("127.0.0.1", portOf(listener)), -1);
  EXPECT_GE(secondsSince(start), 0.28);
  EXPECT_EQ(DutErrNumGet(), D_ERR_SOCKET);
  EXPECT_EQ(DutErrNumGetSocket(), 10060);
  EXPECT_EQ(capture.Take(), "connect: Connection timed out\n");
  closeFillers();
}

TEST(TcpClient, TranslatedNodeNames) {
  Fd server(DutSocketCreateServerTcp(0));
  ASSERT_GE(server, 0);
  EnvVar peer("peer.invalid", "127.0.0.1");
  for (bool translate : {false, true}) {
    EnvVar flag("TRANSLATE_NODE_NAME", translate ? "1" : nullptr);
    OutputCapture capture;
    Fd client(DutSocketCreateClientTcp("peer.invalid", portOf(server)));
    EXPECT_EQ(client >= 0, translate);
    EXPECT_EQ(capture.Take(), translate ? "" : "WARNING: unknown node peer.invalid\n");
    if (translate) Fd accepted(DutSocketAccept(server));
  }
}

TEST(TcpServer, AcceptOnAnIdleNonBlockingServer) {
  Fd server(DutSocketCreateServerTcp(0));
  ASSERT_GE(server, 0);
  ASSERT_TRUE(DutSocketSetBlockMode(server, 0));
  OutputCapture capture;
  EXPECT_FAILS(DutSocketAccept(server), -1, D_ERR_WOULD_BLOCK);
  EXPECT_FAILS(DutSocketCheck(server, D_SOCKET_CHECK_READ, 0.05), D_FALSE, D_ERR_TIMEOUT_REACHED);
  Fd client(DutSocketCreateClientTcp("127.0.0.1", portOf(server)));
  EXPECT_TRUE(DutSocketCheck(server, D_SOCKET_CHECK_READ, 5.0));
  Fd accepted(DutSocketAccept(server));
  EXPECT_GE(accepted, 0);
  EXPECT_EQ(capture.Take(), "");
}

TEST(UdpBroadcast, ClientReachesServerOnLoopback) {
  Fd server(DutSocketCreateServerBcast(0));
  ASSERT_GE(server, 0);
  EXPECT_TRUE(closeOnExec(server));
  sockaddr_in to{};
  Fd client(DutSocketCreateClientBcast("127.0.0.1", portOf(server), &to));
  ASSERT_GE(client, 0);
  EXPECT_EQ(intOption(client, SOL_SOCKET, SO_BROADCAST), 1);
  EXPECT_EQ(to.sin_family, AF_INET);
  EXPECT_EQ(ntohl(to.sin_addr.s_addr), INADDR_LOOPBACK);
  EXPECT_EQ(ntohs(to.sin_port), portOf(server));
  ASSERT_EQ(sendto(client, "ping", 4, MSG_NOSIGNAL, reinterpret_cast<sockaddr *>(&to), sizeof to), 4);
  D_INT4 timed_out = -1;
  EXPECT_EQ(recvTimeout(server, 4, 5.0, &timed_out), "ping");
}

// The broadcast literal means the own node's network (localhost here).
TEST(UdpBroadcast, DestinationOfTheLiteralAndOfUnknownNodes) {
  sockaddr_in to{};
  Fd own(DutSocketCreateClientBcast("255.255.255.255", 4000, &to));
  ASSERT_GE(own, 0);
  EXPECT_STREQ(inet_ntoa(to.sin_addr), "127.255.255.255");
  EXPECT_EQ(ntohs(to.sin_port), 4000);
  OutputCapture capture;
  EXPECT_EQ(DutSocketCreateClientBcast("nosuch.invalid", 4000, &to), -1);
  EXPECT_EQ(DutErrNumGetSocket(), 10065);
  EXPECT_EQ(capture.Take(), "WARNING: unknown node nosuch.invalid\n");
}

struct UnavailableCase {
  const char *what;
  D_INT4 (*create)();
  D_INT4 socket_error;
  const char *printed;
};

TEST(UnavailableSockets, LocalAndDecnet) {
  const UnavailableCase cases[] = {
      {"server local", [] { return DutSocketCreateServerLocal("x"); }, 10047, ""},
      {"client local", [] { return DutSocketCreateClientLocal("x"); }, 10047, ""},
      {"server decnet", [] { return DutSocketCreateServerDecnet("x"); }, 10043, "decnet: Protocol not supported\n"},
      {"client decnet", [] { return DutSocketCreateClientDecnet("n", "x"); }, 10043,
       "decnet: Protocol not supported\n"},
  };
  for (const UnavailableCase &c : cases) {
    OutputCapture capture;
    EXPECT_FAILS(c.create(), -1, D_ERR_SOCKET);
    EXPECT_EQ(DutErrNumGetSocket(), c.socket_error) << c.what;
    EXPECT_EQ(capture.Take(), c.printed) << c.what;
  }
  EXPECT_FAILS(DutSocketCreateClientDecnet(nullptr, "x"), 0, D_ERR_NULL_PTR);
}

// select cannot watch descriptors from FD_SETSIZE up; the check must.
TEST(SocketCheck, WorksOnDescriptorsBeyondTheSelectLimit) {
  constexpr int kHigh = 1500;
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_cur <= kHigh) {
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 2048);
    if (limit.rlim_cur <= kHigh || setrlimit(RLIMIT_NOFILE, &limit) != 0) {
      GTEST_SKIP() << "cannot open descriptor " << kHigh << " (limit " << limit.rlim_max << ")";
    }
  }
  Connection c;
  ASSERT_TRUE(c.ok());
  ASSERT_EQ(dup2(c.client, kHigh), kHigh);
  Fd high(kHigh);
  EXPECT_FAILS(DutSocketCheck(high, D_SOCKET_CHECK_READ, 0.05), D_FALSE, D_ERR_TIMEOUT_REACHED);
  EXPECT_TRUE(DutSocketCheck(high, D_SOCKET_CHECK_WRITE, 0.0));
  ASSERT_TRUE(sendAll(c.accepted, "x"));
  EXPECT_TRUE(DutSocketCheck(high, D_SOCKET_CHECK_READ, 5.0));
  // Urgent data alone is an exceptional condition, which the check watches.
  Connection urgent;
  ASSERT_TRUE(urgent.ok());
  ASSERT_EQ(dup2(urgent.client, kHigh + 1), kHigh + 1);
  Fd high_urgent(kHigh + 1);
  ASSERT_EQ(send(urgent.accepted, "!", 1, MSG_OOB | MSG_NOSIGNAL), 1);
  EXPECT_TRUE(DutSocketCheck(high_urgent, D_SOCKET_CHECK_READ, 5.0));
}

TEST(SocketModes, BlockModeAndBufferSizes) {
  Fd s(socket(AF_INET, SOCK_STREAM, 0));
  D_INT4 blocking = -1;
  for (D_INT4 mode : {0, 1, 0}) {
    ASSERT_TRUE(DutSocketSetBlockMode(s, mode));
    ASSERT_TRUE(DutSocketGetBlockMode(s, &blocking));
    EXPECT_EQ(blocking, mode);
    EXPECT_EQ((fcntl(s, F_GETFL) & O_NONBLOCK) == 0, mode == 1);
  }
  for (D_INT4 size : {8192, 32768, 65536}) {
    D_INT4 read_back = 0;
    ASSERT_TRUE(DutSocketSetRecvBufSize(s, size));
    ASSERT_TRUE(DutSocketGetRecvBufSize(s, &read_back));
    EXPECT_EQ(read_back, size);
    ASSERT_TRUE(DutSocketSetSendBufSize(s, size));
    ASSERT_TRUE(DutSocketGetSendBufSize(s, &read_back));
    EXPECT_EQ(read_back, size);
  }
}

}  // namespace
