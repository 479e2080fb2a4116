#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace workstation {

/// The words of a command line, taken from the front.
class CommandLine {
 public:
  CommandLine(int argc, char** argv) : words_(argv + (argc > 0 ? 1 : 0), argv + argc) {}

  [[nodiscard]] bool empty() const { return next_ == words_.size(); }
  [[nodiscard]] const std::string& peek() const { return words_[next_]; }

  /// REQUIRES !empty().
  const std::string& take() { return words_[next_++]; }

  /// The word after an option. Throws std::invalid_argument naming the option when there is none.
  const std::string& valueOf(const std::string& option) {
    if (empty()) throw std::invalid_argument(option + " needs a value");
    return take();
  }

  /// Everything that is left.
  std::vector<std::string> rest() {
    std::vector<std::string> left(words_.begin() + static_cast<std::ptrdiff_t>(next_), words_.end());
    next_ = words_.size();
    return left;
  }

 private:
  std::vector<std::string> words_;
  std::size_t next_ = 0;
};

}  // namespace workstation
