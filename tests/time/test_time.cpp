// Time: the current time, its change callbacks, the wall clock with its
// test pin, time arithmetic, frame pacing against "frame_interval", the
// interrupt counter with its SIGINT handler; the time converters (the
// registry, the current converter, the built-ins "full" with its date
// rules, "hms" and "numeric"); the text of "full", checked against its
// definition computed with the runtime directly: ctime_r of the whole
// seconds, the fraction as printf prints it less its first character after
// the clock, no newline.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.hpp"
#include "support/output_capture.hpp"
#include "vqutil/callback.h"
#include "vqutil/error.h"
#include "vqutil/interrupt.h"
#include "vqutil/option.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"
#include "vqutil/time.h"

namespace {

using vqtest::OutputCapture;
using vqtest::RunInChild;
using Clock = std::chrono::steady_clock;

// Seconds since the epoch of a local calendar time, daylight saving as the
// date has it; a fraction of the second is added to the result.
inline double LocalTime(int year, int month, int day, int hour, int minute, double second) {
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = static_cast<int>(second);
  tm.tm_isdst = -1;
  return static_cast<double>(std::mktime(&tm)) + (second - tm.tm_sec);
}


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
  RunInChild("threadsafe", [] {  // as loaded: 0.0, the record never set
    D_TIME_VALUE t{};
    EXPECT_TRUE(DutGetCurrentTime() == 0.0 && !DutGetCurrentTimeStruct(&t) && DutErrNumGet() == D_ERR_VAL_TOO_SMALL);
  });
  std::vector<Call> calls;
  D_WORD arg = reinterpret_cast<D_WORD>(&calls);
  D_CB *cb = DutTimeChangeCbCreate(&Record, arg);
  D_CB_TYPE *type = DutCbTypeNumLookup(D_TIME_CHANGE_CB_TYPE);
  ASSERT_TRUE(cb != nullptr && type != nullptr);
  EXPECT_TRUE(std::string(type->name) == "time_change" && type->glob_flag == D_CB_GLOBAL_ONLY);
  EXPECT_EQ(DutTimeChangeCbLookup(&Record, arg), cb);
  EXPECT_FAILS(DutTimeChangeCbLookup(&Record, arg + 1), nullptr, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutTimeChangeCbCreate(&Record, arg), nullptr, D_ERR_ALREADY_EXISTS);
  const struct {
    double value;
    D_INT4 seconds, micros, error;
  } cases[] = {
      {0.1, 0, 100000, 0},
      {41.99999999999, 41, 1000000, 0},  // a fraction a hair below one is not carried
      {2147483647.5, 2147483647, 500000, 0},
      {-0.000001, 2147483647, 500000, D_ERR_VAL_TOO_SMALL},
      {std::nan(""), 2147483647, 500000, D_ERR_VAL_INVALID},
      {2147483648.0, 2147483647, 500000, D_ERR_VAL_TOO_LARGE},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.value);
    EXPECT_FAILS(DutSetCurrentTime(c.value), c.error == 0 ? D_TRUE : D_FALSE, c.error);
    D_TIME_VALUE t{-5, -5};
    EXPECT_TRUE(DutGetCurrentTimeStruct(&t) && DutGetCurrentTime() == (c.error == 0 ? c.value : 2147483647.5));
    ExpectTime(t, c.seconds, c.micros);
  }
  for (const D_TIME_VALUE &bad : {D_TIME_VALUE{-1, 0}, D_TIME_VALUE{0, -1}}) {
    EXPECT_FAILS(DutSetCurrentTimeStruct(&bad), D_FALSE, D_ERR_VAL_TOO_SMALL);
  }
  EXPECT_FAILS(DutSetCurrentTimeStruct(nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutGetCurrentTimeStruct(nullptr), D_FALSE, D_ERR_NULL_PTR);
  D_TIME_VALUE unnormalised{5, 2000000}, stored{};
  ASSERT_EQ(DutSetCurrentTimeStruct(&unnormalised), D_TRUE);
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_TRUE(calls[0].object == nullptr && calls[0].head == cb && calls[0].real == 0.1 && calls[3].real == 7.0);
  ExpectTime(calls[0].time, 0, 100000);
  // The machinery's head never lands on the stored record.
  ASSERT_EQ(DutGetCurrentTimeStruct(&stored), D_TRUE);
  ExpectTime(stored, 5, 2000000);
  ASSERT_TRUE(DutCbDestroy(cb) && DutSetCurrentTime(2.0));
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
  RunInChild("fast", [] {
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
  EXPECT_TRUE(DutGetWallTimeStruct(&out) && std::abs(out.seconds - std::time(nullptr)) < 5);
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
    D_TIME_VALUE out = c.in;  // the result may be the operand
    EXPECT_EQ(DutTimeMultInt(&out, &out, c.n), D_TRUE);
    EXPECT_TRUE(out.seconds == c.out.seconds && out.microseconds == c.out.microseconds) << c.in.seconds << " x " << c.n;
  }
  EXPECT_FAILS(DutTimeMultInt(nullptr, &products[0].in, 2), D_FALSE, D_ERR_NULL_PTR);

  const struct {
    D_TIME_VALUE a, b;
    D_INT4 ratio, error;
  } ratios[] = {
      {{-10, 0}, {3, 0}, -3, 0}, {{2, 999999}, {1, 0}, 2, 0}, {{1, 0}, {0, 0}, 0, D_ERR_VAL_INVALID},
      {{2000000000, 0}, {0, 1}, std::numeric_limits<D_INT4>::max(), D_ERR_VAL_TOO_LARGE},
      {{-2000000000, 0}, {0, 1}, std::numeric_limits<D_INT4>::min(), D_ERR_VAL_TOO_LARGE},
  };
  for (const auto &c : ratios) EXPECT_FAILS(DutTimeRatio(&c.a, &c.b), c.ratio, c.error);
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

  // Without an interval nothing is late.
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
#ifdef _WIN32
  GTEST_SKIP() << "no signal can be sent to one thread";
#endif
  RunInChild("fast", [] {
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
    EXPECT_TRUE(got == -1 && saved_errno == EINTR && DutInterruptGet() == 1) << got << " " << saved_errno;
  });
}

constexpr double kUntouched = -12345.0;

// Reads text with the named converter; what it printed goes to *printed.
bool Read(const char *cvt, const std::string &text, double *value, std::string *printed = nullptr) {
  OutputCapture capture;
  *value = kUntouched;
  bool ok = DutTimeCvtStrToNum(DutTimeCvtLookup(cvt), text.c_str(), value) == D_TRUE;
  if (printed != nullptr) *printed = capture.Take();
  return ok;
}

// Readers take the date they are not given from the current time; pin it
// to a known day (a Thursday) for every test.
class Converters : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(DutSetCurrentTime(LocalTime(2001, 3, 15, 8, 0, 0)), D_TRUE); }
  void TearDown() override { DutTimeCvtSetCurrent(DutTimeCvtLookup("hms")); }
};

// Prints "fixed" for times from 0 on and fails below; reads twice the number.
D_BOOL FixedNumToStr(D_REAL8 time, const char **str_return) {
  *str_return = time >= 0 ? "fixed" : "partial";
  return time >= 0 ? D_TRUE : D_FALSE;
}
D_BOOL DoublingStrToNum(const char *str, D_REAL8 *time_return) {
  *time_return = 2.0 * std::atof(str);
  return D_TRUE;
}
int g_cleanups = 0;
void CountCleanup() { ++g_cleanups; }

// Collects the names, each its converter's.
D_WORD CollectNames(D_WORD key, D_WORD value, void *arg) {
  EXPECT_STREQ(reinterpret_cast<const char *>(key), reinterpret_cast<const D_TIME_CVT *>(value)->name);
  static_cast<std::set<std::string> *>(arg)->insert(reinterpret_cast<const char *>(key));
  return 0;
}

TEST_F(Converters, LifeOfAConverterOfOurOwn) {
  // Names ignore case: the built-in "hms" is taken, without an error number.
  EXPECT_FAILS(DutTimeCvtCreate("HMS", &FixedNumToStr, &DoublingStrToNum, nullptr), nullptr, 0);
  EXPECT_FAILS(DutTimeCvtCreate(nullptr, &FixedNumToStr, &DoublingStrToNum, nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutTimeCvtDestroy(nullptr), D_FALSE, D_ERR_NULL_PTR);
  D_TIME_CVT *mine = DutTimeCvtCreate("MyClock", &FixedNumToStr, &DoublingStrToNum, &CountCleanup);
  ASSERT_TRUE(mine != nullptr && DutTimeCvtLookup("MYCLOCK") == mine);
  EXPECT_STREQ(mine->name, "myclock");
  // The walk is the hash table's, whose early stop its own tests pin.
  std::set<std::string> names;
  EXPECT_FAILS(DutTimeCvtTraverse(&CollectNames, &names), 0, D_ERR_END_OF_TRAVERSAL);
  EXPECT_EQ(names, (std::set<std::string>{"full", "hms", "numeric", "myclock"}));

  // Current: the process-wide calls go through it, failures show as unknown.
  ASSERT_TRUE(DutTimeCvtSetCurrent(mine) && DutTimeCvtGetCurrent() == mine);
  EXPECT_STREQ(DutTimeNumToStr(5.0), "fixed");
  double value = 0;
  EXPECT_TRUE(DutTimeStrToNum("4", &value) && value == 8.0);
  char buffer[64];
  EXPECT_STREQ(DutTimeToString(-5.0, buffer), "<UNKNOWN>");
  EXPECT_FAILS(DutTimeToString(5.0, nullptr), nullptr, D_ERR_NULL_PTR);
  // The current converter cannot go: no action, no error number.
  g_cleanups = 0;
  EXPECT_FAILS(DutTimeCvtDestroy(mine), D_FALSE, 0);
  ASSERT_EQ(DutTimeCvtSetCurrent(DutTimeCvtLookup("hms")), D_TRUE);
  EXPECT_TRUE(DutTimeCvtDestroy(mine) && g_cleanups == 1);
  EXPECT_FAILS(DutTimeCvtLookup("myclock"), nullptr, D_ERR_DOESNT_EXIST);
}

TEST(TimeCvtRegistry, NullArgumentsAreFatal) {
  VQTEST_EXPECT_ASSERTION(DutTimeCvtCreate("x", nullptr, &DoublingStrToNum, nullptr), "num_to_str_func != NULL");
  VQTEST_EXPECT_ASSERTION(DutTimeCvtCreate("x", &FixedNumToStr, nullptr, nullptr), "str_to_num_func != NULL");
  VQTEST_EXPECT_ASSERTION(DutTimeCvtLookup(nullptr), "name != NULL");
  VQTEST_EXPECT_ASSERTION(DutTimeCvtSetCurrent(nullptr), "time_cvtr != NULL");
}

// Random dates written with either form of the month's name in any case,
// with a four- or two-digit year (00-69 are 2000-2069), without one (the
// base year), or as a clock alone (the base day, for "hms" too); each reads
// as mktime has it, and "full" reads its own text less the weekday.
TEST_F(Converters, FullAndHmsReadRandomDatesAndFullItsOwnText) {
  const char *months[] = {"January", "February", "March",     "April",   "May",      "June",
                          "July",    "August",   "September", "October", "November", "December"};
  const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  std::mt19937 random(7);
  for (int i = 0; i < 400; ++i) {
    const int form = static_cast<int>(random() % 4);
    int year = form >= 2 ? 2001 : 1970 + static_cast<int>(random() % 100);
    int month = form == 3 ? 2 : static_cast<int>(random() % 12);
    int day = form == 3 ? 15 : 1 + static_cast<int>(random() % (days[month] + (month == 1 && year % 4 == 0)));
    int hour = static_cast<int>(random() % 24), minute = static_cast<int>(random() % 60);
    double second = static_cast<int>(random() % 60) + (random() % 4) * 0.25;
    std::string text = std::to_string(hour) + ":" + std::to_string(minute) + ":" + DutRealToStr(second);
    if (form != 3) {
      std::string name = random() % 2 ? months[month] : std::string(months[month], 3);
      for (char &c : name) c = static_cast<char>(random() % 2 ? std::toupper(c) : std::tolower(c));
      text = name + " " + std::to_string(day) + " " + text;
    }
    if (form < 2) text += " " + std::to_string(form == 0 && year <= 2020 ? year : year % 100);
    SCOPED_TRACE(text);
    double value = 0, back = 0;
    std::string printed;
    ASSERT_TRUE(Read(form == 3 && i % 2 ? "hms" : "full", text, &value, &printed)) << printed;
    ASSERT_DOUBLE_EQ(value, LocalTime(year, month + 1, day, hour, minute, second));
    if (year > 2020) continue;  // printed in full, a later year does not read back
    const char *own = nullptr;
    ASSERT_EQ(DutTimeCvtNumToStr(DutTimeCvtLookup("full"), value, &own), D_TRUE);
    ASSERT_TRUE(Read("full", own + 4, &back)) << own;
    EXPECT_NEAR(back, value, 1e-6) << own;
  }
}

// A refused reading stores nothing and prints one warning, named after the
// reader; the lexer's own errors print its report instead.
TEST_F(Converters, RefusalsWarnWithTheFieldAndStoreNothing) {
  const struct {
    const char *cvt, *text, *warning;
  } cases[] = {
      {"full", "Jan 5 12:00:00 1969", "utTimeCvtFullStrToNum: 1969 is not a valid year."},
      {"full", "Jan 5 12:00:00 2021", "utTimeCvtFullStrToNum: 2021 is not a valid year."},
      {"full", "Jan 5 12:00:00 2001.5", "utTimeCvtFullStrToNum: 2001.5 is not a valid year."},
      {"full", "Feb 29 12:00:00 1999", "utTimeCvtFullStrToNum: 29 is not a valid day of the month."},
      {"full", "Nov 31 12:00:00 2001", "utTimeCvtFullStrToNum: 31 is not a valid day of the month."},
      {"full", "Jan 1.5 12:00:00 2001", "utTimeCvtFullStrToNum: 1.5 is not a valid day of the month."},
      {"full", "12:00:00 2001", "utTimeCvtFullStrToNum: year not allowed when month and day ommitted."},
      {"full", "Jan 5 12:00:00 2001 2002", "utTimeCvtFullStrToNum: found extra tokens after year."},
      {"full", "sept 5 12:00:00", "utTimeCvtFullStrToNum: sept is not a valid month."},
      {"full", "24:00:00", "utTimeCvtFullStrToNum: 24 is not a valid hour."},
      {"full", "1.5:00:00", "utTimeCvtFullStrToNum: 1.5 is not a valid hour."},
      {"hms", "12:0.5:00", "utTimeCvtHmsStrToNum: 0.5 is not a valid minute."},
      {"hms", "12:60:00", "utTimeCvtHmsStrToNum: 60 is not a valid minute."},
      {"hms", "10:00:60.5", "utTimeCvtHmsStrToNum: 60.5 is not a valid second."},
      {"hms", "10:30:15 2001", "utTimeCvtHmsToNum: found extra tokens after second."},
      {"full", "jan 5 12:00:00 -5", nullptr},  // lexical errors; month names belong to "full" only
      {"hms", "Jan 5 10:00:00", nullptr},
  };
  for (const auto &c : cases) {
    double value = 0;
    std::string printed;
    EXPECT_TRUE(!Read(c.cvt, c.text, &value, &printed) && value == kUntouched) << c.text;
    const std::string expected = c.warning ? std::string("WARNING: ") + c.warning + "\n" : "ERROR: Expected: ";
    EXPECT_EQ(c.warning ? printed : printed.substr(0, expected.size()), expected) << c.text;
    EXPECT_TRUE(c.warning || printed.find("\nFile: ") != std::string::npos) << printed;
  }
  for (const char *cvt : {"full", "hms", "numeric"}) {
    double value = 7;
    EXPECT_FAILS(DutTimeCvtStrToNum(DutTimeCvtLookup(cvt), nullptr, &value), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_EQ(value, 7) << cvt;
  }
}

TEST_F(Converters, HmsAndNumericPrintAndRead) {
  const char *text = nullptr;
  ASSERT_EQ(DutTimeCvtNumToStr(DutTimeCvtLookup("hms"), LocalTime(2001, 3, 15, 9, 8, 7.75), &text), D_TRUE);
  EXPECT_STREQ(text, "09:08:07");
  ASSERT_EQ(DutTimeCvtNumToStr(DutTimeCvtLookup("hms"), std::nan(""), &text), D_FALSE);
  EXPECT_STREQ(text, "error");
  EXPECT_STREQ(DutTimeNumToStr(std::nan("")), "<UNKNOWN>");
  ASSERT_EQ(DutTimeCvtNumToStr(DutTimeCvtLookup("numeric"), -2.25, &text), D_TRUE);
  EXPECT_STREQ(text, DutRealToStr(-2.25));
  double value = 0;
  EXPECT_TRUE(Read("numeric", "  -42.5xyz", &value) && value == -42.5);
  EXPECT_TRUE(!Read("numeric", "abc", &value) && value == kUntouched);
}

std::string FullByDefinition(double t, int digits = 3) {
  double whole = std::trunc(t);
  std::time_t seconds = static_cast<std::time_t>(whole);
  char ctime_text[64];
  if (ctime_r(&seconds, ctime_text) == nullptr) return "error";
  char fraction[64];
  std::snprintf(fraction, sizeof fraction, "%.*f", digits, t - whole);
  std::string text(ctime_text);
  text.pop_back();  // the newline
  return text.substr(0, 19) + (fraction + 1) + text.substr(19);
}

// The converter's text; it must report failure exactly when the text is
// "error".
std::string Full(double t) {
  const char *text = nullptr;
  D_BOOL ok = DutTimeCvtNumToStr(DutTimeCvtLookup("full"), t, &text);
  std::string result = text == nullptr ? std::string("(null)") : std::string(text);
  EXPECT_EQ(ok == D_TRUE, result != "error") << "time " << t << ": " << result;
  return result;
}

// Whether the converter's text of t is its definition.
bool Same(double t, int digits = 3) {
  std::string text = Full(t);
  EXPECT_EQ(text, FullByDefinition(t, digits)) << "time " << t;
  return text == FullByDefinition(t, digits);
}

// Fractions that stress printf's rounding: binary values that are exact ties
// (k/4096: 0.0625 rounds to .062, 0.1875 to .188), decimal near-ties, values
// that round up to 1.000, and the smallest; on times near 0 (every bit of
// the fraction kept), in a date, negative ("-0.xyz", the "-" dropped), and
// at the edges of ctime's years (the last day and second of 9999 UTC, year
// 10000, year 100000 or so, year 1, a negative year), where ctime has no
// text (glibc's has no room for a fifth digit) the converter says "error"
// and a kept day must not reach past that.
TEST(FullText, FractionRoundsAsPrintfDoesInEveryYear) {
  std::vector<double> fractions = {0.0009, 0.0099, 0.0995, 0.9994, 0.9995, 0.99951, 1e-12, 5e-324,
                                   std::nextafter(1.0, 0.0)};
  for (int k = 0; k < 4096; ++k) fractions.push_back(k / 4096.0);
  for (int k = 0; k <= 2000; ++k) fractions.push_back(k * 0.0005);
  for (double base : {0.0, 984659696.0, -1.0, -1e6, 253402214400.0, 253402300799.0, 253402300800.0, 3.1e12,
                      -62135596800.0, -1e12}) {
    for (double f : fractions) ASSERT_TRUE(Same(base < 0 ? base - f : base + f));
    for (double offset : {60.0, 3600.5, 1.0}) ASSERT_TRUE(Same(base + offset));
  }
  EXPECT_EQ(Full(-0.9996).substr(19, 5), "1.000");
  const char *text = nullptr;
  for (double t : {1e15 + 1.0, -1e15 - 1.0, HUGE_VAL, -HUGE_VAL, std::nan("")}) {
    EXPECT_EQ(DutTimeCvtNumToStr(DutTimeCvtLookup("full"), t, &text), D_FALSE) << t;
    EXPECT_STREQ(text, "error");
  }
}

// The first text of a process fixes the format from VQFULLFORMAT. "%.0f"
// prints no point, so its first character is the whole digit and nothing
// of the fraction remains for a positive time; "%s", unusable (it would
// read a string from a real), is reported and the default stands in.
TEST(FullText, PrecisionsFromTheEnvironment) {
  for (const char *format : {"%.0f", "%.2f", "%.4f", "%.6f", "%s"}) {
    SCOPED_TRACE(format);
    RunInChild("threadsafe", [format] {
      setenv("VQFULLFORMAT", format, 1);
      const int digits = format[1] == 's' ? 3 : format[2] - '0';
      OutputCapture capture;
      for (double f : {0.0, 0.004, 0.05, 0.25, 0.45, 0.5, 0.625, 0.9996, 0.99999}) {
        for (double t : {984659696.0 + f, -1000.0 - f}) ASSERT_TRUE(Same(t, digits));
      }
      EXPECT_EQ(capture.Take().find("VQFULLFORMAT") != std::string::npos, digits == 3);
    });
  }
}

TEST(FullText, ChangesOfTimeZoneReachTheNextTextInEveryThread) {
  RunInChild("fast", [] {
    auto zone = [](const char *tz) { setenv("TZ", tz, 1); tzset(); };
    // The Windows runtime's TZ knows neither zone names nor rules of
    // change: there only the threads' part runs, each text against the
    // runtime's own.
#ifndef _WIN32
    const double t = 1000000000.25;  // 2001-09-09 01:46:40 UTC
    // Two conversions in a day: the second comes from the kept day.
    zone("America/New_York");
    for (double d : {0.0, 60.0}) Same(t + d);
    std::string new_york = Full(t + 120);
    zone("Asia/Tokyo");
    Same(t + 120);
    EXPECT_NE(Full(t + 120), new_york);
    // A change the runtime has not yet read when the next texts are made
    // (tzset comes later) must not leave a day of the old zone behind.
    setenv("TZ", "America/New_York", 1);
    Full(t + 240);
    Full(t + 250);
    tzset();
    Same(t + 300);
    EXPECT_EQ(Full(t + 120), new_york);
    // A value longer than any zone name still converts.
    std::string long_zone = "UTC0" + std::string(300, 'X');
    zone(long_zone.c_str());
    for (double d : {60.0, 120.0}) Same(t + d);
    // A TZ that spells out its own rules may change and change back within
    // a day (here from 02:00 to 05:00 on 1 March 2021), which the day's
    // midnight and last second do not show: no day is kept under it.
    zone("AAA5BBB,J60/2,J60/5");
    for (double x = 1614556800.0 - 86400; x < 1614556800.0 + 2 * 86400; x += 599.75) ASSERT_TRUE(Same(x));
#endif
    // Threads converting different days through a change of their zone.
    zone("Europe/Berlin");
    ASSERT_TRUE(DutInitThreads() && DutTimeCvtSetCurrent(DutTimeCvtLookup("full")));
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([i, &mismatches] {
        // Each thread walks its own days through the March change, so the
        // kept day keeps being taken from the others.
        const double start = 1490486400.0 + i * 86400 * 2.5 - 3 * 86400;
        for (int k = 0; k < 3000; ++k) {
          double t = start + k * 97.25;
          char text[64];
          DutTimeToString(t, text);
          if (text != FullByDefinition(t)) ++mismatches[i];
        }
      });
    }
    for (auto &thread : threads) thread.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
  });
}

}  // namespace
