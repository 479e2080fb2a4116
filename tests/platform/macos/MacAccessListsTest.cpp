#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>

#include "helpers/ChmodTool.h"
#include "helpers/SpoolPlace.h"
#include "platform/posix/AccessLists.h"
#include "platform/posix/GuardedFiles.h"
#include "platform/posix/GuardedGathering.h"
#include "platform/posix/PrivateFolder.h"
#include "tests/helpers/TestVolume.h"
#include "tests/macsdk/fakes/FakeAccessLists.h"

/// Who may write by a list of a Mac's, where every mode says that nobody else may.
namespace platform {
namespace {

using ::fakes::AccessEntries;
using helpers::ExitStatus;
using ::testing::IsEmpty;

class MacAccessListsTest : public ::testing::Test {
 protected:
  void SetUp() override { ::fakes::accessLists() = {}; }
  void TearDown() override { ::fakes::accessLists() = {}; }
  void give(const std::string& place, AccessEntries entries) {
    ::fakes::giveAccessList(volume.path(place), std::move(entries));
  }
  bool isWritableByList(const std::string& place) {
    const UniqueDescriptor held(::open(volume.path(place).c_str(), O_RDONLY | O_CLOEXEC));
    return mayBeWrittenByList(held.get(), 0755);
  }
  /// A link of root's in a folder that has the entries; answers whether it is followed.
  bool isFollowed(AccessEntries entries) {
    volume.makeFile("real/file");
    volume.makeFolder("safe");
    volume.makeLink("/real", "safe/link");
    give("safe", std::move(entries));
    return locate(surroundings.root.get(), "/safe/link/file").ok();
  }

  helpers::TestVolume volume;
  helpers::Surroundings surroundings = volume.surroundings();
};

TEST_F(MacAccessListsTest, NobodyWritesByAListThatIsNotThere) {
  volume.makeFolder("folder");
  EXPECT_FALSE(isWritableByList("folder"));
  ::fakes::accessLists().failure = ENOTSUP;
  EXPECT_FALSE(isWritableByList("folder")) << "the volume has no lists";
}

TEST_F(MacAccessListsTest, AnEntryThatAllowsSomethingCountsWhateverStandsBeforeIt) {
  volume.makeFolder("folder");
  for (const AccessEntries& entries :
       {AccessEntries{ACL_EXTENDED_ALLOW}, AccessEntries{ACL_EXTENDED_DENY, ACL_EXTENDED_ALLOW},
        AccessEntries{ACL_UNDEFINED_TAG}}) {
    give("folder", entries);
    EXPECT_TRUE(isWritableByList("folder"));
  }
}

TEST_F(MacAccessListsTest, EntriesThatDenyAsTheSystemsFoldersHaveThemDoNotCount) {
  volume.makeFolder("folder");
  for (const AccessEntries& entries :
       {AccessEntries{}, AccessEntries{ACL_EXTENDED_DENY, ACL_EXTENDED_DENY}}) {
    give("folder", entries);
    EXPECT_FALSE(isWritableByList("folder"));
  }
}

TEST_F(MacAccessListsTest, WhatIsUnknownCounts) {
  volume.makeFolder("folder");
  ::fakes::accessLists().failure = EPERM;
  EXPECT_TRUE(isWritableByList("folder"));
}

TEST_F(MacAccessListsTest, ALinkInAFolderThatAListOnlyClosesIsFollowed) {
  EXPECT_TRUE(isFollowed({ACL_EXTENDED_DENY}));
}

TEST_F(MacAccessListsTest, ALinkInAFolderThatAListOpensIsRefused) {
  EXPECT_FALSE(isFollowed({ACL_EXTENDED_ALLOW}));
  const auto refused = locate(surroundings.root.get(), "/safe/link/file");
  EXPECT_EQ(refused.error().code, EPERM);
}

TEST_F(MacAccessListsTest, WhatIsMadeForRootAloneIsFreeOfInheritedEntries) {
  ::fakes::accessLists().inherited = {ACL_EXTENDED_ALLOW};
  const auto made = PrivateFolder::make(surroundings.root.get(), "/");
  ASSERT_TRUE(made) << made.error().description;
  EXPECT_FALSE(mayBeWrittenByList(made.value().descriptor(), 0700));
}

TEST_F(MacAccessListsTest, RootUsesNoFolderWhoseEntriesStay) {
  QUILLMEND_NEEDS_ROOT();
  ::fakes::accessLists().inherited = {ACL_EXTENDED_ALLOW};
  ::fakes::accessLists().canBeTakenAway = false;
  const auto names = volume.names("");
  const auto made = PrivateFolder::make(surroundings.root.get(), "/");
  ASSERT_FALSE(made);
  EXPECT_EQ(made.error().code, EPERM);
  EXPECT_EQ(volume.names(""), names) << "nothing is left";
}

class MacHardLinksTest : public MacAccessListsTest {
 protected:
  void SetUp() override {
    MacAccessListsTest::SetUp();
    volume.makeFile("tree/a", "x", 0600);
    ASSERT_EQ(::link(volume.path("tree/a").c_str(), volume.path("tree/b").c_str()), 0);
  }
  ExitStatus change() { return helpers::ChmodTool(surroundings, report).run({"-R", "644", "/tree"}); }

  helpers::RecordedReport report;
};

TEST_F(MacHardLinksTest, LinksInAFolderThatAListClosesAreChanged) {
  give("tree", {ACL_EXTENDED_DENY});
  EXPECT_EQ(change(), ExitStatus::done) << report.text();
  EXPECT_EQ(volume.mode("tree/a"), 0644U);
}

TEST_F(MacHardLinksTest, LinksInAFolderThatAListOpensAreLeft) {
  give("tree", {ACL_EXTENDED_ALLOW});
  EXPECT_EQ(change(), ExitStatus::failed);
  EXPECT_EQ(volume.mode("tree/a"), 0600U);
}

class MacTrustTest : public MacAccessListsTest {
 protected:
  void SetUp() override {
    QUILLMEND_NEEDS_ROOT();
    MacAccessListsTest::SetUp();
    // The temporary folder is everybody's, unlike a "/".
    volume.mountVolume("top");
    surroundings.root.reset(::open(volume.path("top").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
};

TEST_F(MacTrustTest, AServicesFileThatAListOpensNamesNoSpoolFolder) {
  constexpr const char* kServices = "top/Library/Application Support/Apple Qmaster/qmasterservices.plist";
  volume.makeFolder("top/data/spool");
  volume.makeFile(kServices, "<string>/data/spool</string>");
  const auto spool = locate(surroundings.root.get(), "/data/spool");
  ASSERT_TRUE(spool);
  EXPECT_TRUE(maySpoolBeEmptied(surroundings, spool.value(), "/data/spool"));
  give(kServices, {ACL_EXTENDED_ALLOW});
  EXPECT_FALSE(maySpoolBeEmptied(surroundings, spool.value(), "/data/spool"));
}

TEST_F(MacTrustTest, AFolderThatAListOpensIsWithinOthersReach) {
  volume.makeFolder("top/above/own");
  GuardedFileQueries queries;
  EXPECT_TRUE(queries.isOutOfOthersReach(volume.path("top/above/own")));
  for (const char* place : {"top/above", "top/above/own"}) {
    ::fakes::accessLists() = {};
    give(place, {ACL_EXTENDED_ALLOW});
    EXPECT_FALSE(queries.isOutOfOthersReach(volume.path("top/above/own"))) << place;
  }
}

TEST_F(MacTrustTest, NothingIsGatheredWhereAListLetsOthersExchangeIt) {
  volume.makeFolder("top/reports");
  give("top/reports", {ACL_EXTENDED_ALLOW});
  GuardedFileQueries queries;
  GuardedGathering gathering(queries);
  EXPECT_EQ(gathering.createPrivateFolder(volume.path("top/reports/now")).error().code, EPERM);
  EXPECT_THAT(volume.names("top/reports"), IsEmpty());
}

}  // namespace
}  // namespace platform
