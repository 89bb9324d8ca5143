// Gives an option a value for one scope, a string (null: unknown) or a
// number; the old value comes back afterwards.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "vqutil/option.h"

namespace vqtest {

class OptionValue {
 public:
  OptionValue(const char *name, const char *value) : option_(DutOptionLookup(name)) {
    const char *old_value = nullptr;
    if (DutOptionGetStr(option_, &old_value) && old_value != nullptr) saved_text_ = old_value;
    set(value);
  }
  OptionValue(const char *name, double value) : option_(DutOptionLookup(name)), saved_number_(0.0) {
    EXPECT_TRUE(DutOptionGetNum(option_, &*saved_number_)) << name;
    set(value);
  }
  ~OptionValue() { saved_number_ ? set(*saved_number_) : set(saved_text_ ? saved_text_->c_str() : nullptr); }
  OptionValue(const OptionValue &) = delete;
  OptionValue &operator=(const OptionValue &) = delete;
  void set(double value) { EXPECT_TRUE(DutOptionSetNum(option_, value)) << value; }
  // Null makes the option unknown.
  void set(const char *value) {
    EXPECT_TRUE(value ? DutOptionSetStr(option_, value) : DutOptionSetUnknown(option_)) << (value ? value : "null");
  }

 private:
  D_OPTION *option_;
  std::optional<D_REAL8> saved_number_;
  std::optional<std::string> saved_text_;
};

}  // namespace vqtest
