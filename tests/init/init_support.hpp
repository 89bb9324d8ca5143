// Output capture and assertion checks for the initialisation tests.
#pragma once

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "vqutil/output.h"

#define INIT_EXPECT_ASSERTION(statement, text_regex)            \
  EXPECT_EXIT(                                                 \
      {                                                        \
        ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);              \
        DutSetFatalErrorFile(stderr);                          \
        statement;                                             \
      },                                                       \
      ::testing::KilledBySignal(SIGABRT), "Assertion <" text_regex "> failed")

namespace inittest {

inline std::string &Captured() {
  static std::string text;
  return text;
}

inline int Capture(const char *format, va_list args) {
  char piece[2048];
  int n = std::vsnprintf(piece, sizeof piece, format, args);
  if (n > 0) Captured().append(piece, static_cast<size_t>(n) < sizeof piece ? static_cast<size_t>(n) : sizeof piece - 1);
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

}  // namespace inittest
