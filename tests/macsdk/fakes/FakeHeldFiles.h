#pragma once

#include <string>
#include <vector>

namespace fakes {

/// The calls that have changed owner or mode, by name and in their order.
std::vector<std::string>& changesOfHeldFiles();

}  // namespace fakes
