#include <gmock/gmock.h>

#include <QApplication>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/XServer.h"

/// What the toolkit's own libraries keep to their end is nobody's leak here.
extern "C" const char* __lsan_default_suppressions() {  // NOLINT: the sanitizer's name
  return "leak:libfontconfig\nleak:libX11\nleak:libxcb\nleak:libQt6\nleak:libglib\nleak:libdbus\nleak:"
         "libGL\n";
}

/// A display and a runtime folder of the test's own, where the accessibility bus is, and a session bus that
/// starts the accessibility bus when it is asked for.
int main(int argc, char* argv[]) {
  ::testing::InitGoogleMock(&argc, argv);
  if (::testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  const support::XServer display;
  const support::TemporaryFolder runtime;
  qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString(runtime.path()));
  ChildProcess bus({"dbus-daemon", "--session", "--nofork", "--print-address=1"});
  qputenv("DBUS_SESSION_BUS_ADDRESS", QByteArray::fromStdString(bus.line()));
  qputenv("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
  QApplication application(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Quillmend"));
  QApplication::setApplicationDisplayName(QStringLiteral("Quillmend"));
  return RUN_ALL_TESTS();
}
