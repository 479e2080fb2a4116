#pragma once

#include <cstddef>

namespace hardening {

/// How many bytes more than at its beginning have been held at any moment since, by C++'s own allocations:
/// the program that links AllocationCount.cpp has its operator new and delete count.
class AllocationPeak {
 public:
  AllocationPeak();
  [[nodiscard]] std::size_t bytes() const;

 private:
  std::size_t before_;
};

}  // namespace hardening
