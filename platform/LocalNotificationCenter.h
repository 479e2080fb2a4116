#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Notifications.h"

namespace platform {

/// The default notification centre of a process, the same on every system. All functions may be called from
/// any thread and from an observer that is being called: an observer added meanwhile hears the next
/// notification, one removed meanwhile hears no more of this one.
class LocalNotificationCenter : public LocalNotifications {
 public:
  void post(const LocalNotification& notification) override;
  int addObserver(const std::string& name, Observer observer) override;
  void removeObserver(int number) override;

 private:
  struct Entry {
    int number;
    std::string name;
    std::shared_ptr<const Observer> observer;
  };
  [[nodiscard]] std::vector<int> numbersFor(const std::string& name);
  [[nodiscard]] std::shared_ptr<const Observer> observer(int number);

  std::mutex mutex_;
  std::vector<Entry> entries_;  // in order of adding
  int last_ = 0;
};

}  // namespace platform
