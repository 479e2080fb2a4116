#include "tests/macsdk/fakes/FakeSystem.h"

#include <SystemConfiguration/SystemConfiguration.h>
#include <crt_externs.h>
#include <sys/sysctl.h>
#include <sysdir.h>

#include <cerrno>
#include <cstring>

namespace fakes {

SystemState& systemState() {
  static SystemState only;
  return only;
}

}  // namespace fakes

namespace {

std::vector<std::string> enumerated;
std::vector<char*> argumentPointers;
char** argumentStrings = nullptr;
int argumentCount = 0;

}  // namespace

extern "C" {

CFStringRef SCDynamicStoreCopyConsoleUser(SCDynamicStoreRef, uid_t*, gid_t*) {
  const auto& user = fakes::systemState().consoleUser;
  if (!user) return nullptr;
  return CFStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8*>(user->data()),
                                 static_cast<CFIndex>(user->size()), kCFStringEncodingUTF8, 0);
}

sysdir_search_path_enumeration_state sysdir_start_search_path_enumeration(
    sysdir_search_path_directory_t directory, sysdir_search_path_domain_mask_t domain) {
  enumerated = fakes::systemState().folders[{directory, domain}];
  return 1;
}

sysdir_search_path_enumeration_state sysdir_get_next_search_path_enumeration(
    sysdir_search_path_enumeration_state state, char* path) {
  if (state > enumerated.size()) return 0;
  std::strcpy(path, enumerated[state - 1].c_str());
  return state + 1;
}

int sysctlbyname(const char* name, void* value, size_t* size, void*, size_t) {
  const auto found = fakes::systemState().values.find(name);
  if (found == fakes::systemState().values.end()) {
    errno = ENOENT;
    return -1;
  }
  const std::string& bytes = found->second;
  if (value != nullptr && *size < bytes.size()) {
    errno = ENOMEM;
    return -1;
  }
  if (value != nullptr) std::memcpy(value, bytes.data(), bytes.size());
  *size = bytes.size();
  return 0;
}

int* _NSGetArgc(void) {
  argumentCount = static_cast<int>(fakes::systemState().arguments.size());
  return &argumentCount;
}

char*** _NSGetArgv(void) {
  argumentPointers.clear();
  for (std::string& text : fakes::systemState().arguments) argumentPointers.push_back(text.data());
  argumentPointers.push_back(nullptr);
  argumentStrings = argumentPointers.data();
  return &argumentStrings;
}

}  // extern "C"
