// The read-write mutex between library threads: upgrades, priorities of
// writers and upgraders over new readers, quota growth, time-outs, and a
// bounded stress run that checks mutual exclusion inside the lock.

#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <mutex>
#include <random>
#include <string>

#include "rw_support.hpp"
#include "support/output_capture.hpp"

using rwtest::LibThread;
using rwtest::peek;
using rwtest::settle;
using rwtest::waitUntil;

namespace {

struct RwMutexThreads : testing::Test {
  void SetUp() override { ASSERT_NE(nullptr, rw = DutRwMutexCreate(0, 4)); }
  void TearDown() override {
    joinAll();
    EXPECT_EQ(0, overlaps.load());
    rwtest::Snapshot end = peek(rw);
    EXPECT_TRUE(end.lock_count == 0 && end.wait_count == 0 && end.queue_empty);
    EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
  }
  // Joins the threads not joined yet, each expected to answer 0.
  void joinAll() {
    for (auto &t : threads) {
      if (t->handle() != D_INVALID_THREAD) {
        EXPECT_EQ(0, t->join()) << "an actor's step failed";
      }
    }
    threads.clear();
  }
  LibThread *thread(std::function<D_WORD()> body) {
    return threads.emplace_back(std::make_unique<LibThread>(std::move(body))).get();
  }
  // Runs `script`, a step per character: r, w read or write lock; u, t,
  // s, n upgrade for ever, within 30 s, within 10 ms, at once; o upgrade
  // within 0 to 2 ms, keeping the read lock if refused; x unlock; a digit
  // waits for the gate to reach it; '.' lets time pass; '+' is inside as a
  // reader; '=' is inside as the only writer, '*' staying a while; a
  // capital is noted.
  // Answers how many steps failed.
  D_WORD run(const char *script) {
    D_WORD failed = 0;
    for (const char *s = script; *s != '\0'; ++s) {
      switch (*s) {
        case 'r': failed += !DutRwMutexReadLock(rw); break;
        case 'w': failed += !DutRwMutexWriteLock(rw); break;
        case 'u': failed += !DutRwMutexUpgradeLock(rw, -1.0); break;
        case 't': failed += !DutRwMutexUpgradeLock(rw, 30.0); break;
        case 's': failed += !DutRwMutexUpgradeLock(rw, 0.01); break;
        case 'n': failed += !DutRwMutexUpgradeLock(rw, 0.0); break;
        case 'o':
          if (DutRwMutexUpgradeLock(rw, 0.001 * (tries++ % 3)) == D_TRUE) {
            failed += run("=");
          } else {
            failed += DutErrNumGet() != D_ERR_TIMEOUT_REACHED || !DutRwMutexReadLocked(rw);
          }
          break;
        case 'x': failed += !DutRwMutexUnlock(rw); break;
        case '.': settle(); break;
        case '+':
          overlaps += ++readers < 1 || writers.load() != 0;
          readers--;
          break;
        case '=':
        case '*':
          failed += !DutRwMutexWriteLocked(rw);
          overlaps += ++writers != 1 || readers.load() != 0;
          if (*s == '*') settle();
          overlaps += writers.load() != 1 || readers.load() != 0;
          writers--;
          break;
        default:
          if (std::isdigit(static_cast<unsigned char>(*s))) {
            waitUntil([&] { return gate.load() >= *s - '0'; });
          } else {
            std::lock_guard<std::mutex> hold(journal_mutex);
            journal += *s;
          }
      }
    }
    return failed;
  }
  LibThread *actor(const char *script) {
    return thread([=, this] { return run(script); });
  }
  std::string notes() {
    std::lock_guard<std::mutex> hold(journal_mutex);
    return journal;
  }
  // Waits until the lock's count, or the number of waiters, reaches n.
  void untilCount(D_INT4 n) { ASSERT_TRUE(waitUntil([&] { return peek(rw).lock_count == n; })) << n; }
  void untilWaiting(D_INT4 n) { ASSERT_TRUE(waitUntil([&] { return peek(rw).wait_count == n; })) << n; }

  D_RW_MUTEX *rw = nullptr;
  std::atomic<int> gate{0}, readers{0}, writers{0}, overlaps{0}, tries{0};
  std::mutex journal_mutex;
  std::string journal;
  std::vector<std::unique_ptr<LibThread>> threads;
};

// ---- Upgrades -----------------------------------------------------------------

TEST_F(RwMutexThreads, TwoReadersUpgradingAtOnceBothGetThrough) {
  actor("r1u*Ax");
  actor("r2u*Bx");
  untilCount(2);
  gate = 1;
  // A queues first and takes its own count out of the lock's count.
  untilWaiting(1);
  EXPECT_TRUE(peek(rw).lock_count == 1 && !peek(rw).queue_empty);
  // B finds itself the only reader still counted and upgrades at once;
  // A follows when B unlocks.
  gate = 2;
  joinAll();
  EXPECT_EQ("BA", notes());
}

TEST_F(RwMutexThreads, UpgradeTimingOutBehindALaterUpgraderWaitsForIt) {
  // A queues with a 10 ms time-out; B, then the only reader counted,
  // upgrades at once and stays well past that time-out. A's read lock
  // cannot be counted back beside B's write level, so A gives up only once
  // B has left, and by then the lock is its own.
  actor("r1s*Ax");
  actor("r2u.*Bx");
  untilCount(2);
  gate = 1;
  untilWaiting(1);
  gate = 2;
  joinAll();
  EXPECT_EQ("BA", notes());
}

TEST_F(RwMutexThreads, UpgradeTimesOutWhileAnotherReaderStays) {
  EXPECT_EQ(0, actor("rn*x")->join()) << "the only reader upgrades at once";
  actor("r1x");
  untilCount(1);
  // With another reader present it fails, at once or when the time-out
  // passes, and keeps its read locks: nothing left queued or counted twice.
  for (double timeout : {0.0, 0.02}) {
    LibThread([&] {
      DutRwMutexReadLock(rw);
      DutRwMutexReadLock(rw);
      EXPECT_FAILS(DutRwMutexUpgradeLock(rw, timeout), D_FALSE, D_ERR_TIMEOUT_REACHED);
      EXPECT_TRUE(DutRwMutexReadLocked(rw) && !DutRwMutexWriteLocked(rw));
      rwtest::Snapshot s = peek(rw);
      EXPECT_TRUE(s.lock_count == 3 && s.wait_count == 0 && s.queue_empty) << timeout;
      return D_WORD{!DutRwMutexUnlock(rw) || !DutRwMutexUnlock(rw)};
    }).join();
  }
  gate = 1;
}

TEST_F(RwMutexThreads, UpgradersFirstComeFirstServedAndBeforeWriters) {
  // Three readers; a plain writer waits first, then P and Q upgrade in that
  // order. When the third reader leaves, P goes, then Q, then the writer.
  actor("r1u*Px");
  actor("r2u*Qx");
  untilCount(2);
  actor("r3Ox");
  untilCount(3);
  actor("w*Wx");
  untilWaiting(1);
  gate = 1;
  untilWaiting(2);
  gate = 2;
  untilWaiting(3);
  // Only the third reader's lock is still counted: the upgraders took
  // theirs out.
  EXPECT_EQ(1, peek(rw).lock_count);
  gate = 3;
  joinAll();
  EXPECT_EQ("OPQW", notes());
}

TEST_F(RwMutexThreads, UpgradeOrWriteLockOfAReaderWaitsForTheOtherReader) {
  // An upgrade with a time-out long enough, then a reader with two read
  // locks taking the write lock, which ends three levels deep.
  actor("r1Ox");
  untilCount(1);
  actor("rt*Ux");
  untilWaiting(1);
  gate = 1;
  untilCount(0);
  actor("r2Ox");
  untilCount(1);
  actor("rrw*Dxxx");
  untilWaiting(1);
  settle();
  EXPECT_EQ("OU", notes());
  gate = 2;
  joinAll();
  EXPECT_EQ("OUOD", notes());
}

// ---- Writers and readers --------------------------------------------------------

TEST_F(RwMutexThreads, WriterExcludesReadersUntilItsLastLevel) {
  actor("wr1x.Ex");
  untilCount(-2);
  actor("rRx");
  settle();
  gate = 1;
  joinAll();
  EXPECT_EQ("ER", notes());
}

TEST_F(RwMutexThreads, WaitingWriterHoldsBackNewReadersOnly) {
  // The old reader already holds a slot: its recursive read passes the
  // waiting writer, which goes before the new reader.
  actor("r1rO2xx");
  untilCount(1);
  actor("w*Wx");
  untilWaiting(1);
  actor("rNx");
  settle();
  gate = 1;
  ASSERT_TRUE(waitUntil([&] { return notes() == "O"; }));
  settle();
  EXPECT_TRUE(notes() == "O" && peek(rw).lock_count == 2);
  gate = 2;
  joinAll();
  EXPECT_EQ("OWN", notes());
}

// ---- Read quota ---------------------------------------------------------------------

// All readers are inside at once (each waits for the others there); the
// thirty-third grows a full quota, which stays grown.
TEST(RwMutexQuota, ReadersShareTheLockAndTheThirtyThirdGrowsTheQuota) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 32);
  std::atomic<int> holding{0};
  D_INT4 quota = 0;
  rwtest::Threads readers(33, [&](int) {
    DutRwMutexReadLock(rw);
    DutRwMutexReadLock(rw);
    holding++;
    waitUntil([&] { return holding.load() > 33; });
    D_WORD mine = DutRwMutexReadLocked(rw);
    return mine && DutRwMutexUnlock(rw) && DutRwMutexUnlock(rw);
  });
  ASSERT_TRUE(waitUntil([&] { return holding.load() == 33; }));
  EXPECT_TRUE(DutRwMutexGetReadQuota(rw, &quota) && quota == 33);
  EXPECT_EQ(66, peek(rw).lock_count);
  for (D_INT4 i = 0; i < 33; ++i) EXPECT_EQ(2, rw->read_lock_counts[i]) << "slot " << i;
  holding++;
  for (D_WORD code : readers.join()) EXPECT_EQ(1, code);
  EXPECT_EQ(0, peek(rw).lock_count);
  EXPECT_TRUE(DutRwMutexGetReadQuota(rw, &quota) && quota == 33) << "the quota stays grown";
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

// ---- Stress -------------------------------------------------------------------------

// Threads run random reads (some recursive), writes, upgrades and reads
// turned into writes, checking inside the lock that no writer overlaps
// anyone. Bounded by time, not by a count, so it ends within seconds.
TEST_F(RwMutexThreads, StressNoWriterEverOverlapsAnyone) {
  const char *patterns[] = {"r+x", "rr+xx", "rrr+xxx", "wr=xx", "r+u=x", "r+ox", "rw=xx"};
  for (int n : {2, 4, 8, 16}) {
    std::atomic<long> ops{0};
    auto failed = rwtest::Threads(n, [&](int t) {
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(400);
      std::mt19937 rng(static_cast<unsigned>(t * 7919 + 17));
      D_WORD failed = 0;
      for (; std::chrono::steady_clock::now() < deadline; ops++) failed += run(patterns[rng() % 7]);
      return failed;
    }, true).join();
    EXPECT_EQ(std::vector<D_WORD>(static_cast<std::size_t>(n), 0), failed) << n << " threads";
    EXPECT_GT(ops.load(), n) << n << " threads made no progress";
  }
}

}  // namespace
