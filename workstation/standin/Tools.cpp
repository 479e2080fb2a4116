#include "workstation/standin/Tools.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "workstation/Layout.h"
#include "workstation/RecordLine.h"
#include "workstation/standin/Knowledge.h"
#include "workstation/standin/Residents.h"

namespace workstation::standin {
namespace {

constexpr int usageStatus = 64;
const std::string daemonPath = "/usr/sbin/qmasterd";

bool exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

std::string folderOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

std::string nameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

int fail(const std::string& message, int status) {
  std::fprintf(stderr, "%s\n", message.c_str());
  return status;
}

int done(bool succeeded, const char* message) {
  return succeeded ? 0 : fail(message, 1);
}

// qmasterprefs

std::string key(const char* name) {
  const bool insideApplication = executablePath().find(".app/") != std::string::npos;
  return std::string(insideApplication ? "qmaster4." : "qmaster.") + name;
}

std::string companion(const char* name) {
  return folderOf(executablePath()) + '/' + name;
}

bool startIfInstalled(const std::string& executable) {
  return !exists(executable) || isRunning(executable) || startResident(executable);
}

int cancelJobs() {
  return done(setValue(key("jobs"), "cancelled"), "qmasterprefs: cannot cancel the jobs");
}

int resetPreferences() {
  const auto resets = std::strtol(value(key("resets")).value_or("0").c_str(), nullptr, 10);
  return done(setValue(key("resets"), std::to_string(resets + 1)), "qmasterprefs: cannot reset");
}

int startSharing() {
  const bool started = setValue(key("sharing"), "on") && startIfInstalled(companion("qmasterca"));
  return done(started, "qmasterprefs: cannot start sharing");
}

int stopSharing() {
  const bool stopped = setValue(key("sharing"), "off") && endResidents(companion("qmasterca"));
  return done(stopped, "qmasterprefs: cannot stop sharing");
}

int restartDaemon() {
  const auto daemon = companion("qmasterd");
  return done(endResidents(daemon) && startIfInstalled(daemon), "qmasterprefs: cannot restart qmasterd");
}

// launchctl

/// The first string of the job file's ProgramArguments. Job files are XML; more of XML than the text between
/// two tags is not needed here, and a damaged file simply names no program.
std::optional<std::string> programOf(const std::string& jobFile) {
  const auto text = contentsOf(jobFile).value_or("");
  const auto key = text.find("<key>ProgramArguments</key>");
  const auto open = text.find("<string>", key == std::string::npos ? text.size() : key);
  const auto close = text.find("</string>", open == std::string::npos ? text.size() : open);
  if (close == std::string::npos) return std::nullopt;
  const auto begin = open + std::string_view("<string>").size();
  return text.substr(begin, close - begin);
}

/// Job files are named for their label.
std::string labelOf(const std::string& jobFile) {
  constexpr std::string_view extension = ".plist";
  auto name = nameOf(jobFile);
  if (name.ends_with(extension)) name.resize(name.size() - extension.size());
  return name;
}

int refuseUnlessRoot() {
  return ::geteuid() == 0 ? 0 : fail("launchctl: Socket is not connected: not permitted", 1);
}

int loadJob(const std::string& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return fail(
        "launchctl: Couldn't stat(\"" + file + "\"): No such file or directory\nnothing found to load", 1);
  }
  const auto program = programOf(file);
  if (!program) return fail("launchctl: Dubious job file: " + file + "\nnothing found to load", 1);
  const auto label = "launchd." + labelOf(file);
  if (value(label)) std::fprintf(stderr, "%s: Already loaded\n", labelOf(file).c_str());
  setValue(label, file);
  if (isRunning(*program)) return 0;
  return done(startResident(*program), "launchctl: the job's program could not be started");
}

int unloadLabel(const std::string& label) {
  const auto file = value("launchd." + label);
  if (!file) return fail("launchctl: Error unloading: " + label + ": No such process", 3);
  removeValue("launchd." + label);
  const auto program = programOf(*file);
  return done(!program || endResidents(*program), "launchctl: the job's program could not be ended");
}

int listJobs() {
  const std::string label = "com.apple.qmaster.qmasterd";
  std::printf("PID\tStatus\tLabel\n");
  if (value("launchd." + label)) std::printf("-\t0\t%s\n", label.c_str());
  return 0;
}

// scutil

bool isNameKey(const std::string& name) {
  return name == "ComputerName" || name == "LocalHostName" || name == "HostName";
}

int printName(const std::string& name) {
  const auto text = value(name);
  std::printf("%s\n", text ? text->c_str() : (name + ": not set").c_str());
  return text ? 0 : 1;
}

// open

/// A bundle's executable is the one file in its MacOS folder that bears the bundle's name.
std::string executableOf(const std::string& item) {
  constexpr std::string_view extension = ".app";
  auto path = item;
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  if (!path.ends_with(extension)) return path;
  const auto name = nameOf(path);
  return path + "/Contents/MacOS/" + name.substr(0, name.size() - extension.size());
}

bool isExecutableFile(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

int openApplication(const std::string& item) {
  const auto executable = executableOf(item);
  if (!isExecutableFile(executable)) return fail("Unable to find application named '" + item + "'", 1);
  if (isRunning(executable)) return 0;
  return done(startResident(executable), "LSOpenFromURLSpec() failed for the application");
}

}  // namespace

int qmasterPreferences(const Arguments& arguments) {
  if (arguments == Arguments{"-resetCluster", "cancelJobs"}) return cancelJobs();
  if (arguments == Arguments{"-reset"}) return resetPreferences();
  if (arguments == Arguments{"-startSharing"}) return startSharing();
  if (arguments == Arguments{"-stopSharing"}) return stopSharing();
  if (arguments == Arguments{"-restart"}) return restartDaemon();
  return fail(
      "usage: qmasterprefs -reset | -resetCluster cancelJobs | -restart | -startSharing | -stopSharing",
      usageStatus);
}

int startupItem(const Arguments& arguments) {
  if (exists(folderOf(executablePath()) + "/.disabled")) return fail("Qmaster is disabled", 0);
  const bool stops = arguments == Arguments{"stop"} || arguments == Arguments{"restart"};
  const bool starts = arguments == Arguments{"start"} || arguments == Arguments{"restart"};
  if (!stops && !starts) return fail("usage: Qmaster start | stop | restart", usageStatus);
  if (stops && !endResidents(daemonPath)) return fail("Qmaster: qmasterd could not be ended", 1);
  if (!starts || isRunning(daemonPath)) return 0;
  return done(startResident(daemonPath), "Qmaster: qmasterd could not be started");
}

int launchControl(const Arguments& arguments) {
  if (arguments == Arguments{"list"}) return listJobs();
  if (arguments.size() != 2) return fail("usage: launchctl load | unload | remove | list", usageStatus);
  if (const int refused = refuseUnlessRoot()) return refused;
  const auto& [verb, what] = std::pair(arguments[0], arguments[1]);
  if (verb == "load") return loadJob(what);
  if (verb == "unload") return unloadLabel(labelOf(what));
  if (verb == "remove") return unloadLabel(what);
  return fail("launchctl: unrecognized subcommand: " + verb, usageStatus);
}

int systemConfiguration(const Arguments& arguments) {
  const bool knownName = arguments.size() > 1 && isNameKey(arguments[1]);
  if (knownName && arguments.size() == 2 && arguments[0] == "--get") return printName(arguments[1]);
  if (knownName && arguments.size() == 3 && arguments[0] == "--set") {
    if (::geteuid() != 0) return fail("SCPreferencesCommitChanges() failed: Permission denied", 1);
    return done(setValue(arguments[1], arguments[2]), "SCPreferencesCommitChanges() failed");
  }
  return fail("usage: scutil --get pref | --set pref newval", usageStatus);
}

int setUpShortcutKeys(const Arguments& arguments) {
  if (arguments != Arguments{"-setup"}) return fail("usage: TGShortcutKeyManager -setup", usageStatus);
  return 0;
}

int openItem(const Arguments& arguments) {
  if (arguments.size() >= 2 && arguments[0] == "-a") return openApplication(arguments[1]);
  if (arguments.empty() || arguments[0].starts_with('-'))
    return fail("usage: open [-a application] item", usageStatus);
  if (isExecutableFile(executableOf(arguments[0]))) return openApplication(arguments[0]);
  const bool isAddress = arguments[0].find(':') != std::string::npos;
  if (!isAddress && !exists(arguments[0])) return fail("The file " + arguments[0] + " does not exist.", 1);
  return 0;
}

}  // namespace workstation::standin
