#pragma once

#include "platform/Files.h"

namespace platform {

/// File queries by POSIX calls.
class PosixFileQueries : public FileQueries {
 public:
  bool exists(const std::string& path) override;
  bool isDirectory(const std::string& path) override;
  bool isAccessible(const std::string& path, Access access) override;
  foundation::Result<std::vector<std::string>> contentsOfDirectory(const std::string& path) override;
  foundation::Result<std::string> readFile(const std::string& path, std::uint64_t limit) override;
  foundation::Result<std::string> readFileItself(const std::string& path, std::uint64_t limit) override;
  std::optional<foundation::Date> modificationDate(const std::string& path) override;
};

/// File changes by POSIX calls.
///
/// They may be made by root in a folder that a user controls. What is moved to another file system is copied
/// with owner, mode, times, extended attributes and hard links into a private folder, synchronised and
/// compared, before it appears under its name; what TreeCopy.h says of devices and set-id bits holds here.
/// Writing atomically replaces a link rather than what it leads to, and does not take set-id bits over. Root
/// does not open a file for writing that has further names (EMLINK): one of them may be another program's
/// file.
class PosixFileChanges : public FileChanges {
 public:
  foundation::Result<void> createDirectory(const std::string& path) override;
  foundation::Result<void> move(const std::string& from, const std::string& to) override;
  foundation::Result<void> copy(const std::string& from, const std::string& to) override;
  foundation::Result<void> remove(const std::string& path) override;
  foundation::Result<void> writeAtomically(const std::string& path, std::string_view bytes) override;
  foundation::Result<std::unique_ptr<WritableFile>> openForWriting(const std::string& path) override;
};

}  // namespace platform
