// A server thread and client threads at once: the library's per-thread
// error values and its option reads under concurrent socket calls.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "net_support.hpp"
#include "vqutil/thread.h"

using namespace net_test;

namespace {

constexpr int kClients = 3;
constexpr int kRounds = 20;
constexpr int kMessage = 16;

// The server thread accepts each client and echoes fixed-size messages;
// every client expects its own bytes back, then a time-out on silence.
TEST(NetThreads, EchoServerWithConcurrentClients) {
  ASSERT_TRUE(DutInitThreads());  // the library is called from threads it did not start
  Fd server(DutSocketCreateServerTcp(0));
  ASSERT_GE(server, 0);
  const int port = portOf(server);
  std::atomic<int> echoed{0};
  std::thread echo([&] {
    std::vector<std::thread> handlers;
    for (int i = 0; i < kClients; ++i) {
      if (!DutSocketCheck(server, D_SOCKET_CHECK_READ, 10.0)) break;
      int c = DutSocketAccept(server);
      if (c < 0) break;
      handlers.emplace_back([c, &echoed] {
        char message[kMessage];
        while (DutSocketRecvAll(c, message, kMessage, 0) == kMessage) {
          if (!sendAll(c, std::string(message, kMessage))) break;
          ++echoed;
        }
        close(c);
      });
    }
    for (std::thread &t : handlers) t.join();
  });
  std::vector<std::thread> clients;
  std::atomic<int> good{0};
  for (int id = 0; id < kClients; ++id) {
    clients.emplace_back([id, port, &good] {
      Fd s(DutSocketCreateClientTcp("127.0.0.1", port));
      if (s < 0) return;
      int matched = 0;
      for (int round = 0; round < kRounds; ++round) {
        std::string message(kMessage, static_cast<char>('a' + id));
        message[0] = static_cast<char>('0' + round % 10);
        if (!sendAll(s, message)) break;
        char reply[kMessage];
        D_INT4 timed_out = -1;
        if (DutSocketRecvTimeout(s, reply, kMessage, 0, 10.0, &timed_out) == kMessage && timed_out == 0 &&
            std::string(reply, kMessage) == message) {
          ++matched;
        }
      }
      D_INT4 timed_out = 0;
      char extra;
      bool silent = DutSocketRecvTimeout(s, &extra, 1, 0, 0.05, &timed_out) == 0 && timed_out == 1 &&
                    DutErrNumGet() == D_ERR_TIMEOUT_REACHED;
      if (matched == kRounds && silent) ++good;
    });
  }
  for (std::thread &t : clients) t.join();
  echo.join();
  EXPECT_EQ(good.load(), kClients);
  EXPECT_EQ(echoed.load(), kClients * kRounds);
}

}  // namespace
