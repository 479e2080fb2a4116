#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ui/Outlets.h"

/// The shortcut-key editor's two sides. The window module implements the outlets: a view with a table of the
/// commands and a field editor for its keys. The program implements the owner. Main thread only; nothing here
/// throws.
namespace outlets {

/// The table's columns, by their identifiers.
inline constexpr const char* kDescriptionColumn = "description";
inline constexpr const char* kShortcutKeyColumn = "shortcutkey";

/// The modifier keys that are held with a key.
struct ModifierFlags {
  bool shift = false;
  bool control = false;
  bool option = false;
  bool command = false;
  bool operator==(const ModifierFlags&) const = default;
};

/// A cell that is about to be drawn.
class TableCell {
 public:
  virtual ~TableCell() = default;
  /// Shows the application's icon, scaled to that many points each way, before the text.
  virtual void setApplicationIcon(int points) = 0;
};

class ShortcutKeyOwner;

/// Takes the place of a cell while it is edited: TGShortcutKeyFieldEditor. Every key press in it is its
/// owner's keyDown(), and none is text.
class FieldEditor {
 public:
  virtual ~FieldEditor() = default;
  /// REQUIRES that the delegate outlives the editor.
  virtual void setDelegate(ShortcutKeyOwner* delegate) = 0;
  virtual void setString(const std::string& text) = 0;
};

/// The commands and their keys: TGShortcutKeyTableview. It is the sender of what it asks its owner.
class ShortcutKeyTable : public Sender {
 public:
  virtual void setEnabled(bool isEnabled) = 0;
  /// Asks its owner afresh for all it shows; the selection stays.
  virtual void reloadData() = 0;
  [[nodiscard]] virtual std::optional<std::size_t> selectedRow() const = 0;
  /// The cells of that column have nothing below them: they are shown without a mark to unfold them.
  virtual void setCellIsLeaf(const std::string& columnIdentifier) = 0;
  /// Ends the editing of a cell in that column with that editor, where one is under way, and asks its owner
  /// afresh for what the rows show.
  virtual void endEditing(const std::string& columnIdentifier, FieldEditor& editor) = 0;
};

/// A line of text that can be hidden.
class TextField {
 public:
  virtual ~TextField() = default;
  virtual void setHidden(bool isHidden) = 0;
};

/// The view that holds the whole editor; nothing is asked of it but which one it is.
class View {
 public:
  virtual ~View() = default;
};

/// Makes the field editor, once for each time that the interface is loaded.
class FieldEditorFactory {
 public:
  virtual ~FieldEditorFactory() = default;
  [[nodiscard]] virtual std::unique_ptr<FieldEditor> makeFieldEditor() = 0;
};

/// The parts of a loaded interface ("TGShortcutKeyConfig"), under their owner's names. None is missing.
struct ShortcutKeyConnections {
  ShortcutKeyTable* shortcutKeyTableView;
  View* parentView;
  TextField* versionAlertText;
  FieldEditorFactory* fieldEditors;
};

/// Who the editor works for: TGShortcutKeyTableDelegate, as the window module sees it.
class ShortcutKeyOwner {
 public:
  virtual ~ShortcutKeyOwner() = default;

  /// The interface is loaded: takes its parts and does awakeFromNib(). The parts live until
  /// interfaceWillClose() has returned. One that is loaded while another is open takes its place.
  virtual void interfaceDidLoad(const ShortcutKeyConnections& connections) = 0;
  /// Lets go of the parts and the field editor, and hears no more of keys.
  virtual void interfaceWillClose() = 0;
  /// Says on the system console that the interface could not be loaded.
  virtual void interfaceDidNotLoad() = 0;
  /// The view that holds the editor, as it was connected; else nullptr.
  [[nodiscard]] virtual View* parentView() const = 0;

  // What the table asks. A row is below numberOfRowsInTableView(); another one has no values.
  [[nodiscard]] virtual std::size_t numberOfRowsInTableView(const ShortcutKeyTable* table) const = 0;
  /// What a cell shows; nullopt for nothing.
  [[nodiscard]] virtual std::optional<std::string> tableView(const ShortcutKeyTable* table,
                                                             const std::string& objectValueForTableColumn,
                                                             std::size_t row) const = 0;
  /// A cell is about to be drawn.
  virtual void tableView(const ShortcutKeyTable* table, TableCell& willDisplayCell,
                         const std::string& forTableColumn, std::size_t row) const = 0;
  /// Who else holds the row's combination, as one sentence for its tool tip and its accessible description:
  /// "" where nobody does. Looks at the assignments' file, and reads it where it has changed, so that it is
  /// for when somebody asks and not for drawing.
  [[nodiscard]] virtual std::string conflictInRow(std::size_t row) const = 0;

  /// The window asks which editor the cells of an object are edited with: the emptied one of this editor for
  /// its table, nullptr (the window's own) for any other object.
  [[nodiscard]] virtual FieldEditor* windowWillReturnFieldEditor(const Sender* toObject) = 0;

  // Keys.
  /// The field editor's keyDown: every key press is a combination (TGShortcutKeyChanged). The key code is the
  /// Mac's virtual one, whatever the layout.
  virtual void fieldEditorKeyDown(std::uint16_t keyCode, const ModifierFlags& flags) = 0;
  /// The table's keyDown, with the first character of the key as it is without modifiers, in the Mac's
  /// numbers (0x08 backspace, 0x7F delete, 0xF728 forward delete, 0xF73E delete character). Answers whether
  /// the key cleared the combination (TGShortcutKeyCleared); any other is the table's own.
  virtual bool tableKeyDown(char32_t firstCharacter) = 0;
  /// The button's action.
  virtual void clearShortcutKey(Sender* sender) = 0;
};

}  // namespace outlets
