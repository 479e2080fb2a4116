#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "workstation/Volume.h"

/// The way into a volume: any folder that holds a Mac's startup volume becomes the root folder of a command.
///
/// Inside are the volume, writable; the host's libraries (/usr/lib, /usr/lib64, /lib, /lib64), read-only; the
/// host's plain tools at their Mac places (hostTools()), read-only, and all of its /usr/bin at
/// /run/host/usr/bin, last in PATH; fresh /proc, /dev and /run; a process namespace whose process 1 takes in
/// every process that loses its parent; a host name of its own; and no network. Set-user-id bits have no
/// effect, so that sudo refuses. The files and folders that this needs as mount points and did not find are
/// taken away again afterwards.
///
/// The console user (of the volume's utmp file) has a session bus of their own at /run/user/UID/bus, which,
/// as on any desktop, nobody else may use, and a notification service. Only programs that run as that user
/// are told of it (DBUS_SESSION_BUS_ADDRESS, XDG_RUNTIME_DIR): a scheduler's root is not. Every signal and
/// every notification is recorded. What the volume says that runs on it is started before the command.
///
/// On the volume of a real Mac, people who have a home in Users and are in no passwd file are added to it,
/// and programs in a Mac's format are covered: host tools by the host's, and those that there are stand-ins
/// for by the stand-ins.
///
/// Needs root and bubblewrap (bwrap). Two visits to one volume at a time are refused.
namespace workstation {

enum class Output { capture, inherit };
enum class NotificationAnswer { keep, click, expire };

struct VisitOptions {
  std::string user = "root";  ///< one of the volume's users

  /// Who sits at the console; absent: who the volume's utmp file says does. For volumes of real Macs.
  std::optional<std::string> consoleUser = {};

  std::filesystem::path bundle = {};  ///< an application bundle, read-only at bundleMount; empty: none
  std::vector<std::pair<std::filesystem::path, std::string>> readOnly =
      {};  ///< further places of the host's,
  std::vector<std::pair<std::filesystem::path, std::string>> readWrite =
      {};  ///< and where they appear inside
  std::vector<std::pair<std::string, std::string>> environment =
      {};                  ///< beside PATH, HOME, USER, LOGNAME, SHELL, LANG
  bool sessionBus = true;  ///< where somebody is at the console
  bool systemBus = false;
  NotificationAnswer notifications = NotificationAnswer::keep;

  /// How long the end of a visit waits for tools that outlive the command.
  std::chrono::milliseconds patience{30000};

  /// Capabilities that the command does without, by name as in capabilities(7), "dac_override" for example:
  /// without "dac_override" and "dac_read_search" root is held to mode bits.
  std::vector<std::string> withoutCapabilities = {};

  Output output = Output::capture;
};

struct VisitResult {
  /// The command's; 128 and the signal's number if a signal ended it; 125 if the visit itself failed, 126 and
  /// 127 if the command could not be executed or found. A failed visit says why in `error`.
  int status = 0;
  std::string output;  ///< empty with Output::inherit
  std::string error;
  std::chrono::milliseconds duration{0};  ///< of the whole visit
};

/// A visit that is going on.
class Visit {
 public:
  /// Begins one. What is wrong with the volume, the options or the host is reported by wait().
  Visit(const Volume& volume, const std::vector<std::string>& command, const VisitOptions& options = {});
  Visit(Visit&&) noexcept;
  Visit& operator=(Visit&&) = delete;
  Visit(const Visit&) = delete;
  Visit& operator=(const Visit&) = delete;

  /// Ends the visit, if it still goes on, by killing everything inside.
  ~Visit();

  /// Sends a signal to the command (not to what it started).
  void signal(int number);

  /// Waits until the command has written that text to its output or error. False when the visit ended, or the
  /// time ran out, without it.
  bool waitForOutput(std::string_view text, std::chrono::milliseconds limit);

  /// Waits for the end.
  VisitResult wait();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// A whole visit.
[[nodiscard]] VisitResult visit(const Volume& volume, const std::vector<std::string>& command,
                                const VisitOptions& options = {});

/// A host tool and the place on a Mac that it appears at.
struct HostTool {
  std::string_view name;   ///< in the host's /usr/bin
  std::string_view place;  ///< inside
};

/// The tools of the host that a visit brings along. A place that already holds something keeps it, unless
/// that is a program in a Mac's format.
[[nodiscard]] const std::vector<HostTool>& hostTools();

}  // namespace workstation
