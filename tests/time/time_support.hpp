// Shared helpers of the time tests: children for tests that change
// process-wide state, and local calendar times as mktime computes them.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "support/output_capture.hpp"
#include "vqutil/error.h"


namespace timetest {

using vqtest::OutputCapture;

// Runs body in a child; failed expectations make it exit 1. "fast" forks
// this process as it is (every change dies with the child); "threadsafe"
// starts the program anew, so the library's state at load is observable.
template <class Body>
void RunIn(const char *style, Body body) {
  GTEST_FLAG_SET(death_test_style, style);
  EXPECT_EXIT(
      {
        body();
        std::fflush(nullptr);
        std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
  GTEST_FLAG_SET(death_test_style, "fast");
}
template <class Body>
void RunInChild(Body body) {
  RunIn("fast", body);
}
template <class Body>
void RunFresh(Body body) {
  RunIn("threadsafe", body);
}

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

}  // namespace timetest
