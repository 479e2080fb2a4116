#pragma once

#include <string>

#include "platform/foundation/PropertyList.h"

/// Reports to the application that controls this program, if one listens. Fire and forget: nothing is
/// answered, nothing thrown; without a listener nothing happens, with one each post takes 15 ms so that the
/// message leaves.
class TGTaskNotification {
 public:
  TGTaskNotification() = delete;

  static void postDisconnect();
  static void postTaskErrorString(const std::string& message);
  static void postTaskError(const foundation::PropertyList& error);
  static void postTaskFinished();
  static void postIncrementProgress();
};
