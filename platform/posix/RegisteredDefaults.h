#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "platform/foundation/PropertyList.h"

namespace platform {

/// Values for keys that nobody has set (Preferences::registerDefaults). May be used by any thread.
class RegisteredDefaults {
 public:
  /// What is no dictionary adds nothing.
  void add(const foundation::PropertyList& dictionary) {
    const auto* const entries = dictionary.as<foundation::PropertyList::Dictionary>();
    if (entries == nullptr) return;
    const std::scoped_lock lock(mutex_);
    for (const auto& [key, value] : *entries) registered_.set(key, value);
  }

  [[nodiscard]] std::optional<foundation::PropertyList> value(const std::string& key) {
    const std::scoped_lock lock(mutex_);
    const foundation::PropertyList* const found = registered_.find(key);
    return found == nullptr ? std::nullopt : std::optional(*found);
  }

 private:
  std::mutex mutex_;
  foundation::PropertyList registered_;
};

}  // namespace platform
