// Time converters: the registry, the current converter, and the three
// built-ins ("full" with its date rules, "hms", "numeric").
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>
#include <string>

#include "time_support.hpp"
#include "vqutil/error.h"
#include "vqutil/strutil.h"
#include "vqutil/time.h"

namespace {

using timetest::LocalTime;
using timetest::OutputCapture;

constexpr double kUntouched = -12345.0;

// Reads text with cvt; what it printed (warnings) goes to *printed.
bool Read(D_TIME_CVT *cvt, const char *text, double *value, std::string *printed = nullptr) {
  OutputCapture capture;
  *value = kUntouched;
  bool ok = DutTimeCvtStrToNum(cvt, text, value) == D_TRUE;
  if (printed != nullptr) *printed = capture.Take();
  return ok;
}

// Readers take the date they are not given from the current time; pin it
// to a known day (a Thursday) for every test.
class Converters : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(DutSetCurrentTime(LocalTime(2001, 3, 15, 8, 0, 0)), D_TRUE);
    for (D_TIME_CVT *cvt : {full_, hms_, numeric_}) ASSERT_NE(cvt, nullptr);
  }
  void TearDown() override { DutTimeCvtSetCurrent(hms_); }

  D_TIME_CVT *full_ = DutTimeCvtLookup("full");
  D_TIME_CVT *hms_ = DutTimeCvtLookup("hms");
  D_TIME_CVT *numeric_ = DutTimeCvtLookup("numeric");
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
  EXPECT_EQ(g_cleanups, 0);
  ASSERT_EQ(DutTimeCvtSetCurrent(hms_), D_TRUE);
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

// Random dates of the years the format knows, written with either form of
// the month's name in any case and a two- or four-digit year, read back as
// mktime has them; printed by "full", they read back less the weekday.
TEST_F(Converters, FullReadsEveryMonthYearAndItsOwnText) {
  const char *months[] = {"January", "February", "March",     "April",   "May",      "June",
                          "July",    "August",   "September", "October", "November", "December"};
  const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  std::mt19937 random(7);
  for (int i = 0; i < 400; ++i) {
    int month = static_cast<int>(random() % 12), year = 1970 + static_cast<int>(random() % 51);
    bool leap = year % 4 == 0;  // 2000 included
    int day = 1 + static_cast<int>(random() % (days[month] + (month == 1 && leap)));
    int hour = static_cast<int>(random() % 24), minute = static_cast<int>(random() % 60);
    double second = static_cast<int>(random() % 60) + (random() % 4) * 0.25;
    std::string name = random() % 2 ? months[month] : std::string(months[month], 3);
    for (char &c : name) c = random() % 2 ? static_cast<char>(std::toupper(c)) : static_cast<char>(std::tolower(c));
    char text[96];
    std::snprintf(text, sizeof text, "%s %d %d:%d:%g %d", name.c_str(), day, hour, minute, second,
                  random() % 2 ? year : year % 100);
    double value = 0;
    std::string printed;
    ASSERT_TRUE(Read(full_, text, &value, &printed)) << text << ": " << printed;
    ASSERT_DOUBLE_EQ(value, LocalTime(year, month + 1, day, hour, minute, second)) << text;
    const char *own = nullptr;
    ASSERT_EQ(DutTimeCvtNumToStr(full_, value, &own), D_TRUE);
    std::string own_text = own;
    double back = 0;
    ASSERT_TRUE(Read(full_, own_text.c_str() + 4, &back)) << own_text;
    EXPECT_NEAR(back, value, 1e-6) << own_text;
  }
}

TEST_F(Converters, ReadersTakeWhatTheyAreNotGivenFromTheBaseDay) {
  const struct {
    D_TIME_CVT *cvt;
    const char *text;
    int year, month, day, hour, minute;
    double second;
  } cases[] = {
      {full_, "Feb 29 12:00:00 68", 2068, 2, 29, 12, 0, 0},
      {full_, "FEBRUARY 29 0:0:0 2000", 2000, 2, 29, 0, 0, 0},
      {full_, "sep 30 1:2:3.0", 2001, 9, 30, 1, 2, 3},
      {hms_, "10:30:15.5", 2001, 3, 15, 10, 30, 15.5},
  };
  for (const auto &c : cases) {
    double value = 0;
    std::string printed;
    EXPECT_TRUE(Read(c.cvt, c.text, &value, &printed)) << c.text << ": " << printed;
    EXPECT_DOUBLE_EQ(value, LocalTime(c.year, c.month, c.day, c.hour, c.minute, c.second)) << c.text;
  }
}

// A refused reading stores nothing and prints one warning, named after the
// reader; the lexer's own errors print its report instead.
TEST_F(Converters, RefusalsWarnWithTheFieldAndStoreNothing) {
  const struct {
    D_TIME_CVT *cvt;
    const char *text, *warning;
  } cases[] = {
      // 1900 is refused before its leap rule matters: the format ends at 1970.
      {full_, "Feb 29 12:00:00 1900", "utTimeCvtFullStrToNum: 1900 is not a valid year."},
      {full_, "Jan 5 12:00:00 1969", "utTimeCvtFullStrToNum: 1969 is not a valid year."},
      {full_, "Jan 5 12:00:00 2021", "utTimeCvtFullStrToNum: 2021 is not a valid year."},
      {full_, "Jan 5 12:00:00 100", "utTimeCvtFullStrToNum: 100 is not a valid year."},
      {full_, "Jan 5 12:00:00 2001.5", "utTimeCvtFullStrToNum: 2001.5 is not a valid year."},
      {full_, "Feb 29 12:00:00 1999", "utTimeCvtFullStrToNum: 29 is not a valid day of the month."},
      {full_, "Nov 31 12:00:00 2001", "utTimeCvtFullStrToNum: 31 is not a valid day of the month."},
      {full_, "Jan 0 12:00:00 2001", "utTimeCvtFullStrToNum: 0 is not a valid day of the month."},
      {full_, "Jan 1.5 12:00:00 2001", "utTimeCvtFullStrToNum: 1.5 is not a valid day of the month."},
      {full_, "12:00:00 2001", "utTimeCvtFullStrToNum: year not allowed when month and day ommitted."},
      {full_, "Jan 5 12:00:00 2001 2002", "utTimeCvtFullStrToNum: found extra tokens after year."},
      {full_, "sept 5 12:00:00", "utTimeCvtFullStrToNum: sept is not a valid month."},
      {full_, "24:00:00", "utTimeCvtFullStrToNum: 24 is not a valid hour."},
      {full_, "1.5:00:00", "utTimeCvtFullStrToNum: 1.5 is not a valid hour."},
      {full_, "12:60:00", "utTimeCvtFullStrToNum: 60 is not a valid minute."},
      {full_, "12:0.5:00", "utTimeCvtFullStrToNum: 0.5 is not a valid minute."},
      {hms_, "10:00:60.5", "utTimeCvtHmsStrToNum: 60.5 is not a valid second."},
      {hms_, "10:30:15 2001", "utTimeCvtHmsToNum: found extra tokens after second."},
      // Lexical errors; month names belong to "full" only.
      {full_, "12:00", nullptr},
      {full_, "jan 5 12:00:00 -5", nullptr},
      {hms_, "Jan 5 10:00:00", nullptr},
  };
  for (const auto &c : cases) {
    double value = 0;
    std::string printed;
    EXPECT_FALSE(Read(c.cvt, c.text, &value, &printed)) << c.text;
    EXPECT_EQ(value, kUntouched) << c.text;
    if (c.warning != nullptr) {
      EXPECT_EQ(printed, std::string("WARNING: ") + c.warning + "\n") << c.text;
    } else {
      EXPECT_EQ(printed.rfind("ERROR: Expected: ", 0), 0u) << printed;
      EXPECT_NE(printed.find("\nFile: "), std::string::npos) << printed;
    }
  }
  for (D_TIME_CVT *cvt : {full_, hms_, numeric_}) {
    double value = 7;
    EXPECT_FAILS(DutTimeCvtStrToNum(cvt, nullptr, &value), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_EQ(value, 7) << cvt->name;
  }
}

TEST_F(Converters, HmsAndNumericPrintAndRead) {
  double t = LocalTime(2001, 3, 15, 9, 8, 7);
  const char *text = nullptr;
  ASSERT_EQ(DutTimeCvtNumToStr(hms_, t + 0.75, &text), D_TRUE);
  EXPECT_STREQ(text, "09:08:07");
  // The default current converter prints through "hms".
  EXPECT_STREQ(DutTimeNumToStr(t), "09:08:07");
  ASSERT_EQ(DutTimeCvtNumToStr(hms_, std::nan(""), &text), D_FALSE);
  EXPECT_STREQ(text, "error");
  EXPECT_STREQ(DutTimeNumToStr(std::nan("")), "<UNKNOWN>");

  ASSERT_EQ(DutTimeCvtNumToStr(numeric_, -2.25, &text), D_TRUE);
  EXPECT_STREQ(text, DutRealToStr(-2.25));
  double value = 0;
  EXPECT_TRUE(Read(numeric_, "  -42.5xyz", &value));
  EXPECT_EQ(value, -42.5);
  EXPECT_FALSE(Read(numeric_, "abc", &value));
  EXPECT_EQ(value, kUntouched);
  EXPECT_FALSE(Read(numeric_, "", &value));
}

}  // namespace
