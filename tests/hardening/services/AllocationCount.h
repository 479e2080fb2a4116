#pragma once

#include <cstddef>

namespace hardening {

/// How many bytes more than at its beginning have been held at any moment since, whoever asked for them, C++
/// or a library in C: the program that links AllocationCount.cpp has malloc() and its kind count, with a
/// sanitizer the sanitizer's.
class AllocationPeak {
 public:
  AllocationPeak();
  [[nodiscard]] std::size_t bytes() const;

 private:
  std::ptrdiff_t before_;
};

}  // namespace hardening
