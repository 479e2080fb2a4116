#pragma once

#include "platform/Authorization.h"

namespace platform {

/// Administrator rights by Authorization Services. Statuses are passed on as they come.
///
/// AuthorizationExecuteWithPrivileges is looked up when it is needed, because systems may come without it:
/// then nothing can be started (errAuthorizationToolExecuteFailure). A program gets the effective user id of
/// root and keeps the real one of the caller, as that function does. It connects a program's output to a pipe
/// or leaves it where this process's goes; where nobody reads it, bash (-p, so that it keeps the rights)
/// leads it to the null device and becomes the program, which gets its path and its arguments as positional
/// parameters, never as text of the shell's. A program whose arguments hold a zero byte cannot be started.
///
/// The system's function does not tell the child's process id, so that the child is collected when this
/// process ends.
class MacAuthorization : public Authorization {
 public:
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
};

}  // namespace platform
