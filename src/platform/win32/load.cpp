// Library load and unload through DllMain. A start-up failure (a registry
// setting or the socket library missing) makes the load fail.
#include <windows.h>

#include "frame/lifecycle.hpp"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      return vq::frame::onLibraryLoad() ? TRUE : FALSE;
    case DLL_PROCESS_DETACH:
      vq::frame::onLibraryUnload();
      break;
    default:
      break;
  }
  return TRUE;
}
