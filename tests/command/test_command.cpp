// The command interpreter: parsing, aliases, syntax errors with usage,
// help files, feedback, history, permitted commands and the built-ins.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "vqutil/command.h"
#include "vqutil/error.h"
#include "vqutil/output.h"
#include "vqutil/time.h"

namespace {

std::string &captured() {
  static std::string s;
  return s;
}

int sink(const char *format, va_list args) {
  char text[4096];
  int n = std::vsnprintf(text, sizeof text, format, args);
  captured() += text;
  return n;
}

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
    previous_ = DutGetOutputFunc();
    DutSetOutputFunc(sink);
    DutCommandSetFeedbackMode(D_FEEDBACK_ALWAYS);
    captured().clear();
  }
  void TearDown() override {
    DutSetOutputFunc(previous_);
    std::filesystem::remove_all(home_);
  }
  std::string run(const char *line) {
    captured().clear();
    DutCommandParseStr(line);
    return captured();
  }
  std::filesystem::path home_;
  D_OUTPUT_FUNC previous_ = nullptr;
};

TEST_F(Command, EchoAndSeparators) {
  EXPECT_EQ(run("echo hello   world ; echo again"), "hello world\nagain\n");
  EXPECT_EQ(run(";;echo x;"), "x\n");
  EXPECT_EQ(run(""), "");
}

TEST_F(Command, BadCommandStopsTheLine) {
  EXPECT_EQ(run("bogus 1 2 ; echo never"), "bad command <bogus> (type \"help\" for help)\n");
}

TEST_F(Command, AliasConsumesTheRestOfTheLine) {
  run("alias say echo said");
  EXPECT_EQ(run("say one ; echo two"), "said one\ntwo\n");
  // The rest of the line is parsed inside the expansion, where the alias is
  // in use: using it again on the same line is a loop.
  EXPECT_EQ(run("say 1 ; say 2"), "said 1\nAlias loop on command <say>.\n");
  run("alias ll echo");
  EXPECT_EQ(run("ll ; echo x"), "\nx\n");
}

TEST_F(Command, AliasLoopIsReportedOnce) {
  run("alias loop loop");
  EXPECT_EQ(run("loop"), "Alias loop on command <loop>.\n");
  EXPECT_EQ(run("echo fine"), "fine\n") << "the mark is cleared";
}

TEST_F(Command, AliasCommandForms) {
  EXPECT_EQ(run("alias nothere"), "alias: <nothere> not found\n");
  EXPECT_EQ(run("alias greet echo hi there"), "Alias greet installed\n");
  EXPECT_EQ(run("alias greet"), "echo hi there\n");
  std::string listing = run("alias");
  EXPECT_NE(listing.find("greet\techo hi there\n"), std::string::npos);
  EXPECT_NE(listing.find("exit\tquit force\n"), std::string::npos) << "default aliases exist";
  EXPECT_EQ(run("unalias greet"), "Unalias command executed for alias greet\n");
  EXPECT_EQ(run("unalias greet"), "No alias named <greet>.\n");
}

TEST_F(Command, SyntaxErrorPrintsTheMessageAndUsage) {
  std::string out = run("_debug_on word ; echo not reached");
  EXPECT_EQ(out,
            "ERROR: Expected: <unsigned numeric constant>,  Found: <identifier> <word>\n"
            "_debug_on: syntax error at or near \"word\"\n"
            "\nCommand Usage:\n"
            "usage: _debug_on <n>\n"
            "  sets flag n\n");
  out = run("_debug_on");
  EXPECT_NE(out.find("_debug_on: not enough arguments\n"), std::string::npos);
  EXPECT_EQ(run("echo next line works"), "next line works\n");
}

TEST_F(Command, HelpFromTheFilesAndMissingEntries) {
  EXPECT_EQ(run("help echo"), "usage: echo words\n");
  EXPECT_EQ(run("help nosuch"), "ERROR: Unknown Command <nosuch>\n");
  EXPECT_EQ(run("help cd"), "no help available for cd\n");
  std::string all = run("help");
  EXPECT_EQ(all.rfind("Legal Commands Are:\n", 0), 0u);
  EXPECT_NE(all.find("echo words   synopsis\n"), std::string::npos);
  EXPECT_EQ(all.find("_debug_on <n>   synopsis"), std::string::npos) << "maintenance commands are not listed";
  unsetenv("VQHOME");
  EXPECT_EQ(run("help echo"), "WARNING: Environment variable VQHOME is not set.\nWARNING: Aborting help.\n");
}

TEST_F(Command, FeedbackModes) {
  DutCommandSetFeedbackMode(D_FEEDBACK_NEVER);
  EXPECT_EQ(run("alias quiet echo"), "") << "confirmations are silenced";
  EXPECT_EQ(run("alias missing_alias"), "alias: <missing_alias> not found\n") << "errors are not";
  DutCommandSetFeedbackMode(D_FEEDBACK_INTERACTIVE);
  EXPECT_EQ(run("alias a1 echo"), "") << "a program-given line gives no feedback";
  captured().clear();
  DutCommandParseTypedStr("alias a2 echo");
  EXPECT_EQ(captured(), "Alias a2 installed\n");
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

TEST_F(Command, MaintenanceCommands) {
  EXPECT_EQ(run("_set_frame_count"), "Frame Count is 0\n");
  EXPECT_EQ(run("_set_frame_count 10"), "Frame count is now 10\n");
  EXPECT_EQ(run("_sigint get extra"), "Interrupt counter is 0\nERROR: Too many arguments for _sigint command.\n");
  EXPECT_EQ(run("_sigint bogus"), "ERROR: Bad argument for _sigint command.\n");
  EXPECT_EQ(run("_alarm"), "alarm is not supported by Windows\n");
  EXPECT_EQ(run("_debug_on 7"), "Debugging flag 7 turned on\n");
  EXPECT_EQ(DutGetDebugFlags()[7], 1);
  EXPECT_EQ(run("_debug_off 7"), "Debugging flag 7 turned off\n");
  EXPECT_EQ(DutGetDebugFlags()[7], 0);
  EXPECT_EQ(run("_set_time 12.5"), "Current time is now 12.5\n");
  EXPECT_EQ(DutGetCurrentTime(), 12.5);
}

TEST_F(Command, QuitWithAnUnknownWordGoesOn) {
  EXPECT_EQ(run("quit maybe"), "Don't know how to quit <maybe>\n");
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
  auto parse = [](D_LEX *lexer) { (void)lexer; DutOut("custom ran\n"); };
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
  captured().clear();
  EXPECT_EQ(DutCommandParseFile(file.c_str()), D_TRUE);
  EXPECT_EQ(captured(), "first\nsecond\nthird\n");
  captured().clear();
  EXPECT_EQ(DutCommandParseFile((home_ / "missing.cm").c_str()), D_FALSE);
  EXPECT_EQ(captured(), "ERROR: Cannot open file <" + (home_ / "missing.cm").string() + "> for reading.\n");
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
  captured().clear();
  EXPECT_EQ(DutCommandParseStd("mod", local.c_str()), D_TRUE);
  std::string expected_warning = "WARNING: Both old <" + (home_ / "standard" / "mod.cmd").string() + "> and new <" +
                                 (home_ / "standard" / "mod.cm").string() + "> exist: please rename old one.\n";
  EXPECT_EQ(captured(), expected_warning + "new std\nold local\n");
}

TEST_F(Command, LinesEndWhereTheCommandStopsReading) {
  EXPECT_EQ(run("_set_frame_count 3 extra ; echo skipped"), "Frame count is now 3\n");
}

}  // namespace
