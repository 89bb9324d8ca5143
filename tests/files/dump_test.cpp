// The per-process dump file.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support.hpp"
#include "vqutil/error.h"
#include "vqutil/file.h"
#include "vqutil/option.h"

using files_test::Capture;
using files_test::readFile;
using files_test::TempDir;
using files_test::writeFile;

namespace {

// The name is fixed on the first open of the process and lies in the
// temporary directory, which is the current directory of each test.
class DumpFile : public ::testing::Test {
 protected:
  void SetUp() override { DutDumpClose(); }
  void TearDown() override { DutDumpClose(); }

  static std::string expectedName() { return "./dump" + std::to_string(getpid()) + ".dmp"; }

  TempDir dir;
};

TEST_F(DumpFile, NoNameBeforeTheFirstOpen) {
  char name[256];
  if (DutDumpGetName(name)) GTEST_SKIP() << "an earlier test of this process named the file";
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  DutErrNumSet(0);
  EXPECT_FALSE(DutDumpView());
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  DutErrNumSet(0);
  EXPECT_FALSE(DutDumpRemove());
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  DutErrNumSet(0);
  EXPECT_FALSE(DutDumpClose());
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
}

TEST_F(DumpFile, Lifecycle) {
  FILE *dump = DutDumpOpen();
  ASSERT_NE(dump, nullptr);
  char name[256];
  ASSERT_TRUE(DutDumpGetName(name));
  EXPECT_EQ(std::string(name), expectedName());
  EXPECT_EQ(DutLookupFile(name), dump);

  DutErrNumSet(0);
  EXPECT_EQ(DutDumpOpen(), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);
  DutErrNumSet(0);
  EXPECT_EQ(DutDumpOpenAppend(), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);

  DutDumpOut("value %d of %s\n", 7, "seven");
  DutErrNumSet(0);
  EXPECT_FALSE(DutDumpRemove());
  EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);

  EXPECT_TRUE(DutDumpClose());
  DutErrNumSet(0);
  EXPECT_FALSE(DutDumpClose());
  EXPECT_EQ(DutErrNumGet(), D_ERR_DOESNT_EXIST);
  EXPECT_EQ(readFile(name), "value 7 of seven\n");
  // The name outlives the close.
  char again[256];
  EXPECT_TRUE(DutDumpGetName(again));
  EXPECT_STREQ(again, name);

  EXPECT_TRUE(DutDumpRemove());
  EXPECT_FALSE(std::filesystem::exists(name));
  DutErrNumSet(0);
  EXPECT_FALSE(DutDumpRemove());
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  EXPECT_EQ(DutErrNumGetC(), ENOENT);

  DutErrNumSet(0);
  EXPECT_FALSE(DutDumpGetName(nullptr));
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST_F(DumpFile, FirstWriteOpensAndTruncates) {
  writeFile(expectedName(), "stale contents\n");
  DutDumpOut("fresh %s\n", "text");
  EXPECT_NE(DutLookupFile(expectedName().c_str()), nullptr);
  EXPECT_TRUE(DutDumpClose());
  EXPECT_EQ(readFile(expectedName()), "fresh text\n");
}

TEST_F(DumpFile, OpenTruncatesAndAppendKeeps) {
  ASSERT_NE(DutDumpOpen(), nullptr);
  DutDumpOut("a");
  ASSERT_TRUE(DutDumpClose());
  ASSERT_NE(DutDumpOpenAppend(), nullptr);
  DutDumpOut("b");
  ASSERT_TRUE(DutDumpClose());
  EXPECT_EQ(readFile(expectedName()), "ab");
  ASSERT_NE(DutDumpOpen(), nullptr);
  DutDumpOut("c");
  ASSERT_TRUE(DutDumpClose());
  EXPECT_EQ(readFile(expectedName()), "c");
}

TEST_F(DumpFile, OpenDoesNotLeaveABackup) {
  D_OPTION *backup = DutOptionLookup("backup_name");
  ASSERT_TRUE(DutOptionSetStr(backup, ".old"));
  writeFile(expectedName(), "previous");
  FILE *dump = DutDumpOpen();
  DutOptionSetUnknown(backup);
  ASSERT_NE(dump, nullptr);
  ASSERT_TRUE(DutDumpClose());
  // The old dump is deleted before the open, so there is nothing to keep.
  EXPECT_FALSE(std::filesystem::exists(expectedName() + ".old"));
  EXPECT_EQ(readFile(expectedName()), "");
}

TEST_F(DumpFile, UnopenableFileSendsTextToTheOutput) {
  std::filesystem::create_directory(expectedName());
  std::filesystem::create_directory(expectedName() + "/keep");
  DutErrNumSet(0);
  EXPECT_EQ(DutDumpOpen(), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_C);
  Capture capture;
  DutDumpOut("fallback %d\n", 1);
  EXPECT_EQ(capture.text(), "WARNING: DutDumpOutVa: dump file is not open.\nfallback 1\n");
}

std::string editorLogScript(const TempDir &dir) {
  std::string path = dir.file("viewer.sh");
  writeFile(path, "#!/bin/sh\necho \"$1\" > '" + dir.file("viewer.log") + "'\ncat \"$1\" >> '" +
                      dir.file("viewer.log") + "'\n");
  chmod(path.c_str(), 0755);
  return path;
}

TEST_F(DumpFile, ViewClosesAndShowsTheFile) {
  D_OPTION *editor = DutOptionLookup("editor");
  const char *old_value = nullptr;
  ASSERT_TRUE(DutOptionGetStr(editor, &old_value));
  std::string saved = old_value;
  ASSERT_TRUE(DutOptionSetStr(editor, editorLogScript(dir).c_str()));

  ASSERT_NE(DutDumpOpen(), nullptr);
  DutDumpOut("look at me\n");
  bool viewed = DutDumpView();
  DutOptionSetStr(editor, saved.c_str());
  EXPECT_TRUE(viewed);
  EXPECT_EQ(readFile(dir.file("viewer.log")), expectedName() + "\nlook at me\n");
  // View left it closed: removing is allowed now.
  EXPECT_EQ(DutLookupFile(expectedName().c_str()), nullptr);
  EXPECT_TRUE(DutDumpRemove());
}

TEST_F(DumpFile, ConcurrentWritesNeverInterleaveInsideACall) {
  ASSERT_NE(DutDumpOpen(), nullptr);
  constexpr int kThreads = 6;
  constexpr int kLines = 300;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) DutDumpOut("thread %d line %d %s\n", t, i, "----------");
    });
  }
  for (auto &th : threads) th.join();
  ASSERT_TRUE(DutDumpClose());
  std::istringstream text(readFile(expectedName()));
  std::set<std::string> lines;
  std::string line;
  int count = 0;
  while (std::getline(text, line)) {
    lines.insert(line);
    ++count;
  }
  EXPECT_EQ(count, kThreads * kLines);
  EXPECT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kLines));
  EXPECT_EQ(lines.count("thread 3 line 299 ----------"), 1u);
}

TEST_F(DumpFile, NullFormatIsAnAssertionFailure) {
  EXPECT_EXIT(
      {
        setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
        DutSetFatalErrorFile(stderr);
        DutDumpOut(static_cast<const char *>(nullptr));
      },
      ::testing::KilledBySignal(SIGABRT), "format_str != NULL");
}

}  // namespace
