#include "ui/window/askpass/PasswordField.h"

#include <string.h>  // explicit_bzero

#include <QAccessibleWidget>
#include <QApplication>
#include <QClipboard>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QPainter>
#include <QScreen>
#include <QStyleOptionFrame>
#include <algorithm>
#include <string_view>

namespace window {
namespace {

constexpr int kInset = 7;
constexpr int kDot = 7;
constexpr int kGap = 4;
constexpr int kWidth = 260;
constexpr int kLeastHeight = 28;

/// Overwrites a text's letters where they lie, for everybody who shares them: the toolkit's event has the
/// same ones. Writing through the text would give it a copy first, and overwrite that.
void wipe(const QString& text) {
  auto& letters =
      const_cast<QString&>(text).data_ptr();  // NOLINT(cppcoreguidelines-pro-type-const-cast): see above
  if (letters.d_ptr() == nullptr) return;     // a constant of a program's
  ::explicit_bzero(letters.data(), static_cast<std::size_t>(letters.size) * sizeof(char16_t));
}

class PasswordFieldDescription : public QAccessibleWidget {
 public:
  explicit PasswordFieldDescription(QWidget* field) : QAccessibleWidget(field, QAccessible::EditableText) {}
  [[nodiscard]] QAccessible::State state() const override {
    QAccessible::State state = QAccessibleWidget::state();
    state.passwordEdit = true;
    state.editable = true;
    return state;
  }
};

QAccessibleInterface* describe(const QString& /*className*/, QObject* object) {
  auto* const field = dynamic_cast<PasswordField*>(object);
  return field == nullptr ? nullptr : new PasswordFieldDescription(field);
}

}  // namespace

PasswordField::PasswordField(QWidget* parent) : QWidget(parent) {
  setFocusPolicy(Qt::StrongFocus);
  setAttribute(Qt::WA_InputMethodEnabled);
  setInputMethodHints(Qt::ImhHiddenText | Qt::ImhSensitiveData | Qt::ImhNoPredictiveText |
                      Qt::ImhNoAutoUppercase);
  setCursor(Qt::IBeamCursor);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize PasswordField::sizeHint() const {
  return {kWidth, std::max(fontMetrics().height() + 2 * kInset, kLeastHeight)};
}

QVariant PasswordField::inputMethodQuery(Qt::InputMethodQuery query) const {
  if (query == Qt::ImEnabled) return true;
  if (query == Qt::ImHints) return int(inputMethodHints());
  return QWidget::inputMethodQuery(query);
}

void PasswordField::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  QStyleOptionFrame frame;
  frame.initFrom(this);
  frame.lineWidth = 1;
  frame.state |= QStyle::State_Sunken;
  style()->drawPrimitive(QStyle::PE_PanelLineEdit, &frame, &painter, this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(palette().text());
  const int room = (width() - 2 * kInset) / (kDot + kGap);
  const int dots = std::min(static_cast<int>(secret_.length()), room);
  for (int dot = 0; dot < dots; ++dot) {
    painter.drawEllipse(kInset + dot * (kDot + kGap), (height() - kDot) / 2, kDot, kDot);
  }
  if (!hasFocus()) return;
  const int caretHeight = fontMetrics().height();
  painter.fillRect(kInset + dots * (kDot + kGap), (height() - caretHeight) / 2, 1, caretHeight,
                   palette().text());
}

void PasswordField::type(const QString& text) {
  if (!secret_.append(
          std::u16string_view(QStringView(text).utf16(), static_cast<std::size_t>(text.size())))) {
    QApplication::beep();
  }
  wipe(text);
  update();
}

void PasswordField::paste() {
  type(QApplication::clipboard()->text());
  // What the display server sends lies in the connection's buffer until something longer comes: a picture.
  constexpr int kSide = 64;
  static_cast<void>(screen()->grabWindow(0, 0, 0, kSide, kSide));
}

void PasswordField::keyPressEvent(QKeyEvent* event) {
  const bool isControl = event->modifiers().testFlag(Qt::ControlModifier);
  const bool clears = event->key() == Qt::Key_Delete ||
                      (isControl && (event->key() == Qt::Key_U || event->key() == Qt::Key_A ||
                                     event->key() == Qt::Key_Backspace));
  const QString text = event->text();
  if (clears) {
    secret_.clear();
  } else if (event->key() == Qt::Key_Backspace) {
    secret_.removeLast();
  } else if (event->matches(QKeySequence::Paste)) {
    paste();
  } else if (!isControl && !text.isEmpty() && text.front().isPrint()) {
    type(text);
  } else {
    QWidget::keyPressEvent(event);  // Return and Escape are the dialog's
  }
  update();
}

void PasswordField::inputMethodEvent(QInputMethodEvent* event) {
  if (!event->commitString().isEmpty()) type(event->commitString());
  wipe(event->preeditString());
  event->accept();
}

void PasswordField::focusInEvent(QFocusEvent* /*event*/) {
  update();
}

void PasswordField::focusOutEvent(QFocusEvent* /*event*/) {
  update();
}

void describePasswordFields() {
  QAccessible::installFactory(describe);
}

}  // namespace window
