#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

/// Whose rights to files a thread of root's uses.
namespace platform {

/// An account's: user, group and all of its groups.
struct FileRights {
  uid_t user = 0;
  gid_t group = 0;
  std::vector<gid_t> groups = {};
};

/// Those of an account of the database; nullopt for one that is not in it.
[[nodiscard]] std::optional<FileRights> fileRightsOf(const std::string& accountName);

/// Those of an account by its number; one that is not in the database has no group.
[[nodiscard]] FileRights fileRightsOf(uid_t user);

/// Those that every account has.
[[nodiscard]] FileRights rightsOfEverybody();

/// Puts rights in force for this thread and the length of the scope: setfsuid(2), setfsgid(2), setgroups(2).
/// The kernel then takes away the capabilities that open files to root. Nothing else changes, so no signal of
/// that account reaches the process. On a Mac a thread takes on a user and group
/// (pthread_setugid_np), and the system itself knows the user's groups. nullopt leaves everything as it is.
/// errno is the same after the scope.
class FileRightsScope {
 public:
  explicit FileRightsScope(const std::optional<FileRights>& rights);
  ~FileRightsScope();
  FileRightsScope(const FileRightsScope&) = delete;
  FileRightsScope& operator=(const FileRightsScope&) = delete;

  /// The rights asked for are those that the kernel checks. Where this is false nothing may be opened.
  [[nodiscard]] bool isInForce() const { return inForce_; }

 private:
  bool changed_ = false;
  bool inForce_ = true;
  // Not needed where the system keeps them itself.
  [[maybe_unused]] uid_t previousUser_ = 0;
  [[maybe_unused]] gid_t previousGroup_ = 0;
  [[maybe_unused]] std::vector<gid_t> previousGroups_ = {};
};

}  // namespace platform
