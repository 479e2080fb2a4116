#include "ui/window/keys/TGShortcutKeyFieldEditor.h"

#include <QKeyEvent>
#include <utility>

#include "ui/window/keys/NativeKey.h"

namespace {

bool isModifier(int key) {
  switch (key) {
    case Qt::Key_Shift:
    case Qt::Key_Control:
    case Qt::Key_Alt:
    case Qt::Key_Meta:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
    case Qt::Key_Hyper_L:
    case Qt::Key_Hyper_R:
    case Qt::Key_AltGr:
    case Qt::Key_Mode_switch:
    case Qt::Key_CapsLock:
    case Qt::Key_NumLock:
    case Qt::Key_ScrollLock:
      return true;
    default:
      return false;
  }
}

/// By its place on the keyboard, because the toolkit does not know all the symbols that a modifier key may
/// have: one that switches the layout has "the next layout" for as long as another modifier is held.
bool isModifierCode(std::uint16_t keyCode) {
  constexpr std::uint16_t kRightCommand = 0x36;
  constexpr std::uint16_t kFunction = 0x3F;
  return keyCode >= kRightCommand && keyCode <= kFunction;
}

}  // namespace

TGShortcutKeyFieldEditor::TGShortcutKeyFieldEditor(VirtualKeyCodes keyCodes)
    : keyCodes_(std::move(keyCodes)) {
  setReadOnly(true);
  setFrame(false);
  setPlaceholderText(tr("Press the keys"));
}

void TGShortcutKeyFieldEditor::setString(const std::string& text) {
  setText(QString::fromStdString(text));
}

bool TGShortcutKeyFieldEditor::event(QEvent* event) {
  if (event->type() == QEvent::ShortcutOverride) {
    event->accept();  // no menu gets it
    return true;
  }
  if (event->type() != QEvent::KeyPress) return QLineEdit::event(event);
  keyPressEvent(static_cast<QKeyEvent*>(event));  // Tab is a key like any other
  return true;
}

void TGShortcutKeyFieldEditor::keyPressEvent(QKeyEvent* event) {
  event->accept();
  const nativekey::Keyboard keyboard = nativekey::keyboardInUse();
  const auto code = nativekey::scanCodeOf(*event, keyboard);
  if (isModifier(event->key()) || repeats_.isRepeat(*event) || !code) return;
  const auto keyCode = keyCodes_(*code);
  if (!keyCode || isModifierCode(*keyCode) || delegate_ == nullptr) return;
  delegate_->fieldEditorKeyDown(*keyCode, nativekey::flagsOf(*event, keyboard));
}

/// An input method would keep dead keys to itself.
QVariant TGShortcutKeyFieldEditor::inputMethodQuery(Qt::InputMethodQuery query) const {
  return query == Qt::ImEnabled ? QVariant(false) : QLineEdit::inputMethodQuery(query);
}

void TGShortcutKeyFieldEditor::keyReleaseEvent(QKeyEvent* event) {
  repeats_.noteRelease(*event);
  event->accept();
}

void TGShortcutKeyFieldEditor::contextMenuEvent(QContextMenuEvent* event) {
  event->accept();  // there is no text to do anything with
}
