#include "helpers/ToolPath.h"

#include <cerrno>

namespace helpers {

ExitStatus reportUnlocated(Report& report, const foundation::Error& error) {
  report.failure(error);
  return error.code == EPERM ? ExitStatus::refused : ExitStatus::failed;
}

}  // namespace helpers
