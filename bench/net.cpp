// The socket receive loops against plain system calls, over loopback TCP.
//
// Bulk: a sender thread pushes 64 KiB blocks as fast as the connection
// takes them; each iteration receives one block through DutSocketRecvAll
// and one through a plain recv loop filling the same buffer.
//
// Round trip: an echo thread sends each 64-byte message straight back
// (plain recv and send); each iteration makes one round trip collected
// through DutSocketCheck + DutSocketRecvTimeout and one through poll + a
// recv loop.
//
// The two paths alternate inside every iteration (their order swapped each
// time) on one connection, so that both meet the same load; the counters
// give each path's rate and "ratio", the library's rate over the plain one.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
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

// Wall time and the calling thread's CPU time, in seconds.
struct Times {
  double wall = 0;
  double cpu = 0;
};

Times now() {
  timespec cpu;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu);
  return {std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(),
          static_cast<double>(cpu.tv_sec) + static_cast<double>(cpu.tv_nsec) * 1e-9};
}

void addSpan(Times *total, const Times &from, const Times &to) {
  total->wall += to.wall - from.wall;
  total->cpu += to.cpu - from.cpu;
}

// Runs the two receive paths one after the other, swapping their order
// every time, and adds up each one's times: on a loaded machine both then
// see the same conditions, block by block.
template <typename Library, typename Plain>
void alternate(bool library_first, Library library, Plain plain, Times *library_time, Times *plain_time) {
  Times t0 = now();
  bool ok = library_first ? library() : plain();
  Times t1 = now();
  ok = (library_first ? plain() : library()) && ok;
  Times t2 = now();
  if (!ok) std::abort();
  addSpan(library_first ? library_time : plain_time, t0, t1);
  addSpan(library_first ? plain_time : library_time, t1, t2);
}

// Each path's rate by wall time; "ratio" is the library's rate over the
// plain one (1.0: the same), "cpu_ratio" the same by the receiving
// thread's CPU time, which waiting for the peer does not blur.
void report(benchmark::State &state, const Times &library, const Times &plain, double units, const char *unit) {
  state.counters[std::string("library_") + unit] = units / library.wall;
  state.counters[std::string("plain_") + unit] = units / plain.wall;
  state.counters["ratio"] = plain.wall / library.wall;
  state.counters["cpu_ratio"] = plain.cpu / library.cpu;
}

// Per iteration one 64 KiB block through DutSocketRecvAll and one through
// a plain recv loop.
void BM_Bulk(benchmark::State &state) {
  Peer peer(flood);
  std::vector<char> buffer(kBlock);
  Times library_time, plain_time;
  bool library_first = true;
  for (auto _ : state) {
    alternate(
        library_first, [&] { return DutSocketRecvAll(peer.socket(), buffer.data(), kBlock, 0) == kBlock; },
        [&] { return recvLoop(peer.socket(), buffer.data(), kBlock) == kBlock; }, &library_time, &plain_time);
    library_first = !library_first;
  }
  report(state, library_time, plain_time, static_cast<double>(state.iterations()) * kBlock / 1e6, "MBps");
}

// Per iteration one 64-byte round trip collected through DutSocketCheck +
// DutSocketRecvTimeout and one through poll + a recv loop.
void BM_RoundTrip(benchmark::State &state) {
  Peer peer(echo);
  const int s = peer.socket();
  char message[kMessage] = "ping";
  char reply[kMessage];
  Times library_time, plain_time;
  bool library_first = true;
  for (auto _ : state) {
    alternate(
        library_first,
        [&] {
          D_INT4 timed_out = 0;
          return sendAll(s, message, kMessage) && DutSocketCheck(s, D_SOCKET_CHECK_READ, 5.0) &&
                 DutSocketRecvTimeout(s, reply, kMessage, 0, 5.0, &timed_out) == kMessage;
        },
        [&] {
          pollfd p{s, POLLIN, 0};
          return sendAll(s, message, kMessage) && poll(&p, 1, 5000) == 1 && recvLoop(s, reply, kMessage) == kMessage;
        },
        &library_time, &plain_time);
    library_first = !library_first;
  }
  report(state, library_time, plain_time, static_cast<double>(state.iterations()), "per_s");
}

// 16384 iterations move 1 GiB through each path.
BENCHMARK(BM_Bulk)->Iterations(16384)->UseRealTime()->Repetitions(3);
BENCHMARK(BM_RoundTrip)->UseRealTime()->Repetitions(3);

}  // namespace

BENCHMARK_MAIN();
