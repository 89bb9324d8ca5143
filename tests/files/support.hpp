// Shared helpers of the file-family tests: a private working directory per
// test, whole-file reads and writes, and the editor setting.
#pragma once

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "support/env_var.hpp"
#include "support/output_capture.hpp"
#include "vqutil/error.h"
#include "vqutil/option.h"


namespace files_test {

namespace fs = std::filesystem;
using vqtest::EnvVar;
using vqtest::OutputCapture;

// A fresh directory that is the current directory for the test's lifetime.
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
  std::ofstream(name, std::ios::binary | std::ios::trunc) << text;
}

inline std::string readFile(const std::string &name) {
  std::ifstream in(name, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Gives a string option a value for one scope (null: unknown); the old
// value comes back afterwards.
class StrOption {
 public:
  StrOption(const char *name, const char *value) : option_(DutOptionLookup(name)) {
    const char *old_value = nullptr;
    if (DutOptionGetStr(option_, &old_value) && old_value != nullptr) saved_ = old_value;
    set(value);
  }
  ~StrOption() { set(saved_ ? saved_->c_str() : nullptr); }
  void set(const char *value) {
    if (value == nullptr) {
      DutOptionSetUnknown(option_);
    } else {
      EXPECT_TRUE(DutOptionSetStr(option_, value)) << value;
    }
  }

 private:
  D_OPTION *option_;
  std::optional<std::string> saved_;
};

// An executable script in dir that appends "args: <its arguments>" and the
// contents of its last argument to dir/editor.log, then runs extra.
inline std::string recordingEditor(const TempDir &dir, const std::string &name,
                                   const std::string &extra = "") {
  std::string path = dir.file(name);
  std::string log = dir.file("editor.log");
  writeFile(path, "#!/bin/sh\necho \"args: $*\" >> '" + log + "'\nfor f; do :; done\ncat \"$f\" >> '" +
                      log + "'\n" + extra + "\n");
  fs::permissions(path, fs::perms::owner_all);
  return path;
}

}  // namespace files_test
