#pragma once

#include <functional>
#include <string>

#include "helpers/Surroundings.h"
#include "helpers/Tool.h"
#include "helpers/TrashName.h"
#include "platform/posix/ExclusiveRename.h"
#include "platform/posix/TreeCopy.h"

namespace helpers {

using platform::RenameFlags;
using platform::renameWithoutReplacing;

/// An open trash folder, and moving things into it. Nothing in it is ever replaced, also by several at once.
class TrashCan {
 public:
  /// The trash for what lies in the folder at the end of `way` (levels as locate() gives them, the first
  /// `levelCount` of them).
  ///
  /// Whose: the owner of the home folder that the folder lies in (homes of accounts with user id 500 or more
  /// and of root, and folders right below "/Users" and "/home"), else the console user, else root. Where:
  /// "<home>/.Trash" on the home's own volume; on another volume ".Trashes/<user id>" at its top, made as
  /// needed; where that cannot be had, the home's trash, by copying.
  /// A trash must be a real folder that belongs to its user or to root. A .Trash that is a link, a file or
  /// somebody else's is not used, and nothing is trashed in its stead elsewhere: the error says so. Missing
  /// ones are made with mode 0700 by the user's own file rights; a volume's ".Trashes" is root's with mode
  /// 01333.
  [[nodiscard]] static foundation::Result<TrashCan> open(const Surroundings& surroundings, Report& report,
                                                         const std::vector<PathLevel>& way,
                                                         std::size_t levelCount);

  /// Moves one entry in, by renaming or, onto another volume, by platform::moveByCopy(); gives the name that
  /// it got.
  [[nodiscard]] foundation::Result<std::string> take(int folder, const std::string& name,
                                                     const std::string& path, const TrashName& names);

  /// Makes an empty folder with that owner and mode in the trash, for taking things into; gives its name.
  /// EBUSY where somebody has put another folder in its place. `onMade` is called before the folder is given
  /// away.
  [[nodiscard]] foundation::Result<std::string> makeFolder(const TrashName& names, const FileStatus& like,
                                                           const std::function<void()>& onMade = {});
  /// The trash can that such a folder is.
  [[nodiscard]] foundation::Result<TrashCan> opened(const std::string& name) const;
  /// Removes such a folder if nothing is in it.
  void removeIfEmpty(const std::string& name) const;

  [[nodiscard]] const FileStatus& status() const { return status_; }
  [[nodiscard]] const std::string& path() const { return path_; }
  void setRenameFlags(RenameFlags flags) { renameFlags_ = flags; }
  /// Called at every step of a copy.
  void onCopyStep(std::function<void()> onCopyStep) { onCopyStep_ = std::move(onCopyStep); }

 private:
  TrashCan(platform::UniqueDescriptor folder, FileStatus status, std::string path, Report& report);
  [[nodiscard]] foundation::Result<void> giveFolder(const std::string& name, const FileStatus& like) const;
  [[nodiscard]] platform::CopyOptions copyOptions() const;
  [[nodiscard]] foundation::Result<std::string> takeByCopy(int folder, const std::string& name,
                                                           const std::string& path, const TrashName& names);
  [[nodiscard]] foundation::Result<std::string> rename(int folder, const std::string& name,
                                                       const std::string& path, const TrashName& names);
  friend class TrashSearch;

  platform::UniqueDescriptor folder_;
  FileStatus status_;
  std::string path_;
  std::size_t longestName_;
  RenameFlags renameFlags_ = RenameFlags::use;
  std::function<void()> onCopyStep_;
  Report* report_;
};

/// Whose trash it is: the rule of TrashCan::open.
[[nodiscard]] Account trashAccount(const Surroundings& surroundings, const std::vector<PathLevel>& way,
                                   std::size_t levelCount);

}  // namespace helpers
