// Shared between the option machinery and the table of standard options.
#pragma once

#include "vqutil/option.h"

namespace vq::options {

// Creates the library's standard options with their flags, legal values,
// verify functions and defaults. Runs once, with the process-wide lock
// held, right after the table and the change-callback type exist.
void createStandardOptions();

}  // namespace vq::options
