#include "shell_session.hpp"

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

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

// The witness's counts, shared with the test: SIGINTs from the terminal,
// SIGINTs sent with kill(), and the shell's wait status.
volatile int *witness_counts = nullptr;

void witnessHandler(int, siginfo_t *info, void *) {
  volatile int &count = witness_counts[info != nullptr && info->si_code == SI_USER ? 1 : 0];
  count = count + 1;
}

// Child side: the modes a user's shell leaves (those of a new
// pseudo-terminal on Linux, made sure of), the environment, no core files.
void prepareChild(const std::string &home, const LaunchOptions &options) {
  struct termios modes;
  if (tcgetattr(0, &modes) != 0) _exit(120);
  modes.c_iflag |= ICRNL;
  modes.c_oflag |= OPOST | ONLCR;
  modes.c_lflag |= ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHOCTL | IEXTEN;
  modes.c_cc[VINTR] = 0x03;
  modes.c_cc[VEOF] = 0x04;
  tcsetattr(0, TCSANOW, &modes);
  for (const char *name : {"VQ_INTERRUPT_MAX", "VQHOME", "VQDEBUGFILENAME"}) unsetenv(name);
  setenv("HOME", home.c_str(), 1);
  setenv("TERM", "xterm", 1);
  setenv("VQ_FATAL_ERROR_ABORT", "1", 1);
  for (const auto &[key, value] : options.env) setenv(key.c_str(), value.c_str(), 1);
  struct rlimit no_core {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  if (chdir(home.c_str()) != 0) _exit(125);
}

// Runs the shell as a child of this process, which stays in the same
// process group, counts the SIGINTs it sees and keeps the shell's status.
[[noreturn]] void runWitness(const char *path) {
  struct sigaction action {};
  action.sa_sigaction = witnessHandler;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  pid_t shell = fork();
  if (shell == 0) execl(path, path, "-q", static_cast<char *>(nullptr)), _exit(127);
  int status = 0;
  while (shell > 0 && waitpid(shell, &status, 0) < 0) {
    if (errno != EINTR) _exit(123);
  }
  witness_counts[2] = status;
  _exit(shell > 0 ? 0 : 124);
}

}  // namespace

std::string vqshPath() {
  std::error_code ec;
  auto candidate = std::filesystem::read_symlink("/proc/self/exe", ec).parent_path() / ".." / "tools" / "vqsh";
  if (ec || access(candidate.c_str(), X_OK) != 0) return {};
  return std::filesystem::weakly_canonical(candidate, ec).string();
}

Session::~Session() {
  if (pid_ > 0 && !reaped_) {
    kill(-pid_, SIGKILL);
    kill(pid_, SIGKILL);
    waitpid(pid_, &status_, 0);
  }
  if (master_ >= 0) close(master_);
  if (witness_) munmap(const_cast<int *>(witness_counts), 3 * sizeof(int)), witness_counts = nullptr;
}

bool Session::start(const LaunchOptions &options) {
  std::string path = vqshPath();
  if (path.empty()) {
    error_ = "vqsh not found beside the test program";
    return false;
  }
  signal(SIGPIPE, SIG_IGN);  // a write to an ended shell must fail, not kill the test
  if (options.group_witness) {
    void *shared = mmap(nullptr, 3 * sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    witness_counts = shared == MAP_FAILED ? nullptr : static_cast<int *>(shared);
  }
  struct winsize size {24, 80, 0, 0};
  pid_ = forkpty(&master_, nullptr, nullptr, &size);
  if (pid_ < 0 || (options.group_witness && witness_counts == nullptr)) {
    error_ = std::string("cannot start the shell: ") + std::strerror(errno);
    return false;
  }
  if (pid_ == 0) {
    // This test program runs no other threads: the child may set up its
    // environment before exec.
    prepareChild(work_dir_.str(), options);
    if (options.group_witness) runWitness(path.c_str());
    execl(path.c_str(), path.c_str(), "-q", static_cast<char *>(nullptr));
    _exit(127);
  }
  witness_ = options.group_witness;
  return true;
}

void Session::send(std::string_view keys) {
  while (!keys.empty()) {
    ssize_t n = write(master_, keys.data(), keys.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    keys.remove_prefix(static_cast<std::size_t>(n));
  }
}

bool Session::readSome(int timeout_ms) {
  if (ended_) return false;
  struct pollfd p {master_, POLLIN, 0};
  int ready = poll(&p, 1, timeout_ms);
  if (ready <= 0) return ready == 0 || errno == EINTR;
  char buffer[4096];
  ssize_t n = read(master_, buffer, sizeof buffer);
  if (n < 0 && (errno == EINTR || errno == EAGAIN)) return true;
  // EIO on a pseudo-terminal master: every slave is closed.
  if (n > 0) output_.append(buffer, static_cast<std::size_t>(n));
  return !(ended_ = n <= 0);
}

int Session::expectAny(const std::vector<std::string_view> &texts) {
  auto deadline = Clock::now() + std::chrono::milliseconds(kTimeoutMs);
  for (;;) {
    std::size_t best = std::string::npos;
    int which = -1;
    for (std::size_t i = 0; i < texts.size(); ++i) {
      std::size_t at = output_.find(texts[i], mark_);
      if (at < best) best = at, which = static_cast<int>(i);
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
  if (!witness_) return shell_pid_ = pid_;
  // The witness has exactly one child: the shell.
  std::ifstream children("/proc/" + std::to_string(pid_) + "/task/" + std::to_string(pid_) + "/children");
  long child = -1;
  if (children >> child && child > 0) shell_pid_ = static_cast<pid_t>(child);
  return shell_pid_;
}

bool Session::waitFor(const std::function<bool()> &condition) {
  auto deadline = Clock::now() + std::chrono::milliseconds(kTimeoutMs);
  while (msLeft(deadline) > 0 && running()) {
    if (condition()) return true;
    if (!readSome(1)) usleep(1000);
  }
  return false;
}

// Blocked in a system call, as /proc shows it (it reads "running"
// otherwise), or with no SIGINT pending any more.
bool Session::waitUntil(Blocked state) {
  return waitFor([&] {
    const bool taken = state == Blocked::InterruptTaken;
    std::ifstream file("/proc/" + std::to_string(shellPid()) + (taken ? "/status" : "/syscall"));
    bool read_any = false;
    for (std::string line; taken && std::getline(file, line);) {
      if (line.rfind("SigPnd:", 0) != 0 && line.rfind("ShdPnd:", 0) != 0) continue;
      read_any = true;
      if (std::stoull(line.substr(7), nullptr, 16) & (1ULL << (SIGINT - 1))) return false;
    }
    long number = -1;
    std::string arg;
    if (taken || !(file >> number >> arg)) return read_any;
    if (state == Blocked::Reading) return number == SYS_read && std::stol(arg, nullptr, 16) == 0;
#ifdef SYS_nanosleep
    if (number == SYS_nanosleep) return true;
#endif
    return number == SYS_clock_nanosleep;
  });
}

bool Session::terminalNormal() {
  // On the master, TCGETS reports the slave's termios: what the line
  // discipline applies to the keys written here.
  struct termios modes;
  if (tcgetattr(master_, &modes) != 0) error_ = std::string("tcgetattr: ") + std::strerror(errno);
  return error_.empty() && (modes.c_lflag & ISIG) && (modes.c_lflag & ECHO) && (modes.c_lflag & ICANON);
}

bool Session::running() {
  if (!reaped_ && waitpid(pid_, &status_, WNOHANG) == pid_) reaped_ = true;
  return !reaped_;
}

int Session::waitExit() {
  if (!waitFor([] { return false; }) && running()) return -1;  // the destructor kills it
  for (struct pollfd p {master_, POLLIN, 0}; !ended_ && poll(&p, 1, 0) > 0;) readSome(0);
  return witness_ ? witness_counts[2] : status_;
}

std::pair<int, int> Session::witness() const {
  return witness_counts == nullptr ? std::pair(0, 0) : std::pair(witness_counts[0], witness_counts[1]);
}

void sendAtRead(Session &shell, const std::string &keys) {
  ASSERT_TRUE(shell.waitUntil(Blocked::Reading)) << "not reading; got: " << shell.output();
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
  ASSERT_TRUE(WIFEXITED(status)) << "wait status " << status << "; output: " << shell.output();
  EXPECT_EQ(WEXITSTATUS(status), code) << shell.output();
}

void endWithControlD(Session &shell) {
  sendAtRead(shell, "\x04");
  expectExitCode(shell, 0);
}

}  // namespace vqsh_test
