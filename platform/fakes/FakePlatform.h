#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/Platform.h"
#include "platform/foundation/Exception.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "platform/posix/GuardedFileLocks.h"
#include "platform/posix/GuardedFiles.h"
#include "platform/posix/GuardedGathering.h"
#include "platform/posix/PosixFolderQueries.h"

/// A platform for tests: it does nothing to the system and records every call, in order, as one line of text.
/// Services that the test steers have public fields.
namespace fakes {

/// The calls in the order they were made, for example
/// "run /usr/sbin/scutil --get ComputerName", "sleep 600us", "post tgQuillmendScanFinished".
class Recorder {
 public:
  /// May be called from any thread, as everything here.
  void add(std::string line);
  [[nodiscard]] std::vector<std::string> lines() const;
  /// The lines that begin with one of the words.
  [[nodiscard]] std::vector<std::string> only(const std::vector<std::string>& firstWords) const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

/// "sleep 600us", "sleep 2s": the largest unit that leaves no fraction.
[[nodiscard]] std::string describeDuration(std::chrono::nanoseconds duration);

class FakeClock : public platform::Clock {
 public:
  explicit FakeClock(Recorder& recorder) : recorder_(recorder) {}
  foundation::Date now() override;
  std::chrono::nanoseconds uptime() override { return uptime_.load(); }
  /// Advances both clocks by the duration.
  void sleep(std::chrono::nanoseconds duration) override;
  /// Lets time pass without a pause being recorded.
  void advance(std::chrono::nanoseconds duration) { uptime_ = uptime_.load() + duration; }

  /// From now on a thread other than the caller's really sleeps, unrecorded, until it is woken; one that is
  /// never woken sleeps on, also when the clock is gone.
  void holdOtherThreads();
  /// Waits until that many threads have gone to sleep since; answers for how long they mean to, in the order
  /// they went.
  std::vector<std::chrono::nanoseconds> waitForSleepers(std::size_t count);
  /// Wakes all that sleep now or go to sleep later.
  void wakeOtherThreads();

  foundation::Date start = foundation::Date::fromUnixTime(1293876000);  ///< 2011-01-01 10:00:00 +0000

 private:
  struct Sleepers {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::chrono::nanoseconds> durations;
    bool woken = false;
    std::thread::id wakeful;
  };

  Recorder& recorder_;
  std::atomic<std::chrono::nanoseconds> uptime_{std::chrono::nanoseconds(0)};
  std::shared_ptr<Sleepers> sleepers_;
};

/// Runs work at once on the calling thread; "main (wait)" and "main (no wait)" are recorded when asked for.
class FakeMainThread : public platform::MainThread {
 public:
  explicit FakeMainThread(Recorder& recorder) : recorder_(recorder) {}
  bool isCurrent() override { return current; }
  void perform(std::function<void()> work, platform::Wait wait) override;
  bool serveUntilReadable(int descriptor, std::optional<std::chrono::nanoseconds> interval) override;

  /// Waits until that much work has been done; what other threads handed over is then behind them.
  void waitUntilPerformed(int count);

  std::atomic<bool> current = true;
  bool recordsWork = false;
  /// Called when somebody begins to wait and serve work.
  std::function<void()> whenServing;

 private:
  Recorder& recorder_;
  std::recursive_mutex performing_;  ///< one piece of work at a time, which may have more performed at once
  std::mutex mutex_;
  std::condition_variable changed_;
  int performed_ = 0;
};

/// Records "event 10ms". None ever comes: the wait for one takes its whole time by
/// the clock, without being recorded as a pause.
class FakeUserInterfaceEvents : public platform::UserInterfaceEvents {
 public:
  FakeUserInterfaceEvents(Recorder& recorder, FakeClock& clock) : recorder_(recorder), clock_(clock) {}
  bool dispatchNext(std::chrono::nanoseconds longestWait) override;

  /// What happens at each question, in turn; the count of questions begins with 1.
  std::function<void(int count)> whenAsked;
  int asked = 0;

 private:
  Recorder& recorder_;
  FakeClock& clock_;
};

class FakeUsersAndFolders : public platform::UsersAndFolders {
 public:
  explicit FakeUsersAndFolders(Recorder& recorder) : recorder_(recorder) {}
  uid_t userID() override { return user; }
  bool setUserID(uid_t wanted) override;
  std::string homeDirectory() override { return home; }
  std::string userName() override { return name; }
  std::optional<std::string> homeDirectoryForUser(const std::optional<std::string>& account) override;
  std::optional<std::string> consoleUser() override { return console; }
  /// The conventional Mac locations, below `home` (below "/var/root" as root) for the user domain.
  std::vector<std::string> searchPaths(platform::SearchPathDirectory directory,
                                       platform::SearchPathDomain domain) override;
  std::string temporaryDirectory() override { return temporary; }

  uid_t user = 501;
  std::string name = "alice";
  std::string home = "/Users/alice";
  std::optional<std::string> console = "alice";
  std::map<std::string, std::string> homes = {{"alice", "/Users/alice"}, {"bob", "/Users/bob"}};
  std::string temporary = "/private/tmp";
  /// Overrides what searchPaths answers.
  std::function<std::optional<std::vector<std::string>>(platform::SearchPathDirectory,
                                                        platform::SearchPathDomain)>
      searchPathsOverride;

 private:
  Recorder& recorder_;
};

/// Real files below a folder of the test's own: the path "/Library/x" means root + "/Library/x".
class RootedFiles : public platform::FileQueries, public platform::FileChanges {
 public:
  RootedFiles();  ///< makes a fresh temporary folder
  ~RootedFiles() override;
  RootedFiles(const RootedFiles&) = delete;
  RootedFiles& operator=(const RootedFiles&) = delete;

  [[nodiscard]] const std::string& root() const { return root_; }
  [[nodiscard]] std::string real(const std::string& path) const { return root_ + path; }

  /// Writes a file, making the folders above it; an empty folder; a symbolic link.
  void makeFile(const std::string& path, const std::string& content = "");
  void makeFolder(const std::string& path);

  bool exists(const std::string& path) override { return queries_.exists(real(path)); }
  bool isDirectory(const std::string& path) override { return queries_.isDirectory(real(path)); }
  /// True for what exists unless the test has denied it.
  bool isAccessible(const std::string& path, platform::Access access) override;
  foundation::Result<std::vector<std::string>> contentsOfDirectory(const std::string& path) override;
  foundation::Result<std::string> readFile(const std::string& path, std::uint64_t limit) override;
  foundation::Result<std::string> readFileItself(const std::string& path, std::uint64_t limit) override;
  std::optional<foundation::Date> modificationDate(const std::string& path) override;
  bool isOutOfOthersReach(const std::string& path) override {
    return queries_.isOutOfOthersReach(real(path));
  }
  std::optional<platform::FileState> state(const std::string& path) override {
    return queries_.state(real(path));
  }
  foundation::Result<std::string> linkTarget(const std::string& path) override;
  foundation::Result<void> createDirectory(const std::string& path) override;
  foundation::Result<void> move(const std::string& from, const std::string& to) override;
  foundation::Result<void> copy(const std::string& from, const std::string& to) override;
  foundation::Result<void> copyForOwnUse(const std::string& from, const std::string& to) override;
  foundation::Result<void> remove(const std::string& path) override;
  foundation::Result<void> writeAtomically(const std::string& path, std::string_view bytes) override;
  foundation::Result<void> createFileUnsynced(const std::string& path, std::string_view bytes) override;
  foundation::Result<platform::FileState> replaceUnchanged(const std::string& path,
                                                           const std::optional<platform::FileState>& seen,
                                                           std::string_view bytes) override;
  foundation::Result<std::unique_ptr<platform::WritableFile>> openForWriting(
      const std::string& path) override;

  std::set<std::pair<std::string, platform::Access>> denied;
  /// Called before every change with its name and path; an error answered makes the change fail with it.
  std::function<std::optional<foundation::Error>(const std::string& change, const std::string& path)>
      beforeChange;
  /// Called when a file has been replaced, with its path.
  std::function<void(const std::string& path)> afterReplacing;
  /// Called before the content of a file is read, with its path.
  std::function<void(const std::string& path)> whenRead;

 private:
  [[nodiscard]] std::optional<foundation::Error> refusal(const char* change, const std::string& path) const;

  std::string root_;
  platform::GuardedFileQueries queries_;
  platform::GuardedFileChanges changes_;
};

/// Real locks beside the files.
class FakeFileLocks : public platform::FileLocks {
 public:
  explicit FakeFileLocks(RootedFiles& files) : files_(files) {}
  foundation::Result<std::unique_ptr<platform::FileLock>> tryLock(const std::string& path) override {
    return locks_.tryLock(files_.real(path));
  }

 private:
  RootedFiles& files_;
  platform::GuardedFileLocks locks_;
};

/// Keeps locks and Finder information beside the files; records "lock PATH" and "unlock PATH" where something
/// is, whatever its state.
class FakeFileAttributes : public platform::FileAttributes {
 public:
  FakeFileAttributes(Recorder& recorder, RootedFiles& files) : recorder_(recorder), files_(files) {}
  bool isSymbolicLink(const std::string& path) override;
  bool isLedAstray(const std::string& path) override { return ledAstray.contains(path); }
  bool isImmutable(const std::string& path) override { return locked.contains(path); }
  foundation::Result<void> setImmutable(const std::string& path, platform::Immutable immutable) override;
  foundation::Result<platform::FinderInformation> finderInformation(const std::string& path) override;
  foundation::Result<void> setFinderInformation(const std::string& path,
                                                const platform::FinderInformation& information) override;

  std::set<std::string> locked;
  /// The paths with somebody else's link on the way.
  std::set<std::string> ledAstray;
  std::map<std::string, platform::FinderInformation> information;
  /// What every change fails with.
  std::optional<foundation::Error> refusal;

 private:
  Recorder& recorder_;
  RootedFiles& files_;
};

/// Folders of the files, as they are.
class FakeFolderQueries : public platform::FolderQueries {
 public:
  explicit FakeFolderQueries(RootedFiles& files) : files_(files) {}
  foundation::Result<platform::FolderListing> entries(const std::string& path) override {
    return queries_.entries(files_.real(path));
  }
  std::uint64_t totalSize(const std::string& path) override { return queries_.totalSize(files_.real(path)); }
  std::optional<platform::ItemIdentity> identity(const std::string& path) override {
    return queries_.identity(files_.real(path));
  }

 private:
  RootedFiles& files_;
  platform::PosixFolderQueries queries_;
};

/// References that know of every move that they are told of.
class FakeFileReferences : public platform::FileReferences {
 public:
  explicit FakeFileReferences(RootedFiles& files) : files_(files) {}
  foundation::Result<platform::FSRef> reference(const std::string& path) override;
  foundation::Result<std::string> path(const platform::FSRef& reference) override;

  /// Where each item that was referred to is now, in the order of the references.
  std::vector<std::string> paths;

 private:
  RootedFiles& files_;
};

/// Records "create operation", "schedule operation", "unschedule operation", "cancel operation" and
/// "copy SOURCE -> FOLDER / NAME every 1s"; the test calls the callback.
class FakeFileOperations : public platform::FileOperations {
 public:
  explicit FakeFileOperations(Recorder& recorder) : recorder_(recorder) {}
  platform::FileOperationRef create() override;
  platform::OSStatus scheduleOnMainThread(const platform::FileOperationRef& operation) override;
  platform::OSStatus unscheduleFromMainThread(const platform::FileOperationRef& operation) override;
  platform::OSStatus copyObject(const platform::FileOperationRef& operation, const std::string& source,
                                const std::string& destinationFolder, const std::string& destinationName,
                                std::chrono::nanoseconds statusInterval, StatusCallback callback) override;
  platform::OSStatus cancel(const platform::FileOperationRef& operation) override;

  platform::OSStatus scheduling = platform::noErr;
  platform::OSStatus unscheduling = platform::noErr;
  platform::OSStatus beginning = platform::noErr;
  StatusCallback callback;
  platform::FileOperationRef operation;

 private:
  Recorder& recorder_;
};

/// Records "file browser PATH".
class FakeFileBrowser : public platform::FileBrowser {
 public:
  explicit FakeFileBrowser(Recorder& recorder) : recorder_(recorder) {}
  platform::OSStatus itemChanged(const std::string& path) override;

  platform::OSStatus answer = platform::noErr;

 private:
  Recorder& recorder_;
};

/// What a fake tool does.
struct ToolRun {
  int status = 0;
  std::string output = {};
  std::string error = {};
  std::optional<foundation::Exception> launchFailure = std::nullopt;
  /// It does not end by itself: what waits for it (or for the end of its output) waits until it is
  /// terminated; its status is then 15.
  bool runsUntilTerminated = false;
  /// Called at the end of its launch.
  std::function<void()> whenLaunched = nullptr;
};

/// Records "run PATH ARGUMENTS..." at launch and "terminate PATH"; when asked for also "wait PATH" and
/// "read output PATH", "read error PATH", "close output PATH", "close error PATH".
class FakeSubprocesses : public platform::Subprocesses {
 public:
  FakeSubprocesses(Recorder& recorder, RootedFiles& files) : recorder_(recorder), files_(files) {}
  std::shared_ptr<platform::Subprocess> create(platform::SubprocessOptions options) override;
  bool isExecutableFile(const std::string& path) override;

  /// What a tool does; by the command line as it is recorded, else by its path, else nothing with status 0.
  std::map<std::string, ToolRun> runs;
  /// Executable paths that need not exist in the files.
  std::set<std::string> executables;
  /// The options of every child made, in order.
  std::vector<platform::SubprocessOptions> created;
  bool recordsWaits = false;
  bool recordsPipes = false;

 private:
  Recorder& recorder_;
  RootedFiles& files_;
};

class FakeApplications : public platform::Applications {
 public:
  explicit FakeApplications(Recorder& recorder) : recorder_(recorder) {}
  std::optional<std::string> pathForIdentifier(const std::string& identifier) override;
  /// Records "register PATH" and answers `registration`.
  platform::OSStatus registerApplication(const std::string& path) override;
  std::vector<std::string> launchedIdentifiers() override;
  std::optional<foundation::PropertyList> askToQuit(const std::string& applicationName) override;

  std::map<std::string, std::string> paths;
  platform::OSStatus registration = platform::noErr;
  /// What each question for the running applications is answered, in turn; the last answer stays.
  std::deque<std::vector<std::string>> launched;
  std::optional<foundation::PropertyList> quitError;

 private:
  Recorder& recorder_;
};

class FakeWorkspace : public platform::Workspace {
 public:
  FakeWorkspace(Recorder& recorder, RootedFiles& files) : recorder_(recorder), files_(files) {}
  bool openFile(const std::string& path) override;
  bool openFile(const std::string& path, const std::string& application) override;
  bool openURL(const std::string& address) override;
  /// Moves within the files; fails for a name that is not there.
  foundation::Result<void> recycle(const std::string& sourceFolder, const std::string& trashFolder,
                                   const std::vector<std::string>& names) override;
  bool isFilePackage(const std::string& path) override;

  /// What openFile answers.
  bool canOpen = true;

 private:
  Recorder& recorder_;
  RootedFiles& files_;
};

class FakeAuthorization : public platform::Authorization {
 public:
  explicit FakeAuthorization(Recorder& recorder) : recorder_(recorder) {}
  platform::AuthorizationStatus copyPrivilegedReference(platform::AuthorizationFlags flags,
                                                        platform::AuthorizationRef* reference) override;
  platform::AuthorizationStatus create(const std::optional<platform::AuthorizationEnvironment>& environment,
                                       platform::AuthorizationFlags flags,
                                       platform::AuthorizationRef* reference) override;
  platform::AuthorizationStatus copyRights(
      platform::AuthorizationRef reference, const std::vector<std::string>& rights,
      const std::optional<platform::AuthorizationEnvironment>& environment,
      platform::AuthorizationFlags flags) override;
  platform::AuthorizationStatus free(platform::AuthorizationRef reference,
                                     platform::AuthorizationFlags flags) override;
  platform::AuthorizationStatus executeWithPrivileges(
      platform::AuthorizationRef reference, const std::string& path, platform::AuthorizationFlags flags,
      const std::vector<std::string>& arguments,
      std::unique_ptr<platform::CommunicationsPipe>* pipe) override;
  void stopAsking() override;

  platform::AuthorizationStatus inherited = platform::errAuthorizationInvalidRef;
  platform::AuthorizationStatus creation = platform::errAuthorizationSuccess;
  platform::AuthorizationStatus rights = platform::errAuthorizationSuccess;
  /// Called while rights are asked for.
  std::function<void()> whileAsking;
  platform::AuthorizationStatus execution = platform::errAuthorizationSuccess;
  std::string pipeContent;
  /// How much was read of it, the end counted as one character.
  std::size_t charactersRead = 0;
  /// References given out and not freed.
  int held = 0;

 private:
  Recorder& recorder_;
};

/// Records "post NAME" followed by the user information's description, if any.
class FakeDistributedNotifications : public platform::DistributedNotifications {
 public:
  explicit FakeDistributedNotifications(Recorder& recorder) : recorder_(recorder) {}
  void post(const std::string& name, const std::optional<foundation::PropertyList>& userInfo) override;

  struct Posted {
    std::string name;
    std::optional<foundation::PropertyList> userInfo;
  };
  std::vector<Posted> posted;

 private:
  Recorder& recorder_;
};

/// Records "notify TITLE: DESCRIPTION" and "set notification delegate".
class FakeDesktopNotifications : public platform::DesktopNotifications {
 public:
  explicit FakeDesktopNotifications(Recorder& recorder) : recorder_(recorder) {}
  void setDelegate(platform::DesktopNotificationDelegate* newDelegate) override;
  void post(const platform::DesktopNotification& notification) override;

  platform::DesktopNotificationDelegate* delegate = nullptr;
  std::vector<platform::DesktopNotification> posted;

 private:
  Recorder& recorder_;
};

/// A client that listens under a registered name.
struct FakeClient {
  std::set<std::string> selectors;
  bool diesBeforeSend = false;
};

/// Records "look up NAME", "protocol NAME", "send SELECTOR ARGUMENTS", "release proxy".
class FakeClientConnections : public platform::ClientConnections {
 public:
  explicit FakeClientConnections(Recorder& recorder) : recorder_(recorder) {}
  std::unique_ptr<platform::ClientProxy> rootProxy(const std::string& registeredName) override;

  std::map<std::string, FakeClient> clients;

 private:
  Recorder& recorder_;
};

class FakePreferences : public platform::Preferences {
 public:
  explicit FakePreferences(Recorder& recorder) : recorder_(recorder) {}
  std::optional<foundation::PropertyList> value(const std::string& key) override;
  void registerDefaults(const foundation::PropertyList& dictionary) override;
  void setValue(const std::string& key, const foundation::PropertyList& value) override;
  bool synchronize() override;
  foundation::Result<void> storeForAnyUserOnCurrentHost(const std::string& key,
                                                        const foundation::PropertyList& value) override;

  foundation::PropertyList values;
  foundation::PropertyList registered;
  /// What synchronize answers.
  bool canStore = true;
  /// Why nothing can be stored for everybody.
  std::optional<foundation::Error> refusal;
  /// What registerDefaults throws.
  std::optional<foundation::Exception> failure;

 private:
  Recorder& recorder_;
};

/// Real copies within the files, by the process's own rights whoever the reader is.
class FakeGathering : public platform::Gathering {
 public:
  explicit FakeGathering(RootedFiles& files) : files_(files) {}
  foundation::Result<std::unique_ptr<platform::FolderInUse>> createPrivateFolder(
      const std::string& path) override;
  foundation::Result<std::unique_ptr<platform::FolderInUse>> useLeftFolder(const std::string& path) override;
  foundation::Result<std::vector<std::string>> contentsOfDirectory(const platform::Reader& reader,
                                                                   const std::string& path) override;
  bool exists(const platform::Reader& reader, const std::string& path) override;
  /// Asks the files' beforeChange as "copy" of the item that is copied.
  foundation::Result<void> copy(const platform::Reader& reader, const std::string& from,
                                const std::string& to, platform::AtLink atLink) override;

  /// Those for whom something was listed, looked for or copied.
  std::set<platform::Reader> readers;

 private:
  RootedFiles& files_;
  platform::PosixFileQueries queries_;
  platform::GuardedGathering gathering_{queries_};
};

class FakeAlerts : public platform::Alerts {
 public:
  explicit FakeAlerts(Recorder& recorder) : recorder_(recorder) {}
  void runPanel(const std::string& title, const std::string& message) override;

 private:
  Recorder& recorder_;
};

/// Keeps the messages apart from the calls, unless asked to record "console MESSAGE" among them.
class FakeSystemConsole : public platform::SystemConsole {
 public:
  explicit FakeSystemConsole(Recorder& recorder) : recorder_(recorder) {}
  void write(const std::string& message) override;
  /// The messages written so far.
  [[nodiscard]] std::vector<std::string> messages() const;

  bool recordsMessages = false;

 private:
  Recorder& recorder_;
  mutable std::mutex mutex_;
  std::vector<std::string> messages_;
};

class FakeMainBundle : public platform::MainBundle {
 public:
  explicit FakeMainBundle(RootedFiles& files) : files_(files) {}
  std::string path() override { return bundlePath; }
  std::string executablePath() override {
    return executable.value_or(bundlePath + "/Contents/MacOS/Quillmend");
  }
  foundation::PropertyList infoDictionary() override { return info; }
  std::optional<std::string> pathForIdentifier(const std::string& identifier) override;
  std::optional<std::string> pathForResource(const std::string& name, const std::string& type) override;
  std::string localizedString(const std::string& key) override;

  std::string bundlePath = "/Applications/Quillmend.app";
  /// Overrides what executablePath answers.
  std::optional<std::string> executable;
  foundation::PropertyList info =
      foundation::PropertyList::Dictionary{{"CFBundleIdentifier", "com.vordenworks.Quillmend"},
                                           {"CFBundleName", "Quillmend"},
                                           {"CFBundleVersion", "2.1"},
                                           {"CFBundleShortVersionString", "2.1"}};
  std::map<std::string, std::string> localizedStrings;
  std::map<std::string, std::string> loadedBundles = {
      {"com.vordenworks.Quillmend", "/Applications/Quillmend.app"}};

 private:
  RootedFiles& files_;
};

class FakeProcessInformation : public platform::ProcessInformation {
 public:
  std::vector<std::string> arguments() override { return argumentList; }
  std::string processName() override { return "Quillmend"; }
  std::string operatingSystemVersionString() override { return "Version 10.6.8 (Build 10K549)"; }
  int processorCount() override { return 8; }
  std::uint64_t physicalMemory() override { return 6ULL << 30; }
  std::string globallyUniqueString() override { return "unique-" + std::to_string(++count_); }

  std::vector<std::string> argumentList = {"/Applications/Quillmend.app/Contents/MacOS/Quillmend"};

 private:
  int count_ = 0;
};

/// A layout that the test makes up: by the key code, whatever the modifiers. Other keys produce nothing.
class FakeKeyboardLayout : public platform::KeyboardLayout {
 public:
  std::optional<platform::KeyTranslation> translate(std::uint16_t keyCode,
                                                    std::uint32_t modifierState) override;
  /// The scan code itself, but for 0.
  std::optional<std::uint16_t> keyCodeForScanCode(std::uint32_t scanCode) override;

  bool isThere = true;
  std::map<std::uint16_t, platform::KeyTranslation> keys;
  /// The modifier states asked for, in order.
  std::vector<std::uint32_t> states;
};

class FakeInterruption : public platform::Interruption {
 public:
  explicit FakeInterruption(Recorder& recorder) : recorder_(recorder) {}
  void defer() override { recorder_.add("defer interruption"); }
  std::optional<int> requested() override;
  void deliver() override { recorder_.add("deliver interruption"); }

  /// The signal, and how many questions are answered with none before it comes.
  std::optional<int> signal;
  int comesAfter = 0;

 private:
  Recorder& recorder_;
};

/// Records "desktop application ARGUMENTS...".
class FakeDesktopApplication : public platform::DesktopApplication {
 public:
  explicit FakeDesktopApplication(Recorder& recorder) : recorder_(recorder) {}
  int run(const std::vector<std::string>& arguments, outlets::InterfaceOwner& owner,
          const std::function<void()>& displayWasLost) override;
  void terminate() override { recorder_.add("terminate application"); }

  int result = 0;
  /// Its display is lost at the end.
  bool losesDisplay = false;
  /// What the window does in its life.
  std::function<void(outlets::InterfaceOwner&)> whileRunning;

 private:
  Recorder& recorder_;
};

class FakeLocalNotifications : public platform::LocalNotifications {
 public:
  explicit FakeLocalNotifications(Recorder& recorder) : recorder_(recorder) {}
  void post(const platform::LocalNotification& notification) override;
  int addObserver(const std::string& name, Observer observer) override;
  void removeObserver(int number) override;

  std::vector<platform::LocalNotification> posted;

 private:
  Recorder& recorder_;
  std::map<int, std::pair<std::string, Observer>> observers_;
  int last_ = 0;
};

/// All of them, installed for the life of the object. Property lists are the backend's real ones.
class FakePlatform {
 public:
  FakePlatform();

  Recorder recorder;
  RootedFiles files;
  FakeClock clock{recorder};
  FakeMainThread mainThread{recorder};
  FakeUserInterfaceEvents userInterfaceEvents{recorder, clock};
  FakeUsersAndFolders users{recorder};
  FakeFileLocks fileLocks{files};
  FakeFileAttributes fileAttributes{recorder, files};
  FakeFolderQueries folderQueries{files};
  FakeFileReferences fileReferences{files};
  FakeFileOperations fileOperations{recorder};
  FakeFileBrowser fileBrowser{recorder};
  FakeSubprocesses subprocesses{recorder, files};
  FakeApplications applications{recorder};
  FakeWorkspace workspace{recorder, files};
  FakeAuthorization authorization{recorder};
  FakeDistributedNotifications distributedNotifications{recorder};
  FakeLocalNotifications localNotifications{recorder};
  FakeDesktopNotifications desktopNotifications{recorder};
  FakeClientConnections clientConnections{recorder};
  FakePreferences preferences{recorder};
  FakeGathering gathering{files};
  FakeAlerts alerts{recorder};
  FakeSystemConsole systemConsole{recorder};
  FakeMainBundle mainBundle{files};
  FakeProcessInformation processInformation;
  FakeKeyboardLayout keyboardLayout;
  FakeInterruption interruption{recorder};
  FakeDesktopApplication desktopApplication{recorder};
  platform::LinuxPropertyLists propertyLists;

 private:
  platform::Platform platform_;
  platform::PlatformScope scope_{platform_};
};

}  // namespace fakes
