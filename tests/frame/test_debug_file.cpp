// The debug file: naming when opened, close / reopen / rename, and what
// reaches it from DutDebug, DutOutDebug, DutWarning and DutPerror. The file
// is opened once per process, so every case runs in a child of its own.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/output_capture.hpp"
#include "child.hpp"
#include "vqutil/error.h"
#include "vqutil/output.h"

namespace {

namespace fs = std::filesystem;
using vqtest::OutputCapture;
using vqtest::ReadFile;
using vqtest::RunClean;

bool IsOnDisk(FILE *file) { return file != nullptr && file != stderr; }

// ---- Opening -------------------------------------------------------------------

TEST(DebugOpen, NamingRules) {
  const struct {
    const char *env, *given, *name;
    bool on_disk;
    const char *absent;
  } cases[] = {
      {nullptr, "trace", "trace.dbg", true, "trace"},
      {nullptr, "trace.dbg", "trace.dbg", true, "trace.dbg.dbg"},
      {nullptr, "LOUD.DBG", "LOUD.DBG", true, "LOUD.DBG.dbg"},
      {nullptr, "trace.log", "trace.log.dbg", true, "trace.log"},
      {nullptr, "stderr", "stderr", false, "stderr.dbg"},
      {nullptr, "STDERR", "STDERR", false, "STDERR.dbg"},
      // The environment's name is used exactly as written.
      {"trace", "other", "trace", true, "trace.dbg"},
      {"StdErr", "other", "StdErr", false, "StdErr.dbg"},
  };
  for (const auto &c : cases) {
    RunClean([&] {
      if (c.env != nullptr) ::setenv("VQDEBUGFILENAME", c.env, 1);
      DutDebugOpen(c.given);
      EXPECT_STREQ(DutDebugFileName(), c.name) << c.given;
      ASSERT_NE(DutDebugFilePtr(), nullptr) << c.given;
      EXPECT_EQ(DutDebugFilePtr() != stderr, c.on_disk) << c.given;
      EXPECT_EQ(fs::exists(c.name), c.on_disk) << c.given;
      // A second open changes nothing.
      FILE *stream = DutDebugFilePtr();
      DutDebugOpen("two");
      EXPECT_EQ(DutDebugFilePtr(), stream) << c.given;
      EXPECT_STREQ(DutDebugFileName(), c.name) << c.given;
      for (const char *absent : {c.absent, "other.dbg", "two.dbg"})
        EXPECT_FALSE(fs::exists(absent)) << c.given << " " << absent;
    });
  }
}

TEST(DebugOpen, NothingUntilOpenedThenTruncatedAndFlushedAtOnce) {
  RunClean([] {
    EXPECT_EQ(DutDebugFileName(), nullptr);
    EXPECT_EQ(DutDebugFilePtr(), nullptr);
    std::ofstream("old.dbg") << "stale contents\n";
    DutDebugOpen("old");
    DutDebug("line %d of %s\n", 1, "two");
    EXPECT_EQ(ReadFile("old.dbg"), "line 1 of two\n");  // no close needed
    DutDebug("line 2");
    EXPECT_EQ(ReadFile("old.dbg"), "line 1 of two\nline 2");
  });
  RunClean([] {
    DutDebug("%s", "");  // the first write opens standard error
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
  });
}

TEST(DebugOpen, UnopenableFileFallsBackToStderrWithAMessage) {
  RunClean([] {
    OutputCapture capture;
    DutErrNumSet(D_ERR_EOF);
    DutDebugOpen("no-such-dir/x");
    EXPECT_EQ(capture.Take(), "Cannot open debug file <no-such-dir/x.dbg>, using stderr instead.\n");
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
    EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);  // never an error return
  });
}

TEST(DebugDeath, NullNameNullFormatAndReopenBeforeOpenAreAssertions) {
  EXPECT_FATAL_ABORT(DutDebugOpen(nullptr), "Assertion <file_name != NULL> failed, file: util\\.c");
  const char *volatile no_format = nullptr;
  EXPECT_FATAL_ABORT(DutDebug(no_format, 0), "Assertion <format_str> failed, file: util\\.c");
  EXPECT_FATAL_ABORT(DutDebugReopen(),
                     "Assertion <utDebugFileName != NULL> failed, file: util\\.c");
}

// ---- Writing -------------------------------------------------------------------

TEST(DebugWrite, OutDebugWarningAndPerrorReachOutputAndFileOnceEach) {
  RunClean([] {
    OutputCapture capture;
    DutDebugOpen("both");
    DutOutDebug("value %d\n", 42);
    DutWarning("low %s\n", "memory");
    errno = 0;
    DutErrNumSetC(ENOENT);
    EXPECT_TRUE(DutPerror("open"));
    const std::string expected =
        "value 42\nWARNING: low memory\nopen: " + std::string(std::strerror(ENOENT)) + "\n";
    EXPECT_EQ(capture.Take(), expected);
    EXPECT_EQ(ReadFile("both.dbg"), expected);
  });
  RunClean([] {
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

// ---- Close and reopen --------------------------------------------------------

TEST(DebugReopen, CloseKeepsTheNameAndReopenAppends) {
  RunClean([] {
    OutputCapture capture;
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
    EXPECT_EQ(capture.Take(), "");
    // Reopening an open file warns and still appends.
    ASSERT_TRUE(IsOnDisk(DutDebugReopen()));
    EXPECT_EQ(capture.Take(), "WARNING: DutDebugReopen: debug file already open!!\n");
    DutDebug("c\n");
    const std::string text = ReadFile("keep.dbg");
    EXPECT_EQ(text.find("a\nb\n"), 0u) << text;
    EXPECT_NE(text.find("c\n"), std::string::npos) << text;
  });
  RunClean([] {
    DutDebugOpen("stderr");
    DutDebugClose();  // standard error is never closed
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_EQ(DutDebugReopen(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
  });
}

TEST(DebugReopen, UnreopenableFileFallsBackToStderr) {
  RunClean([] {
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

// ---- Rename ------------------------------------------------------------------

TEST(DebugRename, ArgumentAndStateErrors) {
  RunClean([] {
    EXPECT_FAILS(DutDebugRename(nullptr), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutDebugRename("x"), D_FALSE, D_ERR_DOESNT_EXIST);  // nothing open
    DutDebugOpen("same");
    EXPECT_FAILS(DutDebugRename("same.dbg"), D_FALSE, D_ERR_ALREADY_EXISTS);
    EXPECT_FAILS(DutDebugRename(nullptr), D_FALSE, D_ERR_NULL_PTR);
    // After a close the pointer is null: nothing is open to rename.
    DutDebugClose();
    EXPECT_FAILS(DutDebugRename("later"), D_FALSE, D_ERR_DOESNT_EXIST);
    EXPECT_STREQ(DutDebugFileName(), "same.dbg");
  });
}

TEST(DebugRename, FailedRenameChangesNothing) {
  const struct {
    const char *opened, *target, *name;
  } cases[] = {
      {"stay", "no-such-dir/x", "stay.dbg"},
      {"stderr", "no-such-dir/y", "stderr"},
      // The stderr test of rename is case-sensitive: this renames on disk
      // a file that does not exist.
      {"STDERR", "moved", "STDERR"},
  };
  for (const auto &c : cases) {
    RunClean([&] {
      DutDebugOpen(c.opened);
      FILE *stream = DutDebugFilePtr();
      errno = 0;
      EXPECT_FAILS(DutDebugRename(c.target), D_FALSE, D_ERR_C);
      EXPECT_EQ(errno, ENOENT) << c.opened;
      EXPECT_STREQ(DutDebugFileName(), c.name);
      EXPECT_EQ(DutDebugFilePtr(), stream) << c.opened;
      EXPECT_FALSE(fs::exists(c.target)) << c.opened;
    });
  }
}

TEST(DebugRename, OnDiskKeepsWritingWithoutAddingAnExtension) {
  RunClean([] {
    DutDebugOpen("a");
    DutDebug("before\n");
    FILE *stream = DutDebugFilePtr();
    ASSERT_TRUE(DutDebugRename("b.log"));
    EXPECT_STREQ(DutDebugFileName(), "b.log");
    EXPECT_EQ(DutDebugFilePtr(), stream);
    EXPECT_FALSE(fs::exists("a.dbg"));
    DutDebug("after\n");
    EXPECT_EQ(ReadFile("b.log"), "before\nafter\n");
  });
}

TEST(DebugRename, ToAndFromStderr) {
  RunClean([] {
    DutDebugOpen("tostd");
    DutDebug("kept\n");
    ASSERT_TRUE(DutDebugRename("stderr"));
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
    EXPECT_EQ(ReadFile("tostd.dbg"), "kept\n");  // left on disk, not renamed

    ASSERT_TRUE(DutDebugRename("fresh"));  // from stderr: a new file
    EXPECT_TRUE(IsOnDisk(DutDebugFilePtr()));
    EXPECT_STREQ(DutDebugFileName(), "fresh");
    DutDebug("into fresh\n");
    EXPECT_EQ(ReadFile("fresh"), "into fresh\n");
    ASSERT_TRUE(DutDebugRename("fresher"));  // and now a rename on disk
    EXPECT_FALSE(fs::exists("fresh"));
    EXPECT_EQ(ReadFile("fresher"), "into fresh\n");
  });
}

}  // namespace
