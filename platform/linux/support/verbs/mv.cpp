// mv -f source destination, for root in folders that a user controls: FileVerbs.h.
// Exits 0 when all was done, 1 when something was not, 64 for wrong arguments.

#include "platform/linux/support/verbs/FileVerbs.h"
#include "platform/linux/support/verbs/VerbMain.h"

int main(int argc, char** argv) {
  constexpr platform::VerbForm kForm{"mv", "mv -f source destination", "f", "f", 2};
  return platform::verbMain(argc, argv, kForm,
                            [](const auto& paths) { return platform::movePath(paths[0], paths[1]); });
}
