// The current time, its change callbacks, the wall clock with its test pin,
// and time arithmetic.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <ctime>
#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "time_support.hpp"
#include "vqutil/callback.h"
#include "vqutil/error.h"
#include "vqutil/interrupt.h"
#include "vqutil/thread.h"
#include "vqutil/time.h"

namespace {

using timetest::LocalTime;
using timetest::RunFresh;

struct Call {
  void *object;
  D_CB *head;
  D_TIME_VALUE time;
  double real;  // the current time as the callback reads it
};

void Record(void *object, void *data, D_WORD arg) {
  auto *change = static_cast<D_TIME_CHANGE_CB_DATA *>(data);
  reinterpret_cast<std::vector<Call> *>(arg)->push_back({object, change->cb, change->time, DutGetCurrentTime()});
}

// Registers Record for the scope.
struct Recorder {
  std::vector<Call> calls;
  D_CB *cb = DutTimeChangeCbCreate(&Record, reinterpret_cast<D_WORD>(&calls));
  ~Recorder() {
    if (cb != nullptr) DutCbDestroy(cb);
  }
};

void ExpectTime(const D_TIME_VALUE &t, D_INT4 seconds, D_INT4 microseconds) {
  EXPECT_EQ(t.seconds, seconds);
  EXPECT_EQ(t.microseconds, microseconds);
}

D_WORD CollectName(D_WORD key, D_WORD, void *names) {
  static_cast<std::set<std::string> *>(names)->insert(reinterpret_cast<const char *>(key));
  return 0;
}

// What the time subsystem holds at load, seen from a process that has used
// none of it. Its first "full" text also fixes the fraction format.
TEST(StateAtLoad, ClocksCountersAndConverters) {
  RunFresh([] {
    setenv("VQFULLFORMAT", "%s", 1);  // unusable: would read a string from a real
    EXPECT_EQ(DutGetCurrentTime(), 0.0);
    D_TIME_VALUE t{7, 7};
    EXPECT_FAILS(DutGetCurrentTimeStruct(&t), D_FALSE, D_ERR_VAL_TOO_SMALL);
    EXPECT_EQ(t.seconds, 7) << "a failed read leaves the record alone";
    // No time-change callback yet: a lookup answers null without an error.
    EXPECT_FAILS(DutTimeChangeCbLookup(&Record, 0), nullptr, 0);
    EXPECT_EQ(DutCbTypeNumLookup(D_TIME_CHANGE_CB_TYPE), nullptr);
    EXPECT_NEAR(DutGetWallTime(), static_cast<double>(std::time(nullptr)), 5.0) << "not pinned";
    EXPECT_EQ(DutInterruptGet(), 0);
    EXPECT_EQ(DutInterruptGetMax(), 5);

    ASSERT_NE(DutTimeCvtGetCurrent(), nullptr);
    EXPECT_STREQ(DutTimeCvtGetCurrent()->name, "hms");
    std::set<std::string> names;
    EXPECT_EQ(DutTimeCvtTraverse(&CollectName, &names), 0);
    EXPECT_EQ(names, (std::set<std::string>{"full", "hms", "numeric"}));

    // Without a current time the readers take the date from the wall clock.
    D_TIME_VALUE pin{static_cast<D_INT4>(LocalTime(1999, 7, 4, 13, 0, 0)), 0};
    DutSetTestWallTimeStruct(&pin);
    double value = 0;
    ASSERT_EQ(DutTimeCvtStrToNum(DutTimeCvtLookup("full"), "01:02:03", &value), D_TRUE);
    EXPECT_EQ(value, LocalTime(1999, 7, 4, 1, 2, 3));
    ASSERT_EQ(DutTimeCvtStrToNum(DutTimeCvtLookup("hms"), "22:00:00.25", &value), D_TRUE);
    EXPECT_EQ(value, LocalTime(1999, 7, 4, 22, 0, 0.25));

    timetest::OutputCapture capture;
    const char *text = nullptr;
    ASSERT_EQ(DutTimeCvtNumToStr(DutTimeCvtLookup("full"), LocalTime(2001, 3, 15, 12, 34, 56.5), &text), D_TRUE);
    EXPECT_STREQ(text, "Thu Mar 15 12:34:56.500 2001") << "the default format stands in";
    EXPECT_NE(capture.Take().find("VQFULLFORMAT"), std::string::npos);
  });
}

TEST(CurrentTime, SetRealSplitsIntoSecondsAndMicroseconds) {
  struct Case {
    double value;
    D_INT4 seconds, micros;
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
    ExpectTime(t, c.seconds, c.micros);
    EXPECT_EQ(DutGetCurrentTime(), c.value);
  }
}

TEST(CurrentTime, RefusedValuesChangeNothingAndCallNobody) {
  ASSERT_EQ(DutSetCurrentTime(3.25), D_TRUE);
  Recorder recorder;
  ASSERT_NE(recorder.cb, nullptr);
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
    EXPECT_FAILS(DutSetCurrentTime(c.value), D_FALSE, c.error);
  }
  for (const D_TIME_VALUE &bad : {D_TIME_VALUE{-1, 0}, D_TIME_VALUE{0, -1}, D_TIME_VALUE{-1, -1}}) {
    EXPECT_FAILS(DutSetCurrentTimeStruct(&bad), D_FALSE, D_ERR_VAL_TOO_SMALL);
  }
  EXPECT_FAILS(DutSetCurrentTimeStruct(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutGetCurrentTimeStruct(nullptr), D_FALSE, D_ERR_NULL_PTR);

  EXPECT_TRUE(recorder.calls.empty());
  EXPECT_EQ(DutGetCurrentTime(), 3.25);
  D_TIME_VALUE t{};
  ASSERT_EQ(DutGetCurrentTimeStruct(&t), D_TRUE);
  ExpectTime(t, 3, 250000);
}

TEST(TimeChangeCallbacks, RecordCarriesHeadThenNewTime) {
  Recorder recorder;
  ASSERT_NE(recorder.cb, nullptr);
  ASSERT_EQ(DutSetCurrentTime(12.5), D_TRUE);
  D_TIME_VALUE in{40, 123456};
  ASSERT_EQ(DutSetCurrentTimeStruct(&in), D_TRUE);
  D_TIME_VALUE unnormalised{5, 2000000};  // stored as given
  ASSERT_EQ(DutSetCurrentTimeStruct(&unnormalised), D_TRUE);

  // The new value is stored before the callbacks run.
  const struct {
    D_INT4 seconds, microseconds;
    double real;
  } expected[] = {{12, 500000, 12.5}, {40, 123456, 40.123456}, {5, 2000000, 7.0}};
  ASSERT_EQ(recorder.calls.size(), 3u);
  for (int i = 0; i < 3; ++i) {
    const Call &call = recorder.calls[i];
    EXPECT_EQ(call.object, nullptr) << i;
    EXPECT_EQ(call.head, recorder.cb) << i;
    ExpectTime(call.time, expected[i].seconds, expected[i].microseconds);
    EXPECT_DOUBLE_EQ(call.real, expected[i].real) << i;
  }

  // The machinery's head never lands on the stored record.
  D_TIME_VALUE stored{};
  ASSERT_EQ(DutGetCurrentTimeStruct(&stored), D_TRUE);
  ExpectTime(stored, 5, 2000000);
}

TEST(TimeChangeCallbacks, TypeRegistrationLookupAndDestroy) {
  Recorder recorder;
  ASSERT_NE(recorder.cb, nullptr);
  D_CB_TYPE *type = DutCbTypeNumLookup(D_TIME_CHANGE_CB_TYPE);
  ASSERT_NE(type, nullptr);
  EXPECT_STREQ(type->name, "time_change");
  EXPECT_EQ(type->glob_flag, D_CB_GLOBAL_ONLY);

  D_WORD arg = reinterpret_cast<D_WORD>(&recorder.calls);
  EXPECT_EQ(DutTimeChangeCbLookup(&Record, arg), recorder.cb);
  EXPECT_FAILS(DutTimeChangeCbLookup(&Record, arg + 1), nullptr, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutTimeChangeCbCreate(&Record, arg), nullptr, D_ERR_ALREADY_EXISTS);

  // A second callback sees the same change; a destroyed one sees no more.
  std::vector<Call> other;
  D_CB *second = DutTimeChangeCbCreate(&Record, reinterpret_cast<D_WORD>(&other));
  ASSERT_NE(second, nullptr);
  ASSERT_EQ(DutSetCurrentTime(1.0), D_TRUE);
  ASSERT_EQ(DutCbDestroy(second), D_TRUE);
  ASSERT_EQ(DutSetCurrentTime(2.0), D_TRUE);
  EXPECT_EQ(recorder.calls.size(), 2u);
  ASSERT_EQ(other.size(), 1u);
  EXPECT_EQ(other[0].time.seconds, 1);
  EXPECT_EQ(other[0].head, second);

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
  D_TIME_VALUE pin{100, 250000};
  DutSetTestWallTimeStruct(&pin);
  EXPECT_EQ(DutGetWallTime(), 100.25);
  D_TIME_VALUE out{};
  EXPECT_EQ(DutGetWallTimeStruct(&out), D_TRUE);
  ExpectTime(out, 100, 250000);

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
    ExpectTime(out, c.out.seconds, c.out.microseconds);
  }
  D_TIME_VALUE same{1, 600000};
  EXPECT_EQ(DutTimeMultInt(&same, &same, 3), D_TRUE);
  ExpectTime(same, 4, 800000);

  EXPECT_FAILS(DutTimeMultInt(nullptr, &same, 2), D_FALSE, D_ERR_NULL_PTR);
}

TEST(TimeArithmetic, RatioTruncatesTowardZero) {
  struct Case {
    D_TIME_VALUE a, b;
    D_INT4 ratio;
    D_INT4 error;
  };
  constexpr D_INT4 kMax = std::numeric_limits<D_INT4>::max();
  constexpr D_INT4 kMin = std::numeric_limits<D_INT4>::min();
  const Case cases[] = {
      {{10, 0}, {3, 0}, 3, 0},
      {{-10, 0}, {3, 0}, -3, 0},
      {{10, 0}, {-3, 0}, -3, 0},
      {{1, 500000}, {0, 500000}, 3, 0},
      {{0, 999999}, {1, 0}, 0, 0},
      {{2, 999999}, {1, 0}, 2, 0},
      {{0, 0}, {5, 0}, 0, 0},
      {{1, 0}, {0, 0}, 0, D_ERR_VAL_INVALID},
      {{2000000000, 0}, {0, 1}, kMax, D_ERR_VAL_TOO_LARGE},
      {{-2000000000, 0}, {0, 1}, kMin, D_ERR_VAL_TOO_LARGE},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << c.a.seconds << "." << c.a.microseconds << " / " << c.b.seconds);
    EXPECT_FAILS(DutTimeRatio(&c.a, &c.b), c.ratio, c.error);
  }
}

}  // namespace
