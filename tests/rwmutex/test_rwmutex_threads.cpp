// The read-write mutex between library threads: upgrades, priorities of
// writers and upgraders over new readers, quota growth, time-outs, and a
// bounded stress run that checks mutual exclusion inside the lock.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "rw_support.hpp"

using rwtest::LibThread;
using rwtest::peek;
using rwtest::settle;
using rwtest::waitUntil;

namespace {

using Strings = std::vector<std::string>;

// Order in which threads reached their critical points.
class Journal {
 public:
  void note(const std::string &what) {
    std::lock_guard<std::mutex> hold(mutex_);
    entries_.push_back(what);
  }
  Strings entries() {
    std::lock_guard<std::mutex> hold(mutex_);
    return entries_;
  }

 private:
  std::mutex mutex_;
  Strings entries_;
};

// Another library thread that holds one read lock until leave(), and then
// notes "other leaves"; the lock is read-held `count` times once it is in.
class OtherReader {
 public:
  OtherReader(D_RW_MUTEX *rw, Journal &journal, D_INT4 count = 1)
      : thread_([this, rw, &journal] {
          DutRwMutexReadLock(rw);
          waitUntil([&] { return leave_.load(); });
          journal.note("other leaves");
          DutRwMutexUnlock(rw);
          return D_WORD{0};
        }) {
    EXPECT_TRUE(waitUntil([&] { return peek(rw).lock_count == count; }));
  }
  ~OtherReader() { leave(); }
  void leave() {
    leave_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> leave_{false};
  LibThread thread_;
};

struct RwMutexThreads : testing::Test {
  void SetUp() override {
    rw = DutRwMutexCreate(0, 4);
    ASSERT_NE(nullptr, rw);
  }
  void TearDown() override {
    threads.clear();
    EXPECT_EQ(0, overlaps.load());
    if (rw != nullptr) {
      EXPECT_EQ(0, peek(rw).lock_count);
      EXPECT_EQ(0, peek(rw).wait_count);
      EXPECT_TRUE(peek(rw).queue_empty);
      EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
    }
  }
  // On a library thread: reads, upgrades with `timeout`, notes `who`, stays
  // a while checking that no other upgrader is inside, and answers whether
  // it held the write lock.
  LibThread *upgrader(const char *who, double timeout, std::function<void()> before_upgrade = [] {}) {
    threads.push_back(std::make_unique<LibThread>([=, this] {
      DutRwMutexReadLock(rw);
      before_upgrade();
      D_BOOL ok = DutRwMutexUpgradeLock(rw, timeout);
      if (inside.fetch_add(1) != 0) overlaps++;
      journal.note(who);
      settle();
      inside--;
      D_BOOL writer = DutRwMutexWriteLocked(rw);
      DutRwMutexUnlock(rw);
      return static_cast<D_WORD>(ok && writer);
    }));
    return threads.back().get();
  }
  D_RW_MUTEX *rw = nullptr;
  Journal journal;
  std::vector<std::unique_ptr<LibThread>> threads;
  std::atomic<int> inside{0};
  std::atomic<int> overlaps{0};
};

// ---- Upgrades -----------------------------------------------------------------

TEST_F(RwMutexThreads, TwoReadersUpgradingAtOnceBothGetThrough) {
  std::atomic<int> reading{0};
  std::atomic<bool> b_may_upgrade{false};
  LibThread *a = upgrader("A", -1.0, [&] {
    reading++;
    waitUntil([&] { return reading.load() == 2; });
  });
  LibThread *b = upgrader("B", -1.0, [&] {
    reading++;
    waitUntil([&] { return b_may_upgrade.load(); });
  });
  // A queues first and takes its own count out of the lock's count.
  ASSERT_TRUE(waitUntil([&] { return peek(rw).wait_count == 1; }));
  EXPECT_EQ(1, peek(rw).lock_count);
  EXPECT_FALSE(peek(rw).queue_empty);
  b_may_upgrade = true;
  // B finds itself the only reader still counted and upgrades at once;
  // A follows when B unlocks.
  EXPECT_EQ(1, b->join());
  EXPECT_EQ(1, a->join());
  EXPECT_EQ((Strings{"B", "A"}), journal.entries());
}

TEST_F(RwMutexThreads, UpgradeTimesOutWhileAnotherReaderStays) {
  // The only reader upgrades at once.
  EXPECT_EQ(1, upgrader("alone", 0.0)->join());
  OtherReader other(rw, journal);
  // With another reader present it fails, at once or when the time-out
  // passes, and keeps its read locks: nothing left queued or counted twice.
  for (double timeout : {0.0, 0.02}) {
    LibThread second([&] {
      DutRwMutexReadLock(rw);
      DutRwMutexReadLock(rw);
      DutErrNumSet(0);
      EXPECT_EQ(D_FALSE, DutRwMutexUpgradeLock(rw, timeout)) << timeout;
      EXPECT_EQ(D_ERR_TIMEOUT_REACHED, DutErrNumGet()) << timeout;
      EXPECT_EQ(D_TRUE, DutRwMutexReadLocked(rw));
      EXPECT_EQ(D_FALSE, DutRwMutexWriteLocked(rw));
      EXPECT_EQ(3, peek(rw).lock_count);
      EXPECT_EQ(0, peek(rw).wait_count);
      EXPECT_TRUE(peek(rw).queue_empty);
      DutRwMutexUnlock(rw);
      DutRwMutexUnlock(rw);
      return D_WORD{0};
    });
  }
}

TEST_F(RwMutexThreads, UpgradersFirstComeFirstServedAndBeforeWriters) {
  // Three readers; a plain writer waits first, then R1 and R2 upgrade in
  // that order. When the third reader leaves, R1 goes, then R2, then the
  // writer.
  std::atomic<int> stage{0};
  auto wait_turn = [&](int turn) {
    return [&, turn] {
      stage++;
      waitUntil([&] { return stage.load() >= turn; });
    };
  };
  LibThread *r1 = upgrader("R1", -1.0, wait_turn(100));
  LibThread *r2 = upgrader("R2", -1.0, wait_turn(200));
  ASSERT_TRUE(waitUntil([&] { return stage.load() == 2; }));
  OtherReader other(rw, journal, 3);
  LibThread writer([&] {
    D_BOOL ok = DutRwMutexWriteLock(rw);
    journal.note("W");
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(ok);
  });
  ASSERT_TRUE(waitUntil([&] { return peek(rw).wait_count == 1; }));
  stage = 100;
  ASSERT_TRUE(waitUntil([&] { return peek(rw).wait_count == 2; }));
  stage = 200;
  ASSERT_TRUE(waitUntil([&] { return peek(rw).wait_count == 3; }));
  // Only the third reader's lock is still counted: the upgraders took
  // theirs out.
  EXPECT_EQ(1, peek(rw).lock_count);
  other.leave();
  EXPECT_EQ(1, r1->join());
  EXPECT_EQ(1, r2->join());
  EXPECT_EQ(1, writer.join());
  EXPECT_EQ((Strings{"other leaves", "R1", "R2", "W"}), journal.entries());
}

TEST_F(RwMutexThreads, UpgradeOrWriteLockOfAReaderWaitsForTheOtherReader) {
  {
    // An upgrade with a time-out long enough.
    OtherReader other(rw, journal);
    LibThread *up = upgrader("upgraded", 30.0);
    ASSERT_TRUE(waitUntil([&] { return peek(rw).wait_count == 1; }));
    other.leave();
    EXPECT_EQ(1, up->join());
  }
  // A reader with two read locks taking the write lock, which ends three
  // levels deep.
  OtherReader other(rw, journal);
  LibThread reader([&] {
    DutRwMutexReadLock(rw);
    DutRwMutexReadLock(rw);
    DutRwMutexWriteLock(rw);
    journal.note("writes");
    D_WORD depth = -peek(rw).lock_count;
    for (int i = 0; i < 3; ++i) DutRwMutexUnlock(rw);
    return depth;
  });
  ASSERT_TRUE(waitUntil([&] { return peek(rw).wait_count == 1; }));
  settle();
  EXPECT_EQ((Strings{"other leaves", "upgraded"}), journal.entries());
  other.leave();
  EXPECT_EQ(3, reader.join());
  EXPECT_EQ((Strings{"other leaves", "upgraded", "other leaves", "writes"}), journal.entries());
}

// ---- Writers and readers --------------------------------------------------------

TEST_F(RwMutexThreads, WriterExcludesReadersUntilItsLastLevel) {
  std::atomic<bool> release{false};
  LibThread writer([&] {
    DutRwMutexWriteLock(rw);
    DutRwMutexReadLock(rw);  // depth 2
    waitUntil([&] { return release.load(); });
    DutRwMutexUnlock(rw);
    settle();
    journal.note("writer done");
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(0);
  });
  ASSERT_TRUE(waitUntil([&] { return peek(rw).lock_count == -2; }));
  LibThread reader([&] {
    DutRwMutexReadLock(rw);
    journal.note("reader in");
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(0);
  });
  settle();
  release = true;
  writer.join();
  reader.join();
  EXPECT_EQ((Strings{"writer done", "reader in"}), journal.entries());
}

TEST_F(RwMutexThreads, WaitingWriterHoldsBackNewReadersOnly) {
  std::atomic<int> step{0};
  LibThread old_reader([&] {
    DutRwMutexReadLock(rw);
    step = 1;
    waitUntil([&] { return step.load() == 2; });
    // Already holds a slot: a recursive read passes the waiting writer.
    DutRwMutexReadLock(rw);
    journal.note("old reader again");
    step = 3;
    waitUntil([&] { return step.load() == 4; });
    DutRwMutexUnlock(rw);
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(0);
  });
  ASSERT_TRUE(waitUntil([&] { return step.load() == 1; }));
  auto note_inside = [&](D_BOOL (*lock)(D_RW_MUTEX *), const char *who) {
    return [&, lock, who] {
      lock(rw);
      journal.note(who);
      DutRwMutexUnlock(rw);
      return static_cast<D_WORD>(0);
    };
  };
  LibThread writer(note_inside(DutRwMutexWriteLock, "writer"));
  ASSERT_TRUE(waitUntil([&] { return peek(rw).wait_count == 1; }));
  LibThread new_reader(note_inside(DutRwMutexReadLock, "new reader"));
  settle();
  step = 2;
  ASSERT_TRUE(waitUntil([&] { return step.load() == 3; }));
  settle();
  EXPECT_EQ(Strings{"old reader again"}, journal.entries());
  EXPECT_EQ(2, peek(rw).lock_count);
  step = 4;
  old_reader.join();
  writer.join();
  new_reader.join();
  EXPECT_EQ((Strings{"old reader again", "writer", "new reader"}), journal.entries());
}

TEST_F(RwMutexThreads, ReadersShareTheLock) {
  constexpr int kReaders = 6;
  std::atomic<int> inside{0};
  for (int i = 0; i < kReaders; ++i) {
    threads.push_back(std::make_unique<LibThread>([&] {
      DutRwMutexReadLock(rw);
      inside++;
      // Every reader waits inside until all are in at once.
      D_WORD all = waitUntil([&] { return inside.load() == kReaders; });
      DutRwMutexUnlock(rw);
      return all;
    }));
  }
  for (auto &t : threads) EXPECT_EQ(1, t->join());
}

// ---- Read quota ---------------------------------------------------------------------

TEST(RwMutexQuota, ThirtyThirdReaderGrowsTheQuota) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 32);
  ASSERT_NE(nullptr, rw);
  std::atomic<int> holding{0};
  std::atomic<bool> release{false};
  std::vector<std::unique_ptr<LibThread>> readers;
  auto quota = [&] {
    D_INT4 q = 0;
    DutRwMutexGetReadQuota(rw, &q);
    return q;
  };
  for (int n = 1; n <= 33; ++n) {
    readers.push_back(std::make_unique<LibThread>([&] {
      DutRwMutexReadLock(rw);
      DutRwMutexReadLock(rw);
      holding++;
      waitUntil([&] { return release.load(); });
      D_WORD mine = DutRwMutexReadLocked(rw);
      DutRwMutexUnlock(rw);
      DutRwMutexUnlock(rw);
      return mine;
    }));
    ASSERT_TRUE(waitUntil([&] { return holding.load() == n; }));
    EXPECT_EQ(std::max(n, 32), quota()) << n << " readers";
  }
  EXPECT_EQ(66, peek(rw).lock_count);
  for (D_INT4 i = 0; i < 33; ++i) EXPECT_EQ(2, rw->read_lock_counts[i]) << "slot " << i;
  release = true;
  for (auto &r : readers) EXPECT_EQ(1, r->join());
  EXPECT_EQ(0, peek(rw).lock_count);
  EXPECT_EQ(33, quota()) << "the quota stays grown";
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

// ---- Stress -------------------------------------------------------------------------

// Threads do random reads (some recursive), writes, upgrades and reads
// turned into writes, checking inside the lock that no writer overlaps
// anyone. Bounded by time, not by a count, so it ends within seconds.
// Answers the number of violations; ops counts the operations done.
long stress(int thread_count, std::chrono::milliseconds run_for, long &ops_done) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
  std::atomic<int> readers{0};
  std::atomic<int> writers{0};
  std::atomic<long> violations{0};
  std::atomic<long> ops{0};
  const auto deadline = std::chrono::steady_clock::now() + run_for;
  auto as_reader = [&] {
    if (++readers < 1 || writers.load() != 0) violations++;
    readers--;
  };
  auto as_writer = [&] {
    if (++writers != 1 || readers.load() != 0) violations++;
  };
  auto leave_writer = [&] {
    if (writers.load() != 1 || readers.load() != 0) violations++;
    writers--;
  };

  std::vector<std::unique_ptr<LibThread>> threads;
  for (int t = 0; t < thread_count; ++t) {
    threads.push_back(std::make_unique<LibThread>([&, t] {
      std::mt19937 rng(static_cast<unsigned>(t * 7919 + 17));
      while (std::chrono::steady_clock::now() < deadline) {
        switch (rng() % 5) {
          case 0:  // read, maybe recursively
          case 1: {
            int depth = 1 + static_cast<int>(rng() % 3);
            for (int i = 0; i < depth; ++i) DutRwMutexReadLock(rw);
            as_reader();
            for (int i = 0; i < depth; ++i) DutRwMutexUnlock(rw);
            break;
          }
          case 2:  // write, with a read level on top
            DutRwMutexWriteLock(rw);
            as_writer();
            DutRwMutexReadLock(rw);
            if (DutRwMutexWriteLocked(rw) != D_TRUE) violations++;
            DutRwMutexUnlock(rw);
            leave_writer();
            DutRwMutexUnlock(rw);
            break;
          case 3: {  // upgrade, for ever or with a short time-out
            DutRwMutexReadLock(rw);
            as_reader();
            double timeout = (rng() % 2) ? -1.0 : 0.001 * static_cast<double>(rng() % 3);
            if (DutRwMutexUpgradeLock(rw, timeout) == D_TRUE) {
              as_writer();
              leave_writer();
            } else if (DutErrNumGet() != D_ERR_TIMEOUT_REACHED || DutRwMutexReadLocked(rw) != D_TRUE) {
              violations++;
            }
            DutRwMutexUnlock(rw);
            break;
          }
          default:  // a reader asking for the write lock
            DutRwMutexReadLock(rw);
            DutRwMutexWriteLock(rw);
            as_writer();
            leave_writer();
            DutRwMutexUnlock(rw);
            DutRwMutexUnlock(rw);
            break;
        }
        ops++;
      }
      return static_cast<D_WORD>(0);
    }));
  }
  threads.clear();
  rwtest::Snapshot end = peek(rw);
  if (end.lock_count != 0 || end.wait_count != 0 || !end.queue_empty) violations++;
  DutRwMutexDestroy(rw);
  ops_done = ops.load();
  return violations.load();
}

TEST(RwMutexStress, NoWriterEverOverlapsAnyone) {
  for (int n : {2, 4, 8, 16}) {
    long ops = 0;
    EXPECT_EQ(0, stress(n, std::chrono::milliseconds(400), ops)) << n << " threads";
    EXPECT_GT(ops, n) << n << " threads made no progress";
  }
}

}  // namespace
