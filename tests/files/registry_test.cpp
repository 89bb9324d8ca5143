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
  D_INT4 size = -1;
  EXPECT_TRUE(DutFileExists("data") && DutFileWritable("data") && DutMvsAccess("data", 4) == 0);
  EXPECT_TRUE(DutFileGetSize("data", &size));
  EXPECT_EQ(size, 5);
  EXPECT_EQ(DutDeleteFile("data"), 0);
  EXPECT_FAILS(DutFileExists("data"), D_FALSE, D_ERR_C);
  EXPECT_FAILS(DutFileGetSize("data", &size), D_FALSE, D_ERR_C);
  EXPECT_FAILS(DutDeleteFile("data"), -1, D_ERR_C);
  EXPECT_FAILS(DutMvsAccess("data", 0), -1, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
}

// Opens of one name in its mode share one stream until the last close;
// another mode is refused, another name (case counts) is its own file, and
// a stream the registry never saw is not closed by it.
TEST(OpenFiles, SameModeSharesOneStreamUntilLastClose) {
  TempDir dir;
  writeFile("a.txt", "abc");
  FILE *first = DutOpenFile("a.txt", "r");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(DutOpenFile("a.txt", "r"), first);
  EXPECT_FAILS(DutOpenFile("a.txt", "rb"), nullptr, D_ERR_TYPE_MISMATCH);
  FILE *upper = DutOpenFile("A.TXT", "w");
  EXPECT_TRUE(upper != first && DutCloseFile(upper));
  EXPECT_TRUE(DutCloseFile(first));
  EXPECT_EQ(DutLookupFile("a.txt"), first);
  EXPECT_EQ(std::fgetc(first), 'a');
  EXPECT_TRUE(DutCloseFile(first));
  EXPECT_FAILS(DutLookupFile("a.txt"), nullptr, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutCloseFile(first), D_FALSE, D_ERR_DOESNT_EXIST);
  EXPECT_FAILS(DutOpenFile("missing", "r"), nullptr, D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  EXPECT_FAILS(DutFOpen("missing", "r"), nullptr, D_ERR_C);
  FILE *own = std::fopen("own", "w");
  EXPECT_FAILS(DutCloseFile(own), D_FALSE, D_ERR_DOESNT_EXIST);
  std::fclose(own);
}

// Only mode "w" takes a backup, and only on the first open; no suffix or no
// file means no backup; a failed rename is reported and the open goes on.
TEST(Backups, OnlyModeWOnlyOnTheFirstOpenAndFailuresWarn) {
  TempDir dir;
  writeFile("app", "content");
  {
    StrOption none("backup_name", nullptr);
    EXPECT_TRUE(DutBackupFile("app"));
  }
  StrOption suffix("backup_name", "~");
  ASSERT_TRUE(DutCloseFile(DutOpenFile("app", "a")));
  EXPECT_FALSE(fs::exists("app~"));
  writeFile("app~", "older");
  FILE *out = DutOpenFile("app", "w");
  EXPECT_EQ(readFile("app~"), "content");
  std::fputs("written", out);
  EXPECT_TRUE(DutFlushFile(out));
  EXPECT_EQ(DutOpenFile("app", "w"), out);
  EXPECT_EQ(readFile("app~"), "content");
  EXPECT_TRUE(DutCloseFile(out) && DutCloseFile(out));
  EXPECT_FAILS(DutBackupFile("absent"), D_TRUE, 0);
  EXPECT_FALSE(fs::exists("absent~"));
  fs::remove("app~");
  fs::create_directories("app~/inside");
  EXPECT_FAILS(DutBackupFile("app"), D_FALSE, D_ERR_C);
  OutputCapture capture;
  EXPECT_TRUE(DutCloseFile(DutOpenFile("app", "w")));
  EXPECT_EQ(capture.Take(), "WARNING: DutOpenFile: could not backup file app.\n");
  EXPECT_EQ(readFile("app"), "");
}

int user_opens = 0;
int user_closes = 0;

// A failing close of the user's is only a warning; the file leaves the
// registry all the same.
TEST(UserFunctions, OpenAndCloseGoThroughThem) {
  TempDir dir;
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
  DutSetFileReadFunc(&std::fread);
  EXPECT_TRUE(DutGetFileOpenFunc() == opener && DutGetFileCloseFunc() == closer);
  EXPECT_EQ(DutGetFileReadFunc(), &std::fread);
  OutputCapture capture;
  FILE *out = DutOpenFile("u.txt", "w");
  EXPECT_EQ(DutOpenFile("u.txt", "w"), out);
  EXPECT_TRUE(DutCloseFile(out) && DutCloseFile(out));
  EXPECT_EQ(capture.Take(), "WARNING: DutCloseFile: fclose (fname u.txt) returned 7\n");
  EXPECT_EQ(DutLookupFile("u.txt"), nullptr);
  EXPECT_TRUE(user_opens == 1 && user_closes == 1);
  DutSetFileOpenFunc(nullptr);
  DutSetFileCloseFunc(nullptr);
  DutSetFileReadFunc(nullptr);
  EXPECT_EQ(DutGetFileReadFunc(), nullptr);
  EXPECT_TRUE(DutCloseFile(DutOpenFile("u.txt", "r")));
  EXPECT_EQ(user_opens + user_closes, 2);
}

void *collectNames(FILE *, const char *name, const char *mode, D_INT4 ref_count, void *arg) {
  static_cast<Lines *>(arg)->push_back(std::string(name) + ":" + mode + ":" + std::to_string(ref_count));
  return nullptr;
}

// The traversal and the listing go in opening order; the listing's own
// stream comes last.
TEST(OpenFiles, TraverseAndExamineInOpeningOrder) {
  TempDir dir;
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
    return std::string("File Name: <") + name + ">\nFile Mode: <" + mode + ">\nFile Ptr:  <" +
           std::to_string(reinterpret_cast<long>(s)) + ">\nFile Desc: <" + std::to_string(fileno(s)) +
           ">\nRef Count: <" + std::to_string(refs) + ">\n\n";
  };
  std::string expected = "     Open Files\n\n" + entry("c", "w", c, 1) + entry("a", "w", a, 2) + entry("b", "a", b, 1);
  EXPECT_EQ(readFile("files.dmp").substr(0, expected.size() + 38), expected + "File Name: <files.dmp>\nFile Mode: <w>\n");
  EXPECT_EQ(DutLookupFile("files.dmp"), nullptr);
  for (FILE *s : {c, a, a, b}) EXPECT_TRUE(DutCloseFile(s));
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
  DutCloseFile(s);
  DutGetDebugFlags()[D_DEBUG_FILE] = 0;
  DutDebugClose();
  char line[64];
  std::snprintf(line, sizeof line, "Entering DutCloseFile(%lx)\n", reinterpret_cast<unsigned long>(s));
  std::string trace = readFile(dir.file("trace.dbg"));
  EXPECT_NE(trace.find("Entering DutOpenFile(\"t.txt\", \"r\")\n"), std::string::npos) << trace;
  EXPECT_NE(trace.find(line), std::string::npos) << trace;
}

}  // namespace
