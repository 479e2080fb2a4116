#pragma once

#include <stdexcept>
#include <string>

#include "tests/support/ProgramRun.h"

namespace packaging {

/// What dpkg-deb(1) says of the package that was made for the tests.
inline std::string ofDebianPackage(const std::string& question, const std::string& further = "") {
  std::vector<std::string> command = {"/usr/bin/dpkg-deb", question, DEBIAN_PACKAGE};
  if (!further.empty()) command.push_back(further);
  const auto run = support::runProgram(command);
  if (run.status != 0) throw std::runtime_error(run.output);
  return run.output;
}

}  // namespace packaging
