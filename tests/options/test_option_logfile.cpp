// An option naming a log file: opening, appending, switching files and
// closing the previous one.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

#include "options_support.hpp"
#include "vqutil/file.h"

using opttest::OutputCapture;

namespace {

namespace fs = std::filesystem;

class OptionLogFile : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(dir_); }
  void TearDown() override { fs::remove_all(dir_); }
  std::string Path(const char *leaf) const { return (dir_ / leaf).string(); }

  const fs::path dir_ = fs::temp_directory_path() /
                        ("vq_optlog_" + std::to_string(::getpid()) + "_" +
                         ::testing::UnitTest::GetInstance()->current_test_info()->name());
};

std::string ReadAll(const std::string &path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST_F(OptionLogFile, OpensSwitchesAndCloses) {
  static char kKind[] = "status";
  D_OPTION *log = DutOptionCreate("lf_status", D_OPT_TYPE_STRING);
  ASSERT_TRUE(DutOptionSetVerifyFunc(log, DutOptionVerifyLogFile, kKind));
  OutputCapture capture;

  std::string first = Path("first.log");
  ASSERT_TRUE(DutOptionSetStr(log, first.c_str()));
  EXPECT_EQ(capture.Take(), "Now logging status messages to <" + first + ">.\n");
  FILE *stream = DutLookupFile(first.c_str());
  ASSERT_NE(stream, nullptr);
  std::fputs("old line\n", stream);
  DutFlushFile(stream);

  // Appending to a file that already has text keeps the text.
  std::string second = Path("second.log");
  { std::ofstream(second) << "kept\n"; }
  std::string appended = "@" + second;
  ASSERT_TRUE(DutOptionSetStr(log, appended.c_str()));
  EXPECT_EQ(capture.Take(), "Opening the file for appending.\nNow logging status messages to <" + second + ">.\n");
  EXPECT_EQ(DutLookupFile(first.c_str()), nullptr);
  EXPECT_EQ(ReadAll(first), "old line\n");
  FILE *stream2 = DutLookupFile(second.c_str());
  ASSERT_NE(stream2, nullptr);
  std::fputs("new\n", stream2);
  DutFlushFile(stream2);
  EXPECT_EQ(ReadAll(second), "kept\nnew\n");

  // A file that cannot be opened is refused and the old one stays open.
  std::string missing = Path("no_dir/x.log");
  EXPECT_FALSE(DutOptionSetStr(log, missing.c_str()));
  EXPECT_EQ(capture.Take(), "Could not open file <" + missing + ">.\n");
  EXPECT_STREQ(static_cast<const char *>(D_GOPT_VALUE(log)), appended.c_str());
  EXPECT_NE(DutLookupFile(second.c_str()), nullptr);

  // Unknown closes the current file and opens nothing.
  ASSERT_TRUE(DutOptionSetUnknown(log));
  EXPECT_EQ(capture.Take(), "");
  EXPECT_EQ(DutLookupFile(second.c_str()), nullptr);
}

TEST_F(OptionLogFile, KindIsRequired) {
  D_OPTION *log = DutOptionCreate("lf_nokind", D_OPT_TYPE_STRING);
  ASSERT_TRUE(DutOptionSetVerifyFunc(log, DutOptionVerifyLogFile, nullptr));
  std::string path = Path("a.log");
  OPT_EXPECT_ASSERTION(DutOptionSetStr(log, path.c_str()), "D_NULL != arg");
}

}  // namespace
