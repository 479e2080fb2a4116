#include "helpers/ChownTool.h"
#include "platform/posix/ToolMain.h"

int main(int argc, char** argv) {
  return platform::toolMain(argc, argv, "chowntool", [](const auto& arguments, platform::Report& report) {
    const helpers::Surroundings surroundings = helpers::thisComputer();
    return helpers::ChownTool(surroundings, report).run(arguments);
  });
}
