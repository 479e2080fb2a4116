#pragma once

#include <QLineEdit>
#include <cstdint>
#include <functional>
#include <optional>

#include "ui/ShortcutKeyOutlets.h"
#include "ui/window/keys/KeyRepeats.h"

/// The Mac's virtual key code of a key, given by its scan code (keys/NativeKey.h): both stand for a place on
/// the keyboard. nullopt for a key that no Mac has.
using VirtualKeyCodes = std::function<std::optional<std::uint16_t>(std::uint32_t scanCode)>;

/// Takes the place of a table's cell while somebody presses the keys for it. Every key press is its
/// delegate's fieldEditorKeyDown(), those too that move the focus, close windows or are menu shortcuts
/// elsewhere; none is text. A modifier key by itself is no key press, nor is the repetition of one that is
/// held, which may have been pressed elsewhere.
///
/// Which keys the modifiers are is in keys/NativeKey.h. What the desktop keeps for itself (Alt+Tab) never
/// gets here.
class TGShortcutKeyFieldEditor : public QLineEdit, public outlets::FieldEditor {
 public:
  explicit TGShortcutKeyFieldEditor(VirtualKeyCodes keyCodes);

  void setDelegate(outlets::ShortcutKeyOwner* delegate) override { delegate_ = delegate; }
  void setString(const std::string& text) override;
  [[nodiscard]] QVariant inputMethodQuery(Qt::InputMethodQuery query) const override;

 protected:
  bool event(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void keyReleaseEvent(QKeyEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;

 private:
  VirtualKeyCodes keyCodes_;
  KeyRepeats repeats_;
  outlets::ShortcutKeyOwner* delegate_ = nullptr;
};
