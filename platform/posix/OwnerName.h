#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The owner and group that a file is to get; what is absent stays as it is.
struct Ownership {
  std::optional<uid_t> owner;
  std::optional<gid_t> group;
};

/// Reads an owner as chown(8) takes it: "name", "name:group", ":group", and "name:" for that user's login
/// group; names or numbers. A name goes before a number of the same spelling. The group "wheel" is group 0
/// where the system has no group of that name. Nothing where the text is malformed or a name is unknown.
[[nodiscard]] std::optional<Ownership> ownershipNamed(const std::string& text);

}  // namespace platform
