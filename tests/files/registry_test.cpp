// The open-file registry: shared streams, reference counts, modes,
// backups, user functions, traversal and the open-file listing.
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support.hpp"
#include "vqutil/file.h"
#include "vqutil/thread.h"

using namespace files_test;

namespace {

using Lines = std::vector<std::string>;

TEST(FileTests, ExistsWritableAccessDeleteSize) {
  TempDir dir;
  writeFile("data", "12345");
  writeFile("empty", "");
  EXPECT_TRUE(DutFileExists("data"));
  EXPECT_TRUE(DutFileWritable("data"));
  EXPECT_EQ(DutMvsAccess("data", 4), 0);
  D_INT4 size = -1;
  EXPECT_TRUE(DutFileGetSize("data", &size));
  EXPECT_EQ(size, 5);
  EXPECT_TRUE(DutFileGetSize("empty", &size));
  EXPECT_EQ(size, 0);
  EXPECT_EQ(DutDeleteFile("data"), 0);

  EXPECT_FAILS(DutFileExists("data"), D_FALSE, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  EXPECT_FAILS(DutFileGetSize("data", &size), D_FALSE, D_ERR_C);
  EXPECT_FAILS(DutDeleteFile("data"), -1, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  EXPECT_FAILS(DutMvsAccess("data", 0), -1, D_ERR_C);
}

TEST(OpenFiles, SameModeSharesOneStreamUntilLastClose) {
  TempDir dir;
  writeFile("a.txt", "abc");
  FILE *first = DutOpenFile("a.txt", "r");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(DutOpenFile("a.txt", "r"), first);
  EXPECT_EQ(DutLookupFile("a.txt"), first);
  EXPECT_TRUE(DutCloseFile(first));
  // Still open: the stream reads on.
  EXPECT_EQ(DutLookupFile("a.txt"), first);
  EXPECT_EQ(std::fgetc(first), 'a');
  EXPECT_TRUE(DutCloseFile(first));
  EXPECT_FAILS(DutLookupFile("a.txt"), nullptr, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutCloseFile(first), D_FALSE, D_ERR_DOESNT_EXIST);

  // Opening again after the last close is a fresh stream from the start.
  FILE *again = DutOpenFile("a.txt", "r");
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(std::fgetc(again), 'a');
  EXPECT_TRUE(DutCloseFile(again));
}

TEST(OpenFiles, ModesAndNamesCompareExactly) {
  TempDir dir;
  writeFile("a.txt", "abc");
  FILE *reader = DutOpenFile("a.txt", "r");
  ASSERT_NE(reader, nullptr);
  EXPECT_FAILS(DutOpenFile("a.txt", "w"), nullptr, D_ERR_TYPE_MISMATCH);
  EXPECT_FAILS(DutOpenFile("a.txt", "rb"), nullptr, D_ERR_TYPE_MISMATCH);
  EXPECT_EQ(readFile("a.txt"), "abc");
  // A different name on a case-sensitive file system: its own file.
  FILE *upper = DutOpenFile("A.TXT", "w");
  ASSERT_NE(upper, nullptr);
  EXPECT_NE(upper, reader);
  EXPECT_EQ(DutLookupFile("A.TXT"), upper);
  EXPECT_TRUE(DutCloseFile(upper));
  // The failed opens did not add references.
  EXPECT_TRUE(DutCloseFile(reader));
  EXPECT_EQ(DutLookupFile("a.txt"), nullptr);
  EXPECT_EQ(readFile("a.txt"), "abc");
}

TEST(OpenFiles, FailedOpensAndForeignStreams) {
  TempDir dir;
  EXPECT_FAILS(DutOpenFile("missing", "r"), nullptr, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  EXPECT_EQ(DutLookupFile("missing"), nullptr);
  EXPECT_FAILS(DutFOpen("missing", "r"), nullptr, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  // A stream the registry never saw is not closed by it.
  FILE *own = std::fopen("own", "w");
  ASSERT_NE(own, nullptr);
  EXPECT_FAILS(DutCloseFile(own), D_FALSE, D_ERR_DOESNT_EXIST);
  std::fclose(own);
}

// ---- Backups -------------------------------------------------------------

TEST(Backups, OnlyModeWAndOnlyOnTheFirstOpen) {
  TempDir dir;
  StrOption suffix("backup_name", "~");
  writeFile("app", "start");
  writeFile("app~", "older");
  for (const char *mode : {"a", "wb"}) {
    FILE *out = DutOpenFile("app", mode);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(readFile("app~"), "older") << mode;
    ASSERT_TRUE(DutCloseFile(out));
  }
  writeFile("app", "content");
  FILE *out = DutOpenFile("app", "w");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(readFile("app~"), "content");
  std::fputs("written", out);
  EXPECT_TRUE(DutFlushFile(out));
  EXPECT_EQ(readFile("app"), "written");
  // A second open with "w" shares the stream; no second backup.
  EXPECT_EQ(DutOpenFile("app", "w"), out);
  EXPECT_EQ(readFile("app~"), "content");
  EXPECT_TRUE(DutCloseFile(out));
  EXPECT_TRUE(DutCloseFile(out));
}

TEST(Backups, NoValueOrNoFileMeansNoBackup) {
  TempDir dir;
  writeFile("f", "keep?");
  {
    StrOption none("backup_name", nullptr);
    EXPECT_TRUE(DutBackupFile("f"));
    EXPECT_EQ(readFile("f"), "keep?");
    EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 1);
  }
  StrOption suffix("backup_name", ".bak");
  DutErrNumSet(0);
  EXPECT_TRUE(DutBackupFile("absent"));
  EXPECT_EQ(DutErrNumGet(), 0);
  EXPECT_FALSE(fs::exists("absent.bak"));
}

TEST(Backups, RenameFailureIsReportedAndOpenGoesOn) {
  TempDir dir;
  StrOption suffix("backup_name", ".bak");
  writeFile("x", "data");
  fs::create_directories("x.bak/inside");
  EXPECT_FAILS(DutBackupFile("x"), D_FALSE, D_ERR_C);
  EXPECT_NE(DutErrNumGetC(), 0);
  OutputCapture capture;
  FILE *out = DutOpenFile("x", "w");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(capture.Take(), "WARNING: DutOpenFile: could not backup file x.\n");
  EXPECT_TRUE(DutCloseFile(out));
  EXPECT_EQ(readFile("x"), "");
}

// ---- User functions ------------------------------------------------------

int user_opens = 0;
int user_closes = 0;

TEST(UserFunctions, OpenAndCloseGoThroughThem) {
  TempDir dir;
  user_opens = user_closes = 0;
  D_FILE_OPEN_FUNC opener = [](const char *name, const char *mode) {
    ++user_opens;
    return std::fopen(name, mode);
  };
  D_FILE_CLOSE_FUNC closer = [](FILE *stream) {
    ++user_closes;
    std::fclose(stream);
    return 7;
  };
  DutSetFileOpenFunc(opener);
  DutSetFileCloseFunc(closer);
  EXPECT_EQ(DutGetFileOpenFunc(), opener);
  EXPECT_EQ(DutGetFileCloseFunc(), closer);

  FILE *out = DutOpenFile("u.txt", "w");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(DutOpenFile("u.txt", "w"), out);
  EXPECT_EQ(user_opens, 1);
  EXPECT_TRUE(DutCloseFile(out));
  EXPECT_EQ(user_closes, 0);
  {
    OutputCapture capture;
    // A failing close is only a warning; the file leaves the registry.
    EXPECT_TRUE(DutCloseFile(out));
    EXPECT_EQ(capture.Take(), "WARNING: DutCloseFile: fclose (fname u.txt) returned 7\n");
  }
  EXPECT_EQ(user_closes, 1);
  EXPECT_EQ(DutLookupFile("u.txt"), nullptr);

  DutSetFileOpenFunc(nullptr);
  DutSetFileCloseFunc(nullptr);
  EXPECT_EQ(DutGetFileOpenFunc(), nullptr);
  EXPECT_EQ(DutGetFileCloseFunc(), nullptr);
  out = DutOpenFile("u.txt", "r");
  ASSERT_NE(out, nullptr);
  EXPECT_TRUE(DutCloseFile(out));
  EXPECT_EQ(user_opens, 1);
  EXPECT_EQ(user_closes, 1);

  EXPECT_EQ(DutGetFileReadFunc(), nullptr);
  DutSetFileReadFunc(&std::fread);
  EXPECT_EQ(DutGetFileReadFunc(), &std::fread);
  DutSetFileReadFunc(nullptr);
  EXPECT_EQ(DutGetFileReadFunc(), nullptr);
}

// ---- Traversal and listing ------------------------------------------------

void *collectNames(FILE *, const char *name, const char *mode, D_INT4 ref_count, void *arg) {
  static_cast<Lines *>(arg)->push_back(std::string(name) + ":" + mode + ":" +
                                       std::to_string(ref_count));
  return nullptr;
}

TEST(OpenFiles, TraverseInOpeningOrder) {
  TempDir dir;
  FILE *c = DutOpenFile("c", "w");
  FILE *a = DutOpenFile("a", "w");
  FILE *b = DutOpenFile("b", "a");
  ASSERT_TRUE(c && a && b);
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
  EXPECT_EQ(visits, 2);
  for (FILE *s : {c, a, a, b}) EXPECT_TRUE(DutCloseFile(s));
  seen.clear();
  DutFileTraverse(&collectNames, &seen);
  EXPECT_TRUE(seen.empty());
}

TEST(OpenFiles, ExamineWritesTheListing) {
  TempDir dir;
  writeFile("in", "x");
  FILE *in = DutOpenFile("in", "r");
  FILE *out = DutOpenFile("out", "a");
  ASSERT_TRUE(in && out);
  DutOpenFile("in", "r");
  DutFileExamine();
  auto entry = [](const char *name, const char *mode, FILE *s, int refs) {
    return std::string("File Name: <") + name + ">\nFile Mode: <" + mode + ">\nFile Ptr:  <" +
           std::to_string(reinterpret_cast<long>(s)) + ">\nFile Desc: <" +
           std::to_string(fileno(s)) + ">\nRef Count: <" + std::to_string(refs) + ">\n\n";
  };
  std::string text = readFile("files.dmp");
  std::string expected = "     Open Files\n\n" + entry("in", "r", in, 2) + entry("out", "a", out, 1);
  // The listing's own stream comes last.
  EXPECT_EQ(text.substr(0, expected.size()), expected);
  EXPECT_NE(text.find("File Name: <files.dmp>\nFile Mode: <w>\n", expected.size()),
            std::string::npos);
  EXPECT_EQ(DutLookupFile("files.dmp"), nullptr);
  for (FILE *s : {in, in, out}) EXPECT_TRUE(DutCloseFile(s));

  fs::remove("files.dmp");
  fs::create_directory("files.dmp");
  OutputCapture capture;
  DutFileExamine();
  EXPECT_EQ(capture.Take(), "WARNING: Cannot open files.dmp for writing.\n");
}

TEST(OpenFiles, ConcurrentOpensShareOneCount) {
  // Host threads: the registry's lock works only once the thread layer runs.
  ASSERT_EQ(DutInitThreads(), D_TRUE);
  TempDir dir;
  writeFile("shared", "s");
  FILE *anchor = DutOpenFile("shared", "r");
  ASSERT_NE(anchor, nullptr);
  std::vector<std::thread> threads;
  std::atomic<int> mismatches{0};
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        FILE *s = DutOpenFile("shared", "r");
        if (s != anchor || !DutCloseFile(s)) ++mismatches;
      }
    });
  }
  for (auto &t : threads) t.join();
  EXPECT_EQ(mismatches.load(), 0);
  Lines seen;
  DutFileTraverse(&collectNames, &seen);
  EXPECT_EQ(seen, Lines{"shared:r:1"});
  EXPECT_TRUE(DutCloseFile(anchor));
}

TEST(OpenFiles, TracingWritesEntryLines) {
  TempDir dir;
  DutDebugOpen(dir.file("trace").c_str());
  DutGetDebugFlags()[D_DEBUG_FILE] = 1;
  writeFile("t.txt", "");
  FILE *s = DutOpenFile("t.txt", "r");
  ASSERT_NE(s, nullptr);
  DutCloseFile(s);
  DutGetDebugFlags()[D_DEBUG_FILE] = 0;
  DutDebugClose();
  std::string trace = readFile(dir.file("trace.dbg"));
  EXPECT_NE(trace.find("Entering DutOpenFile(\"t.txt\", \"r\")\n"), std::string::npos) << trace;
  char line[64];
  std::snprintf(line, sizeof line, "Entering DutCloseFile(%lx)\n",
                reinterpret_cast<unsigned long>(s));
  EXPECT_NE(trace.find(line), std::string::npos) << trace;
}

}  // namespace
