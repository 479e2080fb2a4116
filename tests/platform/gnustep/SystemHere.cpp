#include "tests/platform/gnustep/SystemHere.h"

#include <CoreServices/CoreServices.h>
#include <libproc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

#include "platform/macos/CoreFoundationValues.h"
#include "tests/platform/gnustep/CoreFoundationOnFoundation.h"

namespace {

std::vector<std::string> registered;

std::vector<int> processes() {
  std::vector<int> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const int number = std::atoi(entry.path().filename().c_str());
    if (number > 0) found.push_back(number);
  }
  return found;
}

}  // namespace

namespace gnustep {

std::vector<std::string> takeRegisteredPaths() {
  return std::exchange(registered, {});
}

}  // namespace gnustep

// Made here, in a file that is initialized after the other has made its classes known.
extern "C" {
const CFBooleanRef kCFBooleanTrue = gnustep::booleanReference(true);
const CFBooleanRef kCFBooleanFalse = gnustep::booleanReference(false);
}

int proc_listallpids(void* buffer, int buffersize) {
  const auto found = processes();
  if (buffer == nullptr) return static_cast<int>(found.size());
  const auto count = std::min(found.size(), static_cast<std::size_t>(buffersize) / sizeof(int));
  std::copy_n(found.begin(), count, static_cast<int*>(buffer));
  return static_cast<int>(count);
}

int proc_pidpath(int pid, void* buffer, uint32_t buffersize) {
  const std::string link = "/proc/" + std::to_string(pid) + "/exe";
  return static_cast<int>(::readlink(link.c_str(), static_cast<char*>(buffer), buffersize - 1));
}

OSStatus LSRegisterURL(CFURLRef inURL, Boolean inUpdate) {
  registered.push_back(platform::pathOf(inURL).value_or("") + (inUpdate != 0 ? " update" : ""));
  return registered.back().starts_with("/absent") ? -43 : 0;
}
