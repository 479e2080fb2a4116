#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/Authorization.h"
#include "platform/posix/UniqueDescriptor.h"

namespace platform {

/// Nothing but its address matters.
class AuthorizationReference {};

/// Administrator rights by sudo(8), with the status numbers of the Mac's Authorization Services.
///
/// What is held is sudo's own cached credential ("ticket"). sudo ties it to the terminal, or without one to
/// the parent process, and in both cases to the session: so every sudo started here is a direct child of this
/// process and stays in its session (but in a process group of its own, which an interrupt typed at the
/// terminal does not reach).
///
/// copyRights, by what it is given:
///   an environment         `sudo -S -v`, the password on standard input and nowhere else. sudo authenticates
///                          the account that runs the program: another user name is errAuthorizationDenied,
///                          as is a password of more than one line. A ticket held before is dropped first, so
///                          that a wrong password is always found out; an account that sudoers asks for no
///                          password is granted whatever password is given.
///   no environment         success when sudo needs no password now; else, where the flags allow
///                          interaction, `sudo -A -v` with the askpass program: the bundle's
///                          Contents/SharedSupport/askpass, else the one that $SUDO_ASKPASS names. Without
///                          one, and without the flag, errAuthorizationInteractionNotAllowed.
/// A dialog that is cancelled is errAuthorizationCanceled, a wrong password and an account that sudoers does
/// not list errAuthorizationDenied, a missing or broken sudo errAuthorizationInternal.
/// The one right that exists is kAuthorizationRightAdmin; others are denied.
///
/// executeWithPrivileges runs `sudo -n -b`, which returns once sudo has checked the rights and taken the
/// program over: rights that are given back from then on, by free at once for example, are not missed by it.
/// When the ticket has run out meanwhile, rights that were got from a dialog are asked for again, as on a
/// Mac; others are lost (errAuthorizationDenied), as is a program that sudoers does not allow. A path that is
/// not absolute, or where no program is, is errAuthorizationToolExecuteFailure. Standard error is this
/// process's own, standard input the null device. The program is no child of this process, which neither
/// reaps nor waits for it, and may outlive it; a pipe that is given back before its end is read out behind
/// the scenes, so that the program is not stopped by it. A call on the main thread serves main-thread work
/// while sudo or the program is waited for.
///
/// Of what no dialog has told already the system console gets the reason, in one line: sudo's own words, or
/// those of an askpass that could not ask. Whoever gave a password knows of a wrong one too, and a copyRights
/// that may not ask is told by its status. A lecture (sudoers(5)) is no reason; an administrator's own text
/// is known as one by what the bundle's askpass notes (EarlierAnswer.h), or where the password was given.
///
/// stopAsking asks the process group of a sudo that asks to end, again and again until it has, a stubborn one
/// by SIGKILL at last: sudo is root's and not ours to end, but its dialog is, and sudo gives up without an
/// answer.
///
/// free is `sudo -k`. There is no privileged parent to inherit from: copyPrivilegedReference answers
/// errAuthorizationInvalidRef. May be called from any thread.
class SudoAuthorization : public Authorization {
 public:
  explicit SudoAuthorization(std::string sudo = "/usr/bin/sudo");
  ~SudoAuthorization() override;

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
  /// How the rights of a reference were got.
  enum class Origin { none, givenPassword, dialog };
  /// Whether the system console gets the reason: not where somebody is asked for the password next.
  enum class Denial { told, untold };

  [[nodiscard]] bool isKnown(AuthorizationRef reference);
  void setOrigin(AuthorizationRef reference, Origin origin);
  [[nodiscard]] bool mayAskAgain(AuthorizationRef reference);

  [[nodiscard]] AuthorizationStatus validate(Denial denial);
  [[nodiscard]] AuthorizationStatus validateByDialog();
  [[nodiscard]] AuthorizationStatus validateByPassword(const AuthorizationEnvironment& environment);
  [[nodiscard]] AuthorizationStatus start(const std::string& path, const std::vector<std::string>& arguments,
                                          std::unique_ptr<CommunicationsPipe>* pipe);

  std::string sudo_;
  UniqueDescriptor stop_;  ///< readable once nobody is to be asked any more
  std::mutex mutex_;
  /// Never shrinks, so that a reference given back is not mistaken for a later one at its address.
  std::deque<AuthorizationReference> handles_;
  std::map<AuthorizationRef, Origin> references_;
};

}  // namespace platform
