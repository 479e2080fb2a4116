#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace workstation {

/// One thing that is wrong with a workstation: a name from damageNames() and, where the damage is done to
/// something, its path inside the volume.
struct Damage {
  std::string name;
  std::string path;
};

/// A name with what it does, for help texts.
struct DamageName {
  std::string_view name;
  bool needsPath;
  std::string_view effect;
};

/// All there are. To a file or folder:
///
///     missing       it is taken away, with all that is in it
///     unreadable    nobody may read it (ugo-r)
///     unwritable    nobody may write to it (ugo-w)
///     unopenable    nobody may open the folder, or execute the file (ugo-x)
///     no-access     all three
///     wrong-owner   it, and all in it, belongs to bob and the group staff
///     locked        its immutable flag is set, as "Locked" in the Finder does; not even root can change it.
///                   Takes a file system with inode flags (ext4, btrfs, xfs, tmpfs from Linux 6.6 on)
///     empty         a file of no bytes
///     truncated     the first half of it
///     garbage       as many bytes that mean nothing
///     huge          followed by zeros (sparse) up to 65 MiB
///     fifo, folder, socket
///                   one of these in its place
///     link-loop     two symbolic links that point to each other
///     dangling-link a symbolic link to nothing
///     wrong-type    a property list that is a list of numbers
///     wrong-values  a property list whose keys are there and hold values of the wrong type
///     disabled      a ".disabled" file in the folder (the startup item's)
///     ignores-quit  the executable, or an application's, takes no notice of a request to quit
///     slow-quit     it takes three seconds to quit
///
/// To the workstation, without a path: no-computer-name, no-local-host-name.
///
/// Root is not held to mode bits, so a repair by root finds nothing unreadable, and finds "locked" things
/// unwritable; a visit with VisitOptions::withoutCapabilities holds root to them.
[[nodiscard]] const std::vector<DamageName>& damageNames();

/// "name" or "name:path". nullopt when the name is unknown or a path is missing or superfluous.
[[nodiscard]] std::optional<Damage> parseDamage(std::string_view text);

/// Does it to a volume. Throws std::invalid_argument for a damage that is not well formed and
/// std::system_error when it cannot be done; what is not there can only become a file of its kind.
void applyDamage(const std::filesystem::path& volume, const Damage& damage);

}  // namespace workstation
