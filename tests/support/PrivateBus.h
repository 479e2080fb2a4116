#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

/// A real dbus-daemon of the test's own. REQUIRES a folder that every account may enter.
class PrivateBus {
 public:
  /// The session bus of an account (this process's own without one) at <folder>/<uid>/bus. Like a desktop's
  /// it lets nobody but that account in.
  [[nodiscard]] static PrivateBus session(const support::TemporaryFolder& folder,
                                          std::optional<uid_t> account = std::nullopt);

  /// A system bus at <folder>/system, with the policy that Debian gives its own.
  [[nodiscard]] static PrivateBus system(const support::TemporaryFolder& folder);

  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] ChildProcess& daemon() { return *daemon_; }

 private:
  PrivateBus(const std::string& configurationFile, const std::string& socket, std::optional<uid_t> account,
             const std::string& typeAndPolicy);

  std::string address_;
  std::unique_ptr<ChildProcess> daemon_;
};
