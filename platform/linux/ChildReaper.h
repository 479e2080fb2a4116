#pragma once

#include "platform/posix/UniqueDescriptor.h"

namespace platform {

/// Hands over a child that nobody will wait for, by its pidfd (pidfd_open(2)). A thread of the process's own,
/// started with the first such child, collects each one when it ends; it never waits for any other child, so
/// it takes no child away from a library or from code that waits for its own. When the thread cannot be made
/// the child stays a zombie until the program ends.
void reapWhenEnded(UniqueDescriptor pidfd) noexcept;

}  // namespace platform
