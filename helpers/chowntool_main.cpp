#include "helpers/ChownTool.h"
#include "helpers/ToolMain.h"

int main(int argc, char** argv) {
  return helpers::toolMain(argc, argv, "chowntool", [](const auto& arguments, helpers::Report& report) {
    const helpers::Surroundings surroundings = helpers::thisComputer();
    return helpers::ChownTool(surroundings, report).run(arguments);
  });
}
