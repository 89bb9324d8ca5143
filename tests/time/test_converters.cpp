// Time converters: the registry, the current converter, and the three
// built-ins ("full" with its date rules, "hms", "numeric"); the text of
// "full", checked against its definition computed with the runtime
// directly: ctime_r of the whole seconds, the fraction as printf prints it
// less its first character after the clock, no newline (rounding of the
// fraction, precisions, long and negative years, changes of TZ, days with
// daylight-saving changes, threads).
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "time_support.hpp"
#include "vqutil/error.h"
#include "vqutil/strutil.h"
#include "vqutil/thread.h"
#include "vqutil/time.h"

namespace {

using timetest::LocalTime;
using timetest::RunInChild;

constexpr double kUntouched = -12345.0;

// Reads text with the named converter; what it printed goes to *printed.
bool Read(const char *cvt, const std::string &text, double *value, std::string *printed = nullptr) {
  timetest::OutputCapture capture;
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

// Collects the names; stops (with 77) at "stop".
D_WORD CollectNames(D_WORD key, D_WORD value, void *arg) {
  EXPECT_STREQ(reinterpret_cast<const char *>(key), reinterpret_cast<const D_TIME_CVT *>(value)->name);
  static_cast<std::set<std::string> *>(arg)->insert(reinterpret_cast<const char *>(key));
  return std::strcmp(reinterpret_cast<const char *>(key), "stop") == 0 ? 77 : 0;
}

TEST_F(Converters, LifeOfAConverterOfOurOwn) {
  // Names ignore case: the built-in "hms" is taken, without an error number.
  EXPECT_FAILS(DutTimeCvtCreate("HMS", &FixedNumToStr, &DoublingStrToNum, nullptr), nullptr, 0);
  EXPECT_FAILS(DutTimeCvtCreate(nullptr, &FixedNumToStr, &DoublingStrToNum, nullptr), nullptr, D_ERR_NULL_PTR);
  EXPECT_FAILS(DutTimeCvtDestroy(nullptr), D_FALSE, D_ERR_NULL_PTR);
  D_TIME_CVT *mine = DutTimeCvtCreate("MyClock", &FixedNumToStr, &DoublingStrToNum, &CountCleanup);
  ASSERT_NE(mine, nullptr);
  EXPECT_STREQ(mine->name, "myclock");
  EXPECT_EQ(DutTimeCvtLookup("MYCLOCK"), mine);
  std::set<std::string> names;
  EXPECT_FAILS(DutTimeCvtTraverse(&CollectNames, &names), 0, D_ERR_END_OF_TRAVERSAL);
  EXPECT_EQ(names, (std::set<std::string>{"full", "hms", "numeric", "myclock"}));
  D_TIME_CVT *stop = DutTimeCvtCreate("stop", &FixedNumToStr, &DoublingStrToNum, nullptr);
  EXPECT_EQ(DutTimeCvtTraverse(&CollectNames, &names), 77);
  EXPECT_EQ(DutTimeCvtDestroy(stop), D_TRUE);

  // Current: the process-wide calls go through it, failures show as unknown.
  ASSERT_EQ(DutTimeCvtSetCurrent(mine), D_TRUE);
  EXPECT_EQ(DutTimeCvtGetCurrent(), mine);
  EXPECT_STREQ(DutTimeNumToStr(5.0), "fixed");
  double value = 0;
  EXPECT_EQ(DutTimeStrToNum("4", &value), D_TRUE);
  EXPECT_EQ(value, 8.0);
  char buffer[64];
  EXPECT_STREQ(DutTimeToString(-5.0, buffer), "<UNKNOWN>");
  EXPECT_FAILS(DutTimeToString(5.0, nullptr), nullptr, D_ERR_NULL_PTR);
  // The current converter cannot go: no action, no error number.
  g_cleanups = 0;
  EXPECT_FAILS(DutTimeCvtDestroy(mine), D_FALSE, 0);
  ASSERT_EQ(DutTimeCvtSetCurrent(DutTimeCvtLookup("hms")), D_TRUE);
  EXPECT_EQ(DutTimeCvtDestroy(mine), D_TRUE);
  EXPECT_EQ(g_cleanups, 1);
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
      // 1900 is refused before its leap rule matters: the format ends at 1970.
      {"full", "Feb 29 12:00:00 1900", "utTimeCvtFullStrToNum: 1900 is not a valid year."},
      {"full", "Jan 5 12:00:00 1969", "utTimeCvtFullStrToNum: 1969 is not a valid year."},
      {"full", "Jan 5 12:00:00 2021", "utTimeCvtFullStrToNum: 2021 is not a valid year."},
      {"full", "Jan 5 12:00:00 2001.5", "utTimeCvtFullStrToNum: 2001.5 is not a valid year."},
      {"full", "Feb 29 12:00:00 1999", "utTimeCvtFullStrToNum: 29 is not a valid day of the month."},
      {"full", "Nov 31 12:00:00 2001", "utTimeCvtFullStrToNum: 31 is not a valid day of the month."},
      {"full", "Jan 0 12:00:00 2001", "utTimeCvtFullStrToNum: 0 is not a valid day of the month."},
      {"full", "Jan 1.5 12:00:00 2001", "utTimeCvtFullStrToNum: 1.5 is not a valid day of the month."},
      {"full", "12:00:00 2001", "utTimeCvtFullStrToNum: year not allowed when month and day ommitted."},
      {"full", "Jan 5 12:00:00 2001 2002", "utTimeCvtFullStrToNum: found extra tokens after year."},
      {"full", "sept 5 12:00:00", "utTimeCvtFullStrToNum: sept is not a valid month."},
      {"full", "24:00:00", "utTimeCvtFullStrToNum: 24 is not a valid hour."},
      {"full", "1.5:00:00", "utTimeCvtFullStrToNum: 1.5 is not a valid hour."},
      {"hms", "12:60:00", "utTimeCvtHmsStrToNum: 60 is not a valid minute."},
      {"hms", "12:0.5:00", "utTimeCvtHmsStrToNum: 0.5 is not a valid minute."},
      {"hms", "10:00:60.5", "utTimeCvtHmsStrToNum: 60.5 is not a valid second."},
      {"hms", "10:30:15 2001", "utTimeCvtHmsToNum: found extra tokens after second."},
      {"full", "jan 5 12:00:00 -5", nullptr},  // lexical errors; month names belong to "full" only
      {"hms", "Jan 5 10:00:00", nullptr},
  };
  for (const auto &c : cases) {
    double value = 0;
    std::string printed;
    EXPECT_FALSE(Read(c.cvt, c.text, &value, &printed)) << c.text;
    EXPECT_EQ(value, kUntouched) << c.text;
    if (c.warning != nullptr) {
      EXPECT_EQ(printed, std::string("WARNING: ") + c.warning + "\n") << c.text;
    } else {
      EXPECT_TRUE(printed.rfind("ERROR: Expected: ", 0) == 0 && printed.find("\nFile: ") != std::string::npos)
          << printed;
    }
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
  EXPECT_TRUE(Read("numeric", "  -42.5xyz", &value));
  EXPECT_EQ(value, -42.5);
  EXPECT_FALSE(Read("numeric", "abc", &value));
  EXPECT_EQ(value, kUntouched);
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
    timetest::RunFresh([format] {
      setenv("VQFULLFORMAT", format, 1);
      const int digits = format[1] == 's' ? 3 : format[2] - '0';
      timetest::OutputCapture capture;
      for (double f : {0.0, 0.004, 0.05, 0.25, 0.45, 0.5, 0.625, 0.9996, 0.99999}) {
        for (double t : {984659696.0 + f, -1000.0 - f}) ASSERT_TRUE(Same(t, digits));
      }
      EXPECT_EQ(capture.Take().find("VQFULLFORMAT") != std::string::npos, digits == 3);
    });
  }
}

TEST(FullText, ChangesOfTimeZoneReachTheNextText) {
  RunInChild([] {
    const double t = 1000000000.25;  // 2001-09-09 01:46:40 UTC
    auto zone = [](const char *tz) {
      tz != nullptr ? setenv("TZ", tz, 1) : unsetenv("TZ");
      tzset();
    };
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
    // Unset: the system's zone. A value longer than any zone name still converts.
    zone(nullptr);
    for (double d : {360.0, 420.0}) Same(t + d);
    std::string long_zone = "UTC0" + std::string(300, 'X');
    zone(long_zone.c_str());
    for (double d : {60.0, 120.0}) Same(t + d);
    // A TZ that spells out its own rules may change and change back within
    // a day (here from 02:00 to 05:00 on 1 March 2021), which the day's
    // midnight and last second do not show: no day is kept under it.
    zone("AAA5BBB,J60/2,J60/5");
    for (double x = 1614556800.0 - 86400; x < 1614556800.0 + 2 * 86400; x += 599.75) ASSERT_TRUE(Same(x));
  });
}

TEST(FullText, ThreadsConvertingDifferentDays) {
  RunInChild([] {
    setenv("TZ", "Europe/Berlin", 1);
    tzset();
    ASSERT_EQ(DutInitThreads(), D_TRUE);
    ASSERT_EQ(DutTimeCvtSetCurrent(DutTimeCvtLookup("full")), D_TRUE);
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
    for (int i = 0; i < 4; ++i) EXPECT_EQ(mismatches[i], 0) << "thread " << i;
  });
}

}  // namespace
