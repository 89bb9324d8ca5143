// The current time, its change callbacks, the wall clock with its test pin,
// time arithmetic, frame pacing against "frame_interval", the verify
// function that picks the current time converter, and the interrupt
// counter with its SIGINT handler.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "time_support.hpp"
#include "vqutil/callback.h"
#include "vqutil/error.h"
#include "vqutil/interrupt.h"
#include "vqutil/option.h"
#include "vqutil/thread.h"
#include "vqutil/time.h"

namespace {

using timetest::OutputCapture;
using Clock = std::chrono::steady_clock;
using timetest::RunInChild;

// What a time-change callback was given, and the current time it read.
struct Call {
  void *object;
  D_CB *head;
  D_TIME_VALUE time;
  double real;
};

void Record(void *object, void *data, D_WORD arg) {
  auto *change = static_cast<D_TIME_CHANGE_CB_DATA *>(data);
  reinterpret_cast<std::vector<Call> *>(arg)->push_back({object, change->cb, change->time, DutGetCurrentTime()});
}

void ExpectTime(const D_TIME_VALUE &t, D_INT4 seconds, D_INT4 microseconds) {
  EXPECT_EQ(t.seconds, seconds);
  EXPECT_EQ(t.microseconds, microseconds);
}

// Accepted values are stored (a real split into seconds and microseconds,
// a record as given) before the callbacks of the global-only type
// "time_change" run; refused ones change nothing and call nobody.
TEST(TimeChangeCallbacks, SetStoresThenCallsBack) {
  std::vector<Call> calls;
  D_WORD arg = reinterpret_cast<D_WORD>(&calls);
  D_CB *cb = DutTimeChangeCbCreate(&Record, arg);
  D_CB_TYPE *type = DutCbTypeNumLookup(D_TIME_CHANGE_CB_TYPE);
  ASSERT_TRUE(cb != nullptr && type != nullptr);
  EXPECT_STREQ(type->name, "time_change");
  EXPECT_EQ(type->glob_flag, D_CB_GLOBAL_ONLY);
  EXPECT_EQ(DutTimeChangeCbLookup(&Record, arg), cb);
  EXPECT_FAILS(DutTimeChangeCbLookup(&Record, arg + 1), nullptr, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutTimeChangeCbCreate(&Record, arg), nullptr, D_ERR_ALREADY_EXISTS);
  const struct {
    double value;
    D_INT4 seconds, micros, error;
  } cases[] = {
      {0.1, 0, 100000, 0},
      {41.99999999999, 42, 0, 0},  // a fraction a hair below one carries
      {2147483647.5, 2147483647, 500000, 0},
      {-0.000001, 2147483647, 500000, D_ERR_VAL_TOO_SMALL},
      {std::nan(""), 2147483647, 500000, D_ERR_VAL_INVALID},
      {2147483648.0, 2147483647, 500000, D_ERR_VAL_TOO_LARGE},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.value);
    EXPECT_FAILS(DutSetCurrentTime(c.value), c.error == 0 ? D_TRUE : D_FALSE, c.error);
    D_TIME_VALUE t{-5, -5};
    ASSERT_EQ(DutGetCurrentTimeStruct(&t), D_TRUE);
    ExpectTime(t, c.seconds, c.micros);
    EXPECT_EQ(DutGetCurrentTime(), c.error == 0 ? c.value : 2147483647.5);
  }
  for (const D_TIME_VALUE &bad : {D_TIME_VALUE{-1, 0}, D_TIME_VALUE{0, -1}}) {
    EXPECT_FAILS(DutSetCurrentTimeStruct(&bad), D_FALSE, D_ERR_VAL_TOO_SMALL);
  }
  EXPECT_FAILS(DutSetCurrentTimeStruct(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutGetCurrentTimeStruct(nullptr), D_FALSE, D_ERR_NULL_PTR);
  D_TIME_VALUE unnormalised{5, 2000000};
  ASSERT_EQ(DutSetCurrentTimeStruct(&unnormalised), D_TRUE);
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_TRUE(calls[0].object == nullptr && calls[0].head == cb && calls[0].real == 0.1);
  ExpectTime(calls[0].time, 0, 100000);
  EXPECT_EQ(calls[3].real, 7.0);
  // The machinery's head never lands on the stored record.
  D_TIME_VALUE stored{};
  ASSERT_EQ(DutGetCurrentTimeStruct(&stored), D_TRUE);
  ExpectTime(stored, 5, 2000000);
  ASSERT_EQ(DutCbDestroy(cb), D_TRUE);
  ASSERT_EQ(DutSetCurrentTime(2.0), D_TRUE);
  EXPECT_EQ(calls.size(), 4u);
  VQTEST_EXPECT_ASSERTION(DutTimeChangeCbCreate(nullptr, 0), "func != NULL");
}

// Callbacks run with the process-wide lock held, while DutGetCurrentTime
// never takes it: a thread started from inside a callback can read the
// real value, but not the record.
std::atomic<bool> g_struct_read{false};
std::atomic<bool> g_struct_read_inside{true};
double g_real_seen = -1.0;
std::thread g_struct_reader;

void ProbeLock(void *, void *, D_WORD) {
  std::thread([] { g_real_seen = DutGetCurrentTime(); }).join();  // hangs if the read took the lock
  g_struct_reader = std::thread([] {
    D_TIME_VALUE t{};
    DutGetCurrentTimeStruct(&t);
    g_struct_read = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  g_struct_read_inside = g_struct_read.load();
}

TEST(TimeChangeCallbacks, RunUnderTheProcessLock) {
  timetest::RunInChild([] {
    ASSERT_EQ(DutInitThreads(), D_TRUE);
    ASSERT_NE(DutTimeChangeCbCreate(&ProbeLock, 0), nullptr);
    ASSERT_EQ(DutSetCurrentTime(77.0), D_TRUE);
    g_struct_reader.join();
    EXPECT_EQ(g_real_seen, 77.0);
    EXPECT_FALSE(g_struct_read_inside) << "the record was read while a callback ran";
    EXPECT_TRUE(g_struct_read);
  });
}

TEST(WallTime, PinnedForTests) {
  D_TIME_VALUE pin{100, 250000}, out{};
  DutSetTestWallTimeStruct(&pin);
  EXPECT_EQ(DutGetWallTime(), 100.25);
  EXPECT_EQ(DutGetWallTimeStruct(&out), D_TRUE);
  ExpectTime(out, 100, 250000);
  pin = {0, 0};
  DutSetTestWallTimeStruct(&pin);
  EXPECT_EQ(DutGetWallTime(), 0.0);
  pin = {5, -1};  // pinned only while neither field is -1
  DutSetTestWallTimeStruct(&pin);
  EXPECT_NEAR(DutGetWallTime(), static_cast<double>(std::time(nullptr)), 5.0);
  EXPECT_EQ(DutGetWallTimeStruct(&out), D_TRUE);
  EXPECT_NEAR(out.seconds, static_cast<double>(std::time(nullptr)), 5.0);
}

TEST(TimeArithmetic, MultiplyCarriesWholeMillionsRatioTruncatesTowardZero) {
  const struct {
    D_TIME_VALUE in;
    D_INT4 n;
    D_TIME_VALUE out;
  } products[] = {
      {{1, 600000}, 3, {4, 800000}},      {{0, 999999}, 1, {0, 999999}},
      {{0, 500000}, 2, {1, 0}},           // exactly one million carries
      {{0, 999999}, 1000, {999, 999000}}, {{2, 300000}, -2, {-4, -600000}},  // negative ones stay unnormalised
  };
  for (const auto &c : products) {
    SCOPED_TRACE(testing::Message() << c.in.seconds << "s " << c.in.microseconds << "us x " << c.n);
    D_TIME_VALUE out = c.in;  // the result may be the operand
    EXPECT_EQ(DutTimeMultInt(&out, &out, c.n), D_TRUE);
    ExpectTime(out, c.out.seconds, c.out.microseconds);
  }
  EXPECT_FAILS(DutTimeMultInt(nullptr, &products[0].in, 2), D_FALSE, D_ERR_NULL_PTR);

  const struct {
    D_TIME_VALUE a, b;
    D_INT4 ratio, error;
  } ratios[] = {
      {{-10, 0}, {3, 0}, -3, 0}, {{1, 500000}, {0, 500000}, 3, 0}, {{2, 999999}, {1, 0}, 2, 0},
      {{1, 0}, {0, 0}, 0, D_ERR_VAL_INVALID},
      {{2000000000, 0}, {0, 1}, std::numeric_limits<D_INT4>::max(), D_ERR_VAL_TOO_LARGE},
      {{-2000000000, 0}, {0, 1}, std::numeric_limits<D_INT4>::min(), D_ERR_VAL_TOO_LARGE},
  };
  for (const auto &c : ratios) {
    SCOPED_TRACE(testing::Message() << c.a.seconds << "." << c.a.microseconds << " / " << c.b.seconds);
    EXPECT_FAILS(DutTimeRatio(&c.a, &c.b), c.ratio, c.error);
  }
  EXPECT_FAILS(DutTimeRatio(nullptr, &ratios[0].b), 0, D_ERR_NULL_PTR);
}

void PinWall(D_INT4 seconds, D_INT4 microseconds) {
  D_TIME_VALUE pin{seconds, microseconds};
  DutSetTestWallTimeStruct(&pin);
}

// "frame_interval" set to 0.1 s; made here (numeric, as the standard option
// set defines it) when the set in use does not have it yet.
class FramePacing : public testing::Test {
 protected:
  void SetUp() override {
    option_ = DutOptionLookup("frame_interval");
    if (option_ == nullptr) option_ = DutOptionCreate("frame_interval", D_OPT_TYPE_NUMERIC);
    ASSERT_NE(option_, nullptr);
    ASSERT_EQ(DutOptionSetNum(option_, 0.1), D_TRUE);
    DutFrameReset();
  }
  void TearDown() override {
    DutOptionSetNum(option_, 0.0);
    DutFrameReset();
    PinWall(-1, -1);
  }
  D_OPTION *option_ = nullptr;
};

TEST_F(FramePacing, LateFramesWarnEarlyOnesSleepOutTheRest) {
  EXPECT_FAILS(DutFrameCheck(2), D_FALSE, D_ERR_VAL_INVALID);
  EXPECT_FAILS(DutFrameCheck(-1), D_FALSE, D_ERR_VAL_INVALID);
  OutputCapture capture;
  PinWall(100, 0);
  EXPECT_EQ(DutFrameCheck(1), D_TRUE) << "the first check only notes the time";
  PinWall(100, 300000);  // the frame took 0.3 s of a 0.1 s interval; a late frame never sleeps
  EXPECT_FAILS(DutFrameCheck(1), D_FALSE, D_ERR_TIMEOUT_REACHED);
  EXPECT_EQ(capture.Take(), "WARNING: Unable to keep up with frame interval by 0.2 seconds.\n");
  // The next frame is measured from the late one.
  PinWall(100, 350000);
  EXPECT_EQ(DutFrameCheck(0), D_TRUE);
  PinWall(100, 390000);
  auto start = Clock::now();
  EXPECT_EQ(DutFrameCheck(1), D_TRUE);
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(55)) << "0.06 s were left of the interval";
  // The last frame is the wall time after the sleep (still the pin).
  PinWall(100, 500000);
  EXPECT_EQ(DutFrameCheck(0), D_FALSE);
  EXPECT_EQ(capture.Take(), "WARNING: Unable to keep up with frame interval by 0.01 seconds.\n");

  // After a reset the check is a first one; without an interval nothing is late.
  DutFrameReset();
  PinWall(600, 0);
  EXPECT_EQ(DutFrameCheck(0), D_TRUE);
  ASSERT_EQ(DutOptionSetNum(option_, 0.0), D_TRUE);
  PinWall(5000, 0);
  EXPECT_EQ(DutFrameCheck(1), D_TRUE);
  EXPECT_EQ(capture.Take(), "");
}

TEST_F(FramePacing, MissingOptionIsFatal) {
  VQTEST_EXPECT_ASSERTION(
      {
        DutOptionDestroy(DutOptionLookup("frame_interval"));
        DutFrameReset();
        DutFrameCheck(0);
      },
      "D_NULL != utFrameInterval");
}

// The verify function of "time_format": the named converter becomes
// current; an unknown name is refused with a warning and changes nothing.
TEST(TimeFormatCheck, NamedConverterBecomesCurrent) {
  D_OPTION *option = DutOptionCreate("test_time_format", D_OPT_TYPE_ENUM);
  DutOptionSetVerifyFunc(option, DutTimeFormatCheck, nullptr);
  EXPECT_EQ(DutOptionSetEnum(option, "NUMERIC"), D_TRUE);
  EXPECT_EQ(DutTimeCvtGetCurrent(), DutTimeCvtLookup("numeric"));
  OutputCapture capture;
  EXPECT_FAILS(DutOptionSetEnum(option, "sundial"), D_FALSE, D_ERR_DOESNT_EXIST);
  EXPECT_EQ(capture.Take(), "WARNING: Time converter <sundial> does not exist.\n");
  EXPECT_EQ(DutTimeCvtGetCurrent(), DutTimeCvtLookup("numeric"));
  EXPECT_STREQ(DutOptionValToStr(option), "NUMERIC");
}

// Counting goes on past the limit when called directly; the limit from
// the environment is announced.
TEST(InterruptCounter, CountingAndTheLimitFromTheEnvironment) {
  RunInChild([] {
    DutInterruptSet(4);
    DutSigintHandler(SIGINT);
    DutInterruptIncr();
    EXPECT_EQ(DutInterruptGet(), 6);
    setenv("VQ_INTERRUPT_MAX", "2", 1);
    OutputCapture capture;
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
