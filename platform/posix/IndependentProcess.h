#pragma once

/// Programs of root's, which whoever starts them must not be able to lead anywhere else or to end halfway.
namespace platform {

enum class WorkingFolder {
  leave,  ///< "/" becomes the current folder
  keep    ///< the caller's stays, for programs that take paths below it
};

/// Makes this process independent of whoever started it; to be called first in main. Afterwards:
/// - descriptors 0, 1 and 2 are open (on /dev/null where they were closed), all others are closed;
/// - the environment is empty, and the file mode mask is 0 (every mode is given in full);
/// - the limits on descriptors, on the size of files, on the stack and on processor time are raised as far as
///   this process may (to 2048, none, 8 MiB and none; a hard limit by root alone), so that the caller's do
///   not end the work halfway;
/// - SIGPIPE and SIGXFSZ are ignored, so that neither a broken standard error nor a size limit ends the work
///   halfway; SIGTERM, SIGINT and SIGHUP only set the wish that stopRequested() tells; all other signals have
///   their default action again, and none is blocked.
void becomeIndependent(WorkingFolder folder = WorkingFolder::leave);

/// Whether SIGTERM, SIGINT or SIGHUP has come: the current entry is to be finished and nothing more begun.
[[nodiscard]] bool stopRequested();

}  // namespace platform
