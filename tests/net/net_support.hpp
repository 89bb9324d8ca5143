// Shared helpers of the socket tests. Every socket here talks to the
// loopback address 127.0.0.1 and nothing else; the node name is forced to
// "localhost" so that the server probe stays on this host too.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "support/env_var.hpp"
#include "support/option_value.hpp"
#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/util.h"

namespace net_test {

using vqtest::EnvVar;
using vqtest::OptionValue;
using vqtest::OutputCapture;

inline const bool kLocalNode = (setenv("VQ_FORCE_NODE_NAME", "localhost", 1), true);

// Closes a descriptor at the end of the scope.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) close(fd_);
  }
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
  operator int() const { return fd_; }

 private:
  int fd_;
};

inline sockaddr_in loopback(int port) {
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = htons(static_cast<std::uint16_t>(port));
  return a;
}

inline int portOf(int s) {
  sockaddr_in a{};
  socklen_t size = sizeof a;
  getsockname(s, reinterpret_cast<sockaddr *>(&a), &size);
  return ntohs(a.sin_port);
}

// A TCP socket bound to 127.0.0.1 on a port the system picks; listening
// when a backlog is given.
inline int plainTcp(int backlog = -1) {
  int s = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a = loopback(0);
  EXPECT_EQ(bind(s, reinterpret_cast<sockaddr *>(&a), sizeof a), 0);
  if (backlog >= 0) {
    EXPECT_EQ(listen(s, backlog), 0);
  }
  return s;
}

inline bool sendAll(int s, const std::string &data) {
  return send(s, data.data(), data.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(data.size());
}

inline bool closeOnExec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

inline double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A connected pair through the library: a server, a client of it and the
// server's side of the connection (taken only when the client connected,
// so that the accept cannot wait for ever).
struct Connection {
  Fd server{DutSocketCreateServerTcp(0)};
  Fd client{server >= 0 ? DutSocketCreateClientTcp("127.0.0.1", portOf(server)) : -1};
  Fd accepted{client >= 0 ? DutSocketAccept(server) : -1};
  bool ok() const { return server >= 0 && client >= 0 && accepted >= 0; }
};

// A failure of a socket call: the result, D_ERR_SOCKET and the socket error.
#define EXPECT_SOCKET_FAILURE(call, result, socket_err)          \
  do {                                                          \
    EXPECT_FAILS(call, result, D_ERR_SOCKET);                   \
    EXPECT_EQ(DutErrNumGetSocket(), (socket_err)) << #call;     \
  } while (0)

}  // namespace net_test
