#include "ui/window/ConsoleView.h"

#include <QKeyEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextDocument>
#include <algorithm>
#include <functional>
#include <utility>

#include "ui/window/ConsoleDescription.h"
#include "ui/window/ConsoleText.h"

namespace window {
namespace {

constexpr int kRole = QTextFormat::UserProperty;
constexpr double kPointsPerMacPoint = 72.0 / 96.0;
constexpr int kMargin = 8;

/// The mark that a U+FFFD stands for, a character's number.
constexpr int kMark = QTextFormat::UserProperty + 1;

/// No word of a paragraph is longer: the toolkit looks for a word's end anew from each line that it fills,
/// and lays a paragraph out at once, which takes it minutes with a word of a megabyte.
constexpr int kLongestParagraph = 2000;

/// Marks in one text that are remembered. Each takes as long as a line, and nobody writes as many.
constexpr int kMostMarks = 1000;

/// A paragraph that begins within a line, and is counted as long as it is there.
class Piece : public QTextBlockUserData {
 public:
  explicit Piece(std::shared_ptr<int> count) : count_(std::move(count)) { ++*count_; }
  ~Piece() override { --*count_; }
  Piece(const Piece&) = delete;
  Piece& operator=(const Piece&) = delete;

 private:
  std::shared_ptr<int> count_;
};

bool isPiece(const QTextBlock& block) {
  return block.userData() != nullptr;
}

/// A paragraph's text with the marks that are shown as something else.
QString textOf(const QTextBlock& block) {
  QString text = block.text();
  if (!text.contains(QChar(QChar::ReplacementCharacter))) return text;
  for (auto part = block.begin(); !part.atEnd(); ++part) {
    const int mark = part.fragment().charFormat().intProperty(kMark);
    if (mark == 0) continue;
    const int start = part.fragment().position() - block.position();
    for (int at = start; at < start + part.fragment().length(); ++at) {
      if (text[at] == QChar(QChar::ReplacementCharacter)) text[at] = QChar(mark);
    }
  }
  return text;
}

/// Hands out the parts of a selection that look alike; the work may change their looks.
void forEachPart(const QTextCursor& selection,
                 const std::function<void(QTextCursor& part, QTextCharFormat& format)>& work) {
  struct Part {
    int start;
    int end;
    QTextCharFormat format;
  };
  QTextCursor cursor(selection);
  cursor.beginEditBlock();
  QTextBlock block = selection.document()->findBlock(selection.selectionStart());
  for (; block.isValid() && block.position() < selection.selectionEnd(); block = block.next()) {
    std::vector<Part> parts;  // before a change moves them
    for (auto piece = block.begin(); !piece.atEnd(); ++piece) {
      const int start = std::max(piece.fragment().position(), selection.selectionStart());
      const int end =
          std::min(piece.fragment().position() + piece.fragment().length(), selection.selectionEnd());
      if (start < end) parts.push_back({start, end, piece.fragment().charFormat()});
    }
    for (Part& part : parts) {
      cursor.setPosition(part.start);
      cursor.setPosition(part.end, QTextCursor::KeepAnchor);
      work(cursor, part.format);
    }
  }
  cursor.endEditBlock();
}

/// How many of the first characters are one mark again and again, or no marks.
qsizetype runLength(QStringView part) {
  const QChar first = part.front();
  const auto end = std::find_if(part.cbegin(), part.cend(), [first](QChar letter) {
    return isDirectionMark(first) ? letter != first : isDirectionMark(letter);
  });
  return end - part.cbegin();
}

/// Puts a text into a document, in one step.
class Insertion {
 public:
  Insertion(const QTextCursor& at, const QTextCharFormat& format, const std::shared_ptr<int>& pieces)
      : cursor_(at), format_(format), pieces_(pieces) {
    cursor_.beginEditBlock();
    cursor_.removeSelectedText();
  }
  ~Insertion() { cursor_.endEditBlock(); }
  Insertion(const Insertion&) = delete;
  Insertion& operator=(const Insertion&) = delete;

  void add(QString letters) {
    if (std::count_if(letters.cbegin(), letters.cend(), isDirectionMark) > kMostMarks) {
      std::replace_if(letters.begin(), letters.end(), isDirectionMark, QChar(QChar::ReplacementCharacter));
    }
    const auto lines = QStringView(letters).split(u'\n');
    for (const QStringView& line : lines) {
      if (&line != &lines.front()) addParagraph();
      addLine(line);
    }
  }
  [[nodiscard]] const QTextCursor& cursor() const { return cursor_; }

 private:
  void addParagraph() { cursor_.insertBlock(cursor_.blockFormat(), format_); }
  void addLine(QStringView line) {
    int room = kLongestParagraph - (cursor_.block().length() - 1);
    while (line.size() > room) {
      const qsizetype length = room > 1 ? pieceLength(line, room) : 0;
      addPart(line.first(length));
      line = line.sliced(length);
      addParagraph();
      cursor_.block().setUserData(new Piece(pieces_));  // the document's from now on
      room = kLongestParagraph;
    }
    addPart(line);
  }
  /// A part of a line, with its marks to be seen.
  void addPart(QStringView part) {
    while (!part.isEmpty()) {
      const QStringView run = part.first(runLength(part));
      isDirectionMark(run.front()) ? addMarks(run) : cursor_.insertText(run.toString(), format_);
      part = part.sliced(run.size());
    }
  }
  void addMarks(QStringView marks) {
    QTextCharFormat format = format_;
    format.setProperty(kMark, int(marks.front().unicode()));
    cursor_.insertText(QString(marks.size(), QChar(QChar::ReplacementCharacter)), format);
  }

  QTextCursor cursor_;
  QTextCharFormat format_;
  std::shared_ptr<int> pieces_;
};

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
  describeConsoles();
  setReadOnly(true);
  setUndoRedoEnabled(false);
  setTabChangesFocus(true);
  setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
  QTextOption option = document()->defaultTextOption();
  option.setTextDirection(Qt::LeftToRight);
  document()->setDefaultTextOption(option);
  document()->setDocumentMargin(kMargin);
  document()->setDefaultFont(consoleFont(font(), {}));
  viewport()->setMouseTracking(true);
  ground_ = palette().color(QPalette::Base).rgb();
  connect(document(), &QTextDocument::contentsChange, this, [this](int from) { noteChange(from); });
}

/// Of paragraphs that become one, the toolkit keeps what it was told of the last one when nothing is left of
/// the others: a line's later piece can become its beginning.
void ConsoleView::noteChange(int from) {
  const int count = document()->blockCount();
  const bool areFewer = count < std::exchange(paragraphs_, count);
  QTextBlock block = document()->findBlock(from);
  const bool isBeginning = !block.previous().isValid() || block.previous().length() <= kLongestParagraph / 2;
  if (areFewer && isPiece(block) && isBeginning) block.setUserData(nullptr);
}

void ConsoleView::setEditable(bool isEditable) {
  setTextInteractionFlags(isEditable ? Qt::TextEditorInteraction
                                     : Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
}

std::size_t ConsoleView::length() const {
  // A document counts the end of its last paragraph too.
  return static_cast<std::size_t>(document()->characterCount() - 1 - *pieces_);
}

void ConsoleView::setString(const std::string& text) {
  insertedLinks_.clear();
  clear();
  insert(text, {});
  moveCursor(QTextCursor::Start);
}

/// Near the end soon found, and that is where everything happens.
int ConsoleView::documentPosition(std::size_t location) const {
  const int wanted = static_cast<int>(location);
  int pieces = *pieces_;
  if (pieces == 0) return wanted;
  for (QTextBlock block = document()->lastBlock(); block.position() - pieces > wanted;
       block = block.previous()) {
    if (isPiece(block)) --pieces;
  }
  return wanted + pieces;
}

std::size_t ConsoleView::locationOf(int position) const {
  int pieces = *pieces_;
  for (QTextBlock block = document()->lastBlock(); pieces > 0 && block.position() > position;
       block = block.previous()) {
    if (isPiece(block)) --pieces;
  }
  return static_cast<std::size_t>(position - pieces);
}

QTextCursor ConsoleView::cursorOver(outlets::Range range) const {
  const std::size_t start = std::min(range.location, length());
  const std::size_t end = start + std::min(range.length, length() - start);
  QTextCursor cursor(document());
  cursor.setPosition(documentPosition(start));
  cursor.setPosition(documentPosition(end), QTextCursor::KeepAnchor);
  return cursor;
}

void ConsoleView::setSelectedRange(outlets::Range range) {
  setTextCursor(cursorOver(range));
}

void ConsoleView::insert(const std::string& text, const QTextCharFormat& format) {
  QTextCursor cursor = textCursor();
  {
    Insertion insertion(cursor, format, pieces_);
    insertion.add(lettersOf(text));
    cursor = insertion.cursor();
  }
  setTextCursor(cursor);
}

void ConsoleView::insertText(const std::string& text, outlets::Font font) {
  QTextCharFormat format;
  format.setFont(consoleFont(this->font(), font));
  insert(text, format);
}

void ConsoleView::insertAttributedText(const AttributedString& text) {
  const std::size_t start = locationOf(textCursor().selectionStart());
  insertText(text.string(), {});
  for (const auto& [range, attributes] : text.attributeRuns()) {
    addAttributes(attributes, {start + range.location, range.length});
  }
  setCurrentCharFormat({});  // what is typed behind a link is none
}

void ConsoleView::addAttributes(const AttributedString::Attributes& attributes, outlets::Range range) {
  QTextCursor over = cursorOver(range);
  forEachPart(over, [&](QTextCursor& part, QTextCharFormat& format) {
    format.setFontUnderline(attributes.underlineStyle > 0);
    setColor(format, attributes.foregroundColor);
    format.setAnchor(!attributes.link.empty());
    format.setAnchorHref(QString::fromStdString(attributes.link));
    part.setCharFormat(format);
  });
  if (attributes.link.empty()) return;
  over.setKeepPositionOnInsert(true);
  insertedLinks_.push_back(over);
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
  forEachPart(cursor, [&](QTextCursor& part, QTextCharFormat& format) {
    setColor(format, color);
    part.setCharFormat(format);
  });
}

void ConsoleView::scrollRangeToVisible(outlets::Range range) {
  const QTextCursor selection = textCursor();
  setTextCursor(cursorOver({range.location + range.length, 0}));
  ensureCursorVisible();
  const bool isAtEnd = range.location + range.length >= length();
  const int place = verticalScrollBar()->value();
  if (selection != textCursor()) setTextCursor(selection);
  if (isAtEnd) return scrollToEnd();
  verticalScrollBar()->setValue(place);
}

/// What comes into sight is laid out then, which can move the end on.
void ConsoleView::scrollToEnd() {
  constexpr int kTries = 4;
  QScrollBar* const bar = verticalScrollBar();
  for (int tries = 0; tries < kTries && bar->value() != bar->maximum(); ++tries)
    bar->setValue(bar->maximum());
}

void ConsoleView::resizeEvent(QResizeEvent* event) {
  const bool wasAtEnd = verticalScrollBar()->value() == verticalScrollBar()->maximum();
  QPlainTextEdit::resizeEvent(event);
  if (wasAtEnd) scrollToEnd();
}

QString ConsoleView::textBetween(int start, int end) const {
  QString text;
  QTextBlock block = document()->findBlock(start);
  for (; block.isValid() && block.position() <= end; block = block.next()) {
    if (block.position() > start && !isPiece(block)) text += u'\n';
    const int from = std::max(start - block.position(), 0);
    text += textOf(block).mid(from, end - block.position() - from);
  }
  return text;
}

QString ConsoleView::string() const {
  return textBetween(0, document()->characterCount() - 1);
}

/// The toolkit would give blanks for U+00A0, and line breaks where a long line is cut.
QMimeData* ConsoleView::createMimeDataFromSelection() const {
  auto* const copied = new QMimeData;  // the caller's
  copied->setText(textBetween(textCursor().selectionStart(), textCursor().selectionEnd()));
  return copied;
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
  QTextCursor all(document());
  all.select(QTextCursor::Document);
  forEachPart(all, [this](QTextCursor& part, QTextCharFormat& format) {
    const auto color = static_cast<outlets::Color>(format.intProperty(kRole));
    if (color == outlets::Color::black) return;
    setColor(format, color);
    part.setCharFormat(format);
  });
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
    if (isAt(link)) return textCursor().charFormat().anchorHref();
  }
  return {};
}

bool ConsoleView::isAt(const QTextCursor& link) const {
  return isOver(link, textCursor());
}

void ConsoleView::goTo(const QTextCursor& link) {
  setFocus();
  setTextCursor(link);
  announceLink(*this, link);
}

void ConsoleView::open(const QTextCursor& link) {
  open(link.charFormat().anchorHref());
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
      goTo(link);
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
