#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Notifications.h"
#include "platform/foundation/ImmortalSingleton.h"
#include "platform/foundation/PropertyList.h"
#include "ui/ShortcutKeyAssignments.h"
#include "ui/ShortcutKeyOutlets.h"

/// The modifier keys of a combination.
struct ShortcutKeyModifiers {
  bool shift = false;
  bool cmd = false;
  bool opt = false;
  bool ctrl = false;
  bool operator==(const ShortcutKeyModifiers&) const = default;
};

/// The editor of the keyboard shortcuts that the maker's applications share.
///
///   Contents/TGKeys.plist                               the commands of this application
///   ~/Library/Preferences/com.vordenworks.shortcutkeys.plist   all applications' combinations
///   /Library/Application Support/Vordenworks/Shared Resources/TGShortcutKeyManager -setup
///                                                       the program that watches for them, run after each
///                                                       change; "TGShortcutKeysReload" is posted, too
///
/// As root the Preferences folder is that of the user at the console, and the file stays or becomes theirs.
/// The assignments are read when they are shown or changed and where the file has changed since, because a
/// list may be long; each question looks at the file's state. How they are changed without losing what others
/// write at the same time: ShortcutKeyAssignments.h.
///
/// A change may wait for another program. The table shows by then what was pressed, with the field editor
/// gone. What the user types and clicks meanwhile is kept until the wait is over and done then, as it would
/// have been without one: a letter is the table's, and a Backspace clears the keys that are shown. What
/// reaches this object in another way meanwhile records and clears nothing: the order of the two would be
/// anybody's guess.
///
/// Main thread only. Nothing is thrown and no failure reported: failures are lines on the system console, and
/// the table stays usable. Assignments that cannot be read are said once each time that the table is filled,
/// and looked for again whenever they are asked about. It is created once and never freed: a second
/// allocation yields nullptr.
class TGShortcutKeyTableDelegate : public foundation::ImmortalSingleton<TGShortcutKeyTableDelegate>,
                                   public outlets::ShortcutKeyOwner {
 public:
  using Params = std::optional<std::vector<std::string>>;

  static TGShortcutKeyTableDelegate* sharedController();

  // Fields, in their order. The outlets are nullptr while no interface is loaded.
  /// The commands, in the order of their list, each a dictionary with "id", "description" and, where a
  /// combination is assigned, its shown name under "keyname".
  [[nodiscard]] const foundation::PropertyList::Array& dataArray() const { return dataArray_; }
  [[nodiscard]] outlets::FieldEditor* tgFieldEditor() const { return tgFieldEditor_.get(); }
  [[nodiscard]] outlets::ShortcutKeyTable* shortcutKeyTableView() const { return shortcutKeyTableView_; }
  [[nodiscard]] outlets::View* parentView() const override { return parentView_; }
  [[nodiscard]] outlets::TextField* versionAlertText() const { return versionAlertText_; }

  void interfaceDidLoad(const outlets::ShortcutKeyConnections& connections) override;
  void interfaceWillClose() override;
  void interfaceDidNotLoad() override;

  /// Makes the field editor and becomes its delegate, observes "TGShortcutKeyChanged" and
  /// "TGShortcutKeyCleared", and fills the table. REQUIRES connected outlets.
  void awakeFromNib();

  /// Reads the commands and the names of their combinations ("Unknown" for a key without a name) and reloads
  /// the table. Where the manager is missing the alert text is shown and the table disabled.
  void populateKeyData();

  [[nodiscard]] std::size_t numberOfRowsInTableView(const outlets::ShortcutKeyTable* table) const override;
  [[nodiscard]] std::optional<std::string> tableView(const outlets::ShortcutKeyTable* table,
                                                     const std::string& objectValueForTableColumn,
                                                     std::size_t row) const override;
  void tableView(const outlets::ShortcutKeyTable* table, outlets::TableCell& willDisplayCell,
                 const std::string& forTableColumn, std::size_t row) const override;
  [[nodiscard]] std::string conflictInRow(std::size_t row) const override;
  [[nodiscard]] outlets::FieldEditor* windowWillReturnFieldEditor(const outlets::Sender* toObject) override;

  void fieldEditorKeyDown(std::uint16_t keyCode, const outlets::ModifierFlags& flags) override;
  bool tableKeyDown(char32_t firstCharacter) override;

  /// A combination was pressed: it becomes the selected row's, under its name and in the assignments. Ends
  /// the editing, also where no row is selected and where the notification has no user information.
  void keyChanged(const platform::LocalNotification& notification);

  /// Takes the selected row's combination away; nothing is written where there are no assignments. Reloads
  /// the table and runs the manager in any case.
  void keyCleared(const std::optional<platform::LocalNotification>& notification);
  void clearShortcutKey(outlets::Sender* sender) override;

  /// "Ctrl+Shift+Cmd+S": the name of a combination, given by the Mac's virtual key code and its modifier
  /// mask (0x0100 Command, 0x0200 Shift, 0x0800 Option, 0x1000 Control); nullopt where the key has no text.
  [[nodiscard]] static std::optional<std::string> nameForKeyCode(std::uint16_t keyCode,
                                                                 std::uint16_t modifiers);

  /// The text of a key by the layout in force: the localized name of a key that has one ("Page Up"), else the
  /// characters that it produces. nullopt, and a line on the system console, where there are none. The
  /// modifier state is UCKeyTranslate's: the modifier mask shifted right by eight bits.
  [[nodiscard]] static std::optional<std::string> stringForKeyCode(std::uint16_t keyCode,
                                                                   std::uint32_t withModifierFlags);

  /// Assigns a combination to a command of this application, given by its identifier or, without one, by its
  /// parameters, in the place of the one that it has; posts "TGShortcutKeysReload" and runs the manager.
  /// Answers whether the assignments could be written; nothing is posted otherwise.
  bool setKeyboardShortcutWithID(const std::optional<std::string>& commandId, const Params& params,
                                 std::uint16_t keycode, const ShortcutKeyModifiers& modifiers);

 private:
  friend foundation::ImmortalSingleton<TGShortcutKeyTableDelegate>;
  TGShortcutKeyTableDelegate() = default;
  ~TGShortcutKeyTableDelegate() override = default;

  void observeKeys();
  void stopObserving();
  [[nodiscard]] std::optional<std::size_t> selectedRow() const;
  void endEditing();
  void assign(std::size_t row, const foundation::PropertyList& userInfo);
  void clear(std::size_t row);
  bool change(shortcutkeys::WhenMissing whenMissing,
              const std::function<void(shortcutkeys::WatchList&)>& change);
  [[nodiscard]] const shortcutkeys::KeysByCommand& keysInForce() const;
  void sayUnlessSaid(const std::string& failure) const;
  [[nodiscard]] std::vector<std::string> namesOf(const std::vector<shortcutkeys::Assignment>& holders) const;
  [[nodiscard]] std::string nameOfHolder(const shortcutkeys::Assignment& holder) const;

  foundation::PropertyList::Array dataArray_;
  std::unique_ptr<outlets::FieldEditor> tgFieldEditor_;
  outlets::ShortcutKeyTable* shortcutKeyTableView_ = nullptr;
  outlets::View* parentView_ = nullptr;
  outlets::TextField* versionAlertText_ = nullptr;

  outlets::FieldEditorFactory* fieldEditors_ = nullptr;
  std::vector<int> observers_;

  /// What the assignments said when they were in this state.
  struct KnownKeys {
    std::optional<platform::FileState> file;
    shortcutkeys::KeysByCommand keys;
  };
  mutable std::optional<KnownKeys> known_;
  mutable std::string said_;  ///< why the assignments could not be read the last time
  bool isChanging_ = false;
  int loads_ = 0;  ///< how often an interface was loaded
};
