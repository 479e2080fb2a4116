#pragma once

#include "platform/Files.h"

namespace platform {

/// File queries by POSIX calls alone (POSIX.1-2008), for any system.
class PosixFileQueries : public FileQueries {
 public:
  bool exists(const std::string& path) override;
  bool isDirectory(const std::string& path) override;
  bool isAccessible(const std::string& path, Access access) override;
  foundation::Result<std::vector<std::string>> contentsOfDirectory(const std::string& path) override;
  foundation::Result<std::string> readFile(const std::string& path, std::uint64_t limit) override;
  foundation::Result<std::string> readFileItself(const std::string& path, std::uint64_t limit) override;
  std::optional<foundation::Date> modificationDate(const std::string& path) override;
  /// Never: which links may be followed is each system's own matter.
  bool isOutOfOthersReach(const std::string& path) override;
  std::optional<FileState> state(const std::string& path) override;
  foundation::Result<std::string> linkTarget(const std::string& path) override;
};

}  // namespace platform
