// The file family: interrupt-safe I/O, the shell, viewing and editing
// through the editor, the per-process dump file; the open-file registry
// (shared streams, reference counts, modes, backups, user functions,
// traversal, the open-file listing); file-name building, splitting and the
// short-name mapping; search paths, the temporary directory, directory
// listings, and the null-argument errors of the whole family.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/address_text.hpp"
#include "support/env_var.hpp"
#include "support/option_value.hpp"
#include "support/output_capture.hpp"
#include "support/random_text.hpp"
#include "support/temp_dir.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/interrupt.h"
#include "vqutil/memory.h"

namespace {

namespace fs = std::filesystem;

using vqtest::ReadFile;
using vqtest::WriteFile;

// An executable script in dir that appends "args: <its arguments>" and the
// contents of its last argument to dir/editor.log, then runs extra.
inline std::string recordingEditor(const vqtest::TempDir &dir, const std::string &name, const std::string &extra = "") {
  std::string path = dir.file(name);
  std::string log = dir.file("editor.log");
  WriteFile(path, "#!/bin/sh\necho \"args: $*\" >> '" + log + "'\nfor f; do :; done\ncat \"$f\" >> '" +
                      log + "'\n" + extra + "\n");
  fs::permissions(path, fs::perms::owner_all);
  return path;
}


using Lines = std::vector<std::string>;

std::atomic<int> usr1_deliveries{0};

// A blocked read gets the interrupt key, which must be ignored, then a
// signal that must be retried over; only then does data arrive. Every call
// leaves the library's handler installed, and failures keep errno.
TEST(AtomicIo, ReadIgnoresTheInterruptKeyResumesAfterASignalAndKeepsErrno) {
  vqtest::TempDir dir("vqfiles", true);  // the current directory meanwhile
  // Without SA_RESTART, so that the blocking read really is interrupted.
  struct sigaction action = {};
  action.sa_handler = [](int) { ++usr1_deliveries; };
  sigemptyset(&action.sa_mask);
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  ASSERT_TRUE(DutInterruptInit());
  DutInterruptReset();
  usr1_deliveries = 0;
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  std::thread feeder([reader = pthread_self(), fd = fds[1]] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pthread_kill(reader, SIGINT);
    pthread_kill(reader, SIGUSR1);
    for (int i = 0; usr1_deliveries.load() == 0 && i < 200; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(write(fd, "hello", 5), 5);
  });
  char buffer[16] = {};
  int n = DutReadAtomic(fds[0], buffer, sizeof buffer);
  feeder.join();
  EXPECT_TRUE(usr1_deliveries.load() == 1 && DutInterruptGet() == 0);
  EXPECT_EQ(std::string(buffer, n > 0 ? n : 0), "hello");
  // Afterwards the library's handler counts again.
  raise(SIGINT);
  EXPECT_EQ(DutInterruptGet(), 1);
  // Each check puts the default disposition back for the next call.
  signal(SIGINT, SIG_DFL);
  EXPECT_EQ(DutFsyncAtomic(0), 0);
  EXPECT_EQ(signal(SIGINT, SIG_DFL), &DutSigintHandler);
  EXPECT_TRUE(DutWriteAtomic(fds[1], "ab", 2) == 2 && DutReadAtomic(fds[0], buffer, 4) == 2);
  EXPECT_TRUE(signal(SIGINT, SIG_DFL) == &DutSigintHandler && std::string(buffer, 2) == "ab");
  EXPECT_FAILS(DutWriteAtomic(fds[0], "x", 1), -1, D_ERR_C);  // the read end
  EXPECT_EQ(DutErrNumGetC(), EBADF);
  EXPECT_FAILS(DutReadAtomic(fds[0], buffer, -1), -1, D_ERR_VAL_INVALID);
  WriteFile("victim", "");
  EXPECT_FAILS(DutUnlinkAtomic("victim"), 0, 0);
  EXPECT_FAILS(DutUnlinkAtomic("victim"), -1, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  for (int fd : fds) close(fd);
}

// The editor is the option's, else EDITOR's; "_cat" prints the file and
// emacs gets the line. Open files are flushed first; a failing editor is
// reported. Viewing a stream lets the editor append to the file; the stream
// comes back in its own mode with its reference count, and the registry
// follows it. A stream the registry does not know comes back with a warning.
TEST(EditFile, OptionThenEnvironmentThenCatAndStreamsComeBackInTheirMode) {
  vqtest::TempDir dir("vqfiles", true);
  EXPECT_EQ(DutSystem("exit 5"), 5);
  std::string editor = recordingEditor(dir, "ed.sh");
  vqtest::EnvVar path("PATH", (dir.str() + ":" + std::getenv("PATH")).c_str());
  vqtest::EnvVar env("EDITOR", "/bin/false");
  vqtest::OptionValue option("editor", editor.c_str());
  WriteFile("doc.txt", "body\n");
  FILE *out = DutOpenFile("pending.txt", "w");
  std::fputs("not yet flushed\n", out);
  EXPECT_TRUE(DutEditFile("pending.txt", 3));
  option.set("");
  env.set(editor.c_str());
  EXPECT_TRUE(DutEditFile("doc.txt", 1));
  option.set("emacs");
  recordingEditor(dir, "emacs");
  EXPECT_TRUE(DutEditFile("doc.txt", 42));
  EXPECT_EQ(ReadFile(dir.file("editor.log")),
            "args: pending.txt\nnot yet flushed\nargs: doc.txt\nbody\nargs: +42 doc.txt\nbody\n");
  EXPECT_TRUE(DutCloseFile(out));
  vqtest::OutputCapture capture;
  option.set("_cat");
  EXPECT_TRUE(DutEditFile("doc.txt", 1) && !DutCatFile("nope.txt") && !DutLookupFile("doc.txt"));
  EXPECT_EQ(capture.Take(), "body\nWARNING: DutCatFile: could not open file <nope.txt> for reading.\n");
  option.set(recordingEditor(dir, "bad.sh", "exit 3").c_str());
  EXPECT_FAILS(DutEditFile("doc.txt", 1), D_FALSE, D_ERR_VAL_INVALID);
  option.set(recordingEditor(dir, "app.sh", "echo edited >> \"$f\"").c_str());
  fs::remove(dir.file("editor.log"));
  FILE *app = DutOpenFile("view.txt", "a");
  out = DutOpenFile("w.txt", "w");
  ASSERT_EQ(DutOpenFile("w.txt", "w"), out);
  std::fputs("abc\n", app);
  std::fputs("first\n", out);
  FILE *app2 = DutViewFilePtr(app), *out2 = DutViewFilePtr(out);
  EXPECT_EQ(ReadFile(dir.file("editor.log")), "args: view.txt\nabc\nargs: w.txt\nfirst\n");
  std::fputs("more\n", app2);
  std::fputs("second\n", out2);
  EXPECT_TRUE(DutCloseFile(app2) && DutCloseFile(out2));
  EXPECT_EQ(ReadFile("view.txt"), "abc\nedited\nmore\n");
  EXPECT_TRUE(DutLookupFile("w.txt") == out2 && DutCloseFile(out2)) << "one reference left";
  EXPECT_EQ(ReadFile("w.txt"), "second\n");
  FILE *own = std::fopen("own.txt", "w");
  EXPECT_EQ(DutViewFilePtr(own), own);
  EXPECT_EQ(capture.Take(), "WARNING: DutViewFilePtr: could not find file " + vqtest::Hex(own) + " (fd " +
                                std::to_string(fileno(own)) + ").\n");
  std::fclose(own);
  WriteFile("r.txt", "");
  VQTEST_EXPECT_ASSERTION(DutViewFilePtr(DutOpenFile("r.txt", "r")),
                          "file_node->mode\\[0\\] == 'w' \\|\\| file_node->mode\\[0\\] == 'a'");
}

// The name is fixed by the first open of the process; it lies in the
// temporary directory, which is the current directory of each test.
class DumpFile : public ::testing::Test {
 protected:
  // Nothing else opens it, so closing after each test is enough.
  void TearDown() override { DutDumpClose(); }

  const std::string name = "./dump" + std::to_string(getpid()) + ".dmp";
  vqtest::TempDir dir{"vqfiles", true};
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
  // Unopenable: the text goes to the output.
  fs::create_directories(name + "/keep");
  EXPECT_FAILS(DutDumpOpen(), nullptr, D_ERR_C);
  vqtest::OutputCapture capture;
  DutDumpOut("fallback %d\n", 1);
  EXPECT_EQ(capture.Take(), "WARNING: DutDumpOutVa: dump file is not open.\nfallback 1\n");
  fs::remove_all(name);
  FILE *dump = DutDumpOpen();
  EXPECT_EQ(DutLookupFile(name.c_str()), dump);
  EXPECT_FAILS(DutDumpOpen(), nullptr, D_ERR_ALREADY_EXISTS);
  EXPECT_FAILS(DutDumpOpenAppend(), nullptr, D_ERR_ALREADY_EXISTS);
  DutDumpOut("value %d of %s\n", 7, "seven");
  EXPECT_FAILS(DutDumpRemove(), D_FALSE, D_ERR_ALREADY_EXISTS);
  EXPECT_TRUE(DutDumpClose());
  EXPECT_EQ(ReadFile(name), "value 7 of seven\n");
  EXPECT_TRUE(DutDumpGetName(buffer) && buffer == name);  // the name outlives the close
  vqtest::OptionValue editor("editor", recordingEditor(dir, "viewer.sh").c_str());
  DutDumpOut("b\n");  // the first write opens it again (the old text goes)
  EXPECT_TRUE(DutDumpView());
  EXPECT_EQ(ReadFile(dir.file("editor.log")), "args: " + name + "\nb\n");
  EXPECT_TRUE(DutDumpRemove());
  EXPECT_FAILS(DutDumpRemove(), D_FALSE, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  EXPECT_FAILS(DutDumpGetName(nullptr), D_FALSE, D_ERR_NULL_PTR);
  VQTEST_EXPECT_ASSERTION(DutDumpOut(static_cast<const char *>(nullptr)), "format_str != NULL");
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
  std::istringstream text(ReadFile(name));
  std::set<std::string> lines;
  for (std::string line; std::getline(text, line);) EXPECT_TRUE(lines.insert(line).second) << line;
  EXPECT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kLines));
  EXPECT_EQ(lines.count("thread 3 line 299 ----------"), 1u);
}

// Opens of one name in its mode share one stream until the last close;
// another mode is refused. With file tracing on, opens and closes say so in
// the debug file (the name given gets its ".dbg").
TEST(OpenFiles, SameModeSharesOneStreamUntilLastCloseAndOnlyWTakesABackup) {
  vqtest::TempDir dir("vqfiles", true);
  WriteFile("a.txt", "abc");
  DutDebugOpen("trace");
  DutGetDebugFlags()[D_DEBUG_FILE] = 1;
  FILE *first = DutOpenFile("a.txt", "r");
  EXPECT_EQ(DutOpenFile("a.txt", "r"), first);
  EXPECT_FAILS(DutOpenFile("a.txt", "rb"), nullptr, D_ERR_TYPE_MISMATCH);
  EXPECT_TRUE(DutCloseFile(first));
  EXPECT_EQ(std::fgetc(DutLookupFile("a.txt")), 'a');
  EXPECT_TRUE(DutCloseFile(first));
  DutGetDebugFlags()[D_DEBUG_FILE] = 0;
  DutDebugClose();
  const std::string text = ReadFile("trace.dbg");
  EXPECT_NE(text.find("Entering DutOpenFile(\"a.txt\", \"r\")\n"), std::string::npos) << text;
  EXPECT_NE(text.find("Entering DutCloseFile(" + vqtest::Hex(first) + ")\n"), std::string::npos) << text;
  EXPECT_FAILS(DutLookupFile("a.txt"), nullptr, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutCloseFile(first), D_FALSE, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutOpenFile("missing", "r"), nullptr, D_ERR_C);
  EXPECT_FAILS(DutFOpen("missing", "r"), nullptr, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  // Only mode "w" takes a backup, and only on the first open; no suffix or
  // no file means no backup; a failed rename is reported and the open goes on.
  WriteFile("app", "content");
  vqtest::OptionValue suffix("backup_name", nullptr);
  EXPECT_TRUE(DutBackupFile("app"));
  suffix.set("~");
  ASSERT_TRUE(DutCloseFile(DutOpenFile("app", "a")));
  EXPECT_FALSE(fs::exists("app~"));
  WriteFile("app~", "older");
  FILE *out = DutOpenFile("app", "w");
  EXPECT_EQ(ReadFile("app~"), "content");
  std::fputs("written", out);
  EXPECT_TRUE(DutFlushFile(out) && DutOpenFile("app", "w") == out);
  EXPECT_TRUE(ReadFile("app~") == "content" && ReadFile("app") == "written");
  EXPECT_TRUE(DutCloseFile(out) && DutCloseFile(out));
  EXPECT_FAILS(DutBackupFile("absent"), D_TRUE, 0);
  fs::remove("app~");
  fs::create_directories("app~/inside");
  EXPECT_FAILS(DutBackupFile("app"), D_FALSE, D_ERR_C);
  vqtest::OutputCapture capture;
  EXPECT_TRUE(DutCloseFile(DutOpenFile("app", "w")));
  EXPECT_EQ(capture.Take(), "WARNING: DutOpenFile: could not backup file app.\n");
}

int user_opens = 0, user_closes = 0;

void *collectNames(FILE *, const char *name, const char *mode, D_INT4 ref_count, void *arg) {
  static_cast<Lines *>(arg)->push_back(std::string(name) + ":" + mode + ":" + std::to_string(ref_count));
  return nullptr;
}

// The traversal and the listing go in opening order; the listing's own
// stream comes last.
TEST(OpenFiles, TraverseExamineAndUserFunctions) {
  vqtest::TempDir dir("vqfiles", true);
  FILE *c = DutOpenFile("c", "w");
  FILE *a = DutOpenFile("a", "w");
  FILE *b = DutOpenFile("b", "a");
  DutOpenFile("a", "w");
  Lines seen;
  DutErrNumSet(D_ERR_VAL_INVALID);
  EXPECT_EQ(DutFileTraverse(&collectNames, &seen), nullptr);
  EXPECT_EQ(DutErrNumGet(), 0);
  EXPECT_EQ(seen, (Lines{"c:w:1", "a:w:2", "b:a:1"}));
  int visits = 0;
  auto stop_at_second = [](FILE *s, const char *, const char *, D_INT4, void *arg) -> void * {
    return ++*static_cast<int *>(arg) == 2 ? s : nullptr;
  };
  EXPECT_EQ(DutFileTraverse(stop_at_second, &visits), a);
  DutFileExamine();
  auto entry = [](const char *name, const char *mode, FILE *s, int refs) {
    return std::string("File Name: <") + name + ">\nFile Mode: <" + mode + ">\nFile Ptr:  <" + vqtest::Decimal(s) +
           ">\nFile Desc: <" + std::to_string(fileno(s)) + ">\nRef Count: <" + std::to_string(refs) + ">\n\n";
  };
  const std::string expected = "     Open Files\n\n" + entry("c", "w", c, 1) + entry("a", "w", a, 2) +
                               entry("b", "a", b, 1) + "File Name: <files.dmp>\nFile Mode: <w>\n";
  EXPECT_EQ(ReadFile("files.dmp").substr(0, expected.size()), expected);
  EXPECT_EQ(DutLookupFile("files.dmp"), nullptr);
  for (FILE *s : {c, a, a, b}) EXPECT_TRUE(DutCloseFile(s));
  fs::remove("files.dmp");
  fs::create_directory("files.dmp");
  vqtest::OutputCapture capture;
  DutFileExamine();
  EXPECT_EQ(capture.Take(), "WARNING: Cannot open files.dmp for writing.\n");
  // The user's open and close functions serve the registry; a failing close
  // of theirs is only a warning, and the file leaves the registry all the same.
  D_FILE_OPEN_FUNC opener = [](const char *name, const char *mode) { ++user_opens; return std::fopen(name, mode); };
  D_FILE_CLOSE_FUNC closer = [](FILE *stream) { ++user_closes; std::fclose(stream); return 7; };
  user_opens = user_closes = 0;
  DutSetFileOpenFunc(opener);
  DutSetFileCloseFunc(closer);
  DutSetFileReadFunc(&std::fread);
  EXPECT_TRUE(DutGetFileOpenFunc() == opener && DutGetFileCloseFunc() == closer && DutGetFileReadFunc() == &std::fread);
  FILE *out = DutOpenFile("u.txt", "w");
  EXPECT_TRUE(DutOpenFile("u.txt", "w") == out && DutCloseFile(out) && DutCloseFile(out));
  EXPECT_EQ(capture.Take(), "WARNING: DutCloseFile: fclose (fname u.txt) returned 7\n");
  EXPECT_EQ(DutLookupFile("u.txt"), nullptr);
  DutSetFileOpenFunc(nullptr);
  DutSetFileCloseFunc(nullptr);
  DutSetFileReadFunc(nullptr);
  EXPECT_EQ(DutGetFileReadFunc(), nullptr);
  EXPECT_TRUE(DutCloseFile(DutOpenFile("u.txt", "r")));
  EXPECT_TRUE(user_opens == 1 && user_closes == 1);
}

void *collectLines(const char *directory, void *arg) {
  static_cast<Lines *>(arg)->push_back(directory);
  return nullptr;
}

// Random paths over a small alphabet against a reference splitter: the
// last component follows the last separator; the directory keeps the root
// but no other trailing separator (a dot in it is no extension); the
// extension runs from the last dot of the last component unless that dot
// starts it (a hidden file). Joining adds a separator only where the
// directory has none, and no dot before the extension.
TEST(FileNames, RandomPathsAgainstAReferenceAndSearchPathsAgainstAListModel) {
  vqtest::TempDir tmp("vqfiles", true);
  std::mt19937 random(6);
  char out[256];
  for (int round = 0; round < 3000; ++round) {
    const std::string path = vqtest::RandomText(random, 8, "a/.A"), ext = vqtest::RandomText(random, 3, "a.A");
    SCOPED_TRACE(path + " | " + ext);
    const std::size_t slash = path.rfind('/'), cut = slash == std::string::npos ? 0 : slash + 1;
    const std::string file = path.substr(cut), dir = path.substr(0, slash == 0 ? 1 : cut > 0 ? cut - 1 : 0);
    const std::size_t dot = file.rfind('.') == 0 ? std::string::npos : file.rfind('.');
    ASSERT_EQ(DutHasExtension(path.c_str(), ext.c_str()),
              path.size() >= ext.size() && strcasecmp(path.c_str() + path.size() - ext.size(), ext.c_str()) == 0);
    char *d = nullptr, *b = nullptr, *e = nullptr;
    ASSERT_STREQ(DutGetFileName(path.c_str(), out), file.c_str());
    ASSERT_TRUE(DutFileExplodeName(path.c_str(), &d, &b, &e));
    EXPECT_EQ(std::string(d) + "|" + b + "|" + e,
              dir + "|" + file.substr(0, dot) + "|" + (dot == std::string::npos ? "" : file.substr(dot)));
    for (char *part : {d, b, e}) DutFree(part);
    const std::string joined = !path.empty() && path.back() == '/' ? path : path + "/";
    ASSERT_STREQ(DutBuildFileName(out, path.c_str(), file.c_str(), ext.c_str()), (joined + file + ext).c_str());
    ASSERT_STREQ(DutBuildDirName(out, path.c_str(), ext.c_str()), (joined + ext).c_str());
  }
  EXPECT_STREQ(DutBuildFileName(out, nullptr, "base", nullptr), "base");
  std::strcpy(out, "/opt/");  // the destination may be the base directory itself
  EXPECT_STREQ(DutBuildDirName(out, out, "help"), "/opt/help");
  char *shared = DutGetFileName("/x/first", nullptr);
  EXPECT_EQ(DutGetFileName("/y/second", nullptr), shared);
  EXPECT_STREQ(shared, "second");
  // Random adds and deletes against a list: the path keeps its own copies in
  // order, and a delete removes the first exact match, wherever it is. A file
  // is found in the first directory of the path holding the name (not folded:
  // the file system tells cases apart); without a path, the name itself.
  D_PATH *path = DutPathCreate();
  Lines model;
  for (int step = 0; step < 400; ++step) {
    char dir[8] = {"aBbc"[random() % 4], '\0'};
    SCOPED_TRACE(testing::Message() << "step " << step << " dir " << dir);
    auto at = std::find(model.begin(), model.end(), dir);
    if (random() % 2 == 0) {
      EXPECT_TRUE(DutPathAddDir(path, dir));
      model.push_back(dir);
    } else {
      EXPECT_FAILS(DutPathDeleteDir(path, dir), at != model.end(), at != model.end() ? 0 : D_ERR_DOESNT_EXIST);
      if (at != model.end()) model.erase(at);
    }
    std::strcpy(dir, "changed");
    Lines seen;
    EXPECT_EQ(DutPathForEachDir(path, &collectLines, &seen), nullptr);
    ASSERT_EQ(seen, model);
  }
  // The walk stops at the first function result that is not null.
  int count = 0;
  auto second = [](const char *d, void *arg) -> void * {
    return ++*static_cast<int *>(arg) == 2 ? const_cast<char *>(d) : nullptr;
  };
  ASSERT_GE(model.size(), 2u);
  EXPECT_STREQ(static_cast<char *>(DutPathForEachDir(path, second, &count)), model[1].c_str());
  DutPathDestroy(nullptr);
  for (const char *d : {"one", "two/target.cm", "three/target.cm"}) fs::create_directories(d);
  DutPathAddDir(path, std::string(5000, 'd').c_str());  // never spills into the buffer
  for (const char *d : {"one", "three/", "two"}) DutPathAddDir(path, d);
  EXPECT_EQ(DutPathFindFile(path, "target.cm", out), out);
  EXPECT_STREQ(out, "three/target.cm");
  EXPECT_TRUE(DutPathDeleteDir(path, "three/"));
  EXPECT_STREQ(DutPathFindFile(path, "target.cm", nullptr), "two/target.cm");
  EXPECT_EQ(DutPathFindFile(path, "TARGET.cm", out), nullptr);
  EXPECT_STREQ(out, "");
  DutPathDestroy(path);
  EXPECT_STREQ(DutPathFindFile(nullptr, "two/target.cm", out), "two/target.cm");
  EXPECT_EQ(DutPathFindFile(nullptr, "gone.txt", out), nullptr);
  EXPECT_EQ(DutPathFindFile(nullptr, nullptr, out), nullptr);
}

// Plain names up to the limit are their own base; others map to eight hash
// digits, recorded in a map file unless create is 0. Names hash as given;
// two that hash alike (the second character from the end one more, the
// last 27 less) get different digits, the hash going on from the first.
TEST(ShortNames, PlainNamesStayOthersMapToHashDigits) {
  vqtest::TempDir dir("vqfiles", true);
  vqtest::EnvVar limit("VQ_MAX_BASE_NAME", nullptr);
  // The base for name, or "" when the call failed with error (then *base
  // must be null).
  auto base = [&](const std::string &name, int create, D_INT4 error = 0, std::string where = "") {
    char *b = reinterpret_cast<char *>(0x1);
    DutErrNumSet(0);
    D_BOOL ok = DutBuildBaseName((dir.str() + where).c_str(), name.c_str(), &b, create);
    EXPECT_TRUE(ok == (error == 0) && (ok || (DutErrNumGet() == error && b == nullptr))) << name;
    if (!ok) return std::string();
    std::string text = b;
    std::strcpy(b, "01234567");  // at least 9 bytes even for a short name
    DutFree(b);
    return text;
  };
  auto mapFile = [&](const std::string &digits) { return dir.file(digits + ".nam"); };
  EXPECT_TRUE(base("", 1).empty() && base("abc_123", 1) == "abc_123");
  EXPECT_EQ(base(std::string(255, 'x'), 1), std::string(255, 'x'));
  EXPECT_TRUE(fs::is_empty(dir.path()));
  EXPECT_EQ(base("My File.txt", 1), "b052727e");
  EXPECT_NE(base("my file.txt", 1), "b052727e");
  EXPECT_EQ(base("long-name-az", 1), "095c4fc2");
  EXPECT_EQ(base("long-name-b_", 1), "964b7924");
  EXPECT_EQ(base("long-name-az", 0), "095c4fc2");
  EXPECT_EQ(ReadFile(mapFile("964b7924")), "long-name-b_\n");
  std::string digits = base(std::string(256, 'x'), 0);
  EXPECT_EQ(digits.size(), 8u);
  EXPECT_FALSE(fs::exists(mapFile(digits)));
  limit.set("5");
  EXPECT_EQ(base("abcde", 1), "abcde");
  EXPECT_EQ(base("abcdef", 1).size(), 8u);
  // Check-only mode answers known names only; a damaged map file, a missing
  // directory and an unknown create value are refused.
  DutSetCheckOnly(1);
  EXPECT_EQ(base("long-name-b_", 1), "964b7924");
  EXPECT_EQ(base("unknown name", 1, D_ERR_DOESNT_EXIST), "");
  DutSetCheckOnly(0);
  WriteFile(mapFile("b052727e"), "");
  EXPECT_EQ(base("My File.txt", 1, D_ERR_FILE_CORRUPT), "");
  EXPECT_EQ(base("x y", 1, D_ERR_C, "/missing"), "");
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  EXPECT_EQ(base("x", 2, D_ERR_VAL_INVALID), "");
}

// Existence, size and removal of one file; directory listings come sorted,
// without the dot entries; null arguments anywhere in the family; the
// temporary directory.
TEST(FileSystem, ExistenceListingsNullArgumentsAndTheTemporaryDirectory) {
  vqtest::TempDir dir("vqfiles", true);
  WriteFile("data", "12345");
  D_INT4 size = -1, count = -1;
  EXPECT_TRUE(DutFileExists("data") && DutFileWritable("data") && DutMvsAccess("data", 4) == 0);
  EXPECT_TRUE(DutFileGetSize("data", &size) && size == 5 && DutDeleteFile("data") == 0);
  EXPECT_FAILS(DutFileExists("data"), D_FALSE, D_ERR_C);
  EXPECT_FAILS(DutFileGetSize("data", &size), D_FALSE, D_ERR_C);
  EXPECT_FAILS(DutDeleteFile("data"), -1, D_ERR_C);
  EXPECT_FAILS(DutMvsAccess("data", 0), -1, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  for (const char *file : {"b.txt", "a.txt", "sub/c"}) fs::create_directories(file);
  char **names = nullptr;
  ASSERT_TRUE(DutDirGetFileNames(".", &names, &count));
  EXPECT_EQ(Lines(names, names + count), (Lines{"a.txt", "b.txt", "sub"}));
  for (D_INT4 i = 0; i < count; ++i) DutFree(names[i]);
  DutFree(names);
  ASSERT_TRUE(DutDirGetFileNames("sub/c", &names, &count));
  EXPECT_TRUE(count == 0 && names == nullptr);
  EXPECT_FAILS(DutDirGetFileNames("nowhere", &names, &count), D_FALSE, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  WriteFile("plain", "");
  EXPECT_FAILS(DutDirGetFileNames("plain", &names, &count), D_FALSE, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOTDIR);
  // Every function of the family refuses a null where it needs a pointer.
  char out[512];
  D_PATH *path = DutPathCreate();
  char *text = nullptr;
  // The calls answering -1 are shifted onto 0.
  vqtest::ExpectRefused(
      D_ERR_NULL_PTR,
      {AS_WORD(DutHasExtension(nullptr, ".txt")), AS_WORD(DutBuildFileName(out, "d", nullptr, nullptr)),
       AS_WORD(DutBuildDirName(out, "/opt", nullptr)), AS_WORD(DutGetFileName(nullptr, out)),
       AS_WORD(DutFileExplodeName("x", &text, nullptr, &text)), AS_WORD(DutBuildBaseName(".", "x", nullptr, 1)),
       AS_WORD(DutFileWritable(nullptr)), AS_WORD(DutFileGetSize(nullptr, &count)), AS_WORD(DutBackupFile(nullptr)),
       AS_WORD(DutOpenFile("x", nullptr)), AS_WORD(DutLookupFile(nullptr)), AS_WORD(DutFlushFile(nullptr)),
       AS_WORD(DutCloseFile(nullptr)), AS_WORD(DutSystem(nullptr) + 1), AS_WORD(DutCatFile(nullptr)),
       AS_WORD(DutEditFile(nullptr, 1)), AS_WORD(DutViewFilePtr(nullptr)), AS_WORD(DutPathAddDir(path, nullptr)),
       AS_WORD(DutPathDeleteDir(path, nullptr)), AS_WORD(DutPathForEachDir(path, nullptr, nullptr)),
       AS_WORD(DutFileTraverse(nullptr, nullptr)), AS_WORD(DutGetTmpFilePath(nullptr)),
       AS_WORD(DutDirGetFileNames(nullptr, &names, &count)), AS_WORD(DutWriteAtomic(-1, nullptr, 1) + 1),
       AS_WORD(DutUnlinkAtomic(nullptr) + 1)});
  DutPathDestroy(path);
  // The temporary directory: the current one, else HOME, else TEMP, else /tmp/.
  EXPECT_TRUE(DutGetTmpFilePath(out) && std::string(out) == "./");
  // Read-only even for the superuser on Linux; TempDir restores the cwd.
  if (access("/proc/sys", W_OK) == 0) GTEST_SKIP() << "no read-only directory to stand in";
  fs::current_path("/proc/sys");
  vqtest::EnvVar home("HOME", nullptr);
  vqtest::EnvVar temp("TEMP", dir.str().c_str());
  EXPECT_TRUE(DutGetTmpFilePath(out) && std::string(out) == dir.str() + "/") << out;
  // HOME wins even when it is not writable: TEMP is only its stand-in.
  home.set("/proc/sys");
  EXPECT_EQ(DutGetTmpFilePath(out), access("/tmp/", W_OK) == 0 ? D_TRUE : D_FALSE);
  EXPECT_STREQ(out, "/tmp/");
}

}  // namespace
