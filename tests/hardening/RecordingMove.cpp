// The bundle's mv, with a record of what it moves that is in a file from the third entry on: as it is for
// thousands of entries, in few calls.

#include "platform/linux/support/verbs/FileVerbs.h"
#include "platform/linux/support/verbs/VerbMain.h"

int main(int argc, char** argv) {
  constexpr platform::VerbForm kForm{"mv", "mv -f source destination", "f", "f", 2};
  return platform::verbMain(argc, argv, kForm, [](const auto& paths) {
    platform::CopyOptions options = platform::optionsForMoving();
    options.recordInMemory = 1;
    return platform::movePath(paths[0], paths[1], options);
  });
}
