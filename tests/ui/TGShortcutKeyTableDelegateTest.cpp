#include "ui/TGShortcutKeyTableDelegate.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <limits>
#include <utility>

#include "platform/foundation/BinaryPropertyList.h"
#include "tests/support/AsUser.h"
#include "tests/ui/ShortcutKeyFixture.h"

using foundation::PropertyList;
using outlets::ModifierFlags;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr const char* kRun =
    "run /Library/Application Support/Vordenworks/Shared Resources/TGShortcutKeyManager -setup";
constexpr const char* kReload = "post TGShortcutKeysReload";
constexpr const char* kNoManager =
    "Unable to setup shortcut keys - shortcut key manager doesn't exist. Please reinstall this software.";

class RecordingFieldEditor : public outlets::FieldEditor {
 public:
  void setDelegate(outlets::ShortcutKeyOwner* owner) override { delegate = owner; }
  void setString(const std::string& newText) override { text = newText; }

  outlets::ShortcutKeyOwner* delegate = nullptr;
  std::string text = "typed before";
};

class RecordingTable : public outlets::ShortcutKeyTable {
 public:
  void setEnabled(bool enabled) override { isEnabled = enabled; }
  void reloadData() override { ++reloads; }
  [[nodiscard]] std::optional<std::size_t> selectedRow() const override { return selected; }
  void setCellIsLeaf(const std::string& column) override { leaves.push_back(column); }
  void endEditing(const std::string& column, outlets::FieldEditor& editor) override {
    ended.emplace_back(column, &editor);
    if (whenEnded) whenEnded();
  }

  bool isEnabled = true;
  int reloads = 0;
  std::optional<std::size_t> selected;
  std::vector<std::string> leaves;
  std::vector<std::pair<std::string, outlets::FieldEditor*>> ended;
  std::function<void()> whenEnded;
};

class RecordingText : public outlets::TextField {
 public:
  void setHidden(bool hidden) override { isHidden = hidden; }
  bool isHidden = true;
};

class RecordingCell : public outlets::TableCell {
 public:
  void setApplicationIcon(int newPoints) override { points = newPoints; }
  int points = 0;
};

class RecordingFactory : public outlets::FieldEditorFactory {
 public:
  std::unique_ptr<outlets::FieldEditor> makeFieldEditor() override {
    auto editor = std::make_unique<RecordingFieldEditor>();
    last = editor.get();
    return editor;
  }
  RecordingFieldEditor* last = nullptr;
};

class TGShortcutKeyTableDelegateTest : public ShortcutKeyFixture {
 protected:
  TGShortcutKeyTableDelegateTest() : delegate(*TGShortcutKeyTableDelegate::sharedController()) {
    offer({PropertyList::Dictionary{{"id", "repair"}, {"description", "Repair"}},
           PropertyList::Dictionary{{"id", "stop"}, {"description", "Stop Qmaster"}},
           PropertyList::Dictionary{{"id", "logs"}, {"description", "Gather Logs"}}});
  }

  void offer(PropertyList::Array commands) {
    offerList(PropertyList::Dictionary{{"TGKeys", std::move(commands)}});
  }
  void offerList(const PropertyList& list) {
    system.files.makeFile("/Applications/Quillmend.app/Contents/TGKeys.plist",
                          system.propertyLists.serialize(list, platform::PropertyListFormat::xml).value());
  }

  void load() { delegate.interfaceDidLoad({&table, &view, &alert, &editors}); }
  void loadAndSelect(std::size_t row) {
    load();
    table.selected = row;
    system.recorder.clear();
  }

  [[nodiscard]] std::optional<std::string> keyName(std::size_t row) {
    return delegate.tableView(&table, "shortcutkey", row);
  }
  [[nodiscard]] PropertyList userInformation(std::uint16_t keyCode, const ModifierFlags& flags) {
    delegate.fieldEditorKeyDown(keyCode, flags);
    return system.localNotifications.posted.back().userInfo;
  }
  static PropertyList pressed(int keyCode, bool shift, bool ctrl, bool opt, bool cmd) {
    return PropertyList::Dictionary{
        {"keycode", keyCode}, {"shift", shift}, {"ctrl", ctrl}, {"opt", opt}, {"cmd", cmd}};
  }
  /// What was done to the system, in-process notifications left out.
  [[nodiscard]] std::vector<std::string> calls() const {
    return system.recorder.only({"run", "post", "wait", "terminate"});
  }

  RecordingTable table;
  outlets::View view;
  RecordingText alert;
  RecordingFactory editors;
  TGShortcutKeyTableDelegate& delegate;
};

// The singleton.

TEST_F(TGShortcutKeyTableDelegateTest, ThereIsOneForTheWholeProcess) {
  EXPECT_EQ(TGShortcutKeyTableDelegate::sharedController(), &delegate);
  EXPECT_EQ(TGShortcutKeyTableDelegate::alloc(), nullptr);
}

TEST_F(TGShortcutKeyTableDelegateTest, ReleasingDoesNotFreeIt) {
  delegate.release();
  delegate.release();
  EXPECT_EQ(delegate.retain(), &delegate);
  EXPECT_EQ(delegate.autorelease(), &delegate);
  EXPECT_EQ(delegate.copy(), &delegate);
  EXPECT_EQ(TGShortcutKeyTableDelegate::retainCount(), std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(TGShortcutKeyTableDelegate::sharedController(), &delegate);
}

TEST_F(TGShortcutKeyTableDelegateTest, AllocationBeforeAnyUseMakesTheSharedOne) {
  const foundation::SingletonScope<TGShortcutKeyTableDelegate> fresh;
  TGShortcutKeyTableDelegate* const first = TGShortcutKeyTableDelegate::alloc();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(TGShortcutKeyTableDelegate::sharedController(), first);
}

// Loading.

TEST_F(TGShortcutKeyTableDelegateTest, AwakeningMakesTheFieldEditorWhoseDelegateItIs) {
  load();
  EXPECT_EQ(delegate.tgFieldEditor(), editors.last);
  EXPECT_EQ(editors.last->delegate, &delegate);
  EXPECT_THAT(table.leaves, ElementsAre("description"));
  EXPECT_EQ(delegate.parentView(), &view);
  EXPECT_EQ(delegate.shortcutKeyTableView(), &table);
  EXPECT_EQ(delegate.versionAlertText(), &alert);
  EXPECT_EQ(table.reloads, 1);
}

TEST_F(TGShortcutKeyTableDelegateTest, LoadedTwiceItHearsEachKeyOnce) {
  load();
  load();
  table.selected = 0;
  system.recorder.clear();
  delegate.fieldEditorKeyDown(1, {});
  EXPECT_THAT(calls(), ElementsAre(kReload, kRun));
}

TEST_F(TGShortcutKeyTableDelegateTest, AClosedInterfaceIsNotTouchedAnyMore) {
  loadAndSelect(0);
  const int reloads = table.reloads;
  delegate.interfaceWillClose();
  delegate.fieldEditorKeyDown(1, {});
  delegate.tableKeyDown(0x7F);
  delegate.keyChanged({"TGShortcutKeyChanged", pressed(1, true, false, false, true)});
  delegate.populateKeyData();
  EXPECT_EQ(table.reloads, reloads);
  EXPECT_THAT(table.ended, IsEmpty());
  EXPECT_EQ(delegate.parentView(), nullptr);
  EXPECT_EQ(delegate.tgFieldEditor(), nullptr);
  EXPECT_EQ(delegate.windowWillReturnFieldEditor(&table), nullptr);
  EXPECT_FALSE(system.files.exists(kFile));
}

TEST_F(TGShortcutKeyTableDelegateTest, AnInterfaceThatCannotBeLoadedIsSaid) {
  delegate.interfaceDidNotLoad();
  EXPECT_THAT(messages(), ElementsAre("Error: unable to load keyboard shortcut interface"));
}

// The table.

TEST_F(TGShortcutKeyTableDelegateTest, TheRowsAreTheCommandsInTheOrderOfTheirList) {
  load();
  ASSERT_EQ(delegate.numberOfRowsInTableView(&table), 3U);
  EXPECT_EQ(delegate.tableView(&table, "description", 0), "Repair");
  EXPECT_EQ(delegate.tableView(&table, "description", 1), "Stop Qmaster");
  EXPECT_EQ(delegate.tableView(&table, "description", 2), "Gather Logs");
  EXPECT_EQ(keyName(0), std::nullopt);
  EXPECT_EQ(delegate.tableView(&table, "other", 0), std::nullopt);
  EXPECT_EQ(delegate.tableView(&table, "description", 3), std::nullopt);
}

TEST_F(TGShortcutKeyTableDelegateTest, WhatElseACommandHoldsIsCopiedToo) {
  const PropertyList command = PropertyList::Dictionary{
      {"id", "repair"}, {"description", "Repair"}, {"params", PropertyList::Array{"-repair"}}};
  offer({command, "no command"});
  load();
  EXPECT_THAT(delegate.dataArray(), ElementsAre(command));
}

TEST_F(TGShortcutKeyTableDelegateTest, WithoutACommandListThereAreNoRows) {
  ASSERT_TRUE(system.files.remove("/Applications/Quillmend.app/Contents/TGKeys.plist"));
  load();
  EXPECT_EQ(delegate.numberOfRowsInTableView(&table), 0U);
  system.files.makeFile("/Applications/Quillmend.app/Contents/TGKeys.plist", "garbage");
  delegate.populateKeyData();
  EXPECT_EQ(delegate.numberOfRowsInTableView(&table), 0U);
  EXPECT_EQ(table.reloads, 2);
}

TEST_F(TGShortcutKeyTableDelegateTest, ACommandListOfAnotherShapeHasNoRows) {
  const std::vector<PropertyList> lists = {
      PropertyList::Array{PropertyList::Dictionary{{"id", "repair"}}},
      "TGKeys",
      PropertyList(),
      PropertyList::Dictionary{{"TGKeys", "repair"}},
      PropertyList::Dictionary{{"TGKeys", PropertyList::Dictionary{{"id", "repair"}}}},
      PropertyList::Dictionary{{"TGKeys", PropertyList::Array{"repair", 4, PropertyList::Array{}}}}};
  for (const PropertyList& list : lists) {
    offerList(list);
    load();
    EXPECT_EQ(delegate.numberOfRowsInTableView(&table), 0U) << list.description();
  }
}

TEST_F(TGShortcutKeyTableDelegateTest, ACommandWithoutATextForItsIdentifierIsARowThatNoEntryBelongsTo) {
  offer({PropertyList::Dictionary{{"description", "Nameless"}},
         PropertyList::Dictionary{{"id", 4}, {"description", "Numbered"}},
         PropertyList::Dictionary{{"id", PropertyList::Array{"stop"}}},
         PropertyList::Dictionary{{"id", "stop"}, {"description", "Stop Qmaster"}}});
  writeEntries({entry(kOurs, ""), entry(kOurs, "4"), entry(kOurs, "stop")});
  load();
  EXPECT_EQ(delegate.numberOfRowsInTableView(&table), 4U);
  for (std::size_t row = 0; row < 3; ++row) {
    EXPECT_EQ(keyName(row), std::nullopt) << row;
    EXPECT_EQ(delegate.conflictInRow(row), "") << row;
    table.selected = row;
    delegate.clearShortcutKey(nullptr);
    EXPECT_THAT(entries(), testing::SizeIs(3)) << row;
  }
  EXPECT_EQ(keyName(3), "Ctrl+Shift+Cmd+S");
}

TEST_F(TGShortcutKeyTableDelegateTest, OnlyDescriptionsHaveTheApplicationsIcon) {
  load();
  RecordingCell description;
  RecordingCell key;
  delegate.tableView(&table, description, "description", 0);
  delegate.tableView(&table, key, "shortcutkey", 0);
  EXPECT_EQ(description.points, 16);
  EXPECT_EQ(key.points, 0);
}

TEST_F(TGShortcutKeyTableDelegateTest, TheTablesEditorIsTheEmptiedOneOfItsOwn) {
  load();
  RecordingTable other;
  EXPECT_EQ(delegate.windowWillReturnFieldEditor(&other), nullptr);
  EXPECT_EQ(delegate.windowWillReturnFieldEditor(nullptr), nullptr);
  EXPECT_EQ(editors.last->text, "typed before");
  EXPECT_EQ(delegate.windowWillReturnFieldEditor(&table), editors.last);
  EXPECT_EQ(editors.last->text, "");
}

TEST_F(TGShortcutKeyTableDelegateTest, CombinationsAreShownByTheirNames) {
  writeEntries({entry(kOurs, "stop", 1, 0x1300), entry("com.other.App", "repair", 1, 0x0100),
                entry(kOurs, "logs", 3, 0x0100), entry(kOurs, "gone", 1, 0x0100)});
  load();
  EXPECT_EQ(keyName(0), std::nullopt);
  EXPECT_EQ(keyName(1), "Ctrl+Shift+Cmd+S");
  EXPECT_EQ(keyName(2), "Unknown");
}

TEST_F(TGShortcutKeyTableDelegateTest, AnEntryThatDoesNotSayWhichKeysItMeansIsUnknownAndInNobodysWay) {
  const auto with = [](const std::string& bundleId, const std::string& commandId,
                       const PropertyList& keyCode) {
    return PropertyList(PropertyList::Dictionary{
        {"bundleid", bundleId}, {"commandid", commandId}, {"keycode", keyCode}, {"modifiers", 0x0100}});
  };
  const PropertyList none =
      PropertyList::Dictionary{{"bundleid", "com.other.App"}, {"commandid", "x"}, {"modifiers", 0x0100}};
  const PropertyList::Array others = {none, with("com.other.B", "b", "0"), with("com.other.C", "c", 65536)};
  PropertyList::Array list = others;
  list.push_back(with(kOurs, "repair", "1"));
  list.push_back(with(kOurs, "stop", 65536));
  list.push_back(with(kOurs, "logs", 0));
  writeEntries(list);
  load();
  EXPECT_EQ(keyName(0), "Unknown");
  EXPECT_EQ(keyName(1), "Unknown");
  EXPECT_EQ(keyName(2), "Cmd+A");
  for (const std::size_t row : {0U, 1U, 2U}) EXPECT_EQ(delegate.conflictInRow(row), "");
  EXPECT_TRUE(delegate.setKeyboardShortcutWithID("repair", {}, 1, {.cmd = true}));
  PropertyList::Array kept = entries();
  kept.resize(others.size());
  EXPECT_EQ(kept, others);
}

TEST_F(TGShortcutKeyTableDelegateTest, OfTwoCommandsOfOneIdentifierTheFirstIsNamed) {
  offer({PropertyList::Dictionary{{"id", "twice"}}, PropertyList::Dictionary{{"id", "twice"}}});
  writeEntries({entry(kOurs, "twice", 1, 0x0100)});
  load();
  EXPECT_EQ(keyName(0), "Cmd+S");
  EXPECT_EQ(keyName(1), std::nullopt);
}

TEST_F(TGShortcutKeyTableDelegateTest, AssignmentsThatCannotBeReadLeaveTheRowsBare) {
  for (const char* bytes : {"", "garbage", "bplist00"}) {
    writeBytes(bytes);
    load();
    EXPECT_EQ(delegate.numberOfRowsInTableView(&table), 3U);
    EXPECT_EQ(keyName(0), std::nullopt);
  }
}

TEST_F(TGShortcutKeyTableDelegateTest, AssignmentsThatCannotBeReadAreSaidOnceAndReadAgain) {
  writeBytes("garbage");
  load();
  EXPECT_EQ(delegate.conflictInRow(0), "");
  EXPECT_EQ(delegate.conflictInRow(0), "");
  EXPECT_THAT(messages(), ElementsAre("Unable to read the shortcut keys: " + std::string(kFile) +
                                      ": it is no list of shortcut keys"));
  delegate.populateKeyData();
  EXPECT_THAT(messages(), testing::SizeIs(2)) << "the window is opened again";
}

TEST_F(TGShortcutKeyTableDelegateTest, AssignmentsThatAreMissingAreNoFailure) {
  load();
  EXPECT_EQ(delegate.conflictInRow(0), "");
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGShortcutKeyTableDelegateTest, AListThatIsTooLargeIsSaid) {
  writeBytes("bplist00");
  std::filesystem::resize_file(system.files.real(kFile), shortcutkeys::kLargestFile + 1);
  load();
  EXPECT_THAT(messages(), ElementsAre("Unable to read the shortcut keys: " + system.files.real(kFile) +
                                      ": File too large"));
}

TEST_F(TGShortcutKeyTableDelegateTest, WhatRootDoesNotFollowIsSaid) {
  system.users.user = 0;
  system.files.makeFile("/elsewhere.plist");
  std::filesystem::create_symlink(system.files.real("/elsewhere.plist"), system.files.real(kFile));
  load();
  EXPECT_THAT(messages(), ElementsAre(testing::StartsWith("Unable to read the shortcut keys: ")));
}

/// The rights to a file leave no trace in what its state is known by.
TEST_F(TGShortcutKeyTableDelegateTest, AListThatMayBeReadAtLastIsShown) {
  writeEntries({entry(kOurs, "repair", 1, 0x0100), entry(kOurs, "stop", 1, 0x0100)});
  const std::string file = system.files.real(kFile);
  std::filesystem::permissions(system.files.root(), std::filesystem::perms::all);
  ASSERT_EQ(::chmod(file.c_str(), 0), 0);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(file.c_str(), support::kNobody, support::kNobody), 0);
  }
  support::AsUser::run(support::kNobody, [&] {
    load();
    EXPECT_EQ(delegate.conflictInRow(0), "");
    EXPECT_THAT(messages(), ElementsAre("Unable to read the shortcut keys: " + system.files.real(kFile) +
                                        ": Permission denied"));
    ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
    EXPECT_EQ(delegate.conflictInRow(0), "Cmd+S is also assigned to \"Stop Qmaster\".");
  });
}

// The manager.

TEST_F(TGShortcutKeyTableDelegateTest, WithTheManagerTheTableIsUsable) {
  load();
  EXPECT_TRUE(table.isEnabled);
  EXPECT_TRUE(alert.isHidden);
}

TEST_F(TGShortcutKeyTableDelegateTest, WithoutTheManagerTheAlertIsShownAndTheTableDisabled) {
  removeManager();
  writeEntries({entry(kOurs, "stop")});
  load();
  EXPECT_FALSE(table.isEnabled);
  EXPECT_FALSE(alert.isHidden);
  EXPECT_EQ(keyName(1), "Ctrl+Shift+Cmd+S");
  installManager();
  delegate.populateKeyData();
  EXPECT_TRUE(table.isEnabled);
  EXPECT_TRUE(alert.isHidden);
}

TEST_F(TGShortcutKeyTableDelegateTest, WithoutTheManagerAnAssignmentIsWrittenAndItsAbsenceSaid) {
  removeManager();
  EXPECT_TRUE(delegate.setKeyboardShortcutWithID("stop", {}, 1, {.cmd = true}));
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "stop", 1, 0x0100)));
  EXPECT_THAT(calls(), ElementsAre(kReload));
  EXPECT_THAT(messages(), ElementsAre(kNoManager));
}

TEST_F(TGShortcutKeyTableDelegateTest, AManagerThatCannotBeStartedThrowsNothing) {
  system.subprocesses.runs[kManager] = {.launchFailure =
                                            foundation::Exception("NSInvalidArgumentException", "no such")};
  EXPECT_NO_THROW(delegate.setKeyboardShortcutWithID("stop", {}, 1, {.cmd = true}));
  EXPECT_THAT(messages(), testing::Contains(HasSubstr("no such")));
}

// Key presses.

TEST_F(TGShortcutKeyTableDelegateTest, ABareKeyRecordsCommandAndShift) {
  EXPECT_EQ(userInformation(0x60, {}), pressed(0x60, true, false, false, true));
  EXPECT_EQ(system.localNotifications.posted.back().name, "TGShortcutKeyChanged");
}

TEST_F(TGShortcutKeyTableDelegateTest, CommandAloneRecordsCommand) {
  EXPECT_EQ(userInformation(1, {.command = true}), pressed(1, false, false, false, true));
}

TEST_F(TGShortcutKeyTableDelegateTest, WithShiftControlOrOptionExactlyWhatIsHeldIsRecorded) {
  for (unsigned held = 0; held < 16; ++held) {
    const ModifierFlags flags{(held & 1U) != 0, (held & 2U) != 0, (held & 4U) != 0, (held & 8U) != 0};
    if (!flags.shift && !flags.control && !flags.option) continue;
    EXPECT_EQ(userInformation(1, flags), pressed(1, flags.shift, flags.control, flags.option, flags.command))
        << held;
  }
}

TEST_F(TGShortcutKeyTableDelegateTest, DeletingKeysClearAndAllOthersAreTheTables) {
  for (const char32_t key : {0x08U, 0x7FU, 0xF728U, 0xF73EU}) {
    system.localNotifications.posted.clear();
    EXPECT_TRUE(delegate.tableKeyDown(key));
    ASSERT_THAT(system.localNotifications.posted, testing::SizeIs(1));
    EXPECT_EQ(system.localNotifications.posted[0].name, "TGShortcutKeyCleared");
    EXPECT_EQ(system.localNotifications.posted[0].userInfo, PropertyList());
  }
  system.localNotifications.posted.clear();
  for (const char32_t key :
       {0x00U, 0x07U, 0x09U, 0x0DU, 0x20U, 0x7EU, 0x80U, 0xF700U, 0xF727U, 0xF729U, 0xF73DU, 0xF73FU}) {
    EXPECT_FALSE(delegate.tableKeyDown(key));
  }
  EXPECT_THAT(system.localNotifications.posted, IsEmpty());
}

// Recording.

TEST_F(TGShortcutKeyTableDelegateTest, AKeyPressIsTheSelectedRowsCombination) {
  loadAndSelect(1);
  delegate.fieldEditorKeyDown(1, {.shift = true, .control = true, .option = true, .command = true});
  EXPECT_EQ(keyName(1), "Ctrl+Shift+Alt+Cmd+S");
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "stop", 1, 0x1B00)));
  EXPECT_EQ(entries()[0].find("commandparams"), nullptr);
  EXPECT_THAT(calls(), ElementsAre(kReload, kRun));
  EXPECT_THAT(table.ended, testing::Not(IsEmpty()));
  EXPECT_THAT(table.ended, testing::Each(std::pair("shortcutkey", delegate.tgFieldEditor())));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGShortcutKeyTableDelegateTest, PressingF5AloneRecordsCommandShiftF5) {
  loadAndSelect(0);
  delegate.fieldEditorKeyDown(0x60, {});
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "repair", 0x60, 0x0300)));
}

TEST_F(TGShortcutKeyTableDelegateTest, AKeyWithoutANameIsRecordedAsUnknown) {
  loadAndSelect(0);
  delegate.fieldEditorKeyDown(3, {.command = true});
  EXPECT_EQ(keyName(0), "Unknown");
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "repair", 3, 0x0100)));
}

TEST_F(TGShortcutKeyTableDelegateTest, WithNoRowSelectedAKeyOnlyEndsTheEditing) {
  load();
  delegate.fieldEditorKeyDown(1, {});
  EXPECT_THAT(table.ended, testing::SizeIs(1));
  EXPECT_FALSE(system.files.exists(kFile));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TGShortcutKeyTableDelegateTest, WithoutUserInformationNothingIsRecorded) {
  loadAndSelect(0);
  delegate.keyChanged({"TGShortcutKeyChanged", {}});
  EXPECT_THAT(table.ended, testing::SizeIs(1));
  EXPECT_FALSE(system.files.exists(kFile));
  EXPECT_EQ(keyName(0), std::nullopt);
}

TEST_F(TGShortcutKeyTableDelegateTest, ARowThatIsGoneIsNoRow) {
  loadAndSelect(3);
  delegate.fieldEditorKeyDown(1, {});
  delegate.clearShortcutKey(nullptr);
  EXPECT_FALSE(system.files.exists(kFile));
}

TEST_F(TGShortcutKeyTableDelegateTest, ACombinationThatCouldNotBeStoredIsNotShown) {
  writeEntries({entry(kOurs, "repair", 2, 0x0100)});
  loadAndSelect(0);
  system.files.beforeChange = [](const std::string&, const std::string& path) {
    return std::optional(foundation::systemError(ENOSPC, path));
  };
  delegate.fieldEditorKeyDown(1, {});
  EXPECT_EQ(keyName(0), "Cmd+Page Up");
  EXPECT_THAT(calls(), ElementsAre(kRun));
}

// Assigning.

TEST_F(TGShortcutKeyTableDelegateTest, AnAssignmentReplacesTheOneThatTheCommandHas) {
  const PropertyList other = entry("com.other.App", "stop", 5, 0x0100);
  const PropertyList ours = entry(kOurs, "logs", 6, 0x0200);
  writeEntries({other, entry(kOurs, "stop", 0, 0x0100), ours});
  EXPECT_TRUE(delegate.setKeyboardShortcutWithID("stop", {}, 1, {.shift = true}));
  EXPECT_THAT(entries(), ElementsAre(other, ours, entry(kOurs, "stop", 1, 0x0200)));
}

TEST_F(TGShortcutKeyTableDelegateTest, OnlyTheFirstEntryOfACommandIsReplaced) {
  writeEntries({entry(kOurs, "stop", 4, 0x0100), entry(kOurs, "stop", 5, 0x0100)});
  EXPECT_TRUE(delegate.setKeyboardShortcutWithID("stop", {}, 1, {.opt = true}));
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "stop", 5, 0x0100), entry(kOurs, "stop", 1, 0x0800)));
}

TEST_F(TGShortcutKeyTableDelegateTest, EachModifierHasItsBit) {
  const auto modifiersOf = [&](const ShortcutKeyModifiers& modifiers) {
    EXPECT_TRUE(delegate.setKeyboardShortcutWithID("stop", {}, 1, modifiers));
    return *entries().back().find("modifiers");
  };
  EXPECT_EQ(modifiersOf({}), PropertyList(0));
  EXPECT_EQ(modifiersOf({.shift = true}), PropertyList(0x0200));
  EXPECT_EQ(modifiersOf({.cmd = true}), PropertyList(0x0100));
  EXPECT_EQ(modifiersOf({.opt = true}), PropertyList(0x0800));
  EXPECT_EQ(modifiersOf({.ctrl = true}), PropertyList(0x1000));
}

TEST_F(TGShortcutKeyTableDelegateTest, WithoutAnIdentifierTheParametersTellTheCommand) {
  const auto withParams = [](const std::string& bundleId, PropertyList::Array params, int keyCode) {
    return PropertyList(PropertyList::Dictionary{{"bundleid", bundleId},
                                                 {"keycode", keyCode},
                                                 {"modifiers", 0x0100},
                                                 {"commandparams", std::move(params)}});
  };
  const PropertyList other = withParams("com.other.App", {"-a", "b"}, 5);
  const PropertyList longer = withParams(kOurs, {"-a", "b", "c"}, 5);
  writeEntries({other, longer, withParams(kOurs, {"-a", "b"}, 5)});
  EXPECT_TRUE(delegate.setKeyboardShortcutWithID({}, std::vector<std::string>{"-a", "b"}, 1, {.cmd = true}));
  EXPECT_THAT(entries(), ElementsAre(other, longer, withParams(kOurs, {"-a", "b"}, 1)));
}

TEST_F(TGShortcutKeyTableDelegateTest, WithAnIdentifierTheParametersAreStoredAndNotCompared) {
  EXPECT_TRUE(delegate.setKeyboardShortcutWithID("stop", std::vector<std::string>{"-a"}, 1, {.cmd = true}));
  EXPECT_TRUE(delegate.setKeyboardShortcutWithID("logs", std::vector<std::string>{"-a"}, 2, {.cmd = true}));
  ASSERT_THAT(entries(), testing::SizeIs(2));
  EXPECT_EQ(*entries()[0].find("commandparams"), PropertyList(PropertyList::Array{"-a"}));
}

TEST_F(TGShortcutKeyTableDelegateTest, WithNeitherNothingIsReplaced) {
  writeEntries({entry(kOurs, "stop")});
  EXPECT_TRUE(delegate.setKeyboardShortcutWithID({}, {}, 1, {.cmd = true}));
  EXPECT_TRUE(delegate.setKeyboardShortcutWithID({}, {}, 1, {.cmd = true}));
  EXPECT_THAT(entries(), testing::SizeIs(3));
}

/// 100,000 entries of other applications, of which every 128th holds Command-S.
class ManyEntriesTest : public TGShortcutKeyTableDelegateTest {
 protected:
  ManyEntriesTest() {
    for (int number = 0; number < 100'000; ++number) {
      others.push_back(entry("com.other.App" + std::to_string(number % 9), "c" + std::to_string(number),
                             number % 128, 0x0100));
    }
    write(others);
    system.files.whenRead = [this](const std::string& path) { reads += path == kFile ? 1 : 0; };
  }
  void write(const PropertyList::Array& list) {
    const PropertyList file = PropertyList::Dictionary{{"watchlist", list}};
    writeBytes(foundation::BinaryPropertyList::serialize(file).value());
  }

  /// More than are read of any other property list.
  [[nodiscard]] PropertyList::Array manyEntries() {
    const std::string bytes = system.files.readFile(kFile, shortcutkeys::kLargestFile).value();
    const auto file =
        system.propertyLists.parse(bytes, {shortcutkeys::kLargestFile, shortcutkeys::kMostValues});
    return *file.value().find("watchlist")->as<PropertyList::Array>();
  }

  PropertyList::Array others;
  int reads = 0;
};

TEST_F(ManyEntriesTest, OfOthersStayInTheirOrder) {
  EXPECT_TRUE(delegate.setKeyboardShortcutWithID("stop", {}, 1, {.cmd = true}));
  others.push_back(entry(kOurs, "stop", 1, 0x0100));
  EXPECT_TRUE(manyEntries() == others);
}

TEST_F(ManyEntriesTest, AreReadOnceToBeShownAndOnceForEachAssignment) {
  const auto conflicts = [this] {
    std::vector<std::string> sentences;
    for (std::size_t row = 0; row < 3; ++row) sentences.push_back(delegate.conflictInRow(row));
    return sentences;
  };
  load();
  EXPECT_THAT(conflicts(), ElementsAre("", "", ""));
  EXPECT_EQ(reads, 1) << "to be shown";
  table.selected = 1;
  delegate.fieldEditorKeyDown(1, {.command = true});
  const std::string held =
      "Cmd+S is also assigned to com.other.App1, com.other.App3, com.other.App5 and 6 others.";
  EXPECT_THAT(conflicts(), ElementsAre("", held, ""));
  EXPECT_THAT(conflicts(), ElementsAre("", held, ""));
  EXPECT_EQ(reads, 2) << "to assign the keys";
  delegate.clearShortcutKey(nullptr);
  EXPECT_THAT(conflicts(), ElementsAre("", "", ""));
  EXPECT_EQ(reads, 3) << "to clear them";
}

TEST_F(ManyEntriesTest, AreReadAgainWhenAnotherProgramHasChangedThem) {
  load();
  others.push_back(entry(kOurs, "stop", 1, 0x0100));
  write(others);
  EXPECT_THAT(delegate.conflictInRow(1), HasSubstr("Cmd+S is also assigned to "));
  EXPECT_EQ(delegate.conflictInRow(0), "");
  EXPECT_EQ(reads, 2);
  ASSERT_TRUE(system.files.remove(kFile));
  EXPECT_EQ(delegate.conflictInRow(1), "");
}

// Clearing.

TEST_F(TGShortcutKeyTableDelegateTest, ClearingTakesTheFirstEntryOfTheCommandAway) {
  const PropertyList other = entry("com.other.App", "stop");
  writeEntries({other, entry(kOurs, "stop", 4), entry(kOurs, "stop", 5)});
  loadAndSelect(1);
  EXPECT_TRUE(delegate.tableKeyDown(0x7F));
  EXPECT_EQ(keyName(1), std::nullopt);
  EXPECT_THAT(entries(), ElementsAre(other, entry(kOurs, "stop", 5)));
  EXPECT_THAT(calls(), ElementsAre(kReload, kRun));
  EXPECT_EQ(table.reloads, 2);
}

TEST_F(TGShortcutKeyTableDelegateTest, TheButtonClearsLikeTheKey) {
  writeEntries({entry(kOurs, "stop")});
  loadAndSelect(1);
  delegate.clearShortcutKey(nullptr);
  EXPECT_THAT(entries(), IsEmpty());
  EXPECT_THAT(calls(), ElementsAre(kReload, kRun));
}

TEST_F(TGShortcutKeyTableDelegateTest, ClearingWhatHasNoCombinationWritesTheFileAllTheSame) {
  writeEntries({entry("com.other.App", "stop")});
  loadAndSelect(1);
  delegate.clearShortcutKey(nullptr);
  EXPECT_THAT(entries(), ElementsAre(entry("com.other.App", "stop")));
  EXPECT_THAT(calls(), ElementsAre(kReload, kRun));
}

TEST_F(TGShortcutKeyTableDelegateTest, WithNoRowSelectedAClearReloadsAndRunsTheManager) {
  writeEntries({entry(kOurs, "stop")});
  load();
  delegate.tableKeyDown(0x08);
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "stop")));
  EXPECT_THAT(calls(), ElementsAre(kRun));
  EXPECT_EQ(table.reloads, 2);
}

TEST_F(TGShortcutKeyTableDelegateTest, WithoutAssignmentsAClearWritesAndPostsNothing) {
  loadAndSelect(1);
  delegate.clearShortcutKey(nullptr);
  EXPECT_FALSE(system.files.exists(kFile));
  EXPECT_THAT(calls(), ElementsAre(kRun));
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(TGShortcutKeyTableDelegateTest, ACombinationThatCouldNotBeClearedIsStillShown) {
  writeEntries({entry(kOurs, "stop")});
  loadAndSelect(1);
  system.files.beforeChange = [](const std::string&, const std::string& path) {
    return std::optional(foundation::systemError(ENOSPC, path));
  };
  delegate.clearShortcutKey(nullptr);
  EXPECT_EQ(keyName(1), "Ctrl+Shift+Cmd+S");
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "stop")));
  EXPECT_THAT(calls(), ElementsAre(kRun));
}

TEST_F(TGShortcutKeyTableDelegateTest, WithoutTheManagerAClearSaysSo) {
  removeManager();
  load();
  delegate.clearShortcutKey(nullptr);
  EXPECT_THAT(messages(), ElementsAre(kNoManager));
}

// Waiting for another program.

/// Another program holds the lock for three turns of the main loop.
class WaitingForTheLockTest : public TGShortcutKeyTableDelegateTest {
 protected:
  void holdTheLock(std::function<void()> meanwhile) {
    held = std::move(system.fileLocks.tryLock(kFile)).value();
    system.mainThread.whenServing = [this, meanwhile = std::move(meanwhile)] {
      if (++served == 2) meanwhile();
      if (served == 3) held.reset();
    };
  }

  int served = 0;
  std::unique_ptr<platform::FileLock> held;
};

TEST_F(WaitingForTheLockTest, WhatIsAskedForMeanwhileIsNeitherRecordedNorDoesItClear) {
  writeEntries({entry(kOurs, "stop", 1, 0x0100)});
  loadAndSelect(0);
  holdTheLock([&] {
    delegate.fieldEditorKeyDown(2, {.command = true});
    EXPECT_TRUE(delegate.tableKeyDown(0x7F));
    delegate.clearShortcutKey(nullptr);
  });
  delegate.fieldEditorKeyDown(0, {.command = true});
  EXPECT_GE(served, 3);
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "stop", 1, 0x0100), entry(kOurs, "repair", 0, 0x0100)));
  EXPECT_EQ(keyName(0), "Cmd+A");
  EXPECT_THAT(calls(), ElementsAre(kReload, kRun));
  delegate.fieldEditorKeyDown(2, {.command = true});
  EXPECT_EQ(keyName(0), "Cmd+Page Up") << "afterwards they are";
}

TEST_F(WaitingForTheLockTest, WhatWasPressedIsShownMeanwhileInsteadOfTheFieldEditor) {
  loadAndSelect(0);
  holdTheLock([&] {
    EXPECT_EQ(keyName(0), "Cmd+A");
    EXPECT_THAT(table.ended,
                ElementsAre(std::pair<std::string, outlets::FieldEditor*>("shortcutkey", editors.last)));
  });
  delegate.fieldEditorKeyDown(0, {.command = true});
  EXPECT_GE(served, 3);
}

TEST_F(WaitingForTheLockTest, WhoElseHoldsTheKeysIsShownWhenTheyAreRecorded) {
  writeEntries({entry("com.other.App", "x", 0, 0x0100)});
  loadAndSelect(0);
  std::vector<std::string> shown;
  table.whenEnded = [&] { shown.push_back(delegate.conflictInRow(0)); };
  delegate.fieldEditorKeyDown(0, {.command = true});
  EXPECT_EQ(shown.back(), "Cmd+A is also assigned to com.other.App.");
}

/// What is assigned in code meanwhile does not open the way for keys.
TEST_F(WaitingForTheLockTest, AnAssignmentWithinAnotherDoesNotEndTheOthersWait) {
  loadAndSelect(0);
  holdTheLock([&] {
    held.reset();
    EXPECT_TRUE(delegate.setKeyboardShortcutWithID("stop", {}, 1, {.cmd = true}));
    delegate.fieldEditorKeyDown(2, {.command = true});
    EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "stop", 1, 0x0100)));
  });
  delegate.fieldEditorKeyDown(0, {.command = true});
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "stop", 1, 0x0100), entry(kOurs, "repair", 0, 0x0100)));
}

TEST_F(WaitingForTheLockTest, TheWindowMayBeClosedAndOpenedAgain) {
  loadAndSelect(0);
  RecordingTable other;
  holdTheLock([&] {
    table.ended.clear();
    delegate.interfaceWillClose();
    delegate.interfaceDidLoad({&other, &view, &alert, &editors});
  });
  delegate.fieldEditorKeyDown(0, {.command = true});
  EXPECT_THAT(entries(), ElementsAre(entry(kOurs, "repair", 0, 0x0100)));
  EXPECT_THAT(table.ended, IsEmpty());
  EXPECT_EQ(delegate.tableView(&other, "shortcutkey", 0), "Cmd+A");
}

// Names of keys.

TEST_F(TGShortcutKeyTableDelegateTest, ANameListsTheModifiersInTheirOrder) {
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(1, 0x1300), "Ctrl+Shift+Cmd+S");
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(1, 0x1B00), "Ctrl+Shift+Alt+Cmd+S");
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(1, 0x0800), "Alt+S");
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(1, 0), "S");
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(1, 0xE4FF), "S");
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(3, 0x1300), std::nullopt);
}

TEST_F(TGShortcutKeyTableDelegateTest, ASingleCharacterIsShownInCapitals) {
  system.keyboardLayout.keys = {
      {10, {0, "\xC3\xBC"}}, {11, {0, "\xD1\x86"}}, {12, {0, "\xC3\x9F"}}, {13, {0, "ab"}}};
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(10, 0), "\xC3\x9C");
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(11, 0), "\xD0\xA6");
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(12, 0), "SS");
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(13, 0), "ab");
}

TEST_F(TGShortcutKeyTableDelegateTest, KeysAreNamedAsTheyAreWithoutModifiers) {
  static_cast<void>(TGShortcutKeyTableDelegate::nameForKeyCode(1, 0x1300));
  static_cast<void>(TGShortcutKeyTableDelegate::stringForKeyCode(1, 0x02));
  EXPECT_THAT(system.keyboardLayout.states, ElementsAre(0U, 0x02U));
}

TEST_F(TGShortcutKeyTableDelegateTest, KeysWithANameHaveIt) {
  const std::vector<std::pair<char32_t, const char*>> names = {
      {0xF700, "Up Arrow"}, {0xF701, "Down Arrow"}, {0xF702, "Left Arrow"}, {0xF703, "Right Arrow"},
      {0xF729, "Home"},     {0xF72B, "End"},        {0xF72C, "Page Up"},    {0xF72D, "Page Down"},
      {0x1E, "Up Arrow"},   {0x1F, "Down Arrow"},   {0x1C, "Left Arrow"},   {0x1D, "Right Arrow"},
      {0x01, "Home"},       {0x04, "End"},          {0x0B, "Page Up"},      {0x0C, "Page Down"},
      {0x03, "Return"},     {0x09, "Tab"},          {0x19, "Backtab"},      {0x0D, "Enter"},
      {0x08, "Backspace"},  {0x7F, "Delete"},       {0x1B, "Escape"},       {0x20, "Space"}};
  for (const auto& [character, name] : names) {
    std::string produced;
    foundation::appendUtf8(produced, character);
    system.keyboardLayout.keys[50] = {0, produced + "more"};
    EXPECT_EQ(TGShortcutKeyTableDelegate::stringForKeyCode(50, 0), name);
  }
}

TEST_F(TGShortcutKeyTableDelegateTest, CharactersWithoutANameStayAsTheyAre) {
  for (const std::string character : {"a", "\x10", "\x02", "!"}) {
    system.keyboardLayout.keys[50] = {0, character};
    EXPECT_EQ(TGShortcutKeyTableDelegate::stringForKeyCode(50, 0), character);
  }
}

TEST_F(TGShortcutKeyTableDelegateTest, NamesAreInTheUsersLanguage) {
  system.mainBundle.localizedStrings = {{"Page Up", "Bild auf"}};
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(2, 0x0100), "Cmd+Bild auf");
}

TEST_F(TGShortcutKeyTableDelegateTest, WithoutALayoutThatIsSaid) {
  system.keyboardLayout.isThere = false;
  EXPECT_EQ(TGShortcutKeyTableDelegate::nameForKeyCode(1, 0x0100), std::nullopt);
  EXPECT_THAT(messages(), ElementsAre("Couldn't find a suitable keyboard layout from which to translate"));
}

TEST_F(TGShortcutKeyTableDelegateTest, AnErrorOfTheTranslationIsSaidByItsNameAndNumber) {
  system.keyboardLayout.keys[200] = {platform::paramErr, ""};
  EXPECT_EQ(TGShortcutKeyTableDelegate::stringForKeyCode(200, 0), std::nullopt);
  EXPECT_THAT(messages(), ElementsAre("There was an paramErr error translating from the '-50' key code to a "
                                      "human readable string: error in user parameter list"));
}

TEST_F(TGShortcutKeyTableDelegateTest, AKeyThatProducesNothingIsSaid) {
  EXPECT_EQ(TGShortcutKeyTableDelegate::stringForKeyCode(3, 0), std::nullopt);
  EXPECT_THAT(messages(), ElementsAre("Couldn't find a translation for the '3' key code"));
}

// Conflicts.

TEST_F(TGShortcutKeyTableDelegateTest, ACombinationThatNobodyElseHoldsHasNoConflict) {
  writeEntries({entry(kOurs, "stop", 1, 0x0100), entry("com.other.App", "x", 1, 0x0200),
                entry("com.other.App", "y", 2, 0x0100)});
  load();
  EXPECT_EQ(delegate.conflictInRow(0), "");
  EXPECT_EQ(delegate.conflictInRow(1), "");
  EXPECT_EQ(delegate.conflictInRow(3), "");
}

TEST_F(TGShortcutKeyTableDelegateTest, AConflictNamesCommandsByTheirDescriptionsAndApplicationsByTheirNames) {
  system.applications.paths["com.other.Named"] = "/Applications/Named.app";
  const PropertyList information = PropertyList::Dictionary{{"CFBundleName", "Named Application"}};
  system.files.makeFile(
      "/Applications/Named.app/Contents/Info.plist",
      system.propertyLists.serialize(information, platform::PropertyListFormat::xml).value());
  writeEntries({entry("com.other.Unknown", "x", 1, 0x0300), entry(kOurs, "stop", 1, 0x0300),
                entry("com.other.Named", "y", 1, 0x0300), entry("com.other.Named", "z", 1, 0x0300),
                entry(kOurs, "logs", 1, 0x0300)});
  load();
  EXPECT_EQ(delegate.conflictInRow(1),
            "Shift+Cmd+S is also assigned to com.other.Unknown, Named Application and \"Gather Logs\".");
  EXPECT_EQ(delegate.conflictInRow(2),
            "Shift+Cmd+S is also assigned to com.other.Unknown, \"Stop Qmaster\" and Named Application.");
}

TEST_F(TGShortcutKeyTableDelegateTest, AHolderThatHasNoNameIsAnUnknownApplication) {
  system.applications.paths["com.other.Blank"] = "/Applications/Blank.app";
  const PropertyList information = PropertyList::Dictionary{{"CFBundleName", "  "}};
  system.files.makeFile(
      "/Applications/Blank.app/Contents/Info.plist",
      system.propertyLists.serialize(information, platform::PropertyListFormat::xml).value());
  writeEntries({entry(kOurs, "stop", 1, 0x0300),
                PropertyList::Dictionary{{"keycode", 1}, {"modifiers", 0x0300}},
                entry("com.other.Blank", "x", 1, 0x0300)});
  load();
  EXPECT_EQ(delegate.conflictInRow(1),
            "Shift+Cmd+S is also assigned to an unknown application and com.other.Blank.");
}

TEST_F(TGShortcutKeyTableDelegateTest, ANameOfAHolderIsOneShortLine) {
  const std::string letters(59, 'x');
  const std::string umlauts = "\xC3\xBC\xC3\xBC";
  writeEntries({entry(kOurs, "stop", 1, 0x0300),
                entry(" a\n\x7F"
                      "b\xE2\x80\xA9"
                      "c\n",
                      "x", 1, 0x0300),
                entry(letters + "\xC3\xBC", "x", 1, 0x0300), entry(letters + umlauts, "x", 1, 0x0300)});
  load();
  EXPECT_EQ(delegate.conflictInRow(1), "Shift+Cmd+S is also assigned to a  b c, " + letters +
                                           "\xC3\xBC and " + letters + "\xC3\xBC\xE2\x80\xA6.");
}

TEST_F(TGShortcutKeyTableDelegateTest, MoreHoldersThanAreReadAreCounted) {
  std::vector<PropertyList> list = {entry(kOurs, "stop", 1, 0x0300)};
  for (const char* name : {"com.a", "com.b", "com.b", "com.c", "com.d"}) {
    list.push_back(entry(name, "x", 1, 0x0300));
  }
  writeEntries(list);
  load();
  EXPECT_EQ(delegate.conflictInRow(1), "Shift+Cmd+S is also assigned to com.a, com.b, com.c and 1 other.");
  list.push_back(entry("com.e", "x", 1, 0x0300));
  writeEntries(list);
  EXPECT_EQ(delegate.conflictInRow(1), "Shift+Cmd+S is also assigned to com.a, com.b, com.c and 2 others.");
}

TEST_F(TGShortcutKeyTableDelegateTest, ACombinationInConflictIsRecordedAsAnyOther) {
  writeEntries({entry("com.other.App", "x", 1, 0x0300)});
  loadAndSelect(0);
  delegate.fieldEditorKeyDown(1, {});
  EXPECT_THAT(entries(),
              ElementsAre(entry("com.other.App", "x", 1, 0x0300), entry(kOurs, "repair", 1, 0x0300)));
  EXPECT_EQ(delegate.conflictInRow(0), "Shift+Cmd+S is also assigned to com.other.App.");
}

}  // namespace
