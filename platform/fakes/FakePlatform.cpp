#include "platform/fakes/FakePlatform.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "platform/foundation/Paths.h"

namespace fakes {
namespace {

using foundation::PropertyList;
using foundation::Result;
using foundation::systemError;
using platform::SearchPathDirectory;
using platform::SearchPathDomain;

std::string joined(const std::string& first, const std::vector<std::string>& rest) {
  std::string line = first;
  for (const std::string& word : rest) line += " " + word;
  return line;
}

const char* subfolder(SearchPathDirectory directory) {
  switch (directory) {
    case SearchPathDirectory::application:
      return "/Applications";
    case SearchPathDirectory::adminApplication:
      return "/Applications/Utilities";
    case SearchPathDirectory::library:
      return "/Library";
    case SearchPathDirectory::documentation:
      return "/Library/Documentation";
    case SearchPathDirectory::document:
      return "/Documents";
    case SearchPathDirectory::desktop:
      return "/Desktop";
    case SearchPathDirectory::caches:
      return "/Library/Caches";
    case SearchPathDirectory::applicationSupport:
      return "/Library/Application Support";
  }
  return "";
}

class FakeSubprocess : public platform::Subprocess {
 public:
  FakeSubprocess(Recorder& recorder, const std::string& path, std::string commandLine, ToolRun run,
                 bool recordsWaits, bool recordsPipes)
      : recorder_(recorder),
        path_(path),
        commandLine_(std::move(commandLine)),
        run_(std::move(run)),
        recordsWaits_(recordsWaits),
        recordsPipes_(recordsPipes) {}

  const std::string& launchPath() const override { return path_; }
  void launch() override {
    recorder_.add("run " + commandLine_);
    if (run_.launchFailure) throw foundation::Exception(*run_.launchFailure);
    setRunning(true);
    if (run_.whenLaunched) run_.whenLaunched();
  }
  bool isRunning() override {
    const std::scoped_lock lock(mutex_);
    return running_;
  }
  void waitUntilExit() override {
    if (recordsWaits_) recorder_.add("wait " + path_);
    waitForTermination();
    setRunning(false);
  }
  int terminationStatus() override { return run_.status; }
  void terminate() override {
    recorder_.add("terminate " + path_);
    if (run_.runsUntilTerminated) run_.status = SIGTERM;
    setRunning(false);
  }
  std::string availableOutput() override {
    recordPipe("read output ");
    if (run_.output.empty()) waitForTermination();
    return std::exchange(run_.output, "");
  }
  std::string availableError() override {
    recordPipe("read error ");
    return std::exchange(run_.error, "");
  }
  void closeOutput() override { recordPipe("close output "); }
  void closeError() override { recordPipe("close error "); }

 private:
  void recordPipe(const char* what) {
    if (recordsPipes_) recorder_.add(what + path_);
  }
  void setRunning(bool running) {
    const std::scoped_lock lock(mutex_);
    running_ = running;
    changed_.notify_all();
  }
  void waitForTermination() {
    std::unique_lock lock(mutex_);
    if (run_.runsUntilTerminated) changed_.wait(lock, [&] { return !running_; });
  }

  Recorder& recorder_;
  std::string path_;
  std::string commandLine_;
  ToolRun run_;
  bool recordsWaits_;
  bool recordsPipes_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool running_ = false;
};

class FakePipe : public platform::CommunicationsPipe {
 public:
  FakePipe(std::string content, std::size_t& charactersRead)
      : content_(std::move(content)), charactersRead_(charactersRead) {}
  int getCharacter() override {
    ++charactersRead_;
    return at_ < content_.size() ? static_cast<unsigned char>(content_[at_++]) : -1;
  }

 private:
  std::string content_;
  std::size_t& charactersRead_;
  std::size_t at_ = 0;
};

class FakeProxy : public platform::ClientProxy {
 public:
  FakeProxy(Recorder& recorder, FakeClient client) : recorder_(recorder), client_(std::move(client)) {}
  ~FakeProxy() override { recorder_.add("release proxy"); }
  FakeProxy(const FakeProxy&) = delete;
  FakeProxy& operator=(const FakeProxy&) = delete;

  void setProtocol(const std::string& protocolName) override { recorder_.add("protocol " + protocolName); }
  bool respondsToSelector(const std::string& selector) override {
    return client_.selectors.contains(selector);
  }
  void send(const std::string& selector, const std::vector<PropertyList>& arguments) override {
    if (client_.diesBeforeSend) {
      throw foundation::Exception(foundation::kInvalidSendPortException, "the client is gone");
    }
    std::string line = "send " + selector;
    for (const PropertyList& argument : arguments) line += " " + argument.description();
    recorder_.add(line);
  }

 private:
  Recorder& recorder_;
  FakeClient client_;
};

/// The fakes stand on no reference of their own: any address that is not null will do.
platform::AuthorizationRef anyReference() {
  static int object = 0;
  return reinterpret_cast<platform::AuthorizationRef>(&object);
}

}  // namespace

void Recorder::add(std::string line) {
  const std::scoped_lock lock(mutex_);
  lines_.push_back(std::move(line));
}

std::vector<std::string> Recorder::lines() const {
  const std::scoped_lock lock(mutex_);
  return lines_;
}

void Recorder::clear() {
  const std::scoped_lock lock(mutex_);
  lines_.clear();
}

std::vector<std::string> Recorder::only(const std::vector<std::string>& firstWords) const {
  std::vector<std::string> kept;
  for (const std::string& line : lines()) {
    const std::string word = line.substr(0, line.find(' '));
    if (std::find(firstWords.begin(), firstWords.end(), word) != firstWords.end()) kept.push_back(line);
  }
  return kept;
}

std::string describeDuration(std::chrono::nanoseconds duration) {
  constexpr std::array<std::pair<std::int64_t, const char*>, 4> units = {
      {{1000000000, "s"}, {1000000, "ms"}, {1000, "us"}, {1, "ns"}}};
  for (const auto& [size, unit] : units) {
    if (duration.count() % size == 0) return std::to_string(duration.count() / size) + unit;
  }
  return "";
}

foundation::Date FakeClock::now() {
  return foundation::Date(start.moment() + uptime_.load());
}

void FakeClock::sleep(std::chrono::nanoseconds duration) {
  if (const auto sleepers = sleepers_; sleepers && sleepers->wakeful != std::this_thread::get_id()) {
    std::unique_lock lock(sleepers->mutex);
    sleepers->durations.push_back(duration);
    sleepers->changed.notify_all();
    sleepers->changed.wait(lock, [&] { return sleepers->woken; });
    return;
  }
  recorder_.add("sleep " + describeDuration(duration));
  uptime_ = uptime_.load() + duration;
}

void FakeClock::holdOtherThreads() {
  sleepers_ = std::make_shared<Sleepers>();
  sleepers_->wakeful = std::this_thread::get_id();
}

std::vector<std::chrono::nanoseconds> FakeClock::waitForSleepers(std::size_t count) {
  std::unique_lock lock(sleepers_->mutex);
  sleepers_->changed.wait(lock, [&] { return sleepers_->durations.size() >= count; });
  return sleepers_->durations;
}

void FakeClock::wakeOtherThreads() {
  const std::scoped_lock lock(sleepers_->mutex);
  sleepers_->woken = true;
  sleepers_->changed.notify_all();
}

void FakeMainThread::perform(std::function<void()> work, platform::Wait wait) {
  if (recordsWork) recorder_.add(wait == platform::Wait::yes ? "main (wait)" : "main (no wait)");
  {
    const std::scoped_lock turn(performing_);
    const bool was = current.exchange(true);
    work();
    current = was;
  }
  const std::scoped_lock lock(mutex_);
  ++performed_;
  changed_.notify_all();
}

void FakeMainThread::waitUntilPerformed(int count) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return performed_ >= count; });
}

bool FakeMainThread::serveUntilReadable(int descriptor, std::optional<std::chrono::nanoseconds> interval) {
  if (whenServing) whenServing();
  if (descriptor < 0) return false;
  pollfd wait{descriptor, POLLIN, 0};
  const int limit =
      interval ? static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(*interval).count())
               : -1;
  return ::poll(&wait, 1, limit) > 0;
}

bool FakeUsersAndFolders::setUserID(uid_t wanted) {
  recorder_.add("setuid " + std::to_string(wanted));
  return user == wanted || user == 0;
}

std::optional<std::string> FakeUsersAndFolders::homeDirectoryForUser(
    const std::optional<std::string>& account) {
  if (!account) return home;
  const auto found = homes.find(*account);
  if (found == homes.end()) return std::nullopt;
  return found->second;
}

std::vector<std::string> FakeUsersAndFolders::searchPaths(SearchPathDirectory directory,
                                                          SearchPathDomain domain) {
  if (searchPathsOverride) {
    if (auto answer = searchPathsOverride(directory, domain)) return *answer;
  }
  const std::string own = user == 0 ? "/var/root" : home;
  if (domain == SearchPathDomain::user) return {own + subfolder(directory)};
  if (domain == SearchPathDomain::system) return {"/System" + std::string(subfolder(directory))};
  const bool userOnly =
      directory == SearchPathDirectory::document || directory == SearchPathDirectory::desktop;
  return userOnly ? std::vector<std::string>{} : std::vector<std::string>{subfolder(directory)};
}

RootedFiles::RootedFiles() {
  std::string pattern = (std::filesystem::temp_directory_path() / "quillmend-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
  root_ = pattern;
}

RootedFiles::~RootedFiles() {
  std::error_code ignored;
  std::filesystem::remove_all(root_, ignored);
}

void RootedFiles::makeFile(const std::string& path, const std::string& content) {
  makeFolder(foundation::deletingLastPathComponent(path));
  std::ofstream(real(path), std::ios::binary) << content;
}

void RootedFiles::makeFolder(const std::string& path) {
  std::filesystem::create_directories(real(path));
}

std::optional<foundation::Error> RootedFiles::refusal(const char* change, const std::string& path) const {
  return beforeChange ? beforeChange(change, path) : std::nullopt;
}

bool RootedFiles::isAccessible(const std::string& path, platform::Access access) {
  if (denied.contains({path, access})) return false;
  return queries_.exists(real(path));
}

Result<std::vector<std::string>> RootedFiles::contentsOfDirectory(const std::string& path) {
  return queries_.contentsOfDirectory(real(path));
}

Result<std::string> RootedFiles::readFile(const std::string& path, std::uint64_t limit) {
  if (whenRead) whenRead(path);
  return queries_.readFile(real(path), limit);
}

Result<std::string> RootedFiles::readFileItself(const std::string& path, std::uint64_t limit) {
  if (whenRead) whenRead(path);
  return queries_.readFileItself(real(path), limit);
}

Result<std::string> RootedFiles::linkTarget(const std::string& path) {
  auto target = queries_.linkTarget(real(path));
  return target && target.value().starts_with(root_) ? target.value().substr(root_.size()) : target;
}

std::optional<foundation::Date> RootedFiles::modificationDate(const std::string& path) {
  return queries_.modificationDate(real(path));
}

Result<void> RootedFiles::createDirectory(const std::string& path) {
  if (auto error = refusal("createDirectory", path)) return *error;
  return changes_.createDirectory(real(path));
}

Result<void> RootedFiles::move(const std::string& from, const std::string& to) {
  if (auto error = refusal("move", from)) return *error;
  return changes_.move(real(from), real(to));
}

Result<void> RootedFiles::copy(const std::string& from, const std::string& to) {
  if (auto error = refusal("copy", from)) return *error;
  return changes_.copy(real(from), real(to));
}

Result<void> RootedFiles::copyForOwnUse(const std::string& from, const std::string& to) {
  if (auto error = refusal("copy", from)) return *error;
  return changes_.copyForOwnUse(real(from), real(to));
}

Result<void> RootedFiles::remove(const std::string& path) {
  if (auto error = refusal("remove", path)) return *error;
  return changes_.remove(real(path));
}

Result<void> RootedFiles::writeAtomically(const std::string& path, std::string_view bytes) {
  if (auto error = refusal("writeAtomically", path)) return *error;
  return changes_.writeAtomically(real(path), bytes);
}

Result<void> RootedFiles::createFileUnsynced(const std::string& path, std::string_view bytes) {
  if (auto error = refusal("createFile", path)) return *error;
  return changes_.createFileUnsynced(real(path), bytes);
}

Result<platform::FileState> RootedFiles::replaceUnchanged(const std::string& path,
                                                          const std::optional<platform::FileState>& seen,
                                                          std::string_view bytes) {
  if (auto error = refusal("replaceUnchanged", path)) return *error;
  auto replaced = changes_.replaceUnchanged(real(path), seen, bytes);
  if (replaced && afterReplacing) afterReplacing(path);
  return replaced;
}

Result<std::unique_ptr<platform::WritableFile>> RootedFiles::openForWriting(const std::string& path) {
  if (auto error = refusal("openForWriting", path)) return *error;
  return changes_.openForWriting(real(path));
}

Result<std::unique_ptr<platform::FolderInUse>> FakeGathering::useLeftFolder(const std::string& path) {
  return gathering_.useLeftFolder(files_.real(path));
}

Result<std::unique_ptr<platform::FolderInUse>> FakeGathering::createPrivateFolder(const std::string& path) {
  if (files_.beforeChange) {
    if (auto error = files_.beforeChange("createPrivateFolder", path)) return *error;
  }
  return gathering_.createPrivateFolder(files_.real(path));
}

Result<std::vector<std::string>> FakeGathering::contentsOfDirectory(const platform::Reader& reader,
                                                                    const std::string& path) {
  readers.insert(reader);
  return gathering_.contentsOfDirectory(std::nullopt, files_.real(path));
}

bool FakeGathering::exists(const platform::Reader& reader, const std::string& path) {
  readers.insert(reader);
  return gathering_.exists(std::nullopt, files_.real(path));
}

Result<void> FakeGathering::copy(const platform::Reader& reader, const std::string& from,
                                 const std::string& to, platform::AtLink atLink) {
  readers.insert(reader);
  if (files_.beforeChange) {
    if (auto error = files_.beforeChange("copy", from)) return *error;
  }
  return gathering_.copy(std::nullopt, files_.real(from), files_.real(to), atLink);
}

bool FakeUserInterfaceEvents::dispatchNext(std::chrono::nanoseconds longestWait) {
  recorder_.add("event " + describeDuration(longestWait));
  clock_.advance(longestWait);
  if (whenAsked) whenAsked(++asked);
  return false;
}

bool FakeFileAttributes::isSymbolicLink(const std::string& path) {
  std::error_code none;
  return std::filesystem::is_symlink(files_.real(path), none);
}

Result<void> FakeFileAttributes::setImmutable(const std::string& path, platform::Immutable immutable) {
  std::error_code none;
  if (!std::filesystem::exists(std::filesystem::symlink_status(files_.real(path), none))) {
    return systemError(ENOENT, path);
  }
  const bool locks = immutable == platform::Immutable::yes;
  recorder_.add((locks ? "lock " : "unlock ") + path);
  if (refusal) return *refusal;
  if (locks) {
    locked.insert(path);
  } else {
    locked.erase(path);
  }
  return {};
}

Result<platform::FinderInformation> FakeFileAttributes::finderInformation(const std::string& path) {
  if (!files_.exists(path)) return systemError(ENOENT, path);
  return information[path];
}

Result<void> FakeFileAttributes::setFinderInformation(const std::string& path,
                                                      const platform::FinderInformation& wanted) {
  recorder_.add("finder information " + path);
  if (refusal) return *refusal;
  information[path] = wanted;
  return {};
}

Result<platform::FSRef> FakeFileReferences::reference(const std::string& path) {
  if (!files_.exists(path)) return systemError(ENOENT, path);
  paths.push_back(path);
  platform::FSRef reference;
  reference.hidden[0] = static_cast<std::uint8_t>(paths.size());
  return reference;
}

Result<std::string> FakeFileReferences::path(const platform::FSRef& reference) {
  const std::size_t number = reference.hidden[0];
  if (number == 0 || number > paths.size()) return systemError(ENOENT, "");
  return paths[number - 1];
}

platform::FileOperationRef FakeFileOperations::create() {
  recorder_.add("create operation");
  operation = std::make_shared<platform::FileOperation>();
  return operation;
}

platform::OSStatus FakeFileOperations::scheduleOnMainThread(const platform::FileOperationRef&) {
  recorder_.add("schedule operation");
  return scheduling;
}

platform::OSStatus FakeFileOperations::unscheduleFromMainThread(const platform::FileOperationRef&) {
  recorder_.add("unschedule operation");
  return unscheduling;
}

platform::OSStatus FakeFileOperations::copyObject(
    const platform::FileOperationRef&, const std::string& source, const std::string& destinationFolder,
    const std::string& destinationName, std::chrono::nanoseconds statusInterval, StatusCallback newCallback) {
  recorder_.add("copy " + source + " -> " + destinationFolder + " / " + destinationName + " every " +
                describeDuration(statusInterval));
  callback = std::move(newCallback);
  return beginning;
}

platform::OSStatus FakeFileOperations::cancel(const platform::FileOperationRef&) {
  recorder_.add("cancel operation");
  return platform::noErr;
}

platform::OSStatus FakeFileBrowser::itemChanged(const std::string& path) {
  recorder_.add("file browser " + path);
  return answer;
}

std::shared_ptr<platform::Subprocess> FakeSubprocesses::create(platform::SubprocessOptions options) {
  created.push_back(options);
  const std::string commandLine = joined(options.launchPath, options.arguments);
  ToolRun run;
  if (const auto byLine = runs.find(commandLine); byLine != runs.end()) {
    run = byLine->second;
  } else if (const auto byPath = runs.find(options.launchPath); byPath != runs.end()) {
    run = byPath->second;
  }
  return std::make_shared<FakeSubprocess>(recorder_, options.launchPath, commandLine, run, recordsWaits,
                                          recordsPipes);
}

bool FakeSubprocesses::isExecutableFile(const std::string& path) {
  return executables.contains(path) || files_.isAccessible(path, platform::Access::execute);
}

std::optional<std::string> FakeApplications::pathForIdentifier(const std::string& identifier) {
  const auto found = paths.find(identifier);
  if (found == paths.end()) return std::nullopt;
  return found->second;
}

platform::OSStatus FakeApplications::registerApplication(const std::string& path) {
  recorder_.add("register " + path);
  return registration;
}

std::vector<std::string> FakeApplications::launchedIdentifiers() {
  if (launched.empty()) return {};
  std::vector<std::string> answer = launched.front();
  if (launched.size() > 1) launched.pop_front();
  return answer;
}

std::optional<PropertyList> FakeApplications::askToQuit(const std::string& applicationName) {
  recorder_.add("quit " + applicationName);
  return quitError;
}

bool FakeWorkspace::openFile(const std::string& path) {
  recorder_.add("open " + path);
  return canOpen;
}

bool FakeWorkspace::openFile(const std::string& path, const std::string& application) {
  recorder_.add("open " + path + " with " + application);
  return true;
}

bool FakeWorkspace::openURL(const std::string& address) {
  recorder_.add("browse " + address);
  return true;
}

Result<void> FakeWorkspace::recycle(const std::string& sourceFolder, const std::string& trashFolder,
                                    const std::vector<std::string>& names) {
  recorder_.add("recycle " + joined(sourceFolder + " -> " + trashFolder + ":", names));
  for (const std::string& name : names) {
    const std::string from = foundation::appendingPathComponent(sourceFolder, name);
    if (!files_.exists(from)) return systemError(ENOENT, from);
    files_.makeFolder(trashFolder);
    if (auto moved = files_.move(from, foundation::appendingPathComponent(trashFolder, name)); !moved)
      return moved;
  }
  return {};
}

bool FakeWorkspace::isFilePackage(const std::string& path) {
  return foundation::pathExtension(path) == "app" && files_.isDirectory(path);
}

platform::AuthorizationStatus FakeAuthorization::copyPrivilegedReference(
    platform::AuthorizationFlags, platform::AuthorizationRef* reference) {
  if (inherited == platform::errAuthorizationSuccess) {
    *reference = anyReference();
    ++held;
  }
  return inherited;
}

platform::AuthorizationStatus FakeAuthorization::create(
    const std::optional<platform::AuthorizationEnvironment>& environment, platform::AuthorizationFlags flags,
    platform::AuthorizationRef* reference) {
  recorder_.add("authorization create" + (environment ? " for " + environment->username : std::string()) +
                " flags " + std::to_string(flags));
  if (creation == platform::errAuthorizationSuccess) {
    *reference = anyReference();
    ++held;
  }
  return creation;
}

platform::AuthorizationStatus FakeAuthorization::copyRights(
    platform::AuthorizationRef, const std::vector<std::string>& names,
    const std::optional<platform::AuthorizationEnvironment>& environment,
    platform::AuthorizationFlags flags) {
  recorder_.add(joined("authorization rights", names) + (environment ? " for " + environment->username : "") +
                " flags " + std::to_string(flags));
  if (whileAsking) whileAsking();
  return rights;
}

platform::AuthorizationStatus FakeAuthorization::free(platform::AuthorizationRef,
                                                      platform::AuthorizationFlags flags) {
  recorder_.add("authorization free flags " + std::to_string(flags));
  --held;
  return platform::errAuthorizationSuccess;
}

platform::AuthorizationStatus FakeAuthorization::executeWithPrivileges(
    platform::AuthorizationRef, const std::string& path, platform::AuthorizationFlags,
    const std::vector<std::string>& arguments, std::unique_ptr<platform::CommunicationsPipe>* pipe) {
  recorder_.add("privileged " + joined(path, arguments));
  if (pipe != nullptr) *pipe = std::make_unique<FakePipe>(pipeContent, charactersRead);
  return execution;
}

void FakeAuthorization::stopAsking() {
  recorder_.add("authorization stop asking");
}

void FakeDistributedNotifications::post(const std::string& name,
                                        const std::optional<PropertyList>& userInfo) {
  recorder_.add("post " + name + (userInfo ? " " + userInfo->description() : ""));
  posted.push_back({name, userInfo});
}

void FakeDesktopNotifications::setDelegate(platform::DesktopNotificationDelegate* newDelegate) {
  recorder_.add("set notification delegate");
  delegate = newDelegate;
}

void FakeDesktopNotifications::post(const platform::DesktopNotification& notification) {
  recorder_.add("notify " + notification.title + ": " + notification.description);
  posted.push_back(notification);
}

std::unique_ptr<platform::ClientProxy> FakeClientConnections::rootProxy(const std::string& registeredName) {
  recorder_.add("look up " + registeredName);
  const auto found = clients.find(registeredName);
  if (found == clients.end()) return nullptr;
  return std::make_unique<FakeProxy>(recorder_, found->second);
}

std::optional<PropertyList> FakePreferences::value(const std::string& key) {
  if (const auto* value = values.find(key)) return *value;
  if (const auto* value = registered.find(key)) return *value;
  return std::nullopt;
}

void FakePreferences::registerDefaults(const PropertyList& dictionary) {
  if (failure) throw foundation::Exception(*failure);
  registered = dictionary;
}

void FakePreferences::setValue(const std::string& key, const PropertyList& value) {
  recorder_.add("preference " + key + " = " + value.description());
  values.set(key, value);
}

bool FakePreferences::synchronize() {
  recorder_.add("synchronize preferences");
  return canStore;
}

Result<void> FakePreferences::storeForAnyUserOnCurrentHost(const std::string& key,
                                                           const PropertyList& value) {
  recorder_.add("store preference of any user on this host " + key + " = " + value.description());
  if (refusal) return *refusal;
  values.set(key, value);
  return {};
}

void FakeAlerts::runPanel(const std::string& title, const std::string& message) {
  recorder_.add("alert " + title + ": " + message);
}

void FakeSystemConsole::write(const std::string& message) {
  const std::scoped_lock lock(mutex_);
  messages_.push_back(message);
  if (recordsMessages) recorder_.add("console " + message);
}

std::vector<std::string> FakeSystemConsole::messages() const {
  const std::scoped_lock lock(mutex_);
  return messages_;
}

std::optional<std::string> FakeMainBundle::pathForIdentifier(const std::string& identifier) {
  const auto found = loadedBundles.find(identifier);
  if (found == loadedBundles.end()) return std::nullopt;
  return found->second;
}

std::optional<std::string> FakeMainBundle::pathForResource(const std::string& name, const std::string& type) {
  const std::string path = bundlePath + "/Contents/Resources/" + name + "." + type;
  if (!files_.exists(path)) return std::nullopt;
  return path;
}

std::string FakeMainBundle::localizedString(const std::string& key) {
  const auto found = localizedStrings.find(key);
  return found == localizedStrings.end() ? key : found->second;
}

std::optional<std::uint16_t> FakeKeyboardLayout::keyCodeForScanCode(std::uint32_t scanCode) {
  return scanCode == 0 ? std::nullopt : std::optional(static_cast<std::uint16_t>(scanCode));
}

std::optional<platform::KeyTranslation> FakeKeyboardLayout::translate(std::uint16_t keyCode,
                                                                      std::uint32_t modifierState) {
  states.push_back(modifierState);
  if (!isThere) return std::nullopt;
  const auto found = keys.find(keyCode);
  return found == keys.end() ? platform::KeyTranslation() : found->second;
}

std::optional<int> FakeInterruption::requested() {
  if (!signal || comesAfter-- > 0) return std::nullopt;
  comesAfter = 0;
  return signal;
}

int FakeDesktopApplication::run(const std::vector<std::string>& arguments, outlets::InterfaceOwner& owner,
                                const std::function<void()>& displayWasLost) {
  recorder_.add(joined("desktop application", arguments));
  if (whileRunning) whileRunning(owner);
  if (losesDisplay) displayWasLost();
  return result;
}

void FakeLocalNotifications::post(const platform::LocalNotification& notification) {
  recorder_.add("local post " + notification.name);
  posted.push_back(notification);
  const auto observers = observers_;
  for (const auto& [number, observer] : observers) {
    if (observer.first == notification.name) observer.second(notification);
  }
}

int FakeLocalNotifications::addObserver(const std::string& name, Observer observer) {
  observers_[++last_] = {name, std::move(observer)};
  return last_;
}

void FakeLocalNotifications::removeObserver(int number) {
  observers_.erase(number);
}

FakePlatform::FakePlatform()
    : platform_{clock,
                mainThread,
                userInterfaceEvents,
                users,
                files,
                files,
                fileLocks,
                fileAttributes,
                folderQueries,
                fileReferences,
                fileOperations,
                fileBrowser,
                subprocesses,
                applications,
                workspace,
                authorization,
                distributedNotifications,
                localNotifications,
                desktopNotifications,
                clientConnections,
                propertyLists,
                preferences,
                gathering,
                alerts,
                systemConsole,
                mainBundle,
                processInformation,
                keyboardLayout,
                interruption,
                desktopApplication} {}

}  // namespace fakes
