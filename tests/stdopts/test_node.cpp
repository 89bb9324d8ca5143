// The node name, the default unique subject built from it, and the socket
// directory.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <string>

#include "stdopts_support.hpp"
#include "vqutil/error.h"
#include "vqutil/net.h"
#include "vqutil/stdopt.h"

namespace {

using stdopts::EnvGuard;
using stdopts::OutputCapture;

// The system's name unless VQ_FORCE_NODE_NAME is set (even to ""), cut to
// the buffer's size with nothing written past it.
TEST(NodeName, SystemNameUnlessForcedCutToTheBuffer) {
  char buffer[D_NODE_NAME_SIZE + 64];
  char host[512] = {};
  std::string system = ::gethostname(host, sizeof host - 1) != 0 || host[0] == '\0' ? "UNKNOWN" : host;
  const std::string longest(D_NODE_NAME_SIZE - 1, 'n');
  for (const auto &[forced, expected] : {std::pair<std::optional<std::string>, std::string>{std::nullopt, system},
                                         {"", ""},
                                         {longest + "nnnn", longest}}) {
    EnvGuard guard("VQ_FORCE_NODE_NAME", forced);
    std::memset(buffer, 'X', sizeof buffer);
    EXPECT_EQ(DutGetNodeName(buffer), buffer);
    EXPECT_EQ(std::string(buffer), expected.substr(0, D_NODE_NAME_SIZE - 1));
    EXPECT_EQ(buffer[D_NODE_NAME_SIZE], 'X');
  }
  EXPECT_FAILS(DutGetNodeName(nullptr), nullptr, D_ERR_NULL_PTR);
}

// "_<node>_<number>"; the node cut at its first '.' when asked to, negative
// numbers in hexadecimal, the full word; the longest fits the buffer.
TEST(UniqueSubjectDefault, NodeAndNumber) {
  const std::string word(2 * sizeof(D_WORD) - 1, '0');
  const std::string longest = "_" + std::string(D_NODE_NAME_SIZE - 1, 'h') + "_";
  const struct {
    std::string node;
    std::optional<std::string> shorten;
    D_WORD number;
    std::string expected;
  } cases[] = {
      {"station7.plant.example", std::nullopt, 4242, "_station7.plant.example_4242"},
      {"station7.plant.example", "yes", -256, "_station7_" + std::string(word.size() - 1, 'f') + "00"},
      {std::string(400, 'h'), std::nullopt, static_cast<D_WORD>(INTPTR_MIN), longest + "8" + word},
  };
  char buffer[D_UNIQUE_SUBJECT_SIZE];
  for (const auto &c : cases) {
    EnvGuard node("VQ_FORCE_NODE_NAME", c.node);
    EnvGuard shorten("VQ_FORCE_SHORT_NODE_NAME", c.shorten);
    EXPECT_EQ(DutOptionGetUniqueSubjectDefault(buffer, c.number), buffer);
    EXPECT_EQ(std::string(buffer), c.expected);
  }
  EXPECT_FAILS(DutOptionGetUniqueSubjectDefault(nullptr, 1), nullptr, D_ERR_NULL_PTR);
}

TEST(SocketDir, UnderTempCreatedOnceAndKept) {
  const char *dir = DutGetSocketDir();
  const char *temp = std::getenv("TEMP");  // always set once the library is loaded
  ASSERT_TRUE(dir != nullptr && temp != nullptr);
  EXPECT_EQ(std::string(dir), std::string(temp) + "/vqsuite");
  EXPECT_TRUE(std::filesystem::is_directory(dir));
  EnvGuard moved("TEMP", "/somewhere/else");
  EXPECT_EQ(DutGetSocketDir(), dir);
}

// Computed once per process: /tmp without TEMP; a TEMP that cannot be made
// (a path through a device, ENOTDIR) warns once and still answers.
TEST(SocketDir, WithoutTempOrWithAnUncreatableOne) {
  stdopts::InFreshProcess([](stdopts::ChildReport &report) {
    ::unsetenv("TEMP");
    report.Equal(std::string(DutGetSocketDir()), std::string("/tmp/vqsuite"), "socket dir without TEMP");
    report.Check(std::filesystem::is_directory("/tmp/vqsuite"), "/tmp/vqsuite not made");
  });
  stdopts::InFreshProcess([](stdopts::ChildReport &report) {
    ::setenv("TEMP", "/dev/null/sub", 1);
    OutputCapture capture;
    DutErrNumSet(0);
    report.Equal(std::string(DutGetSocketDir()), std::string("/dev/null/sub/vqsuite"), "name returned anyway");
    report.Equal(DutErrNumGet(), static_cast<D_INT4>(D_ERR_C), "error number");
    report.Equal(DutErrNumGetC(), static_cast<D_INT4>(ENOTDIR), "runtime error");
    std::string text = capture.Take();
    report.Check(text.find("WARNING: DutGetSocketDir: Cannot create directory /dev/null/sub\n") != std::string::npos &&
                     text.find("mkdir") != std::string::npos && text.find("sub/vqsuite") == std::string::npos,
                 "one warning with the mkdir report: " + text);
  });
}

}  // namespace
