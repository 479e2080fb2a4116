#include "platform/unimplemented/UnimplementedPlatform.h"

#include "platform/Assembly.h"

namespace platform {
namespace {

struct UnimplementedPlatform {
  UnimplementedClock clock;
  UnimplementedMainThread mainThread;
  UnimplementedUserInterfaceEvents userInterfaceEvents;
  UnimplementedUsersAndFolders usersAndFolders;
  UnimplementedFileQueries fileQueries;
  UnimplementedFileChanges fileChanges;
  UnimplementedFileLocks fileLocks;
  UnimplementedFileAttributes fileAttributes;
  UnimplementedFolderQueries folderQueries;
  UnimplementedFileReferences fileReferences;
  UnimplementedFileOperations fileOperations;
  UnimplementedFileBrowser fileBrowser;
  UnimplementedSubprocesses subprocesses;
  UnimplementedApplications applications;
  UnimplementedWorkspace workspace;
  UnimplementedAuthorization authorization;
  UnimplementedDistributedNotifications distributedNotifications;
  UnimplementedLocalNotifications localNotifications;
  UnimplementedDesktopNotifications desktopNotifications;
  UnimplementedClientConnections clientConnections;
  UnimplementedPropertyLists propertyLists;
  UnimplementedPreferences preferences;
  UnimplementedGathering gathering;
  UnimplementedAlerts alerts;
  UnimplementedSystemConsole systemConsole;
  UnimplementedMainBundle mainBundle;
  UnimplementedProcessInformation processInformation;
  UnimplementedKeyboardLayout keyboardLayout;
  UnimplementedInterruption interruption;
  UnimplementedDesktopApplication desktopApplication;
  Platform platform = assembled(*this);
};

}  // namespace

Platform& native() {
  static auto* const services = new UnimplementedPlatform();
  return services->platform;
}

}  // namespace platform
