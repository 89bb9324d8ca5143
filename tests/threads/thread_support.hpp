// Helpers shared by the thread-layer tests: library threads running
// lambdas, unique object names and small waits.
#pragma once

#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>

#include "vqutil/error.h"
#include "vqutil/platform.h"
#include "vqutil/thread.h"

namespace vqtest {

// A library thread running `body`; its result is the thread's exit code.
class LibThread {
 public:
  explicit LibThread(std::function<D_WORD()> body) : body_(std::move(body)) {
    handle_ = DutThreadCreate(&LibThread::run, reinterpret_cast<D_WORD>(this));
  }
  ~LibThread() {
    if (handle_ != D_INVALID_THREAD) join();
  }
  LibThread(const LibThread &) = delete;
  LibThread &operator=(const LibThread &) = delete;

  D_THREAD handle() const { return handle_; }
  D_WORD join() {
    D_WORD code = -12345;
    if (DutThreadWait(handle_, &code) == D_TRUE) handle_ = D_INVALID_THREAD;
    return code;
  }

 private:
  static D_WORD run(D_WORD self) { return reinterpret_cast<LibThread *>(self)->body_(); }
  std::function<D_WORD()> body_;
  D_THREAD handle_ = D_INVALID_THREAD;
};

// Names unique to this process and call, so parallel test processes and
// repeated runs never meet each other's objects.
inline std::string uniqueName(const char *what) {
  static std::atomic<int> counter{0};
  return std::string("vqtest.") + what + "." + std::to_string(getpid()) + "." + std::to_string(counter++);
}

// Polls until `done` holds; gives up after about ten seconds so that a
// broken build fails rather than hangs.
inline bool waitUntil(const std::function<bool()> &done) {
  for (int i = 0; i < 10000; ++i) {
    if (done()) return true;
    DutWinSleep(0.001);
  }
  return done();
}

}  // namespace vqtest
