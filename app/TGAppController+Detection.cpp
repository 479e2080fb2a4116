#include <algorithm>
#include <array>

#include "app/TGAppController.h"
#include "diagnostics/TGException.h"
#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "services/TGFileManager.h"
#include "services/TGLocalPaths.h"

using foundation::appendingPathComponent;

namespace {

constexpr const char* kNameTool = "/usr/sbin/scutil";

std::vector<std::optional<std::string>> candidatePaths() {
  std::vector<std::optional<std::string>> paths;
  if (const auto folder = TGLocalPaths::applicationDirectory(Domain::local)) {
    paths.emplace_back(appendingPathComponent(*folder, "Final Cut Studio/Compressor.app"));
    paths.emplace_back(appendingPathComponent(*folder, "Compressor.app"));
  }
  auto& applications = platform::current().applications;
  paths.push_back(applications.pathForIdentifier("com.apple.compressor.Compressor"));
  paths.push_back(applications.pathForIdentifier("com.apple.Compressor"));
  return paths;
}

/// The file that tells an application's version.
std::optional<std::string> versionFile(const std::string& application) {
  std::optional<std::string> chosen;
  const std::string versionList = appendingPathComponent(application, "Contents/version.plist");
  if (TGFileManager::fileExistsAtPath(versionList)) chosen = versionList;
  // On purpose not the Info.plist itself: its being there only says that version.plist is to be read.
  if (TGFileManager::fileExistsAtPath(appendingPathComponent(application, "Contents/Info.plist"))) {
    chosen = versionList;
  }
  return chosen;
}

/// The full version string of a version file's dictionary; nullptr when there is none that is a string.
const std::string* versionString(const foundation::PropertyList& dictionary) {
  const auto* value = dictionary.find("CFBundleShortVersionString");
  if (value == nullptr) value = dictionary.find("CFBundleVersion");
  return value == nullptr ? nullptr : value->as<std::string>();
}

/// "3.5.2" and "3.5" give "3.5"; "3" gives nothing.
std::optional<std::string> majorAndMinor(const std::string& version) {
  const std::size_t first = version.find('.');
  if (first == std::string::npos) return std::nullopt;
  return version.substr(0, version.find('.', first + 1));
}

}  // namespace

std::vector<std::string> TGAppController::compressorVersions() {
  std::vector<std::string> seen;
  std::vector<std::string> versions;
  for (const auto& path : candidatePaths()) {
    if (!path || std::find(seen.begin(), seen.end(), *path) != seen.end()) continue;
    seen.push_back(*path);
    if (auto version = versionFromPath(*path)) versions.push_back(std::move(*version));
  }
  return versions;
}

std::optional<std::string> TGAppController::versionFromPath(const std::string& path) {
  const auto file = versionFile(path);
  if (!TGFileManager::fileExistsAtPath(file)) return std::nullopt;
  const auto dictionary = platform::readDictionary(*file);
  if (!dictionary) return std::nullopt;
  const std::string* const version = versionString(dictionary.value());
  return version == nullptr ? std::nullopt : majorAndMinor(*version);
}

std::string TGAppController::currentBundlePath() {
  auto& mainBundle = platform::current().mainBundle;
  const auto path = mainBundle.pathForIdentifier(identifiers::kApplication);
  return path ? *path : mainBundle.path();
}

std::string TGAppController::currentExePath() {
  return currentBundlePath() + "/Contents/MacOS/Quillmend";
}

std::optional<std::string> TGAppController::returnTaskOutput(const std::string& tool,
                                                             const std::vector<std::string>& arguments) {
  std::optional<std::string> output;
  guarded("-[TGAppController returnTaskOutputWithTool:arguments:]", [&] {
    const auto task =
        platform::current().subprocesses.create({.launchPath = tool,
                                                 .arguments = arguments,
                                                 .standardOutput = platform::Stream::pipe,
                                                 .standardError = platform::Stream::nullDevice});
    task->launch();
    // Read first, then waited for: a tool that says more than a pipe holds would never end otherwise.
    std::string text;
    for (std::string piece = task->availableOutput(); !piece.empty(); piece = task->availableOutput()) {
      text += piece;
    }
    task->closeOutput();
    task->waitUntilExit();
    if (task->terminationStatus() != 0) output = std::move(text);
  });
  return output;
}

bool TGAppController::checkComputerName() {
  bool hasNames = false;
  guarded("-[TGAppController checkComputerName]", [&] {
    const auto computerName = returnTaskOutput(kNameTool, {"--get", "ComputerName"});
    const auto localHostName = returnTaskOutput(kNameTool, {"--get", "LocalHostName"});
    // A tool that cannot be run has said nothing against the name.
    hasNames = !computerName && !localHostName;
  });
  return hasNames;
}
