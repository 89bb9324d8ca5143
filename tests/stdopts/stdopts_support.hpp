// Helpers of the standard-option tests: output capture, environment
// changes undone at scope end, and checks run in a fresh process.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "support/env_var.hpp"
#include "support/output_capture.hpp"
#include "vqutil/option.h"

namespace stdopts {

using vqtest::EnvVar;
using vqtest::OutputCapture;

// Collects problems found in a child process; the child exits 0 when there
// were none and prints them to standard error (shown by gtest) otherwise.
class ChildReport {
 public:
  void Check(bool ok, const std::string &what) {
    if (!ok) problems_ += what + "\n";
  }
  template <typename A, typename B>
  void Equal(const A &actual, const B &expected, const std::string &what) {
    Check(actual == expected, what);
  }
  [[noreturn]] void Finish() {
    std::fprintf(stderr, "%s", problems_.c_str());
    std::fflush(stderr);
    std::_Exit(problems_.empty() ? 0 : 1);
  }

 private:
  std::string problems_;
};

// Runs body in a re-executed copy of the test program, so that the option
// table is first created there, after body's own environment changes.
inline void InFreshProcess(void (*body)(ChildReport &report)) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ChildReport report;
        body(report);
        report.Finish();
      },
      ::testing::ExitedWithCode(0), "");
}

// The string value of a string option, or "" when it is unknown.
inline std::string StrValue(const char *name) {
  const char *value = nullptr;
  DutOptionGetStr(DutOptionLookup(name), &value);
  return value != nullptr ? value : "";
}

}  // namespace stdopts
