#include <gmock/gmock.h>

#include <QDialog>
#include <QMenuBar>
#include <QVBoxLayout>
#include <algorithm>

#include "tests/ui/window/DesktopSession.h"
#include "tests/ui/window/FakeOwner.h"
#include "tests/ui/window/ScreenReader.h"
#include "ui/window/MainWindow.h"
#include "ui/window/askpass/PasswordField.h"

// What somebody hears who cannot see the window.

namespace window {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class AccessibilityTest : public ::testing::Test {
 protected:
  AccessibilityTest() {
    window.present();
    EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
  }
  ~AccessibilityTest() override { window.setMayClose(); }

  /// Everything that there is to be heard of, "role: name".
  std::vector<std::string> everything() {
    std::vector<std::string> lines;
    desktop().visit([&](const Accessible& thing) { lines.push_back(thing.role + ": " + thing.name); });
    return lines;
  }
  /// The desktop, once the application has introduced itself.
  Accessible desktop() {
    Accessible all = reader.desktop();
    while (all.children.empty()) all = reader.desktop();
    return all;
  }
  /// The thing of that role and name.
  Accessible find(const std::string& role, const std::string& name) {
    Accessible found;
    desktop().visit([&](const Accessible& thing) {
      if (thing.role == role && thing.name == name) found = thing;
    });
    EXPECT_NE(found.path, "") << role << " " << name;
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

  ScreenReader reader;
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

}  // namespace
}  // namespace window
