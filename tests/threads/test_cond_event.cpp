// Conditions and manual-reset events: time-out units, the state of the
// mutex after a condition wait, wake-all, sharing and exclusivity of names.
// (An event set by another process: test_mutex.)
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>

#include "thread_support.hpp"

using namespace vqtest;

namespace {

struct CondWait : testing::Test {
  void SetUp() override { ASSERT_TRUE(m != D_INVALID_MUTEX && c != D_INVALID_COND); }
  void TearDown() override { EXPECT_TRUE(DutCondDestroy(c) && DutMutexDestroy(m)); }
  D_MUTEX m = DutMutexCreate(0);
  D_COND c = DutCondCreate();
};

}  // namespace

TEST_F(CondWait, TimeOutFailsAndLeavesTheMutexReleased) {
  ASSERT_EQ(DutMutexLock(m, D_WAIT_FOREVER), D_TRUE);
  for (double timeout : {0.0, 0.0004, 0.01}) {
    VQTEST_EXPECT_FAILS(DutCondWait(c, m, timeout), D_ERR_TIMEOUT_REACHED, 0);
    EXPECT_FALSE(heldElsewhere(m)) << timeout << ": not re-taken";
    ASSERT_EQ(DutMutexLock(m, D_WAIT_FOREVER), D_TRUE);
  }
  // A wake-up stays signalled (so a waiter that is slow to reach its wait
  // still sees it) until the next wait resets the condition first.
  EXPECT_TRUE(DutCondWakeAll(c) && DutEventWait(c, 0.0) && DutEventWait(c, 0.0));
  VQTEST_EXPECT_FAILS(DutCondWait(c, m, 0.01), D_ERR_TIMEOUT_REACHED, 0);
}

// Every waiter wakes, with the mutex held. Their wait of 3.0 is seconds:
// read as milliseconds it would end long before the wake-up comes.
TEST_F(CondWait, WakeAllReleasesEveryWaiterWithTheMutexHeld) {
  constexpr int kWaiters = 4;
  int waiting = 0;  // guarded by m
  bool predicate = false;
  std::atomic<int> woken{0};
  rwtest::Threads threads(kWaiters, [&](int) {
    DutMutexLock(m, D_WAIT_FOREVER);
    ++waiting;
    while (!predicate) {
      if (DutCondWait(c, m, 3.0) != D_TRUE) return D_WORD{0};
    }
    ++woken;
    D_WORD held = heldElsewhere(m);
    DutMutexUnlock(m);
    return held;
  });
  // Once every waiter has counted itself and the mutex is free again, all
  // of them have reset the condition and released the mutex.
  ASSERT_TRUE(waitUntil([&] {
    DutMutexLock(m, D_WAIT_FOREVER);
    bool all = waiting == kWaiters;
    if (!all) DutMutexUnlock(m);
    return all;
  }));
  DutWinSleep(0.1);
  EXPECT_EQ(woken.load(), 0);
  predicate = true;
  EXPECT_EQ(DutCondWakeAll(c), D_TRUE);
  DutMutexUnlock(m);
  for (D_WORD held : threads.join()) EXPECT_EQ(held, 1);
  EXPECT_EQ(woken.load(), kWaiters);
}

TEST(Event, ManualResetTimeOutsInMillisecondsAndWakeAll) {
  D_EVENT e = DutEventCreateUnnamed(0), initially_set = DutEventCreateUnnamed(1);
  VQTEST_EXPECT_FAILS(DutEventWait(e, 0.0), D_ERR_TIMEOUT_REACHED, 0);
  EXPECT_TRUE(DutEventSet(e) && DutEventWait(e, 0.0) && DutEventWait(e, 1000.0)) << "stays set";
  EXPECT_TRUE(DutEventReset(e) && !DutEventWait(e, 1.0));
  EXPECT_EQ(DutEventWait(initially_set, 0.0), D_TRUE);
  EXPECT_EQ(DutEventDestroy(initially_set), D_TRUE);

  // A wait of 2.0 on an event that is never set ends well within 1.5 s
  // (read as seconds it would not).
  const auto start = std::chrono::steady_clock::now();
  VQTEST_EXPECT_FAILS(DutEventWait(e, 2.0), D_ERR_TIMEOUT_REACHED, 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1500));

  // Setting releases every waiter, even when reset at once.
  rwtest::Threads waiters(3, [&](int) { return D_WORD{DutEventWait(e, D_WAIT_FOREVER)}; });
  DutWinSleep(0.05);
  EXPECT_TRUE(DutEventSet(e) && DutEventReset(e));
  for (D_WORD ok : waiters.join()) EXPECT_EQ(ok, D_TRUE);
  EXPECT_EQ(DutEventDestroy(e), D_TRUE);
}

// An existing name is shared by events (the initial state is ignored) and
// by attached conditions, but refused to a new condition; an attached
// condition starts unsignalled.
TEST(NamedEvent, ExistingNameIsSharedByEventsButRefusedByConditions) {
  std::string name = uniqueName("event"), cond_name = uniqueName("cond");
  D_EVENT a = DutEventCreateNamed(name.c_str(), 0), b = DutEventCreateNamed(name.c_str(), 1);
  D_COND made = DutCondCreateNamedNp(cond_name.c_str());
  ASSERT_TRUE(a != D_INVALID_EVENT && b != D_INVALID_EVENT && made != D_INVALID_COND);
  EXPECT_EQ(DutEventWait(b, 0.0), D_FALSE);
  EXPECT_TRUE(DutEventSet(a) && DutEventWait(b, 0.0));
  EXPECT_TRUE(DutEventReset(b) && !DutEventWait(a, 0.0));
  VQTEST_EXPECT_FAILS(DutCondCreateNamedNp(name.c_str()), D_ERR_OS, EEXIST);
  // Attached to an event's name or a condition's, a wake-up through the
  // new handle is seen through the first one.
  for (const auto &[shared, first] : {std::pair{name, a}, std::pair{cond_name, made}}) {
    D_COND c = DutCondAttachNamedNp(shared.c_str());
    ASSERT_NE(c, D_INVALID_COND);
    EXPECT_EQ(DutEventWait(c, 0.0), D_FALSE);
    EXPECT_TRUE(DutCondWakeAll(c) && DutEventWait(first, 0.0) && DutCondDestroy(c));
  }
  EXPECT_TRUE(DutEventDestroy(a) && DutEventDestroy(b) && DutCondDestroy(made));
  VQTEST_EXPECT_FAILS(DutCondAttachNamedNp(name.c_str()), D_ERR_OS, ENOENT);
}
