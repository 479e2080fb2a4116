// open [-a application] [file...], for systems that have no open(1).
//
// Files are opened by the desktop (xdg-open), or with -a by an application: a bundle or an executable by its
// path, or the name of a bundle in an Applications folder. The application gets the files as its arguments.
// What is started runs on by itself; open ends at once: 0 when it was started, 1 when not, 64 for wrong
// arguments.

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/foundation/Paths.h"

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

/// Where an application's name is looked for.
std::vector<std::string> applicationFolders() {
  std::vector<std::string> folders = {"/Applications", "/Applications/Utilities",
                                      "/System/Library/CoreServices"};
  if (const char* const home = std::getenv("HOME"); home != nullptr) {
    folders.push_back(appendingPathComponent(home, "Applications"));
  }
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

/// Starts a program that runs on by itself, in a session of its own; 0 or an errno value.
int startDetached(std::vector<std::string> command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (std::string& argument : command) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t streams;
  ::posix_spawn_file_actions_init(&streams);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    ::posix_spawn_file_actions_addopen(&streams, stream, "/dev/null", O_RDWR, 0);
  }
  ::posix_spawn_file_actions_addclosefrom_np(&streams, STDERR_FILENO + 1);
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  pid_t child = 0;
  const int reason =
      ::posix_spawnp(&child, command.front().c_str(), &streams, &attributes, arguments.data(), environ);
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&streams);
  return reason;
}

/// Starts it and says so when it could not be.
int start(const std::vector<std::string>& command) {
  const int reason = startDetached(command);
  if (reason != 0) std::fprintf(stderr, "open: %s: %s\n", command.front().c_str(), std::strerror(reason));
  return reason == 0 ? 0 : 1;
}

int openWith(const std::string& application, const std::vector<std::string>& files) {
  const auto executable = executableOf(application);
  if (!executable) {
    std::fprintf(stderr, "Unable to find application named '%s'\n", application.c_str());
    return 1;
  }
  std::vector<std::string> command = {*executable};
  command.insert(command.end(), files.begin(), files.end());
  return start(command);
}

bool isAddress(const std::string& text) {
  return text.find("://") != std::string::npos || text.starts_with("mailto:");
}

int openByDesktop(const std::string& file) {
  if (const auto executable = executableInBundle(file)) return start({*executable});
  if (isAddress(file)) return start({"xdg-open", file});
  std::error_code error;
  const std::string path = std::filesystem::absolute(file, error).string();
  if (::access(path.c_str(), F_OK) != 0) {
    std::fprintf(stderr, "The file %s does not exist.\n", path.c_str());
    return 1;
  }
  // An absolute path cannot be taken for an option.
  return start({"xdg-open", path});
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
