// The library's locks under the standard guards, across library threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <shared_mutex>
#include <type_traits>
#include <vector>

#include "rwmutex/rw_support.hpp"
#include "vqutil/vqutil.hpp"

namespace {

using namespace std::chrono_literals;
using rwtest::waitUntil;

// Writers under lock_guard (and, for the read-write lock, readers under
// shared_lock) on a plain counter: only the lock keeps it whole.
template <class Lock>
void guardedCounter(Lock &lock) {
  ASSERT_TRUE(lock);
  long value = 0;
  std::atomic<bool> torn{false};
  {
    std::vector<vqutil::Thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 1000; ++i) {
          std::lock_guard<Lock> guard(lock);
          value += 2;
          if (value % 2 != 0) torn = true;
        }
      });
      if constexpr (std::is_same_v<Lock, vqutil::RwMutex>) {
        threads.emplace_back([&] {
          for (int i = 0; i < 1000; ++i) {
            std::shared_lock<vqutil::RwMutex> shared(lock);
            if (value % 2 != 0) torn = true;
          }
        });
      }
    }
  }
  EXPECT_FALSE(torn.load());
  EXPECT_EQ(value, 8000);
}

TEST(CppLockThreads, GuardsKeepACounterWhole) {
  vqutil::Mutex m;
  guardedCounter(m);
  vqutil::RwMutex rw;
  guardedCounter(rw);
}

TEST(CppLockThreads, MutexTryLockFromAnotherThread) {
  DutInitThreads();
  vqutil::Mutex m;
  std::unique_lock<vqutil::Mutex> held(m);
  // Recursive for its holder, refused to everyone else.
  EXPECT_TRUE(m.try_lock());
  m.unlock();
  int other = -1;
  D_INT4 error = 0;
  vqutil::Thread([&] {
    other = m.try_lock_for(20ms) ? 1 : 0;
    error = DutErrNumGet();
  }).join();
  EXPECT_EQ(other, 0);
  EXPECT_EQ(error, D_ERR_TIMEOUT_REACHED);
  held.unlock();
  vqutil::Thread([&] {
    std::unique_lock<vqutil::Mutex> lock(m, std::try_to_lock);
    other = lock.owns_lock() ? 1 : 0;
  }).join();
  EXPECT_EQ(other, 1);
}

// The shared forms reach the read side: readers held under shared_lock are
// in at once, and while they are, the try forms answer for both sides.
// (What a waiting writer does to new readers is the lock's own business,
// tested with the read-write mutex.)
TEST(CppLockThreads, ReadersShareWritersExclude) {
  vqutil::RwMutex rw;
  ASSERT_TRUE(rw);
  std::atomic<int> inside{0};
  std::atomic<bool> release{false};
  std::vector<vqutil::Thread> readers;
  for (int t = 0; t < 3; ++t) {
    readers.emplace_back([&] {
      std::shared_lock<vqutil::RwMutex> lock(rw);
      ++inside;
      waitUntil([&] { return release.load(); });
    });
  }
  EXPECT_TRUE(waitUntil([&] { return inside.load() == 3; }));
  int ok = 0;
  auto tryBoth = [&] {
    vqutil::Thread([&] {
      ok = std::unique_lock<vqutil::RwMutex>(rw, std::try_to_lock).owns_lock() ? 1 : 0;
      if (std::shared_lock<vqutil::RwMutex>(rw, std::try_to_lock).owns_lock()) ok += 2;
    }).join();
    return ok;
  };
  EXPECT_EQ(tryBoth(), 2) << "readers in: another reader only";
  release = true;
  readers.clear();
  EXPECT_EQ(tryBoth(), 3) << "free: both";
}

TEST(CppLockThreads, ThreadExitCodeAndLambdaLifetime) {
  auto life = std::make_shared<int>(7);
  vqutil::Thread t([life] { return static_cast<D_WORD>(*life * 6); });
  EXPECT_EQ(t.join(), 42);
  EXPECT_FALSE(t.joinable());
  EXPECT_EQ(life.use_count(), 1);
}

}  // namespace
