// The read-write mutex between library threads: upgrades, priorities of
// writers and upgraders over new readers, quota growth, time-outs, and a
// bounded stress run that checks mutual exclusion inside the lock.

#include <gtest/gtest.h>

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
using rwtest::Snapshot;
using rwtest::settle;
using rwtest::waitUntil;

namespace {

// Order in which threads reached their critical points.
class Journal {
 public:
  void note(const std::string &what) {
    std::lock_guard<std::mutex> hold(mutex_);
    entries_.push_back(what);
  }
  std::vector<std::string> entries() {
    std::lock_guard<std::mutex> hold(mutex_);
    return entries_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> entries_;
};

using Strings = std::vector<std::string>;

struct RwMutexThreads : testing::Test {
  void SetUp() override {
    rw = DutRwMutexCreate(0, 4);
    ASSERT_NE(nullptr, rw);
  }
  void TearDown() override {
    if (rw != nullptr) {
      EXPECT_EQ(0, peek(rw).lock_count);
      EXPECT_EQ(0, peek(rw).wait_count);
      EXPECT_TRUE(peek(rw).queue_empty);
      EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
    }
  }
  D_RW_MUTEX *rw = nullptr;
  Journal journal;
};

// ---- Upgrades -----------------------------------------------------------------

TEST_F(RwMutexThreads, TwoReadersUpgradingAtOnceBothGetThrough) {
  std::atomic<int> reading{0};
  std::atomic<bool> b_may_upgrade{false};
  std::atomic<int> writers_inside{0};
  std::atomic<int> overlap{0};

  auto write_section = [&](const char *who) {
    if (writers_inside.fetch_add(1) != 0) overlap++;
    journal.note(std::string(who) + " writes");
    settle();
    writers_inside.fetch_sub(1);
  };

  LibThread a([&] {
    DutRwMutexReadLock(rw);
    reading++;
    waitUntil([&] { return reading.load() == 2; });
    D_BOOL ok = DutRwMutexUpgradeLock(rw, -1.0);
    write_section("A");
    D_BOOL was_writer = DutRwMutexWriteLocked(rw);
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(ok && was_writer);
  });
  LibThread b([&] {
    DutRwMutexReadLock(rw);
    reading++;
    waitUntil([&] { return b_may_upgrade.load(); });
    D_BOOL ok = DutRwMutexUpgradeLock(rw, -1.0);
    write_section("B");
    D_BOOL was_writer = DutRwMutexWriteLocked(rw);
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(ok && was_writer);
  });

  // A queues first and takes its own count out of the lock's count.
  ASSERT_TRUE(waitUntil([&] { return peek(rw).wait_count == 1; }));
  EXPECT_EQ(1, peek(rw).lock_count);
  EXPECT_FALSE(peek(rw).queue_empty);
  b_may_upgrade = true;
  // B finds itself the only reader still counted and upgrades at once;
  // A follows when B unlocks.
  EXPECT_EQ(1, b.join());
  EXPECT_EQ(1, a.join());
  EXPECT_EQ((Strings{"B writes", "A writes"}), journal.entries());
  EXPECT_EQ(0, overlap.load());
}

TEST_F(RwMutexThreads, UpgradeWithZeroTimeout) {
  // The only reader upgrades at once.
  LibThread alone([&] {
    DutRwMutexReadLock(rw);
    D_WORD ok = DutRwMutexUpgradeLock(rw, 0.0) == D_TRUE && DutRwMutexWriteLocked(rw) == D_TRUE;
    DutRwMutexUnlock(rw);
    return ok;
  });
  EXPECT_EQ(1, alone.join());

  // With another reader present it fails at once and keeps its read locks.
  std::atomic<bool> done{false};
  LibThread other([&] {
    DutRwMutexReadLock(rw);
    waitUntil([&] { return done.load(); });
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(0);
  });
  ASSERT_TRUE(waitUntil([&] { return peek(rw).lock_count == 1; }));
  LibThread second([&] {
    DutRwMutexReadLock(rw);
    DutRwMutexReadLock(rw);
    DutErrNumSet(0);
    D_WORD code = 0;
    if (DutRwMutexUpgradeLock(rw, 0.0) == D_FALSE) code += 1;
    if (DutErrNumGet() == D_ERR_TIMEOUT_REACHED) code += 10;
    if (DutRwMutexReadLocked(rw) == D_TRUE && DutRwMutexWriteLocked(rw) == D_FALSE) code += 100;
    if (peek(rw).lock_count == 3 && peek(rw).wait_count == 0 && peek(rw).queue_empty) code += 1000;
    DutRwMutexUnlock(rw);
    DutRwMutexUnlock(rw);
    return code;
  });
  EXPECT_EQ(1111, second.join());
  done = true;
  other.join();
}

TEST_F(RwMutexThreads, UpgradeTimesOutWhileAnotherReaderStays) {
  std::atomic<bool> done{false};
  LibThread other([&] {
    DutRwMutexReadLock(rw);
    waitUntil([&] { return done.load(); });
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(0);
  });
  ASSERT_TRUE(waitUntil([&] { return peek(rw).lock_count == 1; }));
  LibThread upgrader([&] {
    DutRwMutexReadLock(rw);
    DutErrNumSet(0);
    D_WORD code = 0;
    if (DutRwMutexUpgradeLock(rw, 0.02) == D_FALSE) code += 1;
    if (DutErrNumGet() == D_ERR_TIMEOUT_REACHED) code += 10;
    // Back to an ordinary reader: nothing left queued or counted twice.
    Snapshot s = peek(rw);
    if (s.lock_count == 2 && s.wait_count == 0 && s.queue_empty) code += 100;
    if (DutRwMutexReadLocked(rw) == D_TRUE && DutRwMutexWriteLocked(rw) == D_FALSE) code += 1000;
    DutRwMutexUnlock(rw);
    return code;
  });
  EXPECT_EQ(1111, upgrader.join());
  done = true;
  other.join();
}

TEST_F(RwMutexThreads, UpgradeWithTimeoutSucceedsWhenTheOtherReaderLeaves) {
  std::atomic<bool> leave{false};
  LibThread other([&] {
    DutRwMutexReadLock(rw);
    waitUntil([&] { return leave.load(); });
    journal.note("other leaves");
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(0);
  });
  ASSERT_TRUE(waitUntil([&] { return peek(rw).lock_count == 1; }));
  LibThread upgrader([&] {
    DutRwMutexReadLock(rw);
    D_BOOL ok = DutRwMutexUpgradeLock(rw, 30.0);
    journal.note("upgraded");
    D_BOOL writer = DutRwMutexWriteLocked(rw);
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(ok && writer);
  });
  ASSERT_TRUE(waitUntil([&] { return peek(rw).wait_count == 1; }));
  leave = true;
  EXPECT_EQ(1, upgrader.join());
  other.join();
  EXPECT_EQ((Strings{"other leaves", "upgraded"}), journal.entries());
}

TEST_F(RwMutexThreads, UpgradersFirstComeFirstServedAndBeforeWriters) {
  // Three readers; a plain writer waits first, then R1 and R2 upgrade in
  // that order. When R3 leaves, R1 goes, then R2, then the writer.
  std::atomic<int> stage{0};
  auto upgrader = [&](const char *who, int my_turn) {
    return [&, who, my_turn] {
      DutRwMutexReadLock(rw);
      stage++;
      waitUntil([&] { return stage.load() >= my_turn; });
      D_BOOL ok = DutRwMutexUpgradeLock(rw, -1.0);
      journal.note(who);
      DutRwMutexUnlock(rw);
      return static_cast<D_WORD>(ok);
    };
  };
  std::atomic<bool> r3_leave{false};
  LibThread r1(upgrader("R1", 100));
  LibThread r2(upgrader("R2", 200));
  LibThread r3([&] {
    DutRwMutexReadLock(rw);
    stage++;
    waitUntil([&] { return r3_leave.load(); });
    journal.note("R3 leaves");
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(1);
  });
  ASSERT_TRUE(waitUntil([&] { return stage.load() == 3; }));
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
  // Only R3's read lock is still counted: the upgraders took theirs out.
  EXPECT_EQ(1, peek(rw).lock_count);
  r3_leave = true;
  EXPECT_EQ(1, r1.join());
  EXPECT_EQ(1, r2.join());
  EXPECT_EQ(1, r3.join());
  EXPECT_EQ(1, writer.join());
  EXPECT_EQ((Strings{"R3 leaves", "R1", "R2", "W"}), journal.entries());
}

TEST_F(RwMutexThreads, ReaderTakingTheWriteLockWaitsForOtherReaders) {
  std::atomic<bool> leave{false};
  LibThread other([&] {
    DutRwMutexReadLock(rw);
    waitUntil([&] { return leave.load(); });
    journal.note("other leaves");
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(0);
  });
  ASSERT_TRUE(waitUntil([&] { return peek(rw).lock_count == 1; }));
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
  EXPECT_EQ(Strings{}, journal.entries());
  leave = true;
  EXPECT_EQ(3, reader.join());
  other.join();
  EXPECT_EQ((Strings{"other leaves", "writes"}), journal.entries());
}

// ---- Writers and readers --------------------------------------------------------

TEST_F(RwMutexThreads, WriterExcludesReadersUntilItsLastLevel) {
  std::atomic<bool> release{false};
  std::atomic<int> released_levels{0};
  LibThread writer([&] {
    DutRwMutexWriteLock(rw);
    DutRwMutexReadLock(rw);  // depth 2
    waitUntil([&] { return release.load(); });
    DutRwMutexUnlock(rw);
    released_levels++;
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
  LibThread writer([&] {
    DutRwMutexWriteLock(rw);
    journal.note("writer");
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(0);
  });
  ASSERT_TRUE(waitUntil([&] { return peek(rw).wait_count == 1; }));
  LibThread new_reader([&] {
    DutRwMutexReadLock(rw);
    journal.note("new reader");
    DutRwMutexUnlock(rw);
    return static_cast<D_WORD>(0);
  });
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
  std::atomic<int> most{0};
  std::vector<std::unique_ptr<LibThread>> threads;
  for (int i = 0; i < kReaders; ++i) {
    threads.push_back(std::make_unique<LibThread>([&] {
      DutRwMutexReadLock(rw);
      int now = ++inside;
      int seen = most.load();
      while (now > seen && !most.compare_exchange_weak(seen, now)) {
      }
      waitUntil([&] { return most.load() == kReaders; });
      inside--;
      DutRwMutexUnlock(rw);
      return static_cast<D_WORD>(0);
    }));
  }
  threads.clear();
  EXPECT_EQ(kReaders, most.load());
}

// ---- Read quota ---------------------------------------------------------------------

TEST(RwMutexQuota, ThirtyThirdReaderGrowsTheQuota) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 32);
  ASSERT_NE(nullptr, rw);
  std::atomic<int> holding{0};
  std::atomic<bool> release{false};
  std::vector<std::unique_ptr<LibThread>> readers;
  auto add_reader = [&] {
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
  };
  for (int i = 0; i < 32; ++i) add_reader();
  ASSERT_TRUE(waitUntil([&] { return holding.load() == 32; }));
  D_INT4 quota = 0;
  ASSERT_EQ(D_TRUE, DutRwMutexGetReadQuota(rw, &quota));
  EXPECT_EQ(32, quota);
  add_reader();
  ASSERT_TRUE(waitUntil([&] { return holding.load() == 33; }));
  ASSERT_EQ(D_TRUE, DutRwMutexGetReadQuota(rw, &quota));
  EXPECT_EQ(33, quota);
  EXPECT_EQ(66, peek(rw).lock_count);
  for (D_INT4 i = 0; i < 33; ++i) EXPECT_EQ(2, rw->read_lock_counts[i]) << "slot " << i;
  release = true;
  for (auto &r : readers) EXPECT_EQ(1, r->join());
  EXPECT_EQ(0, peek(rw).lock_count);
  // The quota stays grown.
  ASSERT_EQ(D_TRUE, DutRwMutexGetReadQuota(rw, &quota));
  EXPECT_EQ(33, quota);
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

// ---- Stress -------------------------------------------------------------------------

struct StressResult {
  long ops = 0;
  long violations = 0;
};

// Threads do random reads (some recursive), writes, upgrades and reads
// turned into writes, checking inside the lock that no writer overlaps
// anyone. Bounded by time, not by a count, so it ends within seconds.
StressResult stress(int thread_count, std::chrono::milliseconds run_for) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
  std::atomic<int> readers{0};
  std::atomic<int> writers{0};
  std::atomic<long> violations{0};
  std::atomic<long> ops{0};
  const auto deadline = std::chrono::steady_clock::now() + run_for;

  auto as_reader = [&] {
    int r = ++readers;
    if (writers.load() != 0 || r < 1) violations++;
  };
  auto leave_reader = [&] { readers--; };
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
            leave_reader();
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
            leave_reader();
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
  Snapshot end = peek(rw);
  if (end.lock_count != 0 || end.wait_count != 0 || !end.queue_empty) violations++;
  DutRwMutexDestroy(rw);
  return StressResult{ops.load(), violations.load()};
}

TEST(RwMutexStress, NoWriterEverOverlapsAnyone) {
  for (int n : {2, 4, 8, 16}) {
    StressResult r = stress(n, std::chrono::milliseconds(400));
    EXPECT_EQ(0, r.violations) << n << " threads";
    EXPECT_GT(r.ops, n) << n << " threads made no progress";
  }
}

}  // namespace
