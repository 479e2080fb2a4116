#include <gmock/gmock.h>

#include <QDialogButtonBox>
#include <QEventLoop>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QTextDocument>
#include <QTimer>
#include <QToolTip>
#include <array>

#include "tests/ui/window/DesktopSession.h"
#include "tests/ui/window/FakeOwner.h"
#include "ui/window/MainWindow.h"
#include "ui/window/PreferencesWindow.h"
#include "ui/window/keys/TGShortcutKeyContainerView.h"
#include "ui/window/keys/TGShortcutKeyTableview.h"

// The editor in a real window; the keys come from the display as a keyboard's do. The scan codes are those of
// linux/input-event-codes.h.

namespace window {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const char* kSaidByAnother = "“Export” of Another holds Ctrl+S too.";

/// Holds a key down for so long that it is repeated.
void hold(const char* key) {
  xdotool({QStringLiteral("keydown"), QString::fromLatin1(key)});
  QTest::qWait(1500);
  xdotool({QStringLiteral("keyup"), QString::fromLatin1(key)});
}

class ShortcutKeysTest : public ::testing::Test {
 protected:
  ~ShortcutKeysTest() override { useUsualPalette(); }

  void show() {
    preferences = std::make_unique<PreferencesWindow>(owner, fakekeyboard::keyCode, nullptr);
    preferences->show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(preferences.get()));
    owner.lines.clear();
  }
  [[nodiscard]] TGShortcutKeyTableview& table() { return *preferences->findChild<TGShortcutKeyTableview*>(); }
  template <typename Widget>
  [[nodiscard]] Widget* find(const char* name) {
    return preferences->findChild<Widget*>(QString::fromLatin1(name));
  }
  void select(int row) { table().setCurrentIndex(table().model()->index(row, 0)); }
  [[nodiscard]] QRect cell(int row, int column) {
    return table().visualRect(table().model()->index(row, column));
  }
  [[nodiscard]] QWidget* fieldEditor() { return dynamic_cast<QWidget*>(owner.editor.get()); }
  [[nodiscard]] bool isEditing() { return fieldEditor()->isVisible() && fieldEditor()->hasFocus(); }
  void beginEditing(int row = 0) {
    table().editShortcutKey(row);
    ASSERT_TRUE(isEditing());
  }
  /// What the keys record for the first row.
  std::string recorded(const std::string& keys) {
    beginEditing();
    owner.lines.clear();
    press(keys.c_str());
    EXPECT_TRUE(waitUntil([this] { return !owner.lines.empty(); })) << keys << " was not recorded";
    EXPECT_THAT(owner.lines, SizeIs(1));
    return owner.lines.empty() ? "" : owner.lines.front();
  }

  FakeShortcutKeyOwner owner;
  std::unique_ptr<PreferencesWindow> preferences;
};

// Recording

TEST_F(ShortcutKeysTest, EveryBareKeyIsRecordedByItsPlaceOnTheKeyboard) {
  show();
  const std::vector<std::pair<const char*, int>> keys = {
      {"a", 30},         {"q", 16},       {"1", 2},         {"minus", 12}, {"F1", 59},     {"F5", 63},
      {"F12", 88},       {"Return", 28},  {"KP_Enter", 96}, {"Escape", 1}, {"Tab", 15},    {"space", 57},
      {"BackSpace", 14}, {"Delete", 111}, {"Up", 103},      {"Down", 108}, {"Left", 105},  {"Right", 106},
      {"Home", 102},     {"End", 107},    {"Prior", 104},   {"Next", 109}, {"Insert", 110}};
  for (const auto& [key, code] : keys) EXPECT_EQ(recorded(key), "key " + std::to_string(code)) << key;
  EXPECT_TRUE(preferences->isVisible()) << "Escape is a key like any other";
}

TEST_F(ShortcutKeysTest, EveryCombinationOfModifiersIsRecordedAsItIsHeld) {
  show();
  struct Modifier {
    const char* key;
    const char* name;
  };
  // In the order in which the owner writes them down.
  const std::array<Modifier, 4> modifiers = {
      {{"ctrl", " control"}, {"shift", " shift"}, {"alt", " option"}, {"super", " command"}}};
  for (unsigned held = 0; held < 16; ++held) {
    std::string keys;
    std::string expected = "key 37";
    for (unsigned at = 0; at < modifiers.size(); ++at) {
      if ((held >> at & 1U) == 0) continue;
      keys += std::string(modifiers.at(at).key) + "+";
      expected += modifiers.at(at).name;
    }
    EXPECT_EQ(recorded(keys + "k"), expected);
  }
}

TEST_F(ShortcutKeysTest, EitherKeyOfAPairIsTheModifier) {
  show();
  EXPECT_EQ(recorded("Control_R+k"), "key 37 control");
  EXPECT_EQ(recorded("Shift_R+k"), "key 37 shift");
  EXPECT_EQ(recorded("Alt_R+k"), "key 37 option");
  EXPECT_EQ(recorded("Super_R+k"), "key 37 command");
}

/// The display's keyboard has another layout.
class KeyboardInUse {
 public:
  explicit KeyboardInUse(const char* layout, const char* option = "") { use(layout, option); }
  ~KeyboardInUse() { use("us", ""); }
  KeyboardInUse(const KeyboardInUse&) = delete;
  KeyboardInUse& operator=(const KeyboardInUse&) = delete;

 private:
  static void use(const char* layout, const char* option) {
    // The first option, an empty one, takes away those that there are.
    const QStringList arguments = {QString::fromLatin1(layout), QStringLiteral("-option"), QString(),
                                   QStringLiteral("-option"), QString::fromLatin1(option)};
    EXPECT_EQ(QProcess::execute(QStringLiteral("setxkbmap"), arguments), 0);
  }
};

TEST_F(ShortcutKeysTest, AltGrIsOptionAndTheKeyIsKnownByItsPlaceWhateverItThenProduces) {
  const KeyboardInUse german("de");
  show();
  EXPECT_EQ(recorded("ISO_Level3_Shift+q"), "key 16 option") << "an at sign";
  EXPECT_EQ(recorded("ISO_Level3_Shift+less"), "key 86 option") << "a bar";
  EXPECT_EQ(recorded("ISO_Level3_Shift+shift+e"), "key 18 shift option");
  EXPECT_EQ(recorded("alt+q"), "key 16 option");
  EXPECT_EQ(recorded("z"), "key 21") << "where y is in America";
}

TEST_F(ShortcutKeysTest, AKeyThatWaitsForALetterIsRecordedAtOnce) {
  const KeyboardInUse german("de");
  show();
  EXPECT_EQ(recorded("49"), "key 41") << "a circumflex, by the number that X11 gives the key";
  EXPECT_EQ(recorded("dead_acute"), "key 13");
  EXPECT_EQ(recorded("shift+dead_acute"), "key 13 shift") << "a grave accent";
  EXPECT_EQ(recorded("e"), "key 18") << "and not a letter with an accent";
}

TEST_F(ShortcutKeysTest, TabIsRecordedWithAndWithoutShift) {
  show();
  EXPECT_EQ(recorded("Tab"), "key 15");
  EXPECT_EQ(recorded("shift+Tab"), "key 15 shift");
}

TEST_F(ShortcutKeysTest, KeysOfMenusAndButtonsAreRecordedAndDoNothingElse) {
  show();
  EXPECT_EQ(recorded("alt+l"), "key 38 option") << "the Clear button's letter";
  EXPECT_EQ(recorded("ctrl+w"), "key 17 control");
  EXPECT_EQ(recorded("Return"), "key 28");
  EXPECT_TRUE(preferences->isVisible());
}

TEST_F(ShortcutKeysTest, AModifierByItselfIsNoKeyPress) {
  show();
  beginEditing();
  for (const char* key : {"Control_L", "Shift_L", "Alt_L", "Super_L", "Caps_Lock", "Caps_Lock"}) press(key);
  press("b");
  EXPECT_TRUE(waitUntil([this] { return !owner.lines.empty(); }));
  EXPECT_THAT(owner.lines, ElementsAre("key 48"));
}

TEST_F(ShortcutKeysTest, ModifiersThatTogetherSwitchTheLayoutAreNoKeyPress) {
  const KeyboardInUse switching("us,ru", "grp:alt_shift_toggle");
  show();
  beginEditing();
  press("Alt_L+Shift_L");  // the second of them is the key that switches
  press("b");
  EXPECT_TRUE(waitUntil([this] { return !owner.lines.empty(); }));
  EXPECT_THAT(owner.lines, ElementsAre("key 48"));
}

TEST_F(ShortcutKeysTest, AKeyThatNoMacHasIsNotRecorded) {
  preferences = std::make_unique<PreferencesWindow>(
      owner,
      [](std::uint32_t scanCode) { return scanCode == 30 ? std::nullopt : fakekeyboard::keyCode(scanCode); },
      nullptr);
  preferences->show();
  ASSERT_TRUE(QTest::qWaitForWindowActive(preferences.get()));
  owner.lines.clear();
  beginEditing();
  press("a");
  press("b");
  EXPECT_TRUE(waitUntil([this] { return !owner.lines.empty(); }));
  EXPECT_THAT(owner.lines, ElementsAre("key 48"));
}

TEST_F(ShortcutKeysTest, ARecordedKeyEndsTheEditingAndIsShown) {
  show();
  EXPECT_EQ(recorded("F5"), "key 63");
  EXPECT_FALSE(fieldEditor()->isVisible());
  EXPECT_TRUE(table().hasFocus());
  EXPECT_EQ(table().model()->index(0, 1).data().toString(), QStringLiteral("key 63"));
}

TEST_F(ShortcutKeysTest, TheFieldIsEmptyAndTakesNoText) {
  show();
  beginEditing(1);
  auto* const field = qobject_cast<QLineEdit*>(fieldEditor());
  ASSERT_NE(field, nullptr);
  EXPECT_TRUE(field->text().isEmpty());
  QTest::keyClicks(field, QStringLiteral("abc"));  // without a place on a keyboard
  EXPECT_TRUE(field->text().isEmpty());
  EXPECT_THAT(owner.lines, IsEmpty());
  EXPECT_TRUE(isEditing());
}

TEST_F(ShortcutKeysTest, AHeldReturnBeginsTheEditingAndIsNotRecorded) {
  show();
  select(0);
  table().setFocus();
  hold("Return");
  EXPECT_TRUE(waitUntil([this] { return isEditing(); }));
  EXPECT_THAT(owner.lines, IsEmpty());
}

TEST_F(ShortcutKeysTest, AKeyHeldWhileItIsRecordedDoesNotClearWhatItRecorded) {
  show();
  beginEditing();
  hold("BackSpace");
  EXPECT_TRUE(waitUntil([this] { return !owner.lines.empty(); }));
  QTest::qWait(100);
  EXPECT_THAT(owner.lines, ElementsAre("key 14"));
}

TEST_F(ShortcutKeysTest, LeavingTheFieldEndsTheEditingAndRecordsNothing) {
  show();
  beginEditing();
  find<QWidget>("clearShortcutKey")->setFocus();
  EXPECT_FALSE(fieldEditor()->isVisible());
  EXPECT_THAT(owner.lines, IsEmpty());
  beginEditing(2);  // and it can be used again
  EXPECT_TRUE(isEditing());
}

// Beginning

TEST_F(ShortcutKeysTest, TheKeyboardBeginsTheEditingOfTheSelectedRow) {
  show();
  for (const char* key : {"Return", "KP_Enter", "F2", "space"}) {
    select(1);
    table().setFocus();
    press(key);
    EXPECT_TRUE(waitUntil([this] { return isEditing(); })) << key;
    EXPECT_TRUE(cell(1, 1).contains(fieldEditor()->geometry().center()));
    press("k");
    EXPECT_TRUE(waitUntil([this] { return !fieldEditor()->isVisible(); }));
  }
}

TEST_F(ShortcutKeysTest, ADoubleClickOnEitherColumnBeginsIt) {
  show();
  for (const int column : {0, 1}) {
    const QPoint at = cell(2, column).center();
    QTest::mouseClick(table().viewport(), Qt::LeftButton, {}, at);
    QTest::mouseDClick(table().viewport(), Qt::LeftButton, {}, at);
    EXPECT_TRUE(isEditing()) << column;
    EXPECT_EQ(table().selectedRow(), 2U);
    table().setFocus();
  }
}

TEST_F(ShortcutKeysTest, WithoutASelectionTheKeyboardBeginsAtTheRowThatHasIt) {
  show();
  EXPECT_EQ(table().selectedRow(), std::nullopt) << "nothing is selected at first";
  press("Return");
  EXPECT_TRUE(waitUntil([this] { return isEditing(); }));
  EXPECT_EQ(table().selectedRow(), 0U);
}

TEST_F(ShortcutKeysTest, InAnEmptyTableTheKeyboardBeginsNothing) {
  owner.rows.clear();
  show();
  for (const char* key : {"Return", "F2", "space"}) press(key);
  QTest::qWait(200);
  EXPECT_FALSE(fieldEditor()->isVisible());
  EXPECT_TRUE(preferences->isVisible()) << "nor does Return press a button";
}

TEST_F(ShortcutKeysTest, ARepetitionThatTheToolkitDidNotSeeComingIsNoKeyPress) {
  show();
  select(1);
  const auto send = [](QWidget* to, QEvent::Type type, quint64 time) {
    QKeyEvent event(type, Qt::Key_Backspace, {}, 22, 0, 0);
    event.setTimestamp(time);
    QApplication::sendEvent(to, &event);
  };
  send(&table(), QEvent::KeyPress, 1000);
  send(&table(), QEvent::KeyRelease, 1500);
  send(&table(), QEvent::KeyPress, 1500);
  EXPECT_THAT(owner.lines, ElementsAre("table key 127"));
  send(&table(), QEvent::KeyRelease, 1600);
  send(&table(), QEvent::KeyPress, 1700);
  EXPECT_THAT(owner.lines, SizeIs(2)) << "pressed again";
  beginEditing();
  send(fieldEditor(), QEvent::KeyRelease, 2000);
  send(fieldEditor(), QEvent::KeyPress, 2000);
  EXPECT_TRUE(isEditing());
  send(fieldEditor(), QEvent::KeyPress, 2100);
  EXPECT_EQ(owner.lines.back(), "key 14");
}

TEST_F(ShortcutKeysTest, OtherKeysAreTheTablesOwn) {
  show();
  select(0);
  table().setFocus();
  press("Down");
  EXPECT_TRUE(waitUntil([this] { return table().selectedRow() == 1U; }));
  press("ctrl+h");
  press("End");
  EXPECT_TRUE(waitUntil([this] { return table().selectedRow() == 2U; }));
  EXPECT_THAT(owner.lines, IsEmpty());
}

// Clearing

TEST_F(ShortcutKeysTest, BackspaceAndDeleteClear) {
  show();
  select(1);
  table().setFocus();
  for (const char* key : {"BackSpace", "Delete", "shift+BackSpace", "KP_Delete"}) press(key);
  EXPECT_TRUE(waitUntil([this] { return owner.lines.size() >= 4; }));
  EXPECT_THAT(owner.lines,
              ElementsAre("table key 127", "table key 63272", "table key 127", "table key 63272"));
  EXPECT_EQ(table().selectedRow(), 1U) << "the selection stays";
}

TEST_F(ShortcutKeysTest, AHeldBackspaceClearsOnce) {
  show();
  select(1);
  table().setFocus();
  hold("BackSpace");
  QTest::qWait(100);
  EXPECT_THAT(owner.lines, ElementsAre("table key 127"));
}

TEST_F(ShortcutKeysTest, TheButtonClearsByMouseKeyboardAndLetter) {
  show();
  auto* const button = find<QPushButton>("clearShortcutKey");
  QTest::mouseClick(button, Qt::LeftButton);
  button->setFocus();
  press("space");
  EXPECT_TRUE(waitUntil([this] { return owner.lines.size() == 2; }));
  press("alt+l");
  EXPECT_TRUE(waitUntil([this] { return owner.lines.size() == 3; }));
  EXPECT_THAT(owner.lines, ElementsAre("clear", "clear", "clear"));
}

// What is shown

TEST_F(ShortcutKeysTest, TheColumnsShowTheCommandsAndTheirKeys) {
  show();
  ASSERT_EQ(table().model()->rowCount(), 3);
  EXPECT_EQ(table().model()->index(1, 0).data().toString(), QStringLiteral("Stop Qmaster"));
  EXPECT_EQ(table().model()->index(1, 1).data().toString(), QStringLiteral("Ctrl+S"));
  EXPECT_FALSE(table().model()->index(0, 1).data().isValid());
  EXPECT_FALSE(table().model()->index(0, 1).data(Qt::AccessibleTextRole).toString().isEmpty());
  EXPECT_FALSE(table().rootIsDecorated()) << "nothing lies below a command";
  for (const int column : {0, 1}) {
    EXPECT_FALSE(table().model()->headerData(column, Qt::Horizontal).toString().isEmpty());
  }
}

TEST_F(ShortcutKeysTest, TheCommandsAreDrawnWithTheApplicationsIcon) {
  show();
  const auto picture = [this](int column) { return table().viewport()->grab(cell(0, column)).toImage(); };
  const QImage withIcon = picture(0);
  const QImage keysWithIcon = picture(1);
  owner.hasIcons = false;
  EXPECT_NE(picture(0), withIcon);
  EXPECT_EQ(picture(1), keysWithIcon);
  // The text begins behind the icon's 16 points.
  EXPECT_GE(cell(0, 0).height(), 16);
}

TEST_F(ShortcutKeysTest, ReloadingAsksAfreshAndKeepsTheSelection) {
  show();
  select(1);
  owner.rows[1] = {"Stop", std::nullopt};
  owner.rows.push_back({"Another"});
  table().reloadData();
  EXPECT_EQ(table().selectedRow(), 1U);
  EXPECT_EQ(table().model()->index(1, 0).data().toString(), QStringLiteral("Stop"));
  EXPECT_EQ(table().model()->rowCount(), 4);
  owner.rows.resize(1);
  table().reloadData();
  EXPECT_EQ(table().selectedRow(), std::nullopt) << "its row has gone";
}

/// What somebody reads of a tool tip.
QString shownBy(const QString& toolTip) {
  QTextDocument text;
  text.setHtml(toolTip);
  EXPECT_TRUE(Qt::mightBeRichText(toolTip));
  return text.toPlainText();
}

TEST_F(ShortcutKeysTest, WhatLooksLikeMarkupInANameIsNone) {
  const char* const kName = "<h1>Reinstall</h1><img src='/dev/null'> & more";
  owner.rows[1].conflict = kName;
  show();
  const QModelIndex held = table().model()->index(1, 0);
  EXPECT_EQ(shownBy(held.data(Qt::ToolTipRole).toString()), QString::fromUtf8(kName));
}

TEST_F(ShortcutKeysTest, WhoElseHoldsTheKeysIsSaidInTheToolTipAndToAssistivePrograms) {
  owner.rows[1].conflict = kSaidByAnother;
  show();
  for (const int column : {0, 1}) {
    const QModelIndex held = table().model()->index(1, column);
    EXPECT_EQ(shownBy(held.data(Qt::ToolTipRole).toString()), QString::fromUtf8(kSaidByAnother));
    EXPECT_EQ(held.data(Qt::AccessibleDescriptionRole).toString(), QString::fromUtf8(kSaidByAnother));
    EXPECT_FALSE(table().model()->index(0, column).data(Qt::ToolTipRole).isValid());
  }
  const QPoint at = cell(1, 1).center();
  QHelpEvent asked(QEvent::ToolTip, at, table().viewport()->mapToGlobal(at));
  QApplication::sendEvent(table().viewport(), &asked);
  EXPECT_EQ(shownBy(QToolTip::text()), QString::fromUtf8(kSaidByAnother));
}

TEST_F(ShortcutKeysTest, WhoElseHoldsTheSelectedRowsKeysIsShownBelowTheTable) {
  owner.rows[1].conflict = kSaidByAnother;
  show();
  auto* const label = find<QLabel>("conflictText");
  EXPECT_TRUE(label->text().isEmpty());
  select(1);
  EXPECT_EQ(label->text(), QString::fromUtf8(kSaidByAnother));
  select(0);
  EXPECT_TRUE(label->text().isEmpty());
  owner.rows[0].conflict = "Somebody holds it.";
  recorded("F5");
  EXPECT_EQ(label->text(), QStringLiteral("Somebody holds it."));
}

TEST_F(ShortcutKeysTest, ALongNameDoesNotWidenTheWindow) {
  owner.rows[1].conflict = std::string(500, 'x');
  show();
  const int width = preferences->width();
  const int smallest = preferences->minimumSizeHint().width();
  select(1);
  QTest::qWait(100);
  EXPECT_EQ(preferences->width(), width);
  EXPECT_EQ(preferences->minimumSizeHint().width(), smallest);
}

TEST_F(ShortcutKeysTest, WithoutTheManagerTheTableIsDisabledAndTheReasonShown) {
  show();
  EXPECT_FALSE(find<QLabel>("versionAlertText")->isVisible());
  for (const char* name : {"clearShortcutKey", "hint"}) EXPECT_TRUE(find<QWidget>(name)->isEnabled()) << name;
  preferences.reset();
  owner.hasManager = false;
  show();
  EXPECT_TRUE(find<QLabel>("versionAlertText")->isVisible());
  EXPECT_FALSE(table().isEnabled());
  for (const char* name : {"clearShortcutKey", "hint"})
    EXPECT_FALSE(find<QWidget>(name)->isEnabled()) << name;
  table().editShortcutKey(0);
  EXPECT_FALSE(fieldEditor()->isVisible());
  press("alt+l");
  QTest::qWait(100);
  EXPECT_THAT(owner.lines, IsEmpty()) << "nothing is cleared";
  owner.connections.shortcutKeyTableView->setEnabled(true);
  for (const char* name : {"clearShortcutKey", "hint"}) EXPECT_TRUE(find<QWidget>(name)->isEnabled()) << name;
}

// The view and its window

TEST_F(ShortcutKeysTest, TheOwnersViewFillsTheContainer) {
  TGShortcutKeyContainerView container(owner, fakekeyboard::keyCode);
  auto* const view = dynamic_cast<QWidget*>(owner.parentView());
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(view->parentWidget(), nullptr) << "not before there is a window";
  QWidget host;
  container.setParent(&host);
  EXPECT_EQ(view->parentWidget(), &container);
  container.resize(500, 333);
  host.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&host));
  EXPECT_EQ(view->geometry(), container.rect());
  container.setParent(nullptr);
}

TEST_F(ShortcutKeysTest, AnInterfaceThatCannotBeLoadedIsReportedAndTheViewStaysEmpty) {
  owner.whenLoaded = [] { throw std::runtime_error("out of something"); };
  {
    QWidget host;
    TGShortcutKeyContainerView container(owner, fakekeyboard::keyCode);
    EXPECT_THAT(owner.lines, ElementsAre("loaded", "closing", "not loaded"));
    EXPECT_EQ(owner.parentView(), nullptr);
    container.setParent(&host);
    EXPECT_THAT(container.findChildren<QWidget*>(), IsEmpty());
    container.setParent(nullptr);
  }
  EXPECT_THAT(owner.lines, SizeIs(3)) << "what was not loaded is closed once";
}

TEST_F(ShortcutKeysTest, ClosingLetsTheOwnerGoAlsoInTheMidstOfAnEditing) {
  show();
  beginEditing();
  preferences.reset();
  EXPECT_THAT(owner.lines, ElementsAre("closing"));
  EXPECT_EQ(owner.parentView(), nullptr);
  show();
  EXPECT_EQ(recorded("F5"), "key 63");
}

/// As an assistive program can, while the owner waits and the loop serves all but keys and clicks.
TEST_F(ShortcutKeysTest, TheWindowCanBeClosedWhileTheOwnerIsBusyWithAKey) {
  show();
  QPointer<PreferencesWindow> closing = preferences.release();
  closing->setAttribute(Qt::WA_DeleteOnClose);
  owner.whenKeyDown = [&] {
    auto* const buttons = closing->findChild<QDialogButtonBox*>();
    QTimer::singleShot(0, buttons, [buttons] { buttons->button(QDialogButtonBox::Close)->click(); });
    QEventLoop wait;
    QTimer::singleShot(300, &wait, &QEventLoop::quit);
    wait.exec(QEventLoop::ExcludeUserInputEvents);
    EXPECT_TRUE(closing.isNull()) << "it closes at once";
  };
  auto* const keys = closing->findChild<TGShortcutKeyTableview*>();
  keys->editShortcutKey(0);
  ASSERT_TRUE(isEditing());
  press("F5");
  EXPECT_TRUE(waitUntil([&] { return closing.isNull(); }));
  EXPECT_THAT(owner.lines, ElementsAre("key 63", "closing"));
  owner.whenKeyDown = nullptr;
  show();
  EXPECT_EQ(recorded("F5"), "key 63");
}

TEST_F(ShortcutKeysTest, EscapeClosesTheWindowWhenNothingIsEdited) {
  show();
  EXPECT_TRUE(table().hasFocus()) << "the table has the keyboard at first";
  press("Escape");
  EXPECT_TRUE(waitUntil([this] { return !preferences->isVisible(); }));
}

TEST_F(ShortcutKeysTest, TabGoesThroughTheControls) {
  show();
  press("Tab");
  EXPECT_TRUE(waitUntil([this] { return find<QWidget>("clearShortcutKey")->hasFocus(); }));
  press("Tab");
  const auto* const buttons = preferences->findChild<QDialogButtonBox*>();
  EXPECT_TRUE(waitUntil([&] { return buttons->button(QDialogButtonBox::Close)->hasFocus(); }));
  press("Tab");
  EXPECT_TRUE(waitUntil([this] { return table().hasFocus(); }));
}

TEST_F(ShortcutKeysTest, EverythingCanBeReadInLightAndInDark) {
  owner.rows[1].conflict = kSaidByAnother;
  for (const bool isDark : {false, true}) {
    isDark ? useDarkPalette() : useUsualPalette();
    show();
    select(1);
    EXPECT_GE(contrast(table().palette().color(QPalette::Text), table().palette().color(QPalette::Base)), 7);
    saveScreenshot(*preferences, isDark ? "preferences-dark" : "preferences");
    beginEditing(2);
    saveScreenshot(*preferences, isDark ? "preferences-editing-dark" : "preferences-editing");
    preferences.reset();
  }
}

TEST_F(ShortcutKeysTest, EverythingFitsAtItsSmallest) {
  owner.rows[1].conflict = kSaidByAnother;
  show();
  select(1);
  preferences->resize(1, 1);
  QTest::qWait(100);
  for (const char* name : {"shortcutKeyTableView", "clearShortcutKey", "conflictText", "hint"}) {
    auto* const part = find<QWidget>(name);
    EXPECT_TRUE(preferences->rect().contains(QRect(part->mapTo(preferences.get(), QPoint()), part->size())))
        << name;
  }
  EXPECT_GE(table().height(), 60);
}

// The way there

class PreferencesMenuTest : public ::testing::Test {
 protected:
  PreferencesMenuTest() {
    window.present();
    EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
  }
  ~PreferencesMenuTest() override { window.setMayClose(); }

  [[nodiscard]] QWidget* preferences() { return window.findChild<QWidget*>(QStringLiteral("preferences")); }
  void open() {
    press("ctrl+comma");
    EXPECT_TRUE(waitUntil([this] { return preferences() != nullptr && preferences()->isActiveWindow(); }));
  }

  FakeOwner owner;
  MainWindow window{owner};
};

TEST_F(PreferencesMenuTest, TheMenusCommandHasItsUsualPlaceAndKey) {
  auto* const command = window.findChild<QAction*>(QStringLiteral("preferences"));
  ASSERT_NE(command, nullptr);
  EXPECT_EQ(command->menuRole(), QAction::PreferencesRole);
  EXPECT_EQ(command->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Comma));
  EXPECT_EQ(window.findChild<QMenu*>(QStringLiteral("menuEdit"))->actions().back(), command);
}

TEST_F(PreferencesMenuTest, TheKeysOpenTheWindowOnceAndTheMainOneCanBeUsedMeanwhile) {
  open();
  QWidget* const first = preferences();
  EXPECT_TRUE(waitUntil([this] {
    window.activateWindow();  // a window manager may refuse one that comes too soon after another
    return focusedTitle() == "Quillmend";
  }));
  press("ctrl+l");
  EXPECT_TRUE(waitUntil([this] { return owner.lines == std::vector<std::string>{"viewLog"}; }));
  open();
  EXPECT_EQ(preferences(), first);
  EXPECT_THAT(owner.keys.lines, ElementsAre("loaded"));
}

TEST_F(PreferencesMenuTest, EachOpeningShowsWhatIsInForceThen) {
  open();
  preferences()->resize(700, 600);
  press("Escape");
  EXPECT_TRUE(waitUntil([this] { return preferences() == nullptr; }));
  EXPECT_THAT(owner.keys.lines, ElementsAre("loaded", "closing"));
  owner.keys.rows[0].keyName = "Ctrl+R";
  open();
  auto* const table = preferences()->findChild<TGShortcutKeyTableview*>();
  EXPECT_EQ(table->model()->index(0, 1).data().toString(), QStringLiteral("Ctrl+R"));
  EXPECT_EQ(table->selectedRow(), std::nullopt);
  EXPECT_NE(preferences()->size(), QSize(700, 600)) << "nothing is remembered";
}

TEST_F(PreferencesMenuTest, TheKeysOfCloseCloseTheWindowInFront) {
  open();
  press("ctrl+w");
  EXPECT_TRUE(waitUntil([this] { return preferences() == nullptr; }));
  EXPECT_TRUE(window.isVisible());
}

TEST_F(PreferencesMenuTest, TheKeysOfQuitAreHeardInEitherWindow) {
  open();
  press("ctrl+q");
  EXPECT_TRUE(waitUntil([this] { return !window.isVisible(); }));
}

TEST_F(PreferencesMenuTest, TheKeysOfQuitAndCloseCanBeRecorded) {
  open();
  for (const auto& [keys, line] : {std::pair("ctrl+q", "key 16 control"), {"ctrl+w", "key 17 control"}}) {
    press("Return");
    auto* const editor = dynamic_cast<QWidget*>(owner.keys.editor.get());
    EXPECT_TRUE(waitUntil([&] { return editor->hasFocus(); }));
    press(keys);
    EXPECT_TRUE(waitUntil([this, line = line] { return owner.keys.lines.back() == line; })) << keys;
  }
  EXPECT_TRUE(window.isVisible());
  EXPECT_TRUE(preferences()->isVisible());
}

TEST_F(PreferencesMenuTest, AKeyIsRecordedByWhatTheOwnerKnowsOfKeyboards) {
  open();
  press("Return");
  auto* const editor = dynamic_cast<QWidget*>(owner.keys.editor.get());
  EXPECT_TRUE(waitUntil([&] { return editor->hasFocus(); }));
  press("F5");
  EXPECT_TRUE(waitUntil([this] { return owner.keys.lines.back() == "key 63"; }));
}

TEST_F(PreferencesMenuTest, TheMainWindowsEndIsThatOfThePreferences) {
  auto other = std::make_unique<MainWindow>(owner);
  other->findChild<QAction*>(QStringLiteral("preferences"))->trigger();
  EXPECT_EQ(owner.keys.lines.back(), "loaded");
  other->setMayClose();
  other.reset();
  EXPECT_EQ(owner.keys.lines.back(), "closing");
}

TEST_F(PreferencesMenuTest, WithoutAnEditorThereAreNoPreferences) {
  owner.hasKeys = false;
  MainWindow other(owner);
  EXPECT_FALSE(other.findChild<QAction*>(QStringLiteral("preferences"))->isEnabled());
}

}  // namespace
}  // namespace window
