#pragma once

#include <QTreeView>
#include <functional>
#include <memory>

#include "ui/ShortcutKeyOutlets.h"
#include "ui/window/keys/KeyRepeats.h"

/// The table of commands and their keys: shows what its owner says, with the owner's field editor in the
/// place of a cell that is edited. A double click on a row begins that for its keys, Return, F2 and the space
/// bar for those of the row that has the keyboard. Backspace and Delete clear them. Who else holds a row's
/// keys is its tool tip and its accessible description.
class TGShortcutKeyTableview : public QTreeView, public outlets::ShortcutKeyTable {
 public:
  explicit TGShortcutKeyTableview(QWidget* parent = nullptr);
  ~TGShortcutKeyTableview() override;

  /// REQUIRES that the owner outlives the table, or that it is given another (nullptr for none).
  void setOwner(outlets::ShortcutKeyOwner* owner);
  /// Called when another row is selected, when what the rows show may have changed, and when the table is
  /// enabled or disabled.
  void setOnChange(std::function<void()> onChange);

  void setEnabled(bool isEnabled) override;
  void reloadData() override;
  [[nodiscard]] std::optional<std::size_t> selectedRow() const override;
  void setCellIsLeaf(const std::string& columnIdentifier) override;
  void endEditing(const std::string& columnIdentifier, outlets::FieldEditor& editor) override;

  /// Begins the editing of a row's keys.
  void editShortcutKey(int row);

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void keyReleaseEvent(QKeyEvent* event) override;
  void selectionChanged(const QItemSelection& selected, const QItemSelection& deselected) override;

 private:
  class Model;
  class Cells;

  void tellChange();

  outlets::ShortcutKeyOwner* owner_ = nullptr;
  std::function<void()> onChange_;
  KeyRepeats repeats_;
  std::unique_ptr<Model> model_;
  std::unique_ptr<Cells> cells_;
};
