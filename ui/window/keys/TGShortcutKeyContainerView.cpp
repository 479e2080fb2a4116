#include "ui/window/keys/TGShortcutKeyContainerView.h"

#include <QAccessible>
#include <QEvent>
#include <QVBoxLayout>
#include <utility>

#include "ui_TGShortcutKeyConfig.h"

namespace {

/// The view that the interface is loaded into.
class ParentView : public QWidget, public outlets::View {};

class TextOutlet : public outlets::TextField {
 public:
  explicit TextOutlet(QWidget& text) : text_(text) {}
  void setHidden(bool isHidden) override { text_.setHidden(isHidden); }

 private:
  QWidget& text_;
};

}  // namespace

struct TGShortcutKeyContainerView::Parts {
  ParentView parentView;
  std::unique_ptr<TextOutlet> versionAlertText;
};

TGShortcutKeyContainerView::TGShortcutKeyContainerView(outlets::ShortcutKeyOwner& owner,
                                                       VirtualKeyCodes keyCodes)
    : owner_(owner), keyCodes_(std::move(keyCodes)) {
  (new QVBoxLayout(this))->setContentsMargins(0, 0, 0, 0);
  try {
    loadInterface();
  } catch (const std::exception&) {
    owner_.interfaceWillClose();  // it may have some of the parts already
    parts_.reset();
    ui_.reset();
    owner_.interfaceDidNotLoad();
  }
}

TGShortcutKeyContainerView::~TGShortcutKeyContainerView() {
  if (!parts_) return;
  owner_.interfaceWillClose();  // lets go of the field editor, which is in the table
  ui_->shortcutKeyTableView->setOwner(nullptr);
}

void TGShortcutKeyContainerView::loadInterface() {
  ui_ = std::make_unique<Ui::TGShortcutKeyConfig>();
  parts_ = std::make_unique<Parts>();
  ui_->setupUi(&parts_->parentView);
  parts_->versionAlertText = std::make_unique<TextOutlet>(*ui_->versionAlertText);
  dress();
  owner_.interfaceDidLoad({.shortcutKeyTableView = ui_->shortcutKeyTableView,
                           .parentView = &parts_->parentView,
                           .versionAlertText = parts_->versionAlertText.get(),
                           .fieldEditors = this});
  ui_->shortcutKeyTableView->setOwner(&owner_);
}

/// What an interface description cannot say.
void TGShortcutKeyContainerView::dress() {
  connect(ui_->clearShortcutKey, &QPushButton::clicked, this, [this] { owner_.clearShortcutKey(nullptr); });
  ui_->shortcutKeyTableView->setOnChange([this] { showState(); });
  setFocusProxy(ui_->shortcutKeyTableView);
  showState();
}

std::unique_ptr<outlets::FieldEditor> TGShortcutKeyContainerView::makeFieldEditor() {
  return std::make_unique<TGShortcutKeyFieldEditor>(keyCodes_);
}

void TGShortcutKeyContainerView::viewDidMoveToWindow() {
  auto* const view = dynamic_cast<QWidget*>(owner_.parentView());
  if (view == nullptr || parentWidget() == nullptr || view->parentWidget() == this) return;
  view->setGeometry(rect());
  layout()->addWidget(view);  // keeps it so
  view->show();
}

/// Without the table there is nothing to press the button for, and the hint is none.
void TGShortcutKeyContainerView::showState() {
  const bool isUsable = ui_->shortcutKeyTableView->isEnabled();
  ui_->clearShortcutKey->setEnabled(isUsable);
  ui_->hint->setEnabled(isUsable);
  showConflict();
}

/// A label does not announce its new text by itself.
void TGShortcutKeyContainerView::showConflict() {
  const auto row = ui_->shortcutKeyTableView->selectedRow();
  const QString text = row ? QString::fromStdString(owner_.conflictInRow(*row)) : QString();
  if (ui_->conflictText->text() == text) return;
  ui_->conflictText->setText(text);
  QAccessibleEvent change(ui_->conflictText, QAccessible::NameChanged);
  QAccessible::updateAccessibility(&change);
}

bool TGShortcutKeyContainerView::event(QEvent* event) {
  if (event->type() == QEvent::ParentChange) viewDidMoveToWindow();
  return QWidget::event(event);
}
