#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace platform {

/// Owns one retain count of a Core Foundation object, after Apple's Memory Management Programming Guide for
/// Core Foundation: what a function with Create or Copy in its name answers is owned, and may be null.
template <typename Reference>
class CoreFoundationReference {
 public:
  CoreFoundationReference() = default;
  explicit CoreFoundationReference(Reference owned) : reference_(owned) {}
  CoreFoundationReference(CoreFoundationReference&& other) noexcept
      : reference_(std::exchange(other.reference_, nullptr)) {}
  CoreFoundationReference& operator=(CoreFoundationReference&& other) noexcept {
    std::swap(reference_, other.reference_);
    return *this;
  }
  ~CoreFoundationReference() {
    if (reference_ != nullptr) CFRelease(reference_);
  }

  [[nodiscard]] Reference get() const { return reference_; }
  explicit operator bool() const { return reference_ != nullptr; }

 private:
  Reference reference_ = nullptr;
};

}  // namespace platform
