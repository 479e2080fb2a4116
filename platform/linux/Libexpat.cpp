#include "platform/linux/Libexpat.h"

#include <dlfcn.h>

namespace platform {
namespace {

/// Looks functions up; one that is missing spoils the whole.
class Lookup {
 public:
  explicit Lookup(const char* library) : library_(::dlopen(library, RTLD_NOW | RTLD_LOCAL)) {}

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

bool load(Libexpat& expat) {
  Lookup library("libexpat.so.1");
#define FIND(function) expat.function = library.find<decltype(expat.function)>("XML_" #function)
  FIND(ParserCreate_MM);
  FIND(ParserFree);
  FIND(SetUserData);
  FIND(SetElementHandler);
  FIND(SetCharacterDataHandler);
  FIND(SetStartDoctypeDeclHandler);
  FIND(SetSkippedEntityHandler);
  FIND(Parse);
  FIND(StopParser);
  FIND(GetErrorCode);
#undef FIND
  return library.isComplete();
}

}  // namespace

const Libexpat* Libexpat::shared() {
  static Libexpat expat;
  static const bool isLoaded = load(expat);
  return isLoaded ? &expat : nullptr;
}

}  // namespace platform
