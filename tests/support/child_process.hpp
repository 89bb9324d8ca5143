// Runs a test body in a child process, for tests that change process-wide
// state or must see the library as a new process has it; and a forked child
// that talks with its parent, for tests of what two processes share.
#pragma once

#include <gtest/gtest.h>
#ifndef _WIN32
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <utility>

// Coverage runtimes write their counts from exit hooks, one per instrumented
// module, which _Exit skips. Their entry points are linked only into
// coverage builds, so these references are weak.
#if defined(__ELF__)
extern "C" {
void __gcov_init(void *) __attribute__((weak));
int __llvm_profile_write_file(void) __attribute__((weak));
}
#endif

namespace vqtest {

// Ends a child as _Exit does, except in coverage builds, where it exits
// normally so that what the child ran is measured.
[[noreturn]] inline void ExitChild(int code) {
#if defined(__ELF__)
  if (__gcov_init != nullptr || __llvm_profile_write_file != nullptr) std::exit(code);
#endif
  std::_Exit(code);
}

// Failed expectations of body make the child exit 1, their texts shown on
// its standard error. "fast" forks this process as it is (every change
// dies with the child); "threadsafe" starts the program anew, so the
// library's state at load is observable.
template <class Body>
void RunInChild(const char *style, Body body) {
  GTEST_FLAG_SET(death_test_style, style);
  EXPECT_EXIT(
      {
        body();
        const ::testing::TestResult *result = ::testing::UnitTest::GetInstance()->current_test_info()->result();
        for (int i = 0; i < result->total_part_count(); ++i) {
          const ::testing::TestPartResult &part = result->GetTestPartResult(i);
          std::fprintf(stderr, "%s:%d: %s\n", part.file_name() ? part.file_name() : "", part.line_number(),
                       part.message());
        }
        std::fflush(nullptr);
        ExitChild(::testing::Test::HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
  GTEST_FLAG_SET(death_test_style, "fast");
}

#ifndef _WIN32
// A forked child that exits with what body returns, talking with the
// parent over a socket pair: side 0 is the parent's, side 1 the child's.
// Waits are bounded by their time-outs and by the child's alarm; a child
// still running at the end is killed.
class Child {
 public:
  explicit Child(const std::function<int(Child &)> &body) {
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, fd_) == 0 && (pid_ = ::fork()) == 0) {
      ::alarm(30);
      ExitChild(body(*this));
    }
  }
  ~Child() {
    if (pid_ > 0 && ::kill(pid_, SIGKILL) == 0) ::waitpid(pid_, nullptr, 0);
    for (const int fd : fd_) ::close(fd);
  }
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;
  void say(int side, char what) { [[maybe_unused]] auto n = ::write(fd_[side], &what, 1); }
  // Whether the other side said `what` within the time.
  bool heard(int side, char what, double seconds = 10) {
    pollfd p{fd_[side], POLLIN, 0};
    char byte = 0;
    return ::poll(&p, 1, static_cast<int>(seconds * 1000)) == 1 && ::read(fd_[side], &byte, 1) == 1 && byte == what;
  }
  // The child's exit code; -1 when it did not exit normally.
  int exitCode() {
    int status = 0;
    const bool exited = ::waitpid(std::exchange(pid_, -1), &status, 0) > 0 && WIFEXITED(status);
    return exited ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int fd_[2] = {-1, -1};
};
inline constexpr bool kHaveFork = true;
#else
// No fork: the tests that need a second process skip before making one.
class Child {
 public:
  explicit Child(const std::function<int(Child &)> &) {}
  int exitCode() { return -1; }
};
inline constexpr bool kHaveFork = false;
#endif
#define VQTEST_NEEDS_FORK() \
  if (!vqtest::kHaveFork) GTEST_SKIP() << "needs fork"

}  // namespace vqtest
