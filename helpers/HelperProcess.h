#pragma once

namespace helpers {

/// Makes this process independent of whoever started it; to be called first in main. Afterwards:
/// - descriptors 0, 1 and 2 are open (on /dev/null where they were closed), all others are closed;
/// - the environment is empty, the current folder is "/", the file mode mask is 0 (every mode is given in
/// full);
/// - SIGPIPE and SIGXFSZ are ignored, so that neither a broken standard error nor a size limit ends the work
///   halfway; SIGTERM, SIGINT and SIGHUP only set the wish that stopRequested() tells; all other signals have
///   their default action again, and none is blocked.
void prepareHelperProcess();

/// Whether SIGTERM, SIGINT or SIGHUP has come: the current entry is to be finished and nothing more begun.
[[nodiscard]] bool stopRequested();

}  // namespace helpers
