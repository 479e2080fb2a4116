#pragma once

#include <exception>
#include <string>
#include <utility>

#include "platform/foundation/Exception.h"

/// Exceptions, put into the log.
class TGException {
 public:
  TGException() = delete;

  /// Logs and prints "Exception in %s. %@ - %@." with the method's full name, the exception's name and its
  /// reason; answers that text.
  static std::string logException(const foundation::Exception& exception, const char* method);

  /// The exception is a time-out of a connection: its name is "NSPortTimeoutException".
  [[nodiscard]] static bool didTimeout(const foundation::Exception& exception);
};

/// Runs the work of an operation that lets no exception out: one that arises is logged under the method's
/// name. Answers whether the work ran to its end. Exceptions of the C++ library are logged as
/// NSGenericException.
template <typename Work>
bool guarded(const char* method, Work&& work) {
  try {
    std::forward<Work>(work)();
    return true;
  } catch (const foundation::Exception& exception) {
    TGException::logException(exception, method);
  } catch (const std::exception& exception) {
    TGException::logException(foundation::Exception(foundation::kGenericException, exception.what()), method);
  }
  return false;
}
