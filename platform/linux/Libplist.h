#pragma once

#include <plist/plist.h>

namespace platform {

/// The functions of libplist that are used, by their names without the prefix.
///
/// The library is loaded when a property list is first read or written: linked to the program it would add a
/// tenth to the time in which it starts and prints its help.
struct Libplist {
  /// nullptr when the library is not there.
  [[nodiscard]] static const Libplist* shared();

  decltype(&plist_free) free = nullptr;
  decltype(&plist_from_memory) from_memory = nullptr;
  decltype(&plist_from_bin) from_bin = nullptr;
  decltype(&plist_to_xml) to_xml = nullptr;
  decltype(&plist_to_bin) to_bin = nullptr;
  decltype(&plist_get_node_type) get_node_type = nullptr;
  decltype(&plist_dict_new_iter) dict_new_iter = nullptr;
  decltype(&plist_dict_next_item) dict_next_item = nullptr;
  decltype(&plist_array_new_iter) array_new_iter = nullptr;
  decltype(&plist_array_next_item) array_next_item = nullptr;
  decltype(&plist_get_string_ptr) get_string_ptr = nullptr;
  decltype(&plist_get_bool_val) get_bool_val = nullptr;
  decltype(&plist_get_uint_val) get_uint_val = nullptr;
  decltype(&plist_get_real_val) get_real_val = nullptr;
  decltype(&plist_get_data_ptr) get_data_ptr = nullptr;
  decltype(&plist_get_uid_val) get_uid_val = nullptr;
  decltype(&plist_new_dict) new_dict = nullptr;
  decltype(&plist_new_array) new_array = nullptr;
  decltype(&plist_new_string) new_string = nullptr;
  decltype(&plist_new_data) new_data = nullptr;
  decltype(&plist_new_bool) new_bool = nullptr;
  decltype(&plist_new_uint) new_uint = nullptr;
  decltype(&plist_new_real) new_real = nullptr;
  decltype(&plist_new_uid) new_uid = nullptr;
  decltype(&plist_dict_set_item) dict_set_item = nullptr;
  decltype(&plist_array_append_item) array_append_item = nullptr;
};

}  // namespace platform
