// Shared helpers of the hash-table tests: output capture, a printf-shaped
// sink for dumps, line splitting, chain inspection and the death-test
// set-up that makes a fatal error abort at once with its report on stderr.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "vqutil/error.h"
#include "vqutil/hash.h"
#include "vqutil/output.h"

namespace hashtest {

inline std::string Format(const char *format, va_list args) {
  va_list sized;
  va_copy(sized, args);
  int length = std::vsnprintf(nullptr, 0, format, sized);
  va_end(sized);
  if (length <= 0) return {};
  std::string text(static_cast<size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, args);
  text.resize(static_cast<size_t>(length));
  return text;
}

inline std::mutex &SinkMutex() {
  static std::mutex m;
  return m;
}

inline std::string &Printed() {
  static std::string text;
  return text;
}

// The library's output function (vprintf shape).
inline int CaptureOutput(const char *format, va_list args) {
  std::string piece = Format(format, args);
  std::lock_guard<std::mutex> hold(SinkMutex());
  Printed() += piece;
  return static_cast<int>(piece.size());
}

// A dump's output function (printf shape).
inline std::string &Dumped() {
  static std::string text;
  return text;
}

inline void DumpSink(const char *format, ...) {
  va_list args;
  va_start(args, format);
  Dumped() += Format(format, args);
  va_end(args);
}

class OutputCapture {
 public:
  OutputCapture() : previous_(DutGetOutputFunc()) {
    Printed().clear();
    DutSetOutputFunc(&CaptureOutput);
  }
  ~OutputCapture() { DutSetOutputFunc(previous_); }
  OutputCapture(const OutputCapture &) = delete;
  OutputCapture &operator=(const OutputCapture &) = delete;

  std::string Take() {
    std::lock_guard<std::mutex> hold(SinkMutex());
    std::string text;
    text.swap(Printed());
    return text;
  }

 private:
  D_OUTPUT_FUNC previous_;
};

inline std::vector<std::string> Lines(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Keys of one chain, head first.
inline std::vector<D_WORD> ChainKeys(const D_HASH_TABLE *table, D_INT4 index) {
  std::vector<D_WORD> keys;
  for (const D_HASH_BUCKET *b = table->buckets[index]; b != nullptr; b = b->next) {
    keys.push_back(b->key);
  }
  return keys;
}

// Every chain of a table, for comparing two tables' layouts.
inline std::vector<std::vector<D_WORD>> Layout(const D_HASH_TABLE *table) {
  std::vector<std::vector<D_WORD>> chains;
  for (D_INT4 i = 0; i < table->size; ++i) chains.push_back(ChainKeys(table, i));
  return chains;
}

inline D_WORD Word(const char *text) { return reinterpret_cast<D_WORD>(text); }

// Inside a death statement: abort at once, report on stderr.
inline void PrepareToDie() {
  setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
  DutSetFatalErrorFile(stderr);
}

class DebugFlagGuard {
 public:
  explicit DebugFlagGuard(int flag) : flag_(flag), saved_(DutGetDebugFlags()[flag]) {
    DutGetDebugFlags()[flag] = 1;
  }
  ~DebugFlagGuard() { DutGetDebugFlags()[flag_] = saved_; }
  DebugFlagGuard(const DebugFlagGuard &) = delete;
  DebugFlagGuard &operator=(const DebugFlagGuard &) = delete;

 private:
  int flag_;
  unsigned char saved_;
};

}  // namespace hashtest
