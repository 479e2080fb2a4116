#pragma once

#include <map>
#include <string>
#include <vector>

/// What lies below a folder, in words that can be compared.
namespace hardening {

enum class Changed {
  told,    ///< with the time of change (st_ctime) and the number of links: nobody has touched it in any way
  ignored  ///< as a move leaves it
};

/// Type, mode, owner, group, time of modification (not of a folder, where Changed::ignored is asked for),
/// target of a link, content and extended attributes of one entry; no link is followed, nothing but a regular
/// file is opened.
[[nodiscard]] std::string described(const std::string& path, Changed changed);

/// All that is below a folder, the folder itself as "", by the path from there. Mounts are entered.
using Snapshot = std::map<std::string, std::string>;
[[nodiscard]] Snapshot snapshotOf(const std::string& folder, Changed changed = Changed::told);

/// What one has and the other has not, a line each: "- path words" and "+ path words"; nothing where they are
/// equal.
[[nodiscard]] std::vector<std::string> differences(const Snapshot& before, const Snapshot& after);

/// Removes all that is below a folder, as far as it can be: mount points stay, and what is mounted is
/// emptied.
void clear(const std::string& folder);

}  // namespace hardening
