// Library load and unload, called by the platform backend's load hooks
// (a shared-library constructor and destructor on POSIX, DllMain on Win32).
#pragma once

namespace vq::frame {

// Start-up work: clears the start-up error buffers and fills VQHOME, VQARCH
// and TEMP from the settings when they are unset. Runs once per process.
// False when the load must fail (a setting or the socket library missing).
bool onLibraryLoad() noexcept;
// Runs the DutAtExit functions (last registered first) and clears the
// start-up flags.
void onLibraryUnload() noexcept;

}  // namespace vq::frame
