#include <dirent.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/posix/FolderReading.h"

namespace platform {
namespace {

constexpr std::size_t kListingSize = 64UL << 10;

bool isItselfOrAbove(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

}  // namespace

/// getdents64(2), in larger pieces than the C library reads.
int readFolder(int folder, const VisitEntry& visit) {
  // Not filled before the kernel fills it.
  const auto buffer = std::make_unique_for_overwrite<char[]>(kListingSize);
  while (true) {
    const ssize_t length = ::getdents64(folder, buffer.get(), kListingSize);
    if (length < 0) return errno;
    if (length == 0) return 0;
    for (std::size_t at = 0; at < static_cast<std::size_t>(length);) {
      // The kernel lays the entries out aligned, the text of each with its terminating zero.
      const auto* const entry = reinterpret_cast<const dirent64*>(buffer.get() + at);
      at += entry->d_reclen;
      const char* const name = static_cast<const char*>(entry->d_name);
      if (!isItselfOrAbove(name)) visit(name, entry->d_type);
    }
  }
}

}  // namespace platform
