// The POSIX dynamic loader.
#include "platform/dl.hpp"

#include <dlfcn.h>

namespace vq::os {

void *libraryOpen(const char *file_name) noexcept { return ::dlopen(file_name, RTLD_NOW); }

void *librarySymbol(void *handle, const char *symbol) noexcept {
  return handle == nullptr ? nullptr : ::dlsym(handle, symbol);
}

void libraryClose(void *handle) noexcept {
  if (handle != nullptr) ::dlclose(handle);
}

const char *libraryExtension() noexcept { return ".so"; }

}  // namespace vq::os
