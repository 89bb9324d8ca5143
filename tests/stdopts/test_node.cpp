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

TEST(NodeName, SystemNameUnlessForcedCutToTheBuffer) {
  char buffer[D_NODE_NAME_SIZE + 64];
  {
    EnvGuard unforced("VQ_FORCE_NODE_NAME", std::nullopt);
    char host[512] = {};
    std::string system = ::gethostname(host, sizeof host - 1) != 0 || host[0] == '\0' ? "UNKNOWN" : host;
    EXPECT_EQ(DutGetNodeName(buffer), buffer);
    EXPECT_EQ(std::string(buffer), system.substr(0, D_NODE_NAME_SIZE - 1));
  }
  struct Case {
    std::string forced, expected;
  };
  // Set but empty still replaces the name: the variable decides, not its
  // length. A long one is cut, and nothing is written past the size.
  for (const Case &c : {Case{"pretend.example.org", "pretend.example.org"}, Case{"", ""},
                        Case{std::string(D_NODE_NAME_SIZE + 40, 'n'), std::string(D_NODE_NAME_SIZE - 1, 'n')}}) {
    EnvGuard forced("VQ_FORCE_NODE_NAME", c.forced);
    std::memset(buffer, 'X', sizeof buffer);
    EXPECT_EQ(DutGetNodeName(buffer), buffer);
    EXPECT_EQ(std::string(buffer), c.expected);
    EXPECT_EQ(buffer[D_NODE_NAME_SIZE], 'X');
  }
  DutErrNumSet(0);
  EXPECT_EQ(DutGetNodeName(nullptr), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST(UniqueSubjectDefault, NodeAndNumber) {
  char buffer[D_UNIQUE_SUBJECT_SIZE];
  const std::string word_of_f(2 * sizeof(D_WORD), 'f');
  {
    EnvGuard forced("VQ_FORCE_NODE_NAME", "station7.plant.example");
    EnvGuard full("VQ_FORCE_SHORT_NODE_NAME", std::nullopt);
    EXPECT_EQ(DutOptionGetUniqueSubjectDefault(buffer, 4242), buffer);
    EXPECT_STREQ(buffer, "_station7.plant.example_4242");
    DutOptionGetUniqueSubjectDefault(buffer, 0);
    EXPECT_STREQ(buffer, "_station7.plant.example_0");
    EnvGuard shortened("VQ_FORCE_SHORT_NODE_NAME", "yes");
    DutOptionGetUniqueSubjectDefault(buffer, 17);
    EXPECT_STREQ(buffer, "_station7_17");
    // Negative numbers are written in hexadecimal, the full word.
    DutOptionGetUniqueSubjectDefault(buffer, -1);
    EXPECT_EQ(std::string(buffer), "_station7_" + word_of_f);
    DutOptionGetUniqueSubjectDefault(buffer, -256);
    EXPECT_EQ(std::string(buffer), "_station7_" + word_of_f.substr(2) + "00");
  }
  // The longest node name with the longest numbers fits the buffer.
  EnvGuard forced("VQ_FORCE_NODE_NAME", std::string(400, 'h'));
  const std::string longest = "_" + std::string(D_NODE_NAME_SIZE - 1, 'h') + "_";
  DutOptionGetUniqueSubjectDefault(buffer, static_cast<D_WORD>(INTPTR_MIN));
  EXPECT_EQ(std::string(buffer), longest + "8" + std::string(2 * sizeof(D_WORD) - 1, '0'));
  DutOptionGetUniqueSubjectDefault(buffer, static_cast<D_WORD>(INTPTR_MAX));
  EXPECT_EQ(std::string(buffer), longest + std::to_string(INTPTR_MAX));
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
  EnvGuard temp_for_child("VQ_STDOPTS_TEMP", (base / "file" / "sub").string());
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
  fs::remove_all(base);
}

}  // namespace
