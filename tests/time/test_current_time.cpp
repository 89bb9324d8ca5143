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
#include "vqutil/thread.h"
#include "vqutil/time.h"

namespace {

using timetest::LocalTime;

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

D_WORD CollectName(D_WORD key, D_WORD, void *names) {
  static_cast<std::set<std::string> *>(names)->insert(reinterpret_cast<const char *>(key));
  return 0;
}

// What the time subsystem holds at load, seen from a process that has used
// none of it. Its first "full" text also fixes the fraction format.
TEST(StateAtLoad, ClocksCountersAndConverters) {
  timetest::RunFresh([] {
    setenv("VQFULLFORMAT", "%s", 1);  // unusable: would read a string from a real
    EXPECT_EQ(DutGetCurrentTime(), 0.0);
    D_TIME_VALUE t{7, 7};
    EXPECT_FAILS(DutGetCurrentTimeStruct(&t), D_FALSE, D_ERR_VAL_TOO_SMALL);
    EXPECT_EQ(t.seconds, 7) << "a failed read leaves the record alone";
    // No time-change callback yet: a lookup answers null without an error.
    EXPECT_FAILS(DutTimeChangeCbLookup(&Record, 0), nullptr, 0);
    EXPECT_EQ(DutCbTypeNumLookup(D_TIME_CHANGE_CB_TYPE), nullptr);
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

    timetest::OutputCapture capture;
    const char *text = nullptr;
    ASSERT_EQ(DutTimeCvtNumToStr(DutTimeCvtLookup("full"), LocalTime(2001, 3, 15, 12, 34, 56.5), &text), D_TRUE);
    EXPECT_STREQ(text, "Thu Mar 15 12:34:56.500 2001") << "the default format stands in";
    EXPECT_NE(capture.Take().find("VQFULLFORMAT"), std::string::npos);
  });
}

// Accepted values are stored (a real split into seconds and microseconds,
// a record as given) before the callbacks run; refused ones change nothing
// and call nobody.
TEST(CurrentTime, SetStoresThenCallsBack) {
  std::vector<Call> calls;
  D_CB *cb = DutTimeChangeCbCreate(&Record, reinterpret_cast<D_WORD>(&calls));
  ASSERT_NE(cb, nullptr);
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
  DutCbDestroy(cb);
}

TEST(TimeChangeCallbacks, TypeRegistrationLookupAndDestroy) {
  std::vector<Call> calls;
  D_WORD arg = reinterpret_cast<D_WORD>(&calls);
  D_CB *cb = DutTimeChangeCbCreate(&Record, arg);
  D_CB_TYPE *type = DutCbTypeNumLookup(D_TIME_CHANGE_CB_TYPE);
  ASSERT_NE(type, nullptr);
  EXPECT_STREQ(type->name, "time_change");
  EXPECT_EQ(type->glob_flag, D_CB_GLOBAL_ONLY);
  EXPECT_EQ(DutTimeChangeCbLookup(&Record, arg), cb);
  EXPECT_FAILS(DutTimeChangeCbLookup(&Record, arg + 1), nullptr, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutTimeChangeCbCreate(&Record, arg), nullptr, D_ERR_ALREADY_EXISTS);
  ASSERT_EQ(DutCbDestroy(cb), D_TRUE);
  ASSERT_EQ(DutSetCurrentTime(2.0), D_TRUE);
  EXPECT_TRUE(calls.empty());
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

// Pinned only while neither field is -1.
TEST(WallTime, PinnedForTests) {
  const double now = static_cast<double>(std::time(nullptr));
  for (D_TIME_VALUE pin : {D_TIME_VALUE{100, 250000}, D_TIME_VALUE{0, 0}, D_TIME_VALUE{5, -1}}) {
    DutSetTestWallTimeStruct(&pin);
    D_TIME_VALUE out{};
    EXPECT_EQ(DutGetWallTimeStruct(&out), D_TRUE);
    if (pin.microseconds == -1) {
      EXPECT_NEAR(DutGetWallTime(), now, 5.0);
      EXPECT_NEAR(out.seconds, now, 5.0);
      EXPECT_TRUE(out.microseconds >= 0 && out.microseconds < 1000000) << out.microseconds;
    } else {
      EXPECT_EQ(DutGetWallTime(), pin.seconds + pin.microseconds / 1e6);
      ExpectTime(out, pin.seconds, pin.microseconds);
    }
  }
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

}  // namespace
