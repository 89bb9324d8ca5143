// Misuse of the read-write mutex is a fatal assertion with a fixed text.

#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "rw_support.hpp"

using rwtest::LibThread;
using rwtest::literal;
using rwtest::prepareToDie;

namespace {

std::string assertion(const std::string &text) {
  return literal("Assertion <" + text + "> failed, file: utthread");
}

// Runs `body` on a library thread (a distinct identity from the main one).
void onOtherThread(const std::function<void()> &body) {
  LibThread t([&] {
    body();
    return static_cast<D_WORD>(0);
  });
  t.join();
}

struct RwMutexDeathTest : testing::Test {
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(RwMutexDeathTest, UnlockOfAFreeLock) {
  EXPECT_EXIT(
      {
        prepareToDie();
        D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
        DutRwMutexUnlock(rw);
      },
      testing::KilledBySignal(SIGABRT), assertion("rw_mutex->write.lock_count != 0"));
  // One unlock too many after a read lock.
  EXPECT_EXIT(
      {
        prepareToDie();
        D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
        DutRwMutexReadLock(rw);
        DutRwMutexUnlock(rw);
        DutRwMutexUnlock(rw);
      },
      testing::KilledBySignal(SIGABRT), assertion("rw_mutex->write.lock_count != 0"));
}

TEST_F(RwMutexDeathTest, UnlockByANonHolder) {
  // Write-held by the main thread, unlocked by another.
  EXPECT_EXIT(
      {
        prepareToDie();
        D_RW_MUTEX *rw = DutRwMutexCreate(1, 4);
        onOtherThread([&] { DutRwMutexUnlock(rw); });
      },
      testing::KilledBySignal(SIGABRT), assertion("DutThreadEqual(self, rw_mutex->write.thread)"));
  // Read-held by the main thread, unlocked by a thread without a slot.
  EXPECT_EXIT(
      {
        prepareToDie();
        D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
        DutRwMutexReadLock(rw);
        onOtherThread([&] { DutRwMutexUnlock(rw); });
      },
      testing::KilledBySignal(SIGABRT), assertion("-1 != slot"));
}

TEST_F(RwMutexDeathTest, UpgradeWithoutHolding) {
  EXPECT_EXIT(
      {
        prepareToDie();
        D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
        DutRwMutexUpgradeLock(rw, 0.0);
      },
      testing::KilledBySignal(SIGABRT), assertion("rw_mutex->write.lock_count != 0"));
  EXPECT_EXIT(
      {
        prepareToDie();
        D_RW_MUTEX *rw = DutRwMutexCreate(0, 4);
        DutRwMutexReadLock(rw);
        onOtherThread([&] { DutRwMutexUpgradeLock(rw, -1.0); });
      },
      testing::KilledBySignal(SIGABRT), assertion("-1 != slot"));
  EXPECT_EXIT(
      {
        prepareToDie();
        D_RW_MUTEX *rw = DutRwMutexCreate(1, 4);
        onOtherThread([&] { DutRwMutexUpgradeLock(rw, 1.0); });
      },
      testing::KilledBySignal(SIGABRT), assertion("DutThreadEqual(self, rw_mutex->write.thread)"));
}

}  // namespace
