// File locks: refusals with their error numbers and traces, the option
// readers, and locks between processes (blocking, polling, removal of the
// lock file, exclusion across that removal) and between two handles of one
// process.
#include <gtest/gtest.h>
#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "filelock/lock_support.hpp"
#include "support/output_capture.hpp"
#include "vqutil/command.h"
#include "vqutil/filelock.h"
#include "vqutil/memory.h"
#include "vqutil/option.h"
#include "vqutil/platform.h"

namespace {

using locktest::Child;
using locktest::ChildChecks;
using locktest::ScratchDir;

void SetLockOptions(double loops, double delay, bool trace) {
  ASSERT_EQ(DutOptionSetNum(DutOptionLookup("ptm_lock_loops"), loops), D_TRUE);
  ASSERT_EQ(DutOptionSetNum(DutOptionLookup("ptm_lock_delay"), delay), D_TRUE);
  ASSERT_EQ(DutOptionSetBool(DutOptionLookup("ptm_lock_trace"), trace ? 1 : 0), D_TRUE);
}

size_t Occurrences(const std::string &text, const std::string &piece) {
  size_t count = 0;
  for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++count;
  return count;
}

// Tries the lock file through a second handle without waiting: true when it
// could be locked (it is released again at once).
bool FreeForAnotherHandle(const std::string &lock_file, D_INT4 type) {
  D_WORD fd = DptLockFileOpenUnix(lock_file.c_str());
  if (fd < 0) return false;
  if (DptLockFileUnix(fd, type, D_TRUE) == D_FALSE) return false;  // closed by the failure
  ::close(static_cast<int>(fd));
  return true;
}

TEST(FileLockRefusals, BadArgumentsGiveTheirErrorAndTraceNeverACrash) {
  ScratchDir dir;
  SetLockOptions(1, 0, true);
  const std::string res = dir.resource("res");
  const std::string too_long = dir.resource(std::string(5000, 'n'));
  const std::string no_dir = dir.resource("missing/res");
  D_LOCK_HANDLE *const kUntouched = reinterpret_cast<D_LOCK_HANDLE *>(0x10);
  D_LOCK_HANDLE *handle = kUntouched;
  D_LOCK_HANDLE *cleared = nullptr;
  D_LOCK_HANDLE zeroed{};
  D_LOCK_HANDLE *not_live = &zeroed;
  const D_WORD open_fd = DptLockFileOpenUnix(res.c_str());
  ASSERT_GE(open_fd, 0);
  struct Row {
    const char *what;
    std::function<D_WORD()> call;
    D_WORD result;
    D_INT4 error;
    int os;  // the OS value beside D_ERR_OS
    std::string trace;
  };
  const Row rows[] = {
      {"null destination", [&] { return DptLockFile(res.c_str(), 0, 1, nullptr); }, D_FALSE, D_ERR_NULL_PTR, 0,
       "Invalid lock handle pointer passed to DptLockFile\n"},
      {"type 3", [&] { return DptLockFile(res.c_str(), 0, 3, &handle); }, D_FALSE, D_ERR_VAL_INVALID, 0,
       "DptLockFile: Invalid lock type passed 3\n"},
      {"type -1", [&] { return DptLockFile(res.c_str(), 0, -1, &handle); }, D_FALSE, D_ERR_VAL_INVALID, 0,
       "DptLockFile: Invalid lock type passed -1\n"},
      {"null name", [&] { return DptLockFile(nullptr, 0, 0, &handle); }, D_FALSE, D_ERR_NULL_PTR, 0,
       "Invalid filename pointer passed to DptLockFile\n"},
      {"empty name", [&] { return DptLockFile("", 0, 1, &handle); }, D_FALSE, D_ERR_VAL_INVALID, 0,
       "DptLockFile: Empty filename passed\n"},
      {"unlock, null pointer", [] { return DptUnlockFile(nullptr); }, D_FALSE, D_ERR_NULL_PTR, 0,
       "Invalid pointer passed to DptUnlockFile\n"},
      {"unlock, cleared handle", [&] { return DptUnlockFile(&cleared); }, D_FALSE, D_ERR_NULL_PTR, 0,
       "Invalid pointer passed to DptUnlockFile\n"},
      {"type 2, cleared handle", [&] { return DptLockFile(nullptr, 0, 2, &cleared); }, D_FALSE, D_ERR_NULL_PTR, 0,
       "Invalid pointer passed to DptUnlockFile\n"},
      {"unlock, not a live handle", [&] { return DptUnlockFile(&not_live); }, D_FALSE, D_ERR_VAL_INVALID, 0,
       "Invalid pointer passed to DptUnlockFile\n"},
      {"open, null name", [] { return DptLockFileOpenUnix(nullptr); }, -1, D_ERR_NULL_PTR, 0, ""},
      {"lock, bad type", [&] { return DptLockFileUnix(open_fd, 2, D_FALSE); }, D_FALSE, D_ERR_VAL_INVALID, 0, ""},
      {"lock, bad file", [] { return DptLockFileUnix(-1, 1, D_FALSE); }, D_FALSE, D_ERR_OS, EBADF,
       "LockFile(Ex) failure.  Error code " + std::to_string(EBADF) + "\n"},
      {"lock, file beyond any descriptor", [] { return DptLockFileUnix(D_WORD{1} << 40, 0, D_TRUE); }, D_FALSE,
       D_ERR_OS, EBADF, "LockFile(Ex) failure.  Error code " + std::to_string(EBADF) + "\n"},
      {"the Windows open here", [&] { return DptLockFileOpenWindows(res.c_str()); }, -1, 0, 0, ""},
      {"the Windows lock here", [&] { return DptLockFileWindows(open_fd, 1); }, D_FALSE, 0, 0, ""},
  };
  vqtest::OutputCapture capture;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    EXPECT_FAILS(row.call(), row.result, row.error);
    if (row.os != 0) {
      EXPECT_EQ(DutErrNumGetOs(), row.os);
    }
    EXPECT_EQ(capture.Take(), row.trace);
  }
  EXPECT_EQ(handle, kUntouched);  // argument refusals come before the destination is cleared
  EXPECT_EQ(not_live, &zeroed);
  EXPECT_EQ(::fcntl(static_cast<int>(open_fd), F_GETFD), FD_CLOEXEC);  // no refusal closed it

  // A name the system refuses: the destination is cleared, no file appears.
  struct Refused {
    std::string name;
    int os;
  };
  for (const Refused &row : {Refused{too_long, ENAMETOOLONG}, Refused{no_dir, ENOENT}}) {
    handle = kUntouched;
    EXPECT_FAILS(DptLockFile(row.name.c_str(), 0, 1, &handle), D_FALSE, D_ERR_OS);
    EXPECT_EQ(DutErrNumGetOs(), row.os);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(capture.Take(), "CreateFile failure.  Error code " + std::to_string(row.os) + "\n");
  }
  ::close(static_cast<int>(open_fd));
}

TEST(FileLockRefusals, FailingCloseStillFreesAndClearsTheHandle) {
  SetLockOptions(1, 0, true);
  auto *bad = static_cast<D_LOCK_HANDLE *>(DutMalloc(sizeof(D_LOCK_HANDLE)));
  bad->marker = 1;
  bad->file = -1;
  bad->name = static_cast<char *>(DutMalloc(32));
  std::strcpy(bad->name, "/nonexistent/x-LOCKFILE-");
  vqtest::OutputCapture capture;
  EXPECT_FAILS(DptUnlockFile(&bad), D_FALSE, D_ERR_OS);
  EXPECT_EQ(DutErrNumGetOs(), EBADF);
  EXPECT_EQ(bad, nullptr);  // freed (a leak or double free shows under the sanitizers)
  EXPECT_EQ(capture.Take(), "CloseHandle failure.  Error code " + std::to_string(EBADF) + "\n");
}

TEST(FileLockOptions, ReadersGiveTheOptionOrItsDefault) {
  struct Row {
    const char *loops;  // setopt values; "unknown" unsets
    const char *delay;
    const char *trace;
    D_INT4 want_loops;
    D_REAL8 want_delay;
    D_BOOL want_trace;
  };
  const Row rows[] = {
      {"7.9", "0.05", "true", 7, 0.05, D_TRUE},
      {"unknown", "unknown", "unknown", 600, 0.2, D_FALSE},
      {"0", "0", "false", 0, 0.0, D_FALSE},
      {"1e12", "3", "true", INT_MAX, 3.0, D_TRUE},
      {"600", "0.2", "false", 600, 0.2, D_FALSE},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.loops);
    for (auto [name, value] : {std::pair{"ptm_lock_loops", row.loops}, std::pair{"ptm_lock_delay", row.delay},
                               std::pair{"ptm_lock_trace", row.trace}}) {
      DutCommandParseStr((std::string("setopt ") + name + " " + value).c_str());
    }
    DutErrNumSet(1234);
    EXPECT_EQ(DptLockFileLoops(), row.want_loops);
    EXPECT_DOUBLE_EQ(DptLockFileWait(), row.want_delay);
    EXPECT_EQ(DptLockFileTrace(), row.want_trace);
    EXPECT_EQ(DutErrNumGet(), 1234);  // an option without a value is no error
  }
}

// A second process asks for a lock while this one holds another: it gets
// it at once when both are shared, otherwise only after the unlock.
TEST(FileLockProcesses, SecondProcessWaitsUnlessBothShare) {
  struct Row {
    D_INT4 held;
    D_INT4 asked;
    bool waits;
  };
  const Row rows[] = {{1, 1, true}, {1, 0, true}, {0, 1, true}, {0, 0, false}};
  for (const Row &row : rows) {
    SCOPED_TRACE(std::to_string(row.held) + " then " + std::to_string(row.asked));
    ScratchDir dir;
    const std::string res = dir.resource("shared");
    D_LOCK_HANDLE *mine = nullptr;
    ASSERT_EQ(DptLockFile(res.c_str(), 0, row.held, &mine), D_TRUE);
    ASSERT_NE(mine, nullptr);
    EXPECT_TRUE(dir.hasLockFile("shared"));
    Child child([&](Child &self) {
      self.tell('s');
      D_LOCK_HANDLE *theirs = nullptr;
      if (DptLockFile(res.c_str(), 0, row.asked, &theirs) == D_FALSE) return 1;
      self.tell('L');
      self.awaitGo();
      return DptUnlockFile(&theirs) == D_TRUE && theirs == nullptr ? 0 : 2;
    });
    ASSERT_TRUE(child.started());
    ASSERT_TRUE(child.heard('s'));
    if (row.waits) {
      EXPECT_FALSE(child.heard('L', 0.3)) << "got the lock while it was held";
      EXPECT_EQ(DptUnlockFile(&mine), D_TRUE);
      EXPECT_TRUE(child.heard('L'));
    } else {
      EXPECT_TRUE(child.heard('L'));
      EXPECT_EQ(DptUnlockFile(&mine), D_TRUE);
    }
    child.go();
    EXPECT_EQ(child.exitCode(), 0);
    EXPECT_FALSE(dir.hasLockFile("shared"));
  }
}

// The polling path against a lock another process holds: it gives up after
// ptm_lock_loops busy attempts, or wins once the holder lets go in time.
TEST(FileLockProcesses, PollingGivesUpAfterItsLoopsOrWinsWhenReleased) {
  struct Row {
    double loops;
    bool release;
  };
  for (const Row row : {Row{3, false}, Row{400, true}}) {
    SCOPED_TRACE(row.release);
    ScratchDir dir;
    const std::string res = dir.resource("polled");
    D_LOCK_HANDLE *mine = nullptr;
    ASSERT_EQ(DptLockFile(res.c_str(), 0, D_LOCK_EXCLUSIVE, &mine), D_TRUE);
    Child child([&](Child &self) {
      ChildChecks check;
      SetLockOptions(row.loops, 0.05, true);
      vqtest::OutputCapture capture;
      const D_WORD fd = DptLockFileOpenUnix(dir.lockFile("polled").c_str());
      self.tell('s');
      const auto start = std::chrono::steady_clock::now();
      DutErrNumSet(0);
      const D_BOOL locked = DptLockFileUnix(fd, D_LOCK_SHARED, D_TRUE);
      const double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      const std::string trace = capture.Take();
      const size_t retries = Occurrences(trace, "File in use; retrying operation \n");
      if (row.release) {
        check(locked == D_TRUE, "locked after the release");
        check(retries >= 1 && retries < 400, "retried until released: " + std::to_string(retries));
        check(trace.find("failure") == std::string::npos, trace);
      } else {
        const int os = DutErrNumGetOs();
        check(locked == D_FALSE && DutErrNumGet() == D_ERR_OS, "gave up with D_ERR_OS");
        check(os == EAGAIN || os == EACCES, "busy value " + std::to_string(os));
        check(retries == 3, "three attempts: " + trace);
        check(Occurrences(trace, "LockFile(Ex) failure.  Error code " + std::to_string(os) + "\n") == 1, trace);
        check(waited >= 3 * 0.05 * 0.9, "paused between attempts: " + std::to_string(waited));
        check(::fcntl(static_cast<int>(fd), F_GETFD) == -1, "file closed on failure");
      }
      return check.failures;
    });
    ASSERT_TRUE(child.heard('s'));
    if (row.release) {
      DutWinSleep(0.2);
      EXPECT_EQ(DptUnlockFile(&mine), D_TRUE);
    }
    EXPECT_EQ(child.exitCode(), 0);
    if (!row.release) {
      EXPECT_EQ(DptUnlockFile(&mine), D_TRUE);
    }
  }
}

// Locks belong to handles: two handles of this process conflict as two
// processes do, and the lock file goes with the last holder.
TEST(FileLockProcesses, HandlesOfOneProcessConflictAndTheLastHolderRemovesTheFile) {
  SetLockOptions(1, 0, false);
  struct Row {
    D_INT4 first;
    D_INT4 second;
    bool both;
  };
  for (const Row row : {Row{1, 0, false}, Row{0, 1, false}, Row{0, 0, true}}) {
    ScratchDir dir;
    const std::string res = dir.resource("one");
    D_LOCK_HANDLE *first = nullptr;
    ASSERT_EQ(DptLockFile(res.c_str(), 0, row.first, &first), D_TRUE);
    EXPECT_EQ(FreeForAnotherHandle(dir.lockFile("one"), row.second), row.both);
    if (row.both) {
      D_LOCK_HANDLE *second = nullptr;
      ASSERT_EQ(DptLockFile(res.c_str(), 0, row.second, &second), D_TRUE);
      EXPECT_EQ(DptLockFile(nullptr, 0, D_LOCK_UNLOCK, &first), D_TRUE);
      EXPECT_TRUE(dir.hasLockFile("one")) << "removed under another holder";
      EXPECT_EQ(DptUnlockFile(&second), D_TRUE);
    } else {
      EXPECT_EQ(DptLockFile(nullptr, 0, D_LOCK_UNLOCK, &first), D_TRUE);
    }
    EXPECT_EQ(first, nullptr);
    EXPECT_FALSE(dir.hasLockFile("one"));
    EXPECT_TRUE(FreeForAnotherHandle(dir.lockFile("one"), D_LOCK_EXCLUSIVE));
  }
}

// A waiter that was queued on the lock file when the holder removed it must
// not end up holding a lock on the removed file, which a newcomer would
// never meet.
TEST(FileLockProcesses, ExclusionHoldsAcrossTheRemovalOfTheLockFile) {
  SetLockOptions(1, 0, false);
  ScratchDir dir;
  const std::string res = dir.resource("gone");
  D_LOCK_HANDLE *mine = nullptr;
  ASSERT_EQ(DptLockFile(res.c_str(), 0, D_LOCK_EXCLUSIVE, &mine), D_TRUE);
  Child waiter([&](Child &self) {
    self.tell('s');
    D_LOCK_HANDLE *theirs = nullptr;
    if (DptLockFile(res.c_str(), 0, D_LOCK_EXCLUSIVE, &theirs) == D_FALSE) return 1;
    self.tell('L');
    self.awaitGo();
    return DptUnlockFile(&theirs) == D_TRUE ? 0 : 2;
  });
  ASSERT_TRUE(waiter.heard('s'));
  EXPECT_FALSE(waiter.heard('L', 0.3));  // queued on the file that is about to go
  EXPECT_EQ(DptUnlockFile(&mine), D_TRUE);
  ASSERT_TRUE(waiter.heard('L'));
  EXPECT_TRUE(dir.hasLockFile("gone"));
  EXPECT_FALSE(FreeForAnotherHandle(dir.lockFile("gone"), D_LOCK_SHARED)) << "two holders at once";
  waiter.go();
  EXPECT_EQ(waiter.exitCode(), 0);
  EXPECT_FALSE(dir.hasLockFile("gone"));
}

}  // namespace
