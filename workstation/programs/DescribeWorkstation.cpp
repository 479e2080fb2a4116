/// describe-workstation: tells what is on a volume, or what became of it.

#include <cstdio>
#include <optional>
#include <string>

#include "workstation/Report.h"
#include "workstation/programs/CommandLine.h"

namespace workstation {
namespace {

constexpr const char* help =
    R"(usage: describe-workstation VOLUME [--save FILE] [--since FILE]

Tells what is on the workstation in the folder VOLUME.

  --save FILE   writes down what is on it now, and tells nothing
  --since FILE  tells what became of it since then, and what its last visit did
)";

int run(CommandLine line) {
  if (line.empty()) throw std::invalid_argument("no volume is given (--help lists the options)");
  const Volume volume(line.take());
  if (volume.folder() == "--help") return std::fputs(help, stdout), 0;
  if (!volume.looksLikeMac()) throw std::invalid_argument(volume.folder().string() + " holds no Mac volume");
  const auto now = takeSnapshot(volume);
  if (line.empty()) return std::fputs(volumeReport(volume, now).c_str(), stdout), 0;
  while (!line.empty()) {
    const auto option = line.take();
    if (option == "--save") {
      saveSnapshot(now, line.valueOf(option));
    } else if (option == "--since") {
      std::fputs(visitReport(volume, loadSnapshot(line.valueOf(option)), now).c_str(), stdout);
    } else {
      throw std::invalid_argument("unknown option " + option);
    }
  }
  return 0;
}

}  // namespace
}  // namespace workstation

int main(int argc, char** argv) {
  try {
    return workstation::run({argc, argv});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "describe-workstation: %s\n", error.what());
    return 1;
  }
}
