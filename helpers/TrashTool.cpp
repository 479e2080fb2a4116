#include "helpers/TrashTool.h"

#include <algorithm>
#include <cerrno>

#include "helpers/ToolPath.h"

namespace helpers {
namespace {

bool isTrash(const std::string& name) {
  return name == ".Trash" || name == ".Trashes";
}

bool liesIn(const PathEntry& entry, const FileStatus& folder) {
  return std::any_of(entry.levels.begin(), entry.levels.end(),
                     [&folder](const PathLevel& level) { return level.status.isSameFile(folder); });
}

}  // namespace

ExitStatus TrashTool::run(const std::vector<std::string>& arguments) {
  if (arguments.size() == 1 && isAbsolutePath(arguments[0])) return trashItem(arguments[0]);
  if (arguments.size() == 2 && isAbsolutePath(arguments[1])) {
    if (arguments[0] == "-dircontents") return trashContents(arguments[1]);
    if (arguments[0] == "-spooldir") return SpoolFolder(surroundings_, report_).empty(arguments[1]);
  }
  return report_.stop(ExitStatus::usage, "usage: trashtool [-dircontents | -spooldir] absolute-path");
}

ExitStatus TrashTool::trashItem(const std::string& path) {
  const auto located = locateUnprotected(surroundings_, path);
  if (!located && isMissing(located.error())) return ExitStatus::done;
  if (!located) return reportUnlocated(report_, located.error());
  const PathEntry& item = located.value();
  if (isTrash(item.name()))
    return report_.stop(ExitStatus::refused, escaped(path) + ": refused: it is a trash");
  auto trash = TrashCan::open(surroundings_, report_, item.levels, item.levels.size() - 1);
  if (!trash) {
    report_.failure(trash.error());
    return report_.status();
  }
  if (liesIn(item, trash.value().status())) return ExitStatus::done;
  const auto taken = trash.value().take(item.folder().descriptor.get(), item.name(), item.path,
                                        TrashName::ofItem(item.name(), surroundings_.now()));
  if (taken) {
    report_.moved(item.path, trash.value().path() + "/" + taken.value());
  } else if (!isMissing(taken.error())) {
    report_.failure(taken.error());
  }
  return report_.status();
}

ExitStatus TrashTool::trashContents(const std::string& path) {
  const auto folder = locateUnprotected(surroundings_, path, LastLink::follow);
  if (!folder && isMissing(folder.error())) return ExitStatus::done;
  if (!folder) return reportUnlocated(report_, folder.error());
  auto names = contentsOf(folder.value());
  if (!names) {
    report_.failure(names.error());
  } else if (!names.value().empty()) {
    trashEntries(folder.value(), names.value());
  }
  return report_.status();
}

void TrashTool::trashEntries(const PathEntry& folder, platform::NameList& names) {
  auto trash = TrashCan::open(surroundings_, report_, folder.levels, folder.levels.size());
  if (!trash) return report_.failure(trash.error());
  if (liesIn(folder, trash.value().status())) return;
  // Before the first of them: nobody who kills the tool takes the knowledge along where they have gone.
  report_.moving(folder.path + "/*", trash.value().path());
  while (!names.empty()) {
    const std::string name = names.next();
    const std::string path = folder.path + "/" + name;
    if (stopRequested()) return report_.failure(path, "not moved: asked to stop");
    const auto taken = trash.value().take(folder.self().descriptor.get(), name, path,
                                          TrashName::ofItem(name, surroundings_.now()));
    if (!taken && !isMissing(taken.error())) report_.failure(taken.error());
  }
}

}  // namespace helpers
