#include "ui/window/ConsoleView.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextDocument>
#include <algorithm>

namespace window {
namespace {

constexpr int kRole = QTextFormat::UserProperty;
constexpr double kPointsPerMacPoint = 72.0 / 96.0;
constexpr int kMargin = 8;

/// The picture of a control character, or the character itself.
QChar picture(QChar letter) {
  const char16_t unit = letter.unicode();
  if (unit == u'\n' || unit == u'\t') return letter;
  if (unit < 0x20) return QChar(static_cast<char16_t>(0x2400 + unit));
  if (unit == 0x7F) return QChar(u'\u2421');
  // Further line ends, and what a document takes for the ends of its frames.
  const bool isUnfit =
      (unit > 0x7F && unit < 0xA0) || unit == 0x2028 || unit == 0x2029 || (unit >= 0xFDD0 && unit <= 0xFDEF);
  return isUnfit ? QChar(QChar::ReplacementCharacter) : letter;
}

QString plain(const std::string& text) {
  QString letters = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
  std::transform(letters.cbegin(), letters.cend(), letters.begin(), picture);
  return letters;
}

bool hasEndlessWord(const QString& text) {
  constexpr qsizetype kEndless = 4096;
  qsizetype length = 0;
  return std::any_of(text.cbegin(), text.cend(), [&length](QChar letter) {
    length = letter.isSpace() ? 0 : length + 1;
    return length > kEndless;
  });
}

QFont consoleFont(const QFont& system, const outlets::Font& wanted) {
  QFont font = system;
  font.setPointSizeF(wanted.size * kPointsPerMacPoint);
  font.setBold(wanted.isBold);
  return font;
}

bool isOver(const QTextCursor& one, const QTextCursor& other) {
  return one.selectionStart() == other.selectionStart() && one.selectionEnd() == other.selectionEnd();
}

}  // namespace

ConsoleView::ConsoleView(QWidget* parent) : QPlainTextEdit(parent) {
  setReadOnly(true);
  setUndoRedoEnabled(false);
  setTabChangesFocus(true);
  setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  document()->setDocumentMargin(kMargin);
  document()->setDefaultFont(consoleFont(font(), {}));
  viewport()->setMouseTracking(true);
  ground_ = palette().color(QPalette::Base).rgb();
}

void ConsoleView::setEditable(bool isEditable) {
  setTextInteractionFlags(isEditable ? Qt::TextEditorInteraction
                                     : Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
}

std::size_t ConsoleView::length() const {
  // A document counts the end of its last paragraph too.
  return static_cast<std::size_t>(document()->characterCount() - 1);
}

void ConsoleView::setString(const std::string& text) {
  insertedLinks_.clear();
  clear();
  setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  setPlainText(prepared(text));
}

/// A text for the document. The toolkit looks for the end of a word from each line that the word fills, which
/// takes it minutes with a word of a megabyte: from such a word on, lines are cut anywhere.
QString ConsoleView::prepared(const std::string& text) {
  QString letters = plain(text);
  if (hasEndlessWord(letters)) setWordWrapMode(QTextOption::WrapAnywhere);
  return letters;
}

QTextCursor ConsoleView::cursorOver(outlets::Range range) const {
  const std::size_t start = std::min(range.location, length());
  const std::size_t end = start + std::min(range.length, length() - start);
  QTextCursor cursor(document());
  cursor.setPosition(static_cast<int>(start));
  cursor.setPosition(static_cast<int>(end), QTextCursor::KeepAnchor);
  return cursor;
}

void ConsoleView::setSelectedRange(outlets::Range range) {
  setTextCursor(cursorOver(range));
}

void ConsoleView::insert(const std::string& text, const QTextCharFormat& format) {
  QTextCursor cursor = textCursor();
  cursor.insertText(prepared(text), format);
  setTextCursor(cursor);
}

void ConsoleView::insertText(const std::string& text, outlets::Font font) {
  QTextCharFormat format;
  format.setFont(consoleFont(this->font(), font));
  insert(text, format);
}

void ConsoleView::insertAttributedText(const AttributedString& text) {
  const auto start = static_cast<std::size_t>(textCursor().selectionStart());
  insertText(text.string(), {});
  for (const auto& [range, attributes] : text.attributeRuns()) {
    addAttributes(attributes, {start + range.location, range.length});
  }
  setCurrentCharFormat({});  // what is typed behind a link is none
}

void ConsoleView::addAttributes(const AttributedString::Attributes& attributes, outlets::Range range) {
  QTextCursor over = cursorOver(range);
  QTextCharFormat format = over.charFormat();
  format.setFontUnderline(attributes.underlineStyle > 0);
  setColor(format, attributes.foregroundColor);
  if (!attributes.link.empty()) {
    format.setAnchor(true);
    format.setAnchorHref(QString::fromStdString(attributes.link));
    over.setKeepPositionOnInsert(true);
    insertedLinks_.push_back(over);
  }
  over.setCharFormat(format);
}

QColor ConsoleView::shadeOf(outlets::Color color) const {
  const bool isDark = palette().color(QPalette::Base).lightnessF() < 0.5F;
  switch (color) {
    case outlets::Color::red:
      return isDark ? QColor(0xFF, 0x7B, 0x72) : QColor(0xC6, 0x1A, 0x1A);
    case outlets::Color::blue:
      return isDark ? QColor(0x7A, 0xB0, 0xFF) : QColor(0x0A, 0x5C, 0xD6);
    case outlets::Color::black:
      break;
  }
  return palette().color(QPalette::Text);
}

void ConsoleView::setColor(QTextCharFormat& format, outlets::Color color) const {
  format.setProperty(kRole, static_cast<int>(color));
  if (color == outlets::Color::black) {
    format.clearForeground();  // the palette's own, whatever it becomes
  } else {
    format.setForeground(shadeOf(color));
  }
}

void ConsoleView::setTextColor(outlets::Color color, outlets::Range range) {
  QTextCursor cursor = cursorOver(range);
  if (!cursor.hasSelection()) return;
  QTextCharFormat format = cursor.charFormat();
  setColor(format, color);
  cursor.setCharFormat(format);
}

void ConsoleView::scrollRangeToVisible(outlets::Range range) {
  const QTextCursor selection = textCursor();
  setTextCursor(cursorOver({range.location + range.length, 0}));
  ensureCursorVisible();
  QScrollBar* const bar = verticalScrollBar();
  const bool isAtEnd = range.location + range.length >= length();
  const int place = isAtEnd ? bar->maximum() : bar->value();
  if (selection != textCursor()) setTextCursor(selection);
  bar->setValue(place);
}

void ConsoleView::setNeedsDisplay() {
  viewport()->update();
}

void ConsoleView::changeEvent(QEvent* event) {
  QPlainTextEdit::changeEvent(event);
  if (event->type() == QEvent::PaletteChange || event->type() == QEvent::StyleChange) applyPalette();
}

void ConsoleView::applyPalette() {
  const QRgb ground = palette().color(QPalette::Base).rgb();
  if (ground == ground_) return;
  ground_ = ground;
  QTextCursor edit(document());
  edit.beginEditBlock();
  for (QTextBlock block = document()->begin(); block.isValid(); block = block.next()) {
    for (auto piece = block.begin(); !piece.atEnd(); ++piece) {
      QTextCharFormat format = piece.fragment().charFormat();
      const auto color = static_cast<outlets::Color>(format.intProperty(kRole));
      if (color == outlets::Color::black) continue;
      edit.setPosition(piece.fragment().position());
      edit.setPosition(piece.fragment().position() + piece.fragment().length(), QTextCursor::KeepAnchor);
      setColor(format, color);
      edit.setCharFormat(format);
    }
  }
  edit.endEditBlock();
}

std::vector<QTextCursor> ConsoleView::links() const {
  std::vector<QTextCursor> found;
  for (const QTextCursor& link : insertedLinks_) {
    if (link.hasSelection()) found.push_back(link);
  }
  return found;
}

QString ConsoleView::selectedAddress() const {
  for (const QTextCursor& link : links()) {
    if (isOver(link, textCursor())) return textCursor().charFormat().anchorHref();
  }
  return {};
}

void ConsoleView::open(const QString& address) {
  if (opener_) opener_(address.toStdString());
}

/// Tab goes from link to link before it leaves.
bool ConsoleView::focusNextPrevChild(bool next) {
  auto all = links();
  if (!next) std::reverse(all.begin(), all.end());
  const QTextCursor now = textCursor();
  const bool isAtLink = !selectedAddress().isEmpty();
  for (const QTextCursor& link : all) {
    const bool isBeyond =
        next ? link.selectionStart() >= now.selectionEnd() : link.selectionEnd() <= now.selectionStart();
    if (hasFocus() && (!isAtLink || isBeyond)) {
      setTextCursor(link);
      return true;
    }
  }
  return QPlainTextEdit::focusNextPrevChild(next);
}

void ConsoleView::keyPressEvent(QKeyEvent* event) {
  const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
  const QString address = isReturn ? selectedAddress() : QString();
  if (!address.isEmpty()) return open(address);
  QPlainTextEdit::keyPressEvent(event);
}

void ConsoleView::mouseMoveEvent(QMouseEvent* event) {
  QPlainTextEdit::mouseMoveEvent(event);
  const bool isOverLink = !anchorAt(event->position().toPoint()).isEmpty();
  viewport()->setCursor(isOverLink ? Qt::PointingHandCursor : Qt::IBeamCursor);
}

void ConsoleView::mousePressEvent(QMouseEvent* event) {
  pressedAddress_ = event->button() == Qt::LeftButton ? anchorAt(event->position().toPoint()) : QString();
  QPlainTextEdit::mousePressEvent(event);
}

void ConsoleView::mouseReleaseEvent(QMouseEvent* event) {
  QPlainTextEdit::mouseReleaseEvent(event);
  // Pressed and let go on the same link, and nothing selected on the way.
  const bool isClick = !pressedAddress_.isEmpty() && !textCursor().hasSelection() &&
                       anchorAt(event->position().toPoint()) == pressedAddress_;
  if (isClick) open(pressedAddress_);
  pressedAddress_.clear();
}

}  // namespace window
