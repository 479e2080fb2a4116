#pragma once

#include <QAbstractButton>
#include <QAction>
#include <QList>
#include <QWidget>
#include <utility>

#include "ui/Outlets.h"

/// Outlets that stand for a toolkit's controls; they do not own them.
namespace window {

[[nodiscard]] inline outlets::State stateOf(bool isOn) {
  return isOn ? outlets::State::on : outlets::State::off;
}

class ButtonOutlet : public outlets::Button {
 public:
  /// The menus' actions are enabled with the button. Where it has the keyboard when it is disabled, the
  /// widget beside it is given it, which does nothing with keys; it comes back to the button with the
  /// enabling, unless the user has gone elsewhere meanwhile. The toolkit would give it to the next control,
  /// for good.
  ButtonOutlet(QAbstractButton& button, QList<QAction*> actions, QWidget& meanwhile)
      : button_(button), actions_(std::move(actions)), meanwhile_(meanwhile) {}
  void setEnabled(bool isEnabled) override {
    if (!isEnabled && hasKeyboard(button_)) meanwhile_.setFocus();
    button_.setEnabled(isEnabled);
    for (QAction* const action : actions_) action->setEnabled(isEnabled);
    if (isEnabled && hasKeyboard(meanwhile_)) button_.setFocus();
  }

 private:
  /// In its window, also while another one (a sheet) is in front of that.
  static bool hasKeyboard(const QWidget& widget) { return widget.window()->focusWidget() == &widget; }

  QAbstractButton& button_;
  QList<QAction*> actions_;
  QWidget& meanwhile_;
};

/// Setting a state is no action of the user's and performs none.
class CheckBoxOutlet : public outlets::CheckBox {
 public:
  explicit CheckBoxOutlet(QAbstractButton& button) : button_(button) {}
  [[nodiscard]] outlets::State state() const override { return stateOf(button_.isChecked()); }
  void setState(outlets::State state) override { button_.setChecked(state == outlets::State::on); }

 private:
  QAbstractButton& button_;
};

class MenuItemOutlet : public outlets::MenuItem {
 public:
  explicit MenuItemOutlet(QAction& action) : action_(action) {}
  [[nodiscard]] outlets::State state() const override { return stateOf(action_.isChecked()); }
  void setState(outlets::State state) override { action_.setChecked(state == outlets::State::on); }

 private:
  QAction& action_;
};

}  // namespace window
