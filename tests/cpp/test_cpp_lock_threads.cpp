// The library's locks under the standard guards, across library threads.
#include <gtest/gtest.h>

#include <mutex>
#include <shared_mutex>

#include "rwmutex/rw_support.hpp"
#include "vqutil/vqutil.hpp"

namespace {

using namespace std::chrono_literals;
using rwtest::waitUntil;

// Writers under lock_guard (and, for the read-write lock, readers under
// shared_lock) on a plain counter: only the lock keeps it whole.
template <class Lock>
void guardedCounter(Lock &&lock) {
  ASSERT_TRUE(lock);
  long value = 0;
  std::atomic<bool> odd{false};  // readers race a write only if let in; the thread sanitizer sees it
  std::vector<vqutil::Thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 1000; ++i) {
        std::lock_guard<Lock> guard(lock);
        value += 2;
      }
    });
    if constexpr (std::is_same_v<Lock, vqutil::RwMutex>) {
      threads.emplace_back([&] {
        for (int i = 0; i < 1000; ++i) {
          std::shared_lock<vqutil::RwMutex> shared(lock);
          if (value % 2 != 0) odd = true;
        }
      });
    }
  }
  threads.clear();  // joined
  EXPECT_TRUE(value == 8000 && !odd);
}

TEST(CppLockThreads, GuardsKeepACounterWhole) {
  guardedCounter(vqutil::Mutex());
  guardedCounter(vqutil::RwMutex());
}

// What `attempt` answers on another library thread, as its exit code.
D_WORD elsewhere(const std::function<D_WORD()> &attempt) {
  vqutil::Thread thread([&attempt] { return attempt(); });
  EXPECT_TRUE(thread.joinable());
  return thread.join();
}

// The try forms answer for everyone else: the mutex is recursive for its
// holder only; readers held under shared_lock are in at once, and while
// they are, another thread gets the read side only. (What a waiting writer
// does to new readers is the lock's own business, tested with the
// read-write mutex.)
TEST(CppLockThreads, TryFormsOnAnotherThread) {
  DutInitThreads();
  vqutil::Mutex m;
  std::unique_lock<vqutil::Mutex> held(m);
  EXPECT_TRUE(m.try_lock());
  m.unlock();
  EXPECT_EQ(elsewhere([&] { return m.try_lock_for(20ms) ? 0 : DutErrNumGet(); }), D_ERR_TIMEOUT_REACHED);
  // A deadline already past does not wait at all.
  const auto past = std::chrono::steady_clock::now() - 1s;
  EXPECT_EQ(elsewhere([&] { return m.try_lock_until(past) ? 0 : DutErrNumGet(); }), D_ERR_TIMEOUT_REACHED);
  held.unlock();
  EXPECT_EQ(elsewhere([&] { return std::unique_lock<vqutil::Mutex>(m, std::try_to_lock).owns_lock(); }), 1);

  vqutil::RwMutex rw = vqutil::check(vqutil::RwMutex());  // a new handle passed through
  auto tryBoth = [&] {  // 1: the write side, 2: the read side
    return elsewhere([&] {
      const int write = std::unique_lock<vqutil::RwMutex>(rw, std::try_to_lock).owns_lock();
      return write + 2 * std::shared_lock<vqutil::RwMutex>(rw, std::try_to_lock).owns_lock();
    });
  };
  std::atomic<int> inside{0};
  std::atomic<bool> release{false};
  rwtest::Threads readers(3, [&](int) -> D_WORD {
    std::shared_lock<vqutil::RwMutex> lock(rw);
    ++inside;
    return waitUntil([&] { return release.load(); });
  });
  EXPECT_TRUE(waitUntil([&] { return inside.load() == 3; }));
  EXPECT_EQ(tryBoth(), 2) << "readers in: another reader only";
  release = true;
  readers.join();
  EXPECT_EQ(tryBoth(), 3) << "free: both";
}

}  // namespace
