// Network facts on POSIX.
#include "platform/net.hpp"

#include <unistd.h>

#include <cerrno>

namespace vq::os {

int hostName(char *buffer, std::size_t size) noexcept {
  if (buffer == nullptr || size == 0) return EINVAL;
  int saved = errno;
  int result = ::gethostname(buffer, size);
  int error = result == 0 ? 0 : errno;
  errno = saved;
  // POSIX leaves termination unspecified when the name was truncated.
  buffer[size - 1] = '\0';
  if (error != 0) buffer[0] = '\0';
  return error;
}

}  // namespace vq::os
