#include "platform/macos/MacMainBundle.h"

#include "platform/macos/CoreFoundationValues.h"

namespace platform {

std::string MacMainBundle::path() {
  auto* const bundle = CFBundleGetMainBundle();
  if (bundle == nullptr) return {};
  return pathOf(CoreFoundationURL(CFBundleCopyBundleURL(bundle)).get()).value_or("");
}

std::string MacMainBundle::executablePath() {
  auto* const bundle = CFBundleGetMainBundle();
  if (bundle == nullptr) return {};
  return pathOf(CoreFoundationURL(CFBundleCopyExecutableURL(bundle)).get()).value_or("");
}

foundation::PropertyList MacMainBundle::infoDictionary() {
  auto* const bundle = CFBundleGetMainBundle();
  if (bundle == nullptr) return {};
  // The system adds addresses to it, of its file among others.
  return knownEntriesOf(CFBundleGetInfoDictionary(bundle));
}

std::optional<std::string> MacMainBundle::pathForIdentifier(const std::string& identifier) {
  const CoreFoundationString name = coreFoundationString(identifier);
  auto* const bundle = name ? CFBundleGetBundleWithIdentifier(name.get()) : nullptr;
  if (bundle == nullptr) return std::nullopt;
  return pathOf(CoreFoundationURL(CFBundleCopyBundleURL(bundle)).get());
}

std::optional<std::string> MacMainBundle::pathForResource(const std::string& name, const std::string& type) {
  auto* const bundle = CFBundleGetMainBundle();
  const CoreFoundationString base = coreFoundationString(name);
  const CoreFoundationString extension = coreFoundationString(type);
  if (bundle == nullptr || !base || !extension) return std::nullopt;
  return pathOf(
      CoreFoundationURL(CFBundleCopyResourceURL(bundle, base.get(), extension.get(), nullptr)).get());
}

std::string MacMainBundle::localizedString(const std::string& key) {
  auto* const bundle = CFBundleGetMainBundle();
  const CoreFoundationString name = coreFoundationString(key);
  if (bundle == nullptr || !name) return key;
  const CoreFoundationString text(CFBundleCopyLocalizedString(bundle, name.get(), name.get(), nullptr));
  return text ? textOf(text.get()) : key;
}

}  // namespace platform
