#include <gmock/gmock.h>
#include <unistd.h>

#include <QProcess>
#include <fstream>
#include <iterator>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestAccount.h"
#include "tests/ui/window/DesktopSession.h"

namespace window {
namespace {

using ::testing::HasSubstr;

constexpr const char* kAskpass = QUILLMEND_BUNDLE "/Contents/SharedSupport/askpass";

/// A keyboard with other letters, while it lives.
class Keyboard {
 public:
  explicit Keyboard(const char* layout) { use(layout); }
  ~Keyboard() { use("us"); }
  Keyboard(const Keyboard&) = delete;
  Keyboard& operator=(const Keyboard&) = delete;

 private:
  static void use(const char* layout) {
    QProcess::execute(QStringLiteral("setxkbmap"), {QString::fromLatin1(layout)});
  }
};

/// A program that refuses to be looked at cannot be searched for leaks either, and a sanitizer would say so.
QProcessEnvironment withoutLeakCheck() {
  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  environment.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0"));
  return environment;
}

/// The dialog, as sudo starts it.
class AskpassTest : public ::testing::Test {
 protected:
  void start(const QStringList& arguments = {QStringLiteral("[sudo] password for alice: ")}) {
    program.setProcessEnvironment(withoutLeakCheck());
    program.start(QString::fromLatin1(kAskpass), arguments);
    ASSERT_TRUE(waitForDialog());
  }
  static bool waitForDialog() {
    return waitUntil([] { return hasKeyboard("askpass"); });
  }
  std::string output() {
    EXPECT_TRUE(program.waitForFinished(10000));
    return program.readAllStandardOutput().toStdString();
  }
  /// A line of the program's status in /proc.
  std::string status(const std::string& name) const {
    std::ifstream file("/proc/" + std::to_string(program.processId()) + "/status");
    std::string line;
    while (std::getline(file, line)) {
      if (line.starts_with(name)) return line;
    }
    return "";
  }

  QProcess program;
};

TEST_F(AskpassTest, WhatIsTypedGoesToStandardOutputAndNowhereElse) {
  const Keyboard german("de");
  start();
  type("s3cret w\u00F6rd");
  saveScreen("password");
  press("Return");
  EXPECT_EQ(output(), "s3cret w\u00F6rd\n");
  EXPECT_EQ(program.exitCode(), 0);
  EXPECT_EQ(program.readAllStandardError().toStdString(), "");
}

TEST_F(AskpassTest, ACancelledDialogSaysNothing) {
  start();
  type("s3cret");
  press("Escape");
  EXPECT_EQ(output(), "");
  EXPECT_EQ(program.exitCode(), 1);
}

TEST_F(AskpassTest, MistakesCanBeTakenBack) {
  start();
  type("abcd");
  press("BackSpace");
  press("BackSpace");
  type("x");
  press("ctrl+u");
  type("again");
  press("BackSpace");
  press("Return");
  EXPECT_EQ(output(), "agai\n");
}

TEST_F(AskpassTest, AnEmptyPasswordIsALine) {
  start();
  press("Return");
  EXPECT_EQ(output(), "\n");
}

#if defined(__has_feature)
#define UNDER_A_SANITIZER __has_feature(address_sanitizer)
#else
#define UNDER_A_SANITIZER 0
#endif

#if !UNDER_A_SANITIZER  // it lets nothing be locked
TEST_F(AskpassTest, ItsPasswordIsLockedInMemory) {
  start();
  EXPECT_THAT(status("VmLck"), ::testing::Not(HasSubstr(" 0 kB")));
  press("Escape");
  static_cast<void>(output());
}
#endif

TEST_F(AskpassTest, WithoutADisplayItSaysSoInOneLine) {
  QProcessEnvironment environment = withoutLeakCheck();
  environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":4711"));
  program.setProcessEnvironment(environment);
  program.start(QString::fromLatin1(kAskpass), QStringList());
  EXPECT_EQ(output(), "");
  EXPECT_EQ(program.exitCode(), 1);
  EXPECT_EQ(program.readAllStandardError().toStdString(),
            "Quillmend: no display: could not connect to display :4711\n");
}

TEST_F(AskpassTest, SudoTakesThePasswordFromIt) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root: makes an account";
  const support::TestAccount account("right horse");
  account.allow("ALL=(ALL:ALL) ALL");
  QProcessEnvironment environment = withoutLeakCheck();
  environment.insert(QStringLiteral("SUDO_ASKPASS"),
                     QString::fromStdString(support::programForAll(kAskpass)));
  program.setProcessEnvironment(environment);
  program.start(QStringLiteral("setpriv"),
                {QStringLiteral("--reuid"), QString::number(account.id()), QStringLiteral("--clear-groups"),
                 QStringLiteral("--"), QStringLiteral("/usr/bin/sudo"), QStringLiteral("-A"),
                 QStringLiteral("/usr/bin/id"), QStringLiteral("-u")});
  ASSERT_TRUE(waitForDialog());
  type("right horse");
  press("Return");
  EXPECT_EQ(output(), "0\n");
  EXPECT_EQ(program.exitCode(), 0);
}

}  // namespace
}  // namespace window
