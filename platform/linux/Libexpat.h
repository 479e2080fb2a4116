#pragma once

#include <expat.h>

namespace platform {

/// The functions of expat that are used, by their names without the prefix.
///
/// The library is loaded when an XML property list is first read: linked to the program it would add to the
/// time in which it starts and prints its help.
struct Libexpat {
  /// nullptr when the library is not there.
  [[nodiscard]] static const Libexpat* shared();

  decltype(&XML_ParserCreate_MM) ParserCreate_MM = nullptr;
  decltype(&XML_ParserFree) ParserFree = nullptr;
  decltype(&XML_SetUserData) SetUserData = nullptr;
  decltype(&XML_SetElementHandler) SetElementHandler = nullptr;
  decltype(&XML_SetCharacterDataHandler) SetCharacterDataHandler = nullptr;
  decltype(&XML_SetStartDoctypeDeclHandler) SetStartDoctypeDeclHandler = nullptr;
  decltype(&XML_SetSkippedEntityHandler) SetSkippedEntityHandler = nullptr;
  decltype(&XML_Parse) Parse = nullptr;
  decltype(&XML_StopParser) StopParser = nullptr;
  decltype(&XML_GetErrorCode) GetErrorCode = nullptr;
};

}  // namespace platform
