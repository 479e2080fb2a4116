#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace window {

/// What an assistive program is told of a thing on the screen.
struct Accessible {
  std::string bus = {};
  std::string path = {};
  std::string role = {};         ///< "push button"
  std::uint32_t roleNumber = 0;  ///< AtspiRole
  std::string name = {};
  std::string description = {};
  bool isFocusable = false;
  std::vector<Accessible> children = {};

  /// Itself and all that is in it, in their order.
  void visit(const std::function<void(const Accessible&)>& visitor) const;
};

/// A signal about a thing.
struct Announcement {
  std::string path;
  /// "TextChanged insert: Starting repair...", "PropertyChange accessible-value", "StateChanged focused"
  std::string text;
};

/// An assistive program: it sees the screen by the accessibility bus alone (AT-SPI 2, at-spi2-core's own
/// D-Bus interfaces). Calls on the main thread let the toolkit, which answers, work meanwhile; what goes
/// wrong on the bus is thrown as sdbus::Error.
class ScreenReader {
 public:
  ScreenReader();
  ~ScreenReader();
  ScreenReader(const ScreenReader&) = delete;
  ScreenReader& operator=(const ScreenReader&) = delete;

  /// Every application, with everything in it. What goes while it is looked at is left out.
  [[nodiscard]] Accessible desktop();

  /// Does a control's first action, as a press.
  void press(const Accessible& control);

  /// A part of a text, to its end with -1; the line around a place in it; and how it looks there, by the
  /// names of IAccessible2's text attributes.
  [[nodiscard]] std::string text(const Accessible& of, int start, int end);
  [[nodiscard]] std::string lineAt(const Accessible& of, int offset);
  [[nodiscard]] std::map<std::string, std::string> looks(const Accessible& of, int offset);

  /// What it was told since it began.
  [[nodiscard]] std::vector<Announcement> announcements() const;

 private:
  [[nodiscard]] Accessible read(const std::string& bus, const std::string& path);
  void note(sdbus::Message& signal);

  std::unique_ptr<sdbus::IConnection> listener_;
  std::unique_ptr<sdbus::IConnection> connection_;
  mutable std::mutex mutex_;
  std::vector<Announcement> announcements_;
};

}  // namespace window
