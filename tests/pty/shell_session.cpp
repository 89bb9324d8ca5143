#include "shell_session.hpp"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>

extern char **environ;

namespace vqsh_test {

namespace {

// Generous: a sanitizer build on a loaded machine starts slowly. Only a
// hung or broken shell ever waits this long.
constexpr int kTimeoutMs = 10000;

using Clock = std::chrono::steady_clock;

int msLeft(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

void writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
}

volatile sig_atomic_t witness_from_terminal = 0;
volatile sig_atomic_t witness_from_process = 0;

void witnessHandler(int, siginfo_t *info, void *) {
  if (info != nullptr && info->si_code == SI_USER)
    witness_from_process = witness_from_process + 1;
  else
    witness_from_terminal = witness_from_terminal + 1;
}

// Child side of a terminal launch: the modes a user's shell leaves (those
// of a new pseudo-terminal on Linux, made sure of).
void setTerminalModes() {
  struct termios modes;
  if (tcgetattr(0, &modes) != 0) _exit(120);
  modes.c_iflag |= ICRNL;
  modes.c_oflag |= OPOST | ONLCR;
  modes.c_lflag |= ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHOCTL | IEXTEN;
  modes.c_cc[VINTR] = 0x03;
  modes.c_cc[VEOF] = 0x04;
  tcsetattr(0, TCSANOW, &modes);
}

// Runs the shell as a child of this process, which stays in the same
// process group, and reports the SIGINTs it saw and the shell's status.
[[noreturn]] void runWitness(int report_fd, char *const argv[], char *const envp[]) {
  struct sigaction action {};
  action.sa_sigaction = witnessHandler;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  pid_t shell = fork();
  if (shell < 0) _exit(122);
  if (shell == 0) {
    close(report_fd);
    execve(argv[0], argv, envp);
    _exit(127);
  }
  int status = 0;
  while (waitpid(shell, &status, 0) < 0) {
    if (errno != EINTR) _exit(123);
  }
  int report[3] = {witness_from_terminal, witness_from_process, status};
  _exit(write(report_fd, report, sizeof report) == static_cast<ssize_t>(sizeof report) ? 0 : 124);
}

std::string uniqueWorkDir() {
  static std::atomic<int> counter{0};
  auto dir = std::filesystem::temp_directory_path() /
             ("vqsh-pty-" + std::to_string(getpid()) + "-" + std::to_string(counter.fetch_add(1)));
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
  std::filesystem::create_directories(dir, ec);
  return ec ? std::string() : dir.string();
}

bool isSleepCall(long number, long) {
#ifdef SYS_nanosleep
  if (number == SYS_nanosleep) return true;
#endif
  return number == SYS_clock_nanosleep;
}

}  // namespace

std::string vqshPath() {
  std::error_code ec;
  auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return {};
  auto candidate = self.parent_path() / ".." / "tools" / "vqsh";
  if (access(candidate.c_str(), X_OK) != 0) return {};
  return std::filesystem::weakly_canonical(candidate, ec).string();
}

std::string describeStatus(int status) {
  if (status == -1) return "still running at the time-out (killed)";
  if (WIFEXITED(status)) return "exit " + std::to_string(WEXITSTATUS(status));
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
  return "status " + std::to_string(status);
}

Session::~Session() {
  if (pid_ > 0 && !reaped_) {
    kill(-pid_, SIGKILL);
    kill(pid_, SIGKILL);
    waitpid(pid_, &status_, 0);
  }
  for (int fd : {master_, witness_pipe_}) {
    if (fd >= 0) close(fd);
  }
  std::error_code ec;
  if (!work_dir_.empty()) std::filesystem::remove_all(work_dir_, ec);
}

bool Session::fail(const std::string &what) {
  error_ = what + ": " + std::strerror(errno);
  return false;
}

bool Session::start(const LaunchOptions &options) {
  std::string path = vqshPath();
  work_dir_ = uniqueWorkDir();
  if (path.empty() || work_dir_.empty()) {
    error_ = path.empty() ? "vqsh not found beside the test program" : "cannot create a working directory";
    return false;
  }
  signal(SIGPIPE, SIG_IGN);  // a write to an ended shell must fail, not kill the test

  // Everything the child needs is built before fork.
  std::vector<std::pair<std::string, std::string>> env = {
      {"HOME", work_dir_}, {"TERM", "xterm"}, {"VQ_FATAL_ERROR_ABORT", "1"}};
  env.insert(env.end(), options.env.begin(), options.env.end());
  std::vector<std::string> env_text;
  for (char **e = environ; *e != nullptr; ++e) {
    std::string_view entry(*e);
    std::string_view name = entry.substr(0, entry.find('='));
    bool replaced = name == "VQ_INTERRUPT_MAX" || name == "VQHOME" || name == "VQDEBUGFILENAME";
    for (const auto &[key, value] : env) replaced = replaced || name == key;
    if (!replaced) env_text.emplace_back(entry);
  }
  for (const auto &[key, value] : env) env_text.push_back(key + "=" + value);
  std::vector<std::string> arg_text{path};
  arg_text.insert(arg_text.end(), options.args.begin(), options.args.end());
  std::vector<char *> envp;
  std::vector<char *> argv;
  for (auto &e : env_text) envp.push_back(e.data());
  for (auto &a : arg_text) argv.push_back(a.data());
  envp.push_back(nullptr);
  argv.push_back(nullptr);

  int report[2] = {-1, -1};
  int in[2] = {-1, -1};
  int out[2] = {-1, -1};
  terminal_ = options.terminal;
  if (options.group_witness && pipe2(report, O_CLOEXEC) != 0) return fail("pipe");
  if (terminal_) {
    struct winsize size {};
    size.ws_row = 24;
    size.ws_col = 80;
    pid_ = forkpty(&master_, nullptr, nullptr, &size);
    if (pid_ > 0) fcntl(master_, F_SETFD, FD_CLOEXEC);
  } else {
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return fail("pipe");
    pid_ = fork();
  }
  if (pid_ < 0) return fail("fork");
  if (pid_ == 0) {
    if (terminal_) {
      setTerminalModes();
    } else {
      setsid();
      dup2(in[0], 0);
      dup2(out[1], 1);
      dup2(out[1], 2);
    }
    struct rlimit no_core {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    if (chdir(work_dir_.c_str()) != 0) _exit(125);
    if (options.group_witness) runWitness(report[1], argv.data(), envp.data());
    execve(argv[0], argv.data(), envp.data());
    _exit(127);
  }
  if (options.group_witness) {
    close(report[1]);
    witness_pipe_ = report[0];
  }
  if (!terminal_) {
    close(in[0]);
    close(out[1]);
    master_ = out[0];
    writeAll(in[1], options.input);
    close(in[1]);
  }
  return true;
}

void Session::send(std::string_view keys) { writeAll(master_, keys); }

bool Session::readSome(int timeout_ms) {
  if (ended_) return false;
  struct pollfd p {master_, POLLIN, 0};
  int ready = poll(&p, 1, timeout_ms);
  if (ready <= 0) return ready == 0 || errno == EINTR;
  char buffer[4096];
  ssize_t n = read(master_, buffer, sizeof buffer);
  if (n < 0 && (errno == EINTR || errno == EAGAIN)) return true;
  if (n <= 0) {
    ended_ = true;  // EIO on a pseudo-terminal master: every slave is closed
    return false;
  }
  output_.append(buffer, static_cast<std::size_t>(n));
  return true;
}

int Session::expectAny(const std::vector<std::string_view> &texts) {
  auto deadline = Clock::now() + std::chrono::milliseconds(kTimeoutMs);
  for (;;) {
    std::size_t best = std::string::npos;
    int which = -1;
    for (std::size_t i = 0; i < texts.size(); ++i) {
      std::size_t at = output_.find(texts[i], mark_);
      if (at < best) {
        best = at;
        which = static_cast<int>(i);
      }
    }
    if (which >= 0) {
      mark_ = best + texts[static_cast<std::size_t>(which)].size();
      return which;
    }
    int left = msLeft(deadline);
    if (left == 0 || !readSome(left)) return -1;
  }
}

pid_t Session::shellPid() {
  if (shell_pid_ > 0 || pid_ <= 0) return shell_pid_;
  if (witness_pipe_ < 0) return shell_pid_ = pid_;
  // The witness has exactly one child: the shell.
  std::ifstream children("/proc/" + std::to_string(pid_) + "/task/" + std::to_string(pid_) + "/children");
  long child = -1;
  if (children >> child && child > 0) shell_pid_ = static_cast<pid_t>(child);
  return shell_pid_;
}

// Whether the shell is blocked in a system call that wanted accepts (with
// its first argument), as /proc shows it; it reads "running" otherwise.
bool Session::blockedIn(bool (*wanted)(long number, long first_arg)) {
  std::ifstream file("/proc/" + std::to_string(shellPid()) + "/syscall");
  long number = -1;
  std::string arg;
  return file >> number >> arg && wanted(number, std::stol(arg, nullptr, 16));
}

bool Session::waitFor(const std::function<bool()> &condition) {
  auto deadline = Clock::now() + std::chrono::milliseconds(kTimeoutMs);
  while (msLeft(deadline) > 0 && running()) {
    if (condition()) return true;
    readSome(1);
  }
  return false;
}

bool Session::waitUntilReading() {
  return waitFor([this] { return blockedIn([](long number, long fd) { return number == SYS_read && fd == 0; }); });
}

bool Session::waitUntilSleeping() {
  return waitFor([this] { return blockedIn(isSleepCall); });
}

bool Session::waitUntilInterruptTaken() {
  return waitFor([this] {
    std::ifstream status("/proc/" + std::to_string(shellPid()) + "/status");
    std::string line;
    bool read_any = false;
    while (std::getline(status, line)) {
      if (line.rfind("SigPnd:", 0) != 0 && line.rfind("ShdPnd:", 0) != 0) continue;
      read_any = true;
      if (std::stoull(line.substr(7), nullptr, 16) & (1ULL << (SIGINT - 1))) return false;
    }
    return read_any;
  });
}

std::optional<TerminalMode> Session::terminalMode() {
  // On the master, TCGETS reports the slave's termios: what the line
  // discipline applies to the keys written here.
  struct termios modes;
  if (!terminal_ || master_ < 0 || tcgetattr(master_, &modes) != 0) {
    fail("tcgetattr");
    return std::nullopt;
  }
  return TerminalMode{(modes.c_lflag & ISIG) != 0, (modes.c_lflag & ECHO) != 0, (modes.c_lflag & ICANON) != 0};
}

bool Session::running() {
  if (!reaped_ && waitpid(pid_, &status_, WNOHANG) == pid_) reaped_ = true;
  return !reaped_;
}

int Session::waitExit() {
  auto deadline = Clock::now() + std::chrono::milliseconds(kTimeoutMs);
  while (running()) {
    if (msLeft(deadline) == 0) {
      kill(-pid_, SIGKILL);
      kill(pid_, SIGKILL);
      waitpid(pid_, &status_, 0);
      reaped_ = true;
      return -1;
    }
    if (!readSome(20)) usleep(20000);
  }
  struct pollfd p {master_, POLLIN, 0};
  while (!ended_ && poll(&p, 1, 0) > 0) readSome(0);
  int report[3];
  if (witness_pipe_ >= 0 && read(witness_pipe_, report, sizeof report) == static_cast<ssize_t>(sizeof report)) {
    witness_ = {report[0], report[1]};
    return report[2];
  }
  return status_;
}

void sendAtRead(Session &shell, const std::string &keys) {
  ASSERT_TRUE(shell.waitUntilReading()) << "not reading; got: " << shell.output();
  shell.send(keys);
}

void typeLine(Session &shell, const std::string &line) {
  sendAtRead(shell, line + "\r");
  if (::testing::Test::HasFatalFailure()) return;
  ASSERT_TRUE(shell.expect(line + "\r\n")) << "no echo of <" << line << ">; got: " << shell.rest();
}

void typeAndExpect(Session &shell, const std::string &line, const std::string &reply) {
  typeLine(shell, line);
  if (::testing::Test::HasFatalFailure()) return;
  ASSERT_TRUE(shell.expect(reply)) << "after <" << line << ">: " << shell.output();
}

void expectExitCode(Session &shell, int code) {
  int status = shell.waitExit();
  ASSERT_TRUE(WIFEXITED(status)) << describeStatus(status) << "; output: " << shell.output();
  EXPECT_EQ(WEXITSTATUS(status), code) << shell.output();
}

void endWithControlD(Session &shell) {
  sendAtRead(shell, "\x04");
  expectExitCode(shell, 0);
}

}  // namespace vqsh_test
