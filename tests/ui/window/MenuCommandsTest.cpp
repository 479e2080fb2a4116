#include <gmock/gmock.h>

#include <QClipboard>
#include <QMenu>
#include <QMenuBar>
#include <QProcess>
#include <QScreen>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/ui/window/DesktopSession.h"
#include "tests/ui/window/FakeOwner.h"
#include "tests/ui/window/WindowVisit.h"
#include "tests/workstation/RootTest.h"
#include "ui/window/MainWindow.h"
#include "workstation/TemporaryVolume.h"

// Every command of the real program's menus, chosen with the mouse on a sample workstation.

namespace workstation {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

/// The same at another density.
VisitOptions scaledVisit(const char* scale) {
  VisitOptions options = windowVisit();
  options.environment.emplace_back("QT_SCALE_FACTOR", scale);
  return options;
}

/// Where things are in a window of the program's size: the same window, which nobody sees.
class WindowPlan {
 public:
  explicit WindowPlan(QSize size) {
    window_.setAttribute(Qt::WA_DontShowOnScreen);
    window_.resize(size);
    window_.show();
  }
  ~WindowPlan() { window_.setMayClose(); }
  WindowPlan(const WindowPlan&) = delete;
  WindowPlan& operator=(const WindowPlan&) = delete;

  [[nodiscard]] QPoint placeOf(const char* control) const {
    const auto* const widget = window_.findChild<QWidget*>(QString::fromLatin1(control));
    return widget->mapTo(&window_, QPoint(12, widget->height() / 2));
  }
  /// Of a command's menu in the bar, and of the command in the menu that opens below it.
  [[nodiscard]] std::pair<QPoint, QPoint> placesOf(const char* command) const {
    auto* const action = window_.findChild<QAction*>(QString::fromLatin1(command));
    for (QMenu* const menu : window_.menuBar()->findChildren<QMenu*>(Qt::FindDirectChildrenOnly)) {
      if (!menu->actions().contains(action)) continue;
      const QRect title = window_.menuBar()->actionGeometry(menu->menuAction());
      menu->ensurePolished();
      const QRect item = menu->actionGeometry(action);
      return {title.center(), title.bottomLeft() + QPoint(20, item.center().y() + 1)};
    }
    ADD_FAILURE() << command;
    return {};
  }

 private:
  FakeOwner owner_;
  window::MainWindow window_{owner_};
};

/// The program with its window, and a mouse.
class MouseRun {
 public:
  explicit MouseRun(const Volume& volume, const VisitOptions& options = windowVisit())
      : volume_(volume), before_(takeSnapshot(volume)), visit_(volume, {quillmend}, options) {
    EXPECT_TRUE(window::waitUntil([] { return window::focusedTitle() == "Quillmend"; }, 30s)) << "no window";
    identifier_ = QString::fromStdString(window::activeWindow());
    std::this_thread::sleep_for(200ms);  // the window manager's frame, once it stands
    place_ = geometry();
    plan_.emplace(place_.size());
  }

  /// As it is now; without the frame.
  [[nodiscard]] QRect geometry() const {
    QProcess tool;  // xdotool counts the frame twice
    tool.start(QStringLiteral("xwininfo"), {QStringLiteral("-id"), identifier_});
    tool.waitForFinished();
    const QString text = QString::fromUtf8(tool.readAllStandardOutput());
    const auto number = [&text](const char* name) {
      return text.section(QString::fromLatin1(name), 1, 1).section(u'\n', 0, 0).trimmed().toInt();
    };
    return {number("Absolute upper-left X:"), number("Absolute upper-left Y:"), number("Width:"),
            number("Height:")};
  }

  void click(QPoint inWindow) const { clickAt(place_.topLeft() + inWindow); }
  void click(const char* control) const { click(plan_->placeOf(control)); }
  void choose(const char* command) const {
    const auto [menu, item] = plan_->placesOf(command);
    click(menu);
    std::this_thread::sleep_for(150ms);  // until the menu is open
    click(item);
    std::this_thread::sleep_for(50ms);
  }
  [[nodiscard]] QPoint placeOf(const char* control) const { return plan_->placeOf(control); }

  /// A window of that title, and its going by Return.
  static bool waitForPanel(const char* title) {
    return window::waitUntil(
        [&] { return windowsCalled(title) == (title == std::string("Quillmend") ? 2U : 1U); }, 60s);
  }
  static void dismissPanel() {
    std::this_thread::sleep_for(200ms);
    window::press("Return");
    EXPECT_TRUE(window::waitUntil(
        [] { return windowsCalled("Quillmend") == 1 && window::focusedTitle() == "Quillmend"; }));
  }
  static std::size_t windowsCalled(const std::string& title) {
    const std::string found =
        window::xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
                         QString::fromStdString("^" + title + "$")});
    return found.empty() ? 0 : split(found, '\n').size();
  }

  void activate() const {
    window::xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"), identifier_});
  }
  Outcome quit() {
    choose("quit");
    const bool isGone = window::waitUntil([] { return windowsCalled("Quillmend") == 0; });
    EXPECT_TRUE(isGone) << "Quit did nothing";
    if (!isGone) visit_.signal(SIGTERM);
    return outcomeOf(volume_, visit_.wait(), std::move(before_));
  }

 private:
  static void clickAt(QPoint place) {
    window::xdotool({QStringLiteral("mousemove"), QString::number(place.x()), QString::number(place.y()),
                     QStringLiteral("click"), QStringLiteral("1")});
  }

  const Volume& volume_;
  Snapshot before_;
  Visit visit_;
  QString identifier_;
  QRect place_;
  std::optional<WindowPlan> plan_;
};

void write(const Volume& volume, const std::string& path, const std::string& text) {
  const std::filesystem::path file = volume.host(path);
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

/// A desktop that writes down who opens what.
void makeOpener(const Volume& volume) {
  const std::string path = "/usr/local/bin/xdg-open";
  write(volume, path, "#!/bin/sh\necho \"$(id -un) $*\" >>/Users/alice/opened\n");
  std::filesystem::permissions(volume.host(path), std::filesystem::perms(0755));
}

std::vector<std::string> opened(const Volume& volume) {
  auto lines = split(contentsOf(volume.host("/Users/alice/opened").string()).value_or(""), '\n');
  if (!lines.empty() && lines.back().empty()) lines.pop_back();
  return lines;
}

/// What was opened for a command: one more thing.
std::string openedBy(const MouseRun& program, const Volume& volume, const char* command) {
  const std::size_t before = opened(volume).size();
  program.choose(command);
  EXPECT_TRUE(window::waitUntil([&] { return opened(volume).size() > before; })) << command;
  return opened(volume).empty() ? "" : opened(volume).back();
}

std::string clipboardText() {
  std::string text;
  EXPECT_TRUE(window::waitUntil([&text] {
    text = QGuiApplication::clipboard()->text().toStdString();
    return !text.empty() && text != "nothing";
  }));
  return text;
}

/// For commands that move the window away from under the mouse.
void chooseByKeys(const char* menu, const char* command) {
  window::press(menu);
  std::this_thread::sleep_for(200ms);  // until the menu is open
  window::press(command);
}

class MenuCommandsTest : public RootTest {
 protected:
  static Plan plan(std::vector<CompressorCopy> copies = {}) {
    return {.compressors = std::move(copies), .logFolder = true};
  }
};

TEST_F(MenuCommandsTest, TheHelpMenuOpensItsPagesAndTheManualAsTheUser) {
  const TemporaryVolume sample(plan());
  makeOpener(sample);
  MouseRun program(sample);
  const std::string site = "alice https://www.vordenworks.example";
  EXPECT_EQ(openedBy(program, sample, "helpHome"), site + "/quillmend.htm");
  EXPECT_EQ(openedBy(program, sample, "helpCareplex"), site + "/Careplex/");
  EXPECT_EQ(openedBy(program, sample, "helpTGHome"), site);
  EXPECT_THAT(openedBy(program, sample, "helpReportBug"),
              StartsWith(site + "/software_bugreport.htm?app=quillmend&version="));
  EXPECT_EQ(openedBy(program, sample, "helpSuggestFeature"),
            site + "/software_featurerequest.htm?app=quillmend");
  EXPECT_EQ(openedBy(program, sample, "helpManual"),
            "alice /Applications/Quillmend.app/Contents/Resources/Quillmend User Manual.pdf");
  EXPECT_EQ(program.quit().visit.status, 0);
}

TEST_F(MenuCommandsTest, AboutIsAPanelOfItsOwn) {
  const TemporaryVolume sample(plan());
  MouseRun program(sample);
  program.choose("about");
  EXPECT_TRUE(MouseRun::waitForPanel("About Quillmend"));
  std::this_thread::sleep_for(200ms);
  window::saveScreen("about-in-the-program");
  MouseRun::dismissPanel();
  EXPECT_EQ(MouseRun::windowsCalled("About Quillmend"), 0U);
  EXPECT_EQ(program.quit().visit.status, 0);
}

TEST_F(MenuCommandsTest, LogsAreShownWhereThereAreAnyAndElseAPanelSaysSo) {
  const TemporaryVolume sample(plan());
  makeOpener(sample);
  const std::string folder = "/Users/alice/Library/Logs/Vordenworks/";
  MouseRun program(sample);
  for (const char* const command : {"viewLog", "viewTaskLog"}) {
    std::filesystem::remove(sample.volume().host(folder + "Quillmend.1.log"));
    program.choose(command);
    EXPECT_TRUE(MouseRun::waitForPanel("Quillmend")) << command;
    MouseRun::dismissPanel();
  }
  EXPECT_THAT(opened(sample), IsEmpty());
  write(sample, folder + "Quillmend.1.log", "a log");
  write(sample, folder + "Quillmend.1.task.log", "another");
  EXPECT_EQ(openedBy(program, sample, "viewLog"), "alice " + folder + "Quillmend.1.log");
  EXPECT_EQ(openedBy(program, sample, "viewTaskLog"), "alice " + folder + "Quillmend.1.task.log");
  EXPECT_EQ(program.quit().visit.status, 0);
}

TEST_F(MenuCommandsTest, LogsAreGatheredOntoTheDesktop) {
  const TemporaryVolume sample(plan());
  write(sample, "/Users/alice/Library/Logs/Vordenworks/Quillmend.2.log", "a log");
  std::filesystem::create_directories(sample.volume().host("/Users/alice/Desktop"));
  MouseRun program(sample);
  program.choose("gatherLogs");
  EXPECT_TRUE(MouseRun::waitForPanel("Quillmend"));
  MouseRun::dismissPanel();
  EXPECT_GT(contentsOf(sample.volume().host("/Users/alice/Desktop/Quillmend Logs.zip").string())
                .value_or("")
                .size(),
            100U);
  EXPECT_EQ(program.quit().visit.status, 0);
}

TEST_F(MenuCommandsTest, SelectAllAndCopyAreTheConsoles) {
  const TemporaryVolume sample(plan());
  MouseRun program(sample);
  QGuiApplication::clipboard()->setText(QStringLiteral("nothing"));
  program.choose("selectAll");
  program.choose("copy");
  EXPECT_EQ(clipboardText(), "\n\nGet Stellate Toolbox for even more features");
  EXPECT_EQ(program.quit().visit.status, 0);
}

TEST_F(MenuCommandsTest, TheWindowIsMinimizedZoomedAndZoomedBack) {
  const TemporaryVolume sample(plan());
  MouseRun program(sample);
  const QRect before = program.geometry();
  chooseByKeys("alt+w", "m");
  EXPECT_TRUE(window::waitUntil([] { return MouseRun::windowsCalled("Quillmend") == 0; }));
  program.activate();
  EXPECT_TRUE(window::waitUntil([] { return window::focusedTitle() == "Quillmend"; }));
  std::this_thread::sleep_for(500ms);  // until it is drawn again
  chooseByKeys("alt+w", "z");
  const int all = QGuiApplication::primaryScreen()->availableSize().width();
  EXPECT_TRUE(window::waitUntil([&] { return program.geometry().width() >= all - 10; }));
  std::this_thread::sleep_for(300ms);
  chooseByKeys("alt+w", "z");
  EXPECT_TRUE(window::waitUntil([&] { return program.geometry() == before; }));
  EXPECT_EQ(program.quit().visit.status, 0);
}

TEST_F(MenuCommandsTest, ToolsStopAndStartQmaster) {
  const TemporaryVolume sample(plan({{"3.5.3"}}));
  MouseRun program(sample);
  for (const char* const command : {"menuStopQmaster", "menuRestartQmaster"}) {
    program.choose(command);
    EXPECT_TRUE(MouseRun::waitForPanel("Quillmend")) << command;
    MouseRun::dismissPanel();
  }
  const auto outcome = program.quit();
  EXPECT_EQ(outcome.visit.status, 0);
  EXPECT_THAT(outcome.callTexts(),
              AllOf(Contains(HasSubstr("-stopSharing")), Contains(HasSubstr("-startSharing"))));
  EXPECT_THAT(outcome.running, Contains("root /usr/sbin/qmasterd"));
}

TEST_F(MenuCommandsTest, ToolsTrashPreferencesAndTheLayoutAndCallNothing) {
  const TemporaryVolume sample(plan({{"3.5.3"}}));
  const std::string preferences = "/Users/alice/Library/Preferences/";
  const auto isThere = [&](const char* file) {
    return std::filesystem::exists(sample.volume().host(preferences + file));
  };
  write(sample, preferences + "com.apple.Compressor.plist", "4");
  write(sample, preferences + "com.apple.compressor.Compressor.plist", "3");
  MouseRun program(sample);
  for (const char* const command :
       {"menuTrashCompressor4Prefs", "menuTrashCompressorPrefs", "resetWindowLayout"}) {
    program.choose(command);
    EXPECT_TRUE(MouseRun::waitForPanel("Quillmend")) << command;
    MouseRun::dismissPanel();
    EXPECT_FALSE(isThere("com.apple.compressor.Compressor.plist")) << command;
  }
  EXPECT_TRUE(isThere("com.apple.Compressor.plist")) << "tested for, never taken";
  const auto outcome = program.quit();
  EXPECT_EQ(outcome.visit.status, 0);
  EXPECT_THAT(outcome.callTexts(), IsEmpty());
  EXPECT_THAT(movedInto(outcome, aliceTrash), Not(IsEmpty()));
}

TEST_F(MenuCommandsTest, BoxesTheLinkAndTheButtonAreClicked) {
  const TemporaryVolume sample(plan({{"4.0.7"}}));
  makeOpener(sample);
  MouseRun program(sample);
  program.click("trashPrefs");
  const auto stored = [&] {
    return contentsOf(sample.volume()
                          .host("/private/var/root/Library/Preferences/com.vordenworks.Quillmend.plist")
                          .string())
        .value_or("");
  };
  EXPECT_TRUE(window::waitUntil([&] { return stored().find("shouldTrash") != std::string::npos; }));
  const QPoint console = program.placeOf("errorText");
  const int top = console.y() - (program.geometry().height() - console.y());
  for (int y = top; y < console.y() && opened(sample).empty(); y += 8) {
    program.click(QPoint(60, y));  // from above, until it is met
    window::waitUntil([&] { return !opened(sample).empty(); }, 60ms);
  }
  EXPECT_THAT(opened(sample), ElementsAre("alice https://www.vordenworks.example/stellatetoolbox"));
  program.click("repairButton");
  EXPECT_TRUE(MouseRun::waitForPanel("Quillmend"));
  MouseRun::dismissPanel();
  const auto outcome = program.quit();
  EXPECT_EQ(outcome.visit.status, 0);
  EXPECT_THAT(outcome.callTexts(), Not(IsEmpty()));
}

/// Squares of four pixels that are not all alike: what is only drawn larger has none.
double sharpShare(const QImage& picture) {
  int count = 0;
  int sharp = 0;
  for (int y = 0; y + 1 < picture.height(); y += 2) {
    for (int x = 0; x + 1 < picture.width(); x += 2) {
      const QRgb first = picture.pixel(x, y);
      ++count;
      if (picture.pixel(x + 1, y) != first || picture.pixel(x, y + 1) != first ||
          picture.pixel(x + 1, y + 1) != first) {
        ++sharp;
      }
    }
  }
  return count == 0 ? 0 : double(sharp) / count;
}

TEST_F(MenuCommandsTest, AtTwiceTheDensityEverythingIsTwiceAsLargeAndDrawnAnew) {
  const TemporaryVolume sample(plan());
  const auto look = [&](const char* scale) {
    MouseRun program(sample, scaledVisit(scale));
    const QRect place = program.geometry();
    const QImage picture = QGuiApplication::primaryScreen()
                               ->grabWindow(0, place.x(), place.y(), place.width(), place.height())
                               .toImage();
    window::press("ctrl+q");
    std::filesystem::remove(
        sample.volume().host("/private/var/root/Library/Preferences/com.vordenworks.Quillmend.plist"));
    return picture;
  };
  const QImage once = look("1");
  const QImage twice = look("2");
  EXPECT_EQ(twice.size(), once.size() * 2);
  const QImage drawnLarger = once.scaled(once.size() * 2);
  EXPECT_EQ(sharpShare(drawnLarger), 0) << "what it would be";
  EXPECT_GT(sharpShare(twice), 0.01);
}

}  // namespace
}  // namespace workstation
