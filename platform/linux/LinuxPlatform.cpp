#include "platform/Assembly.h"
#include "platform/LocalNotificationCenter.h"
#include "platform/linux/BusAgent.h"
#include "platform/linux/BusClientConnections.h"
#include "platform/linux/BusDesktopNotifications.h"
#include "platform/linux/BusDistributedNotifications.h"
#include "platform/linux/LinuxApplications.h"
#include "platform/linux/LinuxDesktopApplication.h"
#include "platform/linux/LinuxFileAttributes.h"
#include "platform/linux/LinuxFileBrowser.h"
#include "platform/linux/LinuxFileReferences.h"
#include "platform/linux/LinuxMainBundle.h"
#include "platform/linux/LinuxPreferences.h"
#include "platform/linux/LinuxProcessInformation.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "platform/linux/LinuxSubprocesses.h"
#include "platform/linux/LinuxUsersAndFolders.h"
#include "platform/linux/LinuxWorkspace.h"
#include "platform/linux/SudoAuthorization.h"
#include "platform/linux/XkbKeyboardLayout.h"
#include "platform/posix/GuardedFileLocks.h"
#include "platform/posix/GuardedFiles.h"
#include "platform/posix/GuardedGathering.h"
#include "platform/posix/PosixAlerts.h"
#include "platform/posix/PosixClock.h"
#include "platform/posix/PosixFileOperations.h"
#include "platform/posix/PosixFolderQueries.h"
#include "platform/posix/PosixInterruption.h"
#include "platform/posix/PosixMainThread.h"
#include "platform/posix/PosixSystemConsole.h"
#include "platform/posix/PosixUserInterfaceEvents.h"
#include "platform/posix/ProcessSetUp.h"

namespace platform {
namespace {

/// The services, in the order in which they need each other. Making them opens and starts nothing; each does
/// so when it is first asked.
struct LinuxPlatform {
  ProcessSetUp setUp;
  PosixMainThread mainThread;
  PosixClock clock{mainThread};
  PosixUserInterfaceEvents userInterfaceEvents{mainThread};
  LinuxUsersAndFolders usersAndFolders;
  GuardedFileQueries fileQueries;
  GuardedFileChanges fileChanges;
  GuardedFileLocks fileLocks;
  LinuxFileAttributes fileAttributes;
  PosixFolderQueries folderQueries;
  LinuxFileReferences fileReferences;
  PosixFileOperations fileOperations{mainThread, clock};
  LinuxFileBrowser fileBrowser;
  LinuxPropertyLists propertyLists;
  LinuxMainBundle mainBundle{fileQueries, propertyLists};
  LinuxProcessInformation processInformation{fileQueries, propertyLists};
  PosixSystemConsole systemConsole{clock, processInformation};
  LinuxSubprocesses subprocesses{mainThread, mainBundle};
  LinuxApplications applications;
  LinuxWorkspace workspace;
  SudoAuthorization authorization;
  BusAgent busAgent;
  BusDistributedNotifications distributedNotifications{busAgent};
  LocalNotificationCenter localNotifications;
  BusDesktopNotifications desktopNotifications{busAgent};
  BusClientConnections clientConnections{busAgent};
  LinuxPreferences preferences;
  GuardedGathering gathering{fileQueries};
  PosixAlerts alerts;
  XkbKeyboardLayout keyboardLayout;
  PosixInterruption interruption;
  LinuxDesktopApplication desktopApplication{clock, mainThread, alerts, interruption};
  Platform platform = assembled(*this);
};

}  // namespace

Platform& native() {
  // Never freed: threads may still use it while the process ends.
  static auto* const services = new LinuxPlatform();
  return services->platform;
}

}  // namespace platform
