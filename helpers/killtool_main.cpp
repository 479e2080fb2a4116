#include "helpers/KillTool.h"
#include "platform/posix/ToolMain.h"

int main(int argc, char** argv) {
  return platform::toolMain(argc, argv, "killtool", [](const auto& arguments, platform::Report& report) {
    return helpers::KillTool(platform::ProcessTable(), {}, report).run(arguments);
  });
}
