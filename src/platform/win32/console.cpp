// The console and the working directory through the C runtime.
#include <direct.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "platform/console.hpp"

namespace vq::os {

bool stdinIsTerminal() noexcept { return ::_isatty(0) != 0; }

bool changeDirectory(const char *path) noexcept { return ::_chdir(path) == 0; }

bool putEnv(char *string) noexcept { return ::_putenv(string) == 0; }

void exitImmediately(int status) noexcept {
  ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(status));
  std::_Exit(status);
}

}  // namespace vq::os
