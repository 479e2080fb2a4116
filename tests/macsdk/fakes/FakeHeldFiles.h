#pragma once

#include <string>
#include <vector>

namespace fakes {

/// The calls that have changed owner or mode, by name and in their order. From any thread.
std::vector<std::string> changesOfHeldFiles();
void forgetChangesOfHeldFiles();

}  // namespace fakes
