#pragma once

#include <functional>
#include <string>

#include "platform/fakes/FakePlatform.h"
#include "platform/foundation/Text.h"
#include "ui/AttributedString.h"

/// The parts of a window, for tests: each records its calls as one line of text.
namespace fakes {

/// Where in a text the character of that number begins, in bytes.
inline std::size_t byteOffset(const std::string& text, std::size_t characters) {
  // From the end: a beginning that stops inside a character counts its bytes one by one.
  for (std::size_t bytes = text.size(); bytes > 0; --bytes) {
    if (foundation::characterCount(text.substr(0, bytes)) == characters) return bytes;
  }
  return 0;
}

/// A console that keeps its text; positions count UTF-16 units, as the window's. Records "console [bold]
/// [red] TEXT" when a text gets its colour, and every call ("view insert bold 12 TEXT") when asked for.
class FakeTextView : public outlets::TextView {
 public:
  explicit FakeTextView(Recorder& recorder) : recorder_(recorder) {}
  void setEditable(bool isEditable) override { note(isEditable ? "editable" : "read-only"); }
  std::size_t length() const override { return foundation::characterCount(text); }
  void setString(const std::string& string) override {
    recorder_.add("console := '" + string + "'");
    text = string;
  }
  void setSelectedRange(outlets::Range range) override {
    selection_ = range;
    note("select " + describe(range));
  }
  void insertText(const std::string& added, outlets::Font font) override {
    note(std::string("insert ") + (font.isBold ? "bold " : "regular ") + describeSize(font) + " " + added);
    const std::size_t from = byteOffset(text, selection_.location);
    const std::size_t to = byteOffset(text, selection_.location + selection_.length);
    text.replace(from, to - from, added);
    selection_ = {selection_.location + foundation::characterCount(added), 0};
    font_ = font;
  }
  void insertAttributedText(const AttributedString& added) override {
    for (const auto& [range, attributes] : added.attributeRuns()) {
      if (!attributes.link.empty()) note("link " + added.string() + " -> " + attributes.link);
    }
    text.insert(byteOffset(text, selection_.location), added.string());
  }
  void setTextColor(outlets::Color color, outlets::Range range) override {
    const std::string name = color == outlets::Color::red ? "red" : "black";
    note("color " + name + " " + describe(range));
    if (recordsCalls) return;
    recorder_.add(std::string("console ") + (font_.isBold ? "[bold] " : "") +
                  (color == outlets::Color::red ? "[red] " : "") + characters(range));
  }
  void scrollRangeToVisible(outlets::Range range) override { note("scroll to " + describe(range)); }
  void setNeedsDisplay() override { note("display"); }

  bool recordsCalls = false;
  std::string text;

 private:
  std::string characters(outlets::Range range) const {
    const std::size_t from = byteOffset(text, range.location);
    return text.substr(from, byteOffset(text, range.location + range.length) - from);
  }
  static std::string describe(outlets::Range range) {
    return std::to_string(range.location) + "+" + std::to_string(range.length);
  }
  static std::string describeSize(outlets::Font font) {
    return foundation::stringWithFormat("%0.1f", font.size);
  }
  void note(const std::string& call) {
    if (recordsCalls) recorder_.add("view " + call);
  }

  Recorder& recorder_;
  outlets::Range selection_;
  outlets::Font font_;
};

class FakeButton : public outlets::Button {
 public:
  explicit FakeButton(Recorder& recorder) : recorder_(recorder) {}
  void setEnabled(bool isEnabled) override {
    recorder_.add(isEnabled ? "button enabled" : "button disabled");
    if (isEnabled && whenEnabled) whenEnabled();
  }

  std::function<void()> whenEnabled;

 private:
  Recorder& recorder_;
};

/// A check box or a menu item.
template <typename Outlet>
class FakeSwitch : public Outlet {
 public:
  explicit FakeSwitch(Recorder& recorder) : recorder_(recorder) {}
  outlets::State state() const override {
    if (failure) throw *failure;
    return current;
  }
  void setState(outlets::State state) override {
    recorder_.add(state == outlets::State::on ? "switch on" : "switch off");
    current = state;
  }

  outlets::State current = outlets::State::off;
  std::optional<foundation::Exception> failure;

 private:
  Recorder& recorder_;
};

/// Records "stage 1 of 10 TITLE", "progress hidden" and "progress broken off".
class FakeProgress : public outlets::ProgressIndicator {
 public:
  explicit FakeProgress(Recorder& recorder) : recorder_(recorder) {}
  void showStage(const std::string& title, std::size_t done, std::size_t total) override {
    recorder_.add("stage " + std::to_string(done) + " of " + std::to_string(total) + " " + title);
    if (whenShown) whenShown(title);
  }
  void hide() override { recorder_.add("progress hidden"); }
  void showBrokenOff() override { recorder_.add("progress broken off"); }

  std::function<void(const std::string& title)> whenShown;

 private:
  Recorder& recorder_;
};

class FakeWindow : public outlets::Window {
 public:
  explicit FakeWindow(Recorder& recorder) : recorder_(recorder) {}
  void beginAlertSheet(const std::string& message, const std::string& informativeText) override {
    recorder_.add("sheet " + message + ": " + informativeText);
  }

 private:
  Recorder& recorder_;
};

}  // namespace fakes
