#include "ui/window/Panels.h"

#include <QApplication>
#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

namespace window {

QMessageBox* makePanel(QWidget* parent, const QString& message, const QString& text) {
  auto* const panel = new QMessageBox(parent);
  panel->setTextFormat(Qt::PlainText);
  panel->setWindowTitle(QApplication::applicationDisplayName());
  constexpr int kIconSide = 56;
  panel->setIconPixmap(
      QApplication::windowIcon().pixmap(QSize(kIconSide, kIconSide), panel->devicePixelRatioF()));
  panel->setText(message);
  panel->setInformativeText(text);
  if (auto* const title = panel->findChild<QLabel*>(QStringLiteral("qt_msgbox_label"))) {
    QFont font = title->font();
    font.setBold(true);
    title->setFont(font);
  }
  // Made by setInformativeText, and markup by itself.
  if (auto* const information = panel->findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"))) {
    information->setTextFormat(Qt::PlainText);
    constexpr int kTextWidth = 300;
    information->setMinimumWidth(kTextWidth);
  }
  return panel;
}

void addDefaultButton(QMessageBox& panel) {
  panel.addButton(QMessageBox::Ok)->setIcon({});
}

}  // namespace window
