#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <QClipboard>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QProcess>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>

#include "platform/posix/UniqueDescriptor.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestAccount.h"
#include "tests/ui/window/DesktopSession.h"
#include "ui/window/askpass/PasswordField.h"

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

/// What a file has from its beginning on.
std::string contentOf(int file) {
  std::string text(4096, '\0');
  const ssize_t count = ::pread(file, text.data(), text.size(), 0);
  text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
  return text;
}

// These three look into memory, which a sanitizer lets nobody do.

/// A word that is nowhere else.
[[maybe_unused]] std::string randomWord() {
  std::random_device source;
  std::uniform_int_distribution<int> letters(0, 25);
  std::string word(24, '\0');
  for (char& letter : word) letter = static_cast<char>('a' + letters(source));
  return word;
}

/// How often some bytes lie in what a program can write to.
[[maybe_unused]] std::size_t occurrencesIn(qint64 process, const std::string& bytes) {
  const std::string folder = "/proc/" + std::to_string(process);
  std::ifstream memory(folder + "/mem", std::ios::binary);
  std::ifstream maps(folder + "/maps");
  std::size_t count = 0;
  std::string line;
  while (std::getline(maps, line)) {
    std::size_t start = 0;
    std::size_t end = 0;
    if (std::sscanf(line.c_str(), "%zx-%zx rw", &start, &end) != 2 || line.find(" rw") == std::string::npos)
      continue;
    std::string part(end - start, '\0');
    memory.clear();
    memory.seekg(static_cast<std::streamoff>(start));
    memory.read(part.data(), static_cast<std::streamsize>(part.size()));
    for (std::size_t at = part.find(bytes); at != std::string::npos; at = part.find(bytes, at + 1)) ++count;
  }
  return count;
}

/// As the toolkit has texts.
[[maybe_unused]] std::string inUtf16(const std::string& word) {
  std::string bytes;
  for (const char letter : word) bytes += {letter, '\0'};
  return bytes;
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

#if !UNDER_A_SANITIZER  // it keeps what is given back
TEST_F(AskpassTest, APasswordLiesInOnePlaceAndIsGoneWhenItIsTakenBack) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root: looks at a program that refuses it";
  start();
  const std::string word = randomWord();
  const std::string pasted = randomWord();
  type(word.c_str());
  QGuiApplication::clipboard()->setText(QString::fromStdString(pasted));
  press("ctrl+v");
  const auto count = [this](const std::string& bytes) { return occurrencesIn(program.processId(), bytes); };
  ASSERT_TRUE(waitUntil([&] { return count(word + pasted) == 1; })) << "the search finds it";
  EXPECT_EQ(count(word), 1U);
  EXPECT_EQ(count(inUtf16(word)), 0U);
  EXPECT_TRUE(waitUntil([&] { return count(pasted) == 1; })) << count(pasted);
  EXPECT_EQ(count(inUtf16(pasted)), 0U);
  press("ctrl+u");
  EXPECT_TRUE(waitUntil([&] { return count(word) == 0; }));
  EXPECT_TRUE(waitUntil([&] { return count(pasted) == 0; })) << count(pasted);
  press("Escape");
  EXPECT_EQ(output(), "");
}
#endif

TEST(PasswordField, TheLettersOfTheEventsThatBringItAreOverwritten) {
  PasswordField field;
  const QString key = QString(u'k') + u'K';
  QKeyEvent press(QEvent::KeyPress, Qt::Key_K, Qt::NoModifier, key);
  QCoreApplication::sendEvent(&field, &press);
  const QString commit = QStringLiteral("com") + QString(u'm').repeated(3);
  const QString preedit = QString(u'p').repeated(5);
  QInputMethodEvent input(preedit, {});
  input.setCommitString(commit);
  QCoreApplication::sendEvent(&field, &input);
  EXPECT_EQ(field.secret().bytes(), "kKcommmm");
  for (const QString& text : {key, commit, preedit}) {
    EXPECT_EQ(text, QString(text.size(), QChar(u'\0')));
  }
}

TEST(PasswordField, AConstantOfAProgramIsTakenTooAndLeftAsItIs) {
  PasswordField field;
  QInputMethodEvent input;
  input.setCommitString(QStringLiteral("constant"));
  QCoreApplication::sendEvent(&field, &input);
  EXPECT_EQ(field.secret().bytes(), "constant");
}

TEST_F(AskpassTest, WhoStartedSudoCanTellItsMessagesFromTheDialogsNotes) {
  const platform::UniqueDescriptor messages(::memfd_create("sudo", MFD_CLOEXEC));
  const auto given = [&messages] { ::dup2(messages.get(), STDERR_FILENO); };
  program.setChildProcessModifier(given);
  start();
  EXPECT_TRUE(waitUntil([&] { return contentOf(messages.get()) == "askpass: asks\n"; }));
  press("Escape");
  EXPECT_EQ(output(), "");
  EXPECT_EQ(contentOf(messages.get()), "askpass: asks\n");
  start();
  press("Return");
  EXPECT_EQ(output(), "\n");
  EXPECT_THAT(contentOf(messages.get()),
              ::testing::MatchesRegex("askpass: asks\naskpass: asks\naskpass: answered [0-9]+\n"));
}

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
