#include "helpers/TreeWalk.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "platform/posix/AccessLists.h"

namespace helpers {
namespace {

using foundation::systemError;
using platform::UniqueDescriptor;

constexpr std::size_t kMostOpenFolders = 128;
constexpr std::size_t kMostLinkedFiles = 512;
constexpr std::size_t kMostLinkNames = 50'000;
constexpr const char* kFurtherLinks = "has further hard links, left as it is";

bool othersCanWrite(int held, const FileStatus& folder) {
  return !isTrustedOwner(folder.owner) || (folder.mode & (S_IWGRP | S_IWOTH)) != 0 ||
         platform::mayBeWrittenByList(held, folder.mode);
}

}  // namespace

TreeWalk::TreeWalk(Report& report, Selector selector, Visitor visitor)
    : report_(report),
      selector_(std::move(selector)),
      visitor_(std::move(visitor)),
      mostOpenFolders_(affordableDescriptors(kMostOpenFolders)) {}

void TreeWalk::walk(const PathEntry& top) {
  path_ = top.path;
  const PathLevel& self = top.self();
  visitor_(TreeVisit{self.descriptor.get(), self.status, self.name, top.folder().status,
                     top.folder().descriptor.get(), top.path});
  if (!self.status.isFolder()) return;
  auto again = openEntry(self.descriptor.get(), ".", top.path, O_DIRECTORY);
  if (!again) return report_.failure(again.error());
  enter(self.name, std::move(again).value(), self.status);
  while (!levels_.empty() && !stopRequested()) {
    if (levels_.back().names.empty()) {
      leave();
    } else {
      visitNextEntry();
    }
  }
  if (stopRequested()) report_.failure(top.path, "not finished: asked to stop");
}

void TreeWalk::visitNextEntry() {
  Level& level = levels_.back();
  level.names.takeNext(name_);
  const auto looked = statusIn(level.descriptor.get(), name_, name_);
  if (looked && (looked.value().isFolder() || selector_(looked.value()))) return open(level);
  if (looked || isMissing(looked.error())) return;
  nameEntry();
  report_.failure(systemError(looked.error().code, entryPath_));
}

// What was looked at by its name may have been exchanged since, in root's own folders too: the next step of
// the same repair may be opening them to everybody already. So only what is open now is decided on and
// changed.
void TreeWalk::open(const Level& level) {
  nameEntry();
  auto opened = openEntry(level.descriptor.get(), name_, entryPath_);
  if (!opened) {
    if (!isMissing(opened.error())) report_.failure(opened.error());
    return;
  }
  auto status = statusOf(opened.value().get(), entryPath_);
  if (!status) return report_.failure(status.error());
  if (!status.value().isSameVolume(level.status)) {
    return report_.failure(entryPath_, "on another volume, left as it is");
  }
  visitor_(TreeVisit{opened.value().get(), status.value(), name_, level.status, level.descriptor.get(),
                     entryPath_});
  if (status.value().isFolder()) enter(name_, std::move(opened).value(), status.value());
}

void TreeWalk::enter(const std::string& name, UniqueDescriptor descriptor, const FileStatus& status) {
  // Owner and mode may just have been changed by the visit: what counts for links below is how they are now.
  const auto now = statusOf(descriptor.get(), name);
  const std::size_t above = path_.size();
  if (!levels_.empty()) path_ += "/" + name;
  levels_.push_back(Level{std::move(descriptor), now ? now.value() : status, above});
  if (levels_.size() > mostOpenFolders_) levels_[levels_.size() - mostOpenFolders_ - 1].descriptor.reset();
  auto names = platform::listedNames(levels_.back().descriptor.get(), path_);
  if (!names) {
    if (!isMissing(names.error())) report_.failure(names.error());
    return;
  }
  levels_.back().names = std::move(names).value();
  if (listed_) listed_(path_);
}

void TreeWalk::leave() {
  const UniqueDescriptor below = std::move(levels_.back().descriptor);
  path_.resize(levels_.back().pathLength);
  levels_.pop_back();
  if (levels_.empty() || levels_.back().descriptor) return;
  auto parent = openEntry(below.get(), "..", path_, O_DIRECTORY);
  const auto status = parent ? statusOf(parent.value().get(), path_) : parent.error();
  if (!status || !status.value().isSameFile(levels_.back().status)) {
    report_.failure(path_, "moved while it was worked on, the rest is left as it is");
    return levels_.clear();
  }
  levels_.back().descriptor = std::move(parent).value();
}

void TreeWalk::nameEntry() {
  entryPath_.assign(path_).append(1, '/').append(name_);
}

LinkedFiles::LinkedFiles(Report& report)
    : report_(report), mostFiles_(affordableDescriptors(kMostLinkedFiles)) {}

bool LinkedFiles::keeps(const TreeVisit& visit) {
  if (visit.status.isFolder()) return false;
  if (visit.status.links > 1) {
    add(visit);
    return true;
  }
  if (keptNames_.has(visit.descriptor, visit.folderDescriptor, visit.name)) return false;
  report_.failure(visit.path, "removed or exchanged while it was looked at, left as it is");
  return true;
}

void LinkedFiles::add(const TreeVisit& visit) {
  const FileKey key(visit.status.device, visit.status.inode);
  if (files_.size() == mostFiles_ && !files_.contains(key)) {
    return report_.failure(visit.path, kFurtherLinks);
  }
  File& file = files_[key];
  if (file.path.empty()) {
    file.path = visit.path;
    file.descriptor.reset(fcntl(visit.descriptor, F_DUPFD_CLOEXEC, 3));
  }
  if (othersCanWrite(visit.folderDescriptor, visit.folder) || nameCount_ == kMostLinkNames) return;
  const auto added = file.names.emplace(visit.folder.device, visit.folder.inode, visit.name);
  nameCount_ += added.second ? 1 : 0;
}

void LinkedFiles::finish(const Change& change) {
  for (const auto& [key, file] : files_) {
    const auto status = statusOf(file.descriptor.get(), file.path);
    if (file.descriptor && status && status.value().links == file.names.size()) {
      change(file.descriptor.get(), file.path);
    } else {
      report_.failure(file.path, kFurtherLinks);
    }
  }
  files_.clear();
}

}  // namespace helpers
