#include "platform/macos/MacApplications.h"

#include <CoreServices/CoreServices.h>
#include <libproc.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "platform/Platform.h"
#include "platform/foundation/Text.h"
#include "platform/macos/AppleScript.h"
#include "platform/macos/ConsoleSession.h"
#include "platform/macos/CoreFoundationValues.h"
#include "platform/macos/WorkspaceApplications.h"

namespace platform {
namespace {

using foundation::PropertyList;

constexpr int kProcessNotFound = -600;  // procNotFound

bool isRoot() {
  return current().usersAndFolders.userID() == 0;
}

bool rootMayTrust(const std::string& path) {
  return path.starts_with("/Applications/") || path.starts_with("/Library/") || path.starts_with("/System/");
}

/// The list may be behind: what has no process any more has ended.
bool hasEnded(pid_t process) {
  return process > 0 && ::kill(process, 0) != 0 && errno == ESRCH;
}

std::vector<pid_t> allProcesses() {
  const int count = ::proc_listallpids(nullptr, 0);
  if (count <= 0) return {};
  // Some more, for those that start meanwhile.
  std::vector<pid_t> processes(static_cast<std::size_t>(count) + 64);
  const int found = ::proc_listallpids(processes.data(), static_cast<int>(processes.size() * sizeof(pid_t)));
  processes.resize(static_cast<std::size_t>(std::max(found, 0)));
  return processes;
}

/// The bundle whose program it is; nullopt for every other program.
std::optional<std::string> bundleOfProgram(const std::string& program) {
  const std::size_t at = program.rfind(".app/Contents/MacOS/");
  if (at == std::string::npos) return std::nullopt;
  return program.substr(0, at + 4);
}

std::optional<std::string> bundleOfProcess(pid_t process) {
  std::array<char, PROC_PIDPATHINFO_MAXSIZE> path{};
  if (::proc_pidpath(process, path.data(), static_cast<std::uint32_t>(path.size())) <= 0) return std::nullopt;
  return bundleOfProgram(path.data());
}

void addOnce(std::vector<std::string>& identifiers, const std::string& identifier) {
  const bool known = std::find(identifiers.begin(), identifiers.end(), identifier) != identifiers.end();
  if (!identifier.empty() && !known) identifiers.push_back(identifier);
}

std::vector<std::string> bundlesOfProcesses() {
  std::vector<std::string> bundles;
  for (const pid_t process : allProcesses()) {
    if (const auto bundle = bundleOfProcess(process)) addOnce(bundles, *bundle);
  }
  return bundles;
}

/// Between double quotation marks, as AppleScript reads it.
std::string quoted(const std::string& text) {
  std::string inQuotes;
  for (const char character : text) {
    if (character == '"' || character == '\\') inQuotes += '\\';
    inQuotes += character;
  }
  return inQuotes;
}

std::string quitScript(const std::string& application) {
  return foundation::stringWithFormat(
      "ignoring application responses\ntell application \"%@\" to quit\nend ignoring", quoted(application));
}

std::optional<PropertyList> askInConsoleSession(const std::string& script) {
  if (startForUser({"/usr/bin/osascript", "-e", script})) return std::nullopt;
  return appleScriptError(kProcessNotFound, "Nobody is at the console.");
}

}  // namespace

std::optional<std::string> MacApplications::pathForIdentifier(const std::string& identifier) {
  auto path = workspacePathForIdentifier(identifier);
  if (!path || identifierOfBundle(*path) != identifier) return std::nullopt;
  if (isRoot() && !rootMayTrust(*path)) return std::nullopt;
  return path;
}

OSStatus MacApplications::registerApplication(const std::string& path) {
  const CoreFoundationURL address = fileURL(path);
  if (!address) return paramErr;
  return ::LSRegisterURL(address.get(), 1);
}

std::vector<std::string> MacApplications::launchedIdentifiers() {
  std::vector<std::string> identifiers;
  for (const RunningApplication& application : workspaceRunningApplications()) {
    if (!hasEnded(application.process)) addOnce(identifiers, application.identifier);
  }
  if (!isRoot()) return identifiers;
  for (const std::string& bundle : bundlesOfProcesses()) {
    addOnce(identifiers, identifierOfBundle(bundle).value_or(""));
  }
  return identifiers;
}

std::optional<PropertyList> MacApplications::askToQuit(const std::string& applicationName) {
  const std::string script = quitScript(applicationName);
  if (isRoot()) return askInConsoleSession(script);
  std::optional<PropertyList> error;
  current().mainThread.perform([&] { error = runAppleScript(script); }, Wait::yes);
  return error;
}

}  // namespace platform
