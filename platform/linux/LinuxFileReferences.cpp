#include "platform/linux/LinuxFileReferences.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "platform/foundation/Paths.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {
namespace {

using foundation::Result;
using foundation::systemError;

constexpr std::size_t kMostPaths = 4096;
constexpr std::uint8_t kVersion = 1;  // all zeros stand for no item

/// What lies in the 80 bytes.
struct Content {
  std::uint8_t version = 0;
  std::uint8_t handleLength = 0;  ///< 0 where the file system gives no handle, or one too long
  std::uint16_t reserved = 0;
  std::int32_t handleType = 0;
  std::int64_t birth = 0;  ///< nanoseconds since 1970; 0 where the file system does not know
  ItemIdentity item = {};
  std::int32_t mount = 0;
  std::array<std::uint8_t, 36> handle{};
};
static_assert(sizeof(Content) <= sizeof(FSRef));

/// Room for a file_handle(3) with its bytes.
struct alignas(file_handle) HandleBuffer {
  std::array<char, sizeof(file_handle) + MAX_HANDLE_SZ> bytes{};
  [[nodiscard]] file_handle* get() { return reinterpret_cast<file_handle*>(bytes.data()); }
};

FSRef packed(const Content& content) {
  FSRef reference;
  std::memcpy(reference.hidden.data(), &content, sizeof content);
  return reference;
}

Content unpacked(const FSRef& reference) {
  Content content;
  std::memcpy(&content, reference.hidden.data(), sizeof content);
  return content;
}

/// Identity and birth of the item itself; 0 or an errno value.
int describe(int folder, const std::string& path, int flags, Content& content) {
  struct statx status {};
  if (::statx(folder, path.c_str(), AT_SYMLINK_NOFOLLOW | flags, STATX_INO | STATX_BTIME, &status) != 0) {
    return errno;
  }
  content.item = {::makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino};
  constexpr std::int64_t second = 1'000'000'000;
  const bool hasBirth = (status.stx_mask & STATX_BTIME) != 0;
  content.birth = hasBirth ? status.stx_btime.tv_sec * second + status.stx_btime.tv_nsec : 0;
  return 0;
}

void addHandle(const std::string& path, Content& content) {
  HandleBuffer buffer;
  buffer.get()->handle_bytes = MAX_HANDLE_SZ;
  int mount = 0;
  if (::name_to_handle_at(AT_FDCWD, path.c_str(), buffer.get(), &mount, 0) != 0) return;
  const std::size_t length = buffer.get()->handle_bytes;
  if (length > content.handle.size()) return;
  std::memcpy(content.handle.data(), buffer.bytes.data() + offsetof(file_handle, f_handle), length);
  content.handleLength = static_cast<std::uint8_t>(length);
  content.handleType = buffer.get()->handle_type;
  content.mount = mount;
}

bool isSameItem(const Content& a, const Content& b) {
  return a.item == b.item && a.birth == b.birth;
}

bool isAt(const Content& wanted, const std::string& path) {
  Content found;
  return describe(AT_FDCWD, path, 0, found) == 0 && isSameItem(wanted, found);
}

/// "\040" and the like, as mountinfo (proc(5)) writes blanks.
std::string unescaped(const std::string& text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\' || at + 3 >= text.size()) {
      plain += text[at];
      continue;
    }
    int character = 0;
    for (int digit = 0; digit < 3; ++digit) character = character * 8 + (text[++at] - '0');
    plain += static_cast<char>(character);
  }
  return plain;
}

std::optional<std::string> mountPoint(int mount) {
  std::ifstream mounts("/proc/self/mountinfo");
  for (std::string line; std::getline(mounts, line);) {
    std::istringstream words(line);
    int number = 0;
    std::string parent;
    std::string device;
    std::string root;
    std::string point;
    if (words >> number >> parent >> device >> root >> point && number == mount) return unescaped(point);
  }
  return std::nullopt;
}

UniqueDescriptor openByHandle(const Content& content) {
  const auto point = mountPoint(content.mount);
  if (!point || content.handleLength > content.handle.size()) return {};
  const UniqueDescriptor mount(::open(point->c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!mount) return {};
  HandleBuffer buffer;
  buffer.get()->handle_bytes = content.handleLength;
  buffer.get()->handle_type = content.handleType;
  std::memcpy(buffer.bytes.data() + offsetof(file_handle, f_handle), content.handle.data(),
              content.handleLength);
  return UniqueDescriptor(::open_by_handle_at(mount.get(), buffer.get(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
}

/// The path that the kernel knows for the item, if it is one.
std::optional<std::string> pathByHandle(const Content& wanted) {
  if (wanted.handleLength == 0) return std::nullopt;
  const UniqueDescriptor item = openByHandle(wanted);
  Content found;
  if (!item || describe(item.get(), "", AT_EMPTY_PATH, found) != 0 || !isSameItem(wanted, found)) {
    return std::nullopt;
  }
  std::error_code none;
  std::string path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(item.get()), none);
  return isAt(wanted, path) ? std::optional(path) : std::nullopt;
}

/// The item under another name in the folder where it was.
std::optional<std::string> pathBeside(const Content& wanted, const std::string& oldPath) {
  std::error_code none;
  const std::string folder = foundation::deletingLastPathComponent(oldPath);
  for (std::filesystem::directory_iterator entry(folder, none), end; entry != end; entry.increment(none)) {
    if (none) break;
    std::string path = entry->path().string();
    if (isAt(wanted, path)) return path;
  }
  return std::nullopt;
}

}  // namespace

void LinuxFileReferences::remember(const ItemIdentity& item, const std::string& path) {
  const std::scoped_lock lock(mutex_);
  if (paths_.insert_or_assign(item, path).second) order_.push_back(item);
  while (order_.size() > kMostPaths) {
    paths_.erase(order_.front());
    order_.pop_front();
  }
}

std::string LinuxFileReferences::lastKnownPath(const ItemIdentity& item) {
  const std::scoped_lock lock(mutex_);
  const auto known = paths_.find(item);
  return known == paths_.end() ? "" : known->second;
}

Result<FSRef> LinuxFileReferences::reference(const std::string& path) {
  std::error_code none;
  const std::string absolute = path.empty() ? path : std::filesystem::absolute(path, none).string();
  Content content{.version = kVersion};
  if (const int reason = describe(AT_FDCWD, absolute, 0, content); reason != 0) {
    return systemError(reason, path);
  }
  addHandle(absolute, content);
  remember(content.item, absolute);
  return packed(content);
}

Result<std::string> LinuxFileReferences::path(const FSRef& reference) {
  const Content wanted = unpacked(reference);
  if (wanted.version != kVersion) return systemError(ENOENT, "");
  const std::string known = lastKnownPath(wanted.item);
  if (!known.empty() && isAt(wanted, known)) return known;
  auto found = pathByHandle(wanted);
  if (!found && !known.empty()) found = pathBeside(wanted, known);
  if (!found) return systemError(ENOENT, known);
  remember(wanted.item, *found);
  return *found;
}

}  // namespace platform
