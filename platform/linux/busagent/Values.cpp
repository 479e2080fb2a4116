#include "platform/linux/busagent/Values.h"

#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>
#include <variant>

namespace busagent {

namespace {

using foundation::PropertyList;

std::string isoText(const foundation::Date& date) {
  const std::time_t seconds =
      std::chrono::floor<std::chrono::seconds>(date.moment().time_since_epoch()).count();
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

struct Appender {
  sdbus::Message& message;

  void operator()(const PropertyList::Dictionary& entries) const {
    message.openContainer("{sv}");
    for (const auto& [key, value] : entries) {
      message.openDictEntry("sv");
      message << key;
      appendVariant(message, value);
      message.closeDictEntry();
    }
    message.closeContainer();
  }
  void operator()(const PropertyList::Array& elements) const {
    message.openContainer("v");
    for (const PropertyList& element : elements) appendVariant(message, element);
    message.closeContainer();
  }
  void operator()(const PropertyList::Data& data) const {
    message.openContainer("y");
    for (const char byte : data.bytes) message << static_cast<std::uint8_t>(byte);
    message.closeContainer();
  }
  void operator()(const foundation::Date& date) const { message << isoText(date); }
  void operator()(const PropertyList::Uid& reference) const { message << reference.value; }
  void operator()(const auto& plain) const { message << plain; }
};

struct Signature {
  const char* operator()(const PropertyList::Dictionary&) const { return "a{sv}"; }
  const char* operator()(const PropertyList::Array&) const { return "av"; }
  const char* operator()(const PropertyList::Data&) const { return "ay"; }
  const char* operator()(bool) const { return "b"; }
  const char* operator()(std::int64_t) const { return "x"; }
  const char* operator()(std::uint64_t) const { return "t"; }
  const char* operator()(const PropertyList::Uid&) const { return "t"; }
  const char* operator()(double) const { return "d"; }
  const char* operator()(const std::string&) const { return "s"; }
  const char* operator()(const foundation::Date&) const { return "s"; }
};

}  // namespace

void append(sdbus::Message& message, const PropertyList& value) {
  std::visit(Appender{message}, value.value());
}

void appendVariant(sdbus::Message& message, const PropertyList& value) {
  message.openVariant(std::visit(Signature{}, value.value()));
  append(message, value);
  message.closeVariant();
}

}  // namespace busagent
