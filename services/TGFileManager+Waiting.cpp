#include "platform/Platform.h"
#include "platform/foundation/Text.h"
#include "services/TGFileManager.h"

namespace {

using namespace std::chrono_literals;
using Path = TGFileManager::Path;

enum class Awaited { gone, present };

bool hasCome(Awaited awaited, const Path& path) {
  return TGFileManager::fileExistsAtPath(path) == (awaited == Awaited::present);
}

/// On the main thread the interface stays alive; elsewhere there is nothing to keep alive.
void pauseOnce() {
  platform::Platform& platform = platform::current();
  if (platform.mainThread.isCurrent()) {
    platform.userInterfaceEvents.dispatchNext(10ms);
  } else {
    platform.clock.sleep(300ms);
  }
}

bool waitUntil(Awaited awaited, const Path& path, std::chrono::seconds timeout) {
  platform::Clock& clock = platform::current().clock;
  const auto start = clock.uptime();
  const auto waited = [&] { return std::chrono::floor<std::chrono::seconds>(clock.uptime() - start); };
  while (!hasCome(awaited, path) && waited() < timeout) pauseOnce();
  return hasCome(awaited, path);
}

bool differOnlyInCase(const Path& one, const Path& other) {
  return one && other && foundation::lowercase(*one) == foundation::lowercase(*other);
}

}  // namespace

bool TGFileManager::trashFile(const Path& path, std::chrono::seconds timeout) {
  return trashFile(path) && waitUntil(Awaited::gone, path, timeout);
}

bool TGFileManager::removeFile(const Path& path, std::chrono::seconds timeout) {
  return removeFile(path, ShouldAuth::yes) && waitUntil(Awaited::gone, path, timeout);
}

bool TGFileManager::createDirectory(const Path& path, std::chrono::seconds timeout) {
  return createDirectory(path) && waitUntil(Awaited::present, path, timeout);
}

bool TGFileManager::copyFile(const Path& source, const Path& toPath, std::chrono::seconds timeout) {
  return copyFile(source, toPath) && waitUntil(Awaited::present, toPath, timeout);
}

bool TGFileManager::moveFile(const Path& source, const Path& toPath, std::chrono::seconds timeout) {
  if (!moveFile(source, toPath)) return false;
  if (differOnlyInCase(source, toPath)) {
    // On a volume that takes both names for one the source still exists: there is nothing to wait for.
    platform::current().clock.sleep(500us);
    return true;
  }
  return waitUntil(Awaited::gone, source, timeout);
}
