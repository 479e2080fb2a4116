#pragma once

#include <string>

#include "helpers/Surroundings.h"

namespace helpers {

/// Whether a folder may be emptied as a spool folder. Its path comes from a services file, which a user may
/// have written, so that a path alone is no reason: "/etc/ssh" can stand there too. It may be
/// - where it belongs to the account whose trash it goes to, unless that is root, to whom the system belongs;
/// - where it lies in /var/spool, /private/var/spool, /Users/Shared or an "Application Support/Apple
///   Qmaster";
/// - where a services file names it that nobody but root and the computer's administrators (the groups 0 and
///   "admin") can have written, who may become root anyway, and that no access list gives to others: the
///   machine's
///   (/Library/Application Support/Apple Qmaster/qmasterservices.plist), or the one in root's home.
/// `asked` is the path as it was asked for. A link of root's own may lead elsewhere from one of those places
/// in the system's own folders (/Library/Application Support/Apple Qmaster is one), so these count by either
/// path; by the asked one only where it goes up nowhere. A link of root's on another volume is no word of
/// root's: a user may have brought it.
[[nodiscard]] bool maySpoolBeEmptied(const Surroundings& surroundings, const PathEntry& spool,
                                     const std::string& asked);

/// Whether a property list, XML or binary, holds that text as a string of its own, whole. Texts that are not
/// ASCII are found in XML only.
[[nodiscard]] bool holdsString(const std::string& propertyList, const std::string& text);

}  // namespace helpers
