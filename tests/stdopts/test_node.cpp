// The node name, the default unique subject built from it, and the socket
// directory.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "stdopts_support.hpp"
#include "vqutil/error.h"
#include "vqutil/net.h"
#include "vqutil/stdopt.h"

namespace {

using stdopts::EnvGuard;
using stdopts::OutputCapture;

std::string SystemHostName() {
  char host[512] = {};
  if (::gethostname(host, sizeof host - 1) != 0 || host[0] == '\0') return "UNKNOWN";
  return std::string(host).substr(0, D_NODE_NAME_SIZE - 1);
}

TEST(NodeName, SystemNameUnlessForced) {
  char buffer[D_NODE_NAME_SIZE];
  {
    EnvGuard unforced("VQ_FORCE_NODE_NAME", std::nullopt);
    EXPECT_EQ(DutGetNodeName(buffer), buffer);
    EXPECT_EQ(std::string(buffer), SystemHostName());
  }
  {
    EnvGuard forced("VQ_FORCE_NODE_NAME", "pretend.example.org");
    EXPECT_EQ(DutGetNodeName(buffer), buffer);
    EXPECT_STREQ(buffer, "pretend.example.org");
  }
  {
    // Set but empty still replaces the name: the variable decides, not its length.
    EnvGuard empty("VQ_FORCE_NODE_NAME", "");
    DutGetNodeName(buffer);
    EXPECT_STREQ(buffer, "");
  }
}

TEST(NodeName, LongForcedNameIsCutToTheBuffer) {
  std::string long_name(D_NODE_NAME_SIZE + 40, 'n');
  EnvGuard forced("VQ_FORCE_NODE_NAME", long_name);
  char buffer[D_NODE_NAME_SIZE + 64];
  std::memset(buffer, 'X', sizeof buffer);
  DutGetNodeName(buffer);
  EXPECT_EQ(std::strlen(buffer), static_cast<size_t>(D_NODE_NAME_SIZE - 1));
  EXPECT_EQ(buffer[D_NODE_NAME_SIZE], 'X');  // nothing written past the documented size
}

TEST(NodeName, NullBuffer) {
  DutErrNumSet(0);
  EXPECT_EQ(DutGetNodeName(nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(UniqueSubjectDefault, NodeAndNumber) {
  EnvGuard forced("VQ_FORCE_NODE_NAME", "station7.plant.example");
  char buffer[D_UNIQUE_SUBJECT_SIZE];
  {
    EnvGuard full("VQ_FORCE_SHORT_NODE_NAME", std::nullopt);
    EXPECT_EQ(DutOptionGetUniqueSubjectDefault(buffer, 4242), buffer);
    EXPECT_STREQ(buffer, "_station7.plant.example_4242");
    DutOptionGetUniqueSubjectDefault(buffer, 0);
    EXPECT_STREQ(buffer, "_station7.plant.example_0");
  }
  EnvGuard shortened("VQ_FORCE_SHORT_NODE_NAME", "yes");
  DutOptionGetUniqueSubjectDefault(buffer, 17);
  EXPECT_STREQ(buffer, "_station7_17");
  // Negative numbers are written in hexadecimal, the full word.
  DutOptionGetUniqueSubjectDefault(buffer, -1);
  EXPECT_EQ(std::string(buffer), "_station7_" + std::string(2 * sizeof(D_WORD), 'f'));
  DutOptionGetUniqueSubjectDefault(buffer, -256);
  EXPECT_EQ(std::string(buffer), "_station7_" + std::string(2 * sizeof(D_WORD) - 2, 'f') + "00");
}

TEST(UniqueSubjectDefault, LongestNameFitsTheBuffer) {
  EnvGuard forced("VQ_FORCE_NODE_NAME", std::string(400, 'h'));
  EnvGuard full("VQ_FORCE_SHORT_NODE_NAME", std::nullopt);
  char buffer[D_UNIQUE_SUBJECT_SIZE];
  D_WORD lowest = sizeof(D_WORD) == 8 ? static_cast<D_WORD>(INT64_MIN) : static_cast<D_WORD>(INT32_MIN);
  DutOptionGetUniqueSubjectDefault(buffer, lowest);
  std::string text = buffer;
  EXPECT_EQ(text, "_" + std::string(D_NODE_NAME_SIZE - 1, 'h') + "_8" + std::string(2 * sizeof(D_WORD) - 1, '0'));
  D_WORD highest = sizeof(D_WORD) == 8 ? static_cast<D_WORD>(INT64_MAX) : static_cast<D_WORD>(INT32_MAX);
  DutOptionGetUniqueSubjectDefault(buffer, highest);
  EXPECT_EQ(std::string(buffer), "_" + std::string(D_NODE_NAME_SIZE - 1, 'h') + "_" + std::to_string(highest));
}

TEST(UniqueSubjectDefault, NullBuffer) {
  DutErrNumSet(0);
  EXPECT_EQ(DutOptionGetUniqueSubjectDefault(nullptr, 1), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(SocketDir, UnderTempCreatedOnceAndKept) {
  const char *dir = DutGetSocketDir();
  ASSERT_NE(dir, nullptr);
  const char *temp = std::getenv("TEMP");  // always set once the library is loaded
  ASSERT_NE(temp, nullptr);
  EXPECT_EQ(std::string(dir), std::string(temp) + "/vqsuite");
  EXPECT_TRUE(std::filesystem::is_directory(dir));
  // Computed once: a later change of TEMP does not move it.
  EnvGuard moved("TEMP", "/somewhere/else");
  EXPECT_EQ(DutGetSocketDir(), dir);
}

TEST(SocketDir, WithoutTempUsesTmp) {
  stdopts::InFreshProcess([](stdopts::ChildReport &report) {
    ::unsetenv("TEMP");
    report.Equal(std::string(DutGetSocketDir()), std::string("/tmp/vqsuite"), "socket dir without TEMP");
    report.Check(std::filesystem::is_directory("/tmp/vqsuite"), "/tmp/vqsuite not made");
  });
}

TEST(SocketDir, UncreatableDirectoryWarnsAndStillAnswers) {
  namespace fs = std::filesystem;
  fs::path base = fs::temp_directory_path() / ("vq-stdopts-sock-" + std::to_string(::getpid()));
  fs::remove_all(base);
  fs::create_directories(base);
  // A regular file where a directory should be: mkdir fails with ENOTDIR.
  std::ofstream(base / "file") << "x";
  ::setenv("VQ_STDOPTS_TEMP", (base / "file" / "sub").c_str(), 1);
  stdopts::InFreshProcess([](stdopts::ChildReport &report) {
    std::string temp = std::getenv("VQ_STDOPTS_TEMP");
    ::setenv("TEMP", temp.c_str(), 1);
    OutputCapture capture;
    DutErrNumSet(0);
    std::string dir = DutGetSocketDir();
    std::string text = capture.Take();
    report.Equal(dir, temp + "/vqsuite", "name returned anyway");
    report.Equal(DutErrNumGet(), static_cast<D_INT4>(D_ERR_C), "error number");
    report.Equal(DutErrNumGetC(), static_cast<D_INT4>(ENOTDIR), "runtime error");
    report.Check(text.find("WARNING: DutGetSocketDir: Cannot create directory " + temp + "\n") != std::string::npos,
                 "warning missing: " + text);
    report.Check(text.find("mkdir") != std::string::npos, "no mkdir report: " + text);
    // Reported once: the directory inside is not attempted after its parent failed.
    report.Check(text.find("Cannot create directory " + temp + "/vqsuite") == std::string::npos,
                 "second warning: " + text);
  });
  ::unsetenv("VQ_STDOPTS_TEMP");
  fs::remove_all(base);
}

}  // namespace
