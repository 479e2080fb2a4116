#include "ui/window/Application.h"

#include <poll.h>

#include <QApplication>
#include <QEventLoop>
#include <QMessageBox>
#include <QSocketNotifier>
#include <QTimer>
#include <clocale>
#include <cstdlib>

#include "ui/window/LogoView.h"
#include "ui/window/MainWindow.h"
#include "ui/window/Panels.h"
#include "ui/window/StartUpMessages.h"

namespace window {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

bool isReadable(int descriptor) {
  pollfd watched{descriptor, POLLIN, 0};
  return descriptor >= 0 && ::poll(&watched, 1, 0) > 0;
}

milliseconds roundedUp(nanoseconds interval) {
  return std::max(std::chrono::ceil<milliseconds>(interval), milliseconds(0));
}

/// The toolkit takes the user's language for everything; only letters are to be the user's here. Numbers and
/// dates that are written to files have one form.
void keepFormats() {
  std::setlocale(LC_ALL, "C");   // NOLINT(concurrency-mt-unsafe): no other thread runs yet
  std::setlocale(LC_CTYPE, "");  // NOLINT(concurrency-mt-unsafe)
}

void introduce() {
  QApplication::setApplicationName(QStringLiteral("Quillmend"));
  QApplication::setApplicationDisplayName(QStringLiteral("Quillmend"));
  QApplication::setDesktopFileName(QStringLiteral("com.vordenworks.Quillmend"));
  QApplication::setWindowIcon(applicationIcon());
}

}  // namespace

struct Application::Watches {
  explicit Watches(platform::WindowHost& host) : work(host.workDescriptor(), QSocketNotifier::Read) {
    QObject::connect(&work, &QSocketNotifier::activated, [&host] { host.serveQueued(); });
  }
  QSocketNotifier work;
};

Application::Application(platform::WindowHost& host)
    : host_(host), watches_(std::make_unique<Watches>(host)) {
  host_.applicationDidStart(*this);
}

Application::~Application() {
  host_.applicationDidEnd();
}

bool Application::runUntilReadable(int descriptor, std::optional<nanoseconds> interval) {
  QEventLoop loop;
  std::optional<QSocketNotifier> watch;
  if (descriptor >= 0) {
    watch.emplace(descriptor, QSocketNotifier::Read);
    QObject::connect(&*watch, &QSocketNotifier::activated, &loop, [&loop] { loop.quit(); });
  }
  if (interval) QTimer::singleShot(roundedUp(*interval), Qt::PreciseTimer, &loop, [&loop] { loop.quit(); });
  loop.exec(QEventLoop::ExcludeUserInputEvents);
  return isReadable(descriptor);
}

void Application::runPanel(const std::string& title, const std::string& message) {
  if (isTerminating_) return;  // it would come and go with the program
  const std::unique_ptr<QMessageBox> panel(
      makePanel(panelParent_, QString::fromStdString(title), QString::fromStdString(message)));
  addDefaultButton(*panel);
  panel->exec();
}

void Application::terminate() {
  isTerminating_ = true;
  // Queued: a loop that does not run yet would not hear of it.
  QMetaObject::invokeMethod(
      qApp, [] { QCoreApplication::exit(0); }, Qt::QueuedConnection);
}

int runApplication(int argc, char** argv, platform::WindowHost& host, outlets::InterfaceOwner& owner) {
  std::optional<StartUpMessages> messages(std::in_place);
  QApplication toolkit(argc, argv);
  messages.reset();
  keepFormats();
  introduce();
  QApplication::setQuitOnLastWindowClosed(owner.shouldTerminateAfterLastWindowClosed());
  Application application(host);
  MainWindow window(owner);
  application.setPanelParent(&window);
  std::optional<QSocketNotifier> endRequest;
  if (host.endRequestDescriptor() >= 0) {
    endRequest.emplace(host.endRequestDescriptor(), QSocketNotifier::Read);
    QObject::connect(&*endRequest, &QSocketNotifier::activated, &window, [&] {
      endRequest->setEnabled(false);
      window.endAndTerminate();
    });
  }
  const bool isStarted = owner.interfaceDidLoad(window.connections());
  int status = isStarted ? EXIT_SUCCESS : EXIT_FAILURE;
  if (isStarted && !application.isTerminating()) {
    window.present();
    status = QApplication::exec();
    window.saveFrame();
  }
  owner.applicationWillTerminate();
  return status;
}

}  // namespace window
