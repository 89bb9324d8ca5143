// Shared helpers of the hash-table tests: a table owned for a test's
// length, a printf-shaped sink for dumps, line splitting, chain inspection
// and a scoped debug flag.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/hash.h"

namespace hashtest {

using vqtest::OutputCapture;

struct Table {
  explicit Table(D_HASH_TABLE *t) : table(t) {}
  ~Table() {
    if (table != nullptr) DutHashDestroy(table, nullptr, nullptr);
  }
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;
  D_HASH_TABLE *operator->() const { return table; }
  operator D_HASH_TABLE *() const { return table; }
  D_HASH_TABLE *table;
};

// What a dump printed (printf shape).
inline std::string &Dumped() {
  static std::string text;
  return text;
}

inline void DumpSink(const char *format, ...) {
  va_list args, sized;
  va_start(args, format);
  va_copy(sized, args);
  const int length = std::vsnprintf(nullptr, 0, format, sized);
  va_end(sized);
  if (length > 0) {
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, args);
    text.resize(static_cast<size_t>(length));
    Dumped() += text;
  }
  va_end(args);
}

inline std::vector<std::string> Lines(const std::string &text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Keys of one chain, head first.
inline std::vector<D_WORD> ChainKeys(const D_HASH_TABLE *table, D_INT4 index) {
  std::vector<D_WORD> keys;
  for (const D_HASH_BUCKET *b = table->buckets[index]; b != nullptr; b = b->next) keys.push_back(b->key);
  return keys;
}

// Every chain of a table, for comparing two tables' layouts.
inline std::vector<std::vector<D_WORD>> Layout(const D_HASH_TABLE *table) {
  std::vector<std::vector<D_WORD>> chains;
  for (D_INT4 i = 0; i < table->size; ++i) chains.push_back(ChainKeys(table, i));
  return chains;
}

inline D_WORD Word(const char *text) { return reinterpret_cast<D_WORD>(text); }

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
