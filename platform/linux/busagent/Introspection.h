#pragma once

#include <string>

namespace busagent {

/// Whether a D-Bus introspection document (D-Bus, "Introspection Data Format") declares that
/// method in that interface of its topmost object. False for what is not such a document.
[[nodiscard]] bool declaresMethod(const std::string& document, const std::string& interfaceName,
                                  const std::string& method);

}  // namespace busagent
