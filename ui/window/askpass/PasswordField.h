#pragma once

#include <QWidget>

#include "ui/window/askpass/SecretText.h"

namespace window {

/// A line to type a password into. It shows a dot for each character and never the character; what is typed
/// goes into a SecretText and nowhere else, so it has no history, no selection and no way to copy out of it.
/// The letters of the events that bring it are overwritten where they lie, as soon as they are taken; not in
/// our hands are what lies on the stack for a moment, the display server, and an input method. The caret
/// stays at the end; Ctrl+U, Ctrl+A and Delete clear the whole line. A character that does not fit any more
/// is refused with a beep.
class PasswordField : public QWidget {
 public:
  explicit PasswordField(QWidget* parent = nullptr);

  [[nodiscard]] SecretText& secret() { return secret_; }
  [[nodiscard]] const SecretText& secret() const { return secret_; }

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }
  [[nodiscard]] QVariant inputMethodQuery(Qt::InputMethodQuery query) const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void inputMethodEvent(QInputMethodEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;
  void focusOutEvent(QFocusEvent* event) override;

 private:
  void type(const QString& text);
  void paste();

  SecretText secret_;
};

/// Has assistive programs see such a field as the password field that it is.
void describePasswordFields();

}  // namespace window
