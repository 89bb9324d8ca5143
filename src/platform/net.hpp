// Network facts of the operating-system interface.
#pragma once

#include <cstddef>

namespace vq::os {

// The host's node name (gethostname) into buffer, NUL-terminated even when
// the system cuts it short. Answers 0, or the system's errno value on
// failure (buffer then holds "").
int hostName(char *buffer, std::size_t size) noexcept;

}  // namespace vq::os
