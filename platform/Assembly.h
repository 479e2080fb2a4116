#pragma once

#include "platform/Platform.h"

namespace platform {

/// The platform of a backend's services, which are members of these names. They outlive it.
template <typename Services>
[[nodiscard]] Platform assembled(Services& services) {
  return {services.clock,
          services.mainThread,
          services.userInterfaceEvents,
          services.usersAndFolders,
          services.fileQueries,
          services.fileChanges,
          services.fileLocks,
          services.fileAttributes,
          services.folderQueries,
          services.fileReferences,
          services.fileOperations,
          services.fileBrowser,
          services.subprocesses,
          services.applications,
          services.workspace,
          services.authorization,
          services.distributedNotifications,
          services.localNotifications,
          services.desktopNotifications,
          services.clientConnections,
          services.propertyLists,
          services.preferences,
          services.gathering,
          services.alerts,
          services.systemConsole,
          services.mainBundle,
          services.processInformation,
          services.keyboardLayout,
          services.interruption,
          services.desktopApplication};
}

}  // namespace platform
