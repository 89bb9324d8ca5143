// Shared fixtures of the string tests: a tap on the debug file and a scoped
// debug flag.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"

namespace strings_test {

using vqtest::OutputCapture;

// Text written to the debug file between construction and since(). The
// debug file is opened under the test's own name unless an earlier test of
// this process opened one on disk already; on standard error there is
// nothing to read, and available() says so.
class DebugTap {
 public:
  DebugTap() {
    const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string leaf = std::string("vq_strings_") + std::to_string(::getpid()) + "_" +
                             (info != nullptr ? info->name() : "none") + ".dbg";
    own_ = std::filesystem::temp_directory_path() / leaf;
    DutDebugOpen(own_.string().c_str());
    FILE *stream = DutDebugFilePtr();
    if (stream != nullptr && stream != stderr && DutDebugFileName() != nullptr) {
      path_ = DutDebugFileName();
      std::fflush(stream);
      start_ = std::filesystem::file_size(path_);
    }
  }
  // Closed so that the next tap opens a file of its own.
  ~DebugTap() {
    if (available()) DutDebugClose();
    std::error_code ignored;
    std::filesystem::remove(own_, ignored);
  }
  DebugTap(const DebugTap &) = delete;
  DebugTap &operator=(const DebugTap &) = delete;

  bool available() const { return !path_.empty(); }
  std::string since() const {
    std::fflush(DutDebugFilePtr());
    std::ifstream in(path_, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    std::string since = text.str().substr(static_cast<std::size_t>(start_));
    // Read as bytes for the offset; the file was written in text mode.
    for (std::size_t at; (at = since.find("\r\n")) != std::string::npos;) since.erase(at, 1);
    return since;
  }

 private:
  std::filesystem::path own_, path_;
  std::uintmax_t start_ = 0;
};

// Switches one debug flag on for a scope.
class DebugFlag {
 public:
  explicit DebugFlag(int flag) : flag_(flag), previous_(DutGetDebugFlags()[flag]) {
    DutGetDebugFlags()[flag] = 1;
  }
  ~DebugFlag() { DutGetDebugFlags()[flag_] = previous_; }
  DebugFlag(const DebugFlag &) = delete;
  DebugFlag &operator=(const DebugFlag &) = delete;

 private:
  int flag_;
  unsigned char previous_;
};

}  // namespace strings_test
