// Shared scaffolding of the callback tests: scripted callbacks that record
// their calls and may act on the list while they run, and output capture.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "vqutil/callback.h"
#include "vqutil/error.h"
#include "vqutil/output.h"

namespace cbtest {

inline std::vector<std::string> &log() {
  static std::vector<std::string> calls;
  return calls;
}

inline std::string joined() {
  std::string s;
  for (const auto &c : log()) s += c;
  return s;
}

// A callback's argument: its name and what it does when called.
struct Action {
  std::string name;
  std::function<void(D_CB *self, void *object)> then;
};

struct Data {
  D_CB *cb;  // reserved head
  int payload;
};

inline void run(void *object, void *data, D_WORD arg) {
  auto *action = reinterpret_cast<Action *>(arg);
  D_CB *self = static_cast<D_CB_DATA *>(data)->cb;
  log().push_back(action->name);
  if (action->then) action->then(self, object);
}

inline D_WORD word(Action &a) { return reinterpret_cast<D_WORD>(&a); }

// Captures everything printed through DutOut while alive.
class Capture {
 public:
  Capture() {
    buffer().clear();
    previous_ = DutGetOutputFunc();
    DutSetOutputFunc(&Capture::sink);
  }
  ~Capture() { DutSetOutputFunc(previous_); }
  Capture(const Capture &) = delete;
  Capture &operator=(const Capture &) = delete;
  const std::string &text() const { return buffer(); }

 private:
  static std::string &buffer() {
    static std::string b;
    return b;
  }
  static int sink(const char *format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (n > 0) {
      std::string piece(static_cast<std::size_t>(n) + 1, '\0');
      std::vsnprintf(piece.data(), piece.size(), format, args);
      piece.resize(static_cast<std::size_t>(n));
      buffer() += piece;
    }
    return n;
  }
  D_OUTPUT_FUNC previous_;
};

// A printf-like sink for the dump functions.
inline std::string &dumpText() {
  static std::string s;
  return s;
}

inline void dumpSink(const char *format, ...) {
  char piece[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(piece, sizeof piece, format, args);
  va_end(args);
  dumpText() += piece;
}

}  // namespace cbtest
