#include "platform/Assembly.h"
#include "platform/LocalNotificationCenter.h"
#include "platform/macos/MacAlerts.h"
#include "platform/macos/MacApplications.h"
#include "platform/macos/MacAuthorization.h"
#include "platform/macos/MacClientConnections.h"
#include "platform/macos/MacDesktopApplication.h"
#include "platform/macos/MacDesktopNotifications.h"
#include "platform/macos/MacDistributedNotifications.h"
#include "platform/macos/MacFileAttributes.h"
#include "platform/macos/MacFileBrowser.h"
#include "platform/macos/MacFileOperations.h"
#include "platform/macos/MacFileReferences.h"
#include "platform/macos/MacKeyboardLayout.h"
#include "platform/macos/MacMainBundle.h"
#include "platform/macos/MacPreferences.h"
#include "platform/macos/MacProcessInformation.h"
#include "platform/macos/MacPropertyLists.h"
#include "platform/macos/MacUsersAndFolders.h"
#include "platform/macos/MacWorkspace.h"
#include "platform/posix/GuardedFileLocks.h"
#include "platform/posix/GuardedFiles.h"
#include "platform/posix/GuardedGathering.h"
#include "platform/posix/PosixClock.h"
#include "platform/posix/PosixFolderQueries.h"
#include "platform/posix/PosixInterruption.h"
#include "platform/posix/PosixMainThread.h"
#include "platform/posix/PosixSubprocesses.h"
#include "platform/posix/PosixSystemConsole.h"
#include "platform/posix/PosixUserInterfaceEvents.h"
#include "platform/posix/ProcessSetUp.h"

namespace platform {
namespace {

/// The services, in the order in which they need each other. Making them opens and starts nothing; each does
/// so when it is first asked.
struct MacPlatform {
  ProcessSetUp setUp;
  PosixMainThread mainThread;
  PosixClock clock{mainThread};
  PosixUserInterfaceEvents userInterfaceEvents{mainThread};
  MacUsersAndFolders usersAndFolders;
  GuardedFileQueries fileQueries;
  GuardedFileChanges fileChanges;
  GuardedFileLocks fileLocks;
  MacFileAttributes fileAttributes;
  PosixFolderQueries folderQueries;
  MacFileReferences fileReferences;
  MacFileOperations fileOperations{mainThread, clock};
  MacFileBrowser fileBrowser;
  MacPropertyLists propertyLists;
  MacMainBundle mainBundle;
  MacProcessInformation processInformation;
  PosixSystemConsole systemConsole{clock, processInformation};
  PosixSubprocesses subprocesses{mainThread, watchByThread, {}};
  MacApplications applications;
  MacWorkspace workspace;
  MacAuthorization authorization;
  MacDistributedNotifications distributedNotifications;
  LocalNotificationCenter localNotifications;
  MacDesktopNotifications desktopNotifications;
  MacClientConnections clientConnections;
  MacPreferences preferences;
  GuardedGathering gathering{fileQueries};
  MacAlerts alerts;
  MacKeyboardLayout keyboardLayout{mainThread};
  PosixInterruption interruption;
  MacDesktopApplication desktopApplication{clock, mainThread, alerts, interruption};
  Platform platform = assembled(*this);
};

}  // namespace

Platform& native() {
  // Never freed: threads may still use it while the process ends.
  static auto* const services = new MacPlatform();
  return services->platform;
}

}  // namespace platform
