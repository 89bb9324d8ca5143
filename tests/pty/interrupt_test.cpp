// The interrupt key on vqsh's terminal: each press adds one to the
// interrupt counter, the main loop clears the counter when the key breaks a
// read at the prompt, and a press that takes the uncleared counter past the
// limit (5, or VQ_INTERRUPT_MAX) ends the process with abort().
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>

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
  ASSERT_TRUE(WIFSIGNALED(status)) << "wait status " << status << "; output: " << shell.output();
  EXPECT_EQ(WTERMSIG(status), SIGABRT) << shell.output();
}

// The key at the prompt drops the line and brings a new prompt.
void pressAtPrompt(Session &shell) {
  sendAtRead(shell, kInterruptKey);
  ASSERT_TRUE(shell.expect("\r\n> ")) << shell.output();
}

LaunchOptions withLimit(const char *limit, bool group_witness = false) {
  LaunchOptions options;
  if (limit != nullptr) options.env.emplace_back("VQ_INTERRUPT_MAX", limit);
  options.group_witness = group_witness;
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
  // Counter 2 and one more press: past the limit.
  typeLine(shell, "_sigint incr");
  typeLine(shell, "_sigint incr");
  expectCounter(shell, 2);
  sendAtRead(shell, kInterruptKey);
  expectAborted(shell);
}

// More presses than the default limit at the prompt, each answered by a new
// prompt, never end the shell; another process of the shell's foreground
// group sees the key from the terminal only: the shell does not pass it on
// to its group.
TEST(InterruptKey, ManyPressesAtThePromptReachTheGroupOnlyFromTheTerminal) {
  Session shell;
  START_SHELL(shell, withLimit(nullptr, true));
  for (int i = 0; i < 8 && !HasFatalFailure(); ++i) pressAtPrompt(shell);
  typeAndExpect(shell, "echo alive", "alive\r\n> ");
  expectCounter(shell, 0);
  endWithControlD(shell);
  EXPECT_GE(shell.witness().first, 1) << "from the terminal";
  EXPECT_EQ(shell.witness().second, 0) << "the shell re-sent the interrupt to its process group";
}

// The key at the yes-or-no question of quit answers "no" without passing
// through the main loop's read, so the counter is not cleared: the sixth
// such press ends the process. With a limit of 0 the first press does.
TEST(InterruptKey, SixthUnclearedPressOrTheFirstPastALimitOfZeroAborts) {
  Session shell;
  START_SHELL(shell, withLimit(nullptr));
  for (int press = 1; press <= 5 && !HasFatalFailure(); ++press) {
    typeAndExpect(shell, "quit", "Really quit? ");
    sendAtRead(shell, kInterruptKey);
    ASSERT_TRUE(shell.expect("> ")) << "press " << press << ": " << shell.output();
    ASSERT_TRUE(shell.running()) << "ended at press " << press;
  }
  expectCounter(shell, 5);
  typeAndExpect(shell, "quit", "Really quit? ");
  sendAtRead(shell, kInterruptKey);
  expectAborted(shell);
  Session zero;
  START_SHELL(zero, withLimit("0"));
  ASSERT_NE(zero.output().find("utInterruptMax = 0\r\n"), std::string::npos) << zero.output();
  sendAtRead(zero, kInterruptKey);
  expectAborted(zero);
}

// Presses the key while the shell sleeps inside a command. By then the
// line reader must have handed the terminal back in its normal mode, in
// which the key raises SIGINT and is echoed as "^C"; a reader that left
// line editing on would have the key neither echoed nor (without ISIG)
// signalled. Unless `last`, the key must not end the shell: once the
// handler has taken it, the next press cannot merge with it, and the sleep
// goes on.
void pressWhileSleeping(Session &shell, int press, bool last = false) {
  ASSERT_TRUE(shell.waitUntil(Blocked::Sleeping)) << "press " << press << ": not sleeping; got: " << shell.output();
  ASSERT_TRUE(shell.terminalNormal())
      << "press " << press << ": the terminal is still in line-editing mode while a command runs " << shell.error();
  shell.send(kInterruptKey);
  if (last) return;
  ASSERT_TRUE(shell.expect("^C")) << "press " << press << ": " << shell.output();
  ASSERT_TRUE(shell.waitUntil(Blocked::InterruptTaken)) << "press " << press << ": " << shell.output();
  ASSERT_TRUE(shell.waitUntil(Blocked::Sleeping)) << "press " << press << ": the sleep stopped: " << shell.output();
}

// _sleep is not a read: the presses during it are not cleared, and the
// sleep goes on after each (they take milliseconds of the two seconds).
// The key then breaks the next read at the prompt: the counter (3, at the
// limit) is cleared.
TEST(InterruptKey, PressesDuringACommandAccumulate) {
  Session shell;
  START_SHELL(shell, withLimit("3"));
  typeLine(shell, "_sleep 2");
  for (int press = 1; press <= 2 && !HasFatalFailure(); ++press) pressWhileSleeping(shell, press);
  ASSERT_TRUE(shell.expect("> ")) << shell.output();
  expectCounter(shell, 2);
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
  for (int press = 1; press <= 3 && !HasFatalFailure(); ++press) pressWhileSleeping(shell, press, press == 3);
  if (HasFatalFailure()) return;
  expectAborted(shell);
  EXPECT_EQ(shell.rest().find("> "), std::string::npos) << "the command returned to the prompt: " << shell.output();
}

}  // namespace
