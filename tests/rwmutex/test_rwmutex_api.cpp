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

TEST(RwMutexArgs, RangesNullRecordsAndNegativeUpgradeTimeOuts) {
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 8);
  D_INT4 quota = 0;
  // Flags other than 0 and 1, quotas outside 1..32, and no record at all.
  vqtest::ExpectRefused(D_ERR_VAL_INVALID,
                        {AS_WORD(DutRwMutexCreate(2, 4)), AS_WORD(DutRwMutexCreate(-1, 4)),
                         AS_WORD(DutRwMutexCreate(0, 0)), AS_WORD(DutRwMutexCreate(0, 33)),
                         AS_WORD(DutRwMutexCreate(1, 0)), AS_WORD(DutRwMutexCreate(1, 33)),
                         AS_WORD(DutRwMutexSetReadQuota(rw, 0)), AS_WORD(DutRwMutexSetReadQuota(rw, 33)),
                         AS_WORD(DutRwMutexDestroy(nullptr)), AS_WORD(DutRwMutexGetReadQuota(nullptr, &quota)),
                         AS_WORD(DutRwMutexSetReadQuota(nullptr, 4)), AS_WORD(DutRwMutexReadLock(nullptr)),
                         AS_WORD(DutRwMutexWriteLock(nullptr)), AS_WORD(DutRwMutexUnlock(nullptr)),
                         AS_WORD(DutRwMutexUpgradeLock(nullptr, -1.0)), AS_WORD(DutRwMutexReadLocked(nullptr)),
                         AS_WORD(DutRwMutexWriteLocked(nullptr))});
  EXPECT_FAILS(DutRwMutexGetReadQuota(rw, nullptr), D_FALSE, D_ERR_NULL_PTR);
  EXPECT_EQ(8, quotaOf(rw)) << "a refused quota leaves the lock untouched";
  // Checked before anything else, even on a lock the caller does not hold;
  // -1.0 exactly means "for ever" and is accepted.
  for (double timeout : {-0.5, -2.0, -1.0000001, -0.9999999})
    EXPECT_FAILS(DutRwMutexUpgradeLock(rw, timeout), D_FALSE, D_ERR_VAL_TOO_SMALL);
  DutRwMutexReadLock(rw);
  EXPECT_FAILS(DutRwMutexUpgradeLock(rw, -1.0), D_TRUE, 0);
  EXPECT_TRUE(DutRwMutexUnlock(rw) && DutRwMutexDestroy(rw));
}

// Each row creates a lock, takes the steps ('r' read, 'w' write, 'u'
// upgrade at once, 'q' read quota to 32) and expects the lock's count:
// read levels in the caller's one slot, or write levels (reader slots
// given back) each freed by an unlock while still write-held. Other
// threads never see the caller's levels as theirs.
TEST(RwMutexLevels, RecursionWriteLevelsUpgradesAndQuotaChanges) {
  const struct {
    D_INT4 locked, quota;
    const char *steps;
    D_INT4 count;
  } cases[] = {
      {1, 1, "", -1},     // created locked: write-held by the creator
      {0, 2, "rrr", 3},   // recursive reads
      {0, 4, "wrwu", -3},  // a writer's read, write and upgrade
      {0, 4, "rru", -2},   // two read locks upgraded
      {0, 4, "rrw", -3},   // two read locks and a write lock
      {0, 2, "q", 0},      // a free lock stays free
      {0, 2, "rrq", -2},   // held read locks come back as write levels
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.steps);
    D_RW_MUTEX *rw = DutRwMutexCreate(c.locked, c.quota);
    for (const char *s = c.steps; *s != '\0'; ++s) {
      EXPECT_TRUE(*s == 'r'   ? DutRwMutexReadLock(rw)
                  : *s == 'w' ? DutRwMutexWriteLock(rw)
                  : *s == 'u' ? DutRwMutexUpgradeLock(rw, 0.0)
                              : DutRwMutexSetReadQuota(rw, 32));
    }
    EXPECT_EQ(c.count, peek(rw).lock_count);
    EXPECT_EQ(c.count > 0 ? c.count : 0, rw->read_lock_counts[0]);
    for (D_INT4 i = 1; i < rw->read_quota; ++i) EXPECT_EQ(0, rw->read_lock_counts[i]);
    EXPECT_EQ(c.count != 0, DutRwMutexReadLocked(rw));
    EXPECT_EQ(0, LibThread([&] { return D_WORD{DutRwMutexWriteLocked(rw) || DutRwMutexReadLocked(rw)}; }).join())
        << "held by someone else";
    for (D_INT4 n = c.count; n != 0; n += n > 0 ? -1 : 1) {
      EXPECT_EQ(n < 0, DutRwMutexWriteLocked(rw)) << n;
      EXPECT_TRUE(DutRwMutexUnlock(rw) && peek(rw).lock_count == n + (n > 0 ? -1 : 1)) << n;
    }
    EXPECT_FALSE(DutRwMutexReadLocked(rw) || DutRwMutexWriteLocked(rw));
    // The slots (fresh ones after a change) work, and forty distinct
    // threads one after another reuse them: the quota stays as asked.
    EXPECT_TRUE(DutRwMutexReadLock(rw) && peek(rw).lock_count == 1 && DutRwMutexUnlock(rw));
    for (int i = 0; i < 40; ++i) {
      LibThread t([&] { return D_WORD{DutRwMutexReadLock(rw) && DutRwMutexReadLocked(rw) && DutRwMutexUnlock(rw)}; });
      ASSERT_EQ(1, t.join());
    }
    EXPECT_EQ(std::string(c.steps).find('q') != std::string::npos ? 32 : c.quota, quotaOf(rw));
    EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
  }
}

// Destroying a lock in use warns and goes on; a lock write-held by the
// caller goes quietly.
TEST(RwMutexDestroy, InUseLockWarnsButIsDestroyed) {
  vqtest::OutputCapture capture;
  D_RW_MUTEX *rw = DutRwMutexCreate(0, 4), *theirs = nullptr;
  DutRwMutexReadLock(rw);
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(rw));
  EXPECT_NE(std::string::npos,
            capture.Take().find("Internal validation <rw_mutex->write.lock_count <= 0> failed, file: utthread"));
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(DutRwMutexCreate(1, 4)));
  EXPECT_EQ("", capture.Take());
  LibThread([&] { return D_WORD{(theirs = DutRwMutexCreate(1, 4)) != nullptr}; }).join();
  EXPECT_EQ(D_TRUE, DutRwMutexDestroy(theirs));
  EXPECT_NE(capture.Take().find("Internal validation <DutThreadEqual(DutThreadSelf(), rw_mutex->write.thread)> failed"),
            std::string::npos);
}

}  // namespace
