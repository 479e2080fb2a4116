#pragma once

#include <string>
#include <vector>

#include "ui/Outlets.h"

/// A text with attributes over parts of it, as a text view or a label shows it. Positions and lengths are in
/// characters (UTF-16 units).
class AttributedString {
 public:
  struct Attributes {
    std::string link;  ///< an absolute address; empty is none
    outlets::Color foregroundColor = outlets::Color::black;
    int underlineStyle = 0;  ///< 0 none, 1 single
    bool operator==(const Attributes&) const = default;
  };
  struct Run {
    outlets::Range range;
    Attributes attributes;
    bool operator==(const Run&) const = default;
  };

  explicit AttributedString(std::string string) : string_(std::move(string)) {}

  /// A text that leads to an address when clicked: the link, the standard blue and a single underline over
  /// the whole of it. An empty text has no attributes.
  static AttributedString hyperlinkFromString(const std::string& displayText, const std::string& url);

  /// Adds nothing over an empty range.
  void addAttributes(const Attributes& attributes, outlets::Range range);

  [[nodiscard]] const std::string& string() const { return string_; }
  [[nodiscard]] const std::vector<Run>& attributeRuns() const { return runs_; }

 private:
  std::string string_;
  std::vector<Run> runs_;
};
