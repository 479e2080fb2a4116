#include "platform/posix/ProcessTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <memory>
#include <string_view>

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

std::optional<pid_t> processNumber(std::string_view name) {
  pid_t pid = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
  if (error != std::errc() || end != name.data() + name.size() || pid <= 0) return std::nullopt;
  return pid;
}

std::string smallFile(int folder, const char* name) {
  const UniqueDescriptor file(openat(folder, name, O_RDONLY | O_CLOEXEC));
  std::array<char, 4096> text{};
  const ssize_t count = file ? read(file.get(), text.data(), text.size()) : -1;
  return count <= 0 ? std::string() : std::string(text.data(), static_cast<std::size_t>(count));
}

/// The field of that number (1 is the first) in what follows the process name, which may hold anything.
std::string_view statField(std::string_view afterName, int number) {
  for (; number > 1; --number) {
    const std::size_t blank = afterName.find(' ');
    if (blank == std::string_view::npos) return {};
    afterName.remove_prefix(blank + 1);
  }
  return afterName.substr(0, afterName.find_first_of(" \n"));
}

template <typename Number>
bool parse(std::string_view text, Number& number) {
  return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
}

/// State, parent, process group, session and start time are fields 3, 4, 5, 6 and 22 of the line; the name,
/// field 2, ends at the last ')'.
bool readStat(int folder, ProcessInfo& info) {
  const std::string line = smallFile(folder, "stat");
  const std::size_t nameEnd = line.rfind(')');
  if (nameEnd == std::string::npos || nameEnd + 2 >= line.size()) return false;
  const std::string_view rest = std::string_view(line).substr(nameEnd + 2);
  info.state = rest.front();
  return parse(statField(rest, 2), info.parent) && parse(statField(rest, 3), info.processGroup) &&
         parse(statField(rest, 4), info.session) && parse(statField(rest, 20), info.startTime);
}

bool readUser(int folder, ProcessInfo& info) {
  const std::string status = smallFile(folder, "status");
  constexpr std::string_view kLabel = "\nUid:\t";
  const std::size_t label = status.find(kLabel);
  if (label == std::string::npos) return false;
  const std::string_view number = std::string_view(status).substr(label + kLabel.size());
  return parse(number.substr(0, number.find('\t')), info.realUser);
}

std::string linkText(int folder, const char* name) {
  std::string text(4096, '\0');
  while (true) {
    const ssize_t length = readlinkat(folder, name, text.data(), text.size());
    if (length < 0) return "";
    if (static_cast<std::size_t>(length) < text.size())
      return text.substr(0, static_cast<std::size_t>(length));
    text.resize(text.size() * 2);
  }
}

/// A program may bear a name that ends in " (deleted)": then the file at that very path is the one that runs.
void readExecutable(int folder, ProcessInfo& info) {
  constexpr std::string_view kMark = " (deleted)";
  struct stat running {};
  info.executable = linkText(folder, "exe");
  if (info.executable.empty() || fstatat(folder, "exe", &running, 0) != 0) {
    info.executable.clear();
    return;
  }
  info.executableDevice = running.st_dev;
  info.executableInode = running.st_ino;
  if (!info.executable.ends_with(kMark)) return;
  struct stat named {};
  if (lstat(info.executable.c_str(), &named) == 0 && named.st_dev == running.st_dev &&
      named.st_ino == running.st_ino) {
    return;
  }
  info.executable.resize(info.executable.size() - kMark.size());
  info.executableDeleted = true;
}

}  // namespace

std::optional<ProcessInfo> ProcessTable::process(pid_t pid) const {
  const std::string path = procFolder_ + "/" + std::to_string(pid);
  const UniqueDescriptor folder(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return std::nullopt;
  ProcessInfo info;
  info.pid = pid;
  if (!readStat(folder.get(), info) || !readUser(folder.get(), info)) return std::nullopt;
  readExecutable(folder.get(), info);
  return info;
}

std::vector<ProcessInfo> ProcessTable::processes() const {
  std::vector<ProcessInfo> found;
  const std::unique_ptr<DIR, CloseFolder> folder(opendir(procFolder_.c_str()));
  if (!folder) return found;
  while (const dirent* entry = readdir(folder.get())) {  // NOLINT(concurrency-mt-unsafe): a stream of our own
    const std::optional<pid_t> pid = processNumber(entry->d_name);
    if (!pid) continue;
    if (std::optional<ProcessInfo> info = process(*pid)) found.push_back(std::move(*info));
  }
  return found;
}

bool ProcessTable::hasOurRoot(pid_t pid) const {
  struct stat theirs {};
  struct stat ours {};
  const std::string link = procFolder_ + "/" + std::to_string(pid) + "/root";
  return stat(link.c_str(), &theirs) == 0 && stat("/", &ours) == 0 && theirs.st_dev == ours.st_dev &&
         theirs.st_ino == ours.st_ino;
}

UniqueDescriptor ProcessHandle::descriptorOf(pid_t pid) {
  return UniqueDescriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
}

bool ProcessHandle::isSame(const ProcessInfo& seen, const ProcessInfo& now) {
  return now.startTime == seen.startTime && now.executable == seen.executable &&
         now.executableDevice == seen.executableDevice && now.executableInode == seen.executableInode;
}

Result<void> ProcessHandle::signal(int number) const {
  if (syscall(SYS_pidfd_send_signal, descriptor_.get(), number, nullptr, 0) != 0) {
    return systemError(errno, info_.executable);
  }
  return {};
}

}  // namespace platform
