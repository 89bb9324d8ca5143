// Console-interrupt signal handling of the operating-system interface.
#pragma once

namespace vq::os {

using SignalHandler = void (*)(int signal_number);

// Installs handler for the console interrupt (SIGINT). The handler stays
// installed across deliveries, and interrupted system calls are not
// restarted, so that a blocking read of standard input returns when the
// key is pressed. False, with the OS last error set, when it fails.
bool installInterruptHandler(SignalHandler handler) noexcept;

// Restores the system's default action for the console interrupt.
bool restoreInterruptDefault() noexcept;

}  // namespace vq::os
