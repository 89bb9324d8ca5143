// Mutexes: owner flag, recursion, time-outs, ownership, named sharing,
// exclusivity, take-over after the owning thread or process died (the
// process-wide lock too), and handles that are not valid for the call.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>

#include "thread_support.hpp"

using namespace vqtest;

namespace {

// Ways a thread ends while it holds a mutex, run by a library thread or,
// when foreign, by a thread the library did not make.
struct Ending {
  const char *name;
  D_THREAD_FUNC body;
  bool foreign;
};

D_WORD lockOnce(D_WORD m) { return DutMutexLock(m, D_WAIT_FOREVER); }

D_WORD lockThenExit(D_WORD m) {
  D_WORD locked = D_TRUE;
  for (int i = 0; i < 3; ++i) locked &= DutMutexLock(m, D_WAIT_FOREVER);
  DutThreadExit(locked);
}

constexpr Ending kEndings[] = {{"library thread returns", &lockOnce, false},
                               {"library thread calls DutThreadExit at depth 3", &lockThenExit, false},
                               {"foreign thread returns", &lockOnce, true}};

}  // namespace

// 1: held by the creator until it unlocks, then free (0: MutexLock).
TEST(MutexCreate, OwnerFlag) {
  ExpectRefused(D_ERR_VAL_INVALID, {AS_WORD(DutMutexCreate(2)), AS_WORD(DutMutexCreate(-1)),
                                    AS_WORD(DutMutexCreateNamedNp(uniqueName("bad-owner").c_str(), 2)),
                                    AS_WORD(DutMutexCreateNamedNp(uniqueName("bad-owner").c_str(), -1))});
  D_MUTEX held = DutMutexCreate(1);
  EXPECT_TRUE(heldElsewhere(held));
  EXPECT_EQ(DutMutexUnlock(held), D_TRUE);
  expectFreeForCaller(held);
}

TEST(MutexLock, RecursionTimeOutsAndInvalidHandles) {
  D_MUTEX m = DutMutexCreate(0);
  // The owner never waits, and needs as many unlocks as locks; one too
  // many is the platform's refusal, not a silent success.
  ASSERT_TRUE(DutMutexLock(m, D_WAIT_FOREVER) && DutMutexLock(m, 0.0) && DutMutexLock(m, 1.0));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
    EXPECT_EQ(heldElsewhere(m), i < 2) << "after " << i + 1 << " unlocks";
  }
  VQTEST_EXPECT_FAILS(DutMutexUnlock(m), D_ERR_OS, 0);

  // Time-outs are seconds: 0.0004 truncates to no wait at all. A waiter
  // allowing 3.0 (read as milliseconds it would give up long before) or
  // for ever is still blocked while held, and gets the lock once released.
  ASSERT_EQ(DutMutexLock(m, 0.0), D_TRUE);
  for (double timeout : {0.0, 0.0004, 0.02}) {
    EXPECT_EQ(LibThread([&] { return D_WORD{DutMutexLock(m, timeout) ? 0 : DutErrNumGet()}; }).join(),
              D_ERR_TIMEOUT_REACHED)
        << timeout;
  }
  for (double timeout : {3.0, D_WAIT_FOREVER}) {
    std::atomic<int> stage{0};
    LibThread t([&] {
      stage = 1;
      DutErrNumSet(0);
      D_WORD result = DutMutexLock(m, timeout) && DutErrNumGet() == 0 && DutMutexUnlock(m);
      stage = 2;
      return result;
    });
    ASSERT_TRUE(waitUntil([&] { return stage.load() == 1; }));
    DutWinSleep(0.1);
    EXPECT_EQ(stage.load(), 1) << timeout;
    DutMutexUnlock(m);
    EXPECT_EQ(t.join(), 1) << timeout;
    ASSERT_EQ(DutMutexLock(m, 0.0), D_TRUE);
  }
  EXPECT_TRUE(DutMutexUnlock(m) && DutMutexDestroy(m));

  // Invalid handles, and handles of the wrong kind, are the platform's
  // errors.
  D_EVENT event = DutEventCreateUnnamed(1);
  D_MUTEX mutex = DutMutexCreate(0);
  VQTEST_EXPECT_FAILS(DutMutexLock(D_INVALID_MUTEX, 0.0), D_ERR_OS, EBADF);
  VQTEST_EXPECT_FAILS(DutEventWait(D_INVALID_EVENT, 0.0), D_ERR_OS, EBADF);
  ExpectRefused(D_ERR_OS, {AS_WORD(DutMutexUnlock(D_INVALID_MUTEX)), AS_WORD(DutMutexDestroy(D_INVALID_MUTEX)),
                           AS_WORD(DutMutexUnlock(event)), AS_WORD(DutEventSet(mutex)),
                           AS_WORD(DutThreadWait(D_INVALID_THREAD, nullptr))});
  EXPECT_TRUE(DutEventDestroy(event) && DutMutexDestroy(mutex));
}

TEST(NamedMutex, ExclusiveCreationSharedLockAndLastCloseRemovesTheName) {
  std::string name = uniqueName("mutex");
  D_MUTEX a = DutMutexCreateNamedNp(name.c_str(), 1);
  ASSERT_NE(a, D_INVALID_MUTEX);
  VQTEST_EXPECT_FAILS(DutMutexCreateNamedNp(name.c_str(), 0), D_ERR_OS, EEXIST);
  D_MUTEX b = DutMutexAttachNamedNp(name.c_str());
  ASSERT_TRUE(b != D_INVALID_MUTEX && a != b);
  // Held through a: another thread cannot take it through b. Ownership
  // belongs to the thread, whichever handle it used.
  EXPECT_TRUE(heldElsewhere(b));
  EXPECT_TRUE(DutMutexLock(b, 0.0) && DutMutexUnlock(b) && DutMutexUnlock(a));
  EXPECT_FALSE(heldElsewhere(b));
  // Closing one handle keeps the name; closing the last removes it, and
  // the name can be made again.
  EXPECT_TRUE(DutMutexDestroy(a) && DutMutexDestroy(DutMutexAttachNamedNp(name.c_str())) && DutMutexDestroy(b));
  VQTEST_EXPECT_FAILS(DutMutexAttachNamedNp(name.c_str()), D_ERR_OS, ENOENT);
  VQTEST_EXPECT_FAILS(DutMutexAttachNamedNp(nullptr), D_ERR_OS, 0);
  EXPECT_EQ(DutMutexDestroy(DutMutexCreateNamedNp(name.c_str(), 0)), D_TRUE);
}

// Held by the parent, the child's attempt times out; it says so through a
// named event, then waits. It ends holding the mutex, which the parent then
// takes over without an error, for good. (Owner threads that ended:
// MutexAbandoned.)
TEST(NamedMutex, SharedWithAnotherProcessThatEndsHoldingIt) {
  VQTEST_NEEDS_FORK();
  std::string name = uniqueName("mutex"), event_name = uniqueName("event");
  D_MUTEX m = DutMutexCreateNamedNp(name.c_str(), 1);
  D_EVENT tried = DutEventCreateNamed(event_name.c_str(), 0);
  ASSERT_TRUE(m != D_INVALID_MUTEX && tried != D_INVALID_EVENT);
  Child child([&](Child &) {
    D_MUTEX c = DutMutexAttachNamedNp(name.c_str());
    D_EVENT e = DutEventCreateNamed(event_name.c_str(), 0);
    if (c == D_INVALID_MUTEX || e == D_INVALID_EVENT) return 10;
    if (DutMutexLock(c, 0.0) != D_FALSE || DutErrNumGet() != D_ERR_TIMEOUT_REACHED) return 11;
    DutWinSleep(0.02);  // the parent is waiting by now
    if (!DutEventSet(e) || !DutEventDestroy(e)) return 12;
    return DutMutexLock(c, 10.0) == D_TRUE ? 0 : 13;
  });
  EXPECT_EQ(DutEventWait(tried, 10000.0), D_TRUE);
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  EXPECT_EQ(child.exitCode(), 0);
  expectFreeForCaller(m);
  EXPECT_EQ(DutEventDestroy(tried), D_TRUE);
}

// Mutexes whose owner thread ended holding them, through the API: the next
// locker gets the mutex at once with no error number and owns it at depth
// one. For unnamed and named mutexes, library and foreign threads, and the
// process-wide lock. (Lockers asleep when the owner ends: test_locks.)
TEST(MutexAbandoned, NextLockerTakesItOverSilentlyAtDepthOne) {
  for (const MutexKind &kind : kMutexKinds) {
    for (const Ending &ending : kEndings) {
      SCOPED_TRACE(std::string(kind.name) + ", " + ending.name);
      D_MUTEX m = kind.named ? DutMutexCreateNamedNp(uniqueName("abandoned").c_str(), 0) : DutMutexCreate(0);
      ASSERT_NE(m, D_INVALID_MUTEX);
      D_WORD locked = D_FALSE;
      if (ending.foreign) {
        std::thread([&] { locked = ending.body(m); }).join();
      } else {
        EXPECT_EQ(DutThreadWait(DutThreadCreate(ending.body, m), &locked), D_TRUE);
      }
      EXPECT_EQ(locked, D_TRUE);
      expectFreeForCaller(m);
    }
  }
}

TEST(MutexAbandoned, ProcessWideLockIsTakenOverToo) {
  DutInitThreads();
  // The owner ends holding it at depth two.
  EXPECT_EQ(LibThread([] { return D_WORD{DutProcessMutexLock() && DutProcessMutexLock()}; }).join(), 1);
  EXPECT_EQ(DutProcessMutexLock(), D_TRUE);
  EXPECT_EQ(DutProcessMutexUnlock(), D_TRUE);
  // One level only: the dead owner's second level is gone with it.
  VQTEST_EXPECT_FAILS(DutProcessMutexUnlock(), D_ERR_OS, EPERM);
  // And the library's tables work from other threads again.
  EXPECT_EQ(LibThread([] { return D_WORD{DutProcessMutexLock() && DutProcessMutexUnlock()}; }).join(), 1);
}
