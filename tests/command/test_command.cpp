// The command interpreter: parsing, aliases, syntax errors with usage,
// help files, feedback, history, permitted commands and the built-ins.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "support/output_capture.hpp"
#include "vqutil/command.h"
#include "vqutil/error.h"
#include "vqutil/time.h"

namespace {

struct Exchange {
  const char *line;
  std::string output;
};

// Each test gets a VQHOME of its own with a small commands help file.
class Command : public ::testing::Test {
 protected:
  void SetUp() override {
    home_ = std::filesystem::temp_directory_path() /
            ("vq_cmd_" + std::to_string(::getpid()) + "_" +
             ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(home_ / "help" / "commands");
    std::ofstream(home_ / "help" / "commands" / "common.hlp")
        << "_debug_on \"_debug_on <n>   synopsis\" \"usage: _debug_on <n>\" \"  sets flag n\"\n"
           "echo \"echo words   synopsis\" \"usage: echo words\"\n";
    setenv("VQHOME", home_.c_str(), 1);
    // Build the tables (and the default aliases) before feedback is on.
    DutCommandLookup("echo");
    capture_ = std::make_unique<vqtest::OutputCapture>();
    DutCommandSetFeedbackMode(D_FEEDBACK_ALWAYS);
  }
  void TearDown() override {
    capture_.reset();
    std::filesystem::remove_all(home_);
  }
  std::string run(const char *line) {
    capture_->Take();
    DutCommandParseStr(line);
    return capture_->Take();
  }
  // Runs the lines in order, each expected to print exactly its output.
  void converse(std::initializer_list<Exchange> exchanges) {
    for (const Exchange &e : exchanges) EXPECT_EQ(run(e.line), e.output) << "line: " << e.line;
  }
  std::filesystem::path home_;
  std::unique_ptr<vqtest::OutputCapture> capture_;
};

// What the interactive transcripts already show (plain echo, alias greet,
// quit maybe, the first frame counts) is not repeated here.
TEST_F(Command, LinesSeparatorsErrorsAndMaintenanceCommands) {
  converse({
      {";;echo x;", "x\n"},
      {"", ""},
      {"bogus 1 2 ; echo never", "bad command <bogus> (type \"help\" for help)\n"},
      {"_debug_on word ; echo not reached",
       "ERROR: Expected: <unsigned numeric constant>,  Found: <identifier> <word>\n"
       "_debug_on: syntax error at or near \"word\"\n"
       "\nCommand Usage:\n"
       "usage: _debug_on <n>\n"
       "  sets flag n\n"},
      // The line ends where the command stops reading.
      {"_set_frame_count 3 extra ; echo skipped", "Frame count is now 3\n"},
      {"_sigint get extra", "Interrupt counter is 0\nERROR: Too many arguments for _sigint command.\n"},
      {"_sigint bogus", "ERROR: Bad argument for _sigint command.\n"},
      {"_alarm", "alarm is not supported by Windows\n"},
      {"_debug_on 7", "Debugging flag 7 turned on\n"},
  });
  EXPECT_EQ(DutGetDebugFlags()[7], 1);
  converse({{"_debug_off 7", "Debugging flag 7 turned off\n"}, {"_set_time 12.5", "Current time is now 12.5\n"}});
  EXPECT_EQ(DutGetDebugFlags()[7], 0);
  EXPECT_EQ(DutGetCurrentTime(), 12.5);
  EXPECT_NE(run("_debug_on").find("_debug_on: not enough arguments\n"), std::string::npos);
}

TEST_F(Command, Aliases) {
  converse({
      {"alias say echo said", "Alias say installed\n"},
      {"say one ; echo two", "said one\ntwo\n"},
      // The rest of the line is parsed inside the expansion, where the
      // alias is in use: using it again on the same line is a loop.
      {"say 1 ; say 2", "said 1\nAlias loop on command <say>.\n"},
      {"alias ll echo", "Alias ll installed\n"},
      {"ll ; echo x", "\nx\n"},
      {"alias loop loop", "Alias loop installed\n"},
      {"loop", "Alias loop on command <loop>.\n"},
      {"echo fine", "fine\n"},  // the mark is cleared
  });
  std::string listing = run("alias");
  EXPECT_NE(listing.find("say\techo said\n"), std::string::npos);
  EXPECT_NE(listing.find("exit\tquit force\n"), std::string::npos) << "default aliases exist";
}

TEST_F(Command, HelpFromTheFilesAndMissingEntries) {
  converse({{"help echo", "usage: echo words\n"},
            {"help nosuch", "ERROR: Unknown Command <nosuch>\n"},
            {"help cd", "no help available for cd\n"}});
  std::string all = run("help");
  EXPECT_EQ(all.rfind("Legal Commands Are:\n", 0), 0u);
  EXPECT_NE(all.find("echo words   synopsis\n"), std::string::npos);
  EXPECT_EQ(all.find("_debug_on <n>   synopsis"), std::string::npos) << "maintenance commands are not listed";
  unsetenv("VQHOME");
  EXPECT_EQ(run("help echo"), "WARNING: Environment variable VQHOME is not set.\nWARNING: Aborting help.\n");
}

TEST_F(Command, FeedbackModes) {
  DutCommandSetFeedbackMode(D_FEEDBACK_INTERACTIVE);
  EXPECT_EQ(run("alias a1 echo"), "") << "a program-given line gives no feedback";
  DutCommandParseTypedStr("alias a2 echo");
  EXPECT_EQ(capture_->Take(), "Alias a2 installed\n");
  EXPECT_EQ(DutCommandSetFeedbackMode(7), D_FALSE);
  EXPECT_EQ(DutErrNumGet(), D_ERR_VAL_INVALID);
}

TEST_F(Command, HistoryRecordingAndListing) {
  DutCommandRecordString("   ");
  EXPECT_EQ(DutCommandHistoryCount(), 0) << "blank lines are not recorded";
  for (const char *line : {"one", "two", "three", "four", "five"}) DutCommandRecordString(line);
  EXPECT_EQ(run("history 2"), "   4: four\n   5: five\n");
  EXPECT_EQ(run("history 9").substr(0, 10), "   1: one\n");
  EXPECT_STREQ(DutCommandHistoryLine(3), "three");
  EXPECT_EQ(DutCommandHistoryLine(6), nullptr);
}

TEST_F(Command, StatsFirstRunPrintsThreeLinesLaterSeven) {
  std::string first = run("stats");
  EXPECT_EQ(std::count(first.begin(), first.end(), '\n'), 3) << first;
  volatile double burn = 0;
  for (int i = 0; i < 20000000; ++i) burn = burn + i * 0.5;  // use some CPU time
  std::string second = run("stats");
  EXPECT_EQ(std::count(second.begin(), second.end(), '\n'), 7) << second;
  EXPECT_NE(second.find("Differences since last stats command:\n"), std::string::npos);
}

TEST_F(Command, CreateLookupDestroy) {
  auto parse = [](D_LEX *) { DutOut("custom ran\n"); };
  D_COMMAND *c = DutCommandCreate("subscribe", parse);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(DutCommandCreate("subscribe", parse), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_ALREADY_EXISTS);
  EXPECT_EQ(DutCommandLookup("JOIN_DG"), c) << "legacy names map to the new commands";
  EXPECT_EQ(run("join_dg"), "custom ran\n");
  EXPECT_EQ(DutCommandSetHidden(c, 1), D_TRUE);
  EXPECT_EQ(DutCommandDestroy(c), D_TRUE);
  EXPECT_EQ(DutCommandLookup("subscribe"), nullptr);
  EXPECT_EQ(DutCommandCreate(nullptr, parse), nullptr);
  EXPECT_EQ(DutErrNumGet(), D_ERR_NULL_PTR);
}

TEST_F(Command, CommandFilesRunEveryLine) {
  std::filesystem::path file = home_ / "script.cm";
  std::ofstream(file) << "echo first\n(* a comment line *)\necho second ; echo third\n";
  capture_->Take();
  EXPECT_EQ(DutCommandParseFile(file.c_str()), D_TRUE);
  EXPECT_EQ(capture_->Take(), "first\nsecond\nthird\n");
  EXPECT_EQ(DutCommandParseFile((home_ / "missing.cm").c_str()), D_FALSE);
  EXPECT_EQ(capture_->Take(), "ERROR: Cannot open file <" + (home_ / "missing.cm").string() + "> for reading.\n");
  EXPECT_EQ(run(("source " + file.string()).c_str()),
            "Executing source command with file " + file.string() + "\nfirst\nsecond\nthird\n");
}

TEST_F(Command, StandardFilesPreferTheNewExtension) {
  std::filesystem::create_directories(home_ / "standard");
  std::ofstream(home_ / "standard" / "mod.cm") << "echo new std\n";
  std::ofstream(home_ / "standard" / "mod.cmd") << "echo old std\n";
  std::filesystem::path local = home_ / "local.cmd";
  std::ofstream(local) << "echo old local\n";
  unsetenv("HOME");
  capture_->Take();
  EXPECT_EQ(DutCommandParseStd("mod", local.c_str()), D_TRUE);
  EXPECT_EQ(capture_->Take(), "WARNING: Both old <" + (home_ / "standard" / "mod.cmd").string() + "> and new <" +
                                  (home_ / "standard" / "mod.cm").string() +
                                  "> exist: please rename old one.\nnew std\nold local\n");
}

}  // namespace
