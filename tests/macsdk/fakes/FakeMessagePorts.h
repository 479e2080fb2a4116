#pragma once

#include <CoreFoundation/CFMessagePort.h>

#include <set>
#include <string>
#include <vector>

/// Message ports of clients as far as the Mac's backend uses them; the objects are FakeCoreFoundation's.
namespace fakes {

/// No client at all.
void resetMessagePorts();

/// A client with a port of that name, which implements those selectors.
void addPort(const std::string& name, std::set<std::string> implemented);

/// What every request is answered from now on; 0 is success.
void setPortStatus(SInt32 status);

/// The messages that came in, in order: "1 to NAME: SELECTOR" and "2 to NAME: PROPERTY LIST", and how long
/// would have been waited.
[[nodiscard]] std::vector<std::string> takePortMessages();

}  // namespace fakes
