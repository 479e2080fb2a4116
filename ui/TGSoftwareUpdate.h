#pragma once

#include <string>

#include "ui/Outlets.h"

/// Starts the maker's updater, "Vordenworks Software Update.app": at start-up in the background, to look for
/// updates of this application, and when the user asks for it. An instance lives in the main interface.
///
/// One copy may be installed in the machine's Applications folder, another may be carried in this bundle's
/// resources. The carried copy is never run in place: it is copied to the temporary folder first, so that an
/// update can replace this bundle while the updater runs. The folder may be everybody's, and what lies there
/// is run as the user; so the copy is the user's own, closed to others, and a path at which anybody else
/// could have put a program, or could put one, is not used.
///
/// For root the check at start-up is left out, with a line in the log: an updater needs the network, and is
/// nothing that the user has given root's rights to. The manual check works, because the workspace opens
/// applications as the user at the console.
///
/// Nothing here throws; what goes wrong is in the log. The class's operations may be called from any thread.
class TGSoftwareUpdate {
 public:
  /// The interface is loaded: startup().
  void awakeFromNib();

  /// Begins automaticallyCheckForUpdates() on a thread of its own, unless "SUCheckAtStartup" in the maker's
  /// global preferences is a number equal to NO; no other value switches the check off, neither "0" nor "NO".
  ///
  /// The thread ends with the updater, or with this process: quitting does not wait for it, and leaves the
  /// updater running.
  void startup();

  /// The updater to run: a working copy of the carried one, made afresh, when that has the higher version
  /// (CFBundleVersion as an integer; 0 for one that is missing), else the installed one, whether or not it is
  /// there. That the copying fails is ignored. "" where there is no Applications folder, and where the
  /// working copy could be another user's.
  [[nodiscard]] static std::string updaterPath();

  /// Runs the updater with "-checkpath" and this bundle's path, and waits for its end.
  static void automaticallyCheckForUpdates();

  /// Has the workspace open the updater, and does not wait for it. What comes before takes its time on the
  /// caller's thread: the choice of the updater, which copies the carried one where that is newer, and until
  /// then a check at start-up that is about to choose or start its own.
  static void launchSoftwareUpdate();

  /// The interface's action: launchSoftwareUpdate().
  void manualUpdateCheck(outlets::Sender* sender);
};
