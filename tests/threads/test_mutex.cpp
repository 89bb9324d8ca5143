// Mutexes: owner flag, recursion, time-outs, ownership, named sharing,
// exclusivity and take-over after the owner died.
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

// Tries the mutex from another library thread without waiting; answers
// the lock result and the error number that thread saw.
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

}  // namespace

TEST(MutexCreate, OwnerFlagMustBeZeroOrOne) {
  for (D_INT4 bad : {2, -1, 100}) {
    DutErrNumSet(0);
    EXPECT_EQ(DutMutexCreate(bad), D_INVALID_MUTEX) << bad;
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID) << bad;
    DutErrNumSet(0);
    EXPECT_EQ(DutMutexCreateNamedNp(uniqueName("bad-owner").c_str(), bad), D_INVALID_MUTEX);
    EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  }
}

TEST(MutexCreate, OwnerOneIsHeldByTheCreator) {
  D_MUTEX m = DutMutexCreate(1);
  ASSERT_NE(m, D_INVALID_MUTEX);
  TryResult held = tryFromOtherThread(m);
  EXPECT_EQ(held.locked, D_FALSE);
  EXPECT_EQ(held.error, D_ERR_TIMEOUT_REACHED);
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  EXPECT_EQ(tryFromOtherThread(m).locked, D_TRUE);
  EXPECT_EQ(DutMutexDestroy(m), D_TRUE);
}

TEST(MutexCreate, OwnerZeroIsFree) {
  D_MUTEX m = DutMutexCreate(0);
  ASSERT_NE(m, D_INVALID_MUTEX);
  EXPECT_EQ(tryFromOtherThread(m).locked, D_TRUE);
  // The creator does not hold it: unlocking is refused.
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexUnlock(m), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  EXPECT_EQ(DutErrNumGetOs(), EPERM);
  EXPECT_EQ(DutMutexDestroy(m), D_TRUE);
}

TEST(MutexLock, RecursiveLockNeedsAsManyUnlocks) {
  D_MUTEX m = DutMutexCreate(0);
  ASSERT_NE(m, D_INVALID_MUTEX);
  ASSERT_EQ(DutMutexLock(m, D_WAIT_FOREVER), D_TRUE);
  ASSERT_EQ(DutMutexLock(m, 0.0), D_TRUE);  // the owner never waits
  ASSERT_EQ(DutMutexLock(m, 1.0), D_TRUE);
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  EXPECT_EQ(tryFromOtherThread(m).locked, D_FALSE);
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  EXPECT_EQ(tryFromOtherThread(m).locked, D_FALSE);
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  EXPECT_EQ(tryFromOtherThread(m).locked, D_TRUE);
  // One unlock too many is the platform's refusal, not a silent success.
  EXPECT_EQ(DutMutexUnlock(m), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  EXPECT_EQ(DutMutexDestroy(m), D_TRUE);
}

TEST(MutexLock, ShortTimeOutsFailWithTimeoutReached) {
  D_MUTEX m = DutMutexCreate(1);
  ASSERT_NE(m, D_INVALID_MUTEX);
  // 0.0004 s is below one millisecond and truncates to no wait at all.
  for (double timeout : {0.0, 0.0004, 0.02}) {
    TryResult r = tryFromOtherThread(m, timeout);
    EXPECT_EQ(r.locked, D_FALSE) << timeout;
    EXPECT_EQ(r.error, D_ERR_TIMEOUT_REACHED) << timeout;
  }
  DutMutexUnlock(m);
  DutMutexDestroy(m);
}

TEST(MutexLock, TimeOutIsInSeconds) {
  // The waiter allows 3.0: read as milliseconds it would give up long
  // before the holder lets go.
  D_MUTEX m = DutMutexCreate(1);
  ASSERT_NE(m, D_INVALID_MUTEX);
  std::atomic<bool> waiting{false};
  TryResult r{D_FALSE, 0};
  LibThread t([&] {
    waiting = true;
    DutErrNumSet(0);
    r.locked = DutMutexLock(m, 3.0);
    r.error = DutErrNumGet();
    if (r.locked == D_TRUE) DutMutexUnlock(m);
    return D_WORD{0};
  });
  ASSERT_TRUE(waitUntil([&] { return waiting.load(); }));
  DutWinSleep(0.1);
  DutMutexUnlock(m);
  t.join();
  EXPECT_EQ(r.locked, D_TRUE);
  EXPECT_EQ(r.error, 0);
  DutMutexDestroy(m);
}

TEST(MutexLock, InfiniteWaitEndsWhenReleased) {
  D_MUTEX m = DutMutexCreate(1);
  ASSERT_NE(m, D_INVALID_MUTEX);
  std::atomic<int> stage{0};
  LibThread t([&] {
    stage = 1;
    D_BOOL ok = DutMutexLock(m, D_WAIT_FOREVER);
    stage = 2;
    if (ok == D_TRUE) DutMutexUnlock(m);
    return D_WORD{ok};
  });
  ASSERT_TRUE(waitUntil([&] { return stage.load() == 1; }));
  DutWinSleep(0.02);
  EXPECT_EQ(stage.load(), 1);  // still blocked while held
  DutMutexUnlock(m);
  EXPECT_EQ(t.join(), D_TRUE);
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

TEST(MutexLock, InvalidHandleIsAnOsError) {
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexLock(D_INVALID_MUTEX, 0.0), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  EXPECT_EQ(DutErrNumGetOs(), EBADF);
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexUnlock(D_INVALID_MUTEX), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexDestroy(D_INVALID_MUTEX), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  // An event is not a mutex.
  D_EVENT e = DutEventCreateUnnamed(1);
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexUnlock(e), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  DutEventDestroy(e);
}

TEST(MutexDestroy, ReleasesTheCallersHold) {
  D_MUTEX m = DutMutexCreate(1);
  ASSERT_NE(m, D_INVALID_MUTEX);
  ASSERT_EQ(DutMutexLock(m, 0.0), D_TRUE);
  EXPECT_EQ(DutMutexDestroy(m), D_TRUE);
}

TEST(NamedMutex, CreationIsExclusive) {
  std::string name = uniqueName("mutex");
  D_MUTEX a = DutMutexCreateNamedNp(name.c_str(), 0);
  ASSERT_NE(a, D_INVALID_MUTEX);
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexCreateNamedNp(name.c_str(), 0), D_INVALID_MUTEX);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  EXPECT_EQ(DutErrNumGetOs(), EEXIST);
  EXPECT_EQ(DutMutexDestroy(a), D_TRUE);
}

TEST(NamedMutex, AttachSharesTheLockAndLastCloseRemovesTheName) {
  std::string name = uniqueName("mutex");
  D_MUTEX a = DutMutexCreateNamedNp(name.c_str(), 1);
  ASSERT_NE(a, D_INVALID_MUTEX);
  D_MUTEX b = DutMutexAttachNamedNp(name.c_str());
  ASSERT_NE(b, D_INVALID_MUTEX);
  EXPECT_NE(a, b);
  // Held through a: another thread cannot take it through b.
  TryResult r = tryFromOtherThread(b);
  EXPECT_EQ(r.locked, D_FALSE);
  EXPECT_EQ(r.error, D_ERR_TIMEOUT_REACHED);
  // Ownership belongs to the thread, whichever handle it used.
  EXPECT_EQ(DutMutexLock(b, 0.0), D_TRUE);
  EXPECT_EQ(DutMutexUnlock(b), D_TRUE);
  EXPECT_EQ(DutMutexUnlock(a), D_TRUE);
  EXPECT_EQ(tryFromOtherThread(b).locked, D_TRUE);

  // Closing one handle keeps the name; closing the last removes it.
  EXPECT_EQ(DutMutexDestroy(a), D_TRUE);
  D_MUTEX c = DutMutexAttachNamedNp(name.c_str());
  EXPECT_NE(c, D_INVALID_MUTEX);
  EXPECT_EQ(DutMutexDestroy(c), D_TRUE);
  EXPECT_EQ(DutMutexDestroy(b), D_TRUE);
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexAttachNamedNp(name.c_str()), D_INVALID_MUTEX);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  EXPECT_EQ(DutErrNumGetOs(), ENOENT);
  // And the name can be made again.
  D_MUTEX d = DutMutexCreateNamedNp(name.c_str(), 0);
  EXPECT_NE(d, D_INVALID_MUTEX);
  DutMutexDestroy(d);
}

TEST(NamedMutex, AttachOfMissingOrNullNameFails) {
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexAttachNamedNp(uniqueName("absent").c_str()), D_INVALID_MUTEX);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
  EXPECT_EQ(DutErrNumGetOs(), ENOENT);
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexAttachNamedNp(nullptr), D_INVALID_MUTEX);
  EXPECT_EQ(DutErrNumGet(), D_ERR_OS);
}

TEST(NamedMutex, SharedWithAnotherProcess) {
  std::string name = uniqueName("mutex");
  D_MUTEX m = DutMutexCreateNamedNp(name.c_str(), 1);
  ASSERT_NE(m, D_INVALID_MUTEX);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Held by the parent: the child's attempt times out, then it waits.
    D_MUTEX c = DutMutexAttachNamedNp(name.c_str());
    if (c == D_INVALID_MUTEX) _exit(10);
    if (DutMutexLock(c, 0.0) != D_FALSE || DutErrNumGet() != D_ERR_TIMEOUT_REACHED) _exit(11);
    if (DutMutexLock(c, 10.0) != D_TRUE) _exit(12);
    DutMutexUnlock(c);
    DutMutexDestroy(c);
    _exit(0);
  }
  DutWinSleep(0.05);
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  int status = 0;
  pid_t waited = waitpid(child, &status, 0);
  EXPECT_EQ(DutMutexDestroy(m), D_TRUE);
  ASSERT_EQ(waited, child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(NamedMutex, OwnerProcessThatDiedIsTakenOver) {
  std::string name = uniqueName("mutex");
  D_MUTEX m = DutMutexCreateNamedNp(name.c_str(), 0);
  ASSERT_NE(m, D_INVALID_MUTEX);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Dies holding the mutex (the handle was inherited through fork).
    _exit(DutMutexLock(m, 0.0) == D_TRUE ? 0 : 1);
  }
  int status = 0;
  pid_t waited = waitpid(child, &status, 0);
  if (waited != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) DutMutexDestroy(m);
  ASSERT_EQ(waited, child);
  ASSERT_TRUE(WIFEXITED(status));
  ASSERT_EQ(WEXITSTATUS(status), 0);
  DutErrNumSet(0);
  EXPECT_EQ(DutMutexLock(m, 0.0), D_TRUE);
  EXPECT_EQ(DutErrNumGet(), 0);
  // Taken over for good: it works as an ordinary mutex again.
  EXPECT_EQ(tryFromOtherThread(m).locked, D_FALSE);
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  EXPECT_EQ(tryFromOtherThread(m).locked, D_TRUE);
  EXPECT_EQ(DutMutexDestroy(m), D_TRUE);
}
