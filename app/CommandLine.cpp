#include "app/CommandLine.h"

#include <optional>

#include "app/MainInterface.h"
#include "app/TGAppController.h"
#include "diagnostics/TGException.h"
#include "diagnostics/TGLog.h"
#include "platform/Platform.h"
#include "platform/foundation/Text.h"

using namespace std::chrono_literals;

namespace {

constexpr const char* kHelp =
    "\nQuillmend Help\n\n"
    "-help - Displays command listings.\n"
    "-repair - Activates command-line mode and starts the repair automatically.\n"
    "-silent - Suppresses output (ignored if -repair is not set).\n"
    "-trash - Trashes preferences and window layouts (ignored if -repair is not set).\n"
    "-trashPrefs - Trashes preferences (ignored if -repair is not set).\n"
    "-trashlayout - Trashes window layout (ignored if -repair is not set).";

struct RepairFlags {
  bool repair = false;
  ShouldTrash shouldTrash = ShouldTrash::no;
  ShouldResetLayout shouldResetLayout = ShouldResetLayout::no;
  Silent isSilent = Silent::no;
};

/// As puts(3). An output that cannot be written to is nobody's loss.
void printLine(const char* text, std::FILE* output) {
  if (std::fputs(text, output) >= 0) std::fputc('\n', output);
  std::fflush(output);
}

/// Runs the work with a controller without a window, and lets nothing of it get lost: not the clean exit that
/// the controller stamps at its end, not a line of the log.
template <typename Work>
void withController(Work work) {
  guarded("main", [&] {
    const auto controller = TGAppController::initWithoutGUI();
    work(*controller);
  });
  TGLog::finishWriting();
}

void restartSharing(TGAppController& controller) {
  controller.qmasterStopSharing();
  platform::current().clock.sleep(1s);
  controller.qmasterStartSharing();
}

/// Does what a sharing command says; false for every other argument.
bool runSharingCommand(const std::string& argument) {
  if (argument == "-stopsharing") {
    withController([](TGAppController& controller) { controller.qmasterStopSharing(); });
  } else if (argument == "-startsharing") {
    withController([](TGAppController& controller) { controller.qmasterStartSharing(); });
  } else if (argument == "-restartsharing") {
    withController(restartSharing);
  } else {
    return false;
  }
  return true;
}

void noteFlag(const std::string& argument, RepairFlags& flags) {
  // "-auto" is what installed schedules say; the help does not offer it.
  if (argument == "-repair" || argument == "-auto") flags.repair = true;
  if (argument == "-silent") flags.isSilent = Silent::yes;
  if (argument == "-trash" || argument == "-trashprefs") flags.shouldTrash = ShouldTrash::yes;
  if (argument == "-trash" || argument == "-trashlayout") flags.shouldResetLayout = ShouldResetLayout::yes;
}

void runRepair(const RepairFlags& flags) {
  auto& system = platform::current();
  // Not granted, the repair goes on as who we are, and asks for rights where it needs them.
  static_cast<void>(system.usersAndFolders.setUserID(0));
  system.interruption.defer();
  withController([&](TGAppController& controller) {
    controller.startRepair(flags.shouldTrash, flags.shouldResetLayout, flags.isSilent);
  });
  system.interruption.deliver();
}

}  // namespace

int runCommandLine(const std::vector<std::string>& arguments, std::FILE* output) {
  RepairFlags flags;
  for (const std::string& given : arguments) {
    const std::string argument = foundation::lowercase(given);
    if (argument == "-help") {
      printLine(kHelp, output);
      return 0;
    }
    if (runSharingCommand(argument)) return 0;
    noteFlag(argument, flags);
  }
  if (!flags.repair) return runDesktopApplication(arguments);
  runRepair(flags);
  return 0;
}
