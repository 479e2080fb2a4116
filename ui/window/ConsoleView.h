#pragma once

#include <QPlainTextEdit>
#include <functional>
#include <vector>

#include "ui/AttributedString.h"

namespace window {

/// The console: plain text, line by line, that is never taken for markup. It stays fast with very many lines.
///
/// A character is a UTF-16 unit. Control characters other than tabs and line feeds, and bytes that are not
/// UTF-8, have pictures in their places, one for one: a text cannot move the cursor, or look like two lines.
/// Colours are roles: black is the palette's text colour, red and blue are the shades of it that can be read
/// on the palette's ground, light or dark, and they follow when it changes. A font size is in the Mac's
/// points, 72 to the inch of 72 pixels: 12 is as large as other applications' 9 points.
///
/// A link is opened by a click, or reached with Tab and opened with Return. Copying and selecting all work
/// whether the text is editable or not.
class ConsoleView : public QPlainTextEdit, public outlets::TextView {
 public:
  explicit ConsoleView(QWidget* parent = nullptr);

  /// What a link's address is handed to.
  void setLinkOpener(std::function<void(const std::string& address)> opener) { opener_ = std::move(opener); }

  void setEditable(bool isEditable) override;
  [[nodiscard]] std::size_t length() const override;
  void setString(const std::string& text) override;
  void setSelectedRange(outlets::Range range) override;
  void insertText(const std::string& text, outlets::Font font) override;
  void insertAttributedText(const AttributedString& text) override;
  void setTextColor(outlets::Color color, outlets::Range range) override;
  void scrollRangeToVisible(outlets::Range range) override;
  void setNeedsDisplay() override;

  /// The colour that stands for a role on this view's ground.
  [[nodiscard]] QColor shadeOf(outlets::Color color) const;

 protected:
  void changeEvent(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  bool focusNextPrevChild(bool next) override;

 private:
  [[nodiscard]] QTextCursor cursorOver(outlets::Range range) const;
  [[nodiscard]] QString prepared(const std::string& text);
  void insert(const std::string& text, const QTextCharFormat& format);
  void addAttributes(const AttributedString::Attributes& attributes, outlets::Range range);
  void setColor(QTextCharFormat& format, outlets::Color color) const;
  void applyPalette();
  [[nodiscard]] std::vector<QTextCursor> links() const;
  [[nodiscard]] QString selectedAddress() const;
  void open(const QString& address);

  std::function<void(const std::string&)> opener_;
  std::vector<QTextCursor> insertedLinks_;
  QString pressedAddress_;
  QRgb ground_ = 0;
};

}  // namespace window
