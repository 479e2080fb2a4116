#include "ui/window/ConsoleDescription.h"

#include <QAccessibleWidget>
#include <QPointer>
#include <QTextBlock>
#include <QTextBoundaryFinder>
#include <QWindow>

#include "ui/window/ConsoleView.h"

namespace window {
namespace {

QTextCursor cursorOver(const ConsoleView& console, int start, int end) {
  const int last = console.document()->characterCount() - 1;
  QTextCursor cursor(console.document());
  cursor.setPosition(std::clamp(start, 0, last));
  cursor.setPosition(std::clamp(end < 0 ? last : end, 0, last), QTextCursor::KeepAnchor);
  return cursor;
}

QRect onScreen(const ConsoleView& console, const QRect& part) {
  return {console.viewport()->mapToGlobal(part.topLeft()), part.size()};
}

QRect placeOf(const ConsoleView& console, const QTextCursor& selection) {
  QTextCursor edge(selection);
  edge.setPosition(selection.selectionStart());
  const QRect first = console.cursorRect(edge);
  edge.setPosition(selection.selectionEnd());
  return onScreen(console, first.united(console.cursorRect(edge)));
}

/// The console's link of a number.
class LinkDescription : public QAccessibleInterface, public QAccessibleActionInterface {
 public:
  LinkDescription(ConsoleView* console, std::size_t number) : console_(console), number_(number) {}

  [[nodiscard]] bool isValid() const override {
    return console_ != nullptr && number_ < console_->links().size();
  }
  [[nodiscard]] QObject* object() const override { return nullptr; }
  [[nodiscard]] QWindow* window() const override {
    return console_ == nullptr ? nullptr : console_->window()->windowHandle();
  }
  [[nodiscard]] QAccessibleInterface* parent() const override {
    return QAccessible::queryAccessibleInterface(console_);
  }
  [[nodiscard]] QAccessibleInterface* child(int /*index*/) const override { return nullptr; }
  [[nodiscard]] int childCount() const override { return 0; }
  [[nodiscard]] int indexOfChild(const QAccessibleInterface* /*child*/) const override { return -1; }
  [[nodiscard]] QAccessibleInterface* childAt(int /*x*/, int /*y*/) const override { return nullptr; }

  [[nodiscard]] QString text(QAccessible::Text kind) const override {
    if (!isValid()) return {};
    if (kind == QAccessible::Name) return link().selectedText();
    return kind == QAccessible::Description ? link().charFormat().anchorHref() : QString();
  }
  void setText(QAccessible::Text /*kind*/, const QString& /*text*/) override {}
  [[nodiscard]] QRect rect() const override { return isValid() ? placeOf(*console_, link()) : QRect(); }
  [[nodiscard]] QAccessible::Role role() const override { return QAccessible::Link; }
  [[nodiscard]] QAccessible::State state() const override {
    QAccessible::State state;
    state.invalid = !isValid();
    if (!isValid()) return state;
    state.focusable = true;
    state.linked = true;
    state.focused = console_->hasFocus() && console_->isAt(link());
    state.invisible = !console_->isVisible();
    return state;
  }
  void* interface_cast(QAccessible::InterfaceType type) override {
    return type == QAccessible::ActionInterface ? static_cast<QAccessibleActionInterface*>(this) : nullptr;
  }

  [[nodiscard]] QStringList actionNames() const override { return {pressAction(), setFocusAction()}; }
  void doAction(const QString& name) override {
    if (!isValid()) return;
    if (name == pressAction()) console_->open(link());
    if (name == setFocusAction()) console_->goTo(link());
  }
  [[nodiscard]] QStringList keyBindingsForAction(const QString& name) const override {
    return name == pressAction() ? QStringList(QStringLiteral("Return")) : QStringList();
  }

 private:
  [[nodiscard]] QTextCursor link() const { return console_->links()[number_]; }

  QPointer<ConsoleView> console_;
  std::size_t number_;
};

QTextBoundaryFinder::BoundaryType finderFor(QAccessible::TextBoundaryType kind) {
  if (kind == QAccessible::CharBoundary) return QTextBoundaryFinder::Grapheme;
  return kind == QAccessible::WordBoundary ? QTextBoundaryFinder::Word : QTextBoundaryFinder::Sentence;
}

class ConsoleDescription : public QAccessibleWidget, public QAccessibleTextInterface {
 public:
  explicit ConsoleDescription(ConsoleView* console) : QAccessibleWidget(console, QAccessible::EditableText) {}
  ~ConsoleDescription() override {
    for (LinkDescription* const link : links_) {
      QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(link));
    }
  }
  ConsoleDescription(const ConsoleDescription&) = delete;
  ConsoleDescription& operator=(const ConsoleDescription&) = delete;

  [[nodiscard]] int childCount() const override {
    return QAccessibleWidget::childCount() + static_cast<int>(console().links().size());
  }
  [[nodiscard]] QAccessibleInterface* child(int index) const override {
    const int others = QAccessibleWidget::childCount();
    return index < others || index >= childCount() ? QAccessibleWidget::child(index)
                                                   : link(static_cast<std::size_t>(index - others));
  }
  [[nodiscard]] int indexOfChild(const QAccessibleInterface* child) const override {
    const auto found = std::find(links_.begin(), links_.end(), child);
    if (found == links_.end()) return QAccessibleWidget::indexOfChild(child);
    return QAccessibleWidget::childCount() + static_cast<int>(found - links_.begin());
  }
  [[nodiscard]] QAccessibleInterface* focusChild() const override {
    const auto all = console().links();
    for (std::size_t number = 0; number < all.size(); ++number) {
      if (console().hasFocus() && console().isAt(all[number])) return link(number);
    }
    return QAccessibleWidget::focusChild();
  }
  [[nodiscard]] QAccessible::State state() const override {
    QAccessible::State state = QAccessibleWidget::state();
    state.editable = !console().isReadOnly();
    state.readOnly = console().isReadOnly();
    state.multiLine = true;
    state.selectableText = true;
    return state;
  }
  void* interface_cast(QAccessible::InterfaceType type) override {
    if (type == QAccessible::TextInterface) return static_cast<QAccessibleTextInterface*>(this);
    return QAccessibleWidget::interface_cast(type);
  }
  QAccessibleInterface* link(std::size_t number) const {
    while (links_.size() <= number) links_.push_back(new LinkDescription(&console(), links_.size()));
    QAccessible::uniqueId(links_[number]);  // the toolkit's from now on
    return links_[number];
  }

  void selection(int /*number*/, int* start, int* end) const override {
    *start = console().textCursor().selectionStart();
    *end = console().textCursor().selectionEnd();
  }
  [[nodiscard]] int selectionCount() const override { return console().textCursor().hasSelection() ? 1 : 0; }
  void addSelection(int start, int end) override { setSelection(0, start, end); }
  void removeSelection(int /*number*/) override { setCursorPosition(cursorPosition()); }
  void setSelection(int /*number*/, int start, int end) override {
    console().setTextCursor(cursorOver(console(), start, end));
  }
  [[nodiscard]] int cursorPosition() const override { return console().textCursor().position(); }
  void setCursorPosition(int position) override { setSelection(0, position, position); }

  using QAccessibleWidget::text;
  [[nodiscard]] QString text(int start, int end) const override {
    QString text = cursorOver(console(), start, end).selectedText();
    return text.replace(QChar(QChar::ParagraphSeparator), u'\n');
  }
  [[nodiscard]] int characterCount() const override { return console().document()->characterCount() - 1; }

  /// The toolkit's own looks through the whole text, each time.
  QString textAtOffset(int offset, QAccessible::TextBoundaryType kind, int* start, int* end) const override {
    *start = 0;
    *end = characterCount();
    if (kind == QAccessible::NoBoundary) return text(0, *end);
    const QTextBlock block = console().document()->findBlock(std::clamp(offset, 0, *end));
    *start = block.position();
    *end = std::min(*end, block.position() + block.length());
    if (kind != QAccessible::LineBoundary && kind != QAccessible::ParagraphBoundary) {
      const QString line = block.text();
      QTextBoundaryFinder finder(finderFor(kind), line);
      finder.setPosition(offset - block.position());
      const auto first = finder.isAtBoundary() ? finder.position() : finder.toPreviousBoundary();
      const auto last = finder.toNextBoundary();
      if (first >= 0) *start = block.position() + static_cast<int>(first);
      if (last >= 0) *end = block.position() + static_cast<int>(last);
    }
    return text(*start, *end);
  }

  [[nodiscard]] QRect characterRect(int offset) const override {
    return placeOf(console(), cursorOver(console(), offset, offset + 1));
  }
  [[nodiscard]] int offsetAtPoint(const QPoint& point) const override {
    return console().cursorForPosition(console().viewport()->mapFromGlobal(point)).position();
  }
  void scrollToSubstring(int start, int /*end*/) override { setCursorPosition(start); }

  /// As in IAccessible2's text attributes.
  QString attributes(int offset, int* start, int* end) const override {
    const QTextBlock block = console().document()->findBlock(std::clamp(offset, 0, characterCount()));
    *start = block.position();
    *end = block.position() + block.length();
    for (auto piece = block.begin(); !piece.atEnd(); ++piece) {
      const QTextFragment part = piece.fragment();
      if (!part.contains(offset)) continue;
      *start = part.position();
      *end = part.position() + part.length();
      return described(part.charFormat());
    }
    return {};
  }

 private:
  [[nodiscard]] ConsoleView& console() const { return *static_cast<ConsoleView*>(widget()); }
  [[nodiscard]] QString described(const QTextCharFormat& format) const {
    const bool hasOwn = format.hasProperty(QTextFormat::ForegroundBrush);
    const QColor color = hasOwn ? format.foreground().color() : console().palette().color(QPalette::Text);
    QString text =
        QStringLiteral("color:rgb(%1,%2,%3);").arg(color.red()).arg(color.green()).arg(color.blue());
    text +=
        format.font().bold() ? QStringLiteral("font-weight:bold;") : QStringLiteral("font-weight:normal;");
    if (format.fontUnderline()) text += QStringLiteral("text-underline-style:solid;");
    return text;
  }

  mutable std::vector<LinkDescription*> links_;
};

QAccessibleInterface* describe(const QString& /*className*/, QObject* object) {
  auto* const console = dynamic_cast<ConsoleView*>(object);
  return console == nullptr ? nullptr : new ConsoleDescription(console);
}

}  // namespace

void describeConsoles() {
  static const bool isDone = [] {
    QAccessible::installFactory(describe);
    return true;
  }();
  static_cast<void>(isDone);
}

void announceLink(ConsoleView& console, const QTextCursor& link) {
  if (!QAccessible::isActive()) return;
  const auto all = console.links();
  const auto found = std::find(all.begin(), all.end(), link);
  auto* const description =
      dynamic_cast<ConsoleDescription*>(QAccessible::queryAccessibleInterface(&console));
  if (description == nullptr || found == all.end()) return;
  QAccessibleEvent event(description->link(static_cast<std::size_t>(found - all.begin())),
                         QAccessible::Focus);
  QAccessible::updateAccessibility(&event);
}

}  // namespace window
