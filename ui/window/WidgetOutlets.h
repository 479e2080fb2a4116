#pragma once

#include <QAbstractButton>
#include <QAction>
#include <QList>
#include <utility>

#include "ui/Outlets.h"

/// Outlets that stand for a toolkit's controls; they do not own them.
namespace window {

[[nodiscard]] inline outlets::State stateOf(bool isOn) {
  return isOn ? outlets::State::on : outlets::State::off;
}

class ButtonOutlet : public outlets::Button {
 public:
  /// The menus' actions are enabled with the button.
  ButtonOutlet(QAbstractButton& button, QList<QAction*> actions)
      : button_(button), actions_(std::move(actions)) {}
  void setEnabled(bool isEnabled) override {
    button_.setEnabled(isEnabled);
    for (QAction* const action : actions_) action->setEnabled(isEnabled);
  }

 private:
  QAbstractButton& button_;
  QList<QAction*> actions_;
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
