#include "ui/window/MainWindow.h"

#include <gmock/gmock.h>

#include <QCheckBox>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <cstdlib>
#include <string_view>

#include "tests/ui/window/DesktopSession.h"
#include "tests/ui/window/FakeOwner.h"
#include "ui/AttributedString.h"
#include "ui/window/ConsoleView.h"

namespace window {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// While it lives, only the upper left part of the screen is free, as beside large panels of a desktop.
class SmallScreen {
 public:
  explicit SmallScreen(QSize free) { use(free); }
  ~SmallScreen() { use(QGuiApplication::primaryScreen()->size()); }
  SmallScreen(const SmallScreen&) = delete;
  SmallScreen& operator=(const SmallScreen&) = delete;

 private:
  /// What a window manager tells by it (freedesktop.org, Extended Window Manager Hints).
  static void use(QSize free) {
    QProcess::execute(QStringLiteral("xprop"),
                      {QStringLiteral("-root"), QStringLiteral("-f"), QStringLiteral("_NET_WORKAREA"),
                       QStringLiteral("32c"), QStringLiteral("-set"), QStringLiteral("_NET_WORKAREA"),
                       QStringLiteral("0, 0, %1, %2").arg(free.width()).arg(free.height())});
    EXPECT_TRUE(waitUntil([&] { return QGuiApplication::primaryScreen()->availableSize() == free; }));
  }
};

/// How many pixels have about that colour.
int pixelsLike(const QImage& picture, const QColor& color) {
  constexpr int kNear = 24;
  int count = 0;
  for (int y = 0; y < picture.height(); ++y) {
    for (int x = 0; x < picture.width(); ++x) {
      const QColor pixel = picture.pixelColor(x, y);
      const int distance = std::abs(pixel.red() - color.red()) + std::abs(pixel.green() - color.green()) +
                           std::abs(pixel.blue() - color.blue());
      if (distance <= kNear) ++count;
    }
  }
  return count;
}

class MainWindowTest : public ::testing::Test {
 protected:
  ~MainWindowTest() override {
    window.setMayClose();
    useUsualPalette();
  }
  void show() {
    window.present();
    EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
  }
  template <typename Widget>
  Widget* find(const char* name) {
    return window.findChild<Widget*>(QString::fromLatin1(name));
  }
  QAction* action(const char* name) { return find<QAction>(name); }
  [[nodiscard]] QMessageBox* panel() { return window.findChild<QMessageBox*>(); }
  void press(QWidget* widget) { QTest::mouseClick(widget, Qt::LeftButton); }
  [[nodiscard]] QPushButton* panelButton(const QString& text) {
    for (QAbstractButton* const button : panel()->buttons()) {
      if (button->text().remove(u'&') == text) return qobject_cast<QPushButton*>(button);
    }
    return nullptr;
  }

  FakeOwner owner;
  MainWindow window{owner};
};

TEST_F(MainWindowTest, ItsPartsHaveTheNamesOfTheirOutlets) {
  EXPECT_EQ(window.objectName(), QStringLiteral("windowMain"));
  for (const char* name : {"errorText", "repairButton", "trashPrefs", "resetQmasterCheck", "resetLayoutCheck",
                           "logoImageView", "repairProgress"}) {
    EXPECT_NE(find<QWidget>(name), nullptr) << name;
  }
  for (const char* name : {"menuItemResetOldQmasterConfig", "prefsAdminPass"}) {
    EXPECT_NE(action(name), nullptr) << name;
  }
}

TEST_F(MainWindowTest, EverythingFitsAtItsSmallest) {
  show();
  window.resize(480, 360);
  EXPECT_TRUE(waitUntil([this] { return window.size() == QSize(480, 360); }));
  const auto controls = window.findChild<QWidget*>(QStringLiteral("content"))
                            ->findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly);
  for (const QWidget* const one : controls) {
    EXPECT_TRUE(window.rect().contains(QRect(one->mapTo(&window, QPoint()), one->size())))
        << one->objectName().toStdString();
    for (const QWidget* const other : controls) {
      EXPECT_FALSE(one != other && one->geometry().intersects(other->geometry()));
    }
  }
  EXPECT_GE(find<ConsoleView>("errorText")->height(), 60);
  window.resize(300, 200);
  QTest::qWait(100);
  EXPECT_EQ(window.size(), QSize(480, 360)) << "no smaller";
}

TEST_F(MainWindowTest, TheMenusAreInTheUsualOrder) {
  QStringList titles;
  for (const QAction* const menu : window.menuBar()->actions()) titles << menu->text().remove(u'&');
  EXPECT_EQ(titles.join(u' '), QStringLiteral("File Edit Tools Window Help"));
  show();
  for (const QAction* const menu : window.menuBar()->actions()) {
    EXPECT_TRUE(menu->isEnabled() && menu->menu()->isEnabled()) << menu->text().toStdString();
  }
}

TEST_F(MainWindowTest, NoMenuLooksDisabled) {
  show();
  const QImage bar = window.menuBar()->grab().toImage();
  const auto darkest = [&bar](const QRect& part) {
    int lightness = 255;
    for (int x = part.left(); x <= part.right(); ++x) {
      for (int y = part.top(); y <= part.bottom(); ++y) {
        lightness = std::min(lightness, bar.pixelColor(x, y).lightness());
      }
    }
    return lightness;
  };
  for (QAction* const menu : window.menuBar()->actions()) {
    EXPECT_LT(darkest(window.menuBar()->actionGeometry(menu)), 60) << menu->text().toStdString();
  }
}

TEST_F(MainWindowTest, EveryCommandPerformsTheActionOfItsName) {
  for (const char* name : {"repair", "viewLog", "viewTaskLog", "gatherLogs", "menuRestartQmaster",
                           "menuStopQmaster", "menuTrashCompressorPrefs", "menuTrashCompressor4Prefs",
                           "resetWindowLayout", "helpManual", "helpHome", "helpCareplex", "helpTGHome",
                           "helpReportBug", "helpSuggestFeature", "manualUpdateCheck"}) {
    owner.lines.clear();
    action(name)->trigger();
    EXPECT_THAT(owner.lines, ElementsAre(name));
  }
}

TEST_F(MainWindowTest, CommandsOfTheSameMenuHaveDifferentLetters) {
  for (QMenu* const menu : window.menuBar()->findChildren<QMenu*>(Qt::FindDirectChildrenOnly)) {
    QStringList letters;
    for (const QAction* const item : menu->actions()) {
      if (item->isSeparator() || !item->isVisible()) continue;
      const QString letter = item->text().section(u'&', 1, 1).left(1).toLower();
      EXPECT_FALSE(letter.isEmpty()) << item->text().toStdString();
      EXPECT_FALSE(letters.contains(letter)) << item->text().toStdString();
      letters << letter;
    }
  }
}

TEST_F(MainWindowTest, MenusAndControlsHaveDifferentLetters) {
  QStringList letters;
  const auto add = [&letters](const QString& text) {
    const QString letter = text.section(u'&', 1, 1).left(1).toLower();
    EXPECT_FALSE(letter.isEmpty()) << text.toStdString();
    EXPECT_FALSE(letters.contains(letter)) << text.toStdString();
    letters << letter;
  };
  for (const QAction* const menu : window.menuBar()->actions()) add(menu->text());
  for (const char* name : {"trashPrefs", "resetQmasterCheck", "resetLayoutCheck", "repairButton"}) {
    add(find<QAbstractButton>(name)->text());
  }
}

TEST_F(MainWindowTest, ACommandThatNobodyKnowsIsDisabled) {
  FakeOwner other;
  other.unknown = {"gatherLogs"};
  const MainWindow lacking(other);
  EXPECT_FALSE(lacking.findChild<QAction*>(QStringLiteral("gatherLogs"))->isEnabled());
  EXPECT_TRUE(lacking.findChild<QAction*>(QStringLiteral("viewLog"))->isEnabled());
  EXPECT_TRUE(lacking.findChild<QAction*>(QStringLiteral("quit"))->isEnabled());
}

TEST_F(MainWindowTest, TheOldConfigurationsItemIsThereAndNotSeen) {
  EXPECT_FALSE(action("menuItemResetOldQmasterConfig")->isVisible());
}

TEST_F(MainWindowTest, TheUsualKeysWork) {
  show();
  QTest::keyClick(&window, Qt::Key_R, Qt::ControlModifier);
  QTest::keyClick(&window, Qt::Key_L, Qt::ControlModifier);
  QTest::keyClick(&window, Qt::Key_F1);
  EXPECT_THAT(owner.lines, ElementsAre("repair", "viewLog", "helpManual"));
  QTest::keyClick(&window, Qt::Key_M, Qt::ControlModifier);
  EXPECT_TRUE(waitUntil([this] { return window.isMinimized(); }));
}

TEST_F(MainWindowTest, TheButtonRepairsAlsoByTheKeyboardAlone) {
  show();
  EXPECT_TRUE(find<QPushButton>("repairButton")->hasFocus());
  QTest::keyClick(find<QWidget>("repairButton"), Qt::Key_Space);
  press(find<QPushButton>("repairButton"));
  EXPECT_THAT(owner.lines, ElementsAre("repair", "repair"));
}

TEST_F(MainWindowTest, ADisabledButtonDisablesTheMenusCommandsOfARepairToo) {
  show();
  window.connections().repairButton->setEnabled(false);
  EXPECT_FALSE(action("menuStopQmaster")->isEnabled());
  EXPECT_TRUE(action("viewLog")->isEnabled());
  press(find<QPushButton>("repairButton"));
  QTest::keyClick(&window, Qt::Key_R, Qt::ControlModifier);
  EXPECT_THAT(owner.lines, IsEmpty());
  window.connections().repairButton->setEnabled(true);
  EXPECT_TRUE(action("menuStopQmaster")->isEnabled());
  QTest::keyClick(&window, Qt::Key_R, Qt::ControlModifier);
  EXPECT_THAT(owner.lines, ElementsAre("repair"));
}

TEST_F(MainWindowTest, KeysThatComeWhileTheButtonIsOffFallNowhereAndItHasTheKeyboardAgainAfterwards) {
  show();
  const auto parts = window.connections();
  auto* const button = find<QPushButton>("repairButton");
  ASSERT_TRUE(button->hasFocus());
  parts.repairButton->setEnabled(false);
  parts.errorText->setEditable(true);
  ASSERT_NE(QApplication::focusWidget(), nullptr) << "Tab goes on from somewhere";
  window::press("x");
  window::press("Return");
  window::type("stray");
  EXPECT_FALSE(waitUntil([&] { return parts.errorText->length() > 0; }, std::chrono::milliseconds(300)));
  parts.errorText->setEditable(false);
  parts.repairButton->setEnabled(true);
  EXPECT_TRUE(button->hasFocus());
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
  EXPECT_THAT(owner.lines, ElementsAre("repair"));
}

TEST_F(MainWindowTest, ThePlaceThatTheUserWentToMeanwhileKeepsTheKeyboard) {
  show();
  for (const char* const place : {"errorText", "trashPrefs"}) {
    find<QWidget>("repairButton")->setFocus();
    window.connections().repairButton->setEnabled(false);
    find<QWidget>(place)->setFocus();
    window.connections().repairButton->setEnabled(true);
    EXPECT_TRUE(find<QWidget>(place)->hasFocus()) << place;
  }
  window.connections().repairButton->setEnabled(false);
  window.connections().repairButton->setEnabled(true);
  EXPECT_TRUE(find<QWidget>("trashPrefs")->hasFocus()) << "it was not the button's to be given back";
}

TEST_F(MainWindowTest, TabGoesOnFromWhereTheButtonWas) {
  show();
  window.connections().repairButton->setEnabled(false);
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
  EXPECT_EQ(QApplication::focusWidget()->objectName().toStdString(), "errorText");
  window.connections().repairButton->setEnabled(true);
  find<QWidget>("repairButton")->setFocus();
  window.connections().repairButton->setEnabled(false);
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab, Qt::ShiftModifier);
  EXPECT_EQ(QApplication::focusWidget()->objectName().toStdString(), "resetLayoutCheck");
}

TEST_F(MainWindowTest, TheButtonHasTheKeyboardAgainBehindTheSheetThatCameBefore) {
  show();
  window.connections().repairButton->setEnabled(false);
  window.beginAlertSheet("Processing complete", "Done.");
  ASSERT_TRUE(waitUntil([this] { return panel() != nullptr && panel()->isActiveWindow(); }));
  window.connections().repairButton->setEnabled(true);
  QTest::keyClick(panel(), Qt::Key_Return);
  EXPECT_TRUE(waitUntil([this] { return window.isActiveWindow(); }));
  EXPECT_TRUE(find<QWidget>("repairButton")->hasFocus());
}

TEST_F(MainWindowTest, TabGoesThroughAllControls) {
  show();
  QStringList visited;
  for (int step = 0; step < 5; ++step) {
    visited << QApplication::focusWidget()->objectName();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
  }
  EXPECT_EQ(visited.join(u' '),
            QStringLiteral("repairButton errorText trashPrefs resetQmasterCheck resetLayoutCheck"));
}

TEST_F(MainWindowTest, EveryControlHasANameForThoseWhoCannotSeeIt) {
  for (const char* name : {"trashPrefs", "resetQmasterCheck", "resetLayoutCheck", "repairButton", "errorText",
                           "repairProgress", "logoImageView"}) {
    EXPECT_FALSE(find<QWidget>(name)->accessibleName().isEmpty()) << name;
  }
}

TEST_F(MainWindowTest, ACheckBoxThatIsPressedIsStoredAndOneThatIsSetIsNot) {
  show();
  window.connections().trashPrefs->setState(outlets::State::on);
  EXPECT_THAT(owner.lines, IsEmpty());
  QTest::keyClick(find<QWidget>("trashPrefs"), Qt::Key_Space);
  EXPECT_THAT(owner.lines, ElementsAre("storeOptions"));
  EXPECT_EQ(window.connections().trashPrefs->state(), outlets::State::off);
}

TEST_F(MainWindowTest, ThePasswordItemIsItsActionsSenderAndCanBePutBack) {
  action("prefsAdminPass")->trigger();
  EXPECT_THAT(owner.lines, ElementsAre("prefsToggleAdminPass by a sender"));
  EXPECT_EQ(window.connections().prefsAdminPass->state(), outlets::State::on);
  window.connections().prefsAdminPass->setState(outlets::State::off);
  EXPECT_FALSE(action("prefsAdminPass")->isChecked());
  EXPECT_EQ(owner.lines.size(), 1U);
}

TEST_F(MainWindowTest, AnAlertIsASheetOfTheWindowWithOneButtonAndPlainTexts) {
  show();
  window.beginAlertSheet("Processing complete", "<b>Errors</b> were found.\n\nScroll up.");
  ASSERT_TRUE(waitUntil([this] { return panel() != nullptr && panel()->isVisible(); }));
  EXPECT_EQ(panel()->windowModality(), Qt::WindowModal);
  EXPECT_EQ(panel()->buttons().size(), 1);
  EXPECT_EQ(panel()->informativeText(), QStringLiteral("<b>Errors</b> were found.\n\nScroll up."));
  for (const QLabel* const label : panel()->findChildren<QLabel*>()) {
    EXPECT_TRUE(label->text().isEmpty() || label->textFormat() == Qt::PlainText);
  }
  QTest::keyClick(panel(), Qt::Key_Return);
  EXPECT_TRUE(waitUntil([this] { return panel() == nullptr; }));
}

TEST_F(MainWindowTest, TheProgressShowsTheStageAndIsGoneAtTheEnd) {
  show();
  auto* const bar = find<QProgressBar>("repairProgress");
  auto* const progress = window.connections().repairProgress;
  EXPECT_FALSE(bar->isVisible());
  progress->showStage("Waiting for authorization", 0, 0);
  EXPECT_TRUE(bar->isVisible());
  EXPECT_EQ(bar->maximum(), 0) << "a bar that only moves";
  progress->showStage("Removing caches", 5, 10);
  EXPECT_EQ(bar->value() * 2, bar->maximum());
  EXPECT_EQ(find<QLabel>("repairStage")->text(), QStringLiteral("Removing caches…"));
  EXPECT_EQ(find<ConsoleView>("errorText")->length(), 0U);
  progress->hide();
  EXPECT_FALSE(bar->isVisible());
  EXPECT_EQ(find<QLabel>("repairStage")->text(), QStringLiteral("Ready"));
}

TEST_F(MainWindowTest, ARepairThatBrokeOffIsSaidUntilTheNextOneBegins) {
  show();
  auto* const progress = window.connections().repairProgress;
  const auto* const stage = find<QLabel>("repairStage");
  progress->showStage("Stopping Qmaster", 0, 10);
  progress->showBrokenOff();
  EXPECT_FALSE(find<QProgressBar>("repairProgress")->isVisible());
  EXPECT_EQ(stage->text(), QStringLiteral("The repair did not finish. See the log."));
  window.resize(480, 360);
  EXPECT_TRUE(waitUntil([this] { return window.size() == QSize(480, 360); }));
  EXPECT_GE(stage->width(), stage->sizeHint().width()) << "all of it can be read";
  saveScreenshot(window, "broken-off");
  progress->showStage("Waiting for authorization", 0, 0);
  EXPECT_EQ(stage->text(), QStringLiteral("Waiting for authorization…"));
}

TEST_F(MainWindowTest, CopyIsThereForASelectionOnly) {
  show();
  auto* const console = find<ConsoleView>("errorText");
  window.connections().errorText->insertText("Starting repair...", {});
  EXPECT_FALSE(action("copy")->isEnabled());
  console->setFocus();
  QTest::keyClick(console, Qt::Key_C, Qt::ControlModifier);  // harmless
  action("selectAll")->trigger();
  EXPECT_TRUE(action("copy")->isEnabled());
  console->moveCursor(QTextCursor::End);
  EXPECT_FALSE(action("copy")->isEnabled());
}

TEST_F(MainWindowTest, ClosingWithoutARepairClosesAndRemembersThePlace) {
  show();
  window.resize(520, 400);
  EXPECT_TRUE(waitUntil([this] { return window.size() == QSize(520, 400); }));
  EXPECT_TRUE(window.close());
  EXPECT_THAT(owner.frame, ::testing::EndsWith(" 520 400"));
}

TEST_F(MainWindowTest, ClosingInARepairAsksAndStayingIsTheDefault) {
  show();
  owner.repairing = true;
  EXPECT_FALSE(window.close());
  ASSERT_TRUE(waitUntil([this] { return panel() != nullptr && panel()->isVisible(); }));
  EXPECT_FALSE(window.close()) << "asked once";
  EXPECT_EQ(window.findChildren<QMessageBox*>().size(), 1);
  QTest::keyClick(panel(), Qt::Key_Return);
  EXPECT_TRUE(waitUntil([this] { return panel() == nullptr; }));
  EXPECT_TRUE(window.isVisible());
  EXPECT_THAT(owner.lines, IsEmpty());
}

TEST_F(MainWindowTest, ClosingInARepairCanEndItAtItsNextStep) {
  show();
  owner.repairing = true;
  window.close();
  ASSERT_TRUE(waitUntil([this] { return panel() != nullptr && panel()->isVisible(); }));
  press(panelButton(QStringLiteral("Quit After This Step")));
  EXPECT_THAT(owner.lines, ElementsAre("end repair"));
  EXPECT_TRUE(window.isVisible()) << "until the step has ended";
  window.connections().repairProgress->showStage("Removing caches", 5, 10);
  EXPECT_EQ(find<QLabel>("repairStage")->text(), QStringLiteral("Ending after this step…"));
}

TEST_F(MainWindowTest, TheQuestionGoesWhenTheRepairHasEndedByItself) {
  show();
  owner.repairing = true;
  window.close();
  ASSERT_TRUE(waitUntil([this] { return panel() != nullptr && panel()->isVisible(); }));
  owner.repairing = false;
  window.connections().repairProgress->hide();
  EXPECT_TRUE(waitUntil([this] { return panel() == nullptr; }));
  EXPECT_THAT(owner.lines, IsEmpty());
}

TEST_F(MainWindowTest, ItComesBackWhereItWas) {
  owner.frame = "200 150 600 450";
  show();
  EXPECT_TRUE(waitUntil([this] { return window.size() == QSize(600, 450); }));
  EXPECT_EQ(window.pos(), QPoint(200, 150));
}

TEST_F(MainWindowTest, APlaceThatIsOnNoScreenOrNoPlaceIsNotGoneBackTo) {
  for (const char* frame : {"9000 9000 600 450", "a b c d", "1 2 3", "", "-5 -5 -5 -5", "0 0 99999 99999"}) {
    FakeOwner other;
    other.frame = frame;
    MainWindow lost(other);
    lost.present();
    EXPECT_TRUE(QTest::qWaitForWindowActive(&lost));
    EXPECT_TRUE(lost.screen()->geometry().intersects(lost.geometry())) << frame;
    EXPECT_LE(lost.width(), lost.screen()->availableGeometry().width()) << frame;
    EXPECT_GE(lost.width(), 480) << frame;
  }
}

TEST_F(MainWindowTest, OnASmallScreenTheFirstWindowIsNoLargerThanThat) {
  const SmallScreen screen(QSize(560, 480));
  show();
  const QRect room = window.screen()->availableGeometry();
  ASSERT_EQ(room.size(), QSize(560, 480));
  const auto fits = [&](QSize size) { return size == size.boundedTo(room.size()); };
  EXPECT_TRUE(waitUntil([&] { return fits(window.frameGeometry().size()); }));
  EXPECT_GT(window.frameGeometry().height(), window.height()) << "the frame was looked at";
}

TEST_F(MainWindowTest, ItComesBackAsLargeAsTheScreenAndWithItsOwnSizeBehindThat) {
  for (const char* const state : {"maximized", "fullscreen"}) {
    FakeOwner other;
    other.frame = "200 150 600 450";
    {
      MainWindow first(other);
      first.present();
      EXPECT_TRUE(QTest::qWaitForWindowActive(&first));
      state == std::string_view("maximized") ? first.showMaximized() : first.showFullScreen();
      EXPECT_TRUE(waitUntil([&] { return first.width() > 1500; }));
      first.close();
    }
    EXPECT_EQ(other.frame, std::string("200 150 600 450 ") + state);
    MainWindow second(other);
    second.present();
    EXPECT_TRUE(QTest::qWaitForWindowActive(&second));
    EXPECT_TRUE(waitUntil([&] { return second.width() > 1500; })) << state;
    EXPECT_EQ(second.isMaximized(), state == std::string_view("maximized"));
    EXPECT_EQ(second.isFullScreen(), state == std::string_view("fullscreen"));
    second.showNormal();
    EXPECT_TRUE(waitUntil([&] { return second.size() == QSize(600, 450); })) << state;
  }
}

TEST_F(MainWindowTest, ATitleBarOutOfReachIsBroughtBack) {
  for (const char* frame : {"200 -120 600 450", "-560 200 600 450", "1570 200 600 450", "200 1290 600 450",
                            "300 -449 600 450 maximized"}) {
    FakeOwner other;
    other.frame = frame;
    MainWindow lost(other);
    lost.present();
    EXPECT_TRUE(QTest::qWaitForWindowActive(&lost));
    lost.showNormal();
    const QRect room = lost.screen()->availableGeometry();
    EXPECT_TRUE(waitUntil([&] { return room.contains(lost.frameGeometry()); }))
        << frame << " is at " << lost.frameGeometry().x() << " " << lost.frameGeometry().y();
  }
}

TEST_F(MainWindowTest, APlaceThatIsPartlyOffTheScreenButInReachIsKept) {
  owner.frame = "1300 1000 600 450";
  show();
  EXPECT_TRUE(waitUntil([this] { return window.pos() == QPoint(1300, 1000); }));
}

TEST_F(MainWindowTest, AboutTellsTheVersionAndTheLicence) {
  show();
  action("about")->trigger();
  ASSERT_TRUE(waitUntil([this] { return panel() != nullptr && panel()->isVisible(); }));
  EXPECT_TRUE(panel()->informativeText().contains(QStringLiteral("Version 2.1")));
  EXPECT_TRUE(panel()->informativeText().contains(QStringLiteral("MIT License")));
  EXPECT_TRUE(panel()->detailedText().contains(QStringLiteral("WITHOUT WARRANTY OF ANY KIND")));
  QTest::qWait(200);
  saveScreenshot(*panel(), "about");
  QTest::keyClick(panel(), Qt::Key_Escape);
}

TEST_F(MainWindowTest, ItFollowsADarkDesktop) {
  show();
  auto* const console = window.connections().errorText;
  console->insertText("Starting repair...", {.isBold = true});
  console->insertText("\n\n", {});
  const std::size_t start = console->length();
  console->insertText(
      "'/usr/sbin/qmasterca' does not exist. You are advised to reinstall Compressor / Qmaster.", {});
  console->setTextColor(outlets::Color::red, {start, console->length() - start});
  console->insertText("\n\n", {});
  console->insertAttributedText(AttributedString::hyperlinkFromString(
      "Get Stellate Toolbox for even more features", "https://www.vordenworks.example"));
  useDarkPalette();
  window.connections().repairProgress->showStage("Removing caches", 5, 10);
  QTest::qWait(200);
  saveScreenshot(window, "dark");
  const QImage picture = window.grab().toImage();
  EXPECT_LT(picture.pixelColor(5, picture.height() - 5).lightness(), 100);
  auto* const view = find<ConsoleView>("errorText");
  const QPoint corner = view->mapTo(&window, QPoint(view->width() - 8, view->height() - 8));
  const QColor ground = picture.pixelColor(corner);
  EXPECT_LT(ground.lightness(), 60) << "the console too";
  for (const auto color : {outlets::Color::black, outlets::Color::red, outlets::Color::blue}) {
    EXPECT_GE(contrast(view->shadeOf(color), ground), 4.5) << int(color);
    EXPECT_GT(pixelsLike(picture, view->shadeOf(color)), 20) << "drawn in it " << int(color);
  }
  for (const char* const name : {"productName", "repairStage", "trashPrefs", "repairButton"}) {
    const QPalette& own = find<QWidget>(name)->palette();
    EXPECT_GE(contrast(own.color(QPalette::WindowText), own.color(QPalette::Window)), 4.5) << name;
  }
  useUsualPalette();
  QTest::qWait(200);
  const QImage light = window.grab().toImage();
  EXPECT_GT(light.pixelColor(corner).lightness(), 200) << "and back";
  EXPECT_GT(pixelsLike(light, view->shadeOf(outlets::Color::red)), 20);
  EXPECT_GE(contrast(view->shadeOf(outlets::Color::red), light.pixelColor(corner)), 4.5);
}

TEST_F(MainWindowTest, AMenuLooksLikeTheOthers) {
  show();
  for (QMenu* const menu : window.menuBar()->findChildren<QMenu*>(Qt::FindDirectChildrenOnly)) {
    if (menu->title().isEmpty()) continue;  // the bar's own, for what has no room
    menu->popup(window.mapToGlobal(QPoint(20, 40)));
    QTest::qWait(100);
    int height = 0;
    for (QAction* const item : menu->actions()) {
      if (item->isSeparator() || !item->isVisible()) continue;
      const QRect place = menu->actionGeometry(item);
      EXPECT_TRUE(menu->rect().contains(place)) << item->text().toStdString();
      EXPECT_TRUE(height == 0 || place.height() == height) << item->text().toStdString();
      height = place.height();
      const auto group = item->isEnabled() ? QPalette::Active : QPalette::Disabled;
      const QColor ink = menu->palette().color(group, QPalette::WindowText);
      EXPECT_GT(pixelsLike(menu->grab(place).toImage(), ink), 10)
          << item->text().toStdString() << " can be read";
      EXPECT_TRUE(item->icon().isNull()) << "none has a picture";
    }
    saveScreenshot(*menu, "menu-" + menu->title().remove(u'&').toLower().toStdString());
    menu->close();
  }
}

}  // namespace
}  // namespace window
