#pragma once

#include <optional>
#include <string>

#include "platform/foundation/PropertyList.h"

namespace platform {

/// The bundle that this program was started from.
class MainBundle {
 public:
  virtual ~MainBundle() = default;

  /// The bundle's folder, "/Applications/Quillmend.app"; for a program outside a bundle, its folder.
  [[nodiscard]] virtual std::string path() = 0;

  [[nodiscard]] virtual std::string executablePath() = 0;

  /// Contents/Info.plist as a dictionary; empty when there is none.
  [[nodiscard]] virtual foundation::PropertyList infoDictionary() = 0;

  /// The folder of a loaded bundle with that identifier (CFBundleGetBundleWithIdentifier), or nullopt.
  [[nodiscard]] virtual std::optional<std::string> pathForIdentifier(const std::string& identifier) = 0;

  /// The path of Contents/Resources/<name>.<type>, or nullopt when nothing is there.
  [[nodiscard]] virtual std::optional<std::string> pathForResource(const std::string& name,
                                                                   const std::string& type) = 0;

  /// The text of a key in the bundle's localized strings, in the language of the user's that the bundle has
  /// (Contents/Resources/<language>.lproj/Localizable.strings, a property list), else in the bundle's own;
  /// the key itself where there is none: localizedStringForKey:value:table: with an empty value.
  [[nodiscard]] virtual std::string localizedString(const std::string& key) = 0;
};

}  // namespace platform
