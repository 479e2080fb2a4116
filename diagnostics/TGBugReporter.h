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

/// Notices that the previous run ended in a crash and hands its crash report to the maker's bug reporter. Two
/// dates are kept, "launch" and "exit", in a property-list file, or in the user defaults when no path is
/// given. Never throws.
class TGBugReporter {
 public:
  TGBugReporter() = delete;

  /// Checks for a crash, tells the delegate, and stamps the launch. No name stands for the bundle's
  /// CFBundleName.
  static void startBugReporter(const std::optional<std::string>& name,
                               const std::optional<std::string>& plistPath,
                               TGBugReporterDelegate* delegate = nullptr);
  static void startBugReporter();
  static void startBugReporterWithDelegate(TGBugReporterDelegate* delegate);

  /// Stamps the exit.
  static void stopBugReporter(const std::optional<std::string>& plistPath);
  static void stopBugReporter();

  /// The path of the crash report of the last launch, or nullopt. Opens it with the bug reporter unless the
  /// user has switched that off.
  static std::optional<std::string> checkForCrashes(const std::optional<std::string>& name,
                                                    const std::optional<std::string>& plistPath);
  static std::optional<std::string> checkForCrashes();

  /// Gives a file below "Users" to the account whose folder it lies in.
  static void chownPlist(const std::string& path);
};
