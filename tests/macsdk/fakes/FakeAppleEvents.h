#pragma once

#include <CoreServices/CoreServices.h>

#include <map>
#include <string>
#include <vector>

/// The Apple Event Manager for tests on other systems: calls recorded as lines of text.
namespace fakes {

struct AppleEventState {
  std::map<std::string, OSStatus> statuses;  ///< by the name of the function; 0 for the others
  std::vector<std::string> calls;
  long held = 0;  ///< descriptors and handles made and not disposed of
};

AppleEventState& appleEvents();

}  // namespace fakes
