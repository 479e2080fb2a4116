#pragma once

#include <QMainWindow>
#include <QPointer>
#include <memory>

#include "ui/InterfaceOwner.h"

class QAbstractButton;
class QMessageBox;
class QProgressBar;

namespace Ui {
class MainWindow;
}

namespace window {

/// The main window, from resources/MainWindow.ui. A control's press and a menu item's choice are the action
/// of its name, performed by the owner; items that the owner knows no action for are disabled, but for those
/// that every application has (quit, copy, ...), which are the window's own.
///
/// Closing it while a repair is under way asks first. It is then closed by the end of the repair.
class MainWindow : public QMainWindow, public outlets::Window, private outlets::ProgressIndicator {
 public:
  explicit MainWindow(outlets::InterfaceOwner& owner);
  ~MainWindow() override;

  [[nodiscard]] outlets::Connections connections();

  /// Puts it back where it was and as large as it was, maximized and full screen too, and shows it: no larger
  /// than its screen, and with its title bar where the mouse gets at it. Where there is no such screen now,
  /// or at the first time, the window manager chooses the place.
  void present();
  /// Ends the repair under way at its next step, if there is one, and the application behind it. Nobody is
  /// asked.
  void endAndTerminate();
  /// From now on it closes without asking.
  void setMayClose() { mayClose_ = true; }

  void beginAlertSheet(const std::string& message, const std::string& informativeText) override;

  /// Hands the place over to be kept: "x y width height", of the frame and of what is in it, and then
  /// " maximized" or " fullscreen" where it is so; the numbers are those that it goes back to from that.
  void saveFrame();

 protected:
  void changeEvent(QEvent* event) override;
  void moveEvent(QMoveEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  void showStage(const std::string& title, std::size_t done, std::size_t total) override;
  void hide() override;
  void showBrokenOff() override;

  void tellStage(const QString& text);
  void endStages(const QString& text);
  void dress();
  void dressBoxes();
  [[nodiscard]] QList<QAbstractButton*> boxes() const;
  void connectActions();
  void connectOwnActions();
  void perform(const QString& action, outlets::Sender* sender);
  void askBeforeClosing();
  void showAbout();
  void showPreferences();
  void restoreFrame();
  void fitOnto(const QScreen& screen);

  struct Parts;
  outlets::InterfaceOwner& owner_;
  std::unique_ptr<Ui::MainWindow> ui_;
  std::unique_ptr<Parts> parts_;
  QPointer<QMessageBox> question_;
  QPoint frameOffset_;
  QPointer<QWidget> preferences_;
  bool isEnding_ = false;
  bool mayClose_ = false;
};

}  // namespace window
