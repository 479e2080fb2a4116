#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QProcess>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestAccount.h"
#include "tests/ui/window/DesktopSession.h"

// The real program with a real sudo, as an account of the test's own uses it.

namespace window {
namespace {

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
  static void answer(const char* password) {
    type(password);
    press("Return");
  }
  static void toggle() {
    press("alt+e");
    press("p");
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
  bool waitUntilStored(const std::string& text) const {
    return waitUntil([&] { return stored().find(text) != std::string::npos; });
  }

  support::TemporaryFolder folder;
  std::unique_ptr<support::TestAccount> account;
  QProcess program;
};

TEST_F(PasswordRequirementTest, AnybodyMayMakeItAndOnlyAnAdministratorMayLiftIt) {
  start();
  ASSERT_TRUE(waitForWindow());
  toggle();
  ASSERT_TRUE(waitUntilStored("requireAdminPassword")) << "nobody was asked";
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
  ASSERT_TRUE(waitUntil([&] { return stored() != made; }));
  quit();
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

TEST_F(PasswordRequirementTest, AWrongPasswordIsAskedForAgainAndSaysNothingAboutIt) {
  require();
  start();
  ASSERT_TRUE(waitForDialog());
  answer("wrong horse");
  ASSERT_TRUE(waitUntil([] { return windowCount("askpass") == 0; }));
  ASSERT_TRUE(waitForDialog()) << "a second try";
  press("Escape");
  expectEnd();
  const std::string said =
      program.readAllStandardOutput().toStdString() + program.readAllStandardError().toStdString();
  EXPECT_THAT(said, Not(HasSubstr("horse")));
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
    if (!entry.is_regular_file()) continue;
    std::ifstream stream(entry.path());
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    EXPECT_THAT(text, Not(HasSubstr("horse"))) << entry.path();
  }
}

}  // namespace
}  // namespace window
