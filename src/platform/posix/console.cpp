// The console and the working directory on POSIX.
#include "platform/console.hpp"

#include <cstdlib>

#include <unistd.h>

namespace vq::os {

bool stdinIsTerminal() noexcept { return ::isatty(STDIN_FILENO) == 1; }

bool changeDirectory(const char *path) noexcept { return ::chdir(path) == 0; }

bool putEnv(char *string) noexcept { return ::putenv(string) == 0; }

void exitImmediately(int status) noexcept { ::_exit(status); }

}  // namespace vq::os
