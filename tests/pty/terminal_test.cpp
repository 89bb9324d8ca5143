// vqsh on a terminal: prompt, echo, end of input, history references and
// line editing. Keys are written to the master side of a pseudo-terminal;
// the terminal turns "\r" into the end of a line and echoes "\r\n". What
// does not need a terminal is in the transcripts.
#include <gtest/gtest.h>

#include "shell_session.hpp"

namespace {

using namespace vqsh_test;

TEST(TerminalShell, PromptsHistoryReferencesAndControlD) {
  Session shell;
  START_SHELL(shell, LaunchOptions{});
  EXPECT_NE(shell.output().find("Type 'help' for help.\r\n> "), std::string::npos) << shell.output();
  typeAndExpect(shell, "!!", "No history available.\r\n> ");
  typeAndExpect(shell, "echo one", "one\r\n> ");
  // An empty line is ignored: nothing but the next prompt.
  sendAtRead(shell, "\r");
  ASSERT_TRUE(shell.expect("\r\n> ")) << shell.output();
  typeAndExpect(shell, "echo two", "two\r\n> ");
  // !! repeats the newest line; !prefix finds the newest line starting
  // with the prefix, ignoring case. The history holds the lines as run,
  // not the references; failed references are not recorded.
  typeAndExpect(shell, "!!", "two\r\n> ");
  typeAndExpect(shell, "!ECHO O", "one\r\n> ");
  typeAndExpect(shell, "!zzz", "No history matching <!zzz> available.\r\n> ");
  typeAndExpect(shell, "history", "   1: echo one\r\n   2: echo two\r\n   3: echo two\r\n   4: echo one\r\n"
                                  "   5: history\r\n> ");
  // The prompt follows the option; without a value the default comes back.
  typeLine(shell, "setopt prompt \"vq$ \"");
  ASSERT_EQ(shell.expectAny({"vq$ ", "unknown option"}), 0) << shell.output();
  typeAndExpect(shell, "echo custom", "custom\r\nvq$ ");
  typeLine(shell, "unsetopt prompt");
  typeAndExpect(shell, "echo plain", "plain\r\n> ");
  // Control-D on an empty line is the end of input: the loop ends and the
  // shell exits normally, leaving the cursor on a fresh line.
  endWithControlD(shell);
  EXPECT_EQ(shell.output().back(), '\n') << shell.output();
  EXPECT_EQ(shell.rest().find("> "), std::string::npos) << "prompted again after end of input";
}

TEST(TerminalShell, ArrowKeysEditAndRecallLines) {
  Session shell;
  START_SHELL(shell, LaunchOptions{});
  typeAndExpect(shell, "echo abc", "abc\r\n> ");
  // Up arrow: the previous line comes back. A terminal without line
  // editing would echo the escape sequence instead.
  sendAtRead(shell, "\x1b[A");
  const int seen = shell.expectAny({"echo abc", "^[[A"});
  if (seen == 1) GTEST_SKIP() << "vqsh was built without line editing";
  ASSERT_EQ(seen, 0) << shell.output();
  // Keys and the screen they end with: the recalled line runs again; left
  // arrow twice, then an insertion in the middle of the line; the edited
  // line lands in the library's history as run, so !! repeats it.
  const std::pair<const char *, const char *> steps[] = {
      {"\r", "abc\r\n> "}, {"echo xyz\x1b[D\x1b[DQ\r", "xQyz\r\n> "}, {"!!\r", "xQyz\r\n> "}};
  for (const auto &[keys, screen] : steps) {
    sendAtRead(shell, keys);
    ASSERT_TRUE(shell.expect(screen)) << keys << shell.output();
  }
  endWithControlD(shell);
}

}  // namespace
