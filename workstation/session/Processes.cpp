#include "workstation/session/Processes.h"

#include <dirent.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "workstation/Layout.h"
#include "workstation/RecordLine.h"

namespace workstation::session {
namespace {

std::vector<pid_t> allProcesses() {
  std::vector<pid_t> found;
  DIR* folder = ::opendir("/proc");
  if (folder == nullptr) return found;
  while (const dirent* entry = ::readdir(folder)) {
    const auto process =
        static_cast<pid_t>(std::strtol(static_cast<const char*>(entry->d_name), nullptr, 10));
    if (process > 1) found.push_back(process);
  }
  ::closedir(folder);
  std::sort(found.begin(), found.end());
  return found;
}

std::string linkTarget(const std::string& path) {
  std::array<char, PATH_MAX> target{};
  const auto length = ::readlink(path.c_str(), target.data(), target.size());
  return length > 0 ? std::string(target.data(), static_cast<std::size_t>(length)) : std::string();
}

/// The state letter follows the name in parentheses, which may hold anything.
bool ended(const std::string& folder) {
  const auto text = contentsOf(folder + "/stat").value_or("");
  const auto name = text.rfind(')');
  const char state = name == std::string::npos || name + 2 >= text.size() ? 'Z' : text[name + 2];
  return state == 'Z' || state == 'X';
}

std::vector<std::string> argumentsOf(const std::string& folder) {
  auto words = split(contentsOf(folder + "/cmdline").value_or(""), '\0');
  words.pop_back();  // what follows the last zero
  if (!words.empty()) words.erase(words.begin());
  return words;
}

bool isResident(pid_t process) {
  const auto file = std::string(residentsFolder) + '/' + std::to_string(process);
  return ::access(file.c_str(), F_OK) == 0;
}

RunningProcess describe(pid_t process, const std::string& folder) {
  struct stat status {};
  ::stat(folder.c_str(), &status);
  return {process, status.st_uid, linkTarget(folder + "/exe"), argumentsOf(folder), isResident(process)};
}

}  // namespace

std::vector<RunningProcess> runningProcesses(const std::vector<pid_t>& without) {
  std::vector<RunningProcess> found;
  for (const pid_t process : allProcesses()) {
    const auto folder = "/proc/" + std::to_string(process);
    if (std::find(without.begin(), without.end(), process) != without.end() || ended(folder)) continue;
    found.push_back(describe(process, folder));
  }
  return found;
}

}  // namespace workstation::session
