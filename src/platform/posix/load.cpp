// Library load and unload: a shared library's constructor and destructor
// play the part of DllMain's attach and detach.
#include "frame/lifecycle.hpp"

namespace {

__attribute__((constructor)) void vqLibraryLoad() { vq::frame::onLibraryLoad(); }

__attribute__((destructor)) void vqLibraryUnload() { vq::frame::onLibraryUnload(); }

}  // namespace
