#pragma once

#include <exception>
#include <string>
#include <utility>

namespace foundation {

/// An exception with a name that callers can tell apart ("NSPortTimeoutException") and a reason for people.
class Exception : public std::exception {
 public:
  Exception(std::string name, std::string reason) : name_(std::move(name)), reason_(std::move(reason)) {}

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] const std::string& reason() const { return reason_; }
  [[nodiscard]] const char* what() const noexcept override { return reason_.c_str(); }

 private:
  std::string name_;
  std::string reason_;
};

/// Names in use, spelt as on a Mac.
inline constexpr const char* kGenericException = "NSGenericException";
inline constexpr const char* kInvalidArgumentException = "NSInvalidArgumentException";
inline constexpr const char* kFileHandleOperationException = "NSFileHandleOperationException";
inline constexpr const char* kPortTimeoutException = "NSPortTimeoutException";
inline constexpr const char* kInvalidSendPortException = "NSInvalidSendPortException";

}  // namespace foundation
