// The help file of the standard options: every option has a synopsis and a
// detailed text, helpopt lists the visible ones, and the file names no
// option that does not exist.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "support/env_var.hpp"
#include "support/output_capture.hpp"
#include "vqutil/command.h"
#include "vqutil/memory.h"
#include "vqutil/option.h"

namespace {

namespace fs = std::filesystem;
using vqtest::EnvVar;
using vqtest::Lines;
using vqtest::OutputCapture;

class OptionHelp : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(fs::exists(data_ / "help/options/common.hlp")) << data_; }
  // The data folder that ships with vqsh, as the build names it: the tests
  // pass from any build folder, inside the source tree or not.
  fs::path data_{VQUTIL_DATA_DIR};
  EnvVar home_{"VQHOME", data_.string().c_str()};
};

TEST_F(OptionHelp, EveryOptionHasSynopsisAndDetailAndHelpoptListsTheVisible) {
  D_INT4 count = 0;
  D_OPTION **options = DutOptionSort(&count);
  ASSERT_GT(count, 0);
  OutputCapture capture;
  for (D_INT4 i = 0; i < count; ++i) {
    std::string name = D_GOPT_NAME(options[i]);
    if (name.rfind("stdopts_", 0) == 0) continue;  // this program's own
    SCOPED_TRACE(name);
    DutHelpPrint("options", name.c_str(), D_HELP_SYNOPSIS);
    std::vector<std::string> synopsis = Lines(capture.Take());
    ASSERT_EQ(synopsis.size(), 1u);
    // The name, then the short text in the same column for every option.
    EXPECT_TRUE(std::regex_match(synopsis[0], std::regex(name + " +[a-zA-Z].*"))) << synopsis[0];
    DutHelpPrint("options", name.c_str(), D_HELP_DETAILED);
    std::vector<std::string> detail = Lines(capture.Take());
    ASSERT_GE(detail.size(), 2u);
    EXPECT_EQ(detail[0].rfind(name + " ", 0), 0u) << detail[0];
    for (const std::string &line : detail) EXPECT_LE(line.size(), 79u) << line;
  }
  DutFreeCheck(options, "options", __FILE__, __LINE__);
  // helpopt lists the visible ones, each with its synopsis.
  DutCommandParseStr("helpopt");
  std::string text = capture.Take();
  EXPECT_EQ(text.rfind("Legal Options Are:\n", 0), 0u) << text;
  EXPECT_NE(text.find("\nmonitor_scope "), std::string::npos);
  EXPECT_EQ(text.find("\n_socket_linger_time"), std::string::npos);
  EXPECT_EQ(text.find("no help available"), std::string::npos) << text;
}

// Each entry of the file, once, for an option that exists.
TEST_F(OptionHelp, FileNamesOnlyRealOptions) {
  std::ifstream in(data_ / "help/options/common.hlp");
  std::set<std::string> seen;
  const std::regex entry("[a-z_][a-z0-9_]*");
  for (std::string line; std::getline(in, line);) {
    if (!std::regex_match(line, entry)) continue;
    EXPECT_TRUE(seen.insert(line).second) << "twice: " << line;
    EXPECT_NE(DutOptionLookup(line.c_str()), nullptr) << "no such option: " << line;
  }
  EXPECT_GE(seen.size(), 70u);
}

}  // namespace
