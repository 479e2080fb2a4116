#include "helpers/TrashTool.h"
#include "platform/posix/ConsoleUserName.h"
#include "platform/posix/ToolMain.h"

int main(int argc, char** argv) {
  return platform::toolMain(argc, argv, "trashtool", [](const auto& arguments, platform::Report& report) {
    const helpers::Surroundings surroundings = helpers::thisComputer([] { return platform::consoleUser(); });
    return helpers::TrashTool(surroundings, report).run(arguments);
  });
}
