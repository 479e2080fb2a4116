// mkdir -p path, for root in folders that a user controls: FileVerbs.h.
// Exits 0 when all was done, 1 when something was not, 64 for wrong arguments.

#include "platform/linux/support/verbs/FileVerbs.h"
#include "platform/linux/support/verbs/VerbMain.h"

int main(int argc, char** argv) {
  const platform::VerbArguments arguments = platform::verbArguments(argc, argv);
  if (!platform::areOptions(arguments.options, "p", "p") || arguments.paths.size() != 1) {
    return platform::verbUsage("mkdir -p path");
  }
  return platform::verbStatus("mkdir", platform::makePath(arguments.paths[0]));
}
