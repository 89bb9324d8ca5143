// Shared internals of the file family.
#pragma once

#include <cstddef>

namespace vq::files {

// Size of the static name buffers handed out with a null caller buffer.
inline constexpr std::size_t kNameBufferSize = 4096;

// Source label of the family's assertions.
inline constexpr const char *kFileLabel = "file";

// access() with the runtime's mode numbers; a failure is recorded as D_ERR_C.
bool recordAccess(const char *name, int mode);

// Runs the configured editor on name at line; false when it failed.
bool runEditor(const char *name, long line);

}  // namespace vq::files
