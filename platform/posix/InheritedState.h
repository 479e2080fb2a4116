#pragma once

/// What a process has from whoever started it, and how a program of root's gets rid of it.
namespace platform {

/// Closes every descriptor from a number on.
void closeDescriptorsFrom(int first);

/// Leaves the process without any environment variable. REQUIRES that no other thread runs.
void forgetEnvironment();

}  // namespace platform
