#include <stdio.h>  // NOLINT: a program in C, compiled here

int main() {
  puts(
      "\nQuillmend Help\n\n-help - Displays command listings.\n-repair - Activates command-line mode and "
      "starts the repair "
      "automatically.\n-silent - Suppresses output (ignored if -repair is not set).\n-trash - Trashes "
      "preferences and "
      "window layouts (ignored if -repair is not set).\n-trashPrefs - Trashes preferences (ignored if "
      "-repair is not "
      "set).\n-trashlayout - Trashes window layout (ignored if -repair is not set).");
  return 0;
}
