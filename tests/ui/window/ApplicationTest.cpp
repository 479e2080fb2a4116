#include "ui/window/Application.h"

#include <gmock/gmock.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QTimer>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "tests/ui/window/DesktopSession.h"

namespace window {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

/// A program with a queue of work, as the platform has one.
class QueueHost : public platform::WindowHost {
 public:
  ~QueueHost() override { ::close(wake_); }
  int workDescriptor() override { return wake_; }
  void serveQueued() override {
    const auto work = take();
    if (work) work();
  }
  int endRequestDescriptor() override { return -1; }
  void applicationDidStart(platform::WindowApplication& started) override { application = &started; }
  void applicationDidEnd() override { application = nullptr; }

  void queue(std::function<void()> work) {
    const std::scoped_lock lock(mutex_);
    work_.push_back(std::move(work));
    ::eventfd_write(wake_, 1);
  }

  platform::WindowApplication* application = nullptr;

 private:
  std::function<void()> take() {
    const std::scoped_lock lock(mutex_);
    if (work_.empty()) return nullptr;
    eventfd_t one = 0;
    ::eventfd_read(wake_, &one);
    auto work = std::move(work_.front());
    work_.pop_front();
    return work;
  }

  int wake_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
  std::mutex mutex_;
  std::deque<std::function<void()>> work_;
};

/// Counts the panels that are shown.
class PanelWatch : public QObject {
 public:
  PanelWatch() { qApp->installEventFilter(this); }
  bool eventFilter(QObject* object, QEvent* event) override {
    if (event->type() == QEvent::Show && qobject_cast<QMessageBox*>(object) != nullptr) ++shown;
    return false;
  }

  int shown = 0;
};

class ApplicationTest : public ::testing::Test {
 protected:
  /// What terminating has asked for is over; later tests' loops run again.
  void endLoops() {
    application.terminate();
    EXPECT_EQ(QApplication::exec(), 0);
  }

  QueueHost host;
  Application application{host};
  std::vector<int> order;
};

TEST_F(ApplicationTest, WorkFromOtherThreadsIsDoneByTheLoopInItsOrder) {
  std::thread worker([this] {
    for (int number = 1; number <= 3; ++number) host.queue([this, number] { order.push_back(number); });
  });
  EXPECT_TRUE(waitUntil([this] { return order.size() == 3; }));
  worker.join();
  EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST_F(ApplicationTest, AWaitEndsWhenItsDescriptorIsReadable) {
  const int event = ::eventfd(0, EFD_CLOEXEC);
  host.queue([&] { ::eventfd_write(event, 1); });
  EXPECT_TRUE(application.runUntilReadable(event, std::nullopt));
  EXPECT_TRUE(application.runUntilReadable(event, 0ns)) << "readable already";
  ::close(event);
}

TEST_F(ApplicationTest, AWaitEndsWhenItsTimeHasPassed) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(application.runUntilReadable(-1, 30ms));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 29ms);
  EXPECT_FALSE(application.runUntilReadable(-1, -1ns));
}

TEST_F(ApplicationTest, AWaitWithinServedWorkServesTheRest) {
  host.queue([&] {
    EXPECT_FALSE(application.runUntilReadable(-1, 50ms));
    order.push_back(1);
  });
  host.queue([&] { order.push_back(2); });
  EXPECT_TRUE(waitUntil([this] { return order.size() == 2; }));
  EXPECT_THAT(order, ElementsAre(2, 1));
}

TEST_F(ApplicationTest, ClicksDuringAWaitAreKeptForLater) {
  QPushButton button(QStringLiteral("Press"));
  QObject::connect(&button, &QPushButton::clicked, [this] { order.push_back(1); });
  button.show();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&button));
  QTimer::singleShot(0, [&] {
    const QString place = QStringLiteral("%1 %2")
                              .arg(button.mapToGlobal(button.rect().center()).x())
                              .arg(button.mapToGlobal(button.rect().center()).y());
    QProcess::execute(QStringLiteral("sh"),
                      {QStringLiteral("-c"), QStringLiteral("xdotool mousemove %1 click 1").arg(place)});
  });
  EXPECT_FALSE(application.runUntilReadable(-1, 500ms));
  EXPECT_TRUE(order.empty());
  EXPECT_TRUE(waitUntil([this] { return order.size() == 1; }));
}

TEST_F(ApplicationTest, APanelStandsUntilItIsDismissedAndItsTextsArePlain) {
  QTimer::singleShot(200, [this] {
    auto* const panel = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    ASSERT_NE(panel, nullptr);
    saveScreenshot(*panel, "panel");
    EXPECT_EQ(panel->text(), QStringLiteral("<b>Title</b>"));
    EXPECT_EQ(panel->informativeText(), QStringLiteral("<i>Message</i>"));
    EXPECT_EQ(panel->buttons().size(), 1);
    order.push_back(1);
    QTest::keyClick(panel, Qt::Key_Return);
  });
  application.runPanel("<b>Title</b>", "<i>Message</i>");
  EXPECT_THAT(order, ElementsAre(1));
}

TEST_F(ApplicationTest, AWaitIsNoWaitForTheLoopOfAnApplicationThatIsToEnd) {
  const int event = ::eventfd(0, EFD_CLOEXEC);
  host.queue([this] { application.terminate(); });
  EXPECT_FALSE(application.runUntilReadable(event, std::nullopt)) << "the rest is the platform's";
  EXPECT_FALSE(application.runUntilReadable(event, std::nullopt));
  ::close(event);
  endLoops();
}

TEST_F(ApplicationTest, APanelGoesWithTheApplicationAndNoneComesAnyMore) {
  QTimer::singleShot(200, [this] {
    ASSERT_NE(QApplication::activeModalWidget(), nullptr);
    application.terminate();
  });
  PanelWatch panels;
  application.runPanel("Title", "Message");
  EXPECT_EQ(panels.shown, 1);
  application.runPanel("Title", "Message");
  EXPECT_EQ(panels.shown, 1);
  endLoops();
}

TEST_F(ApplicationTest, TerminatingIsHeardAlsoBeforeTheLoopRuns) {
  application.terminate();
  EXPECT_TRUE(application.isTerminating());
  EXPECT_EQ(QApplication::exec(), 0);
}

TEST(Application, TheHostIsTheApplicationsForItsLife) {
  QueueHost host;
  {
    const Application application(host);
    EXPECT_EQ(host.application, &application);
  }
  EXPECT_EQ(host.application, nullptr);
}

}  // namespace
}  // namespace window
