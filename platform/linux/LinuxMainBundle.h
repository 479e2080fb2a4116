#pragma once

#include "platform/Files.h"
#include "platform/MainBundle.h"
#include "platform/PropertyLists.h"

namespace platform {

/// The bundle around the running executable. The executable is where the kernel says that it is
/// (/proc/self/exe), so that a start through a symbolic link finds the bundle, and a name given by the caller
/// finds none.
class LinuxMainBundle : public MainBundle {
 public:
  LinuxMainBundle(FileQueries& files, PropertyLists& propertyLists)
      : files_(files), propertyLists_(propertyLists) {}
  /// With the path of an executable other than the running one.
  LinuxMainBundle(FileQueries& files, PropertyLists& propertyLists, std::string executable)
      : files_(files), propertyLists_(propertyLists), executable_(std::move(executable)) {}

  std::string path() override;
  std::string executablePath() override;
  foundation::PropertyList infoDictionary() override;
  std::optional<std::string> pathForIdentifier(const std::string& identifier) override;
  std::optional<std::string> pathForResource(const std::string& name, const std::string& type) override;
  std::string localizedString(const std::string& key) override;

 private:
  FileQueries& files_;
  PropertyLists& propertyLists_;
  const std::optional<std::string> executable_;
};

}  // namespace platform
