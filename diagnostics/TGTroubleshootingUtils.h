#pragma once

#include <string>
#include <vector>

/// Whether an operation shows alerts.
enum class GatherSilently { no, yes };

/// Shows the user an application's logs, and gathers what support needs into one archive on the desktop.
///
/// Gathered are, of the user's domain and then of the computer's,
///   Library/Logs/Vordenworks/<name>*.log        the logs of the application, and of those whose names begin
///   so Library/Logs/CrashReporter/<name>_*.crash   its crash reports
///   Library/Preferences/com.vordenworks.<name>.plist   its preferences: the name without blanks, as it is or
///                                                      else in lower case
/// and further files that the caller names. Each is copied to its own full path below "TG_App_Logs" in the
/// temporary folder, so that the archive mirrors the places that the files came from. A log or crash report
/// that is a link stands for the file it leads to, if that can be seen, under the link's name.
///
/// The staging folder is the process's own: what lies at its place is removed first (a link as a link) and it
/// is made anew for this account alone. While one gathering uses it, another of the same account's fails as
/// where it cannot be removed. Run as root, everything is read with the rights of the user at the
/// console, who gets the archive (platform/Gathering.h).
///
/// Alerts REQUIRE the main thread. Failures are lines on the system console; nothing is thrown. The working
/// folder of the process, which is all of its threads', is left alone: folders are listed by their full
/// paths, and relative links followed from the folder they lie in.
class TGTroubleshootingUtils {
 public:
  TGTroubleshootingUtils() = delete;

  /// Opens "<name>.1.log" of the user's log folder in the user's viewer for logs; an alert says when there is
  /// none.
  static void viewLogForApp(const std::string& name);

  /// The same for "<name>.1.task.log". The logs of runs without a window are called "<name>.task.1.log"; that
  /// this looks for another name is on purpose.
  static void viewTaskLogForApp(const std::string& name);

  static bool gatherLogsForAppWithName(const std::string& name);
  static bool gatherLogsForAppsWithNames(const std::vector<std::string>& names);
  static bool gatherLogsForAppsWithNames(const std::vector<std::string>& names, GatherSilently silent);

  /// Answers whether an archive was written. It is "<first name> Logs.zip" on the desktop; where that is
  /// taken, "<first name> Logs_20110101120000.zip" with the local date and time.
  ///
  /// An alert says how it ended, unless `silent`. There is none for an empty list of names, and none where a
  /// file could not be copied: that ends everything at once, and leaves the staging folder behind for whoever
  /// looks into it, as an end without anything found does. Additional files are absolute paths; each of them
  /// has to be copied, and a link among them, as among preferences, is copied as a link.
  static bool gatherLogsForAppsWithNames(const std::vector<std::string>& names, GatherSilently silent,
                                         const std::vector<std::string>& additionalFiles);
};
