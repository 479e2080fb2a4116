#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/foundation/PropertyList.h"
#include "ui/Outlets.h"

enum class ShouldTrash { no, yes };
enum class ShouldResetLayout { no, yes };
enum class Silent { no, yes };
enum class ShowAlert { no, yes };
enum class Bold { no, yes };

/// The application's controller: the repair, the single maintenance actions, and the console that all of them
/// report in. There is one a process, with a window (init) or without (initWithoutGUI).
///
/// No operation throws unless it says so; what arises inside one is logged under its selector. Outcomes are
/// told to the user, not to the caller. Privileged tools are started through TGAuthorization and not waited
/// for; the pauses behind them are what gives them time. Operations may be called on the main thread or on
/// the repair's worker thread, except those that touch the outlets: those REQUIRE the main thread.
///
/// A selector's first keyword names the function here; the sender of an action is left out where nothing is
/// asked of it. Where a Mac developer locks a lock object made for that one call, there is no lock here: it
/// would exclude nothing. A second repair of this window is prevented by the disabled Repair button, the
/// order of the console is kept by sending every line to the main thread and waiting for it. Nothing keeps
/// another process from repairing at the same time, with a window or without: what the one has moved to the
/// trash the other finds missing, and the Qmaster that the one has started the other may stop, and starts
/// again at its own end.
class TGAppController {
 public:
  /// @name Life
  /// @{

  /// The window's controller: watches for a crash of the previous run, begins the log "Quillmend" and
  /// registers the defaults of the preferences ("SUCheckAtStartup" YES; "shouldTrash", "shouldResetQmaster"
  /// and "shouldResetLayout" 1).
  [[nodiscard]] static std::unique_ptr<TGAppController> init();

  /// The controller of a run without a window: the dates of the crash watch lie in the application's
  /// preferences file of the user at the console, the log is "Quillmend.task", no defaults are registered,
  /// and the shared TGAuthorization is made at once, without its dialog, unless "-hotkey" (in exactly these
  /// letters) is among the process's arguments.
  [[nodiscard]] static std::unique_ptr<TGAppController> initWithoutGUI();

  /// Stamps the clean exit, always in the user defaults, also when the launch was stamped in a file.
  /// REQUIRES that no worker thread of a repair runs any more: it works on this object to its end, and
  /// repair() leaves nothing to wait for it by. The desktop application keeps its controller until it exits.
  ~TGAppController();

  TGAppController(const TGAppController&) = delete;
  TGAppController& operator=(const TGAppController&) = delete;

  [[nodiscard]] bool hasGUI() const { return hasGUI_; }

  /// Switching it on also makes the shared TGAuthorization, without its dialog.
  void setHasGUI(bool hasGUI);

  /// To be called when the outlets are connected: asks for the administrator password when the preference
  /// "requireAdminPassword" is the number 1, and ends the application when it is refused; then offers the
  /// maker's crash analysis application in the console unless it is installed. Answers whether the
  /// application goes on.
  bool awakeFromNib();

  /// Whether "requireAdminPassword" is the number 1 now. Only a number counts: a preference that somebody
  /// wrote as the string "1" requires no password.
  [[nodiscard]] static bool requiresAdminPassword();

  /// Closing the window quits.
  [[nodiscard]] static bool applicationShouldTerminateAfterLastWindowClosed() { return true; }
  static void applicationWillTerminate();

  /// @}
  /// @name Repair
  /// @{

  /// The Repair button: reads the three check boxes and repairs on a detached thread of its own. A thread
  /// that cannot be had is logged.
  void repair();

  /// A repair is under way: from repair() to the end of repairEnd(). Another press of the button, before the
  /// first one has got as far as disabling it, starts nothing.
  [[nodiscard]] bool isRepairing() const { return isRepairing_; }

  /// Has the repair of the window end at its next step, as a request to end the process does without a window
  /// (startRepair); the application is asked to end behind it. A repair that still waits for its rights does
  /// not get them any more. The repair's last words tell a signal (platform::Interruption) from a user who
  /// quit. Main thread.
  void endRepairAndTerminate();
  /// The same for a reason that the console and the log begin the repair's last words with, a literal.
  void endRepair(const char* reason);

  /// Why a repair is to end at its next step; nullopt while it is not.
  [[nodiscard]] std::optional<std::string> endRequest() const;

  /// What repair() starts, for a caller that wants to wait for the thread. Throws std::system_error where
  /// none can be had.
  [[nodiscard]] std::thread repairThread();

  /// The thread's work. The dictionary holds the booleans "shouldTrash", "shouldResetLayout" and
  /// "shouldResetQmaster".
  void threadedRepair(const foundation::PropertyList& options);
  void repairStart();
  /// The progress indicator is told of a repair that broke off: the console and an alert are not, on purpose.
  void repairEnd();

  /// The whole repair, in the window or on the command line. A run without a window ends early, at the next
  /// step, when the process was asked to end (platform::Interruption): what is left to remove or change is
  /// left alone, the services that were stopped are started again, the user is told, and the call returns;
  /// the signal has its effect when the caller delivers it.
  void startRepair(ShouldTrash shouldTrash, ShouldResetLayout shouldResetLayout, Silent isSilent);
  /// The same flag for preferences and window layout.
  void startRepair(ShouldTrash flag, Silent isSilent);

  /// @}
  /// @name Detection
  /// @{

  /// The versions installed, "3.5", as often as there are copies: a second copy of a version is repaired too.
  [[nodiscard]] std::vector<std::string> compressorVersions();
  /// Major and minor number from the application's Contents/version.plist; nullopt when it does not tell.
  [[nodiscard]] std::optional<std::string> versionFromPath(const std::string& path);
  [[nodiscard]] std::string currentBundlePath();
  [[nodiscard]] std::string currentExePath();
  /// The computer has a computer name and a local host name. A name counts as missing when the tool that is
  /// asked for it fails; a tool that cannot be launched at all has said nothing against the name, which then
  /// counts as there, on purpose.
  [[nodiscard]] bool checkComputerName();
  /// The standard output of a tool that failed; nullopt for one that ended well or could not be run. The
  /// bytes come back as the tool wrote them, also where they are not valid UTF-8.
  [[nodiscard]] std::optional<std::string> returnTaskOutput(const std::string& tool,
                                                            const std::vector<std::string>& arguments);

  /// @}
  /// @name Permissions: chowntool and chmodtool, with a second to act
  /// @{

  void chown(const std::string& path, const std::string& owner);
  void chmod(const std::string& path, const std::string& mode);
  void chmodNoRecursive(const std::string& path, const std::string& mode);

  /// @}
  /// @name Console (main thread)
  /// @{

  void insertText(const std::string& text);
  void insertBoldText(const std::string& text);
  void insertErrorText(const std::string& text);
  void insertBoldErrorText(const std::string& text);
  void insertErrorText(const std::string& text, outlets::Color color, Bold bold);
  void clearErrorText();
  /// A sheet of the main window; the text is a format, filled with nothing.
  void showAlert(const std::string& text);

  /// The console of a run without a window: its lines, separated by an empty one. nullopt before the first.
  [[nodiscard]] const std::optional<std::string>& outputString() const { return outputString_; }

  /// @}
  /// @name Qmaster
  /// The operations with a 4 are for the Qmaster inside Compressor 4, the others for the system-wide one of
  /// Compressor 3. Those of Compressor 4, the sharing, daemon and spool path operations let the exceptions of
  /// a tool that cannot be launched through; the others log them.
  /// @{

  void qmasterCancelJobs();
  void qmaster4CancelJobs();
  void qmasterReset();
  void qmaster4Reset();
  void qmasterStartSharing();
  void qmaster4StartSharing();
  void qmasterStopSharing();
  void qmaster4StopSharing();
  void qmasterRestart();
  void qmaster4Restart();
  void qmasterStart();
  void qmasterdStart(Silent silent);
  void unloadQmasterDaemon();
  void loadQmasterDaemon();
  void qmasterMenuLaunch();
  void stopAll();
  void authTrashSpoolFolder(const std::string& path);
  void authTrashFolderContents(const std::string& path);
  void authTrashFile(const std::string& path);
  /// The configured spool folder, as it is written in the machine's services file; nullopt without one.
  [[nodiscard]] std::optional<std::string> qmasterSpoolPath();
  /// The same of the user's services file, with a leading tilde expanded.
  [[nodiscard]] std::optional<std::string> qmaster4SpoolPath();

  /// @}
  /// @name Preferences and window layout
  /// An alert says that the reset was done; it is shown whether or not there was a file. REQUIRES the main
  /// thread with ShowAlert::yes.
  /// @{

  void trashCompressorPrefs(ShowAlert showAlert);
  void trashCompressor4Prefs(ShowAlert showAlert);
  void resetWindowLayout(ShowAlert showAlert);
  void menuTrashCompressorPrefs();
  void menuTrashCompressor4Prefs();

  /// @}
  /// @name Quitting applications
  /// @{

  /// Asks an application, by its name, to quit, and waits for no answer.
  void sendQuitEventToApp(const std::string& name);
  /// Asks Compressor to quit, then looks up to 21 times, every two seconds or so, whether an application with
  /// the identifier still runs. Answers whether none does. A request to end the repair (endRequest) ends the
  /// wait within a second.
  bool closeAppWithBundleID(const std::string& bundleIdentifier);

  /// @}
  /// @name Menu and help (main thread)
  /// @{

  /// Both let out what the daemon and sharing operations throw for a tool that cannot be launched; the steps
  /// behind it are not taken then, and no alert is shown.
  void menuRestartQmaster();
  void menuStopQmaster();
  /// Stores the sender's state as "requireAdminPassword", at once; switching it off takes an administrator.
  /// Where it cannot be stored the sender goes back to what is, and the log and an alert say why. Lets out
  /// what is no foundation::Exception.
  void prefsToggleAdminPass(outlets::Sender* sender);
  void helpManual();
  void helpCareplex();
  void helpHome();
  void helpReportBug();
  void helpSuggestFeature();
  void helpTGHome();
  /// Show the current log in the viewer for logs, the second that of a run without a window.
  void viewLog();
  void viewTaskLog();
  /// Puts the logs, crash reports and preferences into an archive on the desktop, for support.
  void gatherLogs();

  /// @}

 private:
  TGAppController() = default;

  void insertIntoConsoleView(const std::string& text, outlets::Color color, Bold bold);
  void appendToOutput(const std::string& text);
  void offerCrashAnalysis();

  bool hasGUI_ = false;
  std::atomic<bool> isRepairing_ = false;
  std::atomic<const char*> endReason_ = nullptr;  ///< nullptr while nobody has asked the repair to end
  std::atomic<int> endSignal_ = 0;                ///< what asked it to, where it was a signal
  bool brokeOff_ = false;                         ///< the last repair has not come to its end
  [[maybe_unused]] bool oldConfigAvailable_ = false;
  std::optional<std::string> outputString_;

 public:
  /// @name Outlets
  /// Connected by whoever loads the window, and not owned. A message to an outlet that is not connected does
  /// nothing.
  /// @{

  outlets::Window* windowMain = nullptr;
  outlets::TextView* errorText = nullptr;
  outlets::Button* repairButton = nullptr;
  outlets::CheckBox* trashPrefs = nullptr;
  outlets::CheckBox* resetQmasterCheck = nullptr;
  outlets::CheckBox* resetLayoutCheck = nullptr;
  outlets::ImageView* logoImageView = nullptr;
  outlets::MenuItem* menuItemResetOldQmasterConfig = nullptr;
  outlets::MenuItem* prefsAdminPass = nullptr;
  outlets::ProgressIndicator* repairProgress = nullptr;

  /// @}
};
