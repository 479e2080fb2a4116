#pragma once

/// What a process has from whoever started it, and how a program of root's gets rid of it.
namespace platform {

/// Closes every descriptor from a number on.
void closeDescriptorsFrom(int first);

/// Leaves the process without any environment variable. REQUIRES that no other thread runs.
void forgetEnvironment();

/// Starts this program once more, without an environment, where the one that it has tells the loader of
/// libraries other places to look in: the loader has read that already, and heeds it for whatever is loaded
/// later. `arguments` are main's. To be called before anything is loaded; goes on as it is where the program
/// cannot be started again. On Linux the process is called `name` afterwards, whatever it was started by: one
/// that is started again had the name of the way to itself. (It shows the first 15 bytes.)
void forgetPlacesOfLibraries(char** arguments, const char* name);

}  // namespace platform
