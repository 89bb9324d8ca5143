// Modules through LoadLibrary; a name without extension gets ".dll".
#include <windows.h>

#include "platform/dl.hpp"

namespace vq::os {

void *libraryOpen(const char *file_name) noexcept {
  // No "cannot find" dialog box for a module that is missing.
  const UINT old = ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
  HMODULE h = ::LoadLibraryA(file_name);
  ::SetErrorMode(old);
  return reinterpret_cast<void *>(h);
}

void *librarySymbol(void *handle, const char *symbol) noexcept {
  if (handle == nullptr) return nullptr;
  return reinterpret_cast<void *>(::GetProcAddress(static_cast<HMODULE>(handle), symbol));
}

void libraryClose(void *handle) noexcept {
  if (handle != nullptr) ::FreeLibrary(static_cast<HMODULE>(handle));
}

const char *libraryExtension() noexcept { return ".dll"; }

}  // namespace vq::os
