// The read-write mutex on one thread at a time: arguments, error numbers,
// recursion, write levels, unlock counts, the read quota and destroying a
// lock in use.

#include <gtest/gtest.h>

#include <string>

#include "rw_support.hpp"
#include "support/output_capture.hpp"

using rwtest::LibThread;
using rwtest::peek;

namespace {

D_INT4 quotaOf(D_RW_MUTEX *rw) {
  D_INT4 quota = -1;
  EXPECT_EQ(D_TRUE, DutRwMutexGetReadQuota(rw, &quota));
  return quota;
}

// Unlocks one level at a time, each while still write-held, and answers
// how many it took to free the lock.
int unlocksUntilFree(D_RW_MUTEX *rw) {
  int n = 0;
  while (peek(rw).lock_count != 0 && n < 10) {
    EXPECT_EQ(D_TRUE, DutRwMutexWriteLocked(rw)) << "after " << n << " unlocks";
    EXPECT_EQ(D_TRUE, DutRwMutexUnlock(rw));
    ++n;
  }
  return n;
}

#define EXPECT_FAILS_WITH(call, error)             \
  do {                                             \
    DutErrNumSet(0);                               \
    EXPECT_FALSE(call) << #call;                   \
    EXPECT_EQ(error, DutErrNumGet()) << #call;     \
  } while (0)

// ---- Bad input -------------------------------------------------------------

TEST(RwMutexArgs, CreateAndQuotaRanges) {
  struct Case {
    D_INT4 locked, quota;
  } bad[] = {{2, 4}, {-1, 4}, {0, 0}, {0, 33}, {1, 0}, {1, 33}};
  for (const Case &c : bad) EXPECT_FAILS_WITH(DutRwMutexCreate(c.locked, c.quota), D_ERR_VAL_INVALID);
  // Both ends of the quota range are accepted.
  for (D_INT4 quota : {1, 32}) {
    D_RW_MUTEX *rw = DutRwMutexCreate(0, quota);
    ASSERT_NE(nullptr, rw);
    EXPECT_EQ(quota, quotaOf(rw));
    EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
  }
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 8);
  ASSERT_NE(nullptr, rw);
  EXPECT_FAILS_WITH(DutRwMutexGetReadQuota(rw, nullptr), D_ERR_NULL_PTR);
  for (D_INT4 quota : {0, 33}) EXPECT_FAILS_WITH(DutRwMutexSetReadQuota(rw, quota), D_ERR_VAL_INVALID);
  // A refused quota leaves the lock untouched and free.
  EXPECT_EQ(8, quotaOf(rw));
  EXPECT_EQ(0, peek(rw).lock_count);
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

TEST(RwMutexArgs, NullRecordIsInvalidEverywhere) {
  D_INT4 quota = 0;
  EXPECT_FAILS_WITH(DutRwMutexDestroy(nullptr), D_ERR_VAL_INVALID);
  EXPECT_FAILS_WITH(DutRwMutexGetReadQuota(nullptr, &quota), D_ERR_VAL_INVALID);
  EXPECT_FAILS_WITH(DutRwMutexSetReadQuota(nullptr, 4), D_ERR_VAL_INVALID);
  EXPECT_FAILS_WITH(DutRwMutexReadLock(nullptr), D_ERR_VAL_INVALID);
  EXPECT_FAILS_WITH(DutRwMutexWriteLock(nullptr), D_ERR_VAL_INVALID);
  EXPECT_FAILS_WITH(DutRwMutexUnlock(nullptr), D_ERR_VAL_INVALID);
  EXPECT_FAILS_WITH(DutRwMutexUpgradeLock(nullptr, -1.0), D_ERR_VAL_INVALID);
  EXPECT_FAILS_WITH(DutRwMutexReadLocked(nullptr), D_ERR_VAL_INVALID);
  EXPECT_FAILS_WITH(DutRwMutexWriteLocked(nullptr), D_ERR_VAL_INVALID);
}

TEST(RwMutexArgs, NegativeUpgradeTimeoutIsTooSmall) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
  ASSERT_NE(nullptr, rw);
  // Checked before anything else, even on a lock the caller does not hold.
  for (double timeout : {-0.5, -2.0, -1.0000001, -0.9999999})
    EXPECT_FAILS_WITH(DutRwMutexUpgradeLock(rw, timeout), D_ERR_VAL_TOO_SMALL);
  // -1.0 exactly means "for ever" and is accepted.
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  DutErrNumSet(0);
  EXPECT_EQ(D_TRUE, DutRwMutexUpgradeLock(rw, -1.0));
  EXPECT_EQ(0, DutErrNumGet());
  EXPECT_EQ(1, unlocksUntilFree(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

// ---- States and levels on one thread ----------------------------------------

TEST(RwMutexLevels, CreateLockedIsWriteHeldByTheCreator) {
  D_RW_MUTEX *rw = DutRwMutexCreate(1, 4);
  ASSERT_NE(nullptr, rw);
  EXPECT_EQ(-1, peek(rw).lock_count);
  EXPECT_EQ(D_TRUE, DutRwMutexReadLocked(rw));
  // Another thread sees it held by someone else.
  LibThread other([&] {
    return static_cast<D_WORD>(DutRwMutexWriteLocked(rw) * 10 + DutRwMutexReadLocked(rw));
  });
  EXPECT_EQ(0, other.join());
  EXPECT_EQ(1, unlocksUntilFree(rw));
  EXPECT_EQ(D_FALSE, DutRwMutexWriteLocked(rw));
  EXPECT_EQ(D_FALSE, DutRwMutexReadLocked(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

TEST(RwMutexLevels, RecursiveReadsCountEachLevelInOneSlot) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 2);
  ASSERT_NE(nullptr, rw);
  for (int i = 1; i <= 3; ++i) {
    ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
    EXPECT_EQ(i, peek(rw).lock_count);
  }
  EXPECT_EQ(D_TRUE, DutRwMutexReadLocked(rw));
  EXPECT_EQ(D_FALSE, DutRwMutexWriteLocked(rw));
  EXPECT_EQ(3, rw->read_lock_counts[0]);
  EXPECT_EQ(0, rw->read_lock_counts[1]);
  for (int i = 2; i >= 0; --i) {
    ASSERT_EQ(D_TRUE, DutRwMutexUnlock(rw));
    EXPECT_EQ(i, peek(rw).lock_count);
  }
  EXPECT_EQ(D_FALSE, DutRwMutexReadLocked(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

TEST(RwMutexLevels, WriteLevelsFromReadsUpgradesAndTheWriter) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
  ASSERT_NE(nullptr, rw);
  // A writer's read and write locks are further write levels, without a
  // reader slot.
  ASSERT_EQ(D_TRUE, DutRwMutexWriteLock(rw));
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  EXPECT_EQ(-2, peek(rw).lock_count);
  ASSERT_EQ(D_TRUE, DutRwMutexWriteLock(rw));
  EXPECT_EQ(-3, peek(rw).lock_count);
  for (D_INT4 i = 0; i < rw->read_quota; ++i) EXPECT_EQ(0, rw->read_lock_counts[i]);
  // The writer upgrading changes nothing.
  EXPECT_EQ(D_TRUE, DutRwMutexUpgradeLock(rw, 0.0));
  EXPECT_EQ(3, unlocksUntilFree(rw));
  // Two read locks upgraded: two write levels, the slot given back.
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

TEST(RwMutexLevels, SetReadQuotaKeepsReadLocksAsWriteLevels) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 2);
  ASSERT_NE(nullptr, rw);
  // Free lock: the quota simply changes and the lock stays free.
  ASSERT_EQ(D_TRUE, DutRwMutexSetReadQuota(rw, 5));
  EXPECT_EQ(5, quotaOf(rw));
  EXPECT_EQ(0, peek(rw).lock_count);
  for (D_INT4 i = 0; i < 5; ++i) EXPECT_EQ(0, rw->read_lock_counts[i]);
  // Holding two read locks: they come back as two write levels.
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  ASSERT_EQ(D_TRUE, DutRwMutexSetReadQuota(rw, 32));
  EXPECT_EQ(32, quotaOf(rw));
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
  EXPECT_EQ(1, quotaOf(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
}

// ---- Destroying a lock in use warns and goes on -------------------------------

TEST(RwMutexDestroy, InUseLockWarnsButIsDestroyed) {
  vqtest::OutputCapture capture;
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
  ASSERT_NE(nullptr, rw);
  ASSERT_EQ(D_TRUE, DutRwMutexReadLock(rw));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
  EXPECT_NE(std::string::npos,
            capture.Take().find("Internal validation <rw_mutex->write.lock_count <= 0> failed, file: utthread"));
  // Write-held by the caller: no warning.
  D_RW_MUTEX *mine = DutRwMutexCreate(1, 4);
  ASSERT_NE(nullptr, mine);
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(mine));
  EXPECT_EQ("", capture.Take());
  D_RW_MUTEX *theirs = nullptr;
  LibThread creator([&] {
    theirs = DutRwMutexCreate(1, 4);
    return static_cast<D_WORD>(0);
  });
  creator.join();
  ASSERT_NE(nullptr, theirs);
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(theirs));
  const std::string text = capture.Take();
  EXPECT_NE(text.find("Internal validation <DutThreadEqual(DutThreadSelf(), rw_mutex->write.thread)> failed"),
            std::string::npos)
      << text;
}

}  // namespace
