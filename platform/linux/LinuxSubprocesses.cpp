#include "platform/linux/LinuxSubprocesses.h"

#include <sys/stat.h>
#include <unistd.h>

#include "platform/foundation/Paths.h"
#include "platform/linux/LinuxChildren.h"

namespace platform {
namespace {

constexpr const char* kOpener = "/usr/bin/open";
constexpr const char* kOwnerChanger = "/usr/sbin/chown";

/// Root works in folders that users control, where the general tools follow what is exchanged under them.
/// With a password sudo runs those.
bool isVerbOfRoots(const std::string& path) {
  const bool isVerb = path == "/bin/cp" || path == "/bin/mv" || path == "/bin/rm" || path == "/bin/mkdir";
  return isVerb && ::geteuid() == 0;
}

/// Whether the bundle has the only one that will do.
bool isOursAlone(const std::string& path) {
  return path == kOwnerChanger || isVerbOfRoots(path);
}

bool hasEquivalent(const std::string& path) {
  return path == "/usr/sbin/scutil" || path == "/usr/bin/ditto" || path == kOpener || isOursAlone(path);
}

bool isSymbolicLink(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

/// Desktops link the opener's name to one of their own, which does not take the Mac's arguments. Systems that
/// have merged their folders of programs have the general chown at the Mac's path, which follows links that a
/// user has planted.
bool isAnother(const std::string& path, const std::string& own) {
  return isOursAlone(path) || (path == kOpener && isSymbolicLink(own));
}

}  // namespace

LinuxSubprocesses::LinuxSubprocesses(MainThread& mainThread, MainBundle& mainBundle, std::string root)
    : PosixSubprocesses(mainThread, watchByDescriptor, {makePipeHold, useLargePages}),
      mainBundle_(mainBundle),
      root_(std::move(root)) {}

std::string LinuxSubprocesses::executableFor(const std::string& path) {
  if (!hasEquivalent(path)) return path;
  std::string own = root_ + path;
  if (mayBeExecuted(own) && !isAnother(path, own)) return own;
  std::string equivalent = foundation::appendingPathComponent(
      mainBundle_.path(), "Contents/SharedSupport/" + foundation::lastPathComponent(path));
  // What only ever stands in for another program is missing where it is missing.
  return mayBeExecuted(equivalent) || isOursAlone(path) ? equivalent : own;
}

OpensOnDesktop LinuxSubprocesses::opensOnDesktop(const std::string& executable) {
  const std::string name = foundation::lastPathComponent(executable);
  return name == "open" || name == "asuser" ? OpensOnDesktop::yes : OpensOnDesktop::no;
}

}  // namespace platform
