#include "services/TGAuthorization.h"

#include <chrono>
#include <mutex>

#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "services/TGFileManager.h"
#include "services/TGLocalPaths.h"
#include "services/TGTask.h"

namespace {

using platform::errAuthorizationSuccess;
using platform::kAuthorizationFlagDefaults;
using platform::kAuthorizationFlagExtendRights;
using platform::kAuthorizationFlagInteractionAllowed;
using platform::kAuthorizationFlagPreAuthorize;
using namespace std::chrono_literals;

using Environment = std::optional<platform::AuthorizationEnvironment>;

constexpr std::int32_t kNoAuthorization = -1;
constexpr std::int32_t kPathMissing = -2;

bool isRoot() {
  return platform::current().usersAndFolders.userID() == 0;
}

platform::AuthorizationStatus copyAdminRights(platform::AuthorizationRef reference,
                                              const Environment& environment,
                                              platform::AuthorizationFlags flags) {
  return platform::current().authorization.copyRights(reference, {platform::kAuthorizationRightAdmin},
                                                      environment, flags);
}

/// Whether a path must be left alone; `refusal` says so on the system console.
bool isRefused(const std::string& path, const char* refusal) {
  if (!TGLocalPaths::isPathSystemDirectory(path, ExactMatch::yes)) return false;
  NSLog(refusal, path);
  return true;
}

bool isNull(const std::optional<std::string>& path, const char* message) {
  if (path) return false;
  NSLog(message);
  return true;
}

/// The entries of a folder with their full paths; none for a folder that cannot be read.
std::vector<std::string> entriesOf(const std::string& folder) {
  const auto names = platform::current().fileQueries.contentsOfDirectory(folder);
  std::vector<std::string> paths;
  if (!names) return paths;
  for (const std::string& name : names.value()) {
    paths.push_back(foundation::appendingPathComponent(folder, name));
  }
  return paths;
}

/// A name for what cannot keep its own: "a.txt" gives "a_20240131235959.txt". A source without an extension
/// leaves a point at the end, on purpose, and the new name is not looked for in its turn.
std::string timestamped(const std::string& destination, const std::string& source) {
  return foundation::stringWithFormat("%@_%@.%@", foundation::deletingPathExtension(destination),
                                      platform::current().clock.now().formattedLocally("%Y%m%d%H%M%S"),
                                      foundation::pathExtension(source));
}

}  // namespace

TGAuthorization* TGAuthorization::sharedController() {
  return sharedController(WithGUI::yes);
}

TGAuthorization* TGAuthorization::sharedController(WithGUI withGUI) {
  const std::scoped_lock lock(monitor());
  if (instance() == nullptr) {
    TGAuthorization* const made = alloc();
    return withGUI == WithGUI::yes ? made->init() : made->initWithoutGUI();
  }
  return instance();
}

TGAuthorization* TGAuthorization::init() {
  setHasGUI(true);
  setAuthRef(nullptr);
  platform::AuthorizationRef inherited = nullptr;
  const auto status =
      platform::current().authorization.copyPrivilegedReference(kAuthorizationFlagDefaults, &inherited);
  if (status == errAuthorizationSuccess && inherited != nullptr) setAuthRef(inherited);
  if (!isRoot()) userDirectory_ = TGLocalPaths::userDirectory();
  return this;
}

TGAuthorization* TGAuthorization::initWithoutGUI() {
  init();
  setHasGUI(false);
  return this;
}

bool TGAuthorization::isAuthorized() const {
  return isRoot() || authRef_ != nullptr;
}

bool TGAuthorization::canAuthorize() const {
  return hasGUI_ || isRoot();
}

bool TGAuthorization::authStart() {
  if (isAuthorized()) return true;
  if (!hasGUI_) {
    NSLog("Unable to authorize");
    return false;
  }
  auto& service = platform::current().authorization;
  // Others see the reference only once it has the rights.
  platform::AuthorizationRef reference = nullptr;
  if (service.create(std::nullopt, kAuthorizationFlagDefaults, &reference) == errAuthorizationSuccess) {
    constexpr auto flags = kAuthorizationFlagInteractionAllowed | kAuthorizationFlagExtendRights |
                           kAuthorizationFlagPreAuthorize;
    if (copyAdminRights(reference, std::nullopt, flags) == errAuthorizationSuccess) {
      setAuthRef(reference);
      return true;
    }
    service.free(reference, kAuthorizationFlagDefaults);
  }
  return false;
}

bool TGAuthorization::authStartWithUser(const std::optional<std::string>& user,
                                        const std::optional<std::string>& password) {
  if (isRoot()) return true;
  if (!user || !password) return false;
  authEnd();  // rights held until now would be out of everybody's reach
  auto& service = platform::current().authorization;
  const Environment environment = platform::AuthorizationEnvironment{*user, *password};
  platform::AuthorizationRef reference = nullptr;
  const auto status = service.create(environment, kAuthorizationFlagDefaults, &reference);
  if (status != errAuthorizationSuccess) {
    NSLog("Unable to create authRef - error %d", status);
    return false;
  }
  constexpr auto flags = kAuthorizationFlagExtendRights | kAuthorizationFlagPreAuthorize;
  if (copyAdminRights(reference, environment, flags) == errAuthorizationSuccess) {
    setAuthRef(reference);
    return true;
  }
  service.free(reference, kAuthorizationFlagDefaults);
  NSLog("Authorization failed. Invalid username or password");
  TGLog::appendLog("Authorization failed. Invalid username or password");
  return false;
}

void TGAuthorization::authEnd() {
  const platform::AuthorizationRef held = authRef_.exchange(nullptr);
  if (held != nullptr && !isRoot()) platform::current().authorization.free(held, kAuthorizationFlagDefaults);
}

std::int32_t TGAuthorization::authExecTask(const std::string& path,
                                           const std::vector<std::string>& parameters, Async async) {
  if (!TGFileManager::fileExistsAtPath(path)) {
    NSLog("Unable to execute task: path %@ doesn't exist", path);
    return kPathMissing;
  }
  if (isRoot()) {
    if (async == Async::yes) {
      TGTask::runTaskAndReturn(path, parameters);
    } else {
      TGTask::runTask(path, parameters);
    }
    return errAuthorizationSuccess;
  }
  if (!isAuthorized()) authStart();
  if (!isAuthorized()) return kNoAuthorization;
  return executePrivileged(path, parameters, async);
}

/// The end of its output is the only word of a privileged program's end. Where nobody waits for it there is
/// no pipe either, so that a program never stops at a full one, nor at one closed at the other end.
std::int32_t TGAuthorization::executePrivileged(const std::string& path,
                                                const std::vector<std::string>& parameters, Async async) {
  std::unique_ptr<platform::CommunicationsPipe> pipe;
  const auto status = platform::current().authorization.executeWithPrivileges(
      authRef_, path, kAuthorizationFlagDefaults, parameters, async == Async::no ? &pipe : nullptr);
  if (status != errAuthorizationSuccess) return status;
  while (pipe && pipe->getCharacter() >= 0) {
  }
  return errAuthorizationSuccess;
}

/// Root starts the tool itself and takes its start for granted; others ask for rights.
bool TGAuthorization::startTool(const std::string& path, const std::vector<std::string>& parameters) {
  if (!isRoot()) return authExecTask(path, parameters) == errAuthorizationSuccess;
  TGTask::runTaskAndReturn(path, parameters);
  return true;
}

bool TGAuthorization::authCopyFile(const std::optional<std::string>& source,
                                   const std::optional<std::string>& toPath) {
  if (isNull(source, "Error in authCopyFile: old path is null")) return false;
  if (isNull(toPath, "Error in authCopyFile: new path is null")) return false;
  if (!TGFileManager::fileExistsAtPath(source)) return false;
  return startTool("/bin/cp", {"-f", "-p", "-R", *source, *toPath});
}

bool TGAuthorization::authMoveFile(const std::optional<std::string>& source,
                                   const std::optional<std::string>& toPath) {
  if (isNull(source, "Error in authMoveFile: old path is null")) return false;
  if (isNull(toPath, "Error in authMoveFile: new path is null")) return false;
  if (isRefused(*source, "Unable to move path %@ because it is a system directory.")) return false;
  if (!TGFileManager::fileExistsAtPath(source)) return false;
  return startTool("/bin/mv", {"-f", *source, *toPath});
}

bool TGAuthorization::authMoveFolderContents(const std::string& source, const std::string& toPath) {
  if (isRefused(source, "Unable to move contents of path %@ because it is a system directory.")) return false;
  bool moved = true;
  for (const std::string& path : entriesOf(source)) {
    const std::string name = foundation::lastPathComponent(path);
    if (!authMoveFile(path, foundation::appendingPathComponent(toPath, name))) moved = false;
  }
  return moved;
}

std::optional<std::string> TGAuthorization::trashDestination(const std::string& path) const {
  const std::string name = foundation::lastPathComponent(path);
  auto trash = TGLocalPaths::trashDirectory();
  if (isRoot() && userDirectory_) trash = *userDirectory_ + "/.Trash";
  if (!trash) return std::nullopt;
  const std::string destination = foundation::appendingPathComponent(*trash, name);
  return TGFileManager::fileExistsAtPath(destination) ? timestamped(destination, path) : destination;
}

bool TGAuthorization::deletesOnRootAccount(DeleteOnRootAccount deleteOnRootAccount) const {
  return !userDirectory_ && deleteOnRootAccount == DeleteOnRootAccount::yes && isRoot();
}

bool TGAuthorization::authTrashFile(const std::string& path, DeleteOnRootAccount deleteOnRootAccount) {
  if (isRefused(path, "Unable to trash path %@ because it is a system directory.")) return false;
  const auto destination = trashDestination(path);
  // Removes what lies at the destination, on purpose: root's account has no trash to keep the source from,
  // and the source itself is its caller's to remove.
  if (deletesOnRootAccount(deleteOnRootAccount)) return destination && authRemoveFile(*destination);
  return authMoveFile(path, destination);
}

bool TGAuthorization::authTrashFolderContents(const std::string& folder,
                                              DeleteOnRootAccount deleteOnRootAccount) {
  if (isRefused(folder, "Unable to trash folder contents of path %@ because it is a system directory.")) {
    return false;
  }
  const std::vector<std::string> entries = entriesOf(folder);
  const bool deletes = deletesOnRootAccount(deleteOnRootAccount);
  bool trashed = true;
  for (const std::string& entry : entries) {
    // Two flags here and one in authRemoveFile, on purpose: both are what watchers of the tool know.
    const bool done = deletes ? authExecTask("/bin/rm", {"-R", "-f", entry}) == errAuthorizationSuccess
                              : authTrashFile(entry);
    if (!done) trashed = false;
  }
  return trashed;
}

bool TGAuthorization::authRemoveFile(const std::string& path) {
  if (isRefused(path, "Unable to delete path %@ because it is a system directory.")) return false;
  return authExecTask("/bin/rm", {"-Rdf", path}) == errAuthorizationSuccess;
}

bool TGAuthorization::authCreateDir(const std::string& path) {
  if (!startTool("/bin/mkdir", {"-p", path})) return false;
  // Nobody waits for the tool; half a millisecond lets the folder come into being.
  if (!isRoot()) platform::current().clock.sleep(500us);
  return true;
}
