#include "diagnostics/TGException.h"

#include "diagnostics/TGLog.h"
#include "platform/SystemConsole.h"

std::string TGException::logException(const foundation::Exception& exception, const char* method) {
  std::string text =
      foundation::stringWithFormat("Exception in %s. %@ - %@.", method, exception.name(), exception.reason());
  TGLog::appendLog(text);  // as the format, on purpose
  NSLog("%@", text);
  return text;
}

bool TGException::didTimeout(const foundation::Exception& exception) {
  return exception.name() == foundation::kPortTimeoutException;
}
