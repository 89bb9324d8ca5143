// The interrupt key on vqsh's terminal: each press adds one to the
// interrupt counter, the main loop clears the counter when the key breaks a
// read at the prompt, and a press that takes the uncleared counter past the
// limit (5, or VQ_INTERRUPT_MAX) ends the process with abort().
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>

#include <optional>
#include <string>

#include "shell_session.hpp"

namespace {

using namespace vqsh_test;

constexpr char kInterruptKey[] = "\x03";

void expectCounter(Session &shell, int value) {
  typeAndExpect(shell, "_sigint get", "Interrupt counter is " + std::to_string(value) + "\r\n> ");
}

void expectAborted(Session &shell) {
  int status = shell.waitExit();
  ASSERT_TRUE(WIFSIGNALED(status)) << describeStatus(status) << "; output: " << shell.output();
  EXPECT_EQ(WTERMSIG(status), SIGABRT) << shell.output();
}

// The key at the prompt drops the line and brings a new prompt.
void pressAtPrompt(Session &shell) {
  sendAtRead(shell, kInterruptKey);
  ASSERT_TRUE(shell.expect("\r\n> ")) << shell.output();
}

LaunchOptions withLimit(const char *limit) {
  LaunchOptions options;
  options.env.emplace_back("VQ_INTERRUPT_MAX", limit);
  return options;
}

TEST(InterruptKey, AtThePromptCountsOnceAndTheLoopClearsIt) {
  Session shell;
  START_SHELL(shell, withLimit("2"));
  ASSERT_NE(shell.output().find("utInterruptMax = 2\r\n"), std::string::npos) << shell.output();

  // Counter 1, then the key makes it 2: at the limit, not past it. Had the
  // key been counted twice the shell would abort here.
  typeAndExpect(shell, "_sigint incr", "Incrementing interrupt counter.\r\n> ");
  pressAtPrompt(shell);
  ASSERT_TRUE(shell.running()) << shell.output();
  expectCounter(shell, 0);

  // A half-typed line is dropped by the key; the next line is clean.
  sendAtRead(shell, "echo partial");
  ASSERT_TRUE(shell.expect("echo partial"));
  pressAtPrompt(shell);
  typeAndExpect(shell, "echo whole", "whole\r\n> ");
  expectCounter(shell, 0);

  // Counter 2 and one more press: past the limit.
  typeLine(shell, "_sigint incr");
  typeLine(shell, "_sigint incr");
  expectCounter(shell, 2);
  sendAtRead(shell, kInterruptKey);
  expectAborted(shell);
}

TEST(InterruptKey, ManyPressesAtThePromptNeverEndTheShell) {
  Session shell;
  START_SHELL(shell, LaunchOptions{});
  // More presses than the default limit, each answered by a new prompt.
  for (int i = 0; i < 8 && !HasFatalFailure(); ++i) pressAtPrompt(shell);
  typeAndExpect(shell, "echo alive", "alive\r\n> ");
  expectCounter(shell, 0);
  endWithControlD(shell);
}

// The key at the yes-or-no question of quit answers "no" without passing
// through the main loop's read, so the counter is not cleared: the sixth
// such press ends the process.
TEST(InterruptKey, SixthUnclearedPressAborts) {
  Session shell;
  START_SHELL(shell, LaunchOptions{});
  for (int press = 1; press <= 5; ++press) {
    typeAndExpect(shell, "quit", "Really quit? ");
    sendAtRead(shell, kInterruptKey);
    ASSERT_TRUE(shell.expect("> ")) << "press " << press << ": " << shell.output();
    ASSERT_TRUE(shell.running()) << "ended at press " << press;
  }
  expectCounter(shell, 5);
  typeAndExpect(shell, "quit", "Really quit? ");
  sendAtRead(shell, kInterruptKey);
  expectAborted(shell);
}

TEST(InterruptKey, ALimitOfZeroEndsAtTheFirstPress) {
  Session shell;
  START_SHELL(shell, withLimit("0"));
  ASSERT_NE(shell.output().find("utInterruptMax = 0\r\n"), std::string::npos) << shell.output();
  sendAtRead(shell, kInterruptKey);
  expectAborted(shell);
}

// Presses the key while the shell sleeps inside a command. By then the
// line reader must have handed the terminal back in its normal mode, in
// which the key raises SIGINT and is echoed as "^C"; a reader that left
// line editing on would have the key neither echoed nor (without ISIG)
// signalled. The caller waits for the echo.
void pressWhileSleeping(Session &shell, int press) {
  ASSERT_TRUE(shell.waitUntilSleeping()) << "press " << press << ": not sleeping; got: " << shell.output();
  std::optional<TerminalMode> mode = shell.terminalMode();
  ASSERT_TRUE(mode.has_value()) << shell.error();
  ASSERT_TRUE(mode->signals) << "press " << press << ": ISIG is off while a command runs";
  ASSERT_TRUE(mode->echo && mode->canonical)
      << "press " << press << ": the terminal is still in line-editing mode while a command runs";
  shell.send(kInterruptKey);
}

// Presses a key that must not end the shell: the terminal echoes it as it
// raises the signal; once the handler has taken it, the next press cannot
// merge with it, and the sleep has gone on.
void pressAndResume(Session &shell, int press) {
  pressWhileSleeping(shell, press);
  if (::testing::Test::HasFatalFailure()) return;
  ASSERT_TRUE(shell.expect("^C")) << "press " << press << ": " << shell.output();
  ASSERT_TRUE(shell.waitUntilInterruptTaken()) << "press " << press << ": " << shell.output();
  ASSERT_TRUE(shell.waitUntilSleeping()) << "press " << press << ": the sleep did not go on; got: " << shell.output();
}

// _sleep is not a read: the presses during it are not cleared, and the
// sleep goes on after each. The presses take milliseconds of the two
// seconds.
TEST(InterruptKey, PressesDuringACommandAccumulate) {
  Session shell;
  START_SHELL(shell, withLimit("3"));
  typeLine(shell, "_sleep 2");
  for (int press = 1; press <= 2; ++press) {
    pressAndResume(shell, press);
    if (HasFatalFailure()) return;
  }
  ASSERT_TRUE(shell.expect("> ")) << shell.output();
  expectCounter(shell, 2);
  // The key breaks the next read at the prompt: the counter (3, at the
  // limit) is cleared.
  pressAtPrompt(shell);
  expectCounter(shell, 0);
  endWithControlD(shell);
}

// The same within one long command, with no time window to meet: the
// press past the limit ends the process in the middle of the sleep. Had a
// press been lost, cleared or merged, the shell would still be sleeping.
TEST(InterruptKey, PressPastTheLimitDuringACommandAborts) {
  Session shell;
  START_SHELL(shell, withLimit("2"));
  typeLine(shell, "_sleep 600");
  for (int press = 1; press <= 2; ++press) {
    pressAndResume(shell, press);
    if (HasFatalFailure()) return;
  }
  ASSERT_TRUE(shell.running()) << "ended at the limit, not past it: " << shell.output();
  pressWhileSleeping(shell, 3);
  if (HasFatalFailure()) return;
  expectAborted(shell);
  EXPECT_EQ(shell.rest().find("> "), std::string::npos) << "the command returned to the prompt: " << shell.output();
}

// Another process of the shell's foreground group sees the key once, from
// the terminal: the shell does not pass it on to its group.
TEST(InterruptKey, ReachesTheProcessGroupOnlyFromTheTerminal) {
  Session shell;
  LaunchOptions options;
  options.group_witness = true;
  START_SHELL(shell, options);
  for (int press = 1; press <= 3 && !HasFatalFailure(); ++press) pressAtPrompt(shell);
  typeAndExpect(shell, "echo done", "done\r\n> ");
  endWithControlD(shell);
  EXPECT_GE(shell.witness().from_terminal, 1);
  EXPECT_EQ(shell.witness().from_process, 0) << "the shell re-sent the interrupt to its process group";
}

}  // namespace
