/// enter-workstation: runs a command in a Mac volume, and ends as the command ends.

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <utility>

#include "workstation/Visit.h"
#include "workstation/programs/CommandLine.h"

namespace workstation {
namespace {

constexpr int failedStatus = 125;

constexpr const char* help =
    R"(usage: enter-workstation VOLUME [options] -- COMMAND [ARGUMENT]...

Runs COMMAND with the Mac volume in the folder VOLUME as its root folder. Ends with the command's status, with
128 and a signal's number, or with 125 if the volume could not be entered. Needs root.

  --user NAME          as one of the volume's users (root)
  --console NAME       this user sits at the console, or nobody, whatever the volume says
  --bundle PATH        an application bundle, at /Applications/Quillmend.app inside
  --ro PATH=INSIDE     a further file or folder, read-only
  --rw PATH=INSIDE     the same, writable
  --setenv NAME=VALUE  in the command's environment
  --system-bus         with a D-Bus system bus too
  --no-session-bus     without the console user's session bus
  --notifications HOW  keep them, click on them, or let them expire (keep)
  --patience SECONDS   for tools that outlive the command (30)
  --without CAPABILITY root without it, for example dac_override
)";

std::pair<std::string, std::string> parted(const std::string& option, const std::string& text) {
  const auto equals = text.find('=');
  if (equals == std::string::npos) throw std::invalid_argument(option + " needs two parts, A=B");
  return {text.substr(0, equals), text.substr(equals + 1)};
}

NotificationAnswer answerFrom(const std::string& word) {
  if (word == "keep") return NotificationAnswer::keep;
  if (word == "click") return NotificationAnswer::click;
  if (word == "expire") return NotificationAnswer::expire;
  throw std::invalid_argument("--notifications takes keep, click or expire");
}

void apply(const std::string& option, CommandLine& line, VisitOptions& options) {
  if (option == "--system-bus") {
    options.systemBus = true;
  } else if (option == "--no-session-bus") {
    options.sessionBus = false;
  } else if (option == "--user") {
    options.user = line.valueOf(option);
  } else if (option == "--console") {
    const auto& user = line.valueOf(option);
    options.consoleUser = user == "nobody" ? "" : user;
  } else if (option == "--bundle") {
    options.bundle = line.valueOf(option);
  } else if (option == "--ro") {
    options.readOnly.emplace_back(parted(option, line.valueOf(option)));
  } else if (option == "--rw") {
    options.readWrite.emplace_back(parted(option, line.valueOf(option)));
  } else if (option == "--setenv") {
    options.environment.push_back(parted(option, line.valueOf(option)));
  } else if (option == "--notifications") {
    options.notifications = answerFrom(line.valueOf(option));
  } else if (option == "--patience") {
    options.patience = std::chrono::seconds(std::stol(line.valueOf(option)));
  } else if (option == "--without") {
    options.withoutCapabilities.push_back(line.valueOf(option));
  } else {
    throw std::invalid_argument("unknown option " + option);
  }
}

Visit* current = nullptr;

void passOn(int number) {
  current->signal(number);
}

int go(const Volume& volume, const std::vector<std::string>& command, const VisitOptions& options) {
  Visit visit(volume, command, options);
  current = &visit;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) ::signal(number, passOn);
  const auto result = visit.wait();
  std::fputs(result.error.c_str(), stderr);
  return result.status;
}

int run(CommandLine line) {
  if (line.empty()) throw std::invalid_argument("no volume is given (--help lists the options)");
  const Volume volume(line.take());
  if (volume.folder() == "--help") return std::fputs(help, stdout), 0;
  VisitOptions options{.output = Output::inherit};
  while (!line.empty()) {
    const auto option = line.take();
    if (option == "--") return go(volume, line.rest(), options);
    apply(option, line, options);
  }
  throw std::invalid_argument("no command is given after --");
}

}  // namespace
}  // namespace workstation

int main(int argc, char** argv) {
  try {
    return workstation::run({argc, argv});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "enter-workstation: %s\n", error.what());
    return workstation::failedStatus;
  }
}
