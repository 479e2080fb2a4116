// mkdir -p path, for root in folders that a user controls: FileVerbs.h. What it makes has mode 0755 whatever
// the caller's umask: a program of root's has none (IndependentProcess.h). Exits 0 when all was done, 1 when
// something was not, 64 for wrong arguments.

#include "platform/linux/support/verbs/FileVerbs.h"
#include "platform/linux/support/verbs/VerbMain.h"

int main(int argc, char** argv) {
  constexpr platform::VerbForm kForm{"mkdir", "mkdir -p path", "p", "p", 1};
  return platform::verbMain(argc, argv, kForm,
                            [](const auto& paths) { return platform::makePath(paths[0]); });
}
