// Shared helpers of the time tests: children for tests that
// change process-wide state, and local calendar times computed the way the
// library's readers must compute them.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "support/capture.hpp"
#include "vqutil/output.h"

namespace timetest {

using vqtest::OutputCapture;

// Runs body in a forked child (the parent's state is inherited, and every
// change dies with the child). Failed expectations make the child exit 1.
template <class Body>
void RunInChild(Body body) {
  GTEST_FLAG_SET(death_test_style, "fast");
  EXPECT_EXIT(
      {
        body();
        std::fflush(nullptr);
        std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
}

// Runs body in a new process that has executed nothing of the library
// before this test: the state at load is observable there.
template <class Body>
void RunFresh(Body body) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        body();
        std::fflush(nullptr);
        std::_Exit(::testing::Test::HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
  GTEST_FLAG_SET(death_test_style, "fast");
}

// Fatal paths abort at once instead of sleeping and exiting.
inline void PrepareToDie() {
  setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
  DutSetFatalErrorFile(stderr);
}

// Seconds since the epoch of a local calendar time, daylight saving as the
// date has it.
inline double LocalTime(int year, int month, int day, int hour, int minute, int second) {
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = second;
  tm.tm_isdst = -1;
  return static_cast<double>(std::mktime(&tm));
}

// The runtime's ctime text of whole seconds, newline included.
inline std::string CtimeText(double seconds) {
  std::time_t t = static_cast<std::time_t>(seconds);
  char buffer[64];
  return std::string(ctime_r(&t, buffer));
}

}  // namespace timetest
