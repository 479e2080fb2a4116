#include "tests/hardening/services/AllocationCount.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>

#if defined(__SANITIZE_ADDRESS__)
#define UNDER_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UNDER_ADDRESS_SANITIZER
#endif
#endif

namespace {

/// May be less than nothing: what was there before the counting began can be given back.
std::atomic<std::ptrdiff_t> held = 0;
std::atomic<std::ptrdiff_t> most = 0;

void add(std::size_t size) {
  const std::ptrdiff_t now = held += static_cast<std::ptrdiff_t>(size);
  std::ptrdiff_t before = most;
  while (before < now && !most.compare_exchange_weak(before, now)) {
  }
}

void take(std::size_t size) {
  held -= static_cast<std::ptrdiff_t>(size);
}

}  // namespace

// The sanitizer's own malloc() stays.
#ifdef UNDER_ADDRESS_SANITIZER
#include <sanitizer/allocator_interface.h>

namespace {

std::size_t sizeOf(const volatile void* memory) {
  return ::__sanitizer_get_allocated_size(const_cast<const void*>(memory));
}

const int installed = ::__sanitizer_install_malloc_and_free_hooks(
    [](const volatile void* memory, std::size_t) { add(sizeOf(memory)); },
    [](const volatile void* memory) { take(memory == nullptr ? 0 : sizeOf(memory)); });

}  // namespace

#else
extern "C" {

// The C library's own, which those below stand in front of.
void* __libc_malloc(std::size_t size);                           // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(std::size_t count, std::size_t size);        // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* memory, std::size_t size);            // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT(bugprone-reserved-identifier)
void __libc_free(void* memory);                                  // NOLINT(bugprone-reserved-identifier)

}  // extern "C"

namespace {

void* noted(void* memory) {
  if (memory != nullptr) add(::malloc_usable_size(memory));
  return memory;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) noexcept {
  return noted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) noexcept {
  return noted(__libc_calloc(count, size));
}

/// Both pieces count while one is copied to the other, whether or not they lie in the same place.
void* realloc(void* memory, std::size_t size) noexcept {
  const std::size_t before = memory == nullptr ? 0 : ::malloc_usable_size(memory);
  void* const now = noted(__libc_realloc(memory, size));
  if (now != nullptr || size == 0) take(before);
  return now;
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return noted(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return noted(__libc_memalign(alignment, size));
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept {
  *memory = noted(__libc_memalign(alignment, size));
  return *memory == nullptr ? ENOMEM : 0;
}

void free(void* memory) noexcept {
  if (memory != nullptr) take(::malloc_usable_size(memory));
  __libc_free(memory);
}

}  // extern "C"
#endif

namespace hardening {

AllocationPeak::AllocationPeak() : before_(held) {
  most = before_;
}

std::size_t AllocationPeak::bytes() const {
  return static_cast<std::size_t>(most - before_);
}

}  // namespace hardening
