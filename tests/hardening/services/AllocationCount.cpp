#include "tests/hardening/services/AllocationCount.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> held = 0;
std::atomic<std::size_t> most = 0;

void note(void* memory) {
  const std::size_t now = held += ::malloc_usable_size(memory);
  std::size_t before = most;
  while (before < now && !most.compare_exchange_weak(before, now)) {
  }
}

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = std::malloc(std::max<std::size_t>(size, 1));
  if (memory == nullptr) throw std::bad_alloc();
  note(memory);
  return memory;
}

void operator delete(void* memory) noexcept {
  if (memory != nullptr) held -= ::malloc_usable_size(memory);
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  operator delete(memory);
}

namespace hardening {

AllocationPeak::AllocationPeak() : before_(held) {
  most = before_;
}

std::size_t AllocationPeak::bytes() const {
  return most - before_;
}

}  // namespace hardening
