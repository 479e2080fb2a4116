#pragma once

#include <QString>

class QMessageBox;
class QWidget;

namespace window {

/// A new panel with a bold message and a text below it, both plain, and the application's icon. It has no
/// buttons yet; with a parent it stands over that window.
[[nodiscard]] QMessageBox* makePanel(QWidget* parent, const QString& message, const QString& text);

/// The one button of a panel that only tells something: OK, without a picture.
void addDefaultButton(QMessageBox& panel);

}  // namespace window
