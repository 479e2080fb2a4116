#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QProcess>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestAccount.h"
#include "tests/ui/window/DesktopSession.h"
#include "tests/ui/window/StoredPreferences.h"

// The real program with a real sudo, as an account of the test's own uses it.

namespace window {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kHome = "/home/quillmend-test";
constexpr const char* kPassword = "right horse";

/// Runs a program on this machine as it is, but for a Library and a home that nobody else sees: a bubble
/// would not let sudo work. The bundle is mounted where everybody can enter. Arguments: the place to do it
/// at, the Library, the home, the bundle, the account's number.
constexpr const char* kScript = R"(
mount -t tmpfs none "$1"
mkdir "$1/upper" "$1/work" "$1/root"
mount -t overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" none "$1/root"
for place in /dev /proc /run /tmp; do mount --bind "$place" "$1/root$place"; done
app=/Applications/Quillmend.app
mkdir -p "$1/root/Library" "$1/root/home/quillmend-test" "$1/root$app"
mount --bind "$2" "$1/root/Library"
mount --bind "$3" "$1/root/home/quillmend-test"
mount --bind "$4" "$1/root$app"
for tool in /usr/sbin/qmasterprefs /bin/launchctl; do
  printf '#!/bin/sh\necho "$(id -un) $0 $*" >>/home/quillmend-test/calls\n' >"$1/root$tool"
  chmod 755 "$1/root$tool"
done
exec chroot "$1/root" setpriv --reuid "$5" --regid 100 --clear-groups -- "$app/Contents/MacOS/Quillmend"
)";

class PasswordRequirementTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root: makes an account";
    account = std::make_unique<support::TestAccount>(kPassword, kHome);
    account->allow("ALL=(ALL:ALL) ALL");
    folder.makeAccessibleToAll();
    for (const char* const name : {"root", "Library", "home"}) {
      static_cast<void>(folder.folder(name));
      EXPECT_EQ(::chown((folder / name).c_str(), account->id(), 100), 0);
    }
  }

  void start() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), QString::fromLatin1(kHome));
    environment.remove(QStringLiteral("XDG_RUNTIME_DIR"));
    environment.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0"));  // for its dialog
    program.setProcessEnvironment(environment);
    QStringList arguments = {QStringLiteral("--mount"), QStringLiteral("--"),         QStringLiteral("sh"),
                             QStringLiteral("-euc"),    QString::fromLatin1(kScript), QStringLiteral("sh")};
    for (const char* const name : {"root", "Library", "home"})
      arguments << QString::fromStdString(folder / name);
    arguments << QStringLiteral(QUILLMEND_BUNDLE) << QString::number(account->id());
    program.start(QStringLiteral("unshare"), arguments);
  }
  static bool waitForWindow() {
    return waitUntil([] { return hasKeyboard("Quillmend"); });
  }
  static bool waitForDialog() {
    return waitUntil([] { return hasKeyboard("askpass"); });
  }
  static int dialogHeight() {
    const std::string geometry = xdotool({QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"),
                                          QString::fromStdString(activeWindow())});
    return QString::fromStdString(geometry)
        .section(QStringLiteral("HEIGHT="), 1)
        .section(u'\n', 0, 0)
        .toInt();
  }
  static void answer(const char* password) {
    type(password);
    press("Return");
  }
  /// By the keyboard, and not before the menu is open: one that opens late would be counted as a panel.
  static void choose(const char* menu, const char* command) {
    press(menu);
    EXPECT_TRUE(waitUntil([] { return windowCount("Quillmend") > 1; })) << menu;
    press(command);
  }
  static void toggle() { choose("alt+e", "p"); }
  static void restartQmaster() { choose("alt+t", "r"); }
  static void stopQmaster() { choose("alt+t", "s"); }
  static void repair() { press("ctrl+r"); }
  /// Whether the window stands without a panel and nobody asks for anything, and stays so for a while. The
  /// menu that a command was chosen in may still be about to close.
  static bool staysAlone() {
    if (!waitUntil([] { return windowCount("Quillmend") == 1; })) return false;
    return !waitUntil([] { return windowCount("Quillmend") != 1 || windowCount("askpass") != 0; }, 500ms);
  }
  /// Ends it by its own means.
  void quit() {
    press("ctrl+q");
    expectEnd();
  }
  void expectEnd() {
    EXPECT_TRUE(program.waitForFinished(10000));
    EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(program.exitCode(), 0);
  }
  /// Ends it by a signal, and a dialog with it.
  void endBySignal() {
    ASSERT_EQ(::kill(static_cast<pid_t>(program.processId()), SIGTERM), 0);
    EXPECT_TRUE(program.waitForFinished(5000));
    EXPECT_EQ(program.exitStatus(), QProcess::CrashExit);
    EXPECT_EQ(program.exitCode(), SIGTERM);
    EXPECT_TRUE(waitUntil([] { return windowCount("askpass") == 0; }));
    EXPECT_FALSE(exists("home/calls"));
  }
  /// What the program's tools were called with, a line each.
  [[nodiscard]] std::string calls() const { return contentOf("home/calls"); }
  [[nodiscard]] bool exists(const std::string& path) const { return std::filesystem::exists(folder / path); }
  [[nodiscard]] std::string contentOf(const std::string& path) const {
    std::ifstream stream(folder / path);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  /// How often the log says so.
  [[nodiscard]] std::size_t logged(const std::string& text) const {
    const std::string log = contentOf("home/Library/Logs/Vordenworks/Quillmend.1.log");
    std::size_t count = 0;
    for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++count;
    return count;
  }
  [[nodiscard]] std::string file() const {
    return folder / "Library/Preferences/com.vordenworks.Quillmend.plist";
  }
  void require() const {
    static_cast<void>(folder.file("Library/Preferences/com.vordenworks.Quillmend.plist",
                                  "<plist version=\"1.0\"><dict><key>requireAdminPassword</key>"
                                  "<integer>1</integer></dict></plist>"));
    EXPECT_EQ(::chown((folder / "Library/Preferences").c_str(), account->id(), 100), 0);
  }
  [[nodiscard]] std::string stored() const {
    std::ifstream stream(file());
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  /// The requirement, and nothing else.
  [[nodiscard]] bool waitUntilStored(int requirement) const {
    const foundation::PropertyList wanted =
        foundation::PropertyList::Dictionary{{"requireAdminPassword", requirement}};
    return waitUntil([&] { return preferencesIn(stored()) == wanted; });
  }

  support::TemporaryFolder folder;
  std::unique_ptr<support::TestAccount> account;
  QProcess program;
};

TEST_F(PasswordRequirementTest, AnybodyMayMakeItAndOnlyAnAdministratorMayLiftIt) {
  start();
  ASSERT_TRUE(waitForWindow());
  toggle();
  ASSERT_TRUE(waitUntilStored(1)) << "nobody was asked";
  const std::string made = stored();
  toggle();
  ASSERT_TRUE(waitForDialog());
  press("Escape");
  ASSERT_TRUE(waitForWindow());
  EXPECT_EQ(stored(), made) << "refused";
  press("alt+e");
  saveScreen("password-required");
  press("p");  // off again, as it went back on
  ASSERT_TRUE(waitForDialog());
  answer(kPassword);
  ASSERT_TRUE(waitUntilStored(0));
  ASSERT_TRUE(waitForWindow());
  toggle();  // on, as it stayed off: that needs nobody
  EXPECT_TRUE(waitUntilStored(1));
  EXPECT_TRUE(staysAlone());
  EXPECT_EQ(stored(), made);
  quit();
}

TEST_F(PasswordRequirementTest, WhereTheAccountMayNotStoreItTheTickGoesBackAndAPanelSaysWhy) {
  EXPECT_EQ(::chown((folder / "Library").c_str(), 0, 0), 0);
  start();
  ASSERT_TRUE(waitForWindow());
  for (const char* const picture : {"requirement-not-stored", "requirement-not-stored-again"}) {
    toggle();  // on both times: off would take a password
    ASSERT_TRUE(waitUntil([] { return windowCount("Quillmend") == 2; })) << "no panel";
    EXPECT_EQ(windowCount("askpass"), 0U);
    QTest::qWait(300);
    saveScreen(picture);
    press("Return");
    ASSERT_TRUE(waitUntil([] { return windowCount("Quillmend") == 1 && hasKeyboard("Quillmend"); }));
  }
  EXPECT_TRUE(staysAlone());
  EXPECT_FALSE(exists("Library/Preferences"));
  EXPECT_EQ(logged("Unable to store the preference requireAdminPassword in "
                   "/Library/Preferences/com.vordenworks.Quillmend.plist: Your account may not write there."),
            2U);
  quit();
}

TEST_F(PasswordRequirementTest, WhereItCannotBeStoredAnAcceptedPasswordDoesNotLiftIt) {
  start();
  ASSERT_TRUE(waitForWindow());
  toggle();
  ASSERT_TRUE(waitUntilStored(1));
  const std::string made = stored();
  const std::string preferences = folder / "Library/Preferences";
  EXPECT_EQ(::chown(preferences.c_str(), 0, 0), 0);
  toggle();
  ASSERT_TRUE(waitForDialog());
  answer(kPassword);
  ASSERT_TRUE(waitUntil([] { return windowCount("Quillmend") == 2; })) << "no panel";
  EXPECT_EQ(stored(), made);
  press("Return");
  ASSERT_TRUE(waitUntil([] { return windowCount("Quillmend") == 1 && hasKeyboard("Quillmend"); }));
  EXPECT_EQ(logged("Unable to store the preference requireAdminPassword"), 1U);
  EXPECT_EQ(::chown(preferences.c_str(), account->id(), 100), 0);
  toggle();  // off, as the tick went back
  EXPECT_TRUE(waitUntilStored(0));
  quit();
}

TEST_F(PasswordRequirementTest, ItIsMadeWhereTheAccountsOwnPreferencesCannotBeStored) {
  static_cast<void>(folder.folder("home/Library/Preferences/com.vordenworks.Quillmend.plist"));
  EXPECT_EQ(::chown((folder / "home/Library").c_str(), account->id(), 100), 0);
  start();
  ASSERT_TRUE(waitForWindow());
  require();  // by somebody else; this window does not show it yet
  toggle();
  EXPECT_TRUE(staysAlone()) << "that needs nobody, and nothing went wrong";
  EXPECT_TRUE(waitUntilStored(1));
  toggle();
  ASSERT_TRUE(waitForDialog()) << "on, and stays so without a password";
  press("Escape");
  ASSERT_TRUE(waitForWindow());
  EXPECT_TRUE(waitUntilStored(1));
  quit();
}

TEST_F(PasswordRequirementTest, ARefusedPasswordEndsEveryCommandWithoutAWordAndChangesNothing) {
  start();
  ASSERT_TRUE(waitForWindow());
  for (const auto command : {repair, stopQmaster, restartQmaster, repair}) {
    command();
    ASSERT_TRUE(waitForDialog());
    press("Escape");
    ASSERT_TRUE(waitForWindow());
    EXPECT_TRUE(staysAlone());
  }
  stopQmaster();
  for (int attempt = 1; attempt <= 3; ++attempt) {
    ASSERT_TRUE(waitForDialog()) << attempt;
    answer("wrong horse");
    ASSERT_TRUE(waitUntil([] { return windowCount("askpass") == 0; })) << attempt;
  }
  ASSERT_TRUE(waitForWindow());
  EXPECT_TRUE(staysAlone());
  quit();
  EXPECT_EQ(calls(), "");
  EXPECT_EQ(logged("Starting repair..."), 2U) << "once each, and not in the console";
  EXPECT_EQ(logged("Stopping"), 0U);
  EXPECT_TRUE(std::filesystem::is_empty(folder / "Library"));
}

TEST_F(PasswordRequirementTest, ACommandRunsItsToolsWithTheRightsThatThePasswordGave) {
  start();
  ASSERT_TRUE(waitForWindow());
  restartQmaster();
  ASSERT_TRUE(waitForDialog());
  answer(kPassword);
  ASSERT_TRUE(waitUntil([] { return windowCount("Quillmend") == 2; }, 20s)) << "no alert";
  press("Return");
  ASSERT_TRUE(waitUntil([] { return windowCount("Quillmend") == 1; }));
  EXPECT_TRUE(waitUntil([this] { return calls().find("-startSharing") != std::string::npos; }));
  EXPECT_EQ(calls(),
            "root /bin/launchctl load /Library/LaunchDaemons/com.apple.qmaster.qmasterd.plist\n"
            "root /usr/sbin/qmasterprefs -restart\n"
            "root /usr/sbin/qmasterprefs -startSharing\n");
  quit();
}

TEST_F(PasswordRequirementTest, WhileARepairWaitsForItsRightsNothingElseAsksForThem) {
  require();
  start();
  ASSERT_TRUE(waitForDialog());
  answer(kPassword);
  ASSERT_TRUE(waitForWindow());
  const std::string windowMain = activeWindow();
  repair();  // with the rights of the start, which end with it
  ASSERT_TRUE(waitUntil([] { return windowCount("Quillmend") == 2; }, 20s)) << "no alert";
  press("Return");
  ASSERT_TRUE(waitForWindow());
  const std::string before = stored();
  repair();
  ASSERT_TRUE(waitForDialog());
  xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), QString::fromStdString(windowMain)});
  toggle();
  saveScreen("password-for-repair");
  press("Escape");  // the menu
  EXPECT_FALSE(waitUntil([] { return windowCount("askpass") != 1; }, 500ms));
  EXPECT_EQ(stored(), before);
  xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--classname"),
           QStringLiteral("^askpass$"), QStringLiteral("windowactivate"), QStringLiteral("--sync")});
  ASSERT_TRUE(waitForDialog());
  press("Escape");
  ASSERT_TRUE(waitForWindow());
  toggle();
  ASSERT_TRUE(waitForDialog()) << "on and enabled again";
  press("Escape");
  ASSERT_TRUE(waitForWindow());
  EXPECT_EQ(stored(), before);
  quit();
}

TEST_F(PasswordRequirementTest, ASignalAtThePasswordOfTheStartEndsDialogAndProgram) {
  require();
  start();
  ASSERT_TRUE(waitForDialog());
  endBySignal();
  EXPECT_EQ(windowCount("Quillmend"), 0U);
}

TEST_F(PasswordRequirementTest, ASignalAtThePasswordOfACommandEndsDialogAndProgram) {
  for (const auto command : {repair, stopQmaster}) {
    start();
    ASSERT_TRUE(waitForWindow());
    command();
    ASSERT_TRUE(waitForDialog());
    endBySignal();
  }
}

TEST_F(PasswordRequirementTest, QuittingWhileARepairWaitsForItsRightsEndsDialogAndProgram) {
  start();
  ASSERT_TRUE(waitForWindow());
  const std::string windowMain = activeWindow();
  repair();
  ASSERT_TRUE(waitForDialog());
  xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), QString::fromStdString(windowMain)});
  press("ctrl+q");
  ASSERT_TRUE(waitUntil([] { return windowCount("Quillmend") == 2; })) << "no question";
  press("alt+q");
  expectEnd();
  EXPECT_TRUE(waitUntil([] { return windowCount("askpass") == 0; }));
}

TEST_F(PasswordRequirementTest, AtTheStartThePasswordComesBeforeAnythingElse) {
  require();
  start();
  ASSERT_TRUE(waitForDialog());
  saveScreen("password-at-start");
  EXPECT_EQ(windowCount("Quillmend"), 0U);
  answer(kPassword);
  ASSERT_TRUE(waitForWindow());
  quit();
}

TEST_F(PasswordRequirementTest, ARefusedPasswordAtTheStartEndsTheProgram) {
  require();
  start();
  ASSERT_TRUE(waitForDialog());
  press("Escape");
  expectEnd();
}

TEST_F(PasswordRequirementTest, AWrongPasswordIsSaidToBeWrongAskedForAgainAndWrittenNowhere) {
  require();
  start();
  ASSERT_TRUE(waitForDialog());
  const int first = dialogHeight();
  answer("wrong horse");
  ASSERT_TRUE(waitUntil([] { return windowCount("askpass") == 0; }));
  ASSERT_TRUE(waitForDialog()) << "a second try";
  saveScreen("password-not-accepted");
  EXPECT_GT(dialogHeight(), first) << "a line more, which says that it was not accepted";
  press("Escape");
  expectEnd();
  const std::string said =
      program.readAllStandardOutput().toStdString() + program.readAllStandardError().toStdString();
  EXPECT_THAT(said, Not(HasSubstr("horse")));
  EXPECT_THAT(said, Not(HasSubstr("No administrator rights"))) << "the dialog has told it";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
    if (!entry.is_regular_file()) continue;
    std::ifstream stream(entry.path());
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    EXPECT_THAT(text, Not(HasSubstr("horse"))) << entry.path();
  }
}

TEST_F(PasswordRequirementTest, WhyARightPasswordIsRefusedIsOneLineOnTheConsole) {
  account->setOptions("lecture=always");
  account->expire();
  require();
  start();
  ASSERT_TRUE(waitForDialog());
  answer(kPassword);
  expectEnd();
  const std::string said = program.readAllStandardError().toStdString();
  EXPECT_THAT(said, HasSubstr("] No administrator rights: sudo: account validation failure"));
  EXPECT_THAT(said, Not(HasSubstr("askpass")));
  EXPECT_THAT(said, Not(HasSubstr("lecture")));
}

}  // namespace
}  // namespace window
