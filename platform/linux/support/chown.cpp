// chown [-R] owner[:group] path..., for systems that have no chown at /usr/sbin.
//
// Safe when root runs it on paths in folders that a user controls: a path is opened as PathEntry.h says,
// which follows no link that anybody but root can have planted. Only regular files and folders change hands,
// never links or devices, never what another volume has that is mounted below a path, and never a file that
// has further names, because one of them may be a file that the user must not get. Exits 0 when all was done,
// 1 when something was not, 64 for wrong arguments. Asked to stop (IndependentProcess.h) it gives nothing
// more away, neither a further argument nor a folder whose entries it is in.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/foundation/Paths.h"
#include "platform/posix/OwnerName.h"
#include "platform/posix/PathEntry.h"
#include "platform/posix/ToolMain.h"

namespace {

using foundation::systemError;
using platform::ExitStatus;
using platform::Ownership;
using platform::Report;

constexpr int kMostNesting = 256;

class OwnerChange {
 public:
  OwnerChange(int root, Ownership ownership, bool isRecursive, Report& report)
      : root_(root), ownership_(ownership), isRecursive_(isRecursive), report_(report) {}

  void apply(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
      if (!goesOn(path)) return;
      std::error_code failure;
      const auto item = platform::locate(root_, std::filesystem::absolute(path, failure).string());
      if (!item) {
        report_.failure(item.error());
        continue;
      }
      top_ = item.value().status();
      change(item.value().self().descriptor.get(), path, 0);
    }
  }

 private:
  /// Whether more is to be begun; where not, says so once.
  bool goesOn(const std::string& path) {
    if (hasEnded_ || !platform::stopRequested()) return !hasEnded_;
    hasEnded_ = true;
    report_.failure(path, "not finished: asked to stop");
    return false;
  }

  /// Entries first, so that a folder given away is not walked any more.
  void change(int item, const std::string& path, int depth) {
    const auto status = platform::statusOf(item, path);
    if (!status) return report_.failure(status.error());
    if (!status.value().isSameVolume(top_)) return report_.failure(path, "on another volume, left as it is");
    const bool isFolder = status.value().isFolder();
    if (!isFolder && !status.value().isRegular()) return report_.failure(path, "neither a file nor a folder");
    if (!isFolder && status.value().links > 1) return report_.failure(path, "has further names");
    if (!isFolder && !keptNames_.has(item, -1, ""))  // neither is needed here
      return report_.failure(path, "exchanged while it was looked at");
    if (isFolder && isRecursive_) changeEntries(item, path, depth);
    if (isFolder && !goesOn(path)) return;
    constexpr auto kLeave = static_cast<uid_t>(-1);
    if (::fchownat(item, "", ownership_.owner.value_or(kLeave), ownership_.group.value_or(kLeave),
                   AT_EMPTY_PATH) != 0) {
      report_.failure(systemError(errno, path));
    }
  }

  void changeEntries(int folder, const std::string& path, int depth) {
    if (depth == kMostNesting) return report_.failure(path, "nested too deeply");
    auto names = platform::listedNames(folder, path);
    if (!names) return report_.failure(names.error());
    while (!names.value().empty()) {
      if (!goesOn(path)) return;
      const std::string name = names.value().next();
      const std::string below = foundation::appendingPathComponent(path, name);
      const auto item = platform::openEntry(folder, name, below);
      if (!item) report_.failure(item.error());
      if (item) change(item.value().get(), below, depth + 1);
    }
  }

  int root_;
  Ownership ownership_;
  bool isRecursive_;
  Report& report_;
  platform::FileStatus top_ = {};  ///< of the argument in hand
  bool hasEnded_ = false;
  platform::KeptNames keptNames_ = {};
};

ExitStatus run(std::vector<std::string> arguments, Report& report) {
  const bool isRecursive = !arguments.empty() && arguments.front() == "-R";
  if (isRecursive) arguments.erase(arguments.begin());
  if (arguments.size() < 2 || arguments.front().starts_with('-')) {
    return report.stop(ExitStatus::usage, "usage: chown [-R] owner[:group] path...");
  }
  const auto ownership = platform::ownershipNamed(arguments.front());
  if (!ownership) {
    report.failure(arguments.front(), "no such user or group");
    return report.status();
  }
  arguments.erase(arguments.begin());
  const platform::UniqueDescriptor root(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  OwnerChange(root.get(), *ownership, isRecursive, report).apply(arguments);
  return report.status();
}

}  // namespace

int main(int argc, char** argv) {
  return platform::toolMain(argc, argv, "chown", run, platform::WorkingFolder::keep);
}
