// The interrupt counter and the SIGINT handler: counting, the limit that
// ends the process, VQ_INTERRUPT_MAX, and reads interrupted by the key.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

#include "time_support.hpp"
#include "vqutil/interrupt.h"

namespace {

using timetest::RunInChild;

TEST(InterruptCounter, CountingAndTheLimitFromTheEnvironment) {
  RunInChild([] {
    DutInterruptSet(-3);
    DutInterruptIncr();
    EXPECT_EQ(DutInterruptGet(), -2);
    DutInterruptReset();
    EXPECT_EQ(DutInterruptGet(), 0);
    // Called directly, the handler counts and survives up to the limit.
    DutInterruptSet(4);
    DutSigintHandler(SIGINT);
    EXPECT_EQ(DutInterruptGet(), 5);

    unsetenv("VQ_INTERRUPT_MAX");
    timetest::OutputCapture capture;
    ASSERT_EQ(DutInterruptInit(), D_TRUE);
    EXPECT_EQ(capture.Take(), "") << "nothing printed without the variable";
    setenv("VQ_INTERRUPT_MAX", "2", 1);
    ASSERT_EQ(DutInterruptInit(), D_TRUE);
    EXPECT_EQ(capture.Take(), "utInterruptMax = 2\n");
    EXPECT_EQ(DutInterruptGetMax(), 2);
  });
}

// The handler stays installed after each delivery; a reset gives the
// process the limit's worth again, and the one past the limit aborts. A
// miscount exits with status 3, so it cannot pass for the abort.
TEST(InterruptCounter, InterruptPastTheLimitAborts) {
  for (const char *max : {"", "2"}) {
    SCOPED_TRACE(max);
    EXPECT_EXIT(
        {
          *max != '\0' ? setenv("VQ_INTERRUPT_MAX", max, 1) : unsetenv("VQ_INTERRUPT_MAX");
          if (DutInterruptInit() != D_TRUE) std::_Exit(4);
          const int limit = *max != '\0' ? 2 : 5;
          for (int round = 0; round < 2; ++round) {
            DutInterruptReset();
            for (int i = 1; i <= limit; ++i) {
              std::raise(SIGINT);
              if (DutInterruptGet() != i) std::_Exit(3);
            }
          }
          std::raise(SIGINT);
          std::_Exit(0);
        },
        testing::KilledBySignal(SIGABRT), "");
  }
}

// The key must cut a blocking read short, so that a command loop notices
// it: the handler is installed without restarting interrupted calls.
TEST(InterruptCounter, BlockingReadReturnsOnInterrupt) {
  RunInChild([] {
    ASSERT_EQ(DutInterruptInit(), D_TRUE);
    DutInterruptReset();
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pthread_t reader = pthread_self();
    std::atomic<bool> done{false};
    std::thread sender([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      pthread_kill(reader, SIGINT);
      // Should the read have resumed, unblock it so the test fails instead
      // of hanging.
      for (int i = 0; i < 50 && !done; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
      if (!done) (void)!write(fds[1], "x", 1);
    });
    char c = 0;
    ssize_t got = read(fds[0], &c, 1);
    int saved_errno = errno;
    done = true;
    sender.join();
    EXPECT_EQ(got, -1);
    EXPECT_EQ(saved_errno, EINTR);
    EXPECT_EQ(DutInterruptGet(), 1);
    close(fds[0]);
    close(fds[1]);
  });
}

}  // namespace
