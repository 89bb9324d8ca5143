// The read-write mutex on one thread at a time: arguments, error numbers,
// recursion, write levels, unlock counts and the read quota.

#include <gtest/gtest.h>

#include <cstdarg>
#include <string>

#include "rw_support.hpp"

using rwtest::LibThread;
using rwtest::peek;

namespace {

// ---- Bad input -------------------------------------------------------------

TEST(RwMutexArgs, CreateRejectsBadFlagAndQuota) {
  struct Case {
    D_INT4 locked, quota;
  } bad[] = {{2, 4}, {-1, 4}, {0, 0}, {0, 33}, {0, -1}, {1, 0}, {1, 33}};
  for (const Case &c : bad) {
    DutErrNumSet(0);
    EXPECT_EQ(nullptr, DutRwMutexCreate(c.locked, c.quota)) << c.locked << "/" << c.quota;
    EXPECT_EQ(D_ERR_VAL_INVALID, DutErrNumGet()) << c.locked << "/" << c.quota;
  }
  // Both ends of the quota range are accepted.
  for (D_INT4 quota : {1, 32}) {
    D_RW_MUTEX *rw = DutRwMutexCreate(0, quota);
    ASSERT_NE(nullptr, rw);
    D_INT4 got = 0;
    EXPECT_EQ(D_TRUE, DutRwMutexGetReadQuota(rw, &got));
    EXPECT_EQ(quota, got);
    EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
  }
}

TEST(RwMutexArgs, NullRecordIsInvalidEverywhere) {
  D_INT4 quota = 0;
  auto check = [](const char *what, D_BOOL result) {
    EXPECT_EQ(D_FALSE, result) << what;
    EXPECT_EQ(D_ERR_VAL_INVALID, DutErrNumGet()) << what;
    DutErrNumSet(0);
  };
  DutErrNumSet(0);
  check("Destroy", DutRwMutexDestroy(nullptr));
  check("GetReadQuota", DutRwMutexGetReadQuota(nullptr, &quota));
  check("SetReadQuota", DutRwMutexSetReadQuota(nullptr, 4));
  check("ReadLock", DutRwMutexReadLock(nullptr));
  check("WriteLock", DutRwMutexWriteLock(nullptr));
  check("Unlock", DutRwMutexUnlock(nullptr));
  check("UpgradeLock", DutRwMutexUpgradeLock(nullptr, -1.0));
  check("ReadLocked", DutRwMutexReadLocked(nullptr));
  check("WriteLocked", DutRwMutexWriteLocked(nullptr));
}

TEST(RwMutexArgs, QuotaAccessorsCheckTheirArguments) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 8);
  ASSERT_NE(nullptr, rw);
  DutErrNumSet(0);
  EXPECT_EQ(D_FALSE, DutRwMutexGetReadQuota(rw, nullptr));
  EXPECT_EQ(D_ERR_NULL_PTR, DutErrNumGet());
  for (D_INT4 quota : {0, 33, -5}) {
    DutErrNumSet(0);
    EXPECT_EQ(D_FALSE, DutRwMutexSetReadQuota(rw, quota)) << quota;
    EXPECT_EQ(D_ERR_VAL_INVALID, DutErrNumGet()) << quota;
  }
  // A refused quota leaves the lock untouched and free.
  D_INT4 got = 0;
  EXPECT_EQ(D_TRUE, DutRwMutexGetReadQuota(rw, &got));
  EXPECT_EQ(8, got);
  EXPECT_EQ(0, peek(rw).lock_count);
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

TEST(RwMutexArgs, NegativeUpgradeTimeoutIsTooSmall) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
  ASSERT_NE(nullptr, rw);
  // Checked before anything else, even on a lock the caller does not hold.
  for (double timeout : {-0.5, -2.0, -1.0000001, -0.9999999}) {
    DutErrNumSet(0);
    EXPECT_EQ(D_FALSE, DutRwMutexUpgradeLock(rw, timeout)) << timeout;
    EXPECT_EQ(D_ERR_VAL_TOO_SMALL, DutErrNumGet()) << timeout;
  }
  // -1.0 exactly means "for ever" and is accepted.
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  DutErrNumSet(0);
  EXPECT_EQ(D_TRUE, DutRwMutexUpgradeLock(rw, -1.0));
  EXPECT_EQ(0, DutErrNumGet());
  EXPECT_EQ(D_TRUE, DutRwMutexWriteLocked(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexUnlock(rw));
  EXPECT_EQ(0, peek(rw).lock_count);
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

// ---- States and levels on one thread ----------------------------------------

TEST(RwMutexLevels, CreateLockedIsWriteHeldByTheCreator) {
  D_RW_MUTEX *rw = DutRwMutexCreate(1, 4);
  ASSERT_NE(nullptr, rw);
  EXPECT_EQ(-1, peek(rw).lock_count);
  EXPECT_EQ(D_TRUE, DutRwMutexWriteLocked(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexReadLocked(rw));
  // Another thread sees it held by someone else.
  LibThread other([&] {
    return static_cast<D_WORD>(DutRwMutexWriteLocked(rw) * 10 + DutRwMutexReadLocked(rw));
  });
  EXPECT_EQ(0, other.join());
  EXPECT_EQ(D_TRUE, DutRwMutexUnlock(rw));
  EXPECT_EQ(0, peek(rw).lock_count);
  EXPECT_EQ(D_FALSE, DutRwMutexWriteLocked(rw));
  EXPECT_EQ(D_FALSE, DutRwMutexReadLocked(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

TEST(RwMutexLevels, RecursiveReadsCountEachLevel) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 2);
  ASSERT_NE(nullptr, rw);
  for (int i = 1; i <= 3; ++i) {
    ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
    EXPECT_EQ(i, peek(rw).lock_count);
  }
  EXPECT_EQ(D_TRUE, DutRwMutexReadLocked(rw));
  EXPECT_EQ(D_FALSE, DutRwMutexWriteLocked(rw));
  // One slot serves all levels of one thread.
  EXPECT_EQ(3, rw->read_lock_counts[0]);
  EXPECT_EQ(0, rw->read_lock_counts[1]);
  for (int i = 2; i >= 0; --i) {
    ASSERT_EQ(D_TRUE, DutRwMutexUnlock(rw));
    EXPECT_EQ(i, peek(rw).lock_count);
  }
  EXPECT_EQ(D_FALSE, DutRwMutexReadLocked(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

TEST(RwMutexLevels, WritersReadLocksAreWriteLevels) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
  ASSERT_NE(nullptr, rw);
  ASSERT_EQ(D_TRUE, DutRwMutexWriteLock(rw));
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  EXPECT_EQ(-2, peek(rw).lock_count);
  ASSERT_EQ(D_TRUE, DutRwMutexWriteLock(rw));
  EXPECT_EQ(-3, peek(rw).lock_count);
  // No reader slot was taken for them.
  for (D_INT4 i = 0; i < rw->read_quota; ++i) EXPECT_EQ(0, rw->read_lock_counts[i]);
  EXPECT_EQ(D_TRUE, DutRwMutexReadLocked(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexUnlock(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexUnlock(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexWriteLocked(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexUnlock(rw));
  EXPECT_EQ(0, peek(rw).lock_count);
  EXPECT_EQ(D_FALSE, DutRwMutexWriteLocked(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

// Unlocks one level at a time and records how many it took to free the lock.
int unlocksUntilFree(D_RW_MUTEX *rw) {
  int n = 0;
  while (peek(rw).lock_count != 0 && n < 10) {
    EXPECT_EQ(D_TRUE, DutRwMutexWriteLocked(rw)) << "after " << n << " unlocks";
    EXPECT_EQ(D_TRUE, DutRwMutexUnlock(rw));
    ++n;
  }
  return n;
}

TEST(RwMutexLevels, UnlockCountsAfterUpgradeAndAfterWriteLock) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
  ASSERT_NE(nullptr, rw);
  // Two read locks upgraded: two write levels.
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  ASSERT_EQ(D_TRUE, DutRwMutexUpgradeLock(rw, 0.0));
  EXPECT_EQ(-2, peek(rw).lock_count);
  EXPECT_EQ(0, rw->read_lock_counts[0]);
  EXPECT_EQ(2, unlocksUntilFree(rw));
  // Two read locks and a write lock: three write levels.
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  ASSERT_EQ(D_TRUE, DutRwMutexWriteLock(rw));
  EXPECT_EQ(-3, peek(rw).lock_count);
  EXPECT_EQ(3, unlocksUntilFree(rw));
  EXPECT_EQ(D_FALSE, DutRwMutexReadLocked(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

TEST(RwMutexLevels, UpgradeByTheWriterChangesNothing) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
  ASSERT_NE(nullptr, rw);
  ASSERT_EQ(D_TRUE, DutRwMutexWriteLock(rw));
  ASSERT_EQ(D_TRUE, DutRwMutexWriteLock(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexUpgradeLock(rw, 0.0));
  EXPECT_EQ(-2, peek(rw).lock_count);
  EXPECT_EQ(2, unlocksUntilFree(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

TEST(RwMutexLevels, SetReadQuotaKeepsReadLocksAsWriteLevels) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 2);
  ASSERT_NE(nullptr, rw);
  // Free lock: the quota simply changes and the lock stays free.
  ASSERT_EQ(D_TRUE, DutRwMutexSetReadQuota(rw, 5));
  D_INT4 quota = 0;
  ASSERT_EQ(D_TRUE, DutRwMutexGetReadQuota(rw, &quota));
  EXPECT_EQ(5, quota);
  EXPECT_EQ(0, peek(rw).lock_count);
  for (D_INT4 i = 0; i < 5; ++i) EXPECT_EQ(0, rw->read_lock_counts[i]);
  // Holding two read locks: they come back as two write levels.
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  ASSERT_EQ(D_TRUE, DutRwMutexSetReadQuota(rw, 32));
  ASSERT_EQ(D_TRUE, DutRwMutexGetReadQuota(rw, &quota));
  EXPECT_EQ(32, quota);
  EXPECT_EQ(-2, peek(rw).lock_count);
  EXPECT_EQ(2, unlocksUntilFree(rw));
  // The fresh slots work.
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  EXPECT_EQ(1, peek(rw).lock_count);
  ASSERT_EQ(D_TRUE, DutRwMutexUnlock(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

TEST(RwMutexLevels, SequentialReadersReuseFreedSlots) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 1);
  ASSERT_NE(nullptr, rw);
  // Forty distinct threads, one after another: one slot is enough.
  for (int i = 0; i < 40; ++i) {
    LibThread t([&] {
      D_WORD ok = DutRwMutexReadLock(rw) == D_TRUE && DutRwMutexReadLocked(rw) == D_TRUE;
      return ok && DutRwMutexUnlock(rw) == D_TRUE ? 1 : 0;
    });
    ASSERT_EQ(1, t.join());
  }
  D_INT4 quota = 0;
  ASSERT_EQ(D_TRUE, DutRwMutexGetReadQuota(rw, &quota));
  EXPECT_EQ(1, quota);
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

// ---- Destroying a lock in use warns and goes on -------------------------------

std::string g_output;

int captureOutput(const char *format, va_list args) {
  char buffer[1024];
  int n = std::vsnprintf(buffer, sizeof buffer, format, args);
  g_output += buffer;
  return n;
}

TEST(RwMutexDestroy, InUseLockWarnsButIsDestroyed) {
  D_OUTPUT_FUNC saved = DutGetOutputFunc();
  DutSetOutputFunc(captureOutput);
  g_output.clear();

  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
  ASSERT_NE(nullptr, rw);
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
  const std::string read_held = g_output;

  g_output.clear();
  D_RW_MUTEX *mine = DutRwMutexCreate(1, 4);
  ASSERT_NE(nullptr, mine);
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(mine));
  const std::string write_held_by_me = g_output;

  g_output.clear();
  D_RW_MUTEX *theirs = nullptr;
  LibThread creator([&] {
    theirs = DutRwMutexCreate(1, 4);
    return static_cast<D_WORD>(0);
  });
  creator.join();
  ASSERT_NE(nullptr, theirs);
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(theirs));
  const std::string write_held_by_other = g_output;

  DutSetOutputFunc(saved);
  EXPECT_NE(std::string::npos,
            read_held.find("Internal validation <rw_mutex->write.lock_count <= 0> failed, file: utthread"))
      << read_held;
  EXPECT_EQ("", write_held_by_me);
  EXPECT_NE(std::string::npos,
            write_held_by_other.find(
                "Internal validation <DutThreadEqual(DutThreadSelf(), rw_mutex->write.thread)> failed"))
      << write_held_by_other;
}

}  // namespace
