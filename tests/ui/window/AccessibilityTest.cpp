#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <QDialog>
#include <QMenuBar>
#include <QProcess>
#include <QTreeView>
#include <QVBoxLayout>
#include <algorithm>
#include <map>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/ui/window/DesktopSession.h"
#include "tests/ui/window/FakeOwner.h"
#include "tests/ui/window/ScreenReader.h"
#include "ui/AttributedString.h"
#include "ui/window/MainWindow.h"
#include "ui/window/askpass/PasswordField.h"

// What somebody hears who cannot see the window.

namespace window {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Pair;

/// Somebody with a screen reader.
class Listener : public ::testing::Test {
 protected:
  /// Everything that there is to be heard of, "role: name".
  std::vector<std::string> everything() {
    std::vector<std::string> lines;
    desktop().visit([&](const Accessible& thing) { lines.push_back(thing.role + ": " + thing.name); });
    return lines;
  }
  [[nodiscard]] bool contains(const std::string& text) {
    const auto lines = everything();
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& line) { return line.find(text) != std::string::npos; });
  }
  /// The desktop, once an application with a window has introduced itself; an empty one if none does.
  Accessible desktop() {
    Accessible all;
    const bool isThere = waitUntil(
        [&] {
          all = reader.desktop();
          return std::any_of(all.children.begin(), all.children.end(),
                             [](const Accessible& application) { return !application.children.empty(); });
        },
        std::chrono::seconds(30));
    EXPECT_TRUE(isThere) << "no application on the accessibility bus";
    return all;
  }
  /// The thing of that role and name, once it is there.
  Accessible find(const std::string& role, const std::string& name) {
    Accessible found;
    const bool isThere = waitUntil([&] {
      reader.desktop().visit([&](const Accessible& thing) {
        if (thing.role == role && thing.name == name) found = thing;
      });
      return !found.path.empty();
    });
    EXPECT_TRUE(isThere) << role << " " << name;
    return found;
  }
  [[nodiscard]] bool waitForAnnouncement(const std::string& text, const Accessible& of) const {
    return waitUntil([&] {
      const auto all = reader.announcements();
      return std::any_of(all.begin(), all.end(), [&](const Announcement& announcement) {
        return announcement.text == text && announcement.path == of.path;
      });
    });
  }
  [[nodiscard]] std::size_t announcementsOf(const Accessible& thing) const {
    const auto all = reader.announcements();
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(),
                      [&](const Announcement& announcement) { return announcement.path == thing.path; }));
  }

  ScreenReader reader;
};

class AccessibilityTest : public Listener {
 protected:
  AccessibilityTest() {
    window.present();
    EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
  }
  ~AccessibilityTest() override { window.setMayClose(); }

  FakeOwner owner;
  MainWindow window{owner};
};

TEST_F(AccessibilityTest, EveryControlHasItsRoleAndItsName) {
  const auto lines = everything();
  for (const char* line : {"application: Quillmend", "check box: Trash preferences",
                           "check box: Reset Qmaster", "check box: Reset window layout",
                           "push button: Repair", "text: Console", "progress bar: Progress of the repair"}) {
    EXPECT_THAT(lines, Contains(line));
  }
}

TEST_F(AccessibilityTest, NothingThatCanHaveTheKeyboardIsWithoutAName) {
  desktop().visit([](const Accessible& thing) {
    EXPECT_FALSE(thing.isFocusable && thing.name.empty()) << thing.role << " at " << thing.path;
  });
}

TEST_F(AccessibilityTest, EveryCommandOfTheMenusIsThere) {
  const auto lines = everything();
  for (const QMenu* const menu : window.menuBar()->findChildren<QMenu*>(Qt::FindDirectChildrenOnly)) {
    for (const QAction* const item : menu->actions()) {
      if (item->isSeparator() || !item->isVisible()) continue;
      EXPECT_THAT(lines, Contains("menu item: " + item->text().remove(u'&').toStdString()));
    }
  }
}

TEST_F(AccessibilityTest, TheButtonCanBePressedThroughIt) {
  reader.press(find("push button", "Repair"));
  EXPECT_TRUE(waitUntil([this] { return !owner.lines.empty(); }));
  EXPECT_THAT(owner.lines, ElementsAre("repair"));
}

TEST_F(AccessibilityTest, ANewLineOfTheConsoleIsAnnounced) {
  auto* const console = window.connections().errorText;
  console->insertText("Starting repair...", {.isBold = true});
  EXPECT_TRUE(waitForAnnouncement("TextChanged insert: Starting repair...", find("text", "Console")));
}

TEST_F(AccessibilityTest, TheProgressIsAnnounced) {
  window.connections().repairProgress->showStage("Removing caches", 5, 10);
  EXPECT_TRUE(waitForAnnouncement("PropertyChange accessible-name", find("label", "Removing caches…")));
  EXPECT_TRUE(
      waitForAnnouncement("PropertyChange accessible-value", find("progress bar", "Progress of the repair")));
}

TEST_F(AccessibilityTest, ARepairThatBreaksOffIsAnnounced) {
  window.connections().repairProgress->showStage("Stopping Qmaster", 0, 10);
  const Accessible stage = find("label", "Stopping Qmaster…");
  ASSERT_TRUE(waitForAnnouncement("PropertyChange accessible-name", stage));
  QTest::qWait(300);  // what else is said of the first stage
  const std::size_t before = announcementsOf(stage);
  window.connections().repairProgress->showBrokenOff();
  EXPECT_TRUE(waitUntil([&] { return announcementsOf(stage) > before; }));
  EXPECT_EQ(find("label", "The repair did not finish. See the log.").path, stage.path);
}

TEST_F(AccessibilityTest, ALinkIsAThingInTheConsoleThatCanBePressed) {
  auto* const console = window.connections().errorText;
  console->insertText("before\n\n", {});
  console->insertAttributedText(
      AttributedString::hyperlinkFromString("Get more", "https://www.vordenworks.example/more"));
  const Accessible link = find("link", "Get more");
  EXPECT_EQ(link.description, "https://www.vordenworks.example/more");
  EXPECT_TRUE(link.isFocusable);
  const Accessible text = find("text", "Console");
  EXPECT_TRUE(std::any_of(text.children.begin(), text.children.end(),
                          [&](const Accessible& child) { return child.path == link.path; }));
  reader.press(link);
  EXPECT_TRUE(waitUntil([this] { return !owner.lines.empty(); }));
  EXPECT_THAT(owner.lines, ElementsAre("open https://www.vordenworks.example/more"));
  console->setString("");
  EXPECT_THAT(everything(), Not(Contains("link: Get more")));
  console->insertAttributedText(
      AttributedString::hyperlinkFromString("Get less", "https://www.vordenworks.example/less"));
  EXPECT_THAT(everything(), Contains("link: Get less"));
}

TEST_F(AccessibilityTest, TheConsolesTextIsReadWithItsLooks) {
  auto* const console = window.connections().errorText;
  console->insertText("bold", {.isBold = true});
  console->insertText("\n\nsecond line", {});
  const Accessible text = find("text", "Console");
  EXPECT_EQ(reader.text(text, 0, -1), "bold\n\nsecond line");
  EXPECT_EQ(reader.lineAt(text, 8), "second line");
  EXPECT_THAT(reader.looks(text, 0), Contains(Pair("weight", "bold")));
  EXPECT_THAT(reader.looks(text, 8), Not(Contains(Pair("weight", "bold"))));
}

TEST_F(AccessibilityTest, TheKeyboardsWayToALinkIsAnnounced) {
  window.connections().errorText->insertAttributedText(
      AttributedString::hyperlinkFromString("Get more", "https://www.vordenworks.example/more"));
  const Accessible link = find("link", "Get more");
  window::press("Tab");
  EXPECT_TRUE(waitForAnnouncement("StateChanged focused", find("text", "Console")));
  window::press("Tab");
  EXPECT_TRUE(waitForAnnouncement("StateChanged focused", link));
}

TEST_F(AccessibilityTest, ShortcutsAreHeardWithTheirCommandsAndWithWhoElseHoldsThem) {
  owner.keys.rows[1].conflict = "Another holds Ctrl+S too.";
  window.findChild<QAction*>(QStringLiteral("preferences"))->trigger();
  EXPECT_TRUE(waitUntil([this] { return !owner.keys.lines.empty(); }));
  EXPECT_NE(find("push button", "Clear").path, "");
  std::vector<std::string> cells;
  desktop().visit([&](const Accessible& thing) {
    if (thing.role == "tree item") cells.push_back(thing.name + ": " + thing.description);
    EXPECT_FALSE(thing.isFocusable && thing.name.empty()) << thing.role;
  });
  EXPECT_THAT(cells, ElementsAre("Repair: ", "no keys: ", "Stop Qmaster: Another holds Ctrl+S too.",
                                 "Ctrl+S: Another holds Ctrl+S too.", "Start Qmaster: ", "no keys: "));
}

TEST_F(AccessibilityTest, WhoElseHoldsTheKeysThatWereRecordedIsAnnounced) {
  window.findChild<QAction*>(QStringLiteral("preferences"))->trigger();
  EXPECT_TRUE(waitUntil([this] { return !owner.keys.lines.empty(); }));
  owner.keys.rows[1].conflict = "Another holds Ctrl+S too.";
  auto* const table = window.findChild<QTreeView*>(QStringLiteral("shortcutKeyTableView"));
  table->setCurrentIndex(table->model()->index(1, 0));
  EXPECT_TRUE(
      waitForAnnouncement("PropertyChange accessible-name", find("label", "Another holds Ctrl+S too.")));
}

TEST_F(AccessibilityTest, ThePreferencesCanBeClosedThroughItAndOpenedAgain) {
  auto* const preferences = window.findChild<QAction*>(QStringLiteral("preferences"));
  preferences->trigger();
  EXPECT_TRUE(waitUntil([this] { return !owner.keys.lines.empty(); }));
  reader.press(find("push button", "Close"));
  EXPECT_TRUE(waitUntil([this] { return owner.keys.lines.back() == "closing"; }));
  EXPECT_TRUE(window.isVisible());
  preferences->trigger();
  EXPECT_TRUE(waitUntil([this] { return owner.keys.lines.back() == "loaded"; }));
}

TEST_F(AccessibilityTest, APasswordIsHeardOfAsOneAndNotHeard) {
  describePasswordFields();
  QDialog dialog;
  auto* const field = new PasswordField(&dialog);
  field->setAccessibleName(QStringLiteral("Password"));
  (new QVBoxLayout(&dialog))->addWidget(field);
  dialog.show();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&dialog));
  QTest::keyClicks(field, QStringLiteral("geheim"));
  constexpr std::uint32_t kPasswordText = 40;  // AtspiRole
  EXPECT_EQ(find("text", "Password").roleNumber, kPasswordText);
  QTest::qWait(200);
  for (const Announcement& announcement : reader.announcements()) {
    EXPECT_THAT(announcement.text, Not(HasSubstr("geheim")));
  }
}

TEST_F(Listener, APasswordThatSudoAsksForOnceMoreIsSaidToBeWrong) {
  const platform::UniqueDescriptor memory(::memfd_create("sudo", 0));
  const QString prompt = QStringLiteral("[sudo] password for alice: ");
  for (const bool isSecond : {false, true}) {
    QProcess askpass;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0"));
    askpass.setProcessEnvironment(environment);
    askpass.start(QStringLiteral("sh"),
                  {QStringLiteral("-c"), QStringLiteral("exec \"$0\" \"$1\" 2<>\"$2\""),
                   QStringLiteral(QUILLMEND_BUNDLE "/Contents/SharedSupport/askpass"), prompt,
                   QStringLiteral("/proc/%1/fd/%2").arg(::getpid()).arg(memory.get())});
    ASSERT_TRUE(waitUntil([] { return hasKeyboard("askpass"); }));
    find("push button", "OK");
    EXPECT_EQ(isSecond, contains("The password was not accepted. Try again."));
    if (isSecond) saveScreen("password-again");
    type("wrong");
    press("Return");
    EXPECT_TRUE(askpass.waitForFinished());
    EXPECT_EQ(askpass.exitCode(), 0);
  }
}

/// The program itself: a system of its own, where nothing but what is its own is changed and no process but
/// its own is seen. Arguments: a folder to make it in, the bundle.
constexpr const char* kScript = R"(
mount -t tmpfs none "$1"
mkdir "$1/upper" "$1/work" "$1/root"
mount -t overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" none "$1/root"
root="$1/root"
for place in /dev /run /tmp; do mount --bind "$place" "$root$place"; done
mount -t proc proc "$root/proc"
app=/Applications/Quillmend.app
mkdir -p "$root/Library" "$root$app"
mount --bind "$2" "$root$app"
exec chroot "$root" "$app/Contents/MacOS/Quillmend"
)";

class ProgramAccessibilityTest : public Listener {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root: makes a system of the program's own";
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), QStringLiteral("/root"));
    program.setProcessEnvironment(environment);
    program.start(QStringLiteral("unshare"),
                  {QStringLiteral("--mount"), QStringLiteral("--pid"), QStringLiteral("--fork"),
                   QStringLiteral("--kill-child"), QStringLiteral("--"), QStringLiteral("sh"),
                   QStringLiteral("-euc"), QString::fromLatin1(kScript), QStringLiteral("sh"),
                   QString::fromStdString(folder.path()), QStringLiteral(QUILLMEND_BUNDLE)});
    ASSERT_TRUE(waitUntil([] { return hasKeyboard("Quillmend"); }, std::chrono::seconds(30)))
        << program.readAllStandardError().toStdString();
  }
  ~ProgramAccessibilityTest() override {
    program.kill();
    program.waitForFinished();
  }
  /// The names of what was given the keyboard, in order.
  std::vector<std::string> focused() {
    std::map<std::string, std::string> names;
    reader.desktop().visit(
        [&](const Accessible& thing) { names[thing.path] = thing.role + ": " + thing.name; });
    std::vector<std::string> all;
    for (const Announcement& announcement : reader.announcements()) {
      if (announcement.text == "StateChanged focused") all.push_back(names[announcement.path]);
    }
    return all;
  }

  support::TemporaryFolder folder;
  QProcess program;
};

constexpr const char* kLink = "Get Stellate Toolbox for even more features";

TEST_F(ProgramAccessibilityTest, EveryControlHasARoleAndAName) {
  const auto lines = everything();
  for (const std::string line :
       {"application: Quillmend", "frame: Quillmend", "check box: Trash preferences",
        "check box: Reset Qmaster", "check box: Reset window layout", "push button: Repair", "text: Console",
        "progress bar: Progress of the repair", "label: Ready", "menu item: Quit", "menu item: Copy"}) {
    EXPECT_THAT(lines, Contains(line));
  }
  EXPECT_THAT(lines, Contains(std::string("link: ") + kLink));
  desktop().visit([](const Accessible& thing) {
    EXPECT_FALSE(thing.isFocusable && thing.name.empty()) << thing.role << " at " << thing.path;
    EXPECT_THAT(thing.role, AllOf(Not("unknown"), Not("invalid"), Not("")))
        << thing.name << " at " << thing.path;
  });
}

TEST_F(ProgramAccessibilityTest, TabGoesToEveryControlAndTheLinkAndEachIsAnnounced) {
  const std::vector<std::string> way = {"text: Console",
                                        std::string("link: ") + kLink,
                                        "check box: Trash preferences",
                                        "check box: Reset Qmaster",
                                        "check box: Reset window layout",
                                        "push button: Repair"};
  for (std::size_t step = 0; step < way.size(); ++step) {
    press("Tab");
    EXPECT_TRUE(waitUntil([&] {
      const auto now = focused();
      return !now.empty() && now.back() == way[step];
    })) << way[step];
  }
}

TEST_F(ProgramAccessibilityTest, ARepairsLinesItsStagesAndItsEndAreAnnounced) {
  const Accessible console = find("text", "Console");
  const Accessible stage = find("label", "Ready");
  const Accessible bar = find("progress bar", "Progress of the repair");
  reader.press(find("push button", "Repair"));
  EXPECT_TRUE(waitForAnnouncement("TextChanged insert: Starting repair...", console));
  EXPECT_TRUE(waitForAnnouncement("PropertyChange accessible-name", stage));
  EXPECT_TRUE(waitForAnnouncement("PropertyChange accessible-value", bar));
  find("push button", "OK");
  EXPECT_THAT(everything(), Contains(HasSubstr("Processing complete")));
  press("Return");
  EXPECT_TRUE(waitUntil([&] { return !focused().empty() && focused().back() == "push button: Repair"; }))
      << "where a repair was begun from";
}

}  // namespace
}  // namespace window
