#include "platform/linux/BusDistributedNotifications.h"

namespace platform {

void BusDistributedNotifications::post(const std::string& name,
                                       const std::optional<foundation::PropertyList>& userInfo) {
  foundation::PropertyList fields;
  fields.set("name", name);
  if (userInfo) fields.set("userInfo", *userInfo);
  // Whether anybody heard it changes nothing for whoever posts it.
  static_cast<void>(agent_.ask(bus::RequestKind::postSignal, fields));
}

}  // namespace platform
