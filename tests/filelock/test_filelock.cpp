// File locks: refusals with their error numbers and traces, the option
// readers, and locks between processes and between handles of one process
// (waiting, sharing, polling, removal of the lock file).
#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "support/child_process.hpp"
#include "support/output_capture.hpp"
#include "support/temp_dir.hpp"
#include "vqutil/command.h"
#include "vqutil/filelock.h"
#include "vqutil/memory.h"
#include "vqutil/option.h"
#include "vqutil/platform.h"

namespace {

std::string code(int os) { return ".  Error code " + std::to_string(os) + "\n"; }

// The lock options exist only once a host creates them, as here.
void Setopt(const std::string &line) {
  static const bool created = DutOptionCreate("ptm_lock_loops", D_OPT_TYPE_NUMERIC) &&
                              DutOptionCreate("ptm_lock_delay", D_OPT_TYPE_NUMERIC) &&
                              DutOptionCreate("ptm_lock_trace", D_OPT_TYPE_BOOLEAN);
  ASSERT_TRUE(created);
  DutCommandParseStr(("setopt " + line).c_str());
}

using vqtest::Child;

class FileLock : public ::testing::Test {
 protected:
  void SetUp() override {
    res_ = dir_.file("res");
    lock_file_ = res_ + D_LOCK_FILE_SUFFIX;
    for (const char *option : {"ptm_lock_loops 1", "ptm_lock_delay 0", "ptm_lock_trace false"}) Setopt(option);
  }
  bool lockFileExists() const { return std::filesystem::exists(lock_file_); }
  // Whether a further handle gets the lock at once (released again).
  bool freeForAnotherHandle(D_INT4 type) const {
    const D_WORD fd = DptLockFileOpenUnix(lock_file_.c_str());
    if (fd < 0 || DptLockFileUnix(fd, type, D_TRUE) == D_FALSE) return false;  // closed by the failure
    return ::close(static_cast<int>(fd)) == 0;
  }
  vqtest::TempDir dir_{"vqlock"};
  std::string res_;
  std::string lock_file_;
};

TEST_F(FileLock, DefaultsAndRefusalsWithTheirErrorAndTraceNeverACrash) {
  for (std::string name : {"ptm_lock_loops", "ptm_lock_delay", "ptm_lock_trace"}) Setopt(name + " unknown");
  DutErrNumSet(1234);
  EXPECT_TRUE(DptLockFileLoops() == 600 && DptLockFileWait() == 0.2 && DptLockFileTrace() == D_FALSE);
  EXPECT_EQ(DutErrNumGet(), 1234);  // an option without a value is no error
  Setopt("ptm_lock_trace true");
  D_LOCK_HANDLE *handle = nullptr;
  D_LOCK_HANDLE zeroed{};
  D_LOCK_HANDLE *not_live = &zeroed;
  const std::string long_name = dir_.str() + "/" + std::string(5000, 'n');
  auto failing_close = [] {  // still frees and clears the handle
    auto *bad = static_cast<D_LOCK_HANDLE *>(DutMalloc(sizeof(D_LOCK_HANDLE)));
    *bad = {1, -1, static_cast<char *>(DutMalloc(2))};
    std::strcpy(bad->name, "x");
    const D_BOOL result = DptUnlockFile(&bad);
    return bad == nullptr ? result : 99;
  };
  const std::string bad_pointer = "Invalid pointer passed to DptUnlockFile\n";
  const char *res = res_.c_str();
  struct Row {
    std::function<D_WORD()> call;
    D_WORD result;
    D_INT4 error;
    std::string trace;  // a refusal by the system ends in its error code
  };
  const Row rows[] = {
      {[&] { return DptLockFile(res, 0, 1, nullptr); }, 0, 3, "Invalid lock handle pointer passed to DptLockFile\n"},
      {[&] { return DptLockFile(res, 0, 3, &handle); }, 0, 7, "DptLockFile: Invalid lock type passed 3\n"},
      {[&] { return DptLockFile(nullptr, 0, 0, &handle); }, 0, 3, "Invalid filename pointer passed to DptLockFile\n"},
      {[&] { return DptLockFile("", 0, 1, &handle); }, 0, 7, "DptLockFile: Empty filename passed\n"},
      {[&] { return DptLockFile(long_name.c_str(), 0, 1, &handle); }, 0, 2, "CreateFile failure" + code(ENAMETOOLONG)},
      {[] { return DptUnlockFile(nullptr); }, 0, 3, bad_pointer},
      {[&] { return DptLockFile(nullptr, 0, D_LOCK_UNLOCK, &handle); }, 0, 3, bad_pointer},
      {[&] { return DptUnlockFile(&not_live); }, 0, 7, bad_pointer},
      {failing_close, 0, 2, "CloseHandle failure" + code(EBADF)},
      {[] { return DptLockFileUnix(-1, 1, D_FALSE); }, 0, 2, "LockFile(Ex) failure" + code(EBADF)},
      {[] { return DptLockFileUnix(0, 2, D_TRUE); }, 0, 7, ""},
      {[&] { return DptLockFileOpenWindows(res) + DptLockFileWindows(0, 1); }, -1, 0, ""},
  };
  vqtest::OutputCapture capture;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.trace);
    EXPECT_FAILS(row.call(), row.result, row.error);
    // The error code traced is the one kept beside D_ERR_OS.
    EXPECT_TRUE(row.trace.ends_with(row.error == D_ERR_OS ? code(DutErrNumGetOs()) : "")) << DutErrNumGetOs();
    EXPECT_EQ(capture.Take(), row.trace);
  }
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(not_live, &zeroed);  // not a handle of ours: left alone
  EXPECT_FALSE(lockFileExists());
}

// While this process holds a lock, another process and another handle of
// this one get a lock at once only when both are shared; otherwise the
// other process waits for the unlock, which removes the lock file under
// it, and from then on excludes newcomers itself.
TEST_F(FileLock, SecondHolderWaitsUnlessBothShareAndFileGoesWithTheLast) {
  struct Row {
    D_INT4 held, asked;
  };
  for (const Row row : {Row{1, 1}, Row{1, 0}, Row{0, 1}, Row{0, 0}}) {
    const bool waits = row.held + row.asked > 0;
    SCOPED_TRACE(std::to_string(row.held) + " then " + std::to_string(row.asked));
    D_LOCK_HANDLE *mine = nullptr;
    ASSERT_EQ(DptLockFile(res_.c_str(), 0, row.held, &mine), D_TRUE);
    EXPECT_TRUE(lockFileExists());
    EXPECT_EQ(freeForAnotherHandle(row.asked), !waits);
    Child child([&](Child &self) {
      self.say(1, 's');
      D_LOCK_HANDLE *theirs = nullptr;
      if (DptLockFile(res_.c_str(), 0, row.asked, &theirs) == D_FALSE) return 1;
      self.say(1, 'L');
      self.heard(1, 'g');
      return DptLockFile(nullptr, 0, D_LOCK_UNLOCK, &theirs) == D_TRUE && theirs == nullptr ? 0 : 2;
    });
    ASSERT_TRUE(child.heard(0, 's'));
    EXPECT_EQ(child.heard(0, 'L', waits ? 0.3 : 10), !waits);
    EXPECT_EQ(DptUnlockFile(&mine), D_TRUE);
    EXPECT_EQ(mine, nullptr);
    EXPECT_TRUE(!waits || child.heard(0, 'L'));
    EXPECT_TRUE(lockFileExists()) << "removed under another holder";
    EXPECT_FALSE(freeForAnotherHandle(D_LOCK_EXCLUSIVE)) << "two holders";
    child.say(0, 'g');
    EXPECT_EQ(child.exitCode(), 0);
    EXPECT_FALSE(lockFileExists());
  }
}

// Polling against another process's lock gives up after ptm_lock_loops busy
// attempts ptm_lock_delay apart (closing the lock file), or wins once the
// holder lets go in time.
TEST_F(FileLock, PollingGivesUpAfterItsLoopsOrWinsWhenReleased) {
  D_LOCK_HANDLE *mine = nullptr;
  ASSERT_EQ(DptLockFile(res_.c_str(), 0, D_LOCK_EXCLUSIVE, &mine), D_TRUE);
  Child child([&](Child &self) {
    for (const char *option : {"ptm_lock_loops 3", "ptm_lock_delay 0.05", "ptm_lock_trace true"}) Setopt(option);
    vqtest::OutputCapture capture;
    const std::string retry = "File in use; retrying operation \n";
    D_WORD fd = DptLockFileOpenUnix(lock_file_.c_str());
    const auto start = std::chrono::steady_clock::now();
    const D_BOOL locked = DptLockFileUnix(fd, D_LOCK_SHARED, D_TRUE);
    const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
    const int os = DutErrNumGetOs();
    if (locked || DutErrNumGet() != D_ERR_OS || (os != EAGAIN && os != EACCES) || waited.count() <= 0.14 ||
        capture.Take() != retry + retry + retry + "LockFile(Ex) failure" + code(os) ||
        ::fcntl(static_cast<int>(fd), F_GETFD) >= 0)
      return 1;
    Setopt("ptm_lock_loops 400");
    fd = DptLockFileOpenUnix(lock_file_.c_str());
    self.say(1, 's');
    if (!DptLockFileUnix(fd, D_LOCK_SHARED, D_TRUE)) return 2;
    const std::string trace = capture.Take();
    return trace.starts_with(retry) && trace.find("failure") == std::string::npos ? 0 : 3;
  });
  ASSERT_TRUE(child.heard(0, 's'));
  DutWinSleep(0.2);  // the child polls meanwhile
  EXPECT_EQ(DptUnlockFile(&mine), D_TRUE);
  EXPECT_EQ(child.exitCode(), 0);
}

}  // namespace
