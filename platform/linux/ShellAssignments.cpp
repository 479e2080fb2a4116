#include "platform/linux/ShellAssignments.h"

#include <algorithm>

#include "platform/foundation/Text.h"

namespace platform {
namespace {

bool isPartOfName(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
         (letter >= '0' && letter <= '9') || letter == '_';
}

/// The first word of a text, which ends at a blank or a semicolon outside of quotation marks.
class Word {
 public:
  Word(std::string_view text, const ShellVariables& variables) : text_(text), variables_(variables) {}

  std::string value() {
    while (!text_.empty() && !isEnd(text_.front())) take();
    return std::move(value_);
  }

 private:
  [[nodiscard]] bool isEnd(char letter) const {
    return quote_ == 0 && (letter == ' ' || letter == '\t' || letter == ';');
  }

  void take() {
    const char letter = text_.front();
    if (quote_ == 0 && (letter == '"' || letter == '\'')) {
      quote_ = letter;
      text_.remove_prefix(1);
    } else if (quote_ != 0 && letter == quote_) {
      quote_ = 0;
      text_.remove_prefix(1);
    } else if (letter == '\\' && quote_ != '\'' && text_.size() > 1) {
      takeEscaped();
    } else if (letter == '$' && quote_ != '\'') {
      takeVariable();
    } else {
      keep(1);
    }
  }

  /// Within quotation marks a backslash stands for itself but before what it is needed for.
  void takeEscaped() {
    constexpr std::string_view kNeedIt = "$`\"\\";
    const bool isNeeded = quote_ == 0 || kNeedIt.find(text_[1]) != std::string_view::npos;
    if (isNeeded) text_.remove_prefix(1);
    keep(isNeeded ? 1 : 2);
  }

  void takeVariable() {
    const auto* const end = std::find_if_not(text_.begin() + 1, text_.end(), isPartOfName);
    const auto length = static_cast<std::size_t>(end - text_.begin());
    const auto found = variables_.find(text_.substr(1, length - 1));
    if (found == variables_.end()) {
      keep(length);
      return;
    }
    value_ += found->second;
    text_.remove_prefix(length);
  }

  void keep(std::size_t count) {
    value_ += text_.substr(0, count);
    text_.remove_prefix(count);
  }

  std::string_view text_;
  const ShellVariables& variables_;
  std::string value_;
  char quote_ = 0;
};

}  // namespace

std::optional<std::string> shellAssignment(std::string_view file, std::string_view name,
                                           const ShellVariables& variables) {
  std::optional<std::string> value;
  while (!file.empty()) {
    const std::size_t end = std::min(file.find('\n'), file.size());
    const std::string line = foundation::trimmed(file.substr(0, end));
    file.remove_prefix(std::min(end + 1, file.size()));
    if (line.starts_with(name) && line.substr(name.size(), 1) == "=") {
      value = Word(std::string_view(line).substr(name.size() + 1), variables).value();
    }
  }
  return value;
}

}  // namespace platform
