#pragma once

#include <cstddef>

namespace helpers {

/// Makes this process independent of whoever started it; to be called first in main. Afterwards:
/// - descriptors 0, 1 and 2 are open (on /dev/null where they were closed), all others are closed;
/// - the environment is empty, the current folder is "/", the file mode mask is 0 (every mode is given in
/// full);
/// - the limits on descriptors, on the size of files and on processor time are raised as far as this process
/// may (to 2048, none and none; a hard limit by root alone), so that the caller's do not end the work
/// halfway;
/// - SIGPIPE and SIGXFSZ are ignored, so that neither a broken standard error nor a size limit ends the work
///   halfway; SIGTERM, SIGINT and SIGHUP only set the wish that stopRequested() tells; all other signals have
///   their default action again, and none is blocked.
void prepareHelperProcess();

/// How many descriptors this process may have open at once.
[[nodiscard]] std::size_t mostDescriptors();

/// Whether SIGTERM, SIGINT or SIGHUP has come: the current entry is to be finished and nothing more begun.
[[nodiscard]] bool stopRequested();

}  // namespace helpers
