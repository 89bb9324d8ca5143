// The open-file registry: shared streams, reference counts, modes,
// backups, user functions, traversal and the open-file listing.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/thread.h"
#include "vqutil/option.h"

using files_test::Capture;
using files_test::readFile;
using files_test::TempDir;
using files_test::writeFile;

namespace {

// Sets "backup_name" for the test and makes it unknown again afterwards.
class BackupSuffix {
 public:
  explicit BackupSuffix(const char *suffix) : option_(DutOptionLookup("backup_name")) {
    EXPECT_NE(option_, nullptr);
    if (suffix != nullptr) {
      EXPECT_TRUE(DutOptionSetStr(option_, suffix));
    } else {
      DutOptionSetUnknown(option_);
    }
  }
  ~BackupSuffix() { DutOptionSetUnknown(option_); }

 private:
  D_OPTION *option_;
};

TEST(FileTests, ExistsWritableAccessDeleteSize) {
  TempDir dir;
  writeFile("data", "12345");
  EXPECT_TRUE(DutFileExists("data"));
  EXPECT_TRUE(DutFileWritable("data"));
  EXPECT_EQ(DutMvsAccess("data", 4), 0);
  D_INT4 size = -1;
  EXPECT_TRUE(DutFileGetSize("data", &size));
  EXPECT_EQ(size, 5);
  writeFile("empty", "");
  EXPECT_TRUE(DutFileGetSize("empty", &size));
  EXPECT_EQ(size, 0);
  EXPECT_EQ(DutDeleteFile("data"), 0);

  DutErrNumSet(0);
  EXPECT_FALSE(DutFileExists("data"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  DutErrNumSet(0);
  EXPECT_FALSE(DutFileGetSize("data", &size));
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  DutErrNumSet(0);
  EXPECT_EQ(DutDeleteFile("data"), -1);
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  EXPECT_EQ(DutMvsAccess("data", 0), -1);
  DutErrNumSet(0);
  EXPECT_FALSE(DutFileGetSize(nullptr, &size));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_FALSE(DutFileWritable(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(OpenFiles, SameModeSharesOneStreamUntilLastClose) {
  TempDir dir;
  writeFile("a.txt", "abc");
  FILE *first = DutOpenFile("a.txt", "r");
  ASSERT_NE(first, nullptr);
  FILE *second = DutOpenFile("a.txt", "r");
  EXPECT_EQ(second, first);
  EXPECT_EQ(DutLookupFile("a.txt"), first);

  EXPECT_TRUE(DutCloseFile(first));
  // Still open: the stream reads on.
  EXPECT_EQ(DutLookupFile("a.txt"), first);
  EXPECT_EQ(std::fgetc(first), 'a');

  EXPECT_TRUE(DutCloseFile(first));
  DutErrNumSet(0);
  EXPECT_EQ(DutLookupFile("a.txt"), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  DutErrNumSet(0);
  EXPECT_FALSE(DutCloseFile(first));
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
}

TEST(OpenFiles, ReopenAfterLastCloseIsAFreshRegistration) {
  TempDir dir;
  writeFile("b.txt", "xy");
  FILE *s = DutOpenFile("b.txt", "r");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(std::fgetc(s), 'x');
  ASSERT_TRUE(DutCloseFile(s));
  FILE *again = DutOpenFile("b.txt", "r");
  ASSERT_NE(again, nullptr);
  // A new stream starts at the beginning.
  EXPECT_EQ(std::fgetc(again), 'x');
  EXPECT_TRUE(DutCloseFile(again));
}

TEST(OpenFiles, OtherModeIsATypeMismatch) {
  TempDir dir;
  writeFile("a.txt", "abc");
  FILE *reader = DutOpenFile("a.txt", "r");
  ASSERT_NE(reader, nullptr);
  DutErrNumSet(0);
  EXPECT_EQ(DutOpenFile("a.txt", "w"), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_MISMATCH);
  DutErrNumSet(0);
  EXPECT_EQ(DutOpenFile("a.txt", "rb"), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_TYPE_MISMATCH);
  // The failed opens left the file untouched and the count alone.
  EXPECT_EQ(readFile("a.txt"), "abc");
  EXPECT_TRUE(DutCloseFile(reader));
  EXPECT_EQ(DutLookupFile("a.txt"), nullptr);
}

TEST(OpenFiles, NamesCompareExactly) {
  TempDir dir;
  writeFile("a.txt", "lower");
  FILE *lower = DutOpenFile("a.txt", "r");
  ASSERT_NE(lower, nullptr);
  // A different name on a case-sensitive file system: its own file.
  FILE *upper = DutOpenFile("A.TXT", "w");
  ASSERT_NE(upper, nullptr);
  EXPECT_NE(upper, lower);
  EXPECT_EQ(DutLookupFile("A.TXT"), upper);
  EXPECT_EQ(DutLookupFile("a.txt"), lower);
  EXPECT_TRUE(DutCloseFile(upper));
  EXPECT_TRUE(DutCloseFile(lower));
  EXPECT_EQ(readFile("a.txt"), "lower");
}

TEST(OpenFiles, FailuresAndNullArguments) {
  TempDir dir;
  DutErrNumSet(0);
  EXPECT_EQ(DutOpenFile("missing", "r"), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);
  EXPECT_EQ(DutLookupFile("missing"), nullptr);

  DutErrNumSet(0);
  EXPECT_EQ(DutOpenFile(nullptr, "r"), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutOpenFile("x", nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_FALSE(DutCloseFile(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutLookupFile(nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_FALSE(DutFlushFile(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
  DutErrNumSet(0);
  EXPECT_EQ(DutFOpen("missing", "r"), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);

  // A stream the registry never saw is not closed by it.
  FILE *own = std::fopen("own", "w");
  ASSERT_NE(own, nullptr);
  DutErrNumSet(0);
  EXPECT_FALSE(DutCloseFile(own));
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  std::fclose(own);
}

TEST(OpenFiles, FlushMakesWritesVisible) {
  TempDir dir;
  FILE *out = DutOpenFile("log.txt", "w");
  ASSERT_NE(out, nullptr);
  std::fputs("line\n", out);
  EXPECT_TRUE(DutFlushFile(out));
  EXPECT_EQ(readFile("log.txt"), "line\n");
  EXPECT_TRUE(DutCloseFile(out));
}

// ---- Backups -------------------------------------------------------------

TEST(Backups, WriteModeMovesTheOldFileAside) {
  TempDir dir;
  BackupSuffix suffix(".bak");
  writeFile("cfg", "old");
  writeFile("cfg.bak", "older");
  FILE *out = DutOpenFile("cfg", "w");
  ASSERT_NE(out, nullptr);
  std::fputs("new", out);
  ASSERT_TRUE(DutCloseFile(out));
  EXPECT_EQ(readFile("cfg"), "new");
  EXPECT_EQ(readFile("cfg.bak"), "old");
}

TEST(Backups, OnlyExactlyModeWAndOnlyOnFirstOpen) {
  TempDir dir;
  BackupSuffix suffix("~");
  writeFile("app", "start");
  FILE *out = DutOpenFile("app", "a");
  ASSERT_NE(out, nullptr);
  EXPECT_FALSE(std::filesystem::exists("app~"));
  ASSERT_TRUE(DutCloseFile(out));
  out = DutOpenFile("app", "wb");
  ASSERT_NE(out, nullptr);
  EXPECT_FALSE(std::filesystem::exists("app~"));
  ASSERT_TRUE(DutCloseFile(out));

  writeFile("app", "content");
  out = DutOpenFile("app", "w");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(readFile("app~"), "content");
  std::fputs("written", out);
  std::fflush(out);
  // A second open with "w" shares the stream; no second backup.
  EXPECT_EQ(DutOpenFile("app", "w"), out);
  EXPECT_EQ(readFile("app~"), "content");
  EXPECT_TRUE(DutCloseFile(out));
  EXPECT_TRUE(DutCloseFile(out));
}

TEST(Backups, NoValueOrNoFileMeansNoBackup) {
  TempDir dir;
  {
    BackupSuffix none(nullptr);
    writeFile("f", "keep?");
    D_INT4 err_before = 0;
    DutErrNumSet(err_before);
    EXPECT_TRUE(DutBackupFile("f"));
    EXPECT_EQ(readFile("f"), "keep?");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 1);
  }
  BackupSuffix suffix(".bak");
  DutErrNumSet(0);
  EXPECT_TRUE(DutBackupFile("absent"));
  EXPECT_EQ(DutErrNumGet(), 0);
  EXPECT_FALSE(std::filesystem::exists("absent.bak"));
  DutErrNumSet(0);
  EXPECT_FALSE(DutBackupFile(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(Backups, RenameFailureIsReportedAndOpenGoesOn) {
  TempDir dir;
  BackupSuffix suffix(".bak");
  writeFile("x", "data");
  std::filesystem::create_directory("x.bak");
  std::filesystem::create_directory("x.bak/inside");
  DutErrNumSet(0);
  EXPECT_FALSE(DutBackupFile("x"));
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_NE(DutErrNumGetC(), 0);

  Capture capture;
  FILE *out = DutOpenFile("x", "w");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(capture.text(), "WARNING: DutOpenFile: could not backup file x.\n");
  EXPECT_TRUE(DutCloseFile(out));
  EXPECT_EQ(readFile("x"), "");
}

// ---- User functions ------------------------------------------------------

int user_opens = 0;
int user_closes = 0;
int close_result = 0;

FILE *countingOpen(const char *name, const char *mode) {
  ++user_opens;
  return std::fopen(name, mode);
}

int countingClose(FILE *stream) {
  ++user_closes;
  std::fclose(stream);
  return close_result;
}

TEST(UserFunctions, OpenAndCloseGoThroughThem) {
  TempDir dir;
  user_opens = user_closes = 0;
  close_result = 7;
  DutSetFileOpenFunc(&countingOpen);
  DutSetFileCloseFunc(&countingClose);
  EXPECT_EQ(DutGetFileOpenFunc(), &countingOpen);
  EXPECT_EQ(DutGetFileCloseFunc(), &countingClose);

  FILE *out = DutOpenFile("u.txt", "w");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(DutOpenFile("u.txt", "w"), out);
  EXPECT_EQ(user_opens, 1);
  EXPECT_TRUE(DutCloseFile(out));
  EXPECT_EQ(user_closes, 0);
  {
    Capture capture;
    // A failing close is only a warning; the file leaves the registry.
    EXPECT_TRUE(DutCloseFile(out));
    EXPECT_EQ(capture.text(), "WARNING: DutCloseFile: fclose (fname u.txt) returned 7\n");
  }
  EXPECT_EQ(user_closes, 1);
  EXPECT_EQ(DutLookupFile("u.txt"), nullptr);

  DutSetFileOpenFunc(nullptr);
  DutSetFileCloseFunc(nullptr);
  EXPECT_EQ(DutGetFileOpenFunc(), nullptr);
  out = DutOpenFile("u.txt", "r");
  ASSERT_NE(out, nullptr);
  EXPECT_TRUE(DutCloseFile(out));
  EXPECT_EQ(user_opens, 1);
  EXPECT_EQ(user_closes, 1);
}

TEST(UserFunctions, ReadFunctionIsStored) {
  EXPECT_EQ(DutGetFileReadFunc(), nullptr);
  DutSetFileReadFunc(&std::fread);
  EXPECT_EQ(DutGetFileReadFunc(), &std::fread);
  DutSetFileReadFunc(nullptr);
  EXPECT_EQ(DutGetFileReadFunc(), nullptr);
}

// ---- Traversal and listing ------------------------------------------------

void *collectNames(FILE *, const char *name, const char *mode, D_INT4 ref_count, void *arg) {
  auto *seen = static_cast<std::vector<std::string> *>(arg);
  seen->push_back(std::string(name) + ":" + mode + ":" + std::to_string(ref_count));
  return nullptr;
}

void *stopAtSecond(FILE *stream, const char *, const char *, D_INT4, void *arg) {
  int *visits = static_cast<int *>(arg);
  return ++*visits == 2 ? stream : nullptr;
}

TEST(OpenFiles, TraverseInOpeningOrder) {
  TempDir dir;
  FILE *c = DutOpenFile("c", "w");
  FILE *a = DutOpenFile("a", "w");
  FILE *b = DutOpenFile("b", "a");
  ASSERT_TRUE(c && a && b);
  DutOpenFile("a", "w");
  std::vector<std::string> seen;
  DutErrNumSet(D_ERR_VAL_INVALID);
  EXPECT_EQ(DutFileTraverse(&collectNames, &seen), nullptr);
  EXPECT_EQ(DutErrNumGet(), 0);
  EXPECT_EQ(seen, (std::vector<std::string>{"c:w:1", "a:w:2", "b:a:1"}));

  int visits = 0;
  EXPECT_EQ(DutFileTraverse(&stopAtSecond, &visits), a);
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
  std::string expected =
      "     Open Files\n\n" + entry("in", "r", in, 2) + entry("out", "a", out, 1);
  // The listing's own stream comes last.
  ASSERT_GE(text.size(), expected.size());
  EXPECT_EQ(text.substr(0, expected.size()), expected);
  EXPECT_NE(text.find("File Name: <files.dmp>\nFile Mode: <w>\n", expected.size()),
            std::string::npos);
  EXPECT_EQ(DutLookupFile("files.dmp"), nullptr);
  for (FILE *s : {in, in, out}) EXPECT_TRUE(DutCloseFile(s));
}

TEST(OpenFiles, ExamineWarnsWhenItCannotWrite) {
  TempDir dir;
  std::filesystem::create_directory("files.dmp");
  Capture capture;
  DutFileExamine();
  EXPECT_EQ(capture.text(), "WARNING: Cannot open files.dmp for writing.\n");
}

TEST(OpenFiles, ConcurrentOpensShareOneCount) {
  // Threads of the host's own: the registry's lock works only once the
  // thread layer is started.
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
        if (s != anchor) ++mismatches;
        if (!DutCloseFile(s)) ++mismatches;
      }
    });
  }
  for (auto &t : threads) t.join();
  EXPECT_EQ(mismatches.load(), 0);
  std::vector<std::string> seen;
  DutFileTraverse(&collectNames, &seen);
  EXPECT_EQ(seen, std::vector<std::string>{"shared:r:1"});
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
