#pragma once

#include "platform/MainBundle.h"

namespace platform {

/// The main bundle by Core Foundation (CFBundle).
class MacMainBundle : public MainBundle {
 public:
  std::string path() override;
  std::string executablePath() override;
  foundation::PropertyList infoDictionary() override;
  std::optional<std::string> pathForIdentifier(const std::string& identifier) override;
  std::optional<std::string> pathForResource(const std::string& name, const std::string& type) override;
  std::string localizedString(const std::string& key) override;
};

}  // namespace platform
