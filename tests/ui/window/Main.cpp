#include <gmock/gmock.h>

#include <QApplication>
#include <optional>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/XServer.h"
#include "ui/window/LogoView.h"

/// What the toolkit's own libraries keep to their end is nobody's leak here.
extern "C" const char* __lsan_default_suppressions() {  // NOLINT: the sanitizer's name
  return "leak:libfontconfig\nleak:libX11\nleak:libxcb\nleak:libQt6\nleak:libglib\nleak:libdbus\nleak:"
         "libGL\n";
}

/// A display and a runtime folder of its own for each test process; not for the one that only lists the
/// tests.
int main(int argc, char* argv[]) {
  ::testing::InitGoogleMock(&argc, argv);
  if (::testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  const support::XServer display;
  const support::TemporaryFolder runtime;
  qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString(runtime.path()));
  QApplication application(argc, argv);
  QApplication::setApplicationDisplayName(QStringLiteral("Quillmend"));
  QApplication::setWindowIcon(window::applicationIcon());
  return RUN_ALL_TESTS();
}
