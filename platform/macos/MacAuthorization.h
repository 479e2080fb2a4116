#pragma once

#include <memory>
#include <mutex>
#include <set>

#include "platform/Authorization.h"
#include "platform/macos/AdministratorScript.h"

namespace platform {

/// Administrator rights by Authorization Services. Statuses are passed on as they come.
///
/// AuthorizationExecuteWithPrivileges is looked up when it is needed, because systems may come without it:
/// then AppleScript starts the program (AdministratorScript.h). Otherwise a program gets the effective user
/// id of root and keeps the real one of the caller, as that function does. It connects a program's output to
/// a pipe or leaves it where this process's goes; where nobody reads it, bash (-p, so that it keeps the
/// rights) tells its process id to the pipe, leads the output to the null device and becomes the program,
/// which gets its path and its arguments as positional parameters, never as text of the shell's. What is no
/// program (a folder, nothing at all, a file that nobody may execute), and a program whose path or arguments
/// hold a zero byte, cannot be started: errAuthorizationToolExecuteFailure.
///
/// The system's function does not tell the child's process id. A program without a pipe has told it, and is
/// collected when it ends; one with a pipe is collected when this process ends.
///
/// No public function takes a dialog of the system's down before it is answered, so that rights for which the
/// user may be asked are asked for on a thread of their own. Who waits for them serves the main thread's
/// work, where that is this thread, and gets errAuthorizationCanceled at stopAsking(); the dialog goes with
/// the process, and so does a reference that is given back meanwhile. Any thread may call.
class MacAuthorization : public Authorization {
 public:
  MacAuthorization();
  MacAuthorization(const MacAuthorization&) = delete;
  MacAuthorization& operator=(const MacAuthorization&) = delete;
  ~MacAuthorization() override;

  AuthorizationStatus copyPrivilegedReference(AuthorizationFlags flags, AuthorizationRef* reference) override;
  AuthorizationStatus create(const std::optional<AuthorizationEnvironment>& environment,
                             AuthorizationFlags flags, AuthorizationRef* reference) override;
  AuthorizationStatus copyRights(AuthorizationRef reference, const std::vector<std::string>& rights,
                                 const std::optional<AuthorizationEnvironment>& environment,
                                 AuthorizationFlags flags) override;
  AuthorizationStatus free(AuthorizationRef reference, AuthorizationFlags flags) override;
  AuthorizationStatus executeWithPrivileges(AuthorizationRef reference, const std::string& path,
                                            AuthorizationFlags flags,
                                            const std::vector<std::string>& arguments,
                                            std::unique_ptr<CommunicationsPipe>* pipe) override;
  void stopAsking() override;

 private:
  /// A question to the user, and the thread that the system answers it on.
  struct Question;

  AuthorizationStatus ask(AuthorizationRef reference, const std::vector<std::string>& rights,
                          AuthorizationFlags flags);
  /// Answers whether it may be asked.
  bool begin(const std::shared_ptr<Question>& question);
  AuthorizationStatus end(const std::shared_ptr<Question>& question);
  bool isAskedAbout(AuthorizationRef reference);
  AuthorizationStatus startByScript(const std::string& path, const std::vector<std::string>& arguments,
                                    std::unique_ptr<CommunicationsPipe>* pipe);

  std::mutex mutex_;
  bool isStopped_ = false;
  /// Those that stand, also such as nobody waits for any more.
  std::set<std::shared_ptr<Question>> questions_;
  AdministratorScript script_;
};

}  // namespace platform
