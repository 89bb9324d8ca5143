// The console and the process's working directory.
#pragma once

namespace vq::os {

// Standard input is a terminal (a prompt is shown only then).
bool stdinIsTerminal() noexcept;
// Changes the working directory; false with errno set on failure.
bool changeDirectory(const char *path) noexcept;
// Puts NAME=value into the environment; the string itself is kept there
// (putenv), so it must live as long as the process.
bool putEnv(char *string) noexcept;
// Ends the process at once: no at-exit handlers, no flushing.
[[noreturn]] void exitImmediately(int status) noexcept;

}  // namespace vq::os
