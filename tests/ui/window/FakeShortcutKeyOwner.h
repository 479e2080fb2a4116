#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ui/ShortcutKeyOutlets.h"

/// A keyboard whose keys are told by their scan codes (linux/input-event-codes.h), behind all that a Mac has;
/// but for the keys of modifiers, which have the Mac's numbers.
namespace fakekeyboard {

inline constexpr std::uint16_t kFirst = 1000;

inline std::optional<std::uint16_t> keyCode(std::uint32_t scanCode) {
  static const std::map<std::uint32_t, std::uint16_t> modifiers = {{29, 0x3B},  {42, 0x38},  {54, 0x3C},
                                                                   {56, 0x3A},  {58, 0x39},  {97, 0x3E},
                                                                   {100, 0x3D}, {125, 0x37}, {126, 0x36}};
  const auto found = modifiers.find(scanCode);
  return found == modifiers.end() ? static_cast<std::uint16_t>(kFirst + scanCode) : found->second;
}

}  // namespace fakekeyboard

/// An owner of a shortcut-key editor that writes down what it is told, each call as a line, the fake
/// keyboard's keys by their scan codes.
class FakeShortcutKeyOwner : public outlets::ShortcutKeyOwner {
 public:
  struct Row {
    std::string description;
    std::optional<std::string> keyName = std::nullopt;
    std::string conflict = {};
  };

  void interfaceDidLoad(const outlets::ShortcutKeyConnections& loaded) override {
    connections = loaded;
    editor = loaded.fieldEditors->makeFieldEditor();
    editor->setDelegate(this);
    loaded.shortcutKeyTableView->setCellIsLeaf(outlets::kDescriptionColumn);
    if (!hasManager) {
      loaded.versionAlertText->setHidden(false);
      loaded.shortcutKeyTableView->setEnabled(false);
    }
    loaded.shortcutKeyTableView->reloadData();
    lines.emplace_back("loaded");
    if (whenLoaded) whenLoaded();
  }
  void interfaceWillClose() override {
    editor.reset();
    connections = {};
    lines.emplace_back("closing");
  }
  void interfaceDidNotLoad() override { lines.emplace_back("not loaded"); }
  [[nodiscard]] outlets::View* parentView() const override { return connections.parentView; }

  [[nodiscard]] std::size_t numberOfRowsInTableView(const outlets::ShortcutKeyTable*) const override {
    return rows.size();
  }
  [[nodiscard]] std::optional<std::string> tableView(const outlets::ShortcutKeyTable*,
                                                     const std::string& column,
                                                     std::size_t row) const override {
    if (column == outlets::kDescriptionColumn) return rows.at(row).description;
    return rows.at(row).keyName;
  }
  void tableView(const outlets::ShortcutKeyTable*, outlets::TableCell& cell, const std::string& column,
                 std::size_t) const override {
    if (column == outlets::kDescriptionColumn && hasIcons) cell.setApplicationIcon(16);
  }
  [[nodiscard]] std::string conflictInRow(std::size_t row) const override { return rows.at(row).conflict; }
  [[nodiscard]] outlets::FieldEditor* windowWillReturnFieldEditor(const outlets::Sender* object) override {
    if (object != connections.shortcutKeyTableView || !editor) return nullptr;
    editor->setString("");
    return editor.get();
  }

  void fieldEditorKeyDown(std::uint16_t keyCode, const outlets::ModifierFlags& flags) override {
    std::string line =
        "key " + std::to_string(keyCode < fakekeyboard::kFirst ? keyCode : keyCode - fakekeyboard::kFirst);
    if (flags.control) line += " control";
    if (flags.shift) line += " shift";
    if (flags.option) line += " option";
    if (flags.command) line += " command";
    lines.push_back(line);
    if (whenKeyDown) return whenKeyDown();
    if (const auto row = connections.shortcutKeyTableView->selectedRow()) rows.at(*row).keyName = line;
    connections.shortcutKeyTableView->endEditing(outlets::kShortcutKeyColumn, *editor);
  }
  bool tableKeyDown(char32_t character) override {
    lines.push_back("table key " + std::to_string(static_cast<std::uint32_t>(character)));
    return clearsByKey;
  }
  void clearShortcutKey(outlets::Sender*) override { lines.emplace_back("clear"); }

  std::vector<Row> rows = {{"Repair"}, {"Stop Qmaster", "Ctrl+S"}, {"Start Qmaster"}};
  std::vector<std::string> lines;
  std::function<void()> whenLoaded;
  /// In the place of what a key does otherwise.
  std::function<void()> whenKeyDown;
  std::unique_ptr<outlets::FieldEditor> editor;
  outlets::ShortcutKeyConnections connections{};
  bool hasManager = true;
  bool hasIcons = true;
  bool clearsByKey = true;
};
