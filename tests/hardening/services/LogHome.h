#pragma once

#include <string>

#include "tests/support/TemporaryFolder.h"

namespace hardening {

/// A home with a full set of generations; each line of theirs says which it was.
class Home {
 public:
  Home() {
    for (int number = 1; number <= 5; ++number) {
      static_cast<void>(folder_.file(relative(number), "was generation " + std::to_string(number) + "\n"));
    }
  }

  [[nodiscard]] const std::string& path() const { return folder_.path(); }
  [[nodiscard]] std::string logs() const { return folder_ / "Library/Logs/Vordenworks"; }
  [[nodiscard]] static std::string relative(int number) {
    return "Library/Logs/Vordenworks/Quillmend." + std::to_string(number) + ".log";
  }
  [[nodiscard]] std::string content(int number) const { return folder_.content(relative(number)); }
  /// All the generations, the oldest first.
  [[nodiscard]] std::string everything() const {
    std::string all;
    for (int number = 5; number >= 1; --number) all += content(number);
    return all;
  }
  [[nodiscard]] bool has(const std::string& line) const {
    return everything().find(line + "\n") != std::string::npos;
  }

 private:
  support::TemporaryFolder folder_;
};

}  // namespace hardening
