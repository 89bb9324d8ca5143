// Helpers of the standard-option tests: output capture, environment
// changes undone at scope end, and checks run in a fresh process.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "support/child_process.hpp"
#include "support/env_var.hpp"
#include "support/output_capture.hpp"
#include "vqutil/option.h"

namespace stdopts {

using vqtest::EnvVar;
using vqtest::OutputCapture;
using vqtest::RunInChild;

// The string value of a string option, or "" when it is unknown.
inline std::string StrValue(const char *name) {
  const char *value = nullptr;
  DutOptionGetStr(DutOptionLookup(name), &value);
  return value != nullptr ? value : "";
}

}  // namespace stdopts
