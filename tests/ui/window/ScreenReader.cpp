#include "tests/ui/window/ScreenReader.h"

#include <future>

#include "tests/ui/window/DesktopSession.h"

namespace window {
namespace {

using Reference = sdbus::Struct<std::string, sdbus::ObjectPath>;

constexpr const char* kAccessible = "org.a11y.atspi.Accessible";
constexpr const char* kText = "org.a11y.atspi.Text";
constexpr const char* kRegistry = "org.a11y.atspi.Registry";
constexpr const char* kRoot = "/org/a11y/atspi/accessible/root";
constexpr std::uint32_t kFocusable = 1U << 11U;  // AtspiStateType

/// Where the desktop's accessibility bus is.
std::string busAddress() {
  const auto session = sdbus::createSessionBusConnection();
  const auto bus = sdbus::createProxy(*session, "org.a11y.Bus", "/org/a11y/bus");
  std::string address;
  bus->callMethod("GetAddress").onInterface("org.a11y.Bus").storeResultsTo(address);
  return address;
}

/// Does work that waits for the toolkit's answers.
template <typename Work>
auto whileTheToolkitWorks(Work work) {
  auto result = std::async(std::launch::async, work);
  waitUntil([&] { return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
            std::chrono::seconds(60));
  return result.get();
}

}  // namespace

void Accessible::visit(const std::function<void(const Accessible&)>& visitor) const {
  visitor(*this);
  for (const Accessible& child : children) child.visit(visitor);
}

ScreenReader::ScreenReader() {
  const std::string address = busAddress();
  connection_ = sdbus::createSessionBusConnectionWithAddress(address);
  listener_ = sdbus::createSessionBusConnectionWithAddress(address);
  listener_->addMatch(
      "type='signal',interface='org.a11y.atspi.Event.Object'",
      [this](sdbus::Message& signal) { note(signal); }, sdbus::floating_slot);
  const auto registry = sdbus::createProxy(*connection_, kRegistry, "/org/a11y/atspi/registry");
  for (const std::string event :
       {"object:text-changed", "object:property-change:accessible-name",
        "object:property-change:accessible-value", "object:state-changed:focused"}) {
    registry->callMethod("RegisterEvent").onInterface(kRegistry).withArguments(event);
  }
  listener_->enterEventLoopAsync();
}

ScreenReader::~ScreenReader() {
  listener_->leaveEventLoop();
}

void ScreenReader::note(sdbus::Message& signal) {
  std::string detail;
  std::int32_t first = 0;
  std::int32_t second = 0;
  sdbus::Variant value;
  signal >> detail >> first >> second >> value;
  if (signal.getMemberName() == std::string("StateChanged") && (detail != "focused" || first == 0)) return;
  const bool isText = value.containsValueOfType<std::string>();
  const std::scoped_lock lock(mutex_);
  announcements_.push_back(
      {.path = signal.getPath(),
       .text = signal.getMemberName() + " " + detail + (isText ? ": " + value.get<std::string>() : "")});
}

std::vector<Announcement> ScreenReader::announcements() const {
  const std::scoped_lock lock(mutex_);
  return announcements_;
}

Accessible ScreenReader::read(const std::string& bus, const std::string& path) {
  const auto object = sdbus::createProxy(*connection_, bus, path);
  Accessible thing{.bus = bus, .path = path};
  std::vector<std::uint32_t> states;
  std::vector<Reference> children;
  object->callMethod("GetRoleName").onInterface(kAccessible).storeResultsTo(thing.role);
  object->callMethod("GetRole").onInterface(kAccessible).storeResultsTo(thing.roleNumber);
  object->callMethod("GetState").onInterface(kAccessible).storeResultsTo(states);
  object->callMethod("GetChildren").onInterface(kAccessible).storeResultsTo(children);
  thing.name = object->getProperty("Name").onInterface(kAccessible).get<std::string>();
  thing.description = object->getProperty("Description").onInterface(kAccessible).get<std::string>();
  thing.isFocusable = !states.empty() && (states.front() & kFocusable) != 0;
  for (const Reference& child : children) {
    try {
      thing.children.push_back(read(child.get<0>(), child.get<1>()));
    } catch (const sdbus::Error& error) {
      if (error.getName() != "org.freedesktop.DBus.Error.UnknownObject") throw;
    }
  }
  return thing;
}

Accessible ScreenReader::desktop() {
  return whileTheToolkitWorks([this] { return read(kRegistry, kRoot); });
}

void ScreenReader::press(const Accessible& control) {
  whileTheToolkitWorks([this, &control] {
    const auto object = sdbus::createProxy(*connection_, control.bus, control.path);
    bool isDone = false;
    object->callMethod("DoAction")
        .onInterface("org.a11y.atspi.Action")
        .withArguments(0)
        .storeResultsTo(isDone);
    return isDone;
  });
}

std::string ScreenReader::text(const Accessible& of, int start, int end) {
  return whileTheToolkitWorks([&] {
    std::string text;
    sdbus::createProxy(*connection_, of.bus, of.path)
        ->callMethod("GetText")
        .onInterface(kText)
        .withArguments(start, end)
        .storeResultsTo(text);
    return text;
  });
}

std::string ScreenReader::lineAt(const Accessible& of, int offset) {
  return whileTheToolkitWorks([&] {
    constexpr std::uint32_t kLine = 5;  // AtspiTextBoundaryType, "line start"
    std::string text;
    std::int32_t start = 0;
    std::int32_t end = 0;
    sdbus::createProxy(*connection_, of.bus, of.path)
        ->callMethod("GetTextAtOffset")
        .onInterface(kText)
        .withArguments(offset, kLine)
        .storeResultsTo(text, start, end);
    return text;
  });
}

std::map<std::string, std::string> ScreenReader::looks(const Accessible& of, int offset) {
  return whileTheToolkitWorks([&] {
    std::map<std::string, std::string> looks;
    std::int32_t start = 0;
    std::int32_t end = 0;
    sdbus::createProxy(*connection_, of.bus, of.path)
        ->callMethod("GetAttributes")
        .onInterface(kText)
        .withArguments(offset)
        .storeResultsTo(looks, start, end);
    return looks;
  });
}

}  // namespace window
