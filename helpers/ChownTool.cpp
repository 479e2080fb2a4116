#include "helpers/ChownTool.h"

#include <unistd.h>

#include "helpers/ToolPath.h"
#include "helpers/Turn.h"
#include "platform/posix/HeldEntries.h"

namespace helpers {
namespace {

bool isAlready(const FileStatus& status, const Ownership& ownership) {
  return status.owner == ownership.owner.value_or(status.owner) &&
         status.group == ownership.group.value_or(status.group);
}

}  // namespace

ExitStatus ChownTool::run(const std::vector<std::string>& arguments) {
  if (arguments.size() != 3 || arguments[0] != "-R" || !isAbsolutePath(arguments[2])) {
    return report_.stop(ExitStatus::usage, "usage: chowntool -R owner[:group] absolute-path");
  }
  const std::optional<Ownership> ownership = ownershipNamed(arguments[1]);
  if (!ownership) {
    return report_.stop(ExitStatus::usage, "unknown owner or group: " + escaped(arguments[1]));
  }
  const Turn turn(surroundings_, report_);
  if (stopRequested()) return report_.stop(ExitStatus::failed, "asked to stop");
  auto top = locateUnprotected(surroundings_, arguments[2]);
  if (!top) return reportUnlocated(report_, top.error());
  changeTree(top.value(), *ownership);
  return report_.status();
}

void ChownTool::changeTree(const PathEntry& top, const Ownership& ownership) {
  LinkedFiles linked(report_);
  const auto isWrong = [&](const FileStatus& status) { return !isAlready(status, ownership); };
  TreeWalk walk(report_, isWrong, [&](const TreeVisit& visit) {
    if (!isWrong(visit.status) || linked.keeps(visit)) return;
    change(visit.descriptor, visit.path, ownership);
  });
  walk.onListed(listed_);
  walk.walk(top);
  linked.finish([&](int descriptor, const std::string& path) { change(descriptor, path, ownership); });
}

void ChownTool::change(int descriptor, const std::string& path, const Ownership& ownership) {
  constexpr auto kLeave = static_cast<uid_t>(-1);
  const int reason =
      platform::setOwner(descriptor, ownership.owner.value_or(kLeave), ownership.group.value_or(kLeave));
  if (reason != 0) report_.failure(foundation::systemError(reason, path));
}

}  // namespace helpers
