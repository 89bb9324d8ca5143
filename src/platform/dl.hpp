// Loading shared libraries: the platform's dynamic loader.
#pragma once

namespace vq::os {

// The library handle, or null (the loader's text in the OS last error's
// place is not kept: callers only need success or failure).
void *libraryOpen(const char *file_name) noexcept;
void *librarySymbol(void *handle, const char *symbol) noexcept;
void libraryClose(void *handle) noexcept;
// The extension appended to a module name that has none.
const char *libraryExtension() noexcept;

}  // namespace vq::os
