#include <cerrno>

#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "platform/foundation/Paths.h"
#include "services/TGAuthorization.h"
#include "services/TGFileManager.h"
#include "services/TGLocalPaths.h"
#include "services/TGTask.h"
#include "services/UsablePath.h"

namespace {

using foundation::Result;
using Path = TGFileManager::Path;

/// No path, and a path that would be cut short, are refused before the system sees them.
Result<void> refusal(const Path& path) {
  return foundation::systemError(EINVAL, path.value_or(""));
}

/// The second attempt, with administrator rights. A tool that cannot be started at all is a failure.
template <typename Verb>
bool authorized(const char* method, ShouldAuth shouldAuth, Verb verb) {
  if (shouldAuth == ShouldAuth::no) return false;
  bool done = false;
  guarded(method, [&] { done = verb(*TGAuthorization::sharedController()); });
  return done;
}

Result<void> moveToTrash(const std::string& path) {
  const auto trash = TGLocalPaths::trashDirectory();
  if (!trash) return foundation::systemError(ENOENT, "");
  return platform::current().workspace.recycle(foundation::deletingLastPathComponent(path), *trash,
                                               {foundation::lastPathComponent(path)});
}

/// The text announces authorising also where none follows, on purpose: support looks for it.
void logFailure(const char* message, const Result<void>& result) {
  TGLog::appendLog(message, result.error().localizedDescription());
}

}  // namespace

bool TGFileManager::trashFile(const Path& path, ShouldAuth shouldAuth) {
  unlockFile(path);
  if (!fileExistsAtPath(path)) return true;
  // Nothing is logged: the privileged trash logs for itself.
  if (moveToTrash(*path)) return true;
  return authorized("+[TGFileManager trashFile:shouldAuth:]", shouldAuth,
                    [&](TGAuthorization& rights) { return rights.authTrashFile(*path); });
}

bool TGFileManager::removeFile(const Path& path, ShouldAuth shouldAuth) {
  unlockFile(path);
  if (!fileExistsAtPath(path)) return true;
  const auto removed = platform::current().fileChanges.remove(*path);
  if (removed) return true;
  logFailure("Error removing file: %@. Authorizing...", removed);
  return authorized("+[TGFileManager removeFile:shouldAuth:]", shouldAuth,
                    [&](TGAuthorization& rights) { return rights.authRemoveFile(*path); });
}

bool TGFileManager::createDirectory(const Path& path, ShouldAuth shouldAuth) {
  const bool usable = isUsable(path);
  const auto created = usable ? platform::current().fileChanges.createDirectory(*path) : refusal(path);
  if (created) return true;
  logFailure("Error creating folder: %@. Authorizing...", created);
  return authorized("+[TGFileManager createDirectory:shouldAuth:]", usable ? shouldAuth : ShouldAuth::no,
                    [&](TGAuthorization& rights) { return rights.authCreateDir(*path); });
}

bool TGFileManager::copyFile(const Path& source, const Path& toPath, ShouldAuth shouldAuth) {
  if (!source) {
    TGLog::appendLogAndPrint("Error copying file: source path is nil");
    return false;
  }
  if (!toPath) {
    TGLog::appendLogAndPrint("Error copying file %@: destination path is nil", source);
    return false;
  }
  unlockFile(foundation::deletingLastPathComponent(*toPath));
  const bool usable = isUsable(source) && isUsable(toPath);
  const auto copied = usable ? platform::current().fileChanges.copy(*source, *toPath)
                             : refusal(isUsable(source) ? toPath : source);
  if (copied) return true;
  logFailure("Error copying file: %@. Authorizing...", copied);
  return authorized("+[TGFileManager copyFile:toPath:shouldAuth:]", usable ? shouldAuth : ShouldAuth::no,
                    [&](TGAuthorization& rights) { return rights.authCopyFile(source, toPath); });
}

bool TGFileManager::moveFile(const Path& source, const Path& toPath, ShouldAuth shouldAuth) {
  const bool usable = isUsable(source) && isUsable(toPath);
  unlockFile(toPath);
  // Below the destination, on purpose, also where the item itself will lie there: callers that name the
  // folder to move into count on what is in the way being unlocked.
  if (usable)
    unlockFolder(foundation::appendingPathComponent(*toPath, foundation::lastPathComponent(*source)));
  const auto moved = usable ? platform::current().fileChanges.move(*source, *toPath)
                            : refusal(isUsable(source) ? toPath : source);
  if (moved) return true;
  logFailure("Error moving file: %@. Authorizing...", moved);
  return authorized("+[TGFileManager moveFile:toPath:shouldAuth:]", usable ? shouldAuth : ShouldAuth::no,
                    [&](TGAuthorization& rights) { return rights.authMoveFile(source, toPath); });
}

bool TGFileManager::compressFile(const Path& source, const Path& toDestinationFile) {
  if (!isUsable(source) || !isUsable(toDestinationFile)) return false;
  // Where the old archive cannot be moved away the tool replaces it.
  if (fileExistsAtPath(toDestinationFile)) static_cast<void>(moveToTrash(*toDestinationFile));
  guarded("+[TGFileManager compressFile:toDestinationFile:]", [&] {
    TGTask::runTask("/usr/bin/ditto",
                    std::vector<std::string>{"-ck", "--keepParent", *source, *toDestinationFile});
  });
  return fileExistsAtPath(toDestinationFile);
}
