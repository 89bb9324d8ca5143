// Time converters: the registry, the current converter, and the three
// built-ins ("full" with its date rules, "hms", "numeric").
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
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

struct TextCase {
  const char *text;
  const char *expected;
};

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

// ---- Registry ---------------------------------------------------------------------------

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
  const auto *cvt = reinterpret_cast<const D_TIME_CVT *>(value);
  EXPECT_STREQ(reinterpret_cast<const char *>(key), cvt->name);
  static_cast<std::set<std::string> *>(arg)->insert(cvt->name);
  return 0;
}

D_WORD StopAtHms(D_WORD key, D_WORD, void *) {
  return std::strcmp(reinterpret_cast<const char *>(key), "hms") == 0 ? 77 : 0;
}

TEST_F(Converters, LifeOfAConverterOfOurOwn) {
  // Names ignore case: the built-in "hms" is taken, without an error number.
  EXPECT_FAILS(DutTimeCvtCreate("HMS", &FixedNumToStr, &DoublingStrToNum, nullptr), nullptr, 0);
  EXPECT_FAILS(DutTimeCvtCreate(nullptr, &FixedNumToStr, &DoublingStrToNum, nullptr), nullptr,
                          D_ERR_NULL_PTR);
  DutErrNumSet(0);
  D_TIME_CVT *mine = DutTimeCvtCreate("MyClock", &FixedNumToStr, &DoublingStrToNum, &CountCleanup);
  ASSERT_NE(mine, nullptr);
  EXPECT_EQ(DutErrNumGet(), 0);
  EXPECT_STREQ(mine->name, "myclock");
  EXPECT_EQ(DutTimeCvtLookup("MYCLOCK"), mine);
  EXPECT_EQ(DutTimeCvtCreate("myclock", &FixedNumToStr, &DoublingStrToNum, nullptr), nullptr);

  std::set<std::string> names;
  EXPECT_FAILS(DutTimeCvtTraverse(&CollectNames, &names), 0, D_ERR_END_OF_TRAVERSAL);
  EXPECT_EQ(names, (std::set<std::string>{"full", "hms", "numeric", "myclock"}));
  EXPECT_EQ(DutTimeCvtTraverse(&StopAtHms, nullptr), 77);

  const char *text = nullptr;
  EXPECT_EQ(DutTimeCvtNumToStr(mine, 1.0, &text), D_TRUE);
  EXPECT_STREQ(text, "fixed");
  double value = 0;
  EXPECT_EQ(DutTimeCvtStrToNum(mine, "21", &value), D_TRUE);
  EXPECT_EQ(value, 42.0);

  // Current: the process-wide calls go through it, failures show as unknown.
  ASSERT_EQ(DutTimeCvtSetCurrent(mine), D_TRUE);
  EXPECT_EQ(DutTimeCvtGetCurrent(), mine);
  EXPECT_STREQ(DutTimeNumToStr(5.0), "fixed");
  EXPECT_STREQ(DutTimeNumToStr(-5.0), "<UNKNOWN>");
  EXPECT_EQ(DutTimeStrToNum("4", &value), D_TRUE);
  EXPECT_EQ(value, 8.0);
  char buffer[64];
  EXPECT_EQ(DutTimeToString(5.0, buffer), buffer);
  EXPECT_STREQ(buffer, "fixed");
  EXPECT_STREQ(DutTimeToString(-5.0, buffer), "<UNKNOWN>");
  EXPECT_FAILS(DutTimeToString(5.0, nullptr), nullptr, D_ERR_NULL_PTR);

  // The current converter cannot go: no action, no error number.
  g_cleanups = 0;
  EXPECT_FAILS(DutTimeCvtDestroy(mine), D_FALSE, 0);
  EXPECT_EQ(g_cleanups, 0);
  EXPECT_EQ(DutTimeCvtLookup("myclock"), mine);

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

TEST_F(Converters, NullTextIsRefusedByEveryBuiltIn) {
  for (D_TIME_CVT *cvt : {full_, hms_, numeric_}) {
    double value = 7;
    EXPECT_FAILS(DutTimeCvtStrToNum(cvt, nullptr, &value), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_EQ(value, 7) << cvt->name;
  }
}

// ---- "full": reading dates -------------------------------------------------------------------

TEST_F(Converters, FullReadsDatesWithinTheirLimits) {
  struct Case {
    const char *text;
    int year, month, day, hour, minute;
    double second;
  };
  const Case cases[] = {
      {"Feb 29 12:00:00 2000", 2000, 2, 29, 12, 0, 0},  // divisible by 400
      {"feb 29 12:00:00 1996", 1996, 2, 29, 12, 0, 0},
      {"FEBRUARY 29 12:00:00 96", 1996, 2, 29, 12, 0, 0},
      {"Feb 29 12:00:00 00", 2000, 2, 29, 12, 0, 0},
      {"Feb 29 12:00:00 68", 2068, 2, 29, 12, 0, 0},
      {"january 1 00:00:00 1970", 1970, 1, 1, 0, 0, 0},
      {"Dec 31 23:59:59.5 2020", 2020, 12, 31, 23, 59, 59.5},
      {"Jan 31 12:00:00 2001", 2001, 1, 31, 12, 0, 0},
      {"Jan 2.0 12:00:00 2001", 2001, 1, 2, 12, 0, 0},
      {"sep 30 1:2:3", 2001, 9, 30, 1, 2, 3},  // the base year
      {"10:30:15.5", 2001, 3, 15, 10, 30, 15.5},  // the base day
      {"23:59:59.999", 2001, 3, 15, 23, 59, 59.999},
      {"0:0:0", 2001, 3, 15, 0, 0, 0},
      {"Jan 5 12:00:00 21", 2021, 1, 5, 12, 0, 0},
      {"Jan 5 12:00:00 69", 2069, 1, 5, 12, 0, 0},
      {"Jan 5 12:00:00 70", 1970, 1, 5, 12, 0, 0},
      {"Jan 5 12:00:00 99", 1999, 1, 5, 12, 0, 0},
  };
  for (const Case &c : cases) {
    double value = 0;
    std::string printed;
    EXPECT_TRUE(Read(full_, c.text, &value, &printed)) << c.text << ": " << printed;
    EXPECT_DOUBLE_EQ(value, LocalTime(c.year, c.month, c.day, c.hour, c.minute, c.second)) << c.text;
    EXPECT_EQ(printed, "") << c.text;
  }
  const char *months[] = {"January", "February", "March",     "April",   "May",      "June",
                          "July",    "August",   "September", "October", "November", "December"};
  for (int m = 0; m < 12; ++m) {
    for (std::string name : {std::string(months[m]).substr(0, 3), std::string(months[m])}) {
      std::string text = name + " 3 04:05:06 1999";
      double value = 0;
      EXPECT_TRUE(Read(full_, text.c_str(), &value)) << text;
      EXPECT_EQ(value, LocalTime(1999, m + 1, 3, 4, 5, 6)) << text;
    }
  }
}

TEST_F(Converters, FullRefusesWithTheFieldsMessage) {
  const TextCase cases[] = {
      // 1900 is refused before its leap rule matters: the format ends at 1970.
      {"Feb 29 12:00:00 1900", "1900 is not a valid year."},
      {"Feb 29 12:00:00 1999", "29 is not a valid day of the month."},
      {"Feb 29 12:00:00", "29 is not a valid day of the month."},  // 2001
      {"Feb 30 12:00:00 2000", "30 is not a valid day of the month."},
      {"Apr 31 12:00:00 2001", "31 is not a valid day of the month."},
      {"jun 31 12:00:00 2001", "31 is not a valid day of the month."},
      {"september 31 12:00:00 2001", "31 is not a valid day of the month."},
      {"Nov 31 12:00:00 2001", "31 is not a valid day of the month."},
      {"Jan 32 12:00:00 2001", "32 is not a valid day of the month."},
      {"Jan 0 12:00:00 2001", "0 is not a valid day of the month."},
      {"Jan 1.5 12:00:00 2001", "1.5 is not a valid day of the month."},
      {"Jan 5 12:00:00 2021", "2021 is not a valid year."},
      {"Jan 5 12:00:00 1969", "1969 is not a valid year."},
      {"Jan 5 12:00:00 100", "100 is not a valid year."},
      {"Jan 5 12:00:00 2001.5", "2001.5 is not a valid year."},
      {"12:00:00 2001", "year not allowed when month and day ommitted."},
      {"Jan 5 12:00:00 2001 2002", "found extra tokens after year."},
      {"24:00:00", "24 is not a valid hour."},
      {"1.5:00:00", "1.5 is not a valid hour."},
      {"12:60:00", "60 is not a valid minute."},
      {"12:0.5:00", "0.5 is not a valid minute."},
      {"12:00:60", "60 is not a valid second."},
      {"12:00:60.5", "60.5 is not a valid second."},
      {"sept 5 12:00:00", "sept is not a valid month."},
      {"Wed Mar 14 12:00:00 2001", "Wed is not a valid month."},
  };
  for (const TextCase &c : cases) {
    double value = 0;
    std::string printed;
    EXPECT_FALSE(Read(full_, c.text, &value, &printed)) << c.text;
    EXPECT_EQ(value, kUntouched) << c.text << ": a refused reading stores nothing";
    EXPECT_EQ(printed, std::string("WARNING: utTimeCvtFullStrToNum: ") + c.expected + "\n") << c.text;
  }
}

TEST_F(Converters, FullLexicalErrorsPrintTheLexerMessage) {
  const char *texts[] = {"12:00", "", "jan", "jan 5", "12 00 00", "jan 5 12:00:00 -5", "Jan 5 12:00:00 \"2001\""};
  double value = 0;
  for (const char *text : texts) {
    std::string printed;
    EXPECT_FALSE(Read(full_, text, &value, &printed)) << text;
    EXPECT_EQ(value, kUntouched) << text;
    EXPECT_EQ(printed.rfind("ERROR: Expected: ", 0), 0u) << printed;
    EXPECT_NE(printed.find("\nFile: "), std::string::npos) << printed;
  }
  // The reader survives its errors: the next reading works.
  EXPECT_TRUE(Read(full_, "Jan 5 12:00:00 2001", &value));
  EXPECT_EQ(value, LocalTime(2001, 1, 5, 12, 0, 0));
}

// ---- "full": printing -------------------------------------------------------------------

TEST_F(Converters, FullRoundTripWithoutTheWeekday) {
  for (double t : {LocalTime(2001, 3, 15, 12, 34, 56.25), LocalTime(1999, 12, 31, 23, 59, 59.5),
                   LocalTime(2000, 2, 29, 0, 0, 0), LocalTime(1970, 1, 2, 3, 4, 5.125)}) {
    const char *text = nullptr;
    ASSERT_EQ(DutTimeCvtNumToStr(full_, t, &text), D_TRUE);
    std::string printed = text;
    double back = 0;
    ASSERT_TRUE(Read(full_, printed.c_str() + 4, &back)) << printed;
    EXPECT_NEAR(back, t, 1e-6) << printed;
  }
}

// ---- "hms" ----------------------------------------------------------------------------------

TEST_F(Converters, HmsReadsTheClockOnTheBaseDay) {
  double value = 0;
  std::string printed;
  ASSERT_TRUE(Read(hms_, "10:30:15.5", &value, &printed));
  EXPECT_EQ(value, LocalTime(2001, 3, 15, 10, 30, 15.5));
  EXPECT_EQ(printed, "");

  const TextCase cases[] = {
      {"24:00:00", "WARNING: utTimeCvtHmsStrToNum: 24 is not a valid hour.\n"},
      {"2.5:00:00", "WARNING: utTimeCvtHmsStrToNum: 2.5 is not a valid hour.\n"},
      {"10:61:00", "WARNING: utTimeCvtHmsStrToNum: 61 is not a valid minute.\n"},
      {"10:1.5:00", "WARNING: utTimeCvtHmsStrToNum: 1.5 is not a valid minute.\n"},
      {"10:00:75", "WARNING: utTimeCvtHmsStrToNum: 75 is not a valid second.\n"},
      {"10:30:15 2001", "WARNING: utTimeCvtHmsToNum: found extra tokens after second.\n"},
  };
  for (const TextCase &c : cases) {
    EXPECT_FALSE(Read(hms_, c.text, &value, &printed)) << c.text;
    EXPECT_EQ(value, kUntouched) << c.text;
    EXPECT_EQ(printed, c.expected) << c.text;
  }
  // Month names belong to "full" only.
  EXPECT_FALSE(Read(hms_, "Jan 5 10:00:00", &value, &printed));
  EXPECT_EQ(printed.rfind("ERROR: Expected: ", 0), 0u) << printed;
}

TEST_F(Converters, HmsPrintsTheClockAndRoundTrips) {
  double t = LocalTime(2001, 3, 15, 9, 8, 7);
  const char *text = nullptr;
  ASSERT_EQ(DutTimeCvtNumToStr(hms_, t + 0.75, &text), D_TRUE);
  EXPECT_STREQ(text, "09:08:07");
  double back = 0;
  ASSERT_TRUE(Read(hms_, text, &back));
  EXPECT_EQ(back, t) << "the base day is the current time's";

  // The default current converter prints through "hms".
  EXPECT_STREQ(DutTimeNumToStr(t), "09:08:07");
  ASSERT_EQ(DutTimeCvtNumToStr(hms_, std::nan(""), &text), D_FALSE);
  EXPECT_STREQ(text, "error");
  EXPECT_STREQ(DutTimeNumToStr(std::nan("")), "<UNKNOWN>");
}

// ---- "numeric" --------------------------------------------------------------------------------

TEST_F(Converters, NumericUsesTheRealNumberFormatAndScanf) {
  for (double v : {1234.5, 0.0, -2.25, 1e10}) {
    const char *text = nullptr;
    ASSERT_EQ(DutTimeCvtNumToStr(numeric_, v, &text), D_TRUE);
    EXPECT_STREQ(text, DutRealToStr(v));
  }
  double value = 0;
  EXPECT_TRUE(Read(numeric_, "1e3", &value));
  EXPECT_EQ(value, 1000.0);
  EXPECT_TRUE(Read(numeric_, "  -42.5xyz", &value));
  EXPECT_EQ(value, -42.5);
  EXPECT_FALSE(Read(numeric_, "abc", &value));
  EXPECT_EQ(value, kUntouched);
  EXPECT_FALSE(Read(numeric_, "", &value));

  ASSERT_EQ(DutTimeCvtSetCurrent(numeric_), D_TRUE);
  ASSERT_EQ(DutTimeStrToNum("86400.5", &value), D_TRUE);
  EXPECT_EQ(value, 86400.5);
  char buffer[64];
  EXPECT_STREQ(DutTimeToString(86400.5, buffer), DutRealToStr(86400.5));
}

}  // namespace
