// rm -R -f [-d] path, for root in folders that a user controls: FileVerbs.h.
// Exits 0 when all was done, 1 when something was not, 64 for wrong arguments.

#include "platform/linux/support/verbs/FileVerbs.h"
#include "platform/linux/support/verbs/VerbMain.h"

int main(int argc, char** argv) {
  const platform::VerbArguments arguments = platform::verbArguments(argc, argv);
  if (!platform::areOptions(arguments.options, "Rdf", "Rf") || arguments.paths.size() != 1) {
    return platform::verbUsage("rm -R -f [-d] path");
  }
  return platform::verbStatus("rm", platform::removePath(arguments.paths[0]));
}
