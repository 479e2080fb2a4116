#pragma once

#include <cstdint>

namespace platform {

/// Takes off what is held the locks that its owner may set and take, and by which it can be neither renamed
/// nor removed, nor anything in it (chflags(2) of a Mac); answers them for giveLocks(), 0 for none. Linux has
/// none: its flags are root's to set.
std::uint32_t takeLocks(int held);

/// Gives what is held those locks again.
void giveLocks(int held, std::uint32_t locks);

}  // namespace platform
