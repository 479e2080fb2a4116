#pragma once

#include <optional>
#include <string>

/// Hears of a crash of the previous run.
class TGBugReporterDelegate {
 public:
  virtual ~TGBugReporterDelegate() = default;
  /// Called on the main thread with the path of the crash report found.
  virtual void applicationDidCrashWithLog(const std::string& path) = 0;
};

/// Notices that the previous run ended in a crash and hands its crash report to the maker's bug reporter.
///
/// Two dates are kept, "launch" and "exit", in a property-list dictionary file (its other keys stay), or in
/// the user defaults when no path is given. The previous run crashed when it was launched, did not exit
/// since, and left a report "<name>_..." (case ignored, ASCII letters) that changed after the launch, in
/// "CrashReporter" or "DiagnosticReports" of the user's, then of the local log folder. Of each folder only
/// the last report in the folder's listing order is looked at.
///
/// A store that is missing, unreadable or no dictionary counts as empty, a stamp that is no date as absent; a
/// store that cannot be written is passed over. As root a store that is a symbolic link is not followed:
/// stamping puts a file in its place. Never throws; what arises is logged.
class TGBugReporter {
 public:
  TGBugReporter() = delete;

  /// Checks for a crash, tells the delegate without waiting for it, and stamps the launch. No name stands for
  /// the bundle's CFBundleName. The delegate must live until the main thread has served it.
  static void startBugReporter(const std::optional<std::string>& name,
                               const std::optional<std::string>& plistPath,
                               TGBugReporterDelegate* delegate = nullptr);
  static void startBugReporter();
  static void startBugReporterWithDelegate(TGBugReporterDelegate* delegate);

  /// Stamps the exit.
  static void stopBugReporter(const std::optional<std::string>& plistPath);
  static void stopBugReporter();

  /// The path of the crash report of the last launch, or nullopt. Opens it with the bug reporter (the one in
  /// the bundle's resources, else the installed one) unless "disable-crash-reporter" is on in the maker's
  /// global preferences.
  static std::optional<std::string> checkForCrashes(const std::optional<std::string>& name,
                                                    const std::optional<std::string>& plistPath);
  static std::optional<std::string> checkForCrashes();

  /// Gives a file below the first folder "Users" of its path to the account whose folder it lies in; any
  /// other path is left alone.
  static void chownPlist(const std::string& path);
};
