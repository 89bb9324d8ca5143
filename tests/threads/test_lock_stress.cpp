// One library mutex and one read-write mutex hammered by eight library
// threads for a bounded time: random recursion depths, time-outs, reads,
// writes, upgrades, and each lock taken while holding the other. Inside
// the locks the threads check that nobody else is where they are, and
// they update plain (non-atomic) data that a broken lock would tear or
// lose; afterwards every count must be back to zero.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "thread_support.hpp"

using vqtest::LibThread;

namespace {

#if defined(__SANITIZE_THREAD__)
constexpr auto kRunFor = std::chrono::milliseconds(600);
#else
constexpr auto kRunFor = std::chrono::milliseconds(2500);
#endif
constexpr int kThreads = 8;
constexpr int kTableSize = 8;

struct Shared {
  D_MUTEX mutex = DutMutexCreate(0);
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
  // Guarded by `mutex`.
  long mutex_counter = 0;
  std::atomic<int> mutex_inside{0};
  // Guarded by `rw`: writers give every entry one new value.
  long table[kTableSize] = {};
  std::atomic<int> readers{0};
  std::atomic<int> writers{0};
  std::atomic<long> violations{0};
  std::atomic<long> mutex_sections{0};
  std::atomic<long> timeouts{0};
};

class Worker {
 public:
  Worker(Shared &s, unsigned seed) : s_(s), rng_(seed) {}

  D_WORD run(std::chrono::steady_clock::time_point until) {
    long ops = 0;
    while (std::chrono::steady_clock::now() < until) {
      switch (pick(7)) {
        case 0:
          mutexSection(anyTimeout());
          break;
        case 1:
        case 2:
          readSection(1 + pick(3));
          break;
        case 3:
          writeSection();
          break;
        case 4:
          upgradeSection();
          break;
        case 5:  // the mutex, then the read-write mutex without limit
          if (DutMutexLock(s_.mutex, D_WAIT_FOREVER) != D_TRUE) fault();
          enterMutex();
          pick(2) == 0 ? readSection(1) : writeSection();
          leaveMutex();
          if (DutMutexUnlock(s_.mutex) != D_TRUE) fault();
          break;
        default:  // the read-write mutex, then the mutex only with a short wait
          DutRwMutexReadLock(s_.rw);
          mutexSection(pick(2) == 0 ? 0.0 : 0.001);
          DutRwMutexUnlock(s_.rw);
          break;
      }
      ++ops;
    }
    return ops;
  }

 private:
  int pick(int n) { return static_cast<int>(rng_() % static_cast<unsigned>(n)); }
  double anyTimeout() {
    constexpr double kTimeouts[] = {D_WAIT_FOREVER, 0.0, 0.0004, 0.002, 0.02};
    return kTimeouts[pick(5)];
  }
  void fault(bool happened = true) { s_.violations += happened; }

  void enterMutex() {
    if (s_.mutex_inside.fetch_add(1) != 0) fault();
    ++s_.mutex_counter;
    s_.mutex_sections++;
  }
  void leaveMutex() { fault(s_.mutex_inside.fetch_sub(1) != 1); }

  // The mutex at a random depth; deeper levels never wait.
  void mutexSection(double timeout) {
    DutErrNumSet(0);
    if (DutMutexLock(s_.mutex, timeout) != D_TRUE) {
      // Only a finite wait may fail, only by its time-out, and leaves
      // nothing held: an unlock is refused.
      if (timeout == D_WAIT_FOREVER || DutErrNumGet() != D_ERR_TIMEOUT_REACHED) fault();
      if (DutMutexUnlock(s_.mutex) != D_FALSE) fault();
      s_.timeouts++;
      return;
    }
    enterMutex();
    const int depth = 1 + pick(3);
    for (int i = 1; i < depth; ++i) fault(DutMutexLock(s_.mutex, 0.0) != D_TRUE);
    if (pick(8) == 0) std::this_thread::yield();
    leaveMutex();
    for (int i = 0; i < depth; ++i) fault(DutMutexUnlock(s_.mutex) != D_TRUE);
  }

  void asReader() {
    s_.readers++;
    if (s_.writers.load() != 0) fault();
    if (!std::all_of(s_.table, s_.table + kTableSize, [&](long v) { return v == s_.table[0]; })) fault();
    s_.readers--;
  }
  void asWriter() {
    if (s_.writers.fetch_add(1) != 0 || s_.readers.load() != 0) fault();
    const long next = s_.table[0] + 1;
    for (long &v : s_.table) v = next;
    if (pick(8) == 0) std::this_thread::yield();
    if (s_.writers.load() != 1 || s_.readers.load() != 0) fault();
    s_.writers--;
  }

  void readSection(int depth) {
    for (int i = 0; i < depth; ++i) DutRwMutexReadLock(s_.rw);
    if (DutRwMutexReadLocked(s_.rw) != D_TRUE) fault();
    asReader();
    for (int i = 0; i < depth; ++i) DutRwMutexUnlock(s_.rw);
  }

  // A writer, with a read level on top that is one more write level.
  void writeSection() {
    DutRwMutexWriteLock(s_.rw);
    DutRwMutexReadLock(s_.rw);
    if (DutRwMutexWriteLocked(s_.rw) != D_TRUE) fault();
    asWriter();
    DutRwMutexUnlock(s_.rw);
    DutRwMutexUnlock(s_.rw);
  }

  void upgradeSection() {
    const int depth = 1 + pick(2);
    for (int i = 0; i < depth; ++i) DutRwMutexReadLock(s_.rw);
    asReader();
    const double timeout = pick(2) == 0 ? D_WAIT_FOREVER : 0.001 * pick(3);
    DutErrNumSet(0);
    if (DutRwMutexUpgradeLock(s_.rw, timeout) == D_TRUE) {
      if (DutRwMutexWriteLocked(s_.rw) != D_TRUE) fault();
      asWriter();
    } else {
      // Refused only by its time-out, with the read locks kept.
      if (timeout == D_WAIT_FOREVER || DutErrNumGet() != D_ERR_TIMEOUT_REACHED) fault();
      if (DutRwMutexReadLocked(s_.rw) != D_TRUE) fault();
      s_.timeouts++;
    }
    for (int i = 0; i < depth; ++i) DutRwMutexUnlock(s_.rw);
  }

  Shared &s_;
  std::mt19937 rng_;
};

}  // namespace

TEST(LockStress, MutexAndReadWriteMutexKeepTheirInvariants) {
  Shared s;
  ASSERT_NE(s.mutex, D_INVALID_MUTEX);
  ASSERT_NE(s.rw, nullptr);
  const auto until = std::chrono::steady_clock::now() + kRunFor;
  std::vector<std::unique_ptr<Worker>> workers;
  std::vector<std::unique_ptr<LibThread>> threads;
  for (int t = 0; t < kThreads; ++t) {
    workers.push_back(std::make_unique<Worker>(s, 7919u * static_cast<unsigned>(t) + 17u));
    Worker *w = workers.back().get();
    threads.push_back(std::make_unique<LibThread>([w, until] { return w->run(until); }));
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_GT(threads[t]->join(), 0) << "thread " << t << " made no progress";

  EXPECT_EQ(s.violations.load(), 0);
  EXPECT_EQ(s.mutex_counter, s.mutex_sections.load()) << "updates under the mutex were lost";
  EXPECT_EQ(s.mutex_inside.load(), 0);
  EXPECT_EQ(s.readers.load(), 0);
  EXPECT_EQ(s.writers.load(), 0);
  rwtest::Snapshot end = rwtest::peek(s.rw);
  EXPECT_EQ(end.lock_count, 0);
  EXPECT_EQ(end.wait_count, 0);
  EXPECT_TRUE(end.queue_empty);
  for (D_INT4 i = 0; i < s.rw->read_quota; ++i) EXPECT_EQ(s.rw->read_lock_counts[i], 0) << "slot " << i;
  // Both free: a try from here gets each at once.
  EXPECT_EQ(DutMutexLock(s.mutex, 0.0), D_TRUE);
  EXPECT_EQ(DutMutexUnlock(s.mutex), D_TRUE);
  EXPECT_EQ(DutRwMutexDestroy(s.rw), D_TRUE);
  EXPECT_EQ(DutMutexDestroy(s.mutex), D_TRUE);
}
