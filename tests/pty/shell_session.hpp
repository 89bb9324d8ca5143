// Runs the built vqsh as a child process, either on the slave side of a
// pseudo-terminal (so that it sees a terminal, line editing and the
// interrupt key) or on plain pipes, and lets a test type at it and read
// what it prints.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace vqsh_test {

// The vqsh next to this test program's build tree ("../tools/vqsh" from
// the directory of the running executable); empty when it is not there.
std::string vqshPath();

struct LaunchOptions {
  std::vector<std::string> args{"-q"};
  // Added to (or replacing in) the environment of the shell.
  std::vector<std::pair<std::string, std::string>> env;
  bool terminal = true;
  // Terminal only: run the shell under an intermediate process of the same
  // process group that records every SIGINT it receives, to see whether
  // the shell passes the key on to its group.
  bool group_witness = false;
  // Pipes only: written to the shell's standard input, which is then
  // closed.
  std::string input;
};

// The line discipline's modes on the shell's terminal.
struct TerminalMode {
  bool signals = false;    // ISIG: the interrupt key raises SIGINT
  bool echo = false;       // ECHO: the terminal echoes keys (^C with ECHOCTL)
  bool canonical = false;  // ICANON: the terminal assembles whole lines
};

// What the group witness saw.
struct WitnessReport {
  int from_terminal = 0;  // SIGINTs sent by the terminal driver
  int from_process = 0;   // SIGINTs sent with kill() by some process
};

class Session {
 public:
  Session() = default;
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;
  ~Session();

  // Starts the shell in a fresh temporary working directory that is also
  // its HOME. False (with a message in error()) when that fails.
  bool start(const LaunchOptions &options);

  // Sends raw bytes, as typed keys on the terminal.
  void send(std::string_view keys);

  // Reads until text appears after the point the previous expect stopped
  // at, then moves that point past it. False when the shell ends or the
  // generous time-out passes first; the output read so far is kept.
  bool expect(std::string_view text);

  // Like expect, but for the first of several texts; returns its index,
  // or -1.
  int expectAny(const std::vector<std::string_view> &texts);

  // Reads until the shell has ended, then returns its wait status (or the
  // witness's report of it). Kills the shell after the time-out and returns
  // -1 then.
  int waitExit();

  // Wait until the shell is blocked reading its standard input, or
  // sleeping. A key typed before the read starts may be flushed by the
  // terminal (the interrupt key discards pending input) or reach the shell
  // outside the read; the prompt alone does not tell, since it is printed
  // before the read (and before line editing switches the terminal mode).
  // False when the shell ends or the time-out passes first.
  bool waitUntilReading();
  bool waitUntilSleeping();
  // Wait until no SIGINT is pending for the shell: the last interrupt has
  // been taken by its handler, so the next one cannot merge with it.
  bool waitUntilInterruptTaken();

  // The modes the shell's terminal is in now, read through the master side
  // (which reports the slave's settings). Empty for a piped launch or when
  // they cannot be read.
  std::optional<TerminalMode> terminalMode();

  // Whether the shell is still running (it has not been reaped).
  bool running();

  // Everything the shell printed so far, and what follows the expect point.
  const std::string &output() const { return output_; }
  std::string rest() const { return output_.substr(mark_); }
  const std::string &error() const { return error_; }

  WitnessReport witness() const { return witness_; }

 private:
  // Reads what is available within the time-out; false at end of output.
  bool readSome(int timeout_ms);
  // The system call the shell is blocked in (with its first argument), as
  // /proc shows it; false while it runs or when it cannot be read.
  bool blockedIn(long *number, long *first_arg);
  bool waitUntilBlocked(bool (*wanted)(long number, long first_arg));
  pid_t shellPid();
  void closeFds();

  pid_t pid_ = -1;         // the shell, or the witness that runs it
  pid_t shell_pid_ = -1;
  int master_ = -1;        // pseudo-terminal master, or the read end of stdout
  bool terminal_ = false;  // master_ is a pseudo-terminal master
  int input_ = -1;         // pipes only: the write end of stdin
  int witness_pipe_ = -1;  // read end of the witness's report
  bool ended_ = false;     // no more output will come
  bool reaped_ = false;
  int status_ = 0;
  std::string output_;
  std::size_t mark_ = 0;
  std::string error_;
  std::string work_dir_;
  WitnessReport witness_;
};

// A wait status as text for failure messages ("exit 0", "signal 6").
std::string describeStatus(int status);

}  // namespace vqsh_test
