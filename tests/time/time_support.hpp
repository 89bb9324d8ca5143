// Shared helpers of the time tests: children for tests that change
// process-wide state, and local calendar times as mktime computes them.
#pragma once

#include <gtest/gtest.h>

#include <ctime>

#include "support/child_process.hpp"
#include "support/output_capture.hpp"
#include "vqutil/error.h"


namespace timetest {

using vqtest::OutputCapture;
using vqtest::RunInChild;

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
