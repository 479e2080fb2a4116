#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "workstation/RecordLine.h"
#include "workstation/Volume.h"

/// What stands in a volume's records. Unless a function says otherwise it is about the last visit, from the
/// moment its command was started; what cannot be read is empty.
namespace workstation {

/// All lines of a record file (Layout.h), of all visits, in the order they were written.
[[nodiscard]] std::vector<RecordLine> records(const Volume& volume, std::string_view file);

/// The calls of stand-in tools, in order.
[[nodiscard]] std::vector<RecordLine> calls(const Volume& volume);

/// The calls as text: user id, executable and arguments, parted by blanks:
/// "0 /usr/sbin/qmasterprefs -resetCluster cancelJobs". The form to compare a whole run with.
[[nodiscard]] std::vector<std::string> callTexts(const Volume& volume);

/// The times from each call to the next: one fewer than there are calls.
[[nodiscard]] std::vector<std::chrono::nanoseconds> pauses(const std::vector<RecordLine>& calls);

/// Starts ("start"), ends ("quit") and refusals to end ("ignored") of applications and daemons.
[[nodiscard]] std::vector<RecordLine> events(const Volume& volume);

/// A D-Bus signal that a listener of the console user heard.
struct HeardSignal {
  std::string bus;  ///< "session" or "system"
  std::string path;
  std::string interface;
  std::string member;
  std::string signature;
  /// Each value by its place: "0" for the first argument, "2/output" for a dictionary's entry.
  std::map<std::string, std::string> values;
  uid_t sender = 0;  ///< 4294967295 when the sender had gone before it could be asked
};
[[nodiscard]] std::vector<HeardSignal> heardSignals(const Volume& volume);

/// What the desktop was asked to show.
struct ShownNotification {
  std::string application;
  std::string icon;
  std::string summary;
  std::string body;
  std::map<std::string, std::string> values;  ///< all of the request's, by place as above
};
[[nodiscard]] std::vector<ShownNotification> shownNotifications(const Volume& volume);

/// A process that ran at the end of the visit.
struct RemainingProcess {
  std::string executable;
  uid_t user = 0;
  bool resident = false;  ///< an application or daemon; the others are tools that were still busy
  std::vector<std::string> arguments;

  bool operator==(const RemainingProcess&) const = default;
};
[[nodiscard]] std::vector<RemainingProcess> remainingProcesses(const Volume& volume);

/// How the command ended: "status 0", "signal 15"; nullopt while it did not.
[[nodiscard]] std::optional<std::string> commandEnd(const Volume& volume);

/// How long the visit went on waiting for tools after the command's end.
[[nodiscard]] std::chrono::milliseconds waitedForTools(const Volume& volume);

/// The workstation's values as they are now (Layout.h, valuesFolder), and one of them.
[[nodiscard]] std::map<std::string, std::string> values(const Volume& volume);
[[nodiscard]] std::optional<std::string> value(const Volume& volume, std::string_view key);

}  // namespace workstation
