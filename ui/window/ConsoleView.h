#pragma once

#include <QPlainTextEdit>
#include <functional>
#include <memory>
#include <vector>

#include "ui/AttributedString.h"

namespace window {

/// The console: plain text, line by line, that is never taken for markup. It stays fast with very many lines,
/// and with very long ones, which it lays out in pieces.
///
/// A character is a UTF-16 unit. Control characters other than tabs and line feeds, and bytes that are not
/// UTF-8, have pictures in their places, one for one: a text cannot move the cursor, or look like two lines.
/// Each line runs from left to right, and what would have characters shown in another order than they stand
/// in is shown as U+FFFD.
/// Colours are roles: black is the palette's text colour, red and blue are the shades of it that can be read
/// on the palette's ground, light or dark, and they follow when it changes. A font size is in the Mac's
/// points, 72 to the inch of 72 pixels: 12 is as large as other applications' 9 points.
///
/// A link is opened by a click, or reached with Tab and opened with Return; to assistive programs it is a
/// link in the console. Copying and selecting all work whether the text is editable or not. When the console
/// changes its size, it stays at its end if that was shown.
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

  /// The text, as copying all of it gives it: the pictures of control characters, but the very marks that are
  /// shown as U+FFFD (unless a text has more than a thousand of them: then U+FFFD).
  [[nodiscard]] QString string() const;

  /// The colour that stands for a role on this view's ground.
  [[nodiscard]] QColor shadeOf(outlets::Color color) const;

  /// The links that are there, in their order; each selects a link's text, and stays with it.
  [[nodiscard]] std::vector<QTextCursor> links() const;
  /// Gives the keyboard to the console and to a link in it, as Tab does.
  void goTo(const QTextCursor& link);
  void open(const QTextCursor& link);
  /// Whether Return opens it.
  [[nodiscard]] bool isAt(const QTextCursor& link) const;

 protected:
  void changeEvent(QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  bool focusNextPrevChild(bool next) override;
  [[nodiscard]] QMimeData* createMimeDataFromSelection() const override;

 private:
  /// The document's positions count where long lines are cut, the text's locations do not.
  [[nodiscard]] int documentPosition(std::size_t location) const;
  [[nodiscard]] std::size_t locationOf(int position) const;
  [[nodiscard]] QTextCursor cursorOver(outlets::Range range) const;
  [[nodiscard]] QString textBetween(int start, int end) const;
  void insert(const std::string& text, const QTextCharFormat& format);
  void addAttributes(const AttributedString::Attributes& attributes, outlets::Range range);
  void setColor(QTextCharFormat& format, outlets::Color color) const;
  void noteChange(int from);
  void applyPalette();
  void scrollToEnd();
  [[nodiscard]] QString selectedAddress() const;
  void open(const QString& address);

  std::function<void(const std::string&)> opener_;
  /// Paragraphs of the document that begin within a line.
  std::shared_ptr<int> pieces_ = std::make_shared<int>(0);
  int paragraphs_ = 1;
  std::vector<QTextCursor> insertedLinks_;
  QString pressedAddress_;
  QRgb ground_ = 0;
};

}  // namespace window
