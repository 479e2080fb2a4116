#include "helpers/Surroundings.h"

#include <fcntl.h>

#include "platform/posix/HeldEntries.h"
#include "platform/posix/OwnerName.h"

namespace helpers {

Surroundings thisComputer(const std::function<std::optional<std::string>()>& consoleUser) {
  Surroundings surroundings;
  surroundings.root = platform::holdFolder(AT_FDCWD, "/");
  surroundings.accounts = platform::allAccounts();
  surroundings.administrators = []() -> std::optional<gid_t> {
    const auto administrators = platform::ownershipNamed(":admin");
    return administrators ? administrators->group : std::nullopt;
  };
  surroundings.consoleAccount = [consoleUser]() -> std::optional<Account> {
    const std::optional<std::string> name = consoleUser ? consoleUser() : std::nullopt;
    return name ? platform::accountNamed(*name) : std::nullopt;
  };
  surroundings.now = [] { return foundation::Date(std::chrono::system_clock::now()); };
  return surroundings;
}

foundation::Result<PathEntry> locate(const Surroundings& surroundings, std::string_view path,
                                     LastLink lastLink) {
  return platform::locate(surroundings.root.get(), path, lastLink);
}

}  // namespace helpers
