// The help file of the standard options, as helpopt lists it.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/env_var.hpp"
#include "support/output_capture.hpp"
#include "vqutil/command.h"
#include "vqutil/option.h"

namespace {

namespace fs = std::filesystem;
using vqtest::EnvVar;
using vqtest::OutputCapture;

// The data folder that ships with vqsh, as the build names it: the tests
// pass from any build folder, inside the source tree or not.
fs::path DataDir() { return fs::path(VQUTIL_DATA_DIR); }

class OptionHelp : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(fs::exists(data_ / "help/options/common.hlp")) << data_; }
  fs::path data_ = DataDir();
  EnvVar home_{"VQHOME", data_.string().c_str()};
};

// Every visible option is listed with its synopsis: none lacks one.
TEST_F(OptionHelp, HelpoptListsVisibleOptionsOnly) {
  OutputCapture capture;
  DutCommandParseStr("helpopt");
  std::string text = capture.Take();
  EXPECT_EQ(text.rfind("Legal Options Are:\n", 0), 0u) << text;
  EXPECT_NE(text.find("\nmonitor_scope "), std::string::npos);
  EXPECT_EQ(text.find("\n_socket_linger_time"), std::string::npos);
  EXPECT_EQ(text.find("no help available"), std::string::npos) << text;
}

}  // namespace
