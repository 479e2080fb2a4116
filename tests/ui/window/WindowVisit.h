#pragma once

#include <QByteArray>

#include "tests/workstation/RepairOutcome.h"
#include "workstation/Visit.h"

namespace workstation {

/// A visit that finds this test's display.
inline VisitOptions windowVisit() {
  VisitOptions options = programVisit();
  options.environment = {{"DISPLAY", qgetenv("DISPLAY").toStdString()}};
  options.readOnly = {{"/tmp/.X11-unix", "/private/tmp/.X11-unix"},
                      {"/usr/share/fonts", "/usr/share/fonts"},
                      {"/usr/share/X11", "/usr/share/X11"},
                      {"/usr/share/fontconfig", "/usr/share/fontconfig"},
                      {"/etc/fonts", "/private/etc/fonts"}};
  return options;
}

}  // namespace workstation
