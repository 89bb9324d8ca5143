// What every test of the error suite uses: the four error values, output
// capture and the error functions, named unqualified, and the fixture of
// the message-file and thread cases.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/error_values.hpp"
#include "support/output_capture.hpp"
#include "support/temp_dir.hpp"
#include "vqutil/error.h"

using vqtest::AllFour;
using vqtest::Four;
using vqtest::SetAllFour;

// A temporary folder for message files, captured output, and the report
// settings put back at the end.
class Reports : public ::testing::Test {
 protected:
  ~Reports() override {
    for (const std::string &name : opened_) DutErrCloseFile(name.c_str());
    DutErrSeveritySet(0);
    DutErrFeedbackSet(0);
  }
  // Writes and opens a message file: the error number it leaves (0 when it
  // loads; a load keeps the caller's number). Closing at the end a file
  // that is not open does no harm.
  D_INT4 Open(const std::string &base, const std::string &text) {
    opened_.push_back(dir_.file(base));
    vqtest::WriteFile(opened_.back(), text);
    DutErrNumSet(0);
    D_BOOL ok = DutErrOpenFile(opened_.back().c_str());
    EXPECT_EQ(ok == D_TRUE, DutErrNumGet() == 0);
    return DutErrNumGet();
  }
  D_BOOL Close(const std::string &base) { return DutErrCloseFile(dir_.file(base).c_str()); }
  // The output of reporting each number without parameters.
  std::string Texts(std::initializer_list<D_INT4> numbers) {
    for (D_INT4 n : numbers) DutErrReportParams(n, nullptr);
    return out_.Take();
  }

  vqtest::TempDir dir_{"vqerrfile"};
  vqtest::OutputCapture out_;
  std::vector<std::string> opened_;
};

// The thread cases: nothing they print reaches the test log.
class ErrorThreads : public Reports {};
