// Runs the built vqsh as a child process on the slave side of a
// pseudo-terminal (so that it sees a terminal, line editing and the
// interrupt key), and lets a test type at it and read what it prints.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/temp_dir.hpp"

namespace vqsh_test {

// The vqsh of this build tree ("../tools/vqsh" beside the test program), or
// empty when it is not built.
std::string vqshPath();

struct LaunchOptions {
  std::vector<std::pair<std::string, std::string>> env;  // added or replaced
  // Run the shell under a process of the same process group that counts
  // the SIGINTs it receives: from the terminal, and sent with kill() by
  // some process.
  bool group_witness = false;
};

// What the shell is waiting in: a read of standard input, a sleep, or
// nothing but the delivery of the last SIGINT is past (so that the next
// cannot merge with it).
enum class Blocked { Reading, Sleeping, InterruptTaken };

class Session {
 public:
  Session() = default;
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;
  ~Session();

  // Starts "vqsh -q" in a fresh temporary directory that is also its HOME;
  // false with a message in error() when that fails.
  bool start(const LaunchOptions &options);
  // Writes keys as typed on the terminal.
  void send(std::string_view keys);
  // Reads until text appears after the point the previous expect stopped
  // at, and moves that point past it; false when the shell ends or the
  // time-out passes first.
  bool expect(std::string_view text) { return expectAny({text}) == 0; }
  // The index of the first of the texts to appear, or -1.
  int expectAny(const std::vector<std::string_view> &texts);
  // Reads until the shell ends and returns its wait status (through the
  // witness, if any); kills it after the time-out and returns -1.
  int waitExit();
  // The prompt is printed before the read starts (and before line editing
  // switches the terminal's mode): a key sent earlier may be flushed, or
  // reach the shell outside the read. This waits until the shell is in the
  // state.
  bool waitUntil(Blocked state);
  // Whether the shell's terminal is in its normal mode now: signals, echo
  // and canonical input on.
  bool terminalNormal();
  bool running();

  const std::string &output() const { return output_; }
  std::string rest() const { return output_.substr(mark_); }  // after the expect point
  const std::string &error() const { return error_; }
  // The SIGINTs the group witness received from the terminal and from kill().
  std::pair<int, int> witness() const;

 private:
  bool readSome(int timeout_ms);  // false at the end of the output
  bool waitFor(const std::function<bool()> &condition);
  pid_t shellPid();

  pid_t pid_ = -1;  // the shell, or the witness that runs it
  pid_t shell_pid_ = -1;
  int master_ = -1;  // pseudo-terminal master
  bool witness_ = false, ended_ = false, reaped_ = false;
  int status_ = 0;
  std::string output_, error_;
  vqtest::TempDir work_dir_{"vqsh-pty"};
  std::size_t mark_ = 0;
};

// Sends keys once the shell waits for input.
void sendAtRead(Session &shell, const std::string &keys);
// Types a line once the shell waits for one, and waits for its echo.
void typeLine(Session &shell, const std::string &line);
// Types a line and waits for the reply that follows its echo.
void typeAndExpect(Session &shell, const std::string &line, const std::string &reply);
// Waits for the shell to exit with the code.
void expectExitCode(Session &shell, int code);
// Ends the input with control-D on an empty line: the shell exits with 0.
void endWithControlD(Session &shell);

}  // namespace vqsh_test

// Starts the shell on a terminal and waits for its first prompt.
#define START_SHELL(session, options)                                        \
  do {                                                                       \
    if (vqsh_test::vqshPath().empty()) GTEST_SKIP() << "vqsh is not built"; \
    ASSERT_TRUE((session).start(options)) << (session).error();              \
    ASSERT_TRUE((session).expect("> ")) << (session).output();              \
  } while (0)
