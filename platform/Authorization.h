#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// Status of the authorization service, with the numbers of the Mac's Authorization Services.
using AuthorizationStatus = std::int32_t;
inline constexpr AuthorizationStatus errAuthorizationSuccess = 0;
inline constexpr AuthorizationStatus errAuthorizationInvalidRef = -60002;
inline constexpr AuthorizationStatus errAuthorizationDenied = -60005;
inline constexpr AuthorizationStatus errAuthorizationCanceled = -60006;
inline constexpr AuthorizationStatus errAuthorizationInteractionNotAllowed = -60007;
inline constexpr AuthorizationStatus errAuthorizationInternal = -60008;
inline constexpr AuthorizationStatus errAuthorizationToolExecuteFailure = -60031;

/// Flags of copyRights and free, combined with |.
using AuthorizationFlags = std::uint32_t;
inline constexpr AuthorizationFlags kAuthorizationFlagDefaults = 0;
inline constexpr AuthorizationFlags kAuthorizationFlagInteractionAllowed = 1;
inline constexpr AuthorizationFlags kAuthorizationFlagExtendRights = 2;
inline constexpr AuthorizationFlags kAuthorizationFlagPreAuthorize = 16;

inline constexpr const char* kAuthorizationRightAdmin = "system.privilege.admin";

/// A held authorization; null when none is held. Owned by the service that made it, until free().
class AuthorizationReference;
using AuthorizationRef = AuthorizationReference*;

/// Credentials given instead of asked for. The strings are their UTF-8 bytes, no terminating zero counted.
struct AuthorizationEnvironment {
  std::string username;
  std::string password;
};

/// The stream that a privileged program writes to.
class CommunicationsPipe {
 public:
  virtual ~CommunicationsPipe() = default;
  /// The next byte, or -1 at the end, as fgetc(3).
  virtual int getCharacter() = 0;
};

/// Administrator rights, after the Mac's Authorization Services Reference.
class Authorization {
 public:
  virtual ~Authorization() = default;

  /// The authorization that this process was started with by a privileged parent, if any.
  virtual AuthorizationStatus copyPrivilegedReference(AuthorizationFlags flags,
                                                      AuthorizationRef* reference) = 0;

  /// A new authorization without rights.
  virtual AuthorizationStatus create(const std::optional<AuthorizationEnvironment>& environment,
                                     AuthorizationFlags flags, AuthorizationRef* reference) = 0;

  /// Obtains rights; asks the user only when the flags allow interaction and no environment is given, and not
  /// after stopAsking().
  virtual AuthorizationStatus copyRights(AuthorizationRef reference, const std::vector<std::string>& rights,
                                         const std::optional<AuthorizationEnvironment>& environment,
                                         AuthorizationFlags flags) = 0;

  /// Gives the rights back.
  virtual AuthorizationStatus free(AuthorizationRef reference, AuthorizationFlags flags) = 0;

  /// Starts a program as root and does not wait for it. Its standard output arrives at `pipe`; with a null
  /// `pipe` it goes to the null device. The path's and the arguments' bytes are passed as they are.
  virtual AuthorizationStatus executeWithPrivileges(AuthorizationRef reference, const std::string& path,
                                                    AuthorizationFlags flags,
                                                    const std::vector<std::string>& arguments,
                                                    std::unique_ptr<CommunicationsPipe>* pipe) = 0;

  /// The program is about to end: a dialog that stands, whichever thread waits for its answer, is taken down
  /// as if the user had cancelled it, and none comes up any more. Does not wait for that. Any thread.
  virtual void stopAsking() = 0;
};

}  // namespace platform
