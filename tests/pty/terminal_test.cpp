// vqsh on a terminal: prompt, echo, end of input, history references and
// line editing. Keys are written to the master side of a pseudo-terminal;
// the terminal turns "\r" into the end of a line and echoes "\r\n".
#include <gtest/gtest.h>

#include <sys/wait.h>

#include "shell_session.hpp"

namespace {

using vqsh_test::describeStatus;
using vqsh_test::LaunchOptions;
using vqsh_test::Session;

#define START_SHELL(session, options)                                        \
  do {                                                                       \
    if (vqsh_test::vqshPath().empty()) GTEST_SKIP() << "vqsh is not built"; \
    ASSERT_TRUE((session).start(options)) << (session).error();              \
  } while (0)

constexpr const char *kBanner = "Type 'help' for help.\r\n";

// Sends keys once the shell waits for input.
void sendAtRead(Session &shell, const std::string &keys) {
  ASSERT_TRUE(shell.waitUntilReading()) << "not reading; got: " << shell.output();
  shell.send(keys);
}

// Types a line once the shell waits for one, and waits for its echo.
void typeLine(Session &shell, const std::string &line) {
  ASSERT_TRUE(shell.waitUntilReading()) << "not reading; got: " << shell.output();
  shell.send(line + "\r");
  ASSERT_TRUE(shell.expect(line + "\r\n")) << "no echo of <" << line << ">; got: " << shell.rest();
}

void expectExitStatus(Session &shell, int code) {
  int status = shell.waitExit();
  ASSERT_TRUE(WIFEXITED(status)) << describeStatus(status) << "; output: " << shell.output();
  EXPECT_EQ(WEXITSTATUS(status), code) << shell.output();
}

TEST(TerminalShell, PromptsRunsTypedLinesAndEndsAtControlD) {
  Session shell;
  START_SHELL(shell, LaunchOptions{});
  ASSERT_TRUE(shell.expect(kBanner)) << shell.output();
  ASSERT_TRUE(shell.expect("> ")) << shell.output();

  typeLine(shell, "echo hello world");
  ASSERT_TRUE(shell.expect("hello world\r\n> ")) << shell.output();

  // An empty line is ignored: nothing but the next prompt.
  sendAtRead(shell, "\r");
  ASSERT_TRUE(shell.expect("\r\n> ")) << shell.output();
  typeLine(shell, "history");
  ASSERT_TRUE(shell.expect("   1: echo hello world\r\n   2: history\r\n> ")) << shell.output();

  // Control-D on an empty line is the end of input: the loop ends and the
  // shell exits normally, leaving the cursor on a fresh line.
  sendAtRead(shell, "\x04");
  expectExitStatus(shell, 0);
  EXPECT_EQ(shell.output().back(), '\n') << shell.output();
  EXPECT_EQ(shell.rest().find("> "), std::string::npos) << "prompted again after end of input";
}

TEST(TerminalShell, PromptFollowsThePromptOption) {
  Session shell;
  START_SHELL(shell, LaunchOptions{});
  ASSERT_TRUE(shell.expect("> ")) << shell.output();
  typeLine(shell, "setopt prompt \"vq$ \"");
  int seen = shell.expectAny({"vq$ ", "unknown option"});
  if (seen == 1) GTEST_SKIP() << "the option prompt is not defined in this build";
  ASSERT_EQ(seen, 0) << shell.output();

  typeLine(shell, "echo custom");
  ASSERT_TRUE(shell.expect("custom\r\nvq$ ")) << shell.output();

  // Without a value the default comes back.
  typeLine(shell, "unsetopt prompt");
  typeLine(shell, "echo plain");
  ASSERT_TRUE(shell.expect("plain\r\n> ")) << shell.output();
  sendAtRead(shell, "\x04");
  expectExitStatus(shell, 0);
}

TEST(TerminalShell, HistoryReferencesWithLineEditing) {
  Session shell;
  START_SHELL(shell, LaunchOptions{});
  ASSERT_TRUE(shell.expect("> ")) << shell.output();

  typeLine(shell, "!!");
  ASSERT_TRUE(shell.expect("No history available.\r\n> ")) << shell.output();

  typeLine(shell, "echo one");
  ASSERT_TRUE(shell.expect("one\r\n> "));
  typeLine(shell, "echo two");
  ASSERT_TRUE(shell.expect("two\r\n> "));

  // !! repeats the newest line; !prefix finds the newest line starting
  // with the prefix, ignoring case.
  typeLine(shell, "!!");
  ASSERT_TRUE(shell.expect("two\r\n> ")) << shell.output();
  typeLine(shell, "!ECHO O");
  ASSERT_TRUE(shell.expect("one\r\n> ")) << shell.output();
  typeLine(shell, "!zzz");
  ASSERT_TRUE(shell.expect("No history matching <!zzz> available.\r\n> ")) << shell.output();

  // The history holds the lines as run, not the references; failed
  // references are not recorded.
  typeLine(shell, "history");
  ASSERT_TRUE(shell.expect("   1: echo one\r\n"
                           "   2: echo two\r\n"
                           "   3: echo two\r\n"
                           "   4: echo one\r\n"
                           "   5: history\r\n> "))
      << shell.output();
  sendAtRead(shell, "\x04");
  expectExitStatus(shell, 0);
}

TEST(TerminalShell, ArrowKeysEditAndRecallLines) {
  Session shell;
  START_SHELL(shell, LaunchOptions{});
  ASSERT_TRUE(shell.expect("> ")) << shell.output();
  typeLine(shell, "echo abc");
  ASSERT_TRUE(shell.expect("abc\r\n> "));

  // Up arrow: the previous line comes back and runs again. A terminal
  // without line editing would echo the escape sequence instead.
  sendAtRead(shell, "\x1b[A");
  int seen = shell.expectAny({"echo abc", "^[[A"});
  if (seen == 1) GTEST_SKIP() << "vqsh was built without line editing";
  ASSERT_EQ(seen, 0) << shell.output();
  sendAtRead(shell, "\r");
  ASSERT_TRUE(shell.expect("abc\r\n> ")) << shell.output();

  // Left arrow twice, then an insertion in the middle of the line.
  sendAtRead(shell, "echo xyz\x1b[D\x1b[DQ\r");
  ASSERT_TRUE(shell.expect("xQyz\r\n> ")) << shell.output();

  // Recalled and edited lines land in the library's history as run, so !!
  // and history see them.
  typeLine(shell, "!!");
  ASSERT_TRUE(shell.expect("xQyz\r\n> ")) << shell.output();
  typeLine(shell, "history");
  ASSERT_TRUE(shell.expect("   1: echo abc\r\n"
                           "   2: echo abc\r\n"
                           "   3: echo xQyz\r\n"
                           "   4: echo xQyz\r\n"
                           "   5: history\r\n> "))
      << shell.output();
  sendAtRead(shell, "\x04");
  expectExitStatus(shell, 0);
}

TEST(TerminalShell, QuitAsksAndHonoursTheAnswer) {
  Session shell;
  START_SHELL(shell, LaunchOptions{});
  ASSERT_TRUE(shell.expect("> ")) << shell.output();
  typeLine(shell, "quit");
  ASSERT_TRUE(shell.expect("Really quit? ")) << shell.output();
  typeLine(shell, "maybe");
  ASSERT_TRUE(shell.expect("Please enter yes or no.\r\nReally quit? ")) << shell.output();
  typeLine(shell, "n");
  ASSERT_TRUE(shell.expect("> ")) << shell.output();
  EXPECT_TRUE(shell.running());

  typeLine(shell, "quit");
  ASSERT_TRUE(shell.expect("Really quit? ")) << shell.output();
  typeLine(shell, "y");
  ASSERT_TRUE(shell.expect("This process is now exiting.\r\n")) << shell.output();
  expectExitStatus(shell, 0);
}

TEST(PipedShell, NoPromptWithoutATerminal) {
  Session shell;
  LaunchOptions options;
  options.terminal = false;
  options.input = "echo first\n\necho second\n";
  START_SHELL(shell, options);
  expectExitStatus(shell, 0);
  EXPECT_EQ(shell.output(), "Type 'help' for help.\nfirst\nsecond\n");
}

TEST(PipedShell, LastLineWithoutNewlineStillRuns) {
  Session shell;
  LaunchOptions options;
  options.terminal = false;
  options.input = "echo a\necho b";
  START_SHELL(shell, options);
  expectExitStatus(shell, 0);
  EXPECT_EQ(shell.output(), "Type 'help' for help.\na\nb\n");
}

}  // namespace
