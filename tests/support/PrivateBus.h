#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "tests/support/ChildProcess.h"

/// A folder of the test's own that every account may enter; removed with the object.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// A real dbus-daemon of the test's own.
class PrivateBus {
 public:
  /// The session bus of an account (this process's own without one) at <folder>/<uid>/bus. Like a desktop's
  /// it lets nobody but that account in.
  [[nodiscard]] static PrivateBus session(const TemporaryFolder& folder,
                                          std::optional<uid_t> account = std::nullopt);

  /// A system bus at <folder>/system, with the policy that Debian gives its own.
  [[nodiscard]] static PrivateBus system(const TemporaryFolder& folder);

  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] ChildProcess& daemon() { return *daemon_; }

 private:
  PrivateBus(const std::string& configurationFile, const std::string& socket, std::optional<uid_t> account,
             const std::string& typeAndPolicy);

  std::string address_;
  std::unique_ptr<ChildProcess> daemon_;
};
