#pragma once

#include "platform/Alerts.h"
#include "platform/Applications.h"
#include "platform/Authorization.h"
#include "platform/ClientConnections.h"
#include "platform/Clock.h"
#include "platform/DesktopApplication.h"
#include "platform/FileAttributes.h"
#include "platform/FileBrowser.h"
#include "platform/FileLocks.h"
#include "platform/FileOperations.h"
#include "platform/FileReferences.h"
#include "platform/Files.h"
#include "platform/FolderQueries.h"
#include "platform/Gathering.h"
#include "platform/KeyboardLayout.h"
#include "platform/MainBundle.h"
#include "platform/MainThread.h"
#include "platform/Notifications.h"
#include "platform/Preferences.h"
#include "platform/ProcessInformation.h"
#include "platform/PropertyLists.h"
#include "platform/Subprocesses.h"
#include "platform/SystemConsole.h"
#include "platform/UserInterfaceEvents.h"
#include "platform/UsersAndFolders.h"
#include "platform/Workspace.h"

namespace platform {

/// Everything that the program asks of the system it runs on.
struct Platform {
  Clock& clock;
  MainThread& mainThread;
  UserInterfaceEvents& userInterfaceEvents;
  UsersAndFolders& usersAndFolders;
  FileQueries& fileQueries;
  FileChanges& fileChanges;
  FileLocks& fileLocks;
  FileAttributes& fileAttributes;
  FolderQueries& folderQueries;
  FileReferences& fileReferences;
  FileOperations& fileOperations;
  FileBrowser& fileBrowser;
  Subprocesses& subprocesses;
  Applications& applications;
  Workspace& workspace;
  Authorization& authorization;
  DistributedNotifications& distributedNotifications;
  LocalNotifications& localNotifications;
  DesktopNotifications& desktopNotifications;
  ClientConnections& clientConnections;
  PropertyLists& propertyLists;
  Preferences& preferences;
  Gathering& gathering;
  Alerts& alerts;
  SystemConsole& systemConsole;
  MainBundle& mainBundle;
  ProcessInformation& processInformation;
  KeyboardLayout& keyboardLayout;
  Interruption& interruption;
  DesktopApplication& desktopApplication;
};

/// This process's platform: the backend's, unless a scope has installed its own.
[[nodiscard]] Platform& current();

/// The backend's platform; made on first use, never freed. Each backend defines it.
[[nodiscard]] Platform& native();

/// Installs another platform for the length of a scope, for every thread. Scopes nest.
class PlatformScope {
 public:
  explicit PlatformScope(Platform& replacement);
  ~PlatformScope();
  PlatformScope(const PlatformScope&) = delete;
  PlatformScope& operator=(const PlatformScope&) = delete;

 private:
  Platform* previous_;
};

}  // namespace platform
