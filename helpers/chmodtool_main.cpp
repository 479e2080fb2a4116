#include "helpers/ChmodTool.h"
#include "platform/posix/ToolMain.h"

int main(int argc, char** argv) {
  return platform::toolMain(argc, argv, "chmodtool", [](const auto& arguments, platform::Report& report) {
    const helpers::Surroundings surroundings = helpers::thisComputer();
    return helpers::ChmodTool(surroundings, report).run(arguments);
  });
}
