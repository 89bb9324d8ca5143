// The per-process dump file.
#include <unistd.h>

#include <cerrno>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support.hpp"
#include "vqutil/file.h"

using namespace files_test;

namespace {

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
// so no backup is taken), an append open keeps.
TEST_F(DumpFile, FirstWriteAndOpenTruncateAppendKeeps) {
  writeFile(name, "stale contents\n");
  DutDumpOut("fresh %s\n", "text");
  ASSERT_TRUE(DutDumpClose());
  EXPECT_EQ(readFile(name), "fresh text\n");
  ASSERT_NE(DutDumpOpenAppend(), nullptr);
  DutDumpOut("b");
  ASSERT_TRUE(DutDumpClose());
  EXPECT_EQ(readFile(name), "fresh text\nb");
  {
    StrOption backup("backup_name", ".old");
    ASSERT_NE(DutDumpOpen(), nullptr);
  }
  DutDumpOut("c");
  ASSERT_TRUE(DutDumpClose());
  EXPECT_EQ(readFile(name), "c");
  EXPECT_FALSE(fs::exists(name + ".old"));
}

TEST_F(DumpFile, ViewClosesAndShowsTheFile) {
  StrOption editor("editor", recordingEditor(dir, "viewer.sh").c_str());
  ASSERT_NE(DutDumpOpen(), nullptr);
  DutDumpOut("look at me\n");
  EXPECT_TRUE(DutDumpView());
  EXPECT_EQ(readFile(dir.file("editor.log")), "args: " + name + "\nlook at me\n");
  EXPECT_EQ(DutLookupFile(name.c_str()), nullptr);
  EXPECT_TRUE(DutDumpRemove());
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
