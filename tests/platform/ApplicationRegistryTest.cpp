#include "platform/linux/ApplicationRegistry.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <thread>

#include "platform/fakes/FakePlatform.h"
#include "platform/linux/ApplicationBundles.h"
#include "platform/linux/LinuxApplications.h"
#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/AsUser.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;
using foundation::PropertyList;
using support::TemporaryFolder;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class ApplicationRegistryTest : public ::testing::Test {
 protected:
  ApplicationRegistryTest() { ::chmod(computer.path().c_str(), 0755); }

  /// Makes a bundle and answers its path on the computer.
  std::string bundle(const std::string& path, const std::string& identifier) const {
    const PropertyList information = PropertyList::Dictionary{{"CFBundleIdentifier", identifier}};
    computer.file(path.substr(1) + "/Contents/Info.plist",
                  LinuxPropertyLists().serialize(information, PropertyListFormat::xml).value());
    return path;
  }
  [[nodiscard]] std::optional<std::string> found(const std::string& identifier) const {
    return LinuxApplications(computer.path()).pathForIdentifier(identifier);
  }
  OSStatus add(const std::string& path) const {
    return LinuxApplications(computer.path()).registerApplication(path);
  }
  [[nodiscard]] std::string usersRegistry() const {
    return computer.path() + "/Users/alice/Library/Preferences/com.vordenworks.applications.plist";
  }
  [[nodiscard]] std::string rootsRegistry() const { return computer.path() + kApplicationRegistry; }
  static std::vector<std::string> entries(const std::string& registry) {
    return registeredApplications(registry, Trust::anybody);
  }

  fakes::FakePlatform fake;
  TemporaryFolder computer;
};

TEST_F(ApplicationRegistryTest, ARegisteredApplicationIsFoundByItsIdentifierFromNowOn) {
  bundle("/opt/X.app", "com.example.x");
  EXPECT_EQ(found("com.example.x"), std::nullopt);
  EXPECT_EQ(add("/opt/X.app"), noErr);
  EXPECT_EQ(found("com.example.x"), computer.path() + "/opt/X.app");
  EXPECT_THAT(entries(usersRegistry()), ElementsAre("/opt/X.app"));
}

TEST_F(ApplicationRegistryTest, OneThatIsKnownAlreadyIsSuccessAndKeptOnce) {
  bundle("/opt/X.app", "com.example.x");
  EXPECT_EQ(add("/opt/X.app"), noErr);
  EXPECT_EQ(add("/opt/X.app/"), noErr);
  EXPECT_THAT(entries(usersRegistry()), ElementsAre("/opt/X.app"));
}

TEST_F(ApplicationRegistryTest, WhatIsNoApplicationIsNotRegistered) {
  std::filesystem::create_directories(computer / "opt/Empty.app");
  computer.file("opt/file.app");
  computer.file("opt/Broken.app/Contents/Info.plist", "no property list");
  for (const char* const path :
       {"/opt/Empty.app", "/opt/file.app", "/opt/Broken.app", "/opt/missing.app", "", "/"}) {
    EXPECT_EQ(add(path), paramErr) << path;
  }
  EXPECT_FALSE(fs::exists(usersRegistry()));
}

TEST_F(ApplicationRegistryTest, APathThatNoPropertyListCanHoldIsNotRegistered) {
  for (const std::string path : {"/opt/X\xff.app", "/opt/X\x01.app", "/opt/X\xEF\xBF\xBF.app"}) {
    bundle(path, "com.example.x");
    const auto registered = registerApplicationBundle(computer.path(), path);
    ASSERT_FALSE(registered);
    EXPECT_EQ(registered.error().code, ENOTSUP) << testing::PrintToString(path);
    EXPECT_NE(add(path), noErr);
  }
  EXPECT_FALSE(fs::exists(usersRegistry()));
}

TEST_F(ApplicationRegistryTest, EntriesThatAreGoneAreIgnoredAndKept) {
  bundle("/opt/X.app", "com.example.x");
  bundle("/opt/Y.app", "com.example.y");
  EXPECT_EQ(add("/opt/X.app"), noErr);
  fs::rename(computer / "opt/X.app", computer / "opt/elsewhere");
  EXPECT_EQ(found("com.example.x"), std::nullopt);
  EXPECT_EQ(add("/opt/Y.app"), noErr);
  EXPECT_THAT(entries(usersRegistry()), ElementsAre("/opt/X.app", "/opt/Y.app"))
      << "its volume may come back";
  fs::rename(computer / "opt/elsewhere", computer / "opt/X.app");
  EXPECT_EQ(found("com.example.x"), computer.path() + "/opt/X.app");
}

TEST_F(ApplicationRegistryTest, AFullRegistryMakesRoomByDroppingWhatIsGone) {
  PropertyList::Array gone;
  for (std::size_t number = 0; number < kMostBundles; ++number)
    gone.emplace_back("/gone/" + std::to_string(number));
  computer.file("Users/alice/Library/Preferences/com.vordenworks.applications.plist",
                LinuxPropertyLists()
                    .serialize(PropertyList::Dictionary{{"Applications", gone}}, PropertyListFormat::xml)
                    .value());
  bundle("/opt/X.app", "com.example.x");
  EXPECT_EQ(add("/opt/X.app"), noErr);
  EXPECT_THAT(entries(usersRegistry()), ElementsAre("/opt/X.app"));
}

TEST_F(ApplicationRegistryTest, ABrokenRegistryIsReplaced) {
  computer.file("Users/alice/Library/Preferences/com.vordenworks.applications.plist", "broken");
  bundle("/opt/X.app", "com.example.x");
  EXPECT_EQ(add("/opt/X.app"), noErr);
  EXPECT_EQ(found("com.example.x"), computer.path() + "/opt/X.app");
}

TEST_F(ApplicationRegistryTest, TheFolderHoldsTheRegistryAndItsLockAndNothingElse) {
  bundle("/opt/X.app", "com.example.x");
  EXPECT_EQ(add("/opt/X.app"), noErr);
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(fs::path(usersRegistry()).parent_path())) {
    names.push_back(entry.path().filename());
  }
  EXPECT_THAT(names, ::testing::UnorderedElementsAre("com.vordenworks.applications.plist",
                                                     ".com.vordenworks.applications.plist.lock"));
}

TEST_F(ApplicationRegistryTest, ALinkInTheRegistrysPlaceIsReplacedAndNotFollowed) {
  computer.file("precious", "precious");
  std::filesystem::create_directories(computer / "Users/alice/Library/Preferences");
  fs::create_symlink(computer / "precious", usersRegistry());
  bundle("/opt/X.app", "com.example.x");
  EXPECT_EQ(add("/opt/X.app"), noErr);
  EXPECT_EQ(computer.content("precious"), "precious");
  EXPECT_EQ(found("com.example.x"), computer.path() + "/opt/X.app");
}

TEST_F(ApplicationRegistryTest, ALockThatIsNotGivenBackEndsTheWaitAfterFiveSeconds) {
  bundle("/opt/X.app", "com.example.x");
  computer.file("Users/alice/Library/Preferences/.com.vordenworks.applications.plist.lock");
  const UniqueDescriptor held(
      ::open((computer / "Users/alice/Library/Preferences/.com.vordenworks.applications.plist.lock").c_str(),
             O_RDWR));
  ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
  EXPECT_EQ(add("/opt/X.app"), fBsyErr);
  EXPECT_THAT(fake.recorder.lines(), AllOf(SizeIs(500), Each("sleep 10ms")));
  EXPECT_FALSE(fs::exists(usersRegistry()));
}

TEST_F(ApplicationRegistryTest, RegistrationsAtTheSameTimeLoseNothing) {
  constexpr int processes = 6;
  constexpr int each = 15;
  const auto name = [](int process, int number) {
    return "x" + std::to_string(process) + "." + std::to_string(number);
  };
  std::vector<pid_t> children;
  for (int process = 0; process < processes; ++process) {
    const pid_t child = ::fork();
    if (child == 0) {
      for (int number = 0; number < each; ++number) {
        bundle("/opt/" + name(process, number) + ".app", name(process, number));
        // The fake clock does not wait; whoever finds the lock held for all of its attempts comes again.
        while (add("/opt/" + name(process, number) + ".app") == fBsyErr) std::this_thread::yield();
      }
      ::_exit(0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) ::waitpid(child, nullptr, 0);
  EXPECT_THAT(entries(usersRegistry()), SizeIs(processes * each));
}

TEST_F(ApplicationRegistryTest, RootRegistersForEverybodyInAFileOfItsOwn) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  fake.users.user = 0;
  ::umask(0);
  bundle("/opt/X.app", "com.example.x");
  EXPECT_EQ(add("/opt/X.app"), noErr);
  EXPECT_EQ(found("com.example.x"), computer.path() + "/opt/X.app");
  struct stat status {};
  ASSERT_EQ(::stat(rootsRegistry().c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
  ASSERT_EQ(::stat((computer / "Library/Preferences").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
  ASSERT_EQ(
      ::stat((computer / "Library/Preferences/.com.vordenworks.applications.plist.lock").c_str(), &status),
      0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U) << "nobody else can hold it";
  fake.users.user = 501;
  EXPECT_EQ(found("com.example.x"), computer.path() + "/opt/X.app");
}

TEST_F(ApplicationRegistryTest, RootDoesNotSeeWhatUsersRegister) {
  bundle("/opt/X.app", "com.example.x");
  EXPECT_EQ(add("/opt/X.app"), noErr);
  fake.users.user = 0;
  EXPECT_EQ(found("com.example.x"), std::nullopt);
}

TEST_F(ApplicationRegistryTest, RootReplacesARegistryThatSomebodyElsePutThere) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  bundle("/opt/X.app", "com.example.x");
  bundle("/opt/Evil.app", "com.example.evil");
  EXPECT_EQ(add("/opt/Evil.app"), noErr);
  std::filesystem::create_directories(computer / "Library/Preferences");
  fs::rename(usersRegistry(), rootsRegistry());
  ASSERT_EQ(::chown(rootsRegistry().c_str(), support::kNobody, support::kNobody), 0);
  fake.users.user = 0;
  EXPECT_EQ(add("/opt/X.app"), noErr);
  EXPECT_THAT(entries(rootsRegistry()), ElementsAre("/opt/X.app"));
  EXPECT_EQ(found("com.example.x"), computer.path() + "/opt/X.app");
}

TEST_F(ApplicationRegistryTest, RootFollowsNoLinkOfAUsersToTheFolder) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  fake.users.user = 0;
  bundle("/opt/X.app", "com.example.x");
  std::filesystem::create_directories(computer / "elsewhere");
  std::filesystem::create_directories(computer / "Library");
  fs::create_directory_symlink(computer / "elsewhere", computer / "Library/Preferences");
  ASSERT_EQ(::lchown((computer / "Library/Preferences").c_str(), support::kNobody, support::kNobody), 0);
  EXPECT_NE(add("/opt/X.app"), noErr);
  EXPECT_TRUE(fs::is_empty(computer / "elsewhere"));
}

}  // namespace
}  // namespace platform
