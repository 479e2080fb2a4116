#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/posix/ConsoleUserName.h"

namespace platform {

/// What the login manager says about the computer's own seat.
struct SeatState {
  enum class Answer {
    unavailable,  ///< the login manager does not run, or knows no such seat
    nobody,       ///< no session is in the foreground
    session       ///< `sessionClass` and `userName` describe the one in the foreground
  };
  Answer answer = Answer::unavailable;
  std::string sessionClass;  ///< "user", "greeter", "lock-screen", ...
  std::string userName;
};

/// The login manager, as far as the console user needs it.
class LoginSeat {
 public:
  virtual ~LoginSeat() = default;
  [[nodiscard]] virtual SeatState state() const = 0;
};

/// logind's "seat0", asked by sd-login(3): sd_seat_get_active, sd_session_get_class, sd_session_get_username
/// or sd_session_get_uid. The library libsystemd.so.0 is loaded at the call, so that a program that never
/// asks does not map it, and one on a system without it works.
class LogindSeat : public LoginSeat {
 public:
  [[nodiscard]] SeatState state() const override;
};

/// consoleUser() on a given seat and the first of the given utmp files that can be read. A greeter is
/// nobody: a session of class "greeter", and the accounts that greeters run as ("gdm", "lightdm", "sddm",
/// "loginwindow", ...). Asks the seat; where it is unavailable, the login records of utmp(5).
[[nodiscard]] std::optional<std::string> consoleUser(const LoginSeat& seat,
                                                     const std::vector<std::string>& utmpFiles);

/// Who is logged in at a local line according to a utmp(5) file: records of type USER_PROCESS at "console",
/// ":N" (a display) or "ttyN"; pseudo-terminals and serial lines are not the console. "console" goes before a
/// display, a display before a text terminal; among equals the latest login counts. A record whose process is
/// gone is stale and left out, as who(1) does; process 0 stands for "unknown" and counts as alive.
/// An unreadable or cut file gives the whole records that it has.
[[nodiscard]] std::optional<std::string> consoleUserFromUtmp(const std::string& file);

}  // namespace platform
