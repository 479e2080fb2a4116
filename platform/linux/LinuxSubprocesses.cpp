#include "platform/linux/LinuxSubprocesses.h"

#include <sys/stat.h>

#include "platform/foundation/Paths.h"
#include "platform/linux/LinuxChildren.h"

namespace platform {
namespace {

constexpr const char* kOpener = "/usr/bin/open";
constexpr const char* kOwnerChanger = "/usr/sbin/chown";

bool hasEquivalent(const std::string& path) {
  return path == "/usr/sbin/scutil" || path == "/usr/bin/ditto" || path == kOpener || path == kOwnerChanger;
}

bool isSymbolicLink(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

/// Desktops link the opener's name to one of their own, which does not take the Mac's arguments. Systems that
/// have merged their folders of programs have the general chown at the Mac's path, which follows links that a
/// user has planted.
bool isAnother(const std::string& path, const std::string& own) {
  return path == kOwnerChanger || (path == kOpener && isSymbolicLink(own));
}

}  // namespace

LinuxSubprocesses::LinuxSubprocesses(MainThread& mainThread, MainBundle& mainBundle, std::string root)
    : PosixSubprocesses(mainThread, watchByDescriptor, makePipeHold),
      mainBundle_(mainBundle),
      root_(std::move(root)) {}

std::string LinuxSubprocesses::executableFor(const std::string& path) {
  if (!hasEquivalent(path)) return path;
  std::string own = root_ + path;
  if (mayBeExecuted(own) && !isAnother(path, own)) return own;
  std::string equivalent = foundation::appendingPathComponent(
      mainBundle_.path(), "Contents/SharedSupport/" + foundation::lastPathComponent(path));
  // What only ever stands in for another program is missing where it is missing.
  return mayBeExecuted(equivalent) || path == kOwnerChanger ? equivalent : own;
}

OpensOnDesktop LinuxSubprocesses::opensOnDesktop(const std::string& executable) {
  const std::string name = foundation::lastPathComponent(executable);
  return name == "open" || name == "asuser" ? OpensOnDesktop::yes : OpensOnDesktop::no;
}

}  // namespace platform
