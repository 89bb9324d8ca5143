// The command interpreter: parsing, aliases, syntax errors with usage,
// help files, feedback, history, permitted commands and the built-ins.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "support/output_capture.hpp"
#include "support/temp_dir.hpp"
#include "vqutil/command.h"
#include "vqutil/error.h"
#include "vqutil/time.h"

namespace {

// Each test gets a VQHOME of its own with a small commands help file.
class Command : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(home_ / "help" / "commands");
    vqtest::WriteFile(home_ / "help" / "commands" / "common.hlp",
                      "_debug_on \"_debug_on <n>   synopsis\" \"usage: _debug_on <n>\"\n"
                      "echo \"echo words   synopsis\" \"usage: echo words\"\n");
    setenv("VQHOME", home_.string().c_str(), 1);
    // Build the tables (and the default aliases) before feedback is on.
    DutCommandLookup("echo");
    DutCommandSetFeedbackMode(D_FEEDBACK_ALWAYS);
  }
  std::string run(const std::string &line) {
    capture_.Take();
    DutCommandParseStr(line.c_str());
    return capture_.Take();
  }
  vqtest::TempDir dir_{"vq_cmd"};
  const std::filesystem::path &home_ = dir_.path();
  vqtest::OutputCapture capture_;
};

// The transcripts show the lines, separators, syntax errors, aliases and
// the maintenance commands' texts; here what they do, and help from a help
// file of the test's own.
TEST_F(Command, MaintenanceCommandsHelpAndOwnCommands) {
  run("_debug_on 7 ; _debug_off 263");
  EXPECT_EQ(DutGetDebugFlags()[7], 1) << "a flag beyond the array changes no other";
  EXPECT_EQ(run("help echo") + run("help cd"), "usage: echo words\nno help available for cd\n");
  EXPECT_NE(run("alias").find("exit\tquit force\n"), std::string::npos) << "default aliases exist";
  EXPECT_EQ(run("alias u unalias u ; u ; u"), "Alias u installed\nUnalias command executed for alias u\n"
                                               "bad command <u> (type \"help\" for help)\n") << "removes itself";
  std::string all = run("help");
  EXPECT_EQ(all.rfind("Legal Commands Are:\n", 0), 0u);
  EXPECT_NE(all.find("echo words   synopsis\n"), std::string::npos);
  EXPECT_EQ(all.find("_debug_on <n>   synopsis"), std::string::npos) << "maintenance commands are not listed";
  // A command of the program's own, and a legacy name that maps to it.
  auto parse = [](D_LEX *) { DutOut("custom ran\n"); };
  D_COMMAND *c = DutCommandCreate("subscribe", parse);
  ASSERT_NE(c, nullptr);
  EXPECT_FAILS(DutCommandCreate("subscribe", parse), nullptr, D_ERR_ALREADY_EXISTS);
  EXPECT_EQ(DutCommandLookup("JOIN_DG"), c) << "legacy names map to the new commands";
  EXPECT_EQ(run("join_dg"), "custom ran\n");
  EXPECT_TRUE(DutCommandSetHidden(c, 1) && DutCommandDestroy(c) && DutCommandLookup("subscribe") == nullptr);
  EXPECT_FAILS(DutCommandCreate(nullptr, parse), nullptr, D_ERR_NULL_PTR);
  unsetenv("VQHOME");
  EXPECT_EQ(run("help echo"), "WARNING: Environment variable VQHOME is not set.\nWARNING: Aborting help.\n");
}

TEST_F(Command, FeedbackHistoryAndStats) {
  DutCommandSetFeedbackMode(D_FEEDBACK_INTERACTIVE);
  EXPECT_EQ(run("alias a1 echo"), "") << "a program-given line gives no feedback";
  DutCommandParseTypedStr("alias a2 echo");
  EXPECT_EQ(capture_.Take(), "Alias a2 installed\n");
  EXPECT_FAILS(DutCommandSetFeedbackMode(7), D_FALSE, D_ERR_VAL_INVALID);

  // History and stats are the process's: only a first run starts them.
  static int runs = 0;
  if (runs++ > 0) GTEST_SKIP() << "history and stats were started by an earlier run";
  DutCommandRecordString("   ");
  EXPECT_EQ(DutCommandHistoryCount(), 0) << "blank lines are not recorded";
  for (const char *line : {"one", "two", "three", "four", "five"}) DutCommandRecordString(line);
  EXPECT_EQ(run("history 2"), "   4: four\n   5: five\n");
  EXPECT_TRUE(std::string(DutCommandHistoryLine(3)) == "three" && DutCommandHistoryLine(6) == nullptr);

  // The first stats prints three lines, later ones seven.
  std::string first = run("stats");
  EXPECT_EQ(std::count(first.begin(), first.end(), '\n'), 3) << first;
  volatile double burn = 0;
  for (int i = 0; i < 20000000; ++i) burn = burn + i * 0.5;  // use some CPU time
  std::string second = run("stats");
  EXPECT_EQ(std::count(second.begin(), second.end(), '\n'), 7) << second;
  EXPECT_NE(second.find("Differences since last stats command:\n"), std::string::npos);
}

TEST_F(Command, CommandFilesAndStandardFiles) {
  const std::string file = (home_ / "script.cm").string(), missing = (home_ / "missing.cm").string();
  vqtest::WriteFile(file, "echo first\n(* a comment line *)\necho second ; echo third\n");
  capture_.Take();
  EXPECT_EQ(DutCommandParseFile(file.c_str()), D_TRUE);
  EXPECT_EQ(capture_.Take(), "first\nsecond\nthird\n");
  EXPECT_EQ(DutCommandParseFile(missing.c_str()), D_FALSE);
  EXPECT_EQ(capture_.Take(), "ERROR: Cannot open file <" + missing + "> for reading.\n");
  EXPECT_EQ(run("source " + file), "Executing source command with file " + file + "\nfirst\nsecond\nthird\n");

  // Standard files prefer the new extension, and warn when both exist.
  std::filesystem::create_directories(home_ / "standard");
  const std::string std_new = (home_ / "standard" / "mod.cm").string(), std_old = std_new + "d";
  vqtest::WriteFile(std_new, "echo new std\n");
  vqtest::WriteFile(std_old, "echo old std\n");
  vqtest::WriteFile(home_ / "local.cmd", "echo old local\n");
  unsetenv("HOME");
  errno = 0;  // the failed change reports its own error (the system's text), not an earlier one
  const std::string cd = run("cd");
  EXPECT_TRUE(cd.rfind("cd: cannot find HOME directory\n: ", 0) == 0 && cd.find("Error 0") == cd.npos) << cd;
  EXPECT_EQ(DutCommandParseStd("mod", (home_ / "local.cmd").string().c_str()), D_TRUE);
  EXPECT_EQ(capture_.Take(), "WARNING: Both old <" + std_old + "> and new <" + std_new +
                                 "> exist: please rename old one.\nnew std\nold local\n");
}

}  // namespace
