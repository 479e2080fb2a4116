#include "platform/linux/LinuxDesktopApplication.h"

#include <elf.h>
#include <link.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace platform {
namespace {

bool hasValue(const char* variable) {
  const char* const value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): never set while it runs
  return value != nullptr && *value != '\0';
}

template <typename Value>
bool readAt(std::ifstream& file, std::uint64_t offset, Value& value) {
  file.seekg(static_cast<std::streamoff>(offset));
  return static_cast<bool>(file.read(reinterpret_cast<char*>(&value), sizeof value));
}

/// Part of what a library's headers (elf(5)) say is missing at the end of its file, as it is where copying
/// was cut short. dlopen(3) does not look, and whoever touches what is not there is ended by SIGBUS.
bool isCutShort(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  ElfW(Ehdr) header{};
  if (!readAt(file, 0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return false;
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  for (std::uint64_t index = 0; index < header.e_phnum; ++index) {
    ElfW(Phdr) segment{};
    if (!readAt(file, header.e_phoff + index * sizeof segment, segment)) return true;
    if (segment.p_type == PT_LOAD && segment.p_offset + segment.p_filesz > size) return true;
  }
  return false;
}

}  // namespace

std::string LinuxDesktopApplication::moduleName() {
  return "libQuillmendWindow.so";
}

std::optional<std::string> LinuxDesktopApplication::whyNoDisplay() {
  if (hasValue("WAYLAND_DISPLAY") || hasValue("DISPLAY")) return std::nullopt;
  return "neither WAYLAND_DISPLAY nor DISPLAY is set";
}

std::optional<std::string> LinuxDesktopApplication::whyNotLoaded(const std::string& module) {
  return isCutShort(module) ? std::optional(module + ": its end is missing") : std::nullopt;
}

}  // namespace platform
