#include <array>

#include "diagnostics/TGException.h"
#include "platform/Platform.h"
#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"
#include "services/TGTask.h"
#include "services/UsablePath.h"

namespace {

using namespace std::chrono_literals;
using platform::FinderInformation;
using platform::kFinderFlagsOffset;
using platform::OSStatus;

/// Bits 1 to 3 of the Finder flags: kColor of the Mac's Finder.h.
constexpr unsigned kLabelMask = 0x000e;

/// Of the labels 1 to 7, as the Finder shows them.
constexpr std::array<TGColor, 7> kLabelColors = {{{0.0F, 0.0F, 0.72F},
                                                  {0.2056F, 0.5F, 0.85F},
                                                  {0.7917F, 0.26F, 0.86F},
                                                  {0.5789F, 0.56F, 0.98F},
                                                  {0.1388F, 0.54F, 0.95F},
                                                  {0.0083F, 0.54F, 1.0F},
                                                  {0.0888F, 0.52F, 0.98F}}};

unsigned finderFlags(const FinderInformation& information) {
  return static_cast<unsigned>(information[kFinderFlagsOffset]) << 8U | information[kFinderFlagsOffset + 1];
}

void setFinderFlags(FinderInformation& information, unsigned flags) {
  information[kFinderFlagsOffset] = static_cast<std::uint8_t>(flags >> 8U);
  information[kFinderFlagsOffset + 1] = static_cast<std::uint8_t>(flags);
}

}  // namespace

bool TGFileManager::touchFile(const Path& path) {
  if (!isUsable(path)) return false;
  const char* const tool = "/usr/bin/touch";
  const std::vector<std::string> arguments = {"-c", *path};
  bool touched = false;
  guarded("+[TGFileManager touchFile:]", [&] {
    if (platform::current().fileQueries.isAccessible(*path, platform::Access::write)) {
      TGTask::runTask(tool, arguments, 5s);
      touched = true;
    } else {
      touched = TGAuthorization::sharedController()->authExecTask(tool, arguments, Async::no) == 0;
    }
  });
  return touched;
}

std::uint16_t TGFileManager::finderColorIndexForPath(const Path& path) {
  if (!isUsable(path)) return 0;
  const auto information = platform::current().fileAttributes.finderInformation(*path);
  // Not masked, on purpose: an item with other flags set shows no colour.
  return information ? static_cast<std::uint16_t>(finderFlags(information.value())) : 0;
}

std::optional<TGColor> TGFileManager::finderColorForPath(const Path& path) {
  const unsigned index = finderColorIndexForPath(path);
  if (index < 2 || index > 15) return std::nullopt;
  return kLabelColors.at(index / 2 - 1);
}

void TGFileManager::setFinderColorIndex(int index, const Path& path) {
  if (!isUsable(path)) return;
  auto& attributes = platform::current().fileAttributes;
  auto information = attributes.finderInformation(*path);
  if (!information) return;
  const unsigned flags = finderFlags(information.value());
  setFinderFlags(information.value(), (flags & ~kLabelMask) | (static_cast<unsigned>(index) & kLabelMask));
  static_cast<void>(attributes.setFinderInformation(*path, information.value()));
}

platform::FSRef TGFileManager::stringToFSRef(const Path& path) {
  if (!isUsable(path)) return {};
  const auto reference = platform::current().fileReferences.reference(*path);
  return reference ? reference.value() : platform::FSRef();
}

TGFileManager::Path TGFileManager::stringWithFSRef(const platform::FSRef& reference) {
  const auto path = platform::current().fileReferences.path(reference);
  if (!path) return std::nullopt;
  return path.value();
}

bool TGFileManager::registerApplicationWithLaunchServices(const Path& path) {
  return isUsable(path) && platform::current().applications.registerApplication(*path) == platform::noErr;
}

OSStatus TGFileManager::notifyFileSystemChanged(const Path& path) {
  return SendFinderSyncEvent(stringToFSRef(path));
}

OSStatus SendFinderSyncEvent(const platform::FSRef& reference) {
  const auto item = platform::current().fileReferences.path(reference);
  if (!item) return platform::statusForErrno(item.error().code);
  return platform::current().fileBrowser.itemChanged(item.value());
}
