#include "platform/linux/Libxkbcommon.h"

#include "platform/linux/LoadedLibrary.h"

namespace platform {
namespace {

bool load(Libxkbcommon& xkb) {
  LoadedLibrary library("libxkbcommon.so.0");
  library.find(xkb.context_new, "xkb_context_new");
  library.find(xkb.context_unref, "xkb_context_unref");
  library.find(xkb.context_set_log_level, "xkb_context_set_log_level");
  library.find(xkb.keymap_new_from_names, "xkb_keymap_new_from_names");
  library.find(xkb.keymap_unref, "xkb_keymap_unref");
  library.find(xkb.keymap_mod_get_index, "xkb_keymap_mod_get_index");
  library.find(xkb.state_new, "xkb_state_new");
  library.find(xkb.state_unref, "xkb_state_unref");
  library.find(xkb.state_update_mask, "xkb_state_update_mask");
  library.find(xkb.state_serialize_layout, "xkb_state_serialize_layout");
  library.find(xkb.state_key_get_utf8, "xkb_state_key_get_utf8");
  return library.isComplete();
}

bool load(LibxkbcommonX11& x11) {
  LoadedLibrary xcb("libxcb.so.1");
  xcb.find(x11.connect, "xcb_connect");
  xcb.find(x11.connection_has_error, "xcb_connection_has_error");
  xcb.find(x11.disconnect, "xcb_disconnect");
  LoadedLibrary library("libxkbcommon-x11.so.0");
  library.find(x11.setup_xkb_extension, "xkb_x11_setup_xkb_extension");
  library.find(x11.get_core_keyboard_device_id, "xkb_x11_get_core_keyboard_device_id");
  library.find(x11.keymap_new_from_device, "xkb_x11_keymap_new_from_device");
  library.find(x11.state_new_from_device, "xkb_x11_state_new_from_device");
  return xcb.isComplete() && library.isComplete();
}

}  // namespace

const Libxkbcommon* Libxkbcommon::shared() {
  static Libxkbcommon xkb;
  static const bool isLoaded = load(xkb);
  return isLoaded ? &xkb : nullptr;
}

const LibxkbcommonX11* LibxkbcommonX11::shared() {
  static LibxkbcommonX11 x11;
  static const bool isLoaded = load(x11);
  return isLoaded ? &x11 : nullptr;
}

}  // namespace platform
