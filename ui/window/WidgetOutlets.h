#pragma once

#include <QAbstractButton>
#include <QAction>

#include "ui/Outlets.h"

/// Outlets that stand for a toolkit's controls; they do not own them.
namespace window {

[[nodiscard]] inline outlets::State stateOf(bool isOn) {
  return isOn ? outlets::State::on : outlets::State::off;
}

class ButtonOutlet : public outlets::Button {
 public:
  /// The action is the menu's for the same thing, and is enabled with the button.
  ButtonOutlet(QAbstractButton& button, QAction& action) : button_(button), action_(action) {}
  void setEnabled(bool isEnabled) override {
    button_.setEnabled(isEnabled);
    action_.setEnabled(isEnabled);
  }

 private:
  QAbstractButton& button_;
  QAction& action_;
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
