#include <cstdlib>
#include <iostream>
#include <string>

#include "platform/foundation/Identifiers.h"
#include "ui/ShortcutKeyAssignments.h"

/// One of the programs that assign shortcut keys at the same time: assign_keys NAME COUNT appends as many
/// entries of that application to the list in $HOME, each in a change of its own, and says how many were
/// written.
int main(int, char** argv) {
  const std::string name = argv[1];
  const int count = std::atoi(argv[2]);  // NOLINT(cert-err34-c): the test's own number
  int written = 0;
  for (int number = 0; number < count; ++number) {
    const auto isWritten = shortcutkeys::changeAssignments(
        shortcutkeys::WhenMissing::create, [&](shortcutkeys::WatchList& list) {
          list.append(foundation::PropertyList::Dictionary{{"bundleid", name},
                                                           {"commandid", std::to_string(number)}});
        });
    written += isWritten ? 1 : 0;
  }
  std::cout << written << std::endl;
}
