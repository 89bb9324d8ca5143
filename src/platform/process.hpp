// Process identity from the operating system: CPU time and the user's name.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vq::os {

// CPU time used by the calling process so far, user plus system, in whole
// milliseconds; false when the system cannot tell.
bool processCpuTimeMs(std::int64_t *milliseconds) noexcept;

// The system's name for the effective user, else the login name, copied
// into buffer (NUL-terminated, cut to size - 1). False when neither is
// available.
bool systemUserName(char *buffer, std::size_t size) noexcept;

}  // namespace vq::os
