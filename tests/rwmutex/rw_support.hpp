// Helpers for the read-write mutex and other thread tests: library threads
// running lambdas (the lock tells threads apart only when DutThreadCreate
// made them), a look at the lock's state under its own mutex, and bounded
// waits.
#pragma once

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

#include "vqutil/error.h"
#include "vqutil/platform.h"
#include "vqutil/rwmutex.h"
#include "vqutil/thread.h"

namespace rwtest {

// A library thread running `body`; joined by join() or the destructor.
class LibThread {
 public:
  explicit LibThread(std::function<D_WORD()> body) : body_(std::move(body)) {
    handle_ = DutThreadCreate(&LibThread::run, reinterpret_cast<D_WORD>(this));
    if (handle_ == D_INVALID_THREAD) {
      std::fprintf(stderr, "DutThreadCreate failed\n");
      std::abort();
    }
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

// The lock's counters, read under its own mutex so the tests can see who
// waits without racing the lock's code.
struct Snapshot {
  D_INT4 lock_count;
  D_INT4 wait_count;
  bool queue_empty;
};

inline Snapshot peek(D_RW_MUTEX *rw) {
  DutMutexLock(rw->mutex, D_WAIT_FOREVER);
  Snapshot s{rw->write.lock_count, rw->wait_count, rw->wait_queue->next == rw->wait_queue};
  DutMutexUnlock(rw->mutex);
  return s;
}

// Polls until `done` holds; gives up after about ten seconds so that a
// broken lock fails the test instead of hanging it.
inline bool waitUntil(const std::function<bool()> &done) {
  for (int i = 0; i < 10000; ++i) {
    if (done()) return true;
    DutWinSleep(0.001);
  }
  return done();
}

// A thread that is blocked stays blocked for a while: give it time to get
// (wrongly) through before checking that it did not.
inline void settle() { DutWinSleep(0.05); }

// A group of library threads, each running body(index), started one after
// the other or, with `together`, released at once when all have started.
class Threads {
 public:
  Threads(int count, const std::function<D_WORD(int)> &body, bool together = false) {
    for (int i = 0; i < count; ++i) {
      threads_.push_back(std::make_unique<LibThread>([=, this] {
        ready_++;
        while (together && !go_.load()) DutWinSleep(0.0);
        return body(i);
      }));
    }
    waitUntil([&] { return ready_.load() == count; });
    go_ = true;
  }
  // The exit codes, in the order the threads were made.
  std::vector<D_WORD> join() {
    std::vector<D_WORD> codes;
    for (auto &t : threads_) codes.push_back(t->join());
    return codes;
  }

 private:
  std::atomic<int> ready_{0};
  std::atomic<bool> go_{false};
  std::vector<std::unique_ptr<LibThread>> threads_;
};

}  // namespace rwtest
