#include "services/TGAuthorization.h"

#include <functional>

#include "tests/services/ServicesTest.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Optional;

const std::vector<std::string> kRightsByDialog = {"authorization create flags 0",
                                                  "authorization rights system.privilege.admin flags 19"};
const std::vector<std::string> kRightsByPassword = {
    "authorization create for carol flags 0",
    "authorization rights system.privilege.admin for carol flags 18"};
constexpr const char* kFree = "authorization free flags 0";

class TGAuthorizationTest : public ServicesTest {
 protected:
  TGAuthorizationTest() {
    for (const char* tool : {"/bin/cp", "/bin/mv", "/bin/rm", "/bin/mkdir", "/usr/bin/tool"}) {
      fakes_.files.makeFile(tool);
    }
  }

  void runAsRoot() {
    fakes_.users.user = 0;
    fakes_.users.home = "/root";
    fakes_.users.console = "bob";
  }

  /// The shared object of an ordinary user, rights granted; nothing of that is left in the calls.
  TGAuthorization& authorized() {
    auto& authorization = *TGAuthorization::sharedController();
    EXPECT_TRUE(authorization.authStart());
    fakes_.recorder.clear();
    return authorization;
  }

  TGAuthorization& byRoot() {
    runAsRoot();
    return *TGAuthorization::sharedController(WithGUI::no);
  }

 private:
  foundation::SingletonScope<TGAuthorization> authorization_;
};

std::vector<std::string> with(std::vector<std::string> lines, const std::vector<std::string>& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

TEST_F(TGAuthorizationTest, TheFirstCallDecidesAboutTheGUI) {
  auto* const first = TGAuthorization::sharedController();
  EXPECT_TRUE(first->hasGUI());
  EXPECT_EQ(TGAuthorization::sharedController(WithGUI::no), first);
  EXPECT_TRUE(first->hasGUI());
}

TEST_F(TGAuthorizationTest, WithoutGUIStaysWithoutGUI) {
  auto* const first = TGAuthorization::sharedController(WithGUI::no);
  EXPECT_FALSE(first->hasGUI());
  EXPECT_EQ(TGAuthorization::sharedController(), first);
  EXPECT_FALSE(first->hasGUI());
}

TEST_F(TGAuthorizationTest, ASecondAllocationYieldsNothing) {
  auto* const first = TGAuthorization::alloc();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(TGAuthorization::alloc(), nullptr);
  EXPECT_EQ(TGAuthorization::sharedController(), first);
}

TEST_F(TGAuthorizationTest, TheObjectCannotBeReleased) {
  auto* const shared = TGAuthorization::sharedController();
  EXPECT_EQ(shared->retain(), shared);
  EXPECT_EQ(shared->copy(), shared);
  EXPECT_EQ(shared->autorelease(), shared);
  shared->release();
  EXPECT_EQ(TGAuthorization::retainCount(), 4294967295U);
  EXPECT_EQ(TGAuthorization::sharedController(), shared);
}

TEST_F(TGAuthorizationTest, BeginsWithTheAuthorizationThatThePrivilegedParentLeft) {
  fakes_.authorization.inherited = platform::errAuthorizationSuccess;
  auto& authorization = *TGAuthorization::sharedController();
  EXPECT_NE(authorization.authRef(), nullptr);
  EXPECT_TRUE(authorization.isAuthorized());
  EXPECT_TRUE(authorization.authStart());
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGAuthorizationTest, InheritsWithoutGUIToo) {
  fakes_.authorization.inherited = platform::errAuthorizationSuccess;
  EXPECT_TRUE(TGAuthorization::sharedController(WithGUI::no)->isAuthorized());
}

TEST_F(TGAuthorizationTest, BeginsWithoutRightsWhereNoneWereLeft) {
  auto& authorization = *TGAuthorization::sharedController();
  EXPECT_EQ(authorization.authRef(), nullptr);
  EXPECT_FALSE(authorization.isAuthorized());
}

TEST_F(TGAuthorizationTest, KeepsTheHomeOfTheUserThatItWasMadeForButNotRoots) {
  EXPECT_THAT(TGAuthorization::sharedController()->userDirectory(), Optional(std::string("/Users/alice")));
  const foundation::SingletonScope<TGAuthorization> another;
  EXPECT_EQ(byRoot().userDirectory(), std::nullopt);
}

TEST_F(TGAuthorizationTest, RightsCanBeAskedForWithAGUIOrAsRoot) {
  auto& authorization = *TGAuthorization::sharedController(WithGUI::no);
  EXPECT_FALSE(authorization.canAuthorize());
  EXPECT_FALSE(authorization.isAuthorized());
  authorization.setHasGUI(true);
  EXPECT_TRUE(authorization.canAuthorize());
  EXPECT_FALSE(authorization.isAuthorized());
  authorization.setHasGUI(false);
  runAsRoot();
  EXPECT_TRUE(authorization.canAuthorize());
  EXPECT_TRUE(authorization.isAuthorized());
}

TEST_F(TGAuthorizationTest, AuthStartAsksOnceAndKeepsTheRights) {
  auto& authorization = *TGAuthorization::sharedController();
  EXPECT_TRUE(authorization.authStart());
  EXPECT_TRUE(authorization.authStart());
  EXPECT_EQ(calls(), kRightsByDialog);
  EXPECT_NE(authorization.authRef(), nullptr);
  EXPECT_EQ(fakes_.authorization.held, 1);
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGAuthorizationTest, RightsAreHeldOnlyOnceTheyAreGranted) {
  auto& authorization = *TGAuthorization::sharedController();
  std::vector<bool> whileAsking;
  fakes_.authorization.whileAsking = [&] { whileAsking.push_back(authorization.isAuthorized()); };
  EXPECT_TRUE(authorization.authStart());
  EXPECT_TRUE(authorization.isAuthorized());
  EXPECT_TRUE(authorization.authStartWithUser("carol", "secret"));
  EXPECT_TRUE(authorization.isAuthorized());
  EXPECT_THAT(whileAsking, ElementsAre(false, false));
}

TEST_F(TGAuthorizationTest, AuthStartGivesBackWhatARefusalLeft) {
  fakes_.authorization.rights = platform::errAuthorizationCanceled;
  auto& authorization = *TGAuthorization::sharedController();
  EXPECT_FALSE(authorization.authStart());
  EXPECT_EQ(calls(), with(kRightsByDialog, {kFree}));
  EXPECT_EQ(authorization.authRef(), nullptr);
  EXPECT_EQ(fakes_.authorization.held, 0);
}

TEST_F(TGAuthorizationTest, AuthStartWithoutAReferenceHasNothingToGiveBack) {
  fakes_.authorization.creation = platform::errAuthorizationInternal;
  auto& authorization = *TGAuthorization::sharedController();
  EXPECT_FALSE(authorization.authStart());
  EXPECT_THAT(calls(), ElementsAre("authorization create flags 0"));
  EXPECT_EQ(authorization.authRef(), nullptr);
}

TEST_F(TGAuthorizationTest, AuthStartWithoutGUICannotAsk) {
  EXPECT_FALSE(TGAuthorization::sharedController(WithGUI::no)->authStart());
  EXPECT_THAT(messages(), ElementsAre("Unable to authorize"));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGAuthorizationTest, RootNeedsNoAuthorization) {
  auto& authorization = byRoot();
  EXPECT_TRUE(authorization.authStart());
  EXPECT_TRUE(authorization.authStartWithUser("carol", "secret"));
  EXPECT_TRUE(authorization.authStartWithUser(std::nullopt, std::nullopt));
  authorization.authEnd();
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(messages(), IsEmpty());
  EXPECT_TRUE(authorization.isAuthorized());
}

TEST_F(TGAuthorizationTest, APasswordIsUsedWithoutADialog) {
  auto& authorization = *TGAuthorization::sharedController(WithGUI::no);
  EXPECT_TRUE(authorization.authStartWithUser("carol", "secret"));
  EXPECT_EQ(calls(), kRightsByPassword);
  EXPECT_TRUE(authorization.isAuthorized());
  EXPECT_EQ(fakes_.authorization.held, 1);
}

TEST_F(TGAuthorizationTest, WithoutAUserOrAPasswordNothingIsTried) {
  auto& authorization = *TGAuthorization::sharedController();
  EXPECT_FALSE(authorization.authStartWithUser("carol", std::nullopt));
  EXPECT_FALSE(authorization.authStartWithUser(std::nullopt, "secret"));
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGAuthorizationTest, AWrongPasswordIsToldOnTheConsoleAndInTheLog) {
  fakes_.authorization.rights = platform::errAuthorizationDenied;
  auto& authorization = *TGAuthorization::sharedController();
  EXPECT_FALSE(authorization.authStartWithUser("carol", "wrong"));
  EXPECT_EQ(calls(), with(kRightsByPassword, {kFree}));
  EXPECT_EQ(authorization.authRef(), nullptr);
  EXPECT_EQ(fakes_.authorization.held, 0);
  EXPECT_THAT(messages(), ElementsAre("Authorization failed. Invalid username or password"));
  EXPECT_THAT(logEntries(), ElementsAre("Authorization failed. Invalid username or password"));
}

TEST_F(TGAuthorizationTest, AReferenceThatCannotBeMadeIsToldWithItsStatus) {
  fakes_.authorization.creation = platform::errAuthorizationInternal;
  auto& authorization = *TGAuthorization::sharedController();
  EXPECT_FALSE(authorization.authStartWithUser("carol", "secret"));
  EXPECT_THAT(calls(), ElementsAre("authorization create for carol flags 0"));
  EXPECT_EQ(authorization.authRef(), nullptr);
  EXPECT_THAT(messages(), ElementsAre("Unable to create authRef - error -60008"));
  EXPECT_THAT(logEntries(), IsEmpty());
}

TEST_F(TGAuthorizationTest, ANewPasswordGivesTheOldRightsBackFirst) {
  auto& authorization = authorized();
  EXPECT_TRUE(authorization.authStartWithUser("carol", "secret"));
  EXPECT_EQ(calls(), with({kFree}, kRightsByPassword));
  EXPECT_EQ(fakes_.authorization.held, 1);
}

TEST_F(TGAuthorizationTest, AuthEndGivesTheRightsBackOnce) {
  auto& authorization = authorized();
  authorization.authEnd();
  EXPECT_EQ(authorization.authRef(), nullptr);
  EXPECT_FALSE(authorization.isAuthorized());
  authorization.authEnd();
  EXPECT_THAT(calls(), ElementsAre(kFree));
  EXPECT_EQ(fakes_.authorization.held, 0);
}

TEST_F(TGAuthorizationTest, AuthEndAsRootOnlyForgetsTheReference) {
  auto& authorization = authorized();
  runAsRoot();
  authorization.authEnd();
  EXPECT_EQ(authorization.authRef(), nullptr);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGAuthorizationTest, SettingAReferenceDoesNotGiveTheOldOneBack) {
  auto& authorization = authorized();
  auto* const reference = authorization.authRef();
  authorization.setAuthRef(nullptr);
  EXPECT_FALSE(authorization.isAuthorized());
  EXPECT_THAT(calls(), IsEmpty());
  authorization.setAuthRef(reference);
  authorization.authEnd();
}

TEST_F(TGAuthorizationTest, AMissingProgramIsMinusTwoWhoeverAsks) {
  EXPECT_EQ(TGAuthorization::sharedController()->authExecTask("/missing", {"x"}), -2);
  runAsRoot();
  EXPECT_EQ(TGAuthorization::sharedController()->authExecTask("/missing", {"x"}, Async::no), -2);
  EXPECT_THAT(calls(), IsEmpty());
  EXPECT_THAT(messages(), ElementsAre("Unable to execute task: path /missing doesn't exist",
                                      "Unable to execute task: path /missing doesn't exist"));
}

TEST_F(TGAuthorizationTest, RootStartsProgramsItselfAndWaitsOnlyWhenAsked) {
  auto& authorization = byRoot();
  fakes_.subprocesses.recordsWaits = true;
  fakes_.subprocesses.runs["/usr/bin/tool"].status = 9;
  EXPECT_EQ(authorization.authExecTask("/usr/bin/tool", {"a", "b c"}), 0);
  EXPECT_EQ(authorization.authExecTask("/usr/bin/tool", {"a"}, Async::yes), 0);
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool a b c", "run /usr/bin/tool a"));
  fakes_.recorder.clear();
  EXPECT_EQ(authorization.authExecTask("/usr/bin/tool", {"a"}, Async::no), 0);
  EXPECT_THAT(calls(), ElementsAre("run /usr/bin/tool a", "wait /usr/bin/tool"));
}

TEST_F(TGAuthorizationTest, AProgramThatRootCannotRunIsZeroToo) {
  auto& authorization = byRoot();
  fakes_.files.makeFile("/plain");
  fakes_.files.denied.insert({"/plain", platform::Access::execute});
  EXPECT_EQ(authorization.authExecTask("/plain", {}), 0);
  EXPECT_EQ(authorization.authExecTask("/plain", {}, Async::no), 0);
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGAuthorizationTest, RightsAreAskedForWhenAProgramNeedsThemAndKept) {
  auto& authorization = *TGAuthorization::sharedController();
  EXPECT_EQ(authorization.authExecTask("/usr/bin/tool", {"a"}), 0);
  EXPECT_EQ(authorization.authExecTask("/usr/bin/tool", {"b"}), 0);
  EXPECT_EQ(calls(), with(kRightsByDialog, {"privileged /usr/bin/tool a", "privileged /usr/bin/tool b"}));
}

TEST_F(TGAuthorizationTest, WithoutRightsNothingRuns) {
  fakes_.authorization.rights = platform::errAuthorizationCanceled;
  EXPECT_EQ(TGAuthorization::sharedController()->authExecTask("/usr/bin/tool", {"a"}), -1);
  EXPECT_EQ(calls(), with(kRightsByDialog, {kFree}));
  EXPECT_EQ(fakes_.authorization.held, 0);
}

TEST_F(TGAuthorizationTest, TheServicesStatusIsPassedOn) {
  auto& authorization = authorized();
  fakes_.authorization.execution = platform::errAuthorizationToolExecuteFailure;
  EXPECT_EQ(authorization.authExecTask("/usr/bin/tool", {}), -60031);
  EXPECT_EQ(authorization.authExecTask("/usr/bin/tool", {}, Async::no), -60031);
}

TEST_F(TGAuthorizationTest, ASynchronousCallReadsTheOutputToItsEndAndAnAsynchronousOneNothing) {
  auto& authorization = authorized();
  fakes_.authorization.pipeContent = std::string("\0\xFF output\n", 10);
  EXPECT_EQ(authorization.authExecTask("/usr/bin/tool", {}, Async::yes), 0);
  EXPECT_EQ(fakes_.authorization.charactersRead, 0U);
  EXPECT_EQ(authorization.authExecTask("/usr/bin/tool", {}, Async::no), 0);
  EXPECT_EQ(fakes_.authorization.charactersRead, 11U);
}

struct Verb {
  const char* name;
  std::function<bool(TGAuthorization&)> call;
  std::string commandLine;
  std::vector<std::string> pauses;  ///< without being root
};

const std::vector<Verb>& verbs() {
  static const std::vector<Verb> table = {
      {"copy",
       [](auto& a) { return a.authCopyFile("/from/x", "/to/y"); },
       "/bin/cp -f -p -R /from/x /to/y",
       {}},
      {"move", [](auto& a) { return a.authMoveFile("/from/x", "/to/y"); }, "/bin/mv -f /from/x /to/y", {}},
      {"remove", [](auto& a) { return a.authRemoveFile("/from/x"); }, "/bin/rm -Rdf /from/x", {}},
      {"create",
       [](auto& a) { return a.authCreateDir("/to/new"); },
       "/bin/mkdir -p /to/new",
       {"sleep 500us"}},
  };
  return table;
}

class TGAuthorizationVerbTest : public TGAuthorizationTest {
 protected:
  TGAuthorizationVerbTest() { fakes_.files.makeFile("/from/x"); }
};

TEST_F(TGAuthorizationVerbTest, AVerbRunsItsToolWithRightsAndDoesNotWaitForIt) {
  auto& authorization = authorized();
  for (const Verb& verb : verbs()) {
    fakes_.recorder.clear();
    EXPECT_TRUE(verb.call(authorization)) << verb.name;
    EXPECT_EQ(calls(), with({"privileged " + verb.commandLine}, verb.pauses)) << verb.name;
  }
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGAuthorizationVerbTest, RootRunsTheToolOfAVerbItselfAndDoesNotWaitForIt) {
  auto& authorization = byRoot();
  fakes_.subprocesses.recordsWaits = true;
  for (const Verb& verb : verbs()) {
    fakes_.recorder.clear();
    EXPECT_TRUE(verb.call(authorization)) << verb.name;
    EXPECT_THAT(calls(), ElementsAre("run " + verb.commandLine)) << verb.name;
  }
}

TEST_F(TGAuthorizationVerbTest, AVerbThatCannotStartItsToolFails) {
  auto& authorization = authorized();
  fakes_.authorization.execution = platform::errAuthorizationToolExecuteFailure;
  for (const Verb& verb : verbs()) {
    fakes_.recorder.clear();
    EXPECT_FALSE(verb.call(authorization)) << verb.name;
    EXPECT_THAT(calls(), ElementsAre("privileged " + verb.commandLine)) << verb.name;
  }
}

TEST_F(TGAuthorizationVerbTest, AVerbWithoutRightsFailsWithoutAMessageOfItsOwn) {
  auto& authorization = *TGAuthorization::sharedController(WithGUI::no);
  for (const Verb& verb : verbs()) EXPECT_FALSE(verb.call(authorization)) << verb.name;
  EXPECT_EQ(messages(), std::vector<std::string>(verbs().size(), "Unable to authorize"));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGAuthorizationVerbTest, AMissingToolFailsExceptForRootsOwnStarts) {
  auto& authorization = authorized();
  for (const char* tool : {"/bin/cp", "/bin/mv", "/bin/rm", "/bin/mkdir"}) {
    ASSERT_TRUE(fakes_.files.remove(tool).ok());
  }
  for (const Verb& verb : verbs()) EXPECT_FALSE(verb.call(authorization)) << verb.name;
  EXPECT_THAT(messages(), ElementsAre("Unable to execute task: path /bin/cp doesn't exist",
                                      "Unable to execute task: path /bin/mv doesn't exist",
                                      "Unable to execute task: path /bin/rm doesn't exist",
                                      "Unable to execute task: path /bin/mkdir doesn't exist"));
  runAsRoot();
  EXPECT_TRUE(authorization.authCopyFile("/from/x", "/to/y"));
  EXPECT_TRUE(authorization.authMoveFile("/from/x", "/to/y"));
  EXPECT_FALSE(authorization.authRemoveFile("/from/x"));
  EXPECT_TRUE(authorization.authCreateDir("/to/new"));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGAuthorizationVerbTest, NoPathIsToldOfTheSourceFirst) {
  auto& authorization = authorized();
  EXPECT_FALSE(authorization.authCopyFile(std::nullopt, std::nullopt));
  EXPECT_FALSE(authorization.authCopyFile("/from/x", std::nullopt));
  EXPECT_FALSE(authorization.authMoveFile(std::nullopt, std::nullopt));
  EXPECT_FALSE(authorization.authMoveFile("/from/x", std::nullopt));
  EXPECT_THAT(
      messages(),
      ElementsAre("Error in authCopyFile: old path is null", "Error in authCopyFile: new path is null",
                  "Error in authMoveFile: old path is null", "Error in authMoveFile: new path is null"));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGAuthorizationVerbTest, AMissingSourceFailsSilently) {
  auto& authorization = authorized();
  EXPECT_FALSE(authorization.authCopyFile("/from/missing", "/to/y"));
  EXPECT_FALSE(authorization.authMoveFile("/from/missing", "/to/y"));
  EXPECT_THAT(messages(), IsEmpty());
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGAuthorizationVerbTest, ASystemDirectoryIsRefusedWhateverTheUserId) {
  auto& authorization = authorized();
  fakes_.files.makeFile("/Library/entry");
  const auto tryEverything = [&] {
    EXPECT_FALSE(authorization.authMoveFile("/Library", "/to"));
    EXPECT_FALSE(authorization.authMoveFolderContents("/Library", "/to"));
    EXPECT_FALSE(authorization.authTrashFile("/Library"));
    EXPECT_FALSE(authorization.authTrashFile("/Library", DeleteOnRootAccount::yes));
    EXPECT_FALSE(authorization.authTrashFolderContents("/Library"));
    EXPECT_FALSE(authorization.authTrashFolderContents("/Library", DeleteOnRootAccount::yes));
    EXPECT_FALSE(authorization.authRemoveFile("/Library"));
  };
  const std::vector<std::string> refusals = {
      "Unable to move path /Library because it is a system directory.",
      "Unable to move contents of path /Library because it is a system directory.",
      "Unable to trash path /Library because it is a system directory.",
      "Unable to trash path /Library because it is a system directory.",
      "Unable to trash folder contents of path /Library because it is a system directory.",
      "Unable to trash folder contents of path /Library because it is a system directory.",
      "Unable to delete path /Library because it is a system directory."};
  tryEverything();
  EXPECT_EQ(messages(), refusals);
  runAsRoot();
  tryEverything();
  EXPECT_EQ(messages(), with(refusals, refusals));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGAuthorizationVerbTest, OnlyTheExactFolderIsRefused) {
  auto& authorization = authorized();
  fakes_.files.makeFile("/var/folders/x");
  fakes_.files.makeFile("/Library/Logs/x");
  EXPECT_TRUE(authorization.authRemoveFile("/var/folders/x"));
  EXPECT_TRUE(authorization.authMoveFile("/usr/bin/tool", "/to"));
  EXPECT_TRUE(authorization.authTrashFile("/Library/Logs/x"));
  EXPECT_TRUE(authorization.authCopyFile("/Library", "/to"));  // a copy takes nothing away
  EXPECT_TRUE(authorization.authCreateDir("/Library"));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGAuthorizationVerbTest, FolderContentsAreMovedEntryByEntry) {
  auto& authorization = authorized();
  fakes_.files.makeFile("/from/a b");
  fakes_.files.makeFolder("/from/.folder");
  EXPECT_TRUE(authorization.authMoveFolderContents("/from", "/to"));
  EXPECT_THAT(calls(),
              ElementsAre("privileged /bin/mv -f /from/.folder /to/.folder",
                          "privileged /bin/mv -f /from/a b /to/a b", "privileged /bin/mv -f /from/x /to/x"));
}

TEST_F(TGAuthorizationVerbTest, AFailedMoveDoesNotStopTheRest) {
  auto& authorization = authorized();
  fakes_.files.makeFile("/Users/Shared/stuff");
  fakes_.files.makeFile("/Users/other");
  EXPECT_FALSE(authorization.authMoveFolderContents("/Users", "/to"));
  EXPECT_THAT(messages(), ElementsAre("Unable to move path /Users/Shared because it is a system directory.",
                                      "Unable to move path /Users/alice because it is a system directory."));
  EXPECT_THAT(calls(), ElementsAre("privileged /bin/mv -f /Users/other /to/other"));
}

TEST_F(TGAuthorizationVerbTest, MovingNothingSucceeds) {
  auto& authorization = authorized();
  fakes_.files.makeFolder("/empty");
  EXPECT_TRUE(authorization.authMoveFolderContents("/empty", "/to"));
  EXPECT_TRUE(authorization.authMoveFolderContents("/missing", "/to"));
  EXPECT_TRUE(authorization.authMoveFolderContents("/from/x", "/to"));
  EXPECT_THAT(calls(), IsEmpty());
}

/// What lies in the trash, what is trashed, and where it goes.
struct Trashing {
  std::vector<std::string> inTheTrash;
  std::string path;
  std::string destination;
};

class TGAuthorizationTrashTest : public TGAuthorizationTest {
 protected:
  TGAuthorizationTrashTest() : timestamp_(fakes_.clock.now().formattedLocally("%Y%m%d%H%M%S")) {
    for (const char* path : {"/from/a.txt", "/from/b.tar.gz", "/from/.hidden", "/from/Folder/in"}) {
      fakes_.files.makeFile(path);
    }
  }

  std::vector<Trashing> trashings() const {
    return {
        {{}, "/from/a.txt", "a.txt"},
        {{"A.txt"}, "/from/a.txt", "a.txt"},
        {{"a.txt"}, "/from/a.txt", "a_" + timestamp_ + ".txt"},
        {{"a.txt", "a_" + timestamp_ + ".txt"}, "/from/a.txt", "a_" + timestamp_ + ".txt"},
        {{"b.tar.gz"}, "/from/b.tar.gz", "b.tar_" + timestamp_ + ".gz"},
        {{".hidden"}, "/from/.hidden", ".hidden_" + timestamp_ + "."},
        {{}, "/from/Folder", "Folder"},
        {{}, "/from/Folder/", "Folder"},
        {{"Folder"}, "/from/Folder", "Folder_" + timestamp_ + "."},
    };
  }

  /// Trashes each and compares where it went.
  void expectTrashings(TGAuthorization& authorization, const std::string& trash, const std::string& how) {
    for (const Trashing& row : trashings()) {
      (void)fakes_.files.remove(trash);
      for (const std::string& name : row.inTheTrash) fakes_.files.makeFile(trash + "/" + name);
      fakes_.recorder.clear();
      EXPECT_TRUE(authorization.authTrashFile(row.path));
      EXPECT_THAT(calls(),
                  ElementsAre(how + " /bin/mv -f " + row.path + " " + trash + "/" + row.destination));
    }
  }

  std::string timestamp_;
};

TEST_F(TGAuthorizationTrashTest, TheTimestampIsLocalTimeInFourteenDigits) {
  EXPECT_EQ(timestamp_.size(), 14U);
  EXPECT_EQ(timestamp_.substr(0, 6), "201101");
}

TEST_F(TGAuthorizationTrashTest, TrashingANameThatIsTakenAddsTheTimestamp) {
  expectTrashings(authorized(), "/Users/alice/.Trash", "privileged");
}

TEST_F(TGAuthorizationTrashTest, RootTrashesIntoTheConsoleUsersTrash) {
  expectTrashings(byRoot(), "/Users/bob/.Trash", "run");
}

TEST_F(TGAuthorizationTrashTest, AProcessThatBecameRootKeepsTheTrashOfItsUser) {
  auto& authorization = *TGAuthorization::sharedController();
  runAsRoot();
  expectTrashings(authorization, "/Users/alice/.Trash", "run");
  EXPECT_TRUE(authorization.authTrashFile("/from/a.txt", DeleteOnRootAccount::yes));
  EXPECT_EQ(calls().back(), "run /bin/mv -f /from/a.txt /Users/alice/.Trash/a.txt");
}

TEST_F(TGAuthorizationTrashTest, DeletingOnTheRootAccountRemovesTheDestinationNotTheSource) {
  auto& authorization = byRoot();
  EXPECT_TRUE(authorization.authTrashFile("/from/a.txt", DeleteOnRootAccount::yes));
  fakes_.files.makeFile("/Users/bob/.Trash/a.txt");
  EXPECT_TRUE(authorization.authTrashFile("/from/a.txt", DeleteOnRootAccount::yes));
  EXPECT_THAT(calls(), ElementsAre("run /bin/rm -Rdf /Users/bob/.Trash/a.txt",
                                   "run /bin/rm -Rdf /Users/bob/.Trash/a_" + timestamp_ + ".txt"));
}

TEST_F(TGAuthorizationTrashTest, DeletingOnTheRootAccountMeansNothingToOthers) {
  auto& authorization = authorized();
  EXPECT_TRUE(authorization.authTrashFile("/from/a.txt", DeleteOnRootAccount::yes));
  EXPECT_TRUE(authorization.authTrashFolderContents("/from/Folder", DeleteOnRootAccount::yes));
  EXPECT_THAT(calls(), ElementsAre("privileged /bin/mv -f /from/a.txt /Users/alice/.Trash/a.txt",
                                   "privileged /bin/mv -f /from/Folder/in /Users/alice/.Trash/in"));
}

TEST_F(TGAuthorizationTrashTest, WithoutATrashNothingIsTrashed) {
  auto& authorization = byRoot();
  fakes_.users.console = "stranger";
  EXPECT_FALSE(authorization.authTrashFile("/from/a.txt"));
  EXPECT_THAT(messages(), ElementsAre("Error in authMoveFile: new path is null"));
  EXPECT_FALSE(authorization.authTrashFile("/from/a.txt", DeleteOnRootAccount::yes));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGAuthorizationTrashTest, FolderContentsAreTrashedEntryByEntry) {
  auto& authorization = authorized();
  EXPECT_TRUE(authorization.authTrashFolderContents("/from"));
  EXPECT_THAT(calls(), ElementsAre("privileged /bin/mv -f /from/.hidden /Users/alice/.Trash/.hidden",
                                   "privileged /bin/mv -f /from/Folder /Users/alice/.Trash/Folder",
                                   "privileged /bin/mv -f /from/a.txt /Users/alice/.Trash/a.txt",
                                   "privileged /bin/mv -f /from/b.tar.gz /Users/alice/.Trash/b.tar.gz"));
}

TEST_F(TGAuthorizationTrashTest, RootTrashesFolderContentsUnlessToldToDelete) {
  auto& authorization = byRoot();
  EXPECT_TRUE(authorization.authTrashFolderContents("/from/Folder"));
  EXPECT_TRUE(authorization.authTrashFolderContents("/from/Folder", DeleteOnRootAccount::yes));
  EXPECT_THAT(calls(), ElementsAre("run /bin/mv -f /from/Folder/in /Users/bob/.Trash/in",
                                   "run /bin/rm -R -f /from/Folder/in"));
}

TEST_F(TGAuthorizationTrashTest, AProcessThatBecameRootTrashesFolderContentsWhateverItIsTold) {
  auto& authorization = *TGAuthorization::sharedController();
  runAsRoot();
  EXPECT_TRUE(authorization.authTrashFolderContents("/from/Folder", DeleteOnRootAccount::yes));
  EXPECT_THAT(calls(), ElementsAre("run /bin/mv -f /from/Folder/in /Users/alice/.Trash/in"));
}

TEST_F(TGAuthorizationTrashTest, AnEntryThatIsRefusedDoesNotStopTheRest) {
  auto& authorization = authorized();
  fakes_.files.makeFile("/Users/Shared/stuff");
  fakes_.files.makeFile("/Users/other");
  EXPECT_FALSE(authorization.authTrashFolderContents("/Users"));
  EXPECT_THAT(messages(), ElementsAre("Unable to trash path /Users/Shared because it is a system directory.",
                                      "Unable to trash path /Users/alice because it is a system directory."));
  EXPECT_THAT(calls(), ElementsAre("privileged /bin/mv -f /Users/other /Users/alice/.Trash/other"));
}

TEST_F(TGAuthorizationTrashTest, AFailedDeletionOfAnEntryIsAFailure) {
  auto& authorization = byRoot();
  ASSERT_TRUE(fakes_.files.remove("/bin/rm").ok());
  EXPECT_FALSE(authorization.authTrashFolderContents("/from", DeleteOnRootAccount::yes));
  EXPECT_EQ(messages().size(), 4U);
}

TEST_F(TGAuthorizationTrashTest, TrashingTheContentsOfNothingSucceeds) {
  auto& authorization = authorized();
  EXPECT_TRUE(authorization.authTrashFolderContents("/missing"));
  EXPECT_THAT(calls(), IsEmpty());
}

}  // namespace
