#include "platform/linux/TemporaryName.h"

#include <sys/random.h>

#include <array>

#include "platform/foundation/Text.h"

namespace platform {

std::string temporaryName() {
  std::array<unsigned char, 12> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return {};
  std::string name = ".quillmend.";
  for (const unsigned char byte : bytes) name += foundation::stringWithFormat("%02x", unsigned{byte});
  return name;
}

}  // namespace platform
