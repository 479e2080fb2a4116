#pragma once

#include <cerrno>

#include "platform/Platform.h"
#include "platform/foundation/Exception.h"

/// A backend that does nothing: every call is answered with an error where it has a way to say so, else with
/// nothing. It keeps the program compiling and linking on a system that no backend has been written for, and
/// is where a new backend begins: copy it and fill in one class after the other.
namespace platform {

/// The error that every fallible call answers.
[[nodiscard]] inline foundation::Error notImplemented(const std::string& path = "") {
  return foundation::systemError(ENOSYS, path);
}

class UnimplementedClock : public Clock {
 public:
  foundation::Date now() override { return {}; }
  std::chrono::nanoseconds uptime() override { return std::chrono::nanoseconds(0); }
  void sleep(std::chrono::nanoseconds) override {}
};

/// Takes every thread for the main thread, so that work is done rather than lost.
class UnimplementedMainThread : public MainThread {
 public:
  bool isCurrent() override { return true; }
  void perform(std::function<void()> work, Wait) override { work(); }
  bool serveUntilReadable(int, std::optional<std::chrono::nanoseconds>) override { return false; }
};

class UnimplementedUserInterfaceEvents : public UserInterfaceEvents {
 public:
  bool dispatchNext(std::chrono::nanoseconds) override { return false; }
};

class UnimplementedUsersAndFolders : public UsersAndFolders {
 public:
  /// Nobody's number: never that of root, whom the program would do more for.
  uid_t userID() override { return static_cast<uid_t>(-1); }
  bool setUserID(uid_t) override { return false; }
  std::string homeDirectory() override { return {}; }
  std::string userName() override { return {}; }
  std::optional<std::string> homeDirectoryForUser(const std::optional<std::string>&) override { return {}; }
  std::optional<std::string> consoleUser() override { return {}; }
  std::vector<std::string> searchPaths(SearchPathDirectory, SearchPathDomain) override { return {}; }
  std::string temporaryDirectory() override { return {}; }
};

class UnimplementedFileQueries : public FileQueries {
 public:
  bool exists(const std::string&) override { return false; }
  bool isDirectory(const std::string&) override { return false; }
  bool isAccessible(const std::string&, Access) override { return false; }
  foundation::Result<std::vector<std::string>> contentsOfDirectory(const std::string& path) override {
    return notImplemented(path);
  }
  foundation::Result<std::string> readFile(const std::string& path, std::uint64_t) override {
    return notImplemented(path);
  }
  foundation::Result<std::string> readFileItself(const std::string& path, std::uint64_t) override {
    return notImplemented(path);
  }
  std::optional<foundation::Date> modificationDate(const std::string&) override { return {}; }
  bool isOutOfOthersReach(const std::string&) override { return false; }
  std::optional<FileState> state(const std::string&) override { return {}; }
  foundation::Result<std::string> linkTarget(const std::string& path) override {
    return notImplemented(path);
  }
};

class UnimplementedFileChanges : public FileChanges {
 public:
  foundation::Result<void> createDirectory(const std::string& path) override { return notImplemented(path); }
  foundation::Result<void> move(const std::string& from, const std::string&) override {
    return notImplemented(from);
  }
  foundation::Result<void> copy(const std::string& from, const std::string&) override {
    return notImplemented(from);
  }
  foundation::Result<void> copyForOwnUse(const std::string& from, const std::string&) override {
    return notImplemented(from);
  }
  foundation::Result<void> remove(const std::string& path) override { return notImplemented(path); }
  foundation::Result<void> writeAtomically(const std::string& path, std::string_view) override {
    return notImplemented(path);
  }
  foundation::Result<void> createFileUnsynced(const std::string& path, std::string_view) override {
    return notImplemented(path);
  }
  foundation::Result<FileState> replaceUnchanged(const std::string& path, const std::optional<FileState>&,
                                                 std::string_view) override {
    return notImplemented(path);
  }
  foundation::Result<std::unique_ptr<WritableFile>> openForWriting(const std::string& path) override {
    return notImplemented(path);
  }
};

class UnimplementedFileAttributes : public FileAttributes {
 public:
  bool isSymbolicLink(const std::string&) override { return false; }
  bool isLedAstray(const std::string&) override { return true; }
  bool isImmutable(const std::string&) override { return false; }
  foundation::Result<void> setImmutable(const std::string& path, Immutable) override {
    return notImplemented(path);
  }
  foundation::Result<FinderInformation> finderInformation(const std::string& path) override {
    return notImplemented(path);
  }
  foundation::Result<void> setFinderInformation(const std::string& path, const FinderInformation&) override {
    return notImplemented(path);
  }
};

class UnimplementedFolderQueries : public FolderQueries {
 public:
  foundation::Result<FolderListing> entries(const std::string& path) override { return notImplemented(path); }
  std::uint64_t totalSize(const std::string&) override { return 0; }
  std::optional<ItemIdentity> identity(const std::string&) override { return {}; }
};

class UnimplementedFileReferences : public FileReferences {
 public:
  foundation::Result<FSRef> reference(const std::string& path) override { return notImplemented(path); }
  foundation::Result<std::string> path(const FSRef&) override { return notImplemented(); }
};

class UnimplementedFileOperations : public FileOperations {
 public:
  FileOperationRef create() override { return nullptr; }
  OSStatus scheduleOnMainThread(const FileOperationRef&) override { return ioErr; }
  OSStatus unscheduleFromMainThread(const FileOperationRef&) override { return ioErr; }
  OSStatus copyObject(const FileOperationRef&, const std::string&, const std::string&, const std::string&,
                      std::chrono::nanoseconds, StatusCallback) override {
    return ioErr;
  }
  OSStatus cancel(const FileOperationRef&) override { return ioErr; }
};

class UnimplementedFileBrowser : public FileBrowser {
 public:
  OSStatus itemChanged(const std::string&) override { return ioErr; }
};

/// A child that cannot be launched.
class UnimplementedSubprocess : public Subprocess {
 public:
  explicit UnimplementedSubprocess(std::string launchPath) : launchPath_(std::move(launchPath)) {}
  const std::string& launchPath() const override { return launchPath_; }
  void launch() override {
    throw foundation::Exception(foundation::kInvalidArgumentException,
                                notImplemented(launchPath_).localizedDescription());
  }
  bool isRunning() override { return false; }
  void waitUntilExit() override {}
  int terminationStatus() override { return -1; }
  void terminate() override {}
  std::string availableOutput() override { return {}; }
  std::string availableError() override { return {}; }
  void closeOutput() override {}
  void closeError() override {}

 private:
  std::string launchPath_;
};

class UnimplementedSubprocesses : public Subprocesses {
 public:
  std::shared_ptr<Subprocess> create(SubprocessOptions options) override {
    return std::make_shared<UnimplementedSubprocess>(std::move(options.launchPath));
  }
  bool isExecutableFile(const std::string&) override { return false; }
};

class UnimplementedApplications : public Applications {
 public:
  std::optional<std::string> pathForIdentifier(const std::string&) override { return {}; }
  OSStatus registerApplication(const std::string&) override { return ioErr; }
  std::vector<std::string> launchedIdentifiers() override { return {}; }
  std::optional<foundation::PropertyList> askToQuit(const std::string& applicationName) override {
    return foundation::PropertyList::Dictionary{
        {"NSAppleScriptErrorMessage", notImplemented(applicationName).localizedDescription()}};
  }
};

class UnimplementedWorkspace : public Workspace {
 public:
  bool openFile(const std::string&) override { return false; }
  bool openFile(const std::string&, const std::string&) override { return false; }
  bool openURL(const std::string&) override { return false; }
  foundation::Result<void> recycle(const std::string& sourceFolder, const std::string&,
                                   const std::vector<std::string>&) override {
    return notImplemented(sourceFolder);
  }
  bool isFilePackage(const std::string&) override { return false; }
};

class UnimplementedAuthorization : public Authorization {
 public:
  AuthorizationStatus copyPrivilegedReference(AuthorizationFlags, AuthorizationRef* reference) override {
    *reference = nullptr;
    return errAuthorizationInternal;
  }
  AuthorizationStatus create(const std::optional<AuthorizationEnvironment>&, AuthorizationFlags,
                             AuthorizationRef* reference) override {
    *reference = nullptr;
    return errAuthorizationInternal;
  }
  AuthorizationStatus copyRights(AuthorizationRef, const std::vector<std::string>&,
                                 const std::optional<AuthorizationEnvironment>&,
                                 AuthorizationFlags) override {
    return errAuthorizationInternal;
  }
  AuthorizationStatus free(AuthorizationRef, AuthorizationFlags) override { return errAuthorizationInternal; }
  AuthorizationStatus executeWithPrivileges(AuthorizationRef, const std::string&, AuthorizationFlags,
                                            const std::vector<std::string>&,
                                            std::unique_ptr<CommunicationsPipe>*) override {
    return errAuthorizationToolExecuteFailure;
  }
  void stopAsking() override {}
};

class UnimplementedDistributedNotifications : public DistributedNotifications {
 public:
  void post(const std::string&, const std::optional<foundation::PropertyList>&) override {}
};

class UnimplementedLocalNotifications : public LocalNotifications {
 public:
  void post(const LocalNotification&) override {}
  int addObserver(const std::string&, Observer) override { return 0; }
  void removeObserver(int) override {}
};

class UnimplementedDesktopNotifications : public DesktopNotifications {
 public:
  void setDelegate(DesktopNotificationDelegate*) override {}
  void post(const DesktopNotification&) override {}
};

class UnimplementedClientConnections : public ClientConnections {
 public:
  std::unique_ptr<ClientProxy> rootProxy(const std::string&) override { return nullptr; }
};

class UnimplementedPropertyLists : public PropertyLists {
 public:
  foundation::Result<foundation::PropertyList> parse(std::string_view, const PropertyListLimits&) override {
    return notImplemented();
  }
  foundation::Result<std::string> serialize(const foundation::PropertyList&, PropertyListFormat) override {
    return notImplemented();
  }
};

class UnimplementedPreferences : public Preferences {
 public:
  std::optional<foundation::PropertyList> value(const std::string&) override { return {}; }
  void registerDefaults(const foundation::PropertyList&) override {}
  void setValue(const std::string&, const foundation::PropertyList&) override {}
  bool synchronize() override { return false; }
  foundation::Result<void> storeForAnyUserOnCurrentHost(const std::string& key,
                                                        const foundation::PropertyList&) override {
    return notImplemented(key);
  }
};

class UnimplementedGathering : public Gathering {
 public:
  foundation::Result<std::unique_ptr<FolderInUse>> createPrivateFolder(const std::string& path) override {
    return notImplemented(path);
  }
  foundation::Result<std::unique_ptr<FolderInUse>> useLeftFolder(const std::string& path) override {
    return notImplemented(path);
  }
  foundation::Result<std::vector<std::string>> contentsOfDirectory(const Reader&,
                                                                   const std::string& path) override {
    return notImplemented(path);
  }
  bool exists(const Reader&, const std::string&) override { return false; }
  foundation::Result<void> copy(const Reader&, const std::string& from, const std::string&, AtLink) override {
    return notImplemented(from);
  }
};

class UnimplementedAlerts : public Alerts {
 public:
  void runPanel(const std::string&, const std::string&) override {}
};

class UnimplementedSystemConsole : public SystemConsole {
 public:
  void write(const std::string&) override {}
};

class UnimplementedMainBundle : public MainBundle {
 public:
  std::string path() override { return {}; }
  std::string executablePath() override { return {}; }
  foundation::PropertyList infoDictionary() override { return {}; }
  std::optional<std::string> pathForIdentifier(const std::string&) override { return {}; }
  std::optional<std::string> pathForResource(const std::string&, const std::string&) override { return {}; }
  std::string localizedString(const std::string& key) override { return key; }
};

class UnimplementedProcessInformation : public ProcessInformation {
 public:
  std::vector<std::string> arguments() override { return {}; }
  std::string processName() override { return {}; }
  std::string operatingSystemVersionString() override { return {}; }
  int processorCount() override { return 1; }
  std::uint64_t physicalMemory() override { return 0; }
  std::string globallyUniqueString() override { return {}; }
};

class UnimplementedFileLocks : public FileLocks {
 public:
  foundation::Result<std::unique_ptr<FileLock>> tryLock(const std::string& path) override {
    return notImplemented(path);
  }
};

class UnimplementedKeyboardLayout : public KeyboardLayout {
 public:
  std::optional<KeyTranslation> translate(std::uint16_t, std::uint32_t) override { return {}; }
  std::optional<std::uint16_t> keyCodeForScanCode(std::uint32_t) override { return {}; }
};

class UnimplementedInterruption : public Interruption {
 public:
  void defer() override {}
  std::optional<int> requested() override { return {}; }
  void deliver() override {}
};

class UnimplementedDesktopApplication : public DesktopApplication {
 public:
  int run(const std::vector<std::string>&, outlets::InterfaceOwner&, const std::function<void()>&) override {
    return 1;
  }
  void terminate() override {}
};

}  // namespace platform
