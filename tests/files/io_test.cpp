// Interrupt-safe I/O, the shell, viewing and editing through the editor.
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/interrupt.h"
#include "vqutil/option.h"

using files_test::Capture;
using files_test::readFile;
using files_test::TempDir;
using files_test::writeFile;

namespace {

// ---- Interrupt-safe I/O ---------------------------------------------------

std::atomic<int> usr1_deliveries{0};
void countUsr1(int) { ++usr1_deliveries; }

// A handler installed without SA_RESTART, so that a blocking read really
// is interrupted.
void installUsr1() {
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = &countUsr1;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
}

void (*currentSigint())(int) {
  struct sigaction action;
  sigaction(SIGINT, nullptr, &action);
  return action.sa_handler;
}

class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(fds_), 0); }
  ~Pipe() {
    if (fds_[0] >= 0) close(fds_[0]);
    if (fds_[1] >= 0) close(fds_[1]);
  }
  int in() const { return fds_[0]; }
  int out() const { return fds_[1]; }

 private:
  int fds_[2] = {-1, -1};
};

// Signals the reader until it has been interrupted, then feeds the pipe.
void interruptThenWrite(pthread_t reader, int signal_number, std::atomic<int> *delivered,
                        int fd, const char *text) {
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  int before = delivered != nullptr ? delivered->load() : 0;
  pthread_kill(reader, signal_number);
  for (int i = 0; delivered != nullptr && delivered->load() == before && i < 200; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  ASSERT_EQ(write(fd, text, std::strlen(text)), static_cast<ssize_t>(std::strlen(text)));
}

TEST(AtomicIo, ReadResumesAfterASignal) {
  installUsr1();
  Pipe p;
  usr1_deliveries = 0;
  std::thread feeder(interruptThenWrite, pthread_self(), SIGUSR1, &usr1_deliveries, p.out(),
                     "hello");
  char buffer[16] = {};
  int n = DutReadAtomic(p.in(), buffer, sizeof buffer);
  feeder.join();
  EXPECT_EQ(usr1_deliveries.load(), 1);
  ASSERT_EQ(n, 5);
  EXPECT_EQ(std::string(buffer, 5), "hello");
}

TEST(AtomicIo, InterruptKeyIsIgnoredDuringTheCall) {
  ASSERT_TRUE(DutInterruptInit());
  DutInterruptReset();
  Pipe p;
  std::thread feeder(interruptThenWrite, pthread_self(), SIGINT, nullptr, p.out(), "x");
  char c = 0;
  EXPECT_EQ(DutReadAtomic(p.in(), &c, 1), 1);
  feeder.join();
  EXPECT_EQ(c, 'x');
  EXPECT_EQ(DutInterruptGet(), 0);
  // Afterwards the library's handler counts again.
  EXPECT_EQ(currentSigint(), &DutSigintHandler);
  raise(SIGINT);
  EXPECT_EQ(DutInterruptGet(), 1);
  DutInterruptReset();
}

TEST(AtomicIo, HandlerIsInstalledAfterEveryCall) {
  signal(SIGINT, SIG_DFL);
  EXPECT_EQ(DutFsyncAtomic(0), 0);
  EXPECT_EQ(currentSigint(), &DutSigintHandler);
  signal(SIGINT, SIG_DFL);
  Pipe p;
  EXPECT_EQ(DutWriteAtomic(p.out(), "ab", 2), 2);
  EXPECT_EQ(currentSigint(), &DutSigintHandler);
  char buffer[4] = {};
  EXPECT_EQ(DutReadAtomic(p.in(), buffer, 4), 2);
  EXPECT_STREQ(buffer, "ab");
}

TEST(AtomicIo, FailuresKeepTheirErrorNumbers) {
  TempDir dir;
  Pipe p;
  DutErrNumSet(0);
  EXPECT_EQ(DutWriteAtomic(p.in(), "x", 1), -1);  // read end
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), EBADF);
  DutErrNumSet(0);
  char c;
  EXPECT_EQ(DutReadAtomic(-1, &c, 1), -1);
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), EBADF);

  writeFile("victim", "");
  EXPECT_EQ(DutUnlinkAtomic("victim"), 0);
  EXPECT_FALSE(std::filesystem::exists("victim"));
  DutErrNumSet(0);
  EXPECT_EQ(DutUnlinkAtomic("victim"), -1);
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);

  DutErrNumSet(0);
  EXPECT_EQ(DutReadAtomic(p.in(), nullptr, 1), -1);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutUnlinkAtomic(nullptr), -1);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

// ---- Shell and cat ----------------------------------------------------------

TEST(Shell, StatusOfTheCommand) {
  EXPECT_EQ(DutSystem("exit 0"), 0);
  EXPECT_EQ(DutSystem("exit 5"), 5);
  DutErrNumSet(0);
  EXPECT_EQ(DutSystem(nullptr), -1);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(CatFile, WritesTheFileThroughTheOutput) {
  TempDir dir;
  std::string text = "line one\n%s %d 100%\nlast";
  writeFile("cat.txt", text);
  Capture capture;
  EXPECT_TRUE(DutCatFile("cat.txt"));
  EXPECT_EQ(capture.text(), text);
  EXPECT_EQ(DutLookupFile("cat.txt"), nullptr);
}

TEST(CatFile, MissingFileWarns) {
  TempDir dir;
  Capture capture;
  EXPECT_FALSE(DutCatFile("nope.txt"));
  EXPECT_EQ(capture.text(), "WARNING: DutCatFile: could not open file <nope.txt> for reading.\n");
  DutErrNumSet(0);
  EXPECT_FALSE(DutCatFile(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

// ---- Editor -----------------------------------------------------------------

// Points the "editor" option (and EDITOR) somewhere for one test.
class EditorSetting {
 public:
  EditorSetting(const char *option_value, const char *env_value)
      : option_(DutOptionLookup("editor")) {
    const char *old_value = nullptr;
    EXPECT_TRUE(DutOptionGetStr(option_, &old_value));
    saved_ = old_value;
    EXPECT_TRUE(DutOptionSetStr(option_, option_value));
    if (env_value != nullptr) {
      setenv("EDITOR", env_value, 1);
    } else {
      unsetenv("EDITOR");
    }
  }
  ~EditorSetting() {
    DutOptionSetStr(option_, saved_.c_str());
    unsetenv("EDITOR");
  }

 private:
  D_OPTION *option_;
  std::string saved_;
};

// Writes an executable script that records its arguments and the file's
// contents into editor.log, then runs extra.
std::string recordingEditor(const TempDir &dir, const std::string &name,
                            const std::string &extra = "") {
  std::string path = dir.file(name);
  std::string log = dir.file("editor.log");
  writeFile(path, "#!/bin/sh\necho \"args: $*\" >> '" + log +
                      "'\nfor f; do :; done\ncat \"$f\" >> '" + log + "'\n" + extra + "\n");
  chmod(path.c_str(), 0755);
  return path;
}

TEST(EditFile, OptionNamesTheEditor) {
  TempDir dir;
  std::string editor = recordingEditor(dir, "ed.sh");
  EditorSetting setting(editor.c_str(), nullptr);
  writeFile("doc.txt", "body\n");
  EXPECT_TRUE(DutEditFile("doc.txt", 3));
  EXPECT_EQ(readFile(dir.file("editor.log")), "args: doc.txt\nbody\n");
}

TEST(EditFile, EmptyOptionFallsBackToEnvironment) {
  TempDir dir;
  std::string editor = recordingEditor(dir, "env-ed.sh");
  EditorSetting setting("", editor.c_str());
  writeFile("doc.txt", "x");
  EXPECT_TRUE(DutEditFile("doc.txt", 1));
  EXPECT_EQ(readFile(dir.file("editor.log")), "args: doc.txt\nx");
}

TEST(EditFile, EmacsGetsTheLine) {
  TempDir dir;
  recordingEditor(dir, "emacs");
  std::string old_path = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
  setenv("PATH", (dir.str() + ":" + old_path).c_str(), 1);
  {
    EditorSetting setting("emacs", nullptr);
    writeFile("e.txt", "");
    EXPECT_TRUE(DutEditFile("e.txt", 42));
  }
  setenv("PATH", old_path.c_str(), 1);
  EXPECT_EQ(readFile(dir.file("editor.log")), "args: +42 e.txt\n");
}

TEST(EditFile, CatEditorPrints) {
  TempDir dir;
  EditorSetting setting("_cat", nullptr);
  writeFile("show.txt", "shown\n");
  Capture capture;
  EXPECT_TRUE(DutEditFile("show.txt", 1));
  EXPECT_EQ(capture.text(), "shown\n");
}

TEST(EditFile, EditorSeesUnflushedWrites) {
  TempDir dir;
  std::string editor = recordingEditor(dir, "ed.sh");
  EditorSetting setting(editor.c_str(), nullptr);
  FILE *out = DutOpenFile("pending.txt", "w");
  ASSERT_NE(out, nullptr);
  std::fputs("not yet flushed\n", out);
  EXPECT_TRUE(DutEditFile("pending.txt", 1));
  EXPECT_EQ(readFile(dir.file("editor.log")), "args: pending.txt\nnot yet flushed\n");
  EXPECT_TRUE(DutCloseFile(out));
}

TEST(EditFile, FailingEditor) {
  TempDir dir;
  std::string editor = recordingEditor(dir, "bad.sh", "exit 3");
  EditorSetting setting(editor.c_str(), nullptr);
  writeFile("f", "");
  DutErrNumSet(0);
  EXPECT_FALSE(DutEditFile("f", 1));
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
  DutErrNumSet(0);
  EXPECT_FALSE(DutEditFile(nullptr, 1));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(ViewFilePtr, AppendStreamIsReopenedAndRegistered) {
  TempDir dir;
  std::string editor = recordingEditor(dir, "ed.sh", "echo edited >> \"$f\"");
  EditorSetting setting(editor.c_str(), nullptr);
  FILE *out = DutOpenFile("view.txt", "a");
  ASSERT_NE(out, nullptr);
  std::fputs("abc\n", out);
  FILE *again = DutViewFilePtr(out);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(DutLookupFile("view.txt"), again);
  EXPECT_EQ(readFile(dir.file("editor.log")), "args: view.txt\nabc\n");
  std::fputs("more\n", again);
  EXPECT_TRUE(DutCloseFile(again));
  EXPECT_EQ(readFile("view.txt"), "abc\nedited\nmore\n");
  EXPECT_EQ(DutLookupFile("view.txt"), nullptr);
}

TEST(ViewFilePtr, WriteStreamKeepsItsMode) {
  TempDir dir;
  std::string editor = recordingEditor(dir, "ed.sh");
  EditorSetting setting(editor.c_str(), nullptr);
  FILE *out = DutOpenFile("w.txt", "w");
  ASSERT_NE(out, nullptr);
  ASSERT_EQ(DutOpenFile("w.txt", "w"), out);
  std::fputs("first\n", out);
  FILE *again = DutViewFilePtr(out);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(readFile(dir.file("editor.log")), "args: w.txt\nfirst\n");
  std::fputs("second\n", again);
  // The reference count survived the reopen.
  EXPECT_TRUE(DutCloseFile(again));
  EXPECT_EQ(DutLookupFile("w.txt"), again);
  EXPECT_TRUE(DutCloseFile(again));
  EXPECT_EQ(readFile("w.txt"), "second\n");
}

TEST(ViewFilePtr, UnknownStreamComesBackWithAWarning) {
  TempDir dir;
  FILE *own = std::fopen("own.txt", "w");
  ASSERT_NE(own, nullptr);
  Capture capture;
  EXPECT_EQ(DutViewFilePtr(own), own);
  char expected[128];
  std::snprintf(expected, sizeof expected,
                "WARNING: DutViewFilePtr: could not find file %lx (fd %d).\n",
                reinterpret_cast<unsigned long>(own), fileno(own));
  EXPECT_EQ(capture.text(), expected);
  std::fclose(own);
}

TEST(ViewFilePtr, ReadStreamIsAnAssertionFailure) {
  TempDir dir;
  writeFile("r.txt", "");
  EXPECT_EXIT(
      {
        setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        DutViewFilePtr(DutOpenFile("r.txt", "r"));
      },
      ::testing::KilledBySignal(SIGABRT),
      "file_node->mode\\[0\\] == 'w' \\|\\| file_node->mode\\[0\\] == 'a'");
}

}  // namespace
