// mv -f source destination, for root in folders that a user controls: FileVerbs.h.
// Exits 0 when all was done, 1 when something was not, 64 for wrong arguments.

#include "platform/linux/support/verbs/FileVerbs.h"
#include "platform/linux/support/verbs/VerbMain.h"

int main(int argc, char** argv) {
  const platform::VerbArguments arguments = platform::verbArguments(argc, argv);
  if (!platform::areOptions(arguments.options, "f", "f") || arguments.paths.size() != 2) {
    return platform::verbUsage("mv -f source destination");
  }
  return platform::verbStatus("mv", platform::movePath(arguments.paths[0], arguments.paths[1]));
}
