// The socket receive loops against plain system calls, over loopback TCP.
//
// Bulk: a sender thread pushes 64 KiB blocks as fast as the connection
// takes them; one iteration receives one 64 KiB block, through
// DutSocketRecvAll or through a plain recv loop that fills the same
// buffer. Bytes are counted, so the rates compare directly.
//
// Round trip: an echo thread sends each 64-byte message straight back
// (plain recv and send); one iteration sends a message and collects the
// echo, either through DutSocketCheck + DutSocketRecvTimeout or through
// poll + a recv loop.
//
// Both sides of each pair run in the same program run, on connections set
// up the same way; run with --benchmark_enable_random_interleaving=true so
// that their repetitions alternate and share the machine's load.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "vqutil/error.h"
#include "vqutil/net.h"

namespace {

constexpr int kBlock = 64 * 1024;
constexpr int kMessage = 64;

bool sendAll(int s, const char *data, size_t size) {
  while (size > 0) {
    ssize_t n = send(s, data, size, MSG_NOSIGNAL);
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

// A plain recv loop: the reference for DutSocketRecvAll.
int recvLoop(int s, char *buffer, int length) {
  int count = 0;
  while (count < length) {
    ssize_t n = recv(s, buffer + count, static_cast<size_t>(length - count), 0);
    if (n <= 0) return n < 0 ? -1 : count;
    count += static_cast<int>(n);
  }
  return count;
}

// A loopback connection through the library with a peer thread on the
// server side; the peer ends when the client side closes.
class Peer {
 public:
  template <typename Body>
  explicit Peer(Body body) {
    int server = DutSocketCreateServerTcp(0);
    sockaddr_in a{};
    socklen_t size = sizeof a;
    getsockname(server, reinterpret_cast<sockaddr *>(&a), &size);
    client_ = DutSocketCreateClientTcp("127.0.0.1", ntohs(a.sin_port));
    int accepted = DutSocketAccept(server);
    close(server);
    if (client_ < 0 || accepted < 0) std::abort();
    thread_ = std::thread([accepted, body] {
      body(accepted);
      close(accepted);
    });
  }
  // Closing with data unread resets the connection, which ends a peer
  // blocked in send as well as one waiting in recv.
  ~Peer() {
    close(client_);
    thread_.join();
  }
  Peer(const Peer &) = delete;
  Peer &operator=(const Peer &) = delete;
  int socket() const { return client_; }

 private:
  int client_ = -1;
  std::thread thread_;
};

void flood(int s) {
  std::vector<char> block(kBlock, 'x');
  while (sendAll(s, block.data(), block.size())) {
  }
}

void echo(int s) {
  char message[kMessage];
  while (recvLoop(s, message, kMessage) == kMessage && sendAll(s, message, kMessage)) {
  }
}

template <typename Receive>
void bulk(benchmark::State &state, Receive receive) {
  Peer peer(flood);
  std::vector<char> buffer(kBlock);
  for (auto _ : state) {
    if (receive(peer.socket(), buffer.data(), kBlock) != kBlock) state.SkipWithError("short receive");
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBlock);
}

void BM_BulkRecvAll(benchmark::State &state) {
  bulk(state, [](int s, char *b, int n) { return DutSocketRecvAll(s, b, n, 0); });
}

void BM_BulkPlainRecv(benchmark::State &state) { bulk(state, recvLoop); }

template <typename Receive>
void roundTrip(benchmark::State &state, Receive receive) {
  Peer peer(echo);
  char message[kMessage] = "ping";
  char reply[kMessage];
  for (auto _ : state) {
    if (!sendAll(peer.socket(), message, kMessage) || !receive(peer.socket(), reply)) {
      state.SkipWithError("round trip failed");
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void BM_RoundTripLibrary(benchmark::State &state) {
  roundTrip(state, [](int s, char *reply) {
    D_INT4 timed_out = 0;
    return DutSocketCheck(s, D_SOCKET_CHECK_READ, 5.0) &&
           DutSocketRecvTimeout(s, reply, kMessage, 0, 5.0, &timed_out) == kMessage;
  });
}

void BM_RoundTripPlainPoll(benchmark::State &state) {
  roundTrip(state, [](int s, char *reply) {
    pollfd p{s, POLLIN, 0};
    return poll(&p, 1, 5000) == 1 && recvLoop(s, reply, kMessage) == kMessage;
  });
}

BENCHMARK(BM_BulkRecvAll)->UseRealTime()->Repetitions(3);
BENCHMARK(BM_BulkPlainRecv)->UseRealTime()->Repetitions(3);
BENCHMARK(BM_RoundTripLibrary)->UseRealTime()->Repetitions(3);
BENCHMARK(BM_RoundTripPlainPoll)->UseRealTime()->Repetitions(3);

}  // namespace

BENCHMARK_MAIN();
