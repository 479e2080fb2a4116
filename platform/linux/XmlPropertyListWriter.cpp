#include "platform/linux/XmlPropertyListWriter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <string_view>

#include "platform/foundation/Text.h"
#include "platform/linux/Base64.h"

namespace platform {
namespace {

using foundation::Date;
using foundation::PropertyList;

constexpr std::string_view kBeginning =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kEnd = "</plist>\n";

// Lines of data are so long with their tabulators, which count as eight, but never shorter than that.
constexpr std::size_t kLineLength = 76;
constexpr std::size_t kShortestLine = 4;

std::string textOf(double number) {
  if (std::isnan(number)) return "nan";
  if (std::isinf(number)) return number > 0 ? "+infinity" : "-infinity";
  if (number == 0) return "0.0";
  std::array<char, 32> text{};
  const auto written =
      std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::general, 17);
  return {text.data(), written.ptr};
}

std::string textOf(Date date) {
  const auto moment = std::chrono::floor<std::chrono::seconds>(date.moment());
  const auto midnight = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day day(midnight);
  const std::chrono::hh_mm_ss time(moment - midnight);
  return foundation::stringWithFormat("%04d-%02d-%02dT%02d:%02d:%02dZ", static_cast<int>(day.year()),
                                      static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()),
                                      time.hours().count(), time.minutes().count(), time.seconds().count());
}

class Writer {
 public:
  explicit Writer(std::string& output) : output_(output) {}

  // NOLINTNEXTLINE(misc-no-recursion): as deep as the value
  void write(const PropertyList& value) { std::visit(*this, value.value()); }

  void operator()(const PropertyList::Dictionary& dictionary) {
    if (dictionary.empty()) return line("<dict/>");
    line("<dict>");
    ++depth_;
    for (const auto& [key, value] : dictionary) {
      element("key", key);
      write(value);
    }
    --depth_;
    line("</dict>");
  }
  void operator()(const PropertyList::Array& array) {
    if (array.empty()) return line("<array/>");
    line("<array>");
    ++depth_;
    for (const PropertyList& value : array) write(value);
    --depth_;
    line("</array>");
  }
  void operator()(const std::string& text) { element("string", text); }
  void operator()(const PropertyList::Data& data) {
    line("<data>");
    const std::string text = base64(data.bytes);
    const std::size_t indentation = 8 * depth_;
    const std::size_t length = std::max(kLineLength - std::min(indentation, kLineLength), kShortestLine);
    for (std::size_t at = 0; at < text.size(); at += length) line(std::string_view(text).substr(at, length));
    line("</data>");
  }
  void operator()(bool flag) { line(flag ? "<true/>" : "<false/>"); }
  void operator()(std::int64_t number) { element("integer", std::to_string(number)); }
  void operator()(std::uint64_t number) { element("integer", std::to_string(number)); }
  void operator()(double number) { element("real", textOf(number)); }
  void operator()(Date date) { element("date", textOf(date)); }
  void operator()(PropertyList::Uid uid) {
    (*this)(PropertyList::Dictionary{{"CF$UID", PropertyList(uid.value)}});
  }

 private:
  void line(std::string_view content) {
    output_.append(depth_, '\t');
    output_ += content;
    output_ += '\n';
  }
  void element(std::string_view name, std::string_view text) {
    output_.append(depth_, '\t');
    output_.append("<").append(name).append(">");
    appendEscaped(text);
    output_.append("</").append(name).append(">\n");
  }
  /// A carriage return is given by its number: readers of XML take the character itself for a line feed.
  void appendEscaped(std::string_view text) {
    for (const char letter : text) {
      switch (letter) {
        case '&':
          output_ += "&amp;";
          break;
        case '<':
          output_ += "&lt;";
          break;
        case '>':
          output_ += "&gt;";
          break;
        case '\r':
          output_ += "&#13;";
          break;
        default:
          output_ += letter;
      }
    }
  }

  std::string& output_;
  std::size_t depth_ = 0;
};

}  // namespace

std::string xmlPropertyList(const PropertyList& value) {
  std::string output(kBeginning);
  Writer(output).write(value);
  return output.append(kEnd);
}

bool isXmlText(const std::string& text) {
  const auto isForbidden = [](char letter) {
    return static_cast<unsigned char>(letter) < 0x20 && letter != '\t' && letter != '\n' && letter != '\r';
  };
  return std::none_of(text.begin(), text.end(), isForbidden) && foundation::isUtf8(text) &&
         text.find("\xEF\xBF\xBE") == std::string::npos && text.find("\xEF\xBF\xBF") == std::string::npos;
}

}  // namespace platform
