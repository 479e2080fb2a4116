#include "platform/LocalNotificationCenter.h"

#include <utility>

namespace platform {

void LocalNotificationCenter::post(const LocalNotification& notification) {
  for (const int number : numbersFor(notification.name)) {
    // Looked up afresh, since an earlier observer may have removed this one; called without the lock held, so
    // that it may add and remove observers itself.
    if (const auto called = observer(number)) (*called)(notification);
  }
}

int LocalNotificationCenter::addObserver(const std::string& name, Observer observer) {
  const std::scoped_lock lock(mutex_);
  entries_.push_back({++last_, name, std::make_shared<const Observer>(std::move(observer))});
  return last_;
}

void LocalNotificationCenter::removeObserver(int number) {
  const std::scoped_lock lock(mutex_);
  std::erase_if(entries_, [number](const Entry& entry) { return entry.number == number; });
}

std::vector<int> LocalNotificationCenter::numbersFor(const std::string& name) {
  const std::scoped_lock lock(mutex_);
  std::vector<int> numbers;
  for (const Entry& entry : entries_) {
    if (entry.name == name) numbers.push_back(entry.number);
  }
  return numbers;
}

std::shared_ptr<const LocalNotifications::Observer> LocalNotificationCenter::observer(int number) {
  const std::scoped_lock lock(mutex_);
  for (const Entry& entry : entries_) {
    if (entry.number == number) return entry.observer;
  }
  return nullptr;
}

}  // namespace platform
