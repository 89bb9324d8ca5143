// What every test of the error suite uses: the four error values, output
// capture and the error functions, named unqualified.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/error_values.hpp"
#include "support/output_capture.hpp"
#include "vqutil/error.h"

using vqtest::AllFour;
using vqtest::Four;
using vqtest::SetAllFour;
