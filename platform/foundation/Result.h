#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace foundation {

/// Why an operation on the system failed.
struct Error {
  int code = 0;             ///< an errno value
  std::string path;         ///< what it was done to; empty where no path is involved
  std::string description;  ///< a sentence for a person, for example "/tmp/x: Permission denied"

  /// The text that messages show for %@.
  [[nodiscard]] const std::string& localizedDescription() const { return description; }
};

/// The error of a failed system call: `code` is an errno value, the description is path and strerror text.
[[nodiscard]] Error systemError(int code, std::string_view path);

/// An error with a reason of our own rather than the text of errno.
[[nodiscard]] Error errorWithReason(int code, std::string_view path, std::string_view reason);

/// A value, or the reason why there is none. Must be looked at.
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : state_(std::move(value)) {}      // NOLINT: implicit, so that `return value;` reads well
  Result(Error error) : state_(std::move(error)) {}  // NOLINT

  [[nodiscard]] bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }

  /// REQUIRES ok().
  [[nodiscard]] T& value() & { return std::get<0>(state_); }
  [[nodiscard]] const T& value() const& { return std::get<0>(state_); }
  [[nodiscard]] T&& value() && { return std::get<0>(std::move(state_)); }

  /// REQUIRES !ok().
  [[nodiscard]] const Error& error() const { return std::get<1>(state_); }

 private:
  std::variant<T, Error> state_;
};

/// Success, or the reason why not.
template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Error error) : error_(std::move(error)), failed_(true) {}  // NOLINT: implicit, as above

  [[nodiscard]] bool ok() const { return !failed_; }
  explicit operator bool() const { return ok(); }
  [[nodiscard]] const Error& error() const { return error_; }

 private:
  Error error_;
  bool failed_ = false;
};

}  // namespace foundation
