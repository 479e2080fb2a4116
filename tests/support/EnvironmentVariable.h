#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace support {

/// Sets an environment variable (without a value: removes it) for the length of a scope.
class EnvironmentVariable {
 public:
  EnvironmentVariable(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
    const char* const before = std::getenv(name_.c_str());
    if (before != nullptr) before_ = before;
    set(value);
  }
  ~EnvironmentVariable() { set(before_); }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

 private:
  void set(const std::optional<std::string>& value) const {
    if (value) {
      ::setenv(name_.c_str(), value->c_str(), 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }

  std::string name_;
  std::optional<std::string> before_;
};

}  // namespace support
