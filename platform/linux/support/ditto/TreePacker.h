#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <vector>

#include "platform/linux/support/ditto/DeflateLine.h"
#include "platform/linux/support/ditto/PendingFile.h"
#include "platform/linux/support/ditto/ZipFile.h"
#include "platform/posix/UniqueDescriptor.h"

namespace ditto {

enum class KeepParent { no, yes };

enum class Packed {
  whole,    ///< everything is in the archive that belongs there
  partly,   ///< some of it is missing, and standard error says what and why
  nothing,  ///< the source itself could not be packed; standard error says why
};

/// Puts a file, a link or a folder with all that is in it into an archive, names in the order of their bytes,
/// a folder before its entries. With KeepParent::yes the names begin with the folder's own.
///
/// Safe for root in folders of others: every folder on the way down is held open, no link in the source is
/// followed, and what is opened is looked at again afterwards. A link is packed as a link, also when it is
/// the source itself; only a source written with a slash at its end is the folder that the link leads to.
///
/// What vanishes or cannot be read is named on standard error and passed over: somebody who sends logs wants
/// those that there are. A file is packed as long as it was when it was opened. FIFOs, sockets and devices
/// hold nothing that could be kept: they are named on standard error, not opened, and nothing counts as
/// missing. The archive itself is left out, the one being replaced as well.
class TreePacker {
 public:
  TreePacker(DeflateLine& line, const ZipFile& zip, const PendingFile& archive)
      : line_(line), zip_(zip), archive_(archive) {}

  [[nodiscard]] Packed pack(const std::string& source, KeepParent keepParent);

 private:
  /// A folder on the way down, with the names in it that are still to come, last first.
  struct Level {
    platform::UniqueDescriptor folder;
    bool holdsArchive = false;
    std::size_t nameLength = 0;  ///< how much of name_ is the folder's
    std::vector<std::string> names;
  };

  [[nodiscard]] bool packSource(const std::string& source, KeepParent keepParent);
  [[nodiscard]] bool packTop(platform::UniqueDescriptor folder, const std::string& name,
                             KeepParent keepParent);
  void packLevels();
  [[nodiscard]] bool packEntry(int folder, const std::string& name);
  [[nodiscard]] bool packFile(int folder, const std::string& name);
  [[nodiscard]] bool packLink(int folder, const std::string& name, const struct stat& status);
  [[nodiscard]] bool packFolder(int folder, const std::string& name, const struct stat& before);
  [[nodiscard]] bool enter(platform::UniqueDescriptor folder);
  [[nodiscard]] ZipEntry entryFor(const struct stat& status) const;
  [[nodiscard]] std::string path() const;
  bool complain(const std::string& reason) const;
  bool complain(int reason) const;

  DeflateLine& line_;
  const ZipFile& zip_;
  const PendingFile& archive_;
  std::string source_;        ///< as it was given
  std::string name_;          ///< of the entry at hand, in the archive
  std::size_t inSource_ = 0;  ///< how much of that name stands for the source
  std::vector<Level> levels_;
  bool isIncomplete_ = false;
};

}  // namespace ditto
