#pragma once

#include <QWidget>
#include <memory>

#include "ui/ShortcutKeyOutlets.h"
#include "ui/window/keys/TGShortcutKeyFieldEditor.h"

namespace Ui {
class TGShortcutKeyConfig;
}

/// The shortcut-key editor, to be put into any window: loads its interface (resources/TGShortcutKeyConfig.ui)
/// with the owner as the owner of its parts. An interface that cannot be loaded is closed and reported to the
/// owner, and leaves the view empty. While the owner has the table disabled, so are the rest of the controls.
///
/// REQUIRES that the owner outlives it, and that no other is made for the owner meanwhile.
class TGShortcutKeyContainerView : public QWidget, private outlets::FieldEditorFactory {
 public:
  TGShortcutKeyContainerView(outlets::ShortcutKeyOwner& owner, VirtualKeyCodes keyCodes);
  ~TGShortcutKeyContainerView() override;

 protected:
  /// Puts the owner's view into this one, as large as it is, when there is a window to show it in.
  bool event(QEvent* event) override;

 private:
  struct Parts;

  [[nodiscard]] std::unique_ptr<outlets::FieldEditor> makeFieldEditor() override;

  void loadInterface();
  void dress();
  void viewDidMoveToWindow();
  void showState();
  void showConflict();

  outlets::ShortcutKeyOwner& owner_;
  VirtualKeyCodes keyCodes_;
  std::unique_ptr<Ui::TGShortcutKeyConfig> ui_;
  std::unique_ptr<Parts> parts_;
};
