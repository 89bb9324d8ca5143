// Shared fixtures of the string tests: output capture, a private temp
// directory, a tap on the debug file, and the death-test preamble.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "vqutil/error.h"
#include "vqutil/output.h"

namespace strings_test {

// Collects everything printed through the library's output function while
// alive; restores the previous function afterwards.
class OutputCapture {
 public:
  OutputCapture() : previous_(DutGetOutputFunc()) {
    text().clear();
    DutSetOutputFunc(&OutputCapture::collect);
  }
  ~OutputCapture() { DutSetOutputFunc(previous_); }
  OutputCapture(const OutputCapture &) = delete;
  OutputCapture &operator=(const OutputCapture &) = delete;

  static std::string &text() {
    static std::string buffer;
    return buffer;
  }

 private:
  static int collect(const char *format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (n > 0) {
      std::string piece(static_cast<std::size_t>(n) + 1, '\0');
      std::vsnprintf(piece.data(), piece.size(), format, args);
      piece.resize(static_cast<std::size_t>(n));
      text() += piece;
    }
    return n;
  }

  D_OUTPUT_FUNC previous_;
};

// A directory of this test's own, removed with everything in it.
class TempDir {
 public:
  TempDir() {
    const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string leaf = std::string("vq_strings_") + std::to_string(::getpid()) + "_" +
                       (info != nullptr ? info->name() : "none");
    path_ = std::filesystem::temp_directory_path() / leaf;
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;

  std::filesystem::path file(const std::string &name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

inline std::string readAll(const std::filesystem::path &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Text written to the debug file between construction and since(). The
// debug file is opened in the test's own directory unless an earlier test
// of this process opened one on disk already; on standard error there is
// nothing to read, and available() says so.
class DebugTap {
 public:
  explicit DebugTap(const TempDir &dir) {
    DutDebugOpen(dir.file("strings_test").string().c_str());
    FILE *stream = DutDebugFilePtr();
    if (stream != nullptr && stream != stderr && DutDebugFileName() != nullptr) {
      path_ = DutDebugFileName();
      std::fflush(stream);
      start_ = std::filesystem::file_size(path_);
    }
  }
  ~DebugTap() {
    // Closed so that the next tap opens a file of its own: this one goes
    // with the test's directory.
    if (available()) {
      DutDebugClose();
    }
  }
  DebugTap(const DebugTap &) = delete;
  DebugTap &operator=(const DebugTap &) = delete;

  bool available() const { return !path_.empty(); }
  std::string since() const {
    std::fflush(DutDebugFilePtr());
    const std::string all = readAll(path_);
    return all.substr(static_cast<std::size_t>(start_));
  }

 private:
  std::filesystem::path path_;
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

// Inside a death statement: abort at once on a fatal error and put the
// report on standard error, where the death test can read it.
inline void fatalToStderr() {
  ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
  DutSetFatalErrorFile(stderr);
}

// Runs a statement that must end in a fatal error, set up by fatalToStderr.
template <typename Statement>
void runFatal(Statement &&statement) {
  fatalToStderr();
  statement();
}

}  // namespace strings_test

// EXPECT_ASSERTION("expression text regex", statement...): the statement
// dies by SIGABRT with "Assertion <text> failed" on standard error.
#define EXPECT_ASSERTION(text, ...)                                                               \
  EXPECT_EXIT(strings_test::runFatal([&]() { __VA_ARGS__; }), ::testing::KilledBySignal(SIGABRT), \
              "Assertion <" text "> failed")
