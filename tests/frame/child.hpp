// Helpers for tests that change process-wide state (the debug file, the
// fatal error file, the environment): each such test runs its body in a
// forked child inside a fresh temporary directory, so the state and the
// files die with the child and parallel tests never share a file name.
// It also brings in what every test of the suite uses.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "support/child_process.hpp"
#include "support/error_values.hpp"
#include "support/output_capture.hpp"
#include "support/temp_dir.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"
#include "vqutil/thread.h"

// The statement, run in a child with none of the frame's environment
// variables set and fatal errors set to abort, dies with a report on
// standard error that matches the regular expression.
#define EXPECT_FATAL_ABORT(statement, regex)      \
  VQTEST_EXPECT_FATAL(                            \
      {                                           \
        vqtest::ClearFrameEnvironment();          \
        ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1); \
        statement;                                \
      },                                          \
      regex)

namespace vqtest {

inline void ClearFrameEnvironment() {
  for (const char *name : {"VQTIMESTAMPOUTPUT", "VQDEBUGFILENAME", "VQ_WARNING_ABORT",
                           "VQ_EXPECT_ABORT", "VQ_FATAL_ERROR_CONTINUE", "VQ_FATAL_ERROR_ABORT",
                           "VQ_FATAL_ERROR_SLEEP"})
    ::unsetenv(name);
}

// Runs body in a forked child whose working directory is a new temporary
// directory and which has none of the frame's environment variables set;
// failed expectations inside it fail the test.
template <class Body>
void RunClean(Body body) {
  const TempDir dir("vqutil-frame");
  RunInChild("fast", [&] {
    std::filesystem::current_path(dir.path());
    ClearFrameEnvironment();
    body();
  });
}

// The text with every ctime stamp (without its newline) of a second in
// [from, to] replaced by "T". The library reads the precise clock, which
// may already show the next second while time() does not.
inline std::string Unstamped(std::string text, std::time_t from, std::time_t to) {
  for (std::time_t t = from; t <= to; ++t) {
    char buffer[64];
    std::string stamp = ctime_r(&t, buffer);
    stamp.pop_back();
    for (size_t at; (at = text.find(stamp)) != std::string::npos;) text.replace(at, stamp.size(), "T");
  }
  return text;
}

}  // namespace vqtest

// The suite's tests name these unqualified.
using vqtest::AllFour;
using vqtest::Four;
using vqtest::OutputCapture;
using vqtest::ReadFile;
using vqtest::RunClean;
using vqtest::SetAllFour;
