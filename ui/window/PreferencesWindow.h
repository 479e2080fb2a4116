#pragma once

#include <QDialog>

#include "ui/window/keys/TGShortcutKeyFieldEditor.h"

namespace window {

/// The application's preferences: the keyboard shortcuts of its commands. It keeps nothing of its own,
/// neither a size nor a selection, and shows what is in force whenever it is made.
///
/// REQUIRES that the owner outlives it, and one window at a time.
class PreferencesWindow : public QDialog {
 public:
  PreferencesWindow(outlets::ShortcutKeyOwner& owner, VirtualKeyCodes keyCodes, QWidget* parent);
};

}  // namespace window
