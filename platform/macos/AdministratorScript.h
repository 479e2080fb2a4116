#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/Authorization.h"
#include "platform/Subprocesses.h"

namespace platform {

/// Programs started as root on a system without AuthorizationExecuteWithPrivileges: by AppleScript's
/// "do shell script … with administrator privileges" (Apple's Technical Note TN2065), which osascript(1)
/// runs. AppleScript asks for an administrator itself, whatever rights this process holds. The program's real
/// user is root, too.
///
/// AppleScript's texts are Unicode: a path or an argument that is not UTF-8 cannot be passed on. Any thread
/// may call; on the main thread its work is served meanwhile.
class AdministratorScript {
 public:
  /// Starts a program, whose output goes to the null device, and returns once it was started:
  /// errAuthorizationCanceled where the user declined, errAuthorizationToolExecuteFailure for other failures.
  [[nodiscard]] AuthorizationStatus start(const std::string& path, const std::vector<std::string>& arguments);

  /// The same for a program whose output is wanted, which AppleScript hands over as a whole at the end: it is
  /// waited for. What it wrote to standard output is in `output`.
  [[nodiscard]] AuthorizationStatus run(const std::string& path, const std::vector<std::string>& arguments,
                                        std::string* output);

  /// Takes down the dialogs that stand: who waits gets errAuthorizationCanceled. Nobody is asked afterwards.
  void stopAsking();

 private:
  AuthorizationStatus runScript(const std::string& shellText, std::string* output);
  /// Answers whether it was launched.
  bool launch(const std::shared_ptr<Subprocess>& script);
  [[nodiscard]] bool isStopped();
  void forget(const std::shared_ptr<Subprocess>& script);

  std::mutex mutex_;
  bool isStopped_ = false;
  std::set<std::shared_ptr<Subprocess>> running_;
};

}  // namespace platform
