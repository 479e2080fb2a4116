#include "ui/window/MainWindow.h"

#include <QAccessible>
#include <QApplication>
#include <QCloseEvent>
#include <QFile>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QStyle>
#include <algorithm>

#include "ui/window/Panels.h"
#include "ui/window/PreferencesWindow.h"
#include "ui/window/WidgetOutlets.h"
#include "ui_MainWindow.h"

namespace window {
namespace {

constexpr const char* kMaximized = " maximized";
constexpr const char* kFullScreen = " fullscreen";

int titleBarHeight(const QStyle& style) {
  return style.pixelMetric(QStyle::PM_TitleBarHeight);
}

/// What a window manager's frame takes. It is not known before the window is shown: as much as the toolkit's
/// own frames do, and a little.
QSize frameRoom(const QStyle& style) {
  const int border = 2 * style.pixelMetric(QStyle::PM_MdiSubWindowFrameWidth);
  return {border, border + titleBarHeight(style)};
}

int areaOf(const QRect& part) {
  return part.isValid() ? part.width() * part.height() : 0;
}

/// The one that shows most of a place, if any does.
const QScreen* screenOf(const QRect& place) {
  const QScreen* best = nullptr;
  for (const QScreen* const screen : QGuiApplication::screens()) {
    const int least = best == nullptr ? 0 : areaOf(best->availableGeometry() & place);
    if (areaOf(screen->availableGeometry() & place) > least) best = screen;
  }
  return best;
}

/// Whether the mouse gets at the title bar of a window with that frame.
bool isInReach(const QRect& frame, const QStyle& style) {
  constexpr int kGrip = 100;
  const QRect bar(frame.topLeft(), QSize(frame.width(), titleBarHeight(style)));
  const auto screens = QGuiApplication::screens();
  return std::any_of(screens.begin(), screens.end(), [&](const QScreen* screen) {
    const QRect seen = screen->availableGeometry() & bar;
    return seen.height() == bar.height() && seen.width() >= std::min(kGrip, bar.width());
  });
}

/// The nearest place where all of a frame is on a screen, at least its upper left corner.
QPoint placeOn(const QScreen& screen, const QRect& frame) {
  const QRect room = screen.availableGeometry();
  const QPoint last = room.bottomRight() + QPoint(1, 1) - QPoint(frame.width(), frame.height());
  return {std::max(room.left(), std::min(frame.left(), last.x())),
          std::max(room.top(), std::min(frame.top(), last.y()))};
}

}  // namespace

/// The outlets that stand for controls.
struct MainWindow::Parts {
  explicit Parts(Ui::MainWindow& ui)
      : repairButton(*ui.repairButton,
                     // What a repair does too, or what uses the rights that it holds, is not to be done
                     // beside it.
                     {ui.repair, ui.menuRestartQmaster, ui.menuStopQmaster, ui.menuTrashCompressorPrefs,
                      ui.menuTrashCompressor4Prefs, ui.resetWindowLayout, ui.gatherLogs, ui.prefsAdminPass},
                     *ui.repairStage),
        trashPrefs(*ui.trashPrefs),
        resetQmasterCheck(*ui.resetQmasterCheck),
        resetLayoutCheck(*ui.resetLayoutCheck),
        menuItemResetOldQmasterConfig(*ui.menuItemResetOldQmasterConfig),
        prefsAdminPass(*ui.prefsAdminPass) {}

  ButtonOutlet repairButton;
  CheckBoxOutlet trashPrefs;
  CheckBoxOutlet resetQmasterCheck;
  CheckBoxOutlet resetLayoutCheck;
  MenuItemOutlet menuItemResetOldQmasterConfig;
  MenuItemOutlet prefsAdminPass;
};

MainWindow::MainWindow(outlets::InterfaceOwner& owner)
    : owner_(owner), ui_(std::make_unique<Ui::MainWindow>()) {
  ui_->setupUi(this);
  parts_ = std::make_unique<Parts>(*ui_);
  dress();
  connectActions();
  connectOwnActions();
}

MainWindow::~MainWindow() = default;

QList<QAbstractButton*> MainWindow::boxes() const {
  return {ui_->trashPrefs, ui_->resetQmasterCheck, ui_->resetLayoutCheck};
}

/// What an interface description cannot say.
void MainWindow::dress() {
  constexpr double kNameScale = 1.7;
  QFont name = font();
  name.setPointSizeF(name.pointSizeF() * kNameScale);
  name.setBold(true);
  ui_->productName->setFont(name);
  ui_->productPurpose->setForegroundRole(QPalette::PlaceholderText);
  QSizePolicy policy = ui_->repairProgress->sizePolicy();
  policy.setRetainSizeWhenHidden(true);  // nothing moves when it comes and goes
  ui_->repairProgress->setSizePolicy(policy);
  ui_->repairProgress->hide();
  // Tab goes on from the button's place when the stage has the keyboard instead. Only what Tab goes to can be
  // given a place among what it goes to.
  ui_->repairStage->setFocusPolicy(Qt::TabFocus);
  setTabOrder(ui_->repairButton, ui_->repairStage);
  setTabOrder(ui_->repairStage, ui_->errorText);
  ui_->repairStage->setFocusPolicy(Qt::NoFocus);
  ui_->repairButton->setFocus();
  dressBoxes();
  setMinimumSize(minimumSize().expandedTo(ui_->content->minimumSizeHint()));  // large fonts need more room
}

/// On a dark ground the toolkit draws an empty box nearly as dark.
void MainWindow::dressBoxes() {
  QPalette own;  // whatever is not set here is inherited
  const QColor ground = palette().color(QPalette::Window);
  constexpr int kHalf = 128;
  constexpr int kLighter = 190;
  if (ground.lightness() < kHalf) own.setColor(QPalette::Base, ground.lighter(kLighter));
  for (QAbstractButton* const box : boxes()) box->setPalette(own);
}

outlets::Connections MainWindow::connections() {
  return {.windowMain = this,
          .errorText = ui_->errorText,
          .repairButton = &parts_->repairButton,
          .trashPrefs = &parts_->trashPrefs,
          .resetQmasterCheck = &parts_->resetQmasterCheck,
          .resetLayoutCheck = &parts_->resetLayoutCheck,
          .logoImageView = ui_->logoImageView,
          .menuItemResetOldQmasterConfig = &parts_->menuItemResetOldQmasterConfig,
          .prefsAdminPass = &parts_->prefsAdminPass,
          .repairProgress = this};
}

void MainWindow::perform(const QString& action, outlets::Sender* sender) {
  owner_.performAction(action.toStdString(), sender);
}

void MainWindow::connectActions() {
  const QList<QAction*> own = {ui_->closeWindow, ui_->quit, ui_->copy,  ui_->selectAll,
                               ui_->minimize,    ui_->zoom, ui_->about, ui_->preferences};
  for (QMenu* const menu : ui_->menuBar->findChildren<QMenu*>(Qt::FindDirectChildrenOnly)) {
    for (QAction* const item : menu->actions()) {
      if (item->isSeparator() || own.contains(item) || item == ui_->prefsAdminPass) continue;
      item->setEnabled(owner_.respondsToAction(item->objectName().toStdString()));
      connect(item, &QAction::triggered, this, [this, item] { perform(item->objectName(), nullptr); });
    }
  }
  connect(ui_->prefsAdminPass, &QAction::triggered, this,
          [this] { perform(QStringLiteral("prefsToggleAdminPass"), &parts_->prefsAdminPass); });
  connect(ui_->repairButton, &QPushButton::clicked, ui_->repair, &QAction::trigger);
  for (QAbstractButton* const box : boxes()) {
    connect(box, &QAbstractButton::clicked, this,
            [this] { perform(QStringLiteral("storeOptions"), nullptr); });
  }
}

void MainWindow::connectOwnActions() {
  connect(ui_->closeWindow, &QAction::triggered, this, &QWidget::close);
  connect(ui_->quit, &QAction::triggered, this, &QWidget::close);
  connect(ui_->copy, &QAction::triggered, ui_->errorText, &QPlainTextEdit::copy);
  ui_->copy->setEnabled(false);  // there is nothing to copy without a selection
  connect(ui_->errorText, &QPlainTextEdit::copyAvailable, ui_->copy, &QAction::setEnabled);
  connect(ui_->selectAll, &QAction::triggered, ui_->errorText, &QPlainTextEdit::selectAll);
  connect(ui_->minimize, &QAction::triggered, this, &QWidget::showMinimized);
  connect(ui_->zoom, &QAction::triggered, this, [this] { isMaximized() ? showNormal() : showMaximized(); });
  connect(ui_->about, &QAction::triggered, this, [this] { showAbout(); });
  connect(ui_->preferences, &QAction::triggered, this, [this] { showPreferences(); });
  ui_->preferences->setEnabled(owner_.shortcutKeys() != nullptr);
  ui_->errorText->setLinkOpener([this](const std::string& address) { owner_.openAddress(address); });
}

void MainWindow::beginAlertSheet(const std::string& message, const std::string& informativeText) {
  QMessageBox* const sheet =
      makePanel(this, QString::fromStdString(message), QString::fromStdString(informativeText));
  sheet->setAttribute(Qt::WA_DeleteOnClose);
  sheet->setWindowFlag(Qt::Sheet);
  addDefaultButton(*sheet);
  sheet->open();
}

/// A label does not announce its new text by itself.
void MainWindow::tellStage(const QString& text) {
  ui_->repairStage->setText(text);
  QAccessibleEvent change(ui_->repairStage, QAccessible::NameChanged);
  QAccessible::updateAccessibility(&change);
}

void MainWindow::showStage(const std::string& title, std::size_t done, std::size_t total) {
  tellStage(isEnding_ ? tr("Ending after this step…") : QString::fromStdString(title) + u'…');
  ui_->repairProgress->show();  // what is not seen is not announced either
  // A maximum of 0 is a bar that only shows that something goes on.
  ui_->repairProgress->setMaximum(static_cast<int>(total));
  ui_->repairProgress->setValue(static_cast<int>(done));
}

void MainWindow::hide() {
  endStages(tr("Ready"));
}

void MainWindow::showBrokenOff() {
  endStages(tr("The repair did not finish. See the log."));
}

void MainWindow::endStages(const QString& text) {
  ui_->repairProgress->hide();
  tellStage(text);
  if (question_ != nullptr) question_->reject();  // nothing is left to ask about
}

void MainWindow::changeEvent(QEvent* event) {
  QMainWindow::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) dressBoxes();
}

/// The frame is another one, or none, while the window is large.
void MainWindow::moveEvent(QMoveEvent* event) {
  QMainWindow::moveEvent(event);
  const QPoint offset = geometry().topLeft() - pos();
  if (!isMaximized() && !isFullScreen() && !offset.isNull()) frameOffset_ = offset;
}

void MainWindow::closeEvent(QCloseEvent* event) {
  if (mayClose_ || !owner_.isRepairing()) {
    saveFrame();
    event->accept();
    return;
  }
  event->ignore();
  if (!isEnding_ && question_ == nullptr) askBeforeClosing();
}

void MainWindow::askBeforeClosing() {
  question_ = makePanel(this, tr("A repair is under way."),
                        tr("If you quit now, the step under way comes to its end, the rest is left out, and "
                           "Qmaster is started again."));
  question_->setAttribute(Qt::WA_DeleteOnClose);
  question_->setWindowFlag(Qt::Sheet);
  QPushButton* const quit = question_->addButton(tr("&Quit After This Step"), QMessageBox::DestructiveRole);
  QPushButton* const stay = question_->addButton(tr("&Continue Repair"), QMessageBox::RejectRole);
  question_->setDefaultButton(stay);
  question_->setEscapeButton(stay);
  connect(quit, &QPushButton::clicked, this, [this] { endAndTerminate(); });
  question_->open();
}

void MainWindow::endAndTerminate() {
  isEnding_ = owner_.isRepairing();
  if (isEnding_) tellStage(tr("Ending after this step…"));
  owner_.endRepairAndTerminate();
}

/// Beside this window, which can be used meanwhile.
void MainWindow::showPreferences() {
  if (preferences_ == nullptr) {
    preferences_ = new PreferencesWindow(
        *owner_.shortcutKeys(), [this](std::uint32_t scanCode) { return owner_.virtualKeyCode(scanCode); },
        this);
    preferences_->setAttribute(Qt::WA_DeleteOnClose);
  }
  preferences_->show();
  preferences_->raise();
  preferences_->activateWindow();
}

void MainWindow::showAbout() {
  QFile licence(QStringLiteral(":/LICENSE"));
  const QString text = licence.open(QIODevice::ReadOnly) ? QString::fromUtf8(licence.readAll()) : QString();
  const QString copyright = text.section(u'\n', 2, 2);
  QMessageBox* const about =
      makePanel(this, tr("Quillmend"),
                tr("Version %1\n\nRepairs Compressor and Qmaster.\n\n%2\n%3")
                    .arg(QString::fromStdString(owner_.version()), copyright, text.section(u'\n', 0, 0)));
  about->setAttribute(Qt::WA_DeleteOnClose);
  about->setWindowTitle(tr("About Quillmend"));
  about->setDetailedText(text);
  addDefaultButton(*about);
  about->open();
}

void MainWindow::saveFrame() {
  const bool isLarge = isMaximized() || isFullScreen();
  const QRect frame = isLarge ? normalGeometry().translated(-frameOffset_) : QRect(pos(), size());
  QString text =
      QStringLiteral("%1 %2 %3 %4").arg(frame.x()).arg(frame.y()).arg(frame.width()).arg(frame.height());
  if (isMaximized()) text += QString::fromLatin1(kMaximized);
  if (isFullScreen()) text += QString::fromLatin1(kFullScreen);
  owner_.setWindowFrame(text.toStdString());
}

/// Where there is room for it, frame and all.
void MainWindow::fitOnto(const QScreen& screen) {
  resize(size().boundedTo(screen.availableSize() - frameRoom(*style())).expandedTo(minimumSize()));
}

void MainWindow::restoreFrame() {
  const QString remembered = QString::fromStdString(owner_.windowFrame());
  const auto words = remembered.split(u' ', Qt::SkipEmptyParts);
  const QRect frame(words.value(0).toInt(), words.value(1).toInt(), words.value(2).toInt(),
                    words.value(3).toInt());
  const QScreen* const screen = screenOf(frame);
  if (frame.isValid()) resize(frame.size());
  fitOnto(screen != nullptr ? *screen : *QGuiApplication::primaryScreen());
  if (screen != nullptr) {
    const QRect now(frame.topLeft(), size() + frameRoom(*style()));
    move(isInReach(now, *style()) ? now.topLeft() : placeOn(*screen, now));
  }
  if (remembered.endsWith(QLatin1String(kMaximized))) setWindowState(Qt::WindowMaximized);
  if (remembered.endsWith(QLatin1String(kFullScreen))) setWindowState(Qt::WindowFullScreen);
}

void MainWindow::present() {
  restoreFrame();
  show();
  raise();
  activateWindow();
}

}  // namespace window
