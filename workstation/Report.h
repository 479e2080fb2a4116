#pragma once

#include <string>

#include "workstation/Difference.h"
#include "workstation/Volume.h"

/// What people read.
namespace workstation {

/// What a visit did to a volume, in sections for a reader who knows none of the machinery: what lies in whose
/// trash now, what was moved, created, changed and removed; which tools were called, when and by whom; what
/// the workstation's values became; which signals and notifications were seen; what still runs. Many things
/// of one folder that went the same way take one line. Sections without content are left out, and an
/// unchanged volume says so.
[[nodiscard]] std::string visitReport(const Volume& volume, const Snapshot& before, const Snapshot& after);

/// What is on a volume: the Compressors and their places, Qmaster's state, what runs, the users, how much
/// spool data there is.
[[nodiscard]] std::string volumeReport(const Volume& volume, const Snapshot& snapshot);

}  // namespace workstation
