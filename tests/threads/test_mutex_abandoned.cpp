// Mutexes whose owner thread ended holding them, through the API: the next
// locker gets the mutex at once with no error number and owns it at depth
// one. For unnamed and named mutexes, library and foreign threads, and the
// process-wide lock. (Lockers asleep when the owner ends: test_locks.)
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "thread_support.hpp"

using vqtest::LibThread;
using vqtest::uniqueName;

namespace {

// Ways a thread ends while it holds a mutex.
struct Ending {
  const char *name;
  void (*run)(D_MUTEX m);
};

D_WORD lockThenExit(D_WORD m) {
  for (int i = 0; i < 3; ++i) DutMutexLock(m, D_WAIT_FOREVER);
  DutThreadExit(0);
}

constexpr Ending kEndings[] = {
    {"library thread returns",
     [](D_MUTEX m) {
       LibThread t([m] { return D_WORD{DutMutexLock(m, D_WAIT_FOREVER)}; });
       EXPECT_EQ(t.join(), D_TRUE);
     }},
    {"library thread calls DutThreadExit at depth 3",
     [](D_MUTEX m) { EXPECT_EQ(DutThreadWait(DutThreadCreate(&lockThenExit, m), nullptr), D_TRUE); }},
    {"foreign thread returns", [](D_MUTEX m) { std::thread([m] { DutMutexLock(m, D_WAIT_FOREVER); }).join(); }},
};

}  // namespace

TEST(MutexAbandoned, NextLockerTakesItOverSilentlyAtDepthOne) {
  for (const vqtest::MutexKind &kind : vqtest::kMutexKinds) {
    for (const Ending &ending : kEndings) {
      SCOPED_TRACE(std::string(kind.name) + ", " + ending.name);
      D_MUTEX m = kind.named ? DutMutexCreateNamedNp(uniqueName("abandoned").c_str(), 0) : DutMutexCreate(0);
      ASSERT_NE(m, D_INVALID_MUTEX);
      ending.run(m);
      vqtest::expectFreeForCaller(m);
    }
  }
}

TEST(MutexAbandoned, ProcessWideLockIsTakenOverToo) {
  DutInitThreads();
  LibThread t([] {
    DutProcessMutexLock();
    DutProcessMutexLock();
    return D_WORD{0};
  });
  t.join();
  EXPECT_EQ(DutProcessMutexLock(), D_TRUE);
  EXPECT_EQ(DutProcessMutexUnlock(), D_TRUE);
  // One level only: the dead owner's second level is gone with it.
  VQTEST_EXPECT_FAILS(DutProcessMutexUnlock(), D_ERR_OS, EPERM);
  // And the library's tables work from other threads again.
  LibThread other([] { return D_WORD{DutProcessMutexLock() == D_TRUE && DutProcessMutexUnlock() == D_TRUE}; });
  EXPECT_EQ(other.join(), 1);
}
