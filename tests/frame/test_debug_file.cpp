// The debug file: naming when opened, close / reopen / rename, and what
// reaches it from DutDebug, DutOutDebug, DutWarning and DutPerror. The file
// is opened once per process, so every case runs in a child of its own.

#include <cerrno>
#include <cstring>
#include <fstream>
#include <tuple>
#include <utility>

#include "child.hpp"

namespace {

namespace fs = std::filesystem;

// The first write with no file open opens standard error (no name given).
TEST(DebugOpen, NamingRules) {
  // absent: a file that must not have been made.
  const struct { const char *env, *given, *name; bool on_disk; const char *absent; } cases[] = {
      {nullptr, "trace", "trace.dbg", true, "trace"}, {nullptr, "LOUD.DBG", "LOUD.DBG", true, "LOUD.DBG.dbg"},
      {nullptr, "trace.log", "trace.log.dbg", true, "trace.log"}, {nullptr, "STDERR", "STDERR", false, "STDERR.dbg"},
      {nullptr, nullptr, "stderr", false, "stderr.dbg"},
      // The environment's name is used exactly as written.
      {"trace", "other", "trace", true, "trace.dbg"}, {"StdErr", "other", "StdErr", false, "StdErr.dbg"}};
  for (const auto &c : cases) {
    RunClean([&] {
      SCOPED_TRACE(c.given);
      if (c.env != nullptr) ::setenv("VQDEBUGFILENAME", c.env, 1);
      c.given != nullptr ? DutDebugOpen(c.given) : DutDebug("%s", "");
      FILE *stream = DutDebugFilePtr();
      EXPECT_EQ(std::tuple(std::string(DutDebugFileName()), stream != nullptr && stream != stderr, fs::exists(c.name)),
                std::tuple(c.name, c.on_disk, c.on_disk));
      DutDebugOpen("two");  // a second open changes nothing
      EXPECT_EQ(std::pair(DutDebugFilePtr(), std::string(DutDebugFileName())), std::pair(stream, std::string(c.name)));
      for (const char *absent : {c.absent, "other.dbg", "two.dbg"}) EXPECT_FALSE(fs::exists(absent)) << absent;
    });
  }
}

// One file through its life: truncated when opened and written at once;
// output that also goes to the debug file; close and reopen (appending,
// with a warning when still open); renames with their error numbers, on
// disk without an added extension, to standard error and back to a file.
TEST(DebugFile, LifeOnDisk) {
  RunClean([] {
    EXPECT_EQ(DutDebugFileName(), nullptr);
    std::ofstream("old.dbg") << "stale contents\n";
    DutDebugOpen("old");
    DutDebug("line %d of %s\n", 1, "two");
    OutputCapture capture;
    DutOutDebug("value %d\n", 42);
    DutWarning("low %s\n", "memory");
    DutErrNumSetC(ENOENT);
    EXPECT_TRUE(DutPerror("open"));
    const std::string both = "value 42\nWARNING: low memory\nopen: " + std::string(std::strerror(ENOENT)) + "\n";
    EXPECT_EQ(capture.Take(), both);
    std::string expected = "line 1 of two\n" + both;
    EXPECT_EQ(ReadFile("old.dbg"), expected);

    DutDebugClose();
    EXPECT_TRUE(DutDebugFilePtr() == nullptr && std::string(DutDebugFileName()) == "old.dbg");
    EXPECT_FAILS(DutDebugRename("later"), D_FALSE, D_ERR_DOESNT_EXIST);  // nothing open
    FILE *reopened = DutDebugReopen();
    EXPECT_TRUE(reopened != nullptr && reopened != stderr);
    EXPECT_NE(DutDebugReopen(), nullptr);
    const std::string warning = "WARNING: DutDebugReopen: debug file already open!!\n";
    EXPECT_EQ(capture.Take(), warning);
    DutDebug("c\n");
    EXPECT_EQ(ReadFile("old.dbg"), expected += warning + "c\n");  // appended to the old text

    EXPECT_FAILS(DutDebugRename(nullptr), D_FALSE, D_ERR_NULL_PTR);
    EXPECT_FAILS(DutDebugRename("old.dbg"), D_FALSE, D_ERR_ALREADY_EXISTS);
    FILE *stream = DutDebugFilePtr();
#ifdef _WIN32
    // The runtime there cannot rename a file that is open.
    EXPECT_FAILS(DutDebugRename("b.log"), D_FALSE, D_ERR_C);
    EXPECT_TRUE(errno == EACCES && DutDebugFilePtr() == stream && fs::exists("old.dbg"));
    return;
#endif
    ASSERT_TRUE(DutDebugRename("b.log"));
    EXPECT_EQ(std::tuple(std::string(DutDebugFileName()), DutDebugFilePtr(), fs::exists("old.dbg")),
              std::tuple("b.log", stream, false));

    ASSERT_TRUE(DutDebugRename("stderr"));
    EXPECT_EQ(std::pair(DutDebugFilePtr(), std::string(DutDebugFileName())), std::pair(stderr, std::string("stderr")));
    EXPECT_EQ(ReadFile("b.log"), expected);  // left on disk, not renamed
    ASSERT_TRUE(DutDebugRename("fresh"));  // from standard error: a new file
    DutDebug("into fresh\n");
    ASSERT_TRUE(DutDebugRename("fresher"));  // and now a rename on disk
    EXPECT_FALSE(fs::exists("fresh"));
    EXPECT_EQ(ReadFile("fresher"), "into fresh\n");
  });
}

// A file that cannot be opened or reopened falls back to standard error
// with a message and no error number. Output does not reach standard error
// a second time, close leaves it open, and a failed rename changes
// nothing.
TEST(DebugFile, FallbacksAndStandardError) {
  RunClean([] {
    ASSERT_NE(std::freopen("stderr.txt", "w", stderr), nullptr);
    OutputCapture capture;
    DutErrNumSet(D_ERR_EOF);
    DutDebugOpen("no-such-dir/x");
    EXPECT_EQ(capture.Take(), "Cannot open debug file <no-such-dir/x.dbg>, using stderr instead.\n");
    EXPECT_EQ(DutDebugFilePtr(), stderr);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
    EXPECT_EQ(DutErrNumGet(), D_ERR_EOF);
    DutOutDebug("od\n");
    DutWarning("once\n");
    std::fflush(stderr);
    EXPECT_EQ(capture.Take(), "od\nWARNING: once\n");
    EXPECT_EQ(ReadFile("stderr.txt"), "");
    DutDebugClose();
    EXPECT_EQ(DutDebugReopen(), stderr);
    errno = 0;
    EXPECT_FAILS(DutDebugRename("no-such-dir/y"), D_FALSE, D_ERR_C);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_STREQ(DutDebugFileName(), "stderr");
    // From there to a file on disk, whose failed rename changes nothing and
    // whose reopen falls back once its folder is gone.
    fs::create_directory("sub");
    ASSERT_TRUE(DutDebugRename("sub/x"));
    FILE *stream = DutDebugFilePtr();
    errno = 0;
    EXPECT_FAILS(DutDebugRename("no-such-dir/x"), D_FALSE, D_ERR_C);
#ifdef _WIN32
    EXPECT_EQ(errno, EACCES);  // the open file is refused before the missing folder is seen
#else
    EXPECT_EQ(errno, ENOENT);
#endif
    EXPECT_EQ(DutDebugFilePtr(), stream);
    EXPECT_STREQ(DutDebugFileName(), "sub/x");
    DutDebugClose();
    fs::remove_all("sub");
    EXPECT_EQ(DutDebugReopen(), stderr);
    EXPECT_EQ(capture.Take(), "Can't reopen debug file sub/x, using stderr\n");
    EXPECT_STREQ(DutDebugFileName(), "stderr");
    // A support notice that cannot be read only warns, however long VQHOME is.
    ::setenv("VQHOME", std::string(5000, 'h').c_str(), 1);
    D_SAFE_STRING notice{};
    EXPECT_FALSE(DutGetSupportNotice(&notice));
    const std::string sep(1, static_cast<char>(std::filesystem::path::preferred_separator));
    EXPECT_EQ(capture.Take(), "WARNING: DutGetSupportNotice: could not open <" + std::string(5000, 'h') + sep +
                                  "standard" + sep + "support.txt>\n");
  });
}

TEST(DebugDeath, NullNameNullFormatAndReopenBeforeOpenAreAssertions) {
  EXPECT_FATAL_ABORT(DutDebugOpen(nullptr), "Assertion <file_name != NULL> failed, file: util\\.c");
  const char *volatile no_format = nullptr;
  EXPECT_FATAL_ABORT(DutDebug(no_format, 0), "Assertion <format_str> failed, file: util\\.c");
  EXPECT_FATAL_ABORT(DutDebugReopen(), "Assertion <utDebugFileName != NULL> failed, file: util\\.c");
}

}  // namespace
