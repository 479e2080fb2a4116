#include "platform/linux/Libexpat.h"

#include "platform/linux/LoadedLibrary.h"

namespace platform {
namespace {

bool load(Libexpat& expat) {
  LoadedLibrary library("libexpat.so.1");
#define FIND(function) library.find(expat.function, "XML_" #function)
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
