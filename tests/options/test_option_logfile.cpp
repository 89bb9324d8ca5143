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

std::string ReadAll(const std::string &path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(OptionLogFile, OpensSwitchesAndCloses) {
  const fs::path dir = fs::temp_directory_path() / ("vq_optlog_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  static char kKind[] = "status";
  D_OPTION *log = DutOptionCreate("lf_status", D_OPT_TYPE_STRING);
  ASSERT_TRUE(DutOptionSetVerifyFunc(log, DutOptionVerifyLogFile, kKind));
  OutputCapture capture;
  std::string first = (dir / "first.log").string();
  ASSERT_TRUE(DutOptionSetStr(log, first.c_str()));
  EXPECT_EQ(capture.Take(), "Now logging status messages to <" + first + ">.\n");
  std::fputs("old line\n", DutLookupFile(first.c_str()));

  // Appending to a file that already has text keeps the text; the first
  // file is closed.
  std::string second = (dir / "second.log").string();
  std::ofstream(second) << "kept\n";
  std::string appended = "@" + second;
  ASSERT_TRUE(DutOptionSetStr(log, appended.c_str()));
  EXPECT_EQ(capture.Take(), "Opening the file for appending.\nNow logging status messages to <" + second + ">.\n");
  EXPECT_EQ(ReadAll(first), "old line\n");
  std::fputs("new\n", DutLookupFile(second.c_str()));
  DutFlushFile(DutLookupFile(second.c_str()));
  EXPECT_EQ(ReadAll(second), "kept\nnew\n");

  // A file that cannot be opened is refused and the old one stays open.
  std::string missing = (dir / "no_dir/x.log").string();
  EXPECT_FALSE(DutOptionSetStr(log, missing.c_str()));
  EXPECT_EQ(capture.Take(), "Could not open file <" + missing + ">.\n");
  EXPECT_STREQ(static_cast<const char *>(D_GOPT_VALUE(log)), appended.c_str());
  EXPECT_NE(DutLookupFile(second.c_str()), nullptr);
  // Unknown closes the current file and opens nothing.
  ASSERT_TRUE(DutOptionSetUnknown(log));
  EXPECT_EQ(capture.Take(), "");
  EXPECT_EQ(DutLookupFile(second.c_str()), nullptr);
  fs::remove_all(dir);
}

TEST(OptionLogFile, KindIsRequired) {
  D_OPTION *log = DutOptionCreate("lf_nokind", D_OPT_TYPE_STRING);
  ASSERT_TRUE(DutOptionSetVerifyFunc(log, DutOptionVerifyLogFile, nullptr));
  OPT_EXPECT_ASSERTION(DutOptionSetStr(log, "/tmp/vq_optlog_nokind.log"), "D_NULL != arg");
}

}  // namespace
