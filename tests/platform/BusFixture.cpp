#include "tests/platform/BusFixture.h"

#include <fstream>
#include <sstream>

std::vector<pid_t> BusFixture::children() {
  std::vector<pid_t> found;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream list(thread.path() / "children");
    for (pid_t child = 0; list >> child;) found.push_back(child);
  }
  return found;
}

std::vector<pid_t> BusFixture::agents() {
  std::vector<pid_t> found;
  for (const pid_t child : children()) {
    std::ifstream file("/proc/" + std::to_string(child) + "/comm");
    std::string name;
    if (std::getline(file, name) && name == "busagent") found.push_back(child);
  }
  return found;
}
