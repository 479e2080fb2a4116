#pragma once

#include "platform/posix/UniqueDescriptor.h"

/// What nobody waits for any more, seen to its end by one thread of the process's own, which is started with
/// the first of it and hears no signals.
namespace platform {

/// Hands over a child that nobody will wait for, by its pidfd (pidfd_open(2)), to be collected when it ends.
/// No other child is ever waited for, so none is taken away from a library or from code that waits for its
/// own. When the thread cannot be made the child stays a zombie until the program ends.
void reapWhenEnded(UniqueDescriptor pidfd) noexcept;

/// Hands over the reading end of a pipe that nobody reads any more, to be read to its end, so that whoever
/// writes to it is not stopped. When the thread cannot be made it is closed.
void readToTheEnd(UniqueDescriptor pipe) noexcept;

}  // namespace platform
