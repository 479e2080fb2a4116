#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <chrono>
#include <filesystem>
#include <string>

#include "tests/ui/window/DesktopSession.h"
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

/// Quillmend with its window on a volume, started by somebody: the bundle that lies there, else the built
/// one.
class WindowSession {
 public:
  explicit WindowSession(const Volume& volume, const std::string& user = "alice")
      : visit_(volume, {quillmend}, optionsFor(volume, user)) {
    EXPECT_TRUE(window::waitUntil([] { return window::focusedTitle() == "Quillmend"; }, kLongestStart))
        << "no window";
  }

  VisitResult quit() {
    window::press("ctrl+q");
    return visit_.wait();
  }

  void signal(int number) { visit_.signal(number); }
  VisitResult wait() { return visit_.wait(); }

 private:
  static constexpr std::chrono::seconds kLongestStart{30};

  static VisitOptions optionsFor(const Volume& volume, const std::string& user) {
    VisitOptions options = windowVisit();
    options.user = user;
    if (std::filesystem::exists(volume.host(quillmend))) options.bundle.clear();
    return options;
  }

  Visit visit_;
};

}  // namespace workstation
