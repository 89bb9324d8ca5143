// Helpers for the file-lock tests: a scratch directory per test, and child
// processes that report their steps through a pipe and wait for the
// parent's word through another. Every wait is bounded; a child that is
// stuck is killed.
#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "vqutil/filelock.h"

namespace locktest {

constexpr double kPatience = 10.0;  // seconds any expected event may take

class ScratchDir {
 public:
  ScratchDir() {
    char pattern[] = "/tmp/vqlock-XXXXXX";
    const char *made = ::mkdtemp(pattern);
    path_ = made != nullptr ? made : "";
  }
  ~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDir(const ScratchDir &) = delete;
  ScratchDir &operator=(const ScratchDir &) = delete;

  std::string resource(const std::string &name) const { return path_ + "/" + name; }
  std::string lockFile(const std::string &name) const { return resource(name) + D_LOCK_FILE_SUFFIX; }
  bool hasLockFile(const std::string &name) const { return std::filesystem::exists(lockFile(name)); }

 private:
  std::string path_;
};

// True when a byte arrives on fd within the time; it is stored in *byte.
inline bool readWithin(int fd, double seconds, char *byte) {
  pollfd p{fd, POLLIN, 0};
  if (::poll(&p, 1, static_cast<int>(seconds * 1000)) != 1) return false;
  return ::read(fd, byte, 1) == 1;
}

class Child {
 public:
  // body runs in the child, whose exit code is body's result.
  explicit Child(const std::function<int(Child &)> &body) {
    if (::pipe(up_) != 0 || ::pipe(down_) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::alarm(30);  // whatever goes wrong, the child does not outlive the test
      ::close(up_[0]);
      ::close(down_[1]);
      std::fflush(nullptr);
      ::_exit(body(*this));
    }
    ::close(up_[1]);
    ::close(down_[0]);
  }
  ~Child() {
    if (pid_ > 0) exitCode();
    ::close(up_[0]);
    ::close(down_[1]);
  }
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;

  bool started() const { return pid_ > 0; }

  // ---- In the child ----
  void tell(char what) { [[maybe_unused]] auto n = ::write(up_[1], &what, 1); }
  bool awaitGo() {
    char byte = 0;
    return readWithin(down_[0], kPatience, &byte);
  }

  // ---- In the parent ----
  bool heard(char what, double seconds = kPatience) {
    char byte = 0;
    return readWithin(up_[0], seconds, &byte) && byte == what;
  }
  void go() {
    char byte = 'g';
    [[maybe_unused]] auto n = ::write(down_[1], &byte, 1);
  }
  // The child's exit code; -1 when it had to be killed or died otherwise.
  int exitCode() {
    if (pid_ <= 0) return -1;
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(kPatience);
    pid_t done = 0;
    while ((done = ::waitpid(pid_, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (done == 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, &status, 0);
      status = -1;
    }
    pid_ = -1;
    return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int up_[2] = {-1, -1};
  int down_[2] = {-1, -1};
};

// Counts failed checks in a child, naming each on standard error.
struct ChildChecks {
  int failures = 0;
  void operator()(bool ok, const std::string &what) {
    if (ok) return;
    std::fprintf(stderr, "child check failed: %s\n", what.c_str());
    ++failures;
  }
};

}  // namespace locktest
