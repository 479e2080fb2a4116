#include "platform/linux/LinuxApplications.h"

#include <sys/stat.h>

#include <algorithm>
#include <csignal>

#include "platform/linux/ApplicationBundles.h"
#include "platform/linux/ApplicationRegistry.h"

namespace platform {
namespace {

using foundation::PropertyList;

/// The program is the file at its path as we see it, or has been removed since it started.
bool isOurFile(const ProcessInfo& process) {
  if (process.executableDeleted) return true;
  struct stat status {};
  return ::stat(process.executable.c_str(), &status) == 0 && status.st_dev == process.executableDevice &&
         status.st_ino == process.executableInode;
}

struct RunningApplication {
  ProcessInfo process;
  ApplicationBundle bundle;
};

std::vector<RunningApplication> runningApplications(const ProcessTable& table) {
  std::vector<RunningApplication> running;
  for (ProcessInfo& process : table.processes()) {
    const auto bundle = bundleOfExecutable(process.executable);
    if (bundle && isOurFile(process)) running.push_back({std::move(process), readBundle(*bundle)});
  }
  return running;
}

bool askProcess(const ProcessTable& table, const ProcessInfo& process) {
  auto handle = ProcessHandle::open(table, process);
  return handle && handle.value().signal(SIGTERM);
}

PropertyList appleScriptError(const std::string& application, int number, const std::string& brief) {
  return PropertyList::Dictionary{
      {"NSAppleScriptErrorAppName", application},
      {"NSAppleScriptErrorBriefMessage", brief},
      {"NSAppleScriptErrorMessage", application + " got an error: " + brief},
      {"NSAppleScriptErrorNumber", number},
  };
}

}  // namespace

std::optional<std::string> LinuxApplications::pathForIdentifier(const std::string& identifier) {
  if (identifier.empty()) return std::nullopt;
  for (const std::string& path : applicationPaths(root_)) {
    if (readBundle(path).identifier() == identifier) return path;
  }
  return std::nullopt;
}

OSStatus LinuxApplications::registerApplication(const std::string& path) {
  const auto registered = registerApplicationBundle(root_, path);
  return registered ? noErr : statusForErrno(registered.error().code);
}

std::vector<std::string> LinuxApplications::launchedIdentifiers() {
  std::vector<std::string> identifiers;
  for (const RunningApplication& application : runningApplications(processes_)) {
    std::string identifier = application.bundle.identifier();
    const bool known = std::find(identifiers.begin(), identifiers.end(), identifier) != identifiers.end();
    if (!identifier.empty() && !known) identifiers.push_back(std::move(identifier));
  }
  return identifiers;
}

std::optional<PropertyList> LinuxApplications::askToQuit(const std::string& applicationName) {
  bool found = false;
  bool asked = false;
  for (const RunningApplication& application : runningApplications(processes_)) {
    if (!application.bundle.isCalled(applicationName)) continue;
    const bool received = askProcess(processes_, application.process);
    found = found || received || processes_.process(application.process.pid).has_value();
    asked = asked || received;
  }
  if (asked) return std::nullopt;
  if (!found) return appleScriptError(applicationName, kProcessNotFoundError, "Application isn’t running.");
  return appleScriptError(applicationName, kPrivilegeViolation, "A privilege violation occurred.");
}

}  // namespace platform
