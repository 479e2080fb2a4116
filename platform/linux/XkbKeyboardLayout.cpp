#include "platform/linux/XkbKeyboardLayout.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>

#include "platform/linux/Libxkbcommon.h"
#include "platform/linux/MacKeyCodes.h"
#include "platform/linux/ShellAssignments.h"
#include "platform/posix/PosixFiles.h"

namespace platform {
namespace {

constexpr std::uint16_t kLastKeyCode = 0x7F;
constexpr std::uint16_t kTab = 0x30;
constexpr std::uint16_t kHelp = 0x72;
constexpr std::uint64_t kLongestDefaults = 64ULL << 10;
constexpr std::size_t kLongestText = 1020;  // 255 characters of four bytes

// Modifier states.
constexpr std::uint32_t kShift = 0x02;
constexpr std::uint32_t kOption = 0x08;

struct KeyCharacter {
  std::uint8_t keyCode;
  char character;
};

/// What the keys without a letter produce, whatever the layout.
constexpr std::array kCharacters = std::to_array<KeyCharacter>({
    {0x24, 0x0D},
    {0x30, 0x09},
    {0x33, 0x08},
    {0x35, 0x1B},
    {0x47, 0x1B},
    {0x4C, 0x03},
    {0x73, 0x01},
    {0x74, 0x0B},
    {0x75, 0x7F},
    {0x77, 0x04},
    {0x79, 0x0C},
    {0x7B, 0x1C},
    {0x7C, 0x1D},
    {0x7D, 0x1F},
    {0x7E, 0x1E},
});

/// The function keys from F1, by their codes.
constexpr std::array<std::uint8_t, 20> kFunctionKeys = {0x7A, 0x78, 0x63, 0x76, 0x60, 0x61, 0x62,
                                                        0x64, 0x65, 0x6D, 0x67, 0x6F, 0x69, 0x6B,
                                                        0x71, 0x6A, 0x40, 0x4F, 0x50, 0x5A};

std::string fixedCharacter(std::uint16_t keyCode, std::uint32_t modifierState) {
  if (keyCode == kTab && (modifierState & kShift) != 0) return "\x19";
  if (keyCode == kHelp) return "Insert";  // as the key says here; a Mac's character for it cannot be seen
  for (const KeyCharacter& key : kCharacters) {
    if (key.keyCode == keyCode) return std::string(1, key.character);
  }
  const auto* const function = std::find(kFunctionKeys.begin(), kFunctionKeys.end(), keyCode);
  if (function != kFunctionKeys.end()) return "F" + std::to_string(function - kFunctionKeys.begin() + 1);
  return "";
}

struct ContextDeleter {
  void operator()(xkb_context* context) const { Libxkbcommon::shared()->context_unref(context); }
};
using Context = std::unique_ptr<xkb_context, ContextDeleter>;

struct KeymapDeleter {
  void operator()(xkb_keymap* keymap) const { Libxkbcommon::shared()->keymap_unref(keymap); }
};
using Keymap = std::unique_ptr<xkb_keymap, KeymapDeleter>;

struct StateDeleter {
  void operator()(xkb_state* state) const { Libxkbcommon::shared()->state_unref(state); }
};
using State = std::unique_ptr<xkb_state, StateDeleter>;

struct ConnectionDeleter {
  void operator()(xcb_connection_t* connection) const { LibxkbcommonX11::shared()->disconnect(connection); }
};
using Connection = std::unique_ptr<xcb_connection_t, ConnectionDeleter>;

/// A keymap and which of its groups is active.
struct Layout {
  Keymap keymap;
  xkb_layout_index_t group = 0;
};

std::string environment(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// The X server's; none where there is no server, or none that knows the keyboard extension.
Layout serversLayout(const Libxkbcommon& xkb, xkb_context* context) {
  const LibxkbcommonX11* const x11 = environment("DISPLAY").empty() ? nullptr : LibxkbcommonX11::shared();
  if (x11 == nullptr) return {};
  const Connection connection(x11->connect(nullptr, nullptr));
  xcb_connection_t* const server = connection.get();
  if (x11->connection_has_error(server) != 0) return {};
  const int hasExtension =
      x11->setup_xkb_extension(server, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                               XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr);
  const int device = hasExtension == 0 ? -1 : x11->get_core_keyboard_device_id(server);
  if (device < 0) return {};
  Keymap keymap(x11->keymap_new_from_device(context, server, device, XKB_KEYMAP_COMPILE_NO_FLAGS));
  if (!keymap) return {};
  const State state(x11->state_new_from_device(keymap.get(), server, device));
  if (!state) return {};
  return {std::move(keymap), xkb.state_serialize_layout(state.get(), XKB_STATE_LAYOUT_EFFECTIVE)};
}

Layout defaultLayout(const Libxkbcommon& xkb, xkb_context* context, const std::string& defaults) {
  std::array<std::string, 4> values;
  if (environment("XKB_DEFAULT_LAYOUT").empty()) {
    const auto text = PosixFileQueries().readFile(defaults, kLongestDefaults);
    if (text) {
      constexpr std::array kKeys = {"XKBMODEL", "XKBLAYOUT", "XKBVARIANT", "XKBOPTIONS"};
      for (std::size_t at = 0; at < values.size(); ++at) {
        values.at(at) = shellAssignment(text.value(), kKeys.at(at)).value_or("");
      }
    }
  }
  // What is empty stands for what the environment says, else for the library's own default.
  const xkb_rule_names names{"", values[0].c_str(), values[1].c_str(), values[2].c_str(), values[3].c_str()};
  return {Keymap(xkb.keymap_new_from_names(context, &names, XKB_KEYMAP_COMPILE_NO_FLAGS)), 0};
}

xkb_mod_mask_t maskOf(const Libxkbcommon& xkb, xkb_keymap* keymap, const char* modifier) {
  const xkb_mod_index_t index = xkb.keymap_mod_get_index(keymap, modifier);
  return index == XKB_MOD_INVALID ? 0 : xkb_mod_mask_t{1} << index;
}

std::string textOf(const Libxkbcommon& xkb, const Layout& layout, std::uint32_t key,
                   std::uint32_t modifierState) {
  const State state(xkb.state_new(layout.keymap.get()));
  if (!state) return "";
  // The third level's modifier is always on this one; NumLock gives the number block its digits.
  xkb_mod_mask_t held = maskOf(xkb, layout.keymap.get(), "Mod2");
  if ((modifierState & kShift) != 0) held |= maskOf(xkb, layout.keymap.get(), XKB_MOD_NAME_SHIFT);
  if ((modifierState & kOption) != 0) held |= maskOf(xkb, layout.keymap.get(), "Mod5");
  xkb.state_update_mask(state.get(), held, 0, 0, 0, 0, layout.group);
  std::array<char, kLongestText + 1> text{};
  const int length = xkb.state_key_get_utf8(state.get(), key, text.data(), text.size());
  return length <= 0 ? "" : text.data();
}

}  // namespace

std::optional<KeyTranslation> XkbKeyboardLayout::translate(std::uint16_t keyCode,
                                                           std::uint32_t modifierState) {
  const Libxkbcommon* const xkb = Libxkbcommon::shared();
  const Context context(xkb == nullptr ? nullptr : xkb->context_new(XKB_CONTEXT_NO_FLAGS));
  if (!context) return std::nullopt;
  xkb->context_set_log_level(context.get(), XKB_LOG_LEVEL_CRITICAL);
  Layout layout = serversLayout(*xkb, context.get());
  if (!layout.keymap) layout = defaultLayout(*xkb, context.get(), defaults_);
  if (!layout.keymap) return std::nullopt;
  if (keyCode > kLastKeyCode) return KeyTranslation{paramErr, ""};
  std::string fixed = fixedCharacter(keyCode, modifierState);
  if (!fixed.empty()) return KeyTranslation{noErr, std::move(fixed)};
  const auto key = scanCodeForMacKeyCode(keyCode);
  return KeyTranslation{noErr, key ? textOf(*xkb, layout, *key, modifierState) : ""};
}

std::optional<std::uint16_t> XkbKeyboardLayout::keyCodeForScanCode(std::uint32_t scanCode) {
  return macKeyCodeForScanCode(scanCode + kFirstScanCode);
}

}  // namespace platform
