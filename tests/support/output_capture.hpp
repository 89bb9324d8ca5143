// Output capture through the replaceable output function and the checks
// every suite uses: a call that fails with a given error number (or a list
// of calls failing alike), and a statement that fails one of the library's
// assertions.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "vqutil/error.h"
#include "vqutil/output.h"

// Clears the error number, then checks the call's result and the number it left.
#define EXPECT_FAILS(call, result, err)        \
  do {                                         \
    DutErrNumSet(0);                           \
    EXPECT_EQ((call), (result)) << #call;      \
    EXPECT_EQ(DutErrNumGet(), (err)) << #call; \
  } while (0)

// A call answering a pointer, D_BOOL or D_WORD, as an entry of ExpectRefused.
#define AS_WORD(call) [&] { return (D_WORD)(call); }

// The statement runs in a child with fatal errors set to abort and the
// report on standard error, where text_regex is matched; an assertion's
// report names its condition.
#define VQTEST_EXPECT_FATAL(statement, text_regex)      \
  EXPECT_EXIT(                                          \
      {                                                 \
        ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);       \
        DutSetFatalErrorFile(stderr);                   \
        statement;                                      \
      },                                                \
      ::testing::KilledBySignal(SIGABRT), text_regex)
#define VQTEST_EXPECT_ASSERTION(statement, text_regex) \
  VQTEST_EXPECT_FATAL(statement, "Assertion <" text_regex "> failed")

namespace vqtest {

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

// A printf-like function for the library's print-function arguments: it
// appends to the captured text.
inline void CapturePrint(const char *format, ...) {
  va_list args;
  va_start(args, format);
  Capture(format, args);
  va_end(args);
}

// An output function that writes to standard error, for reports a death
// test matches.
inline int ToStderr(const char *format, va_list args) { return std::vfprintf(stderr, format, args); }

// Calls that must each answer 0 (null, D_FALSE) and leave `error`.
inline void ExpectRefused(D_INT4 error, std::initializer_list<std::function<D_WORD()>> calls) {
  for (const auto &call : calls) {
    SCOPED_TRACE(&call - calls.begin());
    EXPECT_FAILS(call(), 0, error);
  }
}

// Text split at its newlines, as printed lines.
inline std::vector<std::string> Lines(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
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

}  // namespace vqtest
