// open [-a application] [file...], for systems that have no open(1).
//
// Files are opened by the desktop (xdg-open), or with -a by an application: a bundle or an executable by its
// path, or the name of a bundle in an Applications folder (the computer's, or of whom it is opened for). The
// application gets the files as its arguments.
// What is started runs on by itself; open ends at once: 0 when it was started, 1 when not, 64 for wrong
// arguments. Root opens for the user at the console and as that user, through asuser; with nobody at the
// console nothing is started.

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "platform/foundation/Paths.h"
#include "platform/linux/ConsoleUser.h"
#include "platform/linux/ConsoleUserCommand.h"
#include "platform/posix/Accounts.h"
#include "platform/posix/SpawnedProgram.h"

namespace {

using foundation::appendingPathComponent;

constexpr int kUsageError = 64;

bool isExecutable(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

/// A bundle's executable: named as the bundle, else the only one in Contents/MacOS.
std::optional<std::string> executableInBundle(const std::string& bundle) {
  const std::string folder = appendingPathComponent(bundle, "Contents/MacOS");
  const std::string name = foundation::deletingPathExtension(foundation::lastPathComponent(bundle));
  if (isExecutable(appendingPathComponent(folder, name))) return appendingPathComponent(folder, name);
  std::vector<std::string> executables;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    if (isExecutable(entry.path().string())) executables.push_back(entry.path().string());
  }
  return executables.size() == 1 ? std::optional(executables.front()) : std::nullopt;
}

std::optional<std::string> executableAt(const std::string& path) {
  return isExecutable(path) ? std::optional(path) : executableInBundle(path);
}

/// The home of whom it is opened for: root opens for the user at the console.
std::optional<std::string> homeFolder() {
  if (::geteuid() == 0) {
    const auto user = platform::consoleUser();
    const auto account = user ? platform::accountNamed(*user) : std::nullopt;
    return account ? std::optional(account->home) : std::nullopt;
  }
  const char* const home = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe): one thread
  return home == nullptr ? std::nullopt : std::optional<std::string>(home);
}

/// Where an application's name is looked for.
std::vector<std::string> applicationFolders() {
  std::vector<std::string> folders = {"/Applications", "/Applications/Utilities",
                                      "/System/Library/CoreServices"};
  if (const auto home = homeFolder()) folders.push_back(appendingPathComponent(*home, "Applications"));
  return folders;
}

std::optional<std::string> executableOf(const std::string& application) {
  if (application.find('/') != std::string::npos) return executableAt(application);
  const bool isWhole = application.ends_with(".app");
  for (const std::string& folder : applicationFolders()) {
    const std::string bundle = appendingPathComponent(folder, isWhole ? application : application + ".app");
    if (auto executable = executableInBundle(bundle)) return executable;
  }
  return std::nullopt;
}

std::vector<std::string> searchPath() {
  const char* const value = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe): one thread
  std::stringstream folders(value != nullptr ? value : "/usr/bin:/bin");
  std::vector<std::string> path;
  for (std::string folder; std::getline(folders, folder, ':');) path.push_back(folder);
  return path;
}

std::optional<std::string> programCalled(const std::string& name) {
  for (const std::string& folder : searchPath()) {
    const std::string program = appendingPathComponent(folder, name);
    if (folder.starts_with('/') && isExecutable(program)) return program;
  }
  return std::nullopt;
}

std::string absolute(const std::string& path) {
  std::error_code error;
  std::string whole = std::filesystem::absolute(path, error).string();
  return error ? path : whole;
}

/// A file that is there, by its whole path: what is started may not start in this folder.
std::string argumentFor(const std::string& file) {
  return ::access(file.c_str(), F_OK) == 0 ? absolute(file) : file;
}

/// The folder of this program, where the bundle's other tools lie.
std::string toolFolder() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

int complain(const std::string& what, const std::string& why) {
  std::fprintf(stderr, "open: %s: %s\n", what.c_str(), why.c_str());
  return 1;
}

/// Starts a program that runs on by itself, in a session of its own; says so when it could not be started.
int start(const std::vector<std::string>& command) {
  std::optional<std::vector<std::string>> wanted = command;
  if (::geteuid() == 0) {
    wanted = platform::commandForConsoleUser(toolFolder(), platform::consoleUser(), command);
    if (!wanted) return complain(command.front(), "nobody is at the console to open it for");
  }
  const auto child = platform::spawnProgram({.command = *wanted,
                                             .environment = platform::currentEnvironment(),
                                             .session = platform::ChildSession::own});
  if (child) return 0;
  std::fprintf(stderr, "open: %s\n", child.error().localizedDescription().c_str());
  return 1;
}

int openWith(const std::string& application, const std::vector<std::string>& files) {
  const auto executable = executableOf(application);
  if (!executable) {
    std::fprintf(stderr, "Unable to find application named '%s'\n", application.c_str());
    return 1;
  }
  std::vector<std::string> command = {absolute(*executable)};
  for (const std::string& file : files) command.push_back(argumentFor(file));
  return start(command);
}

bool isAddress(const std::string& text) {
  return text.find("://") != std::string::npos || text.starts_with("mailto:");
}

int handToDesktop(const std::string& item) {
  const auto opener = programCalled("xdg-open");
  return opener ? start({*opener, item}) : complain("xdg-open", "No such file or directory");
}

int openByDesktop(const std::string& file) {
  if (const auto executable = executableInBundle(file)) return start({absolute(*executable)});
  if (isAddress(file)) return handToDesktop(file);
  // An absolute path cannot be taken for an option.
  const std::string path = absolute(file);
  if (::access(path.c_str(), F_OK) == 0) return handToDesktop(path);
  std::fprintf(stderr, "The file %s does not exist.\n", path.c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> files(argv + 1, argv + argc);
  if (files.size() >= 2 && files[0] == "-a") {
    return openWith(files[1], {files.begin() + 2, files.end()});
  }
  if (files.empty() || files.front().starts_with('-')) {
    std::fputs("usage: open [-a application] [file...]\n", stderr);
    return kUsageError;
  }
  int status = 0;
  for (const std::string& file : files) {
    if (openByDesktop(file) != 0) status = 1;
  }
  return status;
}
