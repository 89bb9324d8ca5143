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

using timetest::RunFresh;
using timetest::RunInChild;

TEST(InterruptCounter, GetSetIncrReset) {
  DutInterruptReset();
  EXPECT_EQ(DutInterruptGet(), 0);
  DutInterruptIncr();
  DutInterruptIncr();
  EXPECT_EQ(DutInterruptGet(), 2);
  DutInterruptSet(41);
  DutInterruptIncr();
  EXPECT_EQ(DutInterruptGet(), 42);
  DutInterruptSet(-3);
  EXPECT_EQ(DutInterruptGet(), -3);
  DutInterruptReset();
  EXPECT_EQ(DutInterruptGet(), 0);
}

TEST(InterruptCounter, DefaultLimitAtLoad) {
  RunFresh([] {
    EXPECT_EQ(DutInterruptGet(), 0);
    EXPECT_EQ(DutInterruptGetMax(), 5);
  });
}

TEST(InterruptCounter, HandlerCountsUpToTheLimit) {
  RunInChild([] {
    unsetenv("VQ_INTERRUPT_MAX");
    ASSERT_EQ(DutInterruptInit(), D_TRUE);
    DutInterruptReset();
    for (int i = 1; i <= 5; ++i) {
      std::raise(SIGINT);
      EXPECT_EQ(DutInterruptGet(), i);
    }
    // A reset gives the process five more.
    DutInterruptReset();
    for (int i = 0; i < 5; ++i) std::raise(SIGINT);
    EXPECT_EQ(DutInterruptGet(), 5);
  });
}

TEST(InterruptCounter, SixthUnclearedInterruptAborts) {
  EXPECT_EXIT(
      {
        unsetenv("VQ_INTERRUPT_MAX");
        DutInterruptInit();
        DutInterruptReset();
        for (int i = 0; i < 6; ++i) std::raise(SIGINT);
        std::_Exit(0);
      },
      testing::KilledBySignal(SIGABRT), "");
}

TEST(InterruptCounter, HandlerCalledDirectlyChecksTheLimitToo) {
  EXPECT_EXIT(
      {
        DutInterruptSet(5);
        DutSigintHandler(SIGINT);
        std::_Exit(0);
      },
      testing::KilledBySignal(SIGABRT), "");
  RunInChild([] {
    DutInterruptSet(4);
    DutSigintHandler(SIGINT);
    EXPECT_EQ(DutInterruptGet(), 5);
  });
}

TEST(InterruptCounter, EnvironmentSetsTheLimit) {
  RunInChild([] {
    setenv("VQ_INTERRUPT_MAX", "2", 1);
    timetest::OutputCapture capture;
    ASSERT_EQ(DutInterruptInit(), D_TRUE);
    EXPECT_EQ(capture.Take(), "utInterruptMax = 2\n");
    EXPECT_EQ(DutInterruptGetMax(), 2);
  });
  EXPECT_EXIT(
      {
        setenv("VQ_INTERRUPT_MAX", "2", 1);
        DutInterruptInit();
        DutInterruptReset();
        std::raise(SIGINT);
        std::raise(SIGINT);
        if (DutInterruptGet() != 2) std::_Exit(3);
        std::raise(SIGINT);
        std::_Exit(0);
      },
      testing::KilledBySignal(SIGABRT), "");
  // Without the variable nothing is printed.
  RunInChild([] {
    unsetenv("VQ_INTERRUPT_MAX");
    timetest::OutputCapture capture;
    ASSERT_EQ(DutInterruptInit(), D_TRUE);
    EXPECT_EQ(capture.Take(), "");
  });
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
      if (!done) {
        char c = 'x';
        (void)!write(fds[1], &c, 1);
      }
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
