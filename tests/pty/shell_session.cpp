#include "shell_session.hpp"

#include <fcntl.h>
#include <poll.h>
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
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

extern char **environ;

namespace vqsh_test {

namespace {

// Generous: a sanitizer build under a loaded machine starts slowly. Only
// a hung or broken shell ever waits this long.
constexpr int kTimeoutMs = 10000;

using Clock = std::chrono::steady_clock;

int msLeft(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

// The witness's counts, written by its signal handler.
volatile sig_atomic_t witness_from_terminal = 0;
volatile sig_atomic_t witness_from_process = 0;

void witnessHandler(int, siginfo_t *info, void *) {
  if (info != nullptr && info->si_code == SI_USER)
    witness_from_process = witness_from_process + 1;
  else
    witness_from_terminal = witness_from_terminal + 1;
}

// Child side of a terminal launch: the slave becomes the controlling
// terminal and the standard streams, in the modes a user's shell leaves.
void setUpTerminal(const char *slave_name) {
  if (setsid() < 0) _exit(120);
  int slave = open(slave_name, O_RDWR);
  if (slave < 0) _exit(121);
  ioctl(slave, TIOCSCTTY, 0);
  struct termios modes;
  if (tcgetattr(slave, &modes) == 0) {
    modes.c_iflag |= ICRNL;
    modes.c_oflag |= OPOST | ONLCR;
    modes.c_lflag |= ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHOCTL | IEXTEN;
    modes.c_cc[VINTR] = 0x03;
    modes.c_cc[VEOF] = 0x04;
    tcsetattr(slave, TCSANOW, &modes);
  }
  struct winsize size {};
  size.ws_row = 24;
  size.ws_col = 80;
  ioctl(slave, TIOCSWINSZ, &size);
  dup2(slave, 0);
  dup2(slave, 1);
  dup2(slave, 2);
  if (slave > 2) close(slave);
}

// Runs the shell as a child of this process, which stays in the same
// process group and reports the shell's status and the SIGINTs it saw.
[[noreturn]] void runWitness(int report_fd, const char *path, char *const argv[], char *const envp[]) {
  struct sigaction action {};
  action.sa_sigaction = witnessHandler;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  pid_t shell = fork();
  if (shell < 0) _exit(122);
  if (shell == 0) {
    close(report_fd);
    execve(path, argv, envp);
    _exit(127);
  }
  int status = 0;
  while (waitpid(shell, &status, 0) < 0) {
    if (errno != EINTR) _exit(123);
  }
  int report[3] = {witness_from_terminal, witness_from_process, status};
  ssize_t written = write(report_fd, report, sizeof report);
  _exit(written == static_cast<ssize_t>(sizeof report) ? 0 : 124);
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
  closeFds();
  if (!work_dir_.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(work_dir_, ec);
  }
}

void Session::closeFds() {
  for (int *fd : {&master_, &input_, &witness_pipe_}) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }
}

bool Session::start(const LaunchOptions &options) {
  std::string path = vqshPath();
  if (path.empty()) {
    error_ = "vqsh not found next to the test program";
    return false;
  }
  work_dir_ = uniqueWorkDir();
  if (work_dir_.empty()) {
    error_ = "cannot create a working directory";
    return false;
  }
  // A write to a shell that already ended must fail, not kill the test.
  signal(SIGPIPE, SIG_IGN);

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
  std::vector<char *> envp;
  for (auto &e : env_text) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::vector<std::string> arg_text{path};
  arg_text.insert(arg_text.end(), options.args.begin(), options.args.end());
  std::vector<char *> argv;
  for (auto &a : arg_text) argv.push_back(a.data());
  argv.push_back(nullptr);

  int report[2] = {-1, -1};
  if (options.group_witness && pipe2(report, O_CLOEXEC) != 0) {
    error_ = "pipe: " + std::string(std::strerror(errno));
    return false;
  }

  if (options.terminal) {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    terminal_ = master_ >= 0;
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
      error_ = "pseudo-terminal: " + std::string(std::strerror(errno));
      return false;
    }
    char slave_name[256];
    if (ptsname_r(master_, slave_name, sizeof slave_name) != 0) {
      error_ = "ptsname: " + std::string(std::strerror(errno));
      return false;
    }
    pid_ = fork();
    if (pid_ < 0) {
      error_ = "fork: " + std::string(std::strerror(errno));
      return false;
    }
    if (pid_ == 0) {
      setUpTerminal(slave_name);
      struct rlimit no_core {0, 0};
      setrlimit(RLIMIT_CORE, &no_core);
      if (chdir(work_dir_.c_str()) != 0) _exit(125);
      if (options.group_witness) runWitness(report[1], argv[0], argv.data(), envp.data());
      execve(argv[0], argv.data(), envp.data());
      _exit(127);
    }
  } else {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
      error_ = "pipe: " + std::string(std::strerror(errno));
      return false;
    }
    pid_ = fork();
    if (pid_ < 0) {
      error_ = "fork: " + std::string(std::strerror(errno));
      return false;
    }
    if (pid_ == 0) {
      setsid();
      dup2(in[0], 0);
      dup2(out[1], 1);
      dup2(out[1], 2);
      struct rlimit no_core {0, 0};
      setrlimit(RLIMIT_CORE, &no_core);
      if (chdir(work_dir_.c_str()) != 0) _exit(125);
      execve(argv[0], argv.data(), envp.data());
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    master_ = out[0];
    input_ = in[1];
    send(options.input);
    close(input_);
    input_ = -1;
  }
  if (options.group_witness) {
    close(report[1]);
    witness_pipe_ = report[0];
  }
  return true;
}

void Session::send(std::string_view keys) {
  int fd = input_ >= 0 ? input_ : master_;
  while (!keys.empty()) {
    ssize_t n = write(fd, keys.data(), keys.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    keys.remove_prefix(static_cast<std::size_t>(n));
  }
}

bool Session::readSome(int timeout_ms) {
  if (ended_) return false;
  struct pollfd p {master_, POLLIN, 0};
  int ready = poll(&p, 1, timeout_ms);
  if (ready < 0) return errno == EINTR;
  if (ready == 0) return true;
  char buffer[4096];
  ssize_t n = read(master_, buffer, sizeof buffer);
  if (n < 0 && (errno == EINTR || errno == EAGAIN)) return true;
  if (n <= 0) {
    // EIO on a pseudo-terminal master: every slave descriptor is closed.
    ended_ = true;
    return false;
  }
  output_.append(buffer, static_cast<std::size_t>(n));
  return true;
}

bool Session::expect(std::string_view text) { return expectAny({text}) == 0; }

int Session::expectAny(const std::vector<std::string_view> &texts) {
  auto deadline = Clock::now() + std::chrono::milliseconds(kTimeoutMs);
  for (;;) {
    std::size_t best = std::string::npos;
    int which = -1;
    for (std::size_t i = 0; i < texts.size(); ++i) {
      std::size_t at = output_.find(texts[i], mark_);
      if (at != std::string::npos && (best == std::string::npos || at < best)) {
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
  if (shell_pid_ > 0) return shell_pid_;
  if (pid_ <= 0) return -1;
  if (witness_pipe_ < 0) return shell_pid_ = pid_;
  // The witness has exactly one child: the shell.
  std::ifstream children("/proc/" + std::to_string(pid_) + "/task/" + std::to_string(pid_) + "/children");
  long child = -1;
  if (children >> child && child > 0) shell_pid_ = static_cast<pid_t>(child);
  return shell_pid_;
}

bool Session::blockedIn(long *number, long *first_arg) {
  pid_t shell = shellPid();
  if (shell <= 0) return false;
  std::ifstream file("/proc/" + std::to_string(shell) + "/syscall");
  std::string line;
  if (!std::getline(file, line)) return false;
  std::istringstream fields(line);
  std::string arg;
  if (!(fields >> *number >> arg)) return false;  // "running"
  *first_arg = std::stol(arg, nullptr, 16);
  return true;
}

bool Session::waitUntilBlocked(bool (*wanted)(long number, long first_arg)) {
  auto deadline = Clock::now() + std::chrono::milliseconds(kTimeoutMs);
  while (msLeft(deadline) > 0 && running()) {
    long number = -1;
    long first_arg = -1;
    if (blockedIn(&number, &first_arg) && wanted(number, first_arg)) return true;
    readSome(1);
  }
  return false;
}

bool Session::waitUntilReading() {
  return waitUntilBlocked([](long number, long fd) { return number == SYS_read && fd == 0; });
}

namespace {

bool isSleepCall(long number, long) {
#ifdef SYS_nanosleep
  if (number == SYS_nanosleep) return true;
#endif
  return number == SYS_clock_nanosleep;
}

}  // namespace

bool Session::waitUntilSleeping() { return waitUntilBlocked(isSleepCall); }

std::optional<TerminalMode> Session::terminalMode() {
  if (!terminal_ || master_ < 0) return std::nullopt;
  // On the master, TCGETS reports the slave's termios: what the line
  // discipline applies to the keys written here.
  struct termios modes;
  if (tcgetattr(master_, &modes) != 0) {
    error_ = "tcgetattr: " + std::string(std::strerror(errno));
    return std::nullopt;
  }
  TerminalMode mode;
  mode.signals = (modes.c_lflag & ISIG) != 0;
  mode.echo = (modes.c_lflag & ECHO) != 0;
  mode.canonical = (modes.c_lflag & ICANON) != 0;
  return mode;
}

bool Session::waitUntilInterruptTaken() {
  auto deadline = Clock::now() + std::chrono::milliseconds(kTimeoutMs);
  while (msLeft(deadline) > 0 && running()) {
    std::ifstream status("/proc/" + std::to_string(shellPid()) + "/status");
    std::string line;
    bool pending = false;
    bool read_any = false;
    while (std::getline(status, line)) {
      if (line.rfind("SigPnd:", 0) == 0 || line.rfind("ShdPnd:", 0) == 0) {
        read_any = true;
        unsigned long long mask = std::stoull(line.substr(7), nullptr, 16);
        if (mask & (1ULL << (SIGINT - 1))) pending = true;
      }
    }
    if (read_any && !pending) return true;
    readSome(1);
  }
  return false;
}

bool Session::running() {
  if (reaped_) return false;
  pid_t done = waitpid(pid_, &status_, WNOHANG);
  if (done == pid_) reaped_ = true;
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
  while (readSome(0) && !ended_) {
    struct pollfd p {master_, POLLIN, 0};
    if (poll(&p, 1, 0) <= 0) break;
  }
  if (witness_pipe_ >= 0) {
    int report[3];
    ssize_t n = read(witness_pipe_, report, sizeof report);
    if (n == static_cast<ssize_t>(sizeof report)) {
      witness_.from_terminal = report[0];
      witness_.from_process = report[1];
      return report[2];
    }
  }
  return status_;
}

}  // namespace vqsh_test
