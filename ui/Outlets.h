#pragma once

#include <cstddef>
#include <string>

class AttributedString;

/// The parts of the window that the controller talks to. The window module implements them; everything is
/// called on the main thread. Positions and lengths are in characters (UTF-16 units).
namespace outlets {

enum class Color { black, red, blue };

struct Font {
  bool isBold = false;
  double size = 12.0;
  bool operator==(const Font&) const = default;
};

struct Range {
  std::size_t location = 0;
  std::size_t length = 0;
  bool operator==(const Range&) const = default;
};

class TextView {
 public:
  virtual ~TextView() = default;
  virtual void setEditable(bool isEditable) = 0;
  [[nodiscard]] virtual std::size_t length() const = 0;
  virtual void setString(const std::string& text) = 0;
  virtual void setSelectedRange(Range range) = 0;
  /// Puts text in place of the selection and moves behind it.
  virtual void insertText(const std::string& text, Font font) = 0;
  /// The same, in the regular font of the console, with the attributes of the text.
  virtual void insertAttributedText(const AttributedString& text) = 0;
  virtual void setTextColor(Color color, Range range) = 0;
  virtual void scrollRangeToVisible(Range range) = 0;
  virtual void setNeedsDisplay() = 0;
};

/// What an action is sent by.
class Sender {
 public:
  virtual ~Sender() = default;
};

class Button : public Sender {
 public:
  virtual void setEnabled(bool isEnabled) = 0;
};

/// The states of a check box or a menu item.
enum class State { off = 0, on = 1 };

/// A sender that has a state.
class Switch : public Sender {
 public:
  [[nodiscard]] virtual State state() const = 0;
  virtual void setState(State state) = 0;
};

class CheckBox : public Switch {};

class MenuItem : public Switch {};

/// Shows how far a repair has come.
class ProgressIndicator {
 public:
  virtual ~ProgressIndicator() = default;
  /// The stage that begins, how many are behind it, and how many there are; 0 while that is not known yet.
  virtual void showStage(const std::string& title, std::size_t done, std::size_t total) = 0;
  /// Nothing is under way any more.
  virtual void hide() = 0;
  /// The same, and that the repair has not come to its end; until the next one begins.
  virtual void showBrokenOff() = 0;
};

/// A picture; nothing is asked of it.
class ImageView {
 public:
  virtual ~ImageView() = default;
};

class Window {
 public:
  virtual ~Window() = default;
  /// Shows an alert with the default button only as a sheet of the window, and returns at once.
  virtual void beginAlertSheet(const std::string& message, const std::string& informativeText) = 0;
};

}  // namespace outlets
