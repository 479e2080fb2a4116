#include "platform/linux/LinuxFileBrowser.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/AsUser.h"
#include "tests/support/TemporaryFolder.h"

namespace platform {
namespace {

using support::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Watches a folder as a file browser does; answers the names of the entries whose attributes changed.
class Watcher {
 public:
  explicit Watcher(const std::string& folder) : queue_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    EXPECT_GE(::inotify_add_watch(queue_.get(), folder.c_str(), IN_ALL_EVENTS), 0);
  }
  std::vector<std::string> changed() {
    std::vector<std::string> names;
    alignas(inotify_event) std::array<char, 4096> buffer{};
    const ssize_t length = ::read(queue_.get(), buffer.data(), buffer.size());
    for (ssize_t at = 0; at < length;) {
      const auto* const event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
      EXPECT_EQ(event->mask & ~static_cast<unsigned>(IN_ISDIR), static_cast<unsigned>(IN_ATTRIB));
      names.emplace_back(event->len == 0 ? "" : static_cast<const char*>(event->name));
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    return names;
  }

 private:
  UniqueDescriptor queue_;
};

class LinuxFileBrowserTest : public ::testing::Test {
 protected:
  TemporaryFolder folder;
  LinuxFileBrowser browser;
};

TEST_F(LinuxFileBrowserTest, WhoWatchesTheFolderHearsOfTheItem) {
  folder.file("file", "x");
  std::filesystem::create_directories(folder / "sub");
  std::filesystem::create_symlink("nowhere", folder / "link");
  Watcher watcher(folder.path());
  for (const char* const name : {"file", "sub", "link"}) {
    EXPECT_EQ(browser.itemChanged(folder / name), noErr);
    EXPECT_THAT(watcher.changed(), ElementsAre(name));
  }
}

TEST_F(LinuxFileBrowserTest, WhoWatchesAFolderHearsThatItChangedItself) {
  Watcher watcher(folder.path());
  EXPECT_EQ(browser.itemChanged(folder.path()), noErr);
  EXPECT_THAT(watcher.changed(), ElementsAre(""));
}

TEST_F(LinuxFileBrowserTest, NeitherContentNorTimesChange) {
  const std::string file = folder.file("file", "content");
  const timespec times[] = {{1'000'000'000, 123'456'789}, {1'100'000'000, 987'654'321}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  EXPECT_EQ(browser.itemChanged(file), noErr);
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mtim.tv_sec, 1'100'000'000);
  EXPECT_EQ(status.st_mtim.tv_nsec, 987'654'321);
  EXPECT_EQ(status.st_atim.tv_nsec, 123'456'789);
  EXPECT_EQ(folder.content("file"), "content");
}

TEST_F(LinuxFileBrowserTest, WhatIsMissingAndWhatIsSomebodyElsesAreErrors) {
  EXPECT_EQ(browser.itemChanged(folder / "missing"), fnfErr);
  EXPECT_EQ(browser.itemChanged(""), fnfErr);
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to be somebody else";
  folder.file("file");
  ::chmod(folder.path().c_str(), 0755);
  support::AsUser::run(support::kNobody,
                       [this] { EXPECT_EQ(browser.itemChanged(folder / "file"), permErr); });
}

}  // namespace
}  // namespace platform
