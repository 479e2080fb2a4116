#include "platform/linux/BusDesktopNotifications.h"

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace platform {

namespace {

constexpr std::size_t kMostRemembered = 64;

using ClickContext = std::optional<foundation::Date>;

}  // namespace

/// What is on the screen, and the delivery of what becomes of it. A delivery has a thread of its own while
/// there is something to deliver: the delegate may wait for the main thread, which may be waiting for the
/// agent, whose answers must go on being read.
class BusDesktopNotifications::Callbacks : public std::enable_shared_from_this<Callbacks> {
 public:
  void setDelegate(DesktopNotificationDelegate* delegate) {
    const std::scoped_lock lock(mutex_);
    delegate_ = delegate;
  }

  /// Remembers the context of a notification and gives it a number, never used before.
  std::uint64_t remember(const ClickContext& clickContext) {
    const std::scoped_lock lock(mutex_);
    contexts_.emplace(++lastNumber_, clickContext);
    if (contexts_.size() > kMostRemembered) contexts_.erase(contexts_.begin());
    return lastNumber_;
  }

  void hear(const bus::Report& report) {
    const std::scoped_lock lock(mutex_);
    const auto found = contexts_.find(report.number);
    if (found == contexts_.end()) return;
    events_.push_back({report.kind == bus::ReportKind::notificationClicked, found->second});
    contexts_.erase(found);
    if (!isDelivering_) startDelivering();
  }

 private:
  struct Event {
    bool isClick;
    ClickContext clickContext;
  };

  void startDelivering() try {
    std::thread([self = shared_from_this()] { self->deliver(); }).detach();
    isDelivering_ = true;
  } catch (const std::system_error&) {  // no thread to be had: the next event tries again
  }

  void deliver() {
    while (const auto event = nextEvent()) {
      DesktopNotificationDelegate* delegate = event->second;
      if (delegate == nullptr) continue;
      if (event->first.isClick) {
        delegate->notificationWasClicked(event->first.clickContext);
      } else {
        delegate->notificationTimedOut(event->first.clickContext);
      }
    }
  }

  std::optional<std::pair<Event, DesktopNotificationDelegate*>> nextEvent() {
    const std::scoped_lock lock(mutex_);
    isDelivering_ = !events_.empty();
    if (!isDelivering_) return std::nullopt;
    Event event = events_.front();
    events_.pop_front();
    return std::pair(event, delegate_);
  }

  std::mutex mutex_;
  DesktopNotificationDelegate* delegate_ = nullptr;
  std::map<std::uint64_t, ClickContext> contexts_;
  std::deque<Event> events_;
  bool isDelivering_ = false;
  std::uint64_t lastNumber_ = 0;
};

BusDesktopNotifications::BusDesktopNotifications(BusAgent& agent)
    : agent_(agent), callbacks_(std::make_shared<Callbacks>()) {
  agent_.setReportHandler([callbacks = callbacks_](const bus::Report& report) { callbacks->hear(report); });
}

BusDesktopNotifications::~BusDesktopNotifications() {
  agent_.setReportHandler({});
  callbacks_->setDelegate(nullptr);
}

void BusDesktopNotifications::setDelegate(DesktopNotificationDelegate* delegate) {
  callbacks_->setDelegate(delegate);
}

void BusDesktopNotifications::post(const DesktopNotification& notification) {
  foundation::PropertyList fields;
  fields.set("notification", callbacks_->remember(notification.clickContext));
  fields.set("title", notification.title);
  fields.set("description", notification.description);
  fields.set("priority", notification.priority);
  fields.set("isSticky", notification.isSticky);
  if (notification.iconData) fields.set("icon", foundation::PropertyList::Data{*notification.iconData});
  static_cast<void>(agent_.ask(bus::RequestKind::notify, fields));
}

}  // namespace platform
