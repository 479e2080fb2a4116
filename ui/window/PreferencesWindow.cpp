#include "ui/window/PreferencesWindow.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>
#include <utility>

#include "ui/window/keys/TGShortcutKeyContainerView.h"

namespace window {
namespace {

QLabel* makeHeading(const QString& text) {
  auto* const heading = new QLabel(text);
  heading->setTextFormat(Qt::PlainText);
  QFont font = heading->font();
  font.setBold(true);
  heading->setFont(font);
  return heading;
}

QLabel* makeExplanation(const QString& text) {
  auto* const explanation = new QLabel(text);
  explanation->setTextFormat(Qt::PlainText);
  explanation->setWordWrap(true);
  return explanation;
}

}  // namespace

PreferencesWindow::PreferencesWindow(outlets::ShortcutKeyOwner& owner, VirtualKeyCodes keyCodes,
                                     QWidget* parent)
    : QDialog(parent) {
  constexpr QSize kSize(560, 420);
  constexpr int kMargin = 20;
  setObjectName(QStringLiteral("preferences"));
  setWindowTitle(tr("Preferences"));
  auto* const editor = new TGShortcutKeyContainerView(owner, std::move(keyCodes));
  auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Close);
  QPushButton* const close = buttons->button(QDialogButtonBox::Close);
  close->setAutoDefault(false);  // Return is the table's
  close->setIcon({});
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  // As the main window's Close, whose keys it does not hear from here.
  new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_W), this, this, &QDialog::reject);
  auto* const rows = new QVBoxLayout(this);
  rows->setContentsMargins(kMargin, kMargin, kMargin, kMargin);
  rows->addWidget(makeHeading(tr("Keyboard Shortcuts")));
  rows->addWidget(
      makeExplanation(tr("These keys run Quillmend's commands whatever application is in front.")));
  rows->addWidget(editor, 1);
  rows->addWidget(buttons);
  resize(kSize);
  editor->setFocus();
}

}  // namespace window
