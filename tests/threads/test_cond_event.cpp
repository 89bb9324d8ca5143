// Conditions and manual-reset events: time-out units, the state of the
// mutex after a condition wait, wake-all, sharing and exclusivity of names.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "thread_support.hpp"

using vqtest::LibThread;
using vqtest::uniqueName;
using vqtest::waitUntil;

namespace {

D_BOOL lockedElsewhere(D_MUTEX m) {
  LibThread t([m] {
    D_BOOL got = DutMutexLock(m, 0.0);
    if (got == D_TRUE) DutMutexUnlock(m);
    return D_WORD{got == D_TRUE ? 0 : 1};
  });
  return t.join() == 1 ? D_TRUE : D_FALSE;
}

struct CondWait : testing::Test {
  void SetUp() override {
    m = DutMutexCreate(0);
    c = DutCondCreate();
    ASSERT_NE(m, D_INVALID_MUTEX);
    ASSERT_NE(c, D_INVALID_COND);
  }
  void TearDown() override {
    EXPECT_EQ(DutCondDestroy(c), D_TRUE);
    EXPECT_EQ(DutMutexDestroy(m), D_TRUE);
  }
  D_MUTEX m = D_INVALID_MUTEX;
  D_COND c = D_INVALID_COND;
};

}  // namespace

TEST_F(CondWait, TimeOutFailsAndLeavesTheMutexReleased) {
  ASSERT_EQ(DutMutexLock(m, D_WAIT_FOREVER), D_TRUE);
  for (double timeout : {0.0, 0.0004, 0.01}) {
    VQTEST_EXPECT_FAILS(DutCondWait(c, m, timeout), D_ERR_TIMEOUT_REACHED, 0);
    // Not re-taken: another thread gets the mutex at once.
    EXPECT_EQ(lockedElsewhere(m), D_FALSE) << timeout;
    ASSERT_EQ(DutMutexLock(m, D_WAIT_FOREVER), D_TRUE);
  }
  DutMutexUnlock(m);
}

TEST_F(CondWait, WakeUpReturnsWithTheMutexHeld) {
  std::atomic<bool> ready{false};
  bool predicate = false;
  D_BOOL held_after = D_FALSE;
  LibThread waiter([&] {
    DutMutexLock(m, D_WAIT_FOREVER);
    ready = true;
    // 3.0 is seconds: read as milliseconds this wait would end long before
    // the wake-up comes.
    while (!predicate) {
      if (DutCondWait(c, m, 3.0) != D_TRUE) return D_WORD{1};
    }
    held_after = lockedElsewhere(m);
    DutMutexUnlock(m);
    return D_WORD{0};
  });
  ASSERT_TRUE(waitUntil([&] { return ready.load(); }));
  DutWinSleep(0.1);
  ASSERT_EQ(DutMutexLock(m, D_WAIT_FOREVER), D_TRUE);
  predicate = true;
  EXPECT_EQ(DutCondWakeAll(c), D_TRUE);
  DutMutexUnlock(m);
  EXPECT_EQ(waiter.join(), 0);
  EXPECT_EQ(held_after, D_TRUE);
}

TEST_F(CondWait, WakeAllReleasesEveryWaiter) {
  constexpr int kWaiters = 4;
  int waiting = 0;  // guarded by m
  std::atomic<int> woken{0};
  std::vector<std::unique_ptr<LibThread>> threads;
  for (int i = 0; i < kWaiters; ++i) {
    threads.push_back(std::make_unique<LibThread>([&] {
      DutMutexLock(m, D_WAIT_FOREVER);
      ++waiting;
      D_BOOL ok = DutCondWait(c, m, D_WAIT_FOREVER);
      if (ok == D_TRUE) {
        ++woken;
        DutMutexUnlock(m);
      }
      return D_WORD{ok};
    }));
  }
  // Once every waiter has counted itself and the mutex is free again, all
  // of them have reset the condition and released the mutex.
  ASSERT_TRUE(waitUntil([&] {
    DutMutexLock(m, D_WAIT_FOREVER);
    bool all = waiting == kWaiters;
    if (!all) DutMutexUnlock(m);
    return all;
  }));
  EXPECT_EQ(woken.load(), 0);
  EXPECT_EQ(DutCondWakeAll(c), D_TRUE);
  DutMutexUnlock(m);
  for (auto &t : threads) EXPECT_EQ(t->join(), D_TRUE);
  EXPECT_EQ(woken.load(), kWaiters);
}

TEST_F(CondWait, EarlierWakeUpDoesNotSatisfyALaterWait) {
  // A wake-up stays signalled (so a waiter that is slow to reach its wait
  // still sees it) until the next wait resets the condition first.
  EXPECT_EQ(DutCondWakeAll(c), D_TRUE);
  EXPECT_EQ(DutEventWait(c, 0.0), D_TRUE);
  EXPECT_EQ(DutEventWait(c, 0.0), D_TRUE);
  ASSERT_EQ(DutMutexLock(m, D_WAIT_FOREVER), D_TRUE);
  VQTEST_EXPECT_FAILS(DutCondWait(c, m, 0.01), D_ERR_TIMEOUT_REACHED, 0);
}

TEST(Event, ManualResetStaysSetUntilReset) {
  D_EVENT e = DutEventCreateUnnamed(0);
  ASSERT_NE(e, D_INVALID_EVENT);
  VQTEST_EXPECT_FAILS(DutEventWait(e, 0.0), D_ERR_TIMEOUT_REACHED, 0);
  EXPECT_EQ(DutEventSet(e), D_TRUE);
  EXPECT_EQ(DutEventWait(e, 0.0), D_TRUE);
  EXPECT_EQ(DutEventWait(e, 1000.0), D_TRUE);  // still set
  EXPECT_EQ(DutEventReset(e), D_TRUE);
  EXPECT_EQ(DutEventWait(e, 1.0), D_FALSE);
  EXPECT_EQ(DutEventDestroy(e), D_TRUE);

  D_EVENT initially_set = DutEventCreateUnnamed(1);
  EXPECT_EQ(DutEventWait(initially_set, 0.0), D_TRUE);
  DutEventDestroy(initially_set);
}

TEST(Event, TimeOutIsInMilliseconds) {
  // A wait of 2.0 on an event that is never set must end well within a
  // watcher's 1.5 s allowance (kept by the standard library, not by the
  // code under test); read as seconds it would not.
  D_EVENT never = DutEventCreateUnnamed(0);
  std::mutex mutex;
  std::condition_variable cv;
  bool done = false;
  D_INT4 error = 0;
  D_BOOL result = D_TRUE;
  LibThread t([&] {
    result = DutEventWait(never, 2.0);
    error = DutErrNumGet();
    std::lock_guard<std::mutex> lock(mutex);
    done = true;
    cv.notify_all();
    return D_WORD{0};
  });
  {
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_TRUE(cv.wait_for(lock, std::chrono::milliseconds(1500), [&] { return done; }));
  }
  t.join();
  EXPECT_EQ(result, D_FALSE);
  EXPECT_EQ(error, D_ERR_TIMEOUT_REACHED);
  DutEventDestroy(never);
}

TEST(Event, SetReleasesWaitersEvenIfResetAtOnce) {
  constexpr int kWaiters = 3;
  D_EVENT e = DutEventCreateUnnamed(0);
  std::atomic<int> started{0};
  std::vector<std::unique_ptr<LibThread>> threads;
  for (int i = 0; i < kWaiters; ++i) {
    threads.push_back(std::make_unique<LibThread>([&] {
      ++started;
      return D_WORD{DutEventWait(e, D_WAIT_FOREVER)};
    }));
  }
  ASSERT_TRUE(waitUntil([&] { return started.load() == kWaiters; }));
  DutWinSleep(0.05);
  EXPECT_EQ(DutEventSet(e), D_TRUE);
  EXPECT_EQ(DutEventReset(e), D_TRUE);
  for (auto &t : threads) EXPECT_EQ(t->join(), D_TRUE);
  DutEventDestroy(e);
}

TEST(NamedEvent, ExistingNameIsSharedByEventsButRefusedByConditions) {
  std::string name = uniqueName("event");
  D_EVENT a = DutEventCreateNamed(name.c_str(), 0);
  ASSERT_NE(a, D_INVALID_EVENT);
  D_EVENT b = DutEventCreateNamed(name.c_str(), 1);  // initial state ignored: it exists
  ASSERT_NE(b, D_INVALID_EVENT);
  EXPECT_EQ(DutEventWait(b, 0.0), D_FALSE);
  EXPECT_EQ(DutEventSet(a), D_TRUE);
  EXPECT_EQ(DutEventWait(b, 0.0), D_TRUE);
  EXPECT_EQ(DutEventReset(b), D_TRUE);
  EXPECT_EQ(DutEventWait(a, 0.0), D_FALSE);

  VQTEST_EXPECT_FAILS(DutCondCreateNamedNp(name.c_str()), D_ERR_OS, EEXIST);
  D_COND c = DutCondAttachNamedNp(name.c_str());
  ASSERT_NE(c, D_INVALID_COND);
  EXPECT_EQ(DutCondWakeAll(c), D_TRUE);
  EXPECT_EQ(DutEventWait(a, 0.0), D_TRUE);

  EXPECT_EQ(DutEventDestroy(a), D_TRUE);
  EXPECT_EQ(DutEventDestroy(b), D_TRUE);
  EXPECT_EQ(DutCondDestroy(c), D_TRUE);
  VQTEST_EXPECT_FAILS(DutCondAttachNamedNp(name.c_str()), D_ERR_OS, ENOENT);
}

TEST(NamedCond, AttachSharesAndStartsUnsignalled) {
  std::string name = uniqueName("cond");
  D_COND a = DutCondCreateNamedNp(name.c_str());
  ASSERT_NE(a, D_INVALID_COND);
  D_COND b = DutCondAttachNamedNp(name.c_str());
  ASSERT_NE(b, D_INVALID_COND);
  EXPECT_EQ(DutEventWait(b, 0.0), D_FALSE);
  EXPECT_EQ(DutCondWakeAll(a), D_TRUE);
  EXPECT_EQ(DutEventWait(b, 0.0), D_TRUE);
  DutCondDestroy(a);
  DutCondDestroy(b);
}

TEST(NamedEvent, SetByAnotherProcess) {
  std::string name = uniqueName("event");
  D_EVENT e = DutEventCreateNamed(name.c_str(), 0);
  ASSERT_NE(e, D_INVALID_EVENT);
  pid_t child = vqtest::spawn([&] {
    D_EVENT c = DutEventCreateNamed(name.c_str(), 0);
    if (c == D_INVALID_EVENT) return 10;
    DutWinSleep(0.02);
    D_BOOL ok = DutEventSet(c);
    DutEventDestroy(c);
    return ok == D_TRUE ? 0 : 11;
  });
  EXPECT_EQ(DutEventWait(e, 10000.0), D_TRUE);
  EXPECT_EQ(vqtest::exitStatus(child), 0);
  EXPECT_EQ(DutEventDestroy(e), D_TRUE);
}
