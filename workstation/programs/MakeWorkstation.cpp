/// make-workstation: makes a sample workstation's volume in a folder.

#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "workstation/Volume.h"
#include "workstation/programs/CommandLine.h"

namespace workstation {
namespace {

constexpr const char* help =
    R"(usage: make-workstation [options] FOLDER

Makes a Mac's startup volume in FOLDER, which must be missing or empty.

  --compressor VERSION[@PATH]  a copy of Compressor, for example 3.5.3 or 4.1.2@/Applications/Edit/Compressor.app
  --running                    alice has the copies named before this option open
  --batch-monitor              alice has Batch Monitor open
  --status-menu                the menu-bar item runs
  --qmaster-stopped            the Qmaster daemons do not run
  --console USER               who is at the console: alice, bob, root, greeter or nobody (alice)
  --computer-name NAME         ("Edit Suite 4")
  --local-host-name NAME       ("edit-suite-4")
  --no-wheel                   group 0 is called root
  --log-folder                 /Library/Logs/Vordenworks is there
  --no-trash                   the users have no .Trash yet
  --no-preferences, --no-layout, --no-caches, --no-history
  --spool-files NUMBER         spool data, dealt out to the spool folders (12)
  --spool PATH                 the spool folder that Compressor 3's services file names; "" for none
  --spool-4 PATH               that of Compressor 4's; may begin with ~
  --shortcut-key-manager       the maker's program for keyboard shortcuts is installed
  --software-update NUMBER     the maker's updater is installed, of that version
  --damage NAME[:PATH]         as often as wanted; the names are:

)";

void printHelp() {
  std::fputs(help, stdout);
  for (const auto& [name, needsPath, effect] : damageNames()) {
    const auto form = std::string(name) + (needsPath ? ":PATH" : "");
    std::printf("      %-22s %s\n", form.c_str(), std::string(effect).c_str());
  }
}

CompressorCopy parseCopy(const std::string& text) {
  const auto at = text.find('@');
  return {.version = text.substr(0, at), .path = at == std::string::npos ? "" : text.substr(at + 1)};
}

Damage damageFrom(const std::string& text) {
  const auto damage = parseDamage(text);
  if (!damage) throw std::invalid_argument("no such damage: " + text);
  return *damage;
}

using Handler = std::function<void(Plan&, CommandLine&)>;

std::map<std::string, Handler> optionHandlers() {
  const auto flag = [](bool Plan::*member, bool value) {
    return [member, value](Plan& plan, CommandLine&) { plan.*member = value; };
  };
  const auto text = [](const char* name, auto member) {
    return [name, member](Plan& plan, CommandLine& line) { plan.*member = line.valueOf(name); };
  };
  return {
      {"--compressor",
       [](Plan& plan, CommandLine& line) {
         plan.compressors.push_back(parseCopy(line.valueOf("--compressor")));
       }},
      {"--running",
       [](Plan& plan, CommandLine&) {
         for (auto& copy : plan.compressors) copy.running = true;
       }},
      {"--batch-monitor", flag(&Plan::batchMonitorRunning, true)},
      {"--status-menu", flag(&Plan::statusMenuRunning, true)},
      {"--qmaster-stopped", flag(&Plan::qmasterRunning, false)},
      {"--console",
       [](Plan& plan, CommandLine& line) {
         const auto& user = line.valueOf("--console");
         plan.consoleUser = user == "nobody" ? "" : user;
       }},
      {"--computer-name", text("--computer-name", &Plan::computerName)},
      {"--local-host-name", text("--local-host-name", &Plan::localHostName)},
      {"--no-wheel", flag(&Plan::wheelGroup, false)},
      {"--log-folder", flag(&Plan::logFolder, true)},
      {"--no-trash", flag(&Plan::trashFolder, false)},
      {"--no-preferences", flag(&Plan::preferences, false)},
      {"--no-layout", flag(&Plan::layout, false)},
      {"--no-caches", flag(&Plan::caches, false)},
      {"--no-history", flag(&Plan::history, false)},
      {"--spool-files",
       [](Plan& plan, CommandLine& line) { plan.spoolFiles = std::stoul(line.valueOf("--spool-files")); }},
      {"--spool", text("--spool", &Plan::configuredSpool)},
      {"--spool-4", text("--spool-4", &Plan::configuredFourSpool)},
      {"--shortcut-key-manager", flag(&Plan::shortcutKeyManager, true)},
      {"--software-update", text("--software-update", &Plan::softwareUpdate)},
      {"--damage",
       [](Plan& plan, CommandLine& line) { plan.damage.push_back(damageFrom(line.valueOf("--damage"))); }},
  };
}

int run(CommandLine line) {
  const auto handlers = optionHandlers();
  Plan plan;
  while (!line.empty() && line.peek().starts_with('-')) {
    const auto option = line.take();
    if (option == "--help") return printHelp(), 0;
    const auto handler = handlers.find(option);
    if (handler == handlers.end()) throw std::invalid_argument("unknown option " + option);
    handler->second(plan, line);
  }
  const auto folders = line.rest();
  if (folders.size() != 1) throw std::invalid_argument("one folder is needed (--help lists the options)");
  makeVolume(folders[0], plan);
  return 0;
}

}  // namespace
}  // namespace workstation

int main(int argc, char** argv) {
  try {
    return workstation::run({argc, argv});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make-workstation: %s\n", error.what());
    return 1;
  }
}
