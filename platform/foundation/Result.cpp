#include "platform/foundation/Result.h"

#include <system_error>

namespace foundation {

Error systemError(int code, std::string_view path) {
  const std::string reason = std::generic_category().message(code);
  std::string description = path.empty() ? reason : std::string(path) + ": " + reason;
  return Error{code, std::string(path), std::move(description)};
}

Error errorWithReason(int code, std::string_view path, std::string_view reason) {
  return {code, std::string(path), std::string(path) + ": " + std::string(reason)};
}

}  // namespace foundation
