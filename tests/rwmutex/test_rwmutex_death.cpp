// Misuse of the read-write mutex is a fatal assertion with a fixed text.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "rw_support.hpp"
#include "vqutil/output.h"

namespace {

// The assertion's text as a regular expression.
std::string assertion(const std::string &text) {
  std::string out;
  for (char c : "Assertion <" + text + "> failed, file: utthread") {
    if (std::string("()[]{}.*+?^$|\\").find(c) != std::string::npos) out += '\\';
    out += c;
  }
  return out;
}

// Creates the lock in a child set to abort on fatal errors, read-locks it
// when asked, and misuses it through `act` on this thread or another.
void misuse(D_INT4 locked, bool read_lock, bool on_other_thread, void (*act)(D_RW_MUTEX *)) {
  setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
  DutSetFatalErrorFile(stderr);
  D_RW_MUTEX *rw = DutRwMutexCreate(locked, 4);
  if (read_lock) DutRwMutexReadLock(rw);
  if (!on_other_thread) {
    act(rw);
    return;
  }
  rwtest::LibThread t([&] {
    act(rw);
    return static_cast<D_WORD>(0);
  });
  t.join();
}

void unlock(D_RW_MUTEX *rw) { DutRwMutexUnlock(rw); }
void upgradeNow(D_RW_MUTEX *rw) { DutRwMutexUpgradeLock(rw, 0.0); }
void upgradeForEver(D_RW_MUTEX *rw) { DutRwMutexUpgradeLock(rw, -1.0); }
void upgradeWithin(D_RW_MUTEX *rw) { DutRwMutexUpgradeLock(rw, 1.0); }

TEST(RwMutexDeathTest, MisuseIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto aborts = testing::KilledBySignal(SIGABRT);
  // Unlock of a free lock, and one unlock too many after a read lock.
  EXPECT_EXIT(misuse(0, false, false, unlock), aborts, assertion("rw_mutex->write.lock_count != 0"));
  EXPECT_EXIT(misuse(0, true, false, [](D_RW_MUTEX *rw) {
                DutRwMutexUnlock(rw);
                DutRwMutexUnlock(rw);
              }),
              aborts, assertion("rw_mutex->write.lock_count != 0"));
  // Unlock by a thread that holds neither the write lock nor a slot.
  EXPECT_EXIT(misuse(1, false, true, unlock), aborts, assertion("DutThreadEqual(self, rw_mutex->write.thread)"));
  EXPECT_EXIT(misuse(0, true, true, unlock), aborts, assertion("-1 != slot"));
  // Upgrade without holding: a free lock, another's read lock, another's
  // write lock.
  EXPECT_EXIT(misuse(0, false, false, upgradeNow), aborts, assertion("rw_mutex->write.lock_count != 0"));
  EXPECT_EXIT(misuse(0, true, true, upgradeForEver), aborts, assertion("-1 != slot"));
  EXPECT_EXIT(misuse(1, false, true, upgradeWithin), aborts, assertion("DutThreadEqual(self, rw_mutex->write.thread)"));
}

}  // namespace
