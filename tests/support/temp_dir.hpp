// A fresh directory under the system's temporary folder for one scope,
// removed with all it holds at the end; with `enter`, also the current
// directory meanwhile. Names carry the process id and a counter, so that
// parallel test processes and repeated runs never share one.
#pragma once

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace vqtest {

class TempDir {
 public:
  explicit TempDir(const std::string &prefix = "vqtest", bool enter = false) {
    static std::atomic<int> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            (prefix + "-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
    if (enter) {
      old_ = std::filesystem::current_path();
      std::filesystem::current_path(path_);
    }
  }
  ~TempDir() {
    std::error_code ignored;
    if (!old_.empty()) std::filesystem::current_path(old_, ignored);
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;

  const std::filesystem::path &path() const { return path_; }
  std::string str() const { return path_.string(); }
  std::string file(const std::string &name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
  std::filesystem::path old_;
};

// A whole file's text. Text mode by default, as the library writes its
// files ("\r\n" on Windows); binary for byte-exact checks.
inline std::string ReadFile(const std::filesystem::path &path, bool binary = false) {
  std::ifstream in(path, binary ? std::ios::in | std::ios::binary : std::ios::in);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteFile(const std::filesystem::path &path, const std::string &text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace vqtest
