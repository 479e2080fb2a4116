#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

/// The Mac's system calls that the backend asks about the computer and its users, for tests on other systems.
namespace fakes {

struct SystemState {
  std::optional<std::string> consoleUser;
  std::map<std::pair<int, int>, std::vector<std::string>> folders;  ///< by folder and domain
  std::map<std::string, std::string> values;                        ///< of sysctl, as bytes
  std::vector<std::string> arguments;
};

SystemState& systemState();

}  // namespace fakes
