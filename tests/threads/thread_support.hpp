// Helpers shared by the thread-layer tests: library threads running
// lambdas, bounded waits, unique object names, the two kinds of mutex,
// child processes and checks of failed calls.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>

#include "rwmutex/rw_support.hpp"
#include "support/child_process.hpp"
#include "support/output_capture.hpp"

namespace vqtest {

using rwtest::LibThread;
using rwtest::waitUntil;

// Names unique to this process and call, so parallel test processes and
// repeated runs never meet each other's objects.
inline std::string uniqueName(const char *what) {
  static std::atomic<int> counter{0};
  return std::string("vqtest.") + what + "." + std::to_string(getpid()) + "." + std::to_string(counter++);
}

// The call failed with the library error `error` and, when os is not 0,
// that platform error beside it.
#define VQTEST_EXPECT_FAILS(call, error, os)                                  \
  do {                                                                        \
    EXPECT_FAILS(!(call), true, error);                                       \
    EXPECT_TRUE((os) == 0 || DutErrNumGetOs() == vqtest::osCode(os)) << #call; \
  } while (0)

// The platform's code for the condition an errno value names.
constexpr int osCode(int errno_value) {
#ifdef _WIN32
  switch (errno_value) {
    case EPERM: return 288;  // ERROR_NOT_OWNER
    case EBADF: return 6;    // ERROR_INVALID_HANDLE
    case EEXIST: return 183; // ERROR_ALREADY_EXISTS
    case ENOENT: return 2;   // ERROR_FILE_NOT_FOUND
  }
#endif
  return errno_value;
}

// Both kinds of mutex, behind one handle type.
struct MutexKind {
  const char *name;
  bool named;
};
constexpr MutexKind kMutexKinds[] = {{"unnamed", false}, {"named", true}};

// Whether the mutex is held by someone else: another library thread's
// attempt to take it at once times out (and one that succeeds leaves no
// error and gives it back).
inline bool heldElsewhere(D_MUTEX m) {
  D_WORD result = LibThread([m] {
    DutErrNumSet(0);
    if (DutMutexLock(m, 0.0)) return D_WORD{DutErrNumGet() == 0 && DutMutexUnlock(m) ? 0 : 1};
    return D_WORD{DutErrNumGet() == D_ERR_TIMEOUT_REACHED ? -1 : 1};
  }).join();
  EXPECT_TRUE(result == 0 || result == -1) << "taking it left an error number";
  return result == -1;
}

// The mutex is free for the caller: taken at once without an error number,
// at depth one (a second unlock is the platform's refusal), and destroyed
// while held.
inline void expectFreeForCaller(D_MUTEX m) {
  EXPECT_FAILS(DutMutexLock(m, 0.0), D_TRUE, 0);
  EXPECT_TRUE(heldElsewhere(m));
  EXPECT_EQ(DutMutexUnlock(m), D_TRUE);
  EXPECT_FALSE(heldElsewhere(m));
  VQTEST_EXPECT_FAILS(DutMutexUnlock(m), D_ERR_OS, EPERM);
  EXPECT_TRUE(DutMutexLock(m, 0.0) && DutMutexDestroy(m));
}

}  // namespace vqtest
