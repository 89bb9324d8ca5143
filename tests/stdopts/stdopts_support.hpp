// Helpers of the standard-option tests: output capture, environment
// changes undone at scope end, and checks run in a fresh process.
#pragma once

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "vqutil/option.h"
#include "vqutil/output.h"

namespace stdopts {

inline std::string &Captured() {
  static std::string text;
  return text;
}

inline int Capture(const char *format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  int n = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  if (n > 0) {
    std::string piece(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(piece.data(), piece.size(), format, args);
    piece.resize(static_cast<size_t>(n));
    Captured() += piece;
  }
  return n;
}

class OutputCapture {
 public:
  OutputCapture() : previous_(DutGetOutputFunc()) {
    Captured().clear();
    DutSetOutputFunc(&Capture);
  }
  ~OutputCapture() { DutSetOutputFunc(previous_); }
  OutputCapture(const OutputCapture &) = delete;
  OutputCapture &operator=(const OutputCapture &) = delete;
  std::string Take() {
    std::string text;
    text.swap(Captured());
    return text;
  }

 private:
  D_OUTPUT_FUNC previous_;
};

// Sets (or with nullopt removes) an environment variable until scope end.
class EnvGuard {
 public:
  EnvGuard(const char *name, std::optional<std::string> value) : name_(name) {
    if (const char *old = std::getenv(name)) old_ = old;
    if (value)
      ::setenv(name, value->c_str(), 1);
    else
      ::unsetenv(name);
  }
  ~EnvGuard() {
    if (old_)
      ::setenv(name_.c_str(), old_->c_str(), 1);
    else
      ::unsetenv(name_.c_str());
  }
  EnvGuard(const EnvGuard &) = delete;
  EnvGuard &operator=(const EnvGuard &) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

inline std::vector<std::string> Items(const D_OPTION_STR_NODE *node) {
  std::vector<std::string> out;
  for (; node != nullptr; node = node->next) out.emplace_back(node->str);
  return out;
}

// Collects problems found in a child process; the child exits 0 when there
// were none and prints them to standard error (shown by gtest) otherwise.
class ChildReport {
 public:
  void Check(bool ok, const std::string &what) {
    if (!ok) problems_ += what + "\n";
  }
  template <typename A, typename B>
  void Equal(const A &actual, const B &expected, const std::string &what) {
    if (!(actual == expected)) problems_ += what + "\n";
  }
  [[noreturn]] void Finish() {
    if (!problems_.empty()) std::fprintf(stderr, "%s", problems_.c_str());
    std::fflush(stderr);
    std::_Exit(problems_.empty() ? 0 : 1);
  }

 private:
  std::string problems_;
};

}  // namespace stdopts

namespace stdopts {

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

}  // namespace stdopts
