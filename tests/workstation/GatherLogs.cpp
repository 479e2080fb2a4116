// GatherLogs NAME [FILE...]: gathers an application's logs and further files as the menu action does. Exit
// status: 0 when an archive was written, 1 when not.

#include "diagnostics/TGTroubleshootingUtils.h"

int main(int argc, char* argv[]) {
  if (argc < 2) return 64;
  const std::vector<std::string> additionalFiles(argv + 2, argv + argc);
  return TGTroubleshootingUtils::gatherLogsForAppsWithNames({argv[1]}, GatherSilently::no, additionalFiles)
             ? 0
             : 1;
}
