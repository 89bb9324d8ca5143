// Shared pieces of the format tests: the conversion function type, running
// one conversion on a copy of some bytes, and a capture of the warnings.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

#include "vqutil/format.h"
#include "vqutil/output.h"

namespace vqfmt {

using Convert = D_BOOL (*)(void *, D_INT4, D_INT4);

constexpr D_INT4 kLittle = D_INT_LITTLE_ENDIAN;
constexpr D_INT4 kBig = D_INT_BIG_ENDIAN;

template <std::size_t N>
struct Result {
  D_BOOL status;
  std::array<unsigned char, N> bytes;
};

template <std::size_t N>
Result<N> run(Convert fn, std::array<unsigned char, N> bytes, D_INT4 in, D_INT4 out) {
  const D_BOOL status = fn(bytes.data(), in, out);
  return {status, bytes};
}

// Collects everything printed through the output function; the lock keeps
// it correct when several threads warn at once.
class Capture {
 public:
  Capture() : previous_(DutGetOutputFunc()) {
    {
      std::lock_guard<std::mutex> guard(mutex());
      text().clear();
    }
    // Outside our mutex: the sink takes it under the process-wide lock, so
    // holding it while taking that lock would invert the order.
    DutSetOutputFunc(&Capture::sink);
  }
  ~Capture() { DutSetOutputFunc(previous_); }
  Capture(const Capture &) = delete;
  Capture &operator=(const Capture &) = delete;

  std::string take() {
    std::lock_guard<std::mutex> guard(mutex());
    std::string out;
    out.swap(text());
    return out;
  }

 private:
  static std::mutex &mutex() {
    static std::mutex m;
    return m;
  }
  static std::string &text() {
    static std::string t;
    return t;
  }
  static int sink(const char *format, va_list args) {
    char buffer[512];
    const int n = std::vsnprintf(buffer, sizeof buffer, format, args);
    std::lock_guard<std::mutex> guard(mutex());
    if (n > 0) text().append(buffer);
    return n;
  }

  D_OUTPUT_FUNC previous_;
};

// Number of non-overlapping occurrences of needle in haystack.
inline int countOf(const std::string &haystack, const std::string &needle) {
  int count = 0;
  for (std::size_t at = haystack.find(needle); at != std::string::npos;
       at = haystack.find(needle, at + needle.size())) {
    ++count;
  }
  return count;
}

}  // namespace vqfmt
