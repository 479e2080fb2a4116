#pragma once

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace platform {

/// The functions of libxkbcommon that are used, by their names without the prefix. The library is loaded when
/// a key is first translated, because only the editor of keyboard shortcuts does that.
struct Libxkbcommon {
  /// nullptr when the library is not there.
  [[nodiscard]] static const Libxkbcommon* shared();

  decltype(&xkb_context_new) context_new = nullptr;
  decltype(&xkb_context_unref) context_unref = nullptr;
  decltype(&xkb_context_set_log_level) context_set_log_level = nullptr;
  decltype(&xkb_keymap_new_from_names) keymap_new_from_names = nullptr;
  decltype(&xkb_keymap_unref) keymap_unref = nullptr;
  decltype(&xkb_keymap_mod_get_index) keymap_mod_get_index = nullptr;
  decltype(&xkb_state_new) state_new = nullptr;
  decltype(&xkb_state_unref) state_unref = nullptr;
  decltype(&xkb_state_update_mask) state_update_mask = nullptr;
  decltype(&xkb_state_serialize_layout) state_serialize_layout = nullptr;
  decltype(&xkb_state_key_get_utf8) state_key_get_utf8 = nullptr;
};

/// The same for what asks an X server: libxkbcommon-x11 and libxcb.
struct LibxkbcommonX11 {
  /// nullptr when one of the libraries is not there.
  [[nodiscard]] static const LibxkbcommonX11* shared();

  decltype(&xcb_connect) connect = nullptr;
  decltype(&xcb_connection_has_error) connection_has_error = nullptr;
  decltype(&xcb_disconnect) disconnect = nullptr;
  decltype(&xkb_x11_setup_xkb_extension) setup_xkb_extension = nullptr;
  decltype(&xkb_x11_get_core_keyboard_device_id) get_core_keyboard_device_id = nullptr;
  decltype(&xkb_x11_keymap_new_from_device) keymap_new_from_device = nullptr;
  decltype(&xkb_x11_state_new_from_device) state_new_from_device = nullptr;
};

}  // namespace platform
