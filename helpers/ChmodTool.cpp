#include "helpers/ChmodTool.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "helpers/ToolPath.h"
#include "helpers/Turn.h"
#include "platform/posix/FileMetadata.h"

namespace helpers {
namespace {

using platform::setPermissions;

constexpr mode_t kSharedWrite = S_IWGRP | S_IWOTH;

bool hasSetId(mode_t mode) {
  return (mode & (S_ISUID | S_ISGID)) != 0;
}

}  // namespace

ExitStatus ChmodTool::run(const std::vector<std::string>& arguments) {
  const bool recursive = arguments.size() == 3 && arguments[0] == "-R";
  if ((!recursive && arguments.size() != 2) || !isAbsolutePath(arguments.back())) {
    return report_.stop(ExitStatus::usage, "usage: chmodtool [-R] mode absolute-path");
  }
  const std::string& text = arguments[arguments.size() - 2];
  const std::optional<FileMode> mode = FileMode::parse(text);
  if (!mode) return report_.stop(ExitStatus::usage, "not a mode: " + escaped(text));
  const Turn turn(surroundings_, report_);
  if (stopRequested()) return report_.stop(ExitStatus::failed, "asked to stop");
  auto top = locateUnprotected(surroundings_, arguments.back());
  if (!top) return reportUnlocated(report_, top.error());
  if (top.value().status().isSymbolicLink()) {
    report_.failure(top.value().path, "is a symbolic link, left as it is");
  } else if (recursive) {
    changeTree(top.value(), *mode);
  } else {
    changeOne(top.value(), *mode);
  }
  return report_.status();
}

void ChmodTool::changeOne(const PathEntry& entry, const FileMode& mode) {
  const FileStatus& status = entry.status();
  const mode_t permissions = mode.appliedTo(status.permissions(), status.isFolder());
  if (permissions == status.permissions()) return;
  LinkedFiles linked(report_);
  const TreeVisit visit{entry.self().descriptor.get(),   status,    entry.name(), entry.folder().status,
                        entry.folder().descriptor.get(), entry.path};
  if (!linked.keeps(visit)) return change(visit.descriptor, visit.path, permissions);
  linked.finish([&](int descriptor, const std::string& path) { change(descriptor, path, permissions); });
}

void ChmodTool::changeTree(const PathEntry& top, const FileMode& mode) {
  LinkedFiles linked(report_);
  const auto isWrong = [&](const FileStatus& status) {
    return !status.isSymbolicLink() &&
           mode.appliedTo(status.permissions(), status.isFolder()) != status.permissions();
  };
  TreeWalk walk(report_, isWrong, [&](const TreeVisit& visit) {
    if (visit.status.isSymbolicLink()) return;
    const mode_t permissions = wanted(visit.status, visit.path, mode);
    if (permissions == visit.status.permissions()) return;
    if (linked.keeps(visit)) return;
    change(visit.descriptor, visit.path, permissions);
  });
  walk.onListed(listed_);
  walk.walk(top);
  linked.finish([&](int descriptor, const std::string& path) {
    const auto status = statusOf(descriptor, path);
    if (status) change(descriptor, path, wanted(status.value(), path, mode));
  });
}

mode_t ChmodTool::wanted(const FileStatus& status, const std::string& path, const FileMode& mode) {
  const mode_t permissions = mode.appliedTo(status.permissions(), status.isFolder());
  const mode_t newlyShared = permissions & ~status.permissions() & kSharedWrite;
  if (status.isFolder() || !hasSetId(permissions) || newlyShared == 0) return permissions;
  report_.failure(path, "has set-ID bits, not made writable for group or others");
  return permissions & ~newlyShared;
}

void ChmodTool::change(int descriptor, const std::string& path, mode_t permissions) {
  if (auto done = setPermissions(descriptor, permissions, path); !done) report_.failure(done.error());
}

}  // namespace helpers
