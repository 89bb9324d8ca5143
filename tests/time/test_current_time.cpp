// The current time, its change callbacks, the wall clock with its test pin,
// and time arithmetic.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <limits>
#include <thread>
#include <vector>

#include "time_support.hpp"
#include "vqutil/callback.h"
#include "vqutil/error.h"
#include "vqutil/thread.h"
#include "vqutil/time.h"

namespace {

using timetest::RunFresh;
using timetest::RunInChild;

// The callback data starts with the reserved head and carries the time
// after it, never in its place.
static_assert(offsetof(D_TIME_CHANGE_CB_DATA, cb) == 0);
static_assert(offsetof(D_TIME_CHANGE_CB_DATA, time) >= sizeof(void *));

struct Seen {
  std::vector<D_TIME_VALUE> times;
  std::vector<D_CB *> heads;
  std::vector<void *> objects;
  std::vector<double> reals_in_callback;
};

void Record(void *object, void *data, D_WORD arg) {
  auto *seen = reinterpret_cast<Seen *>(arg);
  auto *change = static_cast<D_TIME_CHANGE_CB_DATA *>(data);
  seen->times.push_back(change->time);
  seen->heads.push_back(change->cb);
  seen->objects.push_back(object);
  seen->reals_in_callback.push_back(DutGetCurrentTime());
}

// Registers Record for the test's lifetime.
class TimeChangeRecorder {
 public:
  TimeChangeRecorder() : cb_(DutTimeChangeCbCreate(&Record, reinterpret_cast<D_WORD>(&seen_))) {}
  ~TimeChangeRecorder() {
    if (cb_ != nullptr) DutCbDestroy(cb_);
  }
  TimeChangeRecorder(const TimeChangeRecorder &) = delete;
  TimeChangeRecorder &operator=(const TimeChangeRecorder &) = delete;
  D_CB *cb() const { return cb_; }
  Seen &seen() { return seen_; }

 private:
  Seen seen_;
  D_CB *cb_;
};

TEST(CurrentTime, StateAtLoad) {
  RunFresh([] {
    EXPECT_EQ(DutGetCurrentTime(), 0.0);
    D_TIME_VALUE t{7, 7};
    DutErrNumSet(0);
    EXPECT_EQ(DutGetCurrentTimeStruct(&t), D_FALSE);
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_SMALL);
    EXPECT_EQ(t.seconds, 7) << "a failed read leaves the record alone";
    // No time-change callback yet: a lookup answers null without an error.
    DutErrNumSet(0);
    EXPECT_EQ(DutTimeChangeCbLookup(&Record, 0), nullptr);
    EXPECT_EQ(DutErrNumGet(), 0);
    EXPECT_EQ(DutCbTypeNumLookup(D_TIME_CHANGE_CB_TYPE), nullptr);
    // Not pinned: the real clock.
    double wall = DutGetWallTime();
    EXPECT_NEAR(wall, static_cast<double>(std::time(nullptr)), 5.0);
  });
}

TEST(CurrentTime, SetRealSplitsIntoSecondsAndMicroseconds) {
  struct Case {
    double value;
    D_INT4 seconds;
    D_INT4 micros;
  };
  const Case cases[] = {
      {12.5, 12, 500000},
      {0.0, 0, 0},
      {0.1, 0, 100000},
      {1.000001, 1, 1},
      {86399.999999, 86399, 999999},
      // A fraction a hair below one carries into the seconds.
      {41.99999999999, 42, 0},
      {2147483647.5, 2147483647, 500000},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.value);
    ASSERT_EQ(DutSetCurrentTime(c.value), D_TRUE);
    D_TIME_VALUE t{-5, -5};
    ASSERT_EQ(DutGetCurrentTimeStruct(&t), D_TRUE);
    EXPECT_EQ(t.seconds, c.seconds);
    EXPECT_EQ(t.microseconds, c.micros);
    EXPECT_EQ(DutGetCurrentTime(), c.value);
  }
}

TEST(CurrentTime, RefusedValuesChangeNothingAndCallNobody) {
  ASSERT_EQ(DutSetCurrentTime(3.25), D_TRUE);
  TimeChangeRecorder recorder;
  ASSERT_NE(recorder.cb(), nullptr);
  struct Case {
    double value;
    D_INT4 error;
  };
  const Case cases[] = {
      {-1.0, D_ERR_VAL_TOO_SMALL},
      {-0.000001, D_ERR_VAL_TOO_SMALL},
      {std::nan(""), D_ERR_VAL_INVALID},
      {2147483648.0, D_ERR_VAL_TOO_LARGE},
      {std::numeric_limits<double>::infinity(), D_ERR_VAL_TOO_LARGE},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.value);
    DutErrNumSet(0);
    EXPECT_EQ(DutSetCurrentTime(c.value), D_FALSE);
    EXPECT_EQ(DutErrNumGet(), c.error);
  }
  D_TIME_VALUE bad[] = {{-1, 0}, {0, -1}, {-1, -1}};
  for (const D_TIME_VALUE &b : bad) {
    DutErrNumSet(0);
    EXPECT_EQ(DutSetCurrentTimeStruct(&b), D_FALSE);
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_SMALL);
  }
  DutErrNumSet(0);
  EXPECT_EQ(DutSetCurrentTimeStruct(nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutGetCurrentTimeStruct(nullptr), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);

  EXPECT_TRUE(recorder.seen().times.empty());
  EXPECT_EQ(DutGetCurrentTime(), 3.25);
  D_TIME_VALUE t{};
  ASSERT_EQ(DutGetCurrentTimeStruct(&t), D_TRUE);
  EXPECT_EQ(t.seconds, 3);
  EXPECT_EQ(t.microseconds, 250000);
}

TEST(CurrentTime, SetRecordKeepsItAsGivenAndDerivesTheReal) {
  D_TIME_VALUE in{5, 2000000};  // not normalised: stored as given
  ASSERT_EQ(DutSetCurrentTimeStruct(&in), D_TRUE);
  EXPECT_DOUBLE_EQ(DutGetCurrentTime(), 7.0);
  D_TIME_VALUE out{};
  ASSERT_EQ(DutGetCurrentTimeStruct(&out), D_TRUE);
  EXPECT_EQ(out.seconds, 5);
  EXPECT_EQ(out.microseconds, 2000000);

  D_TIME_VALUE exact{1000, 1};
  ASSERT_EQ(DutSetCurrentTimeStruct(&exact), D_TRUE);
  EXPECT_DOUBLE_EQ(DutGetCurrentTime(), 1000.000001);
}

TEST(TimeChangeCallbacks, RecordCarriesHeadThenNewTime) {
  TimeChangeRecorder recorder;
  ASSERT_NE(recorder.cb(), nullptr);
  ASSERT_EQ(DutSetCurrentTime(12.5), D_TRUE);
  D_TIME_VALUE in{40, 123456};
  ASSERT_EQ(DutSetCurrentTimeStruct(&in), D_TRUE);

  Seen &seen = recorder.seen();
  ASSERT_EQ(seen.times.size(), 2u);
  EXPECT_EQ(seen.heads[0], recorder.cb());
  EXPECT_EQ(seen.heads[1], recorder.cb());
  EXPECT_EQ(seen.times[0].seconds, 12);
  EXPECT_EQ(seen.times[0].microseconds, 500000);
  EXPECT_EQ(seen.times[1].seconds, 40);
  EXPECT_EQ(seen.times[1].microseconds, 123456);
  // The new value is stored before the callbacks run.
  EXPECT_EQ(seen.reals_in_callback[0], 12.5);
  EXPECT_DOUBLE_EQ(seen.reals_in_callback[1], 40.123456);
  EXPECT_EQ(seen.objects[0], nullptr);

  // The machinery's head never lands on the stored record.
  D_TIME_VALUE stored{};
  ASSERT_EQ(DutGetCurrentTimeStruct(&stored), D_TRUE);
  EXPECT_EQ(stored.seconds, 40);
  EXPECT_EQ(stored.microseconds, 123456);
}

TEST(TimeChangeCallbacks, TypeRegistrationLookupAndDestroy) {
  TimeChangeRecorder recorder;
  ASSERT_NE(recorder.cb(), nullptr);
  D_CB_TYPE *type = DutCbTypeNumLookup(D_TIME_CHANGE_CB_TYPE);
  ASSERT_NE(type, nullptr);
  EXPECT_STREQ(type->name, "time_change");
  EXPECT_EQ(type->glob_flag, D_CB_GLOBAL_ONLY);

  D_WORD arg = reinterpret_cast<D_WORD>(&recorder.seen());
  EXPECT_EQ(DutTimeChangeCbLookup(&Record, arg), recorder.cb());
  DutErrNumSet(0);
  EXPECT_EQ(DutTimeChangeCbLookup(&Record, arg + 1), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);

  DutErrNumSet(0);
  EXPECT_EQ(DutTimeChangeCbCreate(&Record, arg), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);

  // A second callback sees the same change; a destroyed one sees no more.
  Seen other;
  D_CB *second = DutTimeChangeCbCreate(&Record, reinterpret_cast<D_WORD>(&other));
  ASSERT_NE(second, nullptr);
  ASSERT_EQ(DutSetCurrentTime(1.0), D_TRUE);
  ASSERT_EQ(DutCbDestroy(second), D_TRUE);
  ASSERT_EQ(DutSetCurrentTime(2.0), D_TRUE);
  EXPECT_EQ(recorder.seen().times.size(), 2u);
  ASSERT_EQ(other.times.size(), 1u);
  EXPECT_EQ(other.times[0].seconds, 1);
  EXPECT_EQ(other.heads[0], second);
}

TEST(TimeChangeCallbacks, NullFunctionIsFatal) {
  EXPECT_EXIT(
      {
        timetest::PrepareToDie();
        DutTimeChangeCbCreate(nullptr, 0);
      },
      testing::KilledBySignal(SIGABRT), "Assertion <func != NULL> failed");
}

// Callbacks run with the process-wide lock held, while DutGetCurrentTime
// never takes it: a thread started from inside a callback can read the
// real value, but not the record.
std::atomic<bool> g_real_read{false};
std::atomic<bool> g_struct_read{false};
std::atomic<bool> g_struct_read_inside{false};
double g_real_seen = -1.0;
std::thread g_struct_reader;

void ProbeLock(void *, void *, D_WORD) {
  std::thread real_reader([] {
    g_real_seen = DutGetCurrentTime();
    g_real_read = true;
  });
  real_reader.join();  // would never return if the read took the lock
  g_struct_reader = std::thread([] {
    D_TIME_VALUE t{};
    DutGetCurrentTimeStruct(&t);
    g_struct_read = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  g_struct_read_inside = g_struct_read.load();
}

TEST(TimeChangeCallbacks, RunUnderTheProcessLock) {
  RunInChild([] {
    ASSERT_EQ(DutInitThreads(), D_TRUE);
    D_CB *cb = DutTimeChangeCbCreate(&ProbeLock, 0);
    ASSERT_NE(cb, nullptr);
    ASSERT_EQ(DutSetCurrentTime(77.0), D_TRUE);
    g_struct_reader.join();
    EXPECT_TRUE(g_real_read);
    EXPECT_EQ(g_real_seen, 77.0);
    EXPECT_FALSE(g_struct_read_inside) << "the record was read while a callback ran";
    EXPECT_TRUE(g_struct_read);
  });
}

TEST(WallTime, PinnedForTests) {
  D_TIME_VALUE pin{100, 250000};
  DutSetTestWallTimeStruct(&pin);
  EXPECT_EQ(DutGetWallTime(), 100.25);
  D_TIME_VALUE out{};
  EXPECT_EQ(DutGetWallTimeStruct(&out), D_TRUE);
  EXPECT_EQ(out.seconds, 100);
  EXPECT_EQ(out.microseconds, 250000);
  EXPECT_EQ(DutGetWallTime(), 100.25) << "a pin does not move";

  // Pinned only while neither field is -1.
  D_TIME_VALUE half{5, -1};
  DutSetTestWallTimeStruct(&half);
  EXPECT_GT(DutGetWallTime(), 1e9);

  D_TIME_VALUE zero{0, 0};
  DutSetTestWallTimeStruct(&zero);
  EXPECT_EQ(DutGetWallTime(), 0.0);

  D_TIME_VALUE release{-1, -1};
  DutSetTestWallTimeStruct(&release);
  double now = static_cast<double>(std::time(nullptr));
  EXPECT_NEAR(DutGetWallTime(), now, 5.0);
  ASSERT_EQ(DutGetWallTimeStruct(&out), D_TRUE);
  EXPECT_NEAR(out.seconds, now, 5.0);
  EXPECT_GE(out.microseconds, 0);
  EXPECT_LT(out.microseconds, 1000000);
}

TEST(TimeArithmetic, MultiplyCarriesWholeMillions) {
  struct Case {
    D_TIME_VALUE in;
    D_INT4 n;
    D_TIME_VALUE out;
  };
  const Case cases[] = {
      {{1, 600000}, 3, {4, 800000}},
      {{0, 999999}, 1, {0, 999999}},
      {{0, 500000}, 2, {1, 0}},  // exactly one million carries
      {{0, 999999}, 1000, {999, 999000}},
      {{7, 0}, 0, {0, 0}},
      {{2, 300000}, -2, {-4, -600000}},  // negative products stay unnormalised
      {{-3, 0}, 4, {-12, 0}},
      {{0, 1}, 2000000, {2, 0}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << c.in.seconds << "s " << c.in.microseconds << "us x " << c.n);
    D_TIME_VALUE out{-9, -9};
    EXPECT_EQ(DutTimeMultInt(&out, &c.in, c.n), D_TRUE);
    EXPECT_EQ(out.seconds, c.out.seconds);
    EXPECT_EQ(out.microseconds, c.out.microseconds);
  }
  D_TIME_VALUE same{1, 600000};
  EXPECT_EQ(DutTimeMultInt(&same, &same, 3), D_TRUE);
  EXPECT_EQ(same.seconds, 4);
  EXPECT_EQ(same.microseconds, 800000);

  DutErrNumSet(0);
  EXPECT_EQ(DutTimeMultInt(nullptr, &same, 2), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(TimeArithmetic, RatioTruncatesTowardZero) {
  struct Case {
    D_TIME_VALUE a;
    D_TIME_VALUE b;
    D_INT4 ratio;
  };
  const Case cases[] = {
      {{10, 0}, {3, 0}, 3},
      {{-10, 0}, {3, 0}, -3},
      {{10, 0}, {-3, 0}, -3},
      {{1, 500000}, {0, 500000}, 3},
      {{0, 999999}, {1, 0}, 0},
      {{2, 999999}, {1, 0}, 2},
      {{0, 0}, {5, 0}, 0},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(DutTimeRatio(&c.a, &c.b), c.ratio) << c.a.seconds << "." << c.a.microseconds;
  }
  D_TIME_VALUE zero{0, 0};
  D_TIME_VALUE one{1, 0};
  DutErrNumSet(0);
  EXPECT_EQ(DutTimeRatio(&one, &zero), 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);

  D_TIME_VALUE huge{2000000000, 0};
  D_TIME_VALUE tiny{0, 1};
  DutErrNumSet(0);
  EXPECT_EQ(DutTimeRatio(&huge, &tiny), std::numeric_limits<D_INT4>::max());
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_TOO_LARGE);
  D_TIME_VALUE negative_huge{-2000000000, 0};
  EXPECT_EQ(DutTimeRatio(&negative_huge, &tiny), std::numeric_limits<D_INT4>::min());
}

}  // namespace
