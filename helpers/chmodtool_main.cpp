#include "helpers/ChmodTool.h"
#include "helpers/ToolMain.h"

int main(int argc, char** argv) {
  return helpers::toolMain(argc, argv, "chmodtool", [](const auto& arguments, helpers::Report& report) {
    const helpers::Surroundings surroundings = helpers::thisComputer();
    return helpers::ChmodTool(surroundings, report).run(arguments);
  });
}
