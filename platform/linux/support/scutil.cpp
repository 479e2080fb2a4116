// scutil --get ComputerName|LocalHostName, for systems that have no scutil(8).
//
// Prints the name and exits 0; prints "ComputerName: not set" and exits 1 when nobody has given the computer
// one.

#include <cstdio>
#include <string>

#include "platform/linux/ComputerNames.h"

namespace {

constexpr int kUsageError = 64;

int usage() {
  std::fputs("usage: scutil --get ComputerName|LocalHostName\n", stderr);
  return kUsageError;
}

int print(const std::string& key, const std::optional<std::string>& name) {
  std::printf("%s\n", name ? name->c_str() : (key + ": not set").c_str());
  return name ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 || std::string(argv[1]) != "--get") return usage();
  const platform::ComputerNames names("/etc");
  const std::string key = argv[2];
  if (key == "ComputerName") return print(key, names.computerName());
  if (key == "LocalHostName") return print(key, names.localHostName());
  return usage();
}
