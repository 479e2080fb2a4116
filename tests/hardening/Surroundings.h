#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

/// What the one who starts a program chooses for it beside its arguments.
namespace hardening {

struct Surrounding {
  std::string name;
  std::function<void()> inChild;  ///< for hardening::run()
};

/// Closed streams, environments, masks, signals and limits, each by itself; none may make a difference to
/// what a program of root's does.
[[nodiscard]] std::vector<Surrounding> surroundings();

void closeStreams(std::initializer_list<int> streams);
/// Without LD_LIBRARY_PATH, for which the programs start once more, with no environment at all.
void spoilEnvironment();
/// All of them, and blocks them.
void ignoreSignals();
/// Every limit that the programs raise.
void limitAll();

}  // namespace hardening
