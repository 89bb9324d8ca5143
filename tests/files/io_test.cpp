// Interrupt-safe I/O, the shell, viewing and editing through the editor,
// and the per-process dump file.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support.hpp"
#include "vqutil/file.h"
#include "vqutil/interrupt.h"

using namespace files_test;

namespace {

std::atomic<int> usr1_deliveries{0};

void (*currentSigint())(int) {
  struct sigaction action;
  sigaction(SIGINT, nullptr, &action);
  return action.sa_handler;
}

struct Pipe {
  int fds[2] = {-1, -1};
  Pipe() { EXPECT_EQ(pipe(fds), 0); }
  ~Pipe() {
    close(fds[0]);
    close(fds[1]);
  }
};

// A blocked read gets the interrupt key, which must be ignored, then a
// signal that must be retried over; only then does data arrive.
TEST(AtomicIo, ReadIgnoresTheInterruptKeyAndResumesAfterASignal) {
  // Without SA_RESTART, so that the blocking read really is interrupted.
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = [](int) { ++usr1_deliveries; };
  sigemptyset(&action.sa_mask);
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  ASSERT_TRUE(DutInterruptInit());
  DutInterruptReset();
  usr1_deliveries = 0;
  Pipe p;
  std::thread feeder([reader = pthread_self(), fd = p.fds[1]] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pthread_kill(reader, SIGINT);
    pthread_kill(reader, SIGUSR1);
    for (int i = 0; usr1_deliveries.load() == 0 && i < 200; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(write(fd, "hello", 5), 5);
  });
  char buffer[16] = {};
  int n = DutReadAtomic(p.fds[0], buffer, sizeof buffer);
  feeder.join();
  EXPECT_EQ(usr1_deliveries.load(), 1);
  ASSERT_EQ(n, 5);
  EXPECT_EQ(std::string(buffer, 5), "hello");
  EXPECT_EQ(DutInterruptGet(), 0);
  // Afterwards the library's handler counts again.
  EXPECT_EQ(currentSigint(), &DutSigintHandler);
  raise(SIGINT);
  EXPECT_EQ(DutInterruptGet(), 1);
  DutInterruptReset();
}

TEST(AtomicIo, HandlerIsInstalledAfterEveryCallAndFailuresKeepErrno) {
  TempDir dir;
  Pipe p;
  char buffer[4] = {};
  signal(SIGINT, SIG_DFL);
  EXPECT_EQ(DutFsyncAtomic(0), 0);
  EXPECT_EQ(currentSigint(), &DutSigintHandler);
  signal(SIGINT, SIG_DFL);
  EXPECT_TRUE(DutWriteAtomic(p.fds[1], "ab", 2) == 2 && DutReadAtomic(p.fds[0], buffer, 4) == 2);
  EXPECT_EQ(currentSigint(), &DutSigintHandler);
  EXPECT_STREQ(buffer, "ab");
  EXPECT_FAILS(DutWriteAtomic(p.fds[0], "x", 1), -1, D_ERR_C);  // the read end
  EXPECT_EQ(DutErrNumGetC(), EBADF);
  EXPECT_FAILS(DutReadAtomic(p.fds[0], buffer, -1), -1, D_ERR_VAL_INVALID);
  writeFile("victim", "");
  EXPECT_EQ(DutUnlinkAtomic("victim"), 0);
  EXPECT_FAILS(DutUnlinkAtomic("victim"), -1, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
}

// The editor is the option's, else EDITOR's; "_cat" prints the file and
// emacs gets the line. Open files are flushed first; a failing editor is
// reported.
TEST(EditFile, OptionThenEnvironmentThenCat) {
  TempDir dir;
  EXPECT_EQ(DutSystem("exit 5"), 5);
  std::string editor = recordingEditor(dir, "ed.sh");
  recordingEditor(dir, "emacs");
  EnvVar path("PATH", (dir.str() + ":" + std::getenv("PATH")).c_str());
  writeFile("doc.txt", "body\n");
  StrOption option("editor", editor.c_str());
  EnvVar env("EDITOR", "/bin/false");
  FILE *out = DutOpenFile("pending.txt", "w");
  std::fputs("not yet flushed\n", out);
  EXPECT_TRUE(DutEditFile("pending.txt", 3));
  option.set("");
  env.set(editor.c_str());
  EXPECT_TRUE(DutEditFile("doc.txt", 1));
  option.set("emacs");
  EXPECT_TRUE(DutEditFile("doc.txt", 42));
  EXPECT_EQ(readFile(dir.file("editor.log")),
            "args: pending.txt\nnot yet flushed\nargs: doc.txt\nbody\nargs: +42 doc.txt\nbody\n");
  EXPECT_TRUE(DutCloseFile(out));
  OutputCapture capture;
  option.set("_cat");
  EXPECT_TRUE(DutEditFile("doc.txt", 1));
  EXPECT_FALSE(DutCatFile("nope.txt"));
  EXPECT_EQ(capture.Take(), "body\nWARNING: DutCatFile: could not open file <nope.txt> for reading.\n");
  EXPECT_EQ(DutLookupFile("doc.txt"), nullptr);
  option.set(recordingEditor(dir, "bad.sh", "exit 3").c_str());
  EXPECT_FAILS(DutEditFile("doc.txt", 1), D_FALSE, D_ERR_VAL_INVALID);
}

// The editor appends to the file; the stream comes back in its own mode
// with its reference count, and the registry follows it. A stream the
// registry does not know comes back with a warning.
TEST(ViewFilePtr, StreamIsReopenedInItsModeAndRegistered) {
  TempDir dir;
  StrOption option("editor", recordingEditor(dir, "ed.sh", "echo edited >> \"$f\"").c_str());
  FILE *app = DutOpenFile("view.txt", "a");
  FILE *out = DutOpenFile("w.txt", "w");
  ASSERT_TRUE(app && out);
  ASSERT_EQ(DutOpenFile("w.txt", "w"), out);
  std::fputs("abc\n", app);
  std::fputs("first\n", out);
  FILE *app2 = DutViewFilePtr(app);
  FILE *out2 = DutViewFilePtr(out);
  ASSERT_TRUE(app2 && out2);
  EXPECT_EQ(readFile(dir.file("editor.log")), "args: view.txt\nabc\nargs: w.txt\nfirst\n");
  std::fputs("more\n", app2);
  std::fputs("second\n", out2);
  EXPECT_TRUE(DutCloseFile(app2) && DutCloseFile(out2));
  EXPECT_EQ(readFile("view.txt"), "abc\nedited\nmore\n");
  EXPECT_EQ(DutLookupFile("w.txt"), out2) << "one reference left";
  EXPECT_TRUE(DutCloseFile(out2));
  EXPECT_EQ(readFile("w.txt"), "second\n");

  FILE *own = std::fopen("own.txt", "w");
  OutputCapture capture;
  EXPECT_EQ(DutViewFilePtr(own), own);
  char expected[128];
  std::snprintf(expected, sizeof expected, "WARNING: DutViewFilePtr: could not find file %lx (fd %d).\n",
                reinterpret_cast<unsigned long>(own), fileno(own));
  EXPECT_EQ(capture.Take(), expected);
  std::fclose(own);
  writeFile("r.txt", "");
  VQTEST_EXPECT_ASSERTION(DutViewFilePtr(DutOpenFile("r.txt", "r")),
                          "file_node->mode\\[0\\] == 'w' \\|\\| file_node->mode\\[0\\] == 'a'");
}

// The name is fixed by the first open of the process; it lies in the
// temporary directory, which is the current directory of each test.
class DumpFile : public ::testing::Test {
 protected:
  void SetUp() override { DutDumpClose(); }
  void TearDown() override { DutDumpClose(); }

  const std::string name = "./dump" + std::to_string(getpid()) + ".dmp";
  TempDir dir;
};

TEST_F(DumpFile, Lifecycle) {
  char buffer[256];
  if (!DutDumpGetName(buffer)) {
    // Nothing is named before the first open of the process.
    EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
    EXPECT_FAILS(DutDumpView(), D_FALSE, D_ERR_DOESNT_EXIST);
    EXPECT_FAILS(DutDumpRemove(), D_FALSE, D_ERR_DOESNT_EXIST);
  }
  EXPECT_FAILS(DutDumpClose(), D_FALSE, D_ERR_DOESNT_EXIST);
  {
    // Unopenable: the text goes to the output.
    fs::create_directories(name + "/keep");
    EXPECT_FAILS(DutDumpOpen(), nullptr, D_ERR_C);
    OutputCapture capture;
    DutDumpOut("fallback %d\n", 1);
    EXPECT_EQ(capture.Take(), "WARNING: DutDumpOutVa: dump file is not open.\nfallback 1\n");
    fs::remove_all(name);
  }
  FILE *dump = DutDumpOpen();
  ASSERT_TRUE(dump != nullptr && DutDumpGetName(buffer));
  EXPECT_EQ(DutLookupFile(name.c_str()), dump);
  EXPECT_FAILS(DutDumpOpen(), nullptr, D_ERR_ALREADY_EXISTS);
  EXPECT_FAILS(DutDumpOpenAppend(), nullptr, D_ERR_ALREADY_EXISTS);
  DutDumpOut("value %d of %s\n", 7, "seven");
  EXPECT_FAILS(DutDumpRemove(), D_FALSE, D_ERR_ALREADY_EXISTS);
  EXPECT_TRUE(DutDumpClose());
  EXPECT_EQ(readFile(name), "value 7 of seven\n");
  // The name outlives the close.
  ASSERT_TRUE(DutDumpGetName(buffer));
  EXPECT_EQ(std::string(buffer), name);
  EXPECT_TRUE(DutDumpRemove());
  EXPECT_FAILS(DutDumpRemove(), D_FALSE, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  EXPECT_FAILS(DutDumpGetName(nullptr), D_FALSE, D_ERR_NULL_PTR);
}

// The first write opens the file; an open truncates (deleting the old dump,
// so no backup is taken), an append open keeps. View closes the file and
// shows it with the editor.
TEST_F(DumpFile, FirstWriteTruncatesAppendKeepsViewCloses) {
  StrOption backup("backup_name", ".old");
  StrOption editor("editor", recordingEditor(dir, "viewer.sh").c_str());
  writeFile(name, "stale contents\n");
  DutDumpOut("fresh %s\n", "text");
  ASSERT_TRUE(DutDumpClose());
  ASSERT_NE(DutDumpOpenAppend(), nullptr);
  DutDumpOut("b\n");
  EXPECT_TRUE(DutDumpView());
  EXPECT_EQ(readFile(dir.file("editor.log")), "args: " + name + "\nfresh text\nb\n");
  EXPECT_FALSE(fs::exists(name + ".old"));
  EXPECT_EQ(DutLookupFile(name.c_str()), nullptr);
}

TEST_F(DumpFile, ConcurrentWritesNeverInterleaveInsideACall) {
  ASSERT_NE(DutDumpOpen(), nullptr);
  constexpr int kThreads = 6, kLines = 300;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) DutDumpOut("thread %d line %d %s\n", t, i, "----------");
    });
  }
  for (auto &th : threads) th.join();
  ASSERT_TRUE(DutDumpClose());
  std::istringstream text(readFile(name));
  std::set<std::string> lines;
  int count = 0;
  for (std::string line; std::getline(text, line); ++count) lines.insert(line);
  EXPECT_EQ(count, kThreads * kLines);
  EXPECT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kLines));
  EXPECT_EQ(lines.count("thread 3 line 299 ----------"), 1u);
}

TEST_F(DumpFile, NullFormatIsAnAssertionFailure) {
  VQTEST_EXPECT_ASSERTION(DutDumpOut(static_cast<const char *>(nullptr)), "format_str != NULL");
}

}  // namespace
