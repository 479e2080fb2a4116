#include "helpers/ToolMain.h"
#include "helpers/TrashTool.h"
#include "platform/posix/ConsoleUserName.h"

int main(int argc, char** argv) {
  return helpers::toolMain(argc, argv, "trashtool", [](const auto& arguments, helpers::Report& report) {
    const helpers::Surroundings surroundings = helpers::thisComputer([] { return platform::consoleUser(); });
    return helpers::TrashTool(surroundings, report).run(arguments);
  });
}
