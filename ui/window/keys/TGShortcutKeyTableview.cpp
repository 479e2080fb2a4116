#include "ui/window/keys/TGShortcutKeyTableview.h"

#include <QAbstractTableModel>
#include <QHeaderView>
#include <QKeyEvent>
#include <QStyledItemDelegate>
#include <array>
#include <utility>

#include "ui/window/LogoView.h"

namespace {

constexpr std::array<const char*, 2> kColumns = {outlets::kDescriptionColumn, outlets::kShortcutKeyColumn};
constexpr int kShortcutKey = 1;

std::size_t rowOf(const QModelIndex& index) {
  return static_cast<std::size_t>(index.row());
}

const char* columnOf(const QModelIndex& index) {
  return kColumns.at(static_cast<std::size_t>(index.column()));
}

/// The Mac's character of a key without its modifiers, as far as the table's owner asks for it.
char32_t firstCharacter(const QKeyEvent& event) {
  constexpr char32_t kDelete = 0x7F;
  constexpr char32_t kForwardDelete = 0xF728;
  switch (event.key()) {
    case Qt::Key_Backspace:
      return kDelete;
    case Qt::Key_Delete:
      return kForwardDelete;
    default:
      return 0;
  }
}

bool beginsEditing(int key) {
  return key == Qt::Key_Return || key == Qt::Key_Enter || key == Qt::Key_F2 || key == Qt::Key_Space;
}

/// A cell as it is about to be drawn.
class CellOutlet : public outlets::TableCell {
 public:
  explicit CellOutlet(QStyleOptionViewItem& option) : option_(option) {}
  void setApplicationIcon(int points) override {
    option_.icon = window::applicationIcon();
    option_.decorationSize = QSize(points, points);
    option_.features |= QStyleOptionViewItem::HasDecoration;
  }

 private:
  QStyleOptionViewItem& option_;
};

}  // namespace

/// What the owner says, in the toolkit's form.
class TGShortcutKeyTableview::Model : public QAbstractTableModel {
 public:
  explicit Model(const TGShortcutKeyTableview& table) : table_(table) {}

  [[nodiscard]] int rowCount(const QModelIndex& parent) const override {
    if (parent.isValid() || table_.owner_ == nullptr) return 0;
    return static_cast<int>(table_.owner_->numberOfRowsInTableView(&table_));
  }
  [[nodiscard]] int columnCount(const QModelIndex& parent) const override {
    return parent.isValid() ? 0 : static_cast<int>(kColumns.size());
  }
  [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override {
    if (table_.owner_ == nullptr) return {};
    if (role == Qt::ToolTipRole) return toolTip(index);
    if (role == Qt::AccessibleDescriptionRole) return conflict(index);
    if (role == Qt::DisplayRole) return text(index);
    return role == Qt::AccessibleTextRole ? spokenText(index) : QVariant();
  }
  [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation, int role) const override {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
    return section == kShortcutKey ? tr("Keys") : tr("Command");
  }
  [[nodiscard]] Qt::ItemFlags flags(const QModelIndex& index) const override {
    const Qt::ItemFlags usual = QAbstractTableModel::flags(index) | Qt::ItemNeverHasChildren;
    return index.column() == kShortcutKey ? usual | Qt::ItemIsEditable : usual;
  }
  /// All is asked afresh.
  void reset() {
    beginResetModel();
    endResetModel();
  }
  void rowsChanged() {
    const int rows = rowCount({});
    if (rows > 0) Q_EMIT dataChanged(index(0, 0), index(rows - 1, kShortcutKey));
  }

 private:
  [[nodiscard]] QVariant text(const QModelIndex& index) const {
    const auto value = table_.owner_->tableView(&table_, columnOf(index), rowOf(index));
    return value ? QVariant(QString::fromStdString(*value)) : QVariant();
  }
  /// An empty cell would not be heard.
  [[nodiscard]] QVariant spokenText(const QModelIndex& index) const {
    const QVariant shown = text(index);
    return shown.toString().isEmpty() ? QVariant(tr("no keys")) : shown;
  }
  [[nodiscard]] QVariant conflict(const QModelIndex& index) const {
    const std::string sentence = table_.owner_->conflictInRow(rowOf(index));
    return sentence.empty() ? QVariant() : QVariant(QString::fromStdString(sentence));
  }

  /// Names come from files that anybody may have written. A tool tip takes what looks like markup for markup,
  /// and opens the files that it names.
  [[nodiscard]] QVariant toolTip(const QModelIndex& index) const {
    const QString sentence = conflict(index).toString();
    return sentence.isEmpty() ? QVariant() : QStringLiteral("<qt>%1</qt>").arg(sentence.toHtmlEscaped());
  }

  const TGShortcutKeyTableview& table_;
};

/// Draws the cells, and lends the owner's field editor to the one that is edited.
class TGShortcutKeyTableview::Cells : public QStyledItemDelegate {
 public:
  explicit Cells(const TGShortcutKeyTableview& table) : table_(table) {}

  QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem&,
                        const QModelIndex& index) const override {
    if (table_.owner_ == nullptr) return nullptr;
    auto* const editor = dynamic_cast<QWidget*>(table_.owner_->windowWillReturnFieldEditor(&table_));
    if (editor == nullptr) return nullptr;
    editor->setParent(parent);
    editor->setAutoFillBackground(true);
    const QString command = index.siblingAtColumn(0).data().toString();
    editor->setAccessibleName(tr("Press the keys for “%1”").arg(command));
    return editor;
  }
  /// It is the owner's.
  void destroyEditor(QWidget* editor, const QModelIndex&) const override { editor->hide(); }
  /// It shows no text, and gives none.
  void setEditorData(QWidget*, const QModelIndex&) const override {}
  void setModelData(QWidget*, QAbstractItemModel*, const QModelIndex&) const override {}

 protected:
  /// Elsewhere Return, Escape and Tab end an editing; here they are keys like any other.
  bool eventFilter(QObject* editor, QEvent* event) override {
    const bool isKey = event->type() == QEvent::KeyPress || event->type() == QEvent::ShortcutOverride;
    return !isKey && QStyledItemDelegate::eventFilter(editor, event);
  }
  void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override {
    QStyledItemDelegate::initStyleOption(option, index);
    if (table_.owner_ == nullptr) return;
    CellOutlet cell(*option);
    table_.owner_->tableView(&table_, cell, columnOf(index), rowOf(index));
  }

 private:
  const TGShortcutKeyTableview& table_;
};

TGShortcutKeyTableview::TGShortcutKeyTableview(QWidget* parent)
    : QTreeView(parent), model_(std::make_unique<Model>(*this)), cells_(std::make_unique<Cells>(*this)) {
  setModel(model_.get());
  setItemDelegate(cells_.get());
  setSelectionBehavior(SelectRows);
  setSelectionMode(SingleSelection);
  setEditTriggers(NoEditTriggers);  // editShortcutKey() is all there is
  setAllColumnsShowFocus(true);
  setUniformRowHeights(true);
  setItemsExpandable(false);
  header()->setSectionsMovable(false);
  header()->setStretchLastSection(false);
  header()->setSectionResizeMode(0, QHeaderView::Stretch);
  header()->setSectionResizeMode(kShortcutKey, QHeaderView::Interactive);
  constexpr int kLettersOfKeys = 26;  // "Ctrl+Shift+Alt+Cmd+Page Up"
  header()->resizeSection(kShortcutKey, fontMetrics().averageCharWidth() * kLettersOfKeys);
  connect(this, &QTreeView::doubleClicked, this,
          [this](const QModelIndex& index) { editShortcutKey(index.row()); });
}

TGShortcutKeyTableview::~TGShortcutKeyTableview() {
  onChange_ = nullptr;
  setModel(nullptr);
}

void TGShortcutKeyTableview::setOwner(outlets::ShortcutKeyOwner* owner) {
  owner_ = owner;
  model_->reset();
}

void TGShortcutKeyTableview::setOnChange(std::function<void()> onChange) {
  onChange_ = std::move(onChange);
}

void TGShortcutKeyTableview::tellChange() {
  if (onChange_) onChange_();
}

void TGShortcutKeyTableview::setEnabled(bool isEnabled) {
  QTreeView::setEnabled(isEnabled);
  tellChange();
}

void TGShortcutKeyTableview::reloadData() {
  const auto selected = selectedRow();
  model_->reset();
  if (selected) setCurrentIndex(model_->index(static_cast<int>(*selected), kShortcutKey));
  tellChange();
}

std::optional<std::size_t> TGShortcutKeyTableview::selectedRow() const {
  if (selectionModel() == nullptr) return std::nullopt;
  const QModelIndexList rows = selectionModel()->selectedRows();
  return rows.isEmpty() ? std::nullopt : std::optional(rowOf(rows.front()));
}

void TGShortcutKeyTableview::setCellIsLeaf(const std::string& columnIdentifier) {
  if (columnIdentifier == outlets::kDescriptionColumn) setRootIsDecorated(false);
}

void TGShortcutKeyTableview::endEditing(const std::string& columnIdentifier, outlets::FieldEditor& editor) {
  auto* const widget = dynamic_cast<QWidget*>(&editor);
  if (columnIdentifier == outlets::kShortcutKeyColumn && widget != nullptr && widget->isVisible()) {
    closeEditor(widget, QAbstractItemDelegate::NoHint);
  }
  model_->rowsChanged();
  tellChange();
}

void TGShortcutKeyTableview::editShortcutKey(int row) {
  const QModelIndex keys = model_->index(row, kShortcutKey);
  if (!keys.isValid() || !isEnabled()) return;
  setCurrentIndex(keys);
  edit(keys);
}

void TGShortcutKeyTableview::keyPressEvent(QKeyEvent* event) {
  const bool isRepeat = repeats_.isRepeat(*event);
  if (beginsEditing(event->key())) {
    if (!isRepeat) editShortcutKey(currentIndex().row());
    return;
  }
  const char32_t character = firstCharacter(*event);
  // A key that is held clears once, and is nothing else meanwhile.
  const bool isClear = character != 0 && owner_ != nullptr && (isRepeat || owner_->tableKeyDown(character));
  if (!isClear) QTreeView::keyPressEvent(event);
}

void TGShortcutKeyTableview::keyReleaseEvent(QKeyEvent* event) {
  repeats_.noteRelease(*event);
  QTreeView::keyReleaseEvent(event);
}

void TGShortcutKeyTableview::selectionChanged(const QItemSelection& selected,
                                              const QItemSelection& deselected) {
  QTreeView::selectionChanged(selected, deselected);
  tellChange();
}
