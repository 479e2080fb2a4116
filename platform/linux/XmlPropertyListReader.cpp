#include "platform/linux/XmlPropertyListReader.h"

#include <locale.h>  // NOLINT(modernize-deprecated-headers): newlocale is POSIX
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/PropertyLists.h"
#include "platform/linux/Base64.h"
#include "platform/linux/Libexpat.h"

namespace platform {
namespace {

using foundation::Date;
using foundation::PropertyList;
using foundation::Result;
using foundation::systemError;

// What the parser may hold: two copies of the bytes are usual, and something for each element that is open.
constexpr std::size_t kMemoryPerByte = 6;
constexpr std::size_t kMemoryAlways = std::size_t{128} << 10U;

/// The memory of the parser that is at work on this thread. Its functions are told nothing of whom they
/// serve.
class ParserMemory {
 public:
  explicit ParserMemory(std::size_t most) : left_(most) { current = this; }
  ~ParserMemory() { current = nullptr; }
  ParserMemory(const ParserMemory&) = delete;
  ParserMemory& operator=(const ParserMemory&) = delete;

  static const XML_Memory_Handling_Suite& functions() {
    static const XML_Memory_Handling_Suite functions = {&allocate, &resize, &release};
    return functions;
  }
  /// Whether more was asked for.
  [[nodiscard]] bool isExhausted() const { return isExhausted_; }

 private:
  static void* allocate(std::size_t size) { return current->taken(size, nullptr); }
  /// Both pieces count while one is copied to the other.
  static void* resize(void* memory, std::size_t size) {
    const std::size_t before = ::malloc_usable_size(memory);
    void* const now = current->taken(size, memory);
    if (now != nullptr) current->left_ += before;
    return now;
  }
  static void release(void* memory) {
    current->left_ += ::malloc_usable_size(memory);
    std::free(memory);
  }

  void* taken(std::size_t size, void* instead) {
    isExhausted_ = isExhausted_ || size > left_;
    void* const memory = size > left_ ? nullptr : std::realloc(instead, size);
    if (memory != nullptr) left_ -= std::min(left_, ::malloc_usable_size(memory));
    return memory;
  }

  static inline thread_local ParserMemory* current = nullptr;
  std::size_t left_;
  bool isExhausted_ = false;
};

enum class Element { plist, dictionary, array, key, string, data, date, integer, real, yes, no };

std::optional<Element> elementNamed(std::string_view name) {
  static constexpr std::array<std::pair<std::string_view, Element>, 11> kElements = {
      {{"key", Element::key},
       {"string", Element::string},
       {"integer", Element::integer},
       {"dict", Element::dictionary},
       {"array", Element::array},
       {"true", Element::yes},
       {"false", Element::no},
       {"real", Element::real},
       {"date", Element::date},
       {"data", Element::data},
       {"plist", Element::plist}}};
  const auto known = std::find_if(kElements.begin(), kElements.end(),
                                  [name](const auto& candidate) { return candidate.first == name; });
  return known == kElements.end() ? std::nullopt : std::optional(known->second);
}

constexpr std::string_view kWhiteSpace = " \t\n\r";

bool isWhiteSpace(std::string_view text) {
  return text.find_first_not_of(kWhiteSpace) == std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
  return text.substr(0, text.find_last_not_of(kWhiteSpace) + 1);
}

/// The value that a text means: EINVAL for none, ENOTSUP for one that no PropertyList can hold.
using Meaning = Result<PropertyList>;

Meaning nothing() {
  return systemError(EINVAL, "");
}

Meaning beyondAll() {
  return systemError(ENOTSUP, "");
}

/// The whole text as a number of that kind; no fault, or why it is none.
template <typename Number, typename... Form>
std::errc readNumber(std::string_view text, Number& number, Form... form) {
  const char* const end = text.data() + text.size();
  const auto [rest, fault] = std::from_chars(text.data(), end, number, form...);
  return rest == end ? fault : std::errc::invalid_argument;
}

Meaning integerIn(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (isHexadecimal) text.remove_prefix(2);
  std::uint64_t number = 0;
  const std::errc fault = readNumber(text, number, isHexadecimal ? 16 : 10);
  if (fault == std::errc::invalid_argument) return nothing();
  constexpr std::uint64_t kSmallest = std::uint64_t{1} << 63U;
  if (fault != std::errc() || (isNegative && number > kSmallest)) return beyondAll();
  if (isNegative) return PropertyList(static_cast<std::int64_t>(0 - number));
  if (number >= kSmallest) return PropertyList(number);
  return PropertyList(static_cast<std::int64_t>(number));
}

/// What is too large for a number is infinite, and what is too small is zero, as for strtod(3).
double nearest(std::string_view text) {
  static const locale_t everywhere = ::newlocale(LC_ALL_MASK, "C", nullptr);
  return ::strtod_l(std::string(text).c_str(), nullptr, everywhere);
}

Meaning realIn(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  double number = 0;
  const std::errc fault = readNumber(text, number);
  if (fault == std::errc::invalid_argument) return nothing();
  return PropertyList(fault == std::errc() ? number : nearest(text));
}

/// "2011-01-01T10:00:00Z".
Meaning dateIn(std::string_view text) {
  constexpr std::string_view kForm = "0000-00-00T00:00:00Z";
  const auto isDigit = [](char letter) { return letter >= '0' && letter <= '9'; };
  const auto fits = [&](char letter, char form) { return form == '0' ? isDigit(letter) : letter == form; };
  if (!std::equal(text.begin(), text.end(), kForm.begin(), kForm.end(), fits)) return nothing();
  const auto part = [text](std::size_t at, std::size_t length) {
    unsigned number = 0;
    readNumber(text.substr(at, length), number);
    return number;
  };
  const std::chrono::year_month_day day(std::chrono::year(static_cast<int>(part(0, 4))),
                                        std::chrono::month(part(5, 2)), std::chrono::day(part(8, 2)));
  const unsigned hours = part(11, 2);
  const unsigned minutes = part(14, 2);
  const unsigned seconds = part(17, 2);
  if (!day.ok() || hours > 23 || minutes > 59 || seconds > 59) return beyondAll();
  const auto moment = std::chrono::sys_days(day) + std::chrono::hours(hours) + std::chrono::minutes(minutes) +
                      std::chrono::seconds(seconds);
  return PropertyList(Date::fromUnixTime(static_cast<double>(moment.time_since_epoch().count())));
}

Meaning dataIn(std::string_view text) {
  auto bytes = fromBase64(text);
  if (!bytes) return nothing();
  return PropertyList(PropertyList::Data{std::move(*bytes)});
}

enum class Purpose { check, build };

/// One way through a list: what the parser tells of it, in its order. What is only checked is not kept.
class Passage {
 public:
  Passage(Purpose purpose, std::size_t mostValues) : purpose_(purpose), mostValues_(mostValues) {}

  // Each answers whether to go on.
  bool begin(std::string_view name) {
    const auto element = elementNamed(name);
    if (!element || leaf_) return refuse(EINVAL);
    if (*element == Element::plist) return open_.empty() ? enter(*element) : refuse(EINVAL);
    if (!isExpected(*element)) return refuse(EINVAL);
    if (++values_ > mostValues_) return refuse(EFBIG);
    if (*element == Element::dictionary || *element == Element::array) return enter(*element);
    leaf_ = element;
    text_.clear();
    return true;
  }

  bool end() {
    if (leaf_) return endLeaf(*std::exchange(leaf_, std::nullopt));
    Open closed = std::move(open_.back());
    open_.pop_back();
    if (closed.element == Element::plist) return closed.hasValue || refuse(EINVAL);
    --depth_;
    if (closed.element == Element::array) return add(std::move(closed.array));
    if (closed.hasKey) return refuse(EINVAL);
    return add(PropertyList::withoutRepeats(std::move(closed.dictionary)));
  }

  bool addText(std::string_view text) {
    const bool holdsText = leaf_ && *leaf_ != Element::yes && *leaf_ != Element::no;
    if (!holdsText) return isWhiteSpace(text) || refuse(EINVAL);
    const bool isAnyText = *leaf_ == Element::string || *leaf_ == Element::key;
    if (purpose_ == Purpose::build || !isAnyText) text_ += text;
    return true;
  }

  bool refuse(int reason) {
    if (fault_ == 0) fault_ = reason;
    return false;
  }

  /// 0 or an errno value.
  [[nodiscard]] int fault() const { return fault_; }
  /// Whether a PropertyList can hold all that was met.
  [[nodiscard]] bool isExpressible() const { return isExpressible_; }
  [[nodiscard]] PropertyList takeValue() { return std::move(value_); }

 private:
  /// An element that holds others.
  struct Open {
    Element element;
    bool hasValue = false;  ///< one at least
    bool hasKey = false;    ///< whose value is still to come
    std::string key = {};
    PropertyList::Array array = {};
    PropertyList::Dictionary dictionary = {};
  };

  /// Whether a key or a value may stand here.
  [[nodiscard]] bool isExpected(Element element) const {
    if (open_.empty()) return element != Element::key;
    const Open& around = open_.back();
    if (around.element == Element::dictionary) return around.hasKey == (element != Element::key);
    if (element == Element::key) return false;
    return around.element == Element::array || !around.hasValue;
  }

  bool enter(Element element) {
    if (element != Element::plist && ++depth_ > kGreatestNesting) return refuse(EINVAL);
    open_.push_back({element});
    return true;
  }

  bool endLeaf(Element element) {
    if (element == Element::key) {
      open_.back().hasKey = true;
      open_.back().key = std::exchange(text_, {});
      return true;
    }
    auto value = valueOf(element);
    if (value) return add(std::move(value).value());
    if (value.error().code != ENOTSUP) return refuse(value.error().code);
    // What follows may be a fault of more weight.
    isExpressible_ = false;
    return add({});
  }

  Meaning valueOf(Element element) {
    if (element == Element::yes || element == Element::no) return PropertyList(element == Element::yes);
    if (element == Element::string) return PropertyList(std::exchange(text_, {}));
    if (element == Element::integer) return integerIn(trimmed(text_));
    if (element == Element::real) return realIn(trimmed(text_));
    if (element == Element::date) return dateIn(trimmed(text_));
    return dataIn(text_);
  }

  bool add(PropertyList value) {
    Open* const around = open_.empty() ? nullptr : &open_.back();
    if (around != nullptr) {
      around->hasValue = true;
      around->hasKey = false;
    }
    if (purpose_ == Purpose::check) return true;
    if (around == nullptr || around->element == Element::plist) {
      value_ = std::move(value);
    } else if (around->element == Element::array) {
      around->array.push_back(std::move(value));
    } else {
      around->dictionary.emplace_back(std::move(around->key), std::move(value));
    }
    return true;
  }

  Purpose purpose_;
  std::size_t mostValues_;
  std::size_t values_ = 0;
  std::size_t depth_ = 0;
  std::vector<Open> open_;
  std::optional<Element> leaf_;  ///< the element that is open and holds no others
  std::string text_;             ///< of the leaf, so far
  PropertyList value_;
  bool isExpressible_ = true;
  int fault_ = 0;
};

/// Hands the parser's events to a passage until it has had enough.
class Parser {
 public:
  Parser(const Libexpat& expat, std::size_t mostMemory, Passage& passage)
      : expat_(expat),
        memory_(mostMemory),
        parser_(expat.ParserCreate_MM(nullptr, &ParserMemory::functions(), nullptr), expat.ParserFree),
        passage_(passage) {
    if (!parser_) return;
    expat_.SetUserData(parser_.get(), this);
    expat_.SetElementHandler(parser_.get(), &Parser::onBegin, &Parser::onEnd);
    expat_.SetCharacterDataHandler(parser_.get(), &Parser::onText);
    expat_.SetStartDoctypeDeclHandler(parser_.get(), &Parser::onDocumentType);
    expat_.SetSkippedEntityHandler(parser_.get(), &Parser::onUnknownEntity);
  }

  /// Answers 0 or an errno value. What is thrown while an event is handled does not pass through the parser,
  /// which is no C++; it is thrown again behind it.
  int parse(std::string_view bytes) {
    const bool isParsed = parser_ && expat_.Parse(parser_.get(), bytes.data(), static_cast<int>(bytes.size()),
                                                  XML_TRUE) == XML_STATUS_OK;
    if (thrown_) std::rethrow_exception(thrown_);
    if (passage_.fault() != 0) return passage_.fault();
    if (isParsed) return passage_.isExpressible() ? 0 : ENOTSUP;
    if (memory_.isExhausted()) return EFBIG;
    return !parser_ || expat_.GetErrorCode(parser_.get()) == XML_ERROR_NO_MEMORY ? ENOMEM : EINVAL;
  }

 private:
  /// Some events come even after the parser was told to stop.
  template <typename Event>
  static void hand(void* self, Event event) noexcept {
    auto& parser = *static_cast<Parser*>(self);
    if (parser.thrown_ || parser.passage_.fault() != 0) return;
    try {
      if (event(parser.passage_)) return;
    } catch (...) {
      parser.thrown_ = std::current_exception();
    }
    parser.expat_.StopParser(parser.parser_.get(), XML_FALSE);
  }
  static void onBegin(void* self, const XML_Char* name, const XML_Char**) {
    hand(self, [name](Passage& passage) { return passage.begin(name); });
  }
  static void onEnd(void* self, const XML_Char*) {
    hand(self, [](Passage& passage) { return passage.end(); });
  }
  static void onText(void* self, const XML_Char* text, int length) {
    hand(self, [&](Passage& passage) { return passage.addText({text, static_cast<std::size_t>(length)}); });
  }
  static void onDocumentType(void* self, const XML_Char*, const XML_Char*, const XML_Char*,
                             int hasDeclarations) {
    hand(self, [&](Passage& passage) { return hasDeclarations == 0 || passage.refuse(EINVAL); });
  }
  /// With a document type that lies elsewhere an entity without a value is no fault of the XML.
  static void onUnknownEntity(void* self, const XML_Char*, int) {
    hand(self, [](Passage& passage) { return passage.refuse(EINVAL); });
  }

  const Libexpat& expat_;
  ParserMemory memory_;
  std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser_;
  Passage& passage_;
  std::exception_ptr thrown_;
};

}  // namespace

Result<PropertyList> readXmlPropertyList(std::string_view bytes, std::size_t mostValues) {
  if (bytes.size() > INT_MAX) return systemError(EFBIG, "");
  const Libexpat* const expat = Libexpat::shared();
  if (expat == nullptr) return systemError(ENOSYS, "libexpat");
  const std::size_t mostMemory = kMemoryPerByte * bytes.size() + kMemoryAlways;
  PropertyList value;
  for (const Purpose purpose : {Purpose::check, Purpose::build}) {
    Passage passage(purpose, mostValues);
    const int fault = Parser(*expat, mostMemory, passage).parse(bytes);
    if (fault != 0) return systemError(fault, "");
    value = passage.takeValue();
  }
  return value;
}

}  // namespace platform
