// Mutexes: owner flag, recursion, time-outs, ownership, named sharing,
// exclusivity, take-over after the owner died, and handles that are not
// valid for the call.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "thread_support.hpp"

using vqtest::LibThread;
using vqtest::uniqueName;
using vqtest::waitUntil;

namespace {

// Tries the mutex from another library thread; answers the lock result and
// the error number that thread saw.
struct TryResult {
  D_BOOL locked;
  D_INT4 error;
};

TryResult tryFromOtherThread(D_MUTEX m, double timeout = 0.0) {
  TryResult r{D_FALSE, 0};
  LibThread t([&] {
    DutErrNumSet(0);
    r.locked = DutMutexLock(m, timeout);
    r.error = DutErrNumGet();
    if (r.locked == D_TRUE) DutMutexUnlock(m);
    return D_WORD{0};
  });
  t.join();
  return r;
}

bool heldElsewhere(D_MUTEX m) {
  TryResult r = tryFromOtherThread(m);
  EXPECT_EQ(r.error, r.locked ? 0 : D_ERR_TIMEOUT_REACHED);
  return r.locked == D_FALSE;
}

}  // namespace

TEST(MutexCreate, OwnerFlag) {
  for (D_INT4 bad : {2, -1}) {
    VQTEST_EXPECT_FAILS(DutMutexCreate(bad), D_ERR_VAL_INVALID, 0);
    VQTEST_EXPECT_FAILS(DutMutexCreateNamedNp(uniqueName("bad-owner").c_str(), bad), D_ERR_VAL_INVALID, 0);
  }
  // 1: held by the creator until it unlocks.
  D_MUTEX held = DutMutexCreate(1);
  ASSERT_NE(held, D_INVALID_MUTEX);
  EXPECT_TRUE(heldElsewhere(held));
  EXPECT_EQ(DutMutexUnlock(held), D_TRUE);
  EXPECT_FALSE(heldElsewhere(held));
  // Destroying a mutex the caller holds is allowed.
  ASSERT_EQ(DutMutexLock(held, 0.0), D_TRUE);
  EXPECT_EQ(DutMutexDestroy(held), D_TRUE);
  // 0: free, so the creator's unlock is refused.
  D_MUTEX free = DutMutexCreate(0);
  ASSERT_NE(free, D_INVALID_MUTEX);
  EXPECT_FALSE(heldElsewhere(free));
  VQTEST_EXPECT_FAILS(DutMutexUnlock(free), D_ERR_OS, EPERM);
  EXPECT_EQ(DutMutexDestroy(free), D_TRUE);
}

TEST(MutexLock, RecursiveLockNeedsAsManyUnlocks) {
  D_MUTEX m = DutMutexCreate(0);
  ASSERT_NE(m, D_INVALID_MUTEX);
  ASSERT_EQ(DutMutexLock(m, D_WAIT_FOREVER), D_TRUE);
  ASSERT_EQ(DutMutexLock(m, 0.0), D_TRUE);  // the owner never waits
  ASSERT_EQ(DutMutexLock(m, 1.0), D_TRUE);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
    EXPECT_TRUE(heldElsewhere(m)) << "after " << i + 1 << " unlocks";
  }
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  EXPECT_FALSE(heldElsewhere(m));
  // One unlock too many is the platform's refusal, not a silent success.
  VQTEST_EXPECT_FAILS(DutMutexUnlock(m), D_ERR_OS, 0);
  EXPECT_EQ(DutMutexDestroy(m), D_TRUE);
}

TEST(MutexLock, TimeOutsAreSecondsAndEndInTimeoutReached) {
  D_MUTEX m = DutMutexCreate(1);
  ASSERT_NE(m, D_INVALID_MUTEX);
  // 0.0004 s is below one millisecond and truncates to no wait at all.
  for (double timeout : {0.0, 0.0004, 0.02}) {
    TryResult r = tryFromOtherThread(m, timeout);
    EXPECT_EQ(r.locked, D_FALSE) << timeout;
    EXPECT_EQ(r.error, D_ERR_TIMEOUT_REACHED) << timeout;
  }
  // A waiter allowing 3.0 (read as milliseconds it would give up long
  // before) or for ever is still blocked while held, and gets the lock
  // once released.
  for (double timeout : {3.0, D_WAIT_FOREVER}) {
    std::atomic<int> stage{0};
    TryResult r{D_FALSE, -1};
    LibThread t([&] {
      stage = 1;
      DutErrNumSet(0);
      r.locked = DutMutexLock(m, timeout);
      r.error = DutErrNumGet();
      stage = 2;
      if (r.locked == D_TRUE) DutMutexUnlock(m);
      return D_WORD{0};
    });
    ASSERT_TRUE(waitUntil([&] { return stage.load() == 1; }));
    DutWinSleep(0.1);
    EXPECT_EQ(stage.load(), 1) << timeout;
    DutMutexUnlock(m);
    t.join();
    EXPECT_EQ(r.locked, D_TRUE) << timeout;
    EXPECT_EQ(r.error, 0) << timeout;
    ASSERT_EQ(DutMutexLock(m, 0.0), D_TRUE);
  }
  DutMutexUnlock(m);
  DutMutexDestroy(m);
}

TEST(MutexLock, OwnerThreadThatEndedIsTakenOver) {
  D_MUTEX m = DutMutexCreate(0);
  ASSERT_NE(m, D_INVALID_MUTEX);
  LibThread t([&] { return D_WORD{DutMutexLock(m, D_WAIT_FOREVER)}; });  // never unlocks
  ASSERT_EQ(t.join(), D_TRUE);
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexLock(m, 0.0), D_TRUE);
  EXPECT_EQ(DutErrNumGet(), 0);
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  EXPECT_EQ(DutMutexDestroy(m), D_TRUE);
}

TEST(MutexLock, InvalidOrWrongHandleIsAnOsError) {
  D_EVENT event = DutEventCreateUnnamed(1);
  D_MUTEX mutex = DutMutexCreate(0);
  VQTEST_EXPECT_FAILS(DutMutexLock(D_INVALID_MUTEX, 0.0), D_ERR_OS, EBADF);
  VQTEST_EXPECT_FAILS(DutMutexUnlock(D_INVALID_MUTEX), D_ERR_OS, 0);
  VQTEST_EXPECT_FAILS(DutMutexDestroy(D_INVALID_MUTEX), D_ERR_OS, 0);
  VQTEST_EXPECT_FAILS(DutMutexUnlock(event), D_ERR_OS, 0);
  VQTEST_EXPECT_FAILS(DutEventWait(D_INVALID_EVENT, 0.0), D_ERR_OS, EBADF);
  VQTEST_EXPECT_FAILS(DutEventSet(mutex), D_ERR_OS, 0);
  VQTEST_EXPECT_FAILS(DutThreadWait(D_INVALID_THREAD, nullptr), D_ERR_OS, 0);
  DutEventDestroy(event);
  DutMutexDestroy(mutex);
}

TEST(NamedMutex, ExclusiveCreationSharedLockAndLastCloseRemovesTheName) {
  std::string name = uniqueName("mutex");
  D_MUTEX a = DutMutexCreateNamedNp(name.c_str(), 1);
  ASSERT_NE(a, D_INVALID_MUTEX);
  VQTEST_EXPECT_FAILS(DutMutexCreateNamedNp(name.c_str(), 0), D_ERR_OS, EEXIST);
  D_MUTEX b = DutMutexAttachNamedNp(name.c_str());
  ASSERT_NE(b, D_INVALID_MUTEX);
  EXPECT_NE(a, b);
  // Held through a: another thread cannot take it through b.
  EXPECT_TRUE(heldElsewhere(b));
  // Ownership belongs to the thread, whichever handle it used.
  EXPECT_EQ(DutMutexLock(b, 0.0), D_TRUE);
  EXPECT_EQ(DutMutexUnlock(b), D_TRUE);
  EXPECT_EQ(DutMutexUnlock(a), D_TRUE);
  EXPECT_FALSE(heldElsewhere(b));
  // Closing one handle keeps the name; closing the last removes it.
  EXPECT_EQ(DutMutexDestroy(a), D_TRUE);
  D_MUTEX c = DutMutexAttachNamedNp(name.c_str());
  EXPECT_NE(c, D_INVALID_MUTEX);
  EXPECT_EQ(DutMutexDestroy(c), D_TRUE);
  EXPECT_EQ(DutMutexDestroy(b), D_TRUE);
  VQTEST_EXPECT_FAILS(DutMutexAttachNamedNp(name.c_str()), D_ERR_OS, ENOENT);
  VQTEST_EXPECT_FAILS(DutMutexAttachNamedNp(nullptr), D_ERR_OS, 0);
  // And the name can be made again.
  D_MUTEX d = DutMutexCreateNamedNp(name.c_str(), 0);
  EXPECT_NE(d, D_INVALID_MUTEX);
  DutMutexDestroy(d);
}

TEST(NamedMutex, SharedWithAnotherProcess) {
  std::string name = uniqueName("mutex");
  D_MUTEX m = DutMutexCreateNamedNp(name.c_str(), 1);
  ASSERT_NE(m, D_INVALID_MUTEX);
  // Held by the parent: the child's attempt times out, then it waits.
  pid_t child = vqtest::spawn([&] {
    D_MUTEX c = DutMutexAttachNamedNp(name.c_str());
    if (c == D_INVALID_MUTEX) return 10;
    if (DutMutexLock(c, 0.0) != D_FALSE || DutErrNumGet() != D_ERR_TIMEOUT_REACHED) return 11;
    if (DutMutexLock(c, 10.0) != D_TRUE) return 12;
    DutMutexUnlock(c);
    DutMutexDestroy(c);
    return 0;
  });
  DutWinSleep(0.05);
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  EXPECT_EQ(vqtest::exitStatus(child), 0);
  EXPECT_EQ(DutMutexDestroy(m), D_TRUE);
}

TEST(NamedMutex, OwnerProcessThatDiedIsTakenOver) {
  std::string name = uniqueName("mutex");
  D_MUTEX m = DutMutexCreateNamedNp(name.c_str(), 0);
  ASSERT_NE(m, D_INVALID_MUTEX);
  // Dies holding the mutex (the handle was inherited through fork).
  EXPECT_EQ(vqtest::exitStatus(vqtest::spawn([&] { return DutMutexLock(m, 0.0) == D_TRUE ? 0 : 1; })), 0);
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexLock(m, 0.0), D_TRUE);
  EXPECT_EQ(DutErrNumGet(), 0);
  // Taken over for good: it works as an ordinary mutex again.
  EXPECT_TRUE(heldElsewhere(m));
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  EXPECT_FALSE(heldElsewhere(m));
  EXPECT_EQ(DutMutexDestroy(m), D_TRUE);
}
