// Sets (null: unsets) an environment variable for one scope; the old value
// comes back afterwards.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace vqtest {

class EnvVar {
 public:
  EnvVar(const char *name, const char *value) : name_(name) {
    if (const char *old_value = std::getenv(name)) saved_ = old_value;
    set(value);
  }
  ~EnvVar() { set(saved_ ? saved_->c_str() : nullptr); }
  EnvVar(const EnvVar &) = delete;
  EnvVar &operator=(const EnvVar &) = delete;
  void set(const char *value) { value ? setenv(name_, value, 1) : unsetenv(name_); }

 private:
  const char *name_;
  std::optional<std::string> saved_;
};

}  // namespace vqtest
