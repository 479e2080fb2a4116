#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <regex>

#include "tests/support/ProgramRun.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/workstation/RootTest.h"
#include "workstation/Snapshot.h"
#include "workstation/TemporaryVolume.h"
#include "workstation/Visit.h"

// Gathering logs on a whole workstation, by users and by root: what is in the archive, and what is not.

namespace workstation {
namespace {

namespace fs = std::filesystem;
using support::TemporaryFolder;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr uid_t kAlice = 501;
constexpr uid_t kBob = 502;
constexpr gid_t kStaff = 20;

const std::string kUserLogs = "/Users/alice/Library/Logs/Vordenworks/";
const std::string kLocalLogs = "/Library/Logs/Vordenworks/";
const std::string kStaging = "/private/tmp/TG_App_Logs";
const std::string kArchive = "/Users/alice/Desktop/Quillmend Logs.zip";

/// Paths below the archive's one folder, with contents; "-> TARGET" for links.
using Tree = std::map<std::string, std::string>;

/// The bundle that was built, with the program beside the application's own.
class GatheringBundle {
 public:
  GatheringBundle() {
    fs::copy(QUILLMEND_BUNDLE, path(), fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    fs::copy_file(GATHER_LOGS, path() / "Contents/MacOS/GatherLogs");
    folder_.makeAccessibleToAll();
  }
  [[nodiscard]] fs::path path() const { return folder_ / "Quillmend.app"; }

 private:
  TemporaryFolder folder_;
};

/// A volume of 256 KiB over a folder for as long as it lives, which everybody may write to.
class SmallFolder {
 public:
  explicit SmallFolder(std::string path) : path_(std::move(path)) {
    EXPECT_EQ(::mount("tmpfs", path_.c_str(), "tmpfs", 0, "size=256k,mode=1777"), 0);
  }
  ~SmallFolder() { ::umount2(path_.c_str(), MNT_DETACH); }
  SmallFolder(const SmallFolder&) = delete;
  SmallFolder& operator=(const SmallFolder&) = delete;

 private:
  std::string path_;
};

class GatheringTest : public RootTest {
 protected:
  void SetUp() override {
    RootTest::SetUp();
    if (IsSkipped()) return;
    sample = std::make_unique<TemporaryVolume>(Plan{.qmasterRunning = false});
    makeFolder("/Users/alice/Desktop", kAlice);
  }

  [[nodiscard]] std::string host(const std::string& path) const {
    return sample->volume().host(path).string();
  }

  void makeFolder(const std::string& path, uid_t owner) const {
    if (path == "/" || fs::exists(host(path))) return;
    makeFolder(fs::path(path).parent_path(), owner);
    fs::create_directory(host(path));
    ASSERT_EQ(::lchown(host(path).c_str(), owner, kStaff), 0);
  }

  void makeFile(const std::string& path, const std::string& content, uid_t owner, mode_t mode = 0644) const {
    makeFolder(fs::path(path).parent_path(), owner);
    std::ofstream(host(path), std::ios::binary) << content;
    ASSERT_EQ(::chown(host(path).c_str(), owner, kStaff), 0);
    ASSERT_EQ(::chmod(host(path).c_str(), mode), 0);
  }

  void makeLink(const std::string& path, const std::string& target, uid_t owner) const {
    makeFolder(fs::path(path).parent_path(), owner);
    fs::create_symlink(target, host(path));
    ASSERT_EQ(::lchown(host(path).c_str(), owner, kStaff), 0);
  }

  /// Everything that gathering looks for, in both domains.
  void makeLogs() const {
    makeFile(kUserLogs + "Quillmend.1.log", "user log", kAlice, 0600);
    makeFile(kUserLogs + "Tickwarden.1.log", "of another application", kAlice);
    makeFile("/Users/alice/Library/Logs/CrashReporter/Quillmend_2011-01-01-120000_host.crash", "user crash",
             kAlice);
    makeFile("/Users/alice/Library/Preferences/com.vordenworks.quillmend.plist", "user preferences", kAlice,
             0600);
    makeFile(kLocalLogs + "Quillmend.task.1.log", "local log", 0);
    makeFile(kLocalLogs + "Quillm\303\251nd.1.log", "of another name", 0);
    makeFile("/Library/Logs/CrashReporter/Quillmend_1.crash", "local crash", 0);
    makeFile("/Library/Preferences/com.vordenworks.Quillmend.plist", "local preferences", 0);
    makeFile("/Users/alice/elsewhere.txt", "elsewhere", kAlice, 0600);
    makeLink(kUserLogs + "Quillmend.2.log", "../../../elsewhere.txt", kAlice);
    makeLink(kUserLogs + "Quillmend.3.log", "/nowhere", kAlice);
  }

  static Tree logs() {
    return {{kUserLogs + "Quillmend.1.log", "user log"},
            {kUserLogs + "Quillmend.2.log", "elsewhere"},
            {kUserLogs + "Quillmend.3.log", "-> /nowhere"},
            {"/Users/alice/Library/Logs/CrashReporter/Quillmend_2011-01-01-120000_host.crash", "user crash"},
            {"/Users/alice/Library/Preferences/com.vordenworks.quillmend.plist", "user preferences"},
            {kLocalLogs + "Quillmend.task.1.log", "local log"},
            {"/Library/Logs/CrashReporter/Quillmend_1.crash", "local crash"},
            {"/Library/Preferences/com.vordenworks.Quillmend.plist", "local preferences"}};
  }

  [[nodiscard]] VisitResult gather(const std::string& user,
                                   const std::vector<std::string>& files = {}) const {
    std::vector<std::string> command = {"/Applications/Quillmend.app/Contents/MacOS/GatherLogs", "Quillmend"};
    command.insert(command.end(), files.begin(), files.end());
    VisitOptions options;
    options.user = user;
    options.bundle = bundle.path();
    return visit(*sample, command, options);
  }

  /// The texts that were printed, without date and process.
  static std::vector<std::string> printed(const VisitResult& result) {
    static const std::regex form(R"(\d{4}-\d\d-\d\d [\d:.]+ [^ ]+\[\d+:\d+\] (.*))");
    std::vector<std::string> texts;
    for (std::size_t at = 0; at < result.error.size();) {
      const std::size_t end = std::min(result.error.find('\n', at), result.error.size());
      texts.push_back(std::regex_replace(result.error.substr(at, end - at), form, "$1"));
      at = end + 1;
    }
    return texts;
  }

  [[nodiscard]] Tree unpacked(const std::string& archive) const {
    const TemporaryFolder place;
    const auto run = support::runProgram({"/usr/bin/unzip", "-q", host(archive), "-d", place.path()});
    EXPECT_EQ(run.status, 0) << run.output;
    return treeOf(place / "TG_App_Logs");
  }

  static Tree treeOf(const std::string& folder) {
    Tree tree;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      const std::string path = entry.path().string();
      if (entry.is_symlink()) {
        tree[path.substr(folder.size())] = "-> " + fs::read_symlink(entry.path()).string();
      } else if (entry.is_regular_file()) {
        std::ifstream stream(path, std::ios::binary);
        tree[path.substr(folder.size())] = {std::istreambuf_iterator<char>(stream), {}};
      }
    }
    return tree;
  }

  [[nodiscard]] bool isThere(const std::string& path) const {
    return fs::exists(fs::symlink_status(host(path)));
  }

  [[nodiscard]] std::vector<std::string> onDesktop() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(host("/Users/alice/Desktop"))) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  GatheringBundle bundle;
  std::unique_ptr<TemporaryVolume> sample;
};

/// By whom it is gathered.
class GatheringAsTest : public GatheringTest, public testing::WithParamInterface<const char*> {};

TEST_P(GatheringAsTest, TheArchiveHoldsAllThatIsMeantAtItsPlace) {
  makeLogs();
  const auto before = takeSnapshot(*sample);
  const auto result = gather(GetParam());
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(printed(result),
              ElementsAre("Logs gathered successfully", "The gathered logs were placed on your desktop."));
  EXPECT_EQ(unpacked(kArchive), logs());
  EXPECT_FALSE(isThere(kStaging));
  struct stat status {};
  ASSERT_EQ(::stat(host(kArchive).c_str(), &status), 0);
  EXPECT_NE(status.st_mode & S_IROTH, 0U) << "its user can read it whoever made it";
  auto after = takeSnapshot(*sample);
  after.entries.erase(kArchive);
  EXPECT_EQ(after.entries, before.entries) << "nothing else has changed";
}

TEST_P(GatheringAsTest, AnArchiveThatIsThereIsKept) {
  makeLogs();
  makeFile(kArchive, "earlier", kAlice);
  EXPECT_EQ(gather(GetParam()).status, 0);
  EXPECT_EQ(fs::file_size(host(kArchive)), 7U);
  ASSERT_THAT(onDesktop(), SizeIs(2));
  for (const std::string& name : onDesktop()) {
    if (name == "Quillmend Logs.zip") continue;
    EXPECT_TRUE(std::regex_match(name, std::regex(R"(Quillmend Logs_\d{14}\.zip)"))) << name;
    EXPECT_EQ(unpacked("/Users/alice/Desktop/" + name), logs());
  }
}

TEST_P(GatheringAsTest, AdditionalFilesAreInTheArchive) {
  makeFile("/Users/alice/Documents/note \303\251.txt", "note", kAlice, 0600);
  EXPECT_EQ(gather(GetParam(), {"/Users/alice/Documents/note \303\251.txt"}).status, 0);
  EXPECT_EQ(unpacked(kArchive), (Tree{{"/Users/alice/Documents/note \303\251.txt", "note"}}));
}

TEST_P(GatheringAsTest, NothingToGatherIsSaid) {
  const auto result = gather(GetParam());
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(printed(result), ElementsAre("No logs found", "There were no logs available to gather."));
  EXPECT_THAT(onDesktop(), IsEmpty());
  struct stat status {};
  ASSERT_EQ(::lstat(host(kStaging).c_str(), &status), 0) << "an empty staging folder stays";
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

TEST_P(GatheringAsTest, WhatAliceMayNotReadEndsTheGathering) {
  makeLogs();
  makeFile(kLocalLogs + "Quillmend.secret.log", "secret", 0, 0600);
  const auto result = gather(GetParam());
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(printed(result),
              ElementsAre("Unable to copy log: " + kLocalLogs + "Quillmend.secret.log: Permission denied"));
  EXPECT_THAT(onDesktop(), IsEmpty());
  EXPECT_EQ(treeOf(host(kStaging)).count(kLocalLogs + "Quillmend.secret.log"), 0U);
}

TEST_P(GatheringAsTest, ALinkIntoAPlaceThatAliceCannotSeeStaysALink) {
  makeFile("/Users/bob/private/key", "secret", kBob, 0644);
  ASSERT_EQ(::chmod(host("/Users/bob/private").c_str(), 0700), 0);
  makeFile("/var/root/key", "secret", 0, 0644);
  ASSERT_EQ(::chmod(host("/private/var/root").c_str(), 0700), 0);
  makeLink(kUserLogs + "Quillmend.1.log", "/Users/bob/private/key", kAlice);
  makeLink(kUserLogs + "Quillmend.2.log", "/var/root/key", kAlice);
  EXPECT_EQ(gather(GetParam()).status, 0);
  EXPECT_EQ(unpacked(kArchive), (Tree{{kUserLogs + "Quillmend.1.log", "-> /Users/bob/private/key"},
                                      {kUserLogs + "Quillmend.2.log", "-> /var/root/key"}}));
}

TEST_P(GatheringAsTest, ALogFolderThatLeadsIntoAForeignOneContributesNothing) {
  makeFile("/Users/bob/private/Quillmend.secret.log", "secret", kBob, 0644);
  ASSERT_EQ(::chmod(host("/Users/bob/private").c_str(), 0700), 0);
  makeFolder("/Users/alice/Library/Logs", kAlice);
  makeLink("/Users/alice/Library/Logs/Vordenworks", "/Users/bob/private", kAlice);
  makeFile(kLocalLogs + "Quillmend.task.1.log", "local log", 0);
  EXPECT_EQ(gather(GetParam()).status, 0);
  EXPECT_EQ(unpacked(kArchive), (Tree{{kLocalLogs + "Quillmend.task.1.log", "local log"}}));
}

TEST_P(GatheringAsTest, WhatAliceMayReadAsAnAdministratorIsGathered) {
  constexpr gid_t kAdmin = 80;
  const std::string log = kLocalLogs + "Quillmend.1.log";
  makeFile(log, "for administrators", 0, 0640);
  ASSERT_EQ(::chown(host(log).c_str(), 0, kAdmin), 0);
  EXPECT_EQ(gather(GetParam()).status, 0);
  EXPECT_EQ(unpacked(kArchive), (Tree{{log, "for administrators"}}));
}

INSTANTIATE_TEST_SUITE_P(Who, GatheringAsTest, testing::Values("alice", "root"),
                         [](const auto& who) { return std::string(who.param); });

TEST_F(GatheringTest, AUserLeavesAFolderThatSomebodyElseHasPutInThePlaceOfStaging) {
  makeLogs();
  makeFile(kStaging + "/bobs", "bob's", kBob);
  ASSERT_EQ(::lchown(host(kStaging).c_str(), kBob, kStaff), 0);
  const auto result = gather("alice");
  EXPECT_EQ(result.status, 1);
  ASSERT_THAT(printed(result), SizeIs(1));
  EXPECT_THAT(printed(result).front(),
              testing::StartsWith("Error removing existing folder: /tmp/TG_App_Logs"));
  EXPECT_EQ(treeOf(host(kStaging)), (Tree{{"/bobs", "bob's"}}));
  EXPECT_THAT(onDesktop(), IsEmpty());
}

TEST_F(GatheringTest, RootRemovesAFolderThatSomebodyHasPutInThePlaceOfStaging) {
  makeLogs();
  makeFile(kStaging + "/bobs.log", "bob's", kBob);
  ASSERT_EQ(::lchown(host(kStaging).c_str(), kBob, kStaff), 0);
  EXPECT_EQ(gather("root").status, 0);
  EXPECT_EQ(unpacked(kArchive), logs());
}

TEST_F(GatheringTest, RootFollowsNoLinkInThePlaceOfStaging) {
  makeLogs();
  makeFile("/Users/bob/mine/file", "bob's", kBob);
  makeLink(kStaging, "/Users/bob/mine", kBob);
  EXPECT_EQ(gather("root").status, 0);
  EXPECT_EQ(unpacked(kArchive), logs());
  EXPECT_EQ(treeOf(host("/Users/bob/mine")), (Tree{{"/file", "bob's"}}));
  EXPECT_FALSE(isThere(kStaging));
}

TEST_F(GatheringTest, RootReplacesALinkOnTheDesktopRatherThanWhatItLeadsTo) {
  makeLogs();
  makeLink(kArchive, "/etc/planted", kAlice);
  EXPECT_EQ(gather("root").status, 0);
  EXPECT_EQ(unpacked(kArchive), logs());
  EXPECT_FALSE(isThere("/private/etc/planted"));
}

TEST_F(GatheringTest, WhatRootPutsOnADesktopIsItsOwners) {
  makeLogs();
  const mode_t before = ::umask(0077);
  EXPECT_EQ(gather("root").status, 0);
  ::umask(before);
  struct stat status {};
  ASSERT_EQ(::stat(host(kArchive).c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, kAlice);
  EXPECT_EQ(unpacked(kArchive), logs());
}

TEST_F(GatheringTest, RootGathersNothingWhereOthersCouldExchangeStaging) {
  makeLogs();
  ASSERT_EQ(::chmod(host("/private/tmp").c_str(), 0777), 0);
  const auto result = gather("root");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(printed(result),
              ElementsAre("Error creating temp folder: /tmp/TG_App_Logs: Operation not permitted"));
  EXPECT_FALSE(isThere(kStaging));
  EXPECT_THAT(onDesktop(), IsEmpty());
  EXPECT_EQ(gather("alice").status, 0) << "a user risks no more than what is theirs";
}

TEST_F(GatheringTest, RootGathersNothingOfOtherUsers) {
  makeLogs();
  makeFile("/Users/bob/Library/Logs/Vordenworks/Quillmend.1.log", "bob's", kBob);
  makeFile("/Users/bob/Library/Preferences/com.vordenworks.quillmend.plist", "bob's", kBob);
  EXPECT_EQ(gather("root").status, 0);
  EXPECT_EQ(unpacked(kArchive), logs());
}

TEST_F(GatheringTest, AFurtherNameOfAFileThatAliceMayNotReadEndsTheGathering) {
  makeLogs();
  makeFile("/private/var/db/secret", "secret", 0, 0600);
  fs::create_hard_link(host("/private/var/db/secret"), host(kUserLogs + "Quillmend.4.log"));
  const auto result = gather("root");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(printed(result),
              ElementsAre("Unable to copy log: " + kUserLogs + "Quillmend.4.log: Permission denied"));
  EXPECT_THAT(onDesktop(), IsEmpty());
}

TEST_F(GatheringTest, AFIFOAmongTheLogsEndsTheGatheringWithoutWaiting) {
  makeLogs();
  ASSERT_EQ(::mkfifo(host(kUserLogs + "Quillmend.4.log").c_str(), 0666), 0);
  const auto result = gather("root");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(printed(result),
              ElementsAre("Unable to copy log: " + kUserLogs + "Quillmend.4.log: Operation not supported"));
}

TEST_F(GatheringTest, AFullTemporaryVolumeEndsTheGathering) {
  makeLogs();
  makeFile(kUserLogs + "Quillmend.4.log", std::string(400000, 'x'), kAlice);
  for (const char* who : {"alice", "root"}) {
    const SmallFolder full(host("/private/tmp"));
    const auto result = gather(who);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(printed(result),
                ElementsAre("Unable to copy log: " + kUserLogs + "Quillmend.4.log: No space left on device"));
    EXPECT_EQ(treeOf(host(kStaging)).count(kUserLogs + "Quillmend.1.log"), 1U) << "staging stays";
    EXPECT_EQ(treeOf(host(kStaging)).count(kUserLogs + "Quillmend.4.log"), 0U) << "without half a log";
  }
  EXPECT_THAT(onDesktop(), IsEmpty());
}

TEST_F(GatheringTest, AFullDesktopIsNoArchive) {
  makeLogs();
  std::string noise(400000, '\0');
  std::generate(noise.begin(), noise.end(), std::minstd_rand());
  makeFile(kUserLogs + "Quillmend.4.log", noise, kAlice);
  for (const char* who : {"alice", "root"}) {
    const SmallFolder full(host("/Users/alice/Desktop"));
    const auto result = gather(who);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(printed(result),
                ElementsAre("Logs could not be gathered", "Please check your file permissions."));
    EXPECT_THAT(onDesktop(), IsEmpty()) << "not even a part of it";
    EXPECT_FALSE(isThere(kStaging));
  }
}

TEST_F(GatheringTest, ADesktopThatIsMissingIsNoArchive) {
  makeLogs();
  fs::remove(host("/Users/alice/Desktop"));
  const auto result = gather("alice");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(printed(result), Contains("Logs could not be gathered"));
  EXPECT_THAT(printed(result), Contains("Please check your file permissions."));
  EXPECT_FALSE(isThere(kStaging));
}

}  // namespace
}  // namespace workstation
