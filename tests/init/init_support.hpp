// Output capture and assertion checks for the initialisation tests.
#pragma once

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/output_capture.hpp"
#include "vqutil/output.h"

#define INIT_EXPECT_ASSERTION VQTEST_EXPECT_ASSERTION

namespace inittest {

using vqtest::Capture;
using vqtest::Captured;
using vqtest::OutputCapture;

}  // namespace inittest
