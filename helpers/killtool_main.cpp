#include "helpers/KillTool.h"
#include "helpers/ToolMain.h"

int main(int argc, char** argv) {
  return helpers::toolMain(argc, argv, "killtool", [](const auto& arguments, helpers::Report& report) {
    return helpers::KillTool(platform::ProcessTable(), {}, report).run(arguments);
  });
}
