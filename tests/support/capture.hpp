// Captures what the library prints through its output function, and puts
// the previous output function back when the capture ends.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

#include "vqutil/output.h"

namespace vqtest {

inline std::string &CapturedText() {
  static std::string text;
  return text;
}

inline int CaptureOutput(const char *format, va_list args) {
  va_list sized;
  va_copy(sized, args);
  int length = std::vsnprintf(nullptr, 0, format, sized);
  va_end(sized);
  if (length > 0) {
    std::string piece(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(piece.data(), piece.size(), format, args);
    piece.resize(static_cast<size_t>(length));
    CapturedText() += piece;
  }
  return length;
}

class OutputCapture {
 public:
  OutputCapture() : previous_(DutGetOutputFunc()) {
    CapturedText().clear();
    DutSetOutputFunc(&CaptureOutput);
  }
  ~OutputCapture() { DutSetOutputFunc(previous_); }
  OutputCapture(const OutputCapture &) = delete;
  OutputCapture &operator=(const OutputCapture &) = delete;

  // Everything printed since the capture started (or since the last Take).
  std::string Take() {
    std::string text;
    text.swap(CapturedText());
    return text;
  }

 private:
  D_OUTPUT_FUNC previous_;
};

}  // namespace vqtest
