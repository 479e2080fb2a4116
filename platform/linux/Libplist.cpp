#include "platform/linux/Libplist.h"

#include <dlfcn.h>

namespace platform {
namespace {

/// The name that the library's interface has had since version 2.2.
constexpr const char* kLibrary = "libplist-2.0.so.3";

/// Looks functions up; one that is missing spoils the whole.
class Lookup {
 public:
  explicit Lookup(void* library) : library_(library) {}

  template <typename Function>
  Function find(const char* name) {
    void* const address = library_ == nullptr ? nullptr : ::dlsym(library_, name);
    isComplete_ = isComplete_ && address != nullptr;
    return reinterpret_cast<Function>(address);
  }
  [[nodiscard]] bool isComplete() const { return isComplete_; }

 private:
  void* library_;
  bool isComplete_ = true;
};

bool load(Libplist& plist) {
  Lookup library(::dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL));
#define FIND(function) plist.function = library.find<decltype(plist.function)>("plist_" #function)
  FIND(free);
  FIND(from_memory);
  FIND(from_bin);
  FIND(to_xml);
  FIND(to_bin);
  FIND(get_node_type);
  FIND(dict_new_iter);
  FIND(dict_next_item);
  FIND(array_new_iter);
  FIND(array_next_item);
  FIND(get_string_ptr);
  FIND(get_bool_val);
  FIND(get_uint_val);
  FIND(get_real_val);
  FIND(get_data_ptr);
  FIND(get_uid_val);
  FIND(new_dict);
  FIND(new_array);
  FIND(new_string);
  FIND(new_data);
  FIND(new_bool);
  FIND(new_uint);
  FIND(new_real);
  FIND(new_uid);
  FIND(dict_set_item);
  FIND(array_append_item);
#undef FIND
  return library.isComplete();
}

}  // namespace

const Libplist* Libplist::shared() {
  static Libplist plist;
  static const bool isLoaded = load(plist);
  return isLoaded ? &plist : nullptr;
}

}  // namespace platform
