// Time converters: the registry, the current converter, and the three
// built-ins ("full" with its date rules, "hms", "numeric").
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
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
using timetest::RunFresh;
using timetest::RunInChild;

// Readers take the date they are not given from the current time; pin it
// to a known day for every test.
class Converters : public testing::Test {
 protected:
  void SetUp() override {
    base_ = LocalTime(2001, 3, 15, 8, 0, 0);
    ASSERT_EQ(DutSetCurrentTime(base_), D_TRUE);
    full_ = DutTimeCvtLookup("full");
    hms_ = DutTimeCvtLookup("hms");
    numeric_ = DutTimeCvtLookup("numeric");
    ASSERT_NE(full_, nullptr);
    ASSERT_NE(hms_, nullptr);
    ASSERT_NE(numeric_, nullptr);
  }
  void TearDown() override { DutTimeCvtSetCurrent(hms_); }

  // Reads text with cvt; the warning printed (if any) goes to *warning.
  bool Read(D_TIME_CVT *cvt, const char *text, double *value, std::string *warning = nullptr) {
    OutputCapture capture;
    *value = -12345.0;
    bool ok = DutTimeCvtStrToNum(cvt, text, value) == D_TRUE;
    if (warning != nullptr) *warning = capture.Take();
    return ok;
  }

  // Expects text to be refused by the "full" reader with exactly message.
  void ExpectFullRefuses(const char *text, const std::string &message) {
    SCOPED_TRACE(text);
    double value = 0;
    std::string warning;
    EXPECT_FALSE(Read(full_, text, &value, &warning));
    EXPECT_EQ(value, -12345.0) << "a refused reading stores nothing";
    EXPECT_EQ(warning, "WARNING: utTimeCvtFullStrToNum: " + message);
  }

  void ExpectFullReads(const char *text, double expected) {
    SCOPED_TRACE(text);
    double value = 0;
    std::string warning;
    EXPECT_TRUE(Read(full_, text, &value, &warning));
    EXPECT_DOUBLE_EQ(value, expected);
    EXPECT_EQ(warning, "");
  }

  double base_ = 0;
  D_TIME_CVT *full_ = nullptr;
  D_TIME_CVT *hms_ = nullptr;
  D_TIME_CVT *numeric_ = nullptr;
};

// ---- Registry ---------------------------------------------------------------------------

D_BOOL FixedNumToStr(D_REAL8, const char **str_return) {
  *str_return = "fixed";
  return D_TRUE;
}
D_BOOL FailingNumToStr(D_REAL8, const char **str_return) {
  *str_return = "partial";
  return D_FALSE;
}
D_BOOL DoublingStrToNum(const char *str, D_REAL8 *time_return) {
  *time_return = 2.0 * std::atof(str);
  return D_TRUE;
}
int g_cleanups = 0;
void CountCleanup() { ++g_cleanups; }

D_WORD CollectNames(D_WORD key, D_WORD value, void *arg) {
  auto *names = static_cast<std::set<std::string> *>(arg);
  const auto *cvt = reinterpret_cast<const D_TIME_CVT *>(value);
  EXPECT_STREQ(reinterpret_cast<const char *>(key), cvt->name);
  names->insert(cvt->name);
  return 0;
}

D_WORD StopAtHms(D_WORD key, D_WORD, void *) {
  return std::strcmp(reinterpret_cast<const char *>(key), "hms") == 0 ? 77 : 0;
}

TEST(TimeCvtRegistry, BuiltInsAtFirstUse) {
  RunFresh([] {
    D_TIME_CVT *current = DutTimeCvtGetCurrent();
    ASSERT_NE(current, nullptr);
    EXPECT_STREQ(current->name, "hms");
    std::set<std::string> names;
    EXPECT_EQ(DutTimeCvtTraverse(&CollectNames, &names), 0);
    EXPECT_EQ(names, (std::set<std::string>{"full", "hms", "numeric"}));
  });
}

TEST_F(Converters, CreateLookupTraverseDestroy) {
  DutErrNumSet(0);
  // Names ignore case: the built-in "hms" is taken, without an error number.
  EXPECT_EQ(DutTimeCvtCreate("HMS", &FixedNumToStr, &DoublingStrToNum, nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), 0);

  D_TIME_CVT *mine = DutTimeCvtCreate("MyClock", &FixedNumToStr, &DoublingStrToNum, &CountCleanup);
  ASSERT_NE(mine, nullptr);
  EXPECT_EQ(DutErrNumGet(), 0) << "a successful create leaves no error behind";
  EXPECT_STREQ(mine->name, "myclock");
  EXPECT_EQ(DutTimeCvtLookup("MYCLOCK"), mine);
  EXPECT_EQ(DutTimeCvtCreate("myclock", &FixedNumToStr, &DoublingStrToNum, nullptr), nullptr);

  std::set<std::string> names;
  EXPECT_EQ(DutTimeCvtTraverse(&CollectNames, &names), 0);
  EXPECT_EQ(DutErrNumGet(), D_ERR_END_OF_TRAVERSAL);
  EXPECT_EQ(names, (std::set<std::string>{"full", "hms", "numeric", "myclock"}));
  EXPECT_EQ(DutTimeCvtTraverse(&StopAtHms, nullptr), 77);

  const char *text = nullptr;
  EXPECT_EQ(DutTimeCvtNumToStr(mine, 1.0, &text), D_TRUE);
  EXPECT_STREQ(text, "fixed");
  double value = 0;
  EXPECT_EQ(DutTimeCvtStrToNum(mine, "21", &value), D_TRUE);
  EXPECT_EQ(value, 42.0);

  g_cleanups = 0;
  EXPECT_EQ(DutTimeCvtDestroy(mine), D_TRUE);
  EXPECT_EQ(g_cleanups, 1);
  DutErrNumSet(0);
  EXPECT_EQ(DutTimeCvtLookup("myclock"), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);

  DutErrNumSet(0);
  EXPECT_EQ(DutTimeCvtCreate(nullptr, &FixedNumToStr, &DoublingStrToNum, nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST_F(Converters, CurrentConverterDrivesTheProcessWideCalls) {
  D_TIME_CVT *mine = DutTimeCvtCreate("fixedclock", &FixedNumToStr, &DoublingStrToNum, &CountCleanup);
  ASSERT_NE(mine, nullptr);
  ASSERT_EQ(DutTimeCvtSetCurrent(mine), D_TRUE);
  EXPECT_EQ(DutTimeCvtGetCurrent(), mine);
  EXPECT_STREQ(DutTimeNumToStr(5.0), "fixed");
  double value = 0;
  EXPECT_EQ(DutTimeStrToNum("4", &value), D_TRUE);
  EXPECT_EQ(value, 8.0);
  char buffer[64];
  EXPECT_EQ(DutTimeToString(5.0, buffer), buffer);
  EXPECT_STREQ(buffer, "fixed");
  DutErrNumSet(0);
  EXPECT_EQ(DutTimeToString(5.0, nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);

  // The current converter cannot go: no action, no error number.
  g_cleanups = 0;
  DutErrNumSet(0);
  EXPECT_EQ(DutTimeCvtDestroy(mine), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), 0);
  EXPECT_EQ(g_cleanups, 0);
  EXPECT_EQ(DutTimeCvtLookup("fixedclock"), mine);

  ASSERT_EQ(DutTimeCvtSetCurrent(hms_), D_TRUE);
  EXPECT_EQ(DutTimeCvtDestroy(mine), D_TRUE);
  EXPECT_EQ(g_cleanups, 1);
}

TEST_F(Converters, FailureShowsAsUnknown) {
  D_TIME_CVT *failing = DutTimeCvtCreate("failing", &FailingNumToStr, &DoublingStrToNum, nullptr);
  ASSERT_NE(failing, nullptr);
  ASSERT_EQ(DutTimeCvtSetCurrent(failing), D_TRUE);
  EXPECT_STREQ(DutTimeNumToStr(1.0), "<UNKNOWN>");
  char buffer[64];
  EXPECT_STREQ(DutTimeToString(1.0, buffer), "<UNKNOWN>");
  ASSERT_EQ(DutTimeCvtSetCurrent(hms_), D_TRUE);
  EXPECT_EQ(DutTimeCvtDestroy(failing), D_TRUE);
}

TEST(TimeCvtRegistry, NullArgumentsAreFatal) {
  EXPECT_EXIT(
      {
        timetest::PrepareToDie();
        DutTimeCvtCreate("x", nullptr, &DoublingStrToNum, nullptr);
      },
      testing::KilledBySignal(SIGABRT), "Assertion <num_to_str_func != NULL> failed");
  EXPECT_EXIT(
      {
        timetest::PrepareToDie();
        DutTimeCvtCreate("x", &FixedNumToStr, nullptr, nullptr);
      },
      testing::KilledBySignal(SIGABRT), "Assertion <str_to_num_func != NULL> failed");
  EXPECT_EXIT(
      {
        timetest::PrepareToDie();
        DutTimeCvtLookup(nullptr);
      },
      testing::KilledBySignal(SIGABRT), "Assertion <name != NULL> failed");
  EXPECT_EXIT(
      {
        timetest::PrepareToDie();
        DutTimeCvtSetCurrent(nullptr);
      },
      testing::KilledBySignal(SIGABRT), "Assertion <time_cvtr != NULL> failed");
}

// ---- "full": reading dates -------------------------------------------------------------------

TEST_F(Converters, FullReadsMonthDayTimeAndYear) {
  ExpectFullReads("Feb 29 12:00:00 2000", LocalTime(2000, 2, 29, 12, 0, 0));
  ExpectFullReads("feb 29 12:00:00 1996", LocalTime(1996, 2, 29, 12, 0, 0));
  ExpectFullReads("FEBRUARY 29 12:00:00 96", LocalTime(1996, 2, 29, 12, 0, 0));
  ExpectFullReads("january 1 00:00:00 1970", LocalTime(1970, 1, 1, 0, 0, 0));
  ExpectFullReads("Dec 31 23:59:59.5 2020", LocalTime(2020, 12, 31, 23, 59, 59) + 0.5);
  ExpectFullReads("Apr 30 06:07:08 2001", LocalTime(2001, 4, 30, 6, 7, 8));
  ExpectFullReads("sep 30 1:2:3", LocalTime(2001, 9, 30, 1, 2, 3));  // the base year
  ExpectFullReads("10:30:15.5", LocalTime(2001, 3, 15, 10, 30, 15) + 0.5);  // the base day
  const char *months[] = {"jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"};
  const char *long_months[] = {"January", "February", "March",     "April",   "May",      "June",
                               "July",    "August",   "September", "October", "November", "December"};
  for (int m = 0; m < 12; ++m) {
    std::string short_text = std::string(months[m]) + " 3 04:05:06 1999";
    std::string long_text = std::string(long_months[m]) + " 3 04:05:06 1999";
    ExpectFullReads(short_text.c_str(), LocalTime(1999, m + 1, 3, 4, 5, 6));
    ExpectFullReads(long_text.c_str(), LocalTime(1999, m + 1, 3, 4, 5, 6));
  }
}

TEST_F(Converters, FullMonthLimitsAndLeapYears) {
  // 1900 is refused before its leap rule matters: the format ends at 1970.
  ExpectFullRefuses("Feb 29 12:00:00 1900", "1900 is not a valid year.\n");
  ExpectFullReads("Feb 29 12:00:00 00", LocalTime(2000, 2, 29, 12, 0, 0));
  ExpectFullReads("Feb 29 12:00:00 68", LocalTime(2068, 2, 29, 12, 0, 0));
  ExpectFullRefuses("Feb 29 12:00:00 69", "29 is not a valid day of the month.\n");
  ExpectFullRefuses("Feb 29 12:00:00 1999", "29 is not a valid day of the month.\n");
  ExpectFullRefuses("Feb 29 12:00:00", "29 is not a valid day of the month.\n");  // 2001
  ExpectFullRefuses("Feb 30 12:00:00 2000", "30 is not a valid day of the month.\n");
  ExpectFullRefuses("Apr 31 12:00:00 2001", "31 is not a valid day of the month.\n");
  ExpectFullRefuses("jun 31 12:00:00 2001", "31 is not a valid day of the month.\n");
  ExpectFullRefuses("september 31 12:00:00 2001", "31 is not a valid day of the month.\n");
  ExpectFullRefuses("Nov 31 12:00:00 2001", "31 is not a valid day of the month.\n");
  ExpectFullRefuses("Jan 32 12:00:00 2001", "32 is not a valid day of the month.\n");
  ExpectFullRefuses("Jan 0 12:00:00 2001", "0 is not a valid day of the month.\n");
  ExpectFullRefuses("Jan 1.5 12:00:00 2001", "1.5 is not a valid day of the month.\n");
  ExpectFullReads("Jan 31 12:00:00 2001", LocalTime(2001, 1, 31, 12, 0, 0));
  ExpectFullReads("Mar 31 12:00:00 2001", LocalTime(2001, 3, 31, 12, 0, 0));
  ExpectFullReads("Jan 2.0 12:00:00 2001", LocalTime(2001, 1, 2, 12, 0, 0));
}

TEST_F(Converters, FullYearRules) {
  ExpectFullReads("Jan 5 12:00:00 21", LocalTime(2021, 1, 5, 12, 0, 0));
  ExpectFullReads("Jan 5 12:00:00 0", LocalTime(2000, 1, 5, 12, 0, 0));
  ExpectFullReads("Jan 5 12:00:00 69", LocalTime(2069, 1, 5, 12, 0, 0));
  ExpectFullReads("Jan 5 12:00:00 70", LocalTime(1970, 1, 5, 12, 0, 0));
  ExpectFullReads("Jan 5 12:00:00 99", LocalTime(1999, 1, 5, 12, 0, 0));
  ExpectFullReads("Jan 5 12:00:00 2020", LocalTime(2020, 1, 5, 12, 0, 0));
  ExpectFullReads("Jan 5 12:00:00 1970", LocalTime(1970, 1, 5, 12, 0, 0));
  ExpectFullRefuses("Jan 5 12:00:00 2021", "2021 is not a valid year.\n");
  ExpectFullRefuses("Jan 5 12:00:00 1969", "1969 is not a valid year.\n");
  ExpectFullRefuses("Jan 5 12:00:00 100", "100 is not a valid year.\n");
  ExpectFullRefuses("Jan 5 12:00:00 2001.5", "2001.5 is not a valid year.\n");
  ExpectFullRefuses("12:00:00 2001", "year not allowed when month and day ommitted.\n");
  ExpectFullRefuses("Jan 5 12:00:00 2001 x", "found extra tokens after year.\n");
  ExpectFullRefuses("Jan 5 12:00:00 2001 2002", "found extra tokens after year.\n");
}

TEST_F(Converters, FullClockFieldsAndMonthNames) {
  ExpectFullRefuses("24:00:00", "24 is not a valid hour.\n");
  ExpectFullRefuses("1.5:00:00", "1.5 is not a valid hour.\n");
  ExpectFullRefuses("12:60:00", "60 is not a valid minute.\n");
  ExpectFullRefuses("12:0.5:00", "0.5 is not a valid minute.\n");
  ExpectFullRefuses("12:00:60", "60 is not a valid second.\n");
  ExpectFullRefuses("12:00:60.5", "60.5 is not a valid second.\n");
  ExpectFullRefuses("sept 5 12:00:00", "sept is not a valid month.\n");
  ExpectFullRefuses("Wed Mar 14 12:00:00 2001", "Wed is not a valid month.\n");
  ExpectFullReads("23:59:59.999", LocalTime(2001, 3, 15, 23, 59, 59) + 0.999);
  ExpectFullReads("0:0:0", LocalTime(2001, 3, 15, 0, 0, 0));
}

TEST_F(Converters, FullLexicalErrorsPrintTheLexerMessage) {
  const char *texts[] = {"12:00", "", "jan", "jan 5", "12 00 00", "jan 5 12:00:00 -5", "Jan 5 12:00:00 \"2001\""};
  for (const char *text : texts) {
    SCOPED_TRACE(text);
    double value = 0;
    std::string message;
    EXPECT_FALSE(Read(full_, text, &value, &message));
    EXPECT_EQ(value, -12345.0);
    EXPECT_EQ(message.rfind("ERROR: Expected: ", 0), 0u) << message;
    EXPECT_NE(message.find("\nFile: "), std::string::npos) << message;
  }
  // The reader survives its errors: the next reading works.
  ExpectFullReads("Jan 5 12:00:00 2001", LocalTime(2001, 1, 5, 12, 0, 0));
}

TEST(ConverterBase, WallClockWithoutACurrentTime) {
  RunFresh([] {
    double pinned = LocalTime(1999, 7, 4, 13, 0, 0);
    D_TIME_VALUE pin{static_cast<D_INT4>(pinned), 0};
    DutSetTestWallTimeStruct(&pin);
    double value = 0;
    ASSERT_EQ(DutTimeCvtStrToNum(DutTimeCvtLookup("full"), "01:02:03", &value), D_TRUE);
    EXPECT_EQ(value, LocalTime(1999, 7, 4, 1, 2, 3));
    ASSERT_EQ(DutTimeCvtStrToNum(DutTimeCvtLookup("hms"), "22:00:00.25", &value), D_TRUE);
    EXPECT_EQ(value, LocalTime(1999, 7, 4, 22, 0, 0) + 0.25);
  });
}

// ---- "full": printing -------------------------------------------------------------------

TEST_F(Converters, FullPrintsTheFractionBetweenClockAndYear) {
  double whole = LocalTime(2001, 3, 15, 12, 34, 56);
  std::string ctime_text = timetest::CtimeText(whole);  // "Thu Mar 15 12:34:56 2001\n"
  const char *text = nullptr;
  ASSERT_EQ(DutTimeCvtNumToStr(full_, whole + 0.25, &text), D_TRUE);
  EXPECT_EQ(std::string(text), ctime_text.substr(0, 19) + ".250" + ctime_text.substr(19, 5));
  ASSERT_EQ(DutTimeCvtNumToStr(full_, whole, &text), D_TRUE);
  EXPECT_EQ(std::string(text), ctime_text.substr(0, 19) + ".000" + ctime_text.substr(19, 5));
  EXPECT_EQ(std::strlen(text), 28u);
  EXPECT_EQ(std::string(text).find('\n'), std::string::npos);

  ASSERT_EQ(DutTimeCvtNumToStr(full_, 1e300, &text), D_FALSE);
  EXPECT_STREQ(text, "error");
}

TEST_F(Converters, FullRoundTripWithoutTheWeekday) {
  const double times[] = {LocalTime(2001, 3, 15, 12, 34, 56) + 0.25, LocalTime(1999, 12, 31, 23, 59, 59) + 0.5,
                          LocalTime(2000, 2, 29, 0, 0, 0), LocalTime(1970, 1, 2, 3, 4, 5) + 0.125};
  for (double t : times) {
    const char *text = nullptr;
    ASSERT_EQ(DutTimeCvtNumToStr(full_, t, &text), D_TRUE);
    std::string printed = text;
    SCOPED_TRACE(printed);
    double back = 0;
    ASSERT_TRUE(Read(full_, printed.c_str() + 4, &back));
    EXPECT_NEAR(back, t, 1e-6);
  }
}

TEST(FullFormat, EnvironmentChoosesTheFractionFormat) {
  RunFresh([] {
    setenv("VQFULLFORMAT", "%.6f", 1);
    double whole = LocalTime(2001, 3, 15, 12, 34, 56);
    std::string ctime_text = timetest::CtimeText(whole);
    const char *text = nullptr;
    ASSERT_EQ(DutTimeCvtNumToStr(DutTimeCvtLookup("full"), whole + 0.25, &text), D_TRUE);
    EXPECT_EQ(std::string(text), ctime_text.substr(0, 19) + ".250000" + ctime_text.substr(19, 5));
  });
  RunFresh([] {
    setenv("VQFULLFORMAT", "%s", 1);  // would read a string from a real
    OutputCapture capture;
    double whole = LocalTime(2001, 3, 15, 12, 34, 56);
    std::string ctime_text = timetest::CtimeText(whole);
    const char *text = nullptr;
    ASSERT_EQ(DutTimeCvtNumToStr(DutTimeCvtLookup("full"), whole + 0.5, &text), D_TRUE);
    EXPECT_EQ(std::string(text), ctime_text.substr(0, 19) + ".500" + ctime_text.substr(19, 5));
    EXPECT_NE(capture.Take().find("VQFULLFORMAT"), std::string::npos);
  });
}

// ---- "hms" ----------------------------------------------------------------------------------

TEST_F(Converters, HmsReadsTheClockOnTheBaseDay) {
  double value = 0;
  std::string warning;
  ASSERT_TRUE(Read(hms_, "10:30:15.5", &value, &warning));
  EXPECT_EQ(value, LocalTime(2001, 3, 15, 10, 30, 15) + 0.5);
  EXPECT_EQ(warning, "");

  struct Refusal {
    const char *text;
    const char *warning;
  };
  const Refusal refusals[] = {
      {"24:00:00", "WARNING: utTimeCvtHmsStrToNum: 24 is not a valid hour.\n"},
      {"2.5:00:00", "WARNING: utTimeCvtHmsStrToNum: 2.5 is not a valid hour.\n"},
      {"10:61:00", "WARNING: utTimeCvtHmsStrToNum: 61 is not a valid minute.\n"},
      {"10:1.5:00", "WARNING: utTimeCvtHmsStrToNum: 1.5 is not a valid minute.\n"},
      {"10:00:75", "WARNING: utTimeCvtHmsStrToNum: 75 is not a valid second.\n"},
      {"10:30:15 2001", "WARNING: utTimeCvtHmsToNum: found extra tokens after second.\n"},
      {"10:30:15 x", "WARNING: utTimeCvtHmsToNum: found extra tokens after second.\n"},
  };
  for (const Refusal &r : refusals) {
    SCOPED_TRACE(r.text);
    EXPECT_FALSE(Read(hms_, r.text, &value, &warning));
    EXPECT_EQ(value, -12345.0);
    EXPECT_EQ(warning, r.warning);
  }
  // Month names belong to "full" only.
  EXPECT_FALSE(Read(hms_, "Jan 5 10:00:00", &value, &warning));
  EXPECT_EQ(warning.rfind("ERROR: Expected: ", 0), 0u) << warning;
}

TEST_F(Converters, HmsPrintsTheClockAndRoundTrips) {
  double t = LocalTime(2001, 3, 15, 9, 8, 7);
  const char *text = nullptr;
  ASSERT_EQ(DutTimeCvtNumToStr(hms_, t + 0.75, &text), D_TRUE);
  EXPECT_EQ(std::string(text), timetest::CtimeText(t).substr(11, 8));
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
  const double values[] = {1234.5, 0.0, -2.25, 1e10};
  for (double v : values) {
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
  EXPECT_EQ(value, -12345.0);
  EXPECT_FALSE(Read(numeric_, "", &value));

  ASSERT_EQ(DutTimeCvtSetCurrent(numeric_), D_TRUE);
  ASSERT_EQ(DutTimeStrToNum("86400.5", &value), D_TRUE);
  EXPECT_EQ(value, 86400.5);
  char buffer[64];
  EXPECT_STREQ(DutTimeToString(86400.5, buffer), DutRealToStr(86400.5));
}

TEST_F(Converters, NullTextIsRefusedByEveryBuiltIn) {
  for (D_TIME_CVT *cvt : {full_, hms_, numeric_}) {
    SCOPED_TRACE(cvt->name);
    double value = 7;
    DutErrNumSet(0);
    EXPECT_EQ(DutTimeCvtStrToNum(cvt, nullptr, &value), D_FALSE);
    EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
    EXPECT_EQ(value, 7);
  }
}

}  // namespace
