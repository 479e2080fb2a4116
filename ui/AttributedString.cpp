#include "ui/AttributedString.h"

#include "platform/foundation/Text.h"

AttributedString AttributedString::hyperlinkFromString(const std::string& displayText,
                                                       const std::string& url) {
  constexpr int kSingle = 1;
  AttributedString hyperlink(displayText);
  hyperlink.addAttributes({.link = url, .foregroundColor = outlets::Color::blue, .underlineStyle = kSingle},
                          {0, foundation::characterCount(displayText)});
  return hyperlink;
}

void AttributedString::addAttributes(const Attributes& attributes, outlets::Range range) {
  if (range.length > 0) runs_.push_back({range, attributes});
}
