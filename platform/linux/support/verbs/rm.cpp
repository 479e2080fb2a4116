// rm -R -f [-d] path, for root in folders that a user controls: FileVerbs.h.
// Exits 0 when all was done, 1 when something was not, 64 for wrong arguments.

#include "platform/linux/support/verbs/FileVerbs.h"
#include "platform/linux/support/verbs/VerbMain.h"

int main(int argc, char** argv) {
  constexpr platform::VerbForm kForm{"rm", "rm -R -f [-d] path", "Rdf", "Rf", 1};
  return platform::verbMain(argc, argv, kForm,
                            [](const auto& paths) { return platform::removePath(paths[0]); });
}
