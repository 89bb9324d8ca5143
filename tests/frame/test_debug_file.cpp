// The debug file: naming when opened, close / reopen / rename, and what
// reaches it from DutDebug, DutOutDebug, DutWarning and DutPerror. Every
// test runs in a child process of its own (the debug file is opened once
// per process) inside its own temporary directory.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "support/capture.hpp"
#include "child.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"

namespace {

namespace fs = std::filesystem;
using vqtest::OutputCapture;
using vqtest::ReadFile;
using vqtest::RunInChild;

// Each case starts from a clean environment in its child.
template <class Body>
void InChild(Body body) {
  RunInChild([&] {
    vqtest::ClearFrameEnvironment();
    body();
  });
}

bool IsOnDisk(FILE *file) { return file != nullptr && file != stderr; }

// ---- Opening -------------------------------------------------------------------

TEST(DebugOpen, AppendsTheExtensionToAPlainName) {
  InChild([] {
    EXPECT_EQ(DutDebugFileName(), nullptr);
    EXPECT_EQ(DutDebugFilePtr(), nullptr);
    DutDebugOpen("trace");
    EXPECT_STREQ(DutDebugFileName(), "trace.dbg");
    EXPECT_TRUE(IsOnDisk(DutDebugFilePtr()));
    EXPECT_TRUE(fs::exists("trace.dbg"));
    EXPECT_FALSE(fs::exists("trace"));
  });
}

TEST(DebugOpen, KeepsAnExistingExtensionInAnyCase) {
  InChild([] {
    DutDebugOpen("trace.dbg");
    EXPECT_STREQ(DutDebugFileName(), "trace.dbg");
    EXPECT_TRUE(fs::exists("trace.dbg"));
    EXPECT_FALSE(fs::exists("trace.dbg.dbg"));
  });
  InChild([] {
    DutDebugOpen("LOUD.DBG");
    EXPECT_STREQ(DutDebugFileName(), "LOUD.DBG");
    EXPECT_TRUE(fs::exists("LOUD.DBG"));
  });
  InChild([] {
    DutDebugOpen("trace.log");
    EXPECT_STREQ(DutDebugFileName(), "trace.log.dbg");
  });
}

TEST(DebugOpen, EnvironmentNameIsUsedExactly) {
  InChild([] {
    ::setenv("VQDEBUGFILENAME", "trace", 1);
    DutDebugOpen("other");
    EXPECT_STREQ(DutDebugFileName(), "trace");
    EXPECT_TRUE(fs::exists("trace"));
    EXPECT_FALSE(fs::exists("trace.dbg"));
    EXPECT_FALSE(fs::exists("other.dbg"));
  });
  InChild([] {
    ::setenv("VQDEBUGFILENAME", "StdErr", 1);
    DutDebugOpen("other");
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "StdErr");
  });
}

TEST(DebugOpen, OpeningTruncates) {
  InChild([] {
    {
      std::FILE *old = std::fopen("old.dbg", "w");
      ASSERT_NE(old, nullptr);
      std::fputs("stale contents\n", old);
      std::fclose(old);
    }
    DutDebugOpen("old");
    DutDebug("fresh\n");
    EXPECT_EQ(ReadFile("old.dbg"), "fresh\n");
  });
}

TEST(DebugOpen, StderrInAnyCaseKeepsTheNameAsGiven) {
  InChild([] {
    DutDebugOpen("stderr");
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
    EXPECT_FALSE(fs::exists("stderr.dbg"));
  });
  InChild([] {
    DutDebugOpen("STDERR");
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "STDERR");
    // The rename step compares case-sensitively, so this is a rename on
    // disk of a file that does not exist.
    DutErrNumSet(0);
    errno = 0;
    EXPECT_FALSE(DutDebugRename("moved"));
    EXPECT_EQ(DutErrNumGet(), D_ERR_C);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_STREQ(DutDebugFileName(), "STDERR");
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_FALSE(fs::exists("moved"));
  });
}

TEST(DebugOpen, SecondOpenChangesNothing) {
  InChild([] {
    DutDebugOpen("one");
    FILE *first = DutDebugFilePtr();
    DutDebugOpen("two");
    EXPECT_EQ(DutDebugFilePtr(), first);
    EXPECT_STREQ(DutDebugFileName(), "one.dbg");
    EXPECT_FALSE(fs::exists("two.dbg"));
  });
  InChild([] {
    DutDebugOpen("stderr");
    DutDebugOpen("two");
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
    EXPECT_FALSE(fs::exists("two.dbg"));
  });
}

TEST(DebugOpen, UnopenableFileFallsBackToStderrWithAMessage) {
  InChild([] {
    OutputCapture capture;
    DutErrNumSet(D_ERR_EOF);
    DutDebugOpen("no-such-dir/x");
    EXPECT_EQ(capture.Take(), "Cannot open debug file <no-such-dir/x.dbg>, using stderr instead.\n");
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
    EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);  // never an error return
  });
}

TEST(DebugOpen, FirstDebugWriteOpensStderr) {
  InChild([] {
    DutDebug("%s", "");
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
  });
}

TEST(DebugOpenDeath, NullNameAndNullFormatAreAssertions) {
  EXPECT_EXIT(
      {
        ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        DutDebugOpen(nullptr);
      },
      ::testing::KilledBySignal(SIGABRT), "Assertion <file_name != NULL> failed, file: util\\.c");
  EXPECT_EXIT(
      {
        ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        const char *volatile no_format = nullptr;
        DutDebug(no_format, 0);
      },
      ::testing::KilledBySignal(SIGABRT), "Assertion <format_str> failed, file: util\\.c");
}

// ---- Writing -------------------------------------------------------------------

TEST(DebugWrite, DebugWritesAndFlushesAtOnce) {
  InChild([] {
    DutDebugOpen("w");
    DutDebug("line %d of %s\n", 1, "two");
    EXPECT_EQ(ReadFile("w.dbg"), "line 1 of two\n");  // no close needed
    DutDebug("line 2");
    EXPECT_EQ(ReadFile("w.dbg"), "line 1 of two\nline 2");
  });
}

TEST(DebugWrite, OutDebugReachesOutputAndFileOnceEach) {
  InChild([] {
    OutputCapture capture;
    DutDebugOpen("od");
    DutOutDebug("value %d\n", 42);
    EXPECT_EQ(capture.Take(), "value 42\n");
    EXPECT_EQ(ReadFile("od.dbg"), "value 42\n");
  });
}

TEST(DebugWrite, WarningReachesOutputAndFileOnceEach) {
  InChild([] {
    OutputCapture capture;
    DutDebugOpen("warn");
    DutWarning("low %s\n", "memory");
    EXPECT_EQ(capture.Take(), "WARNING: low memory\n");
    EXPECT_EQ(ReadFile("warn.dbg"), "WARNING: low memory\n");
  });
}

TEST(DebugWrite, WarningWithStderrDebugFileIsShownOnce) {
  InChild([] {
    // Keep the stderr object, send what it gets to a file we can read.
    ASSERT_NE(std::freopen("stderr.txt", "w", stderr), nullptr);
    OutputCapture capture;
    DutDebugOpen("stderr");
    DutOutDebug("od\n");
    DutWarning("once\n");
    std::fflush(stderr);
    EXPECT_EQ(capture.Take(), "od\nWARNING: once\n");
    EXPECT_EQ(ReadFile("stderr.txt"), "");
  });
}

TEST(DebugWrite, PerrorLineReachesTheDebugFile) {
  InChild([] {
    OutputCapture capture;
    DutDebugOpen("perr");
    errno = 0;
    DutErrNumSetC(ENOENT);
    EXPECT_TRUE(DutPerror("open"));
    const std::string line = std::string("open: ") + std::strerror(ENOENT) + "\n";
    EXPECT_EQ(capture.Take(), line);
    EXPECT_EQ(ReadFile("perr.dbg"), line);
  });
}

// ---- Close and reopen --------------------------------------------------------

TEST(DebugReopen, CloseKeepsTheNameAndReopenAppends) {
  InChild([] {
    DutDebugOpen("keep");
    DutDebug("a\n");
    DutDebugClose();
    EXPECT_EQ(DutDebugFilePtr(), nullptr);
    EXPECT_STREQ(DutDebugFileName(), "keep.dbg");
    FILE *reopened = DutDebugReopen();
    ASSERT_TRUE(IsOnDisk(reopened));
    EXPECT_EQ(DutDebugFilePtr(), reopened);
    DutDebug("b\n");
    EXPECT_EQ(ReadFile("keep.dbg"), "a\nb\n");
    EXPECT_STREQ(DutDebugFileName(), "keep.dbg");
  });
}

TEST(DebugReopen, ClosingAStderrDebugFileChangesNothing) {
  InChild([] {
    DutDebugOpen("stderr");
    DutDebugClose();
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_EQ(DutDebugReopen(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
  });
}

TEST(DebugReopen, ReopeningAnOpenFileWarnsAndAppends) {
  InChild([] {
    OutputCapture capture;
    DutDebugOpen("twice");
    DutDebug("first\n");
    FILE *again = DutDebugReopen();
    ASSERT_TRUE(IsOnDisk(again));
    EXPECT_EQ(capture.Take(), "WARNING: DutDebugReopen: debug file already open!!\n");
    DutDebug("second\n");
    const std::string text = ReadFile("twice.dbg");
    EXPECT_EQ(text.find("first\n"), 0u) << text;
    EXPECT_NE(text.find("second\n"), std::string::npos) << text;
  });
}

TEST(DebugReopen, UnreopenableFileFallsBackToStderr) {
  InChild([] {
    fs::create_directory("sub");
    DutDebugOpen("sub/x");
    DutDebugClose();
    fs::remove_all("sub");
    OutputCapture capture;
    EXPECT_EQ(DutDebugReopen(), stderr);
    EXPECT_EQ(capture.Take(), "Can't reopen debug file sub/x.dbg, using stderr\n");
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
  });
}

TEST(DebugReopenDeath, ReopenBeforeAnyOpenIsAnAssertion) {
  EXPECT_EXIT(
      {
        vqtest::ClearFrameEnvironment();
        ::setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        DutDebugReopen();
      },
      ::testing::KilledBySignal(SIGABRT),
      "Assertion <utDebugFileName != NULL> failed, file: util\\.c");
}

// ---- Rename ------------------------------------------------------------------

TEST(DebugRename, ArgumentAndStateErrors) {
  InChild([] {
    DutErrNumSet(0);
    EXPECT_FALSE(DutDebugRename(nullptr));
    EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
    DutErrNumSet(0);
    EXPECT_FALSE(DutDebugRename("x"));  // nothing open
    EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);

    DutDebugOpen("same");
    DutErrNumSet(0);
    EXPECT_FALSE(DutDebugRename("same.dbg"));
    EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);
    DutErrNumSet(0);
    EXPECT_FALSE(DutDebugRename(nullptr));
    EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);

    // After a close the pointer is null: nothing is open to rename.
    DutDebugClose();
    DutErrNumSet(0);
    EXPECT_FALSE(DutDebugRename("later"));
    EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
    EXPECT_STREQ(DutDebugFileName(), "same.dbg");
  });
}

TEST(DebugRename, RenameOnDiskKeepsWriting) {
  InChild([] {
    DutDebugOpen("a");
    DutDebug("before\n");
    FILE *stream = DutDebugFilePtr();
    ASSERT_TRUE(DutDebugRename("b.log"));
    EXPECT_STREQ(DutDebugFileName(), "b.log");  // no extension added
    EXPECT_EQ(DutDebugFilePtr(), stream);
    EXPECT_FALSE(fs::exists("a.dbg"));
    DutDebug("after\n");
    EXPECT_EQ(ReadFile("b.log"), "before\nafter\n");
  });
}

TEST(DebugRename, FailedRenameChangesNothing) {
  InChild([] {
    DutDebugOpen("stay");
    FILE *stream = DutDebugFilePtr();
    DutErrNumSet(0);
    errno = 0;
    EXPECT_FALSE(DutDebugRename("no-such-dir/x"));
    EXPECT_EQ(DutErrNumGet(), D_ERR_C);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_STREQ(DutDebugFileName(), "stay.dbg");
    EXPECT_EQ(DutDebugFilePtr(), stream);
    DutDebug("still\n");
    EXPECT_EQ(ReadFile("stay.dbg"), "still\n");
  });
}

TEST(DebugRename, RenameToStderrClosesTheFile) {
  InChild([] {
    DutDebugOpen("tostd");
    DutDebug("kept\n");
    ASSERT_TRUE(DutDebugRename("stderr"));
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
    EXPECT_EQ(ReadFile("tostd.dbg"), "kept\n");  // left on disk, not renamed
  });
}

TEST(DebugRename, FromStderrOpensANewFile) {
  InChild([] {
    DutDebugOpen("stderr");
    ASSERT_TRUE(DutDebugRename("fresh"));
    EXPECT_TRUE(IsOnDisk(DutDebugFilePtr()));
    EXPECT_STREQ(DutDebugFileName(), "fresh");
    DutDebug("into fresh\n");
    EXPECT_EQ(ReadFile("fresh"), "into fresh\n");
    // And a second rename now works on disk.
    ASSERT_TRUE(DutDebugRename("fresher"));
    EXPECT_FALSE(fs::exists("fresh"));
    EXPECT_EQ(ReadFile("fresher"), "into fresh\n");
  });
  InChild([] {
    DutDebugOpen("stderr");
    DutErrNumSet(0);
    errno = 0;
    EXPECT_FALSE(DutDebugRename("no-such-dir/y"));
    EXPECT_EQ(DutErrNumGet(), D_ERR_C);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
  });
}

}  // namespace
