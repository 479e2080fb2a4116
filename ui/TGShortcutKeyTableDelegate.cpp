#include "ui/TGShortcutKeyTableDelegate.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "diagnostics/TGException.h"
#include "platform/Platform.h"
#include "platform/foundation/Identifiers.h"
#include "platform/foundation/Paths.h"
#include "platform/foundation/Text.h"
#include "services/TGLocalPaths.h"
#include "services/TGTask.h"
#include "ui/ShortcutKeyAssignments.h"

namespace {

using foundation::PropertyList;
using shortcutkeys::WatchList;
using shortcutkeys::WhenMissing;

/// More than these holders of a combination are counted and not named.
constexpr std::size_t kMostNames = 3;

/// "A", "A and B", "A, B and C", "A, B, C and 4 others".
std::string sentenceOf(const std::vector<std::string>& names) {
  const std::size_t named = std::min(names.size(), kMostNames);
  std::string list = names.front();
  for (std::size_t at = 1; at < named; ++at) list += (at + 1 < names.size() ? ", " : " and ") + names[at];
  const std::size_t others = names.size() - named;
  if (others == 0) return list;
  return list + " and " + std::to_string(others) + (others == 1 ? " other" : " others");
}

constexpr const char* kChanged = "TGShortcutKeyChanged";
constexpr const char* kCleared = "TGShortcutKeyCleared";
constexpr const char* kReload = "TGShortcutKeysReload";
constexpr const char* kUnknown = "Unknown";
constexpr int kIconPoints = 16;

// The modifier bits of the classic event manager.
constexpr std::uint16_t kCommandMask = 0x0100;
constexpr std::uint16_t kShiftMask = 0x0200;
constexpr std::uint16_t kOptionMask = 0x0800;
constexpr std::uint16_t kControlMask = 0x1000;

struct KeyName {
  char32_t character;
  const char* name;
};

/// Keypad Enter is "Return" and Return is "Enter", on purpose: that is how the shortcut key manager and the
/// other applications name them.
constexpr std::array<KeyName, 24> kKeyNames = {{
    {0xF700, "Up Arrow"}, {0xF701, "Down Arrow"}, {0xF702, "Left Arrow"}, {0xF703, "Right Arrow"},
    {0xF729, "Home"},     {0xF72B, "End"},        {0xF72C, "Page Up"},    {0xF72D, "Page Down"},
    {0x1E, "Up Arrow"},   {0x1F, "Down Arrow"},   {0x1C, "Left Arrow"},   {0x1D, "Right Arrow"},
    {0x01, "Home"},       {0x04, "End"},          {0x0B, "Page Up"},      {0x0C, "Page Down"},
    {0x03, "Return"},     {0x09, "Tab"},          {0x19, "Backtab"},      {0x0D, "Enter"},
    {0x08, "Backspace"},  {0x7F, "Delete"},       {0x1B, "Escape"},       {0x20, "Space"},
}};

std::optional<std::string> managerPath() {
  const auto folder = TGLocalPaths::appSupportDirectory(Domain::local);
  if (!folder) return std::nullopt;
  return foundation::appendingPathComponent(*folder, "Vordenworks/Shared Resources/TGShortcutKeyManager");
}

bool managerExists() {
  const auto path = managerPath();
  return path && platform::current().fileQueries.exists(*path);
}

void setUpManager() {
  if (!managerExists()) {
    NSLog(
        "Unable to setup shortcut keys - shortcut key manager doesn't exist. Please reinstall this "
        "software.");
    return;
  }
  guarded("-[TGShortcutKeyTableDelegate setupShortcutKeys]",
          [] { TGTask::runTask(*managerPath(), std::vector<std::string>{"-setup"}); });
}

/// The commands that this application offers.
PropertyList::Array commandList() {
  auto& bundle = platform::current().mainBundle;
  const auto file =
      platform::readDictionary(foundation::appendingPathComponent(bundle.path(), "Contents/TGKeys.plist"));
  const PropertyList* const keys = file ? file.value().find("TGKeys") : nullptr;
  const auto* const commands = keys == nullptr ? nullptr : keys->as<PropertyList::Array>();
  PropertyList::Array list;
  if (commands == nullptr) return list;
  std::copy_if(commands->begin(), commands->end(), std::back_inserter(list),
               [](const PropertyList& command) { return command.as<PropertyList::Dictionary>() != nullptr; });
  return list;
}

std::optional<std::string> textOf(const PropertyList& dictionary, const char* key) {
  const PropertyList* const value = dictionary.find(key);
  const auto* const text = value == nullptr ? nullptr : value->as<std::string>();
  return text == nullptr ? std::nullopt : std::optional(*text);
}

bool breaksLine(char32_t code) {
  const bool isControl = code < 0x20 || (code >= 0x7F && code < 0xA0);
  return isControl || code == 0x2028 || code == 0x2029;
}

/// What a line has room for of a name that anybody may have written into a file: blanks in the place of
/// whatever breaks lines, and its beginning where it is longer than names are.
std::string asShortLine(std::string_view name) {
  constexpr int kMostCharacters = 60;
  std::string line;
  int characters = 0;
  for (std::string_view rest = foundation::trimmedPart(name); !rest.empty(); ++characters) {
    if (characters == kMostCharacters) return line + "…";
    const auto [length, code] = foundation::firstCharacter(rest);
    constexpr char32_t kReplacement = 0xFFFD;
    const char32_t character = breaksLine(code) ? U' ' : code;
    foundation::appendUtf8(line, length == 0 ? kReplacement : character);
    rest.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return line;
}

/// As the application says itself; "" where none of that identifier is installed, or it says nothing.
std::string nameSaidBy(const std::string& bundleId) {
  const auto path = platform::current().applications.pathForIdentifier(bundleId);
  if (!path) return "";
  const auto info =
      platform::readDictionary(foundation::appendingPathComponent(*path, "Contents/Info.plist"));
  return info ? asShortLine(info.value().stringFor("CFBundleName")) : "";
}

std::string nameOfApplication(const std::string& bundleId) {
  for (const std::string& name : {nameSaidBy(bundleId), asShortLine(bundleId)}) {
    if (!name.empty()) return name;
  }
  return platform::current().mainBundle.localizedString("an unknown application");
}

/// Of an entry that does not say which keys it means, too.
std::string shownName(const std::optional<shortcutkeys::Combination>& keys) {
  const auto name =
      keys ? TGShortcutKeyTableDelegate::nameForKeyCode(keys->keyCode, keys->modifiers) : std::nullopt;
  return name.value_or(kUnknown);
}

void removeFirst(WatchList& list, const std::function<bool(std::size_t index)>& matches) {
  for (const std::size_t index : list.entriesOf(identifiers::kApplication)) {
    if (matches(index)) return list.erase(index);
  }
}

std::uint16_t maskOf(const ShortcutKeyModifiers& modifiers) {
  std::uint16_t mask = 0;
  if (modifiers.shift) mask |= kShiftMask;
  if (modifiers.ctrl) mask |= kControlMask;
  if (modifiers.opt) mask |= kOptionMask;
  if (modifiers.cmd) mask |= kCommandMask;
  return mask;
}

PropertyList newEntry(const std::optional<std::string>& commandId,
                      const TGShortcutKeyTableDelegate::Params& params, std::uint16_t keyCode,
                      std::uint16_t modifiers) {
  PropertyList entry = PropertyList::Dictionary{
      {"bundleid", identifiers::kApplication}, {"keycode", int{keyCode}}, {"modifiers", int{modifiers}}};
  if (commandId) entry.set("commandid", *commandId);
  if (params) entry.set("commandparams", PropertyList::Array(params->begin(), params->end()));
  return entry;
}

/// Says for as long as it lives that something is under way.
class Busy {
 public:
  explicit Busy(bool& flag) : flag_(flag), wasSet_(flag) { flag_ = true; }
  ~Busy() { flag_ = wasSet_; }
  Busy(const Busy&) = delete;
  Busy& operator=(const Busy&) = delete;

 private:
  bool& flag_;
  const bool wasSet_;
};

bool isOn(const PropertyList& userInfo, const char* key) {
  const PropertyList* const value = userInfo.find(key);
  return value != nullptr && value->boolValue();
}

/// None of the other modifiers makes a bare key a combination with Command, and with Shift too where not even
/// Command was held, on purpose: a bare key would be taken from every application.
ShortcutKeyModifiers recordedModifiers(const outlets::ModifierFlags& flags) {
  const bool isBareOrCommand = !flags.shift && !flags.control && !flags.option;
  return {.shift = isBareOrCommand ? !flags.command : flags.shift,
          .cmd = isBareOrCommand || flags.command,
          .opt = flags.option,
          .ctrl = flags.control};
}

}  // namespace

TGShortcutKeyTableDelegate* TGShortcutKeyTableDelegate::sharedController() {
  const std::scoped_lock lock(monitor());
  return instance() != nullptr ? instance() : alloc();
}

void TGShortcutKeyTableDelegate::interfaceDidLoad(const outlets::ShortcutKeyConnections& connections) {
  interfaceWillClose();
  ++loads_;
  shortcutKeyTableView_ = connections.shortcutKeyTableView;
  parentView_ = connections.parentView;
  versionAlertText_ = connections.versionAlertText;
  fieldEditors_ = connections.fieldEditors;
  awakeFromNib();
}

void TGShortcutKeyTableDelegate::interfaceWillClose() {
  stopObserving();
  tgFieldEditor_.reset();
  shortcutKeyTableView_ = nullptr;
  parentView_ = nullptr;
  versionAlertText_ = nullptr;
  fieldEditors_ = nullptr;
}

void TGShortcutKeyTableDelegate::interfaceDidNotLoad() {
  NSLog("Error: unable to load keyboard shortcut interface");
}

void TGShortcutKeyTableDelegate::awakeFromNib() {
  tgFieldEditor_ = fieldEditors_->makeFieldEditor();
  tgFieldEditor_->setDelegate(this);
  observeKeys();
  shortcutKeyTableView_->setCellIsLeaf(outlets::kDescriptionColumn);
  populateKeyData();
}

void TGShortcutKeyTableDelegate::observeKeys() {
  stopObserving();
  auto& center = platform::current().localNotifications;
  observers_ = {center.addObserver(kChanged, [this](const auto& notification) { keyChanged(notification); }),
                center.addObserver(kCleared, [this](const auto& notification) { keyCleared(notification); })};
}

void TGShortcutKeyTableDelegate::stopObserving() {
  for (const int observer : observers_) platform::current().localNotifications.removeObserver(observer);
  observers_.clear();
}

void TGShortcutKeyTableDelegate::populateKeyData() {
  const bool isManaged = managerExists();
  if (versionAlertText_ != nullptr) versionAlertText_->setHidden(isManaged);
  if (shortcutKeyTableView_ != nullptr) shortcutKeyTableView_->setEnabled(isManaged);
  PropertyList::Array commands = commandList();
  known_.reset();
  said_.clear();
  for (const auto& [commandId, held] : keysInForce()) {
    const auto command =
        std::find_if(commands.begin(), commands.end(),
                     [&id = commandId](const auto& candidate) { return textOf(candidate, "id") == id; });
    if (command != commands.end()) command->set("keyname", shownName(held.keys));
  }
  dataArray_ = std::move(commands);
  if (shortcutKeyTableView_ != nullptr) shortcutKeyTableView_->reloadData();
}

std::size_t TGShortcutKeyTableDelegate::numberOfRowsInTableView(const outlets::ShortcutKeyTable*) const {
  return dataArray_.size();
}

std::optional<std::string> TGShortcutKeyTableDelegate::tableView(const outlets::ShortcutKeyTable*,
                                                                 const std::string& objectValueForTableColumn,
                                                                 std::size_t row) const {
  if (row >= dataArray_.size()) return std::nullopt;
  if (objectValueForTableColumn == outlets::kDescriptionColumn) return textOf(dataArray_[row], "description");
  if (objectValueForTableColumn == outlets::kShortcutKeyColumn) return textOf(dataArray_[row], "keyname");
  return std::nullopt;
}

void TGShortcutKeyTableDelegate::tableView(const outlets::ShortcutKeyTable*,
                                           outlets::TableCell& willDisplayCell,
                                           const std::string& forTableColumn, std::size_t) const {
  if (forTableColumn == outlets::kDescriptionColumn) willDisplayCell.setApplicationIcon(kIconPoints);
}

outlets::FieldEditor* TGShortcutKeyTableDelegate::windowWillReturnFieldEditor(
    const outlets::Sender* toObject) {
  if (toObject == nullptr || toObject != shortcutKeyTableView_) return nullptr;
  tgFieldEditor_->setString("");
  return tgFieldEditor_.get();
}

void TGShortcutKeyTableDelegate::fieldEditorKeyDown(std::uint16_t keyCode,
                                                    const outlets::ModifierFlags& flags) {
  const ShortcutKeyModifiers modifiers = recordedModifiers(flags);
  platform::current().localNotifications.post({kChanged, PropertyList::Dictionary{{"keycode", int{keyCode}},
                                                                                  {"shift", modifiers.shift},
                                                                                  {"ctrl", modifiers.ctrl},
                                                                                  {"opt", modifiers.opt},
                                                                                  {"cmd", modifiers.cmd}}});
}

bool TGShortcutKeyTableDelegate::tableKeyDown(char32_t firstCharacter) {
  constexpr std::array<char32_t, 4> kClearing = {0x08, 0x7F, 0xF728, 0xF73E};
  if (std::find(kClearing.begin(), kClearing.end(), firstCharacter) == kClearing.end()) return false;
  platform::current().localNotifications.post({kCleared, {}});
  return true;
}

std::optional<std::size_t> TGShortcutKeyTableDelegate::selectedRow() const {
  const auto row = shortcutKeyTableView_ == nullptr ? std::nullopt : shortcutKeyTableView_->selectedRow();
  return row && *row < dataArray_.size() ? row : std::nullopt;
}

void TGShortcutKeyTableDelegate::keyChanged(const platform::LocalNotification& notification) {
  if (isChanging_) return;
  const auto* const userInfo = notification.userInfo.as<PropertyList::Dictionary>();
  const auto row = selectedRow();
  if (row && userInfo != nullptr && !userInfo->empty()) assign(*row, notification.userInfo);
  endEditing();
}

void TGShortcutKeyTableDelegate::endEditing() {
  if (shortcutKeyTableView_ == nullptr || !tgFieldEditor_) return;
  shortcutKeyTableView_->endEditing(outlets::kShortcutKeyColumn, *tgFieldEditor_);
}

void TGShortcutKeyTableDelegate::assign(std::size_t row, const PropertyList& userInfo) {
  const PropertyList* const keycode = userInfo.find("keycode");
  const auto* const number = keycode == nullptr ? nullptr : keycode->as<std::int64_t>();
  const auto keyCode = static_cast<std::uint16_t>(number == nullptr ? 0 : *number);
  const ShortcutKeyModifiers modifiers{.shift = isOn(userInfo, "shift"),
                                       .cmd = isOn(userInfo, "cmd"),
                                       .opt = isOn(userInfo, "opt"),
                                       .ctrl = isOn(userInfo, "ctrl")};
  dataArray_[row].set("keyname", shownName(shortcutkeys::Combination{keyCode, maskOf(modifiers)}));
  endEditing();  // what was pressed is seen while the change waits, and what is pressed next is for the table
  const bool isStored =
      setKeyboardShortcutWithID(textOf(dataArray_[row], "id"), std::nullopt, keyCode, modifiers);
  if (!isStored) populateKeyData();  // the table shows what is in force
}

void TGShortcutKeyTableDelegate::keyCleared(const std::optional<platform::LocalNotification>&) {
  if (isChanging_) return;
  if (const auto row = selectedRow()) clear(*row);
  if (shortcutKeyTableView_ != nullptr) shortcutKeyTableView_->reloadData();
  setUpManager();
}

void TGShortcutKeyTableDelegate::clear(std::size_t row) {
  auto* const command = dataArray_[row].as<PropertyList::Dictionary>();
  std::erase_if(*command, [](const auto& entry) { return entry.first == "keyname"; });
  const auto commandId = textOf(dataArray_[row], "id");
  const bool isStored = change(WhenMissing::leave, [&](WatchList& list) {
    removeFirst(list, [&](std::size_t index) { return commandId && list.hasCommandId(index, *commandId); });
  });
  if (isStored) {
    platform::current().distributedNotifications.post(kReload, std::nullopt);
  } else if (shortcutkeys::assignmentsState()) {
    populateKeyData();  // the table shows what is in force
  }
}

void TGShortcutKeyTableDelegate::clearShortcutKey(outlets::Sender*) {
  keyCleared(std::nullopt);
}

std::optional<std::string> TGShortcutKeyTableDelegate::nameForKeyCode(std::uint16_t keyCode,
                                                                      std::uint16_t modifiers) {
  std::string name;
  if ((modifiers & kControlMask) != 0) name += "Ctrl+";
  if ((modifiers & kShiftMask) != 0) name += "Shift+";
  if ((modifiers & kOptionMask) != 0) name += "Alt+";
  if ((modifiers & kCommandMask) != 0) name += "Cmd+";
  const auto text = stringForKeyCode(keyCode, 0);
  if (!text) return std::nullopt;
  return name + (foundation::characterCount(*text) == 1 ? foundation::uppercase(*text) : *text);
}

std::optional<std::string> TGShortcutKeyTableDelegate::stringForKeyCode(std::uint16_t keyCode,
                                                                        std::uint32_t withModifierFlags) {
  const auto translation = platform::current().keyboardLayout.translate(keyCode, withModifierFlags);
  if (!translation) {
    NSLog("Couldn't find a suitable keyboard layout from which to translate");
    return std::nullopt;
  }
  if (translation->status != platform::noErr) {
    // The number is the status's, on purpose: the name alone is not found in every list of errors.
    NSLog("There was an %s error translating from the '%ld' key code to a human readable string: %s",
          platform::errorString(translation->status), translation->status,
          platform::commentString(translation->status));
    return std::nullopt;
  }
  if (translation->characters.empty()) {
    NSLog("Couldn't find a translation for the '%d' key code", keyCode);
    return std::nullopt;
  }
  const char32_t first = foundation::firstCharacter(translation->characters).code;
  const auto named = std::find_if(kKeyNames.begin(), kKeyNames.end(),
                                  [first](const KeyName& key) { return key.character == first; });
  if (named == kKeyNames.end()) return translation->characters;
  return platform::current().mainBundle.localizedString(named->name);
}

bool TGShortcutKeyTableDelegate::setKeyboardShortcutWithID(const std::optional<std::string>& commandId,
                                                           const Params& params, std::uint16_t keycode,
                                                           const ShortcutKeyModifiers& modifiers) {
  const bool isStored = change(WhenMissing::create, [&](WatchList& list) {
    removeFirst(list, [&](std::size_t index) {
      return commandId ? list.hasCommandId(index, *commandId) : params && list.hasParams(index, *params);
    });
    list.append(newEntry(commandId, params, keycode, maskOf(modifiers)));
  });
  if (isStored) platform::current().distributedNotifications.post(kReload, std::nullopt);
  setUpManager();
  return isStored;
}

bool TGShortcutKeyTableDelegate::change(WhenMissing whenMissing,
                                        const std::function<void(WatchList&)>& change) {
  const int loads = loads_;
  KnownKeys known;
  const Busy busy(isChanging_);
  const auto file = shortcutkeys::changeAssignments(whenMissing, [&](WatchList& list) {
    change(list);
    known.keys = shortcutkeys::keysOf(list, identifiers::kApplication);
  });
  if (!file) return false;
  known.file = file;
  known_ = std::move(known);
  if (loads != loads_)
    populateKeyData();  // opened anew while the change waited, with the keys from before it
  return true;
}

const shortcutkeys::KeysByCommand& TGShortcutKeyTableDelegate::keysInForce() const {
  static const shortcutkeys::KeysByCommand none;
  const auto file = shortcutkeys::assignmentsState();
  if (known_ && known_->file == file) return known_->keys;
  known_.reset();
  const auto list = shortcutkeys::readAssignments();
  const bool isRead = list || list.error().code == ENOENT;
  sayUnlessSaid(isRead ? "" : list.error().localizedDescription());
  if (!isRead) return none;  // and not known: the right to read a file may be given without changing it
  known_ = {file, list ? shortcutkeys::keysOf(list.value(), identifiers::kApplication) : none};
  return known_->keys;
}

/// Each question about a row looks anew: what is still in the way has been said.
void TGShortcutKeyTableDelegate::sayUnlessSaid(const std::string& failure) const {
  if (!failure.empty() && failure != said_) NSLog("Unable to read the shortcut keys: %@", failure);
  said_ = failure;
}

std::string TGShortcutKeyTableDelegate::conflictInRow(std::size_t row) const {
  if (row >= dataArray_.size()) return "";
  const auto commandId = textOf(dataArray_[row], "id");
  const auto& keys = keysInForce();
  const auto held = commandId ? keys.find(*commandId) : keys.end();
  if (held == keys.end() || held->second.otherHolders.empty()) return "";
  const std::string format = platform::current().mainBundle.localizedString("%@ is also assigned to %@.");
  return foundation::stringWithFormat(format, shownName(held->second.keys),
                                      sentenceOf(namesOf(held->second.otherHolders)));
}

std::vector<std::string> TGShortcutKeyTableDelegate::namesOf(
    const std::vector<shortcutkeys::Assignment>& holders) const {
  std::vector<std::string> names;
  names.reserve(holders.size());
  // To find a name takes a look into every application: those that are counted only need none.
  for (const auto& holder : holders) names.push_back(names.size() < kMostNames ? nameOfHolder(holder) : "");
  return names;
}

/// A command of this application by its description, another application by its name.
std::string TGShortcutKeyTableDelegate::nameOfHolder(const shortcutkeys::Assignment& holder) const {
  if (holder.bundleId != identifiers::kApplication) return nameOfApplication(holder.bundleId);
  for (const PropertyList& command : dataArray_) {
    if (holder.commandId && textOf(command, "id") == *holder.commandId) {
      return "\"" + textOf(command, "description").value_or(*holder.commandId) + "\"";
    }
  }
  return nameOfApplication(holder.bundleId);
}
