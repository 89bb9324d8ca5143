// Shared helpers of the file-family tests: a private working directory per
// test and a capture of the library output.
#pragma once

#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "vqutil/error.h"
#include "vqutil/output.h"

namespace files_test {

namespace fs = std::filesystem;

// A fresh directory that becomes the current directory for the test and is
// removed afterwards (tests of one program share the process).
class TempDir {
 public:
  TempDir() : old_(fs::current_path()) {
    static std::atomic<int> counter{0};
    path_ = fs::temp_directory_path() /
            ("vqfiles-" + std::to_string(getpid()) + "-" + std::to_string(counter++));
    fs::remove_all(path_);
    fs::create_directories(path_);
    fs::current_path(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    fs::current_path(old_, ignored);
    fs::remove_all(path_, ignored);
  }
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;

  const fs::path &path() const { return path_; }
  std::string str() const { return path_.string(); }
  std::string file(const std::string &name) const { return (path_ / name).string(); }

 private:
  fs::path old_;
  fs::path path_;
};

inline void writeFile(const std::string &name, const std::string &text) {
  std::ofstream out(name, std::ios::binary | std::ios::trunc);
  out << text;
}

inline std::string readFile(const std::string &name) {
  std::ifstream in(name, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Collects everything written through the library output.
class Capture {
 public:
  Capture() : previous_(DutGetOutputFunc()) {
    buffer().clear();
    DutSetOutputFunc(&Append);
  }
  ~Capture() { DutSetOutputFunc(previous_); }
  Capture(const Capture &) = delete;
  Capture &operator=(const Capture &) = delete;

  static std::string &buffer() {
    static std::string text;
    return text;
  }
  std::string text() const { return buffer(); }

 private:
  static int Append(const char *format, va_list args) {
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

}  // namespace files_test
