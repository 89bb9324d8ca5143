// The "full" converter's text, checked against its definition computed
// with the runtime directly: ctime_r of the whole seconds, the fraction as
// printf prints it less its first character after the clock, no newline.
// Rounding of the fraction, precisions, long and negative years, days with
// daylight-saving changes and leap seconds, changes of TZ, threads.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "time_support.hpp"
#include "vqutil/thread.h"
#include "vqutil/time.h"

namespace {

using timetest::LocalTime;
using timetest::RunFresh;
using timetest::RunInChild;

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

// Fractions that stress printf's rounding to three digits: binary values
// that are exact ties (k/4096: 0.0625 rounds to .062, 0.1875 to .188),
// decimal near-ties, values that round up to 1.000, and the smallest.
std::vector<double> Fractions() {
  std::vector<double> out;
  for (int k = 0; k < 4096; ++k) out.push_back(k / 4096.0);
  for (int k = 0; k <= 2000; ++k) out.push_back(k * 0.0005);
  for (double f : {0.0009, 0.009, 0.0099, 0.01, 0.099, 0.0995, 0.1, 0.9, 0.99, 0.999, 0.9994, 0.9995, 0.99951,
                   0.9999999, 1e-12, 5e-324, std::nextafter(1.0, 0.0)}) {
    out.push_back(f);
  }
  return out;
}

TEST(FullText, FractionRoundsAsPrintfDoes) {
  // Times near 0 keep every bit of the fraction; later times round it to
  // the precision that a date has, and negative times print "-0.xyz", of
  // which the "-" is dropped.
  const double bases[] = {0.0, 1.0, LocalTime(2001, 3, 15, 12, 34, 56), -1.0, -1e6, 1e9 + 7};
  for (double base : bases) {
    for (double f : Fractions()) {
      double t = base < 0 ? base - f : base + f;
      ASSERT_TRUE(Same(t));
    }
  }
  // The sign of a negative time's fraction is what is dropped.
  EXPECT_EQ(Full(-0.9996).substr(19, 5), "1.000");
  EXPECT_EQ(Full(0.9996).substr(19, 4), ".000");
}

TEST(FullText, PrecisionsFromTheEnvironment) {
  // "%.0f" prints no point, so its first character is the whole digit and
  // nothing of the fraction remains for a positive time.
  for (int digits = 0; digits <= 6; ++digits) {
    SCOPED_TRACE(digits);
    RunFresh([digits] {
      std::string format = "%." + std::to_string(digits) + "f";
      setenv("VQFULLFORMAT", format.c_str(), 1);
      const double base = LocalTime(2001, 3, 15, 12, 34, 56);
      for (double f : {0.0, 0.004, 0.05, 0.25, 0.45, 0.5, 0.55, 0.625, 0.9996, 0.99999}) {
        for (double t : {base + f, -1000.0 - f}) {
          ASSERT_TRUE(Same(t, digits)) << format;
        }
      }
    });
  }
}

// Where ctime has no text (glibc's has no room for a fifth digit of the
// year), the converter says "error"; a kept day must not reach past that.
TEST(FullText, YearsAtTheEdgesOfCtime) {
  // The last day and second of year 9999 (UTC), year 10000, year 100000 or
  // so, year 1, a negative year.
  for (double t : {253402214400.5, 253402300799.5, 253402300800.25, 3.1e12 + 0.125, -62135596800.75, -1e12 - 0.5,
                   -0.25}) {
    // Conversions in the same day, the later ones from the kept day.
    for (double offset : {0.0, 60.0, 3600.5, 1.0}) {
      ASSERT_TRUE(Same(t + offset));
    }
  }
  // Past the convertible range: "error", as before.
  const char *text = nullptr;
  for (double t : {1e15 + 1.0, -1e15 - 1.0, HUGE_VAL, -HUGE_VAL, std::nan("")}) {
    EXPECT_EQ(DutTimeCvtNumToStr(DutTimeCvtLookup("full"), t, &text), D_FALSE) << t;
    EXPECT_STREQ(text, "error");
  }
}

// ---- Days whose clock jumps -----------------------------------------------------------

// The seconds at which the zone's offset from UTC changes within [from, to).
std::vector<std::time_t> OffsetChanges(std::time_t from, std::time_t to) {
  std::vector<std::time_t> out;
  auto offset = [](std::time_t t) {
    std::tm tm{};
    localtime_r(&t, &tm);
    return tm.tm_gmtoff;
  };
  for (std::time_t t = from; t + 3600 <= to; t += 3600) {
    if (offset(t) == offset(t + 3600)) continue;
    std::time_t lo = t;  // offset(lo) is the old one, offset(hi) the new
    std::time_t hi = t + 3600;
    while (hi - lo > 1) {
      std::time_t mid = lo + (hi - lo) / 2;
      (offset(mid) == offset(lo) ? lo : hi) = mid;
    }
    out.push_back(hi);
  }
  return out;
}

// Walks through the days around t forwards, backwards and second by second
// over the instant itself, comparing every text with its definition.
void WalkAround(std::time_t t) {
  const double from = static_cast<double>(t) - 2 * 86400;
  const double to = static_cast<double>(t) + 2 * 86400;
  for (double x = from; x < to; x += 599.75) ASSERT_TRUE(Same(x));
  for (double x = to; x > from; x -= 1201.5) ASSERT_TRUE(Same(x));
  for (double x = static_cast<double>(t) - 5; x < static_cast<double>(t) + 5; x += 0.5) {
    ASSERT_TRUE(Same(x));
  }
  // Each side's midnight and the seconds beside it.
  for (double day_edge : {from, to}) {
    for (double x = day_edge - 86400; x < day_edge + 86400; x += 3600) {
      ASSERT_TRUE(Same(x));
    }
  }
}

// Berlin and New York change at night, at different local hours; Lord
// Howe moves by half an hour; Apia skipped 30 December 2011. A TZ that
// spells out its own rules changes and changes back within 1 March 2021,
// which the day's midnight and last second do not show; right/UTC has a
// leap second (23:59:60) at the end of 2016.
TEST(FullText, DaysWhoseClockJumps) {
  const struct {
    const char *zone;
    std::time_t from, to;
  } cases[] = {
      {"Europe/Berlin", 1293840000, 1325376000},       {"America/New_York", 1451606400, 1514764800},
      {"Australia/Lord_Howe", 1293840000, 1325376000}, {"Pacific/Apia", 1293840000, 1325376000},
      {"AAA5BBB,J60/2,J60/5", 1609459200, 1640995200}, {"right/UTC", 1483228826, 0},
  };
  for (const auto &c : cases) {
    const bool rules = std::strchr(c.zone, ',') != nullptr;
    if (!rules && !std::filesystem::exists(std::filesystem::path("/usr/share/zoneinfo") / c.zone)) continue;
    SCOPED_TRACE(c.zone);
    RunInChild([&c] {
      setenv("TZ", c.zone, 1);
      tzset();
      std::vector<std::time_t> changes = c.to == 0 ? std::vector<std::time_t>{c.from} : OffsetChanges(c.from, c.to);
      ASSERT_FALSE(changes.empty());
      for (std::time_t t : changes) {
        WalkAround(t);
        if (::testing::Test::HasFatalFailure()) return;
      }
    });
  }
}

// ---- The time zone ----------------------------------------------------------------------

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
    Same(t + 180);
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
    zone("EST5");
    Same(t);
    std::string long_zone = "UTC0" + std::string(300, 'X');
    zone(long_zone.c_str());
    for (double d : {60.0, 120.0}) Same(t + d);
  });
}

TEST(FullText, ThreadsConvertingDifferentDays) {
  RunInChild([] {
    setenv("TZ", "Europe/Berlin", 1);
    tzset();
    ASSERT_EQ(DutInitThreads(), D_TRUE);
    D_TIME_CVT *full = DutTimeCvtLookup("full");
    ASSERT_EQ(DutTimeCvtSetCurrent(full), D_TRUE);
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
    DutTimeCvtSetCurrent(DutTimeCvtLookup("hms"));
  });
}

}  // namespace
