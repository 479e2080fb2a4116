#pragma once

#include <Security/Authorization.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

/// Authorization Services for tests on other systems: calls recorded as lines of text, statuses as a test
/// sets them. AuthorizationExecuteWithPrivileges really starts the program, by nobody's rights but the
/// test's.
namespace fakes {

struct AuthorizationState {
  std::map<std::string, OSStatus> statuses;  ///< by the name of the function; 0 for the others
  std::vector<std::string> calls;
  long held = 0;              ///< references made and not freed
  int standardOutput = -1;    ///< what a program inherits; -1 for this process's own
  std::vector<int> children;  ///< process ids, to be waited for
  /// Answers in place of the user, when interaction is allowed.
  std::function<OSStatus()> whenAsked = nullptr;
};

AuthorizationState& authorization();

}  // namespace fakes
