// Library load and unload: a shared library's constructor and destructor
// play the part of DllMain's attach and detach.
#include "frame/lifecycle.hpp"

namespace {

// A constructor cannot fail the load: what failed is in the start-up texts.
__attribute__((constructor)) void vqLibraryLoad() { static_cast<void>(vq::frame::onLibraryLoad()); }

__attribute__((destructor)) void vqLibraryUnload() { vq::frame::onLibraryUnload(); }

}  // namespace
