#pragma once

#include <functional>
#include <string>

#include "tests/hardening/AttackedComputer.h"

/// An attacked computer whose processes only the test sees: what stops the daemons of a computer finds none
/// of this one's.
namespace hardening {

/// The path of a daemon of Qmaster's.
inline constexpr const char* kQmaster = "/Library/Application Support/Apple Qmaster/controller";

/// Runs a part of a test in a process of its own, the first of a namespace of processes. What fails inside is
/// printed there and fails the test here.
void amongOwnProcesses(const std::function<void(const AttackedComputer&)>& part);

/// Puts the program that stands for a daemon (tests/helpers/target_program.cpp) there. Returns its path in
/// this process's world.
[[nodiscard]] std::string installTarget(const AttackedComputer& computer, const std::string& place);

}  // namespace hardening
