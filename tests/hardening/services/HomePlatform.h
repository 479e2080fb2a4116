#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "platform/foundation/Paths.h"

namespace hardening {

/// One user, whose home is the folder given; there is no console user, and nobody else's home is known.
class HomeFolder : public platform::UsersAndFolders {
 public:
  explicit HomeFolder(std::string home) : home_(std::move(home)) {}
  uid_t userID() override { return 501; }
  bool setUserID(uid_t) override { return false; }
  std::string homeDirectory() override { return home_; }
  std::string userName() override { return "alice"; }
  std::optional<std::string> homeDirectoryForUser(const std::optional<std::string>&) override {
    return std::nullopt;
  }
  std::optional<std::string> consoleUser() override { return std::nullopt; }
  std::vector<std::string> searchPaths(platform::SearchPathDirectory,
                                       platform::SearchPathDomain domain) override {
    const bool isUsers = domain == platform::SearchPathDomain::user;
    return {foundation::appendingPathComponent(home_, isUsers ? "Library" : "Machine/Library")};
  }
  std::string temporaryDirectory() override { return home_; }

 private:
  std::string home_;
};

/// What is said goes to standard output, a line each.
class PrintedConsole : public platform::SystemConsole {
 public:
  void write(const std::string& message) override { std::printf("%s\n", message.c_str()); }
};

/// This computer with another home folder and console, and another clock if one is given.
class HomePlatform {
 public:
  explicit HomePlatform(std::string home, platform::Clock& clock = platform::current().clock)
      : clock_(clock), users_(std::move(home)) {}

 private:
  platform::Clock& clock_;
  HomeFolder users_;
  PrintedConsole console_;
  platform::Platform& own_ = platform::current();
  platform::Platform platform_{clock_,
                               own_.mainThread,
                               own_.userInterfaceEvents,
                               users_,
                               own_.fileQueries,
                               own_.fileChanges,
                               own_.fileLocks,
                               own_.fileAttributes,
                               own_.folderQueries,
                               own_.fileReferences,
                               own_.fileOperations,
                               own_.fileBrowser,
                               own_.subprocesses,
                               own_.applications,
                               own_.workspace,
                               own_.authorization,
                               own_.distributedNotifications,
                               own_.localNotifications,
                               own_.desktopNotifications,
                               own_.clientConnections,
                               own_.propertyLists,
                               own_.preferences,
                               own_.gathering,
                               own_.alerts,
                               console_,
                               own_.mainBundle,
                               own_.processInformation,
                               own_.keyboardLayout,
                               own_.interruption,
                               own_.desktopApplication};
  platform::PlatformScope scope_{platform_};
};

}  // namespace hardening
